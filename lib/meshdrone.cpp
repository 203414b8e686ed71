// The C interface: the worker's decode and its refusals, answered as result
// codes instead of a result stream.

#include "meshdrone/meshdrone.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "model/exact_decode.h"

#include "platform/wide_text.h"
#include "worker/decoded_model.h"
#include "worker/result_stream.h"
#include "worker/worker_entry.h"

// The parts are the worker's part records, handed out as they are.
static_assert(sizeof(meshdrone_part) == sizeof(PartRecord));
static_assert(offsetof(meshdrone_part, index) == offsetof(PartRecord, node_index));
static_assert(offsetof(meshdrone_part, triangle_count) == offsetof(PartRecord, triangle_count));
static_assert(offsetof(meshdrone_part, box_min) == offsetof(PartRecord, box_min));
static_assert(offsetof(meshdrone_part, box_max) == offsetof(PartRecord, box_max));

namespace {

// What the caller holds: the public view first, so that a pointer to the
// view is a pointer to the whole, and the driver's model that owns the blocks.
struct HeldModel {
    meshdrone_model view;
    DecodedModel decoded;
    char* exact_report;  // malloc'd, or null
};

using Decoder = bool (*)(const uint8_t* data, uint64_t size, DecodedModel* out, prc::exact::ExactSummary* summary);

bool workerDecode(const uint8_t* data, uint64_t size, DecodedModel* out, prc::exact::ExactSummary*) {
    return decodePrcModel(data, size, out);
}

// The summary's lines joined by newlines, in one malloc'd string.
char* reportText(const prc::exact::ExactSummary& summary) {
    std::string text;
    for (const std::string& line : prc::exact::describeExactSummary(summary)) text += (text.empty() ? "" : "\n") + line;
    char* out = static_cast<char*>(std::malloc(text.size() + 1));
    if (out != nullptr) std::memcpy(out, text.c_str(), text.size() + 1);
    return out;
}

void releaseBlocks(DecodedModel& m) {
    std::free(m.positions);
    std::free(m.triangles);
    std::free(m.colors);
    std::free(m.part_records);
}

meshdrone_result resultOfOutcome(uint32_t outcome) {
    switch (outcome) {
        case kOutcomeNoResult: return MESHDRONE_NO_RESULT;
        case kOutcomeNoGeometry: return MESHDRONE_NO_GEOMETRY;
        default: return MESHDRONE_DECODING_ERROR;
    }
}

meshdrone_result resultOfInputFailure(const char* message) {
    if (message == kOpenFailedMessage) return MESHDRONE_OPEN_FAILED;
    if (message == kEmptyInputMessage) return MESHDRONE_EMPTY_INPUT;
    if (message == kShortReadMessage) return MESHDRONE_SHORT_READ;
    return MESHDRONE_OUT_OF_MEMORY;
}

}  // namespace

