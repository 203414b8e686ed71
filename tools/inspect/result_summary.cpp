#include "tools/inspect/result_summary.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <vector>

namespace result_reader {

namespace {

struct Box {
    float min[3] = {std::numeric_limits<float>::infinity(), std::numeric_limits<float>::infinity(),
                    std::numeric_limits<float>::infinity()};
    float max[3] = {-std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
                    -std::numeric_limits<float>::infinity()};
    bool empty = true;
};

// Bounds of every vertex with no NaN coordinate.
Box vertexBox(const std::vector<float>& positions) {
    Box box;
    for (size_t i = 0; i + 2 < positions.size(); i += 3) {
        const float* p = &positions[i];
        if (std::isnan(p[0]) || std::isnan(p[1]) || std::isnan(p[2])) continue;
        box.empty = false;
        for (int axis = 0; axis < 3; ++axis) {
            box.min[axis] = std::min(box.min[axis], p[axis]);
            box.max[axis] = std::max(box.max[axis], p[axis]);
        }
    }
    return box;
}

std::string number(float value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.9g", double(value));
    return text;
}

std::string triple(const float* v) { return "(" + number(v[0]) + ", " + number(v[1]) + ", " + number(v[2]) + ")"; }

// Names are arbitrary bytes: anything but printable ASCII is shown as \xNN.
std::string printable(const std::string& bytes) {
    std::string out;
    for (unsigned char c : bytes) {
        if (c >= 0x20 && c < 0x7F && c != '\\') {
            out.push_back(static_cast<char>(c));
        } else {
            char text[8];
            std::snprintf(text, sizeof text, "\\x%02X", c);
            out += text;
        }
    }
    return out;
}

// Length of the valid UTF-8 sequence at s[i], 0 when there is none.
size_t utf8SequenceLength(const std::string& s, size_t i) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char lead = byte(i);
    size_t length;
    unsigned char low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    if (s.size() - i < length || byte(i + 1) < low || byte(i + 1) > high) return 0;
    for (size_t k = 2; k < length; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80) return 0;
    }
    return length;
}

// A JSON string: valid UTF-8 passes through, control characters are escaped
// and a byte that is not UTF-8 becomes U+FFFD.
std::string jsonString(const std::string& bytes) {
    std::string out = "\"";
    for (size_t i = 0; i < bytes.size();) {
        const unsigned char c = static_cast<unsigned char>(bytes[i]);
        if (c == '"' || c == '\\') {
            out.push_back('\\');
            out.push_back(static_cast<char>(c));
            ++i;
        } else if (c < 0x20) {
            char text[8];
            std::snprintf(text, sizeof text, "\\u%04x", c);
            out += text;
            ++i;
        } else if (c < 0x80) {
            out.push_back(static_cast<char>(c));
            ++i;
        } else if (const size_t length = utf8SequenceLength(bytes, i)) {
            out.append(bytes, i, length);
            i += length;
        } else {
            out += "\\ufffd";
            ++i;
        }
    }
    return out + "\"";
}

// JSON has no NaN or infinity.
std::string jsonNumber(float value) { return std::isfinite(value) ? number(value) : "null"; }

std::string jsonTriple(const float* v) {
    return "[" + jsonNumber(v[0]) + "," + jsonNumber(v[1]) + "," + jsonNumber(v[2]) + "]";
}

std::string field(const char* name, uint64_t value) { return std::string("\"") + name + "\":" + std::to_string(value); }

// Depth of every record below its root; parents come first, so one pass.
std::vector<size_t> partDepths(const std::vector<PartRecord>& parts) {
    std::vector<size_t> depth(parts.size(), 0);
    for (size_t i = 0; i < parts.size(); ++i) {
        if (parts[i].parent_index != kNoParent) depth[i] = depth[parts[i].parent_index] + 1;
    }
    return depth;
}

}  // namespace

const char* outcomeMeaning(uint32_t status) {
    switch (status) {
    case kOutcomeNoResult:
        return "memory ran out while the output arrays were built";
    case kOutcomeNoGeometry:
        return "the file decoded but holds no triangles to show";
    case kOutcomeDecodingError:
        return "the decoding failed on malformed or unsupported data";
    default:
        return "unknown outcome";
    }
}

