#pragma once
// Vector arithmetic of the compressed-mesh traversal and the decoding of its
// normals, which decide the orientation of every triangle.
//
// Every formula here is evaluated in one fixed order and grouping: a triangle
// whose orientation comes out the other way sends the traversal down another
// edge, so a last-bit difference corrupts the rest of the mesh.

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "prc/tess/compressed_tess_reading.h"

namespace prc {

// Plain aggregates without member initialisers: the traversal builds a
// 160-byte edge entry per triangle, and zeroing each one first (rep stos)
// cost more than the rest of its construction.
struct Vec3 {
    double x, y, z;
};

// A corner of a triangle: the point's coordinates as they were when the corner
// was taken, and its point index.
struct Corner {
    Vec3 p;
    uint32_t index;
};

// The 32-bit float epsilon: shorter vectors count as having no direction.
constexpr double kLengthEpsilon = 1.1920928955078125e-7;
constexpr double kHalfPi = 1.5707963267948966;
constexpr double kQuarterPi = 0.7853981633974483;

inline Vec3 add(const Vec3& a, const Vec3& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Vec3 sub(const Vec3& a, const Vec3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Vec3 neg(const Vec3& a) { return {-a.x, -a.y, -a.z}; }
inline Vec3 midpoint(const Vec3& a, const Vec3& b) { return {(a.x + b.x) / 2, (a.y + b.y) / 2, (a.z + b.z) / 2}; }
inline double dot(const Vec3& a, const Vec3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vec3 cross(const Vec3& a, const Vec3& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
// Division by 1 changes no value, and about half the vectors normalised are
// unit already: their three divisions are skipped.
inline Vec3 divide(const Vec3& v, double s) {
    if (s == 1.0) {
        return v;
    }
    return {v.x / s, v.y / s, v.z / s};
}

// A length usable as a divisor: positive (which also rules out NaN) and not
// below the epsilon.
inline bool usableLength(double length) { return length > 0.0 && !(length < kLengthEpsilon); }

// Square root of the squared length rounded to a 32-bit float, as the Newton
// iteration from a bit-level start guess gives it (one ulp off the correctly
// rounded root for a quarter of all q). Returns 0 for zeros and negative q,
// NaN for +inf and positive NaNs, so that the result counts as unusable.
//
// These sit on the traversal's critical path, a chain of dependent
// normalisations per triangle: they are inline so that no vector makes a
// round trip through memory between one step and the next.
namespace lengths {

// The lengths that files were written with come from Newton's iteration
// x' = (q/x + x)/2 in doubles, stopped when a step changes nothing (at most
// 100 steps), on the squared length rounded to a float, q, and started from a
// bit-level guess: q itself below 2, q with its unbiased exponent halved from
// 2 on. From that guess it takes 4 to 80 dependent divisions.
//
// For every positive finite q the iteration ends on the same double as one
// step taken from the correctly rounded root s, (q/s + s)/2 (compared for all
// 2^31 - 2^23 such floats): it settles on the root or a neighbour of it
// whichever way it comes, and from the root one step lands where it settles.
// The square root is correctly rounded on every target (IEEE), so a length
// costs one square root and one division.
//
// The other values never reach a root: a negative q (or -0, +0) gives a guess
// that is not positive, which counts as no length (0); +inf and NaN run into
// inf/inf and end as NaN, which no comparison accepts either.
//
// Half the lengths asked for are of vectors normalised before, whose squared
// length rounds to 1 or to the float below it: those two are answered without
// the square root and division.
inline constexpr uint32_t kOneBits = 0x3F800000u;
inline constexpr uint32_t kBelowOneBits = 0x3F7FFFFFu;
inline constexpr double kLengthOfBelowOne = 0.99999997019767717;  // (q/s + s)/2 for q = 1 - 2^-24

template <int N>
inline void lengthsFromSquares(const float (&q)[N], double (&out)[N]) {
    for (int i = 0; i < N; ++i) {
        const uint32_t bits = std::bit_cast<uint32_t>(q[i]);
        if (bits == kOneBits) {
            out[i] = 1.0;
        } else if (bits == kBelowOneBits) {
            out[i] = kLengthOfBelowOne;
        } else if (bits - 1u < 0x7F7FFFFFu) {  // 0 < q <= FLT_MAX
            const double square = q[i];
            const double root = std::sqrt(square);
            out[i] = (square / root + root) / 2;
        } else {
            out[i] = bits >= 0x7F800000u && bits < 0x80000000u ? std::numeric_limits<double>::quiet_NaN() : 0.0;
        }
    }
}

inline float squaredLength(const Vec3& v) { return static_cast<float>(dot(v, v)); }

}  // namespace lengths

inline double lengthFromSquare(float q) {
    const float in[1] = {q};
    double out[1];
    lengths::lengthsFromSquares(in, out);
    return out[0];
}

// lengthFromSquare of v.v, the dot product taken in doubles.
inline double vectorLength(const Vec3& v) { return lengthFromSquare(lengths::squaredLength(v)); }

// vectorLength of two or three independent vectors at once: the same
// operations, with their chains interleaved so that the square roots and
// divisions overlap.
inline void vectorLengths(const Vec3& a, const Vec3& b, double& la, double& lb) {
    const float in[2] = {lengths::squaredLength(a), lengths::squaredLength(b)};
    double out[2];
    lengths::lengthsFromSquares(in, out);
    la = out[0];
    lb = out[1];
}

inline void vectorLengths(const Vec3& a, const Vec3& b, const Vec3& c, double& la, double& lb, double& lc) {
    const float in[3] = {lengths::squaredLength(a), lengths::squaredLength(b), lengths::squaredLength(c)};
    double out[3];
    lengths::lengthsFromSquares(in, out);
    la = out[0];
    lb = out[1];
    lc = out[2];
}

// Divides v by its length when usableLength holds; false leaves v unchanged.
inline bool normalizeInPlace(Vec3& v) {
    const double length = vectorLength(v);
    if (!usableLength(length)) {
        return false;
    }
    v = divide(v, length);
    return true;
}

struct Basis {
    Vec3 v, n;
};
// Two axes completing u to a frame, from the world Y axis (or the X axis when u
// is parallel to Y). With normalize_fallback_axis N is built from a normalised
// copy of u, while V = N x u always uses u as given.
Basis completeBasis(const Vec3& u, bool normalize_fallback_axis);

// Polynomial approximations: Taylor series around 0, or around pi/2 above pi/4.
double cosApprox(double x);
double sinApprox(double x);
// |angle between a and b - pi/2|, pi/2 for (anti)parallel vectors.
double angleFromRight(Vec3 a, Vec3 b);

// The normal state of one decoding run.
class CompressedTessNormals {
public:
    static constexpr const char* kPrefix = "buildCompressedTessMesh: ";

    // Checks the arrays the run cannot do without and sizes the per-point and
    // per-face state.
    void prepareNormals(const PRC3DTessCompressed& record, uint32_t point_count, uint32_t triangle_count,
                        bool normalize_fallback_axis);

    // 1 keeps the corners' order, 0 swaps C1 and C2. A product of exactly 0
    // is a tie: its key 4t + 2 is recorded, and tie_key picks the other side.
    int triangleOrientation(uint32_t t, const Corner (&c)[3], int64_t tie_key, std::vector<int64_t>& tie_keys) {
        if (must_recalculate_) {
            return (*normal_is_reversed_)[t] ? 1 : 0;
        }
        return orientationFromNormals(t, c, tie_key, tie_keys);
    }

    uint32_t decodeVertexNormal(uint32_t v, const Corner (&c)[3]);
    uint32_t decodeNormal(bool b1, bool b2, bool b3, const Corner (&c)[3]);
    bool nextNormalBit();

    const std::vector<Vec3>& normals() const { return normals_; }
    double angleQuantum() const { return angle_quantum_; }
    uint32_t normalBitsUsed() const { return normal_bits_used_; }
    uint32_t normalAnglesUsed() const { return normal_angles_used_; }

private:
    int orientationFromNormals(uint32_t t, const Corner (&c)[3], int64_t tie_key, std::vector<int64_t>& tie_keys);

    // The frame in which a triangle's normals are given, before the three bits
    // of a normal turn its axes: it depends on the corners only, so the up to
    // three normals decoded for one triangle share it. Within a triangle it is
    // built at the first normal; outside one (decodeNormal called alone) it is
    // built for every call.
    struct NormalFrame {
        Vec3 a, y, z;
        bool ok;
    };
    static NormalFrame buildNormalFrame(const Corner (&c)[3], bool normalize_fallback_axis);
    enum class FrameState : uint8_t { Outside, Unbuilt, Built };
    FrameState frame_state_ = FrameState::Outside;
    NormalFrame frame_{};

    const PRC3DTessCompressed* record_ = nullptr;
    bool must_recalculate_ = false;
    bool normalize_fallback_axis_ = false;
    const BitVector* normal_is_reversed_ = nullptr;
    uint32_t point_count_ = 0;
    double angle_quantum_ = 0.0;
    std::vector<Vec3> normals_;
    // Per point: 0 no normal yet, 1 one normal (vertex_normal_ holds it), 2 a
    // list (vertex_normal_ holds the list's position in normal_lists_).
    std::vector<uint8_t> vertex_normal_kind_;
    std::vector<uint32_t> vertex_normal_;
    // The lists live in one arena instead of a vector each: a list that is
    // full moves to the arena's end with twice the room, so appending stays
    // amortised constant and no point costs an allocation of its own. The
    // arena holds at most four entries per normal, below 2^30 in all (two
    // angles per normal, and an angle array of 2^28 fills a whole section).
    struct NormalList {
        uint32_t start = 0;
        uint32_t size = 0;
        uint32_t capacity = 0;
    };
    void appendToList(NormalList& list, uint32_t normal);
    std::vector<NormalList> normal_lists_;
    std::vector<uint32_t> list_arena_;
    // Only faces below face_has_single_normal's length can be asked for, so the
    // face state never outgrows that array, whatever the face indices claim.
    std::vector<uint8_t> face_done_;
    std::vector<uint32_t> face_normal_;
    uint32_t normal_bits_used_ = 0;
    uint32_t normal_angles_used_ = 0;
};

}  // namespace prc
