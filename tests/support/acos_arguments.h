#pragma once
// Arguments that reach every region of the decoder's arc cosine, drawn
// deterministically: uniform over [-1, 1]; every binade down to 2^-64 (the
// region |x| <= 1/2 and its table); a few ulps below 1 in magnitude (the
// square-root reduction, results near 0 and pi); a few ulps around the table
// breakpoints i/128 and the region bounds +-1/2; and the special values.

#include <bit>
#include <cstdint>
#include <vector>

namespace prc::test {

inline std::vector<double> acosArguments(size_t n) {
    std::vector<double> xs = {0.0, -0.0, 1.0, -1.0, 0.5, -0.5, 0x1p-1074, -0x1p-1074, 0x1p-1022,
                              0.999999999999, -0.999999999999, 0x1.fffffffffffffp-1, -0x1.fffffffffffffp-1};
    const auto bits = [](double v) { return std::bit_cast<uint64_t>(v); };
    for (uint64_t r = 0x9E3779B97F4A7C15ull; xs.size() < n;) {
        r ^= r << 13, r ^= r >> 7, r ^= r << 17;
        const double sign = (r >> 63) != 0 ? -1.0 : 1.0;
        const double breakpoint = double((r >> 32) % 65) / 128.0;
        const double near = std::bit_cast<double>(bits(breakpoint == 0.0 ? 0x1p-60 : breakpoint) + ((r >> 8) & 0xFF) - 128);
        switch (xs.size() % 4) {
            case 0: xs.push_back(sign * double(r >> 11) * 0x1p-53); break;
            case 1: xs.push_back(sign * std::bit_cast<double>((1022 - (r >> 58)) << 52 | (r & 0xFFFFFFFFFFFFFull))); break;
            case 2: xs.push_back(sign * std::bit_cast<double>(bits(1.0) - 1 - ((r >> 20) & 0xFFFFF))); break;
            default: xs.push_back(sign * (near > 1.0 ? 1.0 : near));
        }
    }
    return xs;
}

}  // namespace prc::test
