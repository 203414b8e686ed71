#include "model/decoded_output.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace model {

namespace {

struct TriangleRange {
    uint32_t first;
    uint32_t count;
};

int compareRangeStarts(const void* a, const void* b) {
    const uint32_t x = static_cast<const TriangleRange*>(a)->first;
    const uint32_t y = static_cast<const TriangleRange*>(b)->first;
    return x < y ? -1 : (x > y ? 1 : 0);
}

// Records go out only when their triangle ranges lie inside the triangle
// array and do not overlap, so that the host can trust them as slices.
bool rangesConsistent(const std::vector<AssemblyNode>& nodes, uint32_t triangleCount) {
    std::vector<TriangleRange> ranges;
    for (const AssemblyNode& n : nodes)
        if (n.triangle_count != 0) ranges.push_back({n.first_triangle, n.triangle_count});
    for (const TriangleRange& r : ranges)
        if (uint64_t(r.first) + r.count > triangleCount) return false;
    if (ranges.size() > 1) {
        std::qsort(ranges.data(), ranges.size(), sizeof(TriangleRange), compareRangeStarts);
        for (size_t i = 1; i < ranges.size(); ++i)
            if (uint64_t(ranges[i].first) < uint64_t(ranges[i - 1].first) + ranges[i - 1].count) return false;
    }
    return true;
}

PartRecord makeRecord(const AssemblyNode& node, uint32_t index) {
    PartRecord rec;
    std::memset(&rec, 0, sizeof rec);
    // As strncpy with a bound of 127: stops at the first NUL and always
    // leaves at least one NUL at the end of the field.
    for (size_t i = 0; i < sizeof rec.name - 1 && i < node.name.size() && node.name[i] != '\0'; ++i)
        rec.name[i] = node.name[i];
    rec.node_index = index;
    rec.parent_index = node.parent_index;
    rec.first_triangle = node.first_triangle;
    rec.triangle_count = node.triangle_count;
    std::memcpy(rec.box_min, node.box_min, sizeof rec.box_min);
    std::memcpy(rec.box_max, node.box_max, sizeof rec.box_max);
    rec.flag = 1;
    return rec;
}

void releaseMeshBlocks(DecodedModel* out) {
    std::free(out->positions);
    std::free(out->triangles);
    std::free(out->colors);
    std::free(out->part_records);
    out->positions = nullptr;
    out->triangles = nullptr;
    out->colors = nullptr;
    out->part_records = nullptr;
    out->vertex_count = out->triangle_count = out->part_count = 0;
}

}  // namespace

bool buildDecodedOutput(PreviewMesh& mesh, bool withRecords, DecodedModel* out) {
    return buildDecodedOutput(mesh, withRecords, out, std::malloc);
}

bool buildDecodedOutput(PreviewMesh& mesh, bool withRecords, DecodedModel* out, OutputAllocator allocate) {
    const size_t vertices = mesh.positions.size() / 3;
    const size_t triangles = mesh.triangles.size() / 3;
    if (vertices > UINT32_MAX || triangles > UINT32_MAX || mesh.nodes.size() > UINT32_MAX)
        throw std::length_error("buildDecodedOutput: mesh too large for the result stream");

    float* positions = static_cast<float*>(allocate(vertices * 12));
    uint32_t* tris = static_cast<uint32_t*>(allocate(triangles * 12));
    uint8_t* colors = static_cast<uint8_t*>(allocate(vertices == 0 ? 1 : vertices * 3));
    if (positions == nullptr || tris == nullptr || colors == nullptr) {
        std::free(positions);
        std::free(tris);
        std::free(colors);
        std::memset(out, 0, sizeof *out);
        return false;
    }
    if (vertices != 0) std::memcpy(positions, mesh.positions.data(), vertices * 12);
    if (triangles != 0) std::memcpy(tris, mesh.triangles.data(), triangles * 12);
    std::memset(colors, 255, vertices * 3);
    if (vertices != 0 && !mesh.colors.empty())
        std::memcpy(colors, mesh.colors.data(), std::min(mesh.colors.size(), vertices * 3));

    out->positions = positions;
    out->triangles = tris;
    out->colors = colors;
    out->vertex_count = uint32_t(vertices);
    out->triangle_count = uint32_t(triangles);
    out->part_records = nullptr;
    out->part_count = 0;

    if (!withRecords || mesh.nodes.empty()) return true;
    try {
        std::vector<PartRecord> records;
        records.reserve(mesh.nodes.size());
        for (size_t i = 0; i < mesh.nodes.size(); ++i) records.push_back(makeRecord(mesh.nodes[i], uint32_t(i)));
        if (!rangesConsistent(mesh.nodes, out->triangle_count)) return true;
        auto* block = static_cast<PartRecord*>(allocate(records.size() * sizeof(PartRecord)));
        if (block == nullptr) return true;  // the mesh still goes out, without records
        std::memcpy(block, records.data(), records.size() * sizeof(PartRecord));
        out->part_records = block;
        out->part_count = uint32_t(records.size());
    } catch (...) {
        releaseMeshBlocks(out);
        throw;
    }
    return true;
}

}  // namespace model
