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

struct TessellationBudget {
    uint64_t cells_left = kMaxModelCells;
};

enum class FaceOutcome { Drawn, Coarsened, OverBudget, Invalid };

// Appends the triangles of face (in the body's coordinates, wound so that
// their normals follow the face's side) to piece, every new vertex coloured
// rgb. chordTolerance is absolute, in the body's units.
FaceOutcome tessellateFace(const ExactFace& face, double chordTolerance, TessellationBudget& budget,
                           const uint8_t rgb[3], TessMesh& piece);

}  // namespace prc::exact
