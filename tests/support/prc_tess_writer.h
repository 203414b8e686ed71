#pragma once
// Test-only writers of tessellation entities and whole tessellation sections,
// the mirror of the tessellation readers.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "prc/tess/compressed_tess_reading.h"
#include "tests/support/prc_bit_writer.h"

namespace prc::test {

// Colour rows: the first written whole, each later one as a repeat bit (set
// when the row equals the one before) and, when not repeated, its bytes.
void writeVertexColors(PRCBitWriter& w, const std::vector<uint8_t>& rows, uint32_t bytesPerRow);

// One face, with its fields as they are stored in the file.
struct TessFaceFields {
    std::vector<uint32_t> stored_line_attributes;  // style index + 1, 0 for none
    uint32_t ignored_value = 0;                    // the lone UnsignedInteger after them
    std::vector<uint32_t> skipped_values;          // the list that the reader steps over
    uint32_t used_entities_flag = 0x0002;
    uint32_t start = 0;                            // start in the index list (unused by the reader)
    std::vector<uint32_t> sizes_triangulated;
    uint32_t ignored_after_sizes = 0;
    bool has_vertex_colors = false;
    bool is_rgba = false;
    bool b_optimised = false;
    std::vector<uint8_t> rgba_vertices;  // 3 or 4 bytes per entry
    uint32_t final_value = 0;            // written only when there are line attributes
};
void writeTessFace(PRCBitWriter& w, const TessFaceFields& face);

struct Tess3DFields {
    std::vector<double> coordinates;
    bool has_faces_flag = false;  // the leading bit of the base, ignored by the reader
    bool ignored_flag = false;
    bool must_recalculate_normals = true;  // stored only above version 7046
    double crease_angle = 0.0;             // stored with must_recalculate_normals
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
    bool has_colors = false;
    bool is_rgba = false;
    bool is_segment_color = false;
    bool b_optimised = false;
    std::vector<uint8_t> colors;  // rows of 3 or 4 bytes
};
void writePRC3DWireTess(PRCBitWriter& w, const WireTessFields& wire);

struct MarkupTessFields {
    std::vector<double> coordinates;
    std::vector<uint32_t> codes;
    std::vector<std::string> texts;
    std::string label;
    uint8_t behaviour = 0;
};
void writePRCMarkupTess(PRCBitWriter& w, const MarkupTessFields& markup);

// The optional block near the end of a compressed tessellation that the reader
// steps over.
struct CompressedIgnoredBlock {
    std::vector<uint8_t> first_bytes;  // a multiple of four
    uint32_t value = 0;
    std::vector<std::pair<uint32_t, uint32_t>> variable_width_values;  // (width 0..31, value)
    double number = 0.0;
    std::vector<uint8_t> second_bytes;  // a multiple of four
    bool skip_face_bits = true;         // false: one bit per face follows
    std::vector<bool> face_bits;
};

// How the arrays of a compressed record are encoded: Huffman-coded where the
// format lets the writer choose, or plain.
struct CompressedTessEncoding {
    bool huffman = true;
    std::optional<CompressedIgnoredBlock> ignored_block;
    uint8_t ignored_byte = 0;  // the 8-bit field after the crease angle
};

// Writes the record's fields in reading order; the kept-but-unused fields are
// written when they are non-empty. The face count of the per-face bit arrays
// is the record's own vector length, so broken records can be built too.
void writePRC3DTessCompressed(PRCBitWriter& w, uint32_t authoring_version, const PRC3DTessCompressed& record,
                              const CompressedTessEncoding& encoding = {});

// Head of a tessellation section: type 305, empty content base, the count.
void writeTessellationSectionHead(PRCBitWriter& w, uint32_t count);

// A whole section of the given tessellations, each already written; the count
// defaults to their number.
std::vector<uint8_t> tessellationSection(const std::vector<PRCBitWriter>& tessellations,
                                         std::optional<uint32_t> count = std::nullopt);

// A small valid tessellation: a square of two triangles (one face, flags
// 0x0002), with the given corner coordinate offset so that records differ.
Tess3DFields squareTess(double offset = 0.0);

}  // namespace prc::test
