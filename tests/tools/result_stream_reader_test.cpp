#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "tools/inspect/result_stream_reader.h"
#include "tools/inspect/result_summary.h"

namespace {

using namespace result_reader;
using Bytes = std::vector<uint8_t>;

// A valid success stream: 4 vertices, 2 triangles, and the part tree
// root -> (a -> empty, b), where a owns triangle 0 and b triangle 1.
constexpr size_t kPositions = 48, kTriangles = 96, kParts = 132;

PartRecord part(const char* name, uint32_t index, uint32_t parent, uint32_t first, uint32_t count,
                std::array<float, 6> box) {
    PartRecord p{};
    std::strncpy(p.name, name, 127);
    p.node_index = index;
    p.parent_index = parent;
    p.first_triangle = first;
    p.triangle_count = count;
    std::memcpy(p.box_min, box.data(), 12);
    std::memcpy(p.box_max, box.data() + 3, 12);
    p.flag = 1;
    return p;
}

template <class T>
void append(Bytes& bytes, const T& value) {
    const size_t at = bytes.size();
    bytes.resize(at + sizeof value);
    std::memcpy(&bytes[at], &value, sizeof value);
}

Bytes validSuccess() {
    ResultHeader h{};
    h.success = 1;
    h.vertex_count = 4;
    h.triangle_count = 2;
    h.part_count = 4;
    h.authoring_version = 8137;
    Bytes bytes;
    append(bytes, h);
    const float positions[12] = {0, 0, 0, 1, 0, 0, 0, 1, 0, 5, 5, 5};
    const uint32_t triangles[6] = {0, 1, 2, 1, 3, 2};
    append(bytes, positions);
    append(bytes, triangles);
    bytes.insert(bytes.end(), 12, 200);  // colours
    append(bytes, part("root", 0, kNoParent, 0, 0, {0, 0, 0, 5, 5, 5}));
    append(bytes, part("a", 1, 0, 0, 1, {0, 0, 0, 1, 1, 0}));
    append(bytes, part("empty", 2, 1, 0, 0, {0, 0, 0, 0, 0, 0}));
    append(bytes, part("b", 3, 0, 1, 1, {0, 0, 0, 5, 5, 5}));
    return bytes;
}

Bytes headerOnly(uint32_t status, uint32_t messageLength) {
    ResultHeader h{};
    h.status = status;
    h.message_length = messageLength;
    Bytes bytes;
    append(bytes, h);
    return bytes;
}

std::string rejection(const Bytes& bytes) {
    try {
        readResultStream(bytes.data(), bytes.size());
    } catch (const InvalidResultStream& e) {
        return e.what();
    }
    return "accepted";
}

void putU32(Bytes& bytes, size_t offset, uint32_t value) { std::memcpy(&bytes[offset], &value, 4); }
size_t partAt(int index, size_t offset) { return kParts + 188 * size_t(index) + offset; }

TEST(ResultStreamReader, ReadsTheThreeForms) {
    const Bytes success = validSuccess();
    const ResultStream s = readResultStream(success.data(), success.size());
    EXPECT_EQ(s.kind, ResultKind::Success);
    EXPECT_EQ(s.header.authoring_version, 8137u);
    EXPECT_EQ(s.triangles[4], 3u);
    ASSERT_EQ(s.parts.size(), 4u);
    EXPECT_EQ(partName(s.parts[3]), "b");
    EXPECT_EQ(s.parts[3].box_max[2], 5.0f);

    Bytes error = headerOnly(2, 3);
    error.insert(error.end(), {'a', 'b', 'c'});
    EXPECT_EQ(readResultStream(error.data(), error.size()).message, "abc");
    const Bytes failure = headerOnly(1, 0);
    EXPECT_EQ(readResultStream(failure.data(), failure.size()).kind, ResultKind::FailureHeader);

    // The optional block sits between the colours and the part records.
    Bytes flagged = validSuccess();
    flagged[1] = 1;
    EXPECT_NE(rejection(flagged), "accepted");
    flagged.insert(flagged.begin() + kParts, 36, 7);
    EXPECT_EQ(readResultStream(flagged.data(), flagged.size()).optional_block[35], 7);
}

TEST(ResultStreamReader, RejectsBrokenSuccessStreams) {
    const std::vector<std::pair<std::function<void(Bytes&)>, std::string>> cases = {
        {[](Bytes& b) { b.pop_back(); }, "must be"},
        {[](Bytes& b) { b.push_back(0); }, "must be"},
        {[](Bytes& b) { b.resize(47); }, "inside the header"},
        {[](Bytes& b) { b[0] = 2; }, "success flag"},
        {[](Bytes& b) { b[3] = 1; }, "bytes 2 and 3"},
        {[](Bytes& b) { putU32(b, 20, 2); }, "status"},
        {[](Bytes& b) { putU32(b, 16, 1); }, "message length"},
        {[](Bytes& b) { putU32(b, kTriangles + 8, 4); }, "refers to vertex 4"},
        {[](Bytes& b) { putU32(b, partAt(2, 128), 1); }, "node index"},
        {[](Bytes& b) { putU32(b, partAt(1, 132), 1); }, "does not come before"},
        {[](Bytes& b) { putU32(b, partAt(3, 136), 2); }, "beyond the 2 triangles"},
        {[](Bytes& b) { putU32(b, partAt(3, 136), 0); }, "overlap"},
        {[](Bytes& b) { std::memset(&b[partAt(0, 0)], 'x', 128); }, "no NUL"},
        {[](Bytes& b) { b[partAt(0, 100)] = 'x'; }, "after the name's NUL"},
        {[](Bytes& b) { b[partAt(0, 150)] = 1; }, "reserved"},
        {[](Bytes& b) { b[partAt(0, 184)] = 0; }, "flag byte"},
        {[](Bytes& b) { b[partAt(0, 186)] = 1; }, "after the flag"},
        {[](Bytes& b) { putU32(b, kPositions + 4, 0x40000000); }, "outside its box"},  // vertex 0 at y = 2
        {[](Bytes& b) { putU32(b, partAt(0, 172), 0x3F800000); }, "box of its parent"},  // root max x = 1
    };
    for (const auto& [mutate, expected] : cases) {
        Bytes bytes = validSuccess();
        mutate(bytes);
        EXPECT_NE(rejection(bytes).find(expected), std::string::npos) << expected << ": " << rejection(bytes);
    }
}

TEST(ResultStreamReader, RejectsBrokenRecordsAndHeaders) {
    const auto withBytes = [](Bytes b, std::initializer_list<uint8_t> tail) {
        b.insert(b.end(), tail);
        return b;
    };
    const auto withByte = [](Bytes b, size_t at, uint8_t value) {
        b[at] = value;
        return b;
    };
    const std::vector<std::pair<Bytes, std::string>> cases = {
        {withBytes(headerOnly(2, 4), {'a', 'b', 'c'}), "must be 52 bytes"},
        {withBytes(headerOnly(2, 4), {'a', 'b', 'c', 0}), "printable"},
        {withBytes(headerOnly(1, 1), {'a'}), "only an error record"},
        {headerOnly(3, 0), "unknown status"},
        {withByte(headerOnly(1, 0), 8, 1), "must be zero"},
        {withByte(headerOnly(1, 0), 28, 1), "24 to 47"},
        {withByte(headerOnly(1, 0), 1, 1), "optional-block flag"},
        {withBytes(headerOnly(0, 0), {0}), "must be 48"},
    };
    for (const auto& [bytes, expected] : cases) {
        EXPECT_NE(rejection(bytes).find(expected), std::string::npos) << expected << ": " << rejection(bytes);
    }
}

TEST(ResultSummary, JsonEscapesNamesAndDropsNonFiniteNumbers) {
    ResultStream s;
    s.kind = ResultKind::Success;
    s.positions = {1, std::nanf(""), 0, -2, 3, 4};
    s.parts.push_back(part("q\"b\\c\x01 \xC3\xA9\xFF", 0, kNoParent, 0, 0, {0, 0, 0, INFINITY, 1, 1}));
    const std::string json = describeJson(s);
    EXPECT_NE(json.find("\"name\":\"q\\\"b\\\\c\\u0001 \xC3\xA9\\ufffd\""), std::string::npos) << json;
    EXPECT_NE(json.find("\"box_max\":[null,1,1]"), std::string::npos) << json;
    EXPECT_NE(json.find("\"bounding_box\":{\"min\":[-2,3,4],\"max\":[-2,3,4]}"), std::string::npos) << json;
    EXPECT_EQ(describeInvalidJson("bad \"x\""), "{\"valid\":false,\"error\":\"bad \\\"x\\\"\"}\n");
}

}  // namespace
