#pragma once
// Owning a DecodedModel, and checking that a result is well formed whatever the input was.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "model/decode_driver.h"

namespace model::test {

struct Decoded {
    DecodedModel model;
    DecodePass pass = DecodePass::None;
    bool ok = false;

    explicit Decoded(const std::vector<uint8_t>& file) {
        std::memset(&model, 0, sizeof model);
        // An exactly sized heap copy, so that any read past the input shows.
        uint8_t* copy = static_cast<uint8_t*>(std::malloc(std::max<size_t>(file.size(), 1)));
        if (!file.empty()) std::memcpy(copy, file.data(), file.size());
        ok = decodePrcModel(copy, file.size(), &model, &pass);
        std::free(copy);
    }
    ~Decoded() {
        std::free(model.positions);
        std::free(model.triangles);
        std::free(model.colors);
        std::free(model.part_records);
    }
};

// A failure is all zero but its outcome; a success has indices inside the
// vertices and part records whose indices, parents, names, padding and
// triangle ranges are consistent.
inline testing::AssertionResult wellFormed(const Decoded& d) {
    const DecodedModel& m = d.model;
    if (!d.ok) {
        DecodedModel zero;
        std::memset(&zero, 0, sizeof zero);
        zero.outcome = m.outcome;
        if (std::memcmp(&zero, &m, sizeof m) != 0 || m.outcome > 2) return testing::AssertionFailure() << "failure";
        return testing::AssertionSuccess();
    }
    if (m.triangle_count == 0 || !m.positions || !m.triangles || !m.colors) return testing::AssertionFailure() << "no mesh";
    for (uint64_t i = 0; i < uint64_t(m.triangle_count) * 3; ++i)
        if (m.triangles[i] >= m.vertex_count) return testing::AssertionFailure() << "index " << m.triangles[i];
    if ((m.part_count == 0) != (m.part_records == nullptr)) return testing::AssertionFailure() << "record block";
    std::vector<std::pair<uint64_t, uint64_t>> ranges;
    for (uint32_t i = 0; i < m.part_count; ++i) {
        const PartRecord& r = m.part_records[i];
        const bool padded = std::all_of(r.zero, r.zero + 16, [](uint8_t z) { return z == 0; }) && !r.zero2[0] &&
                            !r.zero2[1] && !r.zero2[2] && r.name[127] == 0 && r.flag == 1;
        if (r.node_index != i || (r.parent_index != 0xFFFFFFFF && r.parent_index >= i) || !padded)
            return testing::AssertionFailure() << "record " << i;
        if (r.triangle_count) ranges.emplace_back(r.first_triangle, uint64_t(r.first_triangle) + r.triangle_count);
    }
    std::sort(ranges.begin(), ranges.end());
    for (size_t i = 0; i < ranges.size(); ++i)
        if (ranges[i].second > m.triangle_count || (i > 0 && ranges[i].first < ranges[i - 1].second))
            return testing::AssertionFailure() << "ranges";
    return testing::AssertionSuccess();
}

}  // namespace model::test
