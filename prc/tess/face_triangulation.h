#pragma once
// Plain 3D tessellations to coloured triangle pieces.

#include <cstdint>
#include <vector>

#include "prc/entities/globals.h"
#include "prc/tess/tessellation_section.h"

namespace prc {

struct TessMesh {
    std::vector<float> positions;     // x y z per vertex
    std::vector<uint32_t> triangles;  // three vertex indices per triangle
    std::vector<uint8_t> colors;      // r g b per vertex, as long as positions
};

// What the triangulation left out, for callers that want to know; the piece
// itself is the same whether or not this is asked for.
struct FaceTriangulationReport {
    bool stopped = false;             // an index list ran out (or memory did): later triangles are missing
    uint64_t dropped_triangles = 0;   // triangles naming a vertex beyond the piece, left out
};

// defaultRgb: three bytes, or null for none (white).
TessMesh appendFaceTriangles(const PRC3DTess& tess, const PRCGlobals& globals, const uint8_t* defaultRgb,
                             FaceTriangulationReport* report = nullptr);

}  // namespace prc
