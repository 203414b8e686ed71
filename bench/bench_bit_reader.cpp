// Element decoding speed of the bit reader, in elements per second, and of the
// compressed arrays of real records, in triangles per second.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <random>

#include "prc/entities/file_structure.h"
#include "prc/io/bit_reader.h"
#include "prc/tess/tessellation_section.h"
#include "tests/support/prc_builder.h"

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

// The highly compressed tessellations of a real assembly: every array of
// every record (Huffman-coded bit counts, edge statuses, normal angles,
// styles), read from the inflated tessellation sections.
void BM_CompressedRecords(benchmark::State& state) {
    std::ifstream in(MESHDRONE_TEST_DATA "/913427806a00.prc", std::ios::binary);
    const std::vector<uint8_t> file{std::istreambuf_iterator<char>(in), {}};
    const prc::PRCHeader header = prc::readPRCHeader(file.data(), file.size());
    std::vector<prc::InflatedSection> sections;
    for (const prc::FileStructureDescriptor& fs : header.file_structures)
        sections.push_back(prc::inflateFileSection(file.data(), file.size(), fs.offsets[3], fs.offsets[4]));
    int64_t triangles = 0;
    for (auto _ : state) {
        triangles = 0;
        for (const prc::InflatedSection& section : sections) {
            std::vector<prc::PRC3DTessCompressed> records;
            prc::readFileStructureTessellation(section.data(), section.size(), 0, 23306, records, nullptr);
            for (const prc::PRC3DTessCompressed& record : records) triangles += int64_t(record.triangle_face_array.size());
        }
    }
    state.SetItemsProcessed(state.iterations() * triangles);
    state.counters["triangles"] = double(triangles);
}
BENCHMARK(BM_CompressedRecords)->Unit(benchmark::kMillisecond);

}  // namespace
