// Whole files through decodePrcModel: writer-generated scenes compared with
// their expected triangles, and real files whole.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <optional>

#include "model/decode_driver.h"
#include "tests/model/decode_test_util.h"
#include "tests/support/worker_runs.h"

namespace model {
namespace {

using test::Decoded;
using Point = std::array<double, 3>;
using Rgb = std::array<int, 3>;

// Every number in the value of `key` of the expectation file, in order (those
// inside strings too: vertex colours are keyed by "(x, y, z)"); nullopt when
// the key is absent. Enough for these flat files, whose values nest only arrays.
std::optional<std::vector<double>> numbersOf(const std::string& json, const std::string& key) {
    size_t at = json.find("\"" + key + "\":");
    if (at == std::string::npos) return std::nullopt;
    std::vector<double> out;
    int depth = 0;
    for (at += key.size() + 3; at < json.size(); ++at) {
        const char c = json[at];
        depth += (c == '[' || c == '{') - (c == ']' || c == '}');
        if (std::isdigit(uint8_t(c)) || c == '-') {
            char* end = nullptr;
            out.push_back(std::strtod(json.c_str() + at, &end));
            at = size_t(end - json.c_str()) - 1;
        }
        if (depth == 0 && !out.empty()) break;
    }
    return out;
}

double distance(const Point& a, const Point& b) { return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]); }

class GenCorpus : public testing::TestWithParam<std::string> {};

TEST_P(GenCorpus, DecodedTrianglesMatchTheWrittenScene) {
    const std::string name = GetParam();
    const std::vector<uint8_t> text = prc::test::readFile("gen/" + name + ".expect.json");
    const std::string expect(text.begin(), text.end());
    Decoded d(prc::test::readFile("gen/" + name + ".prc"));
    ASSERT_TRUE(test::wellFormed(d));
    if (const auto outcome = numbersOf(expect, "outcome")) {
        EXPECT_FALSE(d.ok);
        EXPECT_EQ(d.model.outcome, uint32_t(outcome->at(0)));
        return;
    }
    ASSERT_TRUE(d.ok) << "outcome " << d.model.outcome;
    const DecodedModel& m = d.model;
    auto corner = [&](uint32_t t, int c) {
        const uint32_t v = m.triangles[3 * t + uint32_t(c)];
        return std::pair{Point{m.positions[3 * v], m.positions[3 * v + 1], m.positions[3 * v + 2]},
                         Rgb{m.colors[3 * v], m.colors[3 * v + 1], m.colors[3 * v + 2]}};
    };
    const std::vector<double> expected = numbersOf(expect, "triangles").value();
    auto expectedPoint = [&](size_t t, size_t c) { return Point{expected[9 * t + 3 * c], expected[9 * t + 3 * c + 1], expected[9 * t + 3 * c + 2]}; };
    ASSERT_EQ(m.triangle_count, numbersOf(expect, "triangle_count").value_or(std::vector{expected.size() / 9.0})[0]);
    ASSERT_EQ(m.triangle_count * 9, expected.size());

    // The writer may scale every coordinate by one factor: the ratio of the
    // RMS distances of all corners from the origin does not depend on order.
    double e2 = 0, d2 = 0, extent = 0;
    for (uint32_t t = 0; t < m.triangle_count; ++t)
        for (int c = 0; c < 3; ++c) {
            const Point p = expectedPoint(t, size_t(c)), q = corner(t, c).first;
            e2 += p[0] * p[0] + p[1] * p[1] + p[2] * p[2];
            d2 += q[0] * q[0] + q[1] * q[1] + q[2] * q[2];
            extent = std::max({extent, std::fabs(p[0]), std::fabs(p[1]), std::fabs(p[2])});
        }
    const double scale = std::sqrt(d2 / e2), tolerance = 1e-4 * extent * scale;
    auto scaled = [&](Point p) { return Point{p[0] * scale, p[1] * scale, p[2] * scale}; };

    // Every expected triangle is matched by its own decoded one, corners in
    // any order, in the colour of its triangle or of the whole scene.
    const auto colours = numbersOf(expect, "colors"), all = numbersOf(expect, "colors_all");
    std::vector<bool> used(m.triangle_count, false);
    for (size_t e = 0; e < m.triangle_count; ++e) {
        const std::array<Point, 3> want{scaled(expectedPoint(e, 0)), scaled(expectedPoint(e, 1)), scaled(expectedPoint(e, 2))};
        uint32_t k = 0;
        for (; k < m.triangle_count; ++k) {
            const std::array<Point, 3> got{corner(k, 0).first, corner(k, 1).first, corner(k, 2).first};
            if (!used[k] && std::is_permutation(want.begin(), want.end(), got.begin(),
                                                [&](const Point& a, const Point& b) { return distance(a, b) <= tolerance; }))
                break;
        }
        ASSERT_LT(k, m.triangle_count) << "expected triangle " << e << " not decoded (scale " << scale << ")";
        used[k] = true;
        const double* rgb = all ? all->data() : colours ? colours->data() + 3 * e : nullptr;
        for (int c = 0; c < 3 && rgb; ++c) EXPECT_EQ(corner(k, c).second, (Rgb{int(rgb[0]), int(rgb[1]), int(rgb[2])})) << e;
    }
    // Six numbers per corner: the corner, then its colour.
    const std::vector<double> corners = numbersOf(expect, "vertex_colors").value_or(std::vector<double>{});
    for (size_t i = 0; i + 6 <= corners.size(); i += 6) {
        int seen = 0;
        for (uint32_t t = 0; t < m.triangle_count; ++t)
            for (int c = 0; c < 3; ++c)
                if (distance(corner(t, c).first, scaled({corners[i], corners[i + 1], corners[i + 2]})) <= tolerance) {
                    EXPECT_EQ(corner(t, c).second, (Rgb{int(corners[i + 3]), int(corners[i + 4]), int(corners[i + 5])}));
                    ++seen;
                }
        EXPECT_GT(seen, 0) << "corner " << i / 6;
    }
    // A torus: every vertex at distance 1 from the circle of radius 2 about z.
    for (uint32_t v = 0; expect.find("\"predicate\"") != std::string::npos && v < m.vertex_count; ++v) {
        const double ring = std::hypot(m.positions[3 * v], m.positions[3 * v + 1]) / scale - 2.0;
        EXPECT_NEAR(std::hypot(ring, m.positions[3 * v + 2] / scale), 1.0, 1e-3);
    }
}

