// Records written out by hand: which corner is which at a chain start, which
// edge an edge status continues on, what the closed-edge set drops, how the
// normals are coded, every failure message and the retry strategy.

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <string>

#include "prc/tess/compressed_tess_mesh.h"
#include "tests/support/compressed_tess_encoder.h"

namespace prc {
namespace {

// A record with tolerance 1 and origin 0, so that deltas are coordinates.
struct Rec {
    PRC3DTessCompressed r;
    Rec() { r.tolerance = 1.0, r.must_recalculate_normals = true; }
    template <typename V, typename T>
    Rec& add(V& v, std::initializer_list<T> values) { return v.insert(v.end(), values), *this; }
    Rec& points(std::initializer_list<int32_t> xyz) { return add(r.point_array, xyz); }
    Rec& bits(std::initializer_list<bool> b) { return add(r.point_is_reference_array, b); }
    Rec& refs(std::initializer_list<int32_t> v) { return add(r.point_reference_array, v); }
    Rec& statuses(std::initializer_list<uint8_t> s) { return add(r.edge_status_array, s); }
    // One triangle more, with its orientation bit.
    Rec& triangle(bool keep_order) { return r.normal_is_reversed.push_back(keep_order), add(r.triangle_face_array, {0}); }
};

// The first triangle used throughout: P0 = (0,0,0), P1 = P0 + (2,0,0),
// P2 = (P0 + P1) / 2 + (0,1,0) = (1,1,0).
Rec firstTriangle(bool keep_order = true) {
    return Rec().points({0, 0, 0, 2, 0, 0, 0, 1, 0}).triangle(keep_order).bits({false, false, false});
}

std::string errorOf(const PRC3DTessCompressed& r) {
    try {
        buildCompressedTessMesh(r);
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "no error";
}

std::vector<double> point(const CompressedTessResult& res, uint32_t i) {
    return {res.positions[3 * i], res.positions[3 * i + 1], res.positions[3 * i + 2]};
}

// The corners of the triangles from the (first + 1)th on.
std::vector<uint32_t> after(const CompressedTessResult& res, size_t first) {
    return {res.triangles.begin() + ptrdiff_t(3 * first), res.triangles.end()};
}

std::array<double, 3> xyz(const Vec3& v) { return {v.x, v.y, v.z}; }
using XYZ = std::array<double, 3>;

TEST(CompressedTessRecord, OneTriangleFromTheFirstThreeDeltas) {
    Rec rec;
    rec.points({1, 2, 3, 2, 0, 0, 0, 1, 0}).triangle(true);
    rec.r.point_origin = {10.0f, 20.0f, 30.0f};
    // No reference bits at all: the first three are implied, never read.
    CompressedTessResult res = buildCompressedTessMesh(rec.r);
    EXPECT_EQ(res.triangles, (std::vector<uint32_t>{0, 1, 2}));
    EXPECT_EQ(point(res, 0), (std::vector<double>{11, 22, 33}));
    EXPECT_EQ(point(res, 1), (std::vector<double>{13, 22, 33}));
    EXPECT_EQ(point(res, 2), (std::vector<double>{12, 23, 33}));
    EXPECT_EQ(res.reference_bits_used, 3u);
    EXPECT_FALSE(consumedExactly(res, rec.r));  // three bits counted, none stored
    rec.bits({true, true, true});
    EXPECT_TRUE(consumedExactly(buildCompressedTessMesh(rec.r), rec.r));

    rec.r.normal_is_reversed[0] = false;
    EXPECT_EQ(buildCompressedTessMesh(rec.r).triangles, (std::vector<uint32_t>{0, 2, 1}));

    // The tolerance scales every delta.
    rec.r.tolerance = 0.5;
    EXPECT_EQ(point(buildCompressedTessMesh(rec.r), 1), (std::vector<double>{11.5, 21, 31.5}));
}

TEST(CompressedTessRecord, TooFewOrNoPoints) {
    Rec rec;
    rec.points({0, 0, 0, 1, 0, 0}).triangle(true);
    EXPECT_EQ(errorOf(rec.r), "buildCompressedTessMesh: point_array esaurito");
    rec.r.point_array.clear();
    const CompressedTessResult empty = buildCompressedTessMesh(rec.r);
    EXPECT_TRUE(empty.positions.empty());
    EXPECT_TRUE(empty.triangles.empty());
    // No triangle at all: empty as well, whatever the points.
    Rec none;
    none.points({0, 0, 0, 1, 0, 0, 0, 1, 0});
    EXPECT_TRUE(buildCompressedTessMesh(none.r).triangles.empty());
}

// Triangle 1 starts a chain (status 0 closes both edges of triangle 0, the
// stack is empty) with reference bits b0 b1 b2. New points take the deltas
// (0,0,1), (0,0,2), (0,0,4) in order.
struct ChainCase {
    bool b0, b1, b2;
    std::vector<int32_t> refs;
    std::vector<uint32_t> corners;        // after the C0/C1 swap
    std::vector<std::vector<double>> new_points;
};

TEST(CompressedTessRecord, ChainStartsForEveryReferencePattern) {
    const std::vector<ChainCase> cases = {
        // Q0 = origin + d, Q1 = Q0 + d, Q2 = (Q0 + Q1) / 2 + d.
        {false, false, false, {}, {3, 4, 5}, {{0, 0, 1}, {0, 0, 3}, {0, 0, 6}}},
        // R = P2; Q1 = R + d; Q2 = (R + Q1) / 2 + d; corners (R, Q1, Q2).
        {true, false, false, {2}, {2, 3, 4}, {{1, 1, 1}, {1, 1, 2.5}}},
        // R = P1; Q0 = origin + d; Q2 = (Q0 + R) / 2 + d; (Q0, R, Q2) swapped.
        {false, true, false, {1}, {1, 3, 4}, {{0, 0, 1}, {1, 0, 2.5}}},
        // R = P0; Q0 = origin + d; Q1 = Q0 + d; (Q0, Q1, R).
        {false, false, true, {0}, {3, 4, 0}, {{0, 0, 1}, {0, 0, 3}}},
        // R1 = P2, R2 = P0; Q = origin + d; (Q, R1, R2) swapped.
        {false, true, true, {2, 0}, {2, 3, 0}, {{0, 0, 1}}},
        // R1 = P2, R2 = P1; Q = (R1 + R2) / 2 + d; (R1, R2, Q) swapped.
        {true, true, false, {2, 1}, {1, 2, 3}, {{1.5, 0.5, 1}}},
        // R1 = P2, R2 = P0; Q = R1 + d; (R1, Q, R2).
        {true, false, true, {2, 0}, {2, 3, 0}, {{1, 1, 1}}},
        // Three references (P2, P0, P1): (R0, R1, R2) swapped.
        {true, true, true, {2, 0, 1}, {0, 2, 1}, {}},
    };
    for (const ChainCase& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.b0 << c.b1 << c.b2);
        Rec rec = firstTriangle();
        rec.triangle(true).statuses({0}).bits({c.b0, c.b1, c.b2});
        rec.r.point_reference_array = c.refs;
        const int32_t deltas[3][3] = {{0, 0, 1}, {0, 0, 2}, {0, 0, 4}};
        for (size_t i = 0; i < c.new_points.size(); ++i) {
            rec.r.point_array.insert(rec.r.point_array.end(), deltas[i], deltas[i] + 3);
        }
        const CompressedTessResult res = buildCompressedTessMesh(rec.r);
        ASSERT_EQ(res.triangles.size(), 6u);
        EXPECT_EQ(after(res, 1), c.corners);
        for (size_t i = 0; i < c.new_points.size(); ++i) {
            EXPECT_EQ(point(res, static_cast<uint32_t>(3 + i)), c.new_points[i]) << "new point " << i;
        }
        EXPECT_TRUE(consumedExactly(res, rec.r));
    }
    // Too few bits left for a chain start.
    Rec rec = firstTriangle();
    rec.triangle(true).statuses({0}).bits({false, false});
    rec.points({0, 0, 1, 0, 0, 1, 0, 0, 1});
    EXPECT_EQ(errorOf(rec.r), "buildCompressedTessMesh: point_is_reference_array esaurito a inizio catena");
}

// After triangle 0 kept in order, X0 X1 X2 = P1 P0 P2: edge b = {P0, P2},
// edge a = {P1, P2}; reversed, X = P0 P1 P2: b = {P1, P2}, a = {P0, P2}.
// A zero delta puts the new point on the edge's midpoint.
TEST(CompressedTessRecord, EdgeStatusesChooseTheEdge) {
    struct Case {
        bool keep_order;
        uint8_t status;
        std::vector<uint32_t> second;
        std::vector<double> new_point;
    };
    const std::vector<Case> cases = {
        {true, 1, {0, 2, 3}, {0.5, 0.5, 0}},  // b
        {true, 2, {1, 2, 3}, {1.5, 0.5, 0}},  // a
        {true, 3, {1, 2, 3}, {1.5, 0.5, 0}},  // a first, b waits
        {false, 1, {1, 2, 3}, {1.5, 0.5, 0}},
        {false, 2, {0, 2, 3}, {0.5, 0.5, 0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << "order " << c.keep_order << " status " << int(c.status));
        Rec rec = firstTriangle(c.keep_order);
        rec.triangle(true).statuses({c.status}).bits({false}).points({0, 0, 0});
        const CompressedTessResult res = buildCompressedTessMesh(rec.r);
        EXPECT_EQ(after(res, 1), c.second);
        EXPECT_EQ(point(res, 3), c.new_point);
        EXPECT_TRUE(consumedExactly(res, rec.r));
    }
    // Status 3 then 0: the waiting edge b = {P0, P2} comes off the stack.
    Rec rec = firstTriangle();
    rec.triangle(true).triangle(true).statuses({3, 0}).bits({false, false}).points({0, 0, 0, 0, 0, 0});
    const CompressedTessResult res = buildCompressedTessMesh(rec.r);
    EXPECT_EQ(after(res, 2), (std::vector<uint32_t>{0, 2, 4}));
    EXPECT_EQ(point(res, 4), (std::vector<double>{0.5, 0.5, 0}));
    // A status beyond the array.
    Rec short_rec = firstTriangle();
    short_rec.triangle(true).bits({false}).points({0, 0, 0});
    EXPECT_EQ(errorOf(short_rec.r), "buildCompressedTessMesh: edge_status_array troppo corto");
}

TEST(CompressedTessRecord, ClosedEdgesAreDroppedFromTheStack) {
    // Status 3 leaves b = {P0, P2} waiting; triangle 1 is built on a with a
    // reference to P0, so it has the edge {P0, P2} too. Status 0 closes it,
    // and the waiting copy is dropped: a new chain starts instead.
    Rec rec = firstTriangle();
    rec.triangle(true).triangle(true).statuses({3, 0}).bits({true, false, false, false}).refs({0});
    rec.points({0, 0, 1, 0, 0, 1, 0, 0, 1});
    CompressedTessResult res = buildCompressedTessMesh(rec.r);
    EXPECT_EQ(after(res, 2), (std::vector<uint32_t>{3, 4, 5}));
    EXPECT_TRUE(consumedExactly(res, rec.r));
}

TEST(CompressedTessRecord, ReferenceFailures) {
    const auto withReference = [](int32_t ref) {
        Rec rec = firstTriangle();
        rec.triangle(true).statuses({1}).bits({true}).refs({ref});
        return rec;
    };
    EXPECT_EQ(errorOf(withReference(3).r), "buildCompressedTessMesh: riferimento fuori intervallo");
    EXPECT_EQ(errorOf(withReference(-1).r), "buildCompressedTessMesh: riferimento fuori intervallo");
    // A reference to a point of the record built later is taken as 0,0,0.
    Rec later = firstTriangle();
    later.points({5, 5, 5}).triangle(true).statuses({1}).bits({true}).refs({3});
    const CompressedTessResult res = runCompressedTessDecode(later.r, false, -1);
    EXPECT_EQ(point(res, 3), (std::vector<double>{0, 0, 0}));
    EXPECT_FALSE(consumedExactly(res, later.r));

    Rec no_refs = firstTriangle();
    no_refs.triangle(true).statuses({1}).bits({true});
    EXPECT_EQ(errorOf(no_refs.r), "buildCompressedTessMesh: point_reference_array esaurito");
    Rec no_bits = firstTriangle();
    no_bits.triangle(true).statuses({1}).points({0, 0, 0});
    EXPECT_EQ(errorOf(no_bits.r), "buildCompressedTessMesh: point_is_reference_array esaurito");
    Rec short_flags = firstTriangle();
    short_flags.triangle(true).statuses({1}).bits({false}).points({0, 0, 0});
    short_flags.r.normal_is_reversed.pop_back();
    EXPECT_EQ(errorOf(short_flags.r), "buildCompressedTessMesh: normal_is_reversed troppo corto");
}

// ---------------------------------------------------------------------------
// Encoded normals.

// A record in encoded-normal mode around the right-angled triangle
// C0 = (0,0,0), C1 = (1,0,0), C2 = (0,1,0): its frame is A = X, Y = Y, Z = Z.
PRC3DTessCompressed normalRecord(uint8_t bits, std::vector<bool> data, std::vector<uint16_t> angles) {
    PRC3DTessCompressed r;
    r.tolerance = 1.0;
    r.point_array = {0, 0, 0, 1, 0, 0, -1, 1, 0};
    r.triangle_face_array = {0};
    r.normal_angle_number_of_bits = bits;
    r.normal_binary_data = std::move(data);
    r.normal_angle_array = std::move(angles);
    return r;
}

const Corner kRight[3] = {{{0, 0, 0}, 0}, {{1, 0, 0}, 1}, {{0, 1, 0}, 2}};

// Normals prepared over such a record of three points and one face.
struct Prepared {
    PRC3DTessCompressed r;
    CompressedTessNormals n;
    Prepared(uint8_t bits, std::vector<bool> data, std::vector<uint16_t> angles)
        : r(normalRecord(bits, std::move(data), std::move(angles))) {
        n.prepareNormals(r, 3, 1, false);
    }
    Vec3 decode(bool b1, bool b2, bool b3, const Corner (&c)[3] = kRight) { return n.normals()[n.decodeNormal(b1, b2, b3, c)]; }
};

TEST(CompressedTessNormals, AngleQuantumAndTheFrameAxes) {
    CompressedTessNormals n;
    PRC3DTessCompressed r = normalRecord(1, {}, {});
    n.prepareNormals(r, 3, 1, false);
    EXPECT_EQ(n.angleQuantum(), kHalfPi);
    r.normal_angle_number_of_bits = 16;
    n.prepareNormals(r, 3, 1, false);
    EXPECT_EQ(n.angleQuantum(), kHalfPi / 65535);
    for (uint8_t bad : {0, 17}) {
        r.normal_angle_number_of_bits = bad;
        EXPECT_THROW(n.prepareNormals(r, 3, 1, false), std::runtime_error);
    }

    // alpha = beta = 0 gives A; b2 negates it. beta = pi/2 (1023 steps of
    // pi/2/1023) gives Z; b1 negates it.
    Prepared p(10, {}, {0, 0, 0, 0, 0, 1023, 0, 1023});
    EXPECT_EQ(xyz(p.decode(false, false, false)), (XYZ{1, 0, 0}));
    EXPECT_EQ(p.decode(false, true, false).x, -1.0);
    const Vec3 z = p.decode(false, false, false);
    EXPECT_NEAR(z.z, 1.0, 1e-15);
    EXPECT_NEAR(z.x, 0.0, 1e-15);
    EXPECT_NEAR(p.decode(true, false, false).z, -1.0, 1e-15);
    EXPECT_EQ(p.n.normalAnglesUsed(), 8u);
    EXPECT_THROW(p.decode(false, false, false), std::runtime_error);
}

TEST(CompressedTessNormals, DegenerateTriangleGetsTheZAxisAndStillUsesItsAngles) {
    Prepared p(8, {}, {10, 20});
    const Corner same[3] = {{{1, 1, 1}, 0}, {{1, 1, 1}, 1}, {{1, 1, 1}, 2}};
    EXPECT_EQ(xyz(p.decode(true, true, true, same)), (XYZ{0, 0, 1}));
    EXPECT_EQ(p.n.normalAnglesUsed(), 2u);
}

TEST(CompressedTessNormals, VertexKindsAndIndexBits) {
    // Point 0 becomes kind 2 (m = 1) and collects three normals, decoded from
    // angle pairs (1,0), (2,0), (3,0) so that they differ.
    std::vector<bool> data = {true, false, false, false,   // kind 0 -> 2, octant bits
                              false, false, false, false,  // c = 0: a second normal
                              false, false, false, false,  // c = 0: a third
                              true, true, false,           // c = 1, r = 1: the middle one
                              true, true, true,            // c = 1, r = 3 >= k: the oldest
                              true, false, false,          // c = 1, r = 0: the newest
                              false, false, false, false}; // point 1: kind 1
    Prepared p(10, data, {1, 0, 2, 0, 3, 0, 5, 0});
    CompressedTessNormals& n = p.n;
    for (const uint32_t expected : {0u, 1u, 2u, 1u, 0u, 2u}) EXPECT_EQ(n.decodeVertexNormal(0, kRight), expected);
    EXPECT_EQ(n.normalBitsUsed(), 21u);
    EXPECT_EQ(n.decodeVertexNormal(1, kRight), 3u);
    const uint32_t used = n.normalBitsUsed();
    EXPECT_EQ(n.decodeVertexNormal(1, kRight), 3u);  // kind 1 reads nothing
    EXPECT_EQ(n.normalBitsUsed(), used);
    EXPECT_THROW(n.decodeVertexNormal(3, kRight), std::runtime_error);
    EXPECT_THROW(n.decodeVertexNormal(2, kRight), std::runtime_error);  // bits run out

    // Index bits by list length k: 1 bit up to k = 2, then 2 (k = 3),
    // 3 (k = 4, 5), 4 (k = 6 to 9), 5 (k = 10).
    const std::vector<std::pair<uint32_t, uint32_t>> widths = {{1, 1}, {2, 1}, {3, 2}, {4, 3}, {5, 3},
                                                               {6, 4}, {9, 4}, {10, 5}};
    for (const auto& [k, width] : widths) {
        std::vector<bool> bits(4 * k, false);  // k new normals, each after a 0
        bits[0] = true;                         // that makes the point kind 2
        bits.push_back(true);
        bits.insert(bits.end(), width, false);  // r = 0: the newest
        Prepared pk(10, bits, std::vector<uint16_t>(2 * k, 0));
        for (uint32_t i = 0; i < k; ++i) pk.n.decodeVertexNormal(0, kRight);
        EXPECT_EQ(pk.n.decodeVertexNormal(0, kRight), k - 1) << "k " << k;
        EXPECT_EQ(pk.n.normalBitsUsed(), pk.r.normal_binary_data.size()) << "k " << k;
    }
}

TEST(CompressedTessNormals, SingleNormalFaceDecodesOnce) {
    // Two triangles of face 0 over four points: triangle 1 on edge b of
    // triangle 0 with a new point.
    PRC3DTessCompressed r = normalRecord(10, {false, false, false, false}, {0, 1023});  // the frame's Z axis
    r.point_array = {0, 0, 0, 2, 0, 0, 0, 1, 0, 0, -1, 0};
    r.triangle_face_array = {0, 0};
    r.edge_status_array = {1};
    r.point_is_reference_array = {false, false, false, false};
    r.face_has_single_normal = {true};
    CompressedTessResult res = buildCompressedTessMesh(r);
    EXPECT_TRUE(consumedExactly(res, r));
    EXPECT_EQ(res.normal_bits_used, 4u);
    EXPECT_EQ(res.normal_angles_used, 2u);

    // Without the flag every corner of every triangle asks for its normal:
    // three new points for triangle 0, one for triangle 1 (kind 1 points
    // read nothing the second time).
    r.face_has_single_normal = {false};
    r.normal_binary_data.assign(16, false);
    r.normal_angle_array = {0, 1023, 0, 1023, 0, 1023, 0, 1023};
    res = buildCompressedTessMesh(r);
    EXPECT_TRUE(consumedExactly(res, r));
    EXPECT_EQ(res.normal_bits_used, 16u);
    // One angle short.
    r.normal_angle_array.pop_back();
    EXPECT_EQ(errorOf(r), "buildCompressedTessMesh: normal_angle_array esaurito");
    r.normal_angle_array = {7};
    EXPECT_EQ(errorOf(r), "buildCompressedTessMesh: normal_angle_array esaurito");
    r.normal_angle_array = {0, 1023, 0, 1023, 0, 1023, 0, 1023};
    r.normal_binary_data.pop_back();
    EXPECT_EQ(errorOf(r), "buildCompressedTessMesh: normal_binary_data esaurito");
    r.normal_angle_number_of_bits = 0;
    EXPECT_EQ(errorOf(r), "buildCompressedTessMesh: normal_angle_number_of_bits fuori intervallo");
}

TEST(CompressedTessNormals, OrientationFollowsTheNormalAndTiesFlipOnlyOnTheirKey) {
    // Triangle (0,0,0), (2,0,0), (1,1,0) with the normal +Z: (b x a).N < 0,
    // orientation 1; with -Z (octant bit b1), orientation 0.
    PRC3DTessCompressed r = normalRecord(10, {false, false, false, false}, {0, 1023});
    r.point_array = {0, 0, 0, 2, 0, 0, 0, 1, 0};
    r.face_has_single_normal = {true};
    EXPECT_EQ(buildCompressedTessMesh(r).triangles, (std::vector<uint32_t>{0, 1, 2}));
    r.normal_binary_data = {false, true, false, false};
    EXPECT_EQ(buildCompressedTessMesh(r).triangles, (std::vector<uint32_t>{0, 2, 1}));

    // Three coincident corners: normal (0,0,1), d = 0, a tie with key 2.
    r.point_array = {4, 4, 4, 0, 0, 0, 0, 0, 0};
    CompressedTessResult res = runCompressedTessDecode(r, false, -1);
    EXPECT_EQ(res.triangles, (std::vector<uint32_t>{0, 2, 1}));
    EXPECT_EQ(res.tie_keys, (std::vector<int64_t>{2}));
    EXPECT_EQ(runCompressedTessDecode(r, false, 2).triangles, (std::vector<uint32_t>{0, 1, 2}));
}

// ---------------------------------------------------------------------------
// Retry strategy.

// A wavy grid whose third row is pushed onto the line of the second: a band
// of zero-area triangles whose fallback frames and ties depend on the run.
// Encoded for a run that normalises the fallback axis, and resolves the tie
// of tie_key the other way.
test::EncodedTess bandRecord(uint64_t seed, int64_t tie_key = -1) {
    const uint32_t nx = 4 + seed % 5;
    test::EncoderMesh mesh = test::makeGridMesh(nx, 4 + seed % 3, 0.0, seed);
    for (uint32_t i = 0; i <= nx; ++i) {
        test::EncoderVec& p = mesh.points[2 * (nx + 1) + i];
        p.y = mesh.points[nx + 1 + i].y;
        p.x = mesh.points[nx + 1 + i].x + 0.037;
    }
    for (test::EncoderVec& p : mesh.points) p.z = 0.3 * p.y * p.y, p.x += 0.31 * p.y;
    return test::encodeCompressedTess(mesh, {.tolerance = 0.0001, .must_recalculate_normals = false,
                                             .normal_angle_number_of_bits = 8, .chain_start = test::ChainStartChoice::Random,
                                             .seed = seed, .normalize_fallback_axis = true, .tie_key = tie_key});
}

TEST(CompressedTessRecord, SecondRunOrTieRetryReturnedWhenTheFirstFails) {
    // The first run goes astray and fails, the second reads every array exactly.
    test::EncodedTess enc = bandRecord(4);
    EXPECT_THROW(runCompressedTessDecode(enc.record, false, -1), std::runtime_error);
    CompressedTessRun run = CompressedTessRun::First;
    CompressedTessResult res = buildCompressedTessMesh(enc.record, &run);
    EXPECT_EQ(run, CompressedTessRun::Second);
    EXPECT_EQ(res.triangles, enc.expected_triangles);
    EXPECT_TRUE(consumedExactly(res, enc.record));

    // The fourth tie of the second run, resolved the other way by the
    // encoder: only the retry with that tie key reads the record exactly.
    const std::vector<int64_t> ties = bandRecord(12).tie_keys;
    ASSERT_GE(ties.size(), 4u);
    enc = bandRecord(12, ties[3]);
    res = buildCompressedTessMesh(enc.record, &run);
    EXPECT_EQ(run, CompressedTessRun::TieRetry);
    EXPECT_EQ(res.triangles, enc.expected_triangles);
    EXPECT_EQ(runCompressedTessDecode(enc.record, true, ties[3]).triangles, res.triangles);
}

TEST(CompressedTessRecord, FirstErrorRaisedWhenNothingSucceeds) {
    // The first run runs out of points; the second, identical, too; no tie.
    Rec rec = firstTriangle();
    rec.triangle(true).statuses({1}).bits({false});
    EXPECT_EQ(errorOf(rec.r), "buildCompressedTessMesh: point_array esaurito");
    // A run that ends without error is returned even when it leaves data over.
    rec.points({0, 0, 0, 9, 9, 9});
    CompressedTessRun run = CompressedTessRun::TieRetry;
    const CompressedTessResult res = buildCompressedTessMesh(rec.r, &run);
    EXPECT_EQ(run, CompressedTessRun::First);
    EXPECT_FALSE(consumedExactly(res, rec.r));
}

// ---------------------------------------------------------------------------
// Hostile records.

TEST(CompressedTessRecord, HugeFaceIndicesAllocateNothingPerFace) {
    // The face index claims two billion faces; only faces with a single-
    // normal bit are ever tracked, so this costs nothing.
    PRC3DTessCompressed r = normalRecord(10, {false, false, false, false}, {0, 1023});
    r.triangle_face_array = {INT32_MAX};
    r.face_has_single_normal = {true};
    r.normal_binary_data.assign(12, false);
    r.normal_angle_array = {0, 1023, 0, 1023, 0, 1023};
    r.point_is_reference_array = {false, false, false};
    const CompressedTessResult res = buildCompressedTessMesh(r);
    EXPECT_TRUE(consumedExactly(res, r));
    // Thousands of triangles on three points, each a reference back to point
    // 1 across the newest edge: the closed set keeps a handful of keys and
    // the stack stays empty.
    PRC3DTessCompressed loop = Rec().points({0, 0, 0, 1, 0, 0, 0, 1, 0}).r;
    const size_t n = 20000;
    loop.triangle_face_array.assign(n, 0);
    loop.normal_is_reversed.assign(n, true);
    loop.edge_status_array.assign(n, 2);
    loop.point_is_reference_array.assign(n + 2, true);
    loop.point_reference_array.assign(n - 1, 1);
    const CompressedTessResult many = buildCompressedTessMesh(loop);
    EXPECT_EQ(many.triangles.size(), 3 * n);
    EXPECT_TRUE(consumedExactly(many, loop));
}

}  // namespace
}  // namespace prc
