#pragma once
// zlib inflation of one PRC section, with the bounded growth of the output buffer.

#include <cstdint>
#include <vector>

namespace prc {

// The buffer is not grown further once it exceeds this size (512 MiB - 1).
constexpr uint64_t kInflateSafetyLimit = 0x1FFFFFFF;

std::vector<uint8_t> inflateSection(const uint8_t* section, uint64_t length);

// The same with another bound in place of kInflateSafetyLimit, so that the
// growth rule can be exercised without half a gigabyte of output.
std::vector<uint8_t> inflateSection(const uint8_t* section, uint64_t length, uint64_t safetyLimit);

}  // namespace prc
