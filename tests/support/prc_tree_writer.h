#pragma once
// Test-only writers of tree sections (part definitions, product occurrences,
// internal data) and of the model file section, the mirror of their readers.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "prc/entities/transformation.h"
#include "prc/io/prc_header.h"
#include "tests/support/prc_bit_writer.h"

namespace prc::test {

// A representation item as a part definition stores it: a poly-B-rep model
// (or a set of items); indices are written as stored, index + 1 with 0 for none.
struct TreeItemFields {
    uint32_t type = 237;  // 237 poly-B-rep model, 239 set
    uint32_t tessellation_plus_one = 0;
    uint32_t coordinate_system_plus_one = 0;
    uint32_t style_plus_one = 0;
    std::vector<TreeItemFields> items;  // for a set
};
void writeTreeItem(PRCBitWriter& w, uint32_t version, const TreeItemFields& item);

struct PartDefinitionFields {
    std::string name = "part";
    uint32_t style_plus_one = 0;
    std::vector<TreeItemFields> items;
    uint32_t user_data_bits = 0;
};
void writePartDefinition(PRCBitWriter& w, uint32_t version, const PartDefinitionFields& part);

struct ProductOccurrenceFields {
    std::optional<std::string> name = std::string();  // nullopt: the reuse bit (same as the current name)
    uint32_t style_plus_one = 0;
    uint32_t part_plus_one = 0;
    uint32_t prototype_plus_one = 0;
    bool prototype_same_file_structure = true;
    FileStructureId prototype_file_structure{};
    uint32_t external_plus_one = 0;
    bool external_same_file_structure = true;
    FileStructureId external_file_structure{};
    std::vector<uint32_t> sons;  // as stored
    uint8_t behaviour = 0;
    double unit = 1.0;
    uint8_t information_flags = 0;
    int32_t load_status = 0;
    std::optional<Matrix4> location;  // written as a general transformation
    bool entity_filter = false;       // an empty filter block when set
    uint32_t user_data_bits = 0;
};
void writeProductOccurrence(PRCBitWriter& w, uint32_t version, const ProductOccurrenceFields& occurrence);

// A whole tree section: type, empty base, the lists, the internal data and
// the user data.
void writeTreeSection(PRCBitWriter& w, uint32_t version, const std::vector<PartDefinitionFields>& parts,
                      const std::vector<ProductOccurrenceFields>& occurrences);

// The model file section: a schema of one entry, the model file entity and
// its product entries (file structure identifier, occurrence index + 1).
struct ModelFileEntry {
    FileStructureId file_structure{};
    uint32_t index_plus_one = 0;
};
void writeModelFile(PRCBitWriter& w, const std::vector<ModelFileEntry>& entries);

// Row-major translation, scaling and mirroring helpers for locations.
Matrix4 translationMatrix(double x, double y, double z);
Matrix4 scaleMatrix(double sx, double sy, double sz);

}  // namespace prc::test
