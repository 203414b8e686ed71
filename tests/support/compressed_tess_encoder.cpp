#include "tests/support/compressed_tess_encoder.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>

#include "tests/support/prc_bit_writer.h"

namespace prc::test {

namespace {

using V = EncoderVec;

// ---------------------------------------------------------------------------
// The decoder's arithmetic, written out again from its description. Every
// expression keeps the documented order and grouping.

constexpr double kEps = 1.1920928955078125e-7;  // FLT_EPSILON
constexpr double kRight = 1.5707963267948966;

V plus(const V& a, const V& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
V minus(const V& a, const V& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
V negated(const V& a) { return {-a.x, -a.y, -a.z}; }
V halfway(const V& a, const V& b) { return {(a.x + b.x) / 2, (a.y + b.y) / 2, (a.z + b.z) / 2}; }
double inner(const V& a, const V& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
V outer(const V& a, const V& b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }

// Square root of the float-rounded squared length; negative when the start
// guess is not positive.
double quantLength(const V& v) {
    const float q = static_cast<float>(v.x * v.x + v.y * v.y + v.z * v.z);
    uint32_t pattern;
    std::memcpy(&pattern, &q, 4);
    float start = q;
    if ((pattern >> 30) & 1u) {
        const int biased = static_cast<int>((pattern >> 23) & 255u);
        const uint32_t replaced = static_cast<uint32_t>((biased - 127) / 2 + 127);
        const uint32_t guess = (pattern & 0x807FFFFFu) | (replaced << 23);
        std::memcpy(&start, &guess, 4);
    }
    if (!(start > 0.0f)) {
        return -1.0;
    }
    const double square = q;
    double x = start;
    for (int step = 0; step < 100; ++step) {
        const double better = (square / x + x) * 0.5;
        if (better == x) {
            break;
        }
        x = better;
    }
    return x;
}

bool usable(double length) { return !(length <= 0.0) && length == length && length >= kEps; }

bool unitize(V& v) {
    const double length = quantLength(v);
    if (!usable(length)) {
        return false;
    }
    v = {v.x / length, v.y / length, v.z / length};
    return true;
}

// The fallback frame: U x Y (or U x X when U runs along Y), and V = N x U.
// Only the decoder's later runs normalise the axis first.
void fallbackAxes(const V& u, V& v_out, V& n_out, bool normalize_axis) {
    // Only n is built from the normalised axis; v crosses n with u as given.
    V axis = u;
    if (normalize_axis) {
        unitize(axis);
    }
    V n{-axis.z, 0.0, axis.x};
    if (!unitize(n)) {
        n = {0.0, axis.z, -axis.y};
        unitize(n);
    }
    V v = outer(n, u);
    unitize(v);
    v_out = v;
    n_out = n;
}

double polyCos(double x) {
    if (x > 0.7853981633974483) {
        const double t = kRight - x;
        const double t3 = t * t * t;
        const double t5 = t3 * t * t;
        return t - t3 / 6 + t5 / 120 - t5 * t * t / 5040;
    }
    const double x4 = x * x * x * x;
    return 1 - 0.5 * (x * x) + x4 / 24 - x4 * x * x / 720;
}

double polySin(double x) {
    if (x > 0.7853981633974483) {
        const double t = kRight - x;
        const double t2 = t * t;
        const double t4 = t2 * t * t;
        return 1 - 0.5 * t2 + t4 / 24 - t4 * t * t / 720;
    }
    const double x5 = x * x * x * x * x;
    return x - x * x * x / 6 + x5 / 120 - x5 * x * x / 5040;
}

double offRight(V a, V b) {
    unitize(a);
    unitize(b);
    const double c = inner(a, b);
    if (c > 0.999999999999 || c < -0.999999999999) {
        return kRight;
    }
    return std::fabs(std::acos(c) - kRight);
}

uint64_t pairKey(uint32_t i, uint32_t j) {
    const uint32_t lo = std::min(i, j);
    const uint32_t hi = std::max(i, j);
    return (static_cast<uint64_t>(lo) << 32) + hi;
}

bool sameVec(const V& a, const V& b) { return a.x == b.x && a.y == b.y && a.z == b.z; }

// The geometric normal of an input triangle, plainly normalised.
V faceNormal(const V& p0, const V& p1, const V& p2) {
    const V n = outer(minus(p1, p0), minus(p2, p0));
    const double l = std::sqrt(inner(n, n));
    if (!(l > 0.0)) {
        return {0.0, 0.0, 1.0};
    }
    return {n.x / l, n.y / l, n.z / l};
}

// ---------------------------------------------------------------------------

class Encoder {
public:
    Encoder(const EncoderMesh& mesh, const EncoderOptions& options)
        : mesh_(mesh), opt_(options), rng_(options.seed) {}

    EncodedTess run();

private:
    struct Pt {
        V p;
        uint32_t idx = 0;  // decoded index
    };
    struct Pending {
        V u, v, n, m;
        Pt a, b;
    };
    struct ListEntry {
        uint32_t normal;
        V wanted;
    };

    void prepare();
    int32_t quantise(double value) const;
    Pt newPoint(const V& base, uint32_t input);
    Pt newPointInFrame(const Pending& e, uint32_t input);
    Pt reference(uint32_t input);
    Pending frameOf(const Pt& c0, const Pt& c1, const Pt& c2, int64_t key);
    void startFirst(uint32_t tri, std::array<uint32_t, 3> order);
    void startChain();
    void continueAcross(const Pending& e);
    std::array<uint32_t, 3> chooseCorners(uint32_t tri);
    uint32_t chooseChainTriangle();
    bool hasUnvisited(uint32_t a_input, uint32_t b_input) const;
    int64_t unvisitedAcross(uint32_t a_input, uint32_t b_input) const;
    void finishTriangle(uint32_t tri);
    uint32_t vertexNormal(const Pt& corner, const V& wanted);
    uint32_t encodeNormal(const V& wanted, bool octant[3]);
    V wantedNormal(uint32_t tri, uint32_t input_point) const;
    void bit(bool b) { out_.record.normal_binary_data.push_back(b); }

    const EncoderMesh& mesh_;
    const EncoderOptions& opt_;
    std::mt19937_64 rng_;
    EncodedTess out_;
    uint32_t point_count_ = 0;
    std::vector<int64_t> decoded_of_;
    std::vector<V> decoded_pos_;
    std::vector<char> visited_;
    uint32_t lowest_unvisited_ = 0;
    std::unordered_map<uint64_t, std::vector<uint32_t>> edge_tris_;
    std::vector<Pending> stack_;
    std::unordered_set<uint64_t> closed_;
    Pt c_[3];
    uint32_t cur_tri_ = 0;
    int orient_ = 0;
    uint32_t t_ = 0;  // the decoded triangle being built
    // Normal state, mirroring the decoder's.
    double quantum_ = 0.0;
    std::vector<V> normals_;
    std::vector<uint8_t> kind_;          // by decoded point
    std::vector<uint32_t> single_;       // kind 1 normal
    std::vector<std::vector<ListEntry>> lists_;
    std::vector<char> several_;          // by input point
    std::vector<int> face_done_;         // -1 or normal
    std::vector<V> face_wanted_;
};

void Encoder::prepare() {
    const size_t tris = mesh_.triangles.size();
    for (size_t t = 0; t < tris; ++t) {
        const auto& tri = mesh_.triangles[t];
        if (tri[0] == tri[1] || tri[1] == tri[2] || tri[0] == tri[2]) {
            throw std::logic_error("encoder: triangle with a repeated point index");
        }
        for (int k = 0; k < 3; ++k) {
            if (tri[k] >= mesh_.points.size()) {
                throw std::logic_error("encoder: point index out of range");
            }
            auto& list = edge_tris_[pairKey(tri[k], tri[(k + 1) % 3])];
            list.push_back(static_cast<uint32_t>(t));
            if (list.size() > 2) {
                throw std::logic_error("encoder: edge shared by more than two triangles");
            }
        }
    }
    decoded_of_.assign(mesh_.points.size(), -1);
    visited_.assign(tris, 0);

    PRC3DTessCompressed& r = out_.record;
    r.tolerance = opt_.tolerance;
    r.has_point_origin = true;
    r.point_origin = opt_.origin;
    r.must_recalculate_normals = opt_.must_recalculate_normals;
    if (opt_.must_recalculate_normals) {
        return;
    }
    if (opt_.normal_angle_number_of_bits < 1 || opt_.normal_angle_number_of_bits > 15) {
        throw std::logic_error("encoder: angle bits must be 1 to 15");
    }
    r.normal_angle_number_of_bits = opt_.normal_angle_number_of_bits;
    quantum_ = kRight / static_cast<double>((1 << opt_.normal_angle_number_of_bits) - 1);

    int32_t max_face = -1;
    for (int32_t f : mesh_.face_ids) {
        max_face = std::max(max_face, f);
    }
    const size_t faces = static_cast<size_t>(max_face + 1);
    face_done_.assign(faces, -1);
    face_wanted_.assign(faces, V{});
    for (size_t f = 0; f < faces; ++f) {
        r.face_has_single_normal.push_back(f < mesh_.face_has_single_normal.size() && mesh_.face_has_single_normal[f]);
    }
    // A single-normal face wants the normal of its first input triangle.
    std::vector<char> seen(faces, 0);
    for (size_t t = 0; t < tris; ++t) {
        const int32_t f = mesh_.face_ids.empty() ? 0 : mesh_.face_ids[t];
        if (f >= 0 && static_cast<size_t>(f) < faces && !seen[f]) {
            seen[f] = 1;
            const auto& tri = mesh_.triangles[t];
            face_wanted_[f] = mesh_.corner_normals.empty()
                                  ? faceNormal(mesh_.points[tri[0]], mesh_.points[tri[1]], mesh_.points[tri[2]])
                                  : mesh_.corner_normals[t][0];
        }
    }
    // A point whose corners want different normals needs a list.
    several_.assign(mesh_.points.size(), 0);
    std::vector<std::optional<V>> first(mesh_.points.size());
    for (size_t t = 0; t < tris; ++t) {
        for (int k = 0; k < 3; ++k) {
            const uint32_t p = mesh_.triangles[t][k];
            const V w = wantedNormal(static_cast<uint32_t>(t), p);
            if (!first[p]) {
                first[p] = w;
            } else if (!sameVec(*first[p], w)) {
                several_[p] = 1;
            }
        }
    }
}

V Encoder::wantedNormal(uint32_t tri, uint32_t input_point) const {
    const int32_t f = mesh_.face_ids.empty() ? 0 : mesh_.face_ids[tri];
    if (f >= 0 && static_cast<size_t>(f) < out_.record.face_has_single_normal.size() &&
        out_.record.face_has_single_normal[f]) {
        return face_wanted_[f];
    }
    const auto& t = mesh_.triangles[tri];
    if (!mesh_.corner_normals.empty()) {
        for (int k = 0; k < 3; ++k) {
            if (t[k] == input_point) {
                return mesh_.corner_normals[tri][k];
            }
        }
    }
    return faceNormal(mesh_.points[t[0]], mesh_.points[t[1]], mesh_.points[t[2]]);
}

int32_t Encoder::quantise(double value) const {
    const double steps = std::nearbyint(value / opt_.tolerance);
    if (!(std::fabs(steps) < 1073741824.0)) {
        throw std::logic_error("encoder: delta beyond 30 bits");
    }
    return static_cast<int32_t>(steps);
}

Encoder::Pt Encoder::newPoint(const V& base, uint32_t input) {
    const V target = mesh_.points[input];
    const int32_t q[3] = {quantise(target.x - base.x), quantise(target.y - base.y), quantise(target.z - base.z)};
    const double tol = opt_.tolerance;
    const V delta{static_cast<double>(q[0]) * tol, static_cast<double>(q[1]) * tol, static_cast<double>(q[2]) * tol};
    Pt pt{plus(base, delta), point_count_++};
    out_.record.point_array.insert(out_.record.point_array.end(), q, q + 3);
    decoded_of_[input] = pt.idx;
    decoded_pos_.push_back(pt.p);
    out_.input_point.push_back(input);
    return pt;
}

Encoder::Pt Encoder::newPointInFrame(const Pending& e, uint32_t input) {
    const V rel = minus(mesh_.points[input], e.m);
    const int32_t q[3] = {quantise(inner(rel, e.u)), quantise(inner(rel, e.v)), quantise(inner(rel, e.n))};
    const double tol = opt_.tolerance;
    const double dx = static_cast<double>(q[0]) * tol;
    const double dy = static_cast<double>(q[1]) * tol;
    const double dz = static_cast<double>(q[2]) * tol;
    const V p{e.m.x + dx * e.u.x + dy * e.v.x + dz * e.n.x, e.m.y + dx * e.u.y + dy * e.v.y + dz * e.n.y,
              e.m.z + dx * e.u.z + dy * e.v.z + dz * e.n.z};
    Pt pt{p, point_count_++};
    out_.record.point_array.insert(out_.record.point_array.end(), q, q + 3);
    decoded_of_[input] = pt.idx;
    decoded_pos_.push_back(pt.p);
    out_.input_point.push_back(input);
    return pt;
}

Encoder::Pt Encoder::reference(uint32_t input) {
    const uint32_t idx = static_cast<uint32_t>(decoded_of_[input]);
    out_.record.point_reference_array.push_back(static_cast<int32_t>(idx));
    return {decoded_pos_[idx], idx};
}

Encoder::Pending Encoder::frameOf(const Pt& c0, const Pt& c1, const Pt& c2, int64_t key) {
    Pending e;
    e.a = c0;
    e.b = c1;
    e.m = halfway(c0.p, c1.p);
    const V along = minus(c0.p, c1.p);
    const double length = quantLength(along);
    if (!usable(length)) {
        e.u = {1.0, 0.0, 0.0};
        fallbackAxes(e.u, e.v, e.n, opt_.normalize_fallback_axis);
        return e;
    }
    e.u = {along.x / length, along.y / length, along.z / length};
    e.n = outer(minus(c2.p, e.m), e.u);
    if (!unitize(e.n)) {
        fallbackAxes(e.u, e.v, e.n, opt_.normalize_fallback_axis);
    } else {
        e.v = outer(e.n, e.u);
        if (!unitize(e.v)) {
            fallbackAxes(e.u, e.v, e.n, opt_.normalize_fallback_axis);
        }
    }
    // V ends up on the opposite corner's side; an exact tie keeps the frame
    // unless it is the tie the simulated run resolves the other way.
    const double side = inner(minus(e.m, c2.p), e.v);
    bool flip = side > 0.0;
    if (side == 0.0) {
        out_.tie_keys.push_back(key);
        flip = key == opt_.tie_key;
    }
    if (flip) {
        e.v = negated(e.v);
        e.n = negated(e.n);
    }
    return e;
}

bool Encoder::hasUnvisited(uint32_t a_input, uint32_t b_input) const { return unvisitedAcross(a_input, b_input) >= 0; }

int64_t Encoder::unvisitedAcross(uint32_t a_input, uint32_t b_input) const {
    const auto it = edge_tris_.find(pairKey(a_input, b_input));
    if (it == edge_tris_.end()) {
        return -1;
    }
    for (const uint32_t t : it->second) {
        if (!visited_[t]) {
            return t;
        }
    }
    return -1;
}

std::array<uint32_t, 3> Encoder::chooseCorners(uint32_t tri) {
    std::array<uint32_t, 3> c = mesh_.triangles[tri];
    if (opt_.chain_start == ChainStartChoice::LowestUnvisited) {
        return c;
    }
    std::rotate(c.begin(), c.begin() + static_cast<long>(rng_() % 3), c.end());
    if (rng_() & 1) {
        std::swap(c[1], c[2]);
    }
    return c;
}

uint32_t Encoder::chooseChainTriangle() {
    const uint32_t tris = static_cast<uint32_t>(mesh_.triangles.size());
    switch (opt_.chain_start) {
        case ChainStartChoice::LowestUnvisited:
            while (visited_[lowest_unvisited_]) {
                ++lowest_unvisited_;
            }
            return lowest_unvisited_;
        case ChainStartChoice::MostBuiltCorners: {
            int best_count = -1;
            uint32_t best = 0;
            for (uint32_t t = 0; t < tris; ++t) {
                if (visited_[t]) {
                    continue;
                }
                int count = 0;
                for (uint32_t p : mesh_.triangles[t]) {
                    count += decoded_of_[p] >= 0;
                }
                if (count > best_count) {
                    best_count = count;
                    best = t;
                }
            }
            return best;
        }
        case ChainStartChoice::Random:
        default: {
            std::vector<uint32_t> open;
            for (uint32_t t = 0; t < tris; ++t) {
                if (!visited_[t]) {
                    open.push_back(t);
                }
            }
            return open[rng_() % open.size()];
        }
    }
}

void Encoder::startFirst(uint32_t tri, std::array<uint32_t, 3> order) {
    const V origin{opt_.origin[0], opt_.origin[1], opt_.origin[2]};
    const Pt p0 = newPoint(origin, order[0]);
    const Pt p1 = newPoint(p0.p, order[1]);
    const Pt p2 = newPoint(halfway(p0.p, p1.p), order[2]);
    c_[0] = p0;
    c_[1] = p1;
    c_[2] = p2;
    cur_tri_ = tri;
}

void Encoder::startChain() {
    const uint32_t tri = chooseChainTriangle();
    const std::array<uint32_t, 3> v = chooseCorners(tri);
    const bool b[3] = {decoded_of_[v[0]] >= 0, decoded_of_[v[1]] >= 0, decoded_of_[v[2]] >= 0};
    BitVector& bits = out_.record.point_is_reference_array;
    for (bool x : b) {
        bits.push_back(x);
    }
    ++out_.chain_start_patterns[b[0] + 2 * b[1] + 4 * b[2]];
    const V origin{opt_.origin[0], opt_.origin[1], opt_.origin[2]};
    // References come first, in corner order; then the new points.
    Pt c[3];
    for (int k = 0; k < 3; ++k) {
        if (b[k]) {
            c[k] = reference(v[k]);
        }
    }
    const int pattern = b[0] + 2 * b[1] + 4 * b[2];
    switch (pattern) {
        case 0:
            startFirst(tri, v);
            c[0] = c_[0];
            c[1] = c_[1];
            c[2] = c_[2];
            break;
        case 1:  // corner 0 referenced
            c[1] = newPoint(c[0].p, v[1]);
            c[2] = newPoint(halfway(c[0].p, c[1].p), v[2]);
            break;
        case 2:  // corner 1 referenced
            c[0] = newPoint(origin, v[0]);
            c[2] = newPoint(halfway(c[0].p, c[1].p), v[2]);
            break;
        case 4:  // corner 2 referenced
            c[0] = newPoint(origin, v[0]);
            c[1] = newPoint(c[0].p, v[1]);
            break;
        case 6:  // corners 1 and 2
            c[0] = newPoint(origin, v[0]);
            break;
        case 3:  // corners 0 and 1
            c[2] = newPoint(halfway(c[0].p, c[1].p), v[2]);
            break;
        case 5:  // corners 0 and 2
            c[1] = newPoint(c[0].p, v[1]);
            break;
        default:
            break;
    }
    if (c[1].idx < c[0].idx) {
        std::swap(c[0], c[1]);
    }
    c_[0] = c[0];
    c_[1] = c[1];
    c_[2] = c[2];
    cur_tri_ = tri;
}

void Encoder::continueAcross(const Pending& e) {
    const int64_t target = unvisitedAcross(out_.input_point[e.a.idx], out_.input_point[e.b.idx]);
    if (target < 0) {
        throw std::logic_error("encoder: an open edge has no triangle left across it");
    }
    const auto& tri = mesh_.triangles[static_cast<size_t>(target)];
    uint32_t third = tri[0];
    for (uint32_t p : tri) {
        if (p != out_.input_point[e.a.idx] && p != out_.input_point[e.b.idx]) {
            third = p;
        }
    }
    Pt p;
    if (decoded_of_[third] >= 0) {
        out_.record.point_is_reference_array.push_back(true);
        p = reference(third);
    } else {
        out_.record.point_is_reference_array.push_back(false);
        p = newPointInFrame(e, third);
    }
    c_[0] = e.a;
    c_[1] = e.b;
    c_[2] = p;
    cur_tri_ = static_cast<uint32_t>(target);
}

uint32_t Encoder::encodeNormal(const V& wanted, bool octant[3]) {
    octant[0] = octant[1] = octant[2] = false;
    // The frame of the current triangle at its corner closest to a right angle.
    V u01 = minus(c_[1].p, c_[0].p);
    V u02 = minus(c_[2].p, c_[0].p);
    V u12 = minus(c_[2].p, c_[1].p);
    const bool ok01 = unitize(u01);
    const bool ok02 = unitize(u02);
    const bool ok12 = unitize(u12);
    bool frame = ok01 && ok02 && ok12;
    V axis, z, y;
    if (frame) {
        const double e0 = offRight(u01, u02);
        const double e1 = offRight(u12, negated(u01));
        const double e2 = offRight(negated(u02), negated(u12));
        if (e1 > e0 && e2 > e0) {
            axis = u01;
            z = outer(u01, u02);
        } else if (e2 > e1) {
            axis = u12;
            z = outer(u01, u12);
        } else {
            axis = negated(u02);
            z = outer(u02, u12);
        }
        if (!unitize(z)) {
            V unused;
            fallbackAxes(axis, unused, z, opt_.normalize_fallback_axis);
        }
        // Z's sign is chosen first because Y is built from it.
        octant[0] = inner(wanted, z) < 0.0;
        if (octant[0]) {
            z = negated(z);
        }
        y = outer(z, axis);
        frame = unitize(y);
    }
    uint16_t ka = 0;
    uint16_t kb = 0;
    V normal{0.0, 0.0, 1.0};
    if (frame) {
        octant[1] = inner(wanted, axis) < 0.0;
        if (octant[1]) {
            axis = negated(axis);
        }
        octant[2] = inner(wanted, y) < 0.0;
        if (octant[2]) {
            y = negated(y);
        }
        const double wa = std::max(0.0, inner(wanted, axis));
        const double wy = std::max(0.0, inner(wanted, y));
        const double wz = std::max(0.0, inner(wanted, z));
        const double alpha = std::atan2(wy, wa);
        const double beta = std::atan2(wz, std::sqrt(wa * wa + wy * wy));
        const double top = static_cast<double>((1 << opt_.normal_angle_number_of_bits) - 1);
        ka = static_cast<uint16_t>(std::clamp(std::nearbyint(alpha / quantum_), 0.0, top));
        kb = static_cast<uint16_t>(std::clamp(std::nearbyint(beta / quantum_), 0.0, top));
        const double al = static_cast<int16_t>(ka) * quantum_;
        const double be = static_cast<int16_t>(kb) * quantum_;
        const double c1 = polyCos(al);
        const double s1 = polySin(al);
        const double c2 = polyCos(be);
        const double s2 = polySin(be);
        V n{(c1 * c2) * axis.x + (s1 * c2) * y.x + s2 * z.x, (c1 * c2) * axis.y + (s1 * c2) * y.y + s2 * z.y,
            (c1 * c2) * axis.z + (s1 * c2) * y.z + s2 * z.z};
        if (unitize(n)) {
            normal = n;
        }
    } else {
        octant[0] = false;
        ++out_.failed_normal_frames;
    }
    out_.record.normal_angle_array.push_back(ka);
    out_.record.normal_angle_array.push_back(kb);
    normals_.push_back(normal);
    ++out_.new_normals;
    return static_cast<uint32_t>(normals_.size() - 1);
}

uint32_t Encoder::vertexNormal(const Pt& corner, const V& wanted) {
    const uint32_t v = corner.idx;
    if (kind_.size() <= v) {
        kind_.resize(v + 1, 0);
        single_.resize(v + 1, 0);
    }
    if (kind_[v] == 1) {
        return single_[v];
    }
    if (kind_[v] == 2) {
        const std::vector<ListEntry>& list = lists_[single_[v]];
        for (size_t i = 0; i < list.size(); ++i) {
            if (sameVec(list[i].wanted, wanted)) {
                bit(true);
                const uint64_t k = list.size();
                int index_bits = 1;
                for (uint64_t reach = 1; reach < k - 1; reach *= 2) {
                    ++index_bits;
                }
                const uint64_t r = k - 1 - i;  // 0 names the newest entry
                for (int b = 0; b < index_bits; ++b) {
                    bit(((r >> b) & 1u) != 0);
                }
                ++out_.kind2_reuses;
                return list[i].normal;
            }
        }
        bit(false);
    } else {
        bit(several_[out_.input_point[v]] != 0);
    }
    // The octant bits precede the angles but depend on the frame: keep their
    // places and fill them once the normal is worked out.
    BitVector& data = out_.record.normal_binary_data;
    const size_t slot = data.size();
    data.insert(data.end(), 3, false);
    bool octant[3];
    const uint32_t n = encodeNormal(wanted, octant);
    data[slot] = octant[0];
    data[slot + 1] = octant[1];
    data[slot + 2] = octant[2];
    if (kind_[v] == 2) {
        lists_[single_[v]].push_back({n, wanted});
    } else if (several_[out_.input_point[v]]) {
        kind_[v] = 2;
        single_[v] = static_cast<uint32_t>(lists_.size());
        lists_.push_back({{n, wanted}});
        ++out_.kind2_vertices;
    } else {
        kind_[v] = 1;
        single_[v] = n;
    }
    return n;
}

void Encoder::finishTriangle(uint32_t tri) {
    visited_[tri] = 1;
    out_.input_triangle.push_back(tri);
    const int32_t face = mesh_.face_ids.empty() ? 0 : mesh_.face_ids[tri];
    out_.record.triangle_face_array.push_back(face);

    const auto& in = mesh_.triangles[tri];
    const uint32_t i0 = out_.input_point[c_[0].idx];
    const uint32_t i1 = out_.input_point[c_[1].idx];
    int want = 0;
    for (int k = 0; k < 3; ++k) {
        if (in[k] == i0 && in[(k + 1) % 3] == i1) {
            want = 1;
        }
    }
    int o = want;
    if (opt_.must_recalculate_normals) {
        out_.record.normal_is_reversed.push_back(want != 0);
    } else {
        const BitVector& single = out_.record.face_has_single_normal;
        uint32_t n;
        if (face >= 0 && static_cast<size_t>(face) < single.size() && single[face]) {
            if (face_done_[face] < 0) {
                n = vertexNormal(c_[0], wantedNormal(tri, i0));
                face_done_[face] = static_cast<int>(n);
            } else {
                n = static_cast<uint32_t>(face_done_[face]);
                ++out_.single_normal_reuses;
            }
        } else {
            n = vertexNormal(c_[0], wantedNormal(tri, i0));
            vertexNormal(c_[1], wantedNormal(tri, i1));
            vertexNormal(c_[2], wantedNormal(tri, out_.input_point[c_[2].idx]));
        }
        const V& w = normals_[n];
        const V a = minus(c_[1].p, c_[0].p);
        const V b = minus(c_[2].p, halfway(c_[0].p, c_[1].p));
        const double d = ((b.y * a.z - b.z * a.y) * w.x + (b.z * a.x - a.z * b.x) * w.y) + (b.x * a.y - b.y * a.x) * w.z;
        o = d < 0.0 ? 1 : 0;
        if (d == 0.0) {
            const int64_t key = 4 * static_cast<int64_t>(t_) + 2;
            out_.tie_keys.push_back(key);
            o = key == opt_.tie_key ? 1 : 0;
        }
    }
    if (o != want) {
        ++out_.winding_mismatches;
    }
    orient_ = o;
    out_.expected_triangles.push_back(c_[0].idx);
    out_.expected_triangles.push_back(o == 1 ? c_[1].idx : c_[2].idx);
    out_.expected_triangles.push_back(o == 1 ? c_[2].idx : c_[1].idx);
}

EncodedTess Encoder::run() {
    prepare();
    const uint32_t tris = static_cast<uint32_t>(mesh_.triangles.size());
    if (tris == 0) {
        return std::move(out_);
    }
    BitVector& ref_bits = out_.record.point_is_reference_array;

    // The first triangle: three new points, three reference bits not read.
    const uint32_t first = chooseChainTriangle();
    ref_bits.insert(ref_bits.end(), 3, false);
    startFirst(first, chooseCorners(first));
    finishTriangle(first);

    for (uint32_t t = 1; t < tris; ++t) {
        t_ = t;
        const Pt x0 = orient_ == 0 ? c_[0] : c_[1];
        const Pt x1 = orient_ == 0 ? c_[1] : c_[0];
        const Pt x2 = c_[2];
        const uint32_t in0 = out_.input_point[x0.idx];
        const uint32_t in1 = out_.input_point[x1.idx];
        const uint32_t in2 = out_.input_point[x2.idx];
        const bool open_b = hasUnvisited(in1, in2);
        const bool open_a = hasUnvisited(in0, in2);
        const uint8_t status = static_cast<uint8_t>((open_b ? 1 : 0) | (open_a ? 2 : 0));
        out_.record.edge_status_array.push_back(status);
        ++out_.edge_statuses[status];

        Pending next;
        bool have = false;
        if (open_b) {
            const int64_t key = 4 * static_cast<int64_t>(t);
            const Pending eb = x1.idx < x2.idx ? frameOf(x1, x2, x0, key) : frameOf(x2, x1, x0, key);
            if (open_a) {
                stack_.push_back(eb);
            } else {
                next = eb;
                have = true;
            }
        } else {
            closed_.insert(pairKey(x1.idx, x2.idx));
        }
        if (open_a) {
            const int64_t key = 4 * static_cast<int64_t>(t) + 1;
            next = x0.idx < x2.idx ? frameOf(x0, x2, x1, key) : frameOf(x2, x0, x1, key);
            have = true;
        } else {
            closed_.insert(pairKey(x0.idx, x2.idx));
        }
        while (!have && !stack_.empty()) {
            const Pending top = stack_.back();
            stack_.pop_back();
            if (closed_.count(pairKey(top.a.idx, top.b.idx)) != 0) {
                ++out_.stale_edges_dropped;
                continue;
            }
            next = top;
            have = true;
        }
        if (have) {
            continueAcross(next);
        } else {
            startChain();
        }
        finishTriangle(cur_tri_);
    }
    for (const V& p : decoded_pos_) {
        out_.expected_positions.insert(out_.expected_positions.end(), {p.x, p.y, p.z});
    }
    return std::move(out_);
}

}  // namespace

EncodedTess encodeCompressedTess(const EncoderMesh& mesh, const EncoderOptions& options) {
    Encoder encoder(mesh, options);
    return encoder.run();
}

std::vector<uint8_t> serializeCompressedTess(const PRC3DTessCompressed& r) {
    PRCBitWriter w;
    const auto writeBits = [&w](const BitVector& bits) {
        for (bool b : bits) {
            w.writeBit(b);
        }
    };
    // Small arrays go plain, larger ones Huffman-coded, so that both forms
    // are read back.
    const auto huffman = [](size_t n) { return n >= 8; };

    w.writeUnsignedInteger(173);
    w.writeBit(r.is_calculated);
    w.writeBit(r.leading_flag);
    w.writeDouble(r.tolerance);
    for (const float c : r.point_origin) {
        uint32_t pattern;
        std::memcpy(&pattern, &c, 4);
        for (int i = 0; i < 4; ++i) {
            w.writeBits((pattern >> (8 * i)) & 0xFFu, 8);
        }
    }
    w.writeCompressedIntegerArray(r.point_array, huffman(r.point_array.size()));
    w.writeCharacterArray(r.edge_status_array, huffman(r.edge_status_array.size()), true, 2);
    w.writeCompressedIndiceArray(r.triangle_face_array, huffman(r.triangle_face_array.size()), true, 6);
    w.writeUnsignedInteger(static_cast<uint32_t>(r.point_is_reference_array.size()));
    writeBits(r.point_is_reference_array);
    const auto set = std::count(r.point_is_reference_array.begin(), r.point_is_reference_array.end(), true);
    w.writeCompressedIndiceArray(r.point_reference_array, set > 3, false, 6);
    w.writeBit(r.must_recalculate_normals);
    int32_t max_face = -1;
    for (int32_t f : r.triangle_face_array) {
        max_face = std::max(max_face, f);
    }
    const size_t faces = static_cast<size_t>(max_face + 1);
    if (r.must_recalculate_normals) {
        writeBits(r.normal_is_reversed);
        w.writeDouble(r.crease_angle);
        w.writeBits(0, 8);
    } else {
        w.writeBits(r.normal_angle_number_of_bits, 8);
        w.writeUnsignedInteger(static_cast<uint32_t>(r.normal_binary_data.size()));
        writeBits(r.normal_binary_data);
        w.writeShortArray(r.normal_angle_array, huffman(r.normal_angle_array.size()), true,
                          r.normal_angle_number_of_bits);
        for (size_t f = 0; f < faces; ++f) {
            w.writeBit(f < r.face_has_single_normal.size() && r.face_has_single_normal[f]);
        }
    }
    w.writeBit(false);  // no texture block
    w.writeBit(false);  // styles per face
    std::vector<uint16_t> styles(r.style_array.begin(), r.style_array.end());
    w.writeShortArray(styles, false, true, 16);
    w.writeBit(true);   // no unused block
    w.writeBit(false);  // no trailing bytes
    return w.bytes();
}

}  // namespace prc::test

namespace prc::test {

EncoderMesh makeGridMesh(uint32_t nx, uint32_t ny, double hole_fraction, uint64_t seed, double lift) {
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    EncoderMesh mesh;
    for (uint32_t j = 0; j <= ny; ++j) {
        for (uint32_t i = 0; i <= nx; ++i) {
            const double x = i * 0.1;
            const double y = j * 0.1;
            mesh.points.push_back({x, y, lift + 0.05 * std::sin(3.0 * x) * std::cos(2.0 * y)});
        }
    }
    const auto at = [nx](uint32_t i, uint32_t j) { return j * (nx + 1) + i; };
    for (uint32_t j = 0; j < ny; ++j) {
        for (uint32_t i = 0; i < nx; ++i) {
            const bool diagonal = (rng() & 1) != 0;
            if (unit(rng) < hole_fraction) {
                continue;
            }
            const uint32_t a = at(i, j), b = at(i + 1, j), c = at(i + 1, j + 1), d = at(i, j + 1);
            if (diagonal) {
                mesh.triangles.push_back({a, b, c});
                mesh.triangles.push_back({a, c, d});
            } else {
                mesh.triangles.push_back({a, b, d});
                mesh.triangles.push_back({b, c, d});
            }
        }
    }
    return mesh;
}

EncoderMesh makeIcosphereMesh(uint32_t levels, double radius, EncoderVec centre) {
    const double g = (1.0 + std::sqrt(5.0)) / 2.0;
    std::vector<V> unit = {{-1, g, 0}, {1, g, 0}, {-1, -g, 0}, {1, -g, 0}, {0, -1, g}, {0, 1, g},
                           {0, -1, -g}, {0, 1, -g}, {g, 0, -1}, {g, 0, 1}, {-g, 0, -1}, {-g, 0, 1}};
    std::vector<std::array<uint32_t, 3>> tris = {
        {0, 11, 5}, {0, 5, 1},  {0, 1, 7},   {0, 7, 10}, {0, 10, 11}, {1, 5, 9}, {5, 11, 4},
        {11, 10, 2}, {10, 7, 6}, {7, 1, 8},  {3, 9, 4},  {3, 4, 2},   {3, 2, 6}, {3, 6, 8},
        {3, 8, 9},  {4, 9, 5},  {2, 4, 11},  {6, 2, 10}, {8, 6, 7},   {9, 8, 1}};
    const auto project = [](V v) {
        const double l = std::sqrt(inner(v, v));
        return V{v.x / l, v.y / l, v.z / l};
    };
    for (V& v : unit) {
        v = project(v);
    }
    for (uint32_t level = 0; level < levels; ++level) {
        std::unordered_map<uint64_t, uint32_t> mids;
        const auto mid = [&](uint32_t a, uint32_t b) {
            const uint64_t key = pairKey(a, b);
            const auto it = mids.find(key);
            if (it != mids.end()) {
                return it->second;
            }
            unit.push_back(project(halfway(unit[a], unit[b])));
            const uint32_t index = static_cast<uint32_t>(unit.size() - 1);
            mids.emplace(key, index);
            return index;
        };
        std::vector<std::array<uint32_t, 3>> next;
        for (const auto& t : tris) {
            const uint32_t ab = mid(t[0], t[1]), bc = mid(t[1], t[2]), ca = mid(t[2], t[0]);
            next.push_back({t[0], ab, ca});
            next.push_back({t[1], bc, ab});
            next.push_back({t[2], ca, bc});
            next.push_back({ab, bc, ca});
        }
        tris.swap(next);
    }
    EncoderMesh mesh;
    for (const V& v : unit) {
        mesh.points.push_back({centre.x + radius * v.x, centre.y + radius * v.y, centre.z + radius * v.z});
    }
    mesh.triangles = std::move(tris);
    return mesh;
}

EncoderMesh makeTorusMesh(uint32_t nu, uint32_t nv, double major, double minor, EncoderVec centre) {
    EncoderMesh mesh;
    const double two_pi = 6.283185307179586;
    for (uint32_t i = 0; i < nu; ++i) {
        const double u = two_pi * i / nu;
        for (uint32_t j = 0; j < nv; ++j) {
            const double v = two_pi * j / nv;
            const double r = major + minor * std::cos(v);
            mesh.points.push_back(
                {centre.x + r * std::cos(u), centre.y + r * std::sin(u), centre.z + minor * std::sin(v)});
        }
    }
    const auto at = [nu, nv](uint32_t i, uint32_t j) { return (i % nu) * nv + (j % nv); };
    for (uint32_t i = 0; i < nu; ++i) {
        for (uint32_t j = 0; j < nv; ++j) {
            const uint32_t a = at(i, j), b = at(i + 1, j), c = at(i + 1, j + 1), d = at(i, j + 1);
            mesh.triangles.push_back({a, b, c});
            mesh.triangles.push_back({a, c, d});
        }
    }
    return mesh;
}

void appendMesh(EncoderMesh& a, const EncoderMesh& b) {
    const uint32_t offset = static_cast<uint32_t>(a.points.size());
    int32_t face_offset = 0;
    if (!a.face_ids.empty() || !b.face_ids.empty()) {
        a.face_ids.resize(a.triangles.size(), 0);
        for (int32_t f : a.face_ids) {
            face_offset = std::max(face_offset, f + 1);
        }
    }
    a.points.insert(a.points.end(), b.points.begin(), b.points.end());
    for (const auto& t : b.triangles) {
        a.triangles.push_back({t[0] + offset, t[1] + offset, t[2] + offset});
    }
    if (!a.face_ids.empty()) {
        for (size_t i = 0; i < b.triangles.size(); ++i) {
            a.face_ids.push_back(face_offset + (b.face_ids.empty() ? 0 : b.face_ids[i]));
        }
    }
    if (!a.corner_normals.empty() || !b.corner_normals.empty()) {
        a.corner_normals.resize(a.triangles.size() - b.triangles.size());
        a.corner_normals.insert(a.corner_normals.end(), b.corner_normals.begin(), b.corner_normals.end());
        a.corner_normals.resize(a.triangles.size());
    }
}

void setSmoothCornerNormals(EncoderMesh& mesh) {
    std::vector<V> sum(mesh.points.size());
    for (const auto& t : mesh.triangles) {
        const V n = outer(minus(mesh.points[t[1]], mesh.points[t[0]]), minus(mesh.points[t[2]], mesh.points[t[0]]));
        for (uint32_t p : t) {
            sum[p] = plus(sum[p], n);
        }
    }
    mesh.corner_normals.clear();
    for (const auto& t : mesh.triangles) {
        std::array<V, 3> corners;
        for (int k = 0; k < 3; ++k) {
            const V s = sum[t[k]];
            const double l = std::sqrt(inner(s, s));
            corners[k] = l > 0.0 ? V{s.x / l, s.y / l, s.z / l} : V{0.0, 0.0, 1.0};
        }
        mesh.corner_normals.push_back(corners);
    }
}

}  // namespace prc::test
