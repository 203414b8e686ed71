#include <gtest/gtest.h>

#include <zlib.h>

#include <random>

#include "prc/io/inflate_section.h"
#include "tests/prc/io/io_test_util.h"
#include "tests/support/prc_file_builder.h"

namespace prc {
namespace {

using test::expectError;
using test::zlibCompress;

std::vector<uint8_t> inflateAll(const std::vector<uint8_t>& section) {
    return inflateSection(section.data(), section.size());
}

TEST(InflateSection, RoundTripsAndTrailingBytes) {
    std::mt19937 rng(1);
    for (size_t size : {size_t(0), size_t(4096), size_t(300000)}) {
        std::vector<uint8_t> data(size);
        for (size_t i = 0; i < size; ++i) data[i] = uint8_t(rng() % 8 == 0 ? rng() : i / 64);
        std::vector<uint8_t> section = zlibCompress(data);
        EXPECT_EQ(inflateAll(section), data);
        for (uint8_t b : {0x78, 0x9C, 0xFF}) section.push_back(b);  // ignored after the stream's end
        EXPECT_EQ(inflateAll(section), data);
    }
    // Far more than the first buffer (8 x input + 4096) holds: it must grow.
    const std::vector<uint8_t> zeros(5'000'000, 0);
    EXPECT_EQ(inflateAll(zlibCompress(zeros)), zeros);
}

TEST(InflateSection, BrokenStreams) {
    const std::vector<uint8_t> good = zlibCompress(std::vector<uint8_t>(20000, 'a'));
    // zlib has no text for a plain lack of input.
    for (size_t length : {size_t(0), size_t(1), good.size() / 2, good.size() - 1})
        expectError([&] { inflateSection(good.data(), length); }, "inflate failed: ?");
    std::vector<uint8_t> header = good, check = good;
    header[0] = 0x00;
    check.back() ^= 0x01;
    expectError([&] { inflateAll(header); }, "inflate failed: incorrect header check");
    expectError([&] { inflateAll(check); }, "inflate failed: incorrect data check");
    expectError([&] { inflateAll({0x78, 0x9C, 0x07, 0x00}); }, "inflate failed: invalid block type");
    // A preset dictionary: zlib answers Z_NEED_DICT (2), a failure here, without text.
    z_stream zs{};
    ASSERT_EQ(deflateInit(&zs, Z_DEFAULT_COMPRESSION), Z_OK);
    const uint8_t dictionary[] = "dictionary";
    ASSERT_EQ(deflateSetDictionary(&zs, dictionary, sizeof dictionary), Z_OK);
    std::vector<uint8_t> in(100, 'd'), out(256);
    zs.next_in = in.data(), zs.avail_in = uInt(in.size());
    zs.next_out = out.data(), zs.avail_out = uInt(out.size());
    ASSERT_EQ(deflate(&zs, Z_FINISH), Z_STREAM_END);
    out.resize(zs.total_out);
    deflateEnd(&zs);
    expectError([&] { inflateAll(out); }, "inflate failed: ?");
}

// The buffer starts at 8 x section length + 4096 bytes and doubles while it is
// not above the limit. Sections padded to 1536 bytes start at 16384 bytes.
TEST(InflateSection, GrowthStopsAboveTheLimit) {
    auto section = [](size_t outputSize) {
        std::vector<uint8_t> s = zlibCompress(std::vector<uint8_t>(outputSize, 0x41));
        s.resize(1536, 0);
        return s;
    };
    const std::string limit = "inflateSection: decompression safety limit exceeded";
    const struct {
        size_t output;
        uint64_t limit;
        bool fits;
    } cases[] = {
        {65536, 32768, true},   // 16384 -> 32768 (not above the limit) -> 65536
        {65537, 32768, false},
        {65536, 32767, false},  // 32768 is above the limit: the last buffer
        {32768, 32767, true},
        {16384, 100, true},     // the first buffer alone may be above the limit
        {16385, 100, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.output);
        const std::vector<uint8_t> s = section(c.output);
        if (c.fits) {
            EXPECT_EQ(inflateSection(s.data(), s.size(), c.limit).size(), c.output);
        } else {
            expectError([&] { inflateSection(s.data(), s.size(), c.limit); }, limit);
            EXPECT_EQ(inflateAll(s).size(), c.output);  // the real limit lets it through
        }
    }
    EXPECT_EQ(kInflateSafetyLimit, 536870911u);
}

}  // namespace
}  // namespace prc
