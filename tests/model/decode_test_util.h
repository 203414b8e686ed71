#pragma once
// A decode as the worker makes it, from an exactly sized heap copy of the
// file, and its answer read back by the host's reader of result streams,
// which holds it to every rule of the format.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "model/decode_driver.h"
#include "tools/inspect/result_stream_reader.h"
#include "worker/worker_entry.h"

namespace model::test {

struct Decoded {
    DecodedModel model{};
    DecodePass pass = DecodePass::None;
    bool ok = false;
    std::vector<uint8_t> stream;  // the answer
    std::string invalid;          // why it is no valid result stream; "" when it is

    explicit Decoded(const std::vector<uint8_t>& file) {
        uint8_t* copy = static_cast<uint8_t*>(std::malloc(std::max<size_t>(file.size(), 1)));
        if (!file.empty()) std::memcpy(copy, file.data(), file.size());
        ok = decodePrcModel(copy, file.size(), &model, &pass);
        std::free(copy);
        char* stream = nullptr;
        size_t length = 0;
        FILE* sink = open_memstream(&stream, &length);
        writeDecodeResult(sink, ok, model);
        std::fclose(sink);
        this->stream.assign(stream, stream + length);
        std::free(stream);
        try {
            result_reader::readResultStream(this->stream.data(), this->stream.size());
        } catch (const result_reader::InvalidResultStream& e) {
            invalid = e.what();
        }
    }
    ~Decoded() {
        for (void* block : {(void*)model.positions, (void*)model.triangles, (void*)model.colors, (void*)model.part_records})
            std::free(block);
    }
};

}  // namespace model::test
