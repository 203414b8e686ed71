// The highly compressed tessellations of a tessellation section, each rebuilt
// into a coloured piece with every retry of the decoder.

#include <exception>

#include "fuzz/fuzz_input.h"
#include "model/assembly.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const uint32_t version = fuzz::version(data[0]);
    std::vector<prc::PRC3DTessCompressed> records;
    try {
        prc::readFileStructureTessellation(data + 1, size - 1, version, version, records, nullptr);
    } catch (const std::exception&) {
    }
    prc::PRCGlobals globals;
    globals.colors = {{1, 0, 0}, {0, 1, 0}};
    globals.styles = {{1.0, false, 0}, {1.0, false, 1}};
    for (const prc::PRC3DTessCompressed& record : records) {
        try {
            prc::TessMesh piece;
            model::buildCompressedTessPiece(piece, record, globals, nullptr);
        } catch (const std::exception&) {
        }
    }
    return 0;
}
