// The worker as the host runs it, on hostile files and on a real file cut
// short, inside a 2 GiB address space: it always writes a complete,
// well-formed result stream and exits with status 0.

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/hostile/hostile_files.h"
#include "tests/support/worker_runs.h"
#include "tools/inspect/result_stream_reader.h"

namespace prc::test::hostile {
namespace {

// The address sanitizer's runtime reserves terabytes of address space: no limit under it.
#if defined(__SANITIZE_ADDRESS__)
const char* const kRun = "exec \"$0\" \"$1\"";
#else
const char* const kRun = "ulimit -v 2097152 && exec \"$0\" \"$1\"";
#endif

TEST(WorkerUnderLimits, AlwaysAnswersWithACompleteStream) {
    if (workerPath().empty()) GTEST_SKIP() << "MESHDRONE_BIN is not set";
    std::vector<HostileCase> inputs = hostileCases();
    const std::vector<uint8_t> real = readFile("0a1283e2edd5.prc");
    for (size_t cut = 97; cut < real.size(); cut += 97)  // a real file cut short: any answer will do
        inputs.push_back({"cut at " + std::to_string(cut), {real.begin(), real.begin() + cut}, -2, 0});
    const std::string file = testing::TempDir() + "meshdrone_hostile_" + std::to_string(getpid()) + ".prc";
    for (const HostileCase& c : inputs) {
        SCOPED_TRACE(c.name);
        std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(c.file.data()), std::streamsize(c.file.size()));
        std::vector<uint8_t> out;
        EXPECT_EQ(runProgram({"/bin/sh", "-c", kRun, workerPath(), file}, out), 0);
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
