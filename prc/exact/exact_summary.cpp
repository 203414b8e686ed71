#include "prc/exact/exact_summary.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace prc::exact {

namespace {

const char* surfaceKindName(uint8_t code) {
    switch (code) {
        case 77: case 78: case 79: case 94: return "blend";
        case 80: return "NURBS";
        case 81: return "cone";
        case 82: return "cylinder";
        case 83: return "cylindrical";
        case 84: return "offset";
        case 85: return "pipe";
        case 86: return "plane";
        case 87: return "ruled";
        case 88: return "sphere";
        case 89: return "revolution";
        case 90: return "extrusion";
        case 91: return "two-curve";
        case 92: return "torus";
        case 93: return "transformed";
        default: return nullptr;
    }
}

void putWord(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = uint8_t(v >> (8 * i));
}

uint32_t getWord(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

}  // namespace

std::string skipReasonPhrase(uint8_t reason, uint32_t count) {
    const bool one = count == 1;
    const std::string n = std::to_string(count);
    if (const char* kind = surfaceKindName(reason)) {
        const bool vowel = std::string("aeiouAEIOU").find(kind[0]) != std::string::npos;
        return n + (one ? (vowel ? " face on an " : " face on a ") : " faces on ") + kind + (one ? " surface" : " surfaces");
    }
    switch (reason) {
        case kSkipTrimmed: return n + (one ? " trimmed face" : " trimmed faces");
        case kSkipParameterisation: return n + (one ? " face" : " faces") + " with an unsupported surface parameterisation";
        case kSkipCurveKind: return n + (one ? " ruled face" : " ruled faces") + " on curves of unsupported kinds";
        case kSkipInvalid: return n + (one ? " face" : " faces") + " with inconsistent geometry";
        case kSkipBudget: return n + (one ? " face" : " faces") + " over the tessellation budget";
        case kSkipNoSurface: return n + (one ? " face" : " faces") + " without a surface";
        case kSkipUnreadBodies: return n + (one ? " body" : " bodies") + " after data that cannot be read";
        case kSkipOtherBody: return n + (one ? " body" : " bodies") + " without faces";
        case kSkipTransformation: return n + (one ? " face" : " faces") + " with an unsupported surface placement";
        case kNoteCoarsened: return n + (one ? " face" : " faces");
        default: return n + (one ? " face" : " faces") + " for reason " + std::to_string(reason);
    }
}

std::array<uint8_t, 36> encodeExactSummary(const ExactSummary& summary) {
    std::array<uint8_t, 36> block{};
    putWord(&block[0], kSummaryTag);
    uint32_t tolerance;
    std::memcpy(&tolerance, &summary.chord_tolerance, 4);
    putWord(&block[4], tolerance);
    putWord(&block[8], summary.faces_tessellated);
    putWord(&block[12], summary.skipped_total);
    // A count above 24 bits is shown as the largest one that fits.
    for (size_t i = 0; i < summary.skipped.size() && i < kSummaryReasons; ++i) {
        const uint32_t count = std::min<uint32_t>(summary.skipped[i].second, 0xFFFFFF);
        putWord(&block[16 + 4 * i], uint32_t(summary.skipped[i].first) << 24 | count);
    }
    return block;
}

bool decodeExactSummary(const uint8_t block[36], ExactSummary& out) {
    if (getWord(block) != kSummaryTag) return false;
    out = ExactSummary();
    const uint32_t tolerance = getWord(block + 4);
    std::memcpy(&out.chord_tolerance, &tolerance, 4);
    out.faces_tessellated = getWord(block + 8);
    out.skipped_total = getWord(block + 12);
    for (size_t i = 0; i < kSummaryReasons; ++i) {
        const uint32_t word = getWord(block + 16 + 4 * i);
        if (word != 0) out.skipped.emplace_back(uint8_t(word >> 24), word & 0xFFFFFF);
    }
    return true;
}

std::vector<std::string> describeExactSummary(const ExactSummary& summary) {
    char tolerance[32];
    std::snprintf(tolerance, sizeof tolerance, "%g", double(summary.chord_tolerance));
    std::vector<std::string> lines{std::string("tessellated from exact surfaces, chord tolerance ") + tolerance};
    uint32_t listed = 0;
    for (const auto& [reason, count] : summary.skipped) {
        if (reason == kNoteCoarsened) {
            lines.push_back(skipReasonPhrase(reason, count) + " drawn coarser than the chord tolerance (budget)");
            continue;
        }
        lines.push_back(skipReasonPhrase(reason, count) + " skipped");
        listed += count;
    }
    if (summary.skipped_total > listed)
        lines.push_back(std::to_string(summary.skipped_total - listed) + " more faces or bodies skipped");
    return lines;
}

}  // namespace prc::exact
