#include "prc/io/inflate_section.h"

#include <zlib.h>

#include <cstring>
#include <stdexcept>
#include <string>

namespace prc {

std::vector<uint8_t> inflateSection(const uint8_t* section, uint64_t length) {
    // Eight times the input plus a page covers most sections in one go.
    std::vector<uint8_t> out(length * 8 + 4096);
    z_stream zs;
    std::memset(&zs, 0, sizeof zs);
    if (inflateInit_(&zs, "1.3.2", int(sizeof(z_stream))) != Z_OK) throw std::runtime_error("inflateInit failed");
    zs.next_in = const_cast<Bytef*>(section);
    zs.avail_in = uInt(length);  // the format hands zlib a 32-bit count
    uint64_t used = 0;
    for (;;) {
        if (used == out.size()) {
            if (out.size() > kInflateSafetyLimit) {
                inflateEnd(&zs);
                throw std::runtime_error("inflateSection: decompression safety limit exceeded");
            }
            out.resize(used * 2);
        }
        zs.next_out = out.data() + used;
        const uint64_t room = out.size() - used;
        zs.avail_out = uInt(room > 0xFFFFFFFFu ? 0xFFFFFFFFu : room);
        const int rc = inflate(&zs, Z_NO_FLUSH);
        if (unsigned(rc) > unsigned(Z_STREAM_END)) {
            std::string message = std::string("inflate failed: ") + (zs.msg ? zs.msg : "?");
            inflateEnd(&zs);
            throw std::runtime_error(message);
        }
        used += room - zs.avail_out;
        if (rc == Z_STREAM_END) {
            inflateEnd(&zs);
            out.resize(used);
            return out;
        }
    }
}

}  // namespace prc
