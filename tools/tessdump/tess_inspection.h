#pragma once
// What the tessellation dump checks, shared with the corpus tests so that they
// assert exactly what the tool reports.

#include <cstdint>
#include <string>
#include <vector>

#include "prc/io/prc_header.h"
#include "prc/tess/compressed_tess_mesh.h"
#include "prc/tess/tessellation_section.h"

namespace tessdump {

// Edge statistics of a triangle list. A correctly decoded CAD mesh is closed
// or nearly so, and consistently wound: every interior edge is used once in
// each direction.
//
// The compressed format winds a triangle by the side its decoded normal points
// to, and its points are quantised in steps of the record's tolerance: a
// triangle less than a step or two tall can come out folded over its
// neighbour, its winding turned with it, however exactly it is decoded. A
// same-direction edge all of whose triangles stand at least kFirmHeight steps
// tall has no such excuse; those are counted apart.
struct EdgeStats {
    uint64_t boundary_edges = 0;        // undirected edges of exactly one triangle
    uint64_t same_direction_edges = 0;  // directed edges used by more than one triangle
    uint64_t firm_same_direction_edges = 0;  // of those, the ones between triangles kFirmHeight steps tall
    uint64_t collapsed_triangles = 0;   // a point index repeated in one triangle
};

constexpr double kFirmHeight = 2.0;

// positions are those the triangles index and step the quantisation step.
EdgeStats edgeStats(const std::vector<uint32_t>& triangles, const std::vector<double>& positions, double step);

struct RecordReport {
    uint64_t triangles = 0;
    std::string run;               // "first", "second", "tie" or "error"
    std::string error;
    bool consumed_exactly = false;
    EdgeStats edges;
};

// How a plain tessellation's faces use its index list and what they make.
struct PlainReport {
    uint64_t triangles = 0;
    uint64_t index_values = 0;  // length of triangulated_indices
    uint64_t used_once = 0;     // values that belong to the tuples of exactly one face
    uint64_t unused = 0;        // values no face reaches
    bool ran_out = false;       // some face's indices ran past the end of the list
    EdgeStats edges;            // firm counts are not meaningful here
    // Triangles whose winding turns against the sum of their corners' normals
    // (only when the file stores normals).
    uint64_t against_normals = 0;
};

// The tessellations of one file structure, read from its tessellation section
// (section 3, bounded by offsets 3 and 4). A failure leaves its message in
// error and what was read before it in the lists.
void readTessellations(const uint8_t* data, uint64_t size, const prc::FileStructureDescriptor& fs,
                       std::vector<prc::PRC3DTess>* plain, std::vector<prc::PRC3DTessCompressed>* compressed,
                       std::string* error);

RecordReport inspectRecord(const prc::PRC3DTessCompressed& record);
PlainReport inspectPlain(const prc::PRC3DTess& tess);

}  // namespace tessdump
