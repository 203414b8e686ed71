#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tools/inspect/result_stream_reader.h"
#include "worker/result_stream.h"
#include "worker/worker_entry.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Runs a writer on a temporary file and returns its status and every byte.
template <class Write>
std::pair<int, Bytes> capture(Write write) {
    FILE* file = std::tmpfile();
    EXPECT_NE(file, nullptr);
    const int status = write(file);
    Bytes bytes(static_cast<size_t>(std::ftell(file)));
    std::rewind(file);
    EXPECT_EQ(std::fread(bytes.data(), 1, bytes.size(), file), bytes.size());
    std::fclose(file);
    return {status, bytes};
}

void putU32(Bytes& bytes, size_t offset, uint32_t value) {
    for (int i = 0; i < 4; ++i) bytes[offset + i] = uint8_t(value >> (8 * i));
}

Bytes errorRecordBytes(const std::string& message) {
    Bytes bytes(48 + message.size(), 0);
    putU32(bytes, 16, uint32_t(message.size()));
    putU32(bytes, 20, 2);
    std::copy(message.begin(), message.end(), bytes.begin() + 48);
    return bytes;
}

TEST(ResultStream, ErrorRecordsAreByteExact) {
    const std::string usage = "uso interno: meshdrone <file>";
    const auto [status, bytes] = capture([&](FILE* f) { return writeErrorRecordTo(f, usage.c_str()); });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(bytes.size(), 48u + 29u);
    EXPECT_EQ(bytes, errorRecordBytes(usage));
    EXPECT_EQ(result_reader::readResultStream(bytes.data(), bytes.size()).message, usage);
}

TEST(ResultStream, FailureHeaderCarriesOnlyTheOutcome) {
    for (uint32_t outcome : {kOutcomeNoResult, kOutcomeNoGeometry, kOutcomeDecodingError}) {
        const auto [status, bytes] = capture([&](FILE* f) { return writeFailureHeaderTo(f, outcome); });
        Bytes expected(48, 0);
        putU32(expected, 20, outcome);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(bytes, expected);
    }
}

