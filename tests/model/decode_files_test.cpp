// Whole files through decodePrcModel: writer-generated scenes compared with
// their expected triangles, and real files whole.

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>

#include "model/decode_driver.h"
#include "tests/model/decode_test_util.h"
#include "tests/support/worker_runs.h"

namespace model {
namespace {

using test::Decoded;
using Point = std::array<double, 3>;
using Rgb = std::array<int, 3>;

double distance(const Point& a, const Point& b) { return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]); }

class GenCorpus : public testing::TestWithParam<std::string> {};

// The expectations: the triangles as corner points, and their colours (per
// triangle, for all, or per corner point keyed "(x, y, z)"), or the outcome.
TEST_P(GenCorpus, DecodedTrianglesMatchTheWrittenScene) {
    const std::vector<uint8_t> text = prc::test::readFile("gen/" + GetParam() + ".expect.json");
    const nlohmann::json expect = nlohmann::json::parse(text.begin(), text.end());
    Decoded d(prc::test::readFile("gen/" + GetParam() + ".prc"));
    ASSERT_EQ(d.invalid, "");
    if (expect.contains("outcome")) {
        EXPECT_FALSE(d.ok);
        EXPECT_EQ(d.model.outcome, expect["outcome"].get<uint32_t>());
        return;
    }
    ASSERT_TRUE(d.ok) << "outcome " << d.model.outcome;
    const DecodedModel& m = d.model;
    auto corner = [&](uint32_t t, int c) {
        const uint32_t v = m.triangles[3 * t + uint32_t(c)];
        return std::pair{Point{m.positions[3 * v], m.positions[3 * v + 1], m.positions[3 * v + 2]},
                         Rgb{m.colors[3 * v], m.colors[3 * v + 1], m.colors[3 * v + 2]}};
    };
    const nlohmann::json& triangles = expect["triangles"];
    ASSERT_EQ(m.triangle_count, expect.value("triangle_count", triangles.size()));
    ASSERT_EQ(m.triangle_count, triangles.size());

    // The writer may scale every coordinate by one factor: the ratio of the
    // RMS distances of all corners from the origin does not depend on order.
    double e2 = 0, d2 = 0, extent = 0;
    for (uint32_t t = 0; t < m.triangle_count; ++t)
        for (int c = 0; c < 3; ++c) {
            const Point p = triangles[t][c], q = corner(t, c).first;
            e2 += p[0] * p[0] + p[1] * p[1] + p[2] * p[2];
            d2 += q[0] * q[0] + q[1] * q[1] + q[2] * q[2];
            extent = std::max({extent, std::fabs(p[0]), std::fabs(p[1]), std::fabs(p[2])});
        }
    const double scale = std::sqrt(d2 / e2), tolerance = 1e-4 * extent * scale;
    auto scaled = [&](Point p) { return Point{p[0] * scale, p[1] * scale, p[2] * scale}; };

    // Every expected triangle is matched by its own decoded one, corners in
    // any order, in the colour of its triangle or of the whole scene.
    std::vector<bool> used(m.triangle_count, false);
    for (size_t e = 0; e < m.triangle_count; ++e) {
        const std::array<Point, 3> want{scaled(triangles[e][0]), scaled(triangles[e][1]), scaled(triangles[e][2])};
        uint32_t k = 0;
        for (; k < m.triangle_count; ++k) {
            const std::array<Point, 3> got{corner(k, 0).first, corner(k, 1).first, corner(k, 2).first};
            if (!used[k] && std::is_permutation(want.begin(), want.end(), got.begin(),
                                                [&](const Point& a, const Point& b) { return distance(a, b) <= tolerance; }))
                break;
        }
        ASSERT_LT(k, m.triangle_count) << "expected triangle " << e << " not decoded (scale " << scale << ")";
        used[k] = true;
        const nlohmann::json rgb = expect.contains("colors_all") ? expect["colors_all"] : expect.value("colors", nlohmann::json::array())[e];
        for (int c = 0; c < 3 && !rgb.is_null(); ++c) EXPECT_EQ(corner(k, c).second, rgb.get<Rgb>()) << e;
    }
    const nlohmann::json corners = expect.value("vertex_colors", nlohmann::json::object());
    for (const auto& [key, rgb] : corners.items()) {
        Point p{};
        ASSERT_EQ(std::sscanf(key.c_str(), "(%lf, %lf, %lf)", &p[0], &p[1], &p[2]), 3);
        int seen = 0;
        for (uint32_t t = 0; t < m.triangle_count; ++t)
            for (int c = 0; c < 3; ++c)
                if (distance(corner(t, c).first, scaled(p)) <= tolerance) {
                    EXPECT_EQ(corner(t, c).second, rgb.get<Rgb>());
                    ++seen;
                }
        EXPECT_GT(seen, 0) << key;
    }
    // A torus: every vertex at distance 1 from the circle of radius 2 about z.
    for (uint32_t v = 0; expect.contains("predicate") && v < m.vertex_count; ++v) {
        const double ring = std::hypot(m.positions[3 * v], m.positions[3 * v + 1]) / scale - 2.0;
        EXPECT_NEAR(std::hypot(ring, m.positions[3 * v + 2] / scale), 1.0, 1e-3);
    }
}

INSTANTIATE_TEST_SUITE_P(Files, GenCorpus,
                         testing::Values("tet_red", "vertex_colors", "groups_transforms", "torus_3k", "lines_only",
                                         "sphere_exact"));

// The result stream of every PRC file of the test data, compared with the
// stream recorded in data/streams.tsv (length and CRC-32 of the whole stream):
// any change of a single output byte on real or writer files shows here. A
// change that is meant is recorded anew with MESHDRONE_RECORD_STREAMS=1, and
// the commit says why those streams moved. Every stream is well formed, and
// every real file with something to draw carries a product structure that
// the structured pass follows.
TEST(RecordedStreams, EveryTestFileGivesTheStreamRecordedForIt) {
    const std::filesystem::path data(MESHDRONE_TEST_DATA);
    std::map<std::string, std::pair<uint64_t, uint32_t>> now, recorded;
    for (const std::filesystem::path& dir : {data, data / "gen"})
        for (const auto& entry : std::filesystem::directory_iterator(dir)) {
            if (entry.path().extension() != ".prc") continue;
            const std::string name = std::filesystem::relative(entry.path(), data).generic_string();
            SCOPED_TRACE(name);
            const Decoded d(prc::test::readFile(entry.path()));
            EXPECT_EQ(d.invalid, "");
            EXPECT_TRUE(!d.ok || d.pass == DecodePass::Structured || dir != data);
            now[name] = {d.stream.size(), uint32_t(crc32_z(0, d.stream.data(), d.stream.size()))};
        }
    const std::filesystem::path table = data / "streams.tsv";
    if (std::getenv("MESHDRONE_RECORD_STREAMS")) {
        std::ofstream out(table);
        for (const auto& [name, r] : now) out << name << '\t' << r.first << '\t' << r.second << '\n';
        GTEST_SKIP() << "recorded " << now.size() << " streams";
    }
    std::ifstream in(table);
    std::string name;
    for (std::pair<uint64_t, uint32_t> r; in >> name >> r.first >> r.second;) recorded[name] = r;
    EXPECT_EQ(recorded, now);
}

}  // namespace
}  // namespace model
