// Runs the built worker as the host does and checks what comes out of it.

#include <gtest/gtest.h>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tools/inspect/result_stream_reader.h"
#include "worker/decoded_model.h"

extern char** environ;

namespace {

using result_reader::ResultKind;
using result_reader::ResultStream;

enum class Output { Pipe, Closed, BrokenPipe };

struct Run {
    int exit_status = -1;
    std::vector<uint8_t> bytes;
};

std::string workerPath() {
    const char* dir = std::getenv("MESHDRONE_BIN");
    return dir != nullptr ? std::string(dir) + "/meshdrone" : std::string();
}

Run spawnWorker(const std::vector<std::string>& args, Output output = Output::Pipe) {
    const std::string program = workerPath();
    std::vector<std::string> argv = {program};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char*> pointers;
    for (std::string& arg : argv) pointers.push_back(arg.data());
    pointers.push_back(nullptr);

    int fds[2];
    EXPECT_EQ(pipe(fds), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // A broken pipe has lost its reader before the worker starts.
    if (output == Output::BrokenPipe) {
        close(fds[0]);
    } else {
        posix_spawn_file_actions_addclose(&actions, fds[0]);
    }
    if (output == Output::Closed) {
        posix_spawn_file_actions_addclose(&actions, STDOUT_FILENO);
    } else {
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    }
    posix_spawn_file_actions_addclose(&actions, fds[1]);

    pid_t pid = -1;
    EXPECT_EQ(posix_spawn(&pid, program.c_str(), &actions, nullptr, pointers.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    Run run;
    if (output != Output::BrokenPipe) {
        uint8_t chunk[4096];
        ssize_t got;
        while ((got = read(fds[0], chunk, sizeof chunk)) > 0) run.bytes.insert(run.bytes.end(), chunk, chunk + got);
        close(fds[0]);
    }
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status)) << "the worker died by a signal";
    run.exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

// The stream of a run that ended normally, checked by the reader.
ResultStream stream(const Run& run) {
    EXPECT_EQ(run.exit_status, 0);
    try {
        return result_reader::readResultStream(run.bytes.data(), run.bytes.size());
    } catch (const std::exception& e) {
        ADD_FAILURE() << "invalid stream: " << e.what();
        return {};
    }
}

std::string errorMessage(const Run& run) { return stream(run).message; }
uint32_t failureStatus(const Run& run) {
    const ResultStream s = stream(run);
    EXPECT_EQ(s.kind, ResultKind::FailureHeader);
    return s.header.status;
}

void putU32(std::string& bytes, uint32_t value) {
    for (int i = 0; i < 4; ++i) bytes.push_back(char(value >> (8 * i)));
}

// "PRC", both versions, two identifiers, no file structure, the model file offsets.
std::string headerOnlyPrc() {
    std::string bytes = "PRC";
    putU32(bytes, 8137);
    putU32(bytes, 8137);
    for (int i = 0; i < 8; ++i) putU32(bytes, 0x11111111u * i);
    putU32(bytes, 0);
    putU32(bytes, 55);
    putU32(bytes, 55);
    return bytes;
}

class WorkerProcess : public testing::Test {
protected:
    void SetUp() override {
        if (workerPath().empty()) GTEST_SKIP() << "MESHDRONE_BIN is not set";
        std::string pattern = testing::TempDir() + "meshdrone_worker_XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
    }
    void TearDown() override {
        if (!dir_.empty()) std::filesystem::remove_all(dir_);
    }
    std::string file(const std::string& name, const std::string& content) {
        const std::string path = dir_ + "/" + name;
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }
    std::string dir_;
};

const char* const kUsage = "uso interno: meshdrone <file>";
const char* const kCannotOpen = "impossibile aprire il file temporaneo con i dati PRC";

TEST_F(WorkerProcess, CommandLineErrors) {
    EXPECT_EQ(errorMessage(spawnWorker({})), kUsage);
    EXPECT_EQ(errorMessage(spawnWorker({"a.prc", "b.prc"})), kUsage);
    EXPECT_EQ(errorMessage(spawnWorker({""})), kCannotOpen);
}

TEST_F(WorkerProcess, InputFileErrors) {
    EXPECT_EQ(errorMessage(spawnWorker({dir_ + "/missing.prc"})), kCannotOpen);
    EXPECT_EQ(errorMessage(spawnWorker({dir_})), kCannotOpen);
    EXPECT_EQ(errorMessage(spawnWorker({file("empty.prc", "")})),
              "il flusso /3DD e' vuoto: non c'e' nessun modello da leggere");
}

// sysfs reports a page as the size of a file that holds a few bytes: the
// only short read that can be provoked from outside here.
TEST_F(WorkerProcess, ShortRead) {
    const char* path = "/sys/devices/system/cpu/online";
    if (access(path, R_OK) != 0) GTEST_SKIP() << "no " << path;
    EXPECT_EQ(errorMessage(spawnWorker({path})), "lettura incompleta del file temporaneo con i dati del modello");
}

TEST_F(WorkerProcess, DecodeOutcomes) {
    EXPECT_EQ(failureStatus(spawnWorker({file("not.prc", "%PDF-1.7 not a PRC stream")})), kOutcomeDecodingError);
    EXPECT_EQ(failureStatus(spawnWorker({file("header.prc", headerOnlyPrc())})), kOutcomeNoGeometry);
    // Spaces, non-ASCII and a byte that is not UTF-8 reach the file system unchanged.
    EXPECT_EQ(failureStatus(spawnWorker({file("dati modello \xC3\xA8 \xE4\xB8\xAD \xFF.prc", headerOnlyPrc())})),
              kOutcomeNoGeometry);
    EXPECT_EQ(failureStatus(spawnWorker({file("quote\" and back\\slash\\", headerOnlyPrc())})), kOutcomeNoGeometry);
}

TEST_F(WorkerProcess, LostStandardOutputGivesStatusOne) {
    const std::string prc = file("header.prc", headerOnlyPrc());
    for (Output output : {Output::Closed, Output::BrokenPipe}) {
        EXPECT_EQ(spawnWorker({}, output).exit_status, 1);
        EXPECT_EQ(spawnWorker({prc}, output).exit_status, 1);
    }
}

}  // namespace
