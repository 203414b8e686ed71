#pragma once
// Test-only builder of whole PRC files: the uncompressed header, each file
// structure (its head, then its zlib sections) and the model file section.
//
// The layout is the one real writers use:
//   header | file structure 0 | file structure 1 | ... | model file section
// where a file structure is its head at offsets[0] followed by section k at
// offsets[k], k = 1..n. Sections 1, 2, 3 are the globals, the tree and the
// tessellations; real files add two more (geometry and extra geometry), so a
// file structure lists six offsets. The last section has no offset after it:
// it ends where the next file structure (or the model file section) begins.
// model_file_end is the end of the file.

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
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
    uint32_t reserved = 0;
    uint32_t minimal_version_for_read = 8137;
    uint32_t authoring_version = 8137;
    // The head: "PRC" and the two versions, then filler (real writers put 36
    // bytes of identifiers there). Without a head, offsets[0] is where
    // section 1 begins.
    bool head = true;
    uint32_t head_filler = 36;
    // Section k is sections[k - 1]; the defaults hold empty sections that real
    // files would fill (the reader of each decides what an empty one means).
    std::vector<PRCSection> sections = std::vector<PRCSection>(5);
    // Last word on the offsets listed in the header, after the layout is done
    // (drop some, move one beyond the file, ...).
    std::function<void(std::vector<uint32_t>&)> edit_offsets;

    PRCFileStructurePlan& globals(PRCSection s) { return section(1, std::move(s)); }
    PRCFileStructurePlan& tree(PRCSection s) { return section(2, std::move(s)); }
    PRCFileStructurePlan& tessellation(PRCSection s) { return section(3, std::move(s)); }
    PRCFileStructurePlan& section(size_t k, PRCSection s);
};

// Where things ended up in the built file.
struct PRCFileLayout {
    std::vector<std::vector<uint32_t>> offsets;  // as listed in the header, per file structure
    std::vector<uint32_t> file_structure_ends;   // one past each file structure's last byte
    uint32_t model_file_start = 0;
    uint32_t model_file_end = 0;
};

class PRCFileBuilder {
public:
    uint32_t minimal_version_for_read = 8137;
    uint32_t authoring_version = 8137;
    FileStructureId first_file_identifier{1, 2, 3, 4};
    FileStructureId second_file_identifier{5, 6, 7, 8};
    std::vector<PRCFileStructurePlan> file_structures;
    PRCSection model_file;
    // Override what the header says about the model file section.
    std::optional<uint32_t> model_file_start, model_file_end;
    std::vector<uint8_t> trailing;  // bytes after the model file section

    PRCFileStructurePlan& addFileStructure() {
        file_structures.emplace_back();
        return file_structures.back();
    }

    std::vector<uint8_t> build(PRCFileLayout* layout = nullptr) const;
};

// zlib stream of the bytes (compress2, default level).
std::vector<uint8_t> zlibCompress(const std::vector<uint8_t>& bytes);

}  // namespace prc::test
