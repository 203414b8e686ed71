#pragma once
// Helpers shared by the tests of the container and bit-level readers.

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "prc/io/bit_reader.h"
#include "tests/support/prc_bit_writer.h"

namespace prc::test {

// Runs f and checks that it throws a runtime_error with exactly this text.
template <typename F>
void expectError(F&& f, const std::string& message) {
    try {
        f();
        ADD_FAILURE() << "no exception; expected \"" << message << "\"";
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(std::string(e.what()), message);
    }
}

// A reader over its own copy of the written bytes.
struct Stream {
    std::vector<uint8_t> bytes;
    PRCBitReader r;
    explicit Stream(const PRCBitWriter& w, uint32_t version = 8137)
        : bytes(w.bytes()), r(bytes.data(), bytes.size(), version) {}
};

inline PRCBitWriter bitsOf(std::string_view bits) {
    PRCBitWriter w;
    w.writeBitString(bits);
    return w;
}

}  // namespace prc::test
