#pragma once
// Writing the result stream, the worker's only answer to the host: a success
// stream, an error record or a failure header (layouts in decoded_model.h).
// Each writer takes the stream it writes to, so that the stream can be
// checked without a real standard output; the *Stdout forms are what the
// process uses.

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "worker/decoded_model.h"

// The most payload bytes (everything after the header) that the host takes.
constexpr uint64_t kPreviewPayloadLimit = uint64_t(256) << 20;

// Writes length bytes with one fwrite; true when every byte was taken. A
// length of 0 writes nothing and succeeds, so data may then be null.
bool writeBytes(FILE* stream, const void* data, size_t length);
bool writeToStdout(const void* data, size_t length);

// The writers below return the exit status of the process: 0 when the whole
// stream was written and flushed, 1 when a write or the final flush fell
// short. Nothing after a short write is attempted; the stream is flushed in
// every case.

// Header with status 2 and the message length, then the message without NUL.
int writeErrorRecordTo(FILE* stream, const char* message);
int writeErrorRecord(const char* message);

// Header, positions, triangles, colours, the optional block when flagged,
// then the part records when there are any.
int writeSuccessStreamTo(FILE* stream, const DecodedModel& model);

// A header of zeros that carries only the outcome code in its status.
int writeFailureHeaderTo(FILE* stream, uint32_t outcome);

// Payload of the success stream for this model, in 64 bits so that no count
// can wrap it: 15 bytes a vertex (position and colour), 12 a triangle, 188 a
// part record and the optional block.
uint64_t resultPayloadBytes(const DecodedModel& model);
bool exceedsPreviewLimit(const DecodedModel& model);
