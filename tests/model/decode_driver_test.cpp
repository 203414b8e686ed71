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
using test::wellFormed;

constexpr uint32_t kVersion = 8137;

PRCSection treeSection(const std::vector<PartDefinitionFields>& parts, const std::vector<ProductOccurrenceFields>& occs) {
    PRCBitWriter w;
    writeTreeSection(w, kVersion, parts, occs);
    return PRCSection::of(w);
}

// A tessellation section of squares (two triangles each) at the given offsets.
PRCSection squaresSection(const std::vector<double>& offsets) {
    std::vector<PRCBitWriter> tessellations;
    for (double offset : offsets) {
        tessellations.emplace_back();
        writePRC3DTess(tessellations.back(), kVersion, squareTess(offset));
    }
    return PRCSection{tessellationSection(tessellations), true};
}

PRCSection modelFileSection(const std::vector<ModelFileEntry>& entries) {
    PRCBitWriter w;
    writeModelFile(w, entries);
    return PRCSection::of(w);
}

PartDefinitionFields partDrawing(uint32_t tessellation) {
    PartDefinitionFields part;
    part.items = {TreeItemFields{237, tessellation + 1, 0, 0, {}}};
    return part;
}

ProductOccurrenceFields occurrenceFields(const std::string& name, uint32_t partPlusOne = 0,
                                     std::vector<uint32_t> sons = {}) {
    ProductOccurrenceFields o;
    o.name = name;
    o.part_plus_one = partPlusOne;
    o.sons = std::move(sons);
    return o;
}

// One file structure: a root with a leaf placed at x + 10 drawing square 0.
PRCFileBuilder simpleFile() {
    PRCFileBuilder b;
    b.minimal_version_for_read = 7094;
    b.authoring_version = 8137;
    PRCFileStructurePlan& fs = b.addFileStructure();
    ProductOccurrenceFields leaf = occurrenceFields("leaf", 1);
    leaf.location = translationMatrix(10, 0, 0);
    fs.tree(treeSection({partDrawing(0)}, {occurrenceFields("root", 0, {1}), leaf}));
    fs.tessellation(squaresSection({0}));
    b.model_file = modelFileSection({{fs.identifier, 1}});
    return b;
}

std::vector<float> xs(const DecodedModel& m) {
    std::vector<float> out;
    for (uint32_t v = 0; v < m.vertex_count; ++v) out.push_back(m.positions[3 * v]);
    return out;
}

TEST(DecodeDriver, NoInputAndNoHeader) {
    DecodedModel m;
    std::memset(&m, 0xAB, sizeof m);
    EXPECT_FALSE(decodePrcModel(nullptr, 10, &m));
    EXPECT_EQ(m.outcome, 0u);
    EXPECT_EQ(m.positions, nullptr);
    const uint8_t bytes[] = {'P', 'R', 'X', 0, 0, 0, 0};
    std::memset(&m, 0xAB, sizeof m);
    EXPECT_FALSE(decodePrcModel(bytes, 0, &m));
    EXPECT_EQ(m.outcome, 0u);
    Decoded bad(std::vector<uint8_t>(bytes, bytes + sizeof bytes));
    EXPECT_FALSE(bad.ok);
    EXPECT_EQ(bad.model.outcome, 2u);
    EXPECT_TRUE(wellFormed(bad));
}

TEST(DecodeDriver, StructuredPassPlacesPartsAndRecordsNodes) {
    Decoded d(simpleFile().build());
    ASSERT_TRUE(d.ok);
    EXPECT_TRUE(wellFormed(d));
    EXPECT_EQ(d.pass, DecodePass::Structured);
    EXPECT_EQ(d.model.triangle_count, 2u);
    ASSERT_EQ(d.model.part_count, 2u);
    EXPECT_STREQ(d.model.part_records[0].name, "root");
    EXPECT_STREQ(d.model.part_records[1].name, "leaf");
    EXPECT_EQ(d.model.part_records[1].parent_index, 0u);
    EXPECT_EQ(d.model.part_records[1].triangle_count, 2u);
    for (float x : xs(d.model)) EXPECT_GE(x, 10.0f);
    EXPECT_EQ(d.model.minimal_version_for_read, 7094u);
    EXPECT_EQ(d.model.authoring_version, 8137u);
    EXPECT_EQ(d.model.number_of_file_structures, 1u);
}

