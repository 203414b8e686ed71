// Meshes encoded by the test encoder (an independent implementation of the
// traversal) must decode to themselves: same triangles with the encoded
// winding, positions within the quantisation, every array used up.

#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "prc/io/bit_reader.h"
#include "prc/tess/compressed_tess_mesh.h"
#include "tests/support/compressed_tess_encoder.h"
#include "tests/support/prc_tess_writer.h"

namespace prc {
namespace {

using test::ChainStartChoice;
using test::EncodedTess;
using test::EncoderMesh;
using test::EncoderOptions;

bool isRotationOf(const std::array<uint32_t, 3>& a, const std::array<uint32_t, 3>& b) {
    for (int k = 0; k < 3; ++k)
        if (a[0] == b[k] && a[1] == b[(k + 1) % 3] && a[2] == b[(k + 2) % 3]) return true;
    return false;
}

Vec3 at(const std::vector<double>& pos, uint32_t i) { return {pos[3 * i], pos[3 * i + 1], pos[3 * i + 2]}; }

// Decodes `enc` and checks it against the mesh it was made from.
void expectRoundTrip(const EncoderMesh& mesh, const EncoderOptions& options, const EncodedTess& enc) {
    CompressedTessRun run = CompressedTessRun::TieRetry;
    const CompressedTessResult res = buildCompressedTessMesh(enc.record, &run);
    EXPECT_EQ(run, CompressedTessRun::First);
    EXPECT_TRUE(consumedExactly(res, enc.record));
    ASSERT_EQ(res.triangles, enc.expected_triangles);
    ASSERT_EQ(res.positions, enc.expected_positions);  // bit for bit

    // Against the input: positions within half a step along each frame axis.
    const double reach = options.tolerance * std::sqrt(3.0) / 2 * (1 + 1e-6) + 1e-12;
    for (uint32_t d = 0; d < enc.input_point.size(); ++d) {
        const test::EncoderVec& p = mesh.points[enc.input_point[d]];
        const Vec3 off = sub(at(res.positions, d), {p.x, p.y, p.z});
        ASSERT_LE(std::sqrt(dot(off, off)), reach) << "point " << d;
    }
    // Every input triangle once; the winding as input unless the decoded
    // triangle has no area to orient by.
    std::set<uint32_t> seen;
    uint32_t mismatches = 0;
    for (size_t t = 0; t < res.triangles.size() / 3; ++t) {
        const uint32_t src = enc.input_triangle[t];
        EXPECT_TRUE(seen.insert(src).second);
        const std::array<uint32_t, 3> got{enc.input_point[res.triangles[3 * t]],
                                          enc.input_point[res.triangles[3 * t + 1]],
                                          enc.input_point[res.triangles[3 * t + 2]]};
        const auto& want = mesh.triangles[src];
        if (!isRotationOf(got, want)) {
            ++mismatches;
            EXPECT_TRUE(isRotationOf({got[0], got[2], got[1]}, want));
            EXPECT_FALSE(options.must_recalculate_normals);
            const Vec3 a = at(res.positions, res.triangles[3 * t]), n = cross(sub(at(res.positions, res.triangles[3 * t + 1]), a),
                                                                              sub(at(res.positions, res.triangles[3 * t + 2]), a));
            EXPECT_LT(std::sqrt(dot(n, n)), 1e3 * options.tolerance * options.tolerance)
                << "triangle " << t << " is not degenerate but lost its winding";
        }
    }
    EXPECT_EQ(seen.size(), mesh.triangles.size());
    EXPECT_EQ(mismatches, enc.winding_mismatches);

    // The same record through the bit-level form and its reader, arrays plain and Huffman-coded.
    for (const bool huffman : {false, true}) {
        test::PRCBitWriter w;
        test::writePRC3DTessCompressed(w, 8137, enc.record, huffman);
        PRCBitReader reader(w.bytes().data(), w.bytes().size(), 8137);
        const PRC3DTessCompressed back = readPRC3DTessCompressed(reader, 8137);
        EXPECT_EQ(std::tie(back.point_array, back.edge_status_array, back.triangle_face_array,
                           back.point_is_reference_array, back.point_reference_array, back.normal_binary_data,
                           back.normal_angle_array),
                  std::tie(enc.record.point_array, enc.record.edge_status_array, enc.record.triangle_face_array,
                           enc.record.point_is_reference_array, enc.record.point_reference_array,
                           enc.record.normal_binary_data, enc.record.normal_angle_array));
        EXPECT_EQ(buildCompressedTessMesh(back).triangles, res.triangles);
    }
}

EncodedTess encodeAndCheck(const EncoderMesh& mesh, const EncoderOptions& options) {
    EncodedTess enc = test::encodeCompressedTess(mesh, options);
    expectRoundTrip(mesh, options, enc);
    return enc;
}

EncoderOptions withNormals(uint8_t bits, ChainStartChoice choice = ChainStartChoice::LowestUnvisited,
                           uint64_t seed = 1) {
    return {.must_recalculate_normals = false, .normal_angle_number_of_bits = bits, .chain_start = choice, .seed = seed};
}

TEST(CompressedTessMeshRoundTrip, ClosedMeshesWithReversedBits) {
    EncoderMesh mesh = test::makeIcosphereMesh(3, 1.0);
    appendMesh(mesh, test::makeTorusMesh(24, 12, 2.0, 0.5, {5.0, 0.0, 0.0}));
    const EncodedTess enc = encodeAndCheck(mesh, {.origin = {0.25f, -1.5f, 3.0f}});
    EXPECT_EQ(enc.winding_mismatches, 0u);
    EXPECT_GT(enc.edge_statuses[0], 0u);
    EXPECT_GT(enc.edge_statuses[3], 0u);
}

// Every chain start, and every pattern of reference bits at a chain start.
TEST(CompressedTessMeshRoundTrip, OpenGridsWithHolesEveryChainStart) {
    std::array<uint32_t, 8> patterns{};
    for (uint64_t seed = 1; seed <= 6; ++seed) {
        EncoderMesh mesh = test::makeGridMesh(30, 20, 0.15, seed);
        appendMesh(mesh, test::makeGridMesh(6, 6, 0.3, seed + 100, 2.0));
        for (ChainStartChoice choice : {ChainStartChoice::LowestUnvisited, ChainStartChoice::MostBuiltCorners,
                                        ChainStartChoice::Random}) {
            SCOPED_TRACE(::testing::Message() << "seed " << seed << " choice " << int(choice));
            const EncodedTess enc = encodeAndCheck(mesh, {.tolerance = 1e-4, .chain_start = choice, .seed = seed});
            for (int p = 0; p < 8; ++p) patterns[p] += enc.chain_start_patterns[p];
        }
    }
    for (int p = 0; p < 8; ++p) EXPECT_GT(patterns[p], 0u) << "pattern " << p;
}

TEST(CompressedTessMeshRoundTrip, EncodedNormalsFlatSmoothAndSingleFaces) {
    // Flat shading of a curved surface: every corner wants its own face
    // normal, so every point collects a list of normals.
    EncoderMesh flat = test::makeIcosphereMesh(2, 3.0);
    const EncodedTess a = encodeAndCheck(flat, withNormals(12));
    EXPECT_EQ(a.winding_mismatches, 0u);
    EXPECT_GT(a.kind2_vertices, 0u);

    // A grid folded along a crease, flat on both sides: the points on the
    // crease keep two normals and keep picking them out of their lists.
    EncoderMesh fold = test::makeGridMesh(12, 8, 0.0, 9);
    const test::EncoderVec up{0.0, 0.0, 1.0};
    const test::EncoderVec tilted{-0.6, 0.0, 0.8};
    for (auto& p : fold.points) {
        p.z = p.x > 0.55 ? (p.x - 0.6) * 0.75 : 0.0;
    }
    for (const auto& t : fold.triangles) {
        const bool right = fold.points[t[0]].x + fold.points[t[1]].x + fold.points[t[2]].x > 3 * 0.6;
        fold.corner_normals.push_back({right ? tilted : up, right ? tilted : up, right ? tilted : up});
    }
    const EncodedTess f = encodeAndCheck(fold, withNormals(9, ChainStartChoice::Random, 4));
    EXPECT_GT(f.kind2_reuses, 0u);

    // Smooth shading: one normal per point, decoded once.
    EncoderMesh smooth = test::makeTorusMesh(30, 16, 2.0, 0.6);
    test::setSmoothCornerNormals(smooth);
    const EncodedTess b = encodeAndCheck(smooth, withNormals(10, ChainStartChoice::Random, 7));
    EXPECT_EQ(b.winding_mismatches, 0u);
    EXPECT_EQ(b.kind2_vertices, 0u);

    // A planar grid in faces of 2 x 2 cells, half of them single-normal.
    EncoderMesh grid = test::makeGridMesh(16, 16, 0.0, 3);
    for (auto& p : grid.points) {
        p.z = 0.0;
    }
    for (size_t t = 0; t < grid.triangles.size(); ++t) {
        const size_t cell = t / 2;
        grid.face_ids.push_back(static_cast<int32_t>((cell % 16) / 2 + 8 * ((cell / 16) / 2)));
    }
    for (int f = 0; f < 64; ++f) {
        grid.face_has_single_normal.push_back(f % 2 == 0);
    }
    const EncodedTess c = encodeAndCheck(grid, withNormals(8, ChainStartChoice::MostBuiltCorners, 5));
    EXPECT_GT(c.single_normal_reuses, 0u);
    EXPECT_EQ(c.winding_mismatches, 0u);
}

// A strip whose points all lie on the x axis, at coordinates the tolerance
// steps hit exactly: every triangle decodes with no area at all, so the edge
// frames and orientations meet exact ties.
EncoderMesh collinearStrip(uint32_t n, double x0) {
    EncoderMesh m;
    for (uint32_t i = 0; i <= n; ++i) {
        m.points.push_back({x0 + i, 0.0, 0.0});
        m.points.push_back({x0 + i + 0.5, 0.0, 0.0});
    }
    for (uint32_t i = 0; i < n; ++i) {
        m.triangles.push_back({2 * i, 2 * i + 2, 2 * i + 1});
        m.triangles.push_back({2 * i + 2, 2 * i + 3, 2 * i + 1});
    }
    return m;
}

TEST(CompressedTessMeshRoundTrip, DegenerateTrianglesAndCoincidentPoints) {
    for (const bool recalc : {true, false}) {
        SCOPED_TRACE(recalc ? "reversed bits" : "encoded normals");
        EncoderMesh mesh = test::makeGridMesh(12, 12, 0.0, 11);
        // Coincident points (distinct indices) and a collapsed row of cells:
        // edges of (nearly) no length and triangles of (nearly) no area.
        for (uint32_t i = 0; i <= 12; ++i) {
            mesh.points[5 * 13 + i] = mesh.points[4 * 13 + i];
            mesh.points[9 * 13 + i].y = mesh.points[8 * 13 + i].y;
            mesh.points[9 * 13 + i].z = mesh.points[8 * 13 + i].z;
        }
        mesh.points[100] = mesh.points[101];
        // A component whose first triangle has two coincident corners: they
        // decode exactly equal (a zero delta), and the normal frame fails.
        EncoderMesh pinched = test::makeGridMesh(3, 3, 0.0, 2, 5.0);
        pinched.points[1] = pinched.points[0];
        appendMesh(mesh, pinched);
        appendMesh(mesh, collinearStrip(6, -4.0));

        EncoderOptions o = recalc ? EncoderOptions{} : withNormals(11);
        o.tolerance = 0.125;
        const EncodedTess enc = encodeAndCheck(mesh, o);
        if (!recalc) {
            EXPECT_GT(enc.failed_normal_frames, 0u);
            EXPECT_GT(enc.winding_mismatches, 0u);
        }
        // The strip meets ties in the edge frames and in the orientations.
        const CompressedTessResult res = runCompressedTessDecode(enc.record, false, -1);
        bool edge_tie = false;
        bool orientation_tie = false;
        for (int64_t key : res.tie_keys) {
            (key % 4 == 2 ? orientation_tie : edge_tie) = true;
        }
        EXPECT_TRUE(edge_tie);
        EXPECT_EQ(orientation_tie, !recalc);
    }
}

TEST(CompressedTessMeshRoundTrip, ManySeeds) {
    for (uint64_t seed = 20; seed < 40; ++seed) {
        EncoderMesh mesh = test::makeGridMesh(8 + seed % 7, 5 + seed % 5, 0.25, seed);
        appendMesh(mesh, test::makeIcosphereMesh(1, 0.5, {3.0, 3.0, 0.0}));
        if (seed % 2 == 0) {
            test::setSmoothCornerNormals(mesh);
        }
        EncoderOptions o = seed % 3 == 0 ? EncoderOptions{} : withNormals(static_cast<uint8_t>(4 + seed % 12));
        o.chain_start = static_cast<ChainStartChoice>(seed % 3);
        o.seed = seed;
        o.tolerance = seed % 4 == 0 ? 1e-2 : 1e-5;
        SCOPED_TRACE(::testing::Message() << "seed " << seed);
        encodeAndCheck(mesh, o);
    }
}

}  // namespace
}  // namespace prc
