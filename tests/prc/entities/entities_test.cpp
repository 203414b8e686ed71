// Entities built bit by bit where the real files of the test data cannot
// reach: lights, leaders, annotation references, attributes of every kind,
// texture transformations, direction items, at both sides of each version
// test; every refused type code or value with its message; the nesting bounds.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>

#include "prc/entities/entity_framing.h"
#include "prc/entities/globals.h"
#include "prc/entities/representation_item.h"
#include "prc/entities/scene_entities.h"
#include "tests/support/prc_builder.h"

namespace prc::test {
namespace {

using ReadFn = std::function<void(PRCBitReader&)>;

constexpr uint32_t kV = 8137;  // the graphics blocks below have no count after them
const std::string base = " u0 b1 u1 u2 u3 ";   // no attributes, the current name, three identifiers
const std::string head = base + "b1 ";         // and the current graphics
const std::string item = head + "u0 u0 ";      // a representation item's: no local system, no tessellation
const std::string ref = " u205 u5 b1 u99 ";    // a reference within this file structure
const std::string plane = " u86 b1 u0 b0 splane u7 u0 c127 d28 ";  // with base, every bit of its layout
// A globals section up to its texture definitions: no schema, no referenced
// file structure, no font, one colour, no picture.
const std::string globals = "u0 u303 u0 b1 u0 d2 b0 u0 u1 d3 u0 ";

// A directional light has one more Double from 8030; scene display
// parameters end with a Boolean above 8136.
std::string scene(uint32_t v) {
    const std::string light = base + "u1 u2 u3 ";
    return "u741" + base + "b1 u4 u731" + light + "u732" + light + "d6 u733" + light + (v >= 8030 ? "d4" : "d3") +
           " u734" + light + "d11 b1 u742" + base + "b1 d15 b1 d3 u1" + plane + "u1 u2 u1 u3 u4" +
           (v > 8136 ? " b1" : "");
}

// Texture definitions of each dimension (one wrapping mode per dimension
// beyond the first), with and without their optional parts, then the
// transformation `tail` (the behaviour bytes take each branch: 0x23
// translation and non-orthogonal axes over rotation, 0x1A rotation and
// non-uniform over uniform scale, 0x4D translation, uniform scale, homogeneous).
std::string texture(int dimension, bool rich, const std::string& tail) {
    return " u712" + base + "u1 c" + std::to_string(dimension) + " i0 u0 u2 d2 u3 c1 c2 c3 " +
           (rich ? "i3 d4 i4 i-4 i0 c2 i9 d1 " : "i0 i0 i0 c0 ") + "i0" + (dimension > 1 ? " i1" : "") +
           (dimension > 2 ? " i2" : "") + tail;
}

TEST(Entities, ReadToTheLastBit) {
    PRCGlobals g;
    const ReadFn readGlobals = [&](PRCBitReader& r) {
        r.current_name = "stale";  // reading starts from a fresh state
        g = readFileStructureGlobals(r);
        EXPECT_EQ(r.current_name, "");
    };
    const std::string materials = " u4 u702" + base + "u1 u2 u3 u4 d5 u711" + base + "u1 u1 u2 u3 u711" + base +
                                  "u0 u1 u2 u3 u711" + base + "u4 u1 u2 u3 ";  // a copy, none, itself (not read yet)
    const std::tuple<ReadFn, uint32_t, std::string> cases[] = {
        {readSceneDisplayParameters, 8029, scene(8029)}, {readSceneDisplayParameters, 8030, scene(8030)},
        {readSceneDisplayParameters, 8136, scene(8136)}, {readSceneDisplayParameters, kV, scene(kV)},
        // Two leaders (both ends linked, none), a set holding an item and a reference.
        {readMarkups, kV, "u0 u2 u503" + head + "b1" + ref + "b1" + ref + "u0 u0 u503" + head + "b0 b0 u0 u0 u0 u1 u505" +
                              head + "u2 u504" + head + ref + "u0 u506" + head + "u2" + ref + ref + "u0 u0"},
        {readAttributes, kV, "u2 u201 b0 stitle u6 b0 sk u0 b1 u1 u1 i-300 b0 sk u2 d1 b1 u3 u3 i7 b0 sk u4 svalue "
                             "b1 u5 u5 i-1 u70000 u201 b1 u12 u0"},
        {[](PRCBitReader& r) { readRepresentationItem(r); }, kV,
         "u239" + item + "u4 u234" + item + "b1 d6 u0 u234" + item + "b0 d3 u0 u238" + item + "u0 u0 u0"},
        {readGlobals, kV, globals + "u5" + texture(1, false, " b0") + texture(2, true, " b1 u713 b1 b0 b0") +
                              texture(3, false, " b1 u713 b1 b0 b1 c35 d6") + texture(1, true, " b1 u713 b1 b0 b1 c26 d4") +
                              texture(2, false, " b1 u713 b1 b0 b1 c77 d6") + materials + "u0 u0 u0 u0 u0"},
    };
    for (const auto& [read, version, layout] : cases) EXPECT_EQ(readLayout(layout, version, read), "") << layout;
    ASSERT_EQ(g.materials.size(), 4u);
    EXPECT_EQ(std::tuple(g.materials[1].diffuse, g.materials[1].specular_alpha, g.materials[2].diffuse,
                         g.materials[3].diffuse), std::tuple(int64_t(1), 4.5, int64_t(-1), int64_t(-1)));

    // Every bit of a cartesian transformation, distinct values everywhere:
    // non-orthogonal axes win over the rotation (Z read, nothing normalised),
    // both scales multiply, homogeneous terms are consumed and leave row 3.
    Matrix4 m{};
    EXPECT_EQ(readLayout("u202 c255 f10 f20 f30 f1 f2 f3 f4 f5 f6 f7 f8 f9 f0.5 f0.25 f2 f4 f0.25 f0.5 f0.75 f3", kV,
                         [&](PRCBitReader& r) { m = readTransformation3d(r); }),
              "");
    EXPECT_EQ(m, (Matrix4{2, 4, 56, 10, 4, 5, 64, 20, 6, 6, 72, 30, 0, 0, 0, 1}));
}

TEST(Entities, RefusedTypeCodesAndValues) {
    const auto emptyBase = [](PRCBitReader& r) { r.current_name = "A", readEmptyContentPRCBase(r); };
    const auto globalsOf = [](PRCBitReader& r) { readFileStructureGlobals(r); };
    const std::tuple<ReadFn, std::string, std::string> cases[] = {
        {readAttributes, "u1 u202", "unexpected type for PRCAttribute: expected 201, got 202"},
        {readAttributes, "u1 u201 b1 u1 u1 b1 u1 u6", "readSingleAttribute: unhandled attribute type 6"},
        {readLight, "u730", "readLight: tipo inatteso 730"},
        {readLight, "u735", "readLight: tipo inatteso 735"},
        {readEntityReference, "u203" + head + "u0 b1 u207", "readEntityReference: unknown reference type"},
        {readMarkupLinkedItem, "u204" + head + "u0 b1 u207", "ReferenceData: unknown type"},
        {readAnnotationEntity, "u507", "readAnnotationEntity: unknown type 507"},
        {[](PRCBitReader& r) { readRepresentationItem(r); }, "u231", "readRepresentationItem: unhandled type (231)"},
        {[](PRCBitReader& r) { readRepresentationItem(r); }, "u241", "readRepresentationItem: unhandled type (241)"},
        {[](PRCBitReader& r) { readTransformation3d(r); }, "u203", "readTransformation3d: unknown transformation type"},
        {globalsOf, globals + "u1 u712" + base + "u1 c1 i3",
         "readTextureDefinition: unhandled texture mapping operator (never seen in real files)"},
        {globalsOf, globals + "u0 u1 u703", "readMaterial: unexpected material type: 703"},
        {globalsOf, globals + "u0 u0 u0 u0 u1", "readFileStructureGlobals: unhandled fill patterns (no reference)"},
        {emptyBase, "u1", "readEmptyContentPRCBase: unexpected attributes (non-empty section?)"},
        {emptyBase, "u0 b1", "readEmptyContentPRCBase: unexpected name (non-empty section?)"},
    };
    for (const auto& [read, layout, message] : cases) EXPECT_EQ(readLayout(layout, kV, read), message) << layout;
}

TEST(Entities, NestingIsBounded) {
    // The limit counts every level, sets and the innermost entry; a chain far
    // deeper than any stack could follow fails the same way.
    const std::tuple<ReadFn, int, std::string, std::string, const char*> cases[] = {
        {[](PRCBitReader& r) { readRepresentationItem(r); }, kMaxRepresentationItemDepth, "u239" + item + "u1",
         "u237" + item + "b1 u0", "readRepresentationItem: sets nested too deeply"},
        {readAnnotationEntity, kMaxAnnotationDepth, "u505" + head + "u1", "u504" + head + ref + "u0",
         "readAnnotationEntity: annotation sets nested too deeply"}};
    for (const auto& [read, limit, set, inner, message] : cases) {
        const auto nest = [&](int sets) {
            std::string layout;
            for (int i = 0; i < sets; ++i) layout += set + " ";
            layout += inner;
            for (int i = 0; i < sets; ++i) layout += " u0";
            return readLayout(layout, kV, read);
        };
        EXPECT_EQ(nest(limit - 1), "");
        EXPECT_EQ(nest(limit), message);
        EXPECT_EQ(nest(100000), message);
    }
}

}  // namespace
}  // namespace prc::test
