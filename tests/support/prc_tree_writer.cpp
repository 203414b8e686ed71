#include "tests/support/prc_tree_writer.h"

namespace prc::test {

namespace {

void writeEmptyMarkups(PRCBitWriter& w) {
    for (int i = 0; i < 4; ++i) w.writeUnsignedInteger(0);  // linked items, leaders, markups, annotations
}

void writeGeneralTransformation(PRCBitWriter& w, const Matrix4& m) {
    w.writeUnsignedInteger(207);
    for (int column = 0; column < 4; ++column)
        for (int row = 0; row < 4; ++row) w.writeDouble(m[size_t(4 * row + column)]);
}

// A filter without layers or entity references.
void writeEmptyFilter(PRCBitWriter& w) {
    w.writeUnsignedInteger(320);
    const std::string name = "filter";
    w.writeContentBase(320, &name);
    w.writeBit(false);
    w.writeBit(false);
    w.writeUnsignedInteger(0);  // layers
    w.writeBit(false);
    w.writeUnsignedInteger(0);  // entity references
    w.writeUserData();
}

}  // namespace

void writeTreeItem(PRCBitWriter& w, uint32_t version, const TreeItemFields& item) {
    w.writeUnsignedInteger(item.type);
    if (item.type == 0) return;
    const std::string name = "item";
    w.writeContentBase(item.type, &name);
    w.writeGraphics(version, false, 0, item.style_plus_one);
    w.writeUnsignedInteger(item.coordinate_system_plus_one);
    w.writeUnsignedInteger(item.tessellation_plus_one);
    if (item.type == 239) {
        w.writeUnsignedInteger(uint32_t(item.items.size()));
        for (const TreeItemFields& child : item.items) writeTreeItem(w, version, child);
    } else {
        w.writeBit(true);  // is_closed of a poly-B-rep model
    }
    w.writeUserData();
}

void writePartDefinition(PRCBitWriter& w, uint32_t version, const PartDefinitionFields& part) {
    w.writeUnsignedInteger(311);
    w.writeContentBase(311, &part.name);
    w.writeGraphics(version, false, 0, part.style_plus_one);
    w.writeVector3d(0, 0, 0);
    w.writeVector3d(1, 1, 1);
    w.writeUnsignedInteger(uint32_t(part.items.size()));
    for (const TreeItemFields& item : part.items) writeTreeItem(w, version, item);
    writeEmptyMarkups(w);
    w.writeUnsignedInteger(0);  // views
    w.writeUserData(part.user_data_bits);
}

void writeProductOccurrence(PRCBitWriter& w, uint32_t version, const ProductOccurrenceFields& o) {
    w.writeUnsignedInteger(310);
    w.writeContentBase(310, o.name ? &*o.name : nullptr);
    w.writeGraphics(version, false, 0, o.style_plus_one);
    w.writeUnsignedInteger(o.part_plus_one);
    w.writeUnsignedInteger(o.prototype_plus_one);
    if (o.prototype_plus_one != 0) {
        w.writeBit(o.prototype_same_file_structure);
        if (!o.prototype_same_file_structure)
            for (uint32_t word : o.prototype_file_structure) w.writeUnsignedInteger(word);
    }
    w.writeUnsignedInteger(o.external_plus_one);
    if (o.external_plus_one != 0) {
        w.writeBit(o.external_same_file_structure);
        if (!o.external_same_file_structure)
            for (uint32_t word : o.external_file_structure) w.writeUnsignedInteger(word);
    }
    w.writeUnsignedInteger(uint32_t(o.sons.size()));
    for (uint32_t son : o.sons) w.writeUnsignedInteger(son);
    w.writeCharacter(o.behaviour);
    w.writeBit(true);  // unit from CAD file
    w.writeDouble(o.unit);
    w.writeCharacter(o.information_flags);
    w.writeInteger(o.load_status);
    w.writeBit(o.location.has_value());
    if (o.location) writeGeneralTransformation(w, *o.location);
    w.writeUnsignedInteger(0);  // references
    writeEmptyMarkups(w);
    w.writeUnsignedInteger(0);  // views
    w.writeBit(o.entity_filter);
    if (o.entity_filter) writeEmptyFilter(w);
    w.writeUnsignedInteger(0);  // display filters
    w.writeUnsignedInteger(0);  // scene display parameters
    w.writeUserData(o.user_data_bits);
}

void writeTreeSection(PRCBitWriter& w, uint32_t version, const std::vector<PartDefinitionFields>& parts,
                      const std::vector<ProductOccurrenceFields>& occurrences) {
    w.writeUnsignedInteger(304);
    w.writeEmptyContentBase();
    w.writeUnsignedInteger(uint32_t(parts.size()));
    for (const PartDefinitionFields& p : parts) writePartDefinition(w, version, p);
    w.writeUnsignedInteger(uint32_t(occurrences.size()));
    for (const ProductOccurrenceFields& o : occurrences) writeProductOccurrence(w, version, o);
    // Internal data.
    w.writeUnsignedInteger(302);
    const std::string name = "internal";
    w.writeContentBase(302, &name);
    w.writeUnsignedInteger(uint32_t(occurrences.size() + parts.size() + 1));  // next available index
    w.writeUnsignedInteger(occurrences.empty() ? 0 : 1);                     // index of the root occurrence
    w.writeUserData();
    w.writeUserData();
}

void writeModelFile(PRCBitWriter& w, const std::vector<ModelFileEntry>& entries) {
    w.writeUnsignedInteger(1);  // schema: one entity type with two tokens
    w.writeUnsignedInteger(310);
    w.writeUnsignedInteger(2);
    w.writeUnsignedInteger(7);
    w.writeUnsignedInteger(8);
    w.writeUnsignedInteger(301);
    const std::string name = "model";
    w.writeContentBase(301, &name);
    w.writeBit(true);
    w.writeDouble(1.0);
    w.writeUnsignedInteger(uint32_t(entries.size()));
    for (const ModelFileEntry& e : entries) {
        for (uint32_t word : e.file_structure) w.writeUnsignedInteger(word);
        w.writeUnsignedInteger(e.index_plus_one);
        w.writeBit(false);
    }
}

Matrix4 translationMatrix(double x, double y, double z) {
    Matrix4 m = kIdentityMatrix;
    m[3] = x;
    m[7] = y;
    m[11] = z;
    return m;
}

Matrix4 scaleMatrix(double sx, double sy, double sz) {
    Matrix4 m = kIdentityMatrix;
    m[0] = sx;
    m[5] = sy;
    m[10] = sz;
    return m;
}

}  // namespace prc::test
