#include "platform/platform.h"

#include <cstdlib>

#include <fcntl.h>
#include <io.h>
#include <windows.h>

std::wstring platformCommandLine(int, char**) {
    // The command line exactly as the host passed it; the runtime's argv is
    // split by other rules and is not used.
    const wchar_t* line = GetCommandLineW();
    return line != nullptr ? std::wstring(line) : std::wstring();
}

FILE* platformOpenFile(const std::wstring& path) { return _wfopen(path.c_str(), L"rb"); }

void setStdoutBinary() {
    std::fflush(stdout);
    // A GUI-subsystem program started without a standard output has no
    // descriptor (-2). The runtime treats _setmode on it as a programming
    // error and may end the process; the writes that follow simply fail and
    // give exit status 1, which is what the host must see.
    const int descriptor = _fileno(stdout);
    if (descriptor >= 0) _setmode(descriptor, _O_BINARY);
}

void platformExit(int status) { std::_Exit(status); }
