#include "worker/command_line.h"

#include <cwctype>

namespace {

bool isWhiteSpace(wchar_t c) { return std::iswspace(static_cast<wint_t>(c)) != 0; }

}  // namespace

std::vector<std::wstring> splitCommandLine(const wchar_t* line) {
    std::vector<std::wstring> arguments;
    if (line == nullptr) return arguments;

    std::wstring token;
    bool quoted = false;
    // A token can be started and still empty (""), and must then be emitted.
    bool started = false;
    const wchar_t* p = line;
    while (*p != L'\0') {
        if (*p == L'\\') {
            size_t run = 0;
            while (p[run] == L'\\') ++run;
            started = true;
            if (p[run] != L'"') {
                token.append(run, L'\\');
                p += run;
                continue;
            }
            token.append(run / 2, L'\\');
            if (run % 2 != 0) {
                token.push_back(L'"');
            } else {
                quoted = !quoted;
            }
            p += run + 1;  // the quote is consumed here, never paired with the next one
            continue;
        }
        if (!quoted && isWhiteSpace(*p)) {
            if (started) {
                arguments.push_back(std::move(token));
                token.clear();
                started = false;
            }
            while (*p != L'\0' && isWhiteSpace(*p)) ++p;
            continue;
        }
        if (*p == L'"') {
            if (!quoted) {
                quoted = true;
                started = true;
                ++p;
            } else if (p[1] == L'"') {
                token.push_back(L'"');
                p += 2;
            } else {
                quoted = false;
                ++p;
            }
            continue;
        }
        token.push_back(*p);
        started = true;
        ++p;
    }
    if (started) arguments.push_back(std::move(token));
    return arguments;
}
