// Runs the built worker as the host does and checks what comes out of it.

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/worker_runs.h"
#include "tools/inspect/result_stream_reader.h"

namespace {

using namespace prc::test;

// Runs the worker; returns its exit status and fills out with its standard output.
int spawnWorker(std::vector<std::string> argv, std::vector<uint8_t>& out, Stdout mode = Stdout::Pipe) {
    argv.insert(argv.begin(), workerPath());
    return runProgram(argv, out, mode);
}

// "PRC", both versions, two identifiers, no file structure, the model file offsets.
std::string headerOnlyPrc() {
    std::string bytes = "PRC";
    for (uint32_t value : {8137u, 8137u, 0u, 0x11111111u, 0x22222222u, 0x33333333u, 0x44444444u, 0x55555555u,
                           0x66666666u, 0x77777777u, 0u, 55u, 55u})
        bytes.append(reinterpret_cast<const char*>(&value), 4);
    return bytes;
}

// Every way a run can end short of a mesh: an error record with its message,
// or a failure header with its outcome. A lost standard output: status 1.
TEST(WorkerProcess, EveryFailureEndsInAValidStream) {
    if (workerPath().empty()) GTEST_SKIP() << "MESHDRONE_BIN is not set";
    const std::string dir = testing::TempDir() + "meshdrone_worker_" + std::to_string(getpid());
    std::filesystem::create_directories(dir);
    const auto file = [&](const std::string& name, const std::string& content) {
        std::ofstream(dir + "/" + name, std::ios::binary) << content;
        return dir + "/" + name;
    };
    const std::string usage = "uso interno: meshdrone <file>";
    const std::string cannotOpen = "impossibile aprire il file temporaneo con i dati PRC";
    // Arguments, then the message of the error record (status 2) or the status of the failure header.
    std::vector<std::tuple<std::vector<std::string>, std::string, uint32_t>> cases = {
        {{}, usage, 2},
        {{"a.prc", "b.prc"}, usage, 2},
        {{""}, cannotOpen, 2},
        {{dir + "/missing.prc"}, cannotOpen, 2},
        {{dir}, cannotOpen, 2},
        {{file("empty.prc", "")}, "il flusso /3DD e' vuoto: non c'e' nessun modello da leggere", 2},
        {{file("not.prc", "%PDF-1.7 not a PRC stream")}, "", kOutcomeDecodingError},
        {{file("header.prc", headerOnlyPrc())}, "", kOutcomeNoGeometry},
        // Spaces, non-ASCII and a byte that is not UTF-8 reach the file system unchanged.
        {{file("dati modello \xC3\xA8 \xE4\xB8\xAD \xFF.prc", headerOnlyPrc())}, "", kOutcomeNoGeometry},
        {{file("quote\\\" and back\\slash\\", headerOnlyPrc())}, "", kOutcomeNoGeometry},
    };
    // sysfs reports a page as the size of a file that holds a few bytes: the
    // only short read that can be provoked from outside here.
    if (access("/sys/devices/system/cpu/online", R_OK) == 0)
        cases.push_back({{"/sys/devices/system/cpu/online"}, "lettura incompleta del file temporaneo con i dati del modello", 2});
    for (const auto& [args, message, status] : cases) {
        SCOPED_TRACE(args.empty() ? "no argument" : args[0]);
        std::vector<uint8_t> out;
        EXPECT_EQ(spawnWorker(args, out), 0);
        result_reader::ResultStream stream;
        EXPECT_NO_THROW(stream = result_reader::readResultStream(out.data(), out.size()));
        EXPECT_EQ(stream.message, message);
        EXPECT_EQ(stream.header.status, status);
    }
    for (Stdout output : {Stdout::Closed, Stdout::BrokenPipe}) {
        std::vector<uint8_t> out;
        EXPECT_EQ(spawnWorker({}, out, output), 1);
        EXPECT_EQ(spawnWorker({dir + "/header.prc"}, out, output), 1);
    }
    std::filesystem::remove_all(dir);
}

}  // namespace
