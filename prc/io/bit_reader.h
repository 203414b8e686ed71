#pragma once
// Cursor over one inflated PRC section and the element encodings of the format.

#include <cstdint>
#include <string>
#include <vector>

namespace prc {

struct PRCGraphics {
    uint32_t layer_index = 0xFFFFFFFF;
    uint32_t line_style_index = 0xFFFFFFFF;
    uint16_t behaviour = 1;
};

struct Vector3d {
    double x = 0, y = 0, z = 0;
};

// Every failure is a std::runtime_error with a fixed text; nothing is rolled
// back, the owner of the section decides what is lost.
class PRCBitReader {
public:
    PRCBitReader(const uint8_t* data, uint64_t size, uint32_t version);

    bool readBoolean();
    uint32_t readBits(int n);  // n <= 0 reads nothing; n > 32 keeps the last 32 bits
    uint8_t readCharacter();
    uint32_t readUnsignedInteger();
    int32_t readInteger();
    double readDouble();
    std::string readString();
    Vector3d readVector3d();
    void skipUserData();
    PRCGraphics readGraphics();
    std::vector<uint8_t> readVertexColors(uint32_t rows, uint32_t bytesPerRow);
    // count readBoolean calls, into one vector: fails as they would, read past end.
    std::vector<bool> readBooleans(uint32_t count);
    uint64_t bitsRemaining() const;

    // How many entries of a counted list may be reserved: a corrupt count must
    // not size anything beyond what the data left could hold, each entry
    // taking at least minBits bits.
    size_t entriesThatFit(uint64_t count, uint64_t minBits = 1) const {
        const uint64_t fit = bitsRemaining() / minBits;
        return size_t(count < fit ? count : fit);
    }

    // Absolute bit index of the cursor, and a way back to one (for peeking).
    uint64_t bitIndex() const { return byte_position * 8 + bit_position; }
    void seekBit(uint64_t index);

    // Fresh-section state: empty name, unset graphics.
    void resetState();

    const uint8_t* data;
    uint64_t size;
    uint64_t byte_position = 0;
    uint32_t bit_position = 0;
    std::string current_name;
    PRCGraphics current_graphics;
    uint32_t version;

private:
    [[noreturn]] static void readPastEnd();
    double readDoubleInWindow();
    double readDoubleNearEnd();
    uint64_t peek64() const;  // the next 64 bits, zero-padded past the end
    uint64_t peek64NearEnd() const;
    uint32_t takeBits(int n);  // readBits for 1 <= n <= 32
    void advance(uint64_t bits) { seekBit(bitIndex() + bits); }
    template <bool Signed>
    uint32_t readNumber();
};

}  // namespace prc
