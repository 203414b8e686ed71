#pragma once
// The tessellation section of a file structure: plain 3D tessellations kept,
// compressed ones handed to their reader, wires and markups read and dropped.

#include <algorithm>
#include <cstdint>
#include <vector>

#include "prc/io/bit_reader.h"
#include "prc/tess/compressed_tess_reading.h"

namespace prc {

// Bits of used_entities_flag: one nibble per variant (plain, one normal,
// textured, textured with one normal), and in each nibble one bit per kind of
// group (polyface, triangles, fan, strip).
constexpr uint32_t kTexturedVariants = 0x0F00;
constexpr uint32_t kOneNormalVariants = 0xF0F0;
constexpr uint32_t kTriangleGroups = 0x2222;
constexpr uint32_t kFanGroups = 0x4444;
constexpr uint32_t kStripGroups = 0x8888;

struct PRCTessFace {
    uint32_t used_entities_flag = 0;
    uint32_t start_triangulated = 0;  // position of the face's first index in triangulated_indices
    std::vector<uint32_t> line_attributes;  // style index, 0xFFFFFFFF for none
    std::vector<uint32_t> sizes_triangulated;
    bool has_vertex_colors = false;
    bool is_rgba = false;
    std::vector<uint8_t> rgba_vertices;
};

struct PRC3DTess {
    std::vector<double> coordinates;
    std::vector<double> normal_coordinates;
    std::vector<uint32_t> triangulated_indices;
    std::vector<PRCTessFace> faces;
    double crease_angle = 0.0;
    bool must_recalculate_normals = true;
};

enum class GroupKind : uint8_t { Triangles, Fan, Strip };

// The groups of a face, in the order its sizes list gives them: triangles as
// one count of triangles (a group of three vertices a triangle), then fans,
// then strips, each as the number of groups followed by one vertex count per
// group. visit(kind, vertices) returns false to stop. A count of groups larger
// than what the list still holds is cut to it: nothing past the face's own
// list is read.
template <class Visit>
void forEachFaceGroup(const PRCTessFace& face, Visit&& visit) {
    const std::vector<uint32_t>& sizes = face.sizes_triangulated;
    const uint32_t flags = face.used_entities_flag;
    size_t i = 0;
    if ((flags & kTriangleGroups) && i < sizes.size() && !visit(GroupKind::Triangles, 3 * uint64_t(sizes[i++])))
        return;
    for (const GroupKind kind : {GroupKind::Fan, GroupKind::Strip}) {
        if (!(flags & (kind == GroupKind::Fan ? kFanGroups : kStripGroups)) || i >= sizes.size()) continue;
        const uint64_t declared = sizes[i++];
        const uint64_t groups = std::min<uint64_t>(declared, sizes.size() - i);
        for (uint64_t g = 0; g < groups; ++g)
            if (!visit(kind, uint64_t(sizes[i++]))) return;
    }
}

enum class TessellationKind : int64_t { Dropped = 0, Tess3D = 1, Compressed = 2 };

struct TessellationRef {
    TessellationKind kind = TessellationKind::Dropped;
    int64_t index = 0;
};

// Reads the whole section. Errors inside a tessellation end the reading
// silently, keeping what was read before it; errors in the section head escape.
std::vector<PRC3DTess> readFileStructureTessellation(const uint8_t* data, uint64_t size,
                                                     uint32_t minimal_version_for_read, uint32_t authoring_version,
                                                     std::vector<PRC3DTessCompressed>& compressed,
                                                     std::vector<TessellationRef>* refs);

PRC3DTess readPRC3DTess(PRCBitReader& r);
PRCTessFace readTessFace(PRCBitReader& r);
void readPRC3DWireTess(PRCBitReader& r);
uint64_t countWireColorEntries(const std::vector<uint32_t>& wire_indexes, bool is_segment_color);
void readPRCMarkupTess(PRCBitReader& r);
std::vector<double> readTessBase(PRCBitReader& r);

}  // namespace prc
