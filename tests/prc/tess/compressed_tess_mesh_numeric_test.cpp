// The numeric building blocks of the compressed-mesh traversal, pinned to
// values worked out from their definitions (not from this code): the
// float-rounded Newton square root, the polynomial cosine and sine, the
// right-angle distance, the fallback frames and the edge frames.

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <random>

#include "prc/tess/compressed_tess_mesh.h"
#include "prc/tess/compressed_tess_normals.h"

namespace prc {
namespace {

float floatFromBits(uint32_t bits) { return std::bit_cast<float>(bits); }
using XYZ = std::array<double, 3>;
XYZ xyz(const Vec3& v) { return {v.x, v.y, v.z}; }

TEST(CompressedTessNumeric, VectorLengthRoundsTheSquareToFloatAndStopsAtTheNewtonFixedPoint) {
    // q = 2 has bit 30 set: the start value is 1.0 (exponent 128 -> 127), and
    // Newton settles one ulp below the correctly rounded root of 2.
    EXPECT_EQ(vectorLength({1.0, 1.0, 0.0}), 1.414213562373095);
    EXPECT_NE(vectorLength({1.0, 1.0, 0.0}), std::sqrt(2.0));
    // Just below 2 (bit 30 clear, q itself is the start) and just above.
    EXPECT_EQ(lengthFromSquare(floatFromBits(0x3FFFFFFF)), 1.4142135202262458);
    EXPECT_EQ(lengthFromSquare(floatFromBits(0x40000001)), 1.4142136466667896);
    // 4: the start value 2 is already the fixed point.
    EXPECT_EQ(vectorLength({2.0, 0.0, 0.0}), 2.0);
    EXPECT_EQ(vectorLength({3.0, 4.0, 0.0}), 5.0);
    // 1 + 1e-10 is 1 as a float: the length is exactly 1.
    EXPECT_EQ(vectorLength({1.0, 1e-5, 0.0}), 1.0);
    // A large value: the halved exponent starts near the root; the result is
    // the Newton fixed point, below the correctly rounded root.
    EXPECT_EQ(vectorLength({1e15, 0.0, 0.0}), 1000000007523733.0);
}

TEST(CompressedTessNumeric, VectorLengthOfZeroNegativeAndNaNIsNotUsable) {
    EXPECT_FALSE(usableLength(vectorLength({0.0, 0.0, 0.0})));
    EXPECT_EQ(lengthFromSquare(0.0f), 0.0);
    EXPECT_EQ(lengthFromSquare(-4.0f), 0.0);  // start value -2
    EXPECT_EQ(lengthFromSquare(-0.5f), 0.0);
    EXPECT_FALSE(usableLength(lengthFromSquare(std::numeric_limits<float>::quiet_NaN())));
    EXPECT_FALSE(usableLength(vectorLength({std::nan(""), 0.0, 0.0})));
    // Overflowing the float square gives infinity, then NaN: not usable.
    EXPECT_FALSE(usableLength(vectorLength({1e20, 0.0, 0.0})));
    // Below the float epsilon: a length, but too short to divide by.
    const double tiny = vectorLength({1e-8, 0.0, 0.0});
    EXPECT_GT(tiny, 0.0);
    EXPECT_FALSE(usableLength(tiny));
    Vec3 v{1e-8, 0.0, 0.0};
    EXPECT_FALSE(normalizeInPlace(v));
    EXPECT_EQ(v.x, 1e-8);
}

// The length as files define it: Newton from the bit-level start value until a
// step changes nothing, at most 100 steps. lengthFromSquare starts elsewhere
// and must land on the same double.
double lengthByIteration(float q) {
    uint32_t bits = std::bit_cast<uint32_t>(q);
    if (bits & 0x40000000u) {
        const uint32_t exponent = (bits >> 23) & 0xFFu;
        bits = (bits & 0x807FFFFFu) | ((((exponent - 127u) >> 1) + 127u) << 23);
    }
    const float start = std::bit_cast<float>(bits);
    double x = start;
    for (int i = 0; start > 0.0f && i < 100; ++i) {
        const double next = (static_cast<double>(q) / x + x) / 2;
        if (next == x) break;
        x = next;
    }
    return start > 0.0f ? x : 0.0;
}

void expectSameLength(uint32_t bits) {
    const double expected = lengthByIteration(floatFromBits(bits)), got = lengthFromSquare(floatFromBits(bits));
    EXPECT_TRUE(got == expected || (std::isnan(got) && std::isnan(expected))) << std::hex << bits;
}

TEST(CompressedTessNumeric, LengthFromSquareEqualsTheIterationFromTheBitLevelStart) {
    // Every float within 2^16 steps of 1, where the squared lengths of
    // normalised vectors fall.
    for (uint32_t bits = 0x3F800000u - 0x10000u; bits <= 0x3F800000u + 0x10000u; ++bits) expectSameLength(bits);
    // Both ends of every binade, subnormals and the largest float included.
    for (uint32_t exponent = 0; exponent < 255; ++exponent)
        for (const uint32_t mantissa : {0u, 1u, 2u, 0x400000u, 0x7FFFFEu, 0x7FFFFFu})
            expectSameLength((exponent << 23) | mantissa);
    // Random positive floats over the whole range.
    std::mt19937 random(12345);
    for (int i = 0; i < 200000; ++i) expectSameLength(1u + random() % 0x7F7FFFFFu);
    // The values that are no length: zeros, negatives, infinities, NaNs.
    for (const uint32_t bits : {0x00000000u, 0x80000000u, 0xBF800000u, 0xC0800000u, 0xFF7FFFFFu, 0x80000001u,
                                0x7F800000u, 0xFF800000u, 0x7FC00000u, 0x7F800001u, 0xFFC00000u})
        expectSameLength(bits);
    // Two or three at once give what one at a time gives.
    const Vec3 a{0.3, -0.4, 1e-3}, b{1.0, 0.0, 0.0}, c{2e-9, 5.0, -7.0};
    double la, lb, lc;
    vectorLengths(a, b, c, la, lb, lc);
    EXPECT_EQ((XYZ{la, lb, lc}), (XYZ{vectorLength(a), vectorLength(b), vectorLength(c)}));
    la = lc = 0;
    vectorLengths(c, a, lc, la);
    EXPECT_EQ((XYZ{la, lb, lc}), (XYZ{vectorLength(a), vectorLength(b), vectorLength(c)}));
}

TEST(CompressedTessNumeric, PolynomialCosineAndSineOnBothBranches) {
    EXPECT_EQ(cosApprox(0.0), 1.0);
    EXPECT_EQ(sinApprox(0.0), 0.0);
    // Below pi/4: Taylor series at 0.
    EXPECT_EQ(cosApprox(0.5), 0.8775824652777777);
    EXPECT_EQ(sinApprox(0.5), 0.479425533234127);
    EXPECT_EQ(sinApprox(-0.5), -0.479425533234127);
    // pi/4 itself is not above pi/4: still the series at 0, which is why the
    // two values differ in the sixth digit.
    EXPECT_EQ(cosApprox(kQuarterPi), 0.7071032148228457);
    EXPECT_EQ(sinApprox(kQuarterPi), 0.7071064695751781);
    // Above pi/4: the series around pi/2.
    EXPECT_EQ(cosApprox(1.0), 0.5403022881962927);
    EXPECT_EQ(sinApprox(1.0), 0.84147070635119);
    EXPECT_EQ(cosApprox(kHalfPi), 0.0);
    EXPECT_EQ(sinApprox(kHalfPi), 1.0);
}

TEST(CompressedTessNumeric, AngleFromRight) {
    EXPECT_EQ(angleFromRight({1, 0, 0}, {0, 3, 0}), 0.0);
    EXPECT_EQ(angleFromRight({1, 0, 0}, {1, 1, 0}), 0.7853981633974483);
    EXPECT_EQ(angleFromRight({2, 0, 0}, {1, std::sqrt(3.0), 0}), 0.5235987755982987);
    // (Anti)parallel vectors are as far from a right angle as can be.
    EXPECT_EQ(angleFromRight({1, 0, 0}, {-2, 0, 0}), kHalfPi);
    EXPECT_EQ(angleFromRight({1, 0, 0}, {5, 1e-7, 0}), kHalfPi);
    // A vector too short to normalise is used as it is: the cosine stays
    // about 1e-9 instead of becoming cos(pi/4).
    EXPECT_NEAR(angleFromRight({1e-9, 1e-9, 0}, {1, 0, 0}), 1e-9, 1e-15);
}

TEST(CompressedTessNumeric, CompleteBasisFromYOrXAxis) {
    // {axis, normalised first, V, N}. Along Y, u x Y vanishes and u x X is
    // used: N = (0, uz, -uy), V = N x U. An axis of length 3 gives the same
    // unit axes whether or not it is normalised first: the fallback axes are
    // normalised on their own. A zero axis leaves both zero.
    const std::tuple<Vec3, bool, XYZ, XYZ> cases[] = {
        {{1, 0, 0}, false, {0, 1, 0}, {0, 0, 1}}, {{0, 1, 0}, false, {1, 0, 0}, {0, 0, -1}},
        {{0, 0, 3}, false, {0, 1, 0}, {-1, 0, 0}}, {{0, 0, 3}, true, {0, 1, 0}, {-1, 0, 0}},
        {{0, 0, 0}, false, {0, 0, 0}, {0, 0, 0}}};
    for (const auto& [axis, normalised, v, n] : cases) {
        const Basis b = completeBasis(axis, normalised);
        EXPECT_EQ(std::pair(xyz(b.v), xyz(b.n)), std::pair(v, n)) << axis.x << axis.y << axis.z << normalised;
    }
}

TEST(CompressedTessNumeric, EdgeFramePointsVTowardsTheOppositeCornerAndFlipsOnTies) {
    PRC3DTessCompressed r;  // four points
    r.tolerance = 1.0;
    r.point_array.assign(12, 0);
    r.triangle_face_array.assign(1, 0);
    r.must_recalculate_normals = true;
    r.normal_is_reversed.assign(1, false);
    CompressedTessBuilder builder(r, false, 9);
    const Corner c0{{0, 0, 0}, 0};
    const Corner c1{{2, 0, 0}, 1};
    // Opposite corner above the edge: U = (c0 - c1) / 2 = (-1, 0, 0),
    // N = (c2 - M) x U = (0, 0, 1), V = N x U = (0, -1, 0); (M - c2).V = 1 > 0
    // flips both, so V points to the opposite corner.
    OpenEdge e = builder.edgeFrame(c0, c1, {{1, 1, 0}, 2}, 4);
    EXPECT_EQ(std::tuple(xyz(e.m), xyz(e.u), xyz(e.v), xyz(e.n), e.a.index, e.b.index),
              std::tuple(XYZ{1, 0, 0}, XYZ{-1, 0, 0}, XYZ{0, 1, 0}, XYZ{0, 0, -1}, 0u, 1u));
    EXPECT_TRUE(builder.tieKeys().empty());

    // Opposite corner on the edge's midpoint: N cannot be normalised, the
    // fallback frame of U = (-1, 0, 0) is N = (0, 0, -1), V = (0, 1, 0), and
    // (M - c2).V = 0 is a tie: recorded, the frame kept...
    e = builder.edgeFrame(c0, c1, {{1, 0, 0}, 2}, 8);
    EXPECT_EQ(std::pair(xyz(e.v), xyz(e.n)), std::pair(XYZ{0, 1, 0}, XYZ{0, 0, -1}));
    EXPECT_EQ(builder.tieKeys(), (std::vector<int64_t>{8}));
    // ...unless the key is the run's tie key, which flips it.
    e = builder.edgeFrame(c0, c1, {{1, 0, 0}, 2}, 9);
    EXPECT_EQ(std::pair(xyz(e.v), xyz(e.n)), std::pair(XYZ{0, -1, 0}, XYZ{0, 0, 1}));
    EXPECT_EQ(builder.tieKeys().size(), 2u);

    // Coincident corners: the fixed frame X, Y, Z, no sign test, no tie.
    e = builder.edgeFrame(c0, {{0, 0, 0}, 1}, {{5, 5, 5}, 2}, 12);
    EXPECT_EQ(std::tuple(xyz(e.u), xyz(e.v), xyz(e.n)), std::tuple(XYZ{1, 0, 0}, XYZ{0, 1, 0}, XYZ{0, 0, 1}));
    EXPECT_EQ(builder.tieKeys().size(), 2u);

    // Any corner index beyond the points fails.
    EXPECT_THROW(builder.edgeFrame(c0, {{2, 0, 0}, 4}, {{1, 1, 0}, 2}, 0), std::runtime_error);
}

TEST(CompressedTessNumeric, EdgeKeySetGrowsAndKeepsEveryKey) {
    EdgeKeySet set(4);
    for (uint64_t i = 0; i < 5000; ++i) {
        set.insert(edgeKey(static_cast<uint32_t>(i * 7), static_cast<uint32_t>(i)));
        set.insert(edgeKey(static_cast<uint32_t>(i), static_cast<uint32_t>(i * 7)));  // same key
    }
    EXPECT_EQ(set.size(), 5000u);
    for (uint64_t i = 0; i < 5000; ++i) EXPECT_TRUE(set.contains(edgeKey(uint32_t(i), uint32_t(i * 7))));
    EXPECT_FALSE(set.contains(edgeKey(1, 2)));
    EXPECT_EQ(edgeKey(3, 1), (uint64_t(1) << 32) + 3);
}

}  // namespace
}  // namespace prc
