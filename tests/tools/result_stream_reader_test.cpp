#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "tools/inspect/result_stream_reader.h"

namespace {

using namespace result_reader;
using Bytes = std::vector<uint8_t>;

template <class T>
Bytes append(Bytes bytes, const T& value) {
    bytes.insert(bytes.end(), reinterpret_cast<const uint8_t*>(&value), reinterpret_cast<const uint8_t*>(&value + 1));
    return bytes;
}
Bytes header(uint32_t status, uint32_t messageLength) {
    return append(Bytes{}, ResultHeader{0, 0, {}, 0, 0, 0, messageLength, status, 0, 0, 0, 0, 0, 0});
}

// A valid success stream: 4 vertices, 2 triangles, and the part tree
// root -> (a -> empty, b), where a owns triangle 0 and b triangle 1.
constexpr size_t kPositions = 48, kTriangles = 96, kParts = 132;
size_t partAt(int index, size_t offset) { return kParts + 188 * size_t(index) + offset; }

Bytes validSuccess() {
    Bytes bytes = append(Bytes{}, ResultHeader{1, 0, {}, 4, 2, 4, 0, 0, 0, 0, 0, 0, 0, 0});
    bytes = append(bytes, std::array<float, 12>{0, 0, 0, 1, 0, 0, 0, 1, 0, 5, 5, 5});
    bytes = append(bytes, std::array<uint32_t, 6>{0, 1, 2, 1, 3, 2});
    bytes.insert(bytes.end(), 12, 200);  // colours
    bytes = append(bytes, PartRecord{"root", 0, kNoParent, 0, 0, {}, {0, 0, 0}, {5, 5, 5}, 1, {}});
    bytes = append(bytes, PartRecord{"a", 1, 0, 0, 1, {}, {0, 0, 0}, {1, 1, 0}, 1, {}});
    bytes = append(bytes, PartRecord{"empty", 2, 1, 0, 0, {}, {0, 0, 0}, {0, 0, 0}, 1, {}});
    return append(bytes, PartRecord{"b", 3, 0, 1, 1, {}, {0, 0, 0}, {5, 5, 5}, 1, {}});
}

Bytes withU32(Bytes b, size_t at, uint32_t value) { std::memcpy(&b.at(at + 3) - 3, &value, 4); return b; }
Bytes withText(Bytes b, size_t at, const std::string& text) { std::copy(text.begin(), text.end(), &b.at(at)); return b; }
Bytes withTail(Bytes b, const std::string& tail) { b.insert(b.end(), tail.begin(), tail.end()); return b; }
Bytes cut(Bytes b, size_t size) { b.resize(size); return b; }

// Error records and failure headers are read in the worker's process tests.
TEST(ResultStreamReader, ReadsSuccessStreams) {
    Bytes bytes = validSuccess();
    const ResultStream s = readResultStream(bytes.data(), bytes.size());
    EXPECT_EQ(s.triangles[4], 3u);
    EXPECT_EQ(partName(s.parts[3]), "b");
    EXPECT_EQ(s.parts[3].box_max[2], 5.0f);
    // The optional block sits between the colours and the part records.
    bytes[1] = 1;
    bytes.insert(bytes.begin() + kParts, 36, 7);
    EXPECT_EQ(readResultStream(bytes.data(), bytes.size()).optional_block[35], 7);
}

TEST(ResultStreamReader, RejectsBrokenStreams) {
    const std::string nul(1, '\0');
    const std::pair<Bytes, std::string> cases[] = {
        {cut(validSuccess(), validSuccess().size() - 1), "must be"},
        {withTail(validSuccess(), nul), "must be"},
        {cut(validSuccess(), 47), "inside the header"},
        {withText(validSuccess(), 0, "\x02"), "success flag"},
        {withText(validSuccess(), 3, "\x01"), "bytes 2 and 3"},
        {withText(validSuccess(), 1, "\x01"), "must be"},  // flagged, but no optional block
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
        {withU32(validSuccess(), kPositions + 4, 0x40000000), "outside its box"},    // vertex 0 at y = 2
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

}  // namespace
