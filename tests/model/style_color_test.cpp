#include "model/style_color.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>

namespace model {
namespace {

using Rgb = std::array<uint8_t, 3>;

struct Resolved {
    bool ok;
    Rgb rgb;
};

Resolved resolve(const prc::PRCGlobals& g, uint32_t style, const uint8_t* defaultRgb = nullptr) {
    Resolved r{false, {1, 2, 3}};
    r.ok = resolveStyleColor(g, style, r.rgb.data(), defaultRgb);
    return r;
}

// The colour entry that a style's colour index leads to (entry i is stored
// with red i / 255), or -1 when it leads nowhere.
int entryFor(size_t colours, int64_t index) {
    prc::PRCGlobals g;
    for (size_t i = 0; i < colours; ++i) g.colors.push_back({double(i) / 255, 0, 0});
    g.styles = {{1.0, false, index}};
    const Resolved r = resolve(g, 0);
    return r.ok ? r.rgb[0] : -1;
}

TEST(StyleColor, ColourIndexCountsDoublesOrColours) {
    EXPECT_EQ(entryFor(3, 6), 2);  // 6 doubles in: the third colour
    EXPECT_EQ(entryFor(5, 4), 4);  // not a multiple of 3: a colour number
    EXPECT_EQ(entryFor(5, 3), 1);  // both readings fit: doubles win
    EXPECT_EQ(entryFor(5, 7), -1);
    EXPECT_EQ(entryFor(3, 9), -1);  // 9 / 3 is one past the end, and so is 9
    EXPECT_EQ(entryFor(1, 0), 0);
    EXPECT_EQ(entryFor(0, 0), -1);
    EXPECT_EQ(entryFor(3, -1), -1);
}

TEST(StyleColor, MaterialsLeadThroughTheirDiffuseColour) {
    prc::PRCGlobals g;
    g.colors = {{0, 0, 0}, {0.1, 0.5, 1.0}};
    prc::PRCMaterial diffuseThree, noDiffuse;
    diffuseThree.diffuse = 3;  // three doubles in: colour 1
    g.materials = {diffuseThree, noDiffuse};
    g.styles = {{1.0, true, 0}, {1.0, true, 1}, {1.0, true, 2}, {1.0, true, -1}};
    const Resolved r = resolve(g, 0);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.rgb, (Rgb{26, 128, 255}));  // 0.1 x 255 + 0.5 = 26
    for (uint32_t failing : {1u, 2u, 3u}) EXPECT_FALSE(resolve(g, failing).ok) << failing;
}

TEST(StyleColor, FailuresLeaveTheDefaultOrWhite) {
    prc::PRCGlobals g;
    g.colors = {{0, 0.5, 1}};
    g.styles = {{1.0, false, 5}, {1.0, false, 0}};
    const uint8_t defaultRgb[3] = {10, 20, 30};
    for (uint32_t style : {0u, 2u, 0xFFFFFFFFu}) {
        const Resolved withDefault = resolve(g, style, defaultRgb);
        EXPECT_FALSE(withDefault.ok);
        EXPECT_EQ(withDefault.rgb, (Rgb{10, 20, 30}));
        EXPECT_EQ(resolve(g, style).rgb, (Rgb{255, 255, 255}));
    }
    EXPECT_EQ(resolve(g, 1, defaultRgb).rgb, (Rgb{0, 128, 255}));
}

TEST(StyleColor, ComponentBytes) {
    const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
    prc::PRCGlobals g;
    g.colors = {{1.5, 0.5, -0.2}, {nan, inf, 0.49 / 255}};
    g.styles = {{1.0, false, 0}, {1.0, false, 1}};
    EXPECT_EQ(resolve(g, 0).rgb, (Rgb{255, 128, 0}));
    EXPECT_EQ(resolve(g, 1).rgb, (Rgb{0, 255, 0}));

    const uint8_t black[3] = {0, 0, 0};  // a colour, unlike the 0 of "none"
    EXPECT_EQ(packColor(black), 0xFF000000u);
}

}  // namespace
}  // namespace model
