#pragma once
// The PRC standard's table of frequently used doubles and exponents, and the
// prefix-code lookup that readDouble walks.

#include <cstdint>
#include <span>

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
};

// Built once, on first use; the first row whose (bit count, code) equals the
// bits read so far wins, so a shorter code shadows every longer one under it.
const FrequentDoubleTrie& frequentDoubleTrie();

// Row of the key (bit count << 32 | code), or nullptr.
const FrequentDoubleEntry* lookupFrequentDouble(uint64_t key);

}  // namespace prc
