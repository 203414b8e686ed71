#pragma once
// The worker process from start-up to its end: command line, input file,
// decode, result stream.

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "worker/decoded_model.h"

// The input file path of a command line that names the program and exactly
// one file; nothing for a blank line or any other argument count.
std::optional<std::wstring> inputPathArgument(const wchar_t* commandLine);

// The bytes of the input file in one heap block (malloc) of exactly its size.
struct InputBytes {
    uint8_t* data = nullptr;
    uint32_t size = 0;
};

// Reads the whole file at path. Null on success, with out owning the block;
// otherwise the message of the error record to send, and out is untouched.
const char* readInputFile(const std::wstring& path, InputBytes& out);

// Writes the answer to a finished decode: the success stream, or the size
// limit's error record when the payload is too large for the preview, or the
// failure header with the driver's outcome. Returns the exit status.
int writeDecodeResult(FILE* stream, bool decoded, const DecodedModel& model);

// The whole run. Returns the exit status when an error record ends it before
// any decode; after a decode the process ends inside, without clean-up.
int runWorker(int argc, char** argv);
