#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>

#include "prc/io/bit_reader.h"
#include "tests/support/prc_bit_writer.h"

namespace prc {
namespace {

using test::PRCBitWriter;

// Random values of every encoding, written and read back in one stream.
TEST(BitReaderRoundTrip, RandomMixedStream) {
    std::mt19937_64 rng(20261123);
    PRCBitWriter w;
    std::vector<uint32_t> us;
    std::vector<int32_t> is;
    std::vector<double> ds;
    for (int i = 0; i < 5000; ++i) {
        const uint32_t u = uint32_t(rng() >> (rng() % 64));
        const int32_t s = int32_t(uint32_t(rng() >> (rng() % 64)));
        double d;
        switch (rng() % 4) {
            case 0: d = std::bit_cast<double>(rng()); break;
            case 1: d = double(int64_t(rng() % 2000) - 1000) / 8; break;
            case 2: d = std::ldexp(double(rng() % 1000), int(rng() % 40) - 20); break;
            default: d = std::array{0.0, 1.0, -1.0, 0.5, 360.0, 1e-08, -0.0}[rng() % 7]; break;
        }
        if (std::isnan(d)) d = 3.0;
        us.push_back(u);
        is.push_back(s);
        ds.push_back(d);
        w.writeUnsignedInteger(u);
        w.writeInteger(s);
        w.writeDouble(d, rng() % 2 ? PRCBitWriter::MantissaStyle::Literal : PRCBitWriter::MantissaStyle::Shortest);
    }
    PRCBitReader r(w.bytes().data(), w.bytes().size(), 8137);
    for (size_t i = 0; i < us.size(); ++i) {
        ASSERT_EQ(r.readUnsignedInteger(), us[i]) << i;
        ASSERT_EQ(r.readInteger(), is[i]) << i;
        ASSERT_EQ(std::bit_cast<uint64_t>(r.readDouble()), std::bit_cast<uint64_t>(ds[i])) << i << " " << ds[i];
    }
    EXPECT_EQ(r.bitIndex(), w.bitCount());
}

}  // namespace
}  // namespace prc
