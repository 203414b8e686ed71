#pragma once
// What became of one model: the worker's answer, checked and turned into a
// mesh, or the reason why there is none.

#include <cstdint>
#include <string>
#include <vector>

#include "prc/exact/exact_summary.h"
#include "tools/extract/input_models.h"
#include "tools/extract/model_mesh.h"
#include "tools/extract/worker_run.h"

namespace extract {

enum class Outcome {
    Decoded,        // a mesh with at least one triangle
    NoGeometry,     // the worker's failure header: decoded, but no triangle
    DecodingError,  // the worker's failure header: malformed or unsupported data
    OutOfMemory,    // the worker's failure header: its output arrays did not fit
    Refused,        // the worker's error record, with its message
    WorkerFailed,   // the worker crashed, hung, could not start or could not be given the data
    InvalidAnswer,  // it ended normally but its answer is not a valid result stream
    NotSupported,   // a U3D stream
    NotPrc,         // a 3D stream that is not PRC data
    Unreadable,     // no 3D stream, or one whose filters cannot be undone
};

const char* outcomeName(Outcome outcome);  // "decoded", "no geometry", ...

// The versions a PRC file announces in its first bytes, read by the host
// itself so that they are known whatever the worker answers.
struct PrcHeaderPeek {
    bool valid = false;
    uint32_t minimal_version_for_read = 0;
    uint32_t authoring_version = 0;
    uint32_t number_of_file_structures = 0;
};
PrcHeaderPeek peekPrcHeader(const std::vector<uint8_t>& bytes);

// True when a file structure of the PRC file has a geometry section with
// more in it than an empty one: exact surfaces that the exact decoder may
// draw where the worker finds no triangle. Read from the header alone.
bool holdsExactGeometry(const std::vector<uint8_t>& bytes);

struct ModelResult {
    ModelSource source;  // without its bytes once handled
    uint64_t stream_bytes = 0;
    PrcHeaderPeek prc;
    Outcome outcome = Outcome::Unreadable;
    std::string message;  // why there is no mesh; empty for Decoded
    ModelMesh mesh;  // emptied once the files are written; the counts and box below stay
    uint32_t vertex_count = 0, triangle_count = 0;
    Box box;  // of the vertices the triangles use
    // The statistics of a success stream (globals summed over file structures).
    uint32_t color_count = 0, material_count = 0, style_count = 0;
    // Set when the mesh was tessellated from exact surfaces by the exact
    // decoder: what it reported in the stream's optional block.
    bool exact = false;
    prc::exact::ExactSummary exact_summary;
    double seconds = 0;
    std::vector<std::string> written;  // files written for this model
    std::vector<std::string> write_errors;
};

// Interprets the worker's run and answer for a PRC model.
void interpretWorkerRun(const WorkerRun& run, const WorkerLimits& limits, ModelResult& result);

}  // namespace extract
