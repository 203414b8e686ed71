#pragma once
// Splitting the worker's own command line into its arguments.

#include <string>
#include <vector>

// Splits a whole command line, the program path included, into arguments:
// white space outside quotes separates them, quotes group and are dropped,
// two quotes inside quotes give one quote, and a run of backslashes is
// literal unless a quote ends it, in which case it is halved and an odd
// backslash makes the quote literal. A null line gives no argument.
std::vector<std::wstring> splitCommandLine(const wchar_t* line);
