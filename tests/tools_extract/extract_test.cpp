// meshdrone-extract as a user runs it: exit codes, messages, numbered
// outputs, the report, stand-in workers that misbehave in every way a host
// can see, and the real 3D PDFs with the real worker, whose files are read
// back here by code that shares nothing with the tool's writers.

#include <png.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tools/extract/extract_app.h"
#include "tools/extract/input_models.h"
#include "tools/inspect/result_stream_reader.h"

extern char** environ;

namespace extract {
namespace {

using Bytes = std::vector<uint8_t>;
namespace fs = std::filesystem;

template <class T = Bytes>
T readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return T(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
void writeFile(const std::string& path, const auto& bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}
std::string dataFile(const std::string& name) { return MESHDRONE_TEST_DATA "/" + name; }
bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// A fresh directory, removed with everything in it at the end of the test.
struct ScratchDir {
    std::string path = [] {
        std::string pattern = fs::temp_directory_path().string() + "/extract-test-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot create a scratch directory");
        return pattern;
    }();
    ~ScratchDir() { std::error_code ignored; fs::remove_all(path, ignored); }
    std::string file(const std::string& name) const { return path + "/" + name; }
};

// Starts meshdrone-extract with these arguments, TMPDIR set to tmpdir and
// the shell redirections given; sh and env exec it, so it keeps their pid.
pid_t startTool(std::vector<std::string> args, const std::string& tmpdir, const std::string& redirections = "") {
    args.insert(args.begin(), {"/bin/sh", "-c", "exec \"$0\" \"$@\"" + redirections, "/usr/bin/env", "TMPDIR=" + tmpdir,
                               MESHDRONE_EXTRACT_EXE});
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) throw std::runtime_error("no tool");
    return pid;
}

// A PDF built for a test from object texts: add() and stream() return
// "n 0 R", which later texts use to refer to them.
struct PdfBuilder {
    using Object = QPDFObjectHandle;
    QPDF pdf;
    std::vector<Object> pages;
    PdfBuilder() { pdf.emptyPDF(); }
    static std::string ref(Object object) { return object.getObjGen().unparse(' ') + " R"; }
    std::string add(const std::string& text) { return ref(pdf.makeIndirectObject(Object::parse(&pdf, text))); }
    // A stream of these bytes, stored raw under the filter when one is named.
    std::string stream(const Bytes& data, const std::string& dictionary = "<< >>", const std::string& filter = "") {
        Object stream = pdf.newStream(std::string(data.begin(), data.end()));
        stream.replaceDict(Object::parse(&pdf, dictionary));
        if (!filter.empty())
            stream.replaceStreamData(std::string(data.begin(), data.end()), Object::newName("/" + filter), Object::newNull());
        return ref(stream);
    }
    std::string file(const std::string& name, const std::string& streamRef) {
        return add("<< /Type /Filespec /F (" + name + ") /EF << /F " + streamRef + " >> >>");
    }
    // An object that refers to itself: text holds SELF where the reference goes.
    std::string loop(std::string text) {
        Object reserved = pdf.makeIndirectObject(Object::newNull());
        for (size_t at; (at = text.find("SELF")) != std::string::npos;) text.replace(at, 4, ref(reserved));
        pdf.replaceObject(reserved.getObjGen(), Object::parse(&pdf, text));
        return ref(reserved);
    }
    // A page whose annotations come after a link annotation, so that ours are not the only ones.
    void page(const std::vector<std::string>& annotations) {
        std::string list = "[ << /Type /Annot /Subtype /Link /Rect [0 0 10 10] >> ";
        for (const std::string& a : annotations) list += a + " ";
        Object page = pdf.makeIndirectObject(Object::parse(&pdf, "<< /Type /Page /MediaBox [0 0 612 792] /Resources << >> /Annots " + list + "] >>"));
        QPDFPageDocumentHelper(pdf).addPage(QPDFPageObjectHelper(page), false);
    }
    void write(const std::string& path, const std::string& catalogNames = "") {
        if (!catalogNames.empty()) pdf.getRoot().replaceKey("/Names", Object::parse(&pdf, catalogNames));
        QPDFWriter writer(pdf, path.c_str());
        // Raw data stays as it is given (junk under a filter included); the rest
        // is compressed, as real PDFs store their streams.
        writer.setDecodeLevel(qpdf_dl_none);
        writer.setStaticID(true);
        writer.write();
    }
};
std::string annotation3d(const std::string& data, const std::string& more = "") {
    return "<< /Type /Annot /Subtype /3D /Rect [50 50 450 350] /3DD " + data + " " + more + " >>";
}

// Triangles as corner positions with the corners sorted, and sorted: two sets
// compare equal whatever the order and rotation.
using Triangle = std::array<std::array<float, 3>, 3>;
std::vector<Triangle> canonical(std::vector<Triangle> triangles) {
    for (Triangle& t : triangles) std::sort(t.begin(), t.end());
    std::sort(triangles.begin(), triangles.end());
    return triangles;
}

// The JSON chunk and the binary chunk of a GLB file, checked for the framing.
struct Glb { nlohmann::json json; Bytes bin; };
Glb readGlb(const std::string& path) {
    const Bytes bytes = readFile(path);
    const auto u32 = [&](size_t at) {
        uint32_t v = 0;
        if (at + 4 <= bytes.size()) std::memcpy(&v, &bytes[at], 4);
        return v;
    };
    const size_t bin = 20 + size_t{u32(12)};
    if (u32(0) != 0x46546C67 || u32(4) != 2 || u32(8) != bytes.size() || u32(16) != 0x4E4F534A || bin % 4 != 0 ||
        bin + 8 + u32(bin) != bytes.size() || u32(bin + 4) != 0x004E4942)
        throw std::runtime_error("broken GLB framing: " + path);
    return {nlohmann::json::parse(bytes.begin() + 20, bytes.begin() + bin), Bytes(bytes.begin() + bin + 8, bytes.end())};
}
// The triangles of one glTF mesh, read through its accessors.
std::vector<Triangle> glbTriangles(const Glb& glb, int mesh) {
    const nlohmann::json& primitive = glb.json.at("meshes").at(mesh).at("primitives").at(0);
    const nlohmann::json& positions = glb.json.at("accessors").at(primitive.at("attributes").at("POSITION").get<int>());
    const nlohmann::json& indices = glb.json.at("accessors").at(primitive.at("indices").get<int>());
    const auto start = [&](const nlohmann::json& accessor) {
        return glb.json.at("bufferViews").at(accessor.at("bufferView").get<int>()).value("byteOffset", size_t{0}) +
               accessor.value("byteOffset", size_t{0});
    };
    const size_t width = indices.at("componentType") == 5123 ? 2 : 4;
    std::vector<Triangle> out(indices.at("count").get<size_t>() / 3);
    for (size_t i = 0; i < out.size() * 3; ++i) {
        uint32_t index = 0;  // little-endian, as the buffer; .at() of the last byte bounds each read
        std::memcpy(&index, &glb.bin.at(start(indices) + i * width + width - 1) - (width - 1), width);
        if (index >= positions.at("count").get<uint32_t>()) throw std::runtime_error("GLB index out of range");
        std::memcpy(out[i / 3][i % 3].data(), &glb.bin.at(start(positions) + size_t{index} * 12 + 11) - 11, 12);
    }
    return canonical(out);
}

// The width and the RGB pixels of a PNG file; no pixels when it is no whole PNG.
std::pair<uint32_t, Bytes> readPng(const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    Bytes rgb;
    if (png_image_begin_read_from_file(&image, path.c_str())) {
        image.format = PNG_FORMAT_RGB;
        rgb.resize(PNG_IMAGE_SIZE(image));
        if (!png_image_finish_read(&image, nullptr, rgb.data(), 0, nullptr)) rgb.clear();
    }
    png_image_free(&image);
    return {image.width, rgb};
}

// What a shell command printed, and its exit status.
std::pair<int, std::string> shell(const std::string& command) {
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    std::string out;
    char buffer[4096];
    for (size_t got; pipe != nullptr && (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, got);
    const int status = pipe == nullptr ? -1 : ::pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

// Every GLB a test writes is read by two readers that share nothing with
// the writer: assimp, and the Khronos glTF validator where npm installed it
// (scripts/install-deps.sh), which must find no error.
void checkGltf(const std::string& path) {
    const auto [assimp, said] = shell("assimp info '" + path + "'");
    EXPECT_EQ(assimp, 0) << said;
    const char *home = std::getenv("HOME"), *dir = std::getenv("MESHDRONE_NODE_DIR");
    const std::string modules = (dir ? std::string(dir) : std::string(home ? home : "/nonexistent") + "/.cache/meshdrone/node") +
                                "/node_modules";
    if (!fs::exists(modules + "/gltf-validator/package.json")) {
        std::fprintf(stderr, "gltf-validator is not installed: %s checked by assimp only\n", path.c_str());
        return;
    }
    const auto [errors, report] = shell(
        "NODE_PATH='" + modules + "' node -e 'const v = require(\"gltf-validator\");"
        "v.validateBytes(new Uint8Array(require(\"fs\").readFileSync(process.argv[1]))).then(r => {"
        "for (const m of r.issues.messages) if (m.severity == 0) console.log(m.code, m.message, m.pointer);"
        "process.exit(r.issues.numErrors ? 1 : 0); })' '" + path + "'");
    EXPECT_EQ(errors, 0) << path << ": " << report;
}

class ExtractTool : public ::testing::Test {
protected:
    // The exit code (128 + signal when killed) and what it wrote.
    struct Run { int exit_code; std::string out, err; };
    Run run(std::vector<std::string> args, bool realWorker = false, const std::string& tmpdir = "") {
        if (realWorker) args.insert(args.end(), {"--worker", MESHDRONE_WORKER_EXE});
#if defined(__SANITIZE_ADDRESS__)
        // ASan's shadow memory does not fit in any address-space limit.
        if (realWorker) args.insert(args.end(), {"--memory", "0"});
#endif
        const std::string out = capture_.file("out"), err = capture_.file("err");
        const pid_t pid = startTool(args, tmpdir.empty() ? tmp_.path : tmpdir, " >'" + out + "' 2>'" + err + "'");
        int status = 0;
        ::waitpid(pid, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), readFile<std::string>(out),
                readFile<std::string>(err)};
    }
    // A stand-in worker: an executable shell script with the given body.
    std::string script(const std::string& body) {
        const std::string path = dir_.file("worker" + std::to_string(scripts_++) + ".sh");
        writeFile(path, "#!/bin/bash\n" + body + "\n");
        fs::permissions(path, fs::perms::owner_all);
        return path;
    }
    void TearDown() override { EXPECT_TRUE(fs::is_empty(tmp_.path)) << "a temporary file was left behind"; }
    ScratchDir dir_, tmp_, capture_;
    int scripts_ = 0;
    const std::string prc_ = dataFile("gen/tet_red.prc");
};

TEST_F(ExtractTool, BadUsageExitsWithTwo) {
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{}, {"a.pdf", "b.pdf"}, {"--size", "0x10", "a.pdf"}, {"-f", "dwg", "a.pdf"},
          {"--json", "a.pdf"}, {"--timeout", "-1", "a.pdf"}, {"--frobnicate", "a.pdf"}, {"a.pdf", "-o"}}) {
        const Run result = run(args);
        EXPECT_EQ(result.exit_code, kExitUsage) << result.err;
        EXPECT_TRUE(contains(result.err, "Try 'meshdrone-extract --help'")) << result.err;
    }
    EXPECT_TRUE(contains(run({"--help"}).out, "Exit status:"));
}

