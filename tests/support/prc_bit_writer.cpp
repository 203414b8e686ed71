#include "tests/support/prc_bit_writer.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <map>
#include <stdexcept>

#include "prc/io/frequent_doubles.h"

namespace prc::test {

void PRCBitWriter::writeBit(bool bit) {
    if (bits_ % 8 == 0) bytes_.push_back(0);
    if (bit) bytes_.back() |= uint8_t(0x80 >> (bits_ % 8));
    ++bits_;
}

void PRCBitWriter::writeBits(uint32_t value, int n) {
    for (int i = n - 1; i >= 0; --i) writeBit(i < 32 && ((value >> i) & 1));
}

void PRCBitWriter::writeBitString(std::string_view bits) {
    for (char c : bits) {
        if (c != '0' && c != '1' && c != ' ') throw std::logic_error("bit string holds something other than 0, 1, blank");
        if (c != ' ') writeBit(c == '1');
    }
}

void PRCBitWriter::writeUnsignedInteger(uint32_t value) {
    for (; value != 0; value >>= 8) writeBit(true), writeCharacter(uint8_t(value));
    writeBit(false);
}

void PRCBitWriter::writeInteger(int32_t value) {
    // Bytes least significant first until what is left is the sign extension
    // of the last byte written; zero is the closing bit alone.
    for (bool more = value != 0; more; value >>= 8) {  // arithmetic shift
        const uint8_t byte = uint8_t(uint32_t(value));
        writeBit(true), writeCharacter(byte);
        more = (value >> 8) != ((byte & 0x80) ? -1 : 0);
    }
    writeBit(false);
}

void PRCBitWriter::writeString(const std::string& s) {
    writeBit(true), writeUnsignedInteger(uint32_t(s.size()));
    for (char c : s) writeCharacter(uint8_t(c));
}

void PRCBitWriter::writeDouble(double value) {
    // The first row of a kind for a value pattern (value rows) or a biased
    // exponent (exponent rows).
    static const auto rows = [] {
        std::map<std::pair<uint8_t, uint64_t>, const FrequentDoubleEntry*> m;
        for (const FrequentDoubleEntry& e : frequentDoubleTable())
            m.emplace(std::pair{e.kind, e.kind == 0 ? e.value : (e.value >> 52) & 0x7FF}, &e);
        return m;
    }();
    const uint64_t pattern = std::bit_cast<uint64_t>(value), sign = pattern >> 63;
    const uint64_t exponent = (pattern >> 52) & 0x7FF, mantissa = pattern & ((uint64_t(1) << 52) - 1);
    // Any value row but zero's is matched by magnitude, with a sign bit after
    // it; zero's row is +0.0 alone, without one.
    const uint64_t magnitude = pattern & ~(sign << 63);
    if (auto it = rows.find({0, magnitude}); it != rows.end() && (magnitude != 0 || sign == 0)) {
        writeBits(it->second->code, it->second->bit_count);
        if (magnitude != 0) writeBit(sign != 0);
        return;
    }
    const FrequentDoubleEntry* row = rows.at({1, exponent});
    writeBits(row->code, row->bit_count);
    writeBit(sign != 0), writeBit(mantissa != 0);
    if (mantissa == 0) return;
    const uint32_t nibble = uint32_t(mantissa >> 48) & 0xF;
    writeBits(nibble, 4);
    uint8_t b[8];
    for (int i = 0; i < 6; ++i) b[i] = uint8_t(mantissa >> (8 * i));
    b[6] = uint8_t((exponent << 4 | nibble) & 0xFF);
    b[7] = uint8_t(sign << 7 | exponent >> 4);
    for (int i = 5; i >= 0; --i) {
        // Code 0: this byte and all after it repeat the previous one; code 6:
        // all but the last, which follows as a literal; others copy b[i + code].
        const auto repeats = [&](int last) {
            for (int j = i; j >= last; --j)
                if (b[j] != b[i + 1]) return false;
            return true;
        };
        if (repeats(0)) return writeBitString("0000");
        if (i >= 1 && repeats(1)) return writeBitString("0110"), writeCharacter(b[0]);
        int ref = 1;
        while (ref <= 7 && (ref == 6 || i + ref > 7 || b[i + ref] != b[i])) ++ref;
        writeBit(ref > 7);
        if (ref > 7) writeCharacter(b[i]);
        else writeBits(uint32_t(ref), 3);
    }
}

void PRCBitWriter::writeGraphics(uint32_t version, bool same_as_current, uint32_t layer_plus_one,
                                 uint32_t style_plus_one, uint16_t behaviour,
                                 const std::vector<std::pair<uint32_t, uint32_t>>& pairs) {
    writeBit(same_as_current);
    if (!same_as_current) {
        writeUnsignedInteger(layer_plus_one), writeUnsignedInteger(style_plus_one);
        writeCharacter(uint8_t(behaviour)), writeCharacter(uint8_t(behaviour >> 8));  // low byte first
    }
    if (version <= 8137) return;
    writeUnsignedInteger(uint32_t(pairs.size()));
    for (auto [a, b] : pairs) writeUnsignedInteger(a), writeUnsignedInteger(b);
}

void PRCBitWriter::writeContentBase(uint32_t type, const std::string* name) {
    writeUnsignedInteger(0);  // attributes
    writeBit(name == nullptr);  // set: the same name as the current one
    if (name) writeString(*name);
    if (!((type >= 301 && type <= 305) || type == 703))  // the types without identifiers
        for (int i = 0; i < 3; ++i) writeUnsignedInteger(0);
}

void PRCBitWriter::append(const PRCBitWriter& other) {
    for (uint64_t i = 0; i < other.bits_; ++i) writeBit((other.bytes_[i / 8] >> (7 - i % 8)) & 1);
}

void LsbBitFieldWriter::writeBits(uint32_t value, int n) {
    for (int i = 0; i < n; ++i, ++bitCount) {
        if (bitCount % 8 == 0) bytes.push_back(0);
        if (i < 32 && ((value >> i) & 1)) bytes.back() |= uint8_t(1u << (bitCount % 8));
    }
}

LsbBitFieldWriter huffmanBitField(const std::vector<uint32_t>& values, uint8_t numBitsPerElem) {
    std::map<uint32_t, uint32_t> frequency;
    for (uint32_t v : values) ++frequency[v];
    LsbBitFieldWriter f;
    f.writeBits(uint32_t(frequency.size()), numBitsPerElem + 1);
    if (frequency.empty()) return f;
    const uint32_t top =
        std::max_element(frequency.begin(), frequency.end(), [](auto& a, auto& b) { return a.second < b.second; })->first;
    const int rankBits = frequency.size() > 1 ? std::bit_width(frequency.size() - 2) : 0;
    const int lengthWidth = std::bit_width(unsigned(1 + rankBits));
    // value -> (code, length); the code as the decoder compares it: the first bit in the field is bit 0
    std::map<uint32_t, std::pair<uint32_t, int>> code;
    uint32_t rank = 0;
    for (auto [v, n] : frequency) code[v] = v == top ? std::pair{0u, 1} : std::pair{1 | rank++ << 1, 1 + rankBits};
    f.writeBits(uint32_t(lengthWidth), 8);
    for (auto [v, c] : code) {
        f.writeBits(v, numBitsPerElem);
        f.writeBits(uint32_t(c.second), lengthWidth);
        for (int i = 0; i < c.second; ++i) f.writeBits(c.first >> (c.second - 1 - i), 1);  // leaves spell it reversed
    }
    f.writeBits(uint32_t(values.size()), 32);
    for (uint32_t v : values) f.writeBits(code[v].first, code[v].second);
    return f;
}

void PRCBitWriter::writeHuffmanArray(const LsbBitFieldWriter& field, int64_t bitsUsedInLastWord) {
    const uint64_t words = (field.bitCount + 31) / 32;
    writeUnsignedInteger(uint32_t(words));
    if (words == 0) return;
    for (uint64_t i = 0; i < words * 4; ++i) writeCharacter(i < field.bytes.size() ? field.bytes[i] : 0);
    const uint64_t used = bitsUsedInLastWord >= 0 ? uint64_t(bitsUsedInLastWord) : field.bitCount - 32 * (words - 1);
    writeUnsignedInteger(uint32_t(used));
}

// Plain (each value's bytes, low first) or Huffman-coded (each value's low
// numBitsPerElem bits).
template <typename T>
void PRCBitWriter::writeSmallArray(const std::vector<T>& values, bool compressed, bool withFlag, uint8_t bits) {
    if (withFlag) writeBit(compressed);
    std::vector<uint32_t> stored;
    for (T v : values) stored.push_back(uint32_t(v & ((1u << bits) - 1)));
    if (compressed) return writeHuffmanArray(huffmanBitField(stored, bits));
    writeUnsignedInteger(uint32_t(values.size()));
    for (T v : values)
        for (size_t i = 0; i < sizeof(T); ++i) writeCharacter(uint8_t(v >> (8 * i)));
}
template void PRCBitWriter::writeSmallArray(const std::vector<uint8_t>&, bool, bool, uint8_t);
template void PRCBitWriter::writeSmallArray(const std::vector<uint16_t>&, bool, bool, uint8_t);

namespace {

// Each value's bit count (sign bit plus magnitude bits; zero takes the sign
// bit alone), as differences of successive counts when `relative`, then each
// value's sign and magnitude.
void writeSignedMagnitudes(PRCBitWriter& w, const std::vector<int64_t>& values, bool relative, bool compressedCounts,
                           bool withFlag, uint8_t bitCountWidth) {
    std::vector<uint32_t> bits;
    std::vector<uint8_t> counts;
    for (size_t i = 0; i < values.size(); ++i) {
        bits.push_back(1 + uint32_t(std::bit_width(uint64_t(std::abs(values[i])))));
        counts.push_back(uint8_t(bits[i] - (relative && i > 0 ? bits[i - 1] : 0)));
        if (!relative && compressedCounts && bits[i] > 31)
            throw std::logic_error("bit count does not fit a 6-bit signed leaf");
    }
    w.writeCharacterArray(counts, compressedCounts, withFlag, bitCountWidth);
    for (size_t i = 0; i < values.size(); ++i)
        w.writeBit(values[i] < 0), w.writeBits(uint32_t(std::abs(values[i])), int(bits[i]) - 1);
}

}  // namespace

void PRCBitWriter::writeCompressedIntegerArray(const std::vector<int32_t>& values, bool compressedCounts) {
    writeSignedMagnitudes(*this, std::vector<int64_t>(values.begin(), values.end()), false, compressedCounts, true, 6);
}

void PRCBitWriter::writeCompressedIndiceArray(const std::vector<int32_t>& values, bool compressedCounts, bool withFlag,
                                              uint8_t bitCountWidth) {
    std::vector<int64_t> deltas;
    for (size_t i = 0; i < values.size(); ++i) deltas.push_back(int64_t(values[i]) - (i == 0 ? 0 : values[i - 1]));
    writeSignedMagnitudes(*this, deltas, true, compressedCounts, withFlag, bitCountWidth);
}

}  // namespace prc::test
