// meshdrone-extract as a user runs it: exit codes, messages, output naming,
// the report, and the files it writes for the real 3D PDFs with the real
// worker, compared with the worker's own result stream.

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <cstring>
#include <set>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/tools_extract/extract_test_support.h"
#include "tools/extract/extract_app.h"
#include "tools/extract/input_models.h"
#include "tools/extract/worker_run.h"
#include "tools/inspect/result_stream_reader.h"

namespace extract {
namespace {

using test::Annotation3d;
using test::ScratchDir;

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// The worker runs under ASan in the sanitizer build, whose shadow memory does
// not fit any address-space limit.
std::vector<std::string> memoryOption() {
#if defined(__SANITIZE_ADDRESS__)
    return {"--memory", "0"};
#else
    return {};
#endif
}

class ExtractTool : public ::testing::Test {
protected:
    // A stand-in worker that answers every model with the given stream.
    std::string answeringWorker(const std::vector<uint8_t>& answer) {
        test::writeFile(dir_.file("answer.bin"), answer);
        return test::writeScript(dir_.file("worker.sh"), "cat " + dir_.file("answer.bin"));
    }
    test::ToolRun run(std::vector<std::string> arguments) {
        return test::runTool(arguments, {{"TMPDIR", tmp_.path()}});
    }
    void TearDown() override { EXPECT_TRUE(tmp_.entries().empty()) << "a temporary file was left behind"; }
    ScratchDir dir_, tmp_;
};

TEST_F(ExtractTool, BadUsageExitsWithTwo) {
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{}, {"a.pdf", "b.pdf"}, {"--size", "0x10", "a.pdf"}, {"-f", "dwg", "a.pdf"},
          {"--json", "a.pdf"}, {"--timeout", "-1", "a.pdf"}, {"--frobnicate", "a.pdf"}, {"a.pdf", "-o"}}) {
        const test::ToolRun result = run(args);
        EXPECT_EQ(result.exit_code, kExitUsage) << result.err;
        EXPECT_TRUE(contains(result.err, "Try 'meshdrone-extract --help'")) << result.err;
    }
    const test::ToolRun help = run({"--help"});
    EXPECT_EQ(help.exit_code, 0);
    EXPECT_TRUE(contains(help.out, "Exit status:"));
}

TEST_F(ExtractTool, InputsWithout3dOrUnreadableHaveTheirOwnExitCodes) {
    const std::string plain = dir_.file("plain.pdf"), text = dir_.file("notes.txt");
    test::writePdf(plain, {{}});
    test::writeFile(text, std::string("hello"));
    test::ToolRun result = run({plain});
    EXPECT_EQ(result.exit_code, kExitNo3d);
    EXPECT_EQ(result.err, "meshdrone-extract: " + plain + ": no 3D annotation found on its 1 page\n");
    result = run({text});
    EXPECT_EQ(result.exit_code, kExitBadInput);
    EXPECT_EQ(result.err, "meshdrone-extract: " + text + ": neither a PDF nor a PRC file\n");
    result = run({dir_.file("absent.pdf")});
    EXPECT_EQ(result.exit_code, kExitBadInput);
    // Cut in half, the PDF loses its page tree and every 3D annotation.
    const std::vector<uint8_t> whole = test::readFile(test::dataFile("solidworks-2018-assembly.pdf"));
    const std::string cut = dir_.file("cut.pdf");
    test::writeFile(cut, std::vector<uint8_t>(whole.begin(), whole.begin() + whole.size() / 2));
    result = run({cut});
    EXPECT_EQ(result.exit_code, kExitBadInput);
    EXPECT_TRUE(contains(result.err, cut + ": the PDF is damaged beyond repair: no page could be recovered (file is damaged)"))
        << result.err;
}

