// Entities read back from what the test writers wrote (each must be read to
// its last bit, and a hostile type code, value or count anywhere must fail
// with its own message).

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>

#include "prc/entities/entity_framing.h"
#include "prc/entities/globals.h"
#include "prc/entities/representation_item.h"
#include "prc/entities/scene_entities.h"
#include "tests/support/prc_entity_writer.h"

namespace prc::test {
namespace {

// 8137 is the last version without the count after every Graphics block;
// 0xFFFFFFFF stands for a file structure without a readable head.
constexpr uint32_t kOld = 8137, kNew = 0xFFFFFFFF;
using ReadFn = std::function<void(PRCBitReader&)>;

// The message of the failure of `read`, or "" once it has stopped exactly
// after the last bit written.
std::string readBack(const PRCBitWriter& w, uint32_t version, const ReadFn& read) {
    PRCBitReader r(w.bytes().data(), w.bytes().size(), version);
    try {
        read(r);
    } catch (const std::exception& e) {
        return e.what();
    }
    EXPECT_EQ(r.bitIndex(), w.bitCount());
    return "";
}

const Matrix4 kPlacement{0, -1, 0, 5, 1, 0, 0, 6, 0, 0, 2, 7, 0, 0, 0, 1};

// A set of one item of each kind, each with its optional parts when `flag`.
RepresentationItemFields everyItem(bool flag) {
    RepresentationItemFields set{.type = 239, .tessellation_plus_one = 99, .flag = flag};
    for (uint32_t type = 232; type <= 240; ++type)
        set.items.push_back({.type = type, .style_plus_one = type - 200, .system_plus_one = 1,
                             .tessellation_plus_one = type, .flag = flag, .matrix = kPlacement});
    set.items[7].items = {{.tessellation_plus_one = 7}};
    set.items.push_back({.type = 0});
    return set;
}

const GlobalsFields kKeptTables{
    .colors = {{1, 0, 0}, {0, 0.5, 1}, {0.25, 0.75, 2}},
    .materials = {{.colors = {1, 2, 0, 3}, .values = {0.5, 0.25, 0.75, 0, 2}},
                  {.type = 711, .material_plus_one = 1},   // an earlier material: a copy of it
                  {.type = 711, .material_plus_one = 0},   // none
                  {.type = 711, .material_plus_one = 4}},  // itself, not read yet
    .styles = {{.line_width = 0.25}, {.is_material = true, .color_material_plus_one = 2}, StyleFields::color(1)},
    .reference_coordinate_systems = {{.type = 240, .matrix = kPlacement}, {.style_plus_one = 9},
                                     {.type = 239, .items = {{}}}}};

// Every whole entity the writers make, with its reader.
const struct {
    std::function<void(PRCBitWriter&, uint32_t)> write;
    ReadFn read;
} kWholes[] = {
    {writeView, readView},
    {writeMarkups, readMarkups},
    {[](PRCBitWriter& w, uint32_t v) { writeRepresentationItem(w, v, everyItem(true)); },
     [](PRCBitReader& r) { readRepresentationItem(r); }},
    {[](PRCBitWriter& w, uint32_t v) { writeGlobals(w, v, kKeptTables); },
     [](PRCBitReader& r) { readFileStructureGlobals(r); }},
};

// The failure when `slot` holds `value` in the first whole that has the slot.
// The last byte is filled with 1 bits: they cannot complete one more entry of
// any list, while zero bits would read as a type code 0 and fail otherwise.
std::string tampered(const std::string& slot, uint32_t value) {
    for (const auto& whole : kWholes) {
        PRCBitWriter w;
        if (!writeTampered(w, slot, value, [&](PRCBitWriter& w) { whole.write(w, kNew); })) continue;
        while (w.bitCount() % 8 != 0) w.writeBit(true);
        return readBack(w, kNew, whole.read);
    }
    return slot + " never written";
}

TEST(Entities, WholesReadExactlyAtEveryVersionBoundary) {
    // A directional light has one more Double from 8030, scene display
    // parameters end with a Boolean above 8136, graphics carry a count above 8137.
    for (uint32_t version : {8029u, 8030u, 8136u, kOld, kNew})
        for (const auto& whole : kWholes) {
            PRCBitWriter w;
            whole.write(w, version);
            EXPECT_EQ(readBack(w, version, whole.read), "") << version;
        }
}

TEST(Entities, TamperedTypeCodesAndValues) {
    // {slot, value, the type code expected there}; the first leader linked
    // holds only its second end.
    const std::tuple<const char*, uint32_t, uint32_t> wrong_types[] = {
        {"PRCAttribute", 202, 201}, {"PRCView", 500, 501}, {"View.annotations", 206, 205},
        {"View.linked_items", 206, 205}, {"PRCSurfacePlane", 85, 86}, {"PRCSceneDisplayParameters", 740, 741},
        {"PRCCamera", 743, 742}, {"PRCFilter", 321, 320}, {"PRCEntityReference", 204, 203},
        {"PRCMarkupLinkedItem", 205, 204}, {"PRCLeader", 502, 503}, {"Leader.second_linked_item", 206, 205},
        {"Leader.first_linked_item", 206, 205}, {"PRCMarkup", 503, 502}, {"Markup.linked_items", 206, 205},
        {"Markup.leaders", 206, 205}, {"AnnotationItem.markup", 204, 205},
        {"AnnotationReference.linked_items", 206, 205}, {"FileStructureGlobals", 302, 303}, {"PRCPicture", 702, 703},
        {"PRCTextureDefinition", 711, 712}, {"PRCTextureTransformation", 712, 713}, {"PRCLinePattern", 722, 721},
        {"PRCStyle", 702, 701},
    };
    for (const auto& [slot, value, expected] : wrong_types)
        EXPECT_EQ(tampered(slot, value), "unexpected type for " + std::string(slot) + ": expected " +
                                             std::to_string(expected) + ", got " + std::to_string(value));
    const std::tuple<const char*, uint32_t, const char*> cases[] = {
        {"AttributeKey.type", 6, "readSingleAttribute: unhandled attribute type 6"},
        {"Light", 730, "readLight: tipo inatteso 730"},
        {"Light", 735, "readLight: tipo inatteso 735"},
        {"EntityReference.reference", 207, "readEntityReference: unknown reference type"},
        {"LinkedItem.reference", 207, "ReferenceData: unknown type"},
        {"AnnotationEntity", 507, "readAnnotationEntity: unknown type 507"},
        {"RepresentationItem", 231, "readRepresentationItem: unhandled type (231)"},
        {"RepresentationItem", 241, "readRepresentationItem: unhandled type (241)"},
        {"Transformation", 203, "readTransformation3d: unknown transformation type"},
        {"TextureDefinition.mapping_operator", 3,
         "readTextureDefinition: unhandled texture mapping operator (never seen in real files)"},
        {"Material", 703, "readMaterial: unexpected material type: 703"},
        {"Globals.fill_patterns", 1, "readFileStructureGlobals: unhandled fill patterns (no reference)"},
    };
    for (const auto& [slot, value, message] : cases) EXPECT_EQ(tampered(slot, value), message) << slot;
}

TEST(Entities, HostileCountsRunOutOfData) {
    for (const auto& whole : kWholes) {
        PRCBitWriter w;
        whole.write(w, kNew);
    }
    for (const std::string& slot : slotsWritten()) {
        if (!slot.ends_with('#')) continue;  // the counts are the slots named with '#'
        EXPECT_EQ(tampered(slot, 4000000000u), "PRCBitReader: read past end") << slot;
    }
}

TEST(Entities, NestingIsBounded) {
    // The limit counts every level, sets and the innermost entry; a chain far
    // deeper than any stack could follow fails the same way.
    const std::tuple<ReadFn, int, const char*, const char*, const char*> cases[] = {
        {[](PRCBitReader& r) { readRepresentationItem(r); }, kMaxRepresentationItemDepth, "u239 rhead u0 u0 u1",
         "u237 rhead u0 u0 b1 user", "readRepresentationItem: sets nested too deeply"},
        {readAnnotationEntity, kMaxAnnotationDepth, "u505 rhead u1", "u504 rhead ref:AnnotationItem.markup user",
         "readAnnotationEntity: annotation sets nested too deeply"}};
    for (const auto& [read, limit, set, inner, message] : cases) {
        const auto nest = [&](int sets) {
            PRCBitWriter w;
            for (int i = 0; i < sets; ++i) put(w, kOld, set);
            put(w, kOld, inner);
            for (int i = 0; i < sets; ++i) put(w, kOld, "user");
            return readBack(w, kOld, read);
        };
        EXPECT_EQ(nest(limit - 1), "");
        EXPECT_EQ(nest(limit), message);
        EXPECT_EQ(nest(100000), message);
    }
}

TEST(EntityFraming, EmptyBaseRefusesAttributesAndAReusedName) {
    for (const auto& [layout, message] :
         {std::pair{"Attributes#=1", "readEmptyContentPRCBase: unexpected attributes (non-empty section?)"},
          std::pair{"Attributes#=0 b1", "readEmptyContentPRCBase: unexpected name (non-empty section?)"}}) {
        PRCBitWriter w;
        put(w, kOld, layout);
        const ReadFn read = [](PRCBitReader& r) { r.current_name = "A"; readEmptyContentPRCBase(r); };
        EXPECT_EQ(readBack(w, kOld, read), message);
    }
}

Matrix4 transformation(const std::string& layout, std::initializer_list<double> values) {
    PRCBitWriter w;
    put(w, kOld, layout);
    for (double d : values) w.writeDouble(d);
    Matrix4 m{};
    EXPECT_EQ(readBack(w, kOld, [&](PRCBitReader& r) { m = readTransformation3d(r); }), "");
    return m;
}

TEST(Transformation, CartesianAndGeneral) {
    EXPECT_EQ(transformation("u202 c0", {}), kIdentityMatrix);
    // Rotation: Z = X x Y.
    EXPECT_EQ(transformation("u202 c2", {0, 1, 0, -1, 0, 0}),
              (Matrix4{0, -1, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}));
    // Every bit, distinct values everywhere so that a swapped read shows:
    // non-orthogonal axes win over the rotation (Z read, nothing normalised),
    // both scales multiply, homogeneous terms are consumed and leave row 3,
    // 0x04 and 0x80 carry nothing.
    EXPECT_EQ(transformation("u202 c255", {10, 20, 30, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0.5, 0.25, 2, 4, 0.25, 0.5, 0.75, 3}),
              (Matrix4{2, 4, 56, 10, 4, 5, 64, 20, 6, 6, 72, 30, 0, 0, 0, 1}));
    // Stored column after column; row 3 as stored.
    EXPECT_EQ(transformation("u207", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}),
              (Matrix4{1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15, 4, 8, 12, 16}));
}

TEST(RepresentationItem, EveryKindKeepsItsHeadInOrder) {
    for (uint32_t version : {kOld, kNew})
        for (bool flag : {false, true}) {
            PRCBitWriter w;
            writeRepresentationItem(w, version, everyItem(flag));
            PRCRepresentationItem set;
            EXPECT_EQ(readBack(w, version, [&](PRCBitReader& r) { set = readRepresentationItem(r); }), "");
            EXPECT_EQ(set.index_tessellation, 98);
            ASSERT_EQ(set.items.size(), 10u);
            for (uint32_t type = 232; type <= 240; ++type) {  // only a coordinate system has a matrix
                const PRCRepresentationItem& i = set.items[type - 232];
                EXPECT_EQ(std::tuple(i.type, i.index_local_coordinate_system, i.index_tessellation, i.line_style_index),
                          std::tuple(type, int64_t(0), int64_t(type) - 1, type - 201));
                EXPECT_EQ(i.transformation, type == 240 ? kPlacement : kIdentityMatrix) << type;
            }
            ASSERT_EQ(set.items[7].items.size(), 1u);
            EXPECT_EQ(set.items[7].items[0].index_tessellation, 6);
            EXPECT_EQ(set.items[9].index_tessellation, -1);  // an empty slot: its type code alone
        }
}

TEST(Globals, KeptTables) {
    PRCBitWriter w;
    writeGlobals(w, kOld, kKeptTables);
    PRCGlobals g;
    // Reading starts from a fresh state: the reused names find the empty one.
    const ReadFn read = [&](PRCBitReader& r) {
        r.current_name = "stale";
        g = readFileStructureGlobals(r);
        EXPECT_EQ(r.current_name, "");
    };
    EXPECT_EQ(readBack(w, kOld, read), "");
    EXPECT_EQ(g.schema_entity_types, (std::vector<uint32_t>{310, 311}));
    ASSERT_EQ(g.colors.size(), 3u);
    EXPECT_EQ((Vec3{g.colors[2].red, g.colors[2].green, g.colors[2].blue}), (Vec3{0.25, 0.75, 2}));  // not clamped
    ASSERT_EQ(g.materials.size(), 4u);
    const PRCMaterial& m = g.materials[1];  // a copy of the first
    EXPECT_EQ((std::array<int64_t, 4>{m.ambient, m.diffuse, m.emissive, m.specular}),
              (std::array<int64_t, 4>{0, 1, -1, 2}));
    EXPECT_EQ((std::array{m.shininess, m.ambient_alpha, m.diffuse_alpha, m.emissive_alpha, m.specular_alpha}),
              (std::array{0.5, 0.25, 0.75, 0.0, 2.0}));
    for (const PRCMaterial& fallback : {g.materials[2], g.materials[3]})
        EXPECT_EQ(std::pair(fallback.diffuse, fallback.specular_alpha), std::pair(int64_t(-1), 1.0));
    ASSERT_EQ(g.styles.size(), 3u);
    EXPECT_EQ(std::tuple(g.styles[0].line_width, g.styles[0].color_material_index), std::tuple(0.25, int64_t(-1)));
    EXPECT_EQ(std::pair(g.styles[1].is_material, g.styles[1].color_material_index), std::pair(true, int64_t(1)));
    EXPECT_EQ(std::pair(g.styles[2].is_material, g.styles[2].color_material_index), std::pair(false, int64_t(0)));
    // Any item other than a coordinate system (a set of one included) gives the identity.
    EXPECT_EQ(g.reference_coordinate_systems, (std::vector<Matrix4>{kPlacement, kIdentityMatrix, kIdentityMatrix}));
}

}  // namespace
}  // namespace prc::test
