#include "prc/entities/file_structure.h"

#include <algorithm>
#include <exception>
#include <stdexcept>

#include "prc/entities/entity_framing.h"
#include "prc/entities/scene_entities.h"
#include "prc/io/inflate_section.h"

namespace prc {

namespace {

void readFileStructureInternalData(PRCBitReader& r) {
    readExpectedType(r, kFileStructure, "FileStructure (internal data)");
    readContentPRCBase(r, kFileStructure);
    r.readUnsignedInteger();  // next_available_index
    r.readUnsignedInteger();  // index_product_occurrence: the model file names the roots
    r.skipUserData();
}

}  // namespace

InflatedSection inflateFileSection(const uint8_t* data, uint64_t size, uint32_t start, uint32_t end) {
    if (end <= start || end > size) throw std::runtime_error("sezione vuota o fuori dal file");
    return inflateSection(data + start, end - start);
}

PRCPartDefinition readPartDefinition(PRCBitReader& r) {
    PRCPartDefinition part;
    readExpectedType(r, kPartDefinition, "PRCPartDefinition");
    readContentPRCBase(r, kPartDefinition);
    part.line_style_index = r.readGraphics().line_style_index;
    r.readVector3d();  // bounding box: recomputed from the placed vertices
    r.readVector3d();
    const uint32_t items = r.readUnsignedInteger();
    part.representation_items.reserve(r.entriesThatFit(items));
    for (uint32_t i = 0; i < items; ++i) part.representation_items.push_back(readRepresentationItem(r));
    readMarkups(r);
    const uint32_t views = r.readUnsignedInteger();
    for (uint32_t i = 0; i < views; ++i) readView(r);
    r.skipUserData();
    return part;
}

PRCProductOccurrence readProductOccurrence(PRCBitReader& r) {
    PRCProductOccurrence occ;
    readExpectedType(r, kProductOccurrence, "PRCProductOccurrence");
    occ.name = readContentPRCBase(r, kProductOccurrence);
    occ.line_style_index = r.readGraphics().line_style_index;
    occ.index_part = storedIndex(r.readUnsignedInteger());
    const uint32_t prototype = r.readUnsignedInteger();
    if (prototype != 0) {
        occ.index_prototype = int64_t(prototype) - 1;
        occ.prototype_in_same_file_structure = r.readBoolean();
        if (!occ.prototype_in_same_file_structure)
            for (uint32_t& word : occ.prototype_file_structure) word = r.readUnsignedInteger();
    }
    if (r.readUnsignedInteger() != 0) {  // external data: not drawn
        if (!r.readBoolean())
            for (int i = 0; i < 4; ++i) r.readUnsignedInteger();
    }
    const uint32_t sons = r.readUnsignedInteger();
    occ.son_product_occurrences.reserve(r.entriesThatFit(sons));
    for (uint32_t i = 0; i < sons; ++i) occ.son_product_occurrences.push_back(r.readUnsignedInteger());
    occ.product_behaviour = r.readCharacter();
    r.readBoolean();  // unit from CAD file
    r.readDouble();   // unit
    occ.product_information_flags = r.readCharacter();
    r.readInteger();  // product load status
    occ.has_location = r.readBoolean();
    if (occ.has_location) occ.location = readTransformation3d(r);
    const uint32_t references = r.readUnsignedInteger();
    for (uint32_t i = 0; i < references; ++i) readEntityReference(r);
    readMarkups(r);
    const uint32_t views = r.readUnsignedInteger();
    for (uint32_t i = 0; i < views; ++i) readView(r);
    if (r.readBoolean()) readFilter(r);  // entity filter
    const uint32_t displayFilters = r.readUnsignedInteger();
    for (uint32_t i = 0; i < displayFilters; ++i) readFilter(r);
    const uint32_t sceneParameters = r.readUnsignedInteger();
    for (uint32_t i = 0; i < sceneParameters; ++i) readSceneDisplayParameters(r);
    r.skipUserData();
    return occ;
}

PRCFileStructureTree readFileStructureTree(PRCBitReader& r) {
    PRCFileStructureTree tree;
    readExpectedType(r, kFileStructureTree, "FileStructureTree");
    readEmptyContentPRCBase(r);
    const uint32_t parts = r.readUnsignedInteger();
    tree.part_definitions.reserve(r.entriesThatFit(parts));
    for (uint32_t i = 0; i < parts; ++i) tree.part_definitions.push_back(readPartDefinition(r));
    const uint32_t occurrences = r.readUnsignedInteger();
    tree.product_occurrences.reserve(r.entriesThatFit(occurrences));
    for (uint32_t i = 0; i < occurrences; ++i) tree.product_occurrences.push_back(readProductOccurrence(r));
    readFileStructureInternalData(r);
    r.skipUserData();
    return tree;
}

void readFileStructure(const PRCHeader& header, std::vector<PRCFileStructure>& fileStructures, const uint8_t* data,
                       uint64_t size, uint32_t index) {
    if (index >= header.file_structures.size() || index >= fileStructures.size()) return;
    const std::vector<uint32_t>& offsets = header.file_structures[index].offsets;
    PRCFileStructure& fs = fileStructures[index];
    if (offsets.size() < 5) return;

    const uint64_t versions = readFileStructureHeader(data, size, offsets[0]);
    fs.minimal_version_for_read = uint32_t(versions);
    fs.authoring_version = uint32_t(versions >> 32);

    // Each section has its own buffer and reader; a failure loses that
    // section only.
    try {
        const InflatedSection section = inflateFileSection(data, size, offsets[1], offsets[2]);
        PRCBitReader r(section.data(), section.size(), fs.authoring_version);
        fs.globals = readFileStructureGlobals(r);
    } catch (const std::exception&) {
    }

    try {
        const InflatedSection section = inflateFileSection(data, size, offsets[2], offsets[3]);
        PRCBitReader r(section.data(), section.size(), fs.authoring_version);
        PRCFileStructureTree tree = readFileStructureTree(r);
        fs.part_definitions = std::move(tree.part_definitions);
        fs.product_occurrences = std::move(tree.product_occurrences);
        fs.tree_loaded = true;
    } catch (const std::exception&) {
    }

    // The compressed records and refs are filled in place, so those read
    // before a failure stay.
    try {
        const InflatedSection section = inflateFileSection(data, size, offsets[3], offsets[4]);
        fs.tessellations =
            readFileStructureTessellation(section.data(), section.size(), fs.minimal_version_for_read,
                                          fs.authoring_version, fs.compressed_tessellations, &fs.tessellation_refs);
    } catch (const std::exception&) {
    }
}

}  // namespace prc
