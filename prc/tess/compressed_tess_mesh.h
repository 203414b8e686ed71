#pragma once
// Rebuilding of a highly compressed tessellation's points and triangles by
// edge traversal, with its retry strategy.

#include <cstdint>
#include <memory>
#include <vector>

#include "prc/tess/compressed_tess_normals.h"
#include "prc/tess/compressed_tess_reading.h"

namespace prc {

struct CompressedTessResult {
    std::vector<double> positions;
    std::vector<uint32_t> triangles;
    uint32_t points_used = 0;
    uint32_t references_used = 0;
    uint32_t reference_bits_used = 0;
    uint32_t normal_bits_used = 0;
    uint32_t normal_angles_used = 0;
    std::vector<int64_t> tie_keys;  // ties met by the run, in order
};

// Which run of the strategy produced a result (for diagnostics).
enum class CompressedTessRun { First, Second, TieRetry };

CompressedTessResult buildCompressedTessMesh(const PRC3DTessCompressed& record, CompressedTessRun* run = nullptr);
// One run. When it fails, the ties it met before failing are left in
// *tie_keys_on_error (the retry strategy needs them).
// all_ties false: the run's tie keys are not wanted (only tie_key is), so the
// frames of edges that wait on the stack are computed only when they are taken
// (most never are), and ties met in frames appear in the order the frames are
// taken, not met.
CompressedTessResult runCompressedTessDecode(const PRC3DTessCompressed& record, bool normalize_fallback_axis,
                                             int64_t tie_key, std::vector<int64_t>* tie_keys_on_error = nullptr,
                                             bool all_ties = true);
bool consumedExactly(const CompressedTessResult& result, const PRC3DTessCompressed& record);

inline uint64_t edgeKey(uint32_t i, uint32_t j) {
    return i < j ? (uint64_t(i) << 32) | j : (uint64_t(j) << 32) | i;
}

// An edge waiting for the triangle on its other side, with the frame in which
// that triangle's new corner is given. A has the smaller point index.
struct OpenEdge {
    Vec3 u, v, n;
    Vec3 m;
    Corner a, b;
};

// An edge that waits on the stack: its corners as they were when it was
// opened, the corner opposite it and its tie key. Its frame is computed when it
// is taken: on the real files only one waiting edge in sixteen ever is.
struct WaitingEdge {
    Corner a, b, opposite;
    int64_t key;
};

// The open-edge stack. A traversal can leave about half its triangles' edges
// waiting here (the real files reach 40 to 50 percent), so the stack grows in
// blocks that stay where they are: a vector would copy the whole stack at
// every doubling, which cost a twentieth of the run.
class OpenEdgeStack {
public:
    bool empty() const { return size_ == 0; }
    const WaitingEdge& top() const { return blocks_[(size_ - 1) / kBlock][(size_ - 1) % kBlock]; }
    void pop() { --size_; }
    void push(const WaitingEdge& e) {
        if (size_ == blocks_.size() * kBlock) {
            blocks_.push_back(std::make_unique_for_overwrite<WaitingEdge[]>(kBlock));
        }
        blocks_[size_ / kBlock][size_ % kBlock] = e;
        ++size_;
    }

private:
    static constexpr size_t kBlock = 256;  // 26 KiB
    std::vector<std::unique_ptr<WaitingEdge[]>> blocks_;
    size_t size_ = 0;
};

// Open-addressing set of edge keys. Keys are below 2^64 - 1 (both halves would
// have to be 0xFFFFFFFF), which leaves all ones free as the empty slot.
class EdgeKeySet {
public:
    explicit EdgeKeySet(uint64_t expected = 0);
    void insert(uint64_t key);
    bool contains(uint64_t key) const;
    // A hint that key is about to be inserted or looked up.
    void prefetch(uint64_t key) const;
    uint64_t size() const { return size_; }

private:
    static constexpr uint64_t kEmpty = ~uint64_t(0);
    uint64_t slot(uint64_t key) const { return (key * 0x9E3779B97F4A7C15ull) >> shift_; }
    void grow();

    std::vector<uint64_t> slots_;
    uint64_t mask_ = 0;
    int shift_ = 64;
    uint64_t size_ = 0;
};

// The state of one decoding run.
class CompressedTessBuilder {
public:
    CompressedTessBuilder(const PRC3DTessCompressed& record, bool normalize_fallback_axis, int64_t tie_key,
                          bool all_ties = true);

    // The whole run; tie_keys() stays readable when it throws.
    CompressedTessResult run();

    // The steps of the run, public so that each can be exercised alone.
    Vec3 nextPointDelta(uint32_t& index);
    Corner nextReference();
    void decodeFirstTriangle();
    void startChain();
    void decodeNextTriangle(uint32_t t);
    // record_tie false: a tie flips the frame as it would, but is not recorded.
    OpenEdge edgeFrame(const Corner& c0, const Corner& c1, const Corner& c2, int64_t key, bool record_tie = true);
    Basis completeBasis(const Vec3& u) const { return prc::completeBasis(u, normalize_fallback_axis_); }
    void emitCurrentTriangle();

    const Corner (&current() const)[3] { return c_; }
    int currentOrientation() const { return current_orientation_; }
    void setCurrentOrientation(int o) { current_orientation_ = o; }
    const EdgeKeySet& closedEdges() const { return closed_edges_; }
    const std::vector<int64_t>& tieKeys() const { return tie_keys_; }
    std::vector<int64_t>& tieKeys() { return tie_keys_; }
    CompressedTessResult& result() { return result_; }

private:
    Corner storeNewPoint(const Vec3& p, uint32_t index);
    Corner newPointFrom(const Vec3& base);
    bool takeReferenceBit();
    uint32_t decodableTriangles() const;
    void checkEdgeCorners(const Corner& c0, const Corner& c1, const Corner& c2) const;
    void signTest(OpenEdge& e, const Vec3& opposite, int64_t key, bool record_tie = true);
    void pushWaiting(const Corner (&edge)[3], int64_t key);

    const PRC3DTessCompressed& record_;
    bool normalize_fallback_axis_;
    int64_t tie_key_;
    bool all_ties_;
    std::vector<int64_t> tie_keys_;
    uint32_t point_count_;
    uint32_t triangle_count_;
    Vec3 origin_;
    CompressedTessResult result_;  // positions double as the builder's points
    OpenEdgeStack open_edges_;
    EdgeKeySet closed_edges_;
    Corner c_[3]{};
    int current_orientation_ = 0;
    CompressedTessNormals normals_;
};

}  // namespace prc