TEST_F(ExtractTool, InputsWithout3dOrUnreadableHaveTheirOwnExitCodes) {
    const auto make = [&](const std::string& name, const auto& bytes) {
        writeFile(dir_.file(name), bytes);
        return dir_.file(name);
    };
    const std::string plain = dir_.file("plain.pdf");
    PdfBuilder builder;
    builder.page({});
    builder.write(plain);
    // Cut in half, the PDF loses its page tree and every 3D annotation.
    const Bytes whole = readFile(dataFile("pdf/solidworks-2018-assembly.pdf"));
    const std::tuple<std::string, int, std::string> cases[] = {
        {plain, kExitNo3d, ": no 3D model found on its 1 page (no 3D annotation, no RichMedia 3D instance, no attached PRC file)\n"},
        {make("notes.txt", std::string("hello")), kExitBadInput, ": neither a PDF nor a PRC file\n"},
        {make("empty.pdf", std::string()), kExitBadInput, ": the file is empty\n"},
        {dir_.file("absent.pdf"), kExitBadInput, ": cannot open: No such file or directory\n"},
        {make("broken.pdf", std::string("%PDF-1.7\nthis is no PDF at all\n")), kExitBadInput, ": the PDF cannot be read: "},
        {make("cut.pdf", Bytes(whole.begin(), whole.begin() + whole.size() / 2)), kExitBadInput,
         ": the PDF is damaged beyond repair: no page could be recovered (file is damaged)"},
    };
    for (const auto& [path, code, message] : cases) {
        const Run result = run({path});
        EXPECT_EQ(result.exit_code, code) << path;
        EXPECT_EQ(result.err.rfind("meshdrone-extract: " + path + message, 0), 0u) << result.err;
    }
}

