#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "prc/entities/file_structure.h"
#include "tests/support/prc_file_builder.h"
#include "tests/support/prc_tess_writer.h"
#include "tests/support/prc_tree_writer.h"

namespace prc {
namespace {

using namespace prc::test;

PRCSection treeSection(uint32_t version, const std::vector<PartDefinitionFields>& parts,
                       const std::vector<ProductOccurrenceFields>& occs) {
    PRCBitWriter w;
    writeTreeSection(w, version, parts, occs);
    return PRCSection::of(w);
}

PRCSection squaresSection(uint32_t version, size_t count) {
    std::vector<PRCBitWriter> tessellations(count);
    for (size_t i = 0; i < count; ++i) writePRC3DTess(tessellations[i], version, squareTess(double(i)));
    return PRCSection{tessellationSection(tessellations), true};
}

// A file structure with a tree of one named occurrence and two squares.
PRCFileBuilder oneFileStructure(uint32_t version = 8137) {
    PRCFileBuilder b;
    PRCFileStructurePlan& fs = b.addFileStructure();
    fs.minimal_version_for_read = 7094;
    fs.authoring_version = version;
    ProductOccurrenceFields o;
    o.name = "only";
    fs.tree(treeSection(version, {PartDefinitionFields()}, {o}));
    fs.tessellation(squaresSection(version, 2));
    return b;
}

std::vector<PRCFileStructure> readAll(const std::vector<uint8_t>& file) {
    const PRCHeader header = readPRCHeader(file.data(), file.size());
    std::vector<PRCFileStructure> structures(header.file_structures.size());
    for (uint32_t i = 0; i < structures.size(); ++i) readFileStructure(header, structures, file.data(), file.size(), i);
    return structures;
}

TEST(FileStructureSections, ReadsVersionsTreeAndTessellations) {
    const std::vector<PRCFileStructure> fs = readAll(oneFileStructure().build());
    ASSERT_EQ(fs.size(), 1u);
    EXPECT_EQ(fs[0].minimal_version_for_read, 7094u);
    EXPECT_EQ(fs[0].authoring_version, 8137u);
    EXPECT_TRUE(fs[0].tree_loaded);
    ASSERT_EQ(fs[0].product_occurrences.size(), 1u);
    EXPECT_EQ(fs[0].product_occurrences[0].name, "only");
    EXPECT_EQ(fs[0].part_definitions.size(), 1u);
    EXPECT_EQ(fs[0].tessellations.size(), 2u);
    EXPECT_EQ(fs[0].tessellation_refs.size(), 2u);
    EXPECT_TRUE(fs[0].piece_cache.empty());
}

TEST(FileStructureSections, FewerThanFiveOffsetsLeaveTheRecordEmpty) {
    PRCFileBuilder b = oneFileStructure();
    b.file_structures[0].edit_offsets = [](std::vector<uint32_t>& offsets) { offsets.resize(4); };
    const std::vector<PRCFileStructure> fs = readAll(b.build());
    EXPECT_EQ(fs[0].authoring_version, 0u);
    EXPECT_FALSE(fs[0].tree_loaded);
    EXPECT_TRUE(fs[0].tessellations.empty());
}

TEST(FileStructureSections, EachSectionIsLostAlone) {
    struct Case {
        const char* what;
        std::function<void(PRCFileBuilder&)> edit;
        bool tree, tessellations;
    };
    const Case cases[] = {
        {"empty globals range", [](PRCFileBuilder& b) {
             b.file_structures[0].edit_offsets = [](std::vector<uint32_t>& o) { o[1] = o[2]; };
         }, true, true},
        {"tree that is not zlib", [](PRCFileBuilder& b) { b.file_structures[0].tree(PRCSection::raw({1, 2, 3})); },
         false, true},
        {"tree base with a name", [](PRCFileBuilder& b) {
             PRCBitWriter w;
             w.writeUnsignedInteger(304);
             const std::string name = "x";
             w.writeContentBase(304, &name);
             b.file_structures[0].tree(PRCSection::of(w));
         }, false, true},
        {"tree range ending beyond the file", [](PRCFileBuilder& b) {
             b.file_structures[0].edit_offsets = [](std::vector<uint32_t>& o) { o[3] = 0x7FFFFFFF; };
         }, false, false},
        {"tree range reversed", [](PRCFileBuilder& b) {
             b.file_structures[0].edit_offsets = [](std::vector<uint32_t>& o) { std::swap(o[2], o[3]); };
         }, false, false},
        {"tessellation range beyond the file", [](PRCFileBuilder& b) {
             b.file_structures[0].edit_offsets = [](std::vector<uint32_t>& o) { o[4] = 0xFFFFFFFF; };
         }, true, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        PRCFileBuilder b = oneFileStructure();
        c.edit(b);
        const std::vector<PRCFileStructure> fs = readAll(b.build());
        EXPECT_EQ(fs[0].tree_loaded, c.tree);
        EXPECT_EQ(fs[0].product_occurrences.size(), c.tree ? 1u : 0u);
        EXPECT_EQ(fs[0].tessellations.size(), c.tessellations ? 2u : 0u);
        EXPECT_EQ(fs[0].authoring_version, 8137u);
    }
}

TEST(FileStructureSections, OtherFileStructuresAreUnaffected) {
    PRCFileBuilder b = oneFileStructure();
    b.file_structures.push_back(b.file_structures[0]);
    b.file_structures[0].tree(PRCSection::raw({0}));
    b.file_structures[0].tessellation(PRCSection::raw({0}));
    const std::vector<PRCFileStructure> fs = readAll(b.build());
    EXPECT_FALSE(fs[0].tree_loaded);
    EXPECT_TRUE(fs[1].tree_loaded);
    EXPECT_EQ(fs[1].tessellations.size(), 2u);
}

TEST(FileStructureSections, MissingHeadReadsSectionsAsTheNewestVersion) {
    // Written as the newest version expects (a count after every graphics
    // block), with no head to say so.
    PRCFileBuilder b = oneFileStructure(0xFFFFFFFF);
    b.file_structures[0].head = false;
    const std::vector<PRCFileStructure> fs = readAll(b.build());
    EXPECT_EQ(fs[0].minimal_version_for_read, 0xFFFFFFFFu);
    EXPECT_EQ(fs[0].authoring_version, 0xFFFFFFFFu);
    EXPECT_TRUE(fs[0].tree_loaded);

    // The same tree read with the head's older version does not fit.
    PRCFileBuilder older = oneFileStructure(0xFFFFFFFF);
    older.file_structures[0].authoring_version = 8137;
    EXPECT_FALSE(readAll(older.build())[0].tree_loaded);
}

}  // namespace
}  // namespace prc
