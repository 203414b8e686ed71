#include "prc/tess/tessellation_section.h"

#include <algorithm>
#include <stdexcept>

#include "prc/entities/entity_framing.h"

namespace prc {

namespace {

// Smallest encodings of the records whose lists are reserved ahead: a type
// code of 172 or 174 is an UnsignedInteger of one byte (1 + 8 + 1 bits), and
// every further field of the record is at least one bit. A count that the
// data left cannot hold therefore reserves no more than the data could fill.
constexpr uint64_t kMinBitsPerTess = 10 + 2 + 1 + 5;  // type, base, flag, five counts
constexpr uint64_t kMinBitsPerFace = 10 + 8;          // type, eight fields of one bit
// The shortest Double is the two-bit code of 0.0.
constexpr uint64_t kMinBitsPerDouble = 2;

std::vector<double> readDoubles(PRCBitReader& r, uint32_t count) {
    std::vector<double> out;
    out.reserve(r.entriesThatFit(count, kMinBitsPerDouble));
    for (uint32_t i = 0; i < count; ++i) out.push_back(r.readDouble());
    return out;
}

std::vector<uint32_t> readUnsignedIntegers(PRCBitReader& r, uint32_t count) {
    std::vector<uint32_t> out;
    out.reserve(r.entriesThatFit(count, 1));
    for (uint32_t i = 0; i < count; ++i) out.push_back(r.readUnsignedInteger());
    return out;
}

void skipDoubles(PRCBitReader& r) {
    const uint32_t count = r.readUnsignedInteger();
    for (uint32_t i = 0; i < count; ++i) r.readDouble();
}

void skipUnsignedIntegers(PRCBitReader& r) {
    const uint32_t count = r.readUnsignedInteger();
    for (uint32_t i = 0; i < count; ++i) r.readUnsignedInteger();
}

[[noreturn]] void readPastEnd() { throw std::runtime_error("PRCBitReader: read past end"); }

// A colour count above 32 bits cannot be met by any section: each entry after
// the first costs at least a bit.
uint32_t colorEntryCount(uint64_t entries) {
    if (entries > UINT32_MAX) readPastEnd();
    return uint32_t(entries);
}

}  // namespace

std::vector<double> readTessBase(PRCBitReader& r) {
    r.readBoolean();
    const uint32_t count = r.readUnsignedInteger();
    return readDoubles(r, count);
}

PRCTessFace readTessFace(PRCBitReader& r) {
    readExpectedType(r, kTessFace, "PRCTessFace");
    PRCTessFace face;
    const uint32_t a = r.readUnsignedInteger();
    face.line_attributes.reserve(r.entriesThatFit(a, 1));
    // Stored as index + 1 so that 0 means none; the wrap turns it into 0xFFFFFFFF.
    for (uint32_t i = 0; i < a; ++i) face.line_attributes.push_back(r.readUnsignedInteger() - 1u);
    r.readUnsignedInteger();
    skipUnsignedIntegers(r);
    face.used_entities_flag = r.readUnsignedInteger();
    face.start_triangulated = r.readUnsignedInteger();
    const uint32_t sizes = r.readUnsignedInteger();
    face.sizes_triangulated = readUnsignedIntegers(r, sizes);
    r.readUnsignedInteger();
    face.has_vertex_colors = r.readBoolean();
    if (face.has_vertex_colors) {
        face.is_rgba = r.readBoolean();
        if (r.readBoolean())
            throw std::runtime_error("readTessFace: unhandled b_optimised color (not described in the spec, no reference)");
        // One colour entry per group vertex; the counts of groups are not vertices.
        uint64_t entries = 0;
        forEachFaceGroup(face, [&](GroupKind, uint64_t vertices) {
            entries += vertices;
            return true;
        });
        face.rgba_vertices = r.readVertexColors(colorEntryCount(entries), face.is_rgba ? 4 : 3);
    }
    if (a != 0) r.readUnsignedInteger();
    return face;
}

PRC3DTess readPRC3DTess(PRCBitReader& r) {
    readExpectedType(r, k3DTess, "PRC3DTess");
    PRC3DTess tess;
    tess.coordinates = readTessBase(r);
    r.readBoolean();
    if (r.version > 7038) {
        r.readBoolean();
        if (r.version > 7046) {
            tess.must_recalculate_normals = r.readBoolean();
            if (tess.must_recalculate_normals) {
                r.readBits(8);
                tess.crease_angle = r.readDouble();
            }
        }
    }
    const uint32_t normals = r.readUnsignedInteger();
    tess.normal_coordinates = readDoubles(r, normals);
    skipUnsignedIntegers(r);
    const uint32_t indices = r.readUnsignedInteger();
    tess.triangulated_indices = readUnsignedIntegers(r, indices);
    const uint32_t faces = r.readUnsignedInteger();
    tess.faces.reserve(r.entriesThatFit(faces, kMinBitsPerFace));
    for (uint32_t i = 0; i < faces; ++i) tess.faces.push_back(readTessFace(r));
    skipDoubles(r);
    return tess;
}

uint64_t countWireColorEntries(const std::vector<uint32_t>& wire_indexes, bool is_segment_color) {
    uint64_t entries = 0;
    const uint64_t n = wire_indexes.size();
    for (uint64_t i = 0; i < n;) {
        const uint64_t c = wire_indexes[i];
        if (c == 0 || i + c + 1 > n)
            throw std::runtime_error("countWireColorEntries: wire_indexes not interpretable as polylines");
        entries += is_segment_color ? c - 1 : c;
        i += c + 1;
    }
    return entries;
}

void readPRC3DWireTess(PRCBitReader& r) {
    readExpectedType(r, k3DWireTess, "PRC3DWireTess");
    readTessBase(r);
    const uint32_t count = r.readUnsignedInteger();
    const std::vector<uint32_t> wire_indexes = readUnsignedIntegers(r, count);
    if (r.readBoolean()) {
        const bool is_rgba = r.readBoolean();
        const bool is_segment_color = r.readBoolean();
        if (r.readBoolean()) throw std::runtime_error("readPRC3DWireTess: unhandled b_optimised color (no reference)");
        const uint64_t entries = countWireColorEntries(wire_indexes, is_segment_color);
        r.readVertexColors(colorEntryCount(entries), is_rgba ? 4 : 3);
    }
}

void readPRCMarkupTess(PRCBitReader& r) {
    readExpectedType(r, kMarkupTess, "PRCMarkupTess");
    readTessBase(r);
    skipUnsignedIntegers(r);
    const uint32_t texts = r.readUnsignedInteger();
    for (uint32_t i = 0; i < texts; ++i) r.readString();
    r.readString();
    r.readBits(8);
}

std::vector<PRC3DTess> readFileStructureTessellation(const uint8_t* data, uint64_t size,
                                                     uint32_t /*minimal_version_for_read*/, uint32_t authoring_version,
                                                     std::vector<PRC3DTessCompressed>& compressed,
                                                     std::vector<TessellationRef>* refs) {
    PRCBitReader r(data, size, authoring_version);
    readExpectedType(r, kFileStructureTessellation, "FileStructureTessellation");
    readEmptyContentPRCBase(r);
    const uint32_t n = r.readUnsignedInteger();
    std::vector<PRC3DTess> tessellations;
    if (n == 0) return tessellations;
    tessellations.reserve(r.entriesThatFit(n, kMinBitsPerTess));

    // A record is kept together with its ref or not at all: when the ref
    // cannot be stored the record is taken back out.
    auto keepRef = [&](TessellationRef ref, auto& list) {
        if (!refs) return;
        try {
            refs->push_back(ref);
        } catch (...) {
            list.pop_back();
            throw;
        }
    };

    int64_t compressed_read = 0;
    for (uint32_t i = 0; i < n; ++i) {
        try {
            const uint64_t start = r.bitIndex();
            const uint32_t type = r.readUnsignedInteger();
            r.seekBit(start);
            switch (type) {
                case k3DTess:
                    tessellations.push_back(readPRC3DTess(r));
                    keepRef({TessellationKind::Tess3D, int64_t(tessellations.size() - 1)}, tessellations);
                    break;
                case k3DTessCompressed:
                    compressed.push_back(readPRC3DTessCompressed(r, authoring_version));
                    keepRef({TessellationKind::Compressed, compressed_read}, compressed);
                    ++compressed_read;
                    break;
                case k3DWireTess:
                    readPRC3DWireTess(r);
                    if (refs) refs->push_back({TessellationKind::Dropped, 0});
                    break;
                case kMarkupTess:
                    readPRCMarkupTess(r);
                    if (refs) refs->push_back({TessellationKind::Dropped, 0});
                    break;
                default:
                    return tessellations;
            }
        } catch (const std::exception&) {
            // The bit position inside the failed tessellation is lost, so
            // nothing after it can be found; what came before stands.
            return tessellations;
        }
    }
    return tessellations;
}

}  // namespace prc