// Every carrier of a model: 3D annotations (directly, through a 3D
// reference, lying /Subtype, streams that are not PRC or cannot be
// decoded), RichMedia instances of any configuration (an asset named twice,
// a script beside it, one without its file), attachments by annotation and
// by name tree. Each stream is one model, named by its first place.
TEST_F(ExtractTool, EveryCarrierOfEveryPageIsNumberedAndReported) {
    const std::string pdf = dir_.file("several.pdf");
    const Bytes prc = readFile(prc_), junk = {'n', 'o', 't', ' ', 'P', 'R', 'C'}, text = {'h', 'i'};
    PdfBuilder b;
    const std::string shared = b.file("a.prc", b.stream(prc, "<< /Type /EmbeddedFile >>"));
    const std::string script = b.file("s.js", b.stream(text));
    const auto instance = [](const std::string& subtype, const std::string& asset) {
        return "<< /Type /RichMediaInstance /Subtype /" + subtype + " /Asset " + asset + " >> ";
    };
    b.page({b.add(annotation3d(b.stream(prc, "<< /Type /3D /Subtype /PRC >>"))),
            b.add(annotation3d(b.add("<< /Type /3DRef /3DD " + b.stream(prc, "<< /Subtype /PRC >>") + " >>"))),
            b.add(annotation3d(b.stream({'U', '3', 'D', 0}, "<< /Subtype /U3D >>"))),
            b.add(annotation3d(b.stream(junk, "<< /Subtype /PRC >>"))),
            b.add(annotation3d(b.stream(junk, "<< /Subtype /PRC >>", "FlateDecode"))),
            b.add(annotation3d(b.stream(prc, "<< /Subtype /U3D >>")))});
    b.page({});
    b.page({b.add("<< /Type /Annot /Subtype /RichMedia /Rect [0 0 400 300] /RichMediaContent << /Configurations ["
                  "<< /Subtype /3D /Name (first) /Instances [" + instance("3D", shared) + instance("JavaScript", script) +
                  instance("3D", shared) + "] >> << /Subtype /Flash /Instances [" +
                  instance("3D", b.file("b.prc", b.stream(prc))) + instance("3D", "<< /F (gone.prc) >>") + "] >> ] >> >>"),
            b.add("<< /Type /Annot /Subtype /FileAttachment /Rect [0 0 9 9] /FS " + shared + " >>"),
            b.add("<< /Type /Annot /Subtype /FileAttachment /Rect [0 0 9 9] /FS " + script + " >>")});
    b.write(pdf, "<< /EmbeddedFiles << /Names [(a.prc) " + shared + " (c.prc) " + b.file("c.prc", b.stream(prc)) +
                     " (notes.txt) " + script + "] >> >>");

    const Run result = run({pdf, "--info", "--json", "-o", dir_.file("out.glb"), "--png", dir_.file("v.png"), "--size", "64x48"}, true);
    EXPECT_EQ(result.exit_code, kExitSomeFailed) << result.err;
    for (const char* suffix : {"-p1-a1", "-p1-a2", "-p1-a6", "-p3-a1-c1-i1", "-p3-a1-c2-i1", "-e2"}) {
        SCOPED_TRACE(suffix);
        const std::string glb = dir_.file(std::string("out") + suffix + ".glb");
        EXPECT_EQ(glbTriangles(readGlb(glb), 0).size(), 4u);  // the tetrahedron
        checkGltf(glb);
        const auto [width, rgb] = readPng(dir_.file(std::string("v") + suffix + ".png"));
        EXPECT_EQ(rgb.size(), 64u * 48 * 3);
    }
    for (const char* problem : {"page 1, 3D annotation 3 (object ", "is U3D, which is not supported (only PRC is)",
                                "is not PRC data although its /Subtype is /PRC", ") cannot be decoded",
                                "configuration 2, instance 2, asset 'gone.prc' (object ",
                                "the asset 'gone.prc' has no embedded file (/EF /F)"})
        EXPECT_TRUE(contains(result.err, problem)) << problem << "\n" << result.err;
    const nlohmann::json report = nlohmann::json::parse(result.out);
    EXPECT_EQ(report["pages_with_3d"], nlohmann::json::array({1, 3}));
    std::vector<std::string> outcomes;
    for (const nlohmann::json& model : report["models"]) outcomes.push_back(model["outcome"]);
    EXPECT_EQ(outcomes, (std::vector<std::string>{"decoded", "decoded", "not supported", "not PRC", "unreadable", "decoded",
                                                  "decoded", "decoded", "unreadable", "decoded"}));
    std::vector<std::string> places;  // of the asset named twice, attached twice
    for (const nlohmann::json& place : report["models"][6]["places"]) places.push_back(place["description"]);
    EXPECT_EQ(places, (std::vector<std::string>{"page 3, RichMedia annotation 1, configuration 1 (first), instance 1, asset 'a.prc'",
                                                "page 3, RichMedia annotation 1, configuration 1 (first), instance 3, asset 'a.prc'",
                                                "page 3, file attachment annotation 2, 'a.prc'", "attached file 'a.prc'"}));
    EXPECT_EQ(report["models"][9]["written"], nlohmann::json::array({dir_.file("out-e2.glb"), dir_.file("v-e2.png")}));

    // --info alone writes nothing.
    EXPECT_EQ(run({pdf, "--info"}, true).exit_code, kExitSomeFailed);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_.path), {}), 13);
}

