#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

#include "prc/entities/entity_framing.h"
#include "tests/prc/tess/tess_test_util.h"
#include "tests/support/prc_tess_writer.h"

namespace prc::test {
namespace {

constexpr uint32_t kNewest = 0xFFFFFFFF;

template <typename Read>
std::string messageOf(const PRCBitWriter& w, Read read) {
    WrittenReader in(w, kNewest);
    try {
        read(in.reader);
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "no error";
}

// Reads what was written followed by a sentinel byte, which the reader must
// leave untouched: every field read too many or too few shows there.
template <typename Record, typename Read>
Record readExactly(PRCBitWriter w, uint32_t version, Read read) {
    w.writeBits(0x5A, 8);
    WrittenReader in(w, version);
    Record record = read(in.reader);
    EXPECT_EQ(in.reader.readBits(8), 0x5Au);
    return record;
}

PRC3DTess readTess(const Tess3DFields& fields, uint32_t version) {
    PRCBitWriter w;
    writePRC3DTess(w, version, fields);
    return readExactly<PRC3DTess>(w, version, [](PRCBitReader& r) { return readPRC3DTess(r); });
}

PRCTessFace readFace(const TessFaceFields& fields) {
    PRCBitWriter w;
    writeTessFace(w, fields);
    return readExactly<PRCTessFace>(w, kNewest, [](PRCBitReader& r) { return readTessFace(r); });
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
    face.has_vertex_colors = true;
    face.is_rgba = true;
    face.rgba_vertices = {1, 2, 3, 4, 1, 2, 3, 4, 9, 8, 7, 6, 9, 8, 7, 6, 5, 5, 5, 5, 0, 0, 0, 255};
    face.final_value = 77;
    TessFaceFields fan;
    fan.used_entities_flag = 0x0004;
    fan.sizes_triangulated = {3};
    fields.faces.push_back(fan);
    return fields;
}

void expectSameTess(const PRC3DTess& a, const PRC3DTess& b) {
    EXPECT_EQ(a.coordinates, b.coordinates);
    EXPECT_EQ(a.normal_coordinates, b.normal_coordinates);
    EXPECT_EQ(a.triangulated_indices, b.triangulated_indices);
    EXPECT_EQ(a.must_recalculate_normals, b.must_recalculate_normals);
    ASSERT_EQ(a.faces.size(), b.faces.size());
    for (size_t i = 0; i < a.faces.size(); ++i) {
        EXPECT_EQ(a.faces[i].used_entities_flag, b.faces[i].used_entities_flag);
        EXPECT_EQ(a.faces[i].line_attributes, b.faces[i].line_attributes);
        EXPECT_EQ(a.faces[i].sizes_triangulated, b.faces[i].sizes_triangulated);
        EXPECT_EQ(a.faces[i].rgba_vertices, b.faces[i].rgba_vertices);
    }
}

TEST(ReadPRC3DTess, ReadsEveryFieldAndHonoursTheVersionThresholds) {
    const Tess3DFields fields = richTess();
    const PRC3DTess tess = readTess(fields, kNewest);
    EXPECT_EQ(tess.coordinates, fields.coordinates);
    EXPECT_EQ(tess.normal_coordinates, fields.normal_coordinates);
    EXPECT_EQ(tess.triangulated_indices, fields.triangulated_indices);
    EXPECT_FALSE(tess.must_recalculate_normals);
    ASSERT_EQ(tess.faces.size(), 2u);
    EXPECT_EQ(tess.faces[0].line_attributes, (std::vector<uint32_t>{2, 0xFFFFFFFF}));  // stored index + 1
    EXPECT_EQ(tess.faces[0].rgba_vertices, fields.faces[0].rgba_vertices);
    EXPECT_EQ(tess.faces[1].sizes_triangulated, (std::vector<uint32_t>{3}));

    // Up to 7038 no optional Boolean, to 7046 one ignored; from 7047 (and for
    // the unknown version, the top bit set) the normals flag with its angle.
    Tess3DFields versioned = squareTess();
    versioned.must_recalculate_normals = false;
    for (uint32_t version : {7000u, 7038u, 7039u, 7046u}) EXPECT_TRUE(readTess(versioned, version).must_recalculate_normals);
    for (uint32_t version : {7047u, 0x80000000u, kNewest}) EXPECT_FALSE(readTess(versioned, version).must_recalculate_normals);
    versioned.must_recalculate_normals = true;
    versioned.crease_angle = 0.25;
    EXPECT_EQ(readTess(versioned, 7047).crease_angle, 0.25);
    EXPECT_EQ(readTess(versioned, 7046).crease_angle, 0.0);
}

TEST(ReadTessFace, ColourCountFollowsTheGroupsAndTheClosingValueTheAttributes) {
    struct Case {
        uint32_t flags;
        std::vector<uint32_t> sizes;
        bool rgba;
        size_t entries;
    };
    const Case cases[] = {
        {0x0002, {2}, false, 6},     // triangles: three corners each
        {0x0004, {5, 4}, false, 9},  // fans: each vertex once
        {0x0008, {5, 4}, true, 9},   // strips, four bytes per entry
        {0x2000, {1, 1}, false, 6},  // a textured one-normal triangle variant
        {0x0006, {2}, false, 2},     // triangles and fans together: fans decide
        {0x0002, {}, false, 0},
    };
    for (const Case& c : cases) {
        TessFaceFields fields;
        fields.used_entities_flag = c.flags;
        fields.sizes_triangulated = c.sizes;
        fields.has_vertex_colors = true;
        fields.is_rgba = c.rgba;
        for (size_t i = 0; i < c.entries * (c.rgba ? 4 : 3); ++i) fields.rgba_vertices.push_back(uint8_t(i / 3 * 7));
        // Without line attributes the face has no closing value.
        EXPECT_EQ(readFace(fields).rgba_vertices, fields.rgba_vertices) << c.flags;
        fields.stored_line_attributes = {0, 5};
        EXPECT_EQ(readFace(fields).line_attributes, (std::vector<uint32_t>{0xFFFFFFFF, 4})) << c.flags;
    }
}

TEST(TessellationReaders, RaiseTheirMessages) {
    TessFaceFields face;
    face.sizes_triangulated = {1};
    face.has_vertex_colors = true;
    face.b_optimised = true;
    PRCBitWriter w;
    writeTessFace(w, face);
    EXPECT_EQ(messageOf(w, readTessFace),
              "readTessFace: unhandled b_optimised color (not described in the spec, no reference)");

    WireTessFields wire;
    wire.wire_indexes = {2, 0, 1};
    wire.has_colors = true;
    wire.b_optimised = true;
    PRCBitWriter w2;
    writePRC3DWireTess(w2, wire);
    EXPECT_EQ(messageOf(w2, readPRC3DWireTess), "readPRC3DWireTess: unhandled b_optimised color (no reference)");
    wire.b_optimised = false;
    wire.wire_indexes = {2, 0};
    PRCBitWriter w3;
    writePRC3DWireTess(w3, wire);
    EXPECT_EQ(messageOf(w3, readPRC3DWireTess), "countWireColorEntries: wire_indexes not interpretable as polylines");

    const std::vector<uint32_t> two_lines = {2, 0, 1, 3, 4, 5, 6};
    EXPECT_EQ(countWireColorEntries(two_lines, false), 5u);
    EXPECT_EQ(countWireColorEntries(two_lines, true), 3u);
    EXPECT_EQ(countWireColorEntries({}, true), 0u);
    // Counts are taken whole: a huge one does not wrap around into a fit.
    for (const std::vector<uint32_t>& bad : {std::vector<uint32_t>{0}, {1, 0, 0}, {0xFFFFFFFF, 1}})
        EXPECT_THROW(countWireColorEntries(bad, false), std::runtime_error);
}

// --- whole sections ---------------------------------------------------------------

PRC3DTessCompressed smallCompressed() {
    PRC3DTessCompressed c;
    c.tolerance = 0.001;
    c.point_array = {1, -2, 3, 4, 5, 6, 7, 8, 9};
    c.edge_status_array = {1, 2, 3, 0};
    c.triangle_face_array = {0, 1};
    c.point_is_reference_array = {false, true, true, true, true};
    c.point_reference_array = {0, 1, 0, 2};
    c.must_recalculate_normals = false;
    c.normal_angle_number_of_bits = 5;
    c.normal_binary_data = {true, false};
    c.normal_angle_array = {3, 31};
    c.face_has_single_normal = {true, false};
    c.style_array = {2, -1};
    return c;
}

// A plain tessellation with colours, a wire with colours, a compressed one, a
// markup and a plain square.
std::vector<PRCBitWriter> mixedTessellations(uint32_t version) {
    std::vector<PRCBitWriter> list(5);
    writePRC3DTess(list[0], version, richTess());
    WireTessFields wire;
    wire.coordinates = {0, 0, 0, 1, 0, 0};
    wire.wire_indexes = {2, 0, 3};
    wire.has_colors = wire.is_segment_color = true;
    wire.colors = {1, 2, 3};
    writePRC3DWireTess(list[1], wire);
    CompressedTessEncoding encoding;
    encoding.ignored_block = CompressedIgnoredBlock{{1, 2, 3, 4}, 5, {{3, 6}}, 0.5, {}, false, {true, true}};
    writePRC3DTessCompressed(list[2], version, smallCompressed(), encoding);
    MarkupTessFields markup;
    markup.coordinates = {1, 2, 3};
    markup.codes = {4, 0x80000000u};
    markup.texts = {"note", ""};
    markup.label = "label";
    writePRCMarkupTess(list[3], markup);
    writePRC3DTess(list[4], version, squareTess(10));
    return list;
}

TEST(ReadFileStructureTessellation, KeepsPlainAndCompressedRecordsWithTheirRefs) {
    const std::vector<uint8_t> section = tessellationSection(mixedTessellations(kNewest));
    ExactBytes exact(section);
    // A compressed record from elsewhere is already in the list: refs count
    // only the records of this call.
    std::vector<PRC3DTessCompressed> compressed(1);
    std::vector<TessellationRef> refs;
    const auto tess = readFileStructureTessellation(exact.data(), exact.size(), 0, kNewest, compressed, &refs);
    ASSERT_EQ(tess.size(), 2u);
    expectSameTess(tess[0], readTess(richTess(), kNewest));
    EXPECT_EQ(tess[1].coordinates[0], 10.0);
    ASSERT_EQ(compressed.size(), 2u);
    EXPECT_EQ(compressed[1].style_array, smallCompressed().style_array);
    const std::vector<std::pair<TessellationKind, int64_t>> expected = {{TessellationKind::Tess3D, 0},
                                                                        {TessellationKind::Dropped, 0},
                                                                        {TessellationKind::Compressed, 0},
                                                                        {TessellationKind::Dropped, 0},
                                                                        {TessellationKind::Tess3D, 1}};
    ASSERT_EQ(refs.size(), expected.size());
    for (size_t i = 0; i < refs.size(); ++i) EXPECT_EQ(std::make_pair(refs[i].kind, refs[i].index), expected[i]) << i;

    // No list of refs, and the version handed to every reader: written for
    // 7030, the records carry neither optional Booleans nor an origin.
    std::vector<PRC3DTessCompressed> old;
    const std::vector<uint8_t> old_section = tessellationSection(mixedTessellations(7030));
    EXPECT_EQ(readFileStructureTessellation(old_section.data(), old_section.size(), 0, 7030, old, nullptr).size(), 2u);
    ASSERT_EQ(old.size(), 1u);
    EXPECT_FALSE(old[0].has_point_origin);

    PRCBitWriter empty;
    writeTessellationSectionHead(empty, 0);
    const SectionResult none = readSection(empty.bytes(), kNewest);
    EXPECT_TRUE(none.tessellations.empty() && none.compressed.empty() && none.refs.empty());
}

TEST(ReadFileStructureTessellation, AFailingOrUnknownTessellationEndsTheSectionQuietly) {
    struct Case {
        const char* what;
        size_t position;  // replaced tessellation
        std::function<void(PRCBitWriter&)> write;
    };
    Tess3DFields optimised = richTess();
    optimised.faces[1].has_vertex_colors = optimised.faces[1].b_optimised = true;
    PRC3DTessCompressed bad_normals = smallCompressed();
    bad_normals.normal_angle_number_of_bits = 17;
    const Case cases[] = {
        {"optimised colours in the second face", 2, [&](PRCBitWriter& w) { writePRC3DTess(w, kNewest, optimised); }},
        {"compressed record in error", 2, [&](PRCBitWriter& w) { writePRC3DTessCompressed(w, kNewest, bad_normals); }},
        {"face at the top level", 2, [](PRCBitWriter& w) { w.writeUnsignedInteger(kTessFace); }},
        {"unknown type 0", 2, [](PRCBitWriter& w) { w.writeUnsignedInteger(0); }},
        {"unknown type 177", 2, [](PRCBitWriter& w) { w.writeUnsignedInteger(177); }},
    };
    for (const Case& c : cases) {
        std::vector<PRCBitWriter> list = mixedTessellations(kNewest);
        list[c.position] = PRCBitWriter();
        c.write(list[c.position]);
        list[c.position].writeBits(0, 16);
        const SectionResult r = readSection(tessellationSection(list), kNewest);
        EXPECT_EQ(r.tessellations.size(), 1u) << c.what;
        EXPECT_TRUE(r.compressed.empty()) << c.what;
        EXPECT_EQ(r.refs.size(), 2u) << c.what;
    }
    // A count beyond the tessellations present ends at the end of the data.
    EXPECT_EQ(readSection(tessellationSection(mixedTessellations(kNewest), 9), kNewest).refs.size(), 5u);
}

TEST(ReadFileStructureTessellation, ErrorsInTheHeadReachTheCaller) {
    PRCBitWriter wrong_type;
    wrong_type.writeUnsignedInteger(kFileStructureTree);
    EXPECT_THROW(readSection(wrong_type.bytes(), kNewest), std::runtime_error);
    PRCBitWriter attributes;
    attributes.writeUnsignedInteger(kFileStructureTessellation);
    attributes.writeUnsignedInteger(1);
    EXPECT_THROW(readSection(attributes.bytes(), kNewest), std::runtime_error);
}

// Every prefix of a valid section yields a prefix of the full result, and
// never reads past its own end (the copy is exactly sized for the sanitizers).
TEST(ReadFileStructureTessellation, EveryPrefixYieldsAPrefixOfTheResult) {
    const std::vector<uint8_t> section = tessellationSection(mixedTessellations(kNewest));
    const SectionResult full = readSection(section, kNewest);
    ASSERT_EQ(full.refs.size(), 5u);
    size_t head_failures = 0;
    for (size_t length = 0; length <= section.size(); ++length) {
        SectionResult part;
        try {
            part = readSection(section, kNewest, length);
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "PRCBitReader: read past end");
            ++head_failures;
            continue;
        }
        ASSERT_LE(part.refs.size(), full.refs.size());
        for (size_t i = 0; i < part.refs.size(); ++i) EXPECT_EQ(part.refs[i].kind, full.refs[i].kind);
        ASSERT_LE(part.tessellations.size(), full.tessellations.size());
        for (size_t i = 0; i < part.tessellations.size(); ++i) expectSameTess(part.tessellations[i], full.tessellations[i]);
        ASSERT_LE(part.compressed.size(), full.compressed.size());
        if (length == section.size()) {
            EXPECT_EQ(part.refs.size(), 5u);
        }
    }
    EXPECT_LE(head_failures, 4u);  // only the bytes of the head
}

}  // namespace
}  // namespace prc::test
