#include "tests/support/prc_tree_writer.h"

namespace prc::test {

namespace {

// Linked items, leaders, markups, annotations and views: all empty.
void writeEmptyMarkupsAndViews(PRCBitWriter& w) {
    for (int i = 0; i < 5; ++i) w.writeUnsignedInteger(0);
}

void writeReference(PRCBitWriter& w, uint32_t plus_one, const std::optional<FileStructureId>& other) {
    w.writeUnsignedInteger(plus_one);
    if (plus_one == 0) return;
    w.writeBit(!other);
    if (other)
        for (uint32_t word : *other) w.writeUnsignedInteger(word);
}

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
        w.writeBit(true);  // is_closed
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
    writeEmptyMarkupsAndViews(w);
    w.writeUserData(part.user_data_bits);
}

void writeProductOccurrence(PRCBitWriter& w, uint32_t version, const ProductOccurrenceFields& o) {
    w.writeUnsignedInteger(310);
    w.writeContentBase(310, o.name ? &*o.name : nullptr);
    w.writeGraphics(version, false, 0, o.style_plus_one);
    w.writeUnsignedInteger(o.part_plus_one);
    writeReference(w, o.prototype_plus_one, o.prototype_file_structure);
    writeReference(w, o.external_plus_one, o.external_file_structure);
    w.writeUnsignedInteger(uint32_t(o.sons.size()));
    for (uint32_t son : o.sons) w.writeUnsignedInteger(son);
    w.writeCharacter(o.behaviour);
    w.writeBit(true);  // unit from CAD file
    w.writeDouble(1.0);
    w.writeCharacter(o.information_flags);
    w.writeInteger(0);  // load status
    w.writeBit(o.location.has_value());
    if (o.location) {
        w.writeUnsignedInteger(207);  // a general transformation, column by column
        for (int column = 0; column < 4; ++column)
            for (int row = 0; row < 4; ++row) w.writeDouble((*o.location)[size_t(4 * row + column)]);
    }
    w.writeUnsignedInteger(0);  // references
    writeEmptyMarkupsAndViews(w);
    for (int i = 0; i < 3; ++i) w.writeUnsignedInteger(0);  // entity filter bit, display filters, scene parameters
    w.writeUserData(o.user_data_bits);
}

}  // namespace

void writeTreeSection(PRCBitWriter& w, uint32_t version, const std::vector<PartDefinitionFields>& parts,
                      const std::vector<ProductOccurrenceFields>& occurrences) {
    w.writeUnsignedInteger(304);
    w.writeEmptyContentBase();
    w.writeUnsignedInteger(uint32_t(parts.size()));
    for (const PartDefinitionFields& p : parts) writePartDefinition(w, version, p);
    w.writeUnsignedInteger(uint32_t(occurrences.size()));
    for (const ProductOccurrenceFields& o : occurrences) writeProductOccurrence(w, version, o);
    w.writeUnsignedInteger(302);  // internal data
    const std::string name = "internal";
    w.writeContentBase(302, &name);
    w.writeUnsignedInteger(uint32_t(occurrences.size() + parts.size() + 1));  // next available index
    w.writeUnsignedInteger(occurrences.empty() ? 0 : 1);                     // root occurrence
    w.writeUserData();
    w.writeUserData();
}

void writeModelFile(PRCBitWriter& w, const std::vector<ModelFileEntry>& entries) {
    for (uint32_t v : {1u, 310u, 2u, 7u, 8u, 301u}) w.writeUnsignedInteger(v);  // schema: one type of two tokens
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

Matrix4 translationMatrix(double x, double y, double z) { return {1, 0, 0, x, 0, 1, 0, y, 0, 0, 1, z, 0, 0, 0, 1}; }

}  // namespace prc::test
