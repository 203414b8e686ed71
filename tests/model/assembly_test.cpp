#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <tuple>

#include "model/assembly.h"
#include "model/decoded_output.h"
#include "model/style_color.h"

namespace model {
namespace {

using prc::PRCFileStructure;
using prc::PRCProductOccurrence;

constexpr uint32_t kRed = 0xFFFF0000, kGreen = 0xFF00FF00, kBlue = 0xFF0000FF;
constexpr uint32_t kRedStyle = 0, kGreenStyle = 1, kBlueStyle = 2;

prc::PRCRepresentationItem itemDrawing(int64_t tessellation) {
    prc::PRCRepresentationItem item;
    item.type = 237;
    item.index_tessellation = tessellation;
    return item;
}

// A loaded file structure whose style i is colour i of red, green, blue, with
// the triangle (0,0,0) (1,0,0) (0,1,0) as tessellation 0 and one part drawing it.
PRCFileStructure oneTriangleFileStructure() {
    PRCFileStructure fs;
    fs.tree_loaded = true;
    fs.globals.colors = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    for (int i = 0; i < 3; ++i) fs.globals.styles.push_back({1.0, false, i});
    fs.tessellations.resize(1);
    fs.tessellations[0].coordinates = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    fs.tessellations[0].triangulated_indices = {0, 3, 6};
    fs.tessellations[0].faces.resize(1);
    fs.tessellations[0].faces[0].used_entities_flag = 0x0002;
    fs.tessellations[0].faces[0].sizes_triangulated = {1};
    fs.tessellation_refs.push_back({prc::TessellationKind::Tess3D, 0});
    fs.part_definitions.resize(1);
    fs.part_definitions[0].representation_items.push_back(itemDrawing(0));
    return fs;
}

PRCProductOccurrence occurrence(std::string name = "", int64_t part = -1, std::vector<uint32_t> sons = {},
                                const prc::Matrix4* location = nullptr) {
    PRCProductOccurrence o;
    o.name = std::move(name);
    o.index_part = part;
    o.son_product_occurrences = std::move(sons);
    o.has_location = location != nullptr;
    if (location) o.location = *location;
    return o;
}

AssemblyContext contextOf(std::vector<PRCFileStructure> structures) {
    AssemblyContext ctx;
    for (size_t i = 0; i < structures.size(); ++i) {
        ctx.header.file_structures.emplace_back();
        ctx.header.file_structures.back().identifier = {uint32_t(i + 1), 0x11, 0x22, 0x33};
    }
    ctx.file_structures = std::move(structures);
    return ctx;
}

PreviewMesh walk(AssemblyContext& ctx, int64_t fs = 0, uint32_t colour = 0) {
    PreviewMesh mesh;
    assembleOccurrence(ctx, fs, 0, 0xFFFFFFFF, prc::kIdentityMatrix.data(), 0, colour, mesh);
    return mesh;
}

std::string failureOf(AssemblyContext& ctx) {
    try {
        walk(ctx);
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "";
}

uint32_t triangleColour(const PreviewMesh& m, uint32_t t) { return packColor(&m.colors[3 * m.triangles[3 * t]]); }

prc::Matrix4 translated(double x) { return {1, 0, 0, x, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}; }
const prc::Matrix4 kAtFive = translated(5);

// No real file places a part mirrored: its triangles turn round, so that
// they keep their winding.
TEST(Assembly, AMirrorKeepsTheWinding) {
    AssemblyContext ctx = contextOf({oneTriangleFileStructure()});
    const prc::Matrix4 mirror = {-1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    ctx.file_structures[0].product_occurrences = {occurrence("root", -1, {1, 2}), occurrence("a", 0), occurrence("m", 0, {}, &mirror)};
    EXPECT_EQ(walk(ctx).triangles, (std::vector<uint32_t>{0, 1, 2, 3, 5, 4}));
}

TEST(Assembly, PrototypeChainGivesWhatTheOccurrenceLacks) {
    AssemblyContext ctx = contextOf({oneTriangleFileStructure()});
    auto& occs = ctx.file_structures[0].product_occurrences;
    const prc::Matrix4 far = translated(100);
    occs = {occurrence(), occurrence("", -1, {}, &kAtFive), occurrence("named", 0, {3}, &far), occurrence("son")};
    occs[0].index_prototype = 1;
    occs[1].index_prototype = 2;
    occs[1].line_style_index = kBlueStyle;
    occs[2].line_style_index = kGreenStyle;  // hidden by the nearer one, as its placement
    PreviewMesh m = walk(ctx);
    ASSERT_EQ(m.nodes.size(), 2u);
    EXPECT_EQ(std::tuple(m.nodes[0].name, m.nodes[1].name, m.positions[0], triangleColour(m, 0)),
              std::tuple("named", "son", 5.0f, kBlue));

    // Its own prototype, with nothing: the parent's colour and placement.
    occs = {occurrence("root", -1, {1}, &kAtFive), occurrence("", 0)};
    occs[1].index_prototype = 1;
    m = walk(ctx, 0, kGreen);
    EXPECT_EQ(std::pair(triangleColour(m, 0), m.positions[0]), std::pair(kGreen, 5.0f));
    // A straight chain of 70 (occurrence i has prototype i + 1): searches stop after 65 looks.
    for (size_t found : {64, 65}) {
        SCOPED_TRACE(found);
        occs.clear();
        for (int i = 0; i < 70; ++i) {
            occs.push_back(occurrence("", 0, {}, size_t(i) == found ? &kAtFive : nullptr));
            occs.back().index_prototype = i + 1 < 70 ? i + 1 : -1;
        }
        occs[found + 1].name = "deep";  // the name search starts at occurrence 1
        m = walk(ctx);
        EXPECT_EQ(m.positions[0], found == 64 ? 5.0f : 0.0f);
        EXPECT_EQ(m.nodes[0].name, found == 64 ? "deep" : "");
    }
}

TEST(Assembly, ConfigurationChoice) {
    struct Case {
        std::vector<uint8_t> flags, behaviours;  // of sons 1..n, walked in list order
        std::vector<std::string> walked;
    };
    const Case cases[] = {
        {{8, 8, 8}, {0, 0, 0}, {"s1"}},                    // none is the default: the first
        {{8, 9, 8}, {0, 0, 0}, {"s2"}},                    // the default one
        {{0, 8, 9, 0}, {0, 0, 0, 0}, {"s1", "s3", "s4"}},  // plain sons always
        {{0, 0}, {1, 2}, {"s2"}},                          // behaviour bit 0: left out
        {{1, 8}, {0, 0}, {"s1", "s2"}},                    // a default bit alone is no configuration
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
        std::vector<std::string> names;
        for (const AssemblyNode& n : walk(ctx).nodes) names.push_back(n.name);
        names.erase(names.begin());
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
    const PreviewMesh m = walk(ctx, 0, kGreen);
    EXPECT_EQ(std::tuple(triangleColour(m, 0), triangleColour(m, 1), triangleColour(m, 2)), std::tuple(kBlue, kRed, kRed));
}

// Pieces are built once per tessellation and colour and placed many times:
// the one instance in blue keeps its colour. Refs that lead nowhere draw nothing.
TEST(Assembly, PiecesLocalSystemsAndSets) {
    AssemblyContext ctx = contextOf({oneTriangleFileStructure()});
    PRCFileStructure& fs = ctx.file_structures[0];
    fs.product_occurrences.push_back(occurrence("root"));
    for (uint32_t i = 1; i <= 1000; ++i) {
        const prc::Matrix4 at = translated(i);
        fs.product_occurrences[0].son_product_occurrences.push_back(i);
        fs.product_occurrences.push_back(occurrence("", 0, {}, &at));
    }
    fs.product_occurrences[500].line_style_index = kBlueStyle;
    const PreviewMesh many = walk(ctx, 0, kRed);
    ASSERT_EQ(many.triangles.size(), 3000u);
    EXPECT_EQ(std::tuple(triangleColour(many, 498), triangleColour(many, 499), triangleColour(many, 500)),
              std::tuple(kRed, kBlue, kRed));

    fs.tessellation_refs.push_back({prc::TessellationKind::Dropped, 0});
    fs.tessellation_refs.push_back({prc::TessellationKind::Tess3D, 5});
    fs.tessellation_refs.push_back({prc::TessellationKind::Compressed, 0});
    fs.part_definitions[0].representation_items = {itemDrawing(1), itemDrawing(2), itemDrawing(3), itemDrawing(4)};
    EXPECT_TRUE(walk(ctx).triangles.empty());

    // A set's own system does not move its children; its colour reaches them.
    fs.globals.reference_coordinate_systems.push_back({1, 0, 0, 0, 0, 1, 0, 50, 0, 0, 1, 0, 0, 0, 0, 1});
    prc::PRCRepresentationItem set;
    set.type = 239;
    set.index_local_coordinate_system = 0;
    set.line_style_index = kRedStyle;
    set.items = {itemDrawing(0), itemDrawing(0)};
    set.items[0].index_local_coordinate_system = 0;
    set.items[1].index_local_coordinate_system = 3;  // beyond the list: the part's matrix
    fs.part_definitions[0].representation_items = {set};
    fs.product_occurrences = {occurrence("o", 0)};
    const PreviewMesh m = walk(ctx, 0, kGreen);
    ASSERT_EQ(m.triangles.size(), 6u);
    EXPECT_EQ(std::tuple(m.positions[1], m.positions[10], triangleColour(m, 0), triangleColour(m, 1)),
              std::tuple(50.0f, 0.0f, kRed, kRed));
}

TEST(Assembly, PrototypesAcrossFileStructuresByIdentifier) {
    PRCFileStructure first = oneTriangleFileStructure(), second = oneTriangleFileStructure();
    second.globals.colors = {{0, 0, 0}};
    second.tessellations[0].coordinates = {0, 0, 5, 1, 0, 5, 0, 1, 5};
    second.product_occurrences = {occurrence("in second", 0)};
    second.product_occurrences[0].line_style_index = 0;
    first.product_occurrences = {occurrence()};
    first.product_occurrences[0].index_prototype = 0;
    first.product_occurrences[0].prototype_in_same_file_structure = false;
    AssemblyContext ctx = contextOf({first, second, PRCFileStructure()});
    ctx.header.file_structures[2].identifier = ctx.header.file_structures[1].identifier;  // the first match counts
    ctx.file_structures[0].product_occurrences[0].prototype_file_structure = ctx.header.file_structures[1].identifier;
    const PreviewMesh m = walk(ctx);
    ASSERT_EQ(m.nodes.size(), 1u);
    // The second file structure's tessellation, black from its globals.
    EXPECT_EQ(std::tuple(m.nodes[0].name, m.positions[2], triangleColour(m, 0)), std::tuple("in second", 5.0f, 0xFF000000u));

    // No descriptor with that identifier, or an unloaded tree: the chain ends.
    AssemblyContext unmatched = ctx;
    unmatched.file_structures[0].product_occurrences[0].prototype_file_structure = {9, 9, 9, 9};
    EXPECT_EQ(walk(unmatched).nodes[0].name, "");
    ctx.file_structures[1].tree_loaded = false;
    EXPECT_TRUE(walk(ctx).triangles.empty());
    EXPECT_TRUE(walk(ctx, 1).nodes.empty());  // nor is it walked itself
}

// (The node and triangle bounds are the hostile suite's.) Skipped sons and
// items that draw nothing cost steps on every visit.
TEST(Assembly, VertexAndStepBounds) {
    AssemblyContext ctx = contextOf({oneTriangleFileStructure()});
    auto& occs = ctx.file_structures[0].product_occurrences;
    occs = {occurrence("root", -1, std::vector<uint32_t>(10, 1)), occurrence("leaf", 0)};
    ctx.limits.max_vertices = 30;
    EXPECT_EQ(walk(ctx).triangles.size(), 30u);  // exactly at the limit
    ctx.limits.max_vertices = 29;
    EXPECT_EQ(failureOf(ctx), "assieme PRC: troppi vertici");

    ctx.limits = AssemblyLimits();
    occs[1].son_product_occurrences.assign(1000, 77);
    ctx.file_structures[0].part_definitions[0].representation_items.assign(1000, prc::PRCRepresentationItem());
    ctx.limits.max_steps = 10 * 3000 + 20;
    ctx.steps = 0;
    EXPECT_EQ(walk(ctx).nodes.size(), 11u);
    ctx.steps = 0;
    ctx.limits.max_steps -= 1;
    EXPECT_EQ(failureOf(ctx), "assieme PRC: struttura troppo grande");
}

TEST(Assembly, CompressedPiecesTakeStylesPerFaceOrPerTriangle) {
    // Two triangles that share no vertex, of faces 1 and 0: the second starts a
    // chain of three new points once status 0 has closed the first.
    prc::PRC3DTessCompressed encoded;
    encoded.tolerance = 1.0;
    encoded.must_recalculate_normals = true;
    encoded.point_array = {0, 0, 0, 2, 0, 0, 0, 1, 0, 5, 0, 0, 1, 0, 0, 0, 1, 0};
    encoded.triangle_face_array = {1, 0};
    encoded.normal_is_reversed = {true, true};
    encoded.edge_status_array = {0};
    encoded.point_is_reference_array.assign(6, false);
    const PRCFileStructure globals = oneTriangleFileStructure();
    const uint8_t blue[3] = {0, 0, 255};
    auto colours = [&](const prc::PRC3DTessCompressed& record) {
        prc::TessMesh piece;
        buildCompressedTessPiece(piece, record, globals.globals, blue);
        std::vector<uint32_t> out;  // per corner, in triangle order
        for (uint32_t v : piece.triangles) out.push_back(packColor(&piece.colors[3 * v]));
        return out;
    };
    prc::PRC3DTessCompressed record = encoded;
    EXPECT_EQ(colours(record), std::vector<uint32_t>(6, kBlue));
    record.style_array = {int16_t(kGreenStyle + 1), 0};  // face 0 green, face 1 no style
    EXPECT_EQ(colours(record), (std::vector<uint32_t>{kBlue, kBlue, kBlue, kGreen, kGreen, kGreen}));
    record.style_per_triangle = true;
    record.style_array = {int16_t(kRedStyle + 1), 40};  // 40 does not resolve: the default
    EXPECT_EQ(colours(record), (std::vector<uint32_t>{kRed, kRed, kRed, kBlue, kBlue, kBlue}));

    // Drawn through a ref and cached; a broken record draws nothing, without failing.
    AssemblyContext ctx = contextOf({oneTriangleFileStructure()});
    PRCFileStructure& fs = ctx.file_structures[0];
    fs.compressed_tessellations = {encoded};
    fs.tessellation_refs = {{prc::TessellationKind::Compressed, 0}};
    fs.product_occurrences = {occurrence("o", 0)};
    EXPECT_EQ(walk(ctx).triangles.size(), 6u);
    fs.compressed_tessellations[0].point_array.resize(2);
    fs.piece_cache.clear();
    EXPECT_TRUE(walk(ctx).triangles.empty());
}

// The output keeps the node records only when their triangle ranges lie
// inside the triangles and do not overlap.
TEST(DecodedOutput, InconsistentRangesDropEveryRecord) {
    struct Case {
        const char* what;
        uint32_t triangles;
        std::vector<std::pair<uint32_t, uint32_t>> ranges;
        bool kept;
    };
    const Case cases[] = {
        {"range beyond the array", 25, {{0, 5}, {20, 10}}, false},
        {"range ending exactly at the array end", 30, {{0, 5}, {20, 10}}, true},
        {"overlap after sorting", 40, {{20, 10}, {0, 21}}, false},
        {"unsorted but disjoint", 40, {{30, 10}, {0, 5}, {5, 25}}, true},
        {"first + count overflows 32 bits", 10, {{0xFFFFFFF0u, 0x20}}, false},
        {"empty ranges anywhere are ignored", 4, {{0, 4}, {1000, 0}, {2, 0}}, true},
        {"two nodes with the same start", 10, {{3, 1}, {3, 2}}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        PreviewMesh mesh;
        for (uint32_t i = 0; i < 3 * c.triangles; ++i) {
            mesh.triangles.push_back(i);
            mesh.positions.insert(mesh.positions.end(), {float(i), 0, 0});
        }
        for (auto [first, count] : c.ranges) {
            mesh.nodes.emplace_back();
            mesh.nodes.back().parent_index = mesh.nodes.size() == 1 ? 0xFFFFFFFF : 0;
            mesh.nodes.back().first_triangle = first;
            mesh.nodes.back().triangle_count = count;
        }
        DecodedModel out;
        std::memset(&out, 0, sizeof out);
        ASSERT_TRUE(buildDecodedOutput(mesh, true, &out));
        EXPECT_EQ(out.triangle_count, c.triangles);
        EXPECT_EQ(out.part_count, c.kept ? c.ranges.size() : 0u);
        EXPECT_EQ(out.part_records != nullptr, c.kept);
        EXPECT_EQ(out.colors[3 * 3 * c.triangles - 1], 255);  // missing colours are white
        for (void* block : {(void*)out.positions, (void*)out.triangles, (void*)out.colors, (void*)out.part_records})
            std::free(block);
    }
}

}  // namespace
}  // namespace model
