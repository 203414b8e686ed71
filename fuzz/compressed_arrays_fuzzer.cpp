// The compressed array readers, one after the other over the section: the
// first byte picks the reader, the second its parameters.

#include <stdexcept>

#include "prc/io/compressed_arrays.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint8_t which = data[0] % 5, p = data[1];
    // Widths one beyond each reader's range are let through: they must fail cleanly.
    const uint8_t width = p & 0x1F;
    const bool readFlag = p & 0x20, defaultCompressed = p & 0x40, isSigned = p & 0x80;
    prc::PRCBitReader r(data + 2, size - 2, 0xFFFFFFFF);
    try {
        for (int i = 0; i < 64 && r.bitsRemaining() > 0; ++i) {
            switch (which) {
                case 0: prc::readShortArray(r, width % 18, readFlag, defaultCompressed, isSigned); break;
                case 1: prc::readCharacterArray(r, width % 10, readFlag, defaultCompressed, isSigned); break;
                case 2: prc::readHuffmanCompressedArray(r, width, isSigned); break;
                case 3: prc::readCompressedIntegerArray(r); break;
                default: prc::readCompressedIndiceArray(r, readFlag, width % 9, defaultCompressed); break;
            }
        }
    } catch (const std::runtime_error&) {
    }
    return 0;
}
