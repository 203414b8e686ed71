#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "prc/entities/file_structure.h"
#include "tests/support/prc_file_builder.h"
#include "tests/support/prc_tess_writer.h"
#include "tests/support/prc_tree_writer.h"

namespace prc {
namespace {

using namespace prc::test;

TEST(FileStructureTree, ReadsEveryKeptFieldAndEndsExactly) {
    for (uint32_t version : {8137u, 8138u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(version);
        PartDefinitionFields part{"p", 3, {{237, 2, 1, 5, {}}, {0, 0, 0, 0, {}}, {239, 0, 0, 0, {{237, 1, 0, 0, {}}}}}, 13};
        // Sons beyond the list are kept as stored; a reused name is the last one read.
        const ProductOccurrenceFields root{.name = "root", .sons = {1, 57}, .behaviour = 0x81, .information_flags = 0x09,
                                           .location = translationMatrix(1.5, -2, 1e6)};
        const ProductOccurrenceFields proto{.name = std::nullopt, .part_plus_one = 1, .prototype_plus_one = 3,
                                            .prototype_file_structure = FileStructureId{0xDEADBEEF, 1, 2, 0xFFFFFFFF},
                                            .external_plus_one = 4, .external_file_structure = FileStructureId{5, 6, 7, 8},
                                            .user_data_bits = 40};
        PRCBitWriter w;
        writeTreeSection(w, version, {part, PartDefinitionFields()}, {root, proto});
        PRCBitReader r(w.bytes().data(), w.bytes().size(), version);
        const PRCFileStructureTree tree = readFileStructureTree(r);
        EXPECT_EQ(r.bitIndex(), w.bitCount());
        ASSERT_EQ(tree.part_definitions.size(), 2u);
        const PRCPartDefinition& p = tree.part_definitions[0];
        EXPECT_EQ(std::pair(p.line_style_index, tree.part_definitions[1].line_style_index), std::pair(2u, 0xFFFFFFFFu));
        ASSERT_EQ(p.representation_items.size(), 3u);
        const PRCRepresentationItem& item = p.representation_items[0];
        EXPECT_EQ(std::tuple(item.index_tessellation, item.index_local_coordinate_system, item.line_style_index),
                  std::tuple(1, 0, 4u));
        EXPECT_EQ(p.representation_items[1].type, 0u);  // empty items are kept
        ASSERT_EQ(p.representation_items[2].items.size(), 1u);
        ASSERT_EQ(tree.product_occurrences.size(), 2u);
        const PRCProductOccurrence& o0 = tree.product_occurrences[0];
        const PRCProductOccurrence& o1 = tree.product_occurrences[1];
        EXPECT_EQ(std::tuple(o0.index_part, o0.index_prototype, o0.product_information_flags, o0.product_behaviour),
                  std::tuple(-1, -1, 0x09, 0x81));
        EXPECT_EQ(o0.son_product_occurrences, (std::vector<uint32_t>{1, 57}));
        EXPECT_EQ(o0.location, translationMatrix(1.5, -2, 1e6));
        EXPECT_EQ(std::tuple(o1.name, o1.index_part, o1.index_prototype, o1.prototype_in_same_file_structure),
                  std::tuple("root", 0, 2, false));
        EXPECT_EQ(o1.prototype_file_structure, (FileStructureId{0xDEADBEEF, 1, 2, 0xFFFFFFFF}));
        EXPECT_FALSE(o1.has_location);
    }
}

TEST(FileStructureTree, Failures) {
    auto failure = [](const std::function<void(PRCBitWriter&)>& write, uint32_t type = 304) -> std::string {
        PRCBitWriter w;
        w.writeUnsignedInteger(type);
        write(w);
        PRCBitReader r(w.bytes().data(), w.bytes().size(), 8137);
        try {
            readFileStructureTree(r);
        } catch (const std::runtime_error& e) {
            return e.what();
        }
        return "";
    };
    auto empty = [](PRCBitWriter& w) { w.writeEmptyContentBase(); };
    const std::string name = "named";
    EXPECT_EQ(failure([&](PRCBitWriter& w) { w.writeContentBase(304, &name); }),
              "readEmptyContentPRCBase: unexpected name (non-empty section?)");
    EXPECT_EQ(failure([&](PRCBitWriter& w) { empty(w), w.writeUnsignedInteger(1), w.writeUnsignedInteger(310); }),
              "unexpected type for PRCPartDefinition: expected 311, got 310");
    EXPECT_EQ(failure(empty, 303), "unexpected type for FileStructureTree: expected 304, got 303");
    EXPECT_EQ(failure([&](PRCBitWriter& w) { empty(w), w.writeUnsignedInteger(0), w.writeUnsignedInteger(1), w.writeUnsignedInteger(311); }),
              "unexpected type for PRCProductOccurrence: expected 310, got 311");
    EXPECT_EQ(failure([&](PRCBitWriter& w) { empty(w), w.writeUnsignedInteger(0), w.writeUnsignedInteger(0), w.writeUnsignedInteger(304); }),
              "unexpected type for FileStructure (internal data): expected 302, got 304");
    // Hostile counts of both lists: the first entry fails (in the padding
    // bits), nothing is sized by the count first.
    EXPECT_EQ(failure([&](PRCBitWriter& w) { empty(w), w.writeUnsignedInteger(4000000000u); }),
              "unexpected type for PRCPartDefinition: expected 311, got 0");
    EXPECT_EQ(failure([&](PRCBitWriter& w) { empty(w), w.writeUnsignedInteger(0), w.writeUnsignedInteger(4000000000u); }),
              "unexpected type for PRCProductOccurrence: expected 310, got 0");
}

// One file structure: a tree of one named occurrence and two squares.
PRCFileBuilder oneFileStructure(uint32_t version = 8137) {
    PRCFileBuilder b;
    PRCFileStructurePlan& fs = b.addFileStructure();
    fs.authoring_version = version;
    ProductOccurrenceFields o;
    o.name = "only";
    PRCBitWriter tree;
    writeTreeSection(tree, version, {PartDefinitionFields()}, {o});
    std::vector<PRCBitWriter> squares(2);
    for (size_t i = 0; i < 2; ++i) writePRC3DTess(squares[i], version, squareTess(double(i)));
    fs.tree(PRCSection::of(tree)).tessellation(PRCSection{tessellationSection(squares), true});
    return b;
}

std::vector<PRCFileStructure> readAll(const std::vector<uint8_t>& file) {
    const PRCHeader header = readPRCHeader(file.data(), file.size());
    std::vector<PRCFileStructure> structures(header.file_structures.size());
    for (uint32_t i = 0; i < structures.size(); ++i) readFileStructure(header, structures, file.data(), file.size(), i);
    return structures;
}

TEST(FileStructureSections, EachSectionIsLostAlone) {
    using Offsets = std::vector<uint32_t>;
    struct Case {
        const char* what;
        std::function<void(PRCFileStructurePlan&)> edit;
        bool tree, tessellations;
        uint32_t version, written = 8137;
    };
    const Case cases[] = {
        {"intact", [](PRCFileStructurePlan&) {}, true, true, 8137},
        {"empty globals range", [](PRCFileStructurePlan& f) { f.edit_offsets = [](Offsets& o) { o[1] = o[2]; }; },
         true, true, 8137},
        {"tree that is not zlib", [](PRCFileStructurePlan& f) { f.tree(PRCSection::raw({1, 2, 3})); }, false, true, 8137},
        {"tree range beyond the file",
         [](PRCFileStructurePlan& f) { f.edit_offsets = [](Offsets& o) { o[3] = 0x7FFFFFFF; }; }, false, false, 8137},
        {"tree range reversed",
         [](PRCFileStructurePlan& f) { f.edit_offsets = [](Offsets& o) { std::swap(o[2], o[3]); }; }, false, false, 8137},
        {"tessellation range beyond the file",
         [](PRCFileStructurePlan& f) { f.edit_offsets = [](Offsets& o) { o[4] = 0xFFFFFFFF; }; }, true, false, 8137},
        {"fewer than five offsets", [](PRCFileStructurePlan& f) { f.edit_offsets = [](Offsets& o) { o.resize(4); }; },
         false, false, 0},
        // Written for the newest version, with no head to say so: read as the newest.
        {"no head", [](PRCFileStructurePlan& f) { f.head = false; }, true, true, 0xFFFFFFFF, 0xFFFFFFFF},
        {"head older than the tree", [](PRCFileStructurePlan& f) { f.authoring_version = 8137; }, false, true, 8137,
         0xFFFFFFFF},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        PRCFileBuilder b = oneFileStructure(c.written);
        b.file_structures.push_back(b.file_structures[0]);  // a second, intact one
        c.edit(b.file_structures[0]);
        const std::vector<PRCFileStructure> fs = readAll(b.build());
        EXPECT_EQ(fs[0].authoring_version, c.version);
        EXPECT_EQ(fs[0].tree_loaded, c.tree);
        EXPECT_EQ(fs[0].product_occurrences.size(), c.tree ? 1u : 0u);
        EXPECT_EQ(fs[0].tessellations.size(), c.tessellations ? 2u : 0u);
        EXPECT_TRUE(fs[1].tree_loaded);
        EXPECT_EQ(fs[1].tessellations.size(), 2u);
    }
}

}  // namespace
}  // namespace prc
