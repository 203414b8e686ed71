#include "tests/hostile/hostile_files.h"

#include <zlib.h>

#include <algorithm>

#include "tests/support/prc_builder.h"

namespace prc::test::hostile {

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
    PRCFileBuilder b = modelFileBuilder({}, fileStructures);
    b.file_structures[0].tree(PRCSection::raw(std::move(bomb)));
    return b.build();
}

std::vector<HostileCase> hostileCases() {
    std::vector<HostileCase> cases;
    // What a four-billion count costs: the globals (the part is still placed,
    // in white), the tree or the model file (the flat pass draws), the
    // tessellation (nothing is left, except for the count of tessellations:
    // the one read before the data ran out stays). Names, attributes and
    // user data are in every section but the tessellations'.
    const std::pair<int64_t, std::vector<const char*>> lists[] = {
        {2, {"tessellations", "globalschema", "ids", "strings", "colours", "pictures", "textures", "materials", "patterns", "styles",
             "systems"}},
        {0, {"parts", "items", "children", "points", "occurrences", "sons", "references", "linked", "leaders",
             "markups", "annotations", "views", "partviews", "filters", "scenes", "modelschema", "roots", "attributes",
             "name", "userdata"}},
        {-1, {"coordinates", "indices", "faces"}},
    };
    for (const auto& [records, names] : lists)
        for (const char* list : names)
            cases.push_back({std::string("count of ") + list, modelFile({.hostile = list, .hostile_count = kFourBillion}), records, 1});
    auto add = [&](const char* name, int64_t records, uint32_t triangles, const ModelPlan& plan) {
        cases.push_back({name, modelFile(plan), records, triangles});
    };
    // Nesting within the bound reads; far beyond it, the tree is lost.
    add("sets nested 20 deep", 2, 1, {.nested_sets = 20});
    add("sets nested 100000 deep", 0, 1, {.nested_sets = 100000});
    add("annotation sets nested 20 deep", 2, 1, {.nested_annotation_sets = 20});
    add("annotation sets nested 100000 deep", 0, 1, {.nested_annotation_sets = 100000});
    add("prototype cycle", 2, 1, {.occurrences = {{1, 0, {1}}, {0, 3, {}}, {0, 2, {}}}});
    // Its own son: depths 0 to 64 are walked. Twice its own son: the node bound.
    add("own son", 65, 65, {.occurrences = {{1, 0, {0}}}});
    add("twice its own son", 0, 1, {.occurrences = {{1, 0, {0, 0}}}});
    const auto withLeaves = [](uint32_t n) { return std::vector<Occurrence>{{1, 0, std::vector<uint32_t>(n, 1)}, {1, 0, {}}}; };
    add("200000 nodes", 200000, 200000, {.occurrences = withLeaves(199999)});
    add("200001 nodes", 0, 1, {.occurrences = withLeaves(200000)});
    // One piece of 1000 triangles placed 20001 times: the cache builds it
    // once, the triangle bound stops the walk.
    add("20001000 triangles by instancing", 0, 1000,
        {.triangles = 1000, .occurrences = {{0, 0, std::vector<uint32_t>(20001, 1)}, {1, 0, {}}}});
    cases.push_back({"zlib bomb", zlibBombFile(0), 0, 1});
    return cases;
}

}  // namespace prc::test::hostile
