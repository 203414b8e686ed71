// Compressed B-rep bodies: one shell of compressed faces, each a B-spline
// patch whose control points are stored as quantised steps from their
// neighbours.

#include <array>
#include <cmath>
#include <map>
#include <string>

#include "prc/exact/exact_reading.h"
#include "prc/exact/exact_summary.h"

namespace prc::exact {

namespace {

// The only compressed surface form known here: a B-spline patch.
constexpr uint32_t kCompressedNurbsForm = 13;
// Control points per compressed face: 2^16 of them are a patch of degree 31
// with two thousand knot spans; more is refused before anything is sized.
constexpr uint64_t kMaxCompressedPoints = uint64_t(1) << 16;

struct Point {
    double x = 0, y = 0, z = 0;
};
Point operator+(Point a, Point b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
Point operator-(Point a, Point b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Point operator*(double s, Point a) { return {s * a.x, s * a.y, s * a.z}; }
Point cross(Point a, Point b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
double length(Point a) { return std::sqrt(a.x * a.x + a.y * a.y + a.z * a.z); }

// A signed number of `bits` bits: a sign bit, then the magnitude.
int64_t readSignedBits(PRCBitReader& r, uint32_t bits) {
    const bool negative = r.readBoolean();
    const int64_t magnitude = r.readBits(int(bits) - 1);
    return negative ? -magnitude : magnitude;
}

// The knot vector of one direction: the number of distinct knots (16 bits),
// then for each a bit that repeats the previous multiplicity or, when 0, the
// multiplicity itself in ceil(log2(degree + 2)) bits (2 bits for degree 0).
// Knots take the values 0, 1, 2, ... in order.
std::vector<double> readKnotVector(PRCBitReader& r, uint32_t degree) {
    const uint32_t distinct = r.readBits(16);
    const int width = degree == 0 ? 2 : int(std::ceil(std::log2(double(degree) + 2)));
    std::vector<double> knots;
    uint32_t multiplicity = 0;
    for (uint32_t k = 0; k < distinct; ++k) {
        const bool repeat = r.readBoolean();
        if (!repeat) multiplicity = r.readBits(width);
        if (multiplicity == 0) throw std::runtime_error("compressed face: knot without multiplicity");
        // More knots than the most points a face may have (plus a degree)
        // cannot make a face that is kept: refused before they fill memory.
        if (knots.size() + multiplicity > kMaxCompressedPoints + 64)
            throw std::runtime_error("compressed face: more knots than a face may have");
        knots.insert(knots.end(), multiplicity, double(k));
    }
    return knots;
}

void refuse(uint8_t reason, const char* what) { throw UnreadableGeometry(reason, std::string("compressed face: ") + what); }

// The control points: the first exactly, the first row and column as steps
// along them, every other point as its step from the parallelogram of its
// three earlier neighbours, in that parallelogram's own frame when the
// point type says so (1: along the normal only, 2: in the tangent plane
// only, 3: free). Steps are whole multiples of the quantum.
void readControlPoints(PRCBitReader& r, double quantum, uint32_t nu, uint32_t nv, std::vector<double>& out) {
    const uint32_t edgeBits = r.readBits(20) + 1;
    const uint32_t innerBits = r.readBits(20) + 1;
    if (edgeBits > 32 || innerBits > 32) throw std::runtime_error("compressed face: step width out of range");
    std::vector<Point> p(size_t(nu) * nv);
    const auto at = [&](uint32_t i, uint32_t j) -> Point& { return p[size_t(i) * nv + j]; };
    const auto step = [&](uint32_t bits) {
        Point s;
        s.x = quantum * double(readSignedBits(r, bits));
        s.y = quantum * double(readSignedBits(r, bits));
        s.z = quantum * double(readSignedBits(r, bits));
        return s;
    };
    at(0, 0) = {r.readDouble(), r.readDouble(), r.readDouble()};
    for (uint32_t j = 1; j < nv; ++j) at(0, j) = at(0, j - 1) + step(edgeBits);
    for (uint32_t i = 1; i < nu; ++i) at(i, 0) = at(i - 1, 0) + step(edgeBits);
    for (uint32_t i = 1; i < nu; ++i) {
        for (uint32_t j = 1; j < nv; ++j) {
            const Point v = at(i - 1, j) - at(i - 1, j - 1);
            const Point u = at(i, j - 1) - at(i - 1, j - 1);
            Point q = at(i - 1, j - 1) + u + v;
            const uint32_t type = r.readBits(2);
            if (type == 3) {
                q = q + step(innerBits);
            } else if (type != 0) {
                const Point n = cross(u, v);
                const double ul = length(u), nl = length(n);
                if (!(ul > 0) || !(nl > 0)) throw std::runtime_error("compressed face: no frame for a control point");
                const Point ue = (1 / ul) * u, ne = (1 / nl) * n, nue = cross(ne, ue);
                if (type == 1) {
                    q = q + (quantum * double(readSignedBits(r, innerBits))) * ne;
                } else {
                    const double x = quantum * double(readSignedBits(r, innerBits));
                    const double y = quantum * double(readSignedBits(r, innerBits));
                    q = q + x * ue + y * nue;
                }
            }
            at(i, j) = q;
        }
    }
    out.resize(4 * p.size());
    for (size_t k = 0; k < p.size(); ++k) {
        out[4 * k] = p[k].x;
        out[4 * k + 1] = p[k].y;
        out[4 * k + 2] = p[k].z;
        out[4 * k + 3] = 1;
    }
}

ExactFace readCompressedFace(PRCBitReader& r, double tolerance) {
    if (r.readBoolean()) refuse(kSkipUnreadBodies, "a curve where a face was expected");
    if (r.readBits(4) != kCompressedNurbsForm) refuse(kSkipUnreadBodies, "a compressed surface form not known");
    ExactFace face;
    face.reversed = !r.readBoolean();  // orientation with the shell
    if (r.readBoolean()) refuse(kSkipTrimmed, "trimmed");
    NurbsData& n = face.surface.nurbs;
    face.surface.type = kSurfaceNurbs;
    n.degree_u = r.readBits(5);
    n.degree_v = r.readBits(5);
    n.knots_u = readKnotVector(r, n.degree_u);
    n.knots_v = readKnotVector(r, n.degree_v);
    if (r.readBoolean() || r.readBoolean()) refuse(kSkipUnreadBodies, "closed in a direction");
    if (n.knots_u.size() <= n.degree_u + 1 || n.knots_v.size() <= n.degree_v + 1)
        throw std::runtime_error("compressed face: fewer knots than its degree needs");
    n.count_u = uint32_t(n.knots_u.size() - n.degree_u - 1);
    n.count_v = uint32_t(n.knots_v.size() - n.degree_v - 1);
    // Every point after the first costs at least two bits.
    const uint64_t points = uint64_t(n.count_u) * n.count_v;
    if (points > kMaxCompressedPoints || 2 * (points - 1) > r.bitsRemaining())
        throw std::runtime_error("compressed face: more control points than the data holds");
    // The steps are multiples of a fifth of the body's tolerance.
    readControlPoints(r, 0.2 * tolerance, n.count_u, n.count_v, n.points);
    if (!r.readBoolean() || !r.readBoolean()) refuse(kSkipUnreadBodies, "parameters other than the knots");
    if (r.readBoolean()) refuse(kSkipUnreadBodies, "rational");
    setKnotDomain(face.surface);
    for (double x : n.points)
        if (!std::isfinite(x)) face.skip = kSkipInvalid;
    if (!std::isfinite(tolerance) || n.degree_u > kMaxDegree || n.degree_v > kMaxDegree) face.skip = kSkipInvalid;
    return face;
}

}  // namespace

void stitchCompressedPatches(ExactContext& context) {
    double tolerance = 0;
    for (const ExactBody& body : context.bodies)
        if (body.type == kTopoBrepDataCompress && std::isfinite(body.tolerance))
            tolerance = std::max(tolerance, body.tolerance);
    // Two quantised copies of one point differ by two steps (0.4 of the
    // tolerance) at most: a point dropped from a frame keeps up to a step.
    const double reach = 0.5 * tolerance;
    if (!(reach > 0)) return;
    std::map<std::array<long long, 3>, std::vector<const double*>> cells;
    const auto cellOf = [&](const double* p, int dx, int dy, int dz) {
        return std::array<long long, 3>{std::llround(std::floor(p[0] / reach)) + dx,
                                        std::llround(std::floor(p[1] / reach)) + dy,
                                        std::llround(std::floor(p[2] / reach)) + dz};
    };
    const auto stitch = [&](double* p) {
        if (!std::isfinite(p[0]) || !std::isfinite(p[1]) || !std::isfinite(p[2]) ||
            std::abs(p[0]) + std::abs(p[1]) + std::abs(p[2]) > 1e15 * reach)
            return;  // beyond what a cell index can hold: left as it is
        for (int n = 0; n < 27; ++n)
            for (const double* q : cells[cellOf(p, n % 3 - 1, n / 3 % 3 - 1, n / 9 - 1)])
                if (std::abs(p[0] - q[0]) <= reach && std::abs(p[1] - q[1]) <= reach && std::abs(p[2] - q[2]) <= reach) {
                    std::copy(q, q + 3, p);
                    return;
                }
        cells[cellOf(p, 0, 0, 0)].push_back(p);
    };
    for (ExactBody& body : context.bodies) {
        if (body.type != kTopoBrepDataCompress) continue;
        for (ExactFace& face : body.faces) {
            NurbsData& n = face.surface.nurbs;
            if (face.skip != 0 || n.points.size() != 4 * size_t(n.count_u) * n.count_v) continue;
            for (uint32_t i = 0; i < n.count_u; ++i)
                for (uint32_t j = 0; j < n.count_v; ++j)
                    if (i == 0 || j == 0 || i + 1 == n.count_u || j + 1 == n.count_v)
                        stitch(&n.points[4 * (size_t(i) * n.count_v + j)]);
        }
    }
}

ExactBody readCompressedBrepData(PRCBitReader& r) {
    ExactBody body;
    body.type = kTopoBrepDataCompress;
    readBaseTopology(r);
    r.readCharacter();  // behaviour
    const double tolerance = r.readDouble();
    body.tolerance = tolerance;
    const uint32_t referenceBits = r.readBits(int(r.readBits(5)));
    if (referenceBits > 32) throw std::runtime_error("compressed body: reference width out of range");
    // Shared vertices and edges would follow in forms not known here.
    if (r.readBits(int(referenceBits)) != 0 || r.readBits(int(referenceBits)) != 0)
        refuse(kSkipUnreadBodies, "vertices or edges shared between faces");
    if (!r.readBoolean()) refuse(kSkipUnreadBodies, "more than one shell");
    uint32_t faces = 1;
    if (!r.readBoolean()) faces = r.readBits(int(r.readBits(5)));
    if (faces > kMaxSectionEntries) refuse(kSkipBudget, "too many faces");
    body.faces.reserve(r.entriesThatFit(faces, 32));
    for (uint32_t i = 0; i < faces; ++i) body.faces.push_back(readCompressedFace(r, tolerance));
    for (uint32_t i = 0; i < faces; ++i)
        if (r.readBoolean()) refuse(kSkipUnreadBodies, "a face along a parameter line of another");
    for (uint32_t i = 0; i < faces; ++i) readBaseTopology(r);
    return body;
}

}  // namespace prc::exact
