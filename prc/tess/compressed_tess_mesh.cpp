#include "prc/tess/compressed_tess_mesh.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <string>

namespace prc {

namespace {

[[noreturn]] void fail(const char* what) {
    throw std::runtime_error(std::string(CompressedTessNormals::kPrefix) + what);
}

// Ties met by the second run that are tried the other way, at most.
constexpr size_t kMaxTieRetries = 8;

}  // namespace

// ---------------------------------------------------------------------------
// EdgeKeySet

EdgeKeySet::EdgeKeySet(uint64_t expected) {
    // A traversal closes about one edge in two per triangle, so one slot per
    // expected triangle holds them at load one half without growing.
    uint64_t capacity = 16;
    int bits = 4;
    while (capacity < expected && bits < 40) {
        capacity <<= 1;
        ++bits;
    }
    slots_.assign(capacity, kEmpty);
    mask_ = capacity - 1;
    shift_ = 64 - bits;
}

void EdgeKeySet::grow() {
    std::vector<uint64_t> old;
    old.swap(slots_);
    slots_.assign(old.size() * 2, kEmpty);
    mask_ = slots_.size() - 1;
    --shift_;
    for (const uint64_t key : old) {
        if (key != kEmpty) {
            uint64_t i = slot(key);
            while (slots_[i] != kEmpty) {
                i = (i + 1) & mask_;
            }
            slots_[i] = key;
        }
    }
}

void EdgeKeySet::insert(uint64_t key) {
    uint64_t i = slot(key);
    while (slots_[i] != kEmpty) {
        if (slots_[i] == key) {
            return;
        }
        i = (i + 1) & mask_;
    }
    slots_[i] = key;
    if (++size_ * 2 > slots_.size()) {
        grow();
    }
}

void EdgeKeySet::prefetch(uint64_t key) const {
#if defined(__GNUC__) || defined(__clang__)
    __builtin_prefetch(&slots_[slot(key)], 1);
#else
    (void)key;
#endif
}

bool EdgeKeySet::contains(uint64_t key) const {
    uint64_t i = slot(key);
    while (slots_[i] != kEmpty) {
        if (slots_[i] == key) {
            return true;
        }
        i = (i + 1) & mask_;
    }
    return false;
}

// ---------------------------------------------------------------------------
// CompressedTessBuilder

CompressedTessBuilder::CompressedTessBuilder(const PRC3DTessCompressed& record, bool normalize_fallback_axis,
                                             int64_t tie_key, bool all_ties)
    : record_(record),
      normalize_fallback_axis_(normalize_fallback_axis),
      tie_key_(tie_key),
      all_ties_(all_ties),
      point_count_(static_cast<uint32_t>(record.point_array.size() / 3)),
      triangle_count_(static_cast<uint32_t>(record.triangle_face_array.size())),
      origin_{record.point_origin[0], record.point_origin[1], record.point_origin[2]},
      closed_edges_(point_count_ == 0 ? 0 : decodableTriangles()) {}

uint32_t CompressedTessBuilder::decodableTriangles() const {
    // Every triangle after the first takes an edge status and at least one
    // reference bit: the shortest of the arrays bounds how many can come out,
    // whatever the face array claims.
    const uint64_t by_status = uint64_t(record_.edge_status_array.size()) + 1;
    const uint64_t bits = record_.point_is_reference_array.size();
    const uint64_t by_bits = bits > 3 ? bits - 2 : 1;
    return static_cast<uint32_t>(std::min<uint64_t>({triangle_count_, by_status, by_bits}));
}

Vec3 CompressedTessBuilder::nextPointDelta(uint32_t& index) {
    if (result_.points_used >= point_count_) {
        fail("point_array esaurito");
    }
    index = result_.points_used++;
    const int32_t* d = &record_.point_array[3 * static_cast<size_t>(index)];
    const double tolerance = record_.tolerance;
    return {static_cast<double>(d[0]) * tolerance, static_cast<double>(d[1]) * tolerance,
            static_cast<double>(d[2]) * tolerance};
}

Corner CompressedTessBuilder::nextReference() {
    if (result_.references_used >= record_.point_reference_array.size()) {
        fail("point_reference_array esaurito");
    }
    const int32_t r = record_.point_reference_array[result_.references_used++];
    if (r < 0 || static_cast<uint32_t>(r) >= point_count_) {
        fail("riferimento fuori intervallo");
    }
    const double* p = &result_.positions[3 * static_cast<size_t>(r)];
    return {{p[0], p[1], p[2]}, static_cast<uint32_t>(r)};
}

Corner CompressedTessBuilder::storeNewPoint(const Vec3& p, uint32_t index) {
    double* out = &result_.positions[3 * static_cast<size_t>(index)];
    out[0] = p.x;
    out[1] = p.y;
    out[2] = p.z;
    return {p, index};
}

Corner CompressedTessBuilder::newPointFrom(const Vec3& base) {
    uint32_t index = 0;
    const Vec3 delta = nextPointDelta(index);
    return storeNewPoint(add(base, delta), index);
}

bool CompressedTessBuilder::takeReferenceBit() {
    const BitVector& bits = record_.point_is_reference_array;
    if (result_.reference_bits_used >= bits.size()) {
        fail("point_is_reference_array esaurito");
    }
    return bits[result_.reference_bits_used++];
}

void CompressedTessBuilder::decodeFirstTriangle() {
    const Corner p0 = newPointFrom(origin_);
    const Corner p1 = newPointFrom(p0.p);
    const Corner p2 = newPointFrom(midpoint(p0.p, p1.p));
    c_[0] = p0;
    c_[1] = p1;
    c_[2] = p2;
}

void CompressedTessBuilder::startChain() {
    const BitVector& bits = record_.point_is_reference_array;
    const uint64_t used = result_.reference_bits_used;
    if (used > bits.size() || bits.size() - used < 3) {
        fail("point_is_reference_array esaurito a inizio catena");
    }
    const bool b0 = bits[used];
    const bool b1 = bits[used + 1];
    const bool b2 = bits[used + 2];
    result_.reference_bits_used += 3;

    switch (int(b0) + int(b1) + int(b2)) {
        case 0:
            decodeFirstTriangle();
            break;
        case 1: {
            const Corner r = nextReference();
            if (b0) {
                const Corner q1 = newPointFrom(r.p);
                const Corner q2 = newPointFrom(midpoint(r.p, q1.p));
                c_[0] = r;
                c_[1] = q1;
                c_[2] = q2;
            } else if (b1) {
                const Corner q0 = newPointFrom(origin_);
                const Corner q2 = newPointFrom(midpoint(q0.p, r.p));
                c_[0] = q0;
                c_[1] = r;
                c_[2] = q2;
            } else {
                const Corner q0 = newPointFrom(origin_);
                const Corner q1 = newPointFrom(q0.p);
                c_[0] = q0;
                c_[1] = q1;
                c_[2] = r;
            }
            break;
        }
        case 2: {
            const Corner r1 = nextReference();
            const Corner r2 = nextReference();
            if (!b0) {
                c_[0] = newPointFrom(origin_);
                c_[1] = r1;
                c_[2] = r2;
            } else if (b1) {
                c_[0] = r1;
                c_[1] = r2;
                c_[2] = newPointFrom(midpoint(r1.p, r2.p));
            } else {
                c_[0] = r1;
                c_[1] = newPointFrom(r1.p);
                c_[2] = r2;
            }
            break;
        }
        default: {
            const Corner r0 = nextReference();
            const Corner r1 = nextReference();
            const Corner r2 = nextReference();
            c_[0] = r0;
            c_[1] = r1;
            c_[2] = r2;
            break;
        }
    }
    if (c_[1].index < c_[0].index) {
        std::swap(c_[0], c_[1]);
    }
}

void CompressedTessBuilder::checkEdgeCorners(const Corner& c0, const Corner& c1, const Corner& c2) const {
    if (c0.index >= point_count_ || c1.index >= point_count_ || c2.index >= point_count_) {
        fail("indice di spigolo fuori intervallo");
    }
}

void CompressedTessBuilder::signTest(OpenEdge& e, const Vec3& opposite, int64_t key, bool record_tie) {
    // V must point to the opposite corner's side; an exact tie keeps the
    // frame, except for the one tie this run resolves the other way.
    const double d = dot(sub(e.m, opposite), e.v);
    bool flip = d > 0.0;
    if (d == 0.0) {
        if (record_tie) {
            tie_keys_.push_back(key);
        }
        flip = key == tie_key_;
    }
    if (flip) {
        e.v = neg(e.v);
        e.n = neg(e.n);
    }
}

OpenEdge CompressedTessBuilder::edgeFrame(const Corner& c0, const Corner& c1, const Corner& c2, int64_t key,
                                          bool record_tie) {
    checkEdgeCorners(c0, c1, c2);
    OpenEdge e;
    e.m = midpoint(c0.p, c1.p);
    e.a = c0;
    e.b = c1;
    const Vec3 edge = sub(c0.p, c1.p);
    const double length = vectorLength(edge);
    if (!usableLength(length)) {
        // A collapsed edge has no direction of its own: any fixed frame will do,
        // as long as encoder and decoder agree on it.
        e.u = {1.0, 0.0, 0.0};
        const Basis basis = completeBasis(e.u);
        e.v = basis.v;
        e.n = basis.n;
        return e;
    }
    e.u = divide(edge, length);
    e.n = cross(sub(c2.p, e.m), e.u);
    if (!normalizeInPlace(e.n)) {
        const Basis basis = completeBasis(e.u);
        e.v = basis.v;
        e.n = basis.n;
    } else {
        e.v = cross(e.n, e.u);
        if (!normalizeInPlace(e.v)) {
            const Basis basis = completeBasis(e.u);
            e.v = basis.v;
            e.n = basis.n;
        }
    }
    signTest(e, c2.p, key, record_tie);
    return e;
}

void CompressedTessBuilder::pushWaiting(const Corner (&edge)[3], int64_t key) {
    if (all_ties_) {
        // The frame's tie, if it has one, is met now, in the order of the
        // traversal; when the edge is taken the frame is computed again.
        edgeFrame(edge[0], edge[1], edge[2], key);
    } else {
        checkEdgeCorners(edge[0], edge[1], edge[2]);
    }
    open_edges_.push({edge[0], edge[1], edge[2], key});
}

void CompressedTessBuilder::decodeNextTriangle(uint32_t t) {
    if (t - 1 >= record_.edge_status_array.size()) {
        fail("edge_status_array troppo corto");
    }
    const uint8_t s = record_.edge_status_array[t - 1];
    const Corner& x0 = current_orientation_ == 0 ? c_[0] : c_[1];
    const Corner& x1 = current_orientation_ == 0 ? c_[1] : c_[0];
    const Corner& x2 = c_[2];
    const bool open_b = (s & 1) != 0;
    const bool open_a = (s & 2) != 0;
    const uint64_t edge_b = edgeKey(x1.index, x2.index);
    const uint64_t edge_a = edgeKey(x0.index, x2.index);
    // The closed set of a large mesh spreads over megabytes, and a slot is
    // mostly a cache miss: the slots are asked for now and written after the
    // frames, which take long enough to hide the wait.
    if (!open_b) {
        closed_edges_.prefetch(edge_b);
    }
    if (!open_a) {
        closed_edges_.prefetch(edge_a);
    }

    // The edge that continues the traversal: with both open, b waits on the
    // stack under a, and a is taken at once; a lone opened edge is taken at
    // once too. Neither needs the stack's round trip.
    const int64_t key_b = 4 * int64_t(t);
    const int64_t key_a = key_b + 1;
    WaitingEdge next;
    bool fresh = true;  // opened by this triangle, not taken from the stack
    if (open_b) {
        next = {x2.index < x1.index ? x2 : x1, x2.index < x1.index ? x1 : x2, x0, key_b};
    }
    if (open_a) {
        if (open_b) {
            const Corner b[3] = {next.a, next.b, next.opposite};
            pushWaiting(b, key_b);
        }
        next = {x2.index < x0.index ? x2 : x0, x2.index < x0.index ? x0 : x2, x1, key_a};
    }
    if (!open_a) {
        closed_edges_.insert(edge_a);
    }
    if (!open_b) {
        closed_edges_.insert(edge_b);
    }
    if (!open_a && !open_b) {
        bool found = false;
        while (!open_edges_.empty()) {
            const WaitingEdge& top = open_edges_.top();
            if (!closed_edges_.contains(edgeKey(top.a.index, top.b.index))) {
                next = top;
                found = true;
                open_edges_.pop();
                break;
            }
            open_edges_.pop();
        }
        if (!found) {
            startChain();
            return;
        }
        fresh = false;
    }
    // The frame places a new corner only: a reference needs none. A run whose
    // ties are all wanted meets a fresh edge's tie now, in traversal order
    // (a waiting edge's was met when it was opened).
    OpenEdge frame;
    bool framed = false;
    if (fresh) {
        checkEdgeCorners(next.a, next.b, next.opposite);
    }
    if (all_ties_) {
        frame = edgeFrame(next.a, next.b, next.opposite, next.key, fresh);
        framed = true;
    }

    Corner p;
    if (takeReferenceBit()) {
        p = nextReference();
    } else {
        uint32_t index = 0;
        const Vec3 d = nextPointDelta(index);
        if (!framed) {
            frame = edgeFrame(next.a, next.b, next.opposite, next.key);
        }
        const Vec3 at{frame.m.x + d.x * frame.u.x + d.y * frame.v.x + d.z * frame.n.x,
                      frame.m.y + d.x * frame.u.y + d.y * frame.v.y + d.z * frame.n.y,
                      frame.m.z + d.x * frame.u.z + d.y * frame.v.z + d.z * frame.n.z};
        p = storeNewPoint(at, index);
    }
    c_[0] = next.a;
    c_[1] = next.b;
    c_[2] = p;
}

void CompressedTessBuilder::emitCurrentTriangle() {
    std::vector<uint32_t>& out = result_.triangles;
    out.push_back(c_[0].index);
    if (current_orientation_ == 1) {
        out.push_back(c_[1].index);
        out.push_back(c_[2].index);
    } else {
        out.push_back(c_[2].index);
        out.push_back(c_[1].index);
    }
}

CompressedTessResult CompressedTessBuilder::run() {
    if (triangle_count_ == 0 || point_count_ == 0) {
        return {};
    }
    normals_.prepareNormals(record_, point_count_, triangle_count_, normalize_fallback_axis_);
    result_.positions.assign(3 * static_cast<size_t>(point_count_), 0.0);
    result_.triangles.reserve(3 * static_cast<size_t>(decodableTriangles()));

    decodeFirstTriangle();
    // The first triangle's three reference bits are implied (all new points).
    result_.reference_bits_used = 3;
    current_orientation_ = normals_.triangleOrientation(0, c_, tie_key_, tie_keys_);
    emitCurrentTriangle();
    for (uint32_t t = 1; t < triangle_count_; ++t) {
        decodeNextTriangle(t);
        current_orientation_ = normals_.triangleOrientation(t, c_, tie_key_, tie_keys_);
        emitCurrentTriangle();
    }
    result_.normal_bits_used = normals_.normalBitsUsed();
    result_.normal_angles_used = normals_.normalAnglesUsed();
    result_.tie_keys = std::move(tie_keys_);
    return std::move(result_);
}

// ---------------------------------------------------------------------------
// Runs and strategy

CompressedTessResult runCompressedTessDecode(const PRC3DTessCompressed& record, bool normalize_fallback_axis,
                                             int64_t tie_key, std::vector<int64_t>* tie_keys_on_error, bool all_ties) {
    CompressedTessBuilder builder(record, normalize_fallback_axis, tie_key, all_ties);
    try {
        return builder.run();
    } catch (const std::runtime_error&) {
        if (tie_keys_on_error != nullptr) {
            *tie_keys_on_error = std::move(builder.tieKeys());
        }
        throw;
    }
}

bool consumedExactly(const CompressedTessResult& result, const PRC3DTessCompressed& record) {
    if (result.points_used != record.point_array.size() / 3 ||
        result.references_used != record.point_reference_array.size() ||
        result.reference_bits_used != record.point_is_reference_array.size() ||
        result.triangles.size() / 3 != record.triangle_face_array.size()) {
        return false;
    }
    if (record.must_recalculate_normals) {
        return true;
    }
    return result.normal_bits_used == record.normal_binary_data.size() &&
           result.normal_angles_used == record.normal_angle_array.size();
}

CompressedTessResult buildCompressedTessMesh(const PRC3DTessCompressed& record, CompressedTessRun* run) {
    std::exception_ptr first_error;
    try {
        CompressedTessResult result = runCompressedTessDecode(record, false, -1, nullptr, false);
        if (run != nullptr) {
            *run = CompressedTessRun::First;
        }
        return result;
    } catch (const std::runtime_error&) {
        first_error = std::current_exception();
    }

    std::vector<int64_t> ties;
    try {
        CompressedTessResult result = runCompressedTessDecode(record, true, -1, &ties);
        if (consumedExactly(result, record)) {
            if (run != nullptr) {
                *run = CompressedTessRun::Second;
            }
            return result;
        }
        ties = std::move(result.tie_keys);
    } catch (const std::runtime_error&) {
        // ties holds what the run met before it failed.
    }

    const size_t retries = std::min(ties.size(), kMaxTieRetries);
    for (size_t i = 0; i < retries; ++i) {
        try {
            CompressedTessResult result = runCompressedTessDecode(record, true, ties[i], nullptr, false);
            if (consumedExactly(result, record)) {
                if (run != nullptr) {
                    *run = CompressedTessRun::TieRetry;
                }
                return result;
            }
        } catch (const std::runtime_error&) {
            // This resolution of the tie leads nowhere; try the next one.
        }
    }
    std::rethrow_exception(first_error);
}

}  // namespace prc
