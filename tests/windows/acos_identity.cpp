// acos_identity dump N                 (built for each system)
// acos_identity check N [OTHER-DUMP]   (built for the development system)
//
// The compressed-mesh decoder compares arc cosines, so its arc cosine must
// give the same bits on every system. dump writes, for N arguments drawn
// deterministically, each argument and acosCorrectlyRounded of it as raw
// doubles. check computes the same and prints one line per property, "ok: ..."
// or "FAILED: ...":
//   - every result is the correctly rounded one: against quad precision when
//     GCC's libquadmath is at hand (WITH_QUADMATH defined), else against the
//     double-double evaluation that the fast path falls back to;
//   - OTHER-DUMP (another system's dump) holds the very same bits.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif
#ifdef WITH_QUADMATH
#include <quadmath.h>
#endif

#include "prc/tess/exact_acos.h"

namespace {

struct Sample {
    double x, ours;
};

uint64_t bitsOf(double v) {
    uint64_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

double fromBits(uint64_t b) {
    double v;
    std::memcpy(&v, &b, sizeof v);
    return v;
}

// The arguments: uniform over [-1, 1]; every binade down to 2^-64 (the
// region |x| <= 1/2 and its table); a few ulps below 1 in magnitude (the
// square-root reduction, results near 0 and pi); a few ulps around the table
// breakpoints i/128 and the region bounds +-1/2; and the special values.
std::vector<Sample> compute(size_t n) {
    std::vector<double> xs = {0.0, -0.0, 1.0, -1.0, 0.5, -0.5, 0x1p-1074, -0x1p-1074, 0x1p-1022,
                              0.999999999999, -0.999999999999, 0x1.fffffffffffffp-1, -0x1.fffffffffffffp-1};
    uint64_t r = 0x9E3779B97F4A7C15ull;
    while (xs.size() < n) {
        r ^= r << 13, r ^= r >> 7, r ^= r << 17;
        const double sign = (r >> 63) != 0 ? -1.0 : 1.0;
        const double breakpoint = static_cast<double>((r >> 32) % 65) / 128.0;
        const int64_t ulps = static_cast<int64_t>((r >> 8) & 0xFF) - 128;
        const double near = fromBits(bitsOf(breakpoint == 0.0 ? 0x1p-60 : breakpoint) + ulps);
        switch (xs.size() % 4) {
            case 0: xs.push_back(sign * static_cast<double>(r >> 11) * 0x1p-53); break;
            case 1: xs.push_back(sign * fromBits((1022 - (r >> 58)) << 52 | (r & 0xFFFFFFFFFFFFFull))); break;
            case 2: xs.push_back(sign * fromBits(bitsOf(1.0) - 1 - ((r >> 20) & 0xFFFFF))); break;
            default: xs.push_back(sign * (near > 1.0 ? 1.0 : near));
        }
    }
    std::vector<Sample> samples;
    for (size_t i = 0; i < n; ++i) samples.push_back({xs[i], prc::acosCorrectlyRounded(xs[i])});
    return samples;
}

double reference(double x) {
#ifdef WITH_QUADMATH
    return static_cast<double>(acosq(static_cast<__float128>(x)));
#else
    return prc::acosDoubleDouble(x);
#endif
}

int report(bool ok, const std::string& what) {
    std::printf("%s: %s\n", ok ? "ok" : "FAILED", what.c_str());
    return ok ? 0 : 1;
}

int check(size_t n, const char* otherDump) {
    const std::vector<Sample> samples = compute(n);
    size_t wrong = 0;
    for (const Sample& s : samples) wrong += bitsOf(s.ours) != bitsOf(reference(s.x));
#ifdef WITH_QUADMATH
    const std::string against = "quad precision";
#else
    const std::string against = "the double-double evaluation";
#endif
    int failures = report(wrong == 0, "correctly rounded against " + against + " on " + std::to_string(n) +
                                          " arguments (" + std::to_string(wrong) + " differ)");
    if (otherDump != nullptr) {
        FILE* file = std::fopen(otherDump, "rb");
        std::vector<Sample> other(n);
        const size_t got = file != nullptr ? std::fread(other.data(), sizeof(Sample), n, file) : 0;
        if (file != nullptr) std::fclose(file);
        size_t differ = 0;
        for (size_t i = 0; i < got; ++i)
            differ += bitsOf(other[i].x) != bitsOf(samples[i].x) || bitsOf(other[i].ours) != bitsOf(samples[i].ours);
        failures += report(got == n && differ == 0, "bit-identical on the other system on " + std::to_string(got) +
                                                        " of " + std::to_string(n) + " arguments (" +
                                                        std::to_string(differ) + " differ)");
    }
    return failures == 0 ? 0 : 1;
}

int dump(size_t n) {
#ifdef _WIN32
    _setmode(_fileno(stdout), _O_BINARY);
#endif
    const std::vector<Sample> samples = compute(n);
    return std::fwrite(samples.data(), sizeof(Sample), n, stdout) == n && std::fflush(stdout) == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 2 ? argv[1] : "";
    const size_t n = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 0;
    if (mode == "dump" && argc == 3 && n > 0) return dump(n);
    if (mode == "check" && (argc == 3 || argc == 4) && n > 0) return check(n, argc == 4 ? argv[3] : nullptr);
    std::fprintf(stderr, "usage: acos_identity dump N | check N [OTHER-DUMP]\n");
    return 2;
}
