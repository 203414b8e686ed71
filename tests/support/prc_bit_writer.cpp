#include "tests/support/prc_bit_writer.h"

#include <bit>
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

void PRCBitWriter::writeUnsignedInteger(uint32_t value) {
    while (value != 0) {
        writeBit(true);
        writeCharacter(uint8_t(value));
        value >>= 8;
    }
    writeBit(false);
}

void PRCBitWriter::writeInteger(int32_t value) {
    // Bytes least significant first until the rest is the sign extension of
    // the last byte written.
    while (value != 0) {  // zero is the closing bit alone
        const uint8_t byte = uint8_t(uint32_t(value));
        writeBit(true);
        writeCharacter(byte);
        value >>= 8;  // arithmetic
        if ((value == 0 && !(byte & 0x80)) || (value == -1 && (byte & 0x80))) break;
        if (value == 0) {  // a positive value whose last byte has its top bit set
            writeBit(true);
            writeCharacter(0);
            break;
        }
    }
    writeBit(false);
}

void PRCBitWriter::writeString(const std::string& s) {
    writeBit(true);
    writeUnsignedInteger(uint32_t(s.size()));
    for (char c : s) writeCharacter(uint8_t(c));
}

void PRCBitWriter::writeVector3d(double x, double y, double z) {
    writeDouble(x);
    writeDouble(y);
    writeDouble(z);
}

void PRCBitWriter::writeUserData(uint32_t bits) {
    writeUnsignedInteger(bits);
    for (uint32_t i = 0; i < bits; ++i) writeBit(false);
}

namespace {

const FrequentDoubleEntry* findRow(uint8_t kind, uint64_t value) {
    for (const FrequentDoubleEntry& e : frequentDoubleTable()) {
        if (e.kind != kind) continue;
        if (kind == 0 && e.value == value) return &e;
        if (kind == 1 && ((e.value >> 52) & 0x7FF) == value) return &e;
    }
    return nullptr;
}

}  // namespace

void PRCBitWriter::writeDouble(double value, MantissaStyle style) {
    const uint64_t pattern = std::bit_cast<uint64_t>(value);
    const uint64_t sign = pattern >> 63;
    if (pattern == 0) {
        const FrequentDoubleEntry* zero = findRow(0, 0);
        writeBits(zero->code, zero->bit_count);
        return;
    }
    const uint64_t magnitude = pattern & ~(uint64_t(1) << 63);
    if (magnitude != 0) {
        if (const FrequentDoubleEntry* row = findRow(0, magnitude)) {
            writeBits(row->code, row->bit_count);
            writeBit(sign != 0);
            return;
        }
    }
    const uint64_t exponent = (pattern >> 52) & 0x7FF;
    const FrequentDoubleEntry* row = findRow(1, exponent);
    if (!row) throw std::logic_error("no exponent row");
    writeBits(row->code, row->bit_count);
    writeBit(sign != 0);
    const uint64_t mantissa = pattern & ((uint64_t(1) << 52) - 1);
    if (mantissa == 0) {
        writeBit(false);
        return;
    }
    writeBit(true);
    const uint32_t nibble = uint32_t(mantissa >> 48) & 0xF;
    writeBits(nibble, 4);
    uint8_t b[8];
    for (int i = 0; i < 6; ++i) b[i] = uint8_t(mantissa >> (8 * i));
    b[7] = uint8_t(sign << 7 | exponent >> 4);
    b[6] = uint8_t((exponent << 4 | nibble) & 0xFF);
    for (int i = 5; i >= 0; --i) {
        if (style == MantissaStyle::Shortest) {
            bool rest_equal = true;
            for (int j = i; j >= 0; --j) rest_equal = rest_equal && b[j] == b[i + 1];
            if (rest_equal) {
                writeBit(false);
                writeBits(0, 3);
                return;
            }
            if (i >= 1) {
                bool all_but_last = true;
                for (int j = i; j >= 1; --j) all_but_last = all_but_last && b[j] == b[i + 1];
                if (all_but_last) {
                    writeBit(false);
                    writeBits(6, 3);
                    writeCharacter(b[0]);
                    return;
                }
            }
            int ref = 0;
            for (int c = 1; c <= 7 && i + c <= 7; ++c)
                if (c != 6 && b[i + c] == b[i]) {
                    ref = c;
                    break;
                }
            if (ref != 0) {
                writeBit(false);
                writeBits(uint32_t(ref), 3);
                continue;
            }
        }
        writeBit(true);
        writeCharacter(b[i]);
    }
}

void PRCBitWriter::writeGraphics(uint32_t version, bool same_as_current, uint32_t layer_plus_one,
                                 uint32_t style_plus_one, uint16_t behaviour,
                                 const std::vector<std::pair<uint32_t, uint32_t>>& pairs) {
    writeBit(same_as_current);
    if (!same_as_current) {
        writeUnsignedInteger(layer_plus_one);
        writeUnsignedInteger(style_plus_one);
        writeCharacter(uint8_t(behaviour));
        writeCharacter(uint8_t(behaviour >> 8));
    }
    if (version > 8137) {
        writeUnsignedInteger(uint32_t(pairs.size()));
        for (auto [a, b] : pairs) {
            writeUnsignedInteger(a);
            writeUnsignedInteger(b);
        }
    }
}

void PRCBitWriter::writeContentBase(uint32_t type, const std::string* name) {
    writeUnsignedInteger(0);  // attributes
    if (name) {
        writeBit(false);
        writeString(*name);
    } else {
        writeBit(true);  // same name as the current one
    }
    const bool ids = !((type >= 301 && type <= 305) || type == 703);
    if (ids)
        for (int i = 0; i < 3; ++i) writeUnsignedInteger(0);
}

void PRCBitWriter::append(const PRCBitWriter& other) {
    for (uint64_t i = 0; i < other.bits_; ++i) writeBit((other.bytes_[i / 8] >> (7 - i % 8)) & 1);
}

}  // namespace prc::test