// Damage costs the model it touches only: a file that is not there, one
// whose data cannot be decoded, one that claims to be huge, a 3D reference
// and a name tree that lead back to themselves.
TEST_F(ExtractTool, BrokenCarriersCostTheirModelOnly) {
    const std::string pdf = dir_.file("broken.pdf");
    const Bytes prc = readFile(prc_), junk = {'x', 'y'};
    PdfBuilder b;
    const std::string big = b.stream(prc, "<< /Type /EmbeddedFile /Params << /Size 99999999999 >> >>");
    b.page({b.add(annotation3d(b.loop("<< /Type /3DRef /3DD SELF >>"))),
            b.add("<< /Type /Annot /Subtype /RichMedia /Rect [0 0 400 300] /RichMediaContent << /Configurations [ << "
                  "/Instances [ << /Subtype /3D /Asset " + b.add("<< /F (no.prc) /EF << >> >>") + " >> << /Subtype /3D /Asset " +
                  b.file("bad.prc", b.stream(junk, "<< >>", "FlateDecode")) + " >> << /Subtype /3D /Asset " + b.file("big.prc", big) +
                  " >> << /Subtype /3D /Asset " + b.file("ok.prc", b.stream(prc)) + " >> ] >> ] >> >>")});
    b.write(pdf, "<< /EmbeddedFiles " + b.loop("<< /Kids [SELF] >>") + " >>");
    // The huge stream also declares a length far past the end of the file.
    std::string bytes = readFile<std::string>(pdf);
    const size_t at = bytes.find("/Length", bytes.find("/Size 99999999999"));
    bytes.replace(at, bytes.find_first_of(">/", at + 8) - at, "/Length 99999999999 ");
    writeFile(pdf, bytes);

    const Run result = run({pdf, "-o", dir_.file("out.glb")}, true);
    EXPECT_EQ(result.exit_code, kExitSomeFailed) << result.err;
    for (const char* problem : {"3D annotation 1 (object", "the 3D reference of the annotation names no 3D stream",
                                "asset 'no.prc' (object", "the asset 'no.prc' has no embedded file (/EF /F)",
                                "the filters of the embedded file 'bad.prc' (object", "warning: "})
        EXPECT_TRUE(contains(result.err, problem)) << problem << "\n" << result.err;
    for (const char* suffix : {"-p1-a2-c1-i3", "-p1-a2-c1-i4"}) checkGltf(dir_.file(std::string("out") + suffix + ".glb"));
}

