#pragma once
// The floor that a decode is measured against: zlib alone inflating every
// section that a decode may inflate, each once, into a buffer that starts at
// eight times the section and doubles, as the decoder's own buffer does.

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

#include "prc/io/prc_header.h"

namespace bench {

// The sections of every file structure (globals, tree, tessellations) and the
// model file section, as byte ranges of the file.
inline std::vector<std::pair<uint32_t, uint32_t>> sectionsOf(const std::vector<uint8_t>& file) {
    const prc::PRCHeader header = prc::readPRCHeader(file.data(), file.size());
    std::vector<std::pair<uint32_t, uint32_t>> sections;
    for (const prc::FileStructureDescriptor& d : header.file_structures)
        for (size_t k = 1; k + 1 < d.offsets.size() && k <= 3; ++k)
            if (d.offsets[k] < d.offsets[k + 1] && d.offsets[k + 1] <= file.size())
                sections.emplace_back(d.offsets[k], d.offsets[k + 1]);
    const uint64_t end = std::min<uint64_t>(header.model_file_end, file.size());
    if (header.model_file_start < end) sections.emplace_back(header.model_file_start, uint32_t(end));
    return sections;
}

// The bytes that zlib inflates one stream to; 0 when it fails.
inline uint64_t zlibInflate(const uint8_t* in, uint64_t length) {
    uint64_t capacity = length * 8 + 4096, used = 0;
    uint8_t* out = static_cast<uint8_t*>(std::malloc(capacity));
    z_stream zs{};
    if (!out || inflateInit(&zs) != Z_OK) {
        std::free(out);
        return 0;
    }
    zs.next_in = const_cast<Bytef*>(in);
    zs.avail_in = uInt(length);
    int rc = Z_OK;
    while (rc == Z_OK) {
        if (used == capacity) {
            uint8_t* grown = static_cast<uint8_t*>(std::realloc(out, capacity *= 2));
            if (!grown) break;
            out = grown;
        }
        zs.next_out = out + used;
        zs.avail_out = uInt(std::min<uint64_t>(capacity - used, 0xFFFFFFFFu));
        const uInt room = zs.avail_out;
        rc = inflate(&zs, Z_NO_FLUSH);
        used += room - zs.avail_out;
    }
    inflateEnd(&zs);
    std::free(out);
    return rc == Z_STREAM_END ? used : 0;
}

inline uint64_t zlibInflateSections(const std::vector<uint8_t>& file,
                                    const std::vector<std::pair<uint32_t, uint32_t>>& sections) {
    uint64_t inflated = 0;
    for (auto [start, end] : sections) inflated += zlibInflate(file.data() + start, end - start);
    return inflated;
}

}  // namespace bench
