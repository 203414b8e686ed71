// The exact geometry: a geometry section read on raw inflated bytes, then
// every face it holds tessellated within a budget a hundred times smaller
// than a decode's (the fuzzer's one-second limit), at a tolerance chosen by
// the input's second byte.

#include <cmath>
#include <exception>

#include "fuzz/fuzz_input.h"
#include "prc/exact/exact_reading.h"
#include "prc/exact/face_tessellation.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint32_t version = fuzz::version(data[0]);
    const double tolerance = std::ldexp(1.0, -int(data[1] % 32));
    prc::PRCBitReader r(data + 2, size - 2, version);
    const prc::exact::ExactGeometry geometry = prc::exact::readFileStructureGeometry(r);
    prc::exact::TessellationBudget budget{prc::exact::kMaxModelCells / 100, prc::exact::kMaxModelWork / 100};
    const uint8_t rgb[3] = {255, 0, 0};
    prc::TessMesh piece;
    for (const prc::exact::ExactContext& context : geometry.contexts)
        for (const prc::exact::ExactBody& body : context.bodies)
            for (const prc::exact::ExactFace& face : body.faces) {
                double segments[2];
                prc::exact::patchSegments(face, tolerance, segments);
                if (face.skip == 0) prc::exact::tessellateFace(face, tolerance, budget, rgb, piece, segments);
            }
    return 0;
}