INSTANTIATE_TEST_SUITE_P(Files, GenCorpus,
                         testing::Values("tet_red", "vertex_colors", "groups_transforms", "torus_3k", "lines_only",
                                         "sphere_exact"));

TEST(RealFiles, EveryFileDecodesToAWellFormedResult) {
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(MESHDRONE_TEST_DATA)) {
        if (entry.path().extension() != ".prc") continue;
        const std::string name = entry.path().filename().string();
        SCOPED_TRACE(name);
        ++files;
        const std::vector<uint8_t> file = prc::test::readFile(name);
        Decoded d(file);
        EXPECT_TRUE(test::wellFormed(d));
        if (name == "1a8f391e69e7.prc") {  // an empty tessellation section: nothing to draw
            EXPECT_EQ(d.model.outcome, 1u);
            continue;
        }
        ASSERT_TRUE(d.ok) << "outcome " << d.model.outcome;
        // Every real file carries a product structure that the structured pass follows.
        EXPECT_EQ(d.pass, DecodePass::Structured);
        EXPECT_GT(d.model.part_count, 0u);
        const prc::PRCHeader header = prc::readPRCHeader(file.data(), file.size());
        EXPECT_EQ(d.model.authoring_version, header.authoring_version);
        EXPECT_EQ(d.model.number_of_file_structures, header.number_of_file_structures);
    }
    EXPECT_GE(files, 10u);
}

}  // namespace
}  // namespace model
