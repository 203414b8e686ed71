#pragma once
// A face of exact geometry as triangles: a grid over the face's parameter
// domain, as dense as the chord tolerance asks for the surface's curvature
// (a flat face gives two triangles), split at knots, with the rows that
// collapse into one point (poles, apexes, centres of discs) made one vertex.

#include <cstdint>

#include "prc/exact/exact_geometry.h"
#include "prc/tess/face_triangulation.h"

namespace prc::exact {

// The tessellation budget. A grid cell is two triangles and about
// 2 x 12 + 15 = 39 bytes of the result stream (two triangles of three u32
// indices and one vertex of three floats and three colour bytes). The host
// takes at most 256 MiB of payload: 2^22 cells (168 MB) for a whole model
// leave room for part records and for the vertices of grid edges; one face
// gets at most a quarter of that, so that one wild face cannot crowd out
// the others. A face that asks for more is drawn coarser than the tolerance
// (and counted); one that would exceed what the model has left is skipped.
constexpr uint64_t kMaxModelCells = uint64_t(1) << 22;
constexpr uint64_t kMaxFaceCells = uint64_t(1) << 20;
// Cells do not bound the time alone: a B-spline of degree 31 over a wide
// control net costs thousands of steps a row. The evaluations of one model
// may take 2^31 multiply-adds, a few seconds at most, well inside the time
// the host gives a decode.
constexpr uint64_t kMaxModelWork = uint64_t(1) << 31;

struct TessellationBudget {
    uint64_t cells_left = kMaxModelCells;
    uint64_t work_left = kMaxModelWork;
};

enum class FaceOutcome { Drawn, Coarsened, OverBudget, Invalid };

// Appends the triangles of face (in the body's coordinates, wound so that
// their normals follow the face's side) to piece, every new vertex coloured
// rgb. chordTolerance is absolute, in the body's units. A Bezier patch (a
// polynomial B-spline of one span each way) gets at least patch[0]
// segments along u and patch[1] along v.
FaceOutcome tessellateFace(const ExactFace& face, double chordTolerance, TessellationBudget& budget,
                           const uint8_t rgb[3], TessMesh& piece, const double patch[2] = nullptr);

// The segments a Bezier patch asks for along u and v; 0 for any other face.
// Patches that share edges meet without cracks when each is given the
// largest counts among them: a shared edge is then cut at the same
// parameters from both sides (writers cut a surface into patches that run
// alike, u along u).
void patchSegments(const ExactFace& face, double chordTolerance, double segments[2]);

}  // namespace prc::exact
