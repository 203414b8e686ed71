#pragma once
// Human and JSON descriptions of a checked result stream.

#include <cstddef>
#include <string>

#include "tools/inspect/result_stream_reader.h"

namespace result_reader {

// The part tree of the text summary stops after this many records.
constexpr size_t kSummaryPartLimit = 40;

std::string describeText(const ResultStream& stream);
std::string describeJson(const ResultStream& stream);

// The JSON answer for a stream that failed its checks.
std::string describeInvalidJson(const std::string& reason);

// What a failure header's status tells the host.
const char* outcomeMeaning(uint32_t status);

}  // namespace result_reader
