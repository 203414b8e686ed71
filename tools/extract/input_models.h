#pragma once
// What the input holds: a raw PRC stream is one model; a PDF holds one model
// per 3D annotation, whose /3DD names the 3D stream directly or through a
// 3D reference dictionary.

#include <cstdint>
#include <string>
#include <vector>

namespace extract {

enum class InputKind { Pdf, Prc };

enum class StreamKind {
    Prc,        // PRC data: handed to the worker
    U3d,        // the other 3D format of PDF, which this tool does not read
    Unknown,    // data that is neither
    Unreadable  // no stream, or one whose filters could not be undone
};

struct ModelSource {
    uint32_t page = 0;        // 1-based; 0 for a raw PRC input
    uint32_t annotation = 0;  // 1-based among the page's 3D annotations
    std::string annotation_object;  // "9 0", empty when it is a direct object
    std::string stream_object;      // "7 0" of the 3D stream
    bool through_reference = false;  // /3DD was a 3D reference dictionary
    std::string declared_subtype;    // the stream's /Subtype, e.g. "PRC"
    StreamKind kind = StreamKind::Unreadable;
    std::string problem;  // why the model cannot be used (kind U3d, Unknown, Unreadable)
    std::vector<uint8_t> bytes;  // the decoded stream data
};

struct InputModels {
    InputKind kind = InputKind::Prc;
    uint64_t file_bytes = 0;
    std::string pdf_version;  // "1.7"
    uint32_t page_count = 0;
    std::vector<std::string> warnings;  // damage the PDF reader worked around
    std::vector<ModelSource> models;
};

// The largest stream handed to the worker: its input size must be a
// positive signed 32-bit value.
inline constexpr uint64_t kMaxModelBytes = 0x7FFFFFFF;

// Reads the input file. Throws std::runtime_error with a message that names
// the file when it cannot be read, is neither PDF nor PRC, or is a PDF too
// damaged to walk; a single bad annotation or stream only marks its model.
InputModels readInputModels(const std::string& path);

// The same, from bytes already in memory (path is used in messages only).
InputModels readInputModels(const std::string& path, std::vector<uint8_t> bytes);

// "page 2, 3D annotation 1 (object 9 0, 3D stream 7 0)", or "the PRC file".
std::string describeSource(const ModelSource& source);

}  // namespace extract
