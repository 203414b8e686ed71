#include "prc/io/compressed_arrays.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <stdexcept>
#include <string>
#include <unordered_map>

namespace prc {

uint32_t LsbBitFieldReader::peek32NearEnd() const {
    const uint64_t byte = position_ >> 3;
    const uint64_t available = (bit_count_ + 7) >> 3;
    uint64_t w = 0;
    for (uint64_t i = 0; byte + i < available && i < 8; ++i) w |= uint64_t(bytes_[byte + i]) << (8 * i);
    return uint32_t(w >> (position_ & 7));
}

uint32_t LsbBitFieldReader::read(int n) {
    if (n > 32) throw std::runtime_error("LsbBitFieldReader: more than 32 bits requested");
    if (n <= 0) return 0;
    if (position_ >= bit_count_ || bit_count_ - position_ < uint64_t(n))
        throw std::runtime_error("LsbBitFieldReader: bit field exhausted");
    const uint32_t w = peek32();
    position_ += uint64_t(n);
    return n == 32 ? w : w & ((uint32_t(1) << n) - 1);
}

namespace {

[[noreturn]] void fail(const char* message) { throw std::runtime_error(message); }

uint32_t reverseBits(uint32_t v, uint32_t n) {
    uint32_t r = 0;
    for (uint32_t i = 0; i < n; ++i, v >>= 1) r = r << 1 | (v & 1);
    return r;
}

// The code table of one bit field. Lookups try lengths from the shortest up and
// take the first (length, code) present, so a shorter code shadows every
// longer one that starts with it. Lengths up to direct_bits are resolved in one
// step by a table indexed by the next direct_bits bits of the field: its entry
// is the first length that matches, found the same way the slow path would.
// Longer codes are looked up per length in a hash map.
class HuffmanTable {
public:
    struct Direct {
        uint32_t value = 0;
        uint8_t length = 0;  // 0: no code of up to direct_bits bits matches
    };

    uint32_t shortest = 33;
    uint32_t longest = 0;
    uint32_t direct_bits = 0;
    std::vector<Direct> direct;                         // 2^direct_bits entries
    std::unordered_map<uint64_t, uint32_t> long_codes;  // (length << 32 | code) -> value

    void add(uint32_t length, uint32_t code, uint32_t value) {
        leaves_.push_back({length, code, value});
        shortest = std::min(shortest, length);
        longest = std::max(longest, length);
    }

    void reserve(uint64_t leaves) { leaves_.reserve(size_t(leaves)); }

