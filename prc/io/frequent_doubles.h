#pragma once
// The PRC format's table of frequently used doubles and exponents, and the
// prefix-code lookup that readDouble walks.

#include <cstdint>
#include <span>
#include <vector>

namespace prc {

struct FrequentDoubleEntry {
    uint8_t kind;       // 0 = value row, 1 = exponent row
    uint8_t bit_count;  // 2 to 22
    uint32_t code;      // the row's bits, first bit read most significant
    uint64_t value;     // bit pattern of the double
};

std::span<const FrequentDoubleEntry> frequentDoubleTable();

// Decoding trie over (bit count, code). Node 0 is the root; child[b] >= 0 is a
// node, child[b] < 0 is the leaf of row (-child[b] - 1), kNoChild is a dead end.
struct FrequentDoubleTrie {
    static constexpr int32_t kNoChild = INT32_MIN;
    struct Node { int32_t child[2]; };
    const Node* nodes;
    // The walk over the first kFirstBits bits in one step, indexed by them:
    // where it stands then (a node, a leaf met on the way, or kNoChild) and
    // how many bits it took to get there.
    static constexpr int kFirstBits = 10;
    struct First {
        int32_t target;
        uint8_t bits;
    };
    const First* first;
    const FrequentDoubleEntry* rows;  // the rows that leaves refer to
};

// Built once, on first use; the first row whose (bit count, code) equals the
// bits read so far wins, so a shorter code shadows every longer one under it.
const FrequentDoubleTrie& frequentDoubleTrie();

// The trie's nodes over any rows in table order (node 0 is the root).
std::vector<FrequentDoubleTrie::Node> buildFrequentDoubleTrie(std::span<const FrequentDoubleEntry> rows);

}  // namespace prc
