#include "tests/support/prc_file_builder.h"

#include <zlib.h>

#include <stdexcept>

#include "tests/support/prc_bit_writer.h"

namespace prc::test {

PRCSection PRCSection::of(const PRCBitWriter& w) { return {w.bytes(), true}; }

std::vector<uint8_t> zlibCompress(const std::vector<uint8_t>& bytes) {
    uLongf size = compressBound(uLong(bytes.size()));
    std::vector<uint8_t> out(size);
    if (compress2(out.data(), &size, bytes.data(), uLong(bytes.size()), Z_DEFAULT_COMPRESSION) != Z_OK)
        throw std::runtime_error("compress2 failed");
    out.resize(size);
    return out;
}

namespace {

void putU32(std::vector<uint8_t>& out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out.push_back(uint8_t(v >> (8 * i)));
}

void putBytes(std::vector<uint8_t>& out, const std::vector<uint8_t>& b) { out.insert(out.end(), b.begin(), b.end()); }

std::vector<uint8_t> stored(const PRCSection& s) { return s.compressed ? zlibCompress(s.bytes) : s.bytes; }

}  // namespace

std::vector<uint8_t> PRCFileBuilder::build() const {
    // Each file structure's bytes and its offsets relative to its start.
    std::vector<std::vector<uint8_t>> bodies;
    std::vector<std::vector<uint32_t>> relative;
    for (const PRCFileStructurePlan& fs : file_structures) {
        std::vector<uint8_t>& b = bodies.emplace_back();
        relative.push_back({0});
        if (fs.head) {  // "PRC", the versions and 36 bytes of identifiers
            b = {'P', 'R', 'C'};
            putU32(b, fs.minimal_version_for_read), putU32(b, fs.authoring_version), b.resize(47);
        }
        for (const PRCSection& s : fs.sections) relative.back().push_back(uint32_t(b.size())), putBytes(b, stored(s));
    }
    // The header's size depends on how many offsets the edits leave: the
    // first pass learns it, the second lays out for real.
    std::vector<std::vector<uint32_t>> listed;
    uint64_t headerSize = 0, position = 0;
    for (int pass = 0; pass < 2; ++pass) {
        position = headerSize;
        headerSize = 3 + 4 + 4 + 16 + 16 + 4 + 8;  // magic, versions, two identifiers, count, model range
        listed.clear();
        for (size_t i = 0; i < bodies.size(); ++i) {
            std::vector<uint32_t>& o = listed.emplace_back();
            for (uint32_t r : relative[i]) o.push_back(uint32_t(position + r));
            position += bodies[i].size();
            if (file_structures[i].edit_offsets) file_structures[i].edit_offsets(o);
            headerSize += 16 + 4 + 4 + 4 * o.size();  // identifier, reserved, count, offsets
        }
    }
    const std::vector<uint8_t> model = stored(model_file);
    std::vector<uint8_t> out = {'P', 'R', 'C'};
    // The versions, the two file identifiers and the count of file structures.
    for (uint32_t v : {minimal_version_for_read, authoring_version, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u}) putU32(out, v);
    putU32(out, uint32_t(listed.size()));
    for (size_t i = 0; i < listed.size(); ++i) {
        for (uint32_t v : file_structures[i].identifier) putU32(out, v);
        putU32(out, 0), putU32(out, uint32_t(listed[i].size()));
        for (uint32_t o : listed[i]) putU32(out, o);
    }
    putU32(out, model_file_start.value_or(uint32_t(position)));
    putU32(out, model_file_end.value_or(uint32_t(position + model.size())));
    for (const std::vector<uint8_t>& b : bodies) putBytes(out, b);
    if (out.size() != position) throw std::logic_error("PRC file layout out of step");
    putBytes(out, model);
    return out;
}

}  // namespace prc::test
