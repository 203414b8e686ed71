// Whole files through the decode driver; every answer must make a result
// stream that the host's reader accepts as it stands.

#include <cstdio>
#include <cstdlib>

#include "tools/inspect/result_stream_reader.h"
#include "worker/worker_entry.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    DecodedModel model{};
    const bool decoded = decodePrcModel(data, size, &model);
    char* stream = nullptr;
    size_t length = 0;
    FILE* sink = open_memstream(&stream, &length);
    if (sink == nullptr || writeDecodeResult(sink, decoded, model) != 0 || std::fclose(sink) != 0) std::abort();
    try {
        result_reader::readResultStream(reinterpret_cast<const uint8_t*>(stream), length);
    } catch (const result_reader::InvalidResultStream& e) {
        std::fprintf(stderr, "malformed result stream: %s\n", e.what());
        std::abort();
    }
    for (void* block : {(void*)stream, (void*)model.positions, (void*)model.triangles, (void*)model.colors, (void*)model.part_records})
        std::free(block);
    return 0;
}
