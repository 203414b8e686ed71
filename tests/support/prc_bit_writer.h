#pragma once
// Test-only writer of the PRC bit-level encodings: the mirror of PRCBitReader.

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace prc::test {

// Sink of a Huffman bit field: bit i goes to bit (i mod 8) of byte i / 8 and a
// value is written least significant bit first, as LsbBitFieldReader reads it.
struct LsbBitFieldWriter {
    std::vector<uint8_t> bytes;
    uint64_t bitCount = 0;
    void writeBits(uint32_t value, int n);
};

class PRCBitWriter {
public:
    void writeBit(bool bit);
    void writeBits(uint32_t value, int n);  // most significant first
    void writeCharacter(uint8_t byte) { writeBits(byte, 8); }
    // Bits spelled as '0' and '1' in stream order; blanks are ignored.
    void writeBitString(std::string_view bits);
    void writeUnsignedInteger(uint32_t value);
    void writeInteger(int32_t value);
    void writeString(const std::string& s);
    void writeVector3d(double x, double y, double z) { writeDouble(x), writeDouble(y), writeDouble(z); }
    void writeUserData(uint32_t bits = 0) { writeUnsignedInteger(bits), writeBits(0, int(bits)); }  // that many zero bits
    // A value row when one matches, else the exponent row and the mantissa
    // bytes, each as the shortest of a literal and the back-references.
    void writeDouble(double value);

    // Graphics block: full (same_as_current false) or reused; the count and
    // pairs after it are written when version > 8137.
    void writeGraphics(uint32_t version, bool same_as_current, uint32_t layer_plus_one = 0,
                       uint32_t style_plus_one = 0, uint16_t behaviour = 1,
                       const std::vector<std::pair<uint32_t, uint32_t>>& pairs = {});

    // Content base of an entity: no attributes, a name (or the reuse bit when
    // name is null) and, when the type carries them, three identifiers.
    void writeContentBase(uint32_t type, const std::string* name);
    void writeEmptyContentBase() { writeUnsignedInteger(0); writeEmptyName(); }
    void writeEmptyName() { writeBitString("00"); }  // a name read, and absent

    // A Huffman array: the field as 32-bit words, each least significant byte
    // first, then the bits used in the last word (overridable, to break it).
    void writeHuffmanArray(const LsbBitFieldWriter& field, int64_t bitsUsedInLastWord = -1);  // -1: the true count
    // Plain (count, then bytes; shorts low byte first) or Huffman-coded, with
    // or without the leading compression bit.
    void writeShortArray(const std::vector<uint16_t>& v, bool compressed, bool withFlag = true, uint8_t numBits = 16) {
        writeSmallArray(v, compressed, withFlag, numBits);
    }
    void writeCharacterArray(const std::vector<uint8_t>& v, bool compressed, bool withFlag = true, uint8_t numBits = 8) {
        writeSmallArray(v, compressed, withFlag, numBits);
    }
    // Bit counts (sign bit + magnitude bits) as a character array of width 6,
    // then each value's sign and magnitude. INT32_MIN has no encoding; Huffman
    // counts must fit a 6-bit signed leaf (up to 31).
    void writeCompressedIntegerArray(const std::vector<int32_t>& values, bool compressedCounts = true);
    // Index arrays: the deltas between successive values, their bit counts
    // given as differences (character array of bitCountWidth bits).
    void writeCompressedIndiceArray(const std::vector<int32_t>& values, bool compressedCounts, bool withFlag = true,
                                    uint8_t bitCountWidth = 6);

    uint64_t bitCount() const { return bits_; }
    // The bytes written so far, the last one padded with zero bits.
    const std::vector<uint8_t>& bytes() const { return bytes_; }
    void append(const PRCBitWriter& other);

private:
    template <typename T>  // defined for uint8_t and uint16_t
    void writeSmallArray(const std::vector<T>& values, bool compressed, bool withFlag, uint8_t bits);
    std::vector<uint8_t> bytes_;
    uint64_t bits_ = 0;
};

// A complete Huffman bit field over values of numBitsPerElem bits: the leaves
// (the most frequent value gets the one-bit code 0, every other value a 1 then
// its rank in fixed width), the element count and each value's code.
LsbBitFieldWriter huffmanBitField(const std::vector<uint32_t>& values, uint8_t numBitsPerElem);

}  // namespace prc::test
