#include "prc/io/prc_header.h"

#include <stdexcept>

namespace prc {

uint32_t RawByteReader::readU32() {
    if (position > size || size - position < 4) throw std::runtime_error("RawByteReader: read past end (u32)");
    const uint8_t* p = data + position;
    position += 4;
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

namespace {

bool hasMagic(const uint8_t* p, uint64_t available) {
    return available >= 3 && p[0] == 'P' && p[1] == 'R' && p[2] == 'C';
}

FileStructureId readId(RawByteReader& r) {
    FileStructureId id;
    for (uint32_t& w : id) w = r.readU32();
    return id;
}

}  // namespace

PRCHeader readPRCHeader(const uint8_t* data, uint64_t size) {
    if (data == nullptr || !hasMagic(data, size)) throw std::runtime_error("RawByteReader: expected magic \"PRC\"");
    RawByteReader r{data, size, 3};
    PRCHeader h;
    h.minimal_version_for_read = r.readU32();
    h.authoring_version = r.readU32();
    h.first_file_identifier = readId(r);
    h.second_file_identifier = readId(r);
    h.number_of_file_structures = r.readU32();
    // 24 bytes is the least a descriptor can take: identifier, reserved word, count.
    if (h.number_of_file_structures > (size - r.position) / 24)
        throw std::runtime_error("PRC header: number_of_file_structures larger than the data");
    h.file_structures.resize(h.number_of_file_structures);
    for (FileStructureDescriptor& fs : h.file_structures) {
        fs.identifier = readId(r);
        fs.reserved = r.readU32();
        const uint32_t count = r.readU32();
        if (count > (size - r.position) / 4) throw std::runtime_error("PRC header: number_of_offsets larger than the data");
        fs.offsets.resize(count);
        for (uint32_t& o : fs.offsets) o = r.readU32();
    }
    h.model_file_start = r.readU32();
    h.model_file_end = r.readU32();
    return h;
}

uint64_t readFileStructureHeader(const uint8_t* data, uint64_t size, uint32_t offset) {
    if (offset > size || size - offset < 11 || !hasMagic(data + offset, size - offset)) return kFileStructureHeaderNotFound;
    RawByteReader r{data, size, uint64_t(offset) + 3};
    const uint64_t minimal = r.readU32();
    const uint64_t authoring = r.readU32();
    return authoring << 32 | minimal;
}

}  // namespace prc
