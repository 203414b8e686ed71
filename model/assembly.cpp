#include "model/assembly.h"

#include <algorithm>
#include <exception>
#include <stdexcept>

#include "model/style_color.h"
#include "prc/tess/compressed_tess_mesh.h"

namespace model {

using prc::PRCFileStructure;
using prc::PRCProductOccurrence;
using prc::TessMesh;

namespace {

constexpr uint32_t kNoStyle = 0xFFFFFFFF;

struct OccurrenceRef {
    int64_t fs;
    int64_t occurrence;
};

const PRCProductOccurrence* occurrenceAt(const AssemblyContext& ctx, int64_t fs, int64_t occurrence) {
    if (fs < 0 || uint64_t(fs) >= ctx.file_structures.size()) return nullptr;
    const PRCFileStructure& f = ctx.file_structures[size_t(fs)];
    if (!f.tree_loaded || occurrence < 0 || uint64_t(occurrence) >= f.product_occurrences.size()) return nullptr;
    return &f.product_occurrences[size_t(occurrence)];
}

// Moves ref to its prototype; false where the chain ends.
bool followPrototype(const AssemblyContext& ctx, OccurrenceRef& ref) {
    const PRCProductOccurrence* o = occurrenceAt(ctx, ref.fs, ref.occurrence);
    if (o == nullptr || o->index_prototype < 0) return false;
    const int64_t fs =
        o->prototype_in_same_file_structure ? ref.fs : findFileStructure(ctx, o->prototype_file_structure);
    if (occurrenceAt(ctx, fs, o->index_prototype) == nullptr) return false;
    ref = {fs, o->index_prototype};
    return true;
}

// The first occurrence that satisfies pred among start and at most 64 of its
// prototypes; a cycle simply runs out of looks.
template <typename Pred>
const PRCProductOccurrence* searchChain(const AssemblyContext& ctx, OccurrenceRef start, Pred pred,
                                        OccurrenceRef* found = nullptr) {
    OccurrenceRef ref = start;
    for (int look = 0; look < kMaxPrototypeLooks; ++look) {
        const PRCProductOccurrence* o = occurrenceAt(ctx, ref.fs, ref.occurrence);
        if (o == nullptr) return nullptr;
        if (pred(*o)) {
            if (found) *found = ref;
            return o;
        }
        if (!followPrototype(ctx, ref)) return nullptr;
    }
    return nullptr;
}

template <typename Pred>
const PRCProductOccurrence* searchPrototypes(const AssemblyContext& ctx, int64_t fs, int64_t occurrence, Pred pred,
                                             OccurrenceRef* found = nullptr) {
    OccurrenceRef start{fs, occurrence};
    if (!followPrototype(ctx, start)) return nullptr;
    return searchChain(ctx, start, pred, found);
}

// A style that resolves in the globals replaces the colour; anything else
// keeps it.
uint32_t styledColour(const prc::PRCGlobals& globals, uint32_t styleIndex, uint32_t colour) {
    if (styleIndex == kNoStyle) return colour;
    uint8_t rgb[3];
    return resolveStyleColor(globals, styleIndex, rgb, nullptr) ? packColor(rgb) : colour;
}

const TessMesh& cachedPiece(PRCFileStructure& fs, int64_t tessellation, uint32_t colour) {
    const prc::PieceKey key{tessellation, colour};
    auto it = fs.piece_cache.find(key);
    if (it != fs.piece_cache.end()) return it->second;
    uint8_t rgb[3];
    unpackColor(colour, rgb);
    const uint8_t* defaultRgb = colour != 0 ? rgb : nullptr;
    TessMesh piece;
    try {
        const prc::TessellationRef& ref = fs.tessellation_refs[size_t(tessellation)];
        if (ref.kind == prc::TessellationKind::Tess3D && ref.index >= 0 &&
            uint64_t(ref.index) < fs.tessellations.size()) {
            piece = prc::appendFaceTriangles(fs.tessellations[size_t(ref.index)], fs.globals, defaultRgb);
        } else if (ref.kind == prc::TessellationKind::Compressed && ref.index >= 0 &&
                   uint64_t(ref.index) < fs.compressed_tessellations.size()) {
            const prc::PRC3DTessCompressed& record = fs.compressed_tessellations[size_t(ref.index)];
            prc::RebuiltCompressedTess* rebuilt = uint64_t(ref.index) < fs.rebuilt_compressed.size()
                                                      ? &fs.rebuilt_compressed[size_t(ref.index)]
                                                      : nullptr;
            if (rebuilt && rebuilt->failure) std::rethrow_exception(rebuilt->failure);
            if (rebuilt && !rebuilt->taken) {
                // The geometry moves into the first piece, so that the points
                // are not held twice; another colour rebuilds them.
                rebuilt->taken = true;
                colourCompressedTessPiece(piece, std::move(rebuilt->geometry), record, fs.globals, defaultRgb);
            } else {
                buildCompressedTessPiece(piece, record, fs.globals, defaultRgb);
            }
        }
    } catch (const std::exception&) {
        piece = TessMesh();  // a piece that cannot be built draws nothing, every time
    }
    return fs.piece_cache.emplace(key, std::move(piece)).first->second;
}

void countSteps(uint64_t& steps, uint64_t n, const AssemblyLimits& limits) {
    steps += n;
    if (steps > limits.max_steps) throw std::runtime_error("assieme PRC: struttura troppo grande");
}

void emitRepresentationItems(PRCFileStructure& fs, const std::vector<prc::PRCRepresentationItem>& items,
                             const double world[16], uint32_t colour, PreviewMesh& mesh, const AssemblyLimits& limits,
                             uint64_t& steps);

void widenBox(float boxMin[3], float boxMax[3], const float* p) {
    for (int axis = 0; axis < 3; ++axis) {
        if (p[axis] < boxMin[axis]) boxMin[axis] = p[axis];
        if (p[axis] > boxMax[axis]) boxMax[axis] = p[axis];
    }
}

}  // namespace

void multiplyMatrix4(const double a[16], const double b[16], double out[16]) {
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            out[4 * r + c] =
                a[4 * r + 0] * b[c] + a[4 * r + 1] * b[4 + c] + a[4 * r + 2] * b[8 + c] + a[4 * r + 3] * b[12 + c];
}

int64_t findFileStructure(const AssemblyContext& ctx, const prc::FileStructureId& id) {
    auto& index = ctx.identifier_index;
    if (!ctx.identifier_index_built) {
        index.clear();
        index.reserve(ctx.header.file_structures.size());
        for (size_t i = 0; i < ctx.header.file_structures.size(); ++i)
            index.emplace_back(ctx.header.file_structures[i].identifier, int64_t(i));
        // Stable: among equal identifiers the first descriptor stays first.
        std::stable_sort(index.begin(), index.end(),
                         [](const auto& x, const auto& y) { return x.first < y.first; });
        ctx.identifier_index_built = true;
    }
    auto it = std::lower_bound(index.begin(), index.end(), id,
                               [](const auto& entry, const prc::FileStructureId& key) { return entry.first < key; });
    return it != index.end() && it->first == id ? it->second : -1;
}

std::string resolveOccurrenceName(const AssemblyContext& ctx, int64_t fsIndex, int64_t occurrenceIndex) {
    const PRCProductOccurrence* o =
        searchPrototypes(ctx, fsIndex, occurrenceIndex, [](const PRCProductOccurrence& x) { return !x.name.empty(); });
    return o ? o->name : std::string();
}

bool findPartDefinition(const AssemblyContext& ctx, int64_t fsIndex, int64_t occurrenceIndex, int64_t& partFs,
                        int64_t& partIndex) {
    OccurrenceRef found{};
    const PRCProductOccurrence* o = searchPrototypes(
        ctx, fsIndex, occurrenceIndex, [](const PRCProductOccurrence& x) { return x.index_part >= 0; }, &found);
    if (o == nullptr) return false;
    partFs = found.fs;
    partIndex = o->index_part;
    return true;
}

const std::vector<uint32_t>* findSonOccurrences(const AssemblyContext& ctx, int64_t fsIndex, int64_t occurrenceIndex,
                                                int64_t& sonFs) {
    OccurrenceRef found{};
    const PRCProductOccurrence* o = searchPrototypes(
        ctx, fsIndex, occurrenceIndex, [](const PRCProductOccurrence& x) { return !x.son_product_occurrences.empty(); },
        &found);
    if (o == nullptr) return nullptr;
    sonFs = found.fs;
    return &o->son_product_occurrences;
}

void appendPiece(PreviewMesh& mesh, const TessMesh& piece, const double* m) {
    const size_t pieceVertices = piece.positions.size() / 3;
    const size_t base = mesh.positions.size() / 3;
    // Triangle corners are u32 vertex numbers of the whole mesh.
    if (uint64_t(base) + pieceVertices > UINT32_MAX) throw std::length_error("appendPiece: too many vertices");

    // No exact reserve here: one per piece would defeat the vectors' geometric
    // growth and copy the whole mesh for every placement.
    if (m == nullptr) {
        mesh.positions.insert(mesh.positions.end(), piece.positions.begin(),
                              piece.positions.begin() + ptrdiff_t(3 * pieceVertices));
    } else {
        for (size_t v = 0; v < pieceVertices; ++v) {
            const double x = piece.positions[3 * v], y = piece.positions[3 * v + 1], z = piece.positions[3 * v + 2];
            mesh.positions.push_back(float(m[0] * x + m[1] * y + m[2] * z + m[3]));
            mesh.positions.push_back(float(m[4] * x + m[5] * y + m[6] * z + m[7]));
            mesh.positions.push_back(float(m[8] * x + m[9] * y + m[10] * z + m[11]));
        }
    }

    // Exactly three colour bytes per vertex, so that later pieces stay in step.
    const size_t colourBytes = std::min(piece.colors.size(), 3 * pieceVertices);
    mesh.colors.insert(mesh.colors.end(), piece.colors.begin(), piece.colors.begin() + ptrdiff_t(colourBytes));
    mesh.colors.resize(mesh.colors.size() + (3 * pieceVertices - colourBytes), 255);

    bool mirrored = false;
    if (m != nullptr) {
        const double det = m[0] * (m[5] * m[10] - m[6] * m[9]) - m[1] * (m[4] * m[10] - m[6] * m[8]) +
                           m[2] * (m[4] * m[9] - m[5] * m[8]);
        mirrored = det < 0;
    }
    const size_t triangles = piece.triangles.size() / 3;
    for (size_t t = 0; t < triangles; ++t) {
        const uint32_t a = piece.triangles[3 * t], b = piece.triangles[3 * t + 1], c = piece.triangles[3 * t + 2];
        if (a >= pieceVertices || b >= pieceVertices || c >= pieceVertices) continue;
        mesh.triangles.push_back(uint32_t(a + base));
        mesh.triangles.push_back(uint32_t((mirrored ? c : b) + base));
        mesh.triangles.push_back(uint32_t((mirrored ? b : c) + base));
    }
}

namespace {

void emitRepresentationItems(PRCFileStructure& fs, const std::vector<prc::PRCRepresentationItem>& items,
                             const double world[16], uint32_t colour, PreviewMesh& mesh, const AssemblyLimits& limits,
                             uint64_t& steps) {
    countSteps(steps, items.size(), limits);
    for (const prc::PRCRepresentationItem& item : items) {
        const uint32_t itemColour = styledColour(fs.globals, item.line_style_index, colour);
        // The item's placement: the part's, after the item's own coordinate system.
        double placement[16];
        bool placed = false;
        const auto place = [&]() {
            const auto& systems = fs.globals.reference_coordinate_systems;
            const int64_t lcs = item.index_local_coordinate_system;
            if (lcs >= 0 && uint64_t(lcs) < systems.size())
                multiplyMatrix4(world, systems[size_t(lcs)].data(), placement);
            else
                std::copy(world, world + 16, placement);
            placed = true;
        };
        const TessMesh* source = nullptr;
        if (item.index_tessellation >= 0 && uint64_t(item.index_tessellation) < fs.tessellation_refs.size()) {
            source = &cachedPiece(fs, item.index_tessellation, itemColour);
        } else if (fs.exact_piece && item.index_body >= 0) {
            place();  // the exact piece's density depends on the scale it is drawn at
            source = fs.exact_piece(item, itemColour, placement);
        }
        if (source != nullptr && source->triangles.size() >= 3) {
            const TessMesh& piece = *source;
            if (!placed) place();
            if (mesh.triangles.size() / 3 + piece.triangles.size() / 3 > limits.max_triangles)
                throw std::runtime_error("assieme PRC: troppi triangoli");
            if (mesh.positions.size() / 3 + piece.positions.size() / 3 > limits.max_vertices)
                throw std::runtime_error("assieme PRC: troppi vertici");
            appendPiece(mesh, piece, placement);
        }
        // Children are placed by the part's matrix, not by this item's
        // local coordinate system.
        emitRepresentationItems(fs, item.items, world, itemColour, mesh, limits, steps);
    }
}

}  // namespace

void assembleOccurrence(AssemblyContext& ctx, int64_t fsIndex, int64_t occurrenceIndex, uint32_t parentNode,
                        const double world[16], int32_t depth, uint32_t inheritedColour, PreviewMesh& mesh) {
    if (depth > kMaxAssemblyDepth) return;
    const PRCProductOccurrence* o = occurrenceAt(ctx, fsIndex, occurrenceIndex);
    if (o == nullptr) return;
    const OccurrenceRef self{fsIndex, occurrenceIndex};

    uint32_t nodeColour = inheritedColour;
    OccurrenceRef styled{};
    if (const PRCProductOccurrence* s =
            searchChain(ctx, self, [](const PRCProductOccurrence& x) { return x.line_style_index != kNoStyle; }, &styled))
        nodeColour = styledColour(ctx.file_structures[size_t(styled.fs)].globals, s->line_style_index, inheritedColour);

    if (mesh.nodes.size() >= ctx.limits.max_nodes) throw std::runtime_error("assieme PRC: troppi nodi");

    double nodeWorld[16];
    if (const PRCProductOccurrence* placed =
            searchChain(ctx, self, [](const PRCProductOccurrence& x) { return x.has_location; }))
        multiplyMatrix4(world, placed->location.data(), nodeWorld);
    else
        std::copy(world, world + 16, nodeWorld);

    const size_t nodeIndex = mesh.nodes.size();
    {
        AssemblyNode node;
        node.name = o->name.empty() ? resolveOccurrenceName(ctx, fsIndex, occurrenceIndex) : o->name;
        node.parent_index = parentNode;
        node.first_triangle = uint32_t(mesh.triangles.size() / 3);
        mesh.nodes.push_back(std::move(node));
    }
    const size_t firstVertex = mesh.positions.size() / 3;

    int64_t partFs = fsIndex;
    int64_t partIndex = o->index_part;
    if (partIndex < 0 && !findPartDefinition(ctx, fsIndex, occurrenceIndex, partFs, partIndex)) partIndex = -1;
    if (partIndex >= 0 && uint64_t(partIndex) < ctx.file_structures[size_t(partFs)].part_definitions.size()) {
        PRCFileStructure& pfs = ctx.file_structures[size_t(partFs)];
        const prc::PRCPartDefinition& part = pfs.part_definitions[size_t(partIndex)];
        const uint32_t partColour = styledColour(pfs.globals, part.line_style_index, nodeColour);
        emitRepresentationItems(pfs, part.representation_items, nodeWorld, partColour, mesh, ctx.limits, ctx.steps);
        AssemblyNode& node = mesh.nodes[nodeIndex];
        node.triangle_count = uint32_t(mesh.triangles.size() / 3 - node.first_triangle);
    }

    // The box of the node's own vertices, widened below by each son's box
    // (which covers exactly the vertices that son's subtree emitted).
    bool emitted = mesh.positions.size() / 3 > firstVertex;
    float boxMin[3] = {1e30f, 1e30f, 1e30f};
    float boxMax[3] = {-1e30f, -1e30f, -1e30f};
    for (size_t v = firstVertex; v < mesh.positions.size() / 3; ++v) widenBox(boxMin, boxMax, &mesh.positions[3 * v]);

    int64_t sonFs = fsIndex;
    const std::vector<uint32_t>* sons = &o->son_product_occurrences;
    if (sons->empty()) sons = findSonOccurrences(ctx, fsIndex, occurrenceIndex, sonFs);
    if (sons != nullptr) {
        countSteps(ctx.steps, 2 * uint64_t(sons->size()), ctx.limits);
        // One configuration among the sons is shown: the first flagged as
        // default, else the first of them.
        int64_t chosen = -1;
        for (uint32_t son : *sons) {
            const PRCProductOccurrence* so = occurrenceAt(ctx, sonFs, son);
            if (so == nullptr || !(so->product_information_flags & 8)) continue;
            if (so->product_information_flags & 1) {
                chosen = son;
                break;
            }
            if (chosen < 0) chosen = son;
        }
        for (uint32_t son : *sons) {
            const PRCProductOccurrence* so = occurrenceAt(ctx, sonFs, son);
            if (so == nullptr || (so->product_behaviour & 1)) continue;
            if ((so->product_information_flags & 8) && int64_t(son) != chosen) continue;
            const size_t sonNode = mesh.nodes.size();
            const size_t sonFirstVertex = mesh.positions.size() / 3;
            assembleOccurrence(ctx, sonFs, son, uint32_t(nodeIndex), nodeWorld, depth + 1, nodeColour, mesh);
            if (mesh.positions.size() / 3 > sonFirstVertex) {
                const AssemblyNode& sn = mesh.nodes[sonNode];
                widenBox(boxMin, boxMax, sn.box_min);
                widenBox(boxMin, boxMax, sn.box_max);
                emitted = true;
            }
        }
    }

    if (emitted) {
        AssemblyNode& node = mesh.nodes[nodeIndex];
        std::copy(boxMin, boxMin + 3, node.box_min);
        std::copy(boxMax, boxMax + 3, node.box_max);
    }
}

TessMesh compressedTessGeometry(const prc::PRC3DTessCompressed& record) {
    prc::CompressedTessResult rebuilt = prc::buildCompressedTessMesh(record);
    TessMesh geometry;
    geometry.positions.resize(rebuilt.positions.size());
    for (size_t i = 0; i < rebuilt.positions.size(); ++i) geometry.positions[i] = float(rebuilt.positions[i]);
    geometry.triangles = std::move(rebuilt.triangles);
    return geometry;
}

void buildCompressedTessPiece(TessMesh& out, const prc::PRC3DTessCompressed& record, const prc::PRCGlobals& globals,
                              const uint8_t* defaultRgb) {
    colourCompressedTessPiece(out, compressedTessGeometry(record), record, globals, defaultRgb);
}

void colourCompressedTessPiece(TessMesh& out, TessMesh geometry, const prc::PRC3DTessCompressed& record,
                               const prc::PRCGlobals& globals, const uint8_t* defaultRgb) {
    TessMesh piece = std::move(geometry);
    const size_t vertices = piece.positions.size() / 3;
    piece.colors.assign(3 * vertices, 255);
    if (defaultRgb != nullptr)
        for (size_t v = 0; v < vertices; ++v) std::copy(defaultRgb, defaultRgb + 3, &piece.colors[3 * v]);

    if (!record.style_array.empty() && !record.triangle_face_array.empty()) {
        for (size_t k = 0; 3 * k + 2 < piece.triangles.size(); ++k) {
            int64_t slot = int64_t(k);
            if (!record.style_per_triangle) {
                if (k >= record.triangle_face_array.size()) continue;
                slot = record.triangle_face_array[k];
            }
            if (slot < 0 || uint64_t(slot) >= record.style_array.size() || record.style_array[size_t(slot)] < 1)
                continue;
            uint8_t rgb[3];
            resolveStyleColor(globals, uint32_t(record.style_array[size_t(slot)] - 1), rgb, defaultRgb);
            for (int corner = 0; corner < 3; ++corner) {
                const uint64_t v = piece.triangles[3 * k + size_t(corner)];
                if (3 * v + 3 <= piece.colors.size()) std::copy(rgb, rgb + 3, &piece.colors[size_t(3 * v)]);
            }
        }
    }
    out = std::move(piece);
}

}  // namespace model
