#include "platform/platform.h"

#include <csignal>
#include <cstdlib>
#include <string_view>
#include <vector>

#include <sys/stat.h>

#include "platform/wide_text.h"

std::wstring platformCommandLine(int argc, char** argv) {
    std::vector<std::wstring> arguments;
    for (int i = 0; i < argc; ++i) {
        arguments.push_back(decodeUtf8Lossless(argv[i]));
    }
    return joinCommandLine(arguments);
}

FILE* platformOpenFile(const std::wstring& path) {
    FILE* file = std::fopen(encodeUtf8Lossless(path).c_str(), "rb");
    if (file == nullptr) return nullptr;
    // fopen accepts a directory here, and reads from it fail only later; the
    // Windows open refuses it at once, so do the same.
    struct stat info;
    if (fstat(fileno(file), &info) != 0 || S_ISDIR(info.st_mode)) {
        std::fclose(file);
        return nullptr;
    }
    return file;
}

void setStdoutBinary() {
    std::fflush(stdout);
    // POSIX does not translate line ends, so binary mode needs nothing. A host
    // that closes its end of the pipe must cost a failed write (exit status 1),
    // as on Windows, not a SIGPIPE that kills the process without a status.
    std::signal(SIGPIPE, SIG_IGN);
}

void platformExit(int status) { std::_Exit(status); }
