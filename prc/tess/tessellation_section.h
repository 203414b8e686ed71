#pragma once
// The tessellation section of a file structure: plain 3D tessellations kept,
// compressed ones handed to their reader, wires and markups read and dropped.

#include <cstdint>
#include <vector>

#include "prc/io/bit_reader.h"
#include "prc/tess/compressed_tess_reading.h"

namespace prc {

struct PRCTessFace {
    uint32_t used_entities_flag = 0;
    std::vector<uint32_t> line_attributes;  // style index, 0xFFFFFFFF for none
    std::vector<uint32_t> sizes_triangulated;
    bool has_vertex_colors = false;
    bool is_rgba = false;
    std::vector<uint8_t> rgba_vertices;
};

struct PRC3DTess {
    std::vector<double> coordinates;
    std::vector<double> normal_coordinates;
    std::vector<uint32_t> triangulated_indices;
    std::vector<PRCTessFace> faces;
    double crease_angle = 0.0;
    bool must_recalculate_normals = true;
};

enum class TessellationKind : int64_t { Dropped = 0, Tess3D = 1, Compressed = 2 };

struct TessellationRef {
    TessellationKind kind = TessellationKind::Dropped;
    int64_t index = 0;
};

// Reads the whole section. Errors inside a tessellation end the reading
// silently, keeping what was read before it; errors in the section head escape.
std::vector<PRC3DTess> readFileStructureTessellation(const uint8_t* data, uint64_t size,
                                                     uint32_t minimal_version_for_read, uint32_t authoring_version,
                                                     std::vector<PRC3DTessCompressed>& compressed,
                                                     std::vector<TessellationRef>* refs);

PRC3DTess readPRC3DTess(PRCBitReader& r);
PRCTessFace readTessFace(PRCBitReader& r);
void readPRC3DWireTess(PRCBitReader& r);
uint64_t countWireColorEntries(const std::vector<uint32_t>& wire_indexes, bool is_segment_color);
void readPRCMarkupTess(PRCBitReader& r);
std::vector<double> readTessBase(PRCBitReader& r);

}  // namespace prc
