#pragma once
// The decoded model as the exporters and the preview see it: the worker's
// mesh arrays and its part tree, copied out of a checked result stream.

#include <cstdint>
#include <string>
#include <vector>

namespace extract {

inline constexpr uint32_t kNoParent = 0xFFFFFFFF;

struct ModelPart {
    std::string name;
    uint32_t parent = kNoParent;  // index of an earlier part, or kNoParent for a root
    uint32_t first_triangle = 0;
    uint32_t triangle_count = 0;  // the part's own triangles, children not included
    float box_min[3] = {0, 0, 0};  // the part and its whole subtree
    float box_max[3] = {0, 0, 0};
};

struct ModelMesh {
    std::vector<float> positions;    // x y z per vertex
    std::vector<uint32_t> triangles;  // three vertex indices per triangle
    std::vector<uint8_t> colors;     // r g b per vertex
    std::vector<ModelPart> parts;    // parents before their children

    uint32_t vertexCount() const { return static_cast<uint32_t>(positions.size() / 3); }
    uint32_t triangleCount() const { return static_cast<uint32_t>(triangles.size() / 3); }
};

// Which model axis points up. CAD models (and so most PRC data) are Z-up;
// glTF is Y-up by definition, so the glTF writer turns a Z-up model's roots
// upright. The other formats have no convention and keep the coordinates.
enum class UpAxis { Z, Y };

struct Box {
    float min[3];
    float max[3];
    bool empty = true;
};

// The box of the vertices that triangles use; vertices that no triangle names
// and coordinates that are not finite do not widen it.
Box usedVertexBox(const ModelMesh& mesh);

// The triangles that no part claims as its own, in ascending order: all of
// them when the model came without part records.
std::vector<uint32_t> unclaimedTriangles(const ModelMesh& mesh);

// Names are raw bytes from the model and may be cut in the middle of a
// multi-byte character: the result is valid UTF-8, with every byte that is
// not part of a well-formed sequence read as Latin-1.
std::string toValidUtf8(const std::string& bytes);

}  // namespace extract
