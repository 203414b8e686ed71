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
    _setmode(_fileno(stdout), _O_BINARY);
}

void platformExit(int status) { std::_Exit(status); }
