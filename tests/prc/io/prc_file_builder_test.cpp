#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "prc/io/inflate_section.h"
#include "prc/io/prc_header.h"
#include "tests/prc/io/io_test_util.h"
#include "tests/support/prc_file_builder.h"

namespace prc {
namespace {

using test::expectError;
using test::PRCBitWriter;
using test::PRCFileBuilder;
using test::PRCFileLayout;
using test::PRCSection;

std::vector<uint8_t> inflateRange(const std::vector<uint8_t>& file, uint32_t begin, uint32_t end) {
    return inflateSection(file.data() + begin, end - begin);
}

// What real files look like: six offsets, a head at offsets[0], zlib sections
// at offsets[1..5], the last running up to the next file structure, and the
// model file section closing the file. Returns each section's inflated bytes.
std::vector<std::vector<std::vector<uint8_t>>> expectRealLayout(const std::vector<uint8_t>& file) {
    std::vector<std::vector<std::vector<uint8_t>>> sections;
    const PRCHeader h = readPRCHeader(file.data(), file.size());
    for (size_t i = 0; i < h.file_structures.size(); ++i) {
        const std::vector<uint32_t>& o = h.file_structures[i].offsets;
        EXPECT_EQ(o.size(), 6u);
        EXPECT_NE(readFileStructureHeader(file.data(), file.size(), o[0]), kFileStructureHeaderNotFound);
        const uint32_t end = i + 1 < h.file_structures.size() ? h.file_structures[i + 1].offsets[0] : h.model_file_start;
        sections.emplace_back();
        for (size_t k = 1; k < o.size(); ++k) sections.back().push_back(inflateRange(file, o[k], k + 1 < o.size() ? o[k + 1] : end));
    }
    EXPECT_EQ(h.model_file_end, file.size());
    EXPECT_NO_THROW(inflateRange(file, h.model_file_start, h.model_file_end));
    return sections;
}

TEST(PRCFileBuilder, RealFileLayout) {
    std::ifstream in(MESHDRONE_TEST_DATA "/1a8f391e69e7.prc", std::ios::binary);
    const std::vector<uint8_t> file{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    ASSERT_EQ(file.size(), 516u);
    EXPECT_EQ(expectRealLayout(file).size(), 1u);
}

TEST(PRCFileBuilder, BuildsWhatTheReadersExpect) {
    auto content = [](uint32_t seed, int n) {
        PRCBitWriter w;
        for (int i = 0; i < n; ++i) w.writeUnsignedInteger(seed * 1000 + uint32_t(i));
        return w;
    };
    PRCFileBuilder b;
    b.authoring_version = 15083;
    auto& first = b.addFileStructure();
    first.identifier = {0xA, 0xB, 0xC, 0xD};
    first.authoring_version = 8138;
    first.globals(PRCSection::of(content(1, 10))).tree(PRCSection::of(content(2, 200)));
    first.tessellation(PRCSection::of(content(3, 3000)));
    b.addFileStructure().tree(PRCSection::of(content(4, 5))).authoring_version = 0x12345678;
    b.model_file = PRCSection::of(content(5, 7));
    PRCFileLayout layout;
    const std::vector<uint8_t> file = b.build(&layout);

    const auto sections = expectRealLayout(file);
    ASSERT_EQ(sections.size(), 2u);
    EXPECT_EQ(sections[0][0], content(1, 10).bytes());
    EXPECT_EQ(sections[0][1], content(2, 200).bytes());
    EXPECT_EQ(sections[0][2], content(3, 3000).bytes());
    EXPECT_TRUE(sections[0][3].empty() && sections[0][4].empty() && sections[1][0].empty());
    EXPECT_EQ(sections[1][1], content(4, 5).bytes());
    const PRCHeader h = readPRCHeader(file.data(), file.size());
    EXPECT_EQ(h.authoring_version, 15083u);
    EXPECT_EQ(h.file_structures[0].identifier, (FileStructureId{0xA, 0xB, 0xC, 0xD}));
    EXPECT_EQ(h.file_structures[1].offsets, layout.offsets[1]);
    EXPECT_EQ(readFileStructureHeader(file.data(), file.size(), layout.offsets[0][0]), uint64_t(8138) << 32 | 8137);
    EXPECT_EQ(readFileStructureHeader(file.data(), file.size(), layout.offsets[1][0]), uint64_t(0x12345678) << 32 | 8137);
    EXPECT_EQ(inflateRange(file, h.model_file_start, h.model_file_end), content(5, 7).bytes());
}

TEST(PRCFileBuilder, BrokenFiles) {
    PRCFileBuilder b;
    auto& fs = b.addFileStructure();
    fs.head = false;  // offsets[0] is then where section 1 starts
    fs.tree(PRCSection::raw({1, 2, 3, 4}));
    fs.edit_offsets = [](std::vector<uint32_t>& o) {
        o.resize(4);  // fewer offsets, the last beyond the file
        o[3] = 0xFFFFFF00;
    };
    b.model_file_end = 0xFFFFFFFF;
    b.trailing = {0xEE, 0xEE};
    PRCFileLayout layout;
    const auto file = b.build(&layout);
    const PRCHeader h = readPRCHeader(file.data(), file.size());
    const auto& o = h.file_structures[0].offsets;
    EXPECT_EQ(o, (std::vector<uint32_t>{o[0], o[0], o[2], 0xFFFFFF00}));
    EXPECT_EQ(readFileStructureHeader(file.data(), file.size(), o[0]), kFileStructureHeaderNotFound);
    EXPECT_TRUE(inflateRange(file, o[1], o[2]).empty());
    expectError([&] { inflateRange(file, o[2], o[2] + 4); }, "inflate failed: incorrect header check");
    EXPECT_EQ(h.model_file_start, layout.model_file_start);
    EXPECT_EQ(h.model_file_end, 0xFFFFFFFFu);
    EXPECT_EQ(file.size(), layout.model_file_end + 2);
}

}  // namespace
}  // namespace prc
