#pragma once
// Rebuilding of a highly compressed tessellation's points and triangles by
// edge traversal, with its retry strategy.

#include <cstdint>
#include <vector>

#include "prc/tess/compressed_tess_reading.h"

namespace prc {

struct CompressedTessResult {
    std::vector<double> positions;
    std::vector<uint32_t> triangles;
    uint32_t points_used = 0;
    uint32_t references_used = 0;
    uint32_t reference_bits_used = 0;
    uint32_t normal_bits_used = 0;
    uint32_t normal_angles_used = 0;
    std::vector<int64_t> tie_keys;  // ties met by the run, in order
};

// Which run of the strategy produced a result (for diagnostics).
enum class CompressedTessRun { First, Second, TieRetry };

CompressedTessResult buildCompressedTessMesh(const PRC3DTessCompressed& record, CompressedTessRun* run = nullptr);
CompressedTessResult runCompressedTessDecode(const PRC3DTessCompressed& record, bool normalize_fallback_axis,
                                             int64_t tie_key);
bool consumedExactly(const CompressedTessResult& result, const PRC3DTessCompressed& record);

}  // namespace prc
