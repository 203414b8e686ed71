#pragma once
// Test-only writers of tessellation entities and whole tessellation sections,
// the mirror of the tessellation readers.

#include <cstdint>
#include <optional>
#include <vector>

#include "prc/tess/compressed_tess_reading.h"
#include "tests/support/prc_bit_writer.h"

namespace prc::test {

// One face; the values that the reader ignores are written as 0.
struct TessFaceFields {
    std::vector<uint32_t> stored_line_attributes;  // style index + 1, 0 for none
    std::vector<uint32_t> skipped_values;          // the list that the reader steps over
    uint32_t used_entities_flag = 0x0002;
    std::vector<uint32_t> sizes_triangulated;
    bool has_vertex_colors = false, is_rgba = false, b_optimised = false;
    std::vector<uint8_t> rgba_vertices;  // 3 or 4 bytes per entry
    uint32_t start_triangulated = 0;
};

struct Tess3DFields {
    std::vector<double> coordinates;
    bool must_recalculate_normals = true;  // stored only above version 7046, with the crease angle
    double crease_angle = 0.0;
    std::vector<double> normal_coordinates;
    std::vector<uint32_t> skipped_indices;
    std::vector<uint32_t> triangulated_indices;
    std::vector<TessFaceFields> faces;
    std::vector<double> trailing_doubles;
};
// Fields that depend on the version are written as the reader of that version expects them.
void writePRC3DTess(PRCBitWriter& w, uint32_t authoring_version, const Tess3DFields& tess);

struct WireTessFields {
    std::vector<double> coordinates;
    std::vector<uint32_t> wire_indexes;
    bool has_colors = false, is_rgba = false, is_segment_color = false, b_optimised = false;
    std::vector<uint8_t> colors;  // rows of 3 or 4 bytes
};
void writePRC3DWireTess(PRCBitWriter& w, const WireTessFields& wire);

// A markup of one point, two codes, two texts and a label.
void writePRCMarkupTess(PRCBitWriter& w);

// The optional block near the end of a compressed tessellation that the reader steps over.
struct CompressedIgnoredBlock {
    std::vector<uint8_t> first_bytes;  // a multiple of four
    uint32_t value = 0;
    std::vector<std::pair<uint32_t, uint32_t>> variable_width_values;  // (width 0..31, value)
    double number = 0.0;
    std::vector<uint8_t> second_bytes;           // a multiple of four
    std::optional<std::vector<bool>> face_bits;  // nullopt: the skip bit is set
};

// Writes the record's fields in reading order, its arrays Huffman-coded where
// the format lets the writer choose (or plain). The per-face bit arrays are
// written as they are, so broken records can be built too.
void writePRC3DTessCompressed(PRCBitWriter& w, uint32_t authoring_version, const PRC3DTessCompressed& record,
                              bool huffman = true, const std::optional<CompressedIgnoredBlock>& block = {});

// Head of a tessellation section: type 305, empty content base, the count.
void writeTessellationSectionHead(PRCBitWriter& w, uint32_t count);

// A whole section of the given tessellations; the count defaults to their number.
std::vector<uint8_t> tessellationSection(const std::vector<PRCBitWriter>& tessellations,
                                         std::optional<uint32_t> count = std::nullopt);

// A square of two triangles (one face, flags 0x0002) at x offset.
Tess3DFields squareTess(double offset = 0.0);

}  // namespace prc::test
