// Running the worker as a host does, against stand-in workers that misbehave
// in every way a crashed, hung or hostile worker can, and reading its answer.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>

#include "tests/tools_extract/extract_test_support.h"
#include "tools/extract/model_result.h"
#include "tools/extract/worker_run.h"

namespace extract {
namespace {

using test::ScratchDir;

// Points TMPDIR at a directory of the test for the temporary model files.
class TemporaryDirectoryFixture : public ::testing::Test {
protected:
    void SetUp() override {
        const char* old = std::getenv("TMPDIR");
        had_ = old != nullptr;
        if (had_) old_ = old;
        ::setenv("TMPDIR", tmp_.path().c_str(), 1);
    }
    void TearDown() override {
        if (had_) {
            ::setenv("TMPDIR", old_.c_str(), 1);
        } else {
            ::unsetenv("TMPDIR");
        }
        EXPECT_TRUE(tmp_.entries().empty()) << "a temporary file was left behind";
    }
    WorkerRun run(const std::string& body, WorkerLimits limits = {}) {
        return runWorker(test::writeScript(dir_.file("worker.sh"), body), bytes_, limits);
    }
    ScratchDir dir_, tmp_;
    std::vector<uint8_t> bytes_ = {'P', 'R', 'C', 1, 2, 3, 0, 255};

private:
    bool had_ = false;
    std::string old_;
};

using ExtractWorkerRun = TemporaryDirectoryFixture;

TEST_F(ExtractWorkerRun, TheWorkerGetsAPrivateCopyOfTheBytesAndItsAnswerIsRead) {
    test::writeFile(dir_.file("answer"), test::successStream(test::sampleAssembly()));
    const WorkerRun result = run("stat -c %a \"$1\" > " + dir_.file("mode") + "; cp \"$1\" " + dir_.file("copy") +
                                 "; printf %s \"$1\" > " + dir_.file("path") + "; cat " + dir_.file("answer"));
    EXPECT_EQ(result.end, WorkerRun::End::Exited);
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.answer, test::readFile(dir_.file("answer")));
    EXPECT_EQ(test::readFile(dir_.file("mode")), std::vector<uint8_t>({'6', '0', '0', '\n'}));
    EXPECT_EQ(test::readFile(dir_.file("copy")), bytes_);
    const std::vector<uint8_t> path = test::readFile(dir_.file("path"));
    EXPECT_EQ(std::string(path.begin(), path.end()).rfind(tmp_.path() + "/meshdrone-", 0), 0u);
    // (The fixture checks that the file is gone.)
}

TEST_F(ExtractWorkerRun, AHungWorkerIsStoppedAtItsTimeLimitWithWhatItStarted) {
    const auto start = std::chrono::steady_clock::now();
    WorkerRun result = run("sleep 30 & wait", WorkerLimits{0.5, 0});
    EXPECT_EQ(result.end, WorkerRun::End::TimedOut);
    // A worker that closes its output and goes on running is timed out too.
    result = run("exec >&-; sleep 30", WorkerLimits{0.5, 0});
    EXPECT_EQ(result.end, WorkerRun::End::TimedOut);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(describeWorkerFailure(result, WorkerLimits{0.5, 0}),
              "the worker did not finish within 0.5 s and was stopped (--timeout)");
}

TEST_F(ExtractWorkerRun, CrashesAndTheMemoryLimitEndInAnAccountNotInAFault) {
    WorkerLimits limits{30, 64};
    WorkerRun result = run("echo 'about to fall' >&2; kill -SEGV $$", limits);
    EXPECT_EQ(result.end, WorkerRun::End::Signalled);
    EXPECT_EQ(result.signal, SIGSEGV);
    EXPECT_EQ(describeWorkerFailure(result, limits),
              "the worker crashed (signal 11, Segmentation fault); it may have run into its memory limit of 64 MB "
              "(--memory); it said: about to fall");

    // A shell that needs 200 MB for one string under a 64 MB address space.
    result = run("x=$(head -c 200000000 /dev/zero | tr '\\0' a); echo ${#x}", limits);
    EXPECT_FALSE(result.end == WorkerRun::End::Exited && result.exit_status == 0);
    EXPECT_EQ(std::string(result.answer.begin(), result.answer.end()).find("200000000"), std::string::npos);
}

TEST_F(ExtractWorkerRun, AnswersLongerThanAnnouncedAreCutOff) {
    // Zeros read as a 48-byte failure header, followed by more zeros.
    const WorkerRun result = run("exec cat /dev/zero");
    EXPECT_EQ(result.end, WorkerRun::End::AnswerTooLong);
    EXPECT_EQ(result.detail, "the worker printed more than its result stream announced (48 bytes)");
}

TEST_F(ExtractWorkerRun, AWorkerThatCannotBeStartedIsNamed) {
    const WorkerRun missing = runWorker(dir_.file("absent"), bytes_, {});
    EXPECT_EQ(missing.end, WorkerRun::End::CannotStart);
    EXPECT_EQ(missing.detail, "cannot start the worker " + dir_.file("absent") + ": No such file or directory");
    test::writeFile(dir_.file("plain"), std::string("not a program"));
    const WorkerRun plain = runWorker(dir_.file("plain"), bytes_, {});
    EXPECT_EQ(plain.detail, "cannot start the worker " + dir_.file("plain") + ": Permission denied");
}

TEST(ExtractWorkerTemporary, AnUnusableTemporaryDirectoryIsReported) {
    const char* old = std::getenv("TMPDIR");
    const std::string saved = old != nullptr ? old : "";
    ::setenv("TMPDIR", "/nonexistent-dir", 1);
    const WorkerRun result = runWorker("/bin/true", {'P', 'R', 'C'}, {});
    old != nullptr ? ::setenv("TMPDIR", saved.c_str(), 1) : ::unsetenv("TMPDIR");
    EXPECT_EQ(result.end, WorkerRun::End::TemporaryFailed);
    EXPECT_EQ(result.detail, "cannot create a temporary file in /nonexistent-dir: No such file or directory");
}

ModelResult interpret(const std::vector<uint8_t>& answer, int status = 0) {
    WorkerRun run;
    run.exit_status = status;
    run.answer = answer;
    ModelResult result;
    interpretWorkerRun(run, {}, result);
    return result;
}

TEST(ExtractWorkerAnswer, EveryKindOfStreamBecomesAnOutcome) {
    const ModelResult decoded = interpret(test::successStream(test::sampleAssembly(), 15083));
    ASSERT_EQ(decoded.outcome, Outcome::Decoded) << decoded.message;
    EXPECT_EQ(decoded.triangle_count, 6u);
    EXPECT_EQ(decoded.mesh.parts[3].name, "blue quad");
    EXPECT_EQ(decoded.mesh.parts[3].parent, 2u);
    EXPECT_EQ(decoded.prc.authoring_version, 15083u);
    EXPECT_EQ(decoded.style_count, 3u);
    EXPECT_EQ(decoded.box.max[0], 3.0f);

    EXPECT_EQ(interpret(test::failureHeader(1)).outcome, Outcome::NoGeometry);
    EXPECT_EQ(interpret(test::failureHeader(2)).outcome, Outcome::DecodingError);
    EXPECT_EQ(interpret(test::failureHeader(0)).outcome, Outcome::OutOfMemory);
    const ModelResult refused = interpret(test::errorRecord("impossibile aprire il file temporaneo con i dati PRC"));
    EXPECT_EQ(refused.outcome, Outcome::Refused);
    EXPECT_EQ(refused.message,
              "the worker refused the model: \"impossibile aprire il file temporaneo con i dati PRC\"");

    std::vector<uint8_t> cut = test::successStream(test::sampleAssembly());
    cut.resize(cut.size() - 1);
    const ModelResult broken = interpret(cut);
    EXPECT_EQ(broken.outcome, Outcome::InvalidAnswer);
    EXPECT_EQ(broken.message.rfind("the worker's answer is not a valid result stream: ", 0), 0u);
    EXPECT_EQ(interpret({}).message, "the worker ended without an answer");
    // Status 1 is the worker's own word that its answer fell short.
    EXPECT_EQ(interpret(test::failureHeader(1), 1).message,
              "the worker ended with status 1 (its answer could not be written whole)");
}

TEST(ExtractPrcHeader, VersionsAreReadByTheHostItself) {
    const PrcHeaderPeek peek = peekPrcHeader(test::readFile(test::dataFile("tet_red.prc")));
    ASSERT_TRUE(peek.valid);
    EXPECT_GT(peek.authoring_version, 0u);
    EXPECT_EQ(peek.number_of_file_structures, 1u);
    EXPECT_FALSE(peekPrcHeader({'P', 'R', 'C', 1}).valid);
}

}  // namespace
}  // namespace extract
