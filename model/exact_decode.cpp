#include "model/exact_decode.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <exception>
#include <map>
#include <memory>
#include <set>
#include <tuple>

#include "model/decode_driver.h"
#include "model/style_color.h"
#include "prc/exact/exact_reading.h"
#include "prc/exact/face_tessellation.h"
#include "prc/io/inflate_section.h"

namespace model {

namespace {

using prc::exact::ExactGeometry;

struct ExactFileStructure {
    ExactGeometry geometry;
    // (context, body, packed colour, scale class) -> piece, built once per pass.
    std::map<std::tuple<int64_t, int64_t, uint32_t, int32_t>, prc::TessMesh> pieces;
    // (context, scale class) -> segments along u and v of every Bezier patch of the context.
    std::map<std::pair<int64_t, int32_t>, std::array<double, 2>> patch_segments;
};

// Placements that scale a body alike share its piece: scales are taken in
// classes of a quarter octave (19%), each tessellated for the largest scale
// of its class, so that no placement is drawn coarser than the tolerance.
int32_t scaleClass(const double placement[16]) {
    double scale = 0;
    for (int c = 0; c < 3; ++c)
        scale = std::max(scale, std::sqrt(placement[c] * placement[c] + placement[4 + c] * placement[4 + c] +
                                          placement[8 + c] * placement[8 + c]));
    if (!(scale > 0) || !std::isfinite(scale)) return 0;
    return int32_t(std::clamp(std::ceil(4 * std::log2(scale)), -4096.0, 4096.0));
}

// One walk over the model at one chord tolerance. Only the last walk counts
// faces for the summary, each body once however often it is placed.
struct ExactPass {
    double chord_tolerance = 0;  // absolute, in the bodies' units
    bool counting = false;
    prc::exact::TessellationBudget budget;
    std::vector<std::unique_ptr<ExactFileStructure>> file_structures;
    std::set<std::tuple<size_t, int64_t, int64_t>> counted;
    std::map<uint8_t, uint32_t> skipped;
    uint32_t faces_drawn = 0;
    uint32_t faces_coarsened = 0;
};

// The end of a section that has no offset after it (the extra geometry is the
// last section of a file structure): the next offset the header knows, or
// the end of the file. The zlib stream ends by itself before it.
uint64_t nextBoundary(const prc::PRCHeader& header, uint64_t start, uint64_t size) {
    uint64_t end = size;
    const auto consider = [&](uint64_t offset) {
        if (offset > start && offset < end) end = offset;
    };
    for (const prc::FileStructureDescriptor& d : header.file_structures)
        for (uint32_t offset : d.offsets) consider(offset);
    consider(header.model_file_start);
    return end;
}

ExactGeometry readExactGeometry(const prc::PRCHeader& header, size_t index, const uint8_t* data, uint64_t size,
                                uint32_t version) {
    ExactGeometry geometry;
    const std::vector<uint32_t>& offsets = header.file_structures[index].offsets;
    if (offsets.size() < 5) return geometry;
    const auto section = [&](size_t k) {
        const uint64_t start = offsets[k];
        const uint64_t end = k + 1 < offsets.size() ? offsets[k + 1] : nextBoundary(header, start, size);
        if (end <= start || end > size) throw std::runtime_error("sezione vuota o fuori dal file");
        return prc::inflateSection(data + start, end - start);
    };
    try {
        const prc::InflatedSection bytes = section(4);
        prc::PRCBitReader r(bytes.data(), bytes.size(), version);
        geometry = prc::exact::readFileStructureGeometry(r);
    } catch (const std::exception&) {
        return geometry;
    }
    if (offsets.size() < 6) return geometry;
    try {
        const prc::InflatedSection bytes = section(5);
        prc::PRCBitReader r(bytes.data(), bytes.size(), version);
        prc::exact::readFileStructureExtraGeometry(r, geometry);
    } catch (const std::exception&) {
        // Face styles are a refinement: without them faces take their item's colour.
    }
    return geometry;
}

void countReadingLosses(ExactPass& pass, const ExactGeometry& geometry) {
    if (!pass.counting || geometry.unread_bodies == 0) return;
    if (geometry.stop_reason != prc::exact::kSkipUnreadBodies) pass.skipped[geometry.stop_reason] += 1;
    pass.skipped[prc::exact::kSkipUnreadBodies] += geometry.unread_bodies;
}

// Writers cut a surface into Bezier patches, often each in a body of its
// own within one context: the patches of a context are all cut alike, so
// that their shared edges meet without cracks.
const std::array<double, 2>& contextPatchSegments(ExactFileStructure& efs, int64_t context, int32_t scale,
                                                  double tolerance) {
    const auto key = std::make_pair(context, scale);
    auto it = efs.patch_segments.find(key);
    if (it != efs.patch_segments.end()) return it->second;
    std::array<double, 2> most{0, 0};
    for (const prc::exact::ExactBody& body : efs.geometry.contexts[size_t(context)].bodies)
        for (const prc::exact::ExactFace& face : body.faces) {
            double segments[2];
            prc::exact::patchSegments(face, tolerance, segments);
            most = {std::max(most[0], segments[0]), std::max(most[1], segments[1])};
        }
    return efs.patch_segments.emplace(key, most).first->second;
}

prc::TessMesh buildBodyPiece(ExactPass& pass, const prc::exact::ExactBody& body, const prc::PRCGlobals& globals,
                             uint32_t colour, double tolerance, const std::array<double, 2>& patchSegments,
                             bool count) {
    uint8_t itemRgb[3] = {255, 255, 255};
    if (colour != 0) unpackColor(colour, itemRgb);
    const uint8_t* defaultRgb = colour != 0 ? itemRgb : nullptr;
    prc::TessMesh piece;
    for (const prc::exact::ExactFace& face : body.faces) {
        if (face.skip != 0) {
            if (count) pass.skipped[face.skip] += 1;
            continue;
        }
        uint8_t rgb[3] = {itemRgb[0], itemRgb[1], itemRgb[2]};
        if (face.line_style_index != 0xFFFFFFFF) resolveStyleColor(globals, face.line_style_index, rgb, defaultRgb);
        const prc::exact::FaceOutcome outcome =
            prc::exact::tessellateFace(face, tolerance, pass.budget, rgb, piece, patchSegments.data());
        if (!count) continue;
        switch (outcome) {
            case prc::exact::FaceOutcome::Coarsened: pass.faces_coarsened += 1; [[fallthrough]];
            case prc::exact::FaceOutcome::Drawn: pass.faces_drawn += 1; break;
            case prc::exact::FaceOutcome::OverBudget: pass.skipped[prc::exact::kSkipBudget] += 1; break;
            case prc::exact::FaceOutcome::Invalid: pass.skipped[prc::exact::kSkipInvalid] += 1; break;
        }
    }
    return piece;
}

const prc::TessMesh* exactPiece(ExactPass& pass, size_t fsIndex, const prc::PRCGlobals& globals, int64_t context,
                                int64_t body, uint32_t colour, int32_t scale) {
    ExactFileStructure& efs = *pass.file_structures[fsIndex];
    const auto key = std::make_tuple(context, body, colour, scale);
    auto it = efs.pieces.find(key);
    if (it != efs.pieces.end()) return &it->second;
    prc::TessMesh piece;
    const auto& contexts = efs.geometry.contexts;
    if (context >= 0 && uint64_t(context) < contexts.size() && body >= 0 &&
        uint64_t(body) < contexts[size_t(context)].bodies.size()) {
        const bool count = pass.counting && pass.counted.emplace(fsIndex, context, body).second;
        const double tolerance = pass.chord_tolerance / std::exp2(double(scale) / 4);
        const std::array<double, 2>& segments = contextPatchSegments(efs, context, scale, tolerance);
        piece = buildBodyPiece(pass, contexts[size_t(context)].bodies[size_t(body)], globals, colour, tolerance,
                               segments, count);
    }
    return &efs.pieces.emplace(key, std::move(piece)).first->second;
}

// Gives each file structure of the structured pass its exact geometry and
// the hook through which the assembly asks for pieces.
FileStructureHook exactHook(ExactPass& pass, const uint8_t* data, uint64_t size) {
    return [&pass, data, size](const prc::PRCHeader& header, size_t index, prc::PRCFileStructure& fs) {
        if (pass.file_structures.size() <= index) pass.file_structures.resize(index + 1);
        pass.file_structures[index] = std::make_unique<ExactFileStructure>();
        pass.file_structures[index]->geometry = readExactGeometry(header, index, data, size, fs.authoring_version);
        countReadingLosses(pass, pass.file_structures[index]->geometry);
        fs.exact_piece = [&pass, index, &fs](const prc::PRCRepresentationItem& item, uint32_t colour,
                                             const double placement[16]) {
            return exactPiece(pass, index, fs.globals, item.index_context, item.index_body, colour,
                              scaleClass(placement));
        };
    };
}

// Without a product structure to follow: every body of every file
// structure, untransformed, in its faces' own colours.
PreviewMesh runExactFlatPass(ExactPass& pass, const uint8_t* data, uint64_t size) {
    prc::InflationBudget budget;
    prc::PRCHeader header = prc::readPRCHeader(data, size);
    std::vector<prc::PRCFileStructure> fileStructures(header.file_structures.size());
    PreviewMesh mesh;
    const FileStructureHook hook = exactHook(pass, data, size);
    for (size_t i = 0; i < fileStructures.size(); ++i) {
        prc::readFileStructure(header, fileStructures, data, size, uint32_t(i));
        hook(header, i, fileStructures[i]);
        const ExactGeometry& geometry = pass.file_structures[i]->geometry;
        for (size_t c = 0; c < geometry.contexts.size(); ++c)
            for (size_t b = 0; b < geometry.contexts[c].bodies.size(); ++b) {
                const prc::TessMesh* piece =
                    exactPiece(pass, i, fileStructures[i].globals, int64_t(c), int64_t(b), 0, 0);
                if (mesh.triangles.size() / 3 + piece->triangles.size() / 3 > kMaxAssemblyTriangles)
                    throw std::runtime_error("assieme PRC: troppi triangoli");
                appendPiece(mesh, *piece, nullptr);
            }
    }
    return mesh;
}

// The structured walk, or the flat one when the walk draws nothing.
PreviewMesh runExactPass(ExactPass& pass, const uint8_t* data, uint64_t size, bool& structured) {
    PreviewMesh mesh;
    structured = true;
    try {
        mesh = runStructuredPass(data, size, 0, exactHook(pass, data, size));
    } catch (const std::exception&) {
        mesh = PreviewMesh();
    }
    if (mesh.triangles.size() >= 3) return mesh;
    // The flat walk counts afresh.
    pass.skipped.clear();
    pass.counted.clear();
    pass.faces_drawn = pass.faces_coarsened = 0;
    pass.file_structures.clear();
    pass.budget = prc::exact::TessellationBudget();
    structured = false;
    try {
        return runExactFlatPass(pass, data, size);
    } catch (const std::exception&) {
        return PreviewMesh();
    }
}

double boxDiagonal(const std::vector<float>& positions) {
    if (positions.empty()) return 0;
    float lo[3] = {positions[0], positions[1], positions[2]}, hi[3] = {lo[0], lo[1], lo[2]};
    for (size_t i = 0; i < positions.size(); ++i) {
        lo[i % 3] = std::min(lo[i % 3], positions[i]);
        hi[i % 3] = std::max(hi[i % 3], positions[i]);
    }
    const double dx = double(hi[0]) - lo[0], dy = double(hi[1]) - lo[1], dz = double(hi[2]) - lo[2];
    return std::sqrt(dx * dx + dy * dy + dz * dz);
}

prc::exact::ExactSummary summarise(const ExactPass& pass) {
    prc::exact::ExactSummary summary;
    summary.chord_tolerance = float(kRelativeChordTolerance);
    summary.faces_tessellated = pass.faces_drawn;
    for (const auto& [reason, count] : pass.skipped) {
        summary.skipped.emplace_back(reason, count);
        summary.skipped_total += count;
    }
    if (pass.faces_coarsened != 0) summary.skipped.emplace_back(prc::exact::kNoteCoarsened, pass.faces_coarsened);
    std::stable_sort(summary.skipped.begin(), summary.skipped.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    return summary;
}

}  // namespace

bool decodeExactModel(const uint8_t* data, uint64_t size, DecodedModel* out, prc::exact::ExactSummary* summary) {
    std::memset(out, 0, sizeof *out);
    const prc::InflationFailureMemo inflationFailures;
    if (data == nullptr || size == 0) {
        out->outcome = kOutcomeNoResult;
        return false;
    }
    HeaderStatistics stats;
    if (!readHeaderStatistics(data, size, stats)) {
        out->outcome = kOutcomeDecodingError;
        return false;
    }
    // The model's size from a first walk with every face at its coarsest
    // (a few points a face), then the walk at the tolerance it gives.
    ExactPass sizing;
    sizing.chord_tolerance = 1e300;
    bool structured = true;
    const double diagonal = boxDiagonal(runExactPass(sizing, data, size, structured).positions);
    if (!(diagonal > 0) || !std::isfinite(diagonal)) {
        out->outcome = kOutcomeNoGeometry;
        return false;
    }
    ExactPass pass;
    pass.chord_tolerance = kRelativeChordTolerance * diagonal;
    pass.counting = true;
    PreviewMesh mesh = runExactPass(pass, data, size, structured);
    const prc::exact::ExactSummary result = summarise(pass);
    if (summary != nullptr) *summary = result;
    if (mesh.triangles.size() < 3) {
        std::memset(out, 0, sizeof *out);
        out->outcome = kOutcomeNoGeometry;
        return false;
    }
    if (!finishDecodedModel(mesh, structured, stats, out)) return false;
    const std::array<uint8_t, 36> block = prc::exact::encodeExactSummary(result);
    std::memcpy(out->optional_block, block.data(), block.size());
    out->optional_block_present = 1;
    return true;
}

bool decodeExactModel(const uint8_t* data, uint64_t size, DecodedModel* out) {
    return decodeExactModel(data, size, out, nullptr);
}

}  // namespace model
