#include "prc/io/bit_reader.h"

#include <bit>
#include <cstring>
#include <stdexcept>

#include "prc/io/frequent_doubles.h"

namespace prc {

PRCBitReader::PRCBitReader(const uint8_t* d, uint64_t n, uint32_t v) : data(d), size(n), version(v) {}

void PRCBitReader::resetState() {
    current_name.clear();
    current_graphics = PRCGraphics{};
}

void PRCBitReader::readPastEnd() { throw std::runtime_error("PRCBitReader: read past end"); }

uint64_t PRCBitReader::bitsRemaining() const {
    const uint64_t used = bitIndex();
    const uint64_t total = size * 8;
    return used >= total ? 0 : total - used;
}

void PRCBitReader::seekBit(uint64_t index) {
    byte_position = index / 8;
    bit_position = uint32_t(index % 8);
}

inline uint64_t PRCBitReader::peek64() const {
    if (byte_position + 8 > size) [[unlikely]]
        return peek64NearEnd();
    uint64_t w;
    std::memcpy(&w, data + byte_position, 8);
    if constexpr (std::endian::native == std::endian::little) w = __builtin_bswap64(w);
    return w << bit_position;
}

uint64_t PRCBitReader::peek64NearEnd() const {
    uint64_t w = 0;
    for (uint64_t i = 0; byte_position + i < size; ++i) w |= uint64_t(data[byte_position + i]) << (56 - 8 * i);
    return w << bit_position;
}

// One bounds check per call, however many bits it takes: the call fails
// exactly when its last bit would lie at or beyond the end.
inline uint32_t PRCBitReader::takeBits(int n) {
    if (uint64_t(n) > bitsRemaining()) readPastEnd();
    const uint32_t v = uint32_t(peek64() >> (64 - n));
    advance(uint64_t(n));
    return v;
}

uint32_t PRCBitReader::readBits(int n) {
    if (n <= 0) return 0;
    if (n > 32) {  // only the last 32 bits are kept
        for (int skip = n - 32; skip > 0; skip -= 32) takeBits(skip < 32 ? skip : 32);
        n = 32;
    }
    return takeBits(n);
}

bool PRCBitReader::readBoolean() { return takeBits(1) != 0; }

uint8_t PRCBitReader::readCharacter() { return uint8_t(takeBits(8)); }

// UnsignedInteger and Integer: bytes least significant first, each after a 1
// bit, closed by a 0 bit; only the first four bytes reach the value. Integer
// sign-extends from the top bit of the last byte when one to three were read.
template <bool Signed>
uint32_t PRCBitReader::readNumber() {
    uint32_t value = 0;
    uint32_t shift = 0;  // stops at 32: later bytes only pass by
    uint32_t last = 0;
    // With 8 whole bytes ahead, at least 57 bits lie in one load: four bytes
    // with their flag bits and the closing bit take 37 of them.
    if (byte_position + 8 <= size) {
        uint64_t w = peek64();
        uint32_t used = 0;
        while (shift < 32) {
            if (!(w >> 63)) {
                advance(used + 1);
                if (Signed && shift != 0 && shift != 32 && (last & 0x80)) value |= ~0u << shift;
                return value;
            }
            last = uint32_t(w >> 55) & 0xFF;
            value |= last << shift;
            shift += 8;
            w <<= 9;
            used += 9;
        }
        advance(used);
    }
    while (takeBits(1)) {
        last = takeBits(8);
        if (shift < 32) {
            value |= last << shift;
            shift += 8;
        }
    }
    if (Signed && shift != 0 && shift != 32 && (last & 0x80)) value |= ~0u << shift;
    return value;
}

uint32_t PRCBitReader::readUnsignedInteger() { return readNumber<false>(); }

int32_t PRCBitReader::readInteger() { return int32_t(readNumber<true>()); }

std::string PRCBitReader::readString() {
    if (!readBoolean()) return {};
    const uint32_t length = readUnsignedInteger();
    if (length > bitsRemaining() / 8) throw std::runtime_error("PRCBitReader: string longer than the data left");
    std::string s(length, '\0');
    if (bit_position == 0) {
        std::memcpy(s.data(), data + byte_position, length);
        byte_position += length;
    } else {
        for (uint32_t i = 0; i < length; ++i) s[i] = char(readCharacter());
    }
    return s;
}

Vector3d PRCBitReader::readVector3d() {
    Vector3d v;
    v.x = readDouble();
    v.y = readDouble();
    v.z = readDouble();
    return v;
}

void PRCBitReader::skipUserData() {
    const uint32_t n = readUnsignedInteger();
    if (n == 0) return;
    const uint64_t index = bitIndex() + n;
    const uint64_t byte = index / 8;
    const uint32_t bit = uint32_t(index % 8);
    if (byte > size || (byte == size && bit != 0)) throw std::runtime_error("PRCBitReader: skip past end");
    byte_position = byte;
    bit_position = bit;
}

PRCGraphics PRCBitReader::readGraphics() {
    if (!readBoolean()) {
        PRCGraphics g;
        g.layer_index = readUnsignedInteger() - 1u;
        g.line_style_index = readUnsignedInteger() - 1u;
        const uint16_t first = readCharacter();
        const uint16_t second = readCharacter();
        g.behaviour = uint16_t(second << 8 | first);
        current_graphics = g;
    }
    if (version > 8137) {
        const uint32_t count = readUnsignedInteger();
        if (count > 1024) throw std::runtime_error("PRCBitReader: campo dopo graphics con conteggio implausibile");
        for (uint32_t i = 0; i < count; ++i) {
            readUnsignedInteger();
            readUnsignedInteger();
        }
    }
    return current_graphics;
}

std::vector<uint8_t> PRCBitReader::readVertexColors(uint32_t rows, uint32_t bytesPerRow) {
    if (rows == 0) return {};
    // Each later row costs at least one bit, so rows beyond the bits left cannot exist.
    if (uint64_t(rows - 1) > bitsRemaining()) readPastEnd();
    std::vector<uint8_t> out(size_t(rows) * bytesPerRow);
    for (uint32_t b = 0; b < bytesPerRow; ++b) out[b] = readCharacter();
    for (uint32_t r = 1; r < rows; ++r) {
        uint8_t* row = out.data() + size_t(r) * bytesPerRow;
        if (readBoolean()) {
            std::memcpy(row, row - bytesPerRow, bytesPerRow);
        } else {
            for (uint32_t b = 0; b < bytesPerRow; ++b) row[b] = readCharacter();
        }
    }
    return out;
}

std::vector<bool> PRCBitReader::readBooleans(uint32_t count) {
    // The bits are all there or the reading fails before its end; the failed
    // reader is not read again, so it may fail before taking any of them.
    if (count > bitsRemaining()) readPastEnd();
    std::vector<bool> bits(count);
    uint32_t i = 0;
    for (; count - i >= 56; i += 56) {  // 56 of the 57 or more bits one load holds: whole bytes
        const uint64_t w = peek64();
        for (uint32_t j = 0; j < 56; ++j) bits[i + j] = (w >> (63 - j)) & 1;
        byte_position += 7;
    }
    for (; i < count; ++i) bits[i] = takeBits(1) != 0;
    return bits;
}

namespace {

double mantissaPattern(uint64_t sign, uint64_t exponent, uint64_t nibble, const uint8_t b[8]) {
    uint64_t pattern = sign << 63 | exponent << 52 | nibble << 48;
    for (int i = 5; i >= 0; --i) pattern |= uint64_t(b[i]) << (8 * i);
    return std::bit_cast<double>(pattern);
}

// The six low mantissa bytes b[5]..b[0]; b[6] and b[7] carry sign, exponent
// and nibble and may be referred to.
void readMantissaBytes(PRCBitReader& r, uint8_t b[8]) {
    for (int i = 5; i >= 0; --i) {
        if (r.readBoolean()) {
            b[i] = r.readCharacter();
            continue;
        }
        const uint32_t c = r.readBits(3);
        if (c == 0) {
            for (int j = i; j >= 0; --j) b[j] = b[i + 1];
            return;
        }
        if (c == 6) {
            for (int j = i; j >= 1; --j) b[j] = b[i + 1];
            b[0] = r.readCharacter();
            return;
        }
        if (i + int(c) > 7) throw std::runtime_error("PRCBitReader: riferimento di mantissa non valido");
        b[i] = b[i + int(c)];
    }
}

}  // namespace

// The longest Double: a 22-bit code, sign, mantissa flag and nibble (28 bits),
// then six literal mantissa bytes after their flag bits (54 bits). Each part
// is read from one 64-bit load at the bit where it starts (57 bits or more
// valid), so with 16 bytes ahead no bit of it can lie past the end and no read
// needs its own bounds check.
constexpr uint64_t kLongestDoubleBytes = 16;

double PRCBitReader::readDouble() {
    if (byte_position + kLongestDoubleBytes <= size) return readDoubleInWindow();
    return readDoubleNearEnd();
}

double PRCBitReader::readDoubleInWindow() {
    const FrequentDoubleTrie& trie = frequentDoubleTrie();
    uint32_t at = bit_position;  // bits used from byte_position on
    uint64_t window = 0;
    uint32_t used = 0;  // bits of the window taken
    const auto load = [&] {
        std::memcpy(&window, data + byte_position + at / 8, 8);
        if constexpr (std::endian::native == std::endian::little) window = __builtin_bswap64(window);
        window <<= at % 8;
        used = 0;
    };
    const auto take = [&](uint32_t n) {
        const uint64_t v = (window << used) >> (64 - n);
        used += n;
        at += n;
        return v;
    };
    load();
    const FrequentDoubleTrie::First& first = trie.first[window >> (64 - FrequentDoubleTrie::kFirstBits)];
    int32_t node = first.target;
    uint32_t count = first.bits;
    while (node >= 0) node = trie.nodes[node].child[int(window >> (63 - count++)) & 1];
    if (node == FrequentDoubleTrie::kNoChild) throw std::runtime_error("PRCBitReader: no frequent-double entry matched prefix");
    used = count;
    at += count;
    const FrequentDoubleEntry& row = trie.rows[size_t(-node - 1)];
    const auto done = [&](double v) {
        byte_position += at / 8;
        bit_position = at % 8;
        return v;
    };
    if (row.kind == 0 && row.value == 0) return done(0.0);
    const uint64_t sign = take(1);
    if (row.kind == 0) {
        const double v = std::bit_cast<double>(row.value);
        return done(sign ? -v : v);
    }
    const uint64_t exponent = (row.value >> 52) & 0x7FF;
    if (!take(1)) return done(std::bit_cast<double>(sign << 63 | exponent << 52));
    const uint64_t nibble = take(4);
    uint8_t b[8] = {};
    b[7] = uint8_t(sign << 7 | exponent >> 4);
    b[6] = uint8_t((exponent << 4 | nibble) & 0xFF);
    load();
    // Most mantissas are a run of literal bytes (each a 1 bit and 8 bits),
    // then either nothing more (six literals) or the code 0 (a 0 bit and 000),
    // which repeats the last byte to the end: coordinates written from floats
    // end in zero bytes. That shape is read without a branch per byte, from
    // the 57 or more bits of one load (the longest, six literals, takes 54).
    uint32_t flags = 0;
    uint64_t literals = 0;  // the six candidate bytes, b[5] highest
    for (int k = 0; k < 6; ++k) {
        flags |= uint32_t((window >> (63 - 9 * k)) & 1) << k;
        literals |= ((window >> (55 - 9 * k)) & 0xFF) << (40 - 8 * k);
    }
    const int run = std::countr_one(flags);
    const uint64_t head = sign << 63 | exponent << 52 | nibble << 48;
    if (run == 6) {
        at += 54;
        return done(std::bit_cast<double>(head | literals));
    }
    if (((window >> (60 - 9 * run)) & 0xF) == 0) {
        const uint64_t tail = (uint64_t(1) << (8 * (6 - run))) - 1;  // the bytes the code fills
        const uint64_t last = run == 0 ? b[6] : (literals >> (48 - 8 * run)) & 0xFF;
        at += uint32_t(9 * run + 4);
        return done(std::bit_cast<double>(head | (literals & ~tail & 0xFFFFFFFFFFFFull) | (last * 0x010101010101ull & tail)));
    }
    for (int i = 5; i >= 0; --i) {
        if (take(1)) {
            b[i] = uint8_t(take(8));
            continue;
        }
        const uint32_t c = uint32_t(take(3));
        if (c == 0 || c == 6) {
            for (int j = i; j >= 1; --j) b[j] = b[i + 1];
            b[0] = c == 0 ? b[i + 1] : uint8_t(take(8));
            break;
        }
        if (i + int(c) > 7) {
            done(0.0);  // the cursor stands where the bit-by-bit reading stops
            throw std::runtime_error("PRCBitReader: riferimento di mantissa non valido");
        }
        b[i] = b[i + int(c)];
    }
    return done(mantissaPattern(sign, exponent, nibble, b));
}

double PRCBitReader::readDoubleNearEnd() {
    // Walk the prefix code over bits peeked ahead (the longest code, 22 bits,
    // is well inside the 57 or more that one load holds); consume them only on
    // a match. The first kFirstBits bits take one step.
    const FrequentDoubleTrie& trie = frequentDoubleTrie();
    const uint64_t available = bitsRemaining();
    const uint64_t bits = peek64();
    const FrequentDoubleTrie::First& first = trie.first[bits >> (64 - FrequentDoubleTrie::kFirstBits)];
    int32_t node = first.target;
    int count = first.bits;
    if (uint64_t(count) > available) readPastEnd();
    while (node >= 0) {
        if (uint64_t(count) >= available) readPastEnd();
        node = trie.nodes[node].child[int(bits >> (63 - count)) & 1];
        ++count;
    }
    if (node == FrequentDoubleTrie::kNoChild) {
        // No row can match any more: the format reads on to 32 bits first.
        if (available < 32) readPastEnd();
        throw std::runtime_error("PRCBitReader: no frequent-double entry matched prefix");
    }
    seekBit(bitIndex() + uint64_t(count));
    const FrequentDoubleEntry& row = trie.rows[size_t(-node - 1)];

    if (row.kind == 0 && row.value == 0) return 0.0;
    const uint64_t sign = takeBits(1);
    if (row.kind == 0) {
        const double v = std::bit_cast<double>(row.value);
        return sign ? -v : v;
    }
    const uint64_t exponent = (row.value >> 52) & 0x7FF;
    if (!takeBits(1)) return std::bit_cast<double>(sign << 63 | exponent << 52);
    const uint64_t nibble = takeBits(4);
    uint8_t b[8] = {};
    b[7] = uint8_t(sign << 7 | exponent >> 4);
    b[6] = uint8_t((exponent << 4 | nibble) & 0xFF);
    readMantissaBytes(*this, b);
    return mantissaPattern(sign, exponent, nibble, b);
}

}  // namespace prc
