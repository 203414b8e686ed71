// Reading a large tessellation section, and turning plain tessellations into
// triangles.

#include <benchmark/benchmark.h>

#include <cmath>

#include "prc/tess/face_triangulation.h"
#include "prc/tess/tessellation_section.h"
#include "tests/support/prc_tess_writer.h"

namespace {

using namespace prc;
using namespace prc::test;

// A grid of side x side vertices with coordinates that need full mantissas,
// drawn as strips, one strip per row, with per-vertex normals.
Tess3DFields gridTess(uint32_t side, double phase) {
    Tess3DFields fields;
    fields.must_recalculate_normals = false;
    for (uint32_t y = 0; y < side; ++y)
        for (uint32_t x = 0; x < side; ++x) {
            const double u = x * 0.013 + phase, v = y * 0.017;
            fields.coordinates.insert(fields.coordinates.end(), {std::cos(u) * 12.5, std::sin(v) * 7.25, u * v});
        }
    fields.normal_coordinates = {0, 0, 1};
    TessFaceFields face;
    face.used_entities_flag = 0x0008;
    face.sizes_triangulated.push_back(side - 1);  // the number of strips, then each one's vertices
    for (uint32_t y = 0; y + 1 < side; ++y) {
        for (uint32_t x = 0; x < side; ++x)
            for (uint32_t row : {y, y + 1}) {
                fields.triangulated_indices.push_back(0);  // the normal
                fields.triangulated_indices.push_back(3 * (row * side + x));
            }
        face.sizes_triangulated.push_back(2 * side);
    }
    fields.faces.push_back(face);
    return fields;
}

const std::vector<uint8_t>& largeSection() {
    static const std::vector<uint8_t> section = [] {
        std::vector<PRCBitWriter> list(8);
        for (size_t i = 0; i < list.size(); ++i) writePRC3DTess(list[i], 0xFFFFFFFF, gridTess(160, double(i)));
        return tessellationSection(list);
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