namespace {

meshdrone_result decodeWith(Decoder decoder, const void* data, size_t size, meshdrone_model** model) {
    if (model == nullptr) return MESHDRONE_INVALID_ARGUMENT;
    *model = nullptr;
    // The worker takes a file of 1 to 2^31 - 1 bytes and calls any other size empty.
    if (size == 0 || size > INT32_MAX) return MESHDRONE_EMPTY_INPUT;
    if (data == nullptr) return MESHDRONE_INVALID_ARGUMENT;

    auto* held = static_cast<HeldModel*>(std::calloc(1, sizeof(HeldModel)));
    if (held == nullptr) return MESHDRONE_NO_RESULT;
    DecodedModel& m = held->decoded;
    bool decoded = false;
    prc::exact::ExactSummary summary;
    const bool exact = decoder != &workerDecode;
    try {
        decoded = decoder(static_cast<const uint8_t*>(data), size, &m, &summary);
    } catch (...) {
        // The driver catches every failure of the decoders below it; nothing
        // may cross this C boundary even so.
        m = DecodedModel{};
        m.outcome = kOutcomeDecodingError;
    }
    meshdrone_result result = MESHDRONE_OK;
    if (!decoded) {
        result = resultOfOutcome(m.outcome);
    } else if (exceedsPreviewLimit(m)) {
        releaseBlocks(m);
        result = MESHDRONE_TOO_LARGE;
    }
    if (result != MESHDRONE_OK) {
        std::free(held);
        return result;
    }
    held->view = {m.positions,
                  m.triangles,
                  m.colors,
                  reinterpret_cast<const meshdrone_part*>(m.part_records),
                  m.vertex_count,
                  m.triangle_count,
                  m.part_count,
                  m.minimal_version_for_read,
                  m.authoring_version,
                  m.number_of_file_structures,
                  m.color_count,
                  m.material_count,
                  m.style_count,
                  nullptr};
    if (exact) {
        held->exact_report = reportText(summary);
        if (held->exact_report == nullptr) {
            releaseBlocks(m);
            std::free(held);
            return MESHDRONE_NO_RESULT;
        }
        held->view.exact_report = held->exact_report;
    }
    *model = &held->view;
    return MESHDRONE_OK;
}

meshdrone_result decodeFileWith(Decoder decoder, const char* path, meshdrone_model** model) {
    if (model == nullptr) return MESHDRONE_INVALID_ARGUMENT;
    *model = nullptr;
    if (path == nullptr) return MESHDRONE_INVALID_ARGUMENT;
    InputBytes input;
    try {
        if (const char* failure = readInputFile(decodeUtf8Lossless(path), input)) return resultOfInputFailure(failure);
    } catch (...) {  // the wide path did not fit in memory
        return MESHDRONE_OUT_OF_MEMORY;
    }
    const meshdrone_result result = decodeWith(decoder, input.data, input.size, model);
    std::free(input.data);
    return result;
}

}  // namespace

extern "C" {

const char* meshdrone_version(void) { return MESHDRONE_LIBRARY_VERSION; }

meshdrone_result meshdrone_decode(const void* data, size_t size, meshdrone_model** model) {
    return decodeWith(&workerDecode, data, size, model);
}

meshdrone_result meshdrone_decode_file(const char* path, meshdrone_model** model) {
    return decodeFileWith(&workerDecode, path, model);
}

meshdrone_result meshdrone_decode_exact(const void* data, size_t size, meshdrone_model** model) {
    return decodeWith(&model::decodeExactModel, data, size, model);
}

meshdrone_result meshdrone_decode_file_exact(const char* path, meshdrone_model** model) {
    return decodeFileWith(&model::decodeExactModel, path, model);
}

void meshdrone_free(meshdrone_model* model) {
    if (model == nullptr) return;
    HeldModel* held = reinterpret_cast<HeldModel*>(model);
    releaseBlocks(held->decoded);
    std::free(held->exact_report);
    std::free(held);
}

const char* meshdrone_result_message(meshdrone_result result) {
    switch (result) {
        case MESHDRONE_OK: return "the model was decoded";
        case MESHDRONE_NO_RESULT: return "memory ran out while the mesh was built";
        case MESHDRONE_NO_GEOMETRY: return "the model holds no triangles to show";
        case MESHDRONE_DECODING_ERROR: return "the model could not be decoded (malformed or unsupported PRC data)";
        case MESHDRONE_OPEN_FAILED: return kOpenFailedMessage;
        case MESHDRONE_EMPTY_INPUT: return kEmptyInputMessage;
        case MESHDRONE_OUT_OF_MEMORY: return kOutOfMemoryMessage;
        case MESHDRONE_SHORT_READ: return kShortReadMessage;
        case MESHDRONE_TOO_LARGE: return kTooLargeMessage;
        case MESHDRONE_INVALID_ARGUMENT: return "a required argument is a null pointer";
    }
    return "unknown result code";
}

int meshdrone_result_outcome(meshdrone_result result) {
    switch (result) {
        case MESHDRONE_NO_RESULT: return int(kOutcomeNoResult);
        case MESHDRONE_NO_GEOMETRY: return int(kOutcomeNoGeometry);
        case MESHDRONE_DECODING_ERROR: return int(kOutcomeDecodingError);
        default: return -1;
    }
}

}  // extern "C"
