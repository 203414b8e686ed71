#pragma once
// Helpers shared by the decode tests: owning a DecodedModel, reading test
// files, and checking that a result is well formed whatever the input was.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "model/decode_driver.h"

namespace model::test {

struct Decoded {
    DecodedModel model;
    DecodePass pass = DecodePass::None;
    bool ok = false;

    Decoded() { std::memset(&model, 0, sizeof model); }
    explicit Decoded(const std::vector<uint8_t>& file) : Decoded() {
        // An exactly sized heap copy, so that any read past the input shows.
        uint8_t* copy = static_cast<uint8_t*>(std::malloc(file.empty() ? 1 : file.size()));
        if (!file.empty()) std::memcpy(copy, file.data(), file.size());
        ok = decodePrcModel(copy, file.size(), &model, &pass);
        std::free(copy);
    }
    Decoded(const Decoded&) = delete;
    Decoded& operator=(const Decoded&) = delete;
    ~Decoded() {
        std::free(model.positions);
        std::free(model.triangles);
        std::free(model.colors);
        std::free(model.part_records);
    }
};

inline std::vector<uint8_t> readTestFile(const std::string& relative) {
    std::ifstream in(std::string(MESHDRONE_TEST_DATA) + "/" + relative, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline const char* passName(DecodePass p) {
    return p == DecodePass::Structured ? "structured" : p == DecodePass::Flat ? "flat" : "none";
}

// Everything the host relies on: a failure is all zero but its outcome; a
// success has indices inside the vertices, colours for every vertex and part
// records whose indices, parents, ranges, names and padding are consistent.
inline testing::AssertionResult wellFormed(const Decoded& d) {
    const DecodedModel& m = d.model;
    if (!d.ok) {
        DecodedModel zero;
        std::memset(&zero, 0, sizeof zero);
        zero.outcome = m.outcome;
        if (std::memcmp(&zero, &m, sizeof m) != 0) return testing::AssertionFailure() << "failure not all zero";
        if (m.outcome > 2) return testing::AssertionFailure() << "outcome " << m.outcome;
        return testing::AssertionSuccess();
    }
    if (m.triangle_count == 0 || !m.positions || !m.triangles || !m.colors)
        return testing::AssertionFailure() << "success without a mesh";
    for (uint64_t i = 0; i < uint64_t(m.triangle_count) * 3; ++i)
        if (m.triangles[i] >= m.vertex_count)
            return testing::AssertionFailure() << "triangle index " << m.triangles[i] << " of " << m.vertex_count;
    if ((m.part_count == 0) != (m.part_records == nullptr)) return testing::AssertionFailure() << "record block";
    std::vector<std::pair<uint32_t, uint32_t>> ranges;
    for (uint32_t i = 0; i < m.part_count; ++i) {
        const PartRecord& r = m.part_records[i];
        if (r.node_index != i) return testing::AssertionFailure() << "node index " << r.node_index << " at " << i;
        if (r.parent_index != 0xFFFFFFFF && r.parent_index >= i)
            return testing::AssertionFailure() << "parent " << r.parent_index << " of " << i;
        if (r.flag != 1 || r.name[127] != 0) return testing::AssertionFailure() << "flag or name of " << i;
        for (uint8_t z : r.zero)
            if (z) return testing::AssertionFailure() << "padding of " << i;
        for (uint8_t z : r.zero2)
            if (z) return testing::AssertionFailure() << "padding of " << i;
        if (r.triangle_count != 0) {
            if (uint64_t(r.first_triangle) + r.triangle_count > m.triangle_count)
                return testing::AssertionFailure() << "range of " << i << " beyond the triangles";
            ranges.emplace_back(r.first_triangle, r.triangle_count);
        }
    }
    std::sort(ranges.begin(), ranges.end());
    for (size_t i = 1; i < ranges.size(); ++i)
        if (ranges[i].first < uint64_t(ranges[i - 1].first) + ranges[i - 1].second)
            return testing::AssertionFailure() << "overlapping ranges";
    return testing::AssertionSuccess();
}

}  // namespace model::test
