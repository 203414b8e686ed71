#pragma once
// The few operating-system services that the worker takes from its host
// system. One interface, one implementation per system: the worker itself
// never asks which system it runs on.

#include <cstdio>
#include <string>

// The whole command line as wide text, the program path included. Windows
// takes it from the system as it was typed and ignores argc/argv (the
// runtime's own splitting would differ from the worker's); POSIX rebuilds it
// from argv so that splitting it gives back exactly argv.
std::wstring platformCommandLine(int argc, char** argv);

// Opens a file for binary reading; null when it cannot be opened. A directory
// counts as a file that cannot be opened on every system.
FILE* platformOpenFile(const std::wstring& path);

// Prepares standard output for a binary stream: pending bytes are flushed
// first, then no byte written afterwards is translated, and a write to a
// reader that went away fails instead of ending the process.
void setStdoutBinary();

// Ends the process at once: no destructors, no atexit handlers, no flush.
[[noreturn]] void platformExit(int status);
