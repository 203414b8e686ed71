#include "tests/support/prc_entity_writer.h"

namespace prc::test {

namespace {

struct ActiveHostileCount {
    std::string list;
    uint32_t value = 0;
    bool used = false;
};
std::optional<ActiveHostileCount>& activeHostileCount() {
    static std::optional<ActiveHostileCount> active;
    return active;
}

void writeCount(PRCBitWriter& w, const char* list, size_t n) {
    auto& active = activeHostileCount();
    if (active && active->list == list) {
        w.writeUnsignedInteger(active->value);
        active->used = true;
        throw HostileCountWritten{};
    }
    w.writeUnsignedInteger(uint32_t(n));
}

void writeVec3(PRCBitWriter& w, const Vec3& v) { w.writeVector3d(v[0], v[1], v[2]); }

void writeName(PRCBitWriter& w, const NameField& name) {
    if (name) {
        w.writeBit(false);
        w.writeString(*name);
    } else {
        w.writeBit(true);
    }
}

bool carriesIdentifiers(uint32_t type) { return !((type >= 301 && type <= 305) || type == 703); }

void writeTitle(PRCBitWriter& w, const std::string& title, const std::optional<uint32_t>& number) {
    w.writeBit(number.has_value());
    if (number)
        w.writeUnsignedInteger(*number);
    else
        w.writeString(title);
}

void writeDrawnHead(PRCBitWriter& w, uint32_t version, uint32_t type, const DrawnHead& head) {
    writeContentBase(w, type, head.name);
    writeGraphics(w, version, head.graphics);
}

void writeReferences(PRCBitWriter& w, const char* list, const std::vector<ReferenceFields>& refs) {
    writeCount(w, list, refs.size());
    for (const ReferenceFields& ref : refs) writeReferenceOnPRCBase(w, ref);
}

void writeDoubles(PRCBitWriter& w, int n, double value = 0.5) {
    for (int i = 0; i < n; ++i) w.writeDouble(value);
}

}  // namespace

HostileCount::HostileCount(std::string list, uint32_t value) {
    activeHostileCount() = ActiveHostileCount{std::move(list), value, false};
}

HostileCount::~HostileCount() { activeHostileCount().reset(); }

bool HostileCount::used() const { return activeHostileCount() && activeHostileCount()->used; }

void writeGraphics(PRCBitWriter& w, uint32_t version, const GraphicsFields& g) {
    w.writeGraphics(version, g.same_as_current, g.layer_plus_one, g.style_plus_one, g.behaviour, g.pairs);
}

void writeContentBase(PRCBitWriter& w, uint32_t type, const NameField& name) { writeContentBase(w, type, name, {}); }

void writeAttributes(PRCBitWriter& w, const std::vector<AttributeFields>& attributes) {
    writeCount(w, "Attributes", attributes.size());
    for (const AttributeFields& a : attributes) {
        w.writeUnsignedInteger(a.type);
        writeTitle(w, a.title, a.title_number);
        writeCount(w, "Attribute.keys", a.keys.size());
        for (const AttributeKeyFields& k : a.keys) {
            writeTitle(w, k.title, k.title_number);
            w.writeUnsignedInteger(k.value_type);
            switch (k.value_type) {
                case 1:
                case 3:
                    w.writeInteger(k.integer);
                    break;
                case 2:
                    w.writeDouble(k.number);
                    break;
                case 4:
                    w.writeString(k.text);
                    break;
                case 5:
                    w.writeInteger(k.integer);
                    w.writeUnsignedInteger(k.unsigned_value);
                    break;
                default:
                    break;
            }
        }
    }
}

void writeContentBase(PRCBitWriter& w, uint32_t type, const NameField& name,
                      const std::vector<AttributeFields>& attributes) {
    writeAttributes(w, attributes);
    writeName(w, name);
    if (carriesIdentifiers(type))
        for (uint32_t id : {1u, 2u, 3u}) w.writeUnsignedInteger(id);
}

void writeReferenceData(PRCBitWriter& w, const ReferenceFields& ref) {
    w.writeUnsignedInteger(ref.code);
    w.writeUnsignedInteger(ref.target_type);
    auto writeFileStructure = [&] {
        w.writeBit(ref.same_file_structure);
        if (!ref.same_file_structure)
            for (uint32_t word : ref.file_structure) w.writeUnsignedInteger(word);
    };
    if (ref.code != 206) {
        writeFileStructure();
        w.writeUnsignedInteger(ref.unique_identifier);
        return;
    }
    w.writeBit(ref.has_topology);
    if (!ref.has_topology) return;
    writeFileStructure();
    w.writeUnsignedInteger(ref.topology_values[0]);
    w.writeUnsignedInteger(ref.topology_values[1]);
    writeCount(w, "ReferenceData.indices", ref.indices.size());
    for (uint32_t v : ref.indices) w.writeUnsignedInteger(v);
}

void writeCartesianLayout(PRCBitWriter& w, const CartesianFields& t) {
    w.writeCharacter(t.behaviour);
    if (t.behaviour & 0x01) writeVec3(w, t.origin);
    if (t.behaviour & 0x20) {
        writeVec3(w, t.x);
        writeVec3(w, t.y);
        writeVec3(w, t.z);
    } else if (t.behaviour & 0x02) {
        writeVec3(w, t.x);
        writeVec3(w, t.y);
    }
    if (t.behaviour & 0x10) writeVec3(w, t.scale);
    if (t.behaviour & 0x08) w.writeDouble(t.uniform_scale);
    if (t.behaviour & 0x40)
        for (double d : t.homogeneous) w.writeDouble(d);
}

void writeCartesianTransformation(PRCBitWriter& w, const CartesianFields& t) {
    w.writeUnsignedInteger(202);
    writeCartesianLayout(w, t);
}

void writeGeneralTransformation(PRCBitWriter& w, const Matrix4& m) {
    w.writeUnsignedInteger(207);
    for (int column = 0; column < 4; ++column)
        for (int row = 0; row < 4; ++row) w.writeDouble(m[size_t(4 * row + column)]);
}

void writeSurfacePlane(PRCBitWriter& w, const SurfacePlaneFields& p) {
    w.writeUnsignedInteger(p.type);
    w.writeBit(p.base_information);
    if (p.base_information) {
        writeAttributes(w, p.attributes);
        writeName(w, p.name);
        w.writeUnsignedInteger(7);  // identifier
    }
    w.writeUnsignedInteger(0);
    writeCartesianLayout(w, p.transformation);
    for (double d : {-1.0, 1.0, -1.0, 1.0}) w.writeDouble(d);  // parameter ranges
    for (double d : {1.0, 0.0, 1.0, 0.0}) w.writeDouble(d);
}

void writeMarkupLinkedItem(PRCBitWriter& w, uint32_t version, const MarkupLinkedItemFields& s) {
    w.writeUnsignedInteger(s.type);
    writeDrawnHead(w, version, 204, s.head);
    w.writeUnsignedInteger(0);
    for (const auto* ref : {&s.first, &s.second}) {
        w.writeBit(ref->has_value());
        if (*ref) writeReferenceData(w, **ref);
    }
    w.writeBitString("1010");
    w.writeUserData();
}

void writeLeader(PRCBitWriter& w, uint32_t version, const LeaderFields& s) {
    w.writeUnsignedInteger(s.type);
    writeDrawnHead(w, version, 503, s.head);
    for (const auto* ref : {&s.first, &s.second}) {
        w.writeBit(ref->has_value());
        if (*ref) writeReferenceOnPRCBase(w, **ref);
    }
    w.writeUnsignedInteger(0);
    w.writeUserData();
}

void writeMarkup(PRCBitWriter& w, uint32_t version, const MarkupFields& s) {
    w.writeUnsignedInteger(s.type);
    writeDrawnHead(w, version, 502, s.head);
    w.writeUnsignedInteger(1);
    w.writeUnsignedInteger(2);
    writeReferences(w, "Markup.linked_items", s.linked_items);
    writeReferences(w, "Markup.leaders", s.leaders);
    w.writeUnsignedInteger(3);
    w.writeUserData();
}

void writeAnnotationEntity(PRCBitWriter& w, uint32_t version, const AnnotationFields& s) {
    w.writeUnsignedInteger(s.type);
    writeDrawnHead(w, version, s.type, s.head);
    if (s.type == 504) {
        writeReferenceOnPRCBase(w, s.markup);
    } else if (s.type == 505) {
        writeCount(w, "AnnotationSet.children", s.children.size());
        for (const AnnotationFields& child : s.children) writeAnnotationEntity(w, version, child);
    } else {
        writeReferences(w, "AnnotationReference.linked_items", s.linked_items);
    }
    w.writeUserData();
}

AnnotationFields nestedAnnotationSets(int depth) {
    AnnotationFields s;  // the innermost item
    for (int i = 0; i < depth; ++i) {
        AnnotationFields set;
        set.type = 505;
        set.children.push_back(std::move(s));
        s = std::move(set);
    }
    return s;
}

void writeMarkups(PRCBitWriter& w, uint32_t version, const MarkupsFields& s) {
    writeCount(w, "Markups.linked_items", s.linked_items.size());
    for (const auto& e : s.linked_items) writeMarkupLinkedItem(w, version, e);
    writeCount(w, "Markups.leaders", s.leaders.size());
    for (const auto& e : s.leaders) writeLeader(w, version, e);
    writeCount(w, "Markups.markups", s.markups.size());
    for (const auto& e : s.markups) writeMarkup(w, version, e);
    writeCount(w, "Markups.annotations", s.annotations.size());
    for (const auto& e : s.annotations) writeAnnotationEntity(w, version, e);
}

void writeEntityReference(PRCBitWriter& w, uint32_t version, const EntityReferenceFields& s) {
    w.writeUnsignedInteger(s.type);
    writeDrawnHead(w, version, 203, s.head);
    w.writeUnsignedInteger(0);
    w.writeBit(s.reference.has_value());
    if (s.reference) writeReferenceData(w, *s.reference);
    w.writeUserData();
}

void writeFilter(PRCBitWriter& w, uint32_t version, const FilterFields& s) {
    w.writeUnsignedInteger(s.type);
    writeContentBase(w, 320, s.name);
    w.writeBit(true);
    w.writeBit(false);
    writeCount(w, "Filter.layers", s.layers.size());
    for (uint32_t layer : s.layers) w.writeUnsignedInteger(layer);
    w.writeBit(true);
    writeCount(w, "Filter.entity_references", s.references.size());
    for (const auto& ref : s.references) writeEntityReference(w, version, ref);
    w.writeUserData();
}

void writeLight(PRCBitWriter& w, uint32_t version, const LightFields& s) {
    w.writeUnsignedInteger(s.type);
    writeContentBase(w, s.type, s.name);
    for (uint32_t colour : {1u, 2u, 3u}) w.writeUnsignedInteger(colour);
    switch (s.type) {
        case 732:
            w.writeVector3d(1, 2, 3);
            writeDoubles(w, 3);
            break;
        case 733:
            w.writeVector3d(0, 0, -1);
            if (version >= 8030) w.writeDouble(0.5);
            break;
        case 734:
            w.writeVector3d(1, 2, 3);
            writeDoubles(w, 3);
            w.writeVector3d(0, 0, -1);
            writeDoubles(w, 2);
            break;
        default:
            break;
    }
}

void writeCamera(PRCBitWriter& w, const CameraFields& s) {
    w.writeUnsignedInteger(s.type);
    writeContentBase(w, 742, s.name);
    w.writeBit(true);
    w.writeVector3d(0, 0, 10);
    w.writeVector3d(0, 0, 0);
    w.writeVector3d(0, 1, 0);
    writeDoubles(w, 6, 2.0);
}

void writeSceneDisplayParameters(PRCBitWriter& w, uint32_t version, const SceneDisplayParametersFields& s) {
    w.writeUnsignedInteger(s.type);
    writeContentBase(w, 741, s.name);
    w.writeBit(true);
    writeCount(w, "SceneDisplayParameters.lights", s.lights.size());
    for (const auto& light : s.lights) writeLight(w, version, light);
    w.writeBit(s.camera.has_value());
    if (s.camera) writeCamera(w, *s.camera);
    w.writeBit(s.rotation_center.has_value());
    if (s.rotation_center) writeVec3(w, *s.rotation_center);
    writeCount(w, "SceneDisplayParameters.clipping_planes", s.clipping_planes.size());
    for (const auto& plane : s.clipping_planes) writeSurfacePlane(w, plane);
    w.writeUnsignedInteger(1);
    w.writeUnsignedInteger(2);
    writeCount(w, "SceneDisplayParameters.style_pairs", s.style_pairs.size());
    for (auto [a, b] : s.style_pairs) {
        w.writeUnsignedInteger(a);
        w.writeUnsignedInteger(b);
    }
    if (version > 8136) w.writeBit(true);
}

void writeView(PRCBitWriter& w, uint32_t version, const ViewFields& s) {
    w.writeUnsignedInteger(s.type);
    writeDrawnHead(w, version, 501, s.head);
    writeReferences(w, "View.annotations", s.annotations);
    writeSurfacePlane(w, s.plane);
    w.writeBit(s.scene.has_value());
    if (s.scene) writeSceneDisplayParameters(w, version, *s.scene);
    w.writeBitString("101");
    writeReferences(w, "View.linked_items", s.linked_items);
    writeCount(w, "View.filters", s.filters.size());
    for (const auto& filter : s.filters) writeFilter(w, version, filter);
    w.writeUserData();
}

RepresentationItemFields RepresentationItemFields::set(std::vector<RepresentationItemFields> children) {
    RepresentationItemFields s;
    s.type = 239;
    s.items = std::move(children);
    return s;
}

RepresentationItemFields RepresentationItemFields::coordinateSystem(const CartesianFields& t) {
    RepresentationItemFields s;
    s.type = 240;
    s.cartesian = t;
    return s;
}

RepresentationItemFields RepresentationItemFields::coordinateSystem(const Matrix4& m) {
    RepresentationItemFields s;
    s.type = 240;
    s.general = m;
    return s;
}

void writeRepresentationItem(PRCBitWriter& w, uint32_t version, const RepresentationItemFields& s) {
    w.writeUnsignedInteger(s.type);
    if (s.type == 0) return;
    writeContentBase(w, s.type, s.name);
    writeGraphics(w, version, s.graphics);
    w.writeUnsignedInteger(s.coordinate_system_plus_one);
    w.writeUnsignedInteger(s.tessellation_plus_one);
    switch (s.type) {
        case 232:
            w.writeBit(s.flag);
            if (s.flag) {
                w.writeUnsignedInteger(4);
                w.writeUnsignedInteger(5);
            }
            w.writeBit(s.is_closed);
            break;
        case 233:
        case 235:
            w.writeBit(s.flag);
            if (s.flag) {
                w.writeUnsignedInteger(4);
                w.writeUnsignedInteger(5);
            }
            break;
        case 234:
            w.writeBit(s.flag);
            if (s.flag) w.writeVector3d(1, 2, 3);
            w.writeVector3d(0, 0, 1);
            break;
        case 236:
            writeCount(w, "PointSet.points", s.points);
            for (uint32_t i = 0; i < s.points; ++i) w.writeVector3d(i, 0.5, -1);
            break;
        case 237:
            w.writeBit(s.is_closed);
            break;
        case 239:
            writeCount(w, "Set.items", s.items.size());
            for (const auto& child : s.items) writeRepresentationItem(w, version, child);
            break;
        case 240:
            if (s.general)
                writeGeneralTransformation(w, *s.general);
            else
                writeCartesianTransformation(w, s.cartesian);
            break;
        default:
            break;
    }
    w.writeUserData(s.user_data_bits);
}

RepresentationItemFields nestedSets(int depth) {
    RepresentationItemFields s;
    for (int i = 0; i < depth; ++i) s = RepresentationItemFields::set({std::move(s)});
    return s;
}

MaterialFields MaterialFields::withDiffuse(uint32_t diffuse_plus_one) {
    MaterialFields s;
    s.diffuse = diffuse_plus_one;
    return s;
}

MaterialFields MaterialFields::textureApplication(uint32_t material_plus_one) {
    MaterialFields s;
    s.type = 711;
    s.name = "application";
    s.material_plus_one = material_plus_one;
    return s;
}

void writeMaterial(PRCBitWriter& w, const MaterialFields& s) {
    w.writeUnsignedInteger(s.type);
    writeContentBase(w, s.type, s.name);
    if (s.type == 711) {
        w.writeUnsignedInteger(s.material_plus_one);
        for (uint32_t v : s.application_values) w.writeUnsignedInteger(v);
        return;
    }
    for (uint32_t index : {s.ambient, s.diffuse, s.emissive, s.specular}) w.writeUnsignedInteger(index);
    for (double d : {s.shininess, s.ambient_alpha, s.diffuse_alpha, s.emissive_alpha, s.specular_alpha})
        w.writeDouble(d);
}

StyleFields StyleFields::color(uint32_t color_plus_one) {
    StyleFields s;
    s.color_material_plus_one = color_plus_one;
    return s;
}

StyleFields StyleFields::material(uint32_t material_plus_one) {
    StyleFields s;
    s.is_material = true;
    s.color_material_plus_one = material_plus_one;
    return s;
}

void writeStyle(PRCBitWriter& w, const StyleFields& s) {
    w.writeUnsignedInteger(s.type);
    writeContentBase(w, 701, s.name);
    w.writeDouble(s.line_width);
    w.writeBit(s.line_pattern_bit);
    w.writeUnsignedInteger(s.line_pattern);
    w.writeBit(s.is_material);
    w.writeUnsignedInteger(s.color_material_plus_one);
    auto optionalByte = [&](const std::optional<uint8_t>& b) {
        w.writeBit(b.has_value());
        if (b) w.writeCharacter(*b);
    };
    optionalByte(s.transparency);
    for (const auto& b : s.additional) optionalByte(b);
}

namespace {

void writePicture(PRCBitWriter& w, const PictureFields& s) {
    w.writeUnsignedInteger(s.type);
    writeContentBase(w, 703, s.name);
    w.writeInteger(s.format);
    for (uint32_t v : s.values) w.writeUnsignedInteger(v);
}

void writeTextureTransformation(PRCBitWriter& w, const TextureTransformationFields& s) {
    w.writeUnsignedInteger(s.type);
    w.writeBit(s.first);
    w.writeBit(s.second);
    w.writeBit(s.behaviour.has_value());
    if (!s.behaviour) return;
    const uint8_t b = *s.behaviour;
    w.writeCharacter(b);
    if (b & 0x01) writeDoubles(w, 2);
    if (b & 0x20)
        writeDoubles(w, 4);
    else if (b & 0x02)
        writeDoubles(w, 2);
    if (b & 0x10)
        writeDoubles(w, 2);
    else if (b & 0x08)
        writeDoubles(w, 1);
    if (b & 0x40) writeDoubles(w, 3);
}

void writeTextureDefinition(PRCBitWriter& w, const TextureDefinitionFields& s) {
    w.writeUnsignedInteger(s.type);
    writeContentBase(w, 712, s.name);
    w.writeUnsignedInteger(s.picture_plus_one);
    w.writeCharacter(s.dimension);
    w.writeInteger(s.mapping_operator);
    w.writeUnsignedInteger(s.mapping_value);
    writeCount(w, "TextureDefinition.doubles", s.doubles.size());
    for (double d : s.doubles) w.writeDouble(d);
    writeCount(w, "TextureDefinition.bytes", s.bytes.size());
    for (uint8_t b : s.bytes) w.writeCharacter(b);
    w.writeInteger(s.mapping_type);
    if (s.mapping_type == 3) writeDoubles(w, 4);
    for (int32_t f : s.functions) {
        w.writeInteger(f);
        if (f != 0) w.writeInteger(-f);
    }
    w.writeCharacter(s.flags);
    if (s.flags & 0x02) {
        w.writeInteger(9);
        w.writeDouble(0.25);
    }
    const size_t wraps = s.dimension <= 1 ? 1 : s.dimension == 2 ? 2 : 3;
    for (size_t i = 0; i < wraps; ++i) w.writeInteger(s.wrapping[i]);
    w.writeBit(s.transformation.has_value());
    if (s.transformation) writeTextureTransformation(w, *s.transformation);
}

void writeLinePattern(PRCBitWriter& w, const LinePatternFields& s) {
    w.writeUnsignedInteger(s.type);
    writeContentBase(w, 721, s.name);
    writeCount(w, "LinePattern.lengths", s.lengths.size());
    for (double d : s.lengths) w.writeDouble(d);
    w.writeDouble(0.0);
    w.writeBit(true);
}

}  // namespace

void writeGlobals(PRCBitWriter& w, uint32_t version, const GlobalsFields& s) {
    writeCount(w, "Globals.schema", s.schema.size());
    for (const auto& [type, tokens] : s.schema) {
        w.writeUnsignedInteger(type);
        writeCount(w, "Schema.tokens", tokens.size());
        for (uint32_t t : tokens) w.writeUnsignedInteger(t);
    }
    w.writeUnsignedInteger(s.type);
    writeContentBase(w, 303, s.name);
    writeCount(w, "Globals.referenced_file_structures", s.referenced_file_structures.size());
    for (const auto& id : s.referenced_file_structures)
        for (uint32_t word : id) w.writeUnsignedInteger(word);
    w.writeDouble(s.chord_height_ratio);
    w.writeDouble(s.angle);
    w.writeString(s.default_font);
    writeCount(w, "Globals.fonts", s.fonts.size());
    for (const FontFields& f : s.fonts) {
        w.writeString(f.family);
        w.writeUnsignedInteger(f.value);
        writeCount(w, "Font.sizes", f.sizes.size());
        for (auto [size, attributes] : f.sizes) {
            w.writeUnsignedInteger(size);
            w.writeCharacter(attributes);
        }
    }
    writeCount(w, "Globals.colors", s.colors.size());
    for (const Vec3& c : s.colors) writeVec3(w, c);
    writeCount(w, "Globals.pictures", s.pictures.size());
    for (const auto& p : s.pictures) writePicture(w, p);
    writeCount(w, "Globals.texture_definitions", s.texture_definitions.size());
    for (const auto& t : s.texture_definitions) writeTextureDefinition(w, t);
    writeCount(w, "Globals.materials", s.materials.size());
    for (const auto& m : s.materials) writeMaterial(w, m);
    writeCount(w, "Globals.line_patterns", s.line_patterns.size());
    for (const auto& p : s.line_patterns) writeLinePattern(w, p);
    writeCount(w, "Globals.styles", s.styles.size());
    for (const auto& st : s.styles) writeStyle(w, st);
    w.writeUnsignedInteger(s.fill_patterns);
    writeCount(w, "Globals.reference_coordinate_systems", s.reference_coordinate_systems.size());
    for (const auto& item : s.reference_coordinate_systems) writeRepresentationItem(w, version, item);
    w.writeUserData(s.user_data_bits);
}

}  // namespace prc::test
