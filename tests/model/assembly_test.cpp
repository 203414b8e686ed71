#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "model/assembly.h"
#include "model/style_color.h"
#include "tests/support/compressed_tess_encoder.h"

namespace model {
namespace {

using prc::PRCFileStructure;
using prc::PRCProductOccurrence;

constexpr uint32_t kRed = 0xFFFF0000, kGreen = 0xFF00FF00, kBlue = 0xFF0000FF;

// One triangle (0,0,0) (1,0,0) (0,1,0), one face of plain triangles.
prc::PRC3DTess unitTriangle() {
    prc::PRC3DTess t;
    t.coordinates = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    t.triangulated_indices = {0, 3, 6};
    prc::PRCTessFace face;
    face.used_entities_flag = 0x0002;
    face.sizes_triangulated = {1};
    t.faces.push_back(face);
    return t;
}

// Globals whose style i is colour i of red, green, blue.
prc::PRCGlobals rgbGlobals() {
    prc::PRCGlobals g;
    g.colors = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    for (int i = 0; i < 3; ++i) g.styles.push_back({1.0, false, i});
    return g;
}
constexpr uint32_t kRedStyle = 0, kGreenStyle = 1, kBlueStyle = 2;

prc::PRCRepresentationItem itemDrawing(int64_t tessellation) {
    prc::PRCRepresentationItem item;
    item.type = 237;
    item.index_tessellation = tessellation;
    return item;
}

// A loaded file structure with the unit triangle as tessellation 0 and one
// part definition drawing it.
PRCFileStructure oneTriangleFileStructure() {
    PRCFileStructure fs;
    fs.tree_loaded = true;
    fs.globals = rgbGlobals();
    fs.tessellations.push_back(unitTriangle());
    fs.tessellation_refs.push_back({prc::TessellationKind::Tess3D, 0});
    prc::PRCPartDefinition part;
    part.representation_items.push_back(itemDrawing(0));
    fs.part_definitions.push_back(part);
    return fs;
}

PRCProductOccurrence occurrence(std::string name = "", int64_t part = -1, std::vector<uint32_t> sons = {}) {
    PRCProductOccurrence o;
    o.name = std::move(name);
    o.index_part = part;
    o.son_product_occurrences = std::move(sons);
    return o;
}

AssemblyContext contextOf(std::vector<PRCFileStructure> structures) {
    AssemblyContext ctx;
    for (size_t i = 0; i < structures.size(); ++i) {
        prc::FileStructureDescriptor d;
        d.identifier = {uint32_t(i + 1), 0x11, 0x22, 0x33};
        ctx.header.file_structures.push_back(d);
    }
    ctx.file_structures = std::move(structures);
    return ctx;
}

PreviewMesh walk(AssemblyContext& ctx, int64_t fs = 0, int64_t occ = 0, uint32_t colour = 0) {
    PreviewMesh mesh;
    assembleOccurrence(ctx, fs, occ, 0xFFFFFFFF, prc::kIdentityMatrix.data(), 0, colour, mesh);
    return mesh;
}

uint32_t triangleColour(const PreviewMesh& m, uint32_t t) { return packColor(&m.colors[3 * m.triangles[3 * t]]); }

prc::Matrix4 translated(double x, double y, double z) { return {1, 0, 0, x, 0, 1, 0, y, 0, 0, 1, z, 0, 0, 0, 1}; }

void place(PRCProductOccurrence& o, const prc::Matrix4& m) {
    o.has_location = true;
    o.location = m;
}

std::string failureOf(AssemblyContext& ctx) {
    try {
        walk(ctx);
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "";
}

TEST(Assembly, NodesPlacementsColoursAndBoxes) {
    AssemblyContext ctx = contextOf({oneTriangleFileStructure()});
    auto& occs = ctx.file_structures[0].product_occurrences;
    occs = {occurrence("root", -1, {1, 2, 9}), occurrence("a", 0), occurrence("b", 0)};  // son 9 does not exist
    place(occs[1], translated(10, 20, 30));
    occs[2].line_style_index = kGreenStyle;
    PreviewMesh m = walk(ctx, 0, 0, kRed);

    ASSERT_EQ(m.nodes.size(), 3u);
    EXPECT_EQ(m.nodes[0].parent_index, 0xFFFFFFFFu);
    EXPECT_EQ(m.nodes[0].triangle_count, 0u);
    EXPECT_EQ(m.nodes[2].parent_index, 0u);
    EXPECT_EQ(m.nodes[2].first_triangle, 1u);
    EXPECT_EQ(m.nodes[2].triangle_count, 1u);
    EXPECT_EQ((std::vector<float>(m.positions.begin() + 3, m.positions.begin() + 6)),
              (std::vector<float>{11, 20, 30}));
    EXPECT_EQ(triangleColour(m, 0), kRed);    // inherited
    EXPECT_EQ(triangleColour(m, 1), kGreen);  // its own style
    EXPECT_EQ(m.triangles, (std::vector<uint32_t>{0, 1, 2, 3, 4, 5}));
    // Each leaf's box is its own triangle, the root's covers both.
    EXPECT_EQ(m.nodes[1].box_min[0], 10.0f);
    EXPECT_EQ(m.nodes[1].box_max[1], 21.0f);
    EXPECT_EQ(m.nodes[0].box_min[0], 0.0f);
    EXPECT_EQ(m.nodes[0].box_max[0], 11.0f);
    EXPECT_EQ(m.nodes[0].box_max[2], 30.0f);

    // A node with neither part nor sons: no triangles and an all-zero box.
    occs[0].son_product_occurrences.clear();
    PreviewMesh alone = walk(ctx);
    ASSERT_EQ(alone.nodes.size(), 1u);
    EXPECT_EQ(alone.nodes[0].box_min[0] + alone.nodes[0].box_max[0], 0.0f);
}

TEST(Assembly, PrototypeChainGivesWhatTheOccurrenceLacks) {
    AssemblyContext ctx = contextOf({oneTriangleFileStructure()});
    auto& occs = ctx.file_structures[0].product_occurrences;
    occs = {occurrence(), occurrence(), occurrence("named", 0, {3}), occurrence("son")};
    occs[0].index_prototype = 1;
    occs[1].index_prototype = 2;
    occs[1].line_style_index = kBlueStyle;
    place(occs[1], translated(5, 0, 0));
    place(occs[2], translated(100, 0, 0));  // hidden by the nearer one
    occs[2].line_style_index = kGreenStyle;
    PreviewMesh m = walk(ctx);

    ASSERT_EQ(m.nodes.size(), 2u);
    EXPECT_EQ(m.nodes[0].name, "named");
    EXPECT_EQ(m.nodes[0].triangle_count, 1u);
    EXPECT_EQ(m.positions[0], 5.0f);
    EXPECT_EQ(triangleColour(m, 0), kBlue);
    EXPECT_EQ(m.nodes[1].name, "son");
    // The followers start at the prototype, not at the occurrence itself.
    int64_t fs = -1, part = -1;
    EXPECT_FALSE(findPartDefinition(ctx, 0, 2, fs, part));
    EXPECT_EQ(resolveOccurrenceName(ctx, 0, 2), "");
}

TEST(Assembly, ChainSearchesStopAfterSixtyFiveLooks) {
    {
        // Its own prototype, with nothing: the parent's colour and placement.
        AssemblyContext ctx = contextOf({oneTriangleFileStructure()});
        auto& occs = ctx.file_structures[0].product_occurrences;
        occs = {occurrence("root", -1, {1}), occurrence("", 0)};
        place(occs[0], translated(7, 0, 0));
        occs[1].index_prototype = 1;
        PreviewMesh m = walk(ctx, 0, 0, kGreen);
        EXPECT_EQ(m.nodes[1].name, "");
        EXPECT_EQ(triangleColour(m, 0), kGreen);
        EXPECT_EQ(m.positions[0], 7.0f);
    }
    // A straight chain of 70: occurrence i has prototype i + 1.
    for (int far : {64, 65}) {
        SCOPED_TRACE(far);
        AssemblyContext ctx = contextOf({oneTriangleFileStructure()});
        auto& occs = ctx.file_structures[0].product_occurrences;
        for (int i = 0; i < 70; ++i) {
            occs.push_back(occurrence("", 0));
            occs.back().index_prototype = i + 1 < 70 ? i + 1 : -1;
        }
        place(occs[size_t(far)], translated(3, 0, 0));
        occs[size_t(far) + 1].name = "deep";  // the name search starts at occurrence 1
        PreviewMesh m = walk(ctx);
        EXPECT_EQ(m.positions[0], far == 64 ? 3.0f : 0.0f);
        EXPECT_EQ(m.nodes[0].name, far == 64 ? "deep" : "");
    }
}

TEST(Assembly, DepthIsBoundedAtSixtyFour) {
    AssemblyContext ctx = contextOf({oneTriangleFileStructure()});
    auto& occs = ctx.file_structures[0].product_occurrences;
    for (uint32_t i = 0; i < 70; ++i) occs.push_back(occurrence("n" + std::to_string(i), 0, {i + 1}));
    PreviewMesh m = walk(ctx);
    ASSERT_EQ(m.nodes.size(), 65u);  // depths 0 to 64
    for (uint32_t i = 1; i < 65; ++i) EXPECT_EQ(m.nodes[i].parent_index, i - 1);
    EXPECT_EQ(m.nodes[64].name, "n64");
}

TEST(Assembly, ConfigurationChoice) {
    struct Case {
        std::vector<uint8_t> flags, behaviours;  // of sons 1..n, walked in list order
        std::vector<std::string> walked;
    };
    const Case cases[] = {
        {{8, 8, 8}, {0, 0, 0}, {"s1"}},                      // none is the default: the first
        {{8, 9, 8}, {0, 0, 0}, {"s2"}},                      // the default one
        {{0, 8, 9, 0}, {0, 0, 0, 0}, {"s1", "s3", "s4"}},    // plain sons always
        {{0, 0}, {1, 2}, {"s2"}},                            // behaviour bit 0: left out
        {{1, 8}, {0, 0}, {"s1", "s2"}},                      // a default bit alone is no configuration
    };
    for (const Case& c : cases) {
        AssemblyContext ctx = contextOf({oneTriangleFileStructure()});
        auto& occs = ctx.file_structures[0].product_occurrences;
        occs.push_back(occurrence("root"));
        for (size_t i = 0; i < c.flags.size(); ++i) {
            occs[0].son_product_occurrences.push_back(uint32_t(i + 1));
            occs.push_back(occurrence("s" + std::to_string(i + 1)));
            occs.back().product_information_flags = c.flags[i];
            occs.back().product_behaviour = c.behaviours[i];
        }
        PreviewMesh m = walk(ctx);
        std::vector<std::string> names;
        for (size_t i = 1; i < m.nodes.size(); ++i) names.push_back(m.nodes[i].name);
        EXPECT_EQ(names, c.walked);
    }
}

TEST(Assembly, SonsGetTheNodeColourNotThePartColour) {
    AssemblyContext ctx = contextOf({oneTriangleFileStructure()});
    PRCFileStructure& fs = ctx.file_structures[0];
    fs.part_definitions.push_back(fs.part_definitions[0]);
    fs.part_definitions[1].line_style_index = kBlueStyle;
    fs.product_occurrences = {occurrence("parent", 1, {1, 2}), occurrence("son", 0), occurrence("odd son", 0)};
    fs.product_occurrences[0].line_style_index = kRedStyle;
    fs.product_occurrences[2].line_style_index = 77;  // no such style: the incoming colour stays
    PreviewMesh m = walk(ctx, 0, 0, kGreen);
    EXPECT_EQ(triangleColour(m, 0), kBlue);
    EXPECT_EQ(triangleColour(m, 1), kRed);
    EXPECT_EQ(triangleColour(m, 2), kRed);
}

TEST(Assembly, MirroredPlacementSwapsTheWinding) {
    AssemblyContext ctx = contextOf({oneTriangleFileStructure()});
    auto& occs = ctx.file_structures[0].product_occurrences;
    occs = {occurrence("root", -1, {1, 2}), occurrence("plain", 0), occurrence("mirror", 0)};
    place(occs[2], {-1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
    PreviewMesh m = walk(ctx);
    EXPECT_EQ(m.triangles, (std::vector<uint32_t>{0, 1, 2, 3, 5, 4}));
    EXPECT_EQ(m.positions[12], -1.0f);
}

TEST(Assembly, PieceCacheHoldsOneEntryPerTessellationAndColour) {
    AssemblyContext ctx = contextOf({oneTriangleFileStructure()});
    auto& occs = ctx.file_structures[0].product_occurrences;
    occs.push_back(occurrence("root"));
    for (uint32_t i = 1; i <= 1000; ++i) {
        occs[0].son_product_occurrences.push_back(i);
        occs.push_back(occurrence("", 0));
        place(occs.back(), translated(i, 0, 0));
    }
    PreviewMesh m = walk(ctx);
    EXPECT_EQ(ctx.file_structures[0].piece_cache.size(), 1u);
    EXPECT_EQ(m.triangles.size(), 3000u);
    EXPECT_EQ(m.nodes[0].box_max[0], 1001.0f);
    occs[500].line_style_index = kBlueStyle;
    walk(ctx);
    EXPECT_EQ(ctx.file_structures[0].piece_cache.size(), 2u);

    // Refs that lead nowhere are cached as empty pieces and draw nothing.
    PRCFileStructure& fs = ctx.file_structures[0];
    fs.tessellation_refs.push_back({prc::TessellationKind::Dropped, 0});
    fs.tessellation_refs.push_back({prc::TessellationKind::Tess3D, 5});
    fs.tessellation_refs.push_back({prc::TessellationKind::Compressed, 0});
    fs.part_definitions[0].representation_items = {itemDrawing(1), itemDrawing(2), itemDrawing(3), itemDrawing(4)};
    fs.piece_cache.clear();
    EXPECT_TRUE(walk(ctx).triangles.empty());
    EXPECT_EQ(fs.piece_cache.size(), 6u);  // refs 1 to 3 in two colours; item 4 names no ref
}

TEST(Assembly, LocalCoordinateSystemsAndItemSets) {
    AssemblyContext ctx = contextOf({oneTriangleFileStructure()});
    PRCFileStructure& fs = ctx.file_structures[0];
    fs.globals.reference_coordinate_systems.push_back(translated(0, 50, 0));
    prc::PRCRepresentationItem set;
    set.type = 239;
    set.index_local_coordinate_system = 0;  // a set's own system does not move its children
    set.line_style_index = kRedStyle;
    set.items = {itemDrawing(0), itemDrawing(0)};
    set.items[0].index_local_coordinate_system = 0;
    set.items[1].index_local_coordinate_system = 3;  // beyond the list: the part's matrix
    fs.part_definitions[0].representation_items = {set};
    fs.product_occurrences.push_back(occurrence("o", 0));
    PreviewMesh m = walk(ctx, 0, 0, kGreen);
    ASSERT_EQ(m.triangles.size(), 6u);
    EXPECT_EQ(m.positions[1], 50.0f);
    EXPECT_EQ(m.positions[10], 0.0f);
    EXPECT_EQ(triangleColour(m, 0), kRed);  // the set's colour reaches its children
    EXPECT_EQ(triangleColour(m, 1), kRed);
}

TEST(Assembly, PrototypesAcrossFileStructuresByIdentifier) {
    PRCFileStructure first = oneTriangleFileStructure();
    PRCFileStructure second = oneTriangleFileStructure();
    second.globals.colors = {{0, 0, 0}};
    second.globals.styles = {{1.0, false, 0}};
    second.tessellations[0].coordinates = {0, 0, 5, 1, 0, 5, 0, 1, 5};
    second.product_occurrences = {occurrence("in second", 0)};
    second.product_occurrences[0].line_style_index = 0;
    first.product_occurrences = {occurrence()};
    first.product_occurrences[0].index_prototype = 0;
    first.product_occurrences[0].prototype_in_same_file_structure = false;
    AssemblyContext ctx = contextOf({first, second, PRCFileStructure()});
    ctx.header.file_structures[2].identifier = ctx.header.file_structures[1].identifier;  // the first match counts
    ctx.file_structures[0].product_occurrences[0].prototype_file_structure = ctx.header.file_structures[1].identifier;

    PreviewMesh m = walk(ctx);
    ASSERT_EQ(m.nodes.size(), 1u);
    EXPECT_EQ(m.nodes[0].name, "in second");
    EXPECT_EQ(m.positions[2], 5.0f);               // the second file structure's tessellation
    EXPECT_EQ(triangleColour(m, 0), 0xFF000000u);  // black from the second's globals
    EXPECT_TRUE(ctx.file_structures[0].piece_cache.empty());

    // No descriptor with that identifier, or an unloaded tree: the chain ends.
    AssemblyContext unmatched = ctx;
    unmatched.file_structures[0].product_occurrences[0].prototype_file_structure = {9, 9, 9, 9};
    EXPECT_EQ(walk(unmatched).nodes[0].name, "");
    AssemblyContext unloaded = ctx;
    unloaded.file_structures[1].tree_loaded = false;
    EXPECT_TRUE(walk(unloaded).triangles.empty());
    EXPECT_TRUE(walk(unloaded, 1).nodes.empty());  // nor is it walked itself
}

TEST(Assembly, Limits) {
    AssemblyContext ctx = contextOf({oneTriangleFileStructure()});
    auto& occs = ctx.file_structures[0].product_occurrences;
    occs = {occurrence("root"), occurrence("leaf")};
    occs[0].son_product_occurrences.assign(199999, 1);
    EXPECT_EQ(walk(ctx).nodes.size(), 200000u);
    occs[0].son_product_occurrences.push_back(1);
    EXPECT_EQ(failureOf(ctx), "assieme PRC: troppi nodi");

    occs[0].son_product_occurrences.assign(10, 1);
    occs[1].index_part = 0;
    ctx.limits.max_triangles = 10;
    EXPECT_EQ(walk(ctx).triangles.size(), 30u);  // exactly at the limit
    ctx.limits.max_triangles = 9;
    EXPECT_EQ(failureOf(ctx), "assieme PRC: troppi triangoli");
    ctx.limits = AssemblyLimits();
    ctx.limits.max_vertices = 29;
    EXPECT_EQ(failureOf(ctx), "assieme PRC: troppi vertici");

    // Skipped sons and items that draw nothing cost time on every visit.
    ctx.limits = AssemblyLimits();
    occs[1].son_product_occurrences.assign(1000, 77);
    ctx.file_structures[0].part_definitions[0].representation_items.assign(1000, prc::PRCRepresentationItem());
    ctx.limits.max_steps = 10 * 3000 + 20;
    ctx.steps = 0;
    EXPECT_EQ(walk(ctx).nodes.size(), 11u);
    ctx.steps = 0;
    ctx.limits.max_steps -= 1;
    EXPECT_EQ(failureOf(ctx), "assieme PRC: struttura troppo grande");
    EXPECT_EQ(AssemblyLimits().max_triangles, 20000000u);
    EXPECT_EQ(AssemblyLimits().max_nodes, 200000u);
}

// Two triangles that share no vertex, faces 0 and 1.
prc::PRC3DTessCompressed twoSeparateTriangles() {
    prc::test::EncoderMesh mesh;
    mesh.points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {5, 0, 0}, {6, 0, 0}, {5, 1, 0}};
    mesh.triangles = {{0, 1, 2}, {3, 4, 5}};
    mesh.face_ids = {0, 1};
    prc::test::EncoderOptions options;
    options.tolerance = 1.0 / 1024;
    return prc::test::encodeCompressedTess(mesh, options).record;
}

TEST(Assembly, CompressedPiecesTakeStylesPerFaceOrPerTriangle) {
    const prc::PRCGlobals globals = rgbGlobals();
    const uint8_t blue[3] = {0, 0, 255};
    auto colours = [&](const prc::PRC3DTessCompressed& record) {
        prc::TessMesh piece;
        buildCompressedTessPiece(piece, record, globals, blue);
        std::vector<uint32_t> out;  // per corner, in triangle order
        for (uint32_t v : piece.triangles) out.push_back(packColor(&piece.colors[3 * v]));
        return out;
    };
    prc::PRC3DTessCompressed record = twoSeparateTriangles();
    const bool faceOfFirstIsZero = record.triangle_face_array[0] == 0;
    EXPECT_EQ(colours(record), std::vector<uint32_t>(6, kBlue));
    record.style_array = {int16_t(kGreenStyle + 1), 0};  // face 0 green, face 1 no style
    const uint32_t first = faceOfFirstIsZero ? kGreen : kBlue, second = faceOfFirstIsZero ? kBlue : kGreen;
    EXPECT_EQ(colours(record), (std::vector<uint32_t>{first, first, first, second, second, second}));
    record.style_per_triangle = true;
    record.style_array = {int16_t(kRedStyle + 1), 40};  // 40 does not resolve: the default
    EXPECT_EQ(colours(record), (std::vector<uint32_t>{kRed, kRed, kRed, kBlue, kBlue, kBlue}));

    // Drawn through a ref and cached; a broken record draws nothing, without failing.
    AssemblyContext ctx = contextOf({oneTriangleFileStructure()});
    PRCFileStructure& fs = ctx.file_structures[0];
    fs.compressed_tessellations = {twoSeparateTriangles()};
    fs.tessellation_refs = {{prc::TessellationKind::Compressed, 0}};
    fs.product_occurrences = {occurrence("o", 0)};
    EXPECT_EQ(walk(ctx).triangles.size(), 6u);
    fs.compressed_tessellations[0].point_array.resize(2);
    fs.piece_cache.clear();
    EXPECT_TRUE(walk(ctx).triangles.empty());
    EXPECT_EQ(fs.piece_cache.size(), 1u);
}

}  // namespace
}  // namespace model
