// The surfaces of faces and the curves of ruled surfaces, in the forms the
// writers of exact geometry use: a placement of the canonical shape, a
// parameter domain with its coefficients, the shape's own numbers.

#include <cmath>
#include <string>

#include "prc/exact/exact_reading.h"
#include "prc/exact/exact_summary.h"

namespace prc::exact {

namespace {

// Control points kept for one surface or curve: 2^16 of them (a net of
// 256 x 256, 2 MiB) are far more than writers use for one face; a larger one
// is read through and left out.
constexpr uint64_t kMaxControlPoints = uint64_t(1) << 16;

bool finite(double x) { return std::isfinite(x); }

// The placement of a canonical surface or curve: an optional origin, x and y
// axes (z = x cross y) and a uniform scale. Other behaviour bits would bring
// data of forms not known here.
Matrix4 readPlacement(PRCBitReader& r, bool is3d) {
    Matrix4 m = kIdentityMatrix;
    if (!r.readBoolean()) return m;
    const uint8_t behaviour = r.readCharacter();
    if (behaviour & ~0x0B)
        throw UnreadableGeometry(kSkipTransformation, "surface placement with behaviour " + std::to_string(behaviour));
    const auto vector = [&]() {
        Vector3d v = {r.readDouble(), r.readDouble(), 0};
        if (is3d) v.z = r.readDouble();
        return v;
    };
    Vector3d origin, x{1, 0, 0}, y{0, 1, 0};
    if (behaviour & 0x01) origin = vector();
    if (behaviour & 0x02) {
        x = vector();
        y = vector();
    }
    const double scale = (behaviour & 0x08) ? r.readDouble() : 1.0;
    const Vector3d z{x.y * y.z - x.z * y.y, x.z * y.x - x.x * y.z, x.x * y.y - x.y * y.x};
    const Vector3d axes[3] = {x, y, z};
    const double o[3] = {origin.x, origin.y, origin.z};
    for (int c = 0; c < 3; ++c) {
        m[0 * 4 + c] = axes[c].x * scale;
        m[1 * 4 + c] = axes[c].y * scale;
        m[2 * 4 + c] = axes[c].z * scale;
    }
    for (int row = 0; row < 3; ++row) m[row * 4 + 3] = o[row];
    return m;
}

// Parameter t of the domain maps to a*t + b of the shape. Only the forms
// whose meaning does not hang on which side of that equation is which are
// taken: a = 1, b = 0 (the shape's own parameter) and a = -1 (the parameter
// reversed, over [b - max, b - min]).
bool mapParameter(double a, double b, double& lo, double& hi, bool& reversed) {
    if (a == 1 && b == 0) return true;
    if (a != -1) return false;
    const double newLo = b - hi, newHi = b - lo;
    lo = newLo;
    hi = newHi;
    reversed = true;
    return true;
}

void readSurfaceHead(PRCBitReader& r) {
    readBaseTopology(r);      // base geometry: same layout
    r.readUnsignedInteger();  // extension
}

void readDomain(PRCBitReader& r, ExactFace& face) {
    SurfaceDefinition& s = face.surface;
    const bool swapped = r.readBoolean();
    s.u_min = r.readDouble();
    s.v_min = r.readDouble();
    s.u_max = r.readDouble();
    s.v_max = r.readDouble();
    const double ua = r.readDouble(), va = r.readDouble(), ub = r.readDouble(), vb = r.readDouble();
    if (swapped || !mapParameter(ua, ub, s.u_min, s.u_max, s.u_reversed) ||
        !mapParameter(va, vb, s.v_min, s.v_max, s.v_reversed))
        face.skip = kSkipParameterisation;
}

// Count points of `coordinates` doubles each; a count beyond the data fails
// before anything is sized, one beyond kMaxControlPoints is read through.
bool readPoints(PRCBitReader& r, uint64_t count, int coordinates, bool rational, std::vector<double>& out) {
    if (count * uint64_t(coordinates + rational) > r.bitsRemaining())
        throw std::runtime_error("exact geometry: control points beyond the data");
    const bool keep = count <= kMaxControlPoints;
    if (keep) out.assign(size_t(4 * count), 0.0);
    for (uint64_t i = 0; i < count; ++i) {
        double p[4] = {0, 0, 0, 1};
        for (int k = 0; k < coordinates; ++k) p[k] = r.readDouble();
        if (rational) p[3] = r.readDouble();
        if (keep) std::copy(p, p + 4, &out[size_t(4 * i)]);
    }
    return keep;
}

void readKnots(PRCBitReader& r, uint64_t count, std::vector<double>& out) {
    if (count > r.bitsRemaining()) throw std::runtime_error("exact geometry: knots beyond the data");
    out.resize(size_t(count));
    for (double& k : out) k = r.readDouble();
}

// Degrees, counts, knots and weights that make a B-spline: knots one more
// than points plus degree, never decreasing, a domain of positive length,
// weights positive, every number finite.
bool validNurbs(const NurbsData& n) {
    if (n.degree_u > kMaxDegree || n.degree_v > kMaxDegree) return false;
    if (n.points.size() != 4 * uint64_t(n.count_u) * n.count_v) return false;
    const auto knotsFit = [](const std::vector<double>& k, uint32_t count, uint32_t degree) {
        if (k.size() != uint64_t(count) + degree + 1 || count <= degree) return false;
        for (size_t i = 0; i < k.size(); ++i)
            if (!finite(k[i]) || (i > 0 && k[i] < k[i - 1])) return false;
        return k[degree] < k[count];
    };
    if (!knotsFit(n.knots_u, n.count_u, n.degree_u) || !knotsFit(n.knots_v, n.count_v, n.degree_v)) return false;
    for (size_t i = 0; i < n.points.size(); ++i)
        if (!finite(n.points[i]) || (i % 4 == 3 && !(n.points[i] > 0))) return false;
    return true;
}

// A NURBS curve or surface after its head: rational flag, degrees, highest
// indices of points and knots, points, knots, then two words (knot type and
// form) that do not change the shape.
bool readNurbs(PRCBitReader& r, bool surface, int coordinates, NurbsData& n) {
    n.rational = r.readBoolean();
    n.degree_u = r.readUnsignedInteger();
    if (surface) n.degree_v = r.readUnsignedInteger();
    const uint64_t pointsU = uint64_t(r.readUnsignedInteger()) + 1;
    const uint64_t pointsV = surface ? uint64_t(r.readUnsignedInteger()) + 1 : 1;
    const uint64_t knotsU = uint64_t(r.readUnsignedInteger()) + 1;
    const uint64_t knotsV = surface ? uint64_t(r.readUnsignedInteger()) + 1 : 0;
    bool kept = readPoints(r, pointsU * pointsV, coordinates, n.rational, n.points);
    readKnots(r, knotsU, n.knots_u);
    if (surface) readKnots(r, knotsV, n.knots_v);
    r.readUnsignedInteger();  // knot type
    r.readUnsignedInteger();  // form
    n.count_u = uint32_t(pointsU);
    n.count_v = uint32_t(pointsV);
    if (!surface) {  // a curve: one point across, knots 0 and 1 across
        n.knots_v = {0, 1};
        n.degree_v = 0;
    }
    return kept && pointsU <= kMaxControlPoints && validNurbs(n);
}

}  // namespace

bool readCurve(PRCBitReader& r, uint32_t type, CurveDefinition& curve, int depth) {
    if (depth > kMaxCurveDepth) throw std::runtime_error("exact geometry: curves nested too deeply");
    curve.type = type;
    readBaseTopology(r);      // base geometry
    r.readUnsignedInteger();  // extension
    const bool is3d = r.readBoolean();
    const int coordinates = is3d ? 3 : 2;
    if (type == kCurveNurbs) {
        if (!readNurbs(r, false, coordinates, curve.nurbs) || !is3d) return false;
        curve.t_min = curve.nurbs.knots_u[curve.nurbs.degree_u];
        curve.t_max = curve.nurbs.knots_u[curve.nurbs.count_u];
        return true;
    }
    if (type != kCurveCircle && type != kCurvePolyLine && type != kCurveComposite)
        throw UnreadableGeometry(kSkipCurveKind, "curve of type " + std::to_string(type));
    curve.frame = readPlacement(r, is3d);
    curve.t_min = r.readDouble();
    curve.t_max = r.readDouble();
    const double a = r.readDouble(), b = r.readDouble();
    bool usable = is3d && mapParameter(a, b, curve.t_min, curve.t_max, curve.reversed) && finite(curve.t_min) &&
                  finite(curve.t_max) && curve.t_min <= curve.t_max;
    if (type == kCurveCircle) {
        curve.radius = r.readDouble();
        return usable && finite(curve.radius);
    }
    if (type == kCurvePolyLine) {
        const uint32_t count = r.readUnsignedInteger();
        if (!readPoints(r, count, coordinates, false, curve.points)) usable = false;
        // Kept as three numbers a point.
        for (size_t i = 0; usable && i < count; ++i)
            for (int k = 0; k < 3; ++k) curve.points[3 * i + k] = curve.points[4 * i + k];
        if (usable) curve.points.resize(3 * size_t(count));
        return usable && count >= 2 && curve.t_min >= 0 && curve.t_max <= double(count - 1);
    }
    // A composite curve: read through, not evaluated.
    const uint32_t parts = r.readUnsignedInteger();
    for (uint32_t i = 0; i < parts; ++i) {
        const uint32_t partType = readEmbeddedType(r);
        CurveDefinition part;
        if (partType != 0) readCurve(r, partType, part, depth + 1);
        r.readBoolean();  // sense
    }
    r.readBoolean();  // closed
    return false;
}

void readSurface(PRCBitReader& r, uint32_t type, ExactFace& face) {
    SurfaceDefinition& s = face.surface;
    s.type = type;
    switch (type) {
        case kSurfaceNurbs:
            readSurfaceHead(r);
            if (!readNurbs(r, true, 3, s.nurbs))
                face.skip = kSkipInvalid;
            else
                setKnotDomain(s);
            return;
        case kSurfaceSphere:
        case kSurfaceCylinder:
        case kSurfaceCone:
        case kSurfaceTorus:
            readSurfaceHead(r);
            s.frame = readPlacement(r, true);
            readDomain(r, face);
            s.p0 = r.readDouble();
            if (type == kSurfaceCone || type == kSurfaceTorus) s.p1 = r.readDouble();
            break;
        case kSurfaceRuled:
        case kSurfaceBlend01: {
            readSurfaceHead(r);
            s.frame = readPlacement(r, true);
            readDomain(r, face);
            const int curves = type == kSurfaceRuled ? 2 : 3;
            s.curves.resize(size_t(curves));
            for (CurveDefinition& curve : s.curves) {
                const uint32_t curveType = readEmbeddedType(r);
                if (curveType == 0 || !readCurve(r, curveType, curve, 1))
                    if (face.skip == 0) face.skip = kSkipCurveKind;
            }
            // Blend surfaces are read to reach what follows, not drawn.
            if (type == kSurfaceBlend01) face.skip = uint8_t(type);
            break;
        }
        default:
            // A surface kind whose layout is not known: nothing after it can be found.
            throw UnreadableGeometry(uint8_t(type < 256 ? type : 0), "surface of type " + std::to_string(type));
    }
    const double numbers[] = {s.u_min, s.u_max, s.v_min, s.v_max, s.p0, s.p1};
    for (double x : numbers)
        if (!finite(x) && face.skip == 0) face.skip = kSkipInvalid;
    if (face.skip == 0 && (s.u_min > s.u_max || s.v_min > s.v_max)) face.skip = kSkipInvalid;
}

}  // namespace prc::exact
