#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <set>
#include <string>

#include "tests/model/decode_test_util.h"
#include "tests/support/mini_json.h"

namespace model {
namespace {

using prc::test::JsonValue;
using test::Decoded;
using test::readTestFile;
using test::wellFormed;

using Point = std::array<double, 3>;
using Triangle = std::array<Point, 3>;

Point pointOf(const JsonValue& v) { return {v[0].number, v[1].number, v[2].number}; }

double distance(const Point& a, const Point& b) {
    return std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) + (a[2] - b[2]) * (a[2] - b[2]));
}

// The writer may scale every coordinate by one factor: the ratio of the RMS
// distances of all corners from the origin does not depend on triangle order.
double fittedScale(const std::vector<Triangle>& expected, const std::vector<Triangle>& decoded) {
    double e = 0, d = 0;
    for (const Triangle& t : expected)
        for (const Point& p : t) e += p[0] * p[0] + p[1] * p[1] + p[2] * p[2];
    for (const Triangle& t : decoded)
        for (const Point& p : t) d += p[0] * p[0] + p[1] * p[1] + p[2] * p[2];
    return std::sqrt((d / double(decoded.size())) / (e / double(expected.size())));
}

bool sameCorners(const Triangle& a, const Triangle& b, double tolerance) {
    // Any order of the corners: winding and rotation may differ.
    const int perms[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    for (const auto& p : perms)
        if (distance(a[0], b[size_t(p[0])]) <= tolerance && distance(a[1], b[size_t(p[1])]) <= tolerance &&
            distance(a[2], b[size_t(p[2])]) <= tolerance)
            return true;
    return false;
}

std::array<int, 3> rgbOf(const JsonValue& v) { return {int(v[0].number), int(v[1].number), int(v[2].number)}; }

const std::set<std::string> kWriterNamesItemsOnly = {"groups_transforms"};

class GenCorpus : public testing::TestWithParam<std::string> {};

TEST_P(GenCorpus, DecodedTrianglesMatchTheWrittenScene) {
    const std::string name = GetParam();
    const JsonValue expect = prc::test::readJsonFile(std::string(MESHDRONE_TEST_DATA) + "/gen/" + name + ".expect.json");
    Decoded d(readTestFile("gen/" + name + ".prc"));
    ASSERT_TRUE(wellFormed(d));
    if (expect.has("outcome")) {
        EXPECT_FALSE(d.ok);
        EXPECT_EQ(d.model.outcome, uint32_t(expect["outcome"].number));
        return;
    }
    ASSERT_TRUE(d.ok) << "outcome " << d.model.outcome;
    std::printf("  %s: %s pass, %u vertices, %u triangles, %u records\n", name.c_str(), test::passName(d.pass),
                d.model.vertex_count, d.model.triangle_count, d.model.part_count);

    std::vector<Triangle> expected;
    for (const JsonValue& t : expect["triangles"].array) expected.push_back({pointOf(t[0]), pointOf(t[1]), pointOf(t[2])});
    std::vector<Triangle> decoded;
    std::vector<std::array<std::array<int, 3>, 3>> decodedColours;
    for (uint32_t t = 0; t < d.model.triangle_count; ++t) {
        Triangle tri;
        std::array<std::array<int, 3>, 3> rgb;
        for (int c = 0; c < 3; ++c) {
            const uint32_t v = d.model.triangles[3 * t + uint32_t(c)];
            tri[size_t(c)] = {d.model.positions[3 * v], d.model.positions[3 * v + 1], d.model.positions[3 * v + 2]};
            rgb[size_t(c)] = {d.model.colors[3 * v], d.model.colors[3 * v + 1], d.model.colors[3 * v + 2]};
        }
        decoded.push_back(tri);
        decodedColours.push_back(rgb);
    }
    if (expect.has("triangle_count")) {
        EXPECT_EQ(decoded.size(), size_t(expect["triangle_count"].number));
    }
    ASSERT_EQ(decoded.size(), expected.size());

    const double scale = fittedScale(expected, decoded);
    double extent = 0;
    for (const Triangle& t : expected)
        for (const Point& p : t) extent = std::max({extent, std::fabs(p[0]), std::fabs(p[1]), std::fabs(p[2])});
    const double tolerance = 1e-4 * extent * scale;

    // Every expected triangle is matched by its own decoded triangle.
    std::vector<bool> used(decoded.size(), false);
    for (size_t e = 0; e < expected.size(); ++e) {
        Triangle scaled = expected[e];
        for (Point& p : scaled)
            for (double& x : p) x *= scale;
        size_t match = decoded.size();
        for (size_t k = 0; k < decoded.size() && match == decoded.size(); ++k)
            if (!used[k] && sameCorners(scaled, decoded[k], tolerance)) match = k;
        ASSERT_LT(match, decoded.size()) << "expected triangle " << e << " not decoded (scale " << scale << ")";
        used[match] = true;
        if (expect.has("colors")) {
            const std::array<int, 3> want = rgbOf(expect["colors"][e]);
            for (const auto& rgb : decodedColours[match]) EXPECT_EQ(rgb, want) << "triangle " << e;
        }
    }
    if (expect.has("colors_all")) {
        const std::array<int, 3> want = rgbOf(expect["colors_all"]);
        for (const auto& rgb3 : decodedColours)
            for (const auto& rgb : rgb3) ASSERT_EQ(rgb, want);
    }
    if (expect.has("vertex_colors")) {
        for (const auto& [key, rgb] : expect["vertex_colors"].object) {
            Point p{};
            ASSERT_EQ(std::sscanf(key.c_str(), "(%lf, %lf, %lf)", &p[0], &p[1], &p[2]), 3) << key;
            for (double& x : p) x *= scale;
            bool seen = false;
            for (size_t t = 0; t < decoded.size(); ++t)
                for (int c = 0; c < 3; ++c)
                    if (distance(decoded[t][size_t(c)], p) <= tolerance) {
                        EXPECT_EQ(decodedColours[t][size_t(c)], rgbOf(rgb)) << key;
                        seen = true;
                    }
            EXPECT_TRUE(seen) << key;
        }
    }
    if (expect.has("predicate")) {
        // A torus: every vertex at distance 1 from the circle of radius 2 about z.
        for (const Triangle& t : decoded)
            for (const Point& p : t) {
                const double ring = std::hypot(p[0], p[1]) / scale - 2.0;
                EXPECT_NEAR(ring * ring + (p[2] / scale) * (p[2] / scale), 1.0, 1e-3);
            }
    }
    if (expect.has("names")) {
        std::set<std::string> names;
        for (uint32_t i = 0; i < d.model.part_count; ++i) names.insert(d.model.part_records[i].name);
        // This writer gives a group's name to its representation items, not to
        // a product occurrence of its own: the whole scene is one occurrence,
        // and part records are named after occurrences.
        const bool namesOnItemsOnly = kWriterNamesItemsOnly.count(name) != 0;
        for (const JsonValue& n : expect["names"].array)
            EXPECT_EQ(names.count(n.string) != 0, !namesOnItemsOnly) << n.string;
    }
}

INSTANTIATE_TEST_SUITE_P(Files, GenCorpus,
                         testing::Values("tet_red", "vertex_colors", "groups_transforms", "torus_3k", "lines_only",
                                         "sphere_exact"));

}  // namespace
}  // namespace model
