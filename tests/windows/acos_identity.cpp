// acos_identity N: the decoder's arc cosine of the first N test arguments, as
// raw doubles on standard output. Built for Windows and for this system, its
// two outputs must be the same bytes: the compressed-mesh decoder compares arc
// cosines, so they must give the same bits on every system. (The unit tests
// hold them to correct rounding.)
#include <cstdio>
#include <cstdlib>
#include <vector>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

#include "prc/tess/exact_acos.h"
#include "tests/support/acos_arguments.h"

int main(int argc, char** argv) {
    const size_t n = argc == 2 ? std::strtoul(argv[1], nullptr, 10) : 0;
    if (n == 0) return std::fprintf(stderr, "usage: acos_identity N\n"), 2;
#ifdef _WIN32
    _setmode(_fileno(stdout), _O_BINARY);
#endif
    std::vector<double> results;
    for (double x : prc::test::acosArguments(n)) results.push_back(prc::acosCorrectlyRounded(x));
    return std::fwrite(results.data(), sizeof(double), n, stdout) == n && std::fflush(stdout) == 0 ? 0 : 1;
}
