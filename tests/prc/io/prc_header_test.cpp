#include <gtest/gtest.h>

#include <cstring>

#include "prc/io/prc_header.h"
#include "tests/prc/io/io_test_util.h"

namespace prc {
namespace {

using test::expectError;

const std::string kPastEnd = "RawByteReader: read past end (u32)";

struct Bytes {
    std::vector<uint8_t> b;
    Bytes& text(const char* s) {
        b.insert(b.end(), s, s + std::strlen(s));
        return *this;
    }
    Bytes& u32(uint32_t v) {
        for (int i = 0; i < 4; ++i) b.push_back(uint8_t(v >> (8 * i)));
        return *this;
    }
    Bytes& id(uint32_t first) { return u32(first).u32(first + 1).u32(first + 2).u32(first + 3); }
    // Everything up to and including number_of_file_structures.
    Bytes& start(uint32_t structures) { return text("PRC").u32(8137).u32(8138).id(10).id(20).u32(structures); }
    PRCHeader parse() const { return readPRCHeader(b.data(), b.size()); }
};

TEST(PRCHeader, ReadsEveryField) {
    Bytes f;
    f.start(2).id(100).u32(7).u32(3).u32(111).u32(222).u32(333);  // three offsets
    f.id(200).u32(0).u32(0).u32(444).u32(555).u32(0xDEADBEEF);     // none; then the model file range
    const PRCHeader h = f.parse();
    EXPECT_EQ(h.minimal_version_for_read, 8137u);
    EXPECT_EQ(h.authoring_version, 8138u);
    EXPECT_EQ(h.first_file_identifier, (FileStructureId{10, 11, 12, 13}));
    EXPECT_EQ(h.second_file_identifier, (FileStructureId{20, 21, 22, 23}));
    ASSERT_EQ(h.file_structures.size(), 2u);
    EXPECT_EQ(h.file_structures[0].identifier, (FileStructureId{100, 101, 102, 103}));
    EXPECT_EQ(h.file_structures[0].reserved, 7u);
    EXPECT_EQ(h.file_structures[0].offsets, (std::vector<uint32_t>{111, 222, 333}));
    EXPECT_TRUE(h.file_structures[1].offsets.empty());
    EXPECT_EQ(h.model_file_start, 444u);
    EXPECT_EQ(h.model_file_end, 555u);
    Bytes none;
    EXPECT_TRUE(none.start(0).u32(77).u32(88).parse().file_structures.empty());
}

TEST(PRCHeader, MagicAndTruncation) {
    for (const char* text : {"", "PR", "PRX", "prc"}) {
        Bytes f;
        expectError([&] { f.text(text).parse(); }, "RawByteReader: expected magic \"PRC\"");
    }
    // Cut inside or just before the model file offsets, and inside the identifiers.
    Bytes f;
    f.start(1).id(1).u32(0).u32(2).u32(50).u32(60).u32(70).u32(80);
    for (size_t cut : {size_t(4), size_t(8), size_t(45)}) {
        Bytes shorter{std::vector<uint8_t>(f.b.begin(), f.b.end() - ptrdiff_t(cut))};
        expectError([&] { shorter.parse(); }, kPastEnd);
    }
}

TEST(PRCHeader, CountBounds) {
    // 32 bytes after the count hold one offset-less descriptor (24 bytes) and
    // the model offsets: a count of 1 fits, 2 is refused.
    const std::string tooMany = "PRC header: number_of_file_structures larger than the data";
    Bytes one, two, all;
    EXPECT_EQ(one.start(1).id(1).u32(0).u32(0).u32(5).u32(6).parse().file_structures.size(), 1u);
    expectError([&] { two.start(2).id(1).u32(0).u32(0).u32(5).u32(6).parse(); }, tooMany);
    expectError([&] { all.start(0xFFFFFFFF).u32(5).u32(6).parse(); }, tooMany);
    // Three offsets and the model offsets after number_of_offsets: 5 passes the
    // check (and runs out at the model offsets), 6 is refused before any offset is read.
    for (uint32_t count : {3u, 5u, 6u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(count);
        Bytes f;
        f.start(1).id(1).u32(0).u32(count).u32(10).u32(20).u32(30).u32(5).u32(6);
        if (count == 3) {
            EXPECT_EQ(f.parse().file_structures[0].offsets.size(), 3u);
        } else {
            expectError([&] { f.parse(); }, count == 5 ? kPastEnd : "PRC header: number_of_offsets larger than the data");
        }
    }
}

TEST(PRCHeader, FileStructureHead) {
    Bytes f;
    f.text("xx").text("PRC").u32(7094).u32(15083).text("PRZ").u32(1).u32(2);
    const auto& b = f.b;
    EXPECT_EQ(readFileStructureHeader(b.data(), b.size(), 2), uint64_t(15083) << 32 | 7094);
    EXPECT_EQ(readFileStructureHeader(b.data(), 13, 2), uint64_t(15083) << 32 | 7094);  // exactly 11 bytes
    EXPECT_EQ(readFileStructureHeader(b.data(), 12, 2), kFileStructureHeaderNotFound);  // 10 bytes
    for (uint32_t offset : {0u, 13u, uint32_t(b.size()), 0xFFFFFFFFu})
        EXPECT_EQ(readFileStructureHeader(b.data(), b.size(), offset), kFileStructureHeaderNotFound) << offset;
}

}  // namespace
}  // namespace prc
