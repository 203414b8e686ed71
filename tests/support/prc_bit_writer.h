#pragma once
// Test-only writer of the PRC bit-level encodings: the mirror of PRCBitReader.

#include <cstdint>
#include <string>
#include <vector>

namespace prc::test {

class PRCBitWriter {
public:
    void writeBit(bool bit);
    void writeBits(uint32_t value, int n);  // most significant first
    void writeCharacter(uint8_t byte) { writeBits(byte, 8); }
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

    uint64_t bitCount() const { return bits_; }
    // The bytes written so far, the last one padded with zero bits.
    const std::vector<uint8_t>& bytes() const { return bytes_; }
    void append(const PRCBitWriter& other);

private:
    std::vector<uint8_t> bytes_;
    uint64_t bits_ = 0;
};

}  // namespace prc::test
