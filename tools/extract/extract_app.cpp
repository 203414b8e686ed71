#include "tools/extract/extract_app.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <set>
#include <stdexcept>

#include <CLI/CLI.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include "tools/extract/input_models.h"
#include "tools/extract/model_result.h"
#include "tools/extract/preview_render.h"
#include "tools/extract/report.h"

#ifndef MESHDRONE_VERSION
#define MESHDRONE_VERSION "0"
#endif

namespace extract {

namespace {

constexpr const char* kProgram = "meshdrone-extract";
constexpr uint32_t kMaxPictureSide = 8192;

bool parseUnsigned(const std::string& text, uint64_t max, uint64_t* value) {
    if (text.empty()) return false;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), *value);
    return result.ec == std::errc() && result.ptr == text.data() + text.size() && *value <= max;
}

bool parseSeconds(const std::string& text, double* value) {
    if (text.empty()) return false;
    char* end = nullptr;
    *value = std::strtod(text.c_str(), &end);
    // Up to a day: a longer limit is no limit at all in practice.
    return end == text.c_str() + text.size() && std::isfinite(*value) && *value >= 0 && *value <= 86400;
}

bool parseSize(const std::string& text, uint32_t* width, uint32_t* height) {
    const size_t x = text.find_first_of("xX");
    if (x == std::string::npos) return false;
    uint64_t w = 0, h = 0;
    if (!parseUnsigned(text.substr(0, x), kMaxPictureSide, &w) || !parseUnsigned(text.substr(x + 1), kMaxPictureSide, &h))
        return false;
    if (w == 0 || h == 0) return false;
    *width = static_cast<uint32_t>(w);
    *height = static_cast<uint32_t>(h);
    return true;
}

