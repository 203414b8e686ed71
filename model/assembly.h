#pragma once
// The walk of the product structure: prototypes, placements, configurations
// and colours, with every tessellated part copied, placed and coloured into
// one preview mesh.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "prc/entities/file_structure.h"
#include "prc/io/prc_header.h"
#include "prc/tess/face_triangulation.h"

namespace model {

// One visited product occurrence, in visiting (pre-)order.
struct AssemblyNode {
    std::string name;
    uint32_t parent_index = 0xFFFFFFFF;  // none for a root
    uint32_t first_triangle = 0;
    uint32_t triangle_count = 0;  // the node's own part only
    float box_min[3] = {0, 0, 0};  // node and subtree; all zero when nothing was emitted
    float box_max[3] = {0, 0, 0};
};

// The mesh that a decode pass grows: a TessMesh plus the nodes of the
// structured pass.
struct PreviewMesh {
    std::vector<float> positions;
    std::vector<uint32_t> triangles;
    std::vector<uint8_t> colors;
    std::vector<AssemblyNode> nodes;
};

// Bounds against hostile product structures.
constexpr int32_t kMaxAssemblyDepth = 64;
constexpr int kMaxPrototypeLooks = 65;  // an occurrence and at most 64 prototypes
constexpr size_t kMaxAssemblyNodes = 200000;
constexpr uint64_t kMaxAssemblyTriangles = 20000000;
// Three corners per allowed triangle: a mesh with more vertices holds
// vertices that no triangle uses, which only a hostile piece placed over and
// over produces.
constexpr uint64_t kMaxAssemblyVertices = 3 * kMaxAssemblyTriangles;
// Son entries and representation items looked at by one walk. The node limit
// alone does not bound the time: a long list of sons that are all skipped, or
// of items that draw nothing, costs as much on every visit of its occurrence.
constexpr uint64_t kMaxAssemblySteps = 256000000;

// A fuzzing build runs some thirty times slower than a release build (a walk
// that meets the node bound takes 1.3 s there, 45 ms here), so it walks
// against bounds a hundred times lower: the fuzzer then reaches every bound
// often, and within its one-second limit. The tests check the real bounds.
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
constexpr uint64_t kAssemblyBoundDivisor = 100;
#else
constexpr uint64_t kAssemblyBoundDivisor = 1;
#endif

// The node, triangle and vertex bounds of one walk (tests lower them).
struct AssemblyLimits {
    size_t max_nodes = kMaxAssemblyNodes / kAssemblyBoundDivisor;
    uint64_t max_triangles = kMaxAssemblyTriangles / kAssemblyBoundDivisor;
    uint64_t max_vertices = kMaxAssemblyVertices / kAssemblyBoundDivisor;
    uint64_t max_steps = kMaxAssemblySteps / kAssemblyBoundDivisor;
};

struct AssemblyContext {
    AssemblyLimits limits;
    uint64_t steps = 0;  // work of the walks so far, against limits.max_steps
    prc::PRCHeader header;  // its descriptors identify the file structures
    std::vector<prc::PRCFileStructure> file_structures;  // same order as the descriptors

    // Identifier -> first descriptor that carries it, built on first use:
    // every look along a chain that leaves its file structure needs it, and a
    // hostile header may hold very many descriptors.
    mutable std::vector<std::pair<prc::FileStructureId, int64_t>> identifier_index;
    mutable bool identifier_index_built = false;
};

// out = a x b; out must not alias a or b.
void multiplyMatrix4(const double a[16], const double b[16], double out[16]);

// Walks occurrence occurrenceIndex of file structure fsIndex and its sons.
// Fails with "assieme PRC: troppi nodi" / "assieme PRC: troppi triangoli".
void assembleOccurrence(AssemblyContext& ctx, int64_t fsIndex, int64_t occurrenceIndex, uint32_t parentNode,
                        const double world[16], int32_t depth, uint32_t inheritedColour, PreviewMesh& mesh);


// A highly compressed tessellation as a coloured piece; fails like
// buildCompressedTessMesh. defaultRgb: three bytes or null.
void buildCompressedTessPiece(prc::TessMesh& out, const prc::PRC3DTessCompressed& record,
                              const prc::PRCGlobals& globals, const uint8_t* defaultRgb);
// The two halves of that: the rebuilt points (as floats) and triangles, which
// depend on the record alone, and their colouring.
prc::TessMesh compressedTessGeometry(const prc::PRC3DTessCompressed& record);
void colourCompressedTessPiece(prc::TessMesh& out, prc::TessMesh geometry, const prc::PRC3DTessCompressed& record,
                               const prc::PRCGlobals& globals, const uint8_t* defaultRgb);

// Position of the first descriptor whose identifier is id, or -1.
int64_t findFileStructure(const AssemblyContext& ctx, const prc::FileStructureId& id);

// Appends piece to mesh: vertices transformed by placement (null: copied
// unchanged), colours as they are, triangles shifted by the mesh's vertex
// count and, under a mirroring placement, with their last two corners
// swapped. Triangles naming a vertex outside the piece are dropped.
void appendPiece(PreviewMesh& mesh, const prc::TessMesh& piece, const double* placement);

// Prototype followers: each searches the prototype chain that starts at the
// prototype of occurrence (fsIndex, occurrenceIndex).
std::string resolveOccurrenceName(const AssemblyContext& ctx, int64_t fsIndex, int64_t occurrenceIndex);
// The first occurrence with a part of its own: its file structure and part index.
bool findPartDefinition(const AssemblyContext& ctx, int64_t fsIndex, int64_t occurrenceIndex, int64_t& partFs,
                        int64_t& partIndex);
// The first occurrence with sons of its own: their file structure and the list.
const std::vector<uint32_t>* findSonOccurrences(const AssemblyContext& ctx, int64_t fsIndex, int64_t occurrenceIndex,
                                                int64_t& sonFs);

}  // namespace model
