// Element decoding speed of the bit reader and the compressed arrays, in
// elements per second.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "prc/io/bit_reader.h"
#include "prc/io/compressed_arrays.h"
#include "tests/support/prc_bit_writer.h"

namespace {

using prc::PRCBitReader;
using prc::test::PRCBitWriter;

constexpr int kElements = 100000;

// Counts and indices as entity readers see them: mostly one byte, some two,
// few more.
PRCBitWriter unsignedStream() {
    std::mt19937 rng(1);
    PRCBitWriter w;
    for (int i = 0; i < kElements; ++i) {
        const uint32_t r = rng() % 100;
        w.writeUnsignedInteger(r < 20 ? 0 : r < 75 ? rng() % 256 : r < 95 ? rng() % 65536 : rng());
    }
    return w;
}

void BM_UnsignedInteger(benchmark::State& state) {
    const PRCBitWriter w = unsignedStream();
    for (auto _ : state) {
        PRCBitReader r(w.bytes().data(), w.bytes().size(), 8137);
        uint32_t sum = 0;
        for (int i = 0; i < kElements; ++i) sum += r.readUnsignedInteger();
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kElements);
}
BENCHMARK(BM_UnsignedInteger);

void BM_Integer(benchmark::State& state) {
    std::mt19937 rng(2);
    PRCBitWriter w;
    for (int i = 0; i < kElements; ++i) w.writeInteger(int32_t(rng() % 2000) - 1000);
    for (auto _ : state) {
        PRCBitReader r(w.bytes().data(), w.bytes().size(), 8137);
        int32_t sum = 0;
        for (int i = 0; i < kElements; ++i) sum += r.readInteger();
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kElements);
}
BENCHMARK(BM_Integer);

// A quarter table values (0, 1, 0.5, 360, ...), the rest coordinates,
// normals and parameters with mantissas of every kind.
void BM_Double(benchmark::State& state) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> coordinate(-500, 500), unit(-1, 1);
    const double table[] = {0.0, 1.0, -1.0, 0.5, 360.0, 0.001, 1e-08, 180.0};
    PRCBitWriter w;
    for (int i = 0; i < kElements; ++i) {
        const uint32_t kind = rng() % 4;
        double d;
        if (kind == 0) {
            d = table[rng() % std::size(table)];
        } else if (kind == 1) {
            d = std::round(coordinate(rng) * 1000) / 1000;  // millimetre grid
        } else if (kind == 2) {
            d = unit(rng);  // normal components
        } else {
            d = double(int(rng() % 4096)) / 64;  // short mantissas
        }
        w.writeDouble(d);
    }
    for (auto _ : state) {
        PRCBitReader r(w.bytes().data(), w.bytes().size(), 8137);
        double sum = 0;
        for (int i = 0; i < kElements; ++i) sum += r.readDouble();
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kElements);
}
BENCHMARK(BM_Double);

// Edge statuses: 2-bit characters, heavily skewed.
void BM_HuffmanCharacters(benchmark::State& state) {
    std::mt19937 rng(4);
    std::vector<uint8_t> values(1000000);
    for (uint8_t& v : values) {
        const uint32_t r = rng() % 100;
        v = r < 70 ? 0 : r < 90 ? 1 : r < 97 ? 2 : 3;
    }
    PRCBitWriter w;
    w.writeCharacterArray(values, true, true, 2);
    for (auto _ : state) {
        PRCBitReader r(w.bytes().data(), w.bytes().size(), 8137);
        benchmark::DoNotOptimize(prc::readCharacterArray(r, 2, true, true, false));
    }
    state.SetItemsProcessed(state.iterations() * int64_t(values.size()));
}
BENCHMARK(BM_HuffmanCharacters);

// Quantised normal angles: 16-bit shorts over a wide alphabet, so that codes
// run past the direct lookup.
void BM_HuffmanShorts(benchmark::State& state) {
    std::mt19937 rng(5);
    std::normal_distribution<double> angle(32768, 3000);
    std::vector<uint16_t> values(500000);
    for (uint16_t& v : values) v = uint16_t(std::clamp(angle(rng), 0.0, 65535.0));
    PRCBitWriter w;
    w.writeShortArray(values, true, true, 16);
    for (auto _ : state) {
        PRCBitReader r(w.bytes().data(), w.bytes().size(), 8137);
        benchmark::DoNotOptimize(prc::readShortArray(r, 16, true, true, false));
    }
    state.SetItemsProcessed(state.iterations() * int64_t(values.size()));
}
BENCHMARK(BM_HuffmanShorts);

// Point deltas: Huffman-coded bit counts, then sign and magnitude bits.
void BM_CompressedIntegers(benchmark::State& state) {
    std::mt19937 rng(6);
    std::geometric_distribution<int> magnitude(0.01);
    std::vector<int32_t> values(500000);
    for (int32_t& v : values) v = (rng() % 2 ? 1 : -1) * magnitude(rng);
    PRCBitWriter w;
    w.writeCompressedIntegerArray(values, true);
    for (auto _ : state) {
        PRCBitReader r(w.bytes().data(), w.bytes().size(), 8137);
        benchmark::DoNotOptimize(prc::readCompressedIntegerArray(r));
    }
    state.SetItemsProcessed(state.iterations() * int64_t(values.size()));
}
BENCHMARK(BM_CompressedIntegers);

}  // namespace
