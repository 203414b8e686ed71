// meshdrone-inspect: checks a result stream of the worker and describes it.
//   meshdrone-inspect [--json] [FILE | -]
// Reads standard input without FILE or with "-". Exit status: 0 for a valid
// stream, 1 for an invalid one (the reason on standard error, and in the JSON
// answer with --json), 2 for bad usage or an input that cannot be read.

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tools/inspect/result_stream_reader.h"
#include "tools/inspect/result_summary.h"

namespace {

constexpr int kValid = 0, kInvalid = 1, kUsage = 2;

const char* const kUsageText =
    "usage: meshdrone-inspect [--json] [FILE | -]\n"
    "Checks a meshdrone result stream (FILE, or standard input) and describes it.\n"
    "Exit status: 0 valid stream, 1 invalid stream, 2 bad usage or unreadable input.\n";

bool readAll(FILE* file, std::vector<uint8_t>& bytes) {
    uint8_t chunk[1 << 16];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) bytes.insert(bytes.end(), chunk, chunk + got);
    return std::ferror(file) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    bool json = false;
    const char* path = nullptr;
    for (int i = 1; i < argc; ++i) {
        const char* arg = argv[i];
        if (std::strcmp(arg, "--json") == 0) {
            json = true;
        } else if (std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0) {
            std::fputs(kUsageText, stdout);
            return kValid;
        } else if ((arg[0] == '-' && arg[1] != '\0') || path != nullptr) {
            std::fputs(kUsageText, stderr);
            return kUsage;
        } else {
            path = arg;
        }
    }

    const bool fromStdin = path == nullptr || std::strcmp(path, "-") == 0;
    FILE* file = fromStdin ? stdin : std::fopen(path, "rb");
    if (file == nullptr) {
        std::fprintf(stderr, "meshdrone-inspect: cannot open %s\n", path);
        return kUsage;
    }
    std::vector<uint8_t> bytes;
    const bool read = readAll(file, bytes);
    if (!fromStdin) std::fclose(file);
    if (!read) {
        std::fprintf(stderr, "meshdrone-inspect: cannot read %s\n", fromStdin ? "standard input" : path);
        return kUsage;
    }

    try {
        const result_reader::ResultStream stream = result_reader::readResultStream(bytes.data(), bytes.size());
        const std::string text = json ? describeJson(stream) : describeText(stream);
        std::fputs(text.c_str(), stdout);
        return kValid;
    } catch (const result_reader::InvalidResultStream& e) {
        std::fprintf(stderr, "meshdrone-inspect: invalid result stream: %s\n", e.what());
        if (json) std::fputs(result_reader::describeInvalidJson(e.what()).c_str(), stdout);
        return kInvalid;
    }
}
