#pragma once
// Files of the test data, and the built worker run as the host runs it.

#include <cstdint>
#include <string>
#include <vector>

namespace prc::test {

// A whole file; empty when it cannot be read. A relative path is one of the test data.
std::vector<uint8_t> readFile(const std::string& path);

// The built worker ($MESHDRONE_BIN/meshdrone), or "" outside ctest.
std::string workerPath();

enum class Stdout { Pipe, Closed, BrokenPipe };

// Runs argv[0] with argv and collects its standard output (unless it is
// closed, or its reader gone before it starts). Returns its exit status, 128 +
// the signal when a signal ended it, -1 when it could not be started.
int runProgram(const std::vector<std::string>& argv, std::vector<uint8_t>& out, Stdout mode = Stdout::Pipe);

}  // namespace prc::test
