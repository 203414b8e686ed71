#include "tools/extract/model_mesh.h"

#include <algorithm>
#include <cmath>

namespace extract {

Box usedVertexBox(const ModelMesh& mesh) {
    Box box{};
    const uint32_t vertexCount = mesh.vertexCount();
    for (uint32_t index : mesh.triangles) {
        if (index >= vertexCount) continue;
        const float* p = &mesh.positions[size_t{index} * 3];
        if (!std::isfinite(p[0]) || !std::isfinite(p[1]) || !std::isfinite(p[2])) continue;
        for (int axis = 0; axis < 3; ++axis) {
            if (box.empty || p[axis] < box.min[axis]) box.min[axis] = p[axis];
            if (box.empty || p[axis] > box.max[axis]) box.max[axis] = p[axis];
        }
        box.empty = false;
    }
    if (box.empty) std::fill(box.min, box.min + 3, 0.0f), std::fill(box.max, box.max + 3, 0.0f);
    return box;
}

std::vector<uint32_t> unclaimedTriangles(const ModelMesh& mesh) {
    const uint32_t count = mesh.triangleCount();
    std::vector<bool> claimed(count, false);
    for (const ModelPart& part : mesh.parts) {
        const uint64_t end = std::min<uint64_t>(uint64_t{part.first_triangle} + part.triangle_count, count);
        for (uint64_t t = part.first_triangle; t < end; ++t) claimed[t] = true;
    }
    std::vector<uint32_t> rest;
    for (uint32_t t = 0; t < count; ++t) {
        if (!claimed[t]) rest.push_back(t);
    }
    return rest;
}

namespace {

// Length of the well-formed UTF-8 sequence at s[i], or 0 when there is none
// (overlong forms, surrogates and code points past U+10FFFF are refused).
size_t wellFormedLength(const std::string& s, size_t i) {
    const auto byte = [&](size_t k) { return static_cast<uint8_t>(s[k]); };
    const uint8_t b0 = byte(i);
    if (b0 < 0x80) return 1;
    size_t length;
    uint8_t low = 0x80, high = 0xBF;  // allowed range of the second byte
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        length = 2;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        length = 3;
        if (b0 == 0xE0) low = 0xA0;
        if (b0 == 0xED) high = 0x9F;
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        length = 4;
        if (b0 == 0xF0) low = 0x90;
        if (b0 == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    if (i + length > s.size()) return 0;
    if (byte(i + 1) < low || byte(i + 1) > high) return 0;
    for (size_t k = 2; k < length; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80) return 0;
    }
    return length;
}

}  // namespace

std::string toValidUtf8(const std::string& bytes) {
    std::string out;
    out.reserve(bytes.size());
    size_t i = 0;
    while (i < bytes.size()) {
        const size_t length = wellFormedLength(bytes, i);
        if (length > 0) {
            out.append(bytes, i, length);
            i += length;
        } else {
            const uint8_t b = static_cast<uint8_t>(bytes[i++]);
            out.push_back(static_cast<char>(0xC0 | (b >> 6)));
            out.push_back(static_cast<char>(0x80 | (b & 0x3F)));
        }
    }
    return out;
}

}  // namespace extract
