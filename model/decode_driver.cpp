#include "model/decode_driver.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <stdexcept>

#include "model/decoded_output.h"
#include "model/parallel_rebuild.h"
#include "prc/entities/entity_framing.h"
#include "prc/entities/file_structure.h"
#include "prc/entities/globals.h"
#include "prc/io/inflate_section.h"
#include "prc/tess/face_triangulation.h"
#include "prc/tess/tessellation_section.h"

namespace model {

namespace {

// Version of readers over sections whose file structure head is not
// consulted: newer than every version threshold.
constexpr uint32_t kNewestVersion = 0xFFFFFFFF;

// Section k lies between offsets k and k + 1, both inside the file.
bool sectionUsable(const std::vector<uint32_t>& offsets, size_t k, uint64_t size) {
    return k + 1 < offsets.size() && offsets[k] < offsets[k + 1] && offsets[k + 1] <= size;
}

uint32_t fileStructureAuthoringVersion(const uint8_t* data, uint64_t size, uint32_t offset) {
    return uint32_t(prc::readFileStructureHeader(data, size, offset) >> 32);
}

// Counts the colours, materials and styles of every globals section that
// reads; one that does not adds nothing.
void countGlobals(const prc::PRCHeader& header, const uint8_t* data, uint64_t size, HeaderStatistics& stats) {
    prc::InflationBudget budget;  // each pass bounds what all its sections inflate to
    for (const prc::FileStructureDescriptor& d : header.file_structures) {
        if (d.offsets.size() < 3 || !sectionUsable(d.offsets, 1, size)) continue;
        try {
            const prc::InflatedSection section = prc::inflateFileSection(data, size, d.offsets[1], d.offsets[2]);
            prc::PRCBitReader r(section.data(), section.size(),
                                fileStructureAuthoringVersion(data, size, d.offsets[0]));
            const prc::PRCGlobals globals = prc::readFileStructureGlobals(r);
            stats.color_count += uint32_t(globals.colors.size());
            stats.material_count += uint32_t(globals.materials.size());
            stats.style_count += uint32_t(globals.styles.size());
        } catch (const std::exception&) {
        }
    }
}

void failWith(DecodedModel* out, uint32_t outcome) {
    std::memset(out, 0, sizeof *out);
    out->outcome = outcome;
}

}  // namespace

std::vector<ModelFileRoot> readModelFile(prc::PRCBitReader& r) {
    const uint32_t schemas = r.readUnsignedInteger();
    for (uint32_t i = 0; i < schemas; ++i) {
        r.readUnsignedInteger();  // entity type
        const uint32_t tokens = r.readUnsignedInteger();
        for (uint32_t t = 0; t < tokens; ++t) r.readUnsignedInteger();
    }
    prc::readExpectedType(r, prc::kModelFile, "ModelFile");
    prc::readContentPRCBase(r, prc::kModelFile);
    r.readBoolean();  // unit from CAD file
    r.readDouble();   // unit
    const uint32_t entries = r.readUnsignedInteger();
    std::vector<ModelFileRoot> roots;
    roots.reserve(r.entriesThatFit(entries));
    for (uint32_t i = 0; i < entries; ++i) {
        ModelFileRoot root;
        for (uint32_t& word : root.file_structure) word = r.readUnsignedInteger();
        const uint32_t index = r.readUnsignedInteger();
        r.readBoolean();
        if (index == 0) continue;
        root.index_product_occurrence = int64_t(index) - 1;
        roots.push_back(root);
    }
    return roots;
}

PreviewMesh runStructuredPass(const uint8_t* data, uint64_t size, unsigned threads, const FileStructureHook& hook) {
    prc::InflationBudget budget;
    AssemblyContext ctx;
    ctx.header = prc::readPRCHeader(data, size);
    const uint64_t end = std::min<uint64_t>(ctx.header.model_file_end, size);
    if (ctx.header.model_file_start >= end) throw std::runtime_error("model file: offset fuori dal file");
    std::vector<ModelFileRoot> roots;
    {
        const prc::InflatedSection section =
            prc::inflateSection(data + ctx.header.model_file_start, end - ctx.header.model_file_start);
        prc::PRCBitReader r(section.data(), section.size(), kNewestVersion);
        roots = readModelFile(r);
    }

    ctx.file_structures.resize(ctx.header.file_structures.size());
    readAndRebuild(
        ctx.file_structures,
        [&](size_t i) {
            prc::readFileStructure(ctx.header, ctx.file_structures, data, size, uint32_t(i));
            if (hook) hook(ctx.header, i, ctx.file_structures[i]);
        },
        threads);

    PreviewMesh mesh;
    for (const ModelFileRoot& root : roots) {
        const int64_t fs = findFileStructure(ctx, root.file_structure);
        if (fs < 0) continue;
        assembleOccurrence(ctx, fs, root.index_product_occurrence, 0xFFFFFFFF, prc::kIdentityMatrix.data(), 0, 0,
                           mesh);
    }
    return mesh;
}

PreviewMesh runFlatPass(const uint8_t* data, uint64_t size) {
    prc::InflationBudget budget;
    const prc::PRCHeader header = prc::readPRCHeader(data, size);
    PreviewMesh mesh;
    for (const prc::FileStructureDescriptor& d : header.file_structures) {
        if (d.offsets.size() < 5) continue;
        prc::PRCGlobals globals;
        if (sectionUsable(d.offsets, 1, size)) {
            try {
                const prc::InflatedSection section = prc::inflateFileSection(data, size, d.offsets[1], d.offsets[2]);
                prc::PRCBitReader r(section.data(), section.size(), kNewestVersion);
                globals = prc::readFileStructureGlobals(r);
            } catch (const std::exception&) {
                globals = prc::PRCGlobals();  // drawn all the same, without style colours
            }
        }
        if (!sectionUsable(d.offsets, 3, size)) continue;
        std::vector<prc::PRC3DTess> tessellations;
        std::vector<prc::PRC3DTessCompressed> compressed;
        try {
            const prc::InflatedSection section = prc::inflateFileSection(data, size, d.offsets[3], d.offsets[4]);
            const uint64_t versions = prc::readFileStructureHeader(data, size, d.offsets[0]);
            tessellations = prc::readFileStructureTessellation(section.data(), section.size(), uint32_t(versions),
                                                               uint32_t(versions >> 32), compressed, nullptr);
        } catch (const std::exception&) {
            continue;
        }
        // A plain piece that cannot be merged fails the decode; a compressed
        // one is only left out.
        for (const prc::PRC3DTess& tess : tessellations) {
            const prc::TessMesh piece = prc::appendFaceTriangles(tess, globals, nullptr);
            if (piece.triangles.size() >= 3) appendPiece(mesh, piece, nullptr);
        }
        for (const prc::PRC3DTessCompressed& record : compressed) {
            const size_t positions = mesh.positions.size(), colors = mesh.colors.size(),
                         triangles = mesh.triangles.size();
            try {
                prc::TessMesh piece;
                buildCompressedTessPiece(piece, record, globals, nullptr);
                if (piece.triangles.size() >= 3) appendPiece(mesh, piece, nullptr);
            } catch (const std::exception&) {
                mesh.positions.resize(positions);
                mesh.colors.resize(colors);
                mesh.triangles.resize(triangles);
            }
        }
    }
    return mesh;
}

bool readHeaderStatistics(const uint8_t* data, uint64_t size, HeaderStatistics& stats) {
    try {
        const prc::PRCHeader header = prc::readPRCHeader(data, size);
        stats.minimal_version_for_read = header.minimal_version_for_read;
        stats.authoring_version = header.authoring_version;
        stats.number_of_file_structures = header.number_of_file_structures;
        countGlobals(header, data, size, stats);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool finishDecodedModel(PreviewMesh& mesh, bool withRecords, const HeaderStatistics& stats, DecodedModel* out) {
    try {
        if (!buildDecodedOutput(mesh, withRecords, out)) {
            failWith(out, kOutcomeNoResult);
            return false;
        }
    } catch (const std::exception&) {
        failWith(out, kOutcomeDecodingError);
        return false;
    }
    out->minimal_version_for_read = stats.minimal_version_for_read;
    out->authoring_version = stats.authoring_version;
    out->number_of_file_structures = stats.number_of_file_structures;
    out->color_count = stats.color_count;
    out->material_count = stats.material_count;
    out->style_count = stats.style_count;
    return true;
}

bool decodePrcModel(const uint8_t* data, uint64_t size, DecodedModel* out, DecodePass* pass, unsigned threads) {
    std::memset(out, 0, sizeof *out);
    if (pass != nullptr) *pass = DecodePass::None;
    const prc::InflationFailureMemo inflationFailures;  // for the three passes
    if (data == nullptr || size == 0) {
        failWith(out, kOutcomeNoResult);
        return false;
    }

    HeaderStatistics stats;
    if (!readHeaderStatistics(data, size, stats)) {
        failWith(out, kOutcomeDecodingError);
        return false;
    }

    PreviewMesh mesh;
    DecodePass used = DecodePass::Structured;
    try {
        mesh = runStructuredPass(data, size, threads);
    } catch (const std::exception&) {
        mesh = PreviewMesh();  // nothing of a failed walk is kept
    }
    if (mesh.triangles.size() < 3) {
        used = DecodePass::Flat;
        try {
            mesh = runFlatPass(data, size);
        } catch (const std::exception&) {
            failWith(out, kOutcomeDecodingError);
            return false;
        }
        if (mesh.triangles.size() < 3) {
            failWith(out, kOutcomeNoGeometry);
            return false;
        }
    }

    if (!finishDecodedModel(mesh, used == DecodePass::Structured, stats, out)) return false;
    if (pass != nullptr) *pass = used;
    return true;
}

}  // namespace model

bool decodePrcModel(const uint8_t* data, uint64_t size, DecodedModel* out) {
    return model::decodePrcModel(data, size, out, nullptr);
}
