#include "tests/support/prc_tess_writer.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "prc/entities/entity_framing.h"

namespace prc::test {

namespace {

template <typename T>
void writeList(PRCBitWriter& w, const std::vector<T>& values) {
    w.writeUnsignedInteger(uint32_t(values.size()));
    for (T v : values) {
        if constexpr (std::is_same_v<T, double>)
            w.writeDouble(v);
        else
            w.writeUnsignedInteger(v);
    }
}

void writeBitsOf(PRCBitWriter& w, const std::vector<bool>& bits) {
    for (bool b : bits) w.writeBit(b);
}

void writeBytes(PRCBitWriter& w, const std::vector<uint8_t>& bytes) {
    for (uint8_t b : bytes) w.writeCharacter(b);
}

// The first row whole, each later one as a repeat bit and, when not repeated, its bytes.
void writeVertexColors(PRCBitWriter& w, const std::vector<uint8_t>& rows, uint32_t bytesPerRow) {
    for (size_t at = 0; at < rows.size(); at += bytesPerRow) {
        if (at > 0) {
            const bool repeat = std::memcmp(&rows[at], &rows[at - bytesPerRow], bytesPerRow) == 0;
            w.writeBit(repeat);
            if (repeat) continue;
        }
        for (uint32_t b = 0; b < bytesPerRow; ++b) w.writeCharacter(rows[at + b]);
    }
}

void writeTessFace(PRCBitWriter& w, const TessFaceFields& face) {
    w.writeUnsignedInteger(kTessFace);
    writeList(w, face.stored_line_attributes);
    w.writeUnsignedInteger(0);
    writeList(w, face.skipped_values);
    w.writeUnsignedInteger(face.used_entities_flag);
    w.writeUnsignedInteger(face.start_triangulated);
    writeList(w, face.sizes_triangulated);
    w.writeUnsignedInteger(0);
    w.writeBit(face.has_vertex_colors);
    if (face.has_vertex_colors) {
        w.writeBit(face.is_rgba);
        w.writeBit(face.b_optimised);
        if (!face.b_optimised) writeVertexColors(w, face.rgba_vertices, face.is_rgba ? 4 : 3);
    }
    if (!face.stored_line_attributes.empty()) w.writeUnsignedInteger(0);
}

}  // namespace

void writePRC3DTess(PRCBitWriter& w, uint32_t authoring_version, const Tess3DFields& tess) {
    w.writeUnsignedInteger(k3DTess);
    w.writeBit(false);
    writeList(w, tess.coordinates);
    w.writeBit(false);
    if (authoring_version > 7038) w.writeBit(false);
    if (authoring_version > 7046) {
        w.writeBit(tess.must_recalculate_normals);
        if (tess.must_recalculate_normals) {
            w.writeBits(0, 8);
            w.writeDouble(tess.crease_angle);
        }
    }
    writeList(w, tess.normal_coordinates);
    writeList(w, tess.skipped_indices);
    writeList(w, tess.triangulated_indices);
    w.writeUnsignedInteger(uint32_t(tess.faces.size()));
    for (const TessFaceFields& face : tess.faces) writeTessFace(w, face);
    writeList(w, tess.trailing_doubles);
}

void writePRC3DWireTess(PRCBitWriter& w, const WireTessFields& wire) {
    w.writeUnsignedInteger(k3DWireTess);
    w.writeBit(false);
    writeList(w, wire.coordinates);
    writeList(w, wire.wire_indexes);
    w.writeBit(wire.has_colors);
    if (!wire.has_colors) return;
    for (bool b : {wire.is_rgba, wire.is_segment_color, wire.b_optimised}) w.writeBit(b);
    if (!wire.b_optimised) writeVertexColors(w, wire.colors, wire.is_rgba ? 4 : 3);
}

void writePRCMarkupTess(PRCBitWriter& w) {
    w.writeUnsignedInteger(kMarkupTess);
    w.writeBit(false);
    writeList(w, std::vector<double>{1, 2, 3});
    writeList(w, std::vector<uint32_t>{4, 0x80000000u});
    w.writeUnsignedInteger(2);
    for (const char* text : {"note", "", "label"}) w.writeString(text);
    w.writeBits(0, 8);
}

void writePRC3DTessCompressed(PRCBitWriter& w, uint32_t authoring_version, const PRC3DTessCompressed& record,
                              bool huffman, const std::optional<CompressedIgnoredBlock>& block) {
    w.writeUnsignedInteger(k3DTessCompressed);
    w.writeBit(record.is_calculated);
    w.writeBit(record.leading_flag);
    w.writeDouble(record.tolerance);
    if (authoring_version > 7030)  // least significant byte first
        for (float c : record.point_origin)
            for (int i = 0; i < 4; ++i) w.writeBits((std::bit_cast<uint32_t>(c) >> (8 * i)) & 0xFF, 8);
    w.writeCompressedIntegerArray(record.point_array, huffman);
    w.writeCharacterArray(record.edge_status_array, huffman, true, 2);
    w.writeCompressedIndiceArray(record.triangle_face_array, huffman, true, 6);
    w.writeUnsignedInteger(uint32_t(record.point_is_reference_array.size()));
    writeBitsOf(w, record.point_is_reference_array);
    const auto references =
        std::count(record.point_is_reference_array.begin(), record.point_is_reference_array.end(), true);
    w.writeCompressedIndiceArray(record.point_reference_array, references > 3, false, 6);
    w.writeBit(record.must_recalculate_normals);
    if (record.must_recalculate_normals) {
        writeBitsOf(w, record.normal_is_reversed);
        w.writeDouble(record.crease_angle);
        w.writeBits(0, 8);
    } else {
        const uint8_t bits = record.normal_angle_number_of_bits;
        w.writeBits(bits, 8);
        w.writeUnsignedInteger(uint32_t(record.normal_binary_data.size()));
        writeBitsOf(w, record.normal_binary_data);
        w.writeShortArray(record.normal_angle_array, huffman, true, bits >= 1 && bits <= 16 ? bits : 16);
        writeBitsOf(w, record.face_has_single_normal);
    }
    const bool textured = !record.face_is_textured.empty() || !record.texture_data.empty();
    w.writeBit(textured);
    if (textured) {
        writeBitsOf(w, record.face_is_textured);
        w.writeCharacterArray(record.texture_data, huffman, true, 8);
    }
    w.writeBit(record.style_per_triangle);
    if (record.style_per_triangle) writeBitsOf(w, record.triangle_style_bits);
    w.writeShortArray(std::vector<uint16_t>(record.style_array.begin(), record.style_array.end()), huffman, true, 16);
    w.writeBit(!block);
    if (block) {
        w.writeUnsignedInteger(uint32_t(block->first_bytes.size() / 4));
        writeBytes(w, block->first_bytes);
        w.writeUnsignedInteger(block->value);
        w.writeUnsignedInteger(uint32_t(block->variable_width_values.size()));
        for (auto [width, value] : block->variable_width_values) {
            w.writeBits(width, 5);
            w.writeBits(value, int(width));
        }
        w.writeDouble(block->number);
        w.writeUnsignedInteger(uint32_t(block->second_bytes.size() / 4));
        writeBytes(w, block->second_bytes);
        w.writeBit(!block->face_bits);
        if (block->face_bits) writeBitsOf(w, *block->face_bits);
    }
    w.writeBit(!record.trailing_data.empty());
    if (!record.trailing_data.empty()) w.writeCharacterArray(record.trailing_data, huffman, true, 8);
}

void writeTessellationSectionHead(PRCBitWriter& w, uint32_t count) {
    w.writeUnsignedInteger(kFileStructureTessellation);
    w.writeEmptyContentBase();
    w.writeUnsignedInteger(count);
}

std::vector<uint8_t> tessellationSection(const std::vector<PRCBitWriter>& tessellations,
                                         std::optional<uint32_t> count) {
    PRCBitWriter w;
    writeTessellationSectionHead(w, count.value_or(uint32_t(tessellations.size())));
    for (const PRCBitWriter& t : tessellations) w.append(t);
    return w.bytes();
}

Tess3DFields squareTess(double offset) {
    Tess3DFields tess;
    tess.coordinates = {offset, 0, 0, offset + 1, 0, 0, offset + 1, 1, 0, offset, 1, 0};
    tess.triangulated_indices = {0, 3, 6, 0, 6, 9};
    tess.faces.resize(1);
    tess.faces[0].sizes_triangulated = {2};
    return tess;
}

}  // namespace prc::test
