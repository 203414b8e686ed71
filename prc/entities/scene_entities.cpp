#include "prc/entities/scene_entities.h"

#include <stdexcept>
#include <string>

#include "prc/entities/entity_framing.h"
#include "prc/entities/transformation.h"

namespace prc {

namespace {

// The field labels of type-205 references, named in type-check failures.
constexpr const char* kAnnotationItemMarkup = "AnnotationItem.markup";
constexpr const char* kAnnotationReferenceLinkedItems = "AnnotationReference.linked_items";
constexpr const char* kLeaderFirstLinkedItem = "Leader.first_linked_item";
constexpr const char* kLeaderSecondLinkedItem = "Leader.second_linked_item";
constexpr const char* kMarkupLinkedItems = "Markup.linked_items";
constexpr const char* kMarkupLeaders = "Markup.leaders";
constexpr const char* kViewAnnotations = "View.annotations";
constexpr const char* kViewLinkedItems = "View.linked_items";

void readReferenceList(PRCBitReader& r, const char* label) {
    const uint32_t n = r.readUnsignedInteger();
    for (uint32_t i = 0; i < n; ++i) readReferenceOnPRCBase(r, label);
}

void readUnsignedIntegers(PRCBitReader& r, uint64_t n) {
    for (uint64_t i = 0; i < n; ++i) r.readUnsignedInteger();
}

// The head shared by every drawn scene entity.
void readDrawnHead(PRCBitReader& r, uint32_t type) {
    readContentPRCBase(r, type);
    r.readGraphics();
}

void readAnnotationEntityAt(PRCBitReader& r, int depth) {
    if (depth > kMaxAnnotationDepth)
        throw std::runtime_error("readAnnotationEntity: annotation sets nested too deeply");
    const uint32_t type = r.readUnsignedInteger();
    switch (type) {
        case kAnnotationItem:
            readDrawnHead(r, type);
            readReferenceOnPRCBase(r, kAnnotationItemMarkup);
            break;
        case kAnnotationSet: {
            readDrawnHead(r, type);
            const uint32_t n = r.readUnsignedInteger();
            for (uint32_t i = 0; i < n; ++i) readAnnotationEntityAt(r, depth + 1);
            break;
        }
        case kAnnotationReference:
            readDrawnHead(r, type);
            readReferenceList(r, kAnnotationReferenceLinkedItems);
            break;
        default:
            throw std::runtime_error("readAnnotationEntity: unknown type " + std::to_string(type));
    }
    r.skipUserData();
}

}  // namespace

void readMarkups(PRCBitReader& r) {
    uint32_t n = r.readUnsignedInteger();
    for (uint32_t i = 0; i < n; ++i) readMarkupLinkedItem(r);
    n = r.readUnsignedInteger();
    for (uint32_t i = 0; i < n; ++i) readLeader(r);
    n = r.readUnsignedInteger();
    for (uint32_t i = 0; i < n; ++i) readMarkup(r);
    n = r.readUnsignedInteger();
    for (uint32_t i = 0; i < n; ++i) readAnnotationEntity(r);
}

void readMarkupLinkedItem(PRCBitReader& r) {
    readExpectedType(r, kMarkupLinkedItem, "PRCMarkupLinkedItem");
    readDrawnHead(r, kMarkupLinkedItem);
    r.readUnsignedInteger();
    if (r.readBoolean()) readReferenceData(r);
    if (r.readBoolean()) readReferenceData(r);
    for (int i = 0; i < 4; ++i) r.readBoolean();
    r.skipUserData();
}

void readLeader(PRCBitReader& r) {
    readExpectedType(r, kLeader, "PRCLeader");
    readDrawnHead(r, kLeader);
    // Either end may be linked without the other.
    if (r.readBoolean()) readReferenceOnPRCBase(r, kLeaderFirstLinkedItem);
    if (r.readBoolean()) readReferenceOnPRCBase(r, kLeaderSecondLinkedItem);
    r.readUnsignedInteger();
    r.skipUserData();
}

void readMarkup(PRCBitReader& r) {
    readExpectedType(r, kMarkup, "PRCMarkup");
    readDrawnHead(r, kMarkup);
    r.readUnsignedInteger();
    r.readUnsignedInteger();
    readReferenceList(r, kMarkupLinkedItems);
    readReferenceList(r, kMarkupLeaders);
    r.readUnsignedInteger();
    r.skipUserData();
}

void readAnnotationEntity(PRCBitReader& r) { readAnnotationEntityAt(r, 1); }

void readView(PRCBitReader& r) {
    readExpectedType(r, kView, "PRCView");
    readDrawnHead(r, kView);
    readReferenceList(r, kViewAnnotations);
    readSurfacePlane(r);
    if (r.readBoolean()) readSceneDisplayParameters(r);
    for (int i = 0; i < 3; ++i) r.readBoolean();
    readReferenceList(r, kViewLinkedItems);
    const uint32_t filters = r.readUnsignedInteger();
    for (uint32_t i = 0; i < filters; ++i) readFilter(r);
    r.skipUserData();
}

void readFilter(PRCBitReader& r) {
    readExpectedType(r, kFilter, "PRCFilter");
    readContentPRCBase(r, kFilter);
    r.readBoolean();
    r.readBoolean();
    readUnsignedIntegers(r, r.readUnsignedInteger());  // layers
    r.readBoolean();
    const uint32_t references = r.readUnsignedInteger();
    for (uint32_t i = 0; i < references; ++i) readEntityReference(r);
    r.skipUserData();
}

void readEntityReference(PRCBitReader& r) {
    readExpectedType(r, kEntityReference, "PRCEntityReference");
    readDrawnHead(r, kEntityReference);
    r.readUnsignedInteger();
    if (r.readBoolean()) {
        // Same two reference forms as a markup's linked item, under this
        // entity's own failure message.
        const uint64_t start = r.bitIndex();
        const uint32_t kind = r.readUnsignedInteger();
        if (kind != kReferenceOnPRCBase && kind != kReferenceOnTopology)
            throw std::runtime_error("readEntityReference: unknown reference type");
        r.seekBit(start);
        readReferenceData(r);
    }
    r.skipUserData();
}

void readSceneDisplayParameters(PRCBitReader& r) {
    readExpectedType(r, kSceneDisplayParameters, "PRCSceneDisplayParameters");
    readContentPRCBase(r, kSceneDisplayParameters);
    r.readBoolean();
    const uint32_t lights = r.readUnsignedInteger();
    for (uint32_t i = 0; i < lights; ++i) readLight(r);
    if (r.readBoolean()) readCamera(r);
    if (r.readBoolean()) r.readVector3d();
    const uint32_t planes = r.readUnsignedInteger();
    for (uint32_t i = 0; i < planes; ++i) readSurfacePlane(r);
    r.readUnsignedInteger();
    r.readUnsignedInteger();
    readUnsignedIntegers(r, 2 * uint64_t(r.readUnsignedInteger()));  // style pairs
    if (r.version > 8136) r.readBoolean();
}

void readLight(PRCBitReader& r) {
    const uint32_t type = r.readUnsignedInteger();
    if (type < kLightAmbient || type > kLightSpot)
        throw std::runtime_error("readLight: tipo inatteso " + std::to_string(type));
    readContentPRCBase(r, type);
    readUnsignedIntegers(r, 3);
    switch (type) {
        case kLightPoint:
            r.readVector3d();
            for (int i = 0; i < 3; ++i) r.readDouble();
            break;
        case kLightDirectional:
            r.readVector3d();
            if (r.version >= 8030) r.readDouble();
            break;
        case kLightSpot:
            r.readVector3d();
            for (int i = 0; i < 3; ++i) r.readDouble();
            r.readVector3d();
            r.readDouble();
            r.readDouble();
            break;
        default:  // ambient: nothing more
            break;
    }
}

void readCamera(PRCBitReader& r) {
    readExpectedType(r, kCamera, "PRCCamera");
    readContentPRCBase(r, kCamera);
    r.readBoolean();
    for (int i = 0; i < 3; ++i) r.readVector3d();
    for (int i = 0; i < 6; ++i) r.readDouble();
}

}  // namespace prc