// A stand-in worker's every way to fail costs its model only, with a message.
TEST_F(ExtractTool, AFailingWorkerFailsItsModelOnly) {
    const auto answer = [&](uint8_t status, const std::string& message, const std::string& then = "") {
        std::string header(48, '\0');
        header[16] = char(message.size()), header[20] = char(status);
        writeFile(dir_.file("answer" + std::to_string(scripts_)), header + message);
        return script("cat " + dir_.file("answer" + std::to_string(scripts_)) + then);
    };
    const std::string plain = dir_.file("plain"), seen = dir_.file("seen");
    writeFile(plain, std::string("not a program"));
    const std::pair<std::string, std::string> cases[] = {
        {answer(1, ""), "the model holds no triangles to show"},
        {answer(2, ""), "the worker could not decode the model (malformed or unsupported PRC data)"},
        {answer(0, ""), "the worker ran out of memory while building the mesh"},
        {answer(2, "no"), "the worker refused the model: \"no\""},
        {answer(1, "", "; exit 1"), "the worker ended with status 1 (its answer could not be written whole)"},
        {script("echo garbage"), "the worker's answer is not a valid result stream: "},
        {script("exec cat /dev/zero"), "the worker printed more than its result stream announced (48 bytes)"},
        {script("echo 'about to fall' >&2; kill -SEGV $$"),
         "the worker crashed (signal 11, Segmentation fault); it may have run into its memory limit of 64 MB "
         "(--memory); it said: about to fall"},
        // One string of 100 MB under a 64 MB address space.
        {script("x=$(head -c 100000000 /dev/zero | tr '\\0' a); echo ${#x}"), "the worker ended with status 2; it said: "},
        {script("exec >&-; sleep 20"), "the worker did not finish within 3 s and was stopped (--timeout)"},
        {dir_.file("nowhere"), "cannot start the worker " + dir_.file("nowhere") + ": No such file or directory"},
        {plain, "cannot start the worker " + plain + ": Permission denied"},
        // The worker gets a private copy of the data, in TMPDIR.
        {script("stat -c %a \"$1\" > " + seen + "; cmp \"$1\" " + prc_ + " && echo \"$1\" >> " + seen),
         "the worker ended without an answer"},
    };
    for (const auto& [worker, expected] : cases) {
        // Only the sleeper waits for its time limit; the others get room for a loaded machine.
        const bool sleeper = expected.find("--timeout") != std::string::npos;
        const Run result = run({prc_, "--worker", worker, "--timeout", sleeper ? "3" : "60", "--memory", "64", "-o",
                                dir_.file("x.glb")});
        EXPECT_EQ(result.exit_code, kExitSomeFailed) << worker;
        EXPECT_EQ(result.err.rfind("meshdrone-extract: " + prc_ + ": the PRC file: " + expected, 0), 0u) << result.err;
        EXPECT_FALSE(fs::exists(dir_.file("x.glb")));
    }
    EXPECT_EQ(readFile<std::string>(seen).rfind("600\n" + tmp_.path + "/meshdrone-", 0), 0u) << readFile<std::string>(seen);

    Run result = run({prc_}, true, "/nonexistent-dir");
    EXPECT_EQ(result.exit_code, kExitSomeFailed);
    EXPECT_TRUE(contains(result.err, "cannot create a temporary file in /nonexistent-dir: No such file or directory"));
    result = run({prc_, "-o", "/dev/full", "-f", "ply"}, true);
    EXPECT_EQ(result.exit_code, kExitWriteFailed);
    EXPECT_TRUE(contains(result.err, "the PRC file: cannot write /dev/full: No space left on device")) << result.err;
}

