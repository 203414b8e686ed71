// Section inflation: inflateSection against a bare zlib uncompress of the
// same stream, in bytes of output per second.

#include <benchmark/benchmark.h>

#include <zlib.h>

#include <cmath>
#include <numbers>
#include <memory>
#include <random>

#include "prc/io/inflate_section.h"
#include "tests/support/prc_builder.h"

namespace {

using prc::test::PRCBitWriter;

// A tessellation-like stream of about 4 MB: point coordinates of a torus on a
// millimetre grid, normals, then triangle indices as UnsignedIntegers.
struct Section {
    std::vector<uint8_t> inflated, deflated;
};

const Section& section() {
    static const Section s = [] {
        PRCBitWriter w;
        const int rings = 300, sides = 300;
        for (int i = 0; i < rings; ++i) {
            for (int j = 0; j < sides; ++j) {
                const double u = 2 * std::numbers::pi * i / rings, v = 2 * std::numbers::pi * j / sides;
                const double x = (100 + 30 * std::cos(v)) * std::cos(u), y = (100 + 30 * std::cos(v)) * std::sin(u),
                             z = 30 * std::sin(v);
                for (double c : {x, y, z}) w.writeDouble(std::round(c * 1000) / 1000);
                for (double c : {std::cos(v) * std::cos(u), std::cos(v) * std::sin(u), std::sin(v)}) w.writeDouble(c);
            }
        }
        for (int i = 0; i < rings; ++i) {
            for (int j = 0; j < sides; ++j) {
                const uint32_t a = uint32_t(i * sides + j), b = uint32_t(((i + 1) % rings) * sides + j);
                const uint32_t c = uint32_t(i * sides + (j + 1) % sides);
                for (uint32_t index : {a * 3, b * 3, c * 3}) w.writeUnsignedInteger(index);
            }
        }
        Section out;
        out.inflated = w.bytes();
        uLongf size = compressBound(uLong(out.inflated.size()));
        out.deflated.resize(size);
        compress2(out.deflated.data(), &size, out.inflated.data(), uLong(out.inflated.size()), Z_DEFAULT_COMPRESSION);
        out.deflated.resize(size);
        return out;
    }();
    return s;
}

void BM_InflateSection(benchmark::State& state) {
    const Section& s = section();
    for (auto _ : state) {
        prc::InflatedSection out = prc::inflateSection(s.deflated.data(), s.deflated.size());
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * int64_t(s.inflated.size()));
    state.counters["ratio"] = double(s.inflated.size()) / double(s.deflated.size());
    state.counters["out_MB"] = double(s.inflated.size()) / 1e6;
}
BENCHMARK(BM_InflateSection)->Unit(benchmark::kMillisecond);

// The floor: zlib alone into a buffer of the known size, not zero-filled.
void BM_ZlibUncompress(benchmark::State& state) {
    const Section& s = section();
    for (auto _ : state) {
        std::unique_ptr<uint8_t[]> out(new uint8_t[s.inflated.size()]);
        uLongf size = uLongf(s.inflated.size());
        if (uncompress(out.get(), &size, s.deflated.data(), uLong(s.deflated.size())) != Z_OK)
            state.SkipWithError("uncompress failed");
        benchmark::DoNotOptimize(out.get());
    }
    state.SetBytesProcessed(state.iterations() * int64_t(s.inflated.size()));
}
BENCHMARK(BM_ZlibUncompress)->Unit(benchmark::kMillisecond);

}  // namespace
