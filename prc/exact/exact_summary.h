#pragma once
// What the exact decoder tells about a model besides its mesh: the chord
// tolerance it tessellated to, how many faces it drew and which faces it left
// out, and why. It travels in the 36-byte optional block of the result
// stream, so that a host learns it without a second channel; this unit has
// no dependency, so that a host can read the block without the decoder.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace prc::exact {

// Why faces (or whole bodies) were not drawn. The surface kinds take their
// PRC type codes (76 to 94), the other reasons the codes from 200 on; a code
// fits in one byte of the block.
enum SkipReason : uint8_t {
    kSkipTrimmed = 200,              // a face bounded by loops or a trimming domain
    kSkipParameterisation = 201,     // surface parameters neither plain nor reversed, or swapped
    kSkipCurveKind = 202,            // a ruled face on curves that cannot be evaluated
    kSkipInvalid = 203,              // geometry that contradicts itself (knots, degrees, weights)
    kSkipBudget = 204,               // over the tessellation budget of the model
    kSkipNoSurface = 205,            // a face without a surface
    kSkipUnreadBodies = 206,         // bodies after data the reader cannot step over
    kSkipOtherBody = 207,            // bodies of kinds that hold no faces (wires) or are not known
    kSkipTransformation = 208,       // a surface placed by a transformation form that is not known
    // Not a loss: faces drawn, but coarser than the tolerance, to stay in the budget.
    kNoteCoarsened = 209,
};

// "3 faces on offset surfaces skipped": the noun phrase for a count.
std::string skipReasonPhrase(uint8_t reason, uint32_t count);

struct ExactSummary {
    float chord_tolerance = 0;  // relative to the model's bounding box diagonal
    uint32_t faces_tessellated = 0;
    // (reason, count), largest counts first; at most kSummaryReasons travel.
    std::vector<std::pair<uint8_t, uint32_t>> skipped;
    // All skipped faces and bodies, also those beyond the block's room
    // (coarsened faces are drawn, so not among them).
    uint32_t skipped_total = 0;
};

// Four words of head and five (reason, count) words: 36 bytes.
constexpr size_t kSummaryReasons = 5;
constexpr uint32_t kSummaryTag = 0x54435845;  // "EXCT" in little-endian bytes

std::array<uint8_t, 36> encodeExactSummary(const ExactSummary& summary);
// False when the block does not carry the tag (a block of another kind).
bool decodeExactSummary(const uint8_t block[36], ExactSummary& out);

// The lines a report shows: "tessellated from exact surfaces, chord tolerance
// 0.002", then one line per reason.
std::vector<std::string> describeExactSummary(const ExactSummary& summary);

}  // namespace prc::exact
