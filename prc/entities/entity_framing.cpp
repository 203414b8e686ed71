#include "prc/entities/entity_framing.h"

#include <stdexcept>

namespace prc {

void readExpectedType(PRCBitReader& r, uint32_t expected, const char* label) {
    const uint32_t code = r.readUnsignedInteger();
    if (code != expected)
        throw std::runtime_error(std::string("unexpected type for ") + label + ": expected " + std::to_string(expected) +
                                 ", got " + std::to_string(code));
}

namespace {

// A title is either a String or, behind a set bit, a number.
void readTitle(PRCBitReader& r) {
    if (r.readBoolean())
        r.readUnsignedInteger();
    else
        r.readString();
}

void readName(PRCBitReader& r) {
    if (!r.readBoolean()) r.current_name = r.readString();
}

bool carriesIdentifiers(uint32_t type) {
    return !((type >= kModelFile && type <= kFileStructureTessellation) || type == kPicture);
}

}  // namespace

void readSingleAttribute(PRCBitReader& r) {
    readTitle(r);
    const uint32_t type = r.readUnsignedInteger();
    switch (type) {
        case 0: break;
        case 1: r.readInteger(); break;
        case 2: r.readDouble(); break;
        case 3: r.readInteger(); break;
        case 4: r.readString(); break;
        case 5:
            r.readInteger();
            r.readUnsignedInteger();
            break;
        default:
            throw std::runtime_error("readSingleAttribute: unhandled attribute type " + std::to_string(type));
    }
}

void readAttributes(PRCBitReader& r) {
    const uint32_t count = r.readUnsignedInteger();
    for (uint32_t i = 0; i < count; ++i) {
        readExpectedType(r, kAttribute, "PRCAttribute");
        readTitle(r);
        const uint32_t keys = r.readUnsignedInteger();
        for (uint32_t k = 0; k < keys; ++k) readSingleAttribute(r);
    }
}

std::string readContentPRCBase(PRCBitReader& r, uint32_t type) {
    readAttributes(r);
    readName(r);
    if (carriesIdentifiers(type)) {
        r.readUnsignedInteger();
        r.readUnsignedInteger();
        r.readUnsignedInteger();
    }
    return r.current_name;
}

void readEmptyContentPRCBase(PRCBitReader& r) {
    if (r.readUnsignedInteger() != 0)
        throw std::runtime_error("readEmptyContentPRCBase: unexpected attributes (non-empty section?)");
    readName(r);
    if (!r.current_name.empty()) throw std::runtime_error("readEmptyContentPRCBase: unexpected name (non-empty section?)");
}

namespace {

void readReferenceBody(PRCBitReader& r) {
    r.readUnsignedInteger();  // type of the target
    if (!r.readBoolean())     // target in another file structure: its identifier
        for (int i = 0; i < 4; ++i) r.readUnsignedInteger();
    r.readUnsignedInteger();  // unique identifier of the target
}

}  // namespace

void readReferenceOnPRCBase(PRCBitReader& r, const char* label) {
    readExpectedType(r, kReferenceOnPRCBase, label);
    readReferenceBody(r);
}

void readReferenceData(PRCBitReader& r) {
    const uint32_t code = r.readUnsignedInteger();
    if (code == kReferenceOnPRCBase) {
        readReferenceBody(r);
        return;
    }
    if (code != kReferenceOnTopology) throw std::runtime_error("ReferenceData: unknown type");
    r.readUnsignedInteger();
    if (!r.readBoolean()) return;
    if (!r.readBoolean())
        for (int i = 0; i < 4; ++i) r.readUnsignedInteger();
    r.readUnsignedInteger();
    r.readUnsignedInteger();
    const uint32_t n = r.readUnsignedInteger();
    for (uint32_t i = 0; i < n; ++i) r.readUnsignedInteger();
}

}  // namespace prc
