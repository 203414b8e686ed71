#include "prc/tess/compressed_tess_normals.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

#include "prc/tess/exact_acos.h"

namespace prc {

namespace {

[[noreturn]] void fail(const char* what) {
    throw std::runtime_error(std::string(CompressedTessNormals::kPrefix) + what);
}

}  // namespace

namespace {

void normalizeIfUsable(Vec3& v) { normalizeInPlace(v); }

}  // namespace

Basis completeBasis(const Vec3& u, bool normalize_fallback_axis) {
    // The normalised copy feeds N only; V is crossed with u as given. An axis
    // divided by its vectorLength is unit only to float precision, so the copy
    // can differ from it by 3e-8, and files are written with V from the axis
    // as it came: crossing with the copy moves every point placed with a V or
    // N offset in such a frame by about 1e-9, enough to turn the rounding-level
    // orientations and frame signs of the zero-area triangles that follow
    // (parts full of points on the line of their edge fail to decode).
    Vec3 axis = u;
    if (normalize_fallback_axis) {
        normalizeIfUsable(axis);
    }
    // axis x (0, 1, 0), written out so that no product with a zero can turn an
    // infinite component into NaN.
    Basis b;
    b.n = {-axis.z, 0.0, axis.x};
    if (!normalizeInPlace(b.n)) {
        // The axis runs along Y: use axis x (1, 0, 0) instead.
        b.n = {0.0, axis.z, -axis.y};
        normalizeIfUsable(b.n);
    }
    b.v = cross(b.n, u);
    normalizeIfUsable(b.v);
    return b;
}

double cosApprox(double x) {
    if (x > kQuarterPi) {
        const double t = kHalfPi - x;
        const double t3 = t * t * t;
        const double t5 = t3 * t * t;
        return t - t3 / 6 + t5 / 120 - t5 * t * t / 5040;
    }
    const double x4 = x * x * x * x;
    return 1 - 0.5 * (x * x) + x4 / 24 - x4 * x * x / 720;
}

double sinApprox(double x) {
    if (x > kQuarterPi) {
        const double t = kHalfPi - x;
        const double t2 = t * t;
        const double t4 = t2 * t * t;
        return 1 - 0.5 * t2 + t4 / 24 - t4 * t * t / 720;
    }
    const double x5 = x * x * x * x * x;
    return x - x * x * x / 6 + x5 / 120 - x5 * x * x / 5040;
}

namespace {

// The cosine that angleFromRight measures: a and b each normalised when they
// can be.
double cosineOf(Vec3 a, Vec3 b) {
    double la, lb;
    vectorLengths(a, b, la, lb);
    if (usableLength(la)) {
        a = divide(a, la);
    }
    if (usableLength(lb)) {
        b = divide(b, lb);
    }
    return dot(a, b);
}

// acos is too flat near +-1 to tell these apart from parallel anyway.
bool nearlyParallel(double c) { return c > 0.999999999999 || c < -0.999999999999; }

double angleFromRightOfCosine(double c) {
    if (nearlyParallel(c)) {
        return kHalfPi;
    }
    // Not std::acos: the C libraries differ in its last bit, and this value
    // decides comparisons (see exact_acos.h).
    return std::fabs(acosCorrectlyRounded(c) - kHalfPi);
}

// angleFromRight of one corner, its arc cosine taken only when a comparison
// needs it. The distance is asin(|c|) within 4e-16 (a correctly rounded acos,
// pi/2 rounded, one rounded subtraction), and asin grows at least as fast as
// its argument: cosines whose magnitudes differ by more than kCertain compare
// like their distances, and the parallel ones (distance pi/2) lie farther
// than any other (at most pi/2 - 1.4e-6). Only near-equal corners, the right
// isosceles triangle's two acute ones say, need the arc cosines.
class RightAngleDistance {
public:
    explicit RightAngleDistance(double c) : c_(c), parallel_(nearlyParallel(c)) {}

    // The comparison distance(this) > distance(other), as the values give it.
    bool fartherThan(RightAngleDistance& other) {
        if (parallel_ || other.parallel_) {
            return parallel_ && !other.parallel_;
        }
        const double mine = std::fabs(c_);
        const double theirs = std::fabs(other.c_);
        if (mine > theirs + kCertain) {
            return true;
        }
        if (theirs > mine + kCertain) {
            return false;
        }
        return distance() > other.distance();
    }

private:
    static constexpr double kCertain = 1e-13;

    double distance() {
        if (!has_distance_) {
            distance_ = angleFromRightOfCosine(c_);
            has_distance_ = true;
        }
        return distance_;
    }

