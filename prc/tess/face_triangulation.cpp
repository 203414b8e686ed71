#include "prc/tess/face_triangulation.h"

#include <algorithm>
#include <new>

#include "model/style_color.h"

namespace prc {

namespace {

class FaceEmitter {
public:
    FaceEmitter(const PRC3DTess& tess, TessMesh& mesh, FaceTriangulationReport& report)
        : indices_(tess.triangulated_indices), mesh_(mesh), report_(report),
          vertex_count_(mesh.positions.size() / 3), triangles_left_(tess.triangulated_indices.size()) {}

    void startFace(const PRCTessFace& face, const uint8_t color[3]) {
        face_ = &face;
        entry_ = face.is_rgba ? 4 : 3;
        std::copy(color, color + 3, color_);
    }

    // Corner positions are checked before anything of the triangle is
    // written, so a face that runs out leaves only whole triangles behind.
    // The third corner lies furthest in every kind of group (a strip turns
    // only its first two), so it alone decides. False ends the face.
    bool triangle(const uint64_t position[3], const uint64_t color_entry[3]) {
        if (position[2] >= indices_.size() || triangles_left_ == 0) {
            report_.stopped = true;
            return false;
        }
        // Well-formed faces use each tuple once, so a piece never has more
        // triangles than index values; faces that share their indices over and
        // over are cut there rather than grow the piece without bound.
        --triangles_left_;
        uint64_t vertex[3];
        for (int m = 0; m < 3; ++m) vertex[m] = indices_[position[m]] / 3;
        for (int m = 0; m < 3; ++m) writeColor(vertex[m], color_entry[m]);
        // A vertex beyond the piece would, once the piece is merged, name a
        // vertex of another piece; such a triangle is left out.
        if (vertex[0] >= vertex_count_ || vertex[1] >= vertex_count_ || vertex[2] >= vertex_count_) {
            ++report_.dropped_triangles;
            return true;
        }
        for (int m = 0; m < 3; ++m) mesh_.triangles.push_back(uint32_t(vertex[m]));
        return true;
    }

private:
    void writeColor(uint64_t vertex, uint64_t color_entry) {
        std::vector<uint8_t>& colors = mesh_.colors;
        if (3 * vertex + 3 > colors.size()) return;
        uint8_t* out = colors.data() + 3 * vertex;
        if (!face_->has_vertex_colors) {
            std::copy(color_, color_ + 3, out);
            return;
        }
        const std::vector<uint8_t>& rgba = face_->rgba_vertices;
        // Entry e occupies bytes e * entry_ onwards; its first three must be there.
        if (rgba.size() < 3 || color_entry > (rgba.size() - 3) / entry_) return;
        const uint8_t* in = rgba.data() + color_entry * entry_;
        std::copy(in, in + 3, out);
    }

    const std::vector<uint32_t>& indices_;
    TessMesh& mesh_;
    FaceTriangulationReport& report_;
    const uint64_t vertex_count_;
    uint64_t triangles_left_;
    const PRCTessFace* face_ = nullptr;
    uint64_t entry_ = 3;
    uint8_t color_[3] = {255, 255, 255};
};

// Room for the triangles that the faces' groups claim, at most one per index
// value (the bound the emitter enforces).
uint64_t triangleBound(const PRC3DTess& tess) {
    const uint64_t n = tess.triangulated_indices.size();
    uint64_t total = 0;
    for (const PRCTessFace& face : tess.faces) {
        if (!isDrawnFace(face.used_entities_flag)) continue;
        forEachFaceGroup(face, [&](GroupKind kind, uint64_t vertices) {
            total += kind == GroupKind::Triangles ? vertices / 3 : vertices > 2 ? vertices - 2 : 0;
            return total < n;
        });
        if (total >= n) return n;
    }
    return total;
}

}  // namespace

TessMesh appendFaceTriangles(const PRC3DTess& tess, const PRCGlobals& globals, const uint8_t* defaultRgb,
                             FaceTriangulationReport* report) {
    TessMesh mesh;
    mesh.positions.reserve(tess.coordinates.size());
    for (double c : tess.coordinates) mesh.positions.push_back(float(c));
    mesh.colors.assign(mesh.positions.size(), 255);
    if (defaultRgb && mesh.colors.size() > 2)
        for (size_t i = 0; i + 3 <= mesh.colors.size(); i += 3) std::copy(defaultRgb, defaultRgb + 3, &mesh.colors[i]);

    FaceTriangulationReport outcome;
    try {
        mesh.triangles.reserve(size_t(3 * triangleBound(tess)));
    } catch (const std::bad_alloc&) {
        // Only a hint: the triangles still grow one by one below.
    }

    FaceEmitter emit(tess, mesh, outcome);
    try {
        // Each face starts at its own position: producers need not store
        // faces in the order of their indices.
        for (const PRCTessFace& face : tess.faces) {
            if (!isDrawnFace(face.used_entities_flag)) continue;
            uint8_t color[3] = {255, 255, 255};
            if (defaultRgb) std::copy(defaultRgb, defaultRgb + 3, color);
            if (!face.has_vertex_colors && !face.line_attributes.empty())
                model::resolveStyleColor(globals, face.line_attributes[0], color, defaultRgb);
            emit.startFace(face, color);
            forEachFaceTriangle(tess, face, [&](const uint64_t position[3], const uint64_t entry[3]) {
                return emit.triangle(position, entry);
            });
        }
    } catch (const std::bad_alloc&) {
        outcome.stopped = true;
    }
    if (report) *report = outcome;
    return mesh;
}

}  // namespace prc