TEST_F(ExtractTool, SeveralModelsAreNumberedByPageAndAnnotation) {
    const std::string pdf = dir_.file("several.pdf");
    const std::vector<uint8_t> prc = test::readFile(test::dataFile("tet_red.prc"));
    test::writePdf(pdf, {{Annotation3d{prc}, Annotation3d{prc, "PRC", true}}, {Annotation3d{prc}}});
    const std::string worker = answeringWorker(test::successStream(test::sampleAssembly()));
    const test::ToolRun result =
        run({pdf, "--worker", worker, "-o", dir_.file("out.obj"), "--png", dir_.file("view.png"), "--size", "64x48"});
    EXPECT_EQ(result.exit_code, kExitDone) << result.err;
    for (const char* suffix : {"-p1-a1", "-p1-a2", "-p2-a1"}) {
        EXPECT_TRUE(test::fileExists(dir_.file(std::string("out") + suffix + ".obj"))) << suffix;
        const test::Picture picture = test::readPng(dir_.file(std::string("view") + suffix + ".png"));
        EXPECT_EQ(picture.width, 64u);
        EXPECT_EQ(picture.height, 48u);
    }
    EXPECT_TRUE(contains(result.err, "page 2, 3D annotation 1 (object ")) << result.err;
    EXPECT_TRUE(contains(result.err, ": 6 triangles, 4 parts -> " + dir_.file("out-p2-a1.obj"))) << result.err;

    // One model keeps the name as given.
    const test::ToolRun single = run({test::dataFile("tet_red.prc"), "--worker", worker, "-o", dir_.file("one.glb")});
    EXPECT_EQ(single.exit_code, kExitDone) << single.err;
    EXPECT_EQ(test::readGlb(dir_.file("one.glb")).json["nodes"].size(), 4u);
}

TEST_F(ExtractTool, TheJsonReportDescribesEveryModel) {
    const std::string pdf = dir_.file("mixed.pdf");
    test::writePdf(pdf, {{Annotation3d{test::readFile(test::dataFile("tet_red.prc"))},
                          Annotation3d{{'U', '3', 'D', 0}, "U3D"}}});
    const std::string worker = answeringWorker(test::successStream(test::sampleAssembly()));
    const test::ToolRun result = run({pdf, "--info", "--json", "--worker", worker});
    EXPECT_EQ(result.exit_code, kExitSomeFailed);  // the U3D model
    EXPECT_TRUE(contains(result.err, "page 1, 3D annotation 2 (object ")) << result.err;
    EXPECT_TRUE(contains(result.err, "is U3D, which is not supported")) << result.err;
    const nlohmann::json report = nlohmann::json::parse(result.out);
    EXPECT_EQ(report["kind"], "pdf");
    EXPECT_EQ(report["pages_with_3d"], nlohmann::json::array({1}));
    ASSERT_EQ(report["models"].size(), 2u);
    const nlohmann::json& model = report["models"][0];
    EXPECT_EQ(model["outcome"], "decoded");
    EXPECT_EQ(model["triangles"], 6);
    EXPECT_EQ(model["parts"][3]["name"], "blue quad");
    EXPECT_EQ(model["parts"][3]["parent"], 2);
    EXPECT_EQ(model["parts"][0]["parent"], nullptr);
    EXPECT_EQ(model["bounding_box"]["max"], nlohmann::json::array({3.0, 1.0, 1.0}));
    EXPECT_EQ(model["written"], nlohmann::json::array());  // --info alone writes nothing
    EXPECT_EQ(report["models"][1]["outcome"], "not supported");
    EXPECT_TRUE(dir_.entries() == std::vector<std::string>({"answer.bin", "mixed.pdf", "worker.sh"}));

    const test::ToolRun text = run({pdf, "--info", "--worker", worker});
    EXPECT_TRUE(contains(text.out, "\n    assembly (0)\n      red tetra (4)\n      sub-assembly (0)\n        blue quad (2)\n"))
        << text.out;
}

