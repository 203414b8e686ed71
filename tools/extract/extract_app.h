#pragma once
// The meshdrone-extract command: options, the run over every model of the
// input, the files it writes and its exit status.

#include <optional>
#include <string>
#include <vector>

#include "tools/extract/input_models.h"
#include "tools/extract/mesh_export.h"
#include "tools/extract/worker_run.h"

namespace extract {

enum ExitCode : int {
    kExitDone = 0,           // every 3D model was decoded (and written)
    kExitSomeFailed = 1,     // at least one model could not be decoded or used
    kExitUsage = 2,          // bad command line
    kExitNo3d = 3,           // the input holds no 3D model
    kExitBadInput = 4,       // the input cannot be read, or is neither PDF nor PRC
    kExitWriteFailed = 5,    // an output file could not be written
};

struct Options {
    std::string input;
    std::string output;  // empty: derived from the input's name
    std::optional<MeshFormat> format;
    std::string png;
    uint32_t width = 512, height = 512;
    UpAxis up = UpAxis::Z;
    bool info = false;
    bool json = false;
    bool quiet = false;
    std::string view;    // --view: a view's name, its number from 1, or "iso"; empty: the default view
    std::string worker;  // empty: found beside the executable or on PATH
    WorkerLimits limits;
};

struct ParsedCommandLine {
    enum class Action { Run, Help, Version, Error } action = Action::Run;
    Options options;
    std::string error;
};

ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments);

// The name of a model's file: base itself for an input with one 3D model;
// otherwise base with its place ("-p<page>-a<annotation>", ...) before its extension.
std::string numberedOutputName(const std::string& base, bool several, const ModelPlace& place);

// The default output: the input's file name with its extension replaced, in
// the current directory.
std::string defaultOutputName(const std::string& input, const char* extension);

std::string helpText();

int runExtract(int argc, char** argv);

}  // namespace extract
