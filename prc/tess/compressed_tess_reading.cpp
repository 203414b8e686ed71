#include "prc/tess/compressed_tess_reading.h"

#include <algorithm>
#include <bit>
#include <stdexcept>

#include "prc/entities/entity_framing.h"
#include "prc/io/compressed_arrays.h"

namespace prc {

namespace {

[[noreturn]] void readPastEnd() { throw std::runtime_error("PRCBitReader: read past end"); }

// Steps over a run of 8-bit fields that nothing keeps, failing as the
// field-by-field reading would when the section ends inside it.
void skipBytes(PRCBitReader& r, uint32_t count) {
    const uint64_t bits = uint64_t(count) * 8;
    if (bits > r.bitsRemaining()) readPastEnd();
    r.seekBit(r.bitIndex() + bits);
}

// A 32-bit float whose bit pattern comes least significant byte first.
float readFloatLsbFirst(PRCBitReader& r) {
    uint32_t pattern = 0;
    for (int i = 0; i < 4; ++i) pattern |= r.readBits(8) << (8 * i);
    return std::bit_cast<float>(pattern);
}

void skipUnusedBlock(PRCBitReader& r, uint32_t faces) {
    skipBytes(r, 4u * r.readUnsignedInteger());
    r.readUnsignedInteger();
    const uint32_t q = r.readUnsignedInteger();
    for (uint32_t i = 0; i < q; ++i) readUnsignedIntegerWithVariableBitNumber(r);
    r.readDouble();
    skipBytes(r, 4u * r.readUnsignedInteger());
    if (!r.readBoolean()) readBooleanArray(r, faces);
}

}  // namespace

uint32_t compressedFaceCount(const std::vector<int32_t>& triangle_face_array) {
    int64_t highest = -1;
    for (int32_t face : triangle_face_array) highest = std::max<int64_t>(highest, face);
    return uint32_t(highest + 1);
}

BitVector readBooleanArray(PRCBitReader& r, uint32_t count) { return r.readBooleans(count); }

// A width of five bits is at most 31: every value fits one readBits call.
uint32_t readUnsignedIntegerWithVariableBitNumber(PRCBitReader& r) { return r.readBits(int(r.readBits(5))); }

PRC3DTessCompressed readPRC3DTessCompressed(PRCBitReader& r, uint32_t authoring_version) {
    readExpectedType(r, k3DTessCompressed, "PRC3DTessCompressed");
    PRC3DTessCompressed t;
    t.is_calculated = r.readBoolean();
    t.leading_flag = r.readBoolean();
    t.tolerance = r.readDouble();
    if (authoring_version > 7030) {
        t.has_point_origin = true;
        for (float& c : t.point_origin) c = readFloatLsbFirst(r);
    }
    t.point_array = readCompressedIntegerArray(r);
    t.edge_status_array = readCharacterArray(r, 2, true, true, false);
    t.triangle_face_array = readCompressedIndiceArray(r, true, 6, true);
    const uint32_t faces = compressedFaceCount(t.triangle_face_array);

    t.point_is_reference_array = readBooleanArray(r, r.readUnsignedInteger());
    // The references carry no compression bit: they are Huffman-coded exactly
    // when there are more than three of them.
    const auto references = std::count(t.point_is_reference_array.begin(), t.point_is_reference_array.end(), true);
    t.point_reference_array = readCompressedIndiceArray(r, false, 6, references > 3);

    t.must_recalculate_normals = r.readBoolean();
    if (t.must_recalculate_normals) {
        t.normal_is_reversed = readBooleanArray(r, uint32_t(t.triangle_face_array.size()));
        t.crease_angle = r.readDouble();
        r.readBits(8);
    } else {
        t.normal_angle_number_of_bits = uint8_t(r.readBits(8));
        t.normal_binary_data = readBooleanArray(r, r.readUnsignedInteger());
        if (t.normal_angle_number_of_bits == 0 || t.normal_angle_number_of_bits > 16)
            throw std::runtime_error("readPRC3DTessCompressed: normal_angle_number_of_bits out of range");
        t.normal_angle_array = readShortArray(r, t.normal_angle_number_of_bits, true, true, false);
        t.face_has_single_normal = readBooleanArray(r, faces);
    }

    if (r.readBoolean()) {
        t.face_is_textured = readBooleanArray(r, faces);
        t.texture_data = readCharacterArray(r, 8, true, true, false);
    }
    t.style_per_triangle = r.readBoolean();
    if (t.style_per_triangle) t.triangle_style_bits = readBooleanArray(r, faces);
    const std::vector<uint16_t> styles = readShortArray(r, 16, true, true, false);
    t.style_array.assign(styles.begin(), styles.end());

    if (!r.readBoolean()) skipUnusedBlock(r, faces);
    if (r.readBoolean()) t.trailing_data = readCharacterArray(r, 8, true, true, false);
    return t;
}

}  // namespace prc
