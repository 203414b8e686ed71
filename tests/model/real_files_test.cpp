#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <random>
#include <set>
#include <string>

#include "prc/io/prc_header.h"
#include "tests/model/decode_test_util.h"

namespace model {
namespace {

using test::Decoded;
using test::readTestFile;
using test::wellFormed;

std::vector<std::string> realFiles() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(MESHDRONE_TEST_DATA))
        if (entry.path().extension() == ".prc") names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// Streams whose tessellation section is empty: nothing to draw.
const std::set<std::string> kNoGeometry = {"1a8f391e69e7.prc"};

TEST(RealFiles, EveryFileDecodesToAWellFormedResult) {
    const std::vector<std::string> names = realFiles();
    ASSERT_GE(names.size(), 10u);
    std::printf("  %-18s %10s %-10s %9s %9s %7s %9s\n", "file", "bytes", "pass", "vertices", "triangles", "records",
                "ms");
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        const std::vector<uint8_t> file = readTestFile(name);
        const auto start = std::chrono::steady_clock::now();
        Decoded d(file);
        const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        std::printf("  %-18s %10zu %-10s %9u %9u %7u %9.2f\n", name.c_str(), file.size(), test::passName(d.pass),
                    d.model.vertex_count, d.model.triangle_count, d.model.part_count, ms);
        EXPECT_TRUE(wellFormed(d));
        if (kNoGeometry.count(name)) {
            EXPECT_FALSE(d.ok);
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
}

// Files of different producers, small enough to decode many times.
const char* const kDamageFiles[] = {"2d5d9d433f43.prc", "bc23da9fc464.prc", "0a1283e2edd5.prc", "5aab25a32cdb.prc",
                                    "87c7810f4181.prc", "18d2868a5ddb.prc"};

TEST(RealFiles, CutOrChangedFilesStillGiveWellFormedResults) {
    std::mt19937_64 rng(97);
    for (const char* name : kDamageFiles) {
        SCOPED_TRACE(name);
        const std::vector<uint8_t> file = readTestFile(name);
        ASSERT_FALSE(file.empty());
        for (size_t cut = 0; cut < file.size(); cut += 97) {
            Decoded d(std::vector<uint8_t>(file.begin(), file.begin() + ptrdiff_t(cut)));
            ASSERT_TRUE(wellFormed(d)) << "cut at " << cut;
        }
        for (int i = 0; i < 300; ++i) {
            std::vector<uint8_t> changed = file;
            const size_t at = rng() % changed.size();
            changed[at] ^= uint8_t(1u << (rng() % 8));
            Decoded d(changed);
            ASSERT_TRUE(wellFormed(d)) << "bit flipped in byte " << at;
        }
    }
}

}  // namespace
}  // namespace model