std::string describeText(const ResultStream& s) {
    const ResultHeader& h = s.header;
    if (s.kind == ResultKind::ErrorRecord) {
        return "error record (status 2, " + std::to_string(h.message_length) + " bytes): " + s.message + "\n";
    }
    if (s.kind == ResultKind::FailureHeader) {
        return "failure header: status " + std::to_string(h.status) + ", " + outcomeMeaning(h.status) + "\n";
    }
    std::string out = "success stream: " + std::to_string(h.vertex_count) + " vertices, " +
                      std::to_string(h.triangle_count) + " triangles, " + std::to_string(h.part_count) +
                      " part records" + (s.has_optional_block ? ", optional block" : "") + "\n";
    out += "PRC versions: minimal for read " + std::to_string(h.minimal_version_for_read) + ", authoring " +
           std::to_string(h.authoring_version) + "; " + std::to_string(h.number_of_file_structures) +
           " file structures\n";
    out += "globals: " + std::to_string(h.color_count) + " colours, " + std::to_string(h.material_count) +
           " materials, " + std::to_string(h.style_count) + " styles\n";
    const Box box = vertexBox(s.positions);
    out += box.empty ? std::string("bounding box: none\n")
                     : "bounding box: min " + triple(box.min) + " max " + triple(box.max) + "\n";
    if (s.parts.empty()) return out;

    out += "parts:\n";
    const std::vector<size_t> depth = partDepths(s.parts);
    const size_t shown = std::min(s.parts.size(), kSummaryPartLimit);
    for (size_t i = 0; i < shown; ++i) {
        const PartRecord& part = s.parts[i];
        out += std::string(2 + 2 * std::min<size_t>(depth[i], 32), ' ');
        out += "[" + std::to_string(i) + "] \"" + printable(partName(part)) + "\"";
        if (part.triangle_count != 0) {
            out += ": " + std::to_string(part.triangle_count) + " triangles from " +
                   std::to_string(part.first_triangle);
        }
        out += "\n";
    }
    if (shown < s.parts.size()) out += "  ... " + std::to_string(s.parts.size() - shown) + " more part records\n";
    return out;
}

std::string describeJson(const ResultStream& s) {
    const ResultHeader& h = s.header;
    if (s.kind == ResultKind::ErrorRecord) {
        return "{\"valid\":true,\"kind\":\"error_record\"," + field("status", h.status) +
               ",\"message\":" + jsonString(s.message) + "}\n";
    }
    if (s.kind == ResultKind::FailureHeader) {
        return "{\"valid\":true,\"kind\":\"failure_header\"," + field("status", h.status) +
               ",\"meaning\":" + jsonString(outcomeMeaning(h.status)) + "}\n";
    }
    std::string out = "{\"valid\":true,\"kind\":\"success\"," + field("vertex_count", h.vertex_count) + "," +
                      field("triangle_count", h.triangle_count) + "," + field("part_count", h.part_count) + "," +
                      field("minimal_version_for_read", h.minimal_version_for_read) + "," +
                      field("authoring_version", h.authoring_version) + "," +
                      field("number_of_file_structures", h.number_of_file_structures) + "," +
                      field("color_count", h.color_count) + "," + field("material_count", h.material_count) + "," +
                      field("style_count", h.style_count) + ",\"optional_block\":" +
                      (s.has_optional_block ? "true" : "false");
    const Box box = vertexBox(s.positions);
    out += ",\"bounding_box\":";
    out += box.empty ? std::string("null")
                     : "{\"min\":" + jsonTriple(box.min) + ",\"max\":" + jsonTriple(box.max) + "}";
    out += ",\"parts\":[";
    for (size_t i = 0; i < s.parts.size(); ++i) {
        const PartRecord& part = s.parts[i];
        if (i != 0) out += ",";
        out += "{" + field("index", i) + ",\"parent\":" +
               (part.parent_index == kNoParent ? std::string("null") : std::to_string(part.parent_index)) +
               ",\"name\":" + jsonString(partName(part)) + "," + field("first_triangle", part.first_triangle) + "," +
               field("triangle_count", part.triangle_count) + ",\"box_min\":" + jsonTriple(part.box_min) +
               ",\"box_max\":" + jsonTriple(part.box_max) + "}";
    }
    return out + "]}\n";
}

std::string describeInvalidJson(const std::string& reason) {
    return "{\"valid\":false,\"error\":" + jsonString(reason) + "}\n";
}

}  // namespace result_reader
