#include "prc/entities/globals.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "prc/entities/entity_framing.h"
#include "prc/entities/representation_item.h"

namespace prc {

namespace {

void readSchema(PRCBitReader& r, PRCGlobals& globals) {
    const uint32_t count = r.readUnsignedInteger();
    globals.schema_entity_types.reserve(r.entriesThatFit(count));
    for (uint32_t i = 0; i < count; ++i) {
        globals.schema_entity_types.push_back(r.readUnsignedInteger());
        const uint32_t tokens = r.readUnsignedInteger();
        for (uint32_t t = 0; t < tokens; ++t) r.readUnsignedInteger();
    }
}

void readPicture(PRCBitReader& r) {
    readExpectedType(r, kPicture, "PRCPicture");
    readContentPRCBase(r, kPicture);
    r.readInteger();
    for (int i = 0; i < 3; ++i) r.readUnsignedInteger();
}

void readDoubles(PRCBitReader& r, int n) {
    for (int i = 0; i < n; ++i) r.readDouble();
}

void readTextureTransformation(PRCBitReader& r) {
    readExpectedType(r, kTextureTransformation, "PRCTextureTransformation");
    r.readBoolean();
    r.readBoolean();
    if (!r.readBoolean()) return;
    // The behaviour bits follow the layout of a 2D cartesian transformation:
    // translation, rotation (non-orthogonal axes win over it), scale
    // (non-uniform wins over uniform), homogeneous terms.
    const uint8_t b = r.readCharacter();
    if (b & 0x01) readDoubles(r, 2);
    if (b & 0x20)
        readDoubles(r, 4);
    else if (b & 0x02)
        readDoubles(r, 2);
    if (b & 0x10)
        readDoubles(r, 2);
    else if (b & 0x08)
        readDoubles(r, 1);
    if (b & 0x40) readDoubles(r, 3);
}

void readTextureDefinition(PRCBitReader& r) {
    readExpectedType(r, kTextureDefinition, "PRCTextureDefinition");
    readContentPRCBase(r, kTextureDefinition);
    r.readUnsignedInteger();
    const uint8_t dimension = r.readCharacter();
    if (r.readInteger() == 3)
        throw std::runtime_error(
            "readTextureDefinition: unhandled texture mapping operator (never seen in real files)");
    r.readUnsignedInteger();
    const uint32_t doubles = r.readUnsignedInteger();
    for (uint32_t i = 0; i < doubles; ++i) r.readDouble();
    const uint32_t bytes = r.readUnsignedInteger();
    for (uint32_t i = 0; i < bytes; ++i) r.readCharacter();
    if (r.readInteger() == 3) readDoubles(r, 4);
    for (int i = 0; i < 2; ++i)
        if (r.readInteger() != 0) r.readInteger();
    if (r.readCharacter() & 0x02) {
        r.readInteger();
        r.readDouble();
    }
    r.readInteger();
    // One wrapping mode per texture dimension beyond the first.
    if (dimension > 1) {
        r.readInteger();
        if (dimension != 2) r.readInteger();
    }
    if (r.readBoolean()) readTextureTransformation(r);
}

// A material, or a texture application that stands for the material it names
// when that one was already read.
PRCMaterial readMaterial(PRCBitReader& r, const std::vector<PRCMaterial>& previous) {
    const uint32_t type = r.readUnsignedInteger();
    PRCMaterial material;
    if (type == kMaterialGeneric) {
        readContentPRCBase(r, type);
        material.ambient = storedIndex(r.readUnsignedInteger());
        material.diffuse = storedIndex(r.readUnsignedInteger());
        material.emissive = storedIndex(r.readUnsignedInteger());
        material.specular = storedIndex(r.readUnsignedInteger());
        material.shininess = r.readDouble();
        material.ambient_alpha = r.readDouble();
        material.diffuse_alpha = r.readDouble();
        material.emissive_alpha = r.readDouble();
        material.specular_alpha = r.readDouble();
        return material;
    }
    if (type != kTextureApplication)
        throw std::runtime_error("readMaterial: unexpected material type: " + std::to_string(type));
    readContentPRCBase(r, type);
    const uint32_t generic = r.readUnsignedInteger();
    for (int i = 0; i < 3; ++i) r.readUnsignedInteger();  // texture definition, next application, uv set
    if (generic != 0 && generic - 1 < previous.size()) material = previous[generic - 1];
    return material;
}

void readLinePattern(PRCBitReader& r) {
    readExpectedType(r, kLinePattern, "PRCLinePattern");
    readContentPRCBase(r, kLinePattern);
    const uint32_t lengths = r.readUnsignedInteger();
    for (uint32_t i = 0; i < lengths; ++i) r.readDouble();
    r.readDouble();
    r.readBoolean();
}

PRCStyle readStyle(PRCBitReader& r) {
    readExpectedType(r, kStyle, "PRCStyle");
    readContentPRCBase(r, kStyle);
    PRCStyle style;
    style.line_width = r.readDouble();
    r.readBoolean();  // line pattern reference (a bit and an index): not drawn
    r.readUnsignedInteger();
    style.is_material = r.readBoolean();
    style.color_material_index = storedIndex(r.readUnsignedInteger());
    // Optional transparency, then three optional bytes for additional data.
    for (int i = 0; i < 4; ++i)
        if (r.readBoolean()) r.readCharacter();
    return style;
}

}  // namespace

PRCGlobals readFileStructureGlobals(PRCBitReader& r) {
    r.resetState();
    PRCGlobals globals;
    readSchema(r, globals);

    readExpectedType(r, kFileStructureGlobals, "FileStructureGlobals");
    readContentPRCBase(r, kFileStructureGlobals);

    uint32_t count = r.readUnsignedInteger();  // referenced file structures: four identifier words each
    for (uint32_t i = 0; i < count; ++i)
        for (int k = 0; k < 4; ++k) r.readUnsignedInteger();
    readDoubles(r, 2);  // tessellation chord height ratio and angle
    r.readString();     // default font family

    count = r.readUnsignedInteger();  // font families, each with its sizes and attribute bytes
    for (uint32_t i = 0; i < count; ++i) {
        r.readString();
        r.readUnsignedInteger();
        const uint32_t m = r.readUnsignedInteger();
        for (uint32_t k = 0; k < m; ++k) {
            r.readUnsignedInteger();
            r.readCharacter();
        }
    }

    count = r.readUnsignedInteger();
    globals.colors.reserve(r.entriesThatFit(count));
    for (uint32_t i = 0; i < count; ++i) {
        RgbColor c;
        c.red = r.readDouble();
        c.green = r.readDouble();
        c.blue = r.readDouble();
        globals.colors.push_back(c);
    }

    count = r.readUnsignedInteger();
    for (uint32_t i = 0; i < count; ++i) readPicture(r);

    count = r.readUnsignedInteger();
    for (uint32_t i = 0; i < count; ++i) readTextureDefinition(r);

    count = r.readUnsignedInteger();
    globals.materials.reserve(r.entriesThatFit(count));
    for (uint32_t i = 0; i < count; ++i) globals.materials.push_back(readMaterial(r, globals.materials));

    count = r.readUnsignedInteger();
    for (uint32_t i = 0; i < count; ++i) readLinePattern(r);

    count = r.readUnsignedInteger();
    globals.styles.reserve(r.entriesThatFit(count));
    for (uint32_t i = 0; i < count; ++i) globals.styles.push_back(readStyle(r));

    // No file at hand carries fill patterns, so their layout could not be
    // checked against data: losing the globals is safer than misreading them.
    if (r.readUnsignedInteger() != 0)
        throw std::runtime_error("readFileStructureGlobals: unhandled fill patterns (no reference)");

    count = r.readUnsignedInteger();
    globals.reference_coordinate_systems.reserve(r.entriesThatFit(count));
    for (uint32_t i = 0; i < count; ++i)
        globals.reference_coordinate_systems.push_back(readRepresentationItem(r).transformation);

    r.skipUserData();
    return globals;
}

}  // namespace prc
