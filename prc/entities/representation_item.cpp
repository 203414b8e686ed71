#include "prc/entities/representation_item.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "prc/entities/entity_framing.h"

namespace prc {

namespace {

void readBodyIdentifiers(PRCBitReader& r, PRCRepresentationItem& item) {
    if (r.readBoolean()) {  // context and body of the exact geometry
        const int64_t context = storedIndex(r.readUnsignedInteger());
        const int64_t body = storedIndex(r.readUnsignedInteger());
        if (item.type == kRiBrepModel) {
            item.index_context = context;
            item.index_body = body;
        }
    }
}

PRCRepresentationItem readRepresentationItemAt(PRCBitReader& r, int depth);

void readSetChildren(PRCBitReader& r, PRCRepresentationItem& set, int depth) {
    const uint32_t n = r.readUnsignedInteger();
    // Even an empty child takes one bit, so more children than bits cannot be there.
    set.items.reserve(r.entriesThatFit(n));
    for (uint32_t i = 0; i < n; ++i) set.items.push_back(readRepresentationItemAt(r, depth + 1));
}

PRCRepresentationItem readRepresentationItemAt(PRCBitReader& r, int depth) {
    if (depth > kMaxRepresentationItemDepth) throw std::runtime_error("readRepresentationItem: sets nested too deeply");
    PRCRepresentationItem item;
    item.type = r.readUnsignedInteger();
    if (item.type == 0) return item;  // an empty slot: not even user data follows
    if (item.type < kRiBrepModel || item.type > kRiCoordinateSystem)
        throw std::runtime_error("readRepresentationItem: unhandled type (" + std::to_string(item.type) + ")");
    readRepresentationItemContent(r, item);
    switch (item.type) {
        case kRiBrepModel:
            readBodyIdentifiers(r, item);
            r.readBoolean();  // is_closed
            break;
        case kRiCurve:
        case kRiPlane:
            readBodyIdentifiers(r, item);
            break;
        case kRiDirection:
            if (r.readBoolean()) r.readVector3d();  // origin
            r.readVector3d();
            break;
        case kRiPointSet: {
            const uint32_t n = r.readUnsignedInteger();
            for (uint32_t i = 0; i < n; ++i) r.readVector3d();
            break;
        }
        case kRiPolyBrepModel:
            r.readBoolean();  // is_closed
            break;
        case kRiPolyWire:
            break;
        case kRiSet:
            readSetChildren(r, item, depth);
            break;
        case kRiCoordinateSystem:
            item.transformation = readTransformation3d(r);
            break;
        default:
            break;
    }
    r.skipUserData();
    return item;
}

}  // namespace

PRCRepresentationItem readRepresentationItem(PRCBitReader& r) { return readRepresentationItemAt(r, 1); }

void readRepresentationItemContent(PRCBitReader& r, PRCRepresentationItem& item) {
    readContentPRCBase(r, item.type);
    item.line_style_index = r.readGraphics().line_style_index;
    item.index_local_coordinate_system = storedIndex(r.readUnsignedInteger());
    item.index_tessellation = storedIndex(r.readUnsignedInteger());
}

}  // namespace prc
