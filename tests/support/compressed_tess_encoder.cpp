#include "tests/support/compressed_tess_encoder.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>

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
bool sameVec(const V& a, const V& b) { return a.x == b.x && a.y == b.y && a.z == b.z; }

// Square root of the float-rounded squared length; negative when the start
// guess is not positive.
double quantLength(const V& v) {
    const float q = static_cast<float>(v.x * v.x + v.y * v.y + v.z * v.z);
    uint32_t pattern;
    std::memcpy(&pattern, &q, 4);
    float start = q;
    if ((pattern >> 30) & 1u) {
        const int biased = static_cast<int>((pattern >> 23) & 255u);
        const uint32_t guess = (pattern & 0x807FFFFFu) | (static_cast<uint32_t>((biased - 127) / 2 + 127) << 23);
        std::memcpy(&start, &guess, 4);
    }
    if (!(start > 0.0f)) return -1.0;
    const double square = q;
    double x = start;
    for (int step = 0; step < 100; ++step) {
        const double better = (square / x + x) * 0.5;
        if (better == x) break;
        x = better;
    }
    return x;
}

bool usable(double length) { return !(length <= 0.0) && length == length && length >= kEps; }

bool unitize(V& v) {
    const double length = quantLength(v);
    if (!usable(length)) return false;
    v = {v.x / length, v.y / length, v.z / length};
    return true;
}

// The fallback frame: U x Y (or U x X when U runs along Y), and V = N x U.
// Only the decoder's later runs normalise the axis first, and only for N: V
// crosses N with U as given.
void fallbackAxes(const V& u, V& v_out, V& n_out, bool normalize_axis) {
    V axis = u;
    if (normalize_axis) unitize(axis);
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
        const double t = kRight - x, t3 = t * t * t, t5 = t3 * t * t;
        return t - t3 / 6 + t5 / 120 - t5 * t * t / 5040;
    }
    const double x4 = x * x * x * x;
    return 1 - 0.5 * (x * x) + x4 / 24 - x4 * x * x / 720;
}

double polySin(double x) {
    if (x > 0.7853981633974483) {
        const double t = kRight - x, t2 = t * t, t4 = t2 * t * t;
        return 1 - 0.5 * t2 + t4 / 24 - t4 * t * t / 720;
    }
    const double x5 = x * x * x * x * x;
    return x - x * x * x / 6 + x5 / 120 - x5 * x * x / 5040;
}

double offRight(V a, V b) {
    unitize(a);
    unitize(b);
    const double c = inner(a, b);
    if (c > 0.999999999999 || c < -0.999999999999) return kRight;
    return std::fabs(std::acos(c) - kRight);
}

uint64_t pairKey(uint32_t i, uint32_t j) { return (static_cast<uint64_t>(std::min(i, j)) << 32) + std::max(i, j); }

// The geometric normal of an input triangle, plainly normalised.
V faceNormal(const V& p0, const V& p1, const V& p2) {
    const V n = outer(minus(p1, p0), minus(p2, p0));
    const double l = std::sqrt(inner(n, n));
    if (!(l > 0.0)) return {0.0, 0.0, 1.0};
    return {n.x / l, n.y / l, n.z / l};
}

// ---------------------------------------------------------------------------

class Encoder {
public:
    Encoder(const EncoderMesh& mesh, const EncoderOptions& options) : mesh_(mesh), opt_(options), rng_(options.seed) {}

