#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "model/decode_driver.h"
#include "tests/model/decode_test_util.h"
#include "tests/support/prc_entity_writer.h"
#include "tests/support/prc_file_builder.h"
#include "tests/support/prc_tess_writer.h"
#include "tests/support/prc_tree_writer.h"

namespace model {
namespace {

using namespace prc::test;
using test::Decoded;

// A tessellation section of squares (two triangles each) at the given x offsets.
PRCSection squaresSection(const std::vector<double>& offsets, uint32_t style_plus_one = 0) {
    std::vector<PRCBitWriter> tessellations(offsets.size());
    for (size_t i = 0; i < offsets.size(); ++i) {
        Tess3DFields square = squareTess(offsets[i]);
        if (style_plus_one) square.faces[0].stored_line_attributes = {style_plus_one};
        writePRC3DTess(tessellations[i], 8137, square);
    }
    return PRCSection{tessellationSection(tessellations), true};
}

template <typename Write>
PRCSection sectionOf(Write write) {
    PRCBitWriter w;
    write(w);
    return PRCSection::of(w);
}

PRCSection modelFileSection(const std::vector<ModelFileEntry>& entries) {
    return sectionOf([&](PRCBitWriter& w) { writeModelFile(w, entries); });
}

// A root with a leaf placed at x + 10 drawing square 0, with the given part style.
PRCFileBuilder simpleFile(uint32_t part_style_plus_one = 0, uint32_t face_style_plus_one = 0) {
    PRCFileBuilder b;
    b.minimal_version_for_read = 7094;
    PRCFileStructurePlan& fs = b.addFileStructure();
    const ProductOccurrenceFields root{.name = "root", .sons = {1}};
    const ProductOccurrenceFields leaf{.name = "leaf", .part_plus_one = 1, .location = translationMatrix(10, 0, 0)};
    const PartDefinitionFields part{"part", part_style_plus_one, {TreeItemFields{237, 1, 0, 0, {}}}};
    fs.tree(sectionOf([&](PRCBitWriter& w) { writeTreeSection(w, 8137, {part}, {root, leaf}); }));
    fs.tessellation(squaresSection({0}, face_style_plus_one));
    b.model_file = modelFileSection({{fs.identifier, 1}});
    return b;
}

TEST(DecodeDriver, NoInputNoHeaderAndNothingToDraw) {
    const std::vector<uint8_t> bad = {'P', 'R', 'X', 0, 0, 0, 0};
    for (const uint8_t* input : {static_cast<const uint8_t*>(nullptr), bad.data()}) {  // no input, or none of it
        DecodedModel m;
        std::memset(&m, 0xAB, sizeof m);
        EXPECT_FALSE(decodePrcModel(input, input ? 0 : 10, &m));
        EXPECT_EQ(std::pair(m.outcome, m.positions), std::pair(0u, static_cast<float*>(nullptr)));
    }
    EXPECT_EQ(Decoded(bad).model.outcome, 2u);

    PRCFileBuilder empty = simpleFile();
    empty.file_structures[0].tessellation(squaresSection({}));
    PRCFileBuilder few = simpleFile();  // too few offsets: the file structure is not read at all
    few.file_structures[0].edit_offsets = [](std::vector<uint32_t>& offsets) { offsets.resize(4); };
    for (const PRCFileBuilder& b : {empty, few}) {
        Decoded d(b.build());
        EXPECT_FALSE(d.ok);
        EXPECT_EQ(d.model.outcome, 1u);
        EXPECT_TRUE(test::wellFormed(d));
    }
}

TEST(DecodeDriver, StructuredPassOrFlatFallback) {
    const std::pair<const char*, std::function<void(PRCFileBuilder&)>> cases[] = {
        {"structured", nullptr},
        {"offsets beyond the file", [](PRCFileBuilder& b) { b.model_file_start = 1u << 30; }},
        {"empty model file range", [](PRCFileBuilder& b) { b.model_file_end = 0; }},
        {"entries without an occurrence",
         [](PRCFileBuilder& b) { b.model_file = modelFileSection({{b.file_structures[0].identifier, 0}}); }},
        {"identifier of no file structure", [](PRCFileBuilder& b) { b.model_file = modelFileSection({{{1, 2, 3, 4}, 1}}); }},
        {"model file that is not zlib", [](PRCFileBuilder& b) { b.model_file = PRCSection::raw({1, 2, 3}); }},
        {"broken tree", [](PRCFileBuilder& b) { b.file_structures[0].tree(PRCSection::raw({9})); }},
    };
    for (const auto& [what, edit] : cases) {
        SCOPED_TRACE(what);
        PRCFileBuilder b = simpleFile();
        if (edit) edit(b);
        Decoded d(b.build());
        ASSERT_TRUE(d.ok);
        EXPECT_TRUE(test::wellFormed(d));
        const bool structured = !edit;
        EXPECT_EQ(d.pass, structured ? DecodePass::Structured : DecodePass::Flat);
        EXPECT_EQ(d.model.triangle_count, 2u);
        EXPECT_EQ(d.model.part_count, structured ? 2u : 0u);
        for (uint32_t v = 0; v < d.model.vertex_count; ++v)  // placed, or untransformed
            EXPECT_EQ(d.model.positions[3 * v] >= 10.0f, structured);
        EXPECT_EQ(d.model.minimal_version_for_read, 7094u);
        EXPECT_EQ(d.model.authoring_version, 8137u);
        if (structured) {
            EXPECT_STREQ(d.model.part_records[1].name, "leaf");
            EXPECT_EQ(d.model.part_records[1].triangle_count, 2u);
        }
    }
}

// The second file structure's root has no part of its own: it takes part,
// name and placement from its prototype in the first one, found by identifier.
TEST(DecodeDriver, PrototypeInAnotherFileStructure) {
    PRCFileBuilder b = simpleFile();
    PRCFileStructurePlan& second = b.addFileStructure();
    second.identifier = {5, 6, 7, 8};
    ProductOccurrenceFields instance;
    instance.name = std::nullopt;  // the reuse bit on an empty current name: no name of its own
    instance.prototype_plus_one = 2;  // "leaf" of the first file structure
    instance.prototype_file_structure = b.file_structures[0].identifier;
    second.tree(sectionOf([&](PRCBitWriter& w) { writeTreeSection(w, 8137, {}, {instance}); }));
    second.tessellation(squaresSection({}));
    b.model_file = modelFileSection({{b.file_structures[0].identifier, 1}, {second.identifier, 1}});
    Decoded d(b.build());
    ASSERT_TRUE(d.ok);
    EXPECT_TRUE(test::wellFormed(d));
    EXPECT_EQ(d.pass, DecodePass::Structured);
    EXPECT_EQ(d.model.triangle_count, 4u);  // the square once per root
    ASSERT_EQ(d.model.part_count, 3u);
    const PartRecord& r = d.model.part_records[2];
    EXPECT_EQ(std::tuple(std::string(r.name), r.parent_index, r.triangle_count), std::tuple("leaf", 0xFFFFFFFFu, 2u));
    EXPECT_GE(d.model.part_records[2].box_min[0], 10.0f);  // the prototype's placement
}

TEST(DecodeDriver, FlatPassMergesFileStructuresInOrder) {
    PRCFileBuilder b;
    b.addFileStructure().tessellation(squaresSection({0, 100}));
    b.addFileStructure().tessellation(squaresSection({200})).identifier = {7, 7, 7, 7};
    b.model_file_start = 0xFFFFFF00u;
    Decoded d(b.build());
    ASSERT_TRUE(d.ok);
    EXPECT_EQ(d.pass, DecodePass::Flat);
    ASSERT_EQ(d.model.triangle_count, 6u);
    // Pieces follow each other with their indices shifted by the vertices before them.
    for (uint32_t i = 0; i < 18; ++i) EXPECT_EQ(d.model.triangles[i] / 4, i / 6) << i;
    EXPECT_EQ(d.model.positions[3 * 8], 200.0f);
}

TEST(DecodeDriver, GlobalsGiveStatisticsAndColoursAndABrokenOneAddsNothing) {
    GlobalsFields g;  // red, green, blue; styles of green and blue; one material
    g.colors = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    g.materials = {MaterialFields::withDiffuse(1)};
    g.styles = {StyleFields::color(2), StyleFields::color(3)};
    for (bool flat : {false, true}) {
        SCOPED_TRACE(flat ? "flat pass" : "structured pass");
        // The face's style (green) wins over the part's (blue) wherever the globals read.
        PRCFileBuilder b = simpleFile(2, 1);
        b.file_structures.push_back(b.file_structures[0]);
        b.file_structures[1].identifier = {9, 9, 9, 9};
        b.file_structures[0].globals(sectionOf([&](PRCBitWriter& w) { writeGlobals(w, 8137, g); }));
        b.file_structures[1].globals(PRCSection::raw({0x78, 0x9C, 0x01}));  // a cut zlib stream
        b.model_file = modelFileSection({{b.file_structures[0].identifier, 1}, {{9, 9, 9, 9}, 1}});
        if (flat) b.model_file_start = 0xFFFFFFF0u;
        Decoded d(b.build());
        ASSERT_TRUE(d.ok);
        EXPECT_EQ(d.pass, flat ? DecodePass::Flat : DecodePass::Structured);
        EXPECT_EQ(std::tuple(d.model.color_count, d.model.material_count, d.model.style_count), std::tuple(3u, 1u, 2u));
        ASSERT_EQ(d.model.vertex_count, 8u);
        // The second file structure is still drawn, in the colour it would have without globals.
        EXPECT_EQ((std::vector<uint8_t>(d.model.colors, d.model.colors + 24)),
                  (std::vector<uint8_t>{0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 255, 255, 255, 255, 255, 255,
                                        255, 255, 255, 255, 255, 255}));
    }
}

}  // namespace
}  // namespace model
