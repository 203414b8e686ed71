#include "prc/tess/face_triangulation.h"

#include <algorithm>
#include <new>
#include <stdexcept>

#include "model/style_color.h"

namespace prc {

namespace {

// Bits of used_entities_flag: one nibble per variant (plain, one normal,
// textured, textured with one normal), and in each nibble one bit per kind of
// group (polyface, triangles, fan, strip).
constexpr uint32_t kTexturedVariants = 0x0F00;
constexpr uint32_t kOneNormalVariants = 0xF0F0;
constexpr uint32_t kDrawableGroups = 0xEEEE;  // triangles, fans, strips
constexpr uint32_t kTriangleGroups = 0x2222;
constexpr uint32_t kFanGroups = 0x4444;

constexpr const char* kIndexOutOfBounds = "appendFaceTriangles: index out of bounds (wrong stride?)";

// Colour entry counters only ever meet the length of a colour list, which is
// far below this; saturating here keeps the sums from wrapping on hostile sizes.
constexpr uint64_t kCounterCeiling = uint64_t(1) << 62;

uint64_t saturate(uint64_t a, uint64_t b) { return std::min(a + std::min(b, kCounterCeiling), kCounterCeiling); }

class FaceEmitter {
public:
    FaceEmitter(const PRC3DTess& tess, TessMesh& mesh, uint64_t& dropped)
        : indices_(tess.triangulated_indices), mesh_(mesh), dropped_(dropped),
          vertex_count_(mesh.positions.size() / 3) {}

    void startFace(const PRCTessFace& face, const uint8_t color[3]) {
        face_ = &face;
        entry_ = face.is_rgba ? 4 : 3;
        std::copy(color, color + 3, color_);
    }

    // Corner positions are checked before anything of the triangle is
    // written, so a stop leaves only whole triangles behind.
    void triangle(const uint64_t position[3], const uint64_t color_entry[3]) {
        const uint64_t n = indices_.size();
        for (int m = 0; m < 3; ++m)
            if (position[m] >= n) throw std::runtime_error(kIndexOutOfBounds);
        uint64_t vertex[3];
        for (int m = 0; m < 3; ++m) vertex[m] = indices_[position[m]] / 3;
        for (int m = 0; m < 3; ++m) writeColor(vertex[m], color_entry[m]);
        // A vertex beyond the piece would, once the piece is merged, name a
        // vertex of another piece; such a triangle is left out.
        if (vertex[0] >= vertex_count_ || vertex[1] >= vertex_count_ || vertex[2] >= vertex_count_) {
            ++dropped_;
            return;
        }
        for (int m = 0; m < 3; ++m) mesh_.triangles.push_back(uint32_t(vertex[m]));
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
    uint64_t& dropped_;
    const uint64_t vertex_count_;
    const PRCTessFace* face_ = nullptr;
    uint64_t entry_ = 3;
    uint8_t color_[3] = {255, 255, 255};
};

uint64_t vertexStride(const PRC3DTess& tess, uint32_t flags) {
    // Each vertex is a tuple of a normal index (absent when the normals are
    // recomputed), a texture index (textured variants only) and last the
    // point index.
    return (tess.must_recalculate_normals ? 1 : 2) + ((flags & kTexturedVariants) ? 1 : 0);
}

bool drawn(uint32_t flags) { return !(flags & kOneNormalVariants) && (flags & kDrawableGroups); }

// Any offset at or past the end of the index list fails the next corner check
// the same way, so offsets are kept from running further (and from wrapping).
uint64_t advance(uint64_t offset, uint64_t by, uint64_t end) { return std::min(offset + std::min(by, end), end); }

// Upper bound of the triangles that the faces can yield, walking the faces
// as the triangulation does: a triangle of a triangle group takes three
// tuples of its own, one of a fan or strip at least one.
uint64_t triangleBound(const PRC3DTess& tess) {
    const uint64_t n = tess.triangulated_indices.size();
    uint64_t offset = 0, total = 0;
    for (const PRCTessFace& face : tess.faces) {
        const uint32_t flags = face.used_entities_flag;
        const uint64_t stride = vertexStride(tess, flags);
        const bool triangles = (flags & kTriangleGroups) != 0;
        for (uint32_t s : face.sizes_triangulated) {
            if (drawn(flags)) {
                const uint64_t room = (n - offset + stride - 1) / stride;  // tuples left, rounded up
                const uint64_t fits =
                    triangles ? std::min<uint64_t>(s, (room + 2) / 3) : std::min<uint64_t>(s > 2 ? s - 2 : 0, room);
                total = saturate(total, fits);
            }
            offset = advance(offset, stride * (triangles && drawn(flags) ? 3 * uint64_t(s) : s), n);
        }
    }
    return std::min(total, n);
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

    uint64_t dropped = 0;
    bool stopped = false;
    try {
        mesh.triangles.reserve(size_t(3 * triangleBound(tess)));
    } catch (const std::bad_alloc&) {
        // Only a hint: the triangles still grow one by one below.
    }

    const uint64_t n = tess.triangulated_indices.size();

    FaceEmitter emit(tess, mesh, dropped);
    uint64_t offset = 0;
    try {
        for (const PRCTessFace& face : tess.faces) {
            uint8_t color[3] = {255, 255, 255};
            if (defaultRgb) std::copy(defaultRgb, defaultRgb + 3, color);
            if (!face.has_vertex_colors && !face.line_attributes.empty())
                model::resolveStyleColor(globals, face.line_attributes[0], color, defaultRgb);

            const uint32_t flags = face.used_entities_flag;
            const uint64_t stride = vertexStride(tess, flags);

            if (!drawn(flags)) {
                for (uint32_t s : face.sizes_triangulated) offset = advance(offset, stride * s, n);
                continue;
            }
            if (face.sizes_triangulated.empty()) continue;
            emit.startFace(face, color);

            uint64_t c = 0;
            if (flags & kTriangleGroups) {
                for (uint32_t t : face.sizes_triangulated) {
                    for (uint64_t j = 0; j < t; ++j) {
                        uint64_t position[3], entry[3];
                        for (uint64_t m = 0; m < 3; ++m) {
                            position[m] = offset + (stride - 1) + stride * (3 * j + m);
                            entry[m] = c + 3 * j + m;
                        }
                        emit.triangle(position, entry);
                    }
                    offset = advance(offset, stride * 3 * uint64_t(t), n);
                    c = saturate(c, 3 * uint64_t(t));
                }
            } else {
                const bool fan = (flags & kFanGroups) != 0;
                for (uint32_t s : face.sizes_triangulated) {
                    auto p = [&](uint64_t i) { return offset + (stride - 1) + stride * i; };
                    for (uint64_t k = 0; s > 2 && k <= uint64_t(s) - 3; ++k) {
                        const uint64_t first = fan ? 0 : k;
                        const uint64_t position[3] = {p(first), p(k + 1), p(k + 2)};
                        const uint64_t entry[3] = {c + first, c + k + 1, c + k + 2};
                        emit.triangle(position, entry);
                    }
                    offset = advance(offset, stride * s, n);
                    c = saturate(c, s);
                }
            }
        }
    } catch (const std::runtime_error&) {
        stopped = true;  // only the index bound check raises here
    } catch (const std::bad_alloc&) {
        stopped = true;
    }
    if (report) *report = FaceTriangulationReport{stopped, dropped};
    return mesh;
}

}  // namespace prc