    EncodedTess run() {
        prepare();
        const uint32_t tris = static_cast<uint32_t>(mesh_.triangles.size());
        if (tris == 0) return std::move(out_);
        // The first triangle: three new points, three reference bits not read.
        const uint32_t first = chooseChainTriangle();
        out_.record.point_is_reference_array.insert(out_.record.point_is_reference_array.end(), 3, false);
        startFirst(first, chooseCorners(first));
        finishTriangle(first);

        for (uint32_t t = 1; t < tris; ++t) {
            t_ = t;
            const Pt x0 = orient_ == 0 ? c_[0] : c_[1], x1 = orient_ == 0 ? c_[1] : c_[0], x2 = c_[2];
            const uint32_t in0 = inputOf(x0), in1 = inputOf(x1), in2 = inputOf(x2);
            const bool open_b = unvisitedAcross(in1, in2) >= 0, open_a = unvisitedAcross(in0, in2) >= 0;
            const uint8_t status = static_cast<uint8_t>((open_b ? 1 : 0) | (open_a ? 2 : 0));
            out_.record.edge_status_array.push_back(status);
            ++out_.edge_statuses[status];

            Pending next;
            bool have = false;
            if (open_b) {
                const int64_t key = 4 * static_cast<int64_t>(t);
                const Pending eb = x1.idx < x2.idx ? frameOf(x1, x2, x0, key) : frameOf(x2, x1, x0, key);
                if (open_a) stack_.push_back(eb);
                else next = eb, have = true;
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
            // Closed edges still on the stack are dropped.
            while (!have && !stack_.empty()) {
                next = stack_.back();
                stack_.pop_back();
                have = closed_.count(pairKey(next.a.idx, next.b.idx)) == 0;
            }
            if (have) continueAcross(next);
            else startChain();
            finishTriangle(cur_tri_);
        }
        for (const V& p : decoded_pos_) out_.expected_positions.insert(out_.expected_positions.end(), {p.x, p.y, p.z});
        return std::move(out_);
    }

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

    uint32_t inputOf(const Pt& p) const { return out_.input_point[p.idx]; }
    int32_t faceOf(uint32_t tri) const { return mesh_.face_ids.empty() ? 0 : mesh_.face_ids[tri]; }
    bool singleNormalFace(int32_t f) const {
        const BitVector& single = out_.record.face_has_single_normal;
        return f >= 0 && static_cast<size_t>(f) < single.size() && single[f];
    }

    void prepare() {
        const size_t tris = mesh_.triangles.size();
        for (size_t t = 0; t < tris; ++t) {
            const auto& tri = mesh_.triangles[t];
            if (tri[0] == tri[1] || tri[1] == tri[2] || tri[0] == tri[2])
                throw std::logic_error("encoder: triangle with a repeated point index");
            for (int k = 0; k < 3; ++k) {
                if (tri[k] >= mesh_.points.size()) throw std::logic_error("encoder: point index out of range");
                auto& list = edge_tris_[pairKey(tri[k], tri[(k + 1) % 3])];
                list.push_back(static_cast<uint32_t>(t));
                if (list.size() > 2) throw std::logic_error("encoder: edge shared by more than two triangles");
            }
        }
        decoded_of_.assign(mesh_.points.size(), -1);
        visited_.assign(tris, 0);

        PRC3DTessCompressed& r = out_.record;
        r.tolerance = opt_.tolerance;
        r.has_point_origin = true;
        r.point_origin = opt_.origin;
        r.must_recalculate_normals = opt_.must_recalculate_normals;
        if (opt_.must_recalculate_normals) return;
        if (opt_.normal_angle_number_of_bits < 1 || opt_.normal_angle_number_of_bits > 15)
            throw std::logic_error("encoder: angle bits must be 1 to 15");
        r.normal_angle_number_of_bits = opt_.normal_angle_number_of_bits;
        quantum_ = kRight / static_cast<double>((1 << opt_.normal_angle_number_of_bits) - 1);

        // One bit per face the record's triangles name (face 0 when there are no face ids).
        int32_t max_face = tris == 0 ? -1 : 0;
        for (int32_t f : mesh_.face_ids) max_face = std::max(max_face, f);
        const size_t faces = static_cast<size_t>(max_face + 1);
        face_done_.assign(faces, -1);
        face_wanted_.assign(faces, V{});
        for (size_t f = 0; f < faces; ++f)
            r.face_has_single_normal.push_back(f < mesh_.face_has_single_normal.size() && mesh_.face_has_single_normal[f]);
        // A single-normal face wants the normal of its first input triangle.
        std::vector<char> seen(faces, 0);
        for (size_t t = 0; t < tris; ++t) {
            const int32_t f = faceOf(static_cast<uint32_t>(t));
            if (f < 0 || static_cast<size_t>(f) >= faces || seen[f]) continue;
            seen[f] = 1;
            const auto& tri = mesh_.triangles[t];
            face_wanted_[f] = mesh_.corner_normals.empty()
                                  ? faceNormal(mesh_.points[tri[0]], mesh_.points[tri[1]], mesh_.points[tri[2]])
                                  : mesh_.corner_normals[t][0];
        }
        // A point whose corners want different normals needs a list.
        several_.assign(mesh_.points.size(), 0);
        std::vector<std::optional<V>> first(mesh_.points.size());
        for (size_t t = 0; t < tris; ++t)
            for (const uint32_t p : mesh_.triangles[t]) {
                const V w = wantedNormal(static_cast<uint32_t>(t), p);
                if (!first[p]) first[p] = w;
                else if (!sameVec(*first[p], w)) several_[p] = 1;
            }
    }

    V wantedNormal(uint32_t tri, uint32_t input_point) const {
        const int32_t f = faceOf(tri);
        if (singleNormalFace(f)) return face_wanted_[f];
        const auto& t = mesh_.triangles[tri];
        if (!mesh_.corner_normals.empty())
            for (int k = 0; k < 3; ++k)
                if (t[k] == input_point) return mesh_.corner_normals[tri][k];
        return faceNormal(mesh_.points[t[0]], mesh_.points[t[1]], mesh_.points[t[2]]);
    }

    int32_t quantise(double value) const {
        const double steps = std::nearbyint(value / opt_.tolerance);
        if (!(std::fabs(steps) < 1073741824.0)) throw std::logic_error("encoder: delta beyond 30 bits");
        return static_cast<int32_t>(steps);
    }

    Pt addPoint(const V& p, const int32_t (&q)[3], uint32_t input) {
        const Pt pt{p, point_count_++};
        out_.record.point_array.insert(out_.record.point_array.end(), q, q + 3);
        decoded_of_[input] = pt.idx;
        decoded_pos_.push_back(pt.p);
        out_.input_point.push_back(input);
        return pt;
    }

    Pt newPoint(const V& base, uint32_t input) {
        const V target = mesh_.points[input];
        const int32_t q[3] = {quantise(target.x - base.x), quantise(target.y - base.y), quantise(target.z - base.z)};
        const double tol = opt_.tolerance;
        const V delta{static_cast<double>(q[0]) * tol, static_cast<double>(q[1]) * tol, static_cast<double>(q[2]) * tol};
        return addPoint(plus(base, delta), q, input);
    }

    Pt newPointInFrame(const Pending& e, uint32_t input) {
        const V rel = minus(mesh_.points[input], e.m);
        const int32_t q[3] = {quantise(inner(rel, e.u)), quantise(inner(rel, e.v)), quantise(inner(rel, e.n))};
        const double tol = opt_.tolerance;
        const double dx = static_cast<double>(q[0]) * tol, dy = static_cast<double>(q[1]) * tol,
                     dz = static_cast<double>(q[2]) * tol;
        const V p{e.m.x + dx * e.u.x + dy * e.v.x + dz * e.n.x, e.m.y + dx * e.u.y + dy * e.v.y + dz * e.n.y,
                  e.m.z + dx * e.u.z + dy * e.v.z + dz * e.n.z};
        return addPoint(p, q, input);
    }

    Pt reference(uint32_t input) {
        const uint32_t idx = static_cast<uint32_t>(decoded_of_[input]);
        out_.record.point_reference_array.push_back(static_cast<int32_t>(idx));
        return {decoded_pos_[idx], idx};
    }

    Pending frameOf(const Pt& c0, const Pt& c1, const Pt& c2, int64_t key) {
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
            if (!unitize(e.v)) fallbackAxes(e.u, e.v, e.n, opt_.normalize_fallback_axis);
        }
        // V ends up on the opposite corner's side; an exact tie keeps the frame
        // unless it is the tie the simulated run resolves the other way.
        const double side = inner(minus(e.m, c2.p), e.v);
        bool flip = side > 0.0;
        if (side == 0.0) {
            out_.tie_keys.push_back(key);
            flip = key == opt_.tie_key;
        }
        if (flip) e.v = negated(e.v), e.n = negated(e.n);
        return e;
    }