TEST_F(ExtractTool, FailingWorkersFailTheirModelOnly) {
    const std::string prc = test::dataFile("tet_red.prc");
    struct Case {
        std::string body, expected;
    };
    for (const Case& c : {Case{"echo garbage", "the worker's answer is not a valid result stream: "},
                          Case{"kill -ABRT $$", "the worker crashed (signal 6, Aborted)"},
                          Case{"sleep 20", "the worker did not finish within 1 s and was stopped (--timeout)"}}) {
        const std::string worker = test::writeScript(dir_.file("bad.sh"), c.body);
        const test::ToolRun result = run({prc, "--worker", worker, "--timeout", "1", "-o", dir_.file("x.glb")});
        EXPECT_EQ(result.exit_code, kExitSomeFailed) << c.body;
        EXPECT_TRUE(contains(result.err, "meshdrone-extract: " + prc + ": the PRC file: " + c.expected)) << result.err;
        EXPECT_FALSE(test::fileExists(dir_.file("x.glb")));
        EXPECT_FALSE(contains(result.err, "decoding,")) << "a progress line outside a terminal";
    }
    const test::ToolRun missing = run({prc, "--worker", dir_.file("nowhere")});
    EXPECT_EQ(missing.exit_code, kExitSomeFailed);
    EXPECT_TRUE(contains(missing.err, "cannot start the worker " + dir_.file("nowhere") + ": No such file or directory"));
}

TEST_F(ExtractTool, AnOutputThatCannotBeWrittenExitsWithFive) {
    const std::string worker = answeringWorker(test::successStream(test::sampleAssembly()));
    const test::ToolRun result = run({test::dataFile("tet_red.prc"), "--worker", worker, "-o", "/dev/full", "-f", "ply"});
    EXPECT_EQ(result.exit_code, kExitWriteFailed);
    EXPECT_TRUE(contains(result.err, "the PRC file: cannot write /dev/full: No space left on device")) << result.err;
}

TEST_F(ExtractTool, StoppedByASignalItTakesItsWorkerAndTemporaryFileWithIt) {
    const std::string pidFile = dir_.file("worker.pid");
    const std::string worker = test::writeScript(dir_.file("slow.sh"), "echo $$ > " + pidFile + ".part; mv " + pidFile +
                                                                           ".part " + pidFile + "; sleep 30");
    std::string tmpdir = "TMPDIR=" + tmp_.path();
    std::vector<std::string> args = {MESHDRONE_EXTRACT_EXE, test::dataFile("tet_red.prc"), "--worker", worker, "-q"};
    std::vector<char*> argv, envp = {tmpdir.data(), nullptr};
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t tool;
    ASSERT_EQ(posix_spawn(&tool, argv[0], nullptr, nullptr, argv.data(), envp.data()), 0);
    for (int i = 0; i < 500 && !test::fileExists(pidFile); ++i) ::usleep(10000);
    ASSERT_TRUE(test::fileExists(pidFile));
    const std::vector<uint8_t> pidText = test::readFile(pidFile);
    const pid_t workerPid = std::stoi(std::string(pidText.begin(), pidText.end()));
    ::kill(tool, SIGTERM);
    int status = 0;
    ASSERT_EQ(::waitpid(tool, &status, 0), tool);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
    // The worker is gone (or only waits to be reaped by its new parent).
    std::string state = "gone";
    for (int i = 0; i < 200; ++i) {
        FILE* stat = std::fopen(("/proc/" + std::to_string(workerPid) + "/stat").c_str(), "r");
        if (stat == nullptr) break;
        char line[512] = {};
        std::fgets(line, sizeof line, stat);
        std::fclose(stat);
        state = std::strchr(line, ')') != nullptr ? std::string(1, std::strchr(line, ')')[2]) : "?";
        if (state == "Z") break;
        ::usleep(10000);
    }
    EXPECT_TRUE(state == "gone" || state == "Z") << "worker state " << state;
    // (The fixture checks that the temporary file is gone.)
}

