#pragma once
// What the input holds: a raw PRC stream is one model; a PDF holds a model in
// every 3D annotation (its /3DD names the 3D stream directly or through a 3D
// reference dictionary), in every 3D instance of a RichMedia annotation (an
// embedded file), and in every attached file whose bytes are PRC. The same
// stream reached from several places is one model with several places.
//
// The whole interface is readInputModels(): a path or bytes in, the models
// with their places, bytes and views out. It never starts the worker.

#include <cstdint>
#include <string>
#include <vector>

#include "tools/extract/view3d.h"

namespace extract {

enum class InputKind { Pdf, Prc };

enum class StreamKind {
    Prc,        // PRC data: handed to the worker
    U3d,        // the other 3D format of PDF, which this tool does not read
    Unknown,    // data that is neither
    Unreadable  // no stream, or one whose filters could not be undone
};

enum class PlaceKind {
    PrcFile,         // the input is the PRC file itself
    Annotation3d,    // a 3D annotation's /3DD
    RichMedia,       // a 3D instance of a RichMedia annotation's configuration
    FileAttachment,  // a file attachment annotation's file
    EmbeddedFile,    // a file of the document's /EmbeddedFiles name tree
};

struct ModelPlace {
    PlaceKind kind = PlaceKind::PrcFile;
    uint32_t page = 0;           // 1-based; 0 for a raw PRC file and a document's attached file
    uint32_t annotation = 0;     // 1-based among the page's annotations that carry models
    uint32_t configuration = 0;  // RichMedia: 1-based among the annotation's configurations
    uint32_t instance = 0;       // RichMedia: 1-based among the configuration's instances
    uint32_t attachment = 0;     // EmbeddedFile: 1-based in the name tree's order
    std::string configuration_name;  // RichMedia: the configuration's /Name
    std::string file_name;           // the embedded file's name (asset, attachment)
    std::string annotation_object;   // "9 0", empty when it is a direct object
    bool through_reference = false;  // /3DD was a 3D reference dictionary
};

struct ModelSource {
    std::vector<ModelPlace> places;  // never empty; the first one names the model
    std::string stream_object;       // "7 0" of the 3D stream or embedded file
    std::string declared_subtype;    // the stream's /Subtype, e.g. "PRC"
    StreamKind kind = StreamKind::Unreadable;
    std::string problem;  // why the model cannot be used (kind U3d, Unknown, Unreadable)
    std::vector<uint8_t> bytes;  // the decoded stream data
    std::vector<View3d> views;   // the views the document gives it, in its order
    int default_view = -1;       // index in views of the one shown on opening; -1: none

    const ModelPlace& place() const { return places.front(); }
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

// "page 2, 3D annotation 1 (object 9 0)", "page 1, RichMedia annotation 1,
// configuration 1 (name), instance 1, asset 'a.prc'", "attached file 'a.prc'",
// or "the PRC file".
std::string describePlace(const ModelPlace& place);

// The first place, with the stream: "page 2, 3D annotation 1 (object 9 0, 3D stream 7 0)".
std::string describeSource(const ModelSource& source);

// What tells the place apart in a file name: "-p2-a1", "-p1-a1-c1-i2", "-e3".
std::string placeSuffix(const ModelPlace& place);

}  // namespace extract
