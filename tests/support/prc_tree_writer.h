#pragma once
// Test-only writers of tree sections (part definitions, product occurrences,
// internal data) and of the model file section, the mirror of their readers.
// Indices are written as stored: index + 1, 0 for none.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "prc/entities/transformation.h"
#include "prc/io/prc_header.h"
#include "tests/support/prc_bit_writer.h"

namespace prc::test {

// A poly-B-rep model (237), a set of items (239) or an empty item (0).
struct TreeItemFields {
    uint32_t type = 237;
    uint32_t tessellation_plus_one = 0;
    uint32_t coordinate_system_plus_one = 0;
    uint32_t style_plus_one = 0;
    std::vector<TreeItemFields> items;  // for a set
};

struct PartDefinitionFields {
    std::string name = "part";
    uint32_t style_plus_one = 0;
    std::vector<TreeItemFields> items;
    uint32_t user_data_bits = 0;
};

struct ProductOccurrenceFields {
    std::optional<std::string> name = std::string();  // nullopt: the reuse bit (same as the current name)
    uint32_t style_plus_one = 0;
    uint32_t part_plus_one = 0;
    uint32_t prototype_plus_one = 0;
    std::optional<FileStructureId> prototype_file_structure{};  // nullopt: the same file structure
    uint32_t external_plus_one = 0;
    std::optional<FileStructureId> external_file_structure{};
    std::vector<uint32_t> sons{};  // as stored
    uint8_t behaviour = 0;
    uint8_t information_flags = 0;
    std::optional<Matrix4> location{};  // written as a general transformation
    uint32_t user_data_bits = 0;
};

// A whole tree section: type, empty base, the lists, the internal data and the user data.
void writeTreeSection(PRCBitWriter& w, uint32_t version, const std::vector<PartDefinitionFields>& parts,
                      const std::vector<ProductOccurrenceFields>& occurrences);

// The model file section: its product entries (file structure, occurrence index + 1).
struct ModelFileEntry {
    FileStructureId file_structure{};
    uint32_t index_plus_one = 0;
};
void writeModelFile(PRCBitWriter& w, const std::vector<ModelFileEntry>& entries);

Matrix4 translationMatrix(double x, double y, double z);

}  // namespace prc::test
