// inflate-only FILE.prc: a whole process that reads a PRC file and only
// inflates its sections with zlib, to time beside the worker on the same file.

#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

#include "bench/zlib_sections.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: inflate-only FILE.prc\n");
        return 2;
    }
    std::ifstream in(argv[1], std::ios::binary);
    const std::vector<uint8_t> file{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    try {
        std::printf("%llu\n", static_cast<unsigned long long>(bench::zlibInflateSections(file, bench::sectionsOf(file))));
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
    return 0;
}
