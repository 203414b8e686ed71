#pragma once
// Test-only builder of whole PRC files, laid out as real writers do:
//   header | file structure 0 | file structure 1 | ... | model file section
// where a file structure is its head at offsets[0] followed by section k at
// offsets[k], k = 1..5 (globals, tree, tessellations, then the two geometry
// sections real files carry). The last section ends where the next file
// structure (or the model file section) begins; the model file section ends
// the file.

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "prc/io/prc_header.h"

namespace prc::test {

class PRCBitWriter;

struct PRCSection {
    std::vector<uint8_t> bytes;  // the inflated content
    bool compressed = true;      // false: `bytes` are stored as they are (not a zlib stream)

    static PRCSection of(const PRCBitWriter& w);  // what the writer wrote, compressed
    static PRCSection raw(std::vector<uint8_t> bytes) { return {std::move(bytes), false}; }
};

struct PRCFileStructurePlan {
    FileStructureId identifier{0x11111111, 0x22222222, 0x33333333, 0x44444444};
    uint32_t minimal_version_for_read = 8137;
    uint32_t authoring_version = 8137;
    // The head: "PRC", the two versions and 36 bytes of identifiers. Without
    // it, offsets[0] is where section 1 begins.
    bool head = true;
    // Section k is sections[k - 1]; empty by default (each reader decides
    // what an empty one means).
    std::vector<PRCSection> sections = std::vector<PRCSection>(5);
    // Last word on the offsets listed in the header (drop some, move one
    // beyond the file, ...); it must leave the same count on every call.
    std::function<void(std::vector<uint32_t>&)> edit_offsets;

    PRCFileStructurePlan& globals(PRCSection s) { return sections[0] = std::move(s), *this; }
    PRCFileStructurePlan& tree(PRCSection s) { return sections[1] = std::move(s), *this; }
    PRCFileStructurePlan& tessellation(PRCSection s) { return sections[2] = std::move(s), *this; }
};

struct PRCFileBuilder {
    uint32_t minimal_version_for_read = 8137;
    uint32_t authoring_version = 8137;
    std::vector<PRCFileStructurePlan> file_structures;
    PRCSection model_file;
    std::optional<uint32_t> model_file_start, model_file_end;  // override what the header says

    PRCFileStructurePlan& addFileStructure() { return file_structures.emplace_back(); }
    std::vector<uint8_t> build() const;
};

std::vector<uint8_t> zlibCompress(const std::vector<uint8_t>& bytes);

}  // namespace prc::test
