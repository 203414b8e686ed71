#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "model/decoded_output.h"

namespace model {
namespace {

// A mesh of n triangles over 3n distinct vertices, with node ranges given.
PreviewMesh meshWith(uint32_t triangles, std::initializer_list<std::pair<uint32_t, uint32_t>> ranges) {
    PreviewMesh mesh;
    for (uint32_t t = 0; t < triangles; ++t)
        for (uint32_t c = 0; c < 3; ++c) {
            mesh.triangles.push_back(3 * t + c);
            for (int axis = 0; axis < 3; ++axis) mesh.positions.push_back(float(t + c + axis));
            mesh.colors.insert(mesh.colors.end(), {1, 2, 3});
        }
    uint32_t i = 0;
    for (auto [first, count] : ranges) {
        AssemblyNode node;
        node.name = "n" + std::to_string(i);
        node.parent_index = i == 0 ? 0xFFFFFFFF : 0;
        node.first_triangle = first;
        node.triangle_count = count;
        mesh.nodes.push_back(node);
        ++i;
    }
    return mesh;
}

struct Output {
    DecodedModel model;
    Output() { std::memset(&model, 0, sizeof model); }
    ~Output() {
        std::free(model.positions);
        std::free(model.triangles);
        std::free(model.colors);
        std::free(model.part_records);
    }
};

TEST(DecodedOutput, CopiesTheMeshAndFillsMissingColoursWithWhite) {
    PreviewMesh mesh;
    for (int i = 0; i < 30; ++i) mesh.positions.push_back(float(i) * 0.5f);
    mesh.triangles = {0, 1, 2, 7, 8, 9};
    mesh.colors.assign(6 * 3, 7);  // 10 vertices, 6 colour entries
    mesh.nodes.resize(1);          // a flat result has no records even so
    Output o;
    ASSERT_TRUE(buildDecodedOutput(mesh, false, &o.model));
    EXPECT_EQ(o.model.vertex_count, 10u);
    EXPECT_EQ(o.model.triangle_count, 2u);
    EXPECT_EQ(0, std::memcmp(o.model.positions, mesh.positions.data(), 120));
    EXPECT_EQ(0, std::memcmp(o.model.triangles, mesh.triangles.data(), 24));
    for (int i = 0; i < 30; ++i) EXPECT_EQ(o.model.colors[i], i < 18 ? 7 : 255) << i;
    EXPECT_EQ(o.model.part_records, nullptr);
    EXPECT_EQ(o.model.part_count, 0u);
}

TEST(DecodedOutput, RecordsCarryEveryNodeFieldInNodeOrder) {
    PreviewMesh mesh = meshWith(42, {{0, 12}, {12, 0}, {12, 30}});
    mesh.nodes[1].name = std::string(300, 'x');
    mesh.nodes[2].name = std::string(127, 'y');
    mesh.nodes[2].parent_index = 1;
    mesh.nodes[0].box_min[0] = -1.5f;
    mesh.nodes[0].box_max[2] = 4.25f;
    Output o;
    ASSERT_TRUE(buildDecodedOutput(mesh, true, &o.model));
    ASSERT_EQ(o.model.part_count, 3u);  // the ranges touch: accepted
    const PartRecord* r = o.model.part_records;
    EXPECT_STREQ(r[0].name, "n0");
    EXPECT_EQ(std::string(r[1].name), std::string(127, 'x'));
    EXPECT_EQ(r[1].name[127], '\0');
    EXPECT_EQ(std::string(r[2].name), std::string(127, 'y'));
    for (uint32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(r[i].node_index, i);
        EXPECT_EQ(r[i].flag, 1);
        for (uint8_t z : r[i].zero) EXPECT_EQ(z, 0);
        for (uint8_t z : r[i].zero2) EXPECT_EQ(z, 0);
    }
    EXPECT_EQ(r[0].parent_index, 0xFFFFFFFFu);
    EXPECT_EQ(r[2].parent_index, 1u);
    EXPECT_EQ(r[2].first_triangle, 12u);
    EXPECT_EQ(r[2].triangle_count, 30u);
    EXPECT_EQ(r[0].box_min[0], -1.5f);
    EXPECT_EQ(r[0].box_max[2], 4.25f);
    // The name field is NUL-padded to its end.
    for (size_t i = 2; i < 128; ++i) EXPECT_EQ(r[0].name[i], '\0');
}

TEST(DecodedOutput, InconsistentRangesDropEveryRecord) {
    struct Case {
        const char* what;
        uint32_t triangles;
        std::initializer_list<std::pair<uint32_t, uint32_t>> ranges;
        bool kept;
    };
    const Case cases[] = {
        {"range beyond the array", 25, {{0, 5}, {20, 10}}, false},
        {"range ending exactly at the array end", 30, {{0, 5}, {20, 10}}, true},
        {"overlap after sorting", 40, {{20, 10}, {0, 21}}, false},
        {"unsorted but disjoint", 40, {{30, 10}, {0, 5}, {5, 25}}, true},
        {"first + count overflows 32 bits", 10, {{0xFFFFFFF0u, 0x20}}, false},
        {"empty ranges anywhere are ignored", 4, {{0, 4}, {1000, 0}, {2, 0}}, true},
        {"two nodes with the same start", 10, {{3, 1}, {3, 2}}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        PreviewMesh mesh = meshWith(c.triangles, c.ranges);
        Output o;
        ASSERT_TRUE(buildDecodedOutput(mesh, true, &o.model));
        EXPECT_EQ(o.model.triangle_count, c.triangles);
        EXPECT_EQ(o.model.part_count, c.kept ? c.ranges.size() : 0u);
        EXPECT_EQ(o.model.part_records != nullptr, c.kept);
    }
}

// Allocation failures, counted from the first malloc of a call.
int g_failAt = -1;
int g_calls = 0;
void* failingAllocator(size_t n) {
    const int call = g_calls++;
    return call == g_failAt ? nullptr : std::malloc(n);
}

TEST(DecodedOutput, AllocationFailures) {
    for (int failAt = 0; failAt < 3; ++failAt) {
        SCOPED_TRACE(failAt);
        PreviewMesh mesh = meshWith(3, {{0, 3}});
        Output o;
        o.model.color_count = 5;  // zeroed with everything else
        g_failAt = failAt;
        g_calls = 0;
        EXPECT_FALSE(buildDecodedOutput(mesh, true, &o.model, failingAllocator));
        DecodedModel zero;
        std::memset(&zero, 0, sizeof zero);
        EXPECT_EQ(0, std::memcmp(&o.model, &zero, sizeof zero));
    }
    // The record block failing still gives the mesh, without records.
    PreviewMesh mesh = meshWith(3, {{0, 3}});
    Output o;
    g_failAt = 3;
    g_calls = 0;
    EXPECT_TRUE(buildDecodedOutput(mesh, true, &o.model, failingAllocator));
    EXPECT_EQ(g_calls, 4);
    EXPECT_EQ(o.model.triangle_count, 3u);
    EXPECT_EQ(o.model.part_count, 0u);
    EXPECT_EQ(o.model.part_records, nullptr);
}

}  // namespace
}  // namespace model
