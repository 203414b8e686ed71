// Tessellations built bit by bit where the real files of the test data cannot
// reach: versions before theirs, wires and faces with colours, compressed
// records with recalculated normals, textures or the block the reader steps
// over; every message; sections that stop at a failure.

#include <gtest/gtest.h>

#include <string>

#include "prc/tess/tessellation_section.h"
#include "tests/support/prc_builder.h"

namespace prc::test {
namespace {

constexpr uint32_t kNewest = 0xFFFFFFFF;

// n colour rows of `bytes` bytes: the first whole, the others repeating it.
std::string colours(int n, int bytes) {
    std::string s;
    for (int i = 0; i < bytes; ++i) s += " c" + std::to_string(7 * i);
    for (int i = 1; i < n; ++i) s += " b1";
    return s;
}

// A face of triangles (flags 2) over sizes, with colours when given; line
// attributes bring a closing value after the face.
std::string face(const std::string& flagsAndSizes = " u2 u0 u1 u1", const std::string& colourBits = " b0",
                 const std::string& attributes = " u0") {
    return " u174" + attributes + " u0 u0" + flagsAndSizes + " u0" + colourBits + (attributes == " u0" ? "" : " u0");
}

// A plain tessellation of one vertex and one face, as the version writes it.
std::string plain(uint32_t version, const std::string& faces = face()) {
    std::string s = " u172 b0 u3 d3 b0";
    if (version > 7038) s += " b0";
    if (version > 7046) s += " b1 c0 f0.25";
    return s + " u0 u0 u3 u0 u0 u0 u1" + faces + " u0";
}

// A compressed record with plain arrays: no points, two triangles of faces 0
// and 2 (three faces), no references; then its normals and its tail.
std::string compressed(uint32_t version, const std::string& normals = " b1 b10 f0.5 c0",
                       const std::string& tail = " b0 b0 b0 u0 b1 b0") {
    std::string s = " u173 b1 b0 f0.002";
    for (int i = 0; version > 7030 && i < 12; ++i) s += " c" + std::to_string(i);  // the origin
    return s + " b0 u0 b0 u0 b0 u2 c1 c2 b0 b010 u0 u0" + normals + tail;
}
// Encoded normals: 10 bits each, three bits of data, one angle, a
// single-normal bit per face.
const std::string kEncoded = " b0 c10 u3 b101 b0 u1 c7 c0 b101";

std::string section(const std::string& records, uint32_t count) {
    return "u305 u0 b00 u" + std::to_string(count) + records;
}

TEST(TessellationReaders, ReadToTheLastBit) {
    const auto tess = [](PRCBitReader& r) { readPRC3DTess(r); };
    const auto wire = [](PRCBitReader& r) { readPRC3DWireTess(r); };
    const auto record = [](PRCBitReader& r) { readPRC3DTessCompressed(r, r.version); };
    // Colour entries follow the groups: a triangle three, fans and strips one
    // per vertex after their count of groups; rows of four bytes for RGBA.
    const std::tuple<std::function<void(PRCBitReader&)>, uint32_t, std::string> cases[] = {
        {tess, 7038, plain(7038)}, {tess, 7039, plain(7039)}, {tess, 7046, plain(7046)}, {tess, 7047, plain(7047)},
        {tess, kNewest, plain(kNewest, face(" u2 u0 u1 u2", " b1 b0 b0" + colours(6, 3), " u2 u0 u5"))},
        {tess, kNewest, plain(kNewest, face(" u4 u0 u3 u2 u5 u4", " b1 b0 b0" + colours(9, 3)))},
        {tess, kNewest, plain(kNewest, face(" u8 u0 u3 u2 u5 u4", " b1 b1 b0" + colours(9, 4)))},
        {tess, kNewest, plain(kNewest, face(" u8192 u0 u1 u2", " b1 b0 b0" + colours(6, 3)))},
        {tess, kNewest, plain(kNewest, face(" u14 u0 u6 u2 u1 u4 u2 u3 u5", " b1 b0 b0" + colours(18, 3)))},
        {tess, kNewest, plain(kNewest, face(" u8 u0 u2 u3 u4", " b1 b0 b0" + colours(4, 3)))},  // groups past the list
        {tess, kNewest, plain(kNewest, face(" u2 u0 u0", " b1 b0 b0"))},
        {wire, kNewest, " u175 b0 u0 u7 u2 u0 u1 u3 u4 u5 u6 b1 b0 b0 b0" + colours(5, 3)},  // two lines, per vertex
        {wire, kNewest, " u175 b0 u0 u7 u2 u0 u1 u3 u4 u5 u6 b1 b1 b1 b0" + colours(3, 4)},  // per segment
        {[](PRCBitReader& r) { readPRCMarkupTess(r); }, kNewest, " u176 b0 u3 d3 u2 u4 u2147483648 u2 snote s slabel c0"},
        {record, 7030, compressed(7030)}, {record, 7031, compressed(7031)},
        {record, kNewest, compressed(kNewest, kEncoded, " b1 b010 b0 u1 c9 b1 b110 b0 u1 c1 c0 b1 b1 b0 u2 c1 c2")},
        // The block the reader steps over, once with every part; then
        // 0x40000001 runs of four bytes, which a 32-bit product wraps to one.
        {record, kNewest, compressed(kNewest, kEncoded, " b0 b0 b0 u0 b0 u1 c1 c2 c3 c4 u5 u2 b00011 b101 b00000 f0.5 u0 b0 b101 b0")},
        {record, kNewest, compressed(kNewest, kEncoded, " b0 b0 b0 u0 b0 u1073741825 c9 c9 c9 c9 u0 u0 f0 u0 b1 b0")},
    };
    for (const auto& [read, version, layout] : cases) EXPECT_EQ(readLayout(layout, version, read), "") << layout;

    // What the versions decide: the normals flag from 7047, the origin from 7031.
    for (uint32_t version : {7046u, 7047u}) {
        PRC3DTess t;
        readLayout(plain(version), version, [&](PRCBitReader& r) { t = readPRC3DTess(r); });
        EXPECT_EQ(std::pair(t.must_recalculate_normals, t.crease_angle), version > 7046 ? std::pair(true, 0.25) : std::pair(true, 0.0));
    }
    for (uint32_t version : {7030u, 7031u}) {
        PRC3DTessCompressed c;
        readLayout(compressed(version), version, [&](PRCBitReader& r) { c = readPRC3DTessCompressed(r, version); });
        EXPECT_EQ(std::tuple(c.has_point_origin, c.point_origin[2], c.triangle_face_array, c.normal_is_reversed),
                  std::tuple(version > 7030, version > 7030 ? std::bit_cast<float>(0x0B0A0908u) : 0.0f,
                             std::vector<int32_t>{0, 2}, BitVector{true, false}));
    }
    const std::pair<std::vector<int32_t>, uint32_t> faces[] = {{{}, 0}, {{0, 2, 2}, 3}, {{-5}, 0}, {{-1, 4, -7}, 5}, {{0x7FFFFFFF}, 0x80000000u}};
    for (const auto& [list, count] : faces) EXPECT_EQ(compressedFaceCount(list), count);
}

TEST(TessellationReaders, RaiseTheirMessages) {
    const auto tess = [](PRCBitReader& r) { readPRC3DTess(r); };
    const auto wire = [](PRCBitReader& r) { readPRC3DWireTess(r); };
    const auto record = [](PRCBitReader& r) { readPRC3DTessCompressed(r, r.version); };
    const auto inSection = [](PRCBitReader& r) {
        std::vector<PRC3DTessCompressed> c;
        readFileStructureTessellation(r.data, r.size, kNewest, kNewest, c, nullptr);
    };
    const std::string polylines = "countWireColorEntries: wire_indexes not interpretable as polylines";
    const std::string bits = "readPRC3DTessCompressed: normal_angle_number_of_bits out of range";
    const std::tuple<std::function<void(PRCBitReader&)>, std::string, std::string> cases[] = {
        {tess, plain(kNewest, face(" u2 u0 u1 u2", " b1 b0 b1")),
         "readTessFace: unhandled b_optimised color (not described in the spec, no reference)"},
        {[](PRCBitReader& r) { readTessFace(r); }, "u172", "unexpected type for PRCTessFace: expected 174, got 172"},
        // Groups of 2^32 - 1 and 3 vertices: a colour count that 32 bits would wrap to 2.
        {tess, plain(kNewest, face(" u8 u0 u3 u2 u4294967295 u3", " b1 b0 b0" + colours(2, 3))), "PRCBitReader: read past end"},
        {wire, " u175 b0 u0 u3 u2 u0 u1 b1 b0 b0 b1", "readPRC3DWireTess: unhandled b_optimised color (no reference)"},
        {wire, " u175 b0 u0 u2 u2 u0 b1 b0 b0 b0", polylines},
        {wire, " u175 b0 u0 u1 u0 b1 b0 b0 b0", polylines},
        {wire, " u175 b0 u0 u3 u1 u0 u0 b1 b0 b0 b0", polylines},
        {wire, " u175 b0 u0 u2 u4294967295 u1 b1 b0 b0 b0", polylines},
        {record, compressed(kNewest, " b0 c0 u0"), bits},
        {record, compressed(kNewest, " b0 c17 u0"), bits},
        {record, compressed(kNewest, " b0 c255 u0"), bits},
        {inSection, "u304", "unexpected type for FileStructureTessellation: expected 305, got 304"},
        {inSection, "u305 u1", "readEmptyContentPRCBase: unexpected attributes (non-empty section?)"},
    };
    for (const auto& [read, layout, message] : cases) EXPECT_EQ(readLayout(layout, kNewest, read), message) << layout;
}

// Plain, wire, compressed, markup and plain records: the refs name the
// plain ones by their place and the compressed ones by their place among
// this section's (a record from elsewhere is already in the list). A
// failing or unknown record ends the section quietly, keeping what came before.
TEST(TessellationReaders, SectionsKeepTheirRecordsWithTheirRefs) {
    const std::string wire = " u175 b0 u0 u3 u2 u0 u1 b0", markup = " u176 b0 u0 u0 u0 b0 c0";
    const auto read = [](const std::string& layout) {
        std::vector<PRC3DTessCompressed> compressed(1);
        std::vector<TessellationRef> refs;
        std::vector<PRC3DTess> plainOnes;
        readLayout(layout, kNewest, [&](PRCBitReader& r) {
            plainOnes = readFileStructureTessellation(r.data, r.size, kNewest, kNewest, compressed, &refs);
        });
        std::string kinds;
        for (const TessellationRef& ref : refs) kinds += "DTC"[int(ref.kind)] + std::to_string(ref.index);
        return std::tuple(plainOnes.size(), compressed.size() - 1, kinds);
    };
    const std::string records = plain(kNewest) + wire + compressed(kNewest) + markup + plain(kNewest);
    EXPECT_EQ(read(section(records, 5)), std::tuple(2u, 1u, std::string("T0D0C0D0T1")));
    EXPECT_EQ(read(section(records, 9)), std::tuple(2u, 1u, std::string("T0D0C0D0T1")));  // a count beyond them
    for (const std::string& broken : {plain(kNewest, face() + face(" u2 u0 u1 u1", " b1 b0 b1")), compressed(kNewest, " b0 c17 u0"),
                                      std::string(" u174"), std::string(" u0"), std::string(" u177")})
        EXPECT_EQ(read(section(plain(kNewest) + wire + broken + " c0 c0" + plain(kNewest), 4)), std::tuple(1u, 0u, std::string("T0D0")))
            << broken;
}

}  // namespace
}  // namespace prc::test
