// Records written out by hand for what the real files do not reach: every
// failure message, ties of the orientation, the retry strategy and records
// whose arrays lie about each other.

#include <gtest/gtest.h>
#include <quadmath.h>

#include <cmath>
#include <string>

#include "prc/tess/compressed_tess_mesh.h"
#include "prc/tess/exact_acos.h"
#include "tests/support/acos_arguments.h"

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

// The decoded normals only decide orientations, so a wrong term of the
// series would show on real data only at a near tie: both branches of both
// approximations against the library, to the series' own accuracy.
TEST(CompressedTessNormals, SineAndCosineSeriesOnBothBranches) {
    for (double x : {0.0, 0.1, 0.5, 0.78, 0.8, 1.2, 1.5707963267948966}) {
        EXPECT_NEAR(sinApprox(x), std::sin(x), 4e-6) << x;
        EXPECT_NEAR(cosApprox(x), std::cos(x), 4e-6) << x;
    }
}

// Real files meet the arc cosine only at near ties, so every region of it is
// held here to correct rounding: quad precision rounded to double.
TEST(CompressedTessNormals, ArcCosineIsCorrectlyRounded) {
    for (double x : test::acosArguments(100000)) ASSERT_EQ(acosCorrectlyRounded(x), double(acosq(__float128(x)))) << x;
}

// Two triangles of face 0 over four points (triangle 1 on edge b of triangle
// 0 with a new point), every corner asking for its normal: three new points
// for triangle 0, one for triangle 1 (kind 1 points read nothing the second
// time). Each array one entry short.
TEST(CompressedTessNormals, NormalArraysThatRunOut) {
    PRC3DTessCompressed r = normalRecord(10, std::vector<bool>(16, false), {0, 1023, 0, 1023, 0, 1023, 0, 1023});
    r.point_array = {0, 0, 0, 2, 0, 0, 0, 1, 0, 0, -1, 0};
    r.triangle_face_array = {0, 0};
    r.edge_status_array = {1};
    r.point_is_reference_array = {false, false, false, false};
    r.face_has_single_normal = {false};
    EXPECT_TRUE(consumedExactly(buildCompressedTessMesh(r), r));
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

}  // namespace
}  // namespace prc
