// Whole decodes of every PRC file in the test data, beside zlib alone
// inflating the same file's sections: how much of a decode is inflation.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "model/decode_driver.h"
#include "prc/io/inflate_section.h"
#include "prc/io/prc_header.h"

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

// Every section that a decode may inflate, each once.
void inflateFile(benchmark::State& state, const std::vector<uint8_t>& file) {
    const prc::PRCHeader header = prc::readPRCHeader(file.data(), file.size());
    std::vector<std::pair<uint32_t, uint32_t>> sections;
    for (const prc::FileStructureDescriptor& d : header.file_structures)
        for (size_t k = 1; k + 1 < d.offsets.size() && k <= 3; ++k)
            if (d.offsets[k] < d.offsets[k + 1] && d.offsets[k + 1] <= file.size())
                sections.emplace_back(d.offsets[k], d.offsets[k + 1]);
    if (header.model_file_start < std::min<uint64_t>(header.model_file_end, file.size()))
        sections.emplace_back(header.model_file_start, uint32_t(std::min<uint64_t>(header.model_file_end, file.size())));
    for (auto _ : state) {
        uint64_t inflated = 0;
        for (auto [start, end] : sections) {
            try {
                inflated += prc::inflateSection(file.data() + start, end - start).size();
            } catch (const std::exception&) {
            }
        }
        benchmark::DoNotOptimize(inflated);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(file.size()));
}

struct Registrar {
    std::vector<std::vector<uint8_t>> files;  // kept alive for the benchmarks
    Registrar() {
        std::vector<std::filesystem::path> paths;
        for (const char* dir : {MESHDRONE_TEST_DATA, MESHDRONE_TEST_DATA "/gen"})
            for (const auto& entry : std::filesystem::directory_iterator(dir))
                if (entry.path().extension() == ".prc") paths.push_back(entry.path());
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