    int64_t unvisitedAcross(uint32_t a_input, uint32_t b_input) const {
        const auto it = edge_tris_.find(pairKey(a_input, b_input));
        if (it != edge_tris_.end())
            for (const uint32_t t : it->second)
                if (!visited_[t]) return t;
        return -1;
    }

    std::array<uint32_t, 3> chooseCorners(uint32_t tri) {
        std::array<uint32_t, 3> c = mesh_.triangles[tri];
        if (opt_.chain_start == ChainStartChoice::LowestUnvisited) return c;
        std::rotate(c.begin(), c.begin() + static_cast<long>(rng_() % 3), c.end());
        if (rng_() & 1) std::swap(c[1], c[2]);
        return c;
    }

    uint32_t chooseChainTriangle() {
        const uint32_t tris = static_cast<uint32_t>(mesh_.triangles.size());
        if (opt_.chain_start == ChainStartChoice::LowestUnvisited) {
            while (visited_[lowest_unvisited_]) ++lowest_unvisited_;
            return lowest_unvisited_;
        }
        if (opt_.chain_start == ChainStartChoice::MostBuiltCorners) {
            int best_count = -1;
            uint32_t best = 0;
            for (uint32_t t = 0; t < tris; ++t) {
                if (visited_[t]) continue;
                int count = 0;
                for (uint32_t p : mesh_.triangles[t]) count += decoded_of_[p] >= 0;
                if (count > best_count) best_count = count, best = t;
            }
            return best;
        }
        std::vector<uint32_t> open;
        for (uint32_t t = 0; t < tris; ++t)
            if (!visited_[t]) open.push_back(t);
        return open[rng_() % open.size()];
    }

