#pragma once
// Readers over exactly sized heap copies of written bits, so that the
// sanitizers catch any read past the data.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "prc/io/bit_reader.h"
#include "prc/tess/tessellation_section.h"
#include "tests/support/prc_bit_writer.h"

namespace prc::test {

struct ExactBytes {
    ExactBytes(const std::vector<uint8_t>& bytes, size_t length) : data(new uint8_t[length]), size(length) {
        if (length) std::memcpy(data.get(), bytes.data(), length);
    }
    std::unique_ptr<uint8_t[]> data;
    uint64_t size;
};

struct WrittenReader {
    WrittenReader(const PRCBitWriter& w, uint32_t version)
        : bytes(w.bytes(), w.bytes().size()), reader(bytes.data.get(), bytes.size, version) {}
    ExactBytes bytes;
    PRCBitReader reader;
};

struct SectionResult {
    std::vector<PRC3DTess> tessellations;
    std::vector<PRC3DTessCompressed> compressed;
    std::vector<TessellationRef> refs;
};

inline SectionResult readSection(const std::vector<uint8_t>& bytes, uint32_t version, size_t length = SIZE_MAX) {
    ExactBytes exact(bytes, std::min(length, bytes.size()));
    SectionResult out;
    out.tessellations =
        readFileStructureTessellation(exact.data.get(), exact.size, version, version, out.compressed, &out.refs);
    return out;
}

}  // namespace prc::test
