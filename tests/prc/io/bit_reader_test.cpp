#include <gtest/gtest.h>

#include <bit>
#include <functional>
#include <limits>
#include <memory>

#include "prc/io/bit_reader.h"
#include "tests/prc/io/io_test_util.h"

namespace prc {
namespace {

using test::bitsOf;
using test::expectError;
using test::PRCBitWriter;
using test::Stream;

const std::string kPastEnd = "PRCBitReader: read past end";

uint64_t patternOf(double d) { return std::bit_cast<uint64_t>(d); }

TEST(BitReader, NumberEncodings) {
    const struct {
        const char* bits;
        uint32_t u;
        int32_t i;
    } cases[] = {
        {"0", 0, 0},
        {"1 11111111 0", 255, -1},
        {"1 11111111 1 00000000 0", 255, 255},
        {"1 00000000 1 10000000 0", 0x8000, -32768},
        {"1 00000000 1 00000000 1 10000000 0", 0x800000, -8388608},
        {"1 00000000 1 00000000 1 00000000 1 10000000 0", 0x80000000u, std::numeric_limits<int32_t>::min()},
        // A fifth byte is consumed and dropped; so is a long run of them.
        {"1 01111000 1 01010110 1 00110100 1 00010010 1 11111111 0", 0x12345678, 0x12345678},
        {"1 10101010 1 10101010 1 10101010 1 10101010 1 11111111 1 11111111 1 11111111 1 11111111 1 11111111 0",
         0xAAAAAAAAu, int32_t(0xAAAAAAAAu)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bits);
        PRCBitWriter w = bitsOf(c.bits);
        w.writeBitString("1");  // a marker after the number, then up to 8 zero bytes of slack
        for (int pad : {0, 64}) {
            w.writeBits(0, pad);
            Stream u(w), s(w);
            EXPECT_EQ(u.r.readUnsignedInteger(), c.u);
            EXPECT_EQ(s.r.readInteger(), c.i);
            EXPECT_TRUE(u.r.readBoolean() && s.r.readBoolean());
        }
    }
}

TEST(BitReader, ReadBitsWidths) {
    PRCBitWriter w;
    w.writeBits(0xFFFFFFFF, 32);
    w.writeBits(0xFF, 8);
    w.writeBits(0x12345678, 32);
    Stream s(w);
    EXPECT_EQ(s.r.readBits(0) + s.r.readBits(-3), 0u);
    EXPECT_EQ(s.r.readBits(4), 0xFu);
    EXPECT_EQ(s.r.readBits(68), 0x12345678u);  // only the last 32 of 68 bits remain
    expectError([&] { s.r.readBoolean(); }, kPastEnd);
    Stream t(bitsOf("10101010"));
    expectError([&] { t.r.readBits(9); }, kPastEnd);
    EXPECT_EQ(t.r.readBits(8), 0xAAu);
    t.r.seekBit(0);
    expectError([&] { t.r.readBits(40); }, kPastEnd);
}

// The value rows, written down independently of the table the reader uses.
TEST(BitReaderDouble, ValueRows) {
    const std::pair<const char*, uint64_t> rows[] = {
        {"0000", patternOf(1.0)},         {"1111", patternOf(0.001)},         {"10110", patternOf(0.002)},
        {"001001", patternOf(0.0008)},    {"0011010000", patternOf(0.00065)}, {"11101010001", 0x3FBE69AD42C3C9EE},
        {"0011110100", patternOf(5e-09)}, {"11101111100", patternOf(1e-08)},  {"10101111", 0x3E8AD7F29ABCAF4A},
        {"111010010", 0x3EC0C6F7A0B5ED8E}, {"11101110100", 0x4035EE1480000000}, {"11101111110", 0x405BB32FE0000000},
        {"0001011110", 0x405C332FE0000000}, {"101010", patternOf(999999999.0)}, {"11101110111", patternOf(0.5)},
        {"111010110", 0x3FEFFFFFF8000002}, {"101011010", patternOf(6.283185307179586)},
        {"111010011", patternOf(57.29577951308232)}, {"111010111", patternOf(180.0)},
        {"111010101", patternOf(360.0)},  {"11101111101", patternOf(1000.0)}, {"00111100", patternOf(1165.0)},
        {"0011010010", 0x409233FFFFFFFFFF}, {"11101010011", 0x4092340000000001}, {"00110101", patternOf(1195.0)},
        {"0011010011", 0x4092ABFFFFFFFFFF}, {"11101110000", 0x4092AC0000000001}, {"0011111", patternOf(12345.0)},
    };
    for (const auto& [code, pattern] : rows) {
        SCOPED_TRACE(code);
        for (uint64_t sign : {0, 1}) {
            PRCBitWriter w = bitsOf(code);
            w.writeBit(sign);
            Stream s(w);
            EXPECT_EQ(patternOf(s.r.readDouble()), pattern | sign << 63);
            EXPECT_EQ(s.r.bitIndex(), w.bitCount());
        }
    }
    Stream zero(bitsOf("01 1"));  // zero has no sign bit
    EXPECT_EQ(patternOf(zero.r.readDouble()), 0u);
    EXPECT_EQ(zero.r.bitIndex(), 2u);
}

TEST(BitReaderDouble, ExponentRows) {
    const std::pair<uint64_t, const char*> rows[] = {
        {1022, "1000"},  {1021, "00011"}, {1023, "10011"}, {1024, "11011"}, {1025, "10111"}, {1026, "10010"},
        {1030, "11100"}, {1032, "00101"}, {1000, "111011101101"}, {0, "0011010001110100110010"},
        {2047, "001101000111010011000"},  // its row's mantissa bit must not leak: infinity, not NaN
    };
    for (const auto& [exponent, code] : rows) {
        SCOPED_TRACE(code);
        for (uint64_t sign : {0, 1}) {
            PRCBitWriter w = bitsOf(code);
            w.writeBit(sign);
            w.writeBit(false);  // no mantissa
            Stream s(w);
            EXPECT_EQ(patternOf(s.r.readDouble()), sign << 63 | exponent << 52);
            EXPECT_EQ(s.r.bitIndex(), w.bitCount());
        }
    }
}

TEST(BitReaderDouble, MantissaReferenceCodes) {
    // Exponent 1023, sign 0, mantissa flag 1, nibble 1000: b[7] = 0x3F, b[6] = 0xF8.
    const std::string head = "10011 0 1 1000 ";
    const std::pair<std::string, uint64_t> cases[] = {
        {head + "0 000", 0x3FF8F8F8F8F8F8F8},  // code 0 at b[5]: all copy b[6]
        {head + "1 00010001 1 00100010 1 00110011 0 000", 0x3FF8112233333333},
        {head + "0 110 01010101", 0x3FF8F8F8F8F8F855},  // code 6 at b[5]
        {head + "1 00000001 1 00000010 1 00000011 1 00000100 1 00000101 0 110 10101010", 0x3FF80102030405AA},
        // Codes 1, 2 reaching b[6]; 2 and 7 reaching b[7], the sign and exponent byte.
        {head + "0 001 0 010 0 010 1 00000000 1 00000000 1 00000000", 0x3FF8F8F8F8000000},
        {head + "0 010 1 00000001 1 00000010 1 00000011 1 00000100 0 111", 0x3FF83F010203043F},
        {"10011 1 1 1000 0 010 1 00000001 1 00000010 1 00000011 1 00000100 0 111", 0xBFF8BF01020304BF},
        {head + "1 00010001 1 00100010 1 00110011 0 011 0 100 0 101", 0x3FF8112233111111},
    };
    for (const auto& [bits, pattern] : cases) {
        SCOPED_TRACE(bits);
        PRCBitWriter w = bitsOf(bits);
        Stream s(w);
        EXPECT_EQ(patternOf(s.r.readDouble()), pattern);
        EXPECT_EQ(s.r.bitIndex(), w.bitCount());
    }
    const std::string badReference = "PRCBitReader: riferimento di mantissa non valido";
    Stream code3(bitsOf(head + "0 011 0000000"));  // b[5 + 3]
    expectError([&] { code3.r.readDouble(); }, badReference);
    Stream code7(bitsOf(head + "1 00000001 1 00000010 1 00000011 1 00000100 0 111 0000"));  // b[1 + 7]
    expectError([&] { code7.r.readDouble(); }, badReference);
    // The code table is complete (see FrequentDoubles.CompletePrefixCode), so a
    // cut code runs into the end of the data rather than into "no row matched".
    Stream cut(bitsOf("0011010001110100"));
    expectError([&] { cut.r.readDouble(); }, kPastEnd);
}

TEST(BitReader, StringsAndUserData) {
    Stream absent(bitsOf("0 1")), empty(bitsOf("1 0 1"));
    EXPECT_EQ(absent.r.readString(), "");
    EXPECT_EQ(absent.r.bitIndex(), 1u);
    EXPECT_EQ(empty.r.readString(), "");
    EXPECT_EQ(empty.r.bitIndex(), 2u);
    // Length 10 or 9 with 9 whole bytes (and 5 bits) after it.
    for (const char* length : {"00001010", "00001001"}) {
        PRCBitWriter w = bitsOf(std::string("1 1 ") + length + " 0");
        for (int i = 0; i < 9; ++i) w.writeCharacter('x');
        w.writeBits(0, 5);
        Stream s(w);
        if (length[7] == '0') {
            expectError([&] { s.r.readString(); }, "PRCBitReader: string longer than the data left");
        } else {
            EXPECT_EQ(s.r.readString(), "xxxxxxxxx");
        }
    }
    // A count of 13, 14 or 15 bits after a 10-bit count in 3 bytes: 14 ends exactly at the end.
    for (uint32_t n : {13u, 14u, 15u}) {
        PRCBitWriter w;
        w.writeUnsignedInteger(n);
        w.writeBits(0, 14);
        Stream s(w);
        if (n <= 14) {
            s.r.skipUserData();
            EXPECT_EQ(s.r.bitIndex(), 10 + n);
        } else {
            expectError([&] { s.r.skipUserData(); }, "PRCBitReader: skip past end");
        }
    }
}

TEST(BitReader, GraphicsVersionRule) {
    // Layer 3 (stored 4), style none (stored 0), behaviour 0x1234 low byte first.
    const std::string full = "0 1 00000100 0 0 00110100 00010010";
    const std::string pairs = " 1 00000010 0  1 00000001 0 1 00000010 0  0 1 11111111 0";  // count 2, (1,2), (0,255)
    for (uint32_t version : {8137u, 8138u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(version);
        const std::string tail = version > 8137 ? pairs : "";
        PRCBitWriter w = bitsOf(full + tail + " 1" + tail);  // full, then reused
        Stream s(w, version);
        EXPECT_EQ(s.r.current_graphics.behaviour, 1);
        const PRCGraphics g = s.r.readGraphics();
        EXPECT_EQ(g.layer_index, 3u);
        EXPECT_EQ(g.line_style_index, 0xFFFFFFFFu);
        EXPECT_EQ(g.behaviour, 0x1234);
        EXPECT_EQ(s.r.readGraphics().layer_index, 3u);
        EXPECT_EQ(s.r.bitIndex(), w.bitCount());
    }
    for (uint32_t count : {1024u, 1025u}) {
        PRCBitWriter w = bitsOf("1");
        w.writeUnsignedInteger(count);
        for (uint32_t i = 0; i < count; ++i) w.writeBitString("00");
        Stream s(w, 8138);
        if (count == 1024) {
            s.r.readGraphics();
            EXPECT_EQ(s.r.bitIndex(), w.bitCount());
        } else {
            expectError([&] { s.r.readGraphics(); }, "PRCBitReader: campo dopo graphics con conteggio implausibile");
        }
    }
}

TEST(BitReader, VertexColors) {
    PRCBitWriter w;
    for (uint8_t b : {1, 2, 3, 4}) w.writeCharacter(b);
    w.writeBitString("1 0");  // a copy, then a new row
    for (uint8_t b : {5, 6, 7, 8}) w.writeCharacter(b);
    Stream none(w), one(w), three(w), tooMany(w);
    EXPECT_TRUE(none.r.readVertexColors(0, 4).empty());
    EXPECT_EQ(none.r.bitIndex(), 0u);
    EXPECT_EQ(one.r.readVertexColors(1, 4), (std::vector<uint8_t>{1, 2, 3, 4}));
    EXPECT_EQ(one.r.bitIndex(), 32u);  // no repeat bit for a single row
    EXPECT_EQ(three.r.readVertexColors(3, 4), (std::vector<uint8_t>{1, 2, 3, 4, 1, 2, 3, 4, 5, 6, 7, 8}));
    expectError([&] { tooMany.r.readVertexColors(0xFFFFFFFF, 4); }, kPastEnd);
}

// A valid stream of mixed elements decoded from every truncated prefix held in
// a buffer of exactly that size: the elements that fit decode as written, the
// first that does not fails with an end-of-data message, and no read leaves the
// buffer (which the sanitizer build checks).
TEST(BitReader, DecodeEveryPrefix) {
    struct Element {
        uint64_t end;                          // bit index after the element
        std::function<void(PRCBitReader&)> check;
        uint64_t failureFrom;                  // a cut at or after this bit fails with `failure`
        std::string failure;                   // (a length read whole, its data not); before it, kPastEnd
    };
    PRCBitWriter w;
    std::vector<Element> elements;
    auto add = [&](std::function<void(PRCBitReader&)> check, uint64_t from = ~0ull, std::string failure = "") {
        elements.push_back({w.bitCount(), std::move(check), from, std::move(failure)});
    };
    for (int round = 0; round < 3; ++round) {
        for (uint32_t u : {0u, 255u, 256u, 0xFFFFFFFFu}) {
            w.writeUnsignedInteger(u);
            add([u](PRCBitReader& r) { EXPECT_EQ(r.readUnsignedInteger(), u); });
        }
        for (int32_t i : {-1, -129, std::numeric_limits<int32_t>::min(), 40000}) {
            w.writeInteger(i);
            add([i](PRCBitReader& r) { EXPECT_EQ(r.readInteger(), i); });
        }
        for (double d : {0.0, -360.0, 3.141592653589793, -1e-300, 1234567.891, 1e300}) {
            w.writeDouble(d, round == 1 ? PRCBitWriter::MantissaStyle::Literal : PRCBitWriter::MantissaStyle::Shortest);
            add([d](PRCBitReader& r) { EXPECT_EQ(patternOf(r.readDouble()), patternOf(d)); });
        }
        const std::string text(size_t(round) * 7, 'a');
        w.writeBit(true);
        w.writeUnsignedInteger(uint32_t(text.size()));
        const uint64_t characters = w.bitCount();
        for (char c : text) w.writeCharacter(uint8_t(c));
        add([text](PRCBitReader& r) { EXPECT_EQ(r.readString(), text); }, characters,
            "PRCBitReader: string longer than the data left");
        w.writeUnsignedInteger(uint32_t(5 + round * 11));
        const uint64_t skipFrom = w.bitCount();
        w.writeBits(0x7FFF, 5 + round * 11);
        add([](PRCBitReader& r) { r.skipUserData(); }, skipFrom, "PRCBitReader: skip past end");
        w.writeGraphics(8138, round == 2, 3, 4, 0x0102, {{1, 2}});
        add([](PRCBitReader& r) { EXPECT_EQ(r.readGraphics().layer_index, 2u); });
        w.writeBits(0x010203, 24);
        w.writeBitString("0 00000100 00000101 00000110 1");
        add([](PRCBitReader& r) { EXPECT_EQ(r.readVertexColors(3, 3), (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 4, 5, 6})); });
        w.writeBits(0x5A5A5A5A, 32);
        w.writeBits(0x3, 8);
        add([](PRCBitReader& r) { EXPECT_EQ(r.readBits(40), 0x5A5A5A03u); });
    }
    const std::vector<uint8_t>& all = w.bytes();
    for (size_t length = 0; length <= all.size(); ++length) {
        SCOPED_TRACE(length);
        std::unique_ptr<uint8_t[]> exact(new uint8_t[length]);
        std::copy(all.begin(), all.begin() + ptrdiff_t(length), exact.get());
        PRCBitReader r(exact.get(), length, 8138);
        for (const Element& e : elements) {
            if (e.end > length * 8) {
                expectError([&] { e.check(r); }, length * 8 >= e.failureFrom ? e.failure : kPastEnd);
                break;
            }
            e.check(r);
            ASSERT_EQ(r.bitIndex(), e.end);
        }
    }
}

}  // namespace
}  // namespace prc
