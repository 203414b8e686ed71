#pragma once
// Reading of highly compressed tessellations into their record; the mesh is
// rebuilt from it elsewhere.

#include <array>
#include <cstdint>
#include <vector>

#include "prc/io/bit_reader.h"

namespace prc {

using BitVector = std::vector<bool>;

struct PRC3DTessCompressed {
    bool is_calculated = false;      // the two leading Booleans, kept, unused
    bool leading_flag = false;
    double tolerance = 0.0;
    bool has_point_origin = false;
    std::array<float, 3> point_origin{0.0f, 0.0f, 0.0f};
    std::vector<int32_t> point_array;
    std::vector<uint8_t> edge_status_array;
    std::vector<int32_t> triangle_face_array;
    BitVector point_is_reference_array;
    std::vector<int32_t> point_reference_array;
    bool must_recalculate_normals = false;
    BitVector normal_is_reversed;
    double crease_angle = 0.0;
    uint8_t normal_angle_number_of_bits = 0;
    BitVector normal_binary_data;
    std::vector<uint16_t> normal_angle_array;
    BitVector face_has_single_normal;
    // Kept but used by no reader of the record.
    BitVector face_is_textured;
    std::vector<uint8_t> texture_data;
    bool style_per_triangle = false;
    BitVector triangle_style_bits;
    std::vector<int16_t> style_array;
    std::vector<uint8_t> trailing_data;
};

// Faces are max(triangle_face_array) + 1, negatives counting as -1; 0 when empty.
uint32_t compressedFaceCount(const std::vector<int32_t>& triangle_face_array);

PRC3DTessCompressed readPRC3DTessCompressed(PRCBitReader& r, uint32_t authoring_version);
BitVector readBooleanArray(PRCBitReader& r, uint32_t count);
uint32_t readUnsignedIntegerWithVariableBitNumber(PRCBitReader& r);

}  // namespace prc
