// The worker as the host runs it, on hostile files and on a real file cut
// short, inside a 2 GiB address space: it always writes a complete,
// well-formed result stream and exits with status 0.

#include <gtest/gtest.h>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/hostile/hostile_files.h"
#include "tools/inspect/result_stream_reader.h"

extern char** environ;

namespace prc::test::hostile {
namespace {

// The address sanitizer's runtime reserves terabytes of address space: no limit under it.
#if defined(__SANITIZE_ADDRESS__)
const char* const kRun = "exec \"$0\" \"$1\"";
#else
const char* const kRun = "ulimit -v 2097152 && exec \"$0\" \"$1\"";
#endif

// Exit status and standard output of the worker on the file.
int runWorker(const std::string& input, std::vector<uint8_t>& out) {
    const std::string worker = std::string(std::getenv("MESHDRONE_BIN")) + "/meshdrone";
    const char* argv[] = {"/bin/sh", "-c", kRun, worker.c_str(), input.c_str(), nullptr};
    int fds[2];
    if (pipe(fds) != 0) return -1;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    pid_t pid = -1;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, const_cast<char**>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    uint8_t buffer[65536];
    for (ssize_t n; (n = read(fds[0], buffer, sizeof buffer)) > 0;) out.insert(out.end(), buffer, buffer + n);
    close(fds[0]);
    int status = 0;
    if (spawned != 0 || waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

TEST(WorkerUnderLimits, AlwaysAnswersWithACompleteStream) {
    if (std::getenv("MESHDRONE_BIN") == nullptr) GTEST_SKIP() << "MESHDRONE_BIN is not set";
    std::vector<HostileCase> inputs = hostileCases();
    std::ifstream in(std::string(MESHDRONE_TEST_DATA) + "/0a1283e2edd5.prc", std::ios::binary);
    const std::vector<uint8_t> real{std::istreambuf_iterator<char>(in), {}};
    for (size_t cut = 97; cut < real.size(); cut += 97)  // a real file cut short: any answer will do
        inputs.push_back({"cut at " + std::to_string(cut), {real.begin(), real.begin() + cut}, -2, 0});
    const std::string file = testing::TempDir() + "meshdrone_hostile_" + std::to_string(getpid()) + ".prc";
    for (const HostileCase& c : inputs) {
        SCOPED_TRACE(c.name);
        std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(c.file.data()), std::streamsize(c.file.size()));
        std::vector<uint8_t> out;
        EXPECT_EQ(runWorker(file, out), 0);
        result_reader::ResultStream stream;
        ASSERT_NO_THROW(stream = result_reader::readResultStream(out.data(), out.size()));
        if (c.records == -1) {
            EXPECT_EQ(stream.header.status, kOutcomeNoGeometry);
        } else if (c.records >= 0) {
            EXPECT_EQ(stream.parts.size(), size_t(c.records));
        }
    }
    std::filesystem::remove(file);
}

}  // namespace
}  // namespace prc::test::hostile
