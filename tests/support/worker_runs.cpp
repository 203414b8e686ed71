#include "tests/support/worker_runs.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

extern char** environ;

namespace prc::test {

std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream in(path.empty() || path[0] == '/' ? path : MESHDRONE_TEST_DATA "/" + path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string workerPath() {
    const char* dir = std::getenv("MESHDRONE_BIN");
    return dir != nullptr ? std::string(dir) + "/meshdrone" : std::string();
}

int runProgram(const std::vector<std::string>& argv, std::vector<uint8_t>& out, Stdout mode) {
    std::vector<char*> pointers;
    for (const std::string& arg : argv) pointers.push_back(const_cast<char*>(arg.c_str()));
    pointers.push_back(nullptr);
    int fds[2];
    if (pipe(fds) != 0) return -1;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (mode == Stdout::BrokenPipe) close(fds[0]);  // the reader is gone before the program starts
    else posix_spawn_file_actions_addclose(&actions, fds[0]);
    if (mode == Stdout::Closed) posix_spawn_file_actions_addclose(&actions, STDOUT_FILENO);
    else posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, fds[1]);
    pid_t pid = -1;
    const int spawned = posix_spawn(&pid, pointers[0], &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    if (mode != Stdout::BrokenPipe) {
        uint8_t chunk[65536];
        for (ssize_t got; (got = read(fds[0], chunk, sizeof chunk)) > 0;) out.insert(out.end(), chunk, chunk + got);
        close(fds[0]);
    }
    int status = 0;
    if (spawned != 0 || waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace prc::test
