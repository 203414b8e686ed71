#pragma once
// Reads a result stream as the host receives it and checks it strictly:
// every length, every header field, every index and every part record.

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "worker/decoded_model.h"

namespace result_reader {

enum class ResultKind { Success, ErrorRecord, FailureHeader };

struct ResultStream {
    ResultKind kind = ResultKind::FailureHeader;
    ResultHeader header{};       // fields in host order
    std::string message;         // the error record's text
    std::vector<float> positions;     // x, y, z per vertex
    std::vector<uint32_t> triangles;  // three vertex indices per triangle
    std::vector<uint8_t> colors;      // r, g, b per vertex
    bool has_optional_block = false;
    std::array<uint8_t, 36> optional_block{};
    std::vector<PartRecord> parts;    // fields in host order
};

// What is wrong with a stream that does not follow the format.
class InvalidResultStream : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Parses a whole stream: exactly one success stream, error record or failure
// header and not one byte more. Throws InvalidResultStream with the reason.
ResultStream readResultStream(const uint8_t* data, size_t size);

// The name of a part record, up to its NUL.
std::string partName(const PartRecord& part);

// Bytes of a stream that announces these counts, header included, in 64 bits.
uint64_t successStreamBytes(uint32_t vertices, uint32_t triangles, uint32_t parts, bool optionalBlock);

constexpr uint32_t kNoParent = 0xFFFFFFFF;

}  // namespace result_reader
