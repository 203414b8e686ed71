#include <gtest/gtest.h>

#include "prc/tess/face_triangulation.h"

// The real files draw triangles, fans and strips, with normals and textures
// in their index lists, faces at their own starts and faces in styles; what
// they never do is held here: faces that run out of indices or claim more
// than they hold, vertices beyond the piece, colours per strip vertex.

namespace prc {
namespace {

using Bytes = std::vector<uint8_t>;
using Triangles = std::vector<uint32_t>;

// `vertices` vertices, and an index list whose value at position p names vertex p (point index 3 p).
PRC3DTess tessWith(size_t positions, size_t vertices = 10, bool must_recalculate_normals = true) {
    PRC3DTess tess;
    for (size_t v = 0; v < vertices; ++v) tess.coordinates.insert(tess.coordinates.end(), {double(v), 0.5, -1.0});
    for (size_t p = 0; p < positions; ++p) tess.triangulated_indices.push_back(uint32_t(3 * p));
    tess.must_recalculate_normals = must_recalculate_normals;
    return tess;
}

PRCTessFace face(uint32_t flags, std::vector<uint32_t> sizes, uint32_t start = 0, Bytes colours = {}) {
    PRCTessFace f;
    f.used_entities_flag = flags;
    f.start_triangulated = start;
    f.sizes_triangulated = std::move(sizes);
    f.has_vertex_colors = !colours.empty();
    f.rgba_vertices = std::move(colours);
    return f;
}

TessMesh triangulate(const PRC3DTess& tess, const uint8_t* rgb = nullptr, FaceTriangulationReport* report = nullptr,
                     const PRCGlobals& globals = PRCGlobals()) {
    return appendFaceTriangles(tess, globals, rgb, report);
}

TEST(AppendFaceTriangles, AFaceThatRunsOutEndsAloneKeepingItsWholeTriangles) {
    PRC3DTess tess = tessWith(8);
    // Needs 6 + 4 positions; a start past the end draws nothing; the face after them still draws.
    tess.faces = {face(0x0002, {2}), face(0x0004, {1, 4}, 6, Bytes(12, 9)), face(0x0002, {1}, 100), face(0x0002, {1}, 1)};
    FaceTriangulationReport report;
    TessMesh mesh = triangulate(tess, nullptr, &report);
    EXPECT_EQ(mesh.triangles, (Triangles{0, 1, 2, 3, 4, 5, 1, 2, 3}));
    EXPECT_TRUE(report.stopped);
    EXPECT_EQ(mesh.colors, Bytes(30, 255));  // the failing triangle wrote no colour
    tess.faces.resize(2);
    tess.triangulated_indices.insert(tess.triangulated_indices.end(), {24, 27});
    EXPECT_EQ(triangulate(tess, nullptr, &report).triangles.size(), 12u);
    EXPECT_FALSE(report.stopped);

    // Huge sizes, and faces that reuse the same indices without end, are cut
    // at one triangle per index value.
    tess = tessWith(9);
    for (const PRCTessFace& huge : {face(0x0002, {0xFFFFFFFF}), face(0x0004, {1, 0xFFFFFFFF})}) {
        tess.faces = {huge};
        EXPECT_EQ(triangulate(tess, nullptr, &report).triangles.size(), huge.used_entities_flag == 2 ? 9u : 21u);
        EXPECT_TRUE(report.stopped);
    }
    tess.faces.assign(20, face(0x0002, {3}));
    EXPECT_EQ(triangulate(tess, nullptr, &report).triangles.size(), 3u * 9);
    EXPECT_TRUE(report.stopped);
}

TEST(AppendFaceTriangles, VertexColoursComeFromTheirEntries) {
    // A strip of four: one entry per vertex, four bytes each.
    PRC3DTess tess = tessWith(4, 4);
    tess.faces = {face(0x0008, {1, 4}, 0, {10, 11, 12, 99, 20, 21, 22, 99, 30, 31, 32, 99, 40, 41, 42, 99})};
    tess.faces[0].is_rgba = true;
    EXPECT_EQ(triangulate(tess).colors, (Bytes{10, 11, 12, 20, 21, 22, 30, 31, 32, 40, 41, 42}));

    // Triangles colour each corner: a vertex shared by corners keeps the last.
    PRC3DTess shared = tessWith(0, 3);
    shared.triangulated_indices = {0, 3, 6, 6, 3, 0};
    shared.faces = {face(0x0002, {2}, 0, {1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4, 5, 5, 5, 6, 6, 6})};
    EXPECT_EQ(triangulate(shared).colors, (Bytes{6, 6, 6, 5, 5, 5, 4, 4, 4}));
    // Entries missing from the colour list leave the vertex as it was.
    shared.faces[0].rgba_vertices.resize(3 * 4 + 2);
    const uint8_t rgb[3] = {7, 8, 9};
    EXPECT_EQ(triangulate(shared, rgb).colors, (Bytes{1, 1, 1, 2, 2, 2, 4, 4, 4}));
}

// A vertex beyond the piece would name another piece's vertex once merged:
// such a triangle is dropped, its in-range corners still take their colours.
TEST(AppendFaceTriangles, TrianglesNamingAVertexBeyondThePieceAreDropped) {
    PRC3DTess tess = tessWith(0, 3);
    tess.triangulated_indices = {0, 3, 30, 3, 6, 0, 0, 3, 6};
    tess.faces = {face(0x0002, {1}, 0, {1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4, 5, 5, 5, 6, 6, 6, 7, 7, 7, 8, 8, 8, 9, 9, 9})};
    FaceTriangulationReport report;
    TessMesh mesh = triangulate(tess, nullptr, &report);
    EXPECT_TRUE(mesh.triangles.empty());
    EXPECT_EQ(report.dropped_triangles, 1u);
    EXPECT_FALSE(report.stopped);
    EXPECT_EQ(mesh.colors, (Bytes{1, 1, 1, 2, 2, 2, 255, 255, 255}));
    tess.faces[0].sizes_triangulated = {3};  // the triangles after it are kept
    EXPECT_EQ(triangulate(tess, nullptr, &report).triangles, (Triangles{1, 2, 0, 0, 1, 2}));
    tess.triangulated_indices[2] = 9;  // exactly 3 x the vertex count is the first one out
    triangulate(tess, nullptr, &report);
    EXPECT_EQ(report.dropped_triangles, 1u);
    tess.triangulated_indices[2] = 8;  // vertex 2, not 2.67
    EXPECT_EQ(triangulate(tess, nullptr, &report).triangles.size(), 9u);
    EXPECT_EQ(report.dropped_triangles, 0u);
}

}  // namespace
}  // namespace prc