struct SmallModel {
    float positions[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    uint32_t triangles[3] = {0, 1, 2};
    uint8_t colors[9] = {255, 0, 0, 0, 255, 0, 0, 0, 255};
    PartRecord parts[2]{};
    DecodedModel model{};

    SmallModel() {
        model.positions = positions;
        model.triangles = triangles;
        model.colors = colors;
        model.vertex_count = 3;
        model.triangle_count = 1;
        model.minimal_version_for_read = 8137;
        model.authoring_version = 8137;
        model.number_of_file_structures = 1;
        model.color_count = 4;
        model.material_count = 5;
        model.style_count = 6;
    }
};

TEST(ResultStream, SuccessStreamLayout) {
    SmallModel small;
    const auto [status, bare] = capture([&](FILE* f) { return writeSuccessStreamTo(f, small.model); });
    ASSERT_EQ(status, 0);
    // Without part records the stream ends right after the colours.
    ASSERT_EQ(bare.size(), 48u + 36u + 12u + 9u);
    Bytes header(48, 0);
    header[0] = 1;
    const uint32_t fields[] = {3, 1, 0, 0, 0, 8137, 8137, 1, 4, 5, 6};
    for (int i = 0; i < 11; ++i) putU32(header, 4 + 4 * i, fields[i]);
    EXPECT_EQ(Bytes(bare.begin(), bare.begin() + 48), header);
    EXPECT_EQ(0, std::memcmp(&bare[48], small.positions, 36));
    EXPECT_EQ(0, std::memcmp(&bare[84], small.triangles, 12));
    EXPECT_EQ(0, std::memcmp(&bare[96], small.colors, 9));

    for (uint32_t i = 0; i < 2; ++i) {
        PartRecord& part = small.parts[i];
        std::strcpy(part.name, i == 0 ? "root" : "leaf");
        part.node_index = i;
        part.parent_index = i == 0 ? 0xFFFFFFFF : 0;
        part.triangle_count = i;
        part.box_max[0] = part.box_max[1] = 1;
        part.flag = 1;
    }
    small.model.part_records = small.parts;
    small.model.part_count = 2;
    small.model.optional_block_present = 1;
    std::memset(small.model.optional_block, 0xAB, 36);
    const auto [fullStatus, full] = capture([&](FILE* f) { return writeSuccessStreamTo(f, small.model); });
    ASSERT_EQ(fullStatus, 0);
    ASSERT_EQ(full.size(), 105u + 36u + 2u * 188u);
    EXPECT_EQ(full[1], 1);
    EXPECT_EQ(Bytes(full.begin() + 105, full.begin() + 141), Bytes(36, 0xAB));
    EXPECT_EQ(0, std::memcmp(&full[141], small.parts, 2 * 188));
    const auto stream = result_reader::readResultStream(full.data(), full.size());
    EXPECT_EQ(result_reader::partName(stream.parts[1]), "leaf");
}

// A write that fails only when the buffer is flushed counts as failed.
TEST(ResultStream, WriteFailureGivesStatusOne) {
    SmallModel small;
    for (bool buffered : {true, false}) {
        FILE* full = std::fopen("/dev/full", "wb");
        if (full == nullptr) GTEST_SKIP() << "no /dev/full";
        if (!buffered) std::setvbuf(full, nullptr, _IONBF, 0);
        EXPECT_EQ(writeErrorRecordTo(full, "uso interno: meshdrone <file>"), 1);
        EXPECT_EQ(writeFailureHeaderTo(full, kOutcomeNoGeometry), 1);
        EXPECT_EQ(writeSuccessStreamTo(full, small.model), 1);
        std::fclose(full);
    }
}

DecodedModel modelWithCounts(uint32_t vertices, uint32_t triangles, uint32_t parts, bool optionalBlock) {
    DecodedModel model{};
    model.vertex_count = vertices;
    model.triangle_count = triangles;
    model.part_count = parts;
    model.optional_block_present = optionalBlock ? 1 : 0;
    return model;
}

TEST(ResultStream, PayloadLimitIsInclusiveAt256MiB) {
    // 2 x 188 + 22,369,590 x 12 = 268,435,456 exactly; 188 + 3 x 15 + 22,369,602 x 12 is one more.
    EXPECT_EQ(resultPayloadBytes(modelWithCounts(0, 22369590, 2, false)), 268435456u);
    EXPECT_FALSE(exceedsPreviewLimit(modelWithCounts(0, 22369590, 2, false)));
    EXPECT_EQ(resultPayloadBytes(modelWithCounts(3, 22369602, 1, false)), 268435457u);
    EXPECT_TRUE(exceedsPreviewLimit(modelWithCounts(3, 22369602, 1, false)));
    // The optional block counts its 36 bytes.
    EXPECT_FALSE(exceedsPreviewLimit(modelWithCounts(0, 22369587, 2, true)));
    EXPECT_TRUE(exceedsPreviewLimit(modelWithCounts(1, 22369587, 2, true)));
    // No count can wrap the sum.
    EXPECT_EQ(resultPayloadBytes(modelWithCounts(0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, true)),
              0xFFFFFFFFull * (15 + 12 + 188) + 36);
}

TEST(ResultStream, DecodeResultPicksTheStreamToWrite) {
    const std::string tooLarge = "il modello e' troppo grande per l'anteprima (oltre il limite di 256 MiB)";
    // Only the counts are read for a model beyond the limit: no array exists.
    const DecodedModel huge = modelWithCounts(20000000, 20000000, 0, false);
    const auto [status, bytes] = capture([&](FILE* f) { return writeDecodeResult(f, true, huge); });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(bytes, errorRecordBytes(tooLarge));
    EXPECT_EQ(tooLarge.size(), 72u);

    DecodedModel failed{};
    failed.outcome = kOutcomeNoGeometry;
    const auto [failedStatus, failure] = capture([&](FILE* f) { return writeDecodeResult(f, false, failed); });
    EXPECT_EQ(failedStatus, 0);
    EXPECT_EQ(result_reader::readResultStream(failure.data(), failure.size()).header.status, kOutcomeNoGeometry);
}

}  // namespace
