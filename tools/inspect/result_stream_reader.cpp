#include "tools/inspect/result_stream_reader.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace result_reader {

namespace {

constexpr size_t kHeaderBytes = sizeof(ResultHeader);
constexpr size_t kPartBytes = sizeof(PartRecord);
constexpr size_t kOptionalBlockBytes = 36;
constexpr uint32_t kErrorRecordStatus = 2;
constexpr uint32_t kHighestOutcome = kOutcomeDecodingError;

// Byte offsets inside a part record.
constexpr size_t kNameBytes = 128;
constexpr size_t kReservedOffset = 144, kReservedBytes = 16;
constexpr size_t kBoxOffset = 160;
constexpr size_t kFlagOffset = 184;

[[noreturn]] void fail(const std::string& why) { throw InvalidResultStream(why); }

std::string str(uint64_t value) { return std::to_string(value); }

// The stream is little-endian whatever the reading machine is.
uint32_t loadU32(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

float loadFloat(const uint8_t* p) { return std::bit_cast<float>(loadU32(p)); }

bool allZero(const uint8_t* p, size_t n) {
    return std::all_of(p, p + n, [](uint8_t b) { return b == 0; });
}

ResultHeader parseHeader(const uint8_t* p) {
    ResultHeader h{};
    h.success = p[0];
    h.optional_block_flag = p[1];
    h.zero[0] = p[2];
    h.zero[1] = p[3];
    uint32_t* fields[] = {&h.vertex_count,
                          &h.triangle_count,
                          &h.part_count,
                          &h.message_length,
                          &h.status,
                          &h.minimal_version_for_read,
                          &h.authoring_version,
                          &h.number_of_file_structures,
                          &h.color_count,
                          &h.material_count,
                          &h.style_count};
    for (size_t i = 0; i < std::size(fields); ++i) *fields[i] = loadU32(p + 4 + 4 * i);
    return h;
}

void checkLength(size_t size, uint64_t expected, const char* what) {
    if (size != expected) {
        fail(std::string(what) + " must be " + str(expected) + " bytes long, the stream has " + str(size));
    }
}

void readErrorOrFailure(const uint8_t* data, size_t size, ResultStream& out) {
    const ResultHeader& h = out.header;
    if (h.optional_block_flag != 0) fail("optional-block flag set without the success flag");
    if (h.vertex_count != 0 || h.triangle_count != 0 || h.part_count != 0) {
        fail("counts (" + str(h.vertex_count) + ", " + str(h.triangle_count) + ", " + str(h.part_count) +
             ") must be zero without the success flag");
    }
    if (!allZero(data + 24, kHeaderBytes - 24)) fail("header bytes 24 to 47 must be zero without the success flag");
    if (h.message_length == 0) {
        if (h.status > kHighestOutcome) fail("failure header with unknown status " + str(h.status));
        checkLength(size, kHeaderBytes, "a failure header");
        out.kind = ResultKind::FailureHeader;
        return;
    }
    if (h.status != kErrorRecordStatus) {
        fail("a message of " + str(h.message_length) + " bytes with status " + str(h.status) +
             " (only an error record, status 2, has one)");
    }
    checkLength(size, kHeaderBytes + uint64_t(h.message_length), "an error record with this message length");
    for (size_t i = 0; i < h.message_length; ++i) {
        const uint8_t byte = data[kHeaderBytes + i];
        if (byte < 0x20 || byte > 0x7E) fail("message byte " + str(i) + " is " + str(byte) + ", not printable ASCII");
    }
    out.message.assign(reinterpret_cast<const char*>(data + kHeaderBytes), h.message_length);
    out.kind = ResultKind::ErrorRecord;
}

PartRecord parsePart(const uint8_t* p, size_t index) {
    const std::string where = "part record " + str(index) + ": ";
    const uint8_t* nul = std::find(p, p + kNameBytes, uint8_t(0));
    if (nul == p + kNameBytes) fail(where + "name has no NUL within its 128 bytes");
    if (!allZero(nul, p + kNameBytes - nul)) fail(where + "bytes after the name's NUL are not zero");
    if (!allZero(p + kReservedOffset, kReservedBytes)) fail(where + "the 16 reserved bytes are not zero");
    if (p[kFlagOffset] != 1) fail(where + "flag byte is " + str(p[kFlagOffset]) + ", expected 1");
    if (!allZero(p + kFlagOffset + 1, 3)) fail(where + "the 3 bytes after the flag are not zero");

    PartRecord part{};
    std::memcpy(part.name, p, kNameBytes);
    part.node_index = loadU32(p + 128);
    part.parent_index = loadU32(p + 132);
    part.first_triangle = loadU32(p + 136);
    part.triangle_count = loadU32(p + 140);
    for (int axis = 0; axis < 3; ++axis) {
        part.box_min[axis] = loadFloat(p + kBoxOffset + 4 * axis);
        part.box_max[axis] = loadFloat(p + kBoxOffset + 12 + 4 * axis);
    }
    part.flag = 1;
    return part;
}

// A box that holds no vertex: all zero, or never narrowed because every
// coordinate it saw was NaN (minimum above maximum).
bool holdsNoVertex(const PartRecord& part) {
    bool zero = true;
    for (int axis = 0; axis < 3; ++axis) {
        if (part.box_min[axis] > part.box_max[axis]) return true;
        zero = zero && part.box_min[axis] == 0.0f && part.box_max[axis] == 0.0f;
    }
    return zero;
}

// NaN coordinates are outside every comparison, so they are not held against
// a box.
bool insideBox(const float* point, const PartRecord& box) {
    for (int axis = 0; axis < 3; ++axis) {
        if (point[axis] < box.box_min[axis] || point[axis] > box.box_max[axis]) return false;
    }
    return true;
}

void checkParts(const ResultStream& s) {
    const uint64_t triangleCount = s.triangles.size() / 3;
    std::vector<std::pair<uint64_t, uint64_t>> ranges;  // first, end
    for (size_t i = 0; i < s.parts.size(); ++i) {
        const PartRecord& part = s.parts[i];
        const std::string where = "part record " + str(i) + ": ";
        if (part.node_index != i) fail(where + "node index is " + str(part.node_index));
        if (part.parent_index != kNoParent && part.parent_index >= i) {
            fail(where + "parent " + str(part.parent_index) + " does not come before it");
        }
        if (part.triangle_count == 0) continue;
        const uint64_t end = uint64_t(part.first_triangle) + part.triangle_count;
        if (end > triangleCount) {
            fail(where + "triangles " + str(part.first_triangle) + " to " + str(end - 1) + " beyond the " +
                 str(triangleCount) + " triangles");
        }
        ranges.emplace_back(part.first_triangle, end);
    }
    std::sort(ranges.begin(), ranges.end());
    for (size_t i = 1; i < ranges.size(); ++i) {
        if (ranges[i].first < ranges[i - 1].second) {
            fail("triangle ranges overlap at triangle " + str(ranges[i].first));
        }
    }
    // The ranges are disjoint now, so this visits each triangle at most once.
    for (size_t i = 0; i < s.parts.size(); ++i) {
        const PartRecord& part = s.parts[i];
        const uint64_t end = uint64_t(part.first_triangle) + part.triangle_count;
        for (uint64_t t = part.first_triangle; t < end; ++t) {
            for (int corner = 0; corner < 3; ++corner) {
                const uint32_t vertex = s.triangles[3 * t + corner];
                if (!insideBox(&s.positions[3 * size_t(vertex)], part)) {
                    fail("part record " + str(i) + ": vertex " + str(vertex) + " of triangle " + str(t) +
                         " lies outside its box");
                }
            }
        }
        if (part.parent_index == kNoParent || holdsNoVertex(part)) continue;
        const PartRecord& parent = s.parts[part.parent_index];
        if (!insideBox(part.box_min, parent) || !insideBox(part.box_max, parent)) {
            fail("part record " + str(i) + ": box not inside the box of its parent " + str(part.parent_index));
        }
    }
}

void readSuccess(const uint8_t* data, size_t size, ResultStream& out) {
    const ResultHeader& h = out.header;
    if (h.message_length != 0) fail("success stream with a message length of " + str(h.message_length));
    if (h.status != 0) fail("success stream with status " + str(h.status));
    out.has_optional_block = h.optional_block_flag != 0;
    checkLength(size, successStreamBytes(h.vertex_count, h.triangle_count, h.part_count, out.has_optional_block),
                "a success stream with these counts");

    const uint8_t* p = data + kHeaderBytes;
    out.positions.resize(size_t(h.vertex_count) * 3);
    for (float& value : out.positions) {
        value = loadFloat(p);
        p += 4;
    }
    out.triangles.resize(size_t(h.triangle_count) * 3);
    for (size_t i = 0; i < out.triangles.size(); ++i, p += 4) {
        out.triangles[i] = loadU32(p);
        if (out.triangles[i] >= h.vertex_count) {
            fail("triangle " + str(i / 3) + " refers to vertex " + str(out.triangles[i]) + " of " +
                 str(h.vertex_count));
        }
    }
    out.colors.assign(p, p + size_t(h.vertex_count) * 3);
    p += out.colors.size();
    if (out.has_optional_block) {
        std::memcpy(out.optional_block.data(), p, kOptionalBlockBytes);
        p += kOptionalBlockBytes;
    }
    out.parts.reserve(h.part_count);
    for (size_t i = 0; i < h.part_count; ++i, p += kPartBytes) out.parts.push_back(parsePart(p, i));
    checkParts(out);
    out.kind = ResultKind::Success;
}

}  // namespace

uint64_t successStreamBytes(uint32_t vertices, uint32_t triangles, uint32_t parts, bool optionalBlock) {
    return kHeaderBytes + uint64_t(vertices) * 15 + uint64_t(triangles) * 12 + uint64_t(parts) * kPartBytes +
           (optionalBlock ? kOptionalBlockBytes : 0);
}

ResultStream readResultStream(const uint8_t* data, size_t size) {
    if (size < kHeaderBytes) fail("the stream ends inside the header: " + str(size) + " of 48 bytes");
    ResultStream out;
    out.header = parseHeader(data);
    if (out.header.zero[0] != 0 || out.header.zero[1] != 0) fail("header bytes 2 and 3 are not zero");
    switch (out.header.success) {
    case 0:
        readErrorOrFailure(data, size, out);
        break;
    case 1:
        readSuccess(data, size, out);
        break;
    default:
        fail("success flag is " + str(out.header.success) + ", expected 0 or 1");
    }
    return out;
}

std::string partName(const PartRecord& part) {
    return std::string(part.name, std::find(part.name, part.name + sizeof part.name, '\0'));
}

}  // namespace result_reader
