#pragma once
// Points of the surfaces of exact geometry, evaluated on grids of their
// parameters, and the bounds on their second derivatives that decide how
// densely a face is sampled.

#include <cstdint>
#include <vector>

#include "prc/exact/exact_geometry.h"

namespace prc::exact {

// Evaluates s at every (us[i], vs[j]) in its own parameters (not reversed):
// out receives 3 doubles per point, point (i, j) at i * vs.size() + j. False
// when the surface cannot be evaluated (a curve of a ruled surface that is
// not one of the evaluated kinds).
bool evaluateSurfaceGrid(const SurfaceDefinition& s, const std::vector<double>& us, const std::vector<double>& vs,
                         std::vector<double>& out);

// Points of a curve at parameters ts, 3 doubles each, placed by its frame.
bool evaluateCurve(const CurveDefinition& c, const std::vector<double>& ts, std::vector<double>& out);

// Bounds on |S_uu|, |S_vv| and |S_uv| of a B-spline surface (or, for a
// curve, on |C''| in uu), over its whole domain, in its own parameter
// units. Exact bounds (the control points of the derivative splines) for
// polynomial splines; for rational ones an estimate from second differences
// on a probe grid.
struct SecondDerivativeBounds {
    double uu = 0, vv = 0, uv = 0;
};
SecondDerivativeBounds nurbsSecondDerivativeBounds(const NurbsData& n);

// The multiply-adds that evaluating s on a grid of nu x nv parameters costs
// (a B-spline's rows across v, then every point), and those of the probe
// grid that bounds a rational spline's derivatives (0 for other surfaces).
uint64_t gridWork(const SurfaceDefinition& s, uint64_t nu, uint64_t nv);
uint64_t probeWork(const SurfaceDefinition& s);

// The largest factor by which a frame scales lengths (its largest column).
double frameScale(const Matrix4& m);

}  // namespace prc::exact
