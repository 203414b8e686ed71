// The globals section reader, then every style it kept through the colour
// resolution.

#include <exception>

#include "fuzz/fuzz_input.h"
#include "model/style_color.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    prc::PRCBitReader r(data + 1, size - 1, fuzz::version(data[0]));
    try {
        const prc::PRCGlobals globals = prc::readFileStructureGlobals(r);
        const uint8_t grey[3] = {128, 128, 128};
        uint8_t rgb[3];
        for (uint32_t i = 0; i <= globals.styles.size(); ++i) model::resolveStyleColor(globals, i, rgb, grey);
    } catch (const std::exception&) {
    }
    return 0;
}
