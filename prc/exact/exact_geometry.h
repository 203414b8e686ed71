#pragma once
// The exact geometry of one file structure as the tessellator needs it: for
// every topological context its bodies, for every body its faces, for every
// face its surface with the parameter domain to cover. Faces that cannot be
// drawn keep the reason, so that they are reported and never guessed.

#include <cstdint>
#include <vector>

#include "prc/entities/transformation.h"

namespace prc::exact {

// PRC type codes of the exact geometry that the readers branch on.
enum ExactTypeCode : uint32_t {
    kCurveNurbs = 13,
    kCurveCircle = 14,
    kCurveComposite = 15,
    kCurvePolyLine = 25,
    kSurfaceBlend01 = 77,
    kSurfaceNurbs = 80,
    kSurfaceCone = 81,
    kSurfaceCylinder = 82,
    kSurfaceRuled = 87,
    kSurfaceSphere = 88,
    kSurfaceTorus = 92,
    kTopoContext = 141,
    kTopoFace = 149,
    kTopoShell = 150,
    kTopoConnex = 151,
    kTopoSingleWireBody = 153,
    kTopoBrepData = 154,
    kTopoSingleWireBodyCompress = 155,
    kTopoBrepDataCompress = 156,
    kFileStructureGeometry = 306,
    kFileStructureExtraGeometry = 307,
};

// Degrees beyond those the compressed form can express (5 bits) are refused:
// each evaluated point costs a number of steps that grows with the degree.
constexpr uint32_t kMaxDegree = 31;

// A B-spline in one or two parameters. Control points are homogeneous
// (x w, y w, z w, w), w = 1 when not rational; for a surface they run with
// the v index fastest: point (i, j) is at i * count_v + j.
struct NurbsData {
    uint32_t degree_u = 0, degree_v = 0;
    uint32_t count_u = 0, count_v = 1;
    bool rational = false;
    std::vector<double> points;  // 4 per control point
    std::vector<double> knots_u, knots_v;  // count + degree + 1 each
};

// A curve that a ruled surface is built on: a circle of `radius` in the xy
// plane of its frame, a polyline through `points` (point k at parameter k),
// or a NURBS curve. Its parameter runs over [t_min, t_max].
struct CurveDefinition {
    uint32_t type = 0;
    Matrix4 frame = kIdentityMatrix;
    double t_min = 0, t_max = 0;
    bool reversed = false;  // parameter t runs as t_min + t_max - t
    double radius = 0;
    std::vector<double> points;  // polyline: 3 per point
    NurbsData nurbs;
};

// A surface over the domain [u_min, u_max] x [v_min, v_max] of its own
// parameters. The analytic kinds lie in their frame: sphere (radius p0),
// cylinder (radius p0, axis z), cone (radius p0 at v = 0, semi-angle p1),
// torus (major radius p0, minor radius p1); a ruled surface joins curves[0]
// (u = 0) to curves[1] (u = 1); a NURBS surface covers its knot range.
struct SurfaceDefinition {
    uint32_t type = 0;
    Matrix4 frame = kIdentityMatrix;
    double u_min = 0, u_max = 0, v_min = 0, v_max = 0;
    bool u_reversed = false, v_reversed = false;  // parameter runs as min + max - value
    double p0 = 0, p1 = 0;
    std::vector<CurveDefinition> curves;
    NurbsData nurbs;
};

// A B-spline surface covers its knot range: [knots[degree], knots[count]].
inline void setKnotDomain(SurfaceDefinition& s) {
    const NurbsData& n = s.nurbs;
    if (n.knots_u.size() <= n.count_u || n.knots_v.size() <= n.count_v) return;
    s.u_min = n.knots_u[n.degree_u];
    s.u_max = n.knots_u[n.count_u];
    s.v_min = n.knots_v[n.degree_v];
    s.v_max = n.knots_v[n.count_v];
}

struct ExactFace {
    SurfaceDefinition surface;
    bool reversed = false;  // drawn against the surface's own normal
    uint8_t skip = 0;       // 0: drawable; else the SkipReason or surface kind
    uint32_t line_style_index = 0xFFFFFFFF;  // its own style, from the extra geometry section
};

struct ExactBody {
    uint32_t type = 0;
    double tolerance = 0;  // a compressed body's: its points are within this of the shape written
    std::vector<ExactFace> faces;
    uint32_t first_face = 0;  // position of its first face among the context's faces
};

struct ExactContext {
    std::vector<ExactBody> bodies;
    uint32_t face_count = 0;
};

struct ExactGeometry {
    std::vector<ExactContext> contexts;
    uint64_t face_total = 0;  // over all contexts
    // Bodies announced but not read: the reading stopped at data it cannot
    // step over, and every later body of the section is lost with it.
    uint32_t unread_bodies = 0;
    uint8_t stop_reason = 0;  // what the reading stopped at (a SkipReason or surface kind)
};

}  // namespace prc::exact
