#pragma once
// The exact decoder: the worker's product structure walk, placements and
// colours, with the bodies of the exact geometry that B-rep model items name
// tessellated into their pieces. It runs in a program of its own (the worker
// never reads geometry sections) and tells what it did in the summary that
// the result stream's optional block carries.

#include <cstdint>

#include "prc/exact/exact_summary.h"
#include "worker/decoded_model.h"

namespace model {

// Faces are tessellated to a chord error of this fraction of the diagonal
// of the model's bounding box: 0.2% is a pixel of a preview a few hundred
// pixels wide, and a unit sphere of a model of that size gets some 14
// segments around half a circle.
constexpr double kRelativeChordTolerance = 0.002;

// decodePrcModel's contract (outcome 1 when nothing can be drawn), with the
// summary also in out's optional block; summary may be null.
bool decodeExactModel(const uint8_t* data, uint64_t size, DecodedModel* out, prc::exact::ExactSummary* summary);
bool decodeExactModel(const uint8_t* data, uint64_t size, DecodedModel* out);

}  // namespace model
