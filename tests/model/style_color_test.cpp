#include "model/style_color.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <tuple>
#include <utility>

namespace model {
namespace {

using Rgb = std::array<uint8_t, 3>;

// Whether `style` has a colour, and the bytes: its colour or what was left.
std::pair<bool, Rgb> resolve(const prc::PRCGlobals& g, uint32_t style, const uint8_t* defaultRgb = nullptr) {
    Rgb rgb{1, 2, 3};
    const bool ok = resolveStyleColor(g, style, rgb.data(), defaultRgb);
    return {ok, rgb};
}

TEST(StyleColor, ColourIndexCountsDoublesOrColours) {
    // {colours, stored index, the colour entry it leads to or -1}, entry i
    // stored with red i / 255: 6 doubles in is the third colour, 4 (not a
    // multiple of 3) a colour number, 3 doubles win when both readings fit,
    // 9 / 3 and 9 are both one past the end of three.
    const std::tuple<size_t, int64_t, int> cases[] = {{3, 6, 2}, {5, 4, 4}, {5, 3, 1},  {5, 7, -1},
                                                      {3, 9, -1}, {1, 0, 0}, {0, 0, -1}, {3, -1, -1}};
    for (const auto& [colours, index, entry] : cases) {
        prc::PRCGlobals g;
        for (size_t i = 0; i < colours; ++i) g.colors.push_back({double(i) / 255, 0, 0});
        g.styles = {{1.0, false, index}};
        const auto [ok, rgb] = resolve(g, 0);
        EXPECT_EQ(ok ? rgb[0] : -1, entry) << colours << " colours, index " << index;
    }
}

TEST(StyleColor, MaterialsLeadThroughTheirDiffuseColour) {
    prc::PRCGlobals g;
    g.colors = {{0, 0, 0}, {0.1, 0.5, 1.0}};
    g.materials = {prc::PRCMaterial{.diffuse = 3}, prc::PRCMaterial{}};  // three doubles in: colour 1
    g.styles = {{1.0, true, 0}, {1.0, true, 1}, {1.0, true, 2}, {1.0, true, -1}};
    EXPECT_EQ(resolve(g, 0), std::pair(true, Rgb{26, 128, 255}));  // 0.1 x 255 + 0.5 = 26
    for (uint32_t failing : {1u, 2u, 3u}) EXPECT_FALSE(resolve(g, failing).first) << failing;
}

TEST(StyleColor, ComponentBytesAndFailures) {
    const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
    prc::PRCGlobals g;
    g.colors = {{1.5, 0.5, -0.2}, {nan, inf, 0.49 / 255}};
    g.styles = {{1.0, false, 0}, {1.0, false, 1}, {1.0, false, 6}};
    const uint8_t defaultRgb[3] = {10, 20, 30};
    EXPECT_EQ(resolve(g, 0, defaultRgb), std::pair(true, Rgb{255, 128, 0}));
    EXPECT_EQ(resolve(g, 1), std::pair(true, Rgb{0, 255, 0}));
    for (uint32_t style : {2u, 3u, 0xFFFFFFFFu}) {  // no such colour, no such style: the default, else white
        EXPECT_EQ(resolve(g, style, defaultRgb), std::pair(false, Rgb{10, 20, 30}));
        EXPECT_EQ(resolve(g, style), std::pair(false, Rgb{255, 255, 255}));
    }
    const uint8_t black[3] = {0, 0, 0};  // a colour, unlike the 0 of "none"
    EXPECT_EQ(packColor(black), 0xFF000000u);
}

}  // namespace
}  // namespace model
