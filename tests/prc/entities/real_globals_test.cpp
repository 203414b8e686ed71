// Globals sections of real PRC streams from several producers and versions:
// each must be read to its last byte, with plausible colours.

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <string>

#include "prc/entities/globals.h"
#include "prc/io/inflate_section.h"
#include "prc/io/prc_header.h"

namespace prc {
namespace {

std::vector<uint8_t> readDataFile(const std::string& name) {
    std::ifstream in(std::string(MESHDRONE_TEST_DATA) + "/" + name, std::ios::binary);
    EXPECT_TRUE(in) << name;
    return {std::istreambuf_iterator<char>(in), {}};
}

struct Figures {
    size_t file_structures = 0, colors = 0, materials = 0, styles = 0, systems = 0;
};

Figures readAllGlobals(const std::string& name) {
    Figures f;
    const std::vector<uint8_t> file = readDataFile(name);
    const PRCHeader header = readPRCHeader(file.data(), file.size());
    for (const FileStructureDescriptor& fs : header.file_structures) {
        if (fs.offsets.size() < 5) continue;
        const uint32_t version = uint32_t(readFileStructureHeader(file.data(), file.size(), fs.offsets[0]) >> 32);
        const std::vector<uint8_t> section = inflateSection(file.data() + fs.offsets[1], fs.offsets[2] - fs.offsets[1]);
        PRCBitReader r(section.data(), section.size(), version);
        PRCGlobals g;
        try {
            g = readFileStructureGlobals(r);
        } catch (const std::exception& e) {
            ADD_FAILURE() << name << " file structure " << f.file_structures << ": " << e.what();
            continue;
        }
        // Writers after version 8137 leave one more user-data block after the
        // fields that the reader needs (in every such file at hand: a zero
        // field, then a block of about 80 bits); it is not read, but it must
        // be all that is left.
        if (version > 8137) r.skipUserData();
        EXPECT_LT(r.bitsRemaining(), 8u) << name << " file structure " << f.file_structures;
        for (const RgbColor& c : g.colors)
            EXPECT_TRUE(std::isfinite(c.red) && std::isfinite(c.green) && std::isfinite(c.blue)) << name;
        ++f.file_structures;
        f.colors += g.colors.size();
        f.materials += g.materials.size();
        f.styles += g.styles.size();
        f.systems += g.reference_coordinate_systems.size();
    }
    return f;
}

TEST(RealGlobals, EveryProducerFamily) {
    struct Expected {
        const char* file;
        size_t file_structures;
    };
    // Families A to F, authoring versions 8137 to 17093, 1 to 26 file
    // structures, and the writer that made the generated scenes.
    const Expected files[] = {
        {"9ad34ea9781e.prc", 1}, {"2d5d9d433f43.prc", 1},          {"0a1283e2edd5.prc", 1},  {"18d2868a5ddb.prc", 4},
        {"bc23da9fc464.prc", 2}, {"1a8f391e69e7.prc", 1},          {"5aab25a32cdb.prc", 26}, {"87c7810f4181.prc", 1},
        {"gen/tet_red.prc", 1},  {"gen/groups_transforms.prc", 1},
    };
    Figures all;
    for (const Expected& e : files) {
        const Figures f = readAllGlobals(e.file);
        EXPECT_EQ(f.file_structures, e.file_structures) << e.file;
        all.colors += f.colors;
        all.styles += f.styles;
    }
    // The corpus is coloured: a reader that lost every table would pass the
    // checks above with empty globals.
    EXPECT_GT(all.colors, 0u);
    EXPECT_GT(all.styles, 0u);
}

TEST(RealGlobals, TextureMappingOperatorThreeLosesTheGlobals) {
    // A real file whose texture definitions use mapping operator 3: its layout
    // is not known, so the section is refused rather than misread.
    const std::vector<uint8_t> file = readDataFile("8e81f2d896dc.prc");
    const PRCHeader header = readPRCHeader(file.data(), file.size());
    ASSERT_EQ(header.file_structures.size(), 1u);
    const std::vector<uint32_t>& offsets = header.file_structures[0].offsets;
    const std::vector<uint8_t> section = inflateSection(file.data() + offsets[1], offsets[2] - offsets[1]);
    PRCBitReader r(section.data(), section.size(), 8137);
    try {
        readFileStructureGlobals(r);
        ADD_FAILURE() << "read";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "readTextureDefinition: unhandled texture mapping operator (never seen in real files)");
    }
}

}  // namespace
}  // namespace prc
