#include <gtest/gtest.h>

#include "prc/tess/face_triangulation.h"

namespace prc {
namespace {

using Triangles = std::vector<uint32_t>;

// Ten vertices whose point indices are 3 v, and the given index list.
PRC3DTess tessWith(std::vector<uint32_t> indices, bool must_recalculate_normals = true, size_t vertices = 10) {
    PRC3DTess tess;
    for (size_t v = 0; v < vertices; ++v) tess.coordinates.insert(tess.coordinates.end(), {double(v), 0.5, -1.0});
    tess.triangulated_indices = std::move(indices);
    tess.must_recalculate_normals = must_recalculate_normals;
    return tess;
}

PRCTessFace face(uint32_t flags, std::vector<uint32_t> sizes) {
    PRCTessFace f;
    f.used_entities_flag = flags;
    f.sizes_triangulated = std::move(sizes);
    return f;
}

// An index list whose value at position p names vertex p (point index 3 p).
std::vector<uint32_t> identityIndices(size_t n) {
    std::vector<uint32_t> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = uint32_t(3 * i);
    return v;
}

TessMesh triangulate(const PRC3DTess& tess, const uint8_t* rgb = nullptr, FaceTriangulationReport* report = nullptr) {
    static const PRCGlobals no_globals;
    return appendFaceTriangles(tess, no_globals, rgb, report);
}

TEST(AppendFaceTriangles, WithoutFacesGivesPointsAndDefaultColours) {
    PRC3DTess tess = tessWith({}, true, 2);
    tess.coordinates.push_back(7.0);  // a coordinate that is no whole vertex
    TessMesh white = triangulate(tess);
    EXPECT_EQ(white.positions, (std::vector<float>{0, 0.5f, -1, 1, 0.5f, -1, 7}));
    EXPECT_EQ(white.colors, std::vector<uint8_t>(7, 255));
    EXPECT_TRUE(white.triangles.empty());

    const uint8_t rgb[3] = {1, 2, 3};
    EXPECT_EQ(triangulate(tess, rgb).colors, (std::vector<uint8_t>{1, 2, 3, 1, 2, 3, 255}));
}

TEST(AppendFaceTriangles, StrideFollowsNormalsAndTextures) {
    // Values at the positions that must be read name vertices 1, 2, 3; every
    // other position names vertex 9.
    auto indices = [](std::initializer_list<size_t> at) {
        std::vector<uint32_t> v(9, 27);
        uint32_t vertex = 1;
        for (size_t p : at) v[p] = 3 * vertex++;
        return v;
    };
    struct Case {
        uint32_t flags;
        bool recalculate;
        std::initializer_list<size_t> positions;
    };
    const Case cases[] = {
        {0x0002, false, {1, 3, 5}},  // normal, point
        {0x0002, true, {0, 1, 2}},   // point only
        {0x0202, false, {2, 5, 8}},  // normal, texture, point
        {0x0202, true, {1, 3, 5}},   // texture, point
    };
    for (const Case& c : cases) {
        PRC3DTess tess = tessWith(indices(c.positions), c.recalculate);
        tess.faces.push_back(face(c.flags, {1}));
        EXPECT_EQ(triangulate(tess).triangles, (Triangles{1, 2, 3})) << c.flags << " " << c.recalculate;
    }
}

TEST(AppendFaceTriangles, FansAndStripsKeepTheirWinding) {
    PRC3DTess fan = tessWith(identityIndices(5));
    fan.faces.push_back(face(0x0004, {5}));
    EXPECT_EQ(triangulate(fan).triangles, (Triangles{0, 1, 2, 0, 2, 3, 0, 3, 4}));

    PRC3DTess strip = tessWith(identityIndices(5));
    strip.faces.push_back(face(0x0008, {5}));
    EXPECT_EQ(triangulate(strip).triangles, (Triangles{0, 1, 2, 1, 2, 3, 2, 3, 4}));

    // Groups of two vertices or fewer yield nothing but still take their place.
    PRC3DTess groups = tessWith(identityIndices(10));
    groups.faces.push_back(face(0x0008, {2, 4}));
    EXPECT_EQ(triangulate(groups).triangles, (Triangles{2, 3, 4, 3, 4, 5}));
    groups.faces[0].sizes_triangulated = {0, 1, 3};
    EXPECT_EQ(triangulate(groups).triangles, (Triangles{1, 2, 3}));

    // Triangle bits win over fan and strip bits: sizes count triangles.
    PRC3DTess both = tessWith(identityIndices(6));
    both.faces.push_back(face(0x000E, {2}));
    EXPECT_EQ(triangulate(both).triangles, (Triangles{0, 1, 2, 3, 4, 5}));
}

TEST(AppendFaceTriangles, FacesFollowOneAnotherThroughTheIndexList) {
    // Sizes [1] then [2]: the second face starts at position 3.
    PRC3DTess tess = tessWith(identityIndices(9));
    tess.faces = {face(0x0002, {1}), face(0x0002, {2})};
    EXPECT_EQ(triangulate(tess).triangles, (Triangles{0, 1, 2, 3, 4, 5, 6, 7, 8}));

    // Faces that are not drawn still advance by stride x their sizes; an
    // empty face does not move.
    for (uint32_t skipped_flags : {0x0020u, 0x0001u, 0x0000u, 0x2002u, 0x10000u}) {
        PRC3DTess t = tessWith(identityIndices(10), false);
        t.faces = {face(skipped_flags, {1, 1}), face(0x0002, {}), face(0x0008, {3})};
        // Stride 2 (normals present, no textures): 2 x 2 skipped values, then
        // the strip's points at 5, 7, 9.
        EXPECT_EQ(triangulate(t).triangles, (Triangles{5, 7, 9})) << skipped_flags;
    }
}

TEST(AppendFaceTriangles, AShortIndexListKeepsWhatCameBefore) {
    PRC3DTess tess = tessWith(identityIndices(8));
    tess.faces = {face(0x0002, {2}), face(0x0004, {4})};  // needs 6 + 4 positions
    FaceTriangulationReport report;
    TessMesh mesh = triangulate(tess, nullptr, &report);
    EXPECT_EQ(mesh.triangles, (Triangles{0, 1, 2, 3, 4, 5}));
    EXPECT_TRUE(report.stopped);
    // The failing triangle wrote no colour and nothing after it runs: the
    // second face colours nothing.
    tess.faces[1].has_vertex_colors = true;
    tess.faces[1].rgba_vertices = std::vector<uint8_t>(12, 9);
    EXPECT_EQ(triangulate(tess).colors, std::vector<uint8_t>(30, 255));

    tess.triangulated_indices.resize(10);
    tess.triangulated_indices[8] = 3 * 8;
    tess.triangulated_indices[9] = 3 * 9;
    mesh = triangulate(tess, nullptr, &report);
    EXPECT_FALSE(report.stopped);
    EXPECT_EQ(mesh.triangles.size(), 12u);
}

TEST(AppendFaceTriangles, HugeSizesStopAtTheEndOfTheIndices) {
    PRC3DTess tess = tessWith(identityIndices(9));
    tess.faces = {face(0x0002, {0xFFFFFFFF}), face(0x0004, {0xFFFFFFFF}), face(0x0002, {1})};
    FaceTriangulationReport report;
    EXPECT_EQ(triangulate(tess, nullptr, &report).triangles.size(), 9u);
    EXPECT_TRUE(report.stopped);
    // Skipped faces of huge sizes only push the next face out of reach.
    tess.faces = {face(0x0020, {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}), face(0x0002, {1})};
    EXPECT_TRUE(triangulate(tess, nullptr, &report).triangles.empty());
    EXPECT_TRUE(report.stopped);
}

TEST(AppendFaceTriangles, VertexColoursComeFromTheirEntries) {
    // A strip of four: entries c + k, c + k + 1, c + k + 2.
    PRC3DTess tess = tessWith(identityIndices(4), true, 4);
    PRCTessFace f = face(0x0008, {4});
    f.has_vertex_colors = true;
    f.is_rgba = true;
    f.rgba_vertices = {10, 11, 12, 99, 20, 21, 22, 99, 30, 31, 32, 99, 40, 41, 42, 99};
    tess.faces.push_back(f);
    EXPECT_EQ(triangulate(tess).colors, (std::vector<uint8_t>{10, 11, 12, 20, 21, 22, 30, 31, 32, 40, 41, 42}));

    // Triangles colour each corner: a vertex shared by corners keeps the last.
    PRC3DTess shared = tessWith({0, 3, 6, 6, 3, 0}, true, 3);
    PRCTessFace g = face(0x0002, {2});
    g.has_vertex_colors = true;
    g.rgba_vertices = {1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4, 5, 5, 5, 6, 6, 6};
    shared.faces.push_back(g);
    EXPECT_EQ(triangulate(shared).colors, (std::vector<uint8_t>{6, 6, 6, 5, 5, 5, 4, 4, 4}));

    // Entries missing from the colour list leave the vertex as it was.
    shared.faces[0].rgba_vertices.resize(3 * 4 + 2);
    const uint8_t rgb[3] = {7, 8, 9};
    EXPECT_EQ(triangulate(shared, rgb).colors, (std::vector<uint8_t>{1, 1, 1, 2, 2, 2, 4, 4, 4}));
}

TEST(AppendFaceTriangles, FaceColourComesFromTheFirstLineAttribute) {
    PRCGlobals globals;
    globals.colors = {{0.0, 0.0, 1.0}, {1.0, 0.0, 0.0}};
    PRCStyle style;
    style.color_material_index = 1;
    globals.styles = {style};

    PRC3DTess tess = tessWith(identityIndices(3), true, 4);
    PRCTessFace f = face(0x0002, {1});
    f.line_attributes = {0, 0xFFFFFFFF};
    tess.faces.push_back(f);
    const uint8_t rgb[3] = {7, 8, 9};
    TessMesh mesh = appendFaceTriangles(tess, globals, rgb);
    EXPECT_EQ(mesh.colors, (std::vector<uint8_t>{255, 0, 0, 255, 0, 0, 255, 0, 0, 7, 8, 9}));

    // A style that leads nowhere gives the default colour, or white.
    tess.faces[0].line_attributes = {0xFFFFFFFF, 0};
    EXPECT_EQ(appendFaceTriangles(tess, globals, rgb).colors, (std::vector<uint8_t>{7, 8, 9, 7, 8, 9, 7, 8, 9, 7, 8, 9}));
    EXPECT_EQ(appendFaceTriangles(tess, globals, nullptr).colors, std::vector<uint8_t>(12, 255));

    // Faces with colours of their own ignore the style.
    tess.faces[0].line_attributes = {0};
    tess.faces[0].has_vertex_colors = true;
    tess.faces[0].rgba_vertices = {1, 1, 1, 2, 2, 2, 3, 3, 3};
    EXPECT_EQ(appendFaceTriangles(tess, globals, rgb).colors,
              (std::vector<uint8_t>{1, 1, 1, 2, 2, 2, 3, 3, 3, 7, 8, 9}));
}

// A vertex beyond the piece would name another piece's vertex once merged:
// such a triangle is dropped, its in-range corners still take their colours.
TEST(AppendFaceTriangles, TrianglesNamingAVertexBeyondThePieceAreDropped) {
    PRC3DTess tess = tessWith({0, 3, 30, 3, 6, 0, 0, 3, 6}, true, 3);
    PRCTessFace f = face(0x0002, {3});
    f.has_vertex_colors = true;
    f.rgba_vertices = {1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4, 5, 5, 5, 6, 6, 6, 7, 7, 7, 8, 8, 8, 9, 9, 9};
    tess.faces.push_back(f);
    // The first triangle alone: vertex 10 does not exist.
    tess.faces[0].sizes_triangulated = {1};
    FaceTriangulationReport report;
    TessMesh mesh = triangulate(tess, nullptr, &report);
    EXPECT_TRUE(mesh.triangles.empty());
    EXPECT_EQ(report.dropped_triangles, 1u);
    EXPECT_FALSE(report.stopped);
    EXPECT_EQ(mesh.colors, (std::vector<uint8_t>{1, 1, 1, 2, 2, 2, 255, 255, 255}));

    // The triangles after it are kept.
    tess.faces[0].sizes_triangulated = {3};
    mesh = triangulate(tess, nullptr, &report);
    EXPECT_EQ(mesh.triangles, (Triangles{1, 2, 0, 0, 1, 2}));
    EXPECT_EQ(report.dropped_triangles, 1u);
    // A point index of exactly 3 x the vertex count is the first one out.
    tess.triangulated_indices[2] = 9;
    mesh = triangulate(tess, nullptr, &report);
    EXPECT_EQ(report.dropped_triangles, 1u);
    tess.triangulated_indices[2] = 8;  // vertex 2, not 2.67
    EXPECT_EQ(triangulate(tess, nullptr, &report).triangles.size(), 9u);
    EXPECT_EQ(report.dropped_triangles, 0u);
}

}  // namespace
}  // namespace prc
