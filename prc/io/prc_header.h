#pragma once
// The uncompressed PRC file header: file structures and their section offsets.

#include <array>
#include <cstdint>
#include <vector>

namespace prc {

using FileStructureId = std::array<uint32_t, 4>;

struct RawByteReader {
    const uint8_t* data;
    uint64_t size;
    uint64_t position;
    uint32_t readU32();
};

struct FileStructureDescriptor {
    FileStructureId identifier{};
    uint32_t reserved = 0;
    std::vector<uint32_t> offsets;
};

struct PRCHeader {
    uint32_t minimal_version_for_read = 0;
    uint32_t authoring_version = 0;
    FileStructureId first_file_identifier{};
    FileStructureId second_file_identifier{};
    uint32_t number_of_file_structures = 0;
    std::vector<FileStructureDescriptor> file_structures;
    uint32_t model_file_start = 0;
    uint32_t model_file_end = 0;
};

PRCHeader readPRCHeader(const uint8_t* data, uint64_t size);

// Low half: minimal_version_for_read, high half: authoring_version of the file
// structure head at offset; all ones when there is no "PRC" head there.
constexpr uint64_t kFileStructureHeaderNotFound = ~uint64_t(0);
uint64_t readFileStructureHeader(const uint8_t* data, uint64_t size, uint32_t offset);

}  // namespace prc