TEST(ExtractOutputNames, NumberingKeepsTheExtension) {
    EXPECT_EQ(numberedOutputName("out.glb", false, 2, 1), "out.glb");
    EXPECT_EQ(numberedOutputName("dir.v2/out.glb", true, 2, 1), "dir.v2/out-p2-a1.glb");
    EXPECT_EQ(numberedOutputName("dir.v2/out", true, 1, 3), "dir.v2/out-p1-a3");
    EXPECT_EQ(numberedOutputName(".hidden", true, 1, 1), ".hidden-p1-a1");
    EXPECT_EQ(defaultOutputName("/papers/Car Model.pdf", ".stl"), "Car Model.stl");
}

// The real worker on the real PDFs: the GLB and the report must say what the
// worker's own stream says.
TEST(ExtractRealPdfs, ExportsMatchTheWorkersResultStream) {
    for (const char* name : {"small-part.pdf", "solidworks-2018-assembly.pdf", "office-editor-assembly.pdf"}) {
        SCOPED_TRACE(name);
        ScratchDir dir;
        const std::string pdf = test::dataFile(name);
        std::vector<std::string> args = {pdf,  "--worker", test::workerExecutable(), "--info", "--json",
                                         "-o", dir.file("m.glb"), "--png", dir.file("m.png")};
        const std::vector<std::string> memory = memoryOption();
        args.insert(args.end(), memory.begin(), memory.end());
        const test::ToolRun result = test::runTool(args);
        ASSERT_EQ(result.exit_code, kExitDone) << result.err;

        // The worker's own answer for the same stream.
        InputModels input = readInputModels(pdf);
        const WorkerRun direct = runWorker(test::workerExecutable(), input.models.at(0).bytes, {60, 0});
        const result_reader::ResultStream stream = result_reader::readResultStream(direct.answer.data(), direct.answer.size());
        ASSERT_EQ(stream.kind, result_reader::ResultKind::Success);

        const nlohmann::json model = nlohmann::json::parse(result.out)["models"][0];
        EXPECT_EQ(model["triangles"], stream.header.triangle_count);
        EXPECT_EQ(model["vertices"], stream.header.vertex_count);
        EXPECT_EQ(model["parts"].size(), stream.parts.size());

        const test::Glb glb = test::readGlb(dir.file("m.glb"));
        size_t triangles = 0;
        std::set<std::string> glbNames, streamNames;
        float lo[3] = {INFINITY, INFINITY, INFINITY}, hi[3] = {-INFINITY, -INFINITY, -INFINITY};
        for (const nlohmann::json& node : glb.json["nodes"]) {
            glbNames.insert(node.value("name", ""));
            if (!node.contains("mesh")) continue;
            const std::vector<float> corners = test::glbTriangles(glb, node["mesh"]);
            triangles += corners.size() / 9;
            for (size_t i = 0; i < corners.size(); ++i) lo[i % 3] = std::min(lo[i % 3], corners[i]), hi[i % 3] = std::max(hi[i % 3], corners[i]);
        }
        for (const PartRecord& part : stream.parts) streamNames.insert(toValidUtf8(result_reader::partName(part)));
        EXPECT_EQ(triangles, stream.header.triangle_count);
        for (const std::string& n : streamNames) EXPECT_TRUE(glbNames.count(n)) << n;
        for (int a = 0; a < 3; ++a) {
            EXPECT_EQ(lo[a], model["bounding_box"]["min"][a].get<float>());
            EXPECT_EQ(hi[a], model["bounding_box"]["max"][a].get<float>());
        }

        const test::Picture picture = test::readPng(dir.file("m.png"));
        EXPECT_EQ(picture.width, 512u);
        size_t drawn = 0;
        for (size_t i = 0; i < picture.rgb.size(); i += 3) drawn += picture.rgb[i] != picture.rgb[0] || picture.rgb[i + 2] != picture.rgb[2];
        EXPECT_GT(drawn, 512u * 512 / 20) << "the model covers almost nothing of the preview";
    }
}

}  // namespace
}  // namespace extract
