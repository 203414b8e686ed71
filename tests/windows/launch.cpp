// launch.exe PROGRAM LINE-FILE [closed-stdout | no-stdout]
//
// Starts PROGRAM with the command line held in LINE-FILE (UTF-8), verbatim,
// waits for it and ends with its exit status. Every other way of starting a
// Windows program from a test rebuilds the command line from an argument list
// with its own quoting, so the worker's own splitting of a line as a host wrote
// it could not be tested. The child shares this program's standard streams;
// with closed-stdout its standard output is a pipe whose reading end is already
// closed, as when the host stops reading; with no-stdout it has none at all.
#include <windows.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace {

std::wstring widen(const std::string& text, UINT codePage) {
    std::wstring wide(text.size(), L'\0');  // never more UTF-16 units than bytes
    wide.resize(size_t(MultiByteToWideChar(codePage, 0, text.data(), int(text.size()), wide.data(), int(wide.size()))));
    return wide;
}

// The child can only receive handles that are inheritable; the standard
// handles that wine hands to this program need not be.
HANDLE inheritable(HANDLE handle) {
    HANDLE copy = nullptr;
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE ||
        !DuplicateHandle(GetCurrentProcess(), handle, GetCurrentProcess(), &copy, 0, TRUE, DUPLICATE_SAME_ACCESS))
        return nullptr;
    return copy;
}

}  // namespace

int main(int argc, char** argv) {
    std::ifstream in(argc >= 3 && argc <= 4 ? argv[2] : "", std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "usage: launch PROGRAM LINE-FILE [closed-stdout | no-stdout] (a readable LINE-FILE)\n");
        return 120;
    }
    const std::string line{std::istreambuf_iterator<char>(in), {}};
    const std::wstring program = widen(argv[1], CP_ACP);
    std::wstring commandLine = widen(line, CP_UTF8);

    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = inheritable(GetStdHandle(STD_INPUT_HANDLE));
    startup.hStdError = inheritable(GetStdHandle(STD_ERROR_HANDLE));
    const std::string stdoutMode = argc == 4 ? argv[3] : "";
    if (stdoutMode == "closed-stdout") {
        SECURITY_ATTRIBUTES attributes{sizeof attributes, nullptr, TRUE};
        HANDLE readEnd = nullptr;
        if (!CreatePipe(&readEnd, &startup.hStdOutput, &attributes, 0)) return 122;
        CloseHandle(readEnd);
    } else if (stdoutMode != "no-stdout") {
        startup.hStdOutput = inheritable(GetStdHandle(STD_OUTPUT_HANDLE));
    }

    PROCESS_INFORMATION process{};
    // CreateProcessW may write into the command line; the string owns its buffer.
    if (!CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &process)) {
        std::fprintf(stderr, "launch: cannot start %s (error %lu)\n", argv[1], GetLastError());
        return 123;
    }
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD status = 124;
    GetExitCodeProcess(process.hProcess, &status);
    return static_cast<int>(status);
}
