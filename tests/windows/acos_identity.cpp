// acos_identity dump N                 (built for each system)
// acos_identity check N [OTHER-DUMP]   (built for the development system)
//
// The compressed-mesh decoder compares arc cosines, so its arc cosine must
// give the same bits on every system. dump writes, for N arguments drawn
// deterministically, the argument, acosCorrectlyRounded and the C library's
// acos as raw doubles. check computes the same and prints one line per
// property, "ok: ..." or "FAILED: ...":
//   - the fast path agrees with the double-double evaluation everywhere;
//   - with quad precision at hand (GCC's libquadmath, when WITH_QUADMATH is
//     defined), every result is the correctly rounded one;
//   - it agrees with this system's C library except where that library is
//     off by one in a near tie (which quad precision must confirm);
//   - OTHER-DUMP (another system's dump) holds the very same bits.
#include <cmath>
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
    double x, ours, library;
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

// The arguments: uniform over [-1, 1]; every binade down to 2^-60 (the
// region |x| <= 1/2 and its table); a few ulps below 1 in magnitude (the
// square-root reduction, results near 0 and pi); a few ulps around the table
// breakpoints i/128 and the region bounds +-1/2; and the special values.
std::vector<double> arguments(size_t n) {
    std::vector<double> xs = {0.0, -0.0, 1.0, -1.0, 0.5, -0.5, 0x1p-1074, -0x1p-1074, 0x1p-1022,
                              0.999999999999, -0.999999999999, 0x1.fffffffffffffp-1, -0x1.fffffffffffffp-1};
    uint64_t state = 0x9E3779B97F4A7C15ull;
    auto next = [&state] {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    };
    while (xs.size() < n) {
        const uint64_t r = next();
        const double sign = (r >> 63) != 0 ? -1.0 : 1.0;
        switch (xs.size() % 4) {
            case 0:
                xs.push_back(sign * static_cast<double>(r >> 11) * 0x1p-53);
                break;
            case 1: {
                const uint64_t exponent = 1022 - (r >> 58);  // 2^-1 .. 2^-64
                xs.push_back(sign * fromBits((exponent << 52) | (r & 0xFFFFFFFFFFFFFull)));
                break;
            }
            case 2:
                xs.push_back(sign * fromBits(bitsOf(1.0) - 1 - ((r >> 20) & 0xFFFFF)));
                break;
            default: {
                const double breakpoint = static_cast<double>((r >> 32) % 65) / 128.0;
                const int64_t ulps = static_cast<int64_t>((r >> 8) & 0xFF) - 128;
                const double x = fromBits(bitsOf(breakpoint == 0.0 ? 0x1p-60 : breakpoint) + ulps);
                xs.push_back(sign * (x > 1.0 ? 1.0 : x));
            }
        }
    }
    xs.resize(n);
    return xs;
}

std::vector<Sample> compute(size_t n) {
    std::vector<Sample> samples;
    for (double x : arguments(n)) samples.push_back({x, prc::acosCorrectlyRounded(x), std::acos(x)});
    return samples;
}

int report(bool ok, const std::string& what) {
    std::printf("%s: %s\n", ok ? "ok" : "FAILED", what.c_str());
    return ok ? 0 : 1;
}

#ifdef WITH_QUADMATH
// acos in quad precision, and how far it lies from the nearest midpoint
// between two doubles, in ulps of the double result.
struct QuadReference {
    double rounded;
    double distance_from_midpoint;
};

QuadReference quadAcos(double x) {
    const __float128 exact = acosq(static_cast<__float128>(x));
    const double rounded = static_cast<double>(exact);
    const double above = std::nextafter(rounded, 4.0);
    const __float128 ulp = static_cast<__float128>(above) - static_cast<__float128>(rounded);
    const __float128 offset = (exact - static_cast<__float128>(rounded)) / ulp;  // in [-1/2, 1/2]
    return {rounded, static_cast<double>(0.5 - fabsq(offset))};
}
#endif

int check(size_t n, const char* otherDump) {
    const std::vector<Sample> samples = compute(n);
    int failures = 0;

    size_t reference_mismatches = 0;
    for (const Sample& s : samples) {
        if (bitsOf(s.ours) != bitsOf(prc::acosDoubleDouble(s.x))) ++reference_mismatches;
    }
    failures += report(reference_mismatches == 0, "fast path equals the double-double evaluation on " +
                                                      std::to_string(n) + " arguments (" +
                                                      std::to_string(reference_mismatches) + " differ)");

    const prc::DoubleDouble pi = prc::piDoubleDouble();
    const prc::DoubleDouble series = prc::sixAsinHalfFromSeries();
    const double gap = std::fabs((pi.hi - series.hi) + (pi.lo - series.lo));
    failures += report(gap < 0x1p-100, "pi equals 6 asin(1/2) from the series tables to 2^-100");

    size_t library_mismatches = 0, unexplained = 0;
#ifdef WITH_QUADMATH
    size_t not_rounded = 0;
    for (const Sample& s : samples) {
        const QuadReference q = quadAcos(s.x);
        if (bitsOf(s.ours) != bitsOf(q.rounded)) ++not_rounded;
        if (bitsOf(s.library) != bitsOf(s.ours)) {
            ++library_mismatches;
            if (q.distance_from_midpoint > 0.01) ++unexplained;
        }
    }
    failures += report(not_rounded == 0, "correctly rounded against quad precision on " + std::to_string(n) +
                                             " arguments (" + std::to_string(not_rounded) + " differ)");
#else
    for (const Sample& s : samples) {
        if (bitsOf(s.library) != bitsOf(s.ours) && std::fabs(s.library - s.ours) > 0x1p-52 * s.ours) {
            ++library_mismatches;
            ++unexplained;
        }
    }
#endif
    failures += report(unexplained == 0, "equals the C library's acos on " + std::to_string(n - library_mismatches) +
                                             " of " + std::to_string(n) +
                                             " arguments; the others are near ties that the library misrounds (" +
                                             std::to_string(unexplained) + " are not)");

    if (otherDump != nullptr) {
        FILE* file = std::fopen(otherDump, "rb");
        std::vector<Sample> other(n);
        const size_t got = file != nullptr ? std::fread(other.data(), sizeof(Sample), n, file) : 0;
        if (file != nullptr) std::fclose(file);
        size_t differ = 0, library_differ = 0;
        for (size_t i = 0; i < got; ++i) {
            if (bitsOf(other[i].x) != bitsOf(samples[i].x) || bitsOf(other[i].ours) != bitsOf(samples[i].ours)) {
                ++differ;
            }
            if (bitsOf(other[i].library) != bitsOf(samples[i].library)) ++library_differ;
        }
        failures += report(got == n && differ == 0,
                           "bit-identical on the other system on " + std::to_string(got) + " of " + std::to_string(n) +
                               " arguments (" + std::to_string(differ) + " differ; its C library's acos differs from " +
                               "this one's on " + std::to_string(library_differ) + ")");
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
