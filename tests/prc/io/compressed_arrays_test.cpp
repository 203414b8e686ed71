#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <variant>

#include "prc/io/compressed_arrays.h"
#include "tests/prc/io/io_test_util.h"

namespace prc {
namespace {

using test::bitsOf;
using test::expectError;
using test::HuffmanLeaf;
using test::LsbBitFieldWriter;
using test::PRCBitWriter;
using test::Stream;
using test::writeHuffmanBitField;
using Outcome = std::variant<std::vector<uint32_t>, std::string>;

const std::string kPastEnd = "PRCBitReader: read past end";
const std::string kExhausted = "LsbBitFieldReader: bit field exhausted";

TEST(LsbBitFieldReader, BitOrderAndLimits) {
    const uint8_t bytes[] = {0b10110001, 0b01111110, 0xFF, 0x00, 0x81, 0x5A};
    LsbBitFieldReader f(bytes, 44);
    EXPECT_EQ(f.read(1), 1u);         // bit 0 of byte 0 comes first
    EXPECT_EQ(f.read(3), 0u);
    EXPECT_EQ(f.read(6), 0b101011u);  // byte 0's top nibble below byte 1's low bits
    EXPECT_EQ(f.read(32), 0xA0403FDFu);
    expectError([&] { f.read(33); }, "LsbBitFieldReader: more than 32 bits requested");
    EXPECT_EQ(f.read(2), 0b10u);  // the last valid bits
    expectError([&] { f.read(1); }, kExhausted);
}

// The plain rule, written as stated: lengths tried from the shortest up, each
// looked up in a map. The decoder under test must agree with it everywhere.
Outcome referenceDecode(const std::vector<uint8_t>& bytes, uint64_t bitCount, uint32_t numBits, bool isSigned) {
    uint64_t pos = 0;
    auto read = [&](uint32_t n) -> std::optional<uint32_t> {
        if (pos + n > bitCount) return std::nullopt;
        uint32_t v = 0;
        for (uint32_t i = 0; i < n; ++i, ++pos) v |= uint32_t((bytes[pos / 8] >> (pos % 8)) & 1) << i;
        return v;
    };
    const auto leaves = read(numBits + 1), width = leaves && *leaves ? read(8) : std::optional<uint32_t>(0);
    if (!leaves || !width) return kExhausted;
    if (*leaves == 0) return std::vector<uint32_t>{};
    if (*width == 0 || *width > 32) return "decodeHuffmanBitField: max_code_length out of range";
    std::map<std::pair<uint32_t, uint32_t>, uint32_t> table;
    uint32_t shortest = 99, longest = 0;
    for (uint32_t i = 0; i < *leaves; ++i) {
        auto value = read(numBits);
        auto length = value ? read(*width) : std::nullopt;
        if (!length) return kExhausted;
        if (*length == 0 || *length > 32) return "decodeHuffmanBitField: code length out of range";
        auto raw = read(*length);
        if (!raw) return kExhausted;
        if (isSigned && numBits > 0 && (*value >> (numBits - 1)) & 1) *value |= ~0u << numBits;
        uint32_t code = 0;
        for (uint32_t b = 0; b < *length; ++b) code |= ((*raw >> b) & 1) << (*length - 1 - b);
        table[{*length, code}] = *value;
        shortest = std::min(shortest, *length);
        longest = std::max(longest, *length);
    }
    const auto count = read(32);
    if (!count) return kExhausted;
    if (*count > 134217728) return "decodeHuffmanBitField: implausible element_array_size";
    std::vector<uint32_t> out;
    while (out.size() < *count) {
        const uint64_t start = pos;
        for (uint32_t length = shortest; out.size() < *count; ++length) {
            if (length > longest) return "decodeHuffmanBitField: unrecognized code";
            pos = start;
            const auto bits = read(length);
            if (!bits) return kExhausted;
            if (auto it = table.find({length, *bits}); it != table.end()) {
                out.push_back(it->second);
                break;
            }
        }
    }
    return out;
}

Outcome decode(const LsbBitFieldWriter& field, uint8_t numBits, bool isSigned, uint64_t bitCount = ~0ull) {
    // An exactly sized copy: a read past the field's bytes shows under the sanitizers.
    std::unique_ptr<uint8_t[]> exact(new uint8_t[field.bytes().size()]);
    std::copy(field.bytes().begin(), field.bytes().end(), exact.get());
    LsbBitFieldReader f(exact.get(), std::min(bitCount, field.bitCount()));
    try {
        return decodeHuffmanBitField(f, numBits, isSigned);
    } catch (const std::runtime_error& e) {
        return std::string(e.what());
    }
}

// Random fields, well-formed or not: repeated keys, codes that are not prefix
// free, lengths up to 32 and beyond, large element counts, and element bits
// made of the table's codes but cut at any point.
TEST(HuffmanBitField, AgreesWithThePlainRule) {
    std::mt19937 rng(4242);
    int failures = 0;
    for (int round = 0; round < 4000; ++round) {
        const uint8_t numBits = uint8_t(rng() % 17);
        const bool isSigned = rng() % 2;
        LsbBitFieldWriter f;
        const uint32_t leaves = 1 + rng() % 40;
        f.writeBits(leaves, numBits + 1);
        const uint32_t maxLength = round % 3 == 0 ? 32 : 1 + rng() % 16;
        const uint32_t width = rng() % 16 == 0 ? rng() % 40 : uint32_t(std::bit_width(maxLength)) + rng() % 2;
        f.writeBits(width, 8);
        std::vector<std::pair<uint32_t, uint32_t>> codes;  // (length, element bits)
        for (uint32_t i = 0; i < leaves; ++i) {
            f.writeBits(rng(), numBits);
            const uint32_t length = rng() % 50 == 0 ? rng() % 64 : 1 + rng() % maxLength;
            const uint32_t code = rng() % 4 == 0 ? 0 : rng();
            f.writeBits(length, int(width));
            f.writeBits(code, int(std::min<uint32_t>(length, 32)));
            if (length >= 1 && length <= 32) codes.push_back({length, code});
        }
        uint32_t count = rng() % 20 == 0 ? rng() : rng() % 8 == 0 ? 65536 + rng() % 1000000 : rng() % 300;
        LsbBitFieldWriter elements;
        if (rng() % 2 && !codes.empty()) {
            // Codes of the table (leaf bits reversed), the last one possibly cut short.
            for (uint32_t i = 0; i < count % 300; ++i) {
                const auto [length, code] = codes[rng() % codes.size()];
                uint32_t bits = 0;
                for (uint32_t b = 0; b < length; ++b) bits |= ((code >> b) & 1) << (length - 1 - b);
                elements.writeBits(bits, int(i + 1 == count % 300 ? length - rng() % (length + 1) : length));
            }
            count = count % 300 + rng() % 2;
        } else {
            const bool sparse = rng() % 2;  // mostly zeros, so that short codes keep matching
            for (uint32_t i = rng() % 4000; i > 0; --i) elements.writeBits(sparse ? (rng() % 8 == 0) : (rng() & 1), 1);
        }
        f.writeBits(count, 32);
        for (uint64_t i = 0; i < elements.bitCount(); ++i) f.writeBits((elements.bytes()[i / 8] >> (i % 8)) & 1, 1);
        const Outcome expected = referenceDecode(f.bytes(), f.bitCount(), numBits, isSigned);
        ASSERT_EQ(decode(f, numBits, isSigned), expected) << "round " << round;
        failures += std::holds_alternative<std::string>(expected);
    }
    EXPECT_TRUE(failures > 400 && failures < 3600) << failures;  // both outcomes in numbers
}

// A whole Huffman array around a field.
Outcome readArray(const LsbBitFieldWriter& field, uint8_t numBits, bool isSigned = false, int64_t bitsUsed = -1) {
    PRCBitWriter w;
    w.writeHuffmanArray(field, bitsUsed);
    Stream s(w);
    try {
        Outcome v = readHuffmanCompressedArray(s.r, numBits, isSigned);
        EXPECT_EQ(s.r.bitIndex(), w.bitCount());
        return v;
    } catch (const std::runtime_error& e) {
        return std::string(e.what());
    }
}

LsbBitFieldWriter fieldOf(uint8_t numBits, const std::vector<HuffmanLeaf>& leaves, const std::vector<uint32_t>& values) {
    LsbBitFieldWriter f;
    writeHuffmanBitField(f, numBits, leaves, values);
    return f;
}

TEST(HuffmanBitField, EdgeCasesAndMessages) {
    using V = std::vector<uint32_t>;
    LsbBitFieldWriter noLeaves, badWidth, badLength, hugeCount;
    noLeaves.writeBits(0, 7);  // and no element count after it
    badWidth.writeBits(1, 3), badWidth.writeBits(33, 8);
    badLength.writeBits(1, 3), badLength.writeBits(6, 8), badLength.writeBits(1, 2), badLength.writeBits(0, 6);
    hugeCount.writeBits(1, 3), hugeCount.writeBits(1, 8), hugeCount.writeBits(1, 2), hugeCount.writeBits(1, 1);
    hugeCount.writeBits(0, 1), hugeCount.writeBits(134217729, 32);
    const LsbBitFieldWriter single = fieldOf(4, {{9, 1, 0}}, V(5, 9));  // five elements of one 0 bit each
    const LsbBitFieldWriter sixBits = fieldOf(6, {{32, 1, 0}, {31, 1, 1}}, {32, 31});
    LsbBitFieldWriter unknown = fieldOf(2, {{1, 2, 0b00}, {2, 2, 0b10}}, {});
    // (elements hand-written: patch the count of 0 to 2 and add the bits 00 11)
    LsbBitFieldWriter patched;
    for (uint64_t i = 0; i + 32 < unknown.bitCount(); ++i) patched.writeBits((unknown.bytes()[i / 8] >> (i % 8)) & 1, 1);
    patched.writeBits(2, 32), patched.writeBits(0b1100, 4);
    EXPECT_EQ(single.bitCount(), 5u + 8 + 4 + 1 + 1 + 32 + 5);

    const struct {
        const char* name;
        const LsbBitFieldWriter& field;
        uint8_t numBits;
        bool isSigned;
        Outcome expected;
        int64_t bitsUsed = -1;
    } cases[] = {
        {"no leaves", noLeaves, 6, false, V{}},
        {"single leaf", single, 4, false, V(5, 9)},
        {"signed 6-bit leaf", sixBits, 6, true, V{0xFFFFFFE0u, 31}},
        {"unsigned 6-bit leaf", sixBits, 6, false, V{32, 31}},
        {"0 bits used of 1 word", noLeaves, 6, false, kExhausted, 0},
        {"32 bits used", single, 4, false, V(5, 9), 32},
        {"33 bits used", single, 4, false,
         "readHuffmanCompressedArray: number_of_bits_used_in_last_integer=33 out of range (huffman_array_size=2)", 33},
        {"width 33", badWidth, 2, false, "decodeHuffmanBitField: max_code_length out of range"},
        {"length 0", badLength, 2, false, "decodeHuffmanBitField: code length out of range"},
        {"count over the cap", hugeCount, 2, false, "decodeHuffmanBitField: implausible element_array_size"},
        {"unknown code", patched, 2, false, "decodeHuffmanBitField: unrecognized code"},
        {"33-bit leaf count", single, 32, false, "LsbBitFieldReader: more than 32 bits requested"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(readArray(c.field, c.numBits, c.isSigned, c.bitsUsed), c.expected);
    }

    Stream empty(bitsOf("0 1"));  // huffman_array_size 0: one UnsignedInteger, nothing more
    EXPECT_TRUE(readHuffmanCompressedArray(empty.r, 8, false).empty());
    EXPECT_EQ(empty.r.bitIndex(), 1u);
    // Word counts over the cap, and at the cap in 9 bytes of section: the
    // latter must fail on the section's end before 256 MiB are allocated.
    for (uint32_t words : {67108865u, 67108864u}) {
        PRCBitWriter w;
        w.writeUnsignedInteger(words);
        w.writeBits(0, 40);
        Stream s(w);
        expectError([&] { readHuffmanCompressedArray(s.r, 8, false); },
                    words > 67108864 ? "readHuffmanCompressedArray: implausible huffman_array_size" : kPastEnd);
    }
}

TEST(CompressedArrays, PlainArraysAndWidths) {
    for (uint8_t width : {0, 17}) {
        Stream s(bitsOf("0 0"));
        expectError([&] { readShortArray(s.r, width, true, true, false); }, "readShortArray: numBitsPerElem out of range");
    }
    for (uint8_t width : {0, 9}) {
        Stream s(bitsOf("0 0"));
        expectError([&] { readCharacterArray(s.r, width, true, true, false); },
                    "readCharacterArray: numBitsPerElem out of range");
    }
    // Plain shorts are low byte first (width 16 accepted); plain characters
    // take 8 bits whatever the width.
    Stream shorts(bitsOf("0 1 00000010 0 00110100 00010010 11111111 00000000"));
    EXPECT_EQ(readShortArray(shorts.r, 16, true, true, false), (std::vector<uint16_t>{0x1234, 0x00FF}));
    Stream chars(bitsOf("0 1 00000010 0 10000001 01111110"));
    EXPECT_EQ(readCharacterArray(chars.r, 2, true, true, false), (std::vector<uint8_t>{0x81, 0x7E}));
    // Without the flag bit the default decides; signed Huffman values keep their low 16 or 8 bits.
    PRCBitWriter w;
    w.writeCharacterArray({1, 2, 3}, false, false);
    w.writeShortArray({0x8, 0x7, 0x8}, true, false, 4);
    w.writeCharacterArray({0x20, 0x1F}, true, false, 6);
    Stream s(w);
    EXPECT_EQ(readCharacterArray(s.r, 8, false, false, false), (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_EQ(readShortArray(s.r, 4, false, true, true), (std::vector<uint16_t>{0xFFF8, 7, 0xFFF8}));
    EXPECT_EQ(readCharacterArray(s.r, 6, false, true, true), (std::vector<uint8_t>{0xE0, 0x1F}));
    EXPECT_EQ(s.r.bitIndex(), w.bitCount());
}

TEST(CompressedArrays, IntegerAndIndexArrays) {
    PRCBitWriter w;
    w.writeCharacterArray({0, 1, 32}, false, true);  // counts 0 and 1: a sign bit alone
    w.writeBitString("1 0 1");
    w.writeBits(0x7FFFFFFF, 31);
    w.writeCharacterArray({3, 0, 0xFF}, false, true);  // bit counts 3, 3, 2: deltas 3, -1, -1
    w.writeBitString("0 11  1 01  1 1");
    w.writeCompressedIndiceArray({-5, 0, 7}, false);  // a negative first element is kept
    Stream s(w);
    EXPECT_EQ(readCompressedIntegerArray(s.r), (std::vector<int32_t>{0, 0, -0x7FFFFFFF}));
    EXPECT_EQ(readCompressedIndiceArray(s.r, true, 6, true), (std::vector<int32_t>{3, 2, 1}));
    EXPECT_EQ(readCompressedIndiceArray(s.r, true, 6, true), (std::vector<int32_t>{-5, 0, 7}));
    EXPECT_EQ(s.r.bitIndex(), w.bitCount());

    auto failsWith = [](const std::vector<uint8_t>& counts, bool indices, const std::string& message) {
        PRCBitWriter bad;
        bad.writeCharacterArray(counts, false, true);
        bad.writeBits(0, 64);
        Stream b(bad);
        expectError([&] { indices ? readCompressedIndiceArray(b.r, true, 6, false) : readCompressedIntegerArray(b.r); },
                    message);
    };
    for (uint8_t count : {33, 0x80, 0xFF}) failsWith({3, count}, false, "readCompressedIntegerArray: bit count out of range");
    for (auto counts : {std::vector<uint8_t>{2, 0xFD}, std::vector<uint8_t>{30, 3}, std::vector<uint8_t>{33}})
        failsWith(counts, true, "readCompressedIndiceArray: bit count out of range");
    PRCBitWriter negative;
    negative.writeCompressedIndiceArray({0, -1, 3}, true);
    Stream n(negative);
    expectError([&] { readCompressedIndiceArray(n.r, true, 6, false); }, "readCompressedIndiceArray: negative index");
}

// Many random arrays of every kind through the writer and back.
TEST(CompressedArrays, RandomRoundTrips) {
    std::mt19937 rng(777);
    auto skewed = [&](uint32_t limit) {  // small values frequent, the odd large one
        const uint32_t r = rng() % 100;
        return r < 60 ? rng() % 4 : r < 90 ? rng() % 64 : rng() % (limit + 1);
    };
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE(round);
        const size_t n = round % 10 == 0 ? 0 : rng() % (round % 7 == 0 ? 5000 : 200);
        const uint8_t shortWidth = uint8_t(1 + rng() % 16), charWidth = uint8_t(1 + rng() % 8);
        const bool compressed = rng() % 3 != 0;
        std::vector<uint16_t> shorts;
        std::vector<uint8_t> chars;
        std::vector<int32_t> ints, indices;
        for (size_t i = 0; i < n; ++i) {
            shorts.push_back(uint16_t(skewed(0xFFFF) & ((1u << shortWidth) - 1)));
            chars.push_back(uint8_t(skewed(0xFF) & ((1u << charWidth) - 1)));
            const int32_t magnitude = int32_t(skewed(round % 5 == 0 ? 0x3FFFFFFF : 5000));
            ints.push_back(rng() % 2 ? -magnitude : magnitude);
            indices.push_back(std::max(0, (indices.empty() ? 0 : indices.back()) + int32_t(skewed(1000)) - 40));
        }
        PRCBitWriter w;
        w.writeShortArray(shorts, compressed, true, shortWidth);
        w.writeCharacterArray(chars, compressed, true, charWidth);
        w.writeCompressedIntegerArray(ints, compressed);
        w.writeCompressedIndiceArray(indices, compressed, true, 6);
        w.writeCompressedIndiceArray(indices, !compressed, false, 6);
        Stream s(w);
        ASSERT_EQ(readShortArray(s.r, shortWidth, true, false, false), shorts);
        ASSERT_EQ(readCharacterArray(s.r, charWidth, true, false, false), chars);
        ASSERT_EQ(readCompressedIntegerArray(s.r), ints);
        ASSERT_EQ(readCompressedIndiceArray(s.r, true, 6, false), indices);
        ASSERT_EQ(readCompressedIndiceArray(s.r, false, 6, !compressed), indices);
        EXPECT_EQ(s.r.bitIndex(), w.bitCount());
    }
}

// Counts that the data cannot hold end at the section's end.
TEST(CompressedArrays, HostileCounts) {
    PRCBitWriter huge = bitsOf("0 1 11111111 1 11111111 1 11111111 1 11111111 0");
    huge.writeBits(0, 40);
    Stream a(huge), b(huge), c(huge);
    expectError([&] { readShortArray(a.r, 16, true, true, false); }, kPastEnd);
    expectError([&] { readCharacterArray(b.r, 8, true, true, false); }, kPastEnd);
    expectError([&] { readCompressedIndiceArray(c.r, true, 6, true); }, kPastEnd);
    // Huffman counts promising 1000 integers with 20 bits left for them.
    PRCBitWriter promise = bitsOf("1");
    promise.writeHuffmanArray(fieldOf(6, {{1, 1, 0}}, std::vector<uint32_t>(1000, 1)));
    promise.writeBits(0, 20);
    Stream d(promise);
    expectError([&] { readCompressedIntegerArray(d.r); }, kPastEnd);
}

}  // namespace
}  // namespace prc
