// The bit reader's primitives in an order chosen by the input: the first byte
// gives the version and the number of operation bytes that follow it, the
// rest is the section. The operations repeat until the section gives out.

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "fuzz/fuzz_input.h"
#include "prc/io/bit_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const size_t opCount = 1 + (data[0] >> 4) % (size - 1);
    const uint8_t* ops = data + 1;
    prc::PRCBitReader r(ops + opCount, size - 1 - opCount, fuzz::version(data[0]));
    const uint64_t bits = r.size * 8;
    try {
        for (size_t step = 0; step < 100000 && r.bitsRemaining() > 0; ++step) {
            const uint8_t op = ops[step % opCount];
            const uint64_t before = r.bitIndex();
            switch (op % 12) {
                case 0: r.readBoolean(); break;
                case 1: r.readBits(int(op >> 4) * 3 - 4); break;  // -4 to 41 bits
                case 2: r.readCharacter(); break;
                case 3: r.readUnsignedInteger(); break;
                case 4: r.readInteger(); break;
                case 5: r.readDouble(); break;
                case 6: if (r.readString().size() * 8 > bits - before) std::abort(); break;
                case 7: r.readVector3d(); break;
                case 8: r.skipUserData(); break;
                case 9: r.readGraphics(); break;
                case 10: r.readVertexColors(r.readUnsignedInteger(), op & 0x10 ? 4 : 3); break;
                default: r.seekBit(std::min<uint64_t>(before + (op >> 4), bits)); break;
            }
            // A primitive that returns has moved forward and stayed inside the data.
            if (r.bitIndex() < before || r.bitIndex() > bits || r.bitsRemaining() != bits - r.bitIndex()) std::abort();
        }
    } catch (const std::runtime_error&) {
    }
    return 0;
}
