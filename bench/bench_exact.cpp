// Tessellating exact surfaces: a large generated B-spline surface (a
// 64 x 64 bicubic net of waves, 61 x 61 spans) cut to a chord tolerance, in
// millions of output triangles a second, and a torus, the analytic kind with
// curvature both ways.

#include <benchmark/benchmark.h>

#include <cmath>

#include "prc/exact/face_tessellation.h"

namespace {

using namespace prc::exact;

ExactFace waves(uint32_t side) {
    ExactFace face;
    face.surface.type = kSurfaceNurbs;
    NurbsData& n = face.surface.nurbs;
    n.degree_u = n.degree_v = 3;
    n.count_u = n.count_v = side;
    for (std::vector<double>* knots : {&n.knots_u, &n.knots_v}) {
        knots->assign(4, 0.0);
        for (uint32_t k = 1; k + 3 < side; ++k) knots->push_back(double(k));
        knots->insert(knots->end(), 4, double(side - 3));
    }
    for (uint32_t i = 0; i < side; ++i)
        for (uint32_t j = 0; j < side; ++j)
            n.points.insert(n.points.end(), {double(i), double(j), 2 * std::sin(0.7 * i) * std::cos(0.5 * j), 1.0});
    setKnotDomain(face.surface);
    return face;
}

void run(benchmark::State& state, const ExactFace& face, double tolerance) {
    const uint8_t rgb[3] = {200, 100, 50};
    uint64_t triangles = 0;
    for (auto _ : state) {
        TessellationBudget budget;
        prc::TessMesh piece;
        tessellateFace(face, tolerance, budget, rgb, piece);
        triangles += piece.triangles.size() / 3;
        benchmark::DoNotOptimize(piece.positions.data());
    }
    state.counters["triangles"] = double(triangles) / double(state.iterations());
    state.counters["Mtriangles/s"] = benchmark::Counter(double(triangles) / 1e6, benchmark::Counter::kIsRate);
}

// 0.002 of the net's diagonal (about 90 units), and ten times finer.
void BM_BsplineSurface(benchmark::State& state) { run(state, waves(64), 0.18 / double(state.range(0))); }
BENCHMARK(BM_BsplineSurface)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);

void BM_Torus(benchmark::State& state) {
    ExactFace face;
    face.surface.type = kSurfaceTorus;
    face.surface.p0 = 2, face.surface.p1 = 0.5;
    face.surface.u_max = face.surface.v_max = 2 * 3.14159265358979;
    run(state, face, 5e-4 / double(state.range(0)));
}
BENCHMARK(BM_Torus)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);

}  // namespace
