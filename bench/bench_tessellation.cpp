// Reading a large tessellation section, and turning plain tessellations into
// triangles.

#include <benchmark/benchmark.h>

#include <cmath>

#include "prc/tess/face_triangulation.h"
#include "prc/tess/tessellation_section.h"
#include "tests/support/prc_builder.h"

namespace {

using namespace prc;
using namespace prc::test;

// A grid of side x side vertices with coordinates that need full mantissas,
// drawn as strips, one strip per row, with one normal for every vertex.
void writeGridTess(PRCBitWriter& w, uint32_t side, double phase) {
    w.layout("u172 b0");
    w.writeUnsignedInteger(3 * side * side);
    for (uint32_t y = 0; y < side; ++y)
        for (uint32_t x = 0; x < side; ++x) {
            const double u = x * 0.013 + phase, v = y * 0.017;
            for (double c : {std::cos(u) * 12.5, std::sin(v) * 7.25, u * v}) w.writeDouble(c);
        }
    w.layout("b0 b0 b0 u3 f0 f0 f1 u0");  // normals given, the one normal, nothing skipped
    w.writeUnsignedInteger(2 * 2 * side * (side - 1));
    for (uint32_t y = 0; y + 1 < side; ++y)
        for (uint32_t x = 0; x < side; ++x)
            for (uint32_t row : {y, y + 1}) w.writeUnsignedInteger(0), w.writeUnsignedInteger(3 * (row * side + x));
    // One face of strips: the number of strips, then each one's vertices.
    w.layout("u1 u174 u0 u0 u0 u8 u0");
    w.writeUnsignedInteger(side), w.writeUnsignedInteger(side - 1);
    for (uint32_t y = 0; y + 1 < side; ++y) w.writeUnsignedInteger(2 * side);
    w.layout("u0 b0 u0");
}

const std::vector<uint8_t>& largeSection() {
    static const std::vector<uint8_t> section = [] {
        PRCBitWriter w("u305 u0 b00 u8");
        for (int i = 0; i < 8; ++i) writeGridTess(w, 160, double(i));
        return w.bytes();
    }();
    return section;
}

void BM_ReadTessellationSection(benchmark::State& state) {
    const std::vector<uint8_t>& section = largeSection();
    for (auto _ : state) {
        std::vector<PRC3DTessCompressed> compressed;
        std::vector<TessellationRef> refs;
        auto tess = readFileStructureTessellation(section.data(), section.size(), 0, 0xFFFFFFFF, compressed, &refs);
        benchmark::DoNotOptimize(tess.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(section.size()));
    state.counters["section_MB"] = double(section.size()) / 1e6;
}
BENCHMARK(BM_ReadTessellationSection)->Unit(benchmark::kMillisecond);

void BM_AppendFaceTriangles(benchmark::State& state) {
    std::vector<PRC3DTessCompressed> compressed;
    const std::vector<uint8_t>& section = largeSection();
    const std::vector<PRC3DTess> tess =
        readFileStructureTessellation(section.data(), section.size(), 0, 0xFFFFFFFF, compressed, nullptr);
    const PRCGlobals globals;
    const uint8_t rgb[3] = {200, 100, 50};
    size_t triangles = 0;
    for (auto _ : state) {
        triangles = 0;
        for (const PRC3DTess& t : tess) {
            TessMesh mesh = appendFaceTriangles(t, globals, rgb);
            triangles += mesh.triangles.size() / 3;
            benchmark::DoNotOptimize(mesh.triangles.data());
        }
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(triangles));
}
BENCHMARK(BM_AppendFaceTriangles)->Unit(benchmark::kMillisecond);

}  // namespace
