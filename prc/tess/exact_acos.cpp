#include "prc/tess/exact_acos.h"

#include <cmath>
#include <limits>

namespace prc {

namespace {

// An unevaluated sum hi + lo, about 106 bits of precision.
struct DD {
    double hi = 0.0, lo = 0.0;
};

// pi rounded to a double, and the rest of pi rounded again.
constexpr DD kPi{0x1.921fb54442d18p+1, 0x1.1a62633145c07p-53};
constexpr DD kHalfPiDD{0x1.921fb54442d18p+0, 0x1.1a62633145c07p-54};

// --- Error-free transformations and double-double arithmetic. Nothing here
// may be contracted into fused multiply-adds (the build forbids it), and no
// step relies on more than IEEE rounding to nearest.

// a + b exactly as s + e.
inline DD twoSum(double a, double b) {
    const double s = a + b;
    const double bb = s - a;
    return {s, (a - (s - bb)) + (b - bb)};
}

// a + b exactly, when |a| >= |b| or a is 0.
inline DD fastTwoSum(double a, double b) {
    const double s = a + b;
    return {s, b - (s - a)};
}

// Veltkamp's split of a into two halves of at most 26 significant bits, whose
// products are exact; the factor is 2^27 + 1.
inline void split(double a, double& hi, double& lo) {
    const double c = 134217729.0 * a;
    hi = c - (c - a);
    lo = a - hi;
}

// a * b exactly as p + e (Dekker), for the moderate magnitudes used here.
inline DD twoProd(double a, double b) {
    const double p = a * b;
    double ah, al, bh, bl;
    split(a, ah, al);
    split(b, bh, bl);
    return {p, ((ah * bh - p) + ah * bl + al * bh) + al * bl};
}

DD add(DD a, DD b) {
    DD s = twoSum(a.hi, b.hi);
    const DD t = twoSum(a.lo, b.lo);
    s.lo += t.hi;
    s = fastTwoSum(s.hi, s.lo);
    s.lo += t.lo;
    return fastTwoSum(s.hi, s.lo);
}

DD mul(DD a, DD b) {
    DD p = twoProd(a.hi, b.hi);
    p.lo += a.hi * b.lo + a.lo * b.hi;
    return fastTwoSum(p.hi, p.lo);
}

DD mul(DD a, double b) {
    DD p = twoProd(a.hi, b);
    p.lo += a.lo * b;
    return fastTwoSum(p.hi, p.lo);
}

// Long division: three quotient digits of 53 bits cover the 106 bits kept.
DD div(DD a, DD b) {
    const double q1 = a.hi / b.hi;
    DD r = add(a, mul(b, -q1));
    const double q2 = r.hi / b.hi;
    r = add(r, mul(b, -q2));
    const double q3 = r.hi / b.hi;
    return add(fastTwoSum(q1, q2), DD{q3, 0.0});
}

DD div(DD a, double b) { return div(a, DD{b, 0.0}); }

// sqrt(t) for t >= 0: the rounded root plus one Newton correction, whose
// residual t - s^2 is exact (s^2 by twoProd, then a difference of close values).
DD sqrtOf(double t) {
    if (t == 0.0) return {0.0, 0.0};
    const double s = std::sqrt(t);
    const DD square = twoProd(s, s);
    return fastTwoSum(s, ((t - square.hi) - square.lo) / (2.0 * s));
}

// --- Tables. asin is needed on [0, 1/2] only (see reduce). Around each
// breakpoint a = i/128 it is expanded as a Taylor series in h = z - a with
// |h| <= 1/256; the nearest singularity of asin is at 1, at least 1/2 away,
// so term k shrinks like (2|h|)^k = 2^(-7k): 18 terms reach beyond 2^-120,
// and 10 terms beyond 2^-70 for the fast path.

constexpr int kBreakpointsPerUnit = 128;
constexpr int kEntries = kBreakpointsPerUnit / 2 + 1;
constexpr int kTerms = 18;
constexpr int kFastTerms = 10;

struct Entry {
    DD asin_a;
    DD coefficient[kTerms + 1];  // [k]: of h^k, k >= 1
    double fast[kFastTerms + 1];  // the same, rounded to doubles, k >= 2
};

// asin a = sum over n of b_n a^(2n+1) / (2n+1), b_0 = 1, b_n = b_(n-1) (2n-1) / (2n),
// for 0 <= a <= 1/2, where each term is at most a quarter of the one before.
DD asinPowerSeries(double a) {
    DD sum{a, 0.0};
    DD b{1.0, 0.0};
    DD power{a, 0.0};
    const DD a2 = twoProd(a, a);
    for (int n = 1; n < 200; ++n) {
        b = div(mul(b, 2.0 * n - 1.0), 2.0 * n);
        power = mul(power, a2);
        const DD term = div(mul(b, power), 2.0 * n + 1.0);
        if (term.hi <= sum.hi * 0x1p-120) break;
        sum = add(sum, term);
    }
    return sum;
}

// The Taylor coefficients of asin around a come from those of its derivative
// g = (1 - x^2)^(-1/2), which satisfies (1 - x^2) g' = x g. Writing x = a + u
// and g = sum g_k u^k, equating the coefficients of u^k gives
//   (1 - a^2) (k + 1) g_(k+1) = (2k + 1) a g_k + k g_(k-1),
// and asin's coefficient of u^k is g_(k-1) / k.
void fillEntry(Entry& entry, double a) {
    entry.asin_a = asinPowerSeries(a);
    const double one_minus_a2 = 1.0 - a * a;  // exact: a has at most 7 bits
    DD previous{0.0, 0.0};
    DD g = div(DD{1.0, 0.0}, sqrtOf(one_minus_a2));
    for (int k = 0; k < kTerms; ++k) {
        entry.coefficient[k + 1] = div(g, k + 1.0);
        const DD next = div(add(mul(mul(g, a), 2.0 * k + 1.0), mul(previous, static_cast<double>(k))),
                            one_minus_a2 * (k + 1.0));
        previous = g;
        g = next;
    }
    entry.coefficient[0] = {0.0, 0.0};
    for (int k = 0; k <= kFastTerms; ++k) entry.fast[k] = entry.coefficient[k].hi;
}

struct Tables {
    Entry entries[kEntries];
    Tables() {
        for (int i = 0; i < kEntries; ++i) fillEntry(entries[i], static_cast<double>(i) / kBreakpointsPerUnit);
    }
};

const Tables& tables() {
    static const Tables instance;
    return instance;
}

// acos x = base + factor * asin z, with 0 <= z <= 1/2:
//   |x| <= 1/2: acos x = pi/2 - sign(x) asin |x|;
//   x > 1/2:    acos x = 2 asin sqrt((1 - x) / 2);
//   x < -1/2:   acos x = pi - 2 asin sqrt((1 + x) / 2).
// 1 - |x| is exact there (Sterbenz), and so is halving it; the root is kept
// in double-double, as its low part still counts for a small z.
struct Reduction {
    DD base;
    double factor;
    const Entry* entry;
    double h_hi, h_lo;  // z - a = h_hi + h_lo, h_hi exact
};

Reduction reduce(double x) {
    Reduction r;
    DD z;
    if (std::fabs(x) <= 0.5) {
        r.base = kHalfPiDD;
        r.factor = x < 0.0 ? 1.0 : -1.0;
        z = {std::fabs(x), 0.0};
    } else if (x > 0.0) {
        r.base = {0.0, 0.0};
        r.factor = 2.0;
        z = sqrtOf((1.0 - x) * 0.5);
    } else {
        r.base = kPi;
        r.factor = -2.0;
        z = sqrtOf((1.0 + x) * 0.5);
    }
    // z.hi <= 1/2, so the index is at most 64. z.hi - a is exact: a = 0, or
    // z.hi lies within a/2 of a (Sterbenz).
    const int index = static_cast<int>(z.hi * kBreakpointsPerUnit + 0.5);
    r.entry = &tables().entries[index];
    r.h_hi = z.hi - static_cast<double>(index) / kBreakpointsPerUnit;
    r.h_lo = z.lo;
    return r;
}

double combineRounded(const Reduction& r, DD asin_z) {
    const DD total = add(r.base, DD{asin_z.hi * r.factor, asin_z.lo * r.factor});
    return total.hi + total.lo;
}

double evaluateDoubleDouble(const Reduction& r) {
    const Entry& e = *r.entry;
    const DD h = twoSum(r.h_hi, r.h_lo);
    DD q = e.coefficient[kTerms];
    for (int k = kTerms - 1; k >= 1; --k) q = add(mul(q, h), e.coefficient[k]);
    return combineRounded(r, add(e.asin_a, mul(q, h)));
}

bool outsideDomain(double x) { return !(x >= -1.0 && x <= 1.0); }

}  // namespace

double acosCorrectlyRounded(double x) {
    if (outsideDomain(x)) return std::numeric_limits<double>::quiet_NaN();
    const Reduction r = reduce(x);
    const Entry& e = *r.entry;

    // asin z = asin a + c1 h + h^2 (c2 + c3 h + ...): the first two terms in
    // double-double, the tail, below 2^-15 of the result, in doubles.
    const DD linear = twoProd(e.coefficient[1].hi, r.h_hi);
    const double h = r.h_hi + r.h_lo;
    double tail = e.fast[kFastTerms];
    for (int k = kFastTerms - 1; k >= 2; --k) tail = tail * h + e.fast[k];
    tail *= h * h;
    const DD head = twoSum(e.asin_a.hi, linear.hi);
    const double small = head.lo + e.asin_a.lo + linear.lo + e.coefficient[1].lo * r.h_hi +
                         e.coefficient[1].hi * r.h_lo + tail;
    const DD asin_z = fastTwoSum(head.hi, small);

    DD total = twoSum(r.base.hi, asin_z.hi * r.factor);
    total.lo += r.base.lo + asin_z.lo * r.factor;
    const double rounded = total.hi + total.lo;

    // total is within 2^-64 of acos x, relative: the tail is below 2^-15 of
    // the result and carries a dozen roundings of 2^-53 each. Rounding is
    // monotonic, so when both ends of an interval round to the same double,
    // everything inside does; the interval taken is four times wider, which
    // also covers the rounding of lo -+ margin. Otherwise acos x may lie on
    // either side of a rounding boundary and the slow evaluation decides.
    const double margin = std::fabs(total.hi) * 0x1p-62;
    if (total.hi + (total.lo - margin) == rounded && total.hi + (total.lo + margin) == rounded) {
        return rounded;
    }
    return evaluateDoubleDouble(r);
}

}  // namespace prc
