#include "prc/entities/globals.h"

#include "tests/prc/entities/entity_test_util.h"

namespace prc::test {
namespace {

PRCGlobals readBack(const GlobalsFields& fields, uint32_t version = kOldVersion) {
    PRCBitWriter w;
    writeGlobals(w, version, fields);
    PRCGlobals g;
    expectReadsExactly(w, version, [&](PRCBitReader& r) { g = readFileStructureGlobals(r); });
    return g;
}

std::string failure(const GlobalsFields& fields) {
    PRCBitWriter w;
    writeGlobals(w, kOldVersion, fields);
    return failureOf(w, kOldVersion, [](PRCBitReader& r) { readFileStructureGlobals(r); });
}

// Every dropped table filled, each optional branch taken somewhere.
GlobalsFields busyGlobals() {
    GlobalsFields s{.schema = {{310, {1, 2}}, {311, {}}},
                    .referenced_file_structures = {{1, 2, 3, 4}},
                    .chord_height_ratio = 2000,
                    .angle = 40,
                    .default_font = "Courier",
                    .fonts = {{.family = "Arial", .value = 1, .sizes = {{10, 0}, {12, 3}}}},
                    .pictures = {{}, {.name = std::nullopt, .format = -1, .values = {1, 2, 3}}},
                    .line_patterns = {{}, {.name = std::nullopt, .lengths = {}}},
                    .styles = {{.line_pattern_bit = true,
                                .line_pattern = 2,
                                .color_material_plus_one = 1,
                                .transparency = 128,
                                .additional = {std::nullopt, 1, 2}}},
                    .user_data_bits = 21};
    for (uint8_t dimension : {1, 2, 3})
        s.texture_definitions.push_back({.dimension = dimension, .wrapping = {1, 2, 3}});
    TextureDefinitionFields rich{.doubles = {0.5, 2},
                                 .bytes = {1, 2, 3},
                                 .mapping_type = 3,
                                 .functions = {4, 0},
                                 .flags = 0x02,
                                 .transformation = TextureTransformationFields{}};
    s.texture_definitions.push_back(rich);
    for (uint8_t b : {0x00, 0x23, 0x1A, 0x4D, 0x7F}) {
        rich.transformation = TextureTransformationFields{.first = true, .behaviour = b};
        s.texture_definitions.push_back(rich);
    }
    return s;
}

TEST(Globals, EmptySectionStartsFromAFreshState) {
    // Whatever the reader held, a reuse bit at the start finds the empty name
    // and the graphics are unset.
    PRCBitWriter w;
    writeGlobals(w, kOldVersion, {.name = std::nullopt});
    PRCBitReader r = readerOn(w, kOldVersion);
    r.current_name = "stale";
    r.current_graphics = {3, 3, 3};
    const PRCGlobals g = readFileStructureGlobals(r);
    EXPECT_EQ(r.bitIndex(), w.bitCount());
    EXPECT_TRUE(g.schema_entity_types.empty() && g.colors.empty() && g.materials.empty() && g.styles.empty() &&
                g.reference_coordinate_systems.empty());
    EXPECT_EQ(r.current_name, "");
    EXPECT_EQ(r.current_graphics.line_style_index, 0xFFFFFFFFu);
    EXPECT_EQ(r.current_graphics.behaviour, 1u);
}

TEST(Globals, KeptTablesBehindEveryDroppedOne) {
    GlobalsFields s = busyGlobals();
    s.colors = {{1, 0, 0}, {0, 0.5, 1}, {0.25, 0.75, 2}};
    s.materials = {{.ambient = 1,
                    .diffuse = 2,
                    .emissive = 0,
                    .specular = 3,
                    .shininess = 0.5,
                    .ambient_alpha = 0.25,
                    .diffuse_alpha = 0.75,
                    .emissive_alpha = 0,
                    .specular_alpha = 2},
                   MaterialFields::textureApplication(1),
                   MaterialFields::textureApplication(0)};
    s.styles = {StyleFields::color(0), StyleFields::material(2), s.styles[0]};
    s.styles[0].line_width = 0.25;
    s.reference_coordinate_systems = {
        RepresentationItemFields::coordinateSystem(CartesianFields{.behaviour = 0x01, .origin = {4, 5, 6}}),
        RepresentationItemFields{.graphics = {.style_plus_one = 9}},
        RepresentationItemFields::set(
            {RepresentationItemFields::coordinateSystem(CartesianFields{.behaviour = 0x08})})};

    for (uint32_t version : {kOldVersion, kNewVersion}) {
        const PRCGlobals g = readBack(s, version);
        EXPECT_EQ(g.schema_entity_types, (std::vector<uint32_t>{310, 311}));
        ASSERT_EQ(g.colors.size(), 3u);
        EXPECT_EQ((Vec3{g.colors[2].red, g.colors[2].green, g.colors[2].blue}), (Vec3{0.25, 0.75, 2}));  // not clamped

        ASSERT_EQ(g.materials.size(), 3u);
        const PRCMaterial& m = g.materials[0];
        EXPECT_EQ((std::array<int64_t, 4>{m.ambient, m.diffuse, m.emissive, m.specular}),
                  (std::array<int64_t, 4>{0, 1, -1, 2}));
        EXPECT_EQ(
            (std::array<double, 5>{m.shininess, m.ambient_alpha, m.diffuse_alpha, m.emissive_alpha, m.specular_alpha}),
            (std::array<double, 5>{0.5, 0.25, 0.75, 0, 2}));
        EXPECT_EQ(g.materials[1].diffuse, 1);  // the texture application copies the material it names
        EXPECT_EQ(g.materials[1].specular_alpha, 2.0);
        EXPECT_EQ(g.materials[2].diffuse, -1);  // none named: the default

        ASSERT_EQ(g.styles.size(), 3u);
        EXPECT_EQ(g.styles[0].line_width, 0.25);
        EXPECT_FALSE(g.styles[0].is_material);
        EXPECT_EQ(g.styles[0].color_material_index, -1);
        EXPECT_TRUE(g.styles[1].is_material);
        EXPECT_EQ(g.styles[1].color_material_index, 1);
        EXPECT_EQ(g.styles[2].color_material_index, 0);

        // Only a coordinate system has a matrix; any other item (a set of one
        // included) gives the identity.
        EXPECT_EQ(
            g.reference_coordinate_systems,
            (std::vector<Matrix4>{{1, 0, 0, 4, 0, 1, 0, 5, 0, 0, 1, 6, 0, 0, 0, 1}, kIdentityMatrix, kIdentityMatrix}));
    }
}

TEST(Globals, TextureApplicationCopiesOnlyAnEarlierMaterial) {
    GlobalsFields s{.materials = {{.diffuse = 5, .shininess = 0.5, .ambient_alpha = 0.5},
                                  MaterialFields::textureApplication(2),
                                  MaterialFields::textureApplication(1)}};
    const PRCGlobals g = readBack(s);
    ASSERT_EQ(g.materials.size(), 3u);
    const PRCMaterial& fallback = g.materials[1];  // names itself: not read yet
    EXPECT_EQ((std::array<int64_t, 4>{fallback.ambient, fallback.diffuse, fallback.emissive, fallback.specular}),
              (std::array<int64_t, 4>{-1, -1, -1, -1}));
    EXPECT_EQ((std::array<double, 5>{fallback.shininess, fallback.ambient_alpha, fallback.diffuse_alpha,
                                     fallback.emissive_alpha, fallback.specular_alpha}),
              (std::array<double, 5>{0, 1, 1, 1, 1}));
    EXPECT_EQ(g.materials[2].diffuse, 4);
    EXPECT_EQ(g.materials[2].ambient_alpha, 0.5);
}

TEST(Globals, Failures) {
    const struct {
        GlobalsFields fields;
        std::string message;
    } cases[] = {
        {{.type = 302}, "unexpected type for FileStructureGlobals: expected 303, got 302"},
        {{.materials = {{.type = 703}}}, "readMaterial: unexpected material type: 703"},
        // well-formed otherwise: any fill pattern at all is refused
        {{.fill_patterns = 1}, "readFileStructureGlobals: unhandled fill patterns (no reference)"},
        {{.texture_definitions = {{.mapping_operator = 3}}},
         "readTextureDefinition: unhandled texture mapping operator (never seen in real files)"},
        {{.reference_coordinate_systems = {{.type = 241}}}, "readRepresentationItem: unhandled type (241)"},
        {{.pictures = {{.type = 702}}}, "unexpected type for PRCPicture: expected 703, got 702"},
        {{.texture_definitions = {{.type = 711}}}, "unexpected type for PRCTextureDefinition: expected 712, got 711"},
        {{.texture_definitions = {{.transformation = TextureTransformationFields{.type = 712}}}},
         "unexpected type for PRCTextureTransformation: expected 713, got 712"},
        {{.line_patterns = {{.type = 722}}}, "unexpected type for PRCLinePattern: expected 721, got 722"},
        {{.styles = {{.type = 702}}}, "unexpected type for PRCStyle: expected 701, got 702"},
    };
    for (const auto& c : cases) EXPECT_EQ(failure(c.fields), c.message);

    GlobalsFields s = busyGlobals();
    s.materials = {MaterialFields{}};
    s.reference_coordinate_systems = {RepresentationItemFields{}};
    for (const char* list :
         {"Globals.schema", "Schema.tokens", "Globals.referenced_file_structures", "Globals.fonts", "Font.sizes",
          "Globals.colors", "Globals.pictures", "Globals.texture_definitions", "TextureDefinition.doubles",
          "TextureDefinition.bytes", "Globals.materials", "Globals.line_patterns", "LinePattern.lengths",
          "Globals.styles", "Globals.reference_coordinate_systems", "Attributes"})
        expectHostileCountFails(
            list, [&](PRCBitWriter& w) { writeGlobals(w, kOldVersion, s); }, kOldVersion,
            [](PRCBitReader& r) { readFileStructureGlobals(r); });
}

}  // namespace
}  // namespace prc::test
