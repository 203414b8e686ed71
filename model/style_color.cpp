#include "model/style_color.h"

#include <algorithm>

namespace model {

namespace {

// Components are nominally 0..1; anything below 0, and NaN, is black.
uint8_t componentByte(double x) {
    if (!(x >= 0.0)) return 0;
    return uint8_t(std::min(x, 1.0) * 255.0 + 0.5);
}

}  // namespace

bool resolveStyleColor(const prc::PRCGlobals& globals, uint32_t styleIndex, uint8_t out[3], const uint8_t* defaultRgb) {
    static constexpr uint8_t kWhite[3] = {255, 255, 255};
    const uint8_t* fallback = defaultRgb ? defaultRgb : kWhite;
    std::copy(fallback, fallback + 3, out);

    if (styleIndex == 0xFFFFFFFF || styleIndex >= globals.styles.size()) return false;
    const prc::PRCStyle& style = globals.styles[styleIndex];
    const int64_t index = style.color_material_index;
    if (index < 0) return false;

    int64_t c = index;
    if (style.is_material) {
        if (uint64_t(index) >= globals.materials.size()) return false;
        c = globals.materials[size_t(index)].diffuse;
        if (c < 0) return false;
    }

    // Writers disagree on whether a colour index counts doubles (three per
    // colour) or whole colours; the first reading wins where both fit.
    const uint64_t n = globals.colors.size();
    const uint64_t u = uint64_t(c);
    const prc::RgbColor* color = nullptr;
    if (u % 3 == 0 && u / 3 < n)
        color = &globals.colors[size_t(u / 3)];
    else if (u < n)
        color = &globals.colors[size_t(u)];
    else
        return false;

    out[0] = componentByte(color->red);
    out[1] = componentByte(color->green);
    out[2] = componentByte(color->blue);
    return true;
}

}  // namespace model
