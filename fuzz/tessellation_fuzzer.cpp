// The tessellation section reader, then every plain tessellation triangulated
// and merged as the flat pass does (compressed records have their own target).

#include <exception>

#include "fuzz/fuzz_input.h"
#include "model/assembly.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const uint32_t version = fuzz::version(data[0]);
    try {
        std::vector<prc::PRC3DTessCompressed> compressed;
        std::vector<prc::TessellationRef> refs;
        const uint8_t red[3] = {255, 0, 0};
        model::PreviewMesh mesh;
        for (const prc::PRC3DTess& tess :
             prc::readFileStructureTessellation(data + 1, size - 1, version, version, compressed, &refs))
            model::appendPiece(mesh, prc::appendFaceTriangles(tess, prc::PRCGlobals(), red), nullptr);
    } catch (const std::exception&) {
    }
    return 0;
}
