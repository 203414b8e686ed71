#include "worker/result_stream.h"

#include <bit>
#include <cstring>

// The records are written straight from memory; the stream is little-endian.
static_assert(std::endian::native == std::endian::little, "the result stream is written from memory");

namespace {

constexpr uint32_t kErrorRecordStatus = 2;
constexpr size_t kOptionalBlockBytes = sizeof(DecodedModel::optional_block);

// A write that fits in the stream's buffer "succeeds" even when the host has
// gone; only the flush finds out. Counting the flush keeps status 0 meaning
// that the host really received the whole stream.
int finish(FILE* stream, bool complete) {
    const bool flushed = std::fflush(stream) == 0;
    return complete && flushed ? 0 : 1;
}

}  // namespace

bool writeBytes(FILE* stream, const void* data, size_t length) {
    if (length == 0) return true;
    return std::fwrite(data, 1, length, stream) == length;
}

bool writeToStdout(const void* data, size_t length) { return writeBytes(stdout, data, length); }

int writeErrorRecordTo(FILE* stream, const char* message) {
    const size_t length = std::strlen(message);
    ResultHeader header{};
    header.message_length = static_cast<uint32_t>(length);
    header.status = kErrorRecordStatus;
    const bool complete = writeBytes(stream, &header, sizeof header) && writeBytes(stream, message, length);
    return finish(stream, complete);
}

int writeErrorRecord(const char* message) { return writeErrorRecordTo(stdout, message); }

int writeSuccessStreamTo(FILE* stream, const DecodedModel& model) {
    const bool optionalBlock = model.optional_block_present != 0;
    ResultHeader header{};
    header.success = 1;
    header.optional_block_flag = optionalBlock ? 1 : 0;
    header.vertex_count = model.vertex_count;
    header.triangle_count = model.triangle_count;
    header.part_count = model.part_count;
    header.minimal_version_for_read = model.minimal_version_for_read;
    header.authoring_version = model.authoring_version;
    header.number_of_file_structures = model.number_of_file_structures;
    header.color_count = model.color_count;
    header.material_count = model.material_count;
    header.style_count = model.style_count;

    const size_t vertices = model.vertex_count;
    const bool complete = writeBytes(stream, &header, sizeof header) &&
                          writeBytes(stream, model.positions, vertices * 3 * sizeof(float)) &&
                          writeBytes(stream, model.triangles, size_t(model.triangle_count) * 3 * sizeof(uint32_t)) &&
                          writeBytes(stream, model.colors, vertices * 3) &&
                          (!optionalBlock || writeBytes(stream, model.optional_block, kOptionalBlockBytes)) &&
                          writeBytes(stream, model.part_records, size_t(model.part_count) * sizeof(PartRecord));
    return finish(stream, complete);
}

int writeFailureHeaderTo(FILE* stream, uint32_t outcome) {
    ResultHeader header{};
    header.status = outcome;
    return finish(stream, writeBytes(stream, &header, sizeof header));
}

uint64_t resultPayloadBytes(const DecodedModel& model) {
    constexpr uint64_t kVertexBytes = 3 * sizeof(float) + 3;
    constexpr uint64_t kTriangleBytes = 3 * sizeof(uint32_t);
    return uint64_t(model.vertex_count) * kVertexBytes + uint64_t(model.triangle_count) * kTriangleBytes +
           uint64_t(model.part_count) * sizeof(PartRecord) +
           (model.optional_block_present != 0 ? kOptionalBlockBytes : 0);
}

bool exceedsPreviewLimit(const DecodedModel& model) { return resultPayloadBytes(model) > kPreviewPayloadLimit; }
