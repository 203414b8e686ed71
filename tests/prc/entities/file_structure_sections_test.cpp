#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "prc/entities/file_structure.h"
#include "tests/support/prc_builder.h"

namespace prc {
namespace {

using namespace prc::test;

TEST(FileStructureTree, Failures) {
    // Hostile counts of both lists: the first entry fails (in the padding
    // bits), nothing is sized by the count first.
    const std::pair<const char*, const char*> cases[] = {
        {"u304 u0 b0 snamed", "readEmptyContentPRCBase: unexpected name (non-empty section?)"},
        {"u303 u0 b00", "unexpected type for FileStructureTree: expected 304, got 303"},
        {"u304 u0 b00 u1 u310", "unexpected type for PRCPartDefinition: expected 311, got 310"},
        {"u304 u0 b00 u0 u1 u311", "unexpected type for PRCProductOccurrence: expected 310, got 311"},
        {"u304 u0 b00 u0 u0 u304", "unexpected type for FileStructure (internal data): expected 302, got 304"},
        {"u304 u0 b00 u4000000000", "unexpected type for PRCPartDefinition: expected 311, got 0"},
        {"u304 u0 b00 u0 u4000000000", "unexpected type for PRCProductOccurrence: expected 310, got 0"},
    };
    for (const auto& [layout, message] : cases) {
        const PRCBitWriter w(layout);
        PRCBitReader r(w.bytes().data(), w.bytes().size(), 8137);
        EXPECT_EQ(errorOf([&] { readFileStructureTree(r); }), message);
    }
}

std::vector<PRCFileStructure> readAll(const std::vector<uint8_t>& file) {
    const PRCHeader header = readPRCHeader(file.data(), file.size());
    std::vector<PRCFileStructure> structures(header.file_structures.size());
    for (uint32_t i = 0; i < structures.size(); ++i) readFileStructure(header, structures, file.data(), file.size(), i);
    return structures;
}

TEST(FileStructureSections, EachSectionIsLostAlone) {
    using Offsets = std::vector<uint32_t>;
    struct Case {
        const char* what;
        std::function<void(PRCFileStructurePlan&)> edit;
        bool tree, tessellations;
        uint32_t version, written = 8137;
    };
    const Case cases[] = {
        {"intact", [](PRCFileStructurePlan&) {}, true, true, 8137},
        {"empty globals range", [](PRCFileStructurePlan& f) { f.edit_offsets = [](Offsets& o) { o[1] = o[2]; }; },
         true, true, 8137},
        {"tree that is not zlib", [](PRCFileStructurePlan& f) { f.tree(PRCSection::raw({1, 2, 3})); }, false, true, 8137},
        {"tree range beyond the file",
         [](PRCFileStructurePlan& f) { f.edit_offsets = [](Offsets& o) { o[3] = 0x7FFFFFFF; }; }, false, false, 8137},
        {"tree range reversed",
         [](PRCFileStructurePlan& f) { f.edit_offsets = [](Offsets& o) { std::swap(o[2], o[3]); }; }, false, false, 8137},
        {"tessellation range beyond the file",
         [](PRCFileStructurePlan& f) { f.edit_offsets = [](Offsets& o) { o[4] = 0xFFFFFFFF; }; }, true, false, 8137},
        {"fewer than five offsets", [](PRCFileStructurePlan& f) { f.edit_offsets = [](Offsets& o) { o.resize(4); }; },
         false, false, 0},
        // Written for the newest version, with no head to say so: read as the newest.
        {"no head", [](PRCFileStructurePlan& f) { f.head = false; }, true, true, 0xFFFFFFFF, 0xFFFFFFFF},
        {"head older than the tree", [](PRCFileStructurePlan& f) { f.authoring_version = 8137; }, false, true, 8137,
         0xFFFFFFFF},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        PRCFileBuilder b = modelFileBuilder({.version = c.written});
        b.file_structures.push_back(b.file_structures[0]);  // a second, intact one
        c.edit(b.file_structures[0]);
        const std::vector<PRCFileStructure> fs = readAll(b.build());
        EXPECT_EQ(fs[0].authoring_version, c.version);
        EXPECT_EQ(fs[0].tree_loaded, c.tree);
        EXPECT_EQ(fs[0].product_occurrences.size(), c.tree ? 2u : 0u);
        EXPECT_EQ(fs[0].tessellations.size(), c.tessellations ? 1u : 0u);
        EXPECT_TRUE(fs[1].tree_loaded);
        EXPECT_EQ(fs[1].tessellations.size(), 1u);
    }
}

}  // namespace
}  // namespace prc