std::string baseName(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// True when both paths name the same existing file.
bool sameFile(const std::string& a, const std::string& b) {
    struct stat first, second;
    return ::stat(a.c_str(), &first) == 0 && ::stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

std::string plural(uint64_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

// A line on standard error that rewrites itself, shown only on a terminal.
class ProgressLine {
public:
    explicit ProgressLine(bool enabled) : enabled_(enabled) {}
    void show(const std::string& what, double seconds) {
        // Quick models finish without a flicker of text.
        if (!enabled_ || seconds < 0.5) return;
        std::fprintf(stderr, "\r%s: %s: decoding, %.1f s\033[K", kProgram, what.c_str(), seconds);
        std::fflush(stderr);
        shown_ = true;
    }
    void clear() {
        if (!shown_) return;
        std::fprintf(stderr, "\r\033[K");
        std::fflush(stderr);
        shown_ = false;
    }

private:
    bool enabled_;
    bool shown_ = false;
};

// The view the picture shows: the index in the model's views, -1 for the
// isometric one; nothing, with the reason, when --view names no view of it.
std::optional<int> chooseView(const ModelSource& source, const std::string& wanted, std::string* error) {
    if (wanted.empty()) return source.default_view;
    if (wanted == "iso") return -1;
    const int count = static_cast<int>(source.views.size());
    if (wanted.find_first_not_of("0123456789") == std::string::npos) {
        uint64_t number = 0;
        if (parseUnsigned(wanted, 1u << 30, &number) && number >= 1 && number <= uint64_t(count))
            return static_cast<int>(number - 1);
        *error = "no view " + wanted + " to draw: the model has " + plural(count, "view", "views");
        return std::nullopt;
    }
    for (int i = 0; i < count; ++i) {
        if (source.views[i].name == wanted || source.views[i].internal_name == wanted) return i;
    }
    std::string names;
    for (const View3d& view : source.views) names += (names.empty() ? "" : ", ") + ("'" + view.name + "'");
    *error = "no view named '" + wanted + "' to draw: the model's views are " + (names.empty() ? "none" : names);
    return std::nullopt;
}

// The glTF cameras: the view shown on opening (the isometric one when the
// document names none), then the model's other views in their order.
std::vector<ViewCamera> modelCameras(const ModelSource& source, const Box& box, UpAxis up) {
    std::vector<ViewCamera> cameras;
    std::set<std::string> names;
    // Readers find a camera's node by its name, so each name is unique and
    // set apart from the part names.
    const auto add = [&](const View3d& view, const std::string& number) {
        if (std::optional<ViewCamera> camera = viewCamera(view, box)) {
            camera->name = "view: " + (view.name.empty() ? number : view.name);
            if (!names.insert(camera->name).second) names.insert(camera->name += " (" + number + ")");
            cameras.push_back(std::move(*camera));
        }
    };
    const int chosen = source.default_view;
    if (chosen >= 0 && size_t(chosen) < source.views.size()) {
        add(source.views[chosen], std::to_string(chosen + 1));
    } else {
        add(isometricView(box, up), "isometric");
    }
    for (size_t i = 0; i < source.views.size(); ++i) {
        if (int(i) != chosen) add(source.views[i], std::to_string(i + 1));
    }
    return cameras;
}

}  // namespace

std::string helpText() {
    return std::string("Usage: ") + kProgram + R"( [OPTIONS] INPUT

Exports the 3D models of a PDF, or of a raw PRC file, as mesh files, draws a
preview picture of them, or describes them. INPUT is told apart by its content.
Every PRC model of the PDF is found: in 3D annotations, in the 3D instances of
RichMedia annotations (as LaTeX's media9 package writes them), and in attached
files; a model reached from several places is decoded once. Each one is decoded
by the meshdrone worker, run in a process of its own with a time and a memory
limit, exactly as a PDF viewer runs it. A model that holds exact surfaces only
(no triangles, as Asymptote writes them) is then handed to the exact decoder,
meshdrone-exact (found beside the worker), under the same limits; its mesh is
tessellated to a chord tolerance of 0.002 of the model's size, and the report
says so. U3D models are reported but not read.

Output:
  -o, --output FILE    the model file to write (default: INPUT's file name with
                       the format's extension, in the current directory). When
                       the input holds several models, each model's file gets
                       its place before the extension, e.g. -o car.glb writes
                       car-p1-a1.glb, car-p1-a2.glb, ... (-p<page>-a<annotation>,
                       annotations counted from 1 among the page's ones that
                       hold models; -c<configuration>-i<instance> follow for a
                       RichMedia annotation; -e<n> for the document's n-th
                       attached file)
  -f, --format FORMAT  glb (glTF 2.0 binary: a node per part with its name and
                       place in the part tree, vertex colours, a camera per
                       view, the view shown on opening first; the default),
                       obj (vertex colours, one object per part), ply (binary,
                       vertex colours) or stl (binary). Without it the
                       extension of -o chooses.
      --png FILE       also draw a preview picture, flat shaded, in the model's
                       colours, from the view the document shows on opening
                       (isometric when it names none); named like -o for
                       several models
      --view NAME|N|iso  draw the picture from the model's view of that name,
                       its N-th view (from 1, as --info lists them) or the
                       isometric one; a model without that view fails
      --size WxH       size of the picture (default 512x512, at most 8192)
      --up z|y         the model's up axis (default z, as CAD models are); the
                       glTF file and the picture are turned upright to match
      --info           describe the input instead: pages with 3D models, each
                       model's places, views, outcome, counts, part tree,
                       bounding box, PRC versions. Model files are then
                       written only when -o or -f is given, pictures when
                       --png is.
      --json           with --info: the description as JSON
  -q, --quiet          report only errors

Worker:
      --worker PATH    the meshdrone worker (default: the one beside this
                       program, else the first on PATH)
      --timeout SECONDS  time limit per model (default 30; 0: none)
      --memory MB      address-space limit of the worker (default 2048; 0: none)

  -h, --help           show this text
      --version        show the version

Exit status:
  0  every 3D model was decoded, and its files written
  1  some models failed (each one is reported on standard error with its
     place), or have no view that --view names; the others were written
  2  bad usage
  3  the input holds no 3D model
  4  the input cannot be read: missing, damaged beyond repair, or neither a
     PDF nor a PRC file
  5  an output file could not be written (it is not left half written)
)";
}

ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments) {
    ParsedCommandLine parsed;
    Options& o = parsed.options;
    const auto error = [&](const std::string& text) {
        parsed.action = ParsedCommandLine::Action::Error;
        parsed.error = text;
        return parsed;
    };
    // Values are taken as text and checked below, so that every bad value
    // gets a message that says what the option wants.
    CLI::App app(kProgram, kProgram);
    app.set_help_flag();  // the help text is ours, printed by the caller
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    bool help = false, version = false;
    std::vector<std::string> inputs;
    std::string format, size, up, timeout, memory;
    app.add_flag("-h,--help", help);
    app.add_flag("--version", version);
    app.add_flag("-q,--quiet", o.quiet);
    app.add_flag("--info", o.info);
    app.add_flag("--json", o.json);
    app.add_option("-o,--output", o.output);
    app.add_option("-f,--format", format);
    app.add_option("--png", o.png);
    app.add_option("--size", size);
    app.add_option("--up", up);
    app.add_option("--view", o.view);
    app.add_option("--worker", o.worker);
    app.add_option("--timeout", timeout);
    app.add_option("--memory", memory);
    app.add_option("input", inputs)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    try {
        // CLI11 takes the arguments last to first.
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
        app.parse(reversed);
    } catch (const CLI::ExtrasError&) {
        for (const std::string& arg : app.remaining()) {
            if (arg.size() > 1 && arg[0] == '-') return error("unknown option '" + arg.substr(0, arg.find('=')) + "'");
        }
        return error("unexpected arguments");
    } catch (const CLI::ArgumentMismatch& e) {
        const std::string text = e.what();  // "--output: 1 required TEXT missing"
        return error("option " + text.substr(0, text.find(':')) + " needs a value");
    } catch (const CLI::ParseError& e) {
        return error(e.what());
    }
    if (help) {
        parsed.action = ParsedCommandLine::Action::Help;
        return parsed;
    }
    if (version) {
        parsed.action = ParsedCommandLine::Action::Version;
        return parsed;
    }
    const auto given = [&](const char* name) { return app.get_option(name)->count() > 0; };
    if (given("--output") && o.output.empty()) return error("option --output needs a file name");
    if (given("--format")) {
        o.format = meshFormatFromName(format);
        if (!o.format) return error("unknown format '" + format + "': use glb, obj, ply or stl");
    }
    if (given("--png") && o.png.empty()) return error("option --png needs a file name");
    if (given("--size") && !parseSize(size, &o.width, &o.height))
        return error("option --size needs WIDTHxHEIGHT, each from 1 to 8192 (e.g. 800x600)");
    if (given("--up")) {
        if (up != "z" && up != "y") return error("option --up needs z or y");
        o.up = up == "z" ? UpAxis::Z : UpAxis::Y;
    }
    if (given("--view") && o.view.empty()) return error("option --view needs a view's name, its number or iso");
    if (given("--worker") && o.worker.empty()) return error("option --worker needs the worker's path");
    if (given("--timeout") && !parseSeconds(timeout, &o.limits.timeout_seconds))
        return error("option --timeout needs seconds from 0 (no limit) to 86400");
    uint64_t mb = 0;
    // Up to 1 TiB; the limit is on address space, not on what is used.
    if (given("--memory") && !parseUnsigned(memory, uint64_t{1} << 20, &mb))
        return error("option --memory needs megabytes from 0 (no limit) to 1048576");
    if (given("--memory")) o.limits.memory_mb = mb;
    if (inputs.size() > 1) return error("one input file only (got '" + inputs[0] + "' and '" + inputs[1] + "')");
    if (inputs.empty()) return error("no input file given");
    o.input = inputs[0];
    if (o.json && !o.info) return error("--json goes with --info");
    return parsed;
}

std::string numberedOutputName(const std::string& base, bool several, const ModelPlace& place) {
    if (!several) return base;
    const std::string suffix = placeSuffix(place);
    const size_t slash = base.find_last_of('/');
    const size_t dot = base.find_last_of('.');
    // A leading dot (".hidden") starts a name, not an extension.
    const size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
    if (dot == std::string::npos || dot <= nameStart) return base + suffix;
    return base.substr(0, dot) + suffix + base.substr(dot);
}

std::string defaultOutputName(const std::string& input, const char* extension) {
    std::string name = baseName(input);
    const size_t dot = name.find_last_of('.');
    if (dot != std::string::npos && dot > 0) name.resize(dot);
    if (name.empty()) name = "model";
    return name + extension;
}

int runExtract(int argc, char** argv) {
    std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    const ParsedCommandLine parsed = parseCommandLine(arguments);
    switch (parsed.action) {
        case ParsedCommandLine::Action::Help: std::fputs(helpText().c_str(), stdout); return kExitDone;
        case ParsedCommandLine::Action::Version: std::printf("%s %s\n", kProgram, MESHDRONE_VERSION); return kExitDone;
        case ParsedCommandLine::Action::Error:
            std::fprintf(stderr, "%s: %s\nTry '%s --help' for more information.\n", kProgram, parsed.error.c_str(),
                         kProgram);
            return kExitUsage;
        case ParsedCommandLine::Action::Run: break;
    }
    const Options& o = parsed.options;
    const auto complain = [&](const std::string& text) { std::fprintf(stderr, "%s: %s\n", kProgram, text.c_str()); };

    InputModels input;
    try {
        input = readInputModels(o.input);
    } catch (const std::exception& e) {
        complain(e.what());
        return kExitBadInput;
    }

    Report report;
    report.input_path = o.input;
    report.input_bytes = input.file_bytes;
    report.kind = input.kind;
    report.pdf_version = input.pdf_version;
    report.page_count = input.page_count;
    report.warnings = input.warnings;
    if (!o.info && !o.quiet && !input.warnings.empty()) {
        complain("warning: " + o.input + ": the PDF is damaged; the reader worked around " +
                 plural(input.warnings.size(), "problem", "problems") + " (first: " + input.warnings.front() + ")");
    }

    const bool writeModels = !o.info || !o.output.empty() || o.format.has_value();
    MeshFormat format = MeshFormat::Glb;
    if (o.format) {
        format = *o.format;
    } else if (auto fromName = meshFormatFromExtension(o.output)) {
        format = *fromName;
    }
    const std::string outputBase = o.output.empty() ? defaultOutputName(o.input, meshFormatExtension(format)) : o.output;
    const std::string worker = o.worker.empty() ? findDefaultWorker() : o.worker;
    const bool several = input.models.size() > 1;
    ProgressLine progress(!o.quiet && ::isatty(STDERR_FILENO));
    bool anyFailed = false, anyWriteFailed = false;

    for (ModelSource& source : input.models) {
        ModelResult result;
        result.stream_bytes = source.bytes.size();
        const std::vector<uint8_t> bytes = std::move(source.bytes);
        source.bytes = {};
        result.source = source;
        const std::string where = o.input + ": " + describeSource(result.source);

        switch (source.kind) {
            case StreamKind::Prc:
                result.prc = peekPrcHeader(bytes);
                if (worker.empty()) {
                    result.outcome = Outcome::WorkerFailed;
                    result.message = "cannot find the meshdrone worker beside this program or on PATH; "
                                     "give its path with --worker";
                } else {
                    // Short enough for one terminal line, which \r can rewrite.
                    const std::string label =
                        source.place().kind == PlaceKind::PrcFile ? baseName(o.input) : describePlace(source.place());
                    const WorkerRun run =
                        runWorker(worker, bytes, o.limits, [&](double seconds) { progress.show(label, seconds); });
                    progress.clear();
                    interpretWorkerRun(run, o.limits, result);
                    // A model the worker finds no triangle in may hold exact
                    // surfaces only: the exact decoder, under the same limits
                    // in a process of its own, tessellates them.
                    const std::string exact = findProgram("meshdrone-exact", worker);
                    if (result.outcome == Outcome::NoGeometry && holdsExactGeometry(bytes) && !exact.empty()) {
                        ModelResult second = result;
                        const WorkerRun exactRun = runWorker(
                            exact, bytes, o.limits, [&](double seconds) { progress.show(label, run.seconds + seconds); });
                        progress.clear();
                        interpretWorkerRun(exactRun, o.limits, second);
                        second.seconds += run.seconds;
                        if (second.outcome == Outcome::Decoded) {
                            result = std::move(second);
                        } else if (second.outcome != Outcome::NoGeometry) {
                            result.message += "; the exact surfaces could not be drawn either: " + second.message;
                        }
                    }
                }
                break;
            case StreamKind::U3d: result.outcome = Outcome::NotSupported, result.message = source.problem; break;
            case StreamKind::Unknown: result.outcome = Outcome::NotPrc, result.message = source.problem; break;
            case StreamKind::Unreadable: result.outcome = Outcome::Unreadable, result.message = source.problem; break;
        }

        if (result.outcome == Outcome::Decoded) {
            ExportInfo info;
            info.model_name = baseName(o.input);
            if (several) info.model_name += " " + placeSuffix(source.place()).substr(1);
            info.generator = std::string(kProgram) + " " + MESHDRONE_VERSION;
            info.up = o.up;
            info.cameras = modelCameras(source, result.box, o.up);
            const auto written = [&](const std::string& path, bool ok, const std::string& error) {
                if (ok) {
                    result.written.push_back(path);
                } else {
                    result.write_errors.push_back(error);
                    anyWriteFailed = true;
                }
            };
            if (writeModels) {
                const std::string path = numberedOutputName(outputBase, several, source.place());
                std::string error;
                if (sameFile(path, o.input)) {
                    written(path, false, "refusing to overwrite the input file " + path);
                } else {
                    const bool ok = exportMesh(result.mesh, format, info, path, &error);
                    written(path, ok, error);
                }
            }
            if (!o.png.empty()) {
                const std::string path = numberedOutputName(o.png, several, source.place());
                std::string error;
                const std::optional<int> view = chooseView(source, o.view, &error);
                if (!view) {
                    // The model is there, its picture is not: a failed model.
                    complain(where + ": " + error);
                    anyFailed = true;
                } else if (sameFile(path, o.input)) {
                    written(path, false, "refusing to overwrite the input file " + path);
                } else {
                    const PreviewImage image = *view < 0 ? renderPreview(result.mesh, o.width, o.height, o.up)
                                                         : renderPreview(result.mesh, o.width, o.height, source.views[*view]);
                    written(path, writePng(image, path, &error), error);
                }
            }
            // Only the part tree is kept for the report.
            result.mesh.positions = {};
            result.mesh.triangles = {};
            result.mesh.colors = {};
        } else {
            anyFailed = true;
        }

        if (result.outcome != Outcome::Decoded) {
            complain(where + ": " + result.message);
        } else {
            for (const std::string& error : result.write_errors) complain(where + ": " + error);
            if (!o.quiet && !o.info) {
                std::string line = where + ": " + plural(result.triangle_count, "triangle", "triangles") + ", " +
                                   plural(result.mesh.parts.size(), "part", "parts");
                if (result.exact) {
                    const std::vector<std::string> notes = prc::exact::describeExactSummary(result.exact_summary);
                    for (size_t i = 0; i < notes.size(); ++i) line += (i == 0 ? " (" : "; ") + notes[i];
                    line += ")";
                }
                for (size_t i = 0; i < result.written.size(); ++i) line += (i == 0 ? " -> " : ", ") + result.written[i];
                complain(line);
            }
        }
        report.models.push_back(std::move(result));
    }

    if (o.info) {
        const std::string text = o.json ? reportJson(report) : reportText(report);
        std::fputs(text.c_str(), stdout);
        if (std::fflush(stdout) != 0) {
            complain(std::string("cannot write the report: ") + std::strerror(errno));
            anyWriteFailed = true;
        }
    }
    if (input.models.empty()) {
        complain(o.input + ": no 3D model found" +
                 (input.kind == InputKind::Pdf ? " on its " + plural(input.page_count, "page", "pages") +
                                                     " (no 3D annotation, no RichMedia 3D instance, no attached PRC file)"
                                               : ""));
        return kExitNo3d;
    }
    if (anyWriteFailed) return kExitWriteFailed;
    return anyFailed ? kExitSomeFailed : kExitDone;
}

}  // namespace extract