    void startFirst(uint32_t tri, std::array<uint32_t, 3> order) {
        const V origin{opt_.origin[0], opt_.origin[1], opt_.origin[2]};
        c_[0] = newPoint(origin, order[0]);
        c_[1] = newPoint(c_[0].p, order[1]);
        c_[2] = newPoint(halfway(c_[0].p, c_[1].p), order[2]);
        cur_tri_ = tri;
    }

    void startChain() {
        const uint32_t tri = chooseChainTriangle();
        const std::array<uint32_t, 3> v = chooseCorners(tri);
        const bool b[3] = {decoded_of_[v[0]] >= 0, decoded_of_[v[1]] >= 0, decoded_of_[v[2]] >= 0};
        out_.record.point_is_reference_array.insert(out_.record.point_is_reference_array.end(), b, b + 3);
        const int pattern = b[0] + 2 * b[1] + 4 * b[2];
        ++out_.chain_start_patterns[pattern];
        if (pattern == 0) return startFirst(tri, v);
        // References come first, in corner order; then the new points: corner
        // 0 from the origin, corner 1 from corner 0, corner 2 from the middle
        // of corners 0 and 1.
        const V origin{opt_.origin[0], opt_.origin[1], opt_.origin[2]};
        Pt c[3];
        for (int k = 0; k < 3; ++k)
            if (b[k]) c[k] = reference(v[k]);
        if (!b[0]) c[0] = newPoint(origin, v[0]);
        if (!b[1]) c[1] = newPoint(c[0].p, v[1]);
        if (!b[2]) c[2] = newPoint(halfway(c[0].p, c[1].p), v[2]);
        if (c[1].idx < c[0].idx) std::swap(c[0], c[1]);
        std::copy(c, c + 3, c_);
        cur_tri_ = tri;
    }

