// The geometry section and the regular B-rep bodies: contexts, B-rep data,
// connexes, shells and faces, and the face styles of the extra geometry
// section.

#include <exception>
#include <string>

#include "prc/entities/entity_framing.h"
#include "prc/exact/exact_reading.h"
#include "prc/exact/exact_summary.h"

namespace prc::exact {

namespace {

constexpr uint32_t kTopoWireEdge = 145;
constexpr uint32_t kTess3DCompressed = 173;

void readNameOnly(PRCBitReader& r) {
    if (!r.readBoolean()) r.current_name = r.readString();
}

void expectEmbedded(PRCBitReader& r, uint32_t expected, const char* what) {
    const uint32_t type = readEmbeddedType(r);
    if (type != expected)
        throw UnreadableGeometry(kSkipUnreadBodies, std::string("expected a ") + what + ", got type " + std::to_string(type));
}

ExactFace readFace(PRCBitReader& r) {
    ExactFace face;
    readBaseTopology(r);
    const uint32_t surface = readEmbeddedType(r);
    if (surface == 0)
        face.skip = kSkipNoSurface;
    else
        readSurface(r, surface, face);
    if (r.readBoolean()) {  // a trimming domain: a part of the surface that this reader does not cut out
        for (int i = 0; i < 4; ++i) r.readDouble();
        if (face.skip == 0) face.skip = kSkipTrimmed;
    }
    if (r.readBoolean()) r.readDouble();  // tolerance
    const uint32_t loops = r.readUnsignedInteger();
    r.readInteger();  // outer loop index
    // Loops hold edges, vertices and curves in forms that this reader does
    // not know, so the face cannot be stepped over.
    if (loops != 0) throw UnreadableGeometry(kSkipTrimmed, "face bounded by loops");
    return face;
}

void readShell(PRCBitReader& r, ExactBody& body) {
    readBaseTopology(r);
    r.readBoolean();  // closed
    const uint32_t faces = r.readUnsignedInteger();
    body.faces.reserve(body.faces.size() + r.entriesThatFit(faces, 16));
    for (uint32_t i = 0; i < faces; ++i) {
        if (body.faces.size() >= kMaxSectionEntries) throw UnreadableGeometry(kSkipBudget, "too many faces");
        expectEmbedded(r, kTopoFace, "face");
        ExactFace face = readFace(r);
        // 0: the face is turned against its surface; the writer at hand
        // writes 2 (not stated), which leaves the surface's own side.
        face.reversed = r.readCharacter() == 0;
        body.faces.push_back(std::move(face));
    }
}

void readConnex(PRCBitReader& r, ExactBody& body) {
    readBaseTopology(r);
    const uint32_t shells = r.readUnsignedInteger();
    for (uint32_t i = 0; i < shells; ++i) {
        expectEmbedded(r, kTopoShell, "shell");
        readShell(r, body);
    }
}

// A wire body holds no face; it is read to reach the bodies after it.
ExactBody readSingleWireBody(PRCBitReader& r) {
    ExactBody body;
    body.type = kTopoSingleWireBody;
    readBaseTopology(r);
    r.readCharacter();  // behaviour
    const uint32_t edge = readEmbeddedType(r);
    if (edge == 0) return body;
    if (edge != kTopoWireEdge) throw UnreadableGeometry(kSkipUnreadBodies, "wire body without a wire edge");
    readBaseTopology(r);
    const uint32_t curve = readEmbeddedType(r);
    if (curve != 0) {
        CurveDefinition ignored;
        readCurve(r, curve, ignored, 0);
    }
    if (r.readBoolean()) {  // trim interval
        r.readDouble();
        r.readDouble();
    }
    return body;
}

void readContextBodies(PRCBitReader& r, ExactContext& context, uint32_t bodies, ExactGeometry& geometry) {
    context.bodies.reserve(r.entriesThatFit(bodies, 8));
    for (uint32_t i = 0; i < bodies; ++i) {
        try {
            if (context.bodies.size() >= kMaxSectionEntries || geometry.face_total >= kMaxSectionEntries)
                throw UnreadableGeometry(kSkipBudget, "too many bodies or faces");
            const uint32_t type = r.readUnsignedInteger();
            ExactBody body;
            if (type == kTopoBrepData)
                body = readBrepData(r);
            else if (type == kTopoBrepDataCompress)
                body = readCompressedBrepData(r);
            else if (type == kTopoSingleWireBody)
                body = readSingleWireBody(r);
            else
                throw UnreadableGeometry(kSkipOtherBody, "body of type " + std::to_string(type));
            body.first_face = context.face_count;
            context.face_count += uint32_t(body.faces.size());
            geometry.face_total += body.faces.size();
            context.bodies.push_back(std::move(body));
        } catch (const UnreadableGeometry& e) {
            geometry.stop_reason = e.reason;
            geometry.unread_bodies = bodies - i;
            throw;
        } catch (const std::exception&) {
            geometry.stop_reason = kSkipUnreadBodies;
            geometry.unread_bodies = bodies - i;
            throw;
        }
    }
}

}  // namespace

void readBaseTopology(PRCBitReader& r) {
    if (!r.readBoolean()) return;
    readAttributes(r);
    readNameOnly(r);
    r.readUnsignedInteger();  // identifier
}

uint32_t readEmbeddedType(PRCBitReader& r) {
    if (r.readBoolean()) throw UnreadableGeometry(kSkipUnreadBodies, "reference to an entity stored before");
    return r.readUnsignedInteger();
}

ExactBody readBrepData(PRCBitReader& r) {
    ExactBody body;
    body.type = kTopoBrepData;
    readBaseTopology(r);
    const uint8_t behaviour = r.readCharacter();
    const uint32_t connexes = r.readUnsignedInteger();
    for (uint32_t i = 0; i < connexes; ++i) {
        expectEmbedded(r, kTopoConnex, "connex");
        readConnex(r, body);
    }
    if (behaviour != 0) {  // bounding box
        r.readVector3d();
        r.readVector3d();
    }
    return body;
}

ExactGeometry readFileStructureGeometry(PRCBitReader& r) {
    ExactGeometry geometry;
    try {
        readExpectedType(r, kFileStructureGeometry, "FileStructureGeometry");
        readEmptyContentPRCBase(r);
        const uint32_t contexts = r.readUnsignedInteger();
        geometry.contexts.reserve(r.entriesThatFit(contexts, 16));
        for (uint32_t c = 0; c < contexts; ++c) {
            if (geometry.contexts.size() >= kMaxSectionEntries) throw std::runtime_error("too many contexts");
            readExpectedType(r, kTopoContext, "TopoContext");
            readAttributes(r);
            readNameOnly(r);
            r.readCharacter();  // behaviour
            r.readDouble();     // granularity
            r.readDouble();     // tolerance
            if (r.readBoolean()) r.readDouble();  // smallest face thickness
            if (r.readBoolean()) r.readDouble();  // scale
            const uint32_t bodies = r.readUnsignedInteger();
            geometry.contexts.emplace_back();
            try {
                readContextBodies(r, geometry.contexts.back(), bodies, geometry);
            } catch (const std::exception&) {
                stitchCompressedPatches(geometry.contexts.back());
                throw;
            }
            stitchCompressedPatches(geometry.contexts.back());
        }
        r.skipUserData();
    } catch (const std::exception&) {
        // What was read stays; the reason is in geometry.stop_reason when a
        // body was being read.
        if (geometry.stop_reason == 0) geometry.stop_reason = kSkipUnreadBodies;
    }
    return geometry;
}

void readFileStructureExtraGeometry(PRCBitReader& r, ExactGeometry& geometry) {
    readExpectedType(r, kFileStructureExtraGeometry, "FileStructureExtraGeometry");
    readEmptyContentPRCBase(r);
    const uint32_t contexts = r.readUnsignedInteger();
    for (uint32_t c = 0; c < contexts; ++c) {
        const uint32_t bodies = r.readUnsignedInteger();  // the geometry summary
        for (uint32_t b = 0; b < bodies; ++b) {
            const uint32_t type = r.readUnsignedInteger();
            if (type == kTopoBrepDataCompress || type == kTopoSingleWireBodyCompress || type == kTess3DCompressed)
                r.readDouble();  // its tolerance
        }
        // The faces of a context, in reading order, across its bodies.
        std::vector<ExactFace*> faces;
        if (c < geometry.contexts.size())
            for (ExactBody& body : geometry.contexts[c].bodies)
                for (ExactFace& face : body.faces) faces.push_back(&face);
        r.current_graphics = PRCGraphics{};  // every context's graphics start afresh
        const uint32_t kinds = r.readUnsignedInteger();
        for (uint32_t k = 0; k < kinds; ++k) {
            const uint32_t elementType = r.readUnsignedInteger();
            const uint32_t elements = r.readUnsignedInteger();
            for (uint32_t e = 0; e < elements; ++e) {
                if (!r.readBoolean()) continue;
                const uint32_t style = r.readGraphics().line_style_index;
                if (elementType == kTopoFace && e < faces.size()) faces[e]->line_style_index = style;
            }
        }
    }
}

}  // namespace prc::exact
