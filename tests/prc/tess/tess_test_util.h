#pragma once
// Shared helpers of the tessellation tests: readers over exactly sized copies
// of written bits, so that the sanitizers catch any read past the data.

#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "prc/io/bit_reader.h"
#include "prc/tess/tessellation_section.h"
#include "tests/support/prc_bit_writer.h"

namespace prc::test {

class ExactBytes {
public:
    explicit ExactBytes(const std::vector<uint8_t>& bytes, size_t length)
        : data_(new uint8_t[length]), size_(length) {
        if (length) std::memcpy(data_.get(), bytes.data(), length);
    }
    explicit ExactBytes(const std::vector<uint8_t>& bytes) : ExactBytes(bytes, bytes.size()) {}
    const uint8_t* data() const { return data_.get(); }
    uint64_t size() const { return size_; }

private:
    std::unique_ptr<uint8_t[]> data_;
    uint64_t size_;
};

// A reader over what a writer wrote, owning its copy.
struct WrittenReader {
    WrittenReader(const PRCBitWriter& w, uint32_t version) : bytes(w.bytes()), reader(bytes.data(), bytes.size(), version) {}
    ExactBytes bytes;
    PRCBitReader reader;
};

struct SectionResult {
    std::vector<PRC3DTess> tessellations;
    std::vector<PRC3DTessCompressed> compressed;
    std::vector<TessellationRef> refs;
};

inline SectionResult readSection(const std::vector<uint8_t>& bytes, uint32_t version, size_t length) {
    ExactBytes exact(bytes, length);
    SectionResult out;
    out.tessellations = readFileStructureTessellation(exact.data(), exact.size(), version, version, out.compressed, &out.refs);
    return out;
}

inline SectionResult readSection(const std::vector<uint8_t>& bytes, uint32_t version) {
    return readSection(bytes, version, bytes.size());
}

}  // namespace prc::test
