#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>

#include "prc/entities/entity_framing.h"
#include "prc/tess/compressed_tess_reading.h"
#include "tests/prc/tess/tess_test_util.h"
#include "tests/support/prc_tess_writer.h"

namespace prc::test {
namespace {

constexpr uint32_t kNewest = 0xFFFFFFFF;

// A record with every field in use, normals encoded.
PRC3DTessCompressed fullRecord() {
    PRC3DTessCompressed c;
    c.is_calculated = true;
    c.tolerance = 0.002;
    c.point_origin = {1.5f, -2.25f, 1e-3f};
    c.point_array = {0, 1, -1, 100, -100, 65535, -65536, 1073741823, 7, 7, 7};
    c.edge_status_array = {0, 1, 2, 3, 3, 3, 1};
    c.triangle_face_array = {0, 0, 1, 3, 3, 2};
    c.point_is_reference_array = {false, true, false, true, true, true, false};
    c.point_reference_array = {4, 0, 9, 9};
    c.normal_angle_number_of_bits = 12;
    c.normal_binary_data = {true, false, false, true, true};
    c.normal_angle_array = {0, 4095, 17, 17, 2048};
    c.face_has_single_normal = {true, false, true, false};
    c.face_is_textured = {false, true, false, false};
    c.texture_data = {9, 8, 200};
    c.style_per_triangle = true;
    c.triangle_style_bits = {true, true, false, false};
    c.style_array = {1, 0, -1, -32768, 32767};  // used as signed
    c.trailing_data = {1, 2, 3};
    return c;
}

void expectSameRecord(const PRC3DTessCompressed& a, const PRC3DTessCompressed& b) {
    EXPECT_EQ(a.is_calculated, b.is_calculated);
    EXPECT_EQ(a.tolerance, b.tolerance);
    EXPECT_EQ(a.point_array, b.point_array);
    EXPECT_EQ(a.edge_status_array, b.edge_status_array);
    EXPECT_EQ(a.triangle_face_array, b.triangle_face_array);
    EXPECT_EQ(a.point_is_reference_array, b.point_is_reference_array);
    EXPECT_EQ(a.point_reference_array, b.point_reference_array);
    EXPECT_EQ(a.must_recalculate_normals, b.must_recalculate_normals);
    EXPECT_EQ(a.normal_is_reversed, b.normal_is_reversed);
    EXPECT_EQ(a.crease_angle, b.crease_angle);
    EXPECT_EQ(a.normal_angle_number_of_bits, b.normal_angle_number_of_bits);
    EXPECT_EQ(a.normal_binary_data, b.normal_binary_data);
    EXPECT_EQ(a.normal_angle_array, b.normal_angle_array);
    EXPECT_EQ(a.face_has_single_normal, b.face_has_single_normal);
    EXPECT_EQ(a.face_is_textured, b.face_is_textured);
    EXPECT_EQ(a.texture_data, b.texture_data);
    EXPECT_EQ(a.style_per_triangle, b.style_per_triangle);
    EXPECT_EQ(a.triangle_style_bits, b.triangle_style_bits);
    EXPECT_EQ(a.style_array, b.style_array);
    EXPECT_EQ(a.trailing_data, b.trailing_data);
}

// No points and recalculated normals: the shortest record.
PRC3DTessCompressed emptyRecord() {
    PRC3DTessCompressed c;
    c.must_recalculate_normals = true;
    return c;
}

void copyBits(PRCBitWriter& to, const PRCBitWriter& from, uint64_t begin, uint64_t end) {
    for (uint64_t bit = begin; bit < end; ++bit) to.writeBit((from.bytes()[bit / 8] >> (7 - bit % 8)) & 1);
}

// Reads the record back; the reader must stop exactly before a sentinel.
PRC3DTessCompressed roundTrip(const PRC3DTessCompressed& record, uint32_t version = kNewest,
                              const CompressedTessEncoding& encoding = {}) {
    PRCBitWriter w;
    writePRC3DTessCompressed(w, version, record, encoding);
    w.writeBits(0x5A, 8);
    WrittenReader in(w, version);
    PRC3DTessCompressed out = readPRC3DTessCompressed(in.reader, version);
    EXPECT_EQ(in.reader.readBits(8), 0x5Au);
    return out;
}

TEST(ReadPRC3DTessCompressed, ReadsEveryFieldInEitherEncoding) {
    CompressedIgnoredBlock block{{1, 2, 3, 4, 5, 6, 7, 8}, 99, {{0, 0}, {1, 1}, {31, 0x7FFFFFFF}}, 3.25, {9, 9, 9, 9},
                                 false, {true, false, true, true}};
    for (bool huffman : {true, false})
        for (bool with_block : {false, true}) {
            CompressedTessEncoding encoding;
            encoding.huffman = huffman;
            if (with_block) encoding.ignored_block = block;
            expectSameRecord(roundTrip(fullRecord(), kNewest, encoding), fullRecord());
        }

    PRC3DTessCompressed recalculated = fullRecord();
    recalculated.must_recalculate_normals = true;
    recalculated.normal_angle_number_of_bits = 0;
    recalculated.normal_binary_data.clear();
    recalculated.normal_angle_array.clear();
    recalculated.face_has_single_normal.clear();
    recalculated.normal_is_reversed = {true, false, false, true, false, true};  // one per triangle
    recalculated.crease_angle = 0.5;
    expectSameRecord(roundTrip(recalculated), recalculated);
}

TEST(ReadPRC3DTessCompressed, OriginIsReadAfterVersion7030LeastSignificantByteFirst) {
    const PRC3DTessCompressed old = roundTrip(fullRecord(), 7030);
    EXPECT_FALSE(old.has_point_origin);
    EXPECT_EQ(old.point_origin, (std::array<float, 3>{0, 0, 0}));
    EXPECT_EQ(old.point_array, fullRecord().point_array);
    const PRC3DTessCompressed newer = roundTrip(fullRecord(), 7031);
    EXPECT_TRUE(newer.has_point_origin);
    EXPECT_EQ(newer.point_origin, fullRecord().point_origin);

    // Byte order fixed by hand: 00 00 80 3F is 1.0.
    PRCBitWriter w;
    w.writeUnsignedInteger(k3DTessCompressed);
    w.writeBits(0, 2);
    w.writeDouble(0.5);
    for (uint8_t b : {0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x00, 0xC0, 0x01, 0x00, 0x00, 0x00}) w.writeBits(b, 8);
    PRCBitWriter rest;
    writePRC3DTessCompressed(rest, 7030, emptyRecord());
    copyBits(w, rest, 10 + 2 + 2, rest.bitCount());  // after type code, Booleans and tolerance 0.0
    WrittenReader in(w, kNewest);
    const PRC3DTessCompressed record = readPRC3DTessCompressed(in.reader, kNewest);
    EXPECT_EQ(record.point_origin, (std::array<float, 3>{1.0f, -2.0f, std::numeric_limits<float>::denorm_min()}));
}

TEST(ReadPRC3DTessCompressed, NormalAngleBitsMustBeOneToSixteen) {
    for (uint8_t bits : {uint8_t(0), uint8_t(17), uint8_t(255)}) {
        PRC3DTessCompressed record = fullRecord();
        record.normal_angle_number_of_bits = bits;
        PRCBitWriter w;
        writePRC3DTessCompressed(w, kNewest, record);
        WrittenReader in(w, kNewest);
        try {
            readPRC3DTessCompressed(in.reader, kNewest);
            ADD_FAILURE() << int(bits);
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "readPRC3DTessCompressed: normal_angle_number_of_bits out of range");
        }
    }
    for (uint8_t bits : {uint8_t(1), uint8_t(16)}) {
        PRC3DTessCompressed record = fullRecord();
        record.normal_angle_number_of_bits = bits;
        record.normal_angle_array = {0, 1, 1, uint16_t((1u << bits) - 1)};
        expectSameRecord(roundTrip(record), record);
    }
}

TEST(ReadPRC3DTessCompressed, FacesCountFromTheTriangleFacesAndReferencesSwitchToHuffmanAfterThree) {
    EXPECT_EQ(compressedFaceCount({}), 0u);
    EXPECT_EQ(compressedFaceCount({0, 2, 2}), 3u);
    EXPECT_EQ(compressedFaceCount({-5}), 0u);
    EXPECT_EQ(compressedFaceCount({-1, 4, -7}), 5u);
    EXPECT_EQ(compressedFaceCount({0x7FFFFFFF}), 0x80000000u);

    // No faces: the per-face bit arrays read nothing.
    for (std::vector<int32_t> faces : {std::vector<int32_t>{}, std::vector<int32_t>{-5}}) {
        PRC3DTessCompressed record = fullRecord();
        record.triangle_face_array = faces;
        record.face_has_single_normal.clear();
        record.face_is_textured.clear();
        record.triangle_style_bits.clear();
        CompressedTessEncoding encoding;
        encoding.ignored_block = CompressedIgnoredBlock{};
        encoding.ignored_block->skip_face_bits = false;
        expectSameRecord(roundTrip(record, kNewest, encoding), record);
    }
    // The writer Huffman-codes the references exactly when more than three
    // are set; a reader with another threshold mis-reads the rest.
    for (size_t set : {0u, 3u, 4u}) {
        PRC3DTessCompressed record = fullRecord();
        record.point_is_reference_array.assign(8, false);
        record.point_reference_array.clear();
        for (size_t i = 0; i < set; ++i) {
            record.point_is_reference_array[i] = true;
            record.point_reference_array.push_back(int32_t(i * 3));
        }
        expectSameRecord(roundTrip(record), record);
    }
}

TEST(ReadPRC3DTessCompressed, IgnoredByteRunsCountAs32BitProducts) {
    // 0x40000001 runs of four bytes wrap around to a single run. The empty
    // record ends with the block flag and the trailing-data flag; its block,
    // when present, begins with the count of the first run.
    PRCBitWriter without;
    writePRC3DTessCompressed(without, 7030, emptyRecord());
    CompressedTessEncoding encoding;
    encoding.ignored_block = CompressedIgnoredBlock{};
    PRCBitWriter with;
    writePRC3DTessCompressed(with, 7030, emptyRecord(), encoding);
    const uint64_t count_at = without.bitCount() - 1;
    PRCBitWriter w;
    copyBits(w, with, 0, count_at);
    w.writeUnsignedInteger(0x40000001u);
    for (int i = 0; i < 4; ++i) w.writeBits(0xEE, 8);
    copyBits(w, with, count_at + 1, with.bitCount());
    w.writeBits(0x5A, 8);
    WrittenReader in(w, 7030);
    readPRC3DTessCompressed(in.reader, 7030);
    EXPECT_EQ(in.reader.readBits(8), 0x5Au);
}

TEST(ReadUnsignedIntegerWithVariableBitNumber, ReadsAFiveBitWidthThenTheValue) {
    PRCBitWriter w;
    w.writeBits(0, 5);
    w.writeBits(31, 5);
    w.writeBits(0x7FFFFFFF, 31);
    WrittenReader in(w, kNewest);
    EXPECT_EQ(readUnsignedIntegerWithVariableBitNumber(in.reader), 0u);
    EXPECT_EQ(in.reader.bitIndex(), 5u);
    EXPECT_EQ(readUnsignedIntegerWithVariableBitNumber(in.reader), 0x7FFFFFFFu);
}

}  // namespace
}  // namespace prc::test
