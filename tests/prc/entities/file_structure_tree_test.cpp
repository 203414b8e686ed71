#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>

#include "prc/entities/file_structure.h"
#include "tests/support/prc_tree_writer.h"

namespace prc {
namespace {

using test::PartDefinitionFields;
using test::PRCBitWriter;
using test::ProductOccurrenceFields;
using test::TreeItemFields;

std::string failureOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "";
}

TEST(FileStructureTree, ReadsEveryKeptFieldAndEndsExactly) {
    for (uint32_t version : {8137u, 8138u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(version);
        PartDefinitionFields part0;
        part0.style_plus_one = 3;
        part0.items = {TreeItemFields{237, 2, 1, 5, {}}, TreeItemFields{0, 0, 0, 0, {}},
                       TreeItemFields{239, 0, 0, 0, {TreeItemFields{237, 1, 0, 0, {}}}}};
        PartDefinitionFields part1;
        part1.name = "second";
        part1.user_data_bits = 13;

        ProductOccurrenceFields root;
        root.name = "root";
        root.sons = {1, 2, 57};  // 57: beyond the list, kept as stored
        root.information_flags = 0x09;
        root.behaviour = 0x81;
        root.load_status = -3;
        root.location = test::translationMatrix(1.5, -2, 1e6);
        root.entity_filter = true;
        ProductOccurrenceFields proto;
        proto.name = std::nullopt;  // same as the current name: the last one read, the root's filter's
        proto.part_plus_one = 1;
        proto.prototype_plus_one = 3;
        proto.prototype_same_file_structure = false;
        proto.prototype_file_structure = {0xDEADBEEF, 1, 2, 0xFFFFFFFF};
        proto.external_plus_one = 4;
        proto.external_same_file_structure = false;
        proto.external_file_structure = {5, 6, 7, 8};
        proto.style_plus_one = 1;
        proto.user_data_bits = 40;
        ProductOccurrenceFields plain;
        plain.name = "plain";
        plain.part_plus_one = 2;
        plain.prototype_plus_one = 1;
        plain.external_plus_one = 9;

        PRCBitWriter w;
        test::writeTreeSection(w, version, {part0, part1}, {root, proto, plain});
        const std::vector<uint8_t> bytes = w.bytes();
        PRCBitReader r(bytes.data(), bytes.size(), version);
        PRCFileStructureTree tree = readFileStructureTree(r);
        EXPECT_EQ(r.bitIndex(), w.bitCount());

        ASSERT_EQ(tree.part_definitions.size(), 2u);
        const PRCPartDefinition& p = tree.part_definitions[0];
        EXPECT_EQ(p.line_style_index, 2u);
        ASSERT_EQ(p.representation_items.size(), 3u);
        EXPECT_EQ(p.representation_items[0].index_tessellation, 1);
        EXPECT_EQ(p.representation_items[0].index_local_coordinate_system, 0);
        EXPECT_EQ(p.representation_items[0].line_style_index, 4u);
        EXPECT_EQ(p.representation_items[1].type, 0u);  // empty items are kept
        ASSERT_EQ(p.representation_items[2].items.size(), 1u);
        EXPECT_EQ(p.representation_items[2].items[0].index_tessellation, 0);
        EXPECT_EQ(tree.part_definitions[1].line_style_index, 0xFFFFFFFFu);

        ASSERT_EQ(tree.product_occurrences.size(), 3u);
        const PRCProductOccurrence& o0 = tree.product_occurrences[0];
        EXPECT_EQ(o0.name, "root");
        EXPECT_EQ(o0.index_part, -1);
        EXPECT_EQ(o0.index_prototype, -1);
        EXPECT_TRUE(o0.prototype_in_same_file_structure);
        EXPECT_EQ(o0.son_product_occurrences, (std::vector<uint32_t>{1, 2, 57}));
        EXPECT_EQ(o0.product_information_flags, 0x09);
        EXPECT_EQ(o0.product_behaviour, 0x81);
        EXPECT_TRUE(o0.has_location);
        EXPECT_EQ(o0.location, test::translationMatrix(1.5, -2, 1e6));
        EXPECT_EQ(o0.line_style_index, 0xFFFFFFFFu);

        const PRCProductOccurrence& o1 = tree.product_occurrences[1];
        EXPECT_EQ(o1.name, "filter");
        EXPECT_EQ(o1.index_part, 0);
        EXPECT_EQ(o1.index_prototype, 2);
        EXPECT_FALSE(o1.prototype_in_same_file_structure);
        EXPECT_EQ(o1.prototype_file_structure, (FileStructureId{0xDEADBEEF, 1, 2, 0xFFFFFFFF}));
        EXPECT_EQ(o1.line_style_index, 0u);
        EXPECT_FALSE(o1.has_location);
        EXPECT_EQ(o1.location, kIdentityMatrix);

        const PRCProductOccurrence& o2 = tree.product_occurrences[2];
        EXPECT_EQ(o2.index_part, 1);
        EXPECT_EQ(o2.index_prototype, 0);
        EXPECT_TRUE(o2.prototype_in_same_file_structure);
        EXPECT_EQ(o2.prototype_file_structure, FileStructureId{});
    }
}

TEST(FileStructureTree, EmptyTreeWithInternalDataReads) {
    PRCBitWriter w;
    test::writeTreeSection(w, 8137, {}, {});
    const std::vector<uint8_t> bytes = w.bytes();
    PRCBitReader r(bytes.data(), bytes.size(), 8137);
    PRCFileStructureTree tree = readFileStructureTree(r);
    EXPECT_TRUE(tree.part_definitions.empty());
    EXPECT_TRUE(tree.product_occurrences.empty());
    EXPECT_EQ(r.bitIndex(), w.bitCount());
}

// The head of a tree section followed by what write adds.
std::string treeFailure(const std::function<void(PRCBitWriter&)>& write) {
    PRCBitWriter w;
    w.writeUnsignedInteger(304);
    w.writeEmptyContentBase();
    write(w);
    for (int i = 0; i < 100; ++i) w.writeCharacter(0xA5);  // 100 bytes that are no entity
    const std::vector<uint8_t> bytes = w.bytes();
    return failureOf([&] {
        PRCBitReader r(bytes.data(), bytes.size(), 8137);
        readFileStructureTree(r);
    });
}

TEST(FileStructureTree, Failures) {
    EXPECT_EQ(treeFailure([](PRCBitWriter& w) { w.writeUnsignedInteger(1), w.writeUnsignedInteger(310); }),
              "unexpected type for PRCPartDefinition: expected 311, got 310");
    EXPECT_EQ(treeFailure([](PRCBitWriter& w) {
                  for (uint32_t v : {0u, 0u, 304u}) w.writeUnsignedInteger(v);  // no internal data
              }),
              "unexpected type for FileStructure (internal data): expected 302, got 304");
    {
        PRCBitWriter w;
        w.writeUnsignedInteger(304);
        const std::string name = "named";
        w.writeContentBase(304, &name);
        const std::vector<uint8_t> bytes = w.bytes();
        PRCBitReader r(bytes.data(), bytes.size(), 8137);
        EXPECT_EQ(failureOf([&] { readFileStructureTree(r); }),
                  "readEmptyContentPRCBase: unexpected name (non-empty section?)");
    }
    // An occurrence cut inside its user data loses the whole tree.
    ProductOccurrenceFields o;
    o.user_data_bits = 64;
    PRCBitWriter w;
    test::writeTreeSection(w, 8137, {}, {o});
    std::vector<uint8_t> cut = w.bytes();
    cut.resize(cut.size() - 4);
    PRCBitReader r(cut.data(), cut.size(), 8137);
    EXPECT_NE(failureOf([&] { readFileStructureTree(r); }), "");

    // Counts of four billion in a short section end at the end of the data,
    // quickly and without sizing anything by the count.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_NE(treeFailure([](PRCBitWriter& w) { w.writeUnsignedInteger(4000000000u); }), "");
    EXPECT_NE(treeFailure([](PRCBitWriter& w) { w.writeUnsignedInteger(0), w.writeUnsignedInteger(4000000000u); }),
              "");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

}  // namespace
}  // namespace prc
