// Rebuilding highly compressed tessellations: every record of the real
// files. Counters report triangles per second.

#include <benchmark/benchmark.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "prc/tess/compressed_tess_mesh.h"
#include "tools/tessdump/tess_inspection.h"

namespace {

std::vector<prc::PRC3DTessCompressed> loadRecords(const char* name) {
    std::ifstream in(std::string(MESHDRONE_TEST_DATA) + "/" + name, std::ios::binary);
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<prc::PRC3DTessCompressed> all;
    if (bytes.empty()) {
        return all;
    }
    const prc::PRCHeader header = prc::readPRCHeader(bytes.data(), bytes.size());
    for (const prc::FileStructureDescriptor& fs : header.file_structures) {
        std::vector<prc::PRC3DTessCompressed> records;
        tessdump::readTessellations(bytes.data(), bytes.size(), fs, nullptr, &records, nullptr);
        for (prc::PRC3DTessCompressed& r : records) {
            all.push_back(std::move(r));
        }
    }
    return all;
}

void decodeAll(benchmark::State& state, const std::vector<prc::PRC3DTessCompressed>& records) {
    uint64_t triangles = 0;
    for (auto _ : state) {
        for (const prc::PRC3DTessCompressed& r : records) {
            try {
                const prc::CompressedTessResult res = prc::buildCompressedTessMesh(r);
                triangles += res.triangles.size() / 3;
                benchmark::DoNotOptimize(res.positions.data());
            } catch (const std::runtime_error&) {
                // The few records no run can read still cost their runs.
            }
        }
    }
    state.counters["triangles/s"] = benchmark::Counter(static_cast<double>(triangles), benchmark::Counter::kIsRate);
}

void BM_RealFile(benchmark::State& state, const char* name) {
    static std::vector<std::vector<prc::PRC3DTessCompressed>> cache(4);
    const size_t slot = static_cast<size_t>(state.range(0));
    if (cache[slot].empty()) {
        cache[slot] = loadRecords(name);
    }
    decodeAll(state, cache[slot]);
}
BENCHMARK_CAPTURE(BM_RealFile, building_e692ed6bcd41, "e692ed6bcd41.prc")->Arg(0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RealFile, assembly_5aab25a32cdb, "5aab25a32cdb.prc")->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RealFile, assembly_913427806a00, "913427806a00.prc")->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RealFile, assembly_e0a25db6ad57, "e0a25db6ad57.prc")->Arg(3)->Unit(benchmark::kMillisecond);

}  // namespace