TEST_F(ExtractTool, StoppedByASignalItTakesItsWorkerAndTemporaryFileWithIt) {
    const std::string pidFile = dir_.file("worker.pid");
    const std::string worker = script("echo $$ > " + pidFile + ".part; mv " + pidFile + ".part " + pidFile + "; sleep 30");
    const pid_t tool = startTool({prc_, "--worker", worker, "-q"}, tmp_.path);
    for (int i = 0; i < 500 && !fs::exists(pidFile); ++i) ::usleep(10000);
    const std::string workerStat = "/proc/" + std::to_string(std::atoi(readFile<std::string>(pidFile).c_str())) + "/stat";
    EXPECT_TRUE(fs::exists(workerStat));
    ::kill(tool, SIGTERM);
    int status = 0;
    ASSERT_EQ(::waitpid(tool, &status, 0), tool);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
    // The worker is gone, or only waits to be reaped by its new parent.
    std::string stat;
    for (int i = 0; i < 200 && !(stat = readFile<std::string>(workerStat)).empty() && !contains(stat, ") Z"); ++i)
        ::usleep(10000);
    EXPECT_TRUE(stat.empty() || contains(stat, ") Z")) << stat;
    // (The fixture checks that the temporary file is gone.)
}

// A view with a known camera puts known vertices at known pixels, in the
// picture and through the glTF camera; --view picks the others by name,
// number or "iso". The tetrahedron's corners: 0, and s on each axis.
TEST_F(ExtractTool, ViewsPutKnownVerticesAtKnownPixels) {
    const std::string pdf = dir_.file("views.pdf");
    const double s = 141.42136;  // as the worker places the corners
    PdfBuilder b;
    // Both look down -Z with world +Y up (+X to the right), onto a 400 x 300 rectangle.
    const std::string top = b.add("<< /XN (Top) /C2W [-1 0 0 0 1 0 0 0 -1 50 20 500] /P << /Subtype /O /OS 1 /OB /Absolute >> "
                                  "/BG << /C [0 0 1] >> >>");
    const std::string near = b.add("<< /IN (near) /C2W [-1 0 0 0 1 0 0 0 -1 0 0 400] /P << /Subtype /P /FOV 90 /PS /W >> >>");
    b.page({b.add(annotation3d(b.stream(readFile(prc_), "<< /Subtype /PRC /VA [" + top + " " + near + "] >>"), "/3DV 1"))});
    b.write(pdf);
    // Corners at (x, y) in the picture: ortho, 1 point per unit, the camera over (50, 20); perspective with a
    // focal length of 200 pixels (90 degrees over 400), from 400 over the origin.
    const double p = 200.0 * s / 400;
    const std::tuple<std::string, std::array<double, 4>, bool> cases[] = {
        {"Top", {150, 150 + s, 170 - s, 170}, true}, {"", {200, 200 + p, 150 - p, 150}, true}, {"2", {200, 200 + p, 150 - p, 150}, false}};
    for (const auto& [view, box, glbToo] : cases) {
        SCOPED_TRACE(view);
        std::vector<std::string> args = {pdf, "--png", dir_.file("v.png"), "-o", dir_.file("m.glb"), "--size", "400x300"};
        if (!view.empty()) args.insert(args.end(), {"--view", view});
        ASSERT_EQ(run(args, true).exit_code, kExitDone);
        const auto [width, rgb] = readPng(dir_.file("v.png"));
        std::array<double, 4> drawn = {1e9, -1e9, 1e9, -1e9};  // x from, x to, y from, y to
        for (size_t i = 0; i < rgb.size(); i += 3) {
            if (rgb[i] == rgb[0] && rgb[i + 1] == rgb[1] && rgb[i + 2] == rgb[2]) continue;
            const double x = i / 3 % 400, y = i / 3 / 400;
            drawn = {std::min(drawn[0], x), std::max(drawn[1], x + 1), std::min(drawn[2], y), std::max(drawn[3], y + 1)};
        }
        for (int k = 0; k < 4; ++k) EXPECT_NEAR(drawn[k], box[k], 1.0) << k;
        if (view == "Top") {
            EXPECT_EQ(Bytes(rgb.begin(), rgb.begin() + 3), (Bytes{0, 0, 255}));  // the view's background
        }
        if (!glbToo) continue;
        // Through the glTF camera (the default view's first, whatever --view says):
        // the cameras turn with the model, so the corner s on X goes straight into
        // the camera's frame, then onto the picture.
        const Glb glb = readGlb(dir_.file("m.glb"));
        checkGltf(dir_.file("m.glb"));
        const int camera = view == "Top" ? 1 : 0;
        const nlohmann::json& views = glb.json["nodes"][glb.json["scenes"][0]["nodes"].back().get<int>()];
        const nlohmann::json& node = glb.json["nodes"][views["children"][camera].get<int>()];
        const nlohmann::json& lens = glb.json["cameras"][node["camera"].get<int>()];
        // The corner relative to the camera, turned back by the conjugate of its rotation.
        const std::array<double, 3> v = {s - node["translation"][0].get<double>(), -node["translation"][1].get<double>(),
                                         -node["translation"][2].get<double>()};
        const double x = -node["rotation"][0].get<double>(), y = -node["rotation"][1].get<double>(),
                     z = -node["rotation"][2].get<double>(), w = node["rotation"][3];
        const std::array<double, 3> t = {2 * (y * v[2] - z * v[1]), 2 * (z * v[0] - x * v[2]), 2 * (x * v[1] - y * v[0])};
        const std::array<double, 3> local = {v[0] + w * t[0] + y * t[2] - z * t[1], v[1] + w * t[1] + z * t[0] - x * t[2],
                                             v[2] + w * t[2] + x * t[1] - y * t[0]};
        const bool ortho = lens["type"] == "orthographic";
        const double half = ortho ? lens["orthographic"]["ymag"].get<double>() : -local[2] * std::tan(lens["perspective"]["yfov"].get<double>() / 2);
        EXPECT_NEAR(200 + local[0] / half * 150, camera == 1 ? 150 + s : 200 + p, 0.5);
        EXPECT_NEAR(150 - local[1] / half * 150, camera == 1 ? 170 : 150, 0.5);
        EXPECT_EQ(node["name"], camera == 1 ? "view: Top" : "view: near");
    }
    const Run missing = run({pdf, "--png", dir_.file("v.png"), "-o", dir_.file("m.glb"), "--view", "Side"}, true);
    EXPECT_EQ(missing.exit_code, kExitSomeFailed);
    EXPECT_TRUE(contains(missing.err, "no view named 'Side' to draw: the model's views are 'Top', 'near'")) << missing.err;
}

