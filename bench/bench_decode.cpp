// Whole decodes of every PRC file in the test data (or of the files named by
// MESHDRONE_BENCH_FILES, separated by colons), beside zlib alone inflating
// the same file's sections: a decode against the floor that inflation sets.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "bench/zlib_sections.h"
#include "model/decode_driver.h"

namespace {

std::vector<uint8_t> readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void releaseOutput(DecodedModel& m) {
    std::free(m.positions);
    std::free(m.triangles);
    std::free(m.colors);
    std::free(m.part_records);
}

void decodeFile(benchmark::State& state, const std::vector<uint8_t>& file, unsigned threads) {
    DecodedModel m;
    model::DecodePass pass = model::DecodePass::None;
    uint64_t triangles = 0;
    for (auto _ : state) {
        const bool ok = model::decodePrcModel(file.data(), file.size(), &m, &pass, threads);
        benchmark::DoNotOptimize(ok);
        triangles += m.triangle_count;
        state.counters["vertices"] = m.vertex_count;
        state.counters["triangles"] = m.triangle_count;
        state.counters["records"] = m.part_count;
        state.counters["structured"] = pass == model::DecodePass::Structured;
        releaseOutput(m);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(file.size()));
    state.counters["tri/s"] = benchmark::Counter(double(triangles), benchmark::Counter::kIsRate);
}

// zlib alone inflating the sections of the same file.
void inflateFile(benchmark::State& state, const std::vector<uint8_t>& file) {
    const auto sections = bench::sectionsOf(file);
    for (auto _ : state) benchmark::DoNotOptimize(bench::zlibInflateSections(file, sections));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(file.size()));
}

struct Registrar {
    std::vector<std::vector<uint8_t>> files;  // kept alive for the benchmarks
    Registrar() {
        std::vector<std::filesystem::path> paths;
        if (const char* named = std::getenv("MESHDRONE_BENCH_FILES")) {
            for (std::string list = named; !list.empty();) {
                const size_t colon = std::min(list.find(':'), list.size());
                if (colon > 0) paths.emplace_back(list.substr(0, colon));
                list.erase(0, colon + 1);
            }
        } else {
            for (const char* dir : {MESHDRONE_TEST_DATA, MESHDRONE_TEST_DATA "/gen"})
                for (const auto& entry : std::filesystem::directory_iterator(dir))
                    if (entry.path().extension() == ".prc") paths.push_back(entry.path());
        }
        std::sort(paths.begin(), paths.end());
        files.reserve(paths.size());
        for (const auto& path : paths) {
            files.push_back(readFile(path));
            const std::vector<uint8_t>* file = &files.back();
            const std::string name = path.parent_path().filename().string() == "gen"
                                         ? "gen/" + path.filename().string()
                                         : path.filename().string();
            // decode/ on one thread, decode_all/ on every processor (wall time).
            benchmark::RegisterBenchmark(("decode/" + name).c_str(),
                                         [file](benchmark::State& s) { decodeFile(s, *file, 1); })
                ->Unit(benchmark::kMillisecond);
            benchmark::RegisterBenchmark(("decode_all/" + name).c_str(),
                                         [file](benchmark::State& s) { decodeFile(s, *file, 0); })
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime();
            benchmark::RegisterBenchmark(("inflate/" + name).c_str(),
                                         [file](benchmark::State& s) { inflateFile(s, *file); })
                ->Unit(benchmark::kMillisecond);
        }
    }
};
const Registrar registrar;

}  // namespace
