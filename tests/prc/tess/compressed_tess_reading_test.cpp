#include <gtest/gtest.h>

#include <stdexcept>

#include "prc/tess/compressed_tess_reading.h"
#include "tests/prc/tess/tess_test_util.h"
#include "tests/support/prc_tess_writer.h"

namespace prc::test {
namespace {

constexpr uint32_t kNewest = 0xFFFFFFFF;

// Every field in use, normals encoded.
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
    c.style_array = {1, 0, -1, -32768, 32767};
    c.trailing_data = {1, 2, 3};
    return c;
}

// Writes, reads back and compares every kept field; the reader must stop
// exactly before a sentinel byte.
void expectRoundTrip(const PRC3DTessCompressed& a, uint32_t version = kNewest, bool huffman = true,
                     const std::optional<CompressedIgnoredBlock>& block = {}) {
    PRCBitWriter w;
    writePRC3DTessCompressed(w, version, a, huffman, block);
    w.writeBits(0x5A, 8);
    WrittenReader in(w, version);
    const PRC3DTessCompressed b = readPRC3DTessCompressed(in.reader, version);
    EXPECT_EQ(in.reader.readBits(8), 0x5Au);
    EXPECT_EQ(b.has_point_origin, version > 7030);
    EXPECT_EQ(b.point_origin, (version > 7030 ? a.point_origin : std::array<float, 3>{}));
    EXPECT_EQ(std::tie(a.is_calculated, a.tolerance, a.point_array, a.edge_status_array, a.triangle_face_array,
                       a.point_is_reference_array, a.point_reference_array, a.must_recalculate_normals,
                       a.normal_is_reversed, a.crease_angle, a.normal_angle_number_of_bits, a.normal_binary_data),
              std::tie(b.is_calculated, b.tolerance, b.point_array, b.edge_status_array, b.triangle_face_array,
                       b.point_is_reference_array, b.point_reference_array, b.must_recalculate_normals,
                       b.normal_is_reversed, b.crease_angle, b.normal_angle_number_of_bits, b.normal_binary_data));
    EXPECT_EQ(std::tie(a.normal_angle_array, a.face_has_single_normal, a.face_is_textured, a.texture_data,
                       a.style_per_triangle, a.triangle_style_bits, a.style_array, a.trailing_data),
              std::tie(b.normal_angle_array, b.face_has_single_normal, b.face_is_textured, b.texture_data,
                       b.style_per_triangle, b.triangle_style_bits, b.style_array, b.trailing_data));
}

TEST(ReadPRC3DTessCompressed, ReadsEveryFieldInEitherEncodingAndVersion) {
    const CompressedIgnoredBlock block{{1, 2, 3, 4, 5, 6, 7, 8}, 99, {{0, 0}, {1, 1}, {31, 0x7FFFFFFF}}, 3.25,
                                       {9, 9, 9, 9}, std::vector<bool>{true, false, true, true}};
    for (bool huffman : {true, false}) {
        expectRoundTrip(fullRecord(), kNewest, huffman);
        expectRoundTrip(fullRecord(), kNewest, huffman, block);
    }
    expectRoundTrip(fullRecord(), 7030);  // no origin up to 7030
    expectRoundTrip(fullRecord(), 7031);

    PRC3DTessCompressed record = fullRecord();
    for (uint8_t bits : {uint8_t(1), uint8_t(16)}) {
        record.normal_angle_number_of_bits = bits;
        record.normal_angle_array = {0, 1, 1, uint16_t((1u << bits) - 1)};
        expectRoundTrip(record);
    }
    record.must_recalculate_normals = true;
    record.normal_angle_number_of_bits = 0;
    record.normal_binary_data.clear();
    record.normal_angle_array.clear();
    record.face_has_single_normal.clear();
    record.normal_is_reversed = {true, false, false, true, false, true};  // one per triangle
    record.crease_angle = 0.5;
    expectRoundTrip(record);

    // The writer Huffman-codes the references exactly when more than three are set.
    for (size_t set : {0u, 3u, 4u}) {
        record.point_is_reference_array.assign(8, false);
        record.point_reference_array.clear();
        for (size_t i = 0; i < set; ++i) {
            record.point_is_reference_array[i] = true;
            record.point_reference_array.push_back(int32_t(i * 3));
        }
        expectRoundTrip(record);
    }
    // No faces: the per-face bit arrays read nothing.
    record.triangle_face_array = {-5};
    record.normal_is_reversed = {true};
    record.face_is_textured.clear();
    record.triangle_style_bits.clear();
    expectRoundTrip(record, kNewest, true, CompressedIgnoredBlock{{}, 0, {}, 0, {}, std::vector<bool>{}});
}

TEST(ReadPRC3DTessCompressed, FaceCountAndNormalBitsRange) {
    const std::pair<std::vector<int32_t>, uint32_t> counts[] = {
        {{}, 0}, {{0, 2, 2}, 3}, {{-5}, 0}, {{-1, 4, -7}, 5}, {{0x7FFFFFFF}, 0x80000000u}};
    for (const auto& [faces, count] : counts) EXPECT_EQ(compressedFaceCount(faces), count);

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
}

TEST(ReadPRC3DTessCompressed, IgnoredByteRunsCountAs32BitProducts) {
    // 0x40000001 runs of four bytes wrap around to a single run: written
    // by hand in place of the first run count of an empty block.
    PRC3DTessCompressed empty;
    empty.must_recalculate_normals = true;
    PRCBitWriter with, without;
    writePRC3DTessCompressed(with, 7030, empty, true, CompressedIgnoredBlock{});
    writePRC3DTessCompressed(without, 7030, empty);
    const uint64_t count_at = without.bitCount() - 1;  // the block flag, then the count where the last flag was
    PRCBitWriter w;
    auto copy = [&](uint64_t begin, uint64_t end) {
        for (uint64_t bit = begin; bit < end; ++bit) w.writeBit((with.bytes()[bit / 8] >> (7 - bit % 8)) & 1);
    };
    copy(0, count_at);
    w.writeUnsignedInteger(0x40000001u);
    for (int i = 0; i < 4; ++i) w.writeBits(0xEE, 8);
    copy(count_at + 1, with.bitCount());
    w.writeBits(0x5A, 8);
    WrittenReader in(w, 7030);
    readPRC3DTessCompressed(in.reader, 7030);
    EXPECT_EQ(in.reader.readBits(8), 0x5Au);
}

}  // namespace
}  // namespace prc::test
