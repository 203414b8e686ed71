#pragma once
// Readers of the exact geometry: the geometry section with its topological
// contexts and bodies, the surfaces and curves of faces, and the compressed
// bodies. Their failures come in two kinds: a std::runtime_error where the
// data breaks the format (the data ended, a count beyond it), and
// UnreadableGeometry where the data is valid but of a form this reader
// cannot step over; either way nothing after it in the section can be found.

#include <cstdint>
#include <stdexcept>
#include <string>

#include "prc/exact/exact_geometry.h"
#include "prc/io/bit_reader.h"

namespace prc::exact {

struct UnreadableGeometry : std::runtime_error {
    UnreadableGeometry(uint8_t why, const std::string& what) : std::runtime_error(what), reason(why) {}
    uint8_t reason;  // a SkipReason, or the surface kind that could not be stepped over
};

// Curves nest in composite curves; deeper nesting than this is refused.
constexpr int kMaxCurveDepth = 8;
// Contexts, bodies and faces kept from one section, each: a face takes some
// 250 bytes, so 2^18 of them 64 MiB, and the tessellation budget (2^22
// cells, at least one a face) could not draw many more. Reading stops there.
constexpr uint64_t kMaxSectionEntries = uint64_t(1) << 18;

// The optional base of topological and geometric entities: a bit, then
// attributes, a name and an identifier when it is set.
void readBaseTopology(PRCBitReader& r);

// The head of an embedded entity: a bit that would point back at an entity
// already stored (refused: this reader keeps no such table), then its type,
// 0 for none.
uint32_t readEmbeddedType(PRCBitReader& r);

// Bodies of the geometry section: the context reader calls these after the
// body's type code.
ExactBody readBrepData(PRCBitReader& r);
ExactBody readCompressedBrepData(PRCBitReader& r);

// Writers quantise each compressed patch on its own, so the edge two
// patches share comes out of each a little apart (within the body's
// tolerance), and cracks would show between them. The boundary control
// points of a context's compressed patches that lie that close are made one.
void stitchCompressedPatches(ExactContext& context);

// The surface of a face, after its type code: fills face.surface, or sets
// face.skip for a kind that is read but not drawn.
void readSurface(PRCBitReader& r, uint32_t type, ExactFace& face);

// A curve after its type code (depth: composite curves around it). False
// for a curve that is read but cannot be evaluated.
bool readCurve(PRCBitReader& r, uint32_t type, CurveDefinition& curve, int depth);

// The geometry section (type 306) as a whole. Unreadable data ends it early:
// what was read stays, the bodies after it are counted as unread.
ExactGeometry readFileStructureGeometry(PRCBitReader& r);

// The face styles of the extra geometry section (type 307): per context, the
// line style of every face in reading order (0xFFFFFFFF for none), written
// into the faces of geometry.
void readFileStructureExtraGeometry(PRCBitReader& r, ExactGeometry& geometry);

}  // namespace prc::exact
