#include "tests/support/prc_entity_writer.h"

#include <optional>
#include <sstream>
#include <set>

namespace prc::test {

namespace {

struct TamperWritten {};
struct ActiveTamper {
    std::string slot;
    uint32_t value = 0;
    bool used = false;
};
std::optional<ActiveTamper> active;

}  // namespace

bool writeTampered(PRCBitWriter& w, const std::string& slot, uint32_t value,
                   const std::function<void(PRCBitWriter&)>& write) {
    active = ActiveTamper{slot, value};
    try {
        write(w);
    } catch (const TamperWritten&) {
    }
    const bool used = active->used;
    active.reset();
    return used;
}

std::set<std::string>& slotsWritten() {
    static std::set<std::string> slots;
    return slots;
}

void writeSlot(PRCBitWriter& w, const std::string& slot, uint32_t value, bool isInteger) {
    slotsWritten().insert(slot);
    const bool tampered = active && active->slot == slot;
    if (tampered) value = active->value;
    isInteger ? w.writeInteger(int32_t(value)) : w.writeUnsignedInteger(value);
    if (tampered) {
        active->used = true;
        throw TamperWritten{};
    }
}

void put(PRCBitWriter& w, uint32_t version, const std::string& layout) {
    std::istringstream in(layout);
    for (std::string t; in >> t;) {
        const size_t eq = t.find('='), colon = t.find(':');
        const auto number = [&](size_t at) { return std::stol(t.substr(at)); };
        if (eq != std::string::npos) {
            writeSlot(w, t.substr(0, eq), uint32_t(number(eq + 1 + (t[eq + 1] == 'i'))), t[eq + 1] == 'i');
        } else if (colon != std::string::npos) {
            // Target type, same-file-structure bit (else the file structure's
            // identifier), unique identifier; 206 first has the topology bit,
            // and with it two values and the indices after the identifiers.
            static const char* const bodies[2][2] = {
                {"u5 b1 u99", "u5 b0 u1 u2 u300 u4 u99"},
                {"u5 b0", "u5 b1 b0 u1 u2 u300 u4 u1 u2 ReferenceData.indices#=3 u5 u6 u7"}};
            writeSlot(w, t.substr(colon + 1), t[0] == 't' ? 206 : 205);
            put(w, version, bodies[t[0] == 't'][t[colon - 1] == '+']);
        } else if (t.ends_with("base") || t.ends_with("head")) {
            writeBase(w, t[0] == 'r' ? nullptr : "entity");
            if (t.ends_with("head")) w.writeGraphics(version, t[0] == 'r', 2, 0, 1, {{1, 2}});
        } else if (t == "user") {
            w.writeUserData();
        } else {
            switch (t[0]) {
                case 'b': w.writeBit(t[1] == '1'); break;
                case 'u': w.writeUnsignedInteger(uint32_t(number(1))); break;
                case 'i': w.writeInteger(int32_t(number(1))); break;
                case 'c': w.writeCharacter(uint8_t(number(1))); break;
                case 'd': for (long i = 0; i < number(1); ++i) w.writeDouble(0.5 + double(i)); break;
                default: w.writeString(t.substr(1)); break;
            }
        }
    }
}

void writeBase(PRCBitWriter& w, const char* name, uint32_t attributes, int identifiers) {
    writeSlot(w, "Attributes#", attributes);
    for (uint32_t a = 0; a < attributes; ++a)  // titles by string, then by number; keys of each value type
        put(w, 0,
            std::string(a % 2 ? "PRCAttribute=201 b1 u12" : "PRCAttribute=201 b0 stitle") +
                " Attribute.keys#=6 b0 sk AttributeKey.type=0 b1 u1 AttributeKey.type=1 i-300"
                " b0 sk AttributeKey.type=2 d1 b1 u3 AttributeKey.type=3 i7"
                " b0 sk AttributeKey.type=4 svalue b1 u5 AttributeKey.type=5 i-1 u70000");
    w.writeBit(name == nullptr);
    if (name) w.writeString(name);
    for (int i = 0; i < identifiers; ++i) w.writeUnsignedInteger(uint32_t(i + 1));
}

void writeView(PRCBitWriter& w, uint32_t version) {
    put(w, version, "PRCView=501");
    writeBase(w, "view", 2);
    w.writeGraphics(version, false, 2, 0);
    // A plane has every bit of its cartesian layout (origin, three axes, scale
    // vector, uniform scale, homogeneous terms: 20 values), then 8 values of
    // parameterisation. After their colours, lights have no values (ambient),
    // a position and attenuation (point), a direction and from version 8030
    // one more value (directional), or the point's, a direction and a cone.
    const std::string plane = " PRCSurfacePlane=86 b0 u0 c127 d28 ";
    put(w, version,
        "View.annotations#=2 ref:View.annotations ref:View.annotations" + plane +
            "b1 PRCSceneDisplayParameters=741 base b1 SceneDisplayParameters.lights#=4 Light=731 base u1 u2 u3 "
            "Light=732 base u1 u2 u3 d6 Light=733 base u1 u2 u3 d" + (version >= 8030 ? "4" : "3") +
            " Light=734 base u1 u2 u3 d11 b1 PRCCamera=742 base b1 d15 b1 d3 "
            "SceneDisplayParameters.clipping_planes#=2" +
            plane + "PRCSurfacePlane=86 b1 Attributes#=0 b0 splane u7 u0 c127 d28 u1 u2 "
            "SceneDisplayParameters.style_pairs#=2 u1 u2 u3 u4 " + (version > 8136 ? "b1 " : ""));
    // Entity references reuse the view's graphics: none, then each form.
    put(w, version,
        "b1 b0 b1 View.linked_items#=1 ref:View.linked_items View.filters#=1 PRCFilter=320 base b1 b0 Filter.layers#=3 "
        "u1 u2 u3 b1 Filter.entity_references#=3 PRCEntityReference=203 rhead u0 b0 user "
        "PRCEntityReference=203 rhead u0 b1 ref+:EntityReference.reference user "
        "PRCEntityReference=203 rhead u0 b1 topo+:EntityReference.reference user user user");
}

void writeMarkups(PRCBitWriter& w, uint32_t version) {
    put(w, version,
        "Markups.linked_items#=2 PRCMarkupLinkedItem=204 head u0 b0 b0 b1 b0 b1 b0 user "
        "PRCMarkupLinkedItem=204 head u0 b1 ref:LinkedItem.reference b1 topo:LinkedItem.reference b1 b0 b1 b0 user "
        "Markups.leaders#=3 PRCLeader=503 head b0 b0 u0 user "
        "PRCLeader=503 head b0 b1 ref:Leader.second_linked_item u0 user "
        "PRCLeader=503 head b1 ref:Leader.first_linked_item b1 ref:Leader.second_linked_item u0 user "
        "Markups.markups#=1 PRCMarkup=502 head u1 u2 Markup.linked_items#=2 ref:Markup.linked_items "
        "ref:Markup.linked_items Markup.leaders#=1 ref:Markup.leaders u3 user Markups.annotations#=1");
    // Two sets, each holding the next and a reference, around an item.
    const std::string reference =
        " AnnotationEntity=506 head AnnotationReference.linked_items#=2 ref:AnnotationReference.linked_items "
        "ref:AnnotationReference.linked_items user ";
    put(w, version,
        "AnnotationEntity=505 head AnnotationSet.children#=2 AnnotationEntity=505 head AnnotationSet.children#=2 "
        "AnnotationEntity=504 head ref:AnnotationItem.markup user" + reference + "user" + reference + "user");
}

void writeRepresentationItem(PRCBitWriter& w, uint32_t version, const RepresentationItemFields& s) {
    writeSlot(w, "RepresentationItem", s.type);
    if (s.type == 0) return;
    writeBase(w, nullptr);
    w.writeGraphics(version, false, 0, s.style_plus_one);
    w.writeUnsignedInteger(s.system_plus_one);
    w.writeUnsignedInteger(s.tessellation_plus_one);
    // The body of kinds 232 to 238, without then with its optional parts.
    const char* const bodies[][2] = {{"b0 b1", "b1 u4 u5 b0"}, {"b0", "b1 u4 u5"}, {"b0 d3", "b1 d6"},
                                     {"b0", "b1 u4 u5"},       {"PointSet.points#=0", "PointSet.points#=3 d9"},
                                     {"b1", "b0"},             {"", ""}};
    if (s.type <= 238) put(w, version, bodies[s.type - 232][s.flag]);
    if (s.type == 239) {
        writeSlot(w, "Set.items#", uint32_t(s.items.size()));
        for (const RepresentationItemFields& child : s.items) writeRepresentationItem(w, version, child);
    }
    if (s.type == 240) {
        put(w, version, "Transformation=207");
        for (int column = 0; column < 4; ++column)
            for (int row = 0; row < 4; ++row) w.writeDouble(s.matrix[size_t(4 * row + column)]);
    }
    w.writeUserData(s.flag ? 13 : 0);
}

void writeGlobals(PRCBitWriter& w, uint32_t version, const GlobalsFields& s) {
    put(w, version,
        "Globals.schema#=2 u310 Schema.tokens#=2 u1 u2 u311 Schema.tokens#=0 FileStructureGlobals=303 Attributes#=0 "
        "b1 Globals.referenced_file_structures#=1 u1 u2 u3 u4 d2 sCourier Globals.fonts#=1 sArial u1 Font.sizes#=2 "
        "u10 c0 u12 c3");
    writeSlot(w, "Globals.colors#", uint32_t(s.colors.size()));
    for (const Vec3& c : s.colors) w.writeVector3d(c[0], c[1], c[2]);
    // Texture definitions of each dimension, every other one with its optional
    // parts; transformations without a behaviour byte, then with bytes that
    // take each branch of its layout: 0x23 translation and non-orthogonal axes
    // over rotation, 0x1A rotation and non-uniform over uniform scale, 0x4D
    // translation, uniform scale and homogeneous terms.
    const std::string head = "PRCTextureDefinition=712 rbase u1 c";
    const std::string middle =
        " TextureDefinition.mapping_operator=i0 u0 TextureDefinition.doubles#=2 d2 "
        "TextureDefinition.bytes#=3 c1 c2 c3 ";
    const std::string plain = "i0 i0 i0 c0 ", rich = "i3 d4 i4 i-4 i0 c2 i9 d1 ";
    const std::string transformation = " b1 PRCTextureTransformation=713 b1 b0 ";
    put(w, version,
        "Globals.pictures#=1 PRCPicture=703 Attributes#=0 b1 i-1 u1 u2 u3 Globals.texture_definitions#=5 " +
            head + "1" + middle + plain + "i0 b0 " +
            head + "2" + middle + rich + "i0 i1" + transformation + "b0 " +
            head + "3" + middle + plain + "i0 i1 i2" + transformation + "b1 c35 d6 " +
            head + "1" + middle + rich + "i0" + transformation + "b1 c26 d4 " +
            head + "2" + middle + plain + "i0 i1" + transformation + "b1 c77 d6");
    writeSlot(w, "Globals.materials#", uint32_t(s.materials.size()));
    for (const MaterialFields& m : s.materials) {
        writeSlot(w, "Material", m.type);
        writeBase(w, nullptr);
        if (m.type == 711) {
            put(w, version, "u" + std::to_string(m.material_plus_one) + " u1 u2 u3");
            continue;
        }
        for (uint32_t c : m.colors) w.writeUnsignedInteger(c);
        for (double d : m.values) w.writeDouble(d);
    }
    put(w, version,
        "Globals.line_patterns#=1 PRCLinePattern=721 rbase LinePattern.lengths#=2 d3 b1 Globals.styles#=" +
            std::to_string(s.styles.size()));
    for (const StyleFields& style : s.styles) {
        put(w, version, "PRCStyle=701 rbase");
        w.writeDouble(style.line_width);
        put(w, version, "b1 u2 b" + std::to_string(style.is_material) + " u" +
                            std::to_string(style.color_material_plus_one) + " b1 c128 b0 b1 c7 b1 c9");
    }
    writeSlot(w, "Globals.fill_patterns", 0);
    writeSlot(w, "Globals.reference_coordinate_systems#", uint32_t(s.reference_coordinate_systems.size()));
    for (const auto& item : s.reference_coordinate_systems) writeRepresentationItem(w, version, item);
    w.writeUserData(21);
}

}  // namespace prc::test
