// Command-line splitting over arbitrary wide text (pairs of bytes, as the
// 16-bit characters of the native command line).

#include <cstdlib>
#include <string>

#include "worker/command_line.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::wstring line;
    for (size_t i = 0; i + 1 < size; i += 2) {
        const wchar_t c = wchar_t(data[i] | data[i + 1] << 8);
        if (c != 0) line.push_back(c);
    }
    size_t kept = 0;
    for (const std::wstring& argument : splitCommandLine(line.c_str())) kept += argument.size();
    // Splitting only drops characters (blanks, quotes, halved backslashes).
    if (kept > line.size()) std::abort();
    return 0;
}
