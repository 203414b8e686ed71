// Tessellation sections of real PRC streams from several producers: every
// tessellation must be read, and every plain one triangulated in full.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>

#include "prc/entities/entity_framing.h"
#include "prc/io/inflate_section.h"
#include "prc/io/prc_header.h"
#include "prc/tess/face_triangulation.h"
#include "prc/tess/tessellation_section.h"

namespace prc {
namespace {

std::vector<uint8_t> readDataFile(const std::string& name) {
    std::ifstream in(std::string(MESHDRONE_TEST_DATA) + "/" + name, std::ios::binary);
    EXPECT_TRUE(in) << name;
    return {std::istreambuf_iterator<char>(in), {}};
}

struct Section {
    std::vector<uint8_t> bytes;
    uint32_t minimal_version = 0;
    uint32_t authoring_version = 0;
};

// The tessellation section (the fourth offset) of every file structure.
std::vector<Section> tessellationSections(const std::vector<uint8_t>& file) {
    const PRCHeader header = readPRCHeader(file.data(), file.size());
    std::vector<Section> sections;
    for (const FileStructureDescriptor& fs : header.file_structures) {
        if (fs.offsets.size() < 5) continue;
        const uint64_t versions = readFileStructureHeader(file.data(), file.size(), fs.offsets[0]);
        Section s;
        s.minimal_version = uint32_t(versions);
        s.authoring_version = uint32_t(versions >> 32);
        EXPECT_LT(fs.offsets[3], fs.offsets[4]);
        s.bytes = inflateSection(file.data() + fs.offsets[3], fs.offsets[4] - fs.offsets[3]);
        sections.push_back(std::move(s));
    }
    return sections;
}

struct FileFigures {
    size_t tessellations = 0, plain = 0, compressed = 0, dropped = 0;
};

FileFigures checkFile(const std::string& name) {
    FileFigures figures;
    const std::vector<uint8_t> file = readDataFile(name);
    const PRCGlobals no_globals;
    for (const Section& s : tessellationSections(file)) {
        PRCBitReader head(s.bytes.data(), s.bytes.size(), s.authoring_version);
        readExpectedType(head, kFileStructureTessellation, "FileStructureTessellation");
        readEmptyContentPRCBase(head);
        const uint32_t count = head.readUnsignedInteger();

        std::vector<PRC3DTessCompressed> compressed;
        std::vector<TessellationRef> refs;
        const std::vector<PRC3DTess> plain = readFileStructureTessellation(
            s.bytes.data(), s.bytes.size(), s.minimal_version, s.authoring_version, compressed, &refs);
        EXPECT_EQ(refs.size(), count) << name << ": reading stopped early";

        size_t next_plain = 0, next_compressed = 0;
        for (const TessellationRef& ref : refs) {
            if (ref.kind == TessellationKind::Tess3D) {
                EXPECT_EQ(ref.index, int64_t(next_plain++));
            } else if (ref.kind == TessellationKind::Compressed) {
                EXPECT_EQ(ref.index, int64_t(next_compressed++));
            } else {
                EXPECT_EQ(ref.index, 0);
                ++figures.dropped;
            }
        }
        EXPECT_EQ(next_plain, plain.size());
        EXPECT_EQ(next_compressed, compressed.size());

        for (const PRC3DTess& tess : plain) {
            EXPECT_EQ(tess.coordinates.size() % 3, 0u) << name;
            EXPECT_TRUE(std::all_of(tess.coordinates.begin(), tess.coordinates.end(), [](double c) { return std::isfinite(c); }))
                << name;
            FaceTriangulationReport report;
            const TessMesh mesh = appendFaceTriangles(tess, no_globals, nullptr, &report);
            EXPECT_FALSE(report.stopped) << name;
            EXPECT_EQ(report.dropped_triangles, 0u) << name;
            EXPECT_GT(mesh.triangles.size(), 0u) << name;
            EXPECT_EQ(mesh.colors.size(), mesh.positions.size());
        }
        for (const PRC3DTessCompressed& c : compressed) {
            const size_t triangles = c.triangle_face_array.size();
            const uint32_t faces = compressedFaceCount(c.triangle_face_array);
            EXPECT_EQ(c.point_array.size() % 3, 0u) << name;
            EXPECT_GT(triangles, 0u) << name;
            EXPECT_GT(c.tolerance, 0.0) << name;
            EXPECT_EQ(c.style_array.size(), c.style_per_triangle ? triangles : faces) << name;
            if (c.must_recalculate_normals) {
                EXPECT_EQ(c.normal_is_reversed.size(), triangles) << name;
            } else {
                EXPECT_EQ(c.face_has_single_normal.size(), faces) << name;
                EXPECT_FALSE(c.normal_angle_array.empty()) << name;
            }
        }
        figures.tessellations += count;
        figures.plain += plain.size();
        figures.compressed += compressed.size();
    }
    return figures;
}

TEST(RealTessellationSections, EveryProducerReadsCompletely) {
    struct Expected {
        const char* file;
        size_t tessellations, plain, compressed, dropped;
    };
    // Families A (two), B (three, one with wires), C, D (empty), E
    // (compressed, one record per file structure) and F.
    const Expected files[] = {
        {"9ad34ea9781e.prc", 1, 1, 0, 0},  {"2d5d9d433f43.prc", 1, 1, 0, 0},  {"0a1283e2edd5.prc", 1, 1, 0, 0},
        {"18d2868a5ddb.prc", 3, 3, 0, 0},  {"c2802771eccd.prc", 8, 4, 0, 4},  {"bc23da9fc464.prc", 1, 1, 0, 0},
        {"1a8f391e69e7.prc", 0, 0, 0, 0},  {"5aab25a32cdb.prc", 25, 0, 25, 0}, {"87c7810f4181.prc", 2, 2, 0, 0},
    };
    for (const Expected& e : files) {
        SCOPED_TRACE(e.file);
        const FileFigures f = checkFile(e.file);
        EXPECT_EQ(f.tessellations, e.tessellations);
        EXPECT_EQ(f.plain, e.plain);
        EXPECT_EQ(f.compressed, e.compressed);
        EXPECT_EQ(f.dropped, e.dropped);
    }
}

// A writer's tetrahedron with one colour per corner: the triangles and the
// colours come out as the scene gave them (the writer scales uniformly).
TEST(RealTessellationSections, WriterVertexColoursReachTheVertices) {
    const std::vector<Section> sections = tessellationSections(readDataFile("gen/vertex_colors.prc"));
    ASSERT_EQ(sections.size(), 1u);
    std::vector<PRC3DTessCompressed> compressed;
    const auto plain = readFileStructureTessellation(sections[0].bytes.data(), sections[0].bytes.size(), 0,
                                                     sections[0].authoring_version, compressed, nullptr);
    ASSERT_EQ(plain.size(), 1u);
    const TessMesh mesh = appendFaceTriangles(plain[0], PRCGlobals{}, nullptr);
    ASSERT_EQ(mesh.positions.size(), 12u);
    float scale = 0;
    for (float p : mesh.positions) scale = std::max(scale, p);
    ASSERT_GT(scale, 0.0f);
    // Corner (rounded to the unit scene) -> colour.
    const std::map<std::array<int, 3>, std::array<int, 3>> expected = {
        {{0, 0, 0}, {255, 0, 0}}, {{1, 0, 0}, {0, 255, 0}}, {{0, 1, 0}, {0, 0, 255}}, {{0, 0, 1}, {255, 128, 0}}};
    auto corner = [&](uint32_t v) {
        std::array<int, 3> c;
        for (int k = 0; k < 3; ++k) c[k] = int(std::lround(mesh.positions[3 * v + k] / scale));
        return c;
    };
    for (uint32_t v = 0; v < 4; ++v) {
        const auto it = expected.find(corner(v));
        ASSERT_NE(it, expected.end()) << v;
        EXPECT_EQ((std::array<int, 3>{mesh.colors[3 * v], mesh.colors[3 * v + 1], mesh.colors[3 * v + 2]}), it->second);
    }
    // The four faces of the tetrahedron, each once, as sets of corners.
    ASSERT_EQ(mesh.triangles.size(), 12u);
    std::set<std::set<std::array<int, 3>>> faces;
    for (size_t t = 0; t < 4; ++t)
        faces.insert({corner(mesh.triangles[3 * t]), corner(mesh.triangles[3 * t + 1]), corner(mesh.triangles[3 * t + 2])});
    EXPECT_EQ(faces.size(), 4u);
    for (const auto& f : faces) EXPECT_EQ(f.size(), 3u);
}

}  // namespace
}  // namespace prc
