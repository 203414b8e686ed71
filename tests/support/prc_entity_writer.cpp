#include "tests/support/prc_entity_writer.h"

namespace prc::test {

// Every entity has no attributes and reuses the current name.
void writeGlobals(PRCBitWriter& w, uint32_t, const GlobalsFields& s) {
    const auto base = [&] { w.writeBitString("0 1 000"); };  // and three zero identifiers
    w.writeUnsignedInteger(0);  // no schema
    w.writeUnsignedInteger(303), w.writeBitString("0 1");  // no identifiers in this base
    w.writeBit(false);  // no referenced file structures
    w.writeDouble(0), w.writeDouble(0);
    w.writeBitString("0 0");  // no default font name, no fonts
    w.writeUnsignedInteger(uint32_t(s.colors.size()));
    for (const Vec3& c : s.colors) w.writeVector3d(c[0], c[1], c[2]);
    w.writeBitString("0 0");  // no pictures, no texture definitions
    w.writeUnsignedInteger(uint32_t(s.materials.size()));
    for (const MaterialFields& m : s.materials) {
        w.writeUnsignedInteger(702), base();
        for (uint32_t c : m.colors) w.writeUnsignedInteger(c);
        w.writeDouble(0);
        for (int i = 0; i < 4; ++i) w.writeDouble(1);
    }
    w.writeBit(false);  // no line patterns
    w.writeUnsignedInteger(uint32_t(s.styles.size()));
    for (const StyleFields& style : s.styles) {
        w.writeUnsignedInteger(701), base(), w.writeDouble(1), w.writeBitString("0 0");
        w.writeBit(false), w.writeUnsignedInteger(style.color_material_plus_one), w.writeBitString("0000");
    }
    w.writeBitString("0 0 0");  // no fill patterns, no coordinate systems, no user data
}

}  // namespace prc::test
