#pragma once
// One file structure in memory: its globals, its product structure (the tree
// section) and its tessellations, each section read on its own.

#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "prc/entities/globals.h"
#include "prc/entities/representation_item.h"
#include "prc/entities/transformation.h"
#include "prc/io/bit_reader.h"
#include "prc/io/inflate_section.h"
#include "prc/io/prc_header.h"
#include "prc/tess/face_triangulation.h"
#include "prc/tess/tessellation_section.h"

namespace prc {

struct PRCPartDefinition {
    std::vector<PRCRepresentationItem> representation_items;
    uint32_t line_style_index = 0xFFFFFFFF;
};

struct PRCProductOccurrence {
    std::string name;
    int64_t index_part = -1;
    int64_t index_prototype = -1;
    bool prototype_in_same_file_structure = true;
    FileStructureId prototype_file_structure{};
    uint32_t line_style_index = 0xFFFFFFFF;
    uint8_t product_behaviour = 0;
    uint8_t product_information_flags = 0;
    std::vector<uint32_t> son_product_occurrences;  // as stored, unchecked
    bool has_location = false;
    Matrix4 location = kIdentityMatrix;
};

// A highly compressed tessellation rebuilt ahead of the walk: its points and
// triangles (no colours), or what its rebuild raised.
struct RebuiltCompressedTess {
    TessMesh geometry;
    std::exception_ptr failure;
    bool taken = false;  // the geometry has moved into a piece
};

// Piece cache key: (tessellation index, packed colour), index first.
using PieceKey = std::pair<int64_t, uint32_t>;

struct PRCFileStructure {
    uint32_t minimal_version_for_read = 0;
    uint32_t authoring_version = 0;
    PRCGlobals globals;
    std::vector<PRCPartDefinition> part_definitions;
    std::vector<PRCProductOccurrence> product_occurrences;
    bool tree_loaded = false;
    std::vector<PRC3DTess> tessellations;
    std::vector<PRC3DTessCompressed> compressed_tessellations;
    std::vector<TessellationRef> tessellation_refs;
    // Owned by the assembly: each tessellation triangulated once per colour.
    std::map<PieceKey, TessMesh> piece_cache;
    // One per compressed tessellation when they were rebuilt ahead of the
    // walk, else empty and each is rebuilt where the walk meets it.
    std::vector<RebuiltCompressedTess> rebuilt_compressed;
    // Set by the exact decoder only: the piece of a B-rep model item without
    // a tessellation, from the file structure's exact geometry, in the given
    // packed colour, for the given placement (whose scale sets how finely it
    // is tessellated); null when there is none. The worker leaves it empty.
    std::function<const TessMesh*(const PRCRepresentationItem&, uint32_t colour, const double placement[16])>
        exact_piece;
};

struct PRCFileStructureTree {
    std::vector<PRCPartDefinition> part_definitions;
    std::vector<PRCProductOccurrence> product_occurrences;
};

// Fills fileStructures[index] from the file structure's globals, tree and
// tessellation sections; a failing section is lost alone, nothing escapes.
void readFileStructure(const PRCHeader& header, std::vector<PRCFileStructure>& fileStructures, const uint8_t* data,
                       uint64_t size, uint32_t index);

PRCFileStructureTree readFileStructureTree(PRCBitReader& r);
PRCPartDefinition readPartDefinition(PRCBitReader& r);
PRCProductOccurrence readProductOccurrence(PRCBitReader& r);

// The inflated bytes of [start, end) of the file; fails with
// "sezione vuota o fuori dal file" when the range is empty or leaves the file.
InflatedSection inflateFileSection(const uint8_t* data, uint64_t size, uint32_t start, uint32_t end);

}  // namespace prc