    double c_;
    bool parallel_;
    bool has_distance_ = false;
    double distance_ = 0.0;
};

}  // namespace

double angleFromRight(Vec3 a, Vec3 b) { return angleFromRightOfCosine(cosineOf(a, b)); }

void CompressedTessNormals::prepareNormals(const PRC3DTessCompressed& record, uint32_t point_count,
                                           uint32_t triangle_count, bool normalize_fallback_axis) {
    record_ = &record;
    point_count_ = point_count;
    normalize_fallback_axis_ = normalize_fallback_axis;
    must_recalculate_ = record.must_recalculate_normals;
    normal_bits_used_ = 0;
    normal_angles_used_ = 0;
    normals_.clear();
    if (must_recalculate_) {
        if (record.normal_is_reversed.size() < triangle_count) {
            fail("normal_is_reversed troppo corto");
        }
        normal_is_reversed_ = &record.normal_is_reversed;
        return;
    }
    const uint32_t bits = record.normal_angle_number_of_bits;
    if (bits == 0 || bits > 16) {
        fail("normal_angle_number_of_bits fuori intervallo");
    }
    angle_quantum_ = kHalfPi / static_cast<double>(static_cast<int32_t>((1u << bits) - 1u));

    // Two angles per normal: the angle array bounds how many normals can exist.
    normals_.reserve(record.normal_angle_array.size() / 2);
    vertex_normal_kind_.assign(point_count, 0);
    vertex_normal_.assign(point_count, 0);
    normal_lists_.clear();
    list_arena_.clear();

    int64_t max_face = -1;
    for (const int32_t f : record.triangle_face_array) {
        max_face = std::max<int64_t>(max_face, f);
    }
    const uint64_t faces = static_cast<uint64_t>(max_face + 1);
    const uint64_t tracked = std::min<uint64_t>(faces, record.face_has_single_normal.size());
    face_done_.assign(tracked, 0);
    face_normal_.assign(tracked, 0);
}

bool CompressedTessNormals::nextNormalBit() {
    const BitVector& data = record_->normal_binary_data;
    if (normal_bits_used_ >= data.size()) {
        fail("normal_binary_data esaurito");
    }
    return data[normal_bits_used_++];
}

uint32_t CompressedTessNormals::decodeVertexNormal(uint32_t v, const Corner (&c)[3]) {
    if (v >= point_count_) {
        fail("vertice fuori intervallo nelle normali");
    }
    switch (vertex_normal_kind_[v]) {
        case 0: {
            const bool several = nextNormalBit();
            const bool b1 = nextNormalBit();
            const bool b2 = nextNormalBit();
            const bool b3 = nextNormalBit();
            const uint32_t n = decodeNormal(b1, b2, b3, c);
            if (several) {
                vertex_normal_kind_[v] = 2;
                vertex_normal_[v] = static_cast<uint32_t>(normal_lists_.size());
                appendToList(normal_lists_.emplace_back(), n);
            } else {
                vertex_normal_kind_[v] = 1;
                vertex_normal_[v] = n;
            }
            return n;
        }
        case 1:
            return vertex_normal_[v];
        default: {
            const uint32_t list = vertex_normal_[v];
            if (!nextNormalBit()) {
                const bool b1 = nextNormalBit();
                const bool b2 = nextNormalBit();
                const bool b3 = nextNormalBit();
                const uint32_t n = decodeNormal(b1, b2, b3, c);
                appendToList(normal_lists_[list], n);
                return n;
            }
            const NormalList& entries = normal_lists_[list];
            const uint64_t k = entries.size;
            if (k == 0) {
                fail("elenco di normali vuoto");
            }
            // Enough bits to count back over the k - 1 older entries.
            int index_bits = 1;
            for (uint64_t reach = 1; reach < k - 1; reach <<= 1) {
                ++index_bits;
            }
            uint64_t r = 0;
            for (int i = 0; i < index_bits; ++i) {
                r |= static_cast<uint64_t>(nextNormalBit()) << i;
            }
            return list_arena_[entries.start + (r >= k ? 0 : k - 1 - r)];
        }
    }
}

void CompressedTessNormals::appendToList(NormalList& list, uint32_t normal) {
    if (list.size == list.capacity) {
        const uint32_t start = static_cast<uint32_t>(list_arena_.size());
        const uint32_t capacity = list.capacity == 0 ? 2 : 2 * list.capacity;
        list_arena_.resize(list_arena_.size() + capacity);
        std::copy_n(list_arena_.begin() + list.start, list.size, list_arena_.begin() + start);
        list.start = start;
        list.capacity = capacity;
    }
    list_arena_[list.start + list.size++] = normal;
}

CompressedTessNormals::NormalFrame CompressedTessNormals::buildNormalFrame(const Corner (&c)[3],
                                                                         bool normalize_fallback_axis) {
    NormalFrame frame{};
    // The angles are measured in a frame built at the triangle's corner that is
    // closest to a right angle, the best conditioned of the three.
    Vec3 u01 = sub(c[1].p, c[0].p);
    Vec3 u02 = sub(c[2].p, c[0].p);
    Vec3 u12 = sub(c[2].p, c[1].p);
    double l01, l02, l12;
    vectorLengths(u01, u02, u12, l01, l02, l12);
    if (!usableLength(l01) || !usableLength(l02) || !usableLength(l12)) {
        return frame;
    }
    u01 = divide(u01, l01);
    u02 = divide(u02, l02);
    u12 = divide(u12, l12);

    // angleFromRight(u01, u02), (u12, -u01) and (-u02, -u12) normalise their
    // arguments once more. Negation commutes exactly with the length, the
    // division and the dot product, so each edge is normalised again once and
    // the three cosines are its dot products with the signs taken out.
    Vec3 n01 = u01, n02 = u02, n12 = u12;
    vectorLengths(n01, n02, n12, l01, l02, l12);
    if (usableLength(l01)) {
        n01 = divide(n01, l01);
    }
    if (usableLength(l02)) {
        n02 = divide(n02, l02);
    }
    if (usableLength(l12)) {
        n12 = divide(n12, l12);
    }
    // Compared as e1 > e0 && e2 > e0, then e2 > e1.
    RightAngleDistance e0(dot(n01, n02));
    RightAngleDistance e1(-dot(n12, n01));
    RightAngleDistance e2(dot(n02, n12));
    Vec3 a;
    Vec3 z;
    if (e1.fartherThan(e0) && e2.fartherThan(e0)) {
        a = u01;
        z = cross(u01, u02);
    } else if (e2.fartherThan(e1)) {
        a = u12;
        z = cross(u01, u12);
    } else {
        a = neg(u02);
        z = cross(u02, u12);
    }
    if (!normalizeInPlace(z)) {
        z = completeBasis(a, normalize_fallback_axis).n;
    }
    // Y = Z x A; a normal whose first bit turns Z gets -Y, exactly: negation
    // passes through the cross product and the normalisation unchanged.
    Vec3 y = cross(z, a);
    frame.ok = normalizeInPlace(y);
    frame.a = a;
    frame.y = y;
    frame.z = z;
    return frame;
}

uint32_t CompressedTessNormals::decodeNormal(bool b1, bool b2, bool b3, const Corner (&c)[3]) {
    const std::vector<uint16_t>& angles = record_->normal_angle_array;
    if (angles.size() < 2 || angles.size() - normal_angles_used_ < 2) {
        fail("normal_angle_array esaurito");
    }
    const double alpha = static_cast<int16_t>(angles[normal_angles_used_]) * angle_quantum_;
    const double beta = static_cast<int16_t>(angles[normal_angles_used_ + 1]) * angle_quantum_;
    normal_angles_used_ += 2;

    if (frame_state_ != FrameState::Built) {
        frame_ = buildNormalFrame(c, normalize_fallback_axis_);
        if (frame_state_ == FrameState::Unbuilt) {
            frame_state_ = FrameState::Built;
        }
    }
    Vec3 normal{0.0, 0.0, 1.0};
    if (frame_.ok) {
        const Vec3 a = b2 ? neg(frame_.a) : frame_.a;
        const Vec3 y = b1 != b3 ? neg(frame_.y) : frame_.y;
        const Vec3 z = b1 ? neg(frame_.z) : frame_.z;
        const double c1 = cosApprox(alpha);
        const double s1 = sinApprox(alpha);
        const double c2 = cosApprox(beta);
        const double s2 = sinApprox(beta);
        const double ca = c1 * c2;
        const double sa = s1 * c2;
        Vec3 candidate{ca * a.x + sa * y.x + s2 * z.x, ca * a.y + sa * y.y + s2 * z.y, ca * a.z + sa * y.z + s2 * z.z};
        if (normalizeInPlace(candidate)) {
            normal = candidate;
        }
    }
    normals_.push_back(normal);
    return static_cast<uint32_t>(normals_.size() - 1);
}

int CompressedTessNormals::orientationFromNormals(uint32_t t, const Corner (&c)[3], int64_t tie_key,
                                                  std::vector<int64_t>& tie_keys) {
    uint32_t n;
    frame_state_ = FrameState::Unbuilt;
    const BitVector& single = record_->face_has_single_normal;
    const int32_t f = record_->triangle_face_array[t];
    if (!single.empty() && f >= 0 && static_cast<uint64_t>(f) < single.size() && single[f]) {
        if (static_cast<uint64_t>(f) >= face_done_.size()) {
            fail("indice di faccia fuori intervallo");
        }
        if (!face_done_[f]) {
            n = decodeVertexNormal(c[0].index, c);
            face_done_[f] = 1;
            face_normal_[f] = n;
        } else {
            n = face_normal_[f];
        }
    } else {
        n = decodeVertexNormal(c[0].index, c);
        decodeVertexNormal(c[1].index, c);
        decodeVertexNormal(c[2].index, c);
    }
    frame_state_ = FrameState::Outside;
    const Vec3& normal = normals_[n];
    const Vec3 a = sub(c[1].p, c[0].p);
    const Vec3 b = sub(c[2].p, midpoint(c[0].p, c[1].p));
    const double d = dot(cross(b, a), normal);
    if (d == 0.0) {
        const int64_t key = 4 * static_cast<int64_t>(t) + 2;
        tie_keys.push_back(key);
        return key == tie_key ? 1 : 0;
    }
    return d < 0.0 ? 1 : 0;
}

}  // namespace prc
