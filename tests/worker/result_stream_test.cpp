#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "worker/result_stream.h"
#include "worker/worker_entry.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Runs a writer on a temporary file: its status must be 0; returns every byte.
Bytes capture(const std::function<int(FILE*)>& write) {
    FILE* file = std::tmpfile();
    EXPECT_EQ(write(file), 0);
    Bytes bytes(static_cast<size_t>(std::ftell(file)));
    std::rewind(file);
    EXPECT_EQ(std::fread(bytes.data(), 1, bytes.size(), file), bytes.size());
    std::fclose(file);
    return bytes;
}

// A header of zeros with these 32-bit fields from byte 4 on, then the tail.
Bytes header(std::vector<uint32_t> fields, const std::string& tail = "") {
    Bytes bytes(48, 0);
    for (size_t i = 0; i < fields.size(); ++i) std::memcpy(&bytes[4 + 4 * i], &fields[i], 4);
    bytes.insert(bytes.end(), tail.begin(), tail.end());
    return bytes;
}

DecodedModel counts(uint32_t vertices, uint32_t triangles, uint32_t parts, bool optionalBlock, uint32_t outcome = 0) {
    return {nullptr, nullptr, nullptr, vertices, triangles, nullptr, parts, {}, optionalBlock, 0, 0, 0, 0, 0, 0, outcome};
}

TEST(ResultStream, ErrorRecordsAndFailureHeadersAreByteExact) {
    const std::string usage = "uso interno: meshdrone <file>";
    EXPECT_EQ(capture([&](FILE* f) { return writeErrorRecordTo(f, usage.c_str()); }), header({0, 0, 0, 29, 2}, usage));
    for (uint32_t outcome : {kOutcomeNoResult, kOutcomeNoGeometry, kOutcomeDecodingError})
        EXPECT_EQ(capture([&](FILE* f) { return writeFailureHeaderTo(f, outcome); }), header({0, 0, 0, 0, outcome}));
    // Beyond the size limit only the counts are read (no array exists): the limit's error record.
    const std::string tooLarge = "il modello e' troppo grande per l'anteprima (oltre il limite di 256 MiB)";
    EXPECT_EQ(capture([&](FILE* f) { return writeDecodeResult(f, true, counts(20000000, 20000000, 0, false)); }),
              header({0, 0, 0, 72, 2}, tooLarge));
    EXPECT_EQ(capture([&](FILE* f) { return writeDecodeResult(f, false, counts(0, 0, 0, false, kOutcomeNoGeometry)); }),
              header({0, 0, 0, 0, 1}));
}

TEST(ResultStream, SuccessStreamLayout) {
    float positions[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    uint32_t triangles[3] = {0, 1, 2};
    uint8_t colors[9] = {255, 0, 0, 0, 255, 0, 0, 0, 255};
    PartRecord parts[2] = {{"root", 0, 0xFFFFFFFF, 0, 0, {}, {}, {1, 1, 0}, 1, {}},
                           {"leaf", 1, 0, 0, 1, {}, {}, {1, 1, 0}, 1, {}}};
    DecodedModel model = counts(3, 1, 0, false);
    model.positions = positions, model.triangles = triangles, model.colors = colors;
    model.minimal_version_for_read = model.authoring_version = 8137;
    model.number_of_file_structures = 1, model.color_count = 4, model.material_count = 5, model.style_count = 6;

    Bytes expected = header({3, 1, 0, 0, 0, 8137, 8137, 1, 4, 5, 6});
    expected[0] = 1;
    for (const auto& [data, size] : {std::pair<const void*, size_t>{positions, 36}, {triangles, 12}, {colors, 9}})
        expected.insert(expected.end(), static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size);
    // Without part records the stream ends right after the colours.
    EXPECT_EQ(capture([&](FILE* f) { return writeSuccessStreamTo(f, model); }), expected);

    model.part_records = parts, model.part_count = 2, model.optional_block_present = 1;
    std::memset(model.optional_block, 0xAB, 36);
    expected[1] = 1;
    std::memcpy(&expected[12], &model.part_count, 4);
    expected.insert(expected.end(), 36, 0xAB);  // the optional block comes before the parts
    expected.insert(expected.end(), reinterpret_cast<uint8_t*>(parts), reinterpret_cast<uint8_t*>(parts + 2));
    EXPECT_EQ(capture([&](FILE* f) { return writeSuccessStreamTo(f, model); }), expected);

    // A write that fails only when the buffer is flushed counts as failed.
    for (bool buffered : {true, false}) {
        FILE* deviceFull = std::fopen("/dev/full", "wb");
        if (deviceFull == nullptr) GTEST_SKIP() << "no /dev/full";
        if (!buffered) std::setvbuf(deviceFull, nullptr, _IONBF, 0);
        EXPECT_EQ(writeErrorRecordTo(deviceFull, "uso interno: meshdrone <file>"), 1);
        EXPECT_EQ(writeFailureHeaderTo(deviceFull, kOutcomeNoGeometry), 1);
        EXPECT_EQ(writeSuccessStreamTo(deviceFull, model), 1);
        std::fclose(deviceFull);
    }
}

TEST(ResultStream, PayloadLimitIsInclusiveAt256MiB) {
    // 2 x 188 + 22,369,590 x 12 = 268,435,456 exactly; 188 + 3 x 15 + 22,369,602 x 12 is one more.
    EXPECT_EQ(resultPayloadBytes(counts(0, 22369590, 2, false)), 268435456u);
    EXPECT_FALSE(exceedsPreviewLimit(counts(0, 22369590, 2, false)));
    EXPECT_EQ(resultPayloadBytes(counts(3, 22369602, 1, false)), 268435457u);
    EXPECT_TRUE(exceedsPreviewLimit(counts(3, 22369602, 1, false)));
    // The optional block counts its 36 bytes.
    EXPECT_FALSE(exceedsPreviewLimit(counts(0, 22369587, 2, true)));
    EXPECT_TRUE(exceedsPreviewLimit(counts(1, 22369587, 2, true)));
    // No count can wrap the sum.
    EXPECT_EQ(resultPayloadBytes(counts(0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, true)), 0xFFFFFFFFull * (15 + 12 + 188) + 36);
}

}  // namespace
