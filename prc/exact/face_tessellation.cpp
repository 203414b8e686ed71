#include "prc/exact/face_tessellation.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "prc/exact/surface_evaluation.h"

namespace prc::exact {

namespace {

constexpr double kPi = 3.14159265358979323846;

// Segments for an arc of `angle` radians on a circle of radius r: each
// segment's sagitta r (1 - cos(step / 2)) stays within the tolerance; a
// whole circle gets three segments at least.
double arcSegments(double r, double angle, double tolerance) {
    if (!(angle > 0)) return 1;
    // Beyond 2^40 segments any count is over the budget; the bound keeps the
    // count a number (a step of 0 would make it infinite).
    const double least = std::min(std::ceil(angle / (2 * kPi / 3)), 0x1p40);
    if (!(r > tolerance)) return std::max(1.0, least);
    const double step = 2 * std::acos(1 - tolerance / r);
    return step > 0 ? std::min(std::max({1.0, least, std::ceil(angle / step)}), 0x1p40) : 0x1p40;
}

// Samples of [lo, hi] with the given interior breakpoints kept, about
// `total` segments in all, shared among the breakpoints' intervals by length.
std::vector<double> samples(double lo, double hi, const std::vector<double>& breaks, uint64_t total) {
    std::vector<double> edges{lo};
    for (double b : breaks)
        if (b > edges.back() && b < hi) edges.push_back(b);
    edges.push_back(hi);
    std::vector<double> out{lo};
    const double length = hi - lo;
    for (size_t k = 0; k + 1 < edges.size(); ++k) {
        const double a = edges[k], b = edges[k + 1];
        const uint64_t n = length > 0 ? std::max<uint64_t>(1, uint64_t(std::ceil(double(total) * (b - a) / length))) : 1;
        for (uint64_t s = 1; s <= n; ++s) out.push_back(s == n ? b : a + (b - a) * double(s) / double(n));
    }
    return out;
}

// Segment counts for a spline from its second derivative bounds: with steps
// hu, hv the grid's triangles stay within hu^2 Buu / 8 + hv^2 Bvv / 8 (the
// bilinear patch's distance from the surface) plus hu hv Buv / 4 (the
// diagonal's distance from the bilinear patch); each term gets a third of
// the tolerance, the twist term by shrinking both steps alike.
// A curved direction gets at least as many segments as its degree, so that
// even the coarsest grid shows its shape (a quarter sphere is not two poles).
void splineCounts(const SecondDerivativeBounds& b, uint32_t degreeU, uint32_t degreeV, double lengthU, double lengthV,
                  double tolerance, double& nu, double& nv) {
    const double third = tolerance / 3;
    double hu = b.uu > 0 ? std::min(std::sqrt(8 * third / b.uu), lengthU / std::max(1u, degreeU)) : lengthU;
    double hv = b.vv > 0 ? std::min(std::sqrt(8 * third / b.vv), lengthV / std::max(1u, degreeV)) : lengthV;
    hu = std::min(hu, lengthU);
    hv = std::min(hv, lengthV);
    const double twist = hu * hv * b.uv / 4;
    if (twist > third) {
        const double shrink = std::sqrt(third / twist);
        hu *= shrink;
        hv *= shrink;
    }
    nu = hu > 0 ? std::min(std::ceil(lengthU / hu), 0x1p40) : 1;
    nv = hv > 0 ? std::min(std::ceil(lengthV / hv), 0x1p40) : 1;
}

std::vector<double> distinctKnots(const std::vector<double>& knots) {
    std::vector<double> out;
    for (double k : knots)
        if (out.empty() || k > out.back()) out.push_back(k);
    return out;
}

struct Sampling {
    std::vector<double> us, vs;
    bool coarsened = false;
};

// Segments for one curve of a ruled surface across [lo, hi].
double curveSegments(const CurveDefinition& c, double tolerance) {
    const double span = c.t_max - c.t_min;
    if (c.type == kCurveCircle) return arcSegments(std::abs(c.radius) * frameScale(c.frame), span, tolerance);
    if (c.type == kCurvePolyLine) return std::max(1.0, std::ceil(span));
    double nu = 1, nv = 1;
    splineCounts(nurbsSecondDerivativeBounds(c.nurbs), c.nurbs.degree_u, 0, span, 1, tolerance, nu, nv);
    return nu;
}

// Segment counts per direction, before any budget.
void segmentCounts(const SurfaceDefinition& s, double tolerance, double& nu, double& nv) {
    const double du = s.u_max - s.u_min, dv = s.v_max - s.v_min;
    const double scale = frameScale(s.frame);
    nu = nv = 1;
    switch (s.type) {
        case kSurfaceSphere:
            nu = arcSegments(std::abs(s.p0) * scale, du, tolerance);
            nv = arcSegments(std::abs(s.p0) * scale, dv, tolerance);
            break;
        case kSurfaceCylinder:
            nu = arcSegments(std::abs(s.p0) * scale, du, tolerance);
            break;
        case kSurfaceCone: {
            const double slope = std::tan(s.p1);
            const double r = std::max(std::abs(s.p0 + s.v_min * slope), std::abs(s.p0 + s.v_max * slope));
            nu = arcSegments(r * scale, du, tolerance);
            break;
        }
        case kSurfaceTorus:
            nu = arcSegments((std::abs(s.p0) + std::abs(s.p1)) * scale, du, tolerance);
            nv = arcSegments(std::abs(s.p1) * scale, dv, tolerance);
            break;
        case kSurfaceRuled:
            // Straight across u; along v as finely as the finer curve needs.
            // The quads between two plane curves in parallel planes (discs,
            // frustums) are flat, so the diagonals add no error there.
            for (const CurveDefinition& c : s.curves) nv = std::max(nv, curveSegments(c, tolerance / scale));
            break;
        case kSurfaceNurbs: {
            const NurbsData& n = s.nurbs;
            splineCounts(nurbsSecondDerivativeBounds(n), n.degree_u, n.degree_v, du, dv, tolerance, nu, nv);
            break;
        }
        default:
            break;
    }
}

bool isPatch(const ExactFace& face) {
    const NurbsData& n = face.surface.nurbs;
    return face.skip == 0 && face.surface.type == kSurfaceNurbs && !n.rational && distinctKnots(n.knots_u).size() == 2 &&
           distinctKnots(n.knots_v).size() == 2;
}

Sampling sampleFace(const SurfaceDefinition& s, double tolerance, const double* atLeast) {
    double nu = 1, nv = 1;
    segmentCounts(s, tolerance, nu, nv);
    if (atLeast != nullptr) {
        nu = std::max(nu, std::min(atLeast[0], 0x1p40));
        nv = std::max(nv, std::min(atLeast[1], 0x1p40));
    }
    Sampling out;
    // The budget of one face, shared between the directions in proportion.
    // Over the cells of one face: a direction that needs few segments keeps
    // them and the other takes the rest; two dense directions share alike.
    if (!(nu * nv <= double(kMaxFaceCells))) {
        const double cells = double(kMaxFaceCells), side = std::floor(std::sqrt(cells));
        if (nu <= side)
            nv = std::floor(cells / nu);
        else if (nv <= side)
            nu = std::floor(cells / nv);
        else
            nu = nv = side;
        out.coarsened = true;
    }
    std::vector<double> breaksU, breaksV;
    if (s.type == kSurfaceNurbs) {
        breaksU = distinctKnots(s.nurbs.knots_u);
        breaksV = distinctKnots(s.nurbs.knots_v);
    }
    out.us = samples(s.u_min, s.u_max, breaksU, uint64_t(nu));
    out.vs = samples(s.v_min, s.v_max, breaksV, uint64_t(nv));
    return out;
}

// Index of the vertex that stands for grid point (i, j): a row or column
// whose points all coincide is one vertex, so that poles and apexes give
// triangles, not slivers of zero area.
struct GridIndex {
    size_t nu = 0, nv = 0;
    std::vector<uint32_t> index;
    uint32_t at(size_t i, size_t j) const { return index[i * nv + j]; }
};

bool samePoint(const double* a, const double* b, double eps) {
    return std::abs(a[0] - b[0]) <= eps && std::abs(a[1] - b[1]) <= eps && std::abs(a[2] - b[2]) <= eps;
}

GridIndex weldCollapsedLines(const std::vector<double>& p, size_t nu, size_t nv, double eps, uint32_t base,
                             std::vector<bool>& used) {
    GridIndex g{nu, nv, std::vector<uint32_t>(nu * nv)};
    for (size_t k = 0; k < nu * nv; ++k) g.index[k] = uint32_t(k);
    for (size_t i = 0; i < nu; ++i) {
        bool collapsed = true;
        for (size_t j = 1; j < nv && collapsed; ++j) collapsed = samePoint(&p[3 * (i * nv)], &p[3 * (i * nv + j)], eps);
        if (collapsed)
            for (size_t j = 0; j < nv; ++j) g.index[i * nv + j] = g.index[i * nv];
    }
    for (size_t j = 0; j < nv; ++j) {
        bool collapsed = true;
        for (size_t i = 1; i < nu && collapsed; ++i) collapsed = samePoint(&p[3 * j], &p[3 * (i * nv + j)], eps);
        if (collapsed)
            for (size_t i = 0; i < nu; ++i) g.index[i * nv + j] = g.index[j];
    }
    used.assign(nu * nv, false);
    for (uint32_t& k : g.index) used[k] = true;
    // Renumber the vertices that remain, in grid order, after base.
    std::vector<uint32_t> number(nu * nv, 0);
    uint32_t next = base;
    for (size_t k = 0; k < nu * nv; ++k)
        if (used[k]) number[k] = next++;
    for (uint32_t& k : g.index) k = number[k];
    return g;
}

}  // namespace

void patchSegments(const ExactFace& face, double chordTolerance, double segments[2]) {
    segments[0] = segments[1] = 0;
    if (isPatch(face)) segmentCounts(face.surface, chordTolerance, segments[0], segments[1]);
}

FaceOutcome tessellateFace(const ExactFace& face, double chordTolerance, TessellationBudget& budget,
                           const uint8_t rgb[3], TessMesh& piece, const double patch[2]) {
    const SurfaceDefinition& s = face.surface;
    if (!(chordTolerance > 0)) return FaceOutcome::Invalid;
    const uint64_t probing = probeWork(s);
    if (probing > budget.work_left) return FaceOutcome::OverBudget;
    budget.work_left -= probing;
    const Sampling sampling = sampleFace(s, chordTolerance, isPatch(face) ? patch : nullptr);
    const size_t nu = sampling.us.size(), nv = sampling.vs.size();
    const uint64_t cells = uint64_t(nu - 1) * (nv - 1);
    if (cells > kMaxFaceCells + kMaxFaceCells / 2) return FaceOutcome::OverBudget;  // knot spans alone ask for more
    const uint64_t work = gridWork(s, nu, nv);
    if (cells > budget.cells_left || work > budget.work_left) return FaceOutcome::OverBudget;
    budget.work_left -= work;
    std::vector<double> points;
    if (!evaluateSurfaceGrid(s, sampling.us, sampling.vs, points)) return FaceOutcome::Invalid;
    // The mesh stores floats: a point beyond their range has no place in it.
    for (double x : points)
        if (!(std::abs(x) <= double(std::numeric_limits<float>::max()))) return FaceOutcome::Invalid;
    const uint64_t base = piece.positions.size() / 3;
    if (base + uint64_t(nu) * nv > UINT32_MAX) return FaceOutcome::OverBudget;
    budget.cells_left -= cells;

    // Points that differ by less than a billionth of the coordinates'
    // magnitude are one point: floats, as the mesh stores them, cannot tell
    // them apart anyway.
    double magnitude = 0;
    for (double x : points) magnitude = std::max(magnitude, std::abs(x));
    std::vector<bool> used;
    const GridIndex g = weldCollapsedLines(points, nu, nv, 1e-9 * magnitude, uint32_t(base), used);
    for (size_t k = 0; k < nu * nv; ++k) {
        if (!used[k]) continue;
        for (int a = 0; a < 3; ++a) piece.positions.push_back(float(points[3 * k + a]));
        piece.colors.insert(piece.colors.end(), rgb, rgb + 3);
    }
    // The normal of (a, b, c) with b a step in u and c a step in both is
    // S_u x S_v, the surface's own side; a reversed parameter or a face
    // turned against its surface flips it.
    const bool flip = face.reversed != (s.u_reversed != s.v_reversed);
    const auto triangle = [&](uint32_t a, uint32_t b, uint32_t c) {
        if (a == b || b == c || a == c) return;
        piece.triangles.push_back(a);
        piece.triangles.push_back(flip ? c : b);
        piece.triangles.push_back(flip ? b : c);
    };
    for (size_t i = 0; i + 1 < nu; ++i)
        for (size_t j = 0; j + 1 < nv; ++j) {
            const uint32_t a = g.at(i, j), b = g.at(i + 1, j), c = g.at(i + 1, j + 1), d = g.at(i, j + 1);
            triangle(a, b, c);
            triangle(a, c, d);
        }
    return sampling.coarsened ? FaceOutcome::Coarsened : FaceOutcome::Drawn;
}

}  // namespace prc::exact