TEST(DecodeDriver, UnusableModelFileFallsBackToTheFlatPass) {
    struct Case {
        const char* what;
        std::function<void(PRCFileBuilder&)> edit;
    };
    const Case cases[] = {
        {"offsets beyond the file", [](PRCFileBuilder& b) { b.model_file_start = 1u << 30; }},
        {"empty model file range", [](PRCFileBuilder& b) { b.model_file_end = 0; }},
        {"entries without an occurrence",
         [](PRCFileBuilder& b) { b.model_file = modelFileSection({{b.file_structures[0].identifier, 0}}); }},
        {"identifier of no file structure",
         [](PRCFileBuilder& b) { b.model_file = modelFileSection({{{1, 2, 3, 4}, 1}}); }},
        {"model file that is not zlib", [](PRCFileBuilder& b) { b.model_file = PRCSection::raw({1, 2, 3}); }},
        {"broken tree", [](PRCFileBuilder& b) { b.file_structures[0].tree(PRCSection::raw({9})); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        PRCFileBuilder b = simpleFile();
        c.edit(b);
        Decoded d(b.build());
        ASSERT_TRUE(d.ok);
        EXPECT_TRUE(wellFormed(d));
        EXPECT_EQ(d.pass, DecodePass::Flat);
        EXPECT_EQ(d.model.triangle_count, 2u);
        EXPECT_EQ(d.model.part_count, 0u);
        for (float x : xs(d.model)) EXPECT_LT(x, 10.0f);  // untransformed
        EXPECT_EQ(d.model.minimal_version_for_read, 7094u);
    }
}

TEST(DecodeDriver, NothingToDrawIsOutcomeOne) {
    PRCFileBuilder b = simpleFile();
    b.file_structures[0].tessellation(squaresSection({}));
    Decoded d(b.build());
    EXPECT_FALSE(d.ok);
    EXPECT_EQ(d.model.outcome, 1u);
    EXPECT_TRUE(wellFormed(d));
    // Too few offsets: the file structure is not read at all.
    PRCFileBuilder few = simpleFile();
    few.file_structures[0].edit_offsets = [](std::vector<uint32_t>& offsets) { offsets.resize(4); };
    Decoded e(few.build());
    EXPECT_FALSE(e.ok);
    EXPECT_EQ(e.model.outcome, 1u);
}

TEST(DecodeDriver, FlatPassMergesFileStructuresInOrder) {
    PRCFileBuilder b;
    PRCFileStructurePlan& first = b.addFileStructure();
    first.tessellation(squaresSection({0, 100}));
    PRCFileStructurePlan& second = b.addFileStructure();
    second.identifier = {7, 7, 7, 7};
    second.tessellation(squaresSection({200}));
    b.model_file_start = 0xFFFFFF00u;
    Decoded d(b.build());
    ASSERT_TRUE(d.ok);
    EXPECT_EQ(d.pass, DecodePass::Flat);
    ASSERT_EQ(d.model.triangle_count, 6u);
    ASSERT_EQ(d.model.vertex_count, 12u);
    // Pieces follow each other with their indices shifted by the vertices before them.
    for (uint32_t t = 0; t < 6; ++t)
        for (int c = 0; c < 3; ++c) {
            const uint32_t v = d.model.triangles[3 * t + c];
            EXPECT_EQ(v / 4, t / 2) << t;
        }
    EXPECT_LT(d.model.positions[0], 50.0f);
    EXPECT_GE(d.model.positions[3 * 8], 200.0f);
}

TEST(DecodeDriver, PrototypeAcrossFileStructures) {
    PRCFileBuilder b;
    PRCFileStructurePlan& first = b.addFileStructure();
    first.identifier = {1, 1, 1, 1};
    ProductOccurrenceFields instance = occurrenceFields("");
    instance.prototype_plus_one = 1;
    instance.prototype_same_file_structure = false;
    instance.prototype_file_structure = {2, 2, 2, 2};
    instance.location = translationMatrix(0, 0, 50);
    first.tree(treeSection({}, {occurrenceFields("assembly", 0, {1}), instance}));
    PRCFileStructurePlan& second = b.addFileStructure();
    second.identifier = {2, 2, 2, 2};
    second.tree(treeSection({partDrawing(0)}, {occurrenceFields("shared part", 1)}));
    second.tessellation(squaresSection({0}));
    b.model_file = modelFileSection({{{1, 1, 1, 1}, 1}});
    Decoded d(b.build());
    ASSERT_TRUE(d.ok);
    EXPECT_TRUE(wellFormed(d));
    EXPECT_EQ(d.pass, DecodePass::Structured);
    ASSERT_EQ(d.model.part_count, 2u);
    EXPECT_STREQ(d.model.part_records[1].name, "shared part");
    EXPECT_EQ(d.model.part_records[1].triangle_count, 2u);
    EXPECT_EQ(d.model.positions[2], 50.0f);
    EXPECT_EQ(d.model.part_records[0].box_min[2], 50.0f);
    EXPECT_EQ(d.model.number_of_file_structures, 2u);
}

// Colours red, green, blue; styles naming green and blue; one material.
PRCSection rgbGlobalsSection() {
    GlobalsSpec g;
    g.colors = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    g.materials = {MaterialSpec::withDiffuse(1)};
    g.styles = {StyleSpec::color(2), StyleSpec::color(3)};
    PRCBitWriter w;
    writeGlobals(w, kVersion, g);
    return PRCSection::of(w);
}

// A square whose face is drawn in style 0 (green where the globals read).
PRCSection styledSquareSection() {
    Tess3DFields square = squareTess(0);
    square.faces[0].stored_line_attributes = {1};
    PRCBitWriter w;
    writePRC3DTess(w, kVersion, square);
    return PRCSection{tessellationSection({w}), true};
}

uint32_t colourOfVertex(const DecodedModel& m, uint32_t v) {
    return uint32_t(m.colors[3 * v]) << 16 | uint32_t(m.colors[3 * v + 1]) << 8 | m.colors[3 * v + 2];
}

TEST(DecodeDriver, GlobalsGiveStatisticsAndColoursAndABrokenOneAddsNothing) {
    for (bool flat : {false, true}) {
        SCOPED_TRACE(flat ? "flat pass" : "structured pass");
        PRCFileBuilder b;
        for (int i = 0; i < 2; ++i) {
            PRCFileStructurePlan& fs = b.addFileStructure();
            fs.identifier = {uint32_t(i), 0, 0, 0};
            ProductOccurrenceFields root = occurrenceFields("root", 1);
            root.style_plus_one = 2;  // blue: the part's own colour wherever the face has no style
            fs.tree(treeSection({partDrawing(0)}, {root}));
            fs.tessellation(styledSquareSection());
        }
        b.file_structures[0].globals(rgbGlobalsSection());
        b.file_structures[1].globals(PRCSection::raw({0x78, 0x9C, 0x01}));  // a cut zlib stream
        b.model_file = modelFileSection({{{0, 0, 0, 0}, 1}, {{1, 0, 0, 0}, 1}});
        if (flat) b.model_file_start = 0xFFFFFFF0u;
        Decoded d(b.build());
        ASSERT_TRUE(d.ok);
        EXPECT_EQ(d.pass, flat ? DecodePass::Flat : DecodePass::Structured);
        EXPECT_EQ(d.model.color_count, 3u);
        EXPECT_EQ(d.model.material_count, 1u);
        EXPECT_EQ(d.model.style_count, 2u);
        ASSERT_EQ(d.model.vertex_count, 8u);
        // The face's style resolves in the first file structure only; the
        // second is still drawn, in the colour it would have without globals.
        EXPECT_EQ(colourOfVertex(d.model, 0), 0x00FF00u);
        EXPECT_EQ(colourOfVertex(d.model, 4), 0xFFFFFFu);
    }
}

}  // namespace
}  // namespace model
