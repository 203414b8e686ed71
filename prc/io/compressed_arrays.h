#pragma once
// Arrays of the compressed tessellation: plain or Huffman-coded small integers
// and variable-width signed numbers.

#include <bit>
#include <cstdint>
#include <cstring>
#include <vector>

#include "prc/io/bit_reader.h"

namespace prc {

// Cursor over a Huffman bit field: bit i is bit (i mod 8) of byte i / 8,
// values are assembled least significant bit first.
class LsbBitFieldReader {
public:
    LsbBitFieldReader(const uint8_t* bytes, uint64_t bit_count) : bytes_(bytes), bit_count_(bit_count) {}
    uint32_t read(int n);
    // The next 32 bits, least significant first, without moving; bits at or
    // past the bit count are unspecified (never read from beyond the buffer).
    uint32_t peek32() const {
        // Any 32 bits starting at a bit offset span at most 5 bytes; the
        // field's bytes end at the byte holding its last valid bit, so nothing
        // beyond it is touched. Bits past the bit count come back as whatever
        // the last byte holds, or zero: callers compare only bits below the count.
        const uint64_t byte = position_ >> 3;
        if (byte + 8 > (bit_count_ + 7) >> 3) [[unlikely]]
            return peek32NearEnd();
        uint64_t w;
        std::memcpy(&w, bytes_ + byte, 8);
        if constexpr (std::endian::native == std::endian::big) w = __builtin_bswap64(w);
        return uint32_t(w >> (position_ & 7));
    }
    uint64_t position() const { return position_; }
    void seek(uint64_t position) { position_ = position; }
    uint64_t bitCount() const { return bit_count_; }
    const uint8_t* bytes() const { return bytes_; }

private:
    uint32_t peek32NearEnd() const;

    const uint8_t* bytes_;
    uint64_t bit_count_;
    uint64_t position_ = 0;
};

constexpr uint32_t kMaxHuffmanArrayWords = 67108864;      // 0x4000000
constexpr uint32_t kMaxHuffmanElementCount = 134217728;   // 0x8000000

std::vector<uint16_t> readShortArray(PRCBitReader& r, uint8_t numBitsPerElem, bool readFlag, bool defaultCompressed,
                                     bool isSigned);
std::vector<uint8_t> readCharacterArray(PRCBitReader& r, uint8_t numBitsPerElem, bool readFlag, bool defaultCompressed,
                                        bool isSigned);
std::vector<uint32_t> readHuffmanCompressedArray(PRCBitReader& r, uint8_t numBitsPerElem, bool isSigned);
std::vector<uint32_t> decodeHuffmanBitField(LsbBitFieldReader& field, uint8_t numBitsPerElem, bool isSigned);
std::vector<int32_t> readCompressedIntegerArray(PRCBitReader& r);
std::vector<int32_t> readCompressedIndiceArray(PRCBitReader& r, bool readFlag, uint8_t bitCountWidth,
                                               bool defaultCompressed);

}  // namespace prc
