#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "prc/entities/entity_framing.h"
#include "tests/prc/tess/tess_test_util.h"
#include "tests/support/prc_tess_writer.h"

namespace prc::test {
namespace {

constexpr uint32_t kNewest = 0xFFFFFFFF;

template <typename Write, typename Read>
std::string messageOf(Write write, Read read) {
    PRCBitWriter w;
    write(w);
    WrittenReader in(w, kNewest);
    try {
        read(in.reader);
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "no error";
}

// Reads the tessellation back; the reader must stop exactly before a sentinel byte.
PRC3DTess readTess(const Tess3DFields& fields, uint32_t version = kNewest) {
    PRCBitWriter w;
    writePRC3DTess(w, version, fields);
    w.writeBits(0x5A, 8);
    WrittenReader in(w, version);
    PRC3DTess tess = readPRC3DTess(in.reader);
    EXPECT_EQ(in.reader.readBits(8), 0x5Au);
    return tess;
}

// A tessellation that uses every field of the plain records.
Tess3DFields richTess() {
    Tess3DFields fields = squareTess(2.5);
    fields.must_recalculate_normals = false;
    fields.normal_coordinates = {0, 0, 1, 0, 0, -1};
    fields.skipped_indices = {7, 300, 0};
    fields.triangulated_indices = {0, 0, 0, 3, 0, 6, 3, 0, 3, 6, 3, 9};
    fields.trailing_doubles = {0.5, 1e-3};
    TessFaceFields& face = fields.faces[0];
    face.stored_line_attributes = {3, 0};
    face.skipped_values = {1, 2, 1000};
    face.has_vertex_colors = face.is_rgba = true;
    face.rgba_vertices = {1, 2, 3, 4, 1, 2, 3, 4, 9, 8, 7, 6, 9, 8, 7, 6, 5, 5, 5, 5, 0, 0, 0, 255};
    fields.faces.push_back({{}, {}, 0x0004, {1, 3}, false, false, false, {}, 9});
    return fields;
}

TEST(ReadPRC3DTess, ReadsEveryFieldAndHonoursTheVersionThresholds) {
    const Tess3DFields fields = richTess();
    const PRC3DTess tess = readTess(fields);
    EXPECT_EQ(tess.coordinates, fields.coordinates);
    EXPECT_EQ(tess.normal_coordinates, fields.normal_coordinates);
    EXPECT_EQ(tess.triangulated_indices, fields.triangulated_indices);
    EXPECT_FALSE(tess.must_recalculate_normals);
    ASSERT_EQ(tess.faces.size(), 2u);
    EXPECT_EQ(tess.faces[0].line_attributes, (std::vector<uint32_t>{2, 0xFFFFFFFF}));  // stored index + 1
    EXPECT_EQ(tess.faces[0].rgba_vertices, fields.faces[0].rgba_vertices);
    EXPECT_EQ(tess.faces[1].used_entities_flag, 0x0004u);
    EXPECT_EQ(tess.faces[1].sizes_triangulated, (std::vector<uint32_t>{1, 3}));
    EXPECT_EQ(tess.faces[1].start_triangulated, 9u);

    // Up to 7038 no optional Boolean, to 7046 one ignored; from 7047 (and for
    // the unknown version, the top bit set) the normals flag with its angle.
    Tess3DFields versioned = squareTess();
    versioned.must_recalculate_normals = false;
    for (uint32_t version : {7000u, 7038u, 7039u, 7046u}) EXPECT_TRUE(readTess(versioned, version).must_recalculate_normals);
    for (uint32_t version : {7047u, 0x80000000u, kNewest}) EXPECT_FALSE(readTess(versioned, version).must_recalculate_normals);
    versioned.must_recalculate_normals = true;
    versioned.crease_angle = 0.25;
    EXPECT_EQ(readTess(versioned, 7047).crease_angle, 0.25);
}

TEST(ReadTessFace, ColourCountFollowsTheGroups) {
    struct Case {
        uint32_t flags;
        std::vector<uint32_t> sizes;
        bool rgba;
        size_t entries;
    };
    const Case cases[] = {
        {0x0002, {2}, false, 6},              // triangles: three corners each
        {0x0004, {2, 5, 4}, false, 9},        // fans: each vertex once, the count of groups is none
        {0x0008, {2, 5, 4}, true, 9},         // strips, four bytes per entry
        {0x2000, {2}, false, 6},              // a textured one-normal triangle variant
        {0x000E, {2, 1, 4, 2, 3, 5}, false, 18},  // triangles, then fans, then strips
        {0x0008, {3, 4}, false, 4},           // a group count past the list
        {0x0002, {}, false, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.flags);
        Tess3DFields tess;
        tess.faces.push_back({{}, {}, c.flags, c.sizes, true, c.rgba, false, {}});
        for (size_t i = 0; i < c.entries * (c.rgba ? 4 : 3); ++i) tess.faces[0].rgba_vertices.push_back(uint8_t(i / 3 * 7));
        EXPECT_EQ(readTess(tess).faces[0].rgba_vertices, tess.faces[0].rgba_vertices);
        tess.faces[0].stored_line_attributes = {0, 5};  // now followed by a closing value
        EXPECT_EQ(readTess(tess).faces[0].line_attributes, (std::vector<uint32_t>{0xFFFFFFFF, 4}));
    }
}

TEST(TessellationReaders, RaiseTheirMessages) {
    Tess3DFields optimised = squareTess();
    optimised.faces[0].has_vertex_colors = optimised.faces[0].b_optimised = true;
    EXPECT_EQ(messageOf([&](PRCBitWriter& w) { writePRC3DTess(w, kNewest, optimised); }, readPRC3DTess),
              "readTessFace: unhandled b_optimised color (not described in the spec, no reference)");
    EXPECT_EQ(messageOf([](PRCBitWriter& w) { w.writeUnsignedInteger(k3DTess); }, readTessFace),
              "unexpected type for PRCTessFace: expected 174, got 172");
    // Errors in the head of a section reach the caller.
    auto section = [](PRCBitReader& r) { readSection({r.data, r.data + r.size}, kNewest); };
    EXPECT_EQ(messageOf([](PRCBitWriter& w) { w.writeUnsignedInteger(kFileStructureTree); }, section),
              "unexpected type for FileStructureTessellation: expected 305, got 304");
    EXPECT_EQ(messageOf([](PRCBitWriter& w) { w.writeUnsignedInteger(kFileStructureTessellation), w.writeUnsignedInteger(1); },
                        section),
              "readEmptyContentPRCBase: unexpected attributes (non-empty section?)");
    WireTessFields wire{{}, {2, 0, 1}, true, false, false, true, {}};
    EXPECT_EQ(messageOf([&](PRCBitWriter& w) { writePRC3DWireTess(w, wire); }, readPRC3DWireTess),
              "readPRC3DWireTess: unhandled b_optimised color (no reference)");
    wire.b_optimised = false;
    wire.wire_indexes = {2, 0};
    EXPECT_EQ(messageOf([&](PRCBitWriter& w) { writePRC3DWireTess(w, wire); }, readPRC3DWireTess),
              "countWireColorEntries: wire_indexes not interpretable as polylines");

    const std::vector<uint32_t> two_lines = {2, 0, 1, 3, 4, 5, 6};
    EXPECT_EQ(countWireColorEntries(two_lines, false), 5u);
    EXPECT_EQ(countWireColorEntries(two_lines, true), 3u);
    // Counts are taken whole: a huge one does not wrap around into a fit.
    for (const std::vector<uint32_t>& bad : {std::vector<uint32_t>{0}, {1, 0, 0}, {0xFFFFFFFF, 1}})
        EXPECT_THROW(countWireColorEntries(bad, false), std::runtime_error);
}

// A plain tessellation with colours, a wire with colours, a compressed one, a
// markup and a plain square.
std::vector<PRCBitWriter> mixedTessellations(uint32_t version) {
    std::vector<PRCBitWriter> list(5);
    writePRC3DTess(list[0], version, richTess());
    writePRC3DWireTess(list[1], {{0, 0, 0, 1, 0, 0}, {2, 0, 3}, true, false, true, false, {1, 2, 3}});
    PRC3DTessCompressed c;
    c.point_array = {1, -2, 3, 4, 5, 6, 7, 8, 9};
    c.edge_status_array = {1, 2, 3, 0};
    c.triangle_face_array = {0, 1};
    c.normal_angle_number_of_bits = 5;
    c.normal_angle_array = {3, 31};
    c.face_has_single_normal = {true, false};
    c.style_array = {2, -1};
    writePRC3DTessCompressed(list[2], version, c, true, CompressedIgnoredBlock{{1, 2, 3, 4}, 5, {{3, 6}}, 0.5, {}, {}});
    writePRCMarkupTess(list[3]);
    writePRC3DTess(list[4], version, squareTess(10));
    return list;
}

TEST(ReadFileStructureTessellation, KeepsPlainAndCompressedRecordsWithTheirRefs) {
    for (uint32_t version : {kNewest, 7030u}) {  // the version reaches every reader
        SCOPED_TRACE(version);
        const std::vector<uint8_t> section = tessellationSection(mixedTessellations(version));
        ExactBytes exact(section, section.size());
        // A compressed record from elsewhere is already in the list: refs
        // count only the records of this call.
        std::vector<PRC3DTessCompressed> compressed(1);
        std::vector<TessellationRef> refs;
        const auto tess = readFileStructureTessellation(exact.data.get(), exact.size, 0, version, compressed, &refs);
        ASSERT_EQ(tess.size(), 2u);
        EXPECT_EQ(tess[0].faces[0].rgba_vertices, richTess().faces[0].rgba_vertices);
        EXPECT_EQ(tess[1].coordinates[0], 10.0);
        ASSERT_EQ(compressed.size(), 2u);
        EXPECT_EQ(compressed[1].style_array, (std::vector<int16_t>{2, -1}));
        const std::vector<std::pair<TessellationKind, int64_t>> expected = {
            {TessellationKind::Tess3D, 0}, {TessellationKind::Dropped, 0}, {TessellationKind::Compressed, 0},
            {TessellationKind::Dropped, 0}, {TessellationKind::Tess3D, 1}};
        ASSERT_EQ(refs.size(), expected.size());
        for (size_t i = 0; i < refs.size(); ++i) EXPECT_EQ(std::make_pair(refs[i].kind, refs[i].index), expected[i]);
    }
}

TEST(ReadFileStructureTessellation, AFailingOrUnknownTessellationEndsTheSectionQuietly) {
    Tess3DFields optimised = richTess();
    optimised.faces[1].has_vertex_colors = optimised.faces[1].b_optimised = true;
    PRC3DTessCompressed bad_normals;
    bad_normals.normal_angle_number_of_bits = 17;
    const std::pair<const char*, std::function<void(PRCBitWriter&)>> cases[] = {
        {"optimised colours in the second face", [&](PRCBitWriter& w) { writePRC3DTess(w, kNewest, optimised); }},
        {"compressed record in error", [&](PRCBitWriter& w) { writePRC3DTessCompressed(w, kNewest, bad_normals); }},
        {"face at the top level", [](PRCBitWriter& w) { w.writeUnsignedInteger(kTessFace); }},
        {"unknown type 0", [](PRCBitWriter& w) { w.writeUnsignedInteger(0); }},
        {"unknown type 177", [](PRCBitWriter& w) { w.writeUnsignedInteger(177); }},
    };
    for (const auto& [what, write] : cases) {
        SCOPED_TRACE(what);
        std::vector<PRCBitWriter> list = mixedTessellations(kNewest);
        list[2] = PRCBitWriter();
        write(list[2]);
        list[2].writeBits(0, 16);
        const SectionResult r = readSection(tessellationSection(list), kNewest);
        EXPECT_EQ(r.tessellations.size(), 1u);
        EXPECT_TRUE(r.compressed.empty());
        EXPECT_EQ(r.refs.size(), 2u);
    }
    // A count beyond the tessellations present ends at the end of the data.
    EXPECT_EQ(readSection(tessellationSection(mixedTessellations(kNewest), 9), kNewest).refs.size(), 5u);
}

// Every prefix of a valid section yields a prefix of the full result, and
// never reads past its own end.
}  // namespace
}  // namespace prc::test
