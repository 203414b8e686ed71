#pragma once
// Test-only encoder of highly compressed tessellations: a mesh in, a record
// out, by the same traversal the decoder follows.
//
// It deliberately shares no code with the decoder: its frames, square roots,
// angle polynomials and normal frames are written here a second time, so that
// a mistake on either side shows up as a disagreement instead of agreeing with
// itself. It simulates the decoder's first run (quantised positions, frames,
// decoded normals) to choose every later delta, frame and bit consistently.

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "prc/tess/compressed_tess_reading.h"

namespace prc::test {

struct EncoderVec {
    double x = 0.0, y = 0.0, z = 0.0;
};

struct EncoderMesh {
    std::vector<EncoderVec> points;
    // Oriented triangles: the decoder must return each with this winding
    // (unless the triangle decodes as degenerate, see EncodedTess).
    std::vector<std::array<uint32_t, 3>> triangles;
    // Optional: the face of every triangle (all 0 when empty).
    std::vector<int32_t> face_ids;
    // Optional, encoded-normal mode only: the wanted normal at each corner, in
    // the triangle's corner order. When empty, every corner wants its
    // triangle's geometric normal.
    std::vector<std::array<EncoderVec, 3>> corner_normals;
    // Optional, encoded-normal mode only: faces that use one normal throughout.
    std::vector<bool> face_has_single_normal;
};

enum class ChainStartChoice {
    LowestUnvisited,   // the unvisited triangle of lowest index, corners as given
    MostBuiltCorners,  // an unvisited triangle with most corners already built; rotation from the seed
    Random,            // any unvisited triangle, any rotation, from the seed
};

struct EncoderOptions {
    double tolerance = 1e-3;
    std::array<float, 3> origin{0.0f, 0.0f, 0.0f};
    bool must_recalculate_normals = true;
    uint8_t normal_angle_number_of_bits = 12;  // 1 to 15
    ChainStartChoice chain_start = ChainStartChoice::LowestUnvisited;
    uint64_t seed = 1;
    // The decoding run to simulate: by default the first run (fallback axis
    // used as it is, every tie resolved the usual way). A record encoded for
    // another run is one that only the decoder's later runs can read.
    bool normalize_fallback_axis = false;
    int64_t tie_key = -1;
};

struct EncodedTess {
    PRC3DTessCompressed record;
    // What the decoder's first run must return, as simulated by the encoder.
    std::vector<double> expected_positions;
    std::vector<uint32_t> expected_triangles;
    // Decoded point index -> input point index; decoded triangle -> input triangle.
    std::vector<uint32_t> input_point;
    std::vector<uint32_t> input_triangle;
    // Decoded triangles whose winding differs from the input's. The bits of
    // normal_is_reversed always give the input's winding; encoded normals
    // cannot orient a triangle whose decoded area is zero.
    uint32_t winding_mismatches = 0;
    // Coverage of the traversal, for tests that want a feature exercised.
    std::array<uint32_t, 8> chain_start_patterns{};  // by b0 + 2 b1 + 4 b2
    std::array<uint32_t, 4> edge_statuses{};
    uint32_t kind2_vertices = 0, kind2_reuses = 0, single_normal_reuses = 0, failed_normal_frames = 0;
    // Ties met by the simulated run, in the order met.
    std::vector<int64_t> tie_keys;
};

// Throws std::logic_error when the mesh cannot be encoded (a triangle with a
// repeated point index, an edge shared by more than two triangles, a delta
// beyond 32 bits).
EncodedTess encodeCompressedTess(const EncoderMesh& mesh, const EncoderOptions& options);

// Test meshes, all oriented outwards (or upwards) and manifold.
// A wavy height field over nx x ny cells, each cut along a random diagonal;
// cells are dropped with probability hole_fraction. z offset by `lift`.
EncoderMesh makeGridMesh(uint32_t nx, uint32_t ny, double hole_fraction, uint64_t seed, double lift = 0.0);
// A closed sphere: an icosahedron subdivided `levels` times, radius r.
EncoderMesh makeIcosphereMesh(uint32_t levels, double radius, EncoderVec centre = {});
// A closed torus of nu x nv quads.
EncoderMesh makeTorusMesh(uint32_t nu, uint32_t nv, double major, double minor, EncoderVec centre = {});
// Appends b to a (point indices and face ids offset).
void appendMesh(EncoderMesh& a, const EncoderMesh& b);
// Corner normals that are the smooth vertex normals (area-weighted average of
// the face normals around each point).
void setSmoothCornerNormals(EncoderMesh& mesh);

}  // namespace prc::test