    // Called once after the last leaf, when the element count is known: the
    // direct table grows with the work it saves, from 2^11 entries up to 2^16
    // for arrays of 64 Ki elements or more. A repeated key keeps the later value.
    void build(uint32_t elementCount) {
        const uint32_t wanted = std::clamp<uint32_t>(uint32_t(std::bit_width(elementCount)), 12, 17) - 1;
        direct_bits = std::min(longest, wanted);
        // Sorting by key keeps equal keys in leaf order; the last of each run wins.
        std::stable_sort(leaves_.begin(), leaves_.end(), [](const Leaf& a, const Leaf& b) {
            return a.length != b.length ? a.length < b.length : a.code < b.code;
        });
        direct.assign(size_t(1) << direct_bits, Direct{});
        for (size_t i = 0; i < leaves_.size(); ++i) {
            const Leaf& leaf = leaves_[i];
            if (i + 1 < leaves_.size() && leaves_[i + 1].length == leaf.length && leaves_[i + 1].code == leaf.code)
                continue;
            if (leaf.length > direct_bits) {
                long_codes.emplace(uint64_t(leaf.length) << 32 | leaf.code, leaf.value);
                continue;
            }
            // Every index whose low bits are this code, unless a shorter code
            // (filled earlier) took it already. For a prefix code the fills add
            // up to at most the table's size.
            const size_t step = size_t(1) << leaf.length;
            for (size_t x = leaf.code; x < direct.size(); x += step)
                if (direct[x].length == 0) direct[x] = {leaf.value, uint8_t(leaf.length)};
        }
        leaves_.clear();
        leaves_.shrink_to_fit();
    }

private:
    struct Leaf {
        uint32_t length, code, value;
    };
    std::vector<Leaf> leaves_;
};

[[noreturn]] void fieldExhausted() { fail("LsbBitFieldReader: bit field exhausted"); }

// One element: the first length, from the shortest up, whose bits are a key.
// A trial length that would pass the end of the field fails, even when a
// longer one could never have matched either.
uint32_t decodeElement(LsbBitFieldReader& field, const HuffmanTable& table) {
    const uint64_t left = field.bitCount() - field.position();
    const uint32_t bits = field.peek32();
    if (table.direct_bits != 0) {
        const HuffmanTable::Direct& e = table.direct[bits & ((uint32_t(1) << table.direct_bits) - 1)];
        if (e.length != 0) {
            // Every trial length up to e.length comes first; the one just past
            // the end, if any, fails before the match is reached.
            if (e.length > left) fieldExhausted();
            field.seek(field.position() + e.length);
            return e.value;
        }
    }
    // No key of up to direct_bits bits matches where the bits are real; lengths
    // past the end still fail in order.
    for (uint32_t length = table.shortest; length <= table.longest; ++length) {
        if (length > left) fieldExhausted();
        if (length <= table.direct_bits) continue;
        const uint32_t code = length == 32 ? bits : bits & ((uint32_t(1) << length) - 1);
        auto it = table.long_codes.find(uint64_t(length) << 32 | code);
        if (it != table.long_codes.end()) {
            field.seek(field.position() + length);
            return it->second;
        }
    }
    fail("decodeHuffmanBitField: unrecognized code");
}

// A plain array costs at least bitsPerElement bits an element: a count beyond
// that cannot be real and must not size the result.
template <typename T>
std::vector<T> readPlainArray(PRCBitReader& r, uint64_t bitsPerElement) {
    const uint32_t count = r.readUnsignedInteger();
    std::vector<T> out;
    out.reserve(r.entriesThatFit(count, bitsPerElement));
    for (uint32_t i = 0; i < count; ++i) {
        if constexpr (sizeof(T) == 2) {
            const uint32_t low = r.readCharacter();
            const uint32_t high = r.readCharacter();
            out.push_back(T(high << 8 | low));
        } else {
            out.push_back(r.readCharacter());
        }
    }
    return out;
}

}  // namespace

std::vector<uint32_t> decodeHuffmanBitField(LsbBitFieldReader& field, uint8_t numBitsPerElem, bool isSigned) {
    const uint32_t leaves = field.read(int(numBitsPerElem) + 1);
    if (leaves == 0) return {};
    const uint32_t max_code_length = field.read(8);
    if (max_code_length == 0 || max_code_length > 32) fail("decodeHuffmanBitField: max_code_length out of range");

    HuffmanTable table;
    // A leaf takes at least its length field and one code bit.
    const uint64_t left = field.bitCount() - std::min(field.bitCount(), field.position());
    table.reserve(std::min<uint64_t>(leaves, left / (uint64_t(numBitsPerElem) + max_code_length + 1)));
    for (uint32_t i = 0; i < leaves; ++i) {
        uint32_t value = field.read(numBitsPerElem);
        if (isSigned && numBitsPerElem > 0 && numBitsPerElem < 32 && (value >> (numBitsPerElem - 1)) & 1)
            value |= ~uint32_t(0) << numBitsPerElem;
        const uint32_t length = field.read(int(max_code_length));
        if (length == 0 || length > 32) fail("decodeHuffmanBitField: code length out of range");
        const uint32_t code = reverseBits(field.read(int(length)), length);
        table.add(length, code, value);
    }
    const uint32_t element_array_size = field.read(32);
    if (element_array_size > kMaxHuffmanElementCount) fail("decodeHuffmanBitField: implausible element_array_size");
    table.build(element_array_size);
    // Every element takes at least one bit of the field.
    std::vector<uint32_t> out;
    out.reserve(size_t(std::min<uint64_t>(element_array_size, field.bitCount() - field.position())));
    uint32_t i = 0;
    if (table.direct_bits != 0) {
        // While 64 bits of the field lie ahead, the 8 bytes from the one that
        // holds the next bit are inside it, so one load gives the next 57 bits
        // or more, and every direct code (16 bits at most) is whole: no bounds
        // check per element, and no fall-back while the direct table knows the code.
        const uint8_t* bytes = field.bytes();
        const uint64_t mask = (uint64_t(1) << table.direct_bits) - 1;
        uint64_t position = field.position();
        for (; i < element_array_size && field.bitCount() - position >= 64; ++i) {
            uint64_t w;
            std::memcpy(&w, bytes + (position >> 3), 8);
            if constexpr (std::endian::native == std::endian::big) w = __builtin_bswap64(w);
            const HuffmanTable::Direct& e = table.direct[(w >> (position & 7)) & mask];
            if (e.length == 0) break;
            position += e.length;
            out.push_back(e.value);
        }
        field.seek(position);
    }
    for (; i < element_array_size; ++i) out.push_back(decodeElement(field, table));
    return out;
}

std::vector<uint32_t> readHuffmanCompressedArray(PRCBitReader& r, uint8_t numBitsPerElem, bool isSigned) {
    const uint32_t huffman_array_size = r.readUnsignedInteger();
    if (huffman_array_size == 0) return {};
    if (huffman_array_size > kMaxHuffmanArrayWords) fail("readHuffmanCompressedArray: implausible huffman_array_size");
    // The words must be in the section before their buffer is allocated.
    const uint64_t bytes = uint64_t(huffman_array_size) * 4;
    if (bytes * 8 > r.bitsRemaining()) fail("PRCBitReader: read past end");
    std::vector<uint8_t> buffer(static_cast<size_t>(bytes));
    for (uint64_t i = 0; i < bytes; i += 4) {
        const uint32_t word = r.readBits(32);  // four bytes in stream order
        buffer[i] = uint8_t(word >> 24);
        buffer[i + 1] = uint8_t(word >> 16);
        buffer[i + 2] = uint8_t(word >> 8);
        buffer[i + 3] = uint8_t(word);
    }
    const uint32_t used = r.readUnsignedInteger();
    if (used > 32) {
        throw std::runtime_error("readHuffmanCompressedArray: number_of_bits_used_in_last_integer=" + std::to_string(used) +
                                 " out of range (huffman_array_size=" + std::to_string(huffman_array_size) + ")");
    }
    LsbBitFieldReader field(buffer.data(), bytes * 8 - 32 + used);
    return decodeHuffmanBitField(field, numBitsPerElem, isSigned);
}

std::vector<uint16_t> readShortArray(PRCBitReader& r, uint8_t numBitsPerElem, bool readFlag, bool defaultCompressed,
                                     bool isSigned) {
    if (numBitsPerElem == 0 || numBitsPerElem > 16) fail("readShortArray: numBitsPerElem out of range");
    const bool compressed = readFlag ? r.readBoolean() : defaultCompressed;
    if (!compressed) return readPlainArray<uint16_t>(r, 16);
    const std::vector<uint32_t> values = readHuffmanCompressedArray(r, numBitsPerElem, isSigned);
    std::vector<uint16_t> out(values.size());
    for (size_t i = 0; i < values.size(); ++i) out[i] = uint16_t(values[i]);
    return out;
}

std::vector<uint8_t> readCharacterArray(PRCBitReader& r, uint8_t numBitsPerElem, bool readFlag, bool defaultCompressed,
                                        bool isSigned) {
    if (numBitsPerElem == 0 || numBitsPerElem > 8) fail("readCharacterArray: numBitsPerElem out of range");
    const bool compressed = readFlag ? r.readBoolean() : defaultCompressed;
    if (!compressed) return readPlainArray<uint8_t>(r, 8);
    const std::vector<uint32_t> values = readHuffmanCompressedArray(r, numBitsPerElem, isSigned);
    std::vector<uint8_t> out(values.size());
    for (size_t i = 0; i < values.size(); ++i) out[i] = uint8_t(values[i]);
    return out;
}

namespace {

// A sign bit and, above a bit count of 1, count - 1 magnitude bits.
int32_t readSignedMagnitude(PRCBitReader& r, uint32_t bitCount) {
    const bool negative = r.readBoolean();
    const uint32_t magnitude = bitCount > 1 ? r.readBits(int(bitCount - 1)) : 0;
    return int32_t(negative ? 0u - magnitude : magnitude);
}

}  // namespace

std::vector<int32_t> readCompressedIntegerArray(PRCBitReader& r) {
    const std::vector<uint8_t> counts = readCharacterArray(r, 6, true, true, true);
    std::vector<int32_t> out;
    out.reserve(counts.size());
    for (const uint8_t count : counts) {
        if (count > 32) fail("readCompressedIntegerArray: bit count out of range");
        out.push_back(readSignedMagnitude(r, count));
    }
    return out;
}

std::vector<int32_t> readCompressedIndiceArray(PRCBitReader& r, bool readFlag, uint8_t bitCountWidth,
                                               bool defaultCompressed) {
    const std::vector<uint8_t> counts = readCharacterArray(r, bitCountWidth, readFlag, defaultCompressed, true);
    std::vector<int32_t> out;
    out.reserve(counts.size());
    // The counts are differences between successive bit counts; indices are
    // differences too. Both run in 32-bit two's complement.
    uint32_t bitCount = 0;
    uint32_t index = 0;
    for (size_t i = 0; i < counts.size(); ++i) {
        bitCount += uint32_t(int32_t(int8_t(counts[i])));
        if (bitCount > 32) fail("readCompressedIndiceArray: bit count out of range");
        const uint32_t delta = uint32_t(readSignedMagnitude(r, bitCount));
        index = i == 0 ? delta : index + delta;
        if (i != 0 && int32_t(index) < 0) fail("readCompressedIndiceArray: negative index");
        out.push_back(int32_t(index));
    }
    return out;
}

}  // namespace prc