    void continueAcross(const Pending& e) {
        const int64_t target = unvisitedAcross(inputOf(e.a), inputOf(e.b));
        if (target < 0) throw std::logic_error("encoder: an open edge has no triangle left across it");
        uint32_t third = 0;
        for (uint32_t p : mesh_.triangles[static_cast<size_t>(target)])
            if (p != inputOf(e.a) && p != inputOf(e.b)) third = p;
        const bool known = decoded_of_[third] >= 0;
        out_.record.point_is_reference_array.push_back(known);
        c_[2] = known ? reference(third) : newPointInFrame(e, third);
        c_[0] = e.a;
        c_[1] = e.b;
        cur_tri_ = static_cast<uint32_t>(target);
    }

    // The frame of the current triangle at its corner closest to a right
    // angle; its octant bits, and the angles of `wanted` in it.
    uint32_t encodeNormal(const V& wanted, bool octant[3]) {
        octant[0] = octant[1] = octant[2] = false;
        V u01 = minus(c_[1].p, c_[0].p), u02 = minus(c_[2].p, c_[0].p), u12 = minus(c_[2].p, c_[1].p);
        const bool ok01 = unitize(u01), ok02 = unitize(u02), ok12 = unitize(u12);
        bool frame = ok01 && ok02 && ok12;
        V axis, z, y;
        if (frame) {
            const double e0 = offRight(u01, u02), e1 = offRight(u12, negated(u01)),
                         e2 = offRight(negated(u02), negated(u12));
            if (e1 > e0 && e2 > e0) axis = u01, z = outer(u01, u02);
            else if (e2 > e1) axis = u12, z = outer(u01, u12);
            else axis = negated(u02), z = outer(u02, u12);
            if (!unitize(z)) {
                V unused;
                fallbackAxes(axis, unused, z, opt_.normalize_fallback_axis);
            }
            // Z's sign is chosen first because Y is built from it.
            octant[0] = inner(wanted, z) < 0.0;
            if (octant[0]) z = negated(z);
            y = outer(z, axis);
            frame = unitize(y);
        }
        uint16_t ka = 0, kb = 0;
        V normal{0.0, 0.0, 1.0};
        if (frame) {
            octant[1] = inner(wanted, axis) < 0.0;
            if (octant[1]) axis = negated(axis);
            octant[2] = inner(wanted, y) < 0.0;
            if (octant[2]) y = negated(y);
            const double wa = std::max(0.0, inner(wanted, axis)), wy = std::max(0.0, inner(wanted, y)),
                         wz = std::max(0.0, inner(wanted, z));
            const double alpha = std::atan2(wy, wa), beta = std::atan2(wz, std::sqrt(wa * wa + wy * wy));
            const double top = static_cast<double>((1 << opt_.normal_angle_number_of_bits) - 1);
            ka = static_cast<uint16_t>(std::clamp(std::nearbyint(alpha / quantum_), 0.0, top));
            kb = static_cast<uint16_t>(std::clamp(std::nearbyint(beta / quantum_), 0.0, top));
            const double al = static_cast<int16_t>(ka) * quantum_, be = static_cast<int16_t>(kb) * quantum_;
            const double c1 = polyCos(al), s1 = polySin(al), c2 = polyCos(be), s2 = polySin(be);
            V n{(c1 * c2) * axis.x + (s1 * c2) * y.x + s2 * z.x, (c1 * c2) * axis.y + (s1 * c2) * y.y + s2 * z.y,
                (c1 * c2) * axis.z + (s1 * c2) * y.z + s2 * z.z};
            if (unitize(n)) normal = n;
        } else {
            octant[0] = false;
            ++out_.failed_normal_frames;
        }
        out_.record.normal_angle_array.push_back(ka);
        out_.record.normal_angle_array.push_back(kb);
        normals_.push_back(normal);
        return static_cast<uint32_t>(normals_.size() - 1);
    }

    void bit(bool b) { out_.record.normal_binary_data.push_back(b); }

