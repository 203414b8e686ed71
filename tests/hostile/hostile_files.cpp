#include "tests/hostile/hostile_files.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "prc/entities/entity_framing.h"
#include "tests/support/prc_bit_writer.h"
#include "tests/support/prc_file_builder.h"

namespace prc::test::hostile {

namespace {

// Writes the sections of a plan. Every counted list goes through count():
// the plan's hostile list claims four billion entries, the others hold what
// the file really has.
struct Writer {
    const ModelPlan& plan;
    PRCBitWriter w;

    void count(const char* list, uint32_t n) {
        w.writeUnsignedInteger(plan.hostile && std::strcmp(plan.hostile, list) == 0 ? kFourBillion : n);
    }
    void empty(std::initializer_list<const char*> lists) {
        for (const char* list : lists) count(list, 0);
    }
    // Type, content base (a name, and identifiers for the types that carry
    // them) and, for drawn entities, graphics.
    void head(uint32_t type, const std::string& name = "", bool graphics = true, uint32_t style_plus_one = 0) {
        w.writeUnsignedInteger(type);
        count("attributes", 0);
        w.writeBitString("01");  // a name is read, and present
        count("name length", uint32_t(name.size()));
        for (char c : name) w.writeCharacter(uint8_t(c));
        if (type < 301 || type > 305) w.writeBitString("000");
        if (graphics) w.writeGraphics(kVersion, false, 0, style_plus_one);
    }
    void item(uint32_t type, uint32_t tessellation_plus_one) {
        head(type);
        w.writeBit(false);  // no coordinate system
        w.writeUnsignedInteger(tessellation_plus_one);
    }
    // Sets wrapped around a set of a poly-B-rep model (drawing tessellation
    // 0) and an empty point set; written flat, as a set ends with its user data.
    void drawnItem() {
        for (uint32_t i = 0; i < plan.nested_sets; ++i) item(kRiSet, 0), w.writeUnsignedInteger(1);
        item(kRiSet, 0);
        count("set children", 2);
        item(kRiPolyBrepModel, 1);
        w.writeBit(false);  // not closed
        count("user data", 0);
        item(kRiPointSet, 0);
        empty({"points"});
        for (uint32_t i = 0; i <= plan.nested_sets + 1; ++i) count("user data", 0);
    }
    void markups() {
        empty({"linked items", "leaders", "markups"});
        const uint32_t n = plan.nested_annotation_sets;
        count("annotations", n == 0 ? 0 : 1);
        for (uint32_t i = 0; i < n; ++i) head(kAnnotationSet), w.writeUnsignedInteger(i + 1 < n ? 1 : 0);
        for (uint32_t i = 0; i < n; ++i) count("user data", 0);
    }
    void occurrence(const Occurrence& o) {
        head(kProductOccurrence, o.name);
        w.writeUnsignedInteger(o.part_plus_one);
        w.writeUnsignedInteger(o.prototype_plus_one);
        if (o.prototype_plus_one != 0) w.writeBit(true);  // in the same file structure
        w.writeBit(false);                                // no external data
        count("sons", uint32_t(o.sons.size()));
        for (uint32_t son : o.sons) w.writeUnsignedInteger(son);
        // Behaviour, unit from CAD, unit 1.0, flags, load status, no location.
        w.writeBitString("00000000 0 00000 00000000 0 0");
        empty({"references"});
        markups();
        empty({"views"});
        w.writeBit(false);  // no entity filter
        empty({"display filters", "scene display parameters", "user data"});
    }
    PRCBitWriter done() {
        if (plan.hostile)
            for (size_t i = 0; i < kFillerBytes; ++i) w.writeCharacter(0);
        return w;
    }
};

PRCBitWriter globalsSection(const ModelPlan& plan) {
    Writer s{plan, {}};
    s.empty({"globals schema"});
    s.head(kFileStructureGlobals, "", false);
    s.empty({"globals identifiers"});
    s.w.writeBitString("01 01 0");  // two Doubles 0.0, an empty String
    s.empty({"globals strings"});
    s.count("colours", 1);
    s.w.writeVector3d(1.0, 0.0, 0.0);
    s.empty({"pictures", "texture definitions", "materials", "line patterns"});
    s.count("styles", 1);
    s.head(kStyle, "", false);
    s.w.writeDouble(1.0);  // line width
    s.w.writeBitString("0 0 0 1 00000001 0 0 0 0 0");  // two dropped, not a material, colour 0, no options
    s.w.writeBit(false);                                   // no fill pattern
    s.empty({"coordinate systems", "user data"});
    return s.done();
}

PRCBitWriter treeSection(const ModelPlan& plan) {
    Writer s{plan, {}};
    s.w.writeUnsignedInteger(kFileStructureTree);
    s.w.writeEmptyContentBase();
    s.count("part definitions", 1);
    s.head(kPartDefinition, "part", true, 1);  // in style 0
    s.w.writeBitString("01 01 01 01 01 01");    // the bounding box
    s.count("representation items", 1);
    s.drawnItem();
    s.markups();
    s.empty({"part views", "user data"});
    s.count("product occurrences", uint32_t(plan.occurrences.size()));
    for (const Occurrence& o : plan.occurrences) s.occurrence(o);
    s.head(kFileStructure, "", false);  // internal data
    s.w.writeBitString("0 0");
    s.empty({"user data", "user data"});
    return s.done();
}

PRCBitWriter tessellationSection(const ModelPlan& plan) {
    Writer s{plan, {}};
    s.w.writeUnsignedInteger(kFileStructureTessellation);
    s.w.writeEmptyContentBase();
    s.count("tessellations", 1);
    s.w.writeUnsignedInteger(k3DTess);
    s.w.writeBit(false);
    s.count("coordinates", 9);
    for (double c : {0, 0, 0, 1, 0, 0, 0, 1, 0}) s.w.writeDouble(c);
    s.w.writeBitString("0 0 1 00000000 01");  // two ignored, normals recalculated, crease angle 0
    s.empty({"normal coordinates"});
    s.w.writeBit(false);
    s.count("triangulated indices", 3 * plan.piece_triangles);
    for (uint32_t i = 0; i < 3 * plan.piece_triangles; ++i) s.w.writeUnsignedInteger(3 * (i % 3));
    s.count("faces", 1);
    s.w.writeUnsignedInteger(kTessFace);
    for (uint32_t v : {0u, 0u, 0u, 0x0002u, 0u, 1u, plan.piece_triangles, 0u}) s.w.writeUnsignedInteger(v);
    s.w.writeBitString("0 0");  // no vertex colours; no trailing Doubles
    return s.done();
}

PRCBitWriter modelFileSection(const ModelPlan& plan) {
    Writer s{plan, {}};
    s.empty({"model schema"});
    s.head(kModelFile, "", false);
    s.w.writeBitString("0 00000");  // unit from CAD, unit 1.0
    s.count("roots", 1);
    for (uint32_t word : PRCFileStructurePlan().identifier) s.w.writeUnsignedInteger(word);
    s.w.writeBitString("1 00000001 0 0");  // occurrence 0, a dropped Boolean
    return s.done();
}

}  // namespace

std::vector<uint8_t> buildFile(const ModelPlan& plan, const std::vector<uint8_t>* rawTree, uint32_t fileStructures) {
    PRCFileBuilder builder;
    auto offsets = std::make_shared<std::vector<uint32_t>>();
    builder.addFileStructure()
        .globals(PRCSection::of(globalsSection(plan)))
        .tree(rawTree ? PRCSection::raw(*rawTree) : PRCSection::of(treeSection(plan)))
        .tessellation(PRCSection::of(tessellationSection(plan)))
        .edit_offsets = [offsets](std::vector<uint32_t>& o) { *offsets = o; };
    for (uint32_t i = 1; i < fileStructures; ++i)  // the first one's sections again
        builder.addFileStructure().edit_offsets = [offsets](std::vector<uint32_t>& o) { o = *offsets; };
    builder.model_file = PRCSection::of(modelFileSection(plan));
    return builder.build();
}

std::vector<uint8_t> zlibBomb(uint64_t outputBytes) {
    constexpr size_t kBlock = 8 << 20;
    const std::vector<uint8_t> zeros(kBlock);
    std::vector<uint8_t> block(kBlock / 512);
    z_stream zs{};
    deflateInit(&zs, Z_BEST_COMPRESSION);
    zs.next_in = const_cast<Bytef*>(zeros.data()), zs.avail_in = uInt(kBlock);
    zs.next_out = block.data(), zs.avail_out = uInt(block.size());
    deflate(&zs, Z_FULL_FLUSH);  // a flush that forgets the history: every later block comes out the same
    block.resize(block.size() - zs.avail_out);
    deflateEnd(&zs);
    std::vector<uint8_t> bomb(block.begin(), block.begin() + 2);  // the zlib header
    for (uint64_t out = 0; out < outputBytes; out += kBlock) bomb.insert(bomb.end(), block.begin() + 2, block.end());
    return bomb;
}

std::vector<uint8_t> zlibBombFile(uint64_t sectionLength, uint32_t fileStructures) {
    std::vector<uint8_t> bomb = zlibBomb(uint64_t(9) << 27);
    bomb.resize(std::max<uint64_t>(bomb.size(), sectionLength));
    return buildFile({}, &bomb, fileStructures);
}

std::vector<HostileCase> hostileCases() {
    std::vector<HostileCase> cases;
    // What a four-billion count costs: the globals (the part is still placed,
    // in white), the tree or the model file (the flat pass draws), the
    // tessellation (nothing is left, except for the count of tessellations:
    // the one read before the data ran out stays). Names, attributes and
    // user data are in every section but the tessellations'.
    const std::pair<int64_t, std::vector<const char*>> lists[] = {
        {2, {"tessellations", "globals schema", "globals identifiers", "globals strings", "colours", "pictures",
             "texture definitions", "materials", "line patterns", "styles", "coordinate systems"}},
        {0, {"part definitions", "representation items", "set children", "points", "product occurrences", "sons",
             "references", "linked items", "leaders", "markups", "annotations", "views", "part views",
             "display filters", "scene display parameters", "model schema", "roots", "attributes", "name length",
             "user data"}},
        {-1, {"coordinates", "triangulated indices", "faces"}},
    };
    for (const auto& [records, names] : lists)
        for (const char* list : names) cases.push_back({std::string("count of ") + list, buildFile({list}), records, 1});
    auto add = [&](const char* name, int64_t records, uint32_t triangles, const ModelPlan& plan) {
        cases.push_back({name, buildFile(plan), records, triangles});
    };
    // Nesting within the bound reads; far beyond it, the tree is lost.
    add("sets nested 20 deep", 2, 1, {.nested_sets = 20});
    add("sets nested 100000 deep", 0, 1, {.nested_sets = 100000});
    add("annotation sets nested 20 deep", 2, 1, {.nested_annotation_sets = 20});
    add("annotation sets nested 100000 deep", 0, 1, {.nested_annotation_sets = 100000});
    add("prototype cycle", 2, 1, {.occurrences = {{"root", 1, 0, {1}}, {"", 0, 3, {}}, {"", 0, 2, {}}}});
    // Its own son: depths 0 to 64 are walked. Twice its own son: the node bound.
    add("own son", 65, 65, {.occurrences = {{"loop", 1, 0, {0}}}});
    add("twice its own son", 0, 1, {.occurrences = {{"loop", 1, 0, {0, 0}}}});
    const auto withLeaves = [](uint32_t n) { return std::vector<Occurrence>{{"root", 1, 0, std::vector<uint32_t>(n, 1)}, {"leaf", 1, 0, {}}}; };
    add("200000 nodes", 200000, 200000, {.occurrences = withLeaves(199999)});
    add("200001 nodes", 0, 1, {.occurrences = withLeaves(200000)});
    // One piece of 1000 triangles placed 20001 times: the cache builds it
    // once, the triangle bound stops the walk.
    add("20001000 triangles by instancing", 0, 1000,
        {.piece_triangles = 1000, .occurrences = {{"root", 0, 0, std::vector<uint32_t>(20001, 1)}, {"leaf", 1, 0, {}}}});
    cases.push_back({"zlib bomb", zlibBombFile(0), 0, 1});
    return cases;
}

}  // namespace prc::test::hostile
