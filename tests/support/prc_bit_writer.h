#pragma once
// Test-only writer of the PRC bit-level encodings: the mirror of PRCBitReader.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace prc::test {

// Sink of a Huffman bit field: bit i goes to bit (i mod 8) of byte i / 8 and a
// value is written least significant bit first, as LsbBitFieldReader reads it.
class LsbBitFieldWriter {
public:
    void writeBits(uint32_t value, int n);
    uint64_t bitCount() const { return bits_; }
    const std::vector<uint8_t>& bytes() const { return bytes_; }

private:
    std::vector<uint8_t> bytes_;
    uint64_t bits_ = 0;
};

// One entry of a Huffman code. `code` holds the element's bits as the decoder
// compares them: the first bit of the element in the field is bit 0.
struct HuffmanLeaf {
    uint32_t value = 0;
    uint32_t length = 1;
    uint32_t code = 0;
};

// A prefix code over the distinct values, shorter codes for more frequent
// values (a lone value gets the one-bit code 0). Leaves in ascending value order.
std::vector<HuffmanLeaf> buildHuffmanCode(const std::vector<uint32_t>& values);

// A complete bit field: the number of leaves, the width of the length fields
// (by default the fewest bits that hold the longest length), each leaf (value
// in numBitsPerElem bits, length, code reversed), the element count and the
// code of every value. Every value must have a leaf.
void writeHuffmanBitField(LsbBitFieldWriter& field, uint8_t numBitsPerElem, const std::vector<HuffmanLeaf>& leaves,
                          const std::vector<uint32_t>& values, uint32_t lengthFieldWidth = 0);

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
    void writeNullString() { writeBit(false); }
    void writeVector3d(double x, double y, double z);
    void writeUserData(uint32_t bits = 0);  // a bit count and that many zero bits

    // Doubles: a value row when one matches the value, else the exponent row
    // with the mantissa bytes. MantissaStyle::Literal writes every byte as a
    // literal; MantissaStyle::Shortest uses the back-references where they fit.
    enum class MantissaStyle { Literal, Shortest };
    void writeDouble(double value, MantissaStyle style = MantissaStyle::Shortest);

    // Graphics block: full (same_as_current false) or reused; the count and
    // pairs after it are written when version > 8137.
    void writeGraphics(uint32_t version, bool same_as_current, uint32_t layer_plus_one = 0,
                       uint32_t style_plus_one = 0, uint16_t behaviour = 1,
                       const std::vector<std::pair<uint32_t, uint32_t>>& pairs = {});

    // Content base of an entity: no attributes, a name (or the reuse bit) and,
    // when the type carries them, three identifiers.
    void writeContentBase(uint32_t type, const std::string* name);
    void writeEmptyContentBase() { writeUnsignedInteger(0); writeEmptyName(); }
    void writeEmptyName() { writeBit(false); writeNullString(); }  // a name read, and empty

    // Compressed arrays. A Huffman array carries its bit field as 32-bit words,
    // each least significant byte first, then the bits used in the last word.
    // The count of used bits may be overridden to build broken arrays.
    void writeHuffmanArray(const LsbBitFieldWriter& field, int64_t bitsUsedInLastWord = -1);
    void writeHuffmanArray(const std::vector<uint32_t>& values, uint8_t numBitsPerElem);
    // Plain (count, then bytes; shorts low byte first) or Huffman-coded, with
    // or without the leading compression bit.
    void writeShortArray(const std::vector<uint16_t>& values, bool compressed, bool withFlag = true,
                         uint8_t numBitsPerElem = 16);
    void writeCharacterArray(const std::vector<uint8_t>& values, bool compressed, bool withFlag = true,
                             uint8_t numBitsPerElem = 8);
    // Bit counts (sign bit + magnitude bits) as a character array of width 6,
    // then each value's sign and magnitude. INT32_MIN has no encoding; Huffman
    // counts stop at 31 (a 6-bit signed leaf).
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
    std::vector<uint8_t> bytes_;
    uint64_t bits_ = 0;
};

}  // namespace prc::test
