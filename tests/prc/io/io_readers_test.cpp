#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>

#include "prc/io/bit_reader.h"
#include "prc/io/compressed_arrays.h"
#include "prc/io/inflate_section.h"
#include "prc/io/prc_header.h"
#include "tests/support/prc_builder.h"

namespace prc {
namespace {

using namespace test;
using V = std::vector<uint32_t>;

const std::string kPastEnd = "PRCBitReader: read past end";
const std::string kExhausted = "LsbBitFieldReader: bit field exhausted";

PRCBitWriter bitsOf(std::string_view bits) {  // '0' and '1' in stream order, blanks ignored
    PRCBitWriter w;
    for (char c : bits)
        if (c != ' ') w.writeBit(c == '1');
    return w;
}

// A reader over its own copy of the bytes written.
struct Stream {
    std::vector<uint8_t> bytes;
    PRCBitReader r;
    explicit Stream(const PRCBitWriter& w, uint32_t version = 8137)
        : bytes(w.bytes()), r(bytes.data(), bytes.size(), version) {}
    explicit Stream(std::string_view bits, uint32_t version = 8137) : Stream(bitsOf(bits), version) {}
};

// The first n bytes in a buffer of exactly that size, so that a read beyond
// them shows under the sanitizers.
std::unique_ptr<uint8_t[]> exactCopy(const std::vector<uint8_t>& bytes, size_t n) {
    std::unique_ptr<uint8_t[]> copy(new uint8_t[n]);
    std::copy(bytes.begin(), bytes.begin() + ptrdiff_t(n), copy.get());
    return copy;
}

uint64_t patternOf(double d) { return std::bit_cast<uint64_t>(d); }

TEST(BitReader, NumberEncodings) {
    // The short forms fill the real files; the long ones they never hold.
    const std::tuple<std::string, uint32_t, int32_t> cases[] = {
        {"1 00000000 1 00000000 1 00000000 1 10000000 0", 0x80000000u, std::numeric_limits<int32_t>::min()},
        // A fifth byte is consumed and dropped; so is a long run of them.
        {"1 01111000 1 01010110 1 00110100 1 00010010 1 11111111 0", 0x12345678, 0x12345678},
        {"1 10101010 1 10101010 1 10101010 1 10101010 1 11111111 1 11111111 1 11111111 1 11111111 1 11111111 0",
         0xAAAAAAAAu, int32_t(0xAAAAAAAAu)},
    };
    for (const auto& [number, u, i] : cases)
        for (const std::string& bits : {number + " 1", number + " 1" + std::string(64, '0')}) {
            Stream a(bits), b(bits);  // a marker after the number, at the end of the data or not
            EXPECT_EQ((std::tuple{a.r.readUnsignedInteger(), b.r.readInteger(), a.r.readBoolean(), b.r.readBoolean()}),
                      std::tuple(u, i, true, true)) << bits;
        }
    Stream s("11111111 11111111 11111111 11111111 11111111 10101010");
    EXPECT_EQ(s.r.readBits(0) + s.r.readBits(-3) + s.r.bitIndex(), 0u);
    EXPECT_EQ(s.r.readBits(4), 0xFu);
    EXPECT_EQ(s.r.readBits(44), 0xFFFFFFAAu);  // only the last 32 of 44 bits are kept
    EXPECT_EQ(errorOf([&] { s.r.readBoolean(); }), kPastEnd);
    s.r.seekBit(8);
    EXPECT_EQ(errorOf([&] { s.r.readBits(41); }), kPastEnd);
}

// The reference codes that the real files never use: code 0 (the rest copy
// the last byte), 6 (all but b[0] copy b[6]), 2 and 7 reaching b[7], the sign
// and exponent byte; then references to b[5 + 3] and b[1 + 7], beyond the
// eight bytes, and a code cut by the end of the data. (Exponent 1023, sign 0,
// mantissa flag 1, nibble 1000: b[7] = 0x3F, b[6] = 0xF8.)
TEST(BitReader, MantissaReferenceCodes) {
    const std::string head = "10011 0 1 1000 ";
    const std::pair<std::string, uint64_t> cases[] = {
        {head + "1 00010001 1 00100010 1 00110011 0 000", 0x3FF8112233333333},
        {head + "0 000", 0x3FF8F8F8F8F8F8F8},
        {head + "1 00010001 1 00100010 1 00110011 1 01000100 1 01010101 0 000", 0x3FF8112233445555},
        {head + "1 00010001 1 00100010 1 00110011 1 01000100 1 01010101 1 01100110", 0x3FF8112233445566},
        {head + "0 110 01010101", 0x3FF8F8F8F8F8F855},
        {"10011 1 1 1000 0 010 1 00000001 1 00000010 1 00000011 1 00000100 0 111", 0xBFF8BF01020304BF},
    };
    // Read at the end of the data and with 16 bytes after it (where a double
    // is taken from whole 64-bit loads); the next double must start right after.
    const std::string zero = " 01 0000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000";
    for (const auto& [bits, pattern] : cases) {
        EXPECT_EQ(patternOf(Stream(bits).r.readDouble()), pattern) << bits;
        Stream padded(bits + zero);
        EXPECT_EQ(patternOf(padded.r.readDouble()), pattern) << bits;
        EXPECT_EQ(padded.r.readDouble(), 0.0) << bits;
    }
    for (const std::string& bits : {head + "0 011 0000000", head + "1 00000001 1 00000010 1 00000011 1 00000100 0 111"})
        EXPECT_EQ(errorOf([&] { Stream(bits + " 0000").r.readDouble(); }),
                  "PRCBitReader: riferimento di mantissa non valido");
    EXPECT_EQ(errorOf([&] { Stream("0011010001110100").r.readDouble(); }), kPastEnd);
}

// Graphics and colours as the real files hold them are read in every prefix
// test below; here the bound on the pairs after a Graphics block, and colour
// rows that the data cannot hold.
TEST(BitReader, GraphicsPairsAndColourRows) {
    for (uint32_t count : {1024u, 1025u}) {
        PRCBitWriter w("b1 u" + std::to_string(count) + " b" + std::string(2 * count, '0'));
        Stream s(w, 8138);
        EXPECT_EQ(errorOf([&] { s.r.readGraphics(); }),
                  count == 1024 ? "" : "PRCBitReader: campo dopo graphics con conteggio implausibile");
        EXPECT_TRUE(count > 1024 || s.r.bitIndex() == w.bitCount());
    }
    // Colours: no row reads nothing, a single row has no repeat bit before it.
    Stream colors("00000001 00000010 00000011 00000100 1");
    EXPECT_TRUE(colors.r.readVertexColors(0, 4).empty());
    EXPECT_EQ(colors.r.readVertexColors(1, 4), (std::vector<uint8_t>{1, 2, 3, 4}));
    EXPECT_EQ(errorOf([&] { colors.r.readVertexColors(0xFFFFFFFF, 4); }), kPastEnd);
}

// A valid stream of mixed elements decoded from every truncated prefix held in
// a buffer of exactly that size: the elements that fit decode as written, the
// first that does not fails with an end-of-data message.
TEST(BitReader, DecodeEveryPrefix) {
    // Each element: the bit index after it, its check, and the bit from which a
    // cut fails with the given message rather than kPastEnd (a length whole, its data not).
    std::vector<std::tuple<uint64_t, std::function<void(PRCBitReader&)>, uint64_t, std::string>> elements;
    PRCBitWriter w;
    auto add = [&](std::function<void(PRCBitReader&)> check, uint64_t from = ~0ull, std::string failure = "") {
        elements.emplace_back(w.bitCount(), std::move(check), from, std::move(failure));
    };
    for (uint32_t round = 0; round < 3; ++round) {
        for (uint32_t u : {0u, 255u, 256u, 0xFFFFFFFFu})
            w.writeUnsignedInteger(u), add([u](PRCBitReader& r) { EXPECT_EQ(r.readUnsignedInteger(), u); });
        for (int32_t i : {-1, -129, std::numeric_limits<int32_t>::min(), 40000})
            w.writeInteger(i), add([i](PRCBitReader& r) { EXPECT_EQ(r.readInteger(), i); });
        for (double d : {0.0, -360.0, 3.141592653589793, -1e-300, 1234567.891, 1e300})
            w.writeDouble(d), add([d](PRCBitReader& r) { EXPECT_EQ(patternOf(r.readDouble()), patternOf(d)); });
        const std::string text(round * 7, 'a');
        w.writeBit(true), w.writeUnsignedInteger(uint32_t(text.size()));
        const uint64_t characters = w.bitCount();
        for (char c : text) w.writeCharacter(uint8_t(c));
        add([text](PRCBitReader& r) { EXPECT_EQ(r.readString(), text); }, characters,
            "PRCBitReader: string longer than the data left");
        w.writeUnsignedInteger(5 + round * 11);
        const uint64_t skipped = w.bitCount();
        w.writeBits(0x7FFF, int(5 + round * 11));
        add([](PRCBitReader& r) { r.skipUserData(); }, skipped, "PRCBitReader: skip past end");
        w.layout(round == 2 ? "b1 u1 u1 u2" : "b0 u3 u4 c2 c1 u1 u1 u2");  // layer 2, style 3, behaviour 0x0102, a pair
        add([](PRCBitReader& r) { EXPECT_EQ(r.readGraphics().layer_index, 2u); });
        w.layout("c1 c2 c3 b0 c4 c5 c6 b1");
        add([](PRCBitReader& r) {
            EXPECT_EQ(r.readVertexColors(3, 3), (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 4, 5, 6}));
        });
    }
    for (size_t length = 0; length <= w.bytes().size(); ++length) {
        const auto exact = exactCopy(w.bytes(), length);
        PRCBitReader r(exact.get(), length, 8138);
        for (const auto& [end, check, from, failure] : elements) {
            if (end > length * 8) {
                ASSERT_EQ(errorOf([&] { check(r); }), length * 8 >= from ? failure : kPastEnd) << length;
                break;
            }
            check(r);
            ASSERT_EQ(r.bitIndex(), end) << length;
        }
    }
}

// A Huffman bit field spelled as (value, width) runs, each value least
// significant bit first, bit i of the field in bit i % 8 of byte i / 8.
struct Field {
    std::vector<uint8_t> bytes;
    uint64_t bits = 0;
};
Field fieldOf(std::initializer_list<std::pair<uint32_t, int>> runs) {
    Field f;
    for (auto [value, width] : runs)
        for (int i = 0; i < width; ++i, ++f.bits) {
            if (f.bits % 8 == 0) f.bytes.push_back(0);
            f.bytes.back() |= uint8_t((i < 32 && (value >> i) & 1) << (f.bits % 8));
        }
    return f;
}

// The field in a Huffman array: its 32-bit words, each least significant byte
// first, then the bits used in the last word (-1: the true count).
PRCBitWriter huffmanArray(const Field& field, int64_t bitsUsed = -1, PRCBitWriter w = {}) {
    const uint64_t words = (field.bits + 31) / 32;
    w.writeUnsignedInteger(uint32_t(words));
    for (uint64_t i = 0; i < words * 4; ++i) w.writeCharacter(i < field.bytes.size() ? field.bytes[i] : 0);
    if (words > 0) w.writeUnsignedInteger(uint32_t(bitsUsed >= 0 ? uint64_t(bitsUsed) : field.bits - 32 * (words - 1)));
    return w;
}

TEST(CompressedArrays, HuffmanArrays) {
    // Leaf count, code length width, leaves (value, length, code), element
    // count, codes: one leaf 9 -> 0 of five nines; 31 -> 0 and 32 -> 1 of 32, 31.
    const Field nines = fieldOf({{1, 5}, {1, 8}, {9, 4}, {1, 1}, {0, 1}, {5, 32}, {0, 5}});
    const Field signs = fieldOf({{2, 7}, {1, 8}, {31, 6}, {1, 1}, {0, 1}, {32, 6}, {1, 1}, {1, 1}, {2, 32}, {1, 1}, {0, 1}});
    // The field, the element width, signed or not, the values or the failure,
    // and the count of bits used in the last word (-1: the true one).
    const std::tuple<Field, uint8_t, bool, V, std::string, int64_t> cases[] = {
        {fieldOf({{0, 7}}), 6, false, {}, "", -1},  // no leaves, and no element count after them
        {nines, 4, false, V(5, 9), "", -1}, {nines, 4, false, V(5, 9), "", 32},  // a single leaf, one bit a value
        {signs, 6, true, {0xFFFFFFE0u, 31}, "", -1}, {signs, 6, false, {32, 31}, "", -1},
        {fieldOf({{0, 7}}), 6, false, {}, kExhausted, 0},
        {nines, 4, false, {},
         "readHuffmanCompressedArray: number_of_bits_used_in_last_integer=33 out of range (huffman_array_size=2)", 33},
        {nines, 32, false, {}, "LsbBitFieldReader: more than 32 bits requested", -1},  // the leaf count
        {fieldOf({{1, 3}, {33, 8}}), 2, false, {}, "decodeHuffmanBitField: max_code_length out of range", -1},
        {fieldOf({{1, 3}, {6, 8}, {1, 2}, {0, 6}}), 2, false, {}, "decodeHuffmanBitField: code length out of range", -1},
        {fieldOf({{1, 3}, {1, 8}, {1, 2}, {1, 1}, {0, 1}, {kMaxHuffmanElementCount + 1, 32}}), 2, false, {},
         "decodeHuffmanBitField: implausible element_array_size", -1},
        // Leaves 1 -> 0, 2 -> 01, 3 -> 11 (in stream order; a leaf spells its
        // code reversed): the shorter code shadows 01; 11 is found after 1
        // failed; 10 matches nothing.
        {fieldOf({{3, 3}, {2, 8}, {1, 2}, {1, 2}, {0, 1}, {2, 2}, {2, 2}, {1, 2}, {3, 2}, {2, 2}, {3, 2},
                  {3, 32}, {0b0110, 4}}), 2, false, {1, 3, 1}, "", -1},
        {fieldOf({{3, 3}, {2, 8}, {1, 2}, {1, 2}, {0, 1}, {2, 2}, {2, 2}, {1, 2}, {3, 2}, {2, 2}, {3, 2},
                  {1, 32}, {0b01, 2}}), 2, false, {}, "decodeHuffmanBitField: unrecognized code", -1},
    };
    for (const auto& [field, numBits, isSigned, expected, failure, bitsUsed] : cases) {
        const PRCBitWriter w = huffmanArray(field, bitsUsed);
        Stream s(w);
        V got;
        EXPECT_EQ(errorOf([&] { got = readHuffmanCompressedArray(s.r, numBits, isSigned); }), failure) << failure;
        EXPECT_TRUE(got == expected && (!failure.empty() || s.r.bitIndex() == w.bitCount())) << got.size();
    }
    Stream empty("0 1");  // huffman_array_size 0: one UnsignedInteger, nothing more
    EXPECT_TRUE(readHuffmanCompressedArray(empty.r, 8, false).empty() && empty.r.bitIndex() == 1);
}

TEST(CompressedArrays, PlainArraysAndMessages) {
    Stream s("0 0");
    for (uint8_t width : {0, 17})
        EXPECT_EQ(errorOf([&] { readShortArray(s.r, width, true, true, false); }),
                  "readShortArray: numBitsPerElem out of range");
    for (uint8_t width : {0, 9})
        EXPECT_EQ(errorOf([&] { readCharacterArray(s.r, width, true, true, false); }),
                  "readCharacterArray: numBitsPerElem out of range");
    // Bit counts 0 and 1 are a sign bit alone; index bit counts 3, +0, -1 give deltas 3, -1, -1.
    Stream t("0 1 00000011 0 00000000 00000001 00100000  1 0 1" + std::string(31, '1') +
             "0 1 00000011 0 00000011 00000000 11111111  0 11  1 01  1 1");
    EXPECT_EQ(readCompressedIntegerArray(t.r), (std::vector<int32_t>{0, 0, -0x7FFFFFFF}));
    EXPECT_EQ(readCompressedIndiceArray(t.r, true, 6, true), (std::vector<int32_t>{3, 2, 1}));
    const std::string ints = "readCompressedIntegerArray: bit count out of range";
    const std::string indices = "readCompressedIndiceArray: bit count out of range";
    const std::pair<std::vector<uint8_t>, std::string> bad[] = {
        {{3, 33}, ints}, {{3, 0x80}, ints}, {{2, 0xFD}, indices}, {{30, 3}, indices},  // 2 - 3 and 30 + 3
        {{2, 1}, "readCompressedIndiceArray: negative index"},                          // 1, then 1 - 3
    };
    for (const auto& [counts, message] : bad) {
        PRCBitWriter b("b0 u2 c" + std::to_string(counts[0]) + " c" + std::to_string(counts[1]) + " b011111" + std::string(64, '0'));
        Stream r(b);
        EXPECT_EQ(errorOf([&] {
                      if (message == ints) readCompressedIntegerArray(r.r);
                      else readCompressedIndiceArray(r.r, true, 6, false);
                  }), message);
    }
}

// Counts that the data cannot hold fail on the section's end before they size
// anything: 2^32 - 1 elements, Huffman words at the cap in 9 bytes (not 256 MiB
// allocated first), 1000 integers with 20 bits left for them.
TEST(CompressedArrays, HostileCounts) {
    const std::string all = "0 1 11111111 1 11111111 1 11111111 1 11111111 0" + std::string(40, '0');
    const std::string words = "1 00000000 1 00000000 1 00000000 1 00000100 0" + std::string(40, '0');
    PRCBitWriter promise = huffmanArray(fieldOf({{1, 7}, {1, 8}, {1, 6}, {1, 1}, {0, 1}, {1000, 32}, {0, 1000}}), -1, bitsOf("1"));
    promise.writeBits(0, 20);
    Stream a(all), b(all), c(all), d(words), e("1 00000001" + words.substr(10)), f(promise);
    EXPECT_EQ(errorOf([&] { readShortArray(a.r, 16, true, true, false); }), kPastEnd);
    EXPECT_EQ(errorOf([&] { readCharacterArray(b.r, 8, true, true, false); }), kPastEnd);
    EXPECT_EQ(errorOf([&] { readCompressedIndiceArray(c.r, true, 6, true); }), kPastEnd);
    EXPECT_EQ(errorOf([&] { readHuffmanCompressedArray(d.r, 8, false); }), kPastEnd);
    EXPECT_EQ(errorOf([&] { readHuffmanCompressedArray(e.r, 8, false); }),
              "readHuffmanCompressedArray: implausible huffman_array_size");
    EXPECT_EQ(errorOf([&] { readCompressedIntegerArray(f.r); }), kPastEnd);
}

// Header bytes: magic, versions 8137 and 8138, identifiers 10.. and 20..,
// number_of_file_structures, then the words.
std::vector<uint8_t> header(uint32_t structures, std::initializer_list<uint32_t> words) {
    std::vector<uint8_t> b = {'P', 'R', 'C'};
    std::vector<uint32_t> all = {8137, 8138, 10, 11, 12, 13, 20, 21, 22, 23, structures};
    all.insert(all.end(), words);
    for (uint32_t v : all)
        for (int i = 0; i < 4; ++i) b.push_back(uint8_t(v >> (8 * i)));
    return b;
}

// The fields themselves are read from every file of the test data.
TEST(PRCHeader, Bounds) {
    // 32 bytes after number_of_file_structures hold one offset-less descriptor
    // and the model range: 1 fits, 2 is refused. 3 offsets and the model range
    // after number_of_offsets: 5 passes the check and runs out, 6 is refused.
    const std::string magic = "RawByteReader: expected magic \"PRC\"", end = "RawByteReader: read past end (u32)";
    const std::string structures = "PRC header: number_of_file_structures larger than the data";
    const std::string offsets = "PRC header: number_of_offsets larger than the data";
    const std::pair<std::vector<uint8_t>, std::string> cases[] = {
        {{}, magic}, {{'P', 'R', 'X'}, magic}, {{'P', 'R', 'C', 1, 2, 3, 4}, end},
        {header(1, {1, 2, 3, 4, 0, 0, 5, 6}), ""}, {header(2, {1, 2, 3, 4, 0, 0, 5, 6}), structures},
        {header(0xFFFFFFFF, {5, 6}), structures}, {header(1, {1, 2, 3, 4, 0, 2, 10, 20, 5}), end},
        {header(1, {1, 2, 3, 4, 0, 5, 10, 20, 30, 5, 6}), end},
        {header(1, {1, 2, 3, 4, 0, 6, 10, 20, 30, 5, 6}), offsets},
        {header(1, {1, 2, 3, 4, 0, 0xFFFFFFFF, 10, 20, 30, 5, 6}), offsets},
    };
    for (const auto& [bytes, message] : cases) EXPECT_EQ(errorOf([&] { readPRCHeader(bytes.data(), bytes.size()); }), message) << bytes.size();
    // A file structure head: "PRC" and the two versions, 11 bytes.
    const uint8_t b[] = {'x', 'x', 'P', 'R', 'C', 0xB6, 0x1B, 0, 0, 0xEB, 0x3A, 0, 0, 'P', 'R', 'Z', 1, 2, 3, 4};
    EXPECT_EQ(readFileStructureHeader(b, 13, 2), uint64_t(15083) << 32 | 7094);
    for (auto [size, offset] : {std::pair{12u, 2u}, {20u, 0u}, {20u, 13u}, {20u, 20u}, {20u, 0xFFFFFFFFu}})
        EXPECT_EQ(readFileStructureHeader(b, size, offset), kFileStructureHeaderNotFound) << size << " " << offset;
}

TEST(InflateSection, RoundTripsAndBrokenStreams) {
    const std::vector<uint8_t> nothing = zlibCompress({});
    EXPECT_TRUE(inflateSection(nothing.data(), nothing.size()).empty());
    std::vector<uint8_t> good = zlibCompress(std::vector<uint8_t>(20000, 'a')), header = good, check = good;
    for (size_t length : {size_t(0), size_t(1), good.size() / 2, good.size() - 1})  // zlib has no text for this
        EXPECT_EQ(errorOf([&] { inflateSection(good.data(), length); }), "inflate failed: ?");
    header[0] = 0x00, check.back() ^= 0x01;
    EXPECT_EQ(errorOf([&] { inflateSection(header.data(), header.size()); }), "inflate failed: incorrect header check");
    EXPECT_EQ(errorOf([&] { inflateSection(check.data(), check.size()); }), "inflate failed: incorrect data check");
    // The buffer starts at 8 x section length + 4096 bytes and doubles while it
    // is not above the limit: sections padded to 1536 bytes (the padding after
    // the stream's end ignored) start at 16384.
    const std::tuple<size_t, uint64_t, bool> cases[] = {
        {65536, 32768, true}, {65537, 32768, false},  // 16384 -> 32768 (not above the limit) -> 65536
        {65536, 32767, false}, {32768, 32767, true},  // 32768 is above the limit: the last buffer
        {16384, 100, true}, {16385, 100, false},      // the first buffer alone may be above the limit
    };
    for (const auto& [output, limit, fits] : cases) {
        std::vector<uint8_t> s = zlibCompress(std::vector<uint8_t>(output, 0x41));
        s.resize(1536, 0);
        EXPECT_EQ(errorOf([&] { EXPECT_EQ(inflateSection(s.data(), s.size(), limit).size(), output); }),
                  fits ? "" : "inflateSection: decompression safety limit exceeded") << output << " " << limit;
    }
}

// Deflate streams that zlib refuses and a lenient inflater reads to the end
// (a fast inflater's leniency would change the message and the bytes): each
// is closed by the Adler-32 of what the lenient reading gives, so that only
// the refusal itself can stop it.
TEST(InflateSection, WhatZlibRefusesStaysRefused) {
    struct Deflate {  // deflate's bit order: fields from the low bit, Huffman codes from their first bit
        std::vector<uint8_t> bytes;
        uint32_t bit = 0;
        Deflate& field(uint32_t value, int n) {
            for (int i = 0; i < n; ++i, ++bit) {
                if (bit % 8 == 0) bytes.push_back(0);
                bytes.back() |= uint8_t(((value >> i) & 1) << (bit % 8));
            }
            return *this;
        }
        Deflate& code(uint32_t value, int n) {
            for (int i = n - 1; i >= 0; --i) field(value >> i, 1);
            return *this;
        }
        // A dynamic block's header with lengths sent as precode symbols 0..15,
        // each of the precode's codes given by the caller.
        Deflate& dynamic(const std::vector<uint8_t>& lit, const std::vector<uint8_t>& dist,
                         const std::map<int, std::pair<uint32_t, int>>& pre) {
            field(1, 1).field(2, 2).field(uint32_t(lit.size() - 257), 5).field(uint32_t(dist.size() - 1), 5).field(15, 4);
            for (int s : {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15})
                field(pre.count(s) ? uint32_t(pre.at(s).second) : 0, 3);
            for (const auto* lens : {&lit, &dist})
                for (uint8_t len : *lens) code(pre.at(len).first, pre.at(len).second);
            return *this;
        }
        std::vector<uint8_t> zlib(const std::vector<uint8_t>& lenientOutput) const {
            std::vector<uint8_t> s(bytes.size() + 2);
            s[0] = 0x78, s[1] = 0x9C;
            std::copy(bytes.begin(), bytes.end(), s.begin() + 2);
            uint32_t a = 1, b = 0;
            for (uint8_t c : lenientOutput) a = (a + c) % 65521, b = (b + a) % 65521;
            for (int shift : {24, 16, 8, 0}) s.push_back(uint8_t((b << 16 | a) >> shift));
            return s;
        }
    };
    const std::string literal = "inflate failed: invalid literal/length code";
    const std::string distance = "inflate failed: invalid distance code";
    const std::string symbols = "inflate failed: too many length or distance symbols";
    std::vector<std::pair<std::vector<uint8_t>, std::string>> cases;
    // Fixed codes: 'a', then length symbol 286 (read leniently as 258) at distance 1.
    cases.push_back({Deflate().field(1, 1).field(1, 2).code(0x30 + 'a', 8).code(0xC6, 8).code(0, 5).code(0, 7)
                         .zlib(std::vector<uint8_t>(259, 'a')), literal});
    // 32768 stored bytes, then a fixed block copying 3 of them from distance
    // symbol 30 (read leniently as 29: 24577 back).
    Deflate far;
    far.field(0, 1).field(0, 2).field(0, 5).field(0x8000, 16).field(0x7FFF, 16);
    std::vector<uint8_t> farOutput(0x8000);
    for (size_t i = 0; i < farOutput.size(); ++i) farOutput[i] = uint8_t(i * 7);
    for (uint8_t c : farOutput) far.field(c, 8);
    far.field(1, 1).field(1, 2).code(1, 7).code(30, 5).field(0, 13).code(0, 7);
    for (size_t i = 0; i < 3; ++i) farOutput.push_back(farOutput[0x8000 - 24577 + i]);
    cases.push_back({far.zlib(farOutput), distance});
    // 287 and 286 litlen lengths, and 30 and 31 distance lengths, each a
    // complete code of two lengths (n symbols of lengths L and L + 1: the
    // first 2^(L+1) - n get L), then the end of the block: its 9-bit code is
    // the litlen code's count of 8-bit lengths plus 256.
    const std::map<int, std::pair<uint32_t, int>> fourCodes = {{4, {0, 2}}, {5, {1, 2}}, {8, {2, 2}}, {9, {3, 2}}};
    const auto complete = [](int n, uint8_t shortLength) {
        std::vector<uint8_t> lens(size_t(n), uint8_t(shortLength + 1));
        std::fill_n(lens.begin(), (2 << shortLength) - n, shortLength);
        return lens;
    };
    for (auto [nlit, ndist] : {std::pair{287, 30}, {286, 31}})
        cases.push_back({Deflate().dynamic(complete(nlit, 8), complete(ndist, 4), fourCodes)
                             .code(uint32_t(512 - nlit + 256), 9).zlib({}), symbols});
    // One litlen code (the end, of length 1) and one distance code: zlib
    // gives them the codeword 0 only; the block ends with a 1.
    std::vector<uint8_t> single(257, 0);
    single[256] = 1;
    const std::map<int, std::pair<uint32_t, int>> twoCodes = {{0, {0, 1}}, {1, {1, 1}}};
    cases.push_back({Deflate().dynamic(single, {1}, twoCodes).code(1, 1).zlib({}), literal});
    // No distance code at all, and a match: 'a' (0), length 3 (11), the
    // distance read leniently as 1 from one bit, the end (10).
    std::vector<uint8_t> three(258, 0);
    three['a'] = 1, three[256] = 2, three[257] = 2;
    cases.push_back({Deflate().dynamic(three, {0}, {{0, {0, 2}}, {1, {1, 2}}, {2, {2, 2}}, {3, {3, 2}}})
                         .code(0, 1).code(3, 2).code(0, 1).code(2, 2).zlib({'a', 'a', 'a', 'a'}), distance});
    for (const auto& [stream, message] : cases)
        EXPECT_EQ(errorOf([&] { inflateSection(stream.data(), stream.size()); }), message) << stream.size();
}

// Bytes that exceeded the limit once fail at once while the memo lives; the
// same stream at another place, or under another limit, is inflated anew.
TEST(InflateSection, FailureMemoSparesTheSecondInflation) {
    std::vector<uint8_t> s = zlibCompress(std::vector<uint8_t>(1 << 20, 0));
    s.resize(1536, 0);
    const std::vector<uint8_t> copy = s;
    const auto drawn = [](const std::vector<uint8_t>& bytes, uint64_t limit) {
        InflationBudget budget;
        EXPECT_EQ(errorOf([&] { inflateSection(bytes.data(), bytes.size(), limit); }),
                  "inflateSection: decompression safety limit exceeded");
        return kPassInflationBudget - budget.left();
    };
    const InflationFailureMemo memo;
    EXPECT_EQ(drawn(s, 32768), 65536u);
    EXPECT_EQ(drawn(s, 32768), 0u);
    EXPECT_EQ(drawn(copy, 32768), 65536u);
    EXPECT_EQ(drawn(s, 65536), 131072u);
}

}  // namespace
}  // namespace prc
