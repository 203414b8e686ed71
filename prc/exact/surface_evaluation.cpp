#include "prc/exact/surface_evaluation.h"

#include <algorithm>
#include <cmath>

namespace prc::exact {

namespace {

void place(const Matrix4& m, double x, double y, double z, double* out) {
    out[0] = m[0] * x + m[1] * y + m[2] * z + m[3];
    out[1] = m[4] * x + m[5] * y + m[6] * z + m[7];
    out[2] = m[8] * x + m[9] * y + m[10] * z + m[11];
}

// The knot span of t: the k with knots[k] <= t < knots[k + 1] among
// degree..count-1, the last one for t at the end of the domain.
uint32_t findSpan(const std::vector<double>& knots, uint32_t degree, uint32_t count, double t) {
    if (t >= knots[count]) {
        uint32_t k = count - 1;
        while (k > degree && knots[k] >= knots[k + 1]) --k;
        return k;
    }
    if (t <= knots[degree]) {
        uint32_t k = degree;
        while (k + 1 < count && knots[k + 1] <= t) ++k;
        return k;
    }
    const auto it = std::upper_bound(knots.begin() + degree, knots.begin() + count + 1, t);
    return uint32_t(it - knots.begin()) - 1;
}

// The degree + 1 basis functions that are not zero at t in span k, by the
// triangular recurrence of B-spline bases.
void basisFunctions(const std::vector<double>& knots, uint32_t degree, uint32_t k, double t, double* n) {
    double left[kMaxDegree + 2], right[kMaxDegree + 2];
    n[0] = 1;
    for (uint32_t j = 1; j <= degree; ++j) {
        left[j] = t - knots[k + 1 - j];
        right[j] = knots[k + j] - t;
        double saved = 0;
        for (uint32_t r = 0; r < j; ++r) {
            const double denominator = right[r + 1] + left[j - r];
            const double temp = denominator != 0 ? n[r] / denominator : 0;
            n[r] = saved + right[r + 1] * temp;
            saved = left[j - r] * temp;
        }
        n[j] = saved;
    }
}

// For each parameter, its span and basis functions.
struct Basis {
    std::vector<uint32_t> span;
    std::vector<double> values;  // (degree + 1) per parameter
};

Basis basisAt(const std::vector<double>& knots, uint32_t degree, uint32_t count, const std::vector<double>& ts) {
    Basis b;
    b.span.resize(ts.size());
    b.values.resize(ts.size() * (degree + 1));
    for (size_t i = 0; i < ts.size(); ++i) {
        b.span[i] = findSpan(knots, degree, count, ts[i]);
        basisFunctions(knots, degree, b.span[i], ts[i], &b.values[i * (degree + 1)]);
    }
    return b;
}

// A B-spline surface on a grid: first, for every u, the homogeneous curve
// across v (degree_u + 1 rows combined), then every point from that curve,
// so that a point costs degree_v + 1 steps.
bool evaluateNurbsGrid(const NurbsData& n, const std::vector<double>& us, const std::vector<double>& vs,
                       std::vector<double>& out) {
    const Basis bu = basisAt(n.knots_u, n.degree_u, n.count_u, us);
    const Basis bv = basisAt(n.knots_v, n.degree_v, n.count_v, vs);
    out.resize(3 * us.size() * vs.size());
    std::vector<double> column(4 * size_t(n.count_v));
    for (size_t i = 0; i < us.size(); ++i) {
        std::fill(column.begin(), column.end(), 0.0);
        const uint32_t first = bu.span[i] - n.degree_u;
        for (uint32_t a = 0; a <= n.degree_u; ++a) {
            const double w = bu.values[i * (n.degree_u + 1) + a];
            const double* row = &n.points[4 * size_t(first + a) * n.count_v];
            for (size_t k = 0; k < column.size(); ++k) column[k] += w * row[k];
        }
        for (size_t j = 0; j < vs.size(); ++j) {
            const uint32_t firstV = bv.span[j] - n.degree_v;
            double p[4] = {0, 0, 0, 0};
            for (uint32_t b = 0; b <= n.degree_v; ++b) {
                const double w = bv.values[j * (n.degree_v + 1) + b];
                const double* c = &column[4 * size_t(firstV + b)];
                for (int k = 0; k < 4; ++k) p[k] += w * c[k];
            }
            if (!(p[3] > 0)) return false;
            double* o = &out[3 * (i * vs.size() + j)];
            o[0] = p[0] / p[3];
            o[1] = p[1] / p[3];
            o[2] = p[2] / p[3];
        }
    }
    return true;
}

// The polyline's point at t: point k at parameter k, straight between.
void polylinePoint(const std::vector<double>& points, double t, double* out) {
    const size_t last = points.size() / 3 - 1;
    const double clamped = std::clamp(t, 0.0, double(last));
    const size_t k = std::min(size_t(clamped), last - 1);
    const double f = clamped - double(k);
    for (int a = 0; a < 3; ++a) out[a] = points[3 * k + a] * (1 - f) + points[3 * (k + 1) + a] * f;
}

double norm3(double x, double y, double z) { return std::sqrt(x * x + y * y + z * z); }

// The largest |P| over the derivative's control points of one direction
// taken twice: (degree)(degree - 1) times second differences over knot
// spans, the v index running across.
double secondDifferenceBound(const std::vector<double>& p, uint32_t countU, uint32_t countV, bool alongU,
                             const std::vector<double>& knots, uint32_t degree) {
    if (degree < 2) return 0;
    const uint32_t count = alongU ? countU : countV;
    const uint32_t across = alongU ? countV : countU;
    const auto point = [&](uint32_t along, uint32_t other, int k) {
        return alongU ? p[4 * (size_t(along) * countV + other) + k] : p[4 * (size_t(other) * countV + along) + k];
    };
    double bound = 0;
    std::vector<double> first(3 * size_t(count));
    for (uint32_t o = 0; o < across; ++o) {
        for (uint32_t i = 0; i + 1 < count; ++i) {
            const double span = knots[i + degree + 1] - knots[i + 1];
            for (int k = 0; k < 3; ++k)
                first[3 * i + k] = span > 0 ? degree * (point(i + 1, o, k) - point(i, o, k)) / span : 0;
        }
        for (uint32_t i = 0; i + 2 < count; ++i) {
            const double span = knots[i + degree + 1] - knots[i + 2];
            if (!(span > 0)) continue;
            const double s = (degree - 1) / span;
            bound = std::max(bound, s * norm3(first[3 * i + 3] - first[3 * i], first[3 * i + 4] - first[3 * i + 1],
                                              first[3 * i + 5] - first[3 * i + 2]));
        }
    }
    return bound;
}

double twistBound(const std::vector<double>& p, const NurbsData& n) {
    if (n.degree_u < 1 || n.degree_v < 1) return 0;
    double bound = 0;
    for (uint32_t i = 0; i + 1 < n.count_u; ++i) {
        const double su = n.knots_u[i + n.degree_u + 1] - n.knots_u[i + 1];
        for (uint32_t j = 0; j + 1 < n.count_v; ++j) {
            const double sv = n.knots_v[j + n.degree_v + 1] - n.knots_v[j + 1];
            if (!(su > 0) || !(sv > 0)) continue;
            double d[3];
            for (int k = 0; k < 3; ++k)
                d[k] = p[4 * ((i + 1) * size_t(n.count_v) + j + 1) + k] - p[4 * ((i + 1) * size_t(n.count_v) + j) + k] -
                       p[4 * (i * size_t(n.count_v) + j + 1) + k] + p[4 * (i * size_t(n.count_v) + j) + k];
            bound = std::max(bound, n.degree_u * n.degree_v * norm3(d[0], d[1], d[2]) / (su * sv));
        }
    }
    return bound;
}

}  // namespace

uint64_t gridWork(const SurfaceDefinition& s, uint64_t nu, uint64_t nv) {
    if (s.type != kSurfaceNurbs) {
        uint64_t curves = 0;  // a ruled surface's curves, evaluated once per v
        for (const CurveDefinition& c : s.curves) curves += 4 * uint64_t(c.nurbs.degree_u + 1);
        return 16 * nu * nv + curves * nv;
    }
    const NurbsData& n = s.nurbs;
    return 4 * nu * uint64_t(n.degree_u + 1) * n.count_v + 4 * nu * nv * uint64_t(n.degree_v + 1);
}

uint64_t probeWork(const SurfaceDefinition& s) {
    if (s.type != kSurfaceNurbs || !s.nurbs.rational) return 0;
    return gridWork(s, 4 * uint64_t(s.nurbs.degree_u + 1) + 1, 4 * uint64_t(s.nurbs.degree_v + 1) + 1);
}

double frameScale(const Matrix4& m) {
    double scale = 0;
    for (int c = 0; c < 3; ++c) scale = std::max(scale, norm3(m[c], m[4 + c], m[8 + c]));
    return scale;
}

bool evaluateCurve(const CurveDefinition& c, const std::vector<double>& ts, std::vector<double>& out) {
    out.resize(3 * ts.size());
    if (c.type == kCurveNurbs) {
        if (c.nurbs.points.empty()) return false;
        return evaluateNurbsGrid(c.nurbs, ts, {0.0}, out);
    }
    for (size_t i = 0; i < ts.size(); ++i) {
        double local[3];
        if (c.type == kCurveCircle) {
            local[0] = c.radius * std::cos(ts[i]);
            local[1] = c.radius * std::sin(ts[i]);
            local[2] = 0;
        } else if (c.type == kCurvePolyLine && c.points.size() >= 6) {
            polylinePoint(c.points, ts[i], local);
        } else {
            return false;
        }
        place(c.frame, local[0], local[1], local[2], &out[3 * i]);
    }
    return true;
}

bool evaluateSurfaceGrid(const SurfaceDefinition& s, const std::vector<double>& us, const std::vector<double>& vs,
                         std::vector<double>& out) {
    if (s.type == kSurfaceNurbs) return evaluateNurbsGrid(s.nurbs, us, vs, out);
    out.resize(3 * us.size() * vs.size());
    if (s.type == kSurfaceRuled) {
        // Straight lines from the first curve (u = 0) to the second (u = 1),
        // both taken at parameter v.
        std::vector<double> a, b;
        if (s.curves.size() != 2 || !evaluateCurve(s.curves[0], vs, a) || !evaluateCurve(s.curves[1], vs, b))
            return false;
        for (size_t i = 0; i < us.size(); ++i)
            for (size_t j = 0; j < vs.size(); ++j) {
                const double u = us[i];
                double local[3];
                for (int k = 0; k < 3; ++k) local[k] = (1 - u) * a[3 * j + k] + u * b[3 * j + k];
                place(s.frame, local[0], local[1], local[2], &out[3 * (i * vs.size() + j)]);
            }
        return true;
    }
    for (size_t i = 0; i < us.size(); ++i) {
        const double cu = std::cos(us[i]), su = std::sin(us[i]);
        for (size_t j = 0; j < vs.size(); ++j) {
            const double v = vs[j];
            double x, y, z;
            switch (s.type) {
                case kSurfaceSphere:  // u the longitude, v the latitude
                    x = s.p0 * std::cos(v) * cu, y = s.p0 * std::cos(v) * su, z = s.p0 * std::sin(v);
                    break;
                case kSurfaceCylinder:  // u around the z axis, v along it
                    x = s.p0 * cu, y = s.p0 * su, z = v;
                    break;
                case kSurfaceCone: {  // the radius grows by tan(semi-angle) per unit of height v
                    const double radius = s.p0 + v * std::tan(s.p1);
                    x = radius * cu, y = radius * su, z = v;
                    break;
                }
                case kSurfaceTorus: {  // u around the z axis, v around the tube
                    const double radius = s.p0 + s.p1 * std::cos(v);
                    x = radius * cu, y = radius * su, z = s.p1 * std::sin(v);
                    break;
                }
                default:
                    return false;
            }
            place(s.frame, x, y, z, &out[3 * (i * vs.size() + j)]);
        }
    }
    return true;
}

// Rational splines have no such control-point bound: their second
// derivatives are measured as second differences on a probe grid of
// 4 (degree + 1) steps a direction, half as much again for what the probes
// miss between them.
SecondDerivativeBounds probedBounds(const NurbsData& n) {
    SecondDerivativeBounds b;
    const auto probes = [](const std::vector<double>& knots, uint32_t degree, uint32_t count) {
        const uint32_t steps = 4 * (degree + 1);
        std::vector<double> t(steps + 1);
        for (uint32_t k = 0; k <= steps; ++k)
            t[k] = knots[degree] + (knots[count] - knots[degree]) * double(k) / double(steps);
        return t;
    };
    const std::vector<double> us = probes(n.knots_u, n.degree_u, n.count_u);
    const std::vector<double> vs = probes(n.knots_v, n.degree_v, n.count_v);
    std::vector<double> p;
    if (!evaluateNurbsGrid(n, us, vs, p)) return b;
    const double hu = us[1] - us[0], hv = vs[1] - vs[0];
    const size_t nv = vs.size();
    const auto at = [&](size_t i, size_t j, int k) { return p[3 * (i * nv + j) + k]; };
    for (size_t i = 0; i < us.size(); ++i)
        for (size_t j = 0; j < nv; ++j) {
            double d[3][3] = {};
            for (int k = 0; k < 3; ++k) {
                if (i > 0 && i + 1 < us.size()) d[0][k] = at(i - 1, j, k) - 2 * at(i, j, k) + at(i + 1, j, k);
                if (j > 0 && j + 1 < nv) d[1][k] = at(i, j - 1, k) - 2 * at(i, j, k) + at(i, j + 1, k);
                if (i + 1 < us.size() && j + 1 < nv)
                    d[2][k] = at(i + 1, j + 1, k) - at(i + 1, j, k) - at(i, j + 1, k) + at(i, j, k);
            }
            if (hu > 0) b.uu = std::max(b.uu, 1.5 * norm3(d[0][0], d[0][1], d[0][2]) / (hu * hu));
            if (hv > 0) b.vv = std::max(b.vv, 1.5 * norm3(d[1][0], d[1][1], d[1][2]) / (hv * hv));
            if (hu > 0 && hv > 0) b.uv = std::max(b.uv, 1.5 * norm3(d[2][0], d[2][1], d[2][2]) / (hu * hv));
        }
    return b;
}

SecondDerivativeBounds nurbsSecondDerivativeBounds(const NurbsData& n) {
    if (n.rational) return probedBounds(n);
    SecondDerivativeBounds b;
    b.uu = secondDifferenceBound(n.points, n.count_u, n.count_v, true, n.knots_u, n.degree_u);
    b.vv = secondDifferenceBound(n.points, n.count_u, n.count_v, false, n.knots_v, n.degree_v);
    b.uv = twistBound(n.points, n);
    return b;
}

}  // namespace prc::exact
