#pragma once
// Plain 3D tessellations to coloured triangle pieces.

#include <algorithm>
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
    bool stopped = false;             // a face's indices ran out (or memory did): some triangles are missing
    uint64_t dropped_triangles = 0;   // triangles naming a vertex beyond the piece, left out
};

// defaultRgb: three bytes, or null for none (white).
TessMesh appendFaceTriangles(const PRC3DTess& tess, const PRCGlobals& globals, const uint8_t* defaultRgb,
                             FaceTriangulationReport* report = nullptr);

// Faces in a one-normal variant keep their normals in another layout, and
// polyfaces are not triangulated: such faces are not drawn.
inline bool isDrawnFace(uint32_t flags) {
    return !(flags & kOneNormalVariants) && (flags & (kTriangleGroups | kFanGroups | kStripGroups));
}

// Values per vertex in triangulated_indices: a normal index (absent when the
// normals are recomputed), a texture index (textured variants only) and last
// the point index.
inline uint64_t vertexStride(const PRC3DTess& tess, uint32_t flags) {
    return (tess.must_recalculate_normals ? 1 : 2) + ((flags & kTexturedVariants) ? 1 : 0);
}

// The triangles of one drawn face, in emission order. For each, visit gets
// the positions in triangulated_indices of its three corners' point indices
// (not checked against the list) and their colour entries, and returns false
// to stop. Strips alternate their winding so that every triangle of a strip
// turns the same way: triangle k is (k, k+1, k+2) for even k, (k+1, k, k+2)
// for odd k.
template <class Visit>
void forEachFaceTriangle(const PRC3DTess& tess, const PRCTessFace& face, Visit&& visit) {
    const uint64_t stride = vertexStride(tess, face.used_entities_flag);
    // Past the end of the list every corner fails its check the same way, so
    // positions stop there and cannot wrap.
    const uint64_t end = uint64_t(tess.triangulated_indices.size()) + stride;
    uint64_t first = std::min<uint64_t>(face.start_triangulated, end);  // the group's first tuple
    uint64_t entry = 0;                                                  // the group's first colour entry
    forEachFaceGroup(face, [&](GroupKind kind, uint64_t vertices) {
        const uint64_t triangles = kind == GroupKind::Triangles ? vertices / 3 : vertices > 2 ? vertices - 2 : 0;
        for (uint64_t k = 0; k < triangles; ++k) {
            uint64_t v[3] = {k, k + 1, k + 2};
            if (kind == GroupKind::Triangles) v[0] = 3 * k, v[1] = 3 * k + 1, v[2] = 3 * k + 2;
            else if (kind == GroupKind::Fan) v[0] = 0;
            else if (k & 1) v[0] = k + 1, v[1] = k;
            const uint64_t position[3] = {first + stride * v[0] + stride - 1, first + stride * v[1] + stride - 1,
                                          first + stride * v[2] + stride - 1};
            const uint64_t color_entry[3] = {entry + v[0], entry + v[1], entry + v[2]};
            if (!visit(position, color_entry)) return false;
        }
        first = std::min(first + stride * std::min(vertices, end), end);
        entry += vertices;  // at most 2^32 sizes of 2^32 each: no wrap
        return true;
    });
}

}  // namespace prc
