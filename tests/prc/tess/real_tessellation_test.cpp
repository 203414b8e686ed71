// Tessellation sections of real PRC streams from several producers: every
// tessellation must be read, and every plain one triangulated in full.

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>

#include "prc/entities/entity_framing.h"
#include "prc/io/inflate_section.h"
#include "prc/io/prc_header.h"
#include "prc/tess/face_triangulation.h"
#include "prc/tess/tessellation_section.h"

namespace prc {
namespace {

TEST(RealTessellationSections, EveryProducerReadsCompletely) {
    struct Expected {
        const char* file;
        size_t tessellations, plain, compressed, dropped;
    };
    // Producers A (two), B (three, one with wires), C, D (empty), E
    // (compressed, one record per file structure) and F.
    const Expected files[] = {
        {"9ad34ea9781e.prc", 1, 1, 0, 0}, {"2d5d9d433f43.prc", 1, 1, 0, 0},   {"0a1283e2edd5.prc", 1, 1, 0, 0},
        {"18d2868a5ddb.prc", 3, 3, 0, 0}, {"c2802771eccd.prc", 8, 4, 0, 4},   {"bc23da9fc464.prc", 1, 1, 0, 0},
        {"1a8f391e69e7.prc", 0, 0, 0, 0}, {"5aab25a32cdb.prc", 25, 0, 25, 0}, {"87c7810f4181.prc", 2, 2, 0, 0},
    };
    for (const Expected& e : files) {
        SCOPED_TRACE(e.file);
        std::ifstream in(std::string(MESHDRONE_TEST_DATA) + "/" + e.file, std::ios::binary);
        const std::vector<uint8_t> file{std::istreambuf_iterator<char>(in), {}};
        const PRCHeader header = readPRCHeader(file.data(), file.size());
        Expected got{e.file, 0, 0, 0, 0};
        for (const FileStructureDescriptor& fs : header.file_structures) {
            if (fs.offsets.size() < 5) continue;
            const uint64_t versions = readFileStructureHeader(file.data(), file.size(), fs.offsets[0]);
            ASSERT_LT(fs.offsets[3], fs.offsets[4]);
            const std::vector<uint8_t> s = inflateSection(file.data() + fs.offsets[3], fs.offsets[4] - fs.offsets[3]);
            PRCBitReader head(s.data(), s.size(), uint32_t(versions >> 32));
            readExpectedType(head, kFileStructureTessellation, "FileStructureTessellation");
            readEmptyContentPRCBase(head);
            got.tessellations += head.readUnsignedInteger();

            std::vector<PRC3DTessCompressed> compressed;
            std::vector<TessellationRef> refs;
            const std::vector<PRC3DTess> plain = readFileStructureTessellation(
                s.data(), s.size(), uint32_t(versions), uint32_t(versions >> 32), compressed, &refs);
            size_t next[3] = {0, 0, 0};  // by kind: plain, compressed, dropped
            for (const TessellationRef& ref : refs) {
                const int kind = ref.kind == TessellationKind::Tess3D ? 0 : ref.kind == TessellationKind::Compressed ? 1 : 2;
                EXPECT_EQ(ref.index, kind == 2 ? 0 : int64_t(next[kind]));
                ++next[kind];
            }
            EXPECT_EQ(next[0], plain.size());
            EXPECT_EQ(next[1], compressed.size());
            got.plain += plain.size();
            got.compressed += compressed.size();
            got.dropped += next[2];
            for (const PRC3DTess& tess : plain) {
                EXPECT_EQ(tess.coordinates.size() % 3, 0u);
                for (double c : tess.coordinates) ASSERT_TRUE(std::isfinite(c));
                FaceTriangulationReport report;
                const TessMesh mesh = appendFaceTriangles(tess, PRCGlobals(), nullptr, &report);
                EXPECT_FALSE(report.stopped);
                EXPECT_EQ(report.dropped_triangles, 0u);
                EXPECT_GT(mesh.triangles.size(), 0u);
            }
            for (const PRC3DTessCompressed& c : compressed) {
                const size_t triangles = c.triangle_face_array.size();
                const uint32_t faces = compressedFaceCount(c.triangle_face_array);
                EXPECT_EQ(c.point_array.size() % 3, 0u);
                EXPECT_GT(triangles, 0u);
                EXPECT_GT(c.tolerance, 0.0);
                EXPECT_EQ(c.style_array.size(), c.style_per_triangle ? triangles : faces);
                EXPECT_EQ(c.must_recalculate_normals ? c.normal_is_reversed.size() : c.face_has_single_normal.size(),
                          c.must_recalculate_normals ? triangles : faces);
            }
        }
        EXPECT_EQ(std::tie(got.tessellations, got.plain, got.compressed, got.dropped),
                  std::tie(e.tessellations, e.plain, e.compressed, e.dropped));
    }
}

}  // namespace
}  // namespace prc
