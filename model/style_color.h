#pragma once
// Style indices to colour bytes, and the packed colour handed down the assembly.

#include <cstdint>

#include "prc/entities/globals.h"

namespace model {

// 0 is "no colour"; a resolved colour is 0xFF000000 | r << 16 | g << 8 | b,
// so black is 0xFF000000 and never 0.
constexpr uint32_t packColor(const uint8_t rgb[3]) {
    return 0xFF000000u | uint32_t(rgb[0]) << 16 | uint32_t(rgb[1]) << 8 | uint32_t(rgb[2]);
}
inline void unpackColor(uint32_t packed, uint8_t rgb[3]) {
    rgb[0] = uint8_t(packed >> 16);
    rgb[1] = uint8_t(packed >> 8);
    rgb[2] = uint8_t(packed);
}

// out is written in every case: the resolved colour (true), else the default
// colour or white (false).
bool resolveStyleColor(const prc::PRCGlobals& globals, uint32_t styleIndex, uint8_t out[3], const uint8_t* defaultRgb);

}  // namespace model
