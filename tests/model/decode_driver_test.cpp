// What real files never do: lose the product structure (the flat pass), or
// carry nothing at all. (Their assemblies find prototypes across file
// structures; one of them has an empty tessellation section.)

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "model/decode_driver.h"
#include "tests/model/decode_test_util.h"
#include "tests/support/prc_builder.h"

namespace model {
namespace {

using namespace prc::test;
using test::Decoded;

const prc::FileStructureId kFirst = PRCFileStructurePlan().identifier, kSecond = {5, 6, 7, 8};

TEST(DecodeDriver, NoInputNoHeaderAndNothingToDraw) {
    const std::vector<uint8_t> bad = {'P', 'R', 'X', 0, 0, 0, 0};
    for (const uint8_t* input : {static_cast<const uint8_t*>(nullptr), bad.data()}) {  // no input, or none of it
        DecodedModel m;
        std::memset(&m, 0xAB, sizeof m);
        EXPECT_FALSE(decodePrcModel(input, input ? 0 : 10, &m));
        EXPECT_EQ(std::pair(m.outcome, m.positions), std::pair(0u, static_cast<float*>(nullptr)));
    }
    EXPECT_EQ(Decoded(bad).model.outcome, 2u);

    PRCFileBuilder few = modelFileBuilder({});  // too few offsets: the file structure is not read at all
    few.file_structures[0].edit_offsets = [](std::vector<uint32_t>& offsets) { offsets.resize(4); };
    Decoded d(few.build());
    EXPECT_EQ(std::tuple(d.ok, d.model.outcome, d.invalid), std::tuple(false, 1u, ""));
}

TEST(DecodeDriver, StructuredPassOrFlatFallback) {
    const std::tuple<const char*, ModelPlan, std::function<void(PRCFileBuilder&)>> cases[] = {
        {"structured", {}, [](PRCFileBuilder&) {}},
        {"structured, the leaf with external data", {.occurrences = {{0, 0, {1}}, {1, 0, {}, 10, {}, true}}},
         [](PRCFileBuilder&) {}},
        {"offsets beyond the file", {}, [](PRCFileBuilder& b) { b.model_file_start = 1u << 30; }},
        {"empty model file range", {}, [](PRCFileBuilder& b) { b.model_file_end = 0; }},
        {"entries without an occurrence", {.roots = {{kFirst, 0}}}, [](PRCFileBuilder&) {}},
        {"identifier of no file structure", {.roots = {{kSecond, 1}}}, [](PRCFileBuilder&) {}},
        {"model file that is not zlib", {}, [](PRCFileBuilder& b) { b.model_file = PRCSection::raw({1, 2, 3}); }},
        {"broken tree", {}, [](PRCFileBuilder& b) { b.file_structures[0].tree(PRCSection::raw({9})); }},
    };
    for (const auto& [what, plan, edit] : cases) {
        SCOPED_TRACE(what);
        PRCFileBuilder b = modelFileBuilder(plan);
        b.minimal_version_for_read = 7094;
        edit(b);
        Decoded d(b.build());
        ASSERT_TRUE(d.ok);
        EXPECT_EQ(d.invalid, "");
        const bool structured = std::string(what).starts_with("structured");
        EXPECT_EQ(d.pass, structured ? DecodePass::Structured : DecodePass::Flat);
        EXPECT_EQ(std::tuple(d.model.triangle_count, d.model.part_count), std::tuple(1u, structured ? 2u : 0u));
        EXPECT_EQ(d.model.positions[0], structured ? 10.0f : 0.0f);  // placed, or untransformed
        EXPECT_EQ(std::tuple(d.model.minimal_version_for_read, d.model.authoring_version), std::tuple(7094u, 8137u));
    }
}

// Pieces follow each other in file structure order, their indices shifted by
// the vertices before them; a broken globals section adds nothing to the
// statistics and its file structure, listed without geometry sections, is
// still drawn, in white.
TEST(DecodeDriver, FlatPassMergesFileStructuresInOrder) {
    PRCFileBuilder b = modelFileBuilder({.triangles = 2, .face_style_plus_one = 1});
    b.model_file_start = 0xFFFFFF00u;
    PRCFileStructurePlan& second = b.addFileStructure();
    const std::vector<PRCSection> one = modelSections({.face_style_plus_one = 1});
    second.globals(PRCSection::raw({0x78, 0x9C, 0x01})).tree(one[1]).tessellation(one[2]).identifier = kSecond;
    second.edit_offsets = [](std::vector<uint32_t>& offsets) { offsets.resize(5); };  // no geometry sections
    Decoded d(b.build());
    ASSERT_TRUE(d.ok);
    EXPECT_EQ(d.pass, DecodePass::Flat);
    EXPECT_EQ(std::vector<uint32_t>(d.model.triangles, d.model.triangles + 9), (std::vector<uint32_t>{0, 1, 2, 0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(std::tuple(d.model.color_count, d.model.material_count, d.model.style_count), std::tuple(1u, 0u, 1u));
    EXPECT_EQ(std::vector<uint8_t>(d.model.colors, d.model.colors + 18),
              (std::vector<uint8_t>{255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 255, 255, 255, 255, 255, 255, 255, 255}));
}

// The flat pass draws compressed records too: one of a single triangle over
// the points (0,0,0) (2,0,0) (1,1,0), normals recalculated, plain arrays.
TEST(DecodeDriver, TheFlatPassDrawsCompressedRecords) {
    PRCFileBuilder b = modelFileBuilder({});
    b.model_file_start = 0x7FFFFF00u;
    b.file_structures[0].tessellation(PRCSection::of(
        "u305 u0 b00 u1 u173 b0 b0 f1 c0 c0 c0 c0 c0 c0 c0 c0 c0 c0 c0 c0 b0 u9 c1 c1 c1 c3 c1 c1 c1 c2 c1 b0 b0 b0 b010 b0 b0 b0 b01 b0"
        " b0 u0 b0 u1 c1 b0 u3 b000 u0 b1 b1 f0 c0 b0 b0 b0 u0 b1 b0"));
    Decoded d(b.build());
    EXPECT_EQ(std::tuple(d.pass, d.model.triangle_count, d.invalid), std::tuple(DecodePass::Flat, 1u, ""));
}

}  // namespace
}  // namespace model
