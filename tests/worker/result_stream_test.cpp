// The worker's writer of the result stream and the host's reader of it: what
// the first writes the second reads, the writer's limit and failures, and
// every rule the reader holds a stream to, broken once. (Error records and
// failure headers of real runs are read in the worker's process tests.)

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "tools/inspect/result_stream_reader.h"
#include "worker/result_stream.h"
#include "worker/worker_entry.h"

namespace {

using namespace result_reader;
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

DecodedModel counts(uint32_t vertices, uint32_t triangles, uint32_t parts, bool optionalBlock, uint32_t outcome = 0) {
    return {nullptr, nullptr, nullptr, vertices, triangles, nullptr, parts, {}, optionalBlock, 0, 0, 0, 0, 0, 0, outcome};
}

// 4 vertices, 2 triangles, the optional block and the part tree
// root -> (a -> empty, b), where a owns triangle 0 and b triangle 1.
constexpr size_t kTriangles = 96, kParts = 168;
size_t partAt(int index, size_t offset) { return kParts + 188 * size_t(index) + offset; }

Bytes validSuccess() {
    static float positions[12] = {0, 0, 0, 1, 0, 0, 0, 1, 0, 5, 5, 5};
    static uint32_t triangles[6] = {0, 1, 2, 1, 3, 2};
    static uint8_t colors[12] = {200, 200, 200, 200, 200, 200, 200, 200, 200, 200, 200, 200};
    static PartRecord parts[4] = {{"root", 0, kNoParent, 0, 0, {}, {0, 0, 0}, {5, 5, 5}, 1, {}},
                                  {"a", 1, 0, 0, 1, {}, {0, 0, 0}, {1, 1, 0}, 1, {}},
                                  {"empty", 2, 1, 0, 0, {}, {0, 0, 0}, {0, 0, 0}, 1, {}},
                                  {"b", 3, 0, 1, 1, {}, {0, 0, 0}, {5, 5, 5}, 1, {}}};
    DecodedModel model = counts(4, 2, 4, true);
    model.positions = positions, model.triangles = triangles, model.colors = colors, model.part_records = parts;
    model.style_count = 6;
    std::memset(model.optional_block, 0xAB, 36);
    return capture([&](FILE* f) { return writeSuccessStreamTo(f, model); });
}

Bytes withU32(Bytes b, size_t at, uint32_t value) { std::memcpy(&b.at(at + 3) - 3, &value, 4); return b; }
Bytes withText(Bytes b, size_t at, const std::string& text) { std::copy(text.begin(), text.end(), &b.at(at)); return b; }
Bytes withTail(Bytes b, const std::string& tail) { b.insert(b.end(), tail.begin(), tail.end()); return b; }
Bytes cut(Bytes b, size_t size) { b.resize(size); return b; }
Bytes header(uint32_t status, uint32_t messageLength) {
    Bytes b(48, 0);
    std::memcpy(&b[16], &messageLength, 4), std::memcpy(&b[20], &status, 4);
    return b;
}

TEST(ResultStream, WrittenSuccessStreamReadsBack) {
    const Bytes bytes = validSuccess();
    ASSERT_EQ(bytes.size(), partAt(4, 0));
    const ResultStream s = readResultStream(bytes.data(), bytes.size());
    EXPECT_EQ(std::tuple(s.header.style_count, s.triangles[4], partName(s.parts[3]), s.parts[3].box_max[2]),
              std::tuple(6u, 3u, std::string("b"), 5.0f));
    // The optional block sits between the colours and the part records.
    EXPECT_TRUE(s.has_optional_block && s.optional_block[0] == 0xAB && bytes[kParts - 1] == 0xAB);
}

TEST(ResultStream, RejectsBrokenStreams) {
    const std::string nul(1, '\0');
    const std::pair<Bytes, std::string> cases[] = {
        {cut(validSuccess(), validSuccess().size() - 1), "must be"},
        {withTail(validSuccess(), nul), "must be"},
        {withText(validSuccess(), 1, nul), "must be"},  // no optional block announced
        {cut(validSuccess(), 47), "inside the header"},
        {withText(validSuccess(), 0, "\x02"), "success flag"},
        {withText(validSuccess(), 3, "\x01"), "bytes 2 and 3"},
        {withU32(validSuccess(), 20, 2), "status"},
        {withU32(validSuccess(), 16, 1), "message length"},
        {withU32(validSuccess(), kTriangles + 8, 4), "refers to vertex 4"},
        {withU32(validSuccess(), partAt(2, 128), 1), "node index"},
        {withU32(validSuccess(), partAt(1, 132), 1), "does not come before"},
        {withU32(validSuccess(), partAt(3, 136), 2), "beyond the 2 triangles"},
        {withU32(validSuccess(), partAt(3, 136), 0), "overlap"},
        {withText(validSuccess(), partAt(0, 0), std::string(128, 'x')), "no NUL"},
        {withText(validSuccess(), partAt(0, 100), "x"), "after the name's NUL"},
        {withText(validSuccess(), partAt(0, 150), "\x01"), "reserved"},
        {withText(validSuccess(), partAt(0, 184), nul), "flag byte"},
        {withText(validSuccess(), partAt(0, 186), "\x01"), "after the flag"},
        {withU32(validSuccess(), 48 + 4, 0x40000000), "outside its box"},           // vertex 0 at y = 2
        {withU32(validSuccess(), partAt(0, 172), 0x3F800000), "box of its parent"},  // root max x = 1
        {withTail(header(2, 4), "abc"), "must be 52 bytes"},
        {withTail(header(2, 4), "abc" + nul), "printable"},
        {withTail(header(1, 1), "a"), "only an error record"},
        {header(3, 0), "unknown status"},
        {withText(header(1, 0), 8, "\x01"), "must be zero"},
        {withText(header(1, 0), 28, "\x01"), "24 to 47"},
        {withText(header(1, 0), 1, "\x01"), "optional-block flag"},
        {withTail(header(0, 0), nul), "must be 48"},
    };
    for (const auto& [bytes, expected] : cases) {
        std::string reason = "accepted";
        try {
            readResultStream(bytes.data(), bytes.size());
        } catch (const InvalidResultStream& e) {
            reason = e.what();
        }
        EXPECT_NE(reason.find(expected), std::string::npos) << expected << ": " << reason;
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
    // Beyond the limit only the counts are read (no array exists): the limit's error record.
    const Bytes bytes = capture([](FILE* f) { return writeDecodeResult(f, true, counts(20000000, 20000000, 0, false)); });
    EXPECT_EQ(readResultStream(bytes.data(), bytes.size()).message,
              "il modello e' troppo grande per l'anteprima (oltre il limite di 256 MiB)");
}

// A write that fails only when the buffer is flushed counts as failed.
TEST(ResultStream, AFailedFlushIsAFailedWrite) {
    DecodedModel model = counts(0, 0, 0, false);
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

}  // namespace