// The real worker on the real PDFs: the GLB, read back here, and the report
// must hold exactly what the worker's own stream holds.
TEST_F(ExtractTool, RealPdfsExportWhatTheWorkerDecoded) {
    const std::tuple<const char*, uint32_t, uint32_t, const char*> pdfs[] = {
        {"small-part.pdf", 8137, 1, "fileView"}, {"solidworks-2018-assembly.pdf", 17093, 26, "Default"},
        {"office-editor-assembly.pdf", 15083, 4, "Studio"}, {"media9-style.pdf", 8137, 1, "Default"}};
    for (const auto& [name, authoring, fileStructures, shown] : pdfs) {
        SCOPED_TRACE(name);
        const std::string pdf = dataFile(std::string("pdf/") + name), glbPath = dir_.file("m.glb");
        // A single model keeps the output names as given.
        const Run result = run({pdf, "--info", "--json", "-o", glbPath}, true);
        ASSERT_EQ(result.exit_code, kExitDone) << result.err;
        const nlohmann::json model = nlohmann::json::parse(result.out)["models"][0];
        EXPECT_EQ(model["prc"]["authoring_version"], authoring);
        EXPECT_EQ(model["prc"]["file_structures"], fileStructures);
        EXPECT_EQ(model["views"][0]["name"], shown);
        EXPECT_EQ(model["views"][0]["shown_on_opening"], true);

        const WorkerRun direct = runWorker(MESHDRONE_WORKER_EXE, readInputModels(pdf).models.at(0).bytes, {60, 0});
        const auto stream = result_reader::readResultStream(direct.answer.data(), direct.answer.size());
        EXPECT_EQ(model["triangles"], stream.header.triangle_count);
        EXPECT_EQ(model["vertices"], stream.header.vertex_count);
        ASSERT_EQ(model["parts"].size(), stream.parts.size());
        const Glb glb = readGlb(glbPath);
        checkGltf(glbPath);
        ASSERT_GE(glb.json["nodes"].size(), stream.parts.size());
        std::array<float, 3> lo = {INFINITY, INFINITY, INFINITY}, hi = {-INFINITY, -INFINITY, -INFINITY};  // of the GLB
        for (uint32_t i = 0; i < stream.parts.size(); ++i) {
            SCOPED_TRACE(i);
            const PartRecord& part = stream.parts[i];
            const nlohmann::json& node = glb.json["nodes"][i];
            const bool root = part.parent_index == kNoParent;
            EXPECT_EQ(model["parts"][i]["parent"], root ? nlohmann::json() : nlohmann::json(part.parent_index));
            EXPECT_EQ(node["name"], toValidUtf8(result_reader::partName(part)));
            EXPECT_EQ(node.contains("rotation"), root);  // Z up is turned to Y up at the roots only
            if (!root) {
                const nlohmann::json& siblings = glb.json["nodes"][part.parent_index]["children"];
                EXPECT_EQ(std::count(siblings.begin(), siblings.end(), i), 1);
            }
            std::vector<Triangle> own(part.triangle_count);
            for (size_t k = 0; k < own.size() * 3; ++k)
                std::memcpy(own[k / 3][k % 3].data(), &stream.positions[stream.triangles[part.first_triangle * 3 + k] * 3], 12);
            const std::vector<Triangle> exported = node.contains("mesh") ? glbTriangles(glb, node["mesh"]) : std::vector<Triangle>{};
            EXPECT_EQ(exported, canonical(own));
            for (size_t k = 0; k < exported.size() * 9; ++k) {
                const float value = exported[k / 9][k % 9 / 3][k % 3];
                lo[k % 3] = std::min(lo[k % 3], value), hi[k % 3] = std::max(hi[k % 3], value);
            }
        }
        EXPECT_EQ((model["bounding_box"]["min"].get<std::array<float, 3>>()), lo);
        EXPECT_EQ((model["bounding_box"]["max"].get<std::array<float, 3>>()), hi);
    }
}

}  // namespace
}  // namespace extract