    // Kind 0 points get a new normal (and become kind 1, or kind 2 with a
    // list when their corners want several); kind 1 reuse theirs silently;
    // kind 2 name an entry of their list or add one.
    uint32_t vertexNormal(const Pt& corner, const V& wanted) {
        const uint32_t v = corner.idx;
        if (kind_.size() <= v) kind_.resize(v + 1, 0), single_.resize(v + 1, 0);
        if (kind_[v] == 1) return single_[v];
        if (kind_[v] == 2) {
            const std::vector<ListEntry>& list = lists_[single_[v]];
            for (size_t i = 0; i < list.size(); ++i) {
                if (!sameVec(list[i].wanted, wanted)) continue;
                bit(true);
                const uint64_t k = list.size();
                int index_bits = 1;
                for (uint64_t reach = 1; reach < k - 1; reach *= 2) ++index_bits;
                const uint64_t r = k - 1 - i;  // 0 names the newest entry
                for (int b = 0; b < index_bits; ++b) bit(((r >> b) & 1u) != 0);
                ++out_.kind2_reuses;
                return list[i].normal;
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
        for (int i = 0; i < 3; ++i) data[slot + i] = octant[i];
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

    void finishTriangle(uint32_t tri) {
        visited_[tri] = 1;
        out_.input_triangle.push_back(tri);
        const int32_t face = faceOf(tri);
        out_.record.triangle_face_array.push_back(face);

        const auto& in = mesh_.triangles[tri];
        const uint32_t i0 = inputOf(c_[0]), i1 = inputOf(c_[1]);
        int want = 0;
        for (int k = 0; k < 3; ++k)
            if (in[k] == i0 && in[(k + 1) % 3] == i1) want = 1;
        int o = want;
        if (opt_.must_recalculate_normals) {
            out_.record.normal_is_reversed.push_back(want != 0);
        } else {
            uint32_t n;
            if (singleNormalFace(face) && face_done_[face] >= 0) {
                n = static_cast<uint32_t>(face_done_[face]);
                ++out_.single_normal_reuses;
            } else if (singleNormalFace(face)) {
                n = vertexNormal(c_[0], wantedNormal(tri, i0));
                face_done_[face] = static_cast<int>(n);
            } else {
                n = vertexNormal(c_[0], wantedNormal(tri, i0));
                vertexNormal(c_[1], wantedNormal(tri, i1));
                vertexNormal(c_[2], wantedNormal(tri, inputOf(c_[2])));
            }
            const V& w = normals_[n];
            const V a = minus(c_[1].p, c_[0].p), b = minus(c_[2].p, halfway(c_[0].p, c_[1].p));
            const double d =
                ((b.y * a.z - b.z * a.y) * w.x + (b.z * a.x - a.z * b.x) * w.y) + (b.x * a.y - b.y * a.x) * w.z;
            o = d < 0.0 ? 1 : 0;
            if (d == 0.0) {
                const int64_t key = 4 * static_cast<int64_t>(t_) + 2;
                out_.tie_keys.push_back(key);
                o = key == opt_.tie_key ? 1 : 0;
            }
        }
        if (o != want) ++out_.winding_mismatches;
        orient_ = o;
        out_.expected_triangles.insert(out_.expected_triangles.end(),
                                       {c_[0].idx, o == 1 ? c_[1].idx : c_[2].idx, o == 1 ? c_[2].idx : c_[1].idx});
    }

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
    std::vector<uint8_t> kind_;     // by decoded point
    std::vector<uint32_t> single_;  // kind 1: the normal; kind 2: the list
    std::vector<std::vector<ListEntry>> lists_;
    std::vector<char> several_;  // by input point
    std::vector<int> face_done_;  // -1 or normal
    std::vector<V> face_wanted_;
};

}  // namespace

EncodedTess encodeCompressedTess(const EncoderMesh& mesh, const EncoderOptions& options) {
    return Encoder(mesh, options).run();
}

EncoderMesh makeGridMesh(uint32_t nx, uint32_t ny, double hole_fraction, uint64_t seed, double lift) {
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    EncoderMesh mesh;
    for (uint32_t j = 0; j <= ny; ++j)
        for (uint32_t i = 0; i <= nx; ++i) {
            const double x = i * 0.1, y = j * 0.1;
            mesh.points.push_back({x, y, lift + 0.05 * std::sin(3.0 * x) * std::cos(2.0 * y)});
        }
    const auto at = [nx](uint32_t i, uint32_t j) { return j * (nx + 1) + i; };
    for (uint32_t j = 0; j < ny; ++j)
        for (uint32_t i = 0; i < nx; ++i) {
            const bool diagonal = (rng() & 1) != 0;
            if (unit(rng) < hole_fraction) continue;
            const uint32_t a = at(i, j), b = at(i + 1, j), c = at(i + 1, j + 1), d = at(i, j + 1);
            if (diagonal) mesh.triangles.insert(mesh.triangles.end(), {{a, b, c}, {a, c, d}});
            else mesh.triangles.insert(mesh.triangles.end(), {{a, b, d}, {b, c, d}});
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
    for (V& v : unit) v = project(v);
    for (uint32_t level = 0; level < levels; ++level) {
        std::unordered_map<uint64_t, uint32_t> mids;
        const auto mid = [&](uint32_t a, uint32_t b) {
            const auto [it, added] = mids.emplace(pairKey(a, b), static_cast<uint32_t>(unit.size()));
            if (added) unit.push_back(project(halfway(unit[a], unit[b])));
            return it->second;
        };
        std::vector<std::array<uint32_t, 3>> next;
        for (const auto& t : tris) {
            const uint32_t ab = mid(t[0], t[1]), bc = mid(t[1], t[2]), ca = mid(t[2], t[0]);
            next.insert(next.end(), {{t[0], ab, ca}, {t[1], bc, ab}, {t[2], ca, bc}, {ab, bc, ca}});
        }
        tris.swap(next);
    }
    EncoderMesh mesh;
    for (const V& v : unit) mesh.points.push_back({centre.x + radius * v.x, centre.y + radius * v.y, centre.z + radius * v.z});
    mesh.triangles = std::move(tris);
    return mesh;
}

EncoderMesh makeTorusMesh(uint32_t nu, uint32_t nv, double major, double minor, EncoderVec centre) {
    EncoderMesh mesh;
    const double two_pi = 6.283185307179586;
    for (uint32_t i = 0; i < nu; ++i)
        for (uint32_t j = 0; j < nv; ++j) {
            const double u = two_pi * i / nu, v = two_pi * j / nv, r = major + minor * std::cos(v);
            mesh.points.push_back({centre.x + r * std::cos(u), centre.y + r * std::sin(u), centre.z + minor * std::sin(v)});
        }
    const auto at = [nu, nv](uint32_t i, uint32_t j) { return (i % nu) * nv + (j % nv); };
    for (uint32_t i = 0; i < nu; ++i)
        for (uint32_t j = 0; j < nv; ++j) {
            const uint32_t a = at(i, j), b = at(i + 1, j), c = at(i + 1, j + 1), d = at(i, j + 1);
            mesh.triangles.insert(mesh.triangles.end(), {{a, b, c}, {a, c, d}});
        }
    return mesh;
}

void appendMesh(EncoderMesh& a, const EncoderMesh& b) {
    const uint32_t offset = static_cast<uint32_t>(a.points.size());
    int32_t face_offset = 0;
    if (!a.face_ids.empty() || !b.face_ids.empty()) {
        a.face_ids.resize(a.triangles.size(), 0);
        for (int32_t f : a.face_ids) face_offset = std::max(face_offset, f + 1);
    }
    a.points.insert(a.points.end(), b.points.begin(), b.points.end());
    for (const auto& t : b.triangles) a.triangles.push_back({t[0] + offset, t[1] + offset, t[2] + offset});
    if (!a.face_ids.empty())
        for (size_t i = 0; i < b.triangles.size(); ++i)
            a.face_ids.push_back(face_offset + (b.face_ids.empty() ? 0 : b.face_ids[i]));
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
        for (uint32_t p : t) sum[p] = plus(sum[p], n);
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
