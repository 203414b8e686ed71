#include "prc/io/frequent_doubles.h"

#include <vector>

namespace prc {
namespace {

struct RawRow {
    uint8_t kind;
    uint8_t bit_count;
    const char* code;
    uint64_t value;
};

constexpr RawRow kRawRows[] = {
#include "frequent_doubles_rows.inc"
};

std::vector<FrequentDoubleEntry> buildTable() {
    std::vector<FrequentDoubleEntry> rows;
    rows.reserve(std::size(kRawRows));
    for (const RawRow& raw : kRawRows) {
        uint32_t code = 0;
        for (const char* c = raw.code; *c; ++c) code = code << 1 | uint32_t(*c - '0');
        rows.push_back({raw.kind, raw.bit_count, code, raw.value});
    }
    return rows;
}

const std::vector<FrequentDoubleEntry>& table() {
    static const std::vector<FrequentDoubleEntry> rows = buildTable();
    return rows;
}

struct TrieStorage {
    std::vector<FrequentDoubleTrie::Node> nodes;
    std::vector<FrequentDoubleTrie::First> first;
    FrequentDoubleTrie trie{};
};

}  // namespace

std::vector<FrequentDoubleTrie::Node> buildFrequentDoubleTrie(std::span<const FrequentDoubleEntry> rows) {
    constexpr int32_t kNone = FrequentDoubleTrie::kNoChild;
    std::vector<FrequentDoubleTrie::Node> nodes;
    nodes.push_back({{kNone, kNone}});
    for (size_t r = 0; r < rows.size(); ++r) {
        const FrequentDoubleEntry& e = rows[r];
        int32_t node = 0;
        for (int i = e.bit_count - 1; i >= 0; --i) {
            const int bit = (e.code >> i) & 1;
            int32_t& slot = nodes[size_t(node)].child[bit];
            if (i == 0) {
                // A key seen before keeps its first row. A shorter key always wins
                // over longer ones below it, because readDouble stops at the first
                // bit count that matches.
                if (slot == kNone || slot >= 0) slot = -int32_t(r) - 1;
                break;
            }
            if (slot < 0 && slot != kNone) break;  // shadowed by a shorter code
            if (slot == kNone) {
                slot = int32_t(nodes.size());
                nodes.push_back({{kNone, kNone}});
            }
            node = nodes[size_t(node)].child[bit];
        }
    }
    return nodes;
}

namespace {

TrieStorage buildTrie() {
    TrieStorage s;
    s.nodes = buildFrequentDoubleTrie(table());
    constexpr int kBits = FrequentDoubleTrie::kFirstBits;
    for (uint32_t prefix = 0; prefix < (1u << kBits); ++prefix) {
        int32_t node = 0;
        int depth = 0;
        while (depth < kBits && node >= 0) node = s.nodes[size_t(node)].child[(prefix >> (kBits - 1 - depth++)) & 1];
        s.first.push_back({node, uint8_t(depth)});
    }
    s.trie.nodes = s.nodes.data();
    s.trie.first = s.first.data();
    s.trie.rows = table().data();
    return s;
}

}  // namespace

std::span<const FrequentDoubleEntry> frequentDoubleTable() { return table(); }

const FrequentDoubleTrie& frequentDoubleTrie() {
    static const TrieStorage storage = buildTrie();
    return storage.trie;
}

}  // namespace prc
