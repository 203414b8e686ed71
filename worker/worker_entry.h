#pragma once
// The worker process from start-up to its end: command line, input file,
// decode, result stream.

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "worker/decoded_model.h"

// The messages of the error records. The library reports the same failures
// with the same texts, so they are declared here for both; as arrays they
// have one address in the whole program, so that the pointer readInputFile
// returns tells which failure it was.
inline constexpr char kUsageMessage[] = "uso interno: meshdrone <file>";
inline constexpr char kOpenFailedMessage[] = "impossibile aprire il file temporaneo con i dati PRC";
inline constexpr char kEmptyInputMessage[] = "il flusso /3DD e' vuoto: non c'e' nessun modello da leggere";
inline constexpr char kOutOfMemoryMessage[] = "memoria insufficiente per leggere il flusso /3DD";
inline constexpr char kShortReadMessage[] = "lettura incompleta del file temporaneo con i dati del modello";
inline constexpr char kTooLargeMessage[] =
    "il modello e' troppo grande per l'anteprima (oltre il limite di 256 MiB)";

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

// The same run with another decoder behind the same contract: the exact
// decoder's program is this process with decodeExactModel.
using DecodeFunction = bool (*)(const uint8_t* data, uint64_t size, DecodedModel* out);
int runWorkerWith(int argc, char** argv, DecodeFunction decode);
