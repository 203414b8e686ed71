#pragma once
// Test-only writer of a globals section that holds the tables a reader keeps
// (colours, materials, styles) and leaves every other table empty. Values are
// as stored: indices as index + 1, 0 for none.

#include <array>
#include <cstdint>
#include <vector>

#include "tests/support/prc_bit_writer.h"

namespace prc::test {

using Vec3 = std::array<double, 3>;

struct MaterialFields {
    std::array<uint32_t, 4> colors{};  // ambient, diffuse, emissive, specular
    static MaterialFields withDiffuse(uint32_t d) { return {.colors = {0, d, 0, 0}}; }
};

struct StyleFields {
    uint32_t color_material_plus_one = 0;
    static StyleFields color(uint32_t c) { return {.color_material_plus_one = c}; }
};

struct GlobalsFields {
    std::vector<Vec3> colors{};
    std::vector<MaterialFields> materials{};
    std::vector<StyleFields> styles{};
};
void writeGlobals(PRCBitWriter& w, uint32_t version, const GlobalsFields& s = {});

}  // namespace prc::test
