#include <gtest/gtest.h>

#include <set>

#include "prc/io/frequent_doubles.h"

namespace prc {
namespace {

// 29 value rows and one row per biased exponent; the codes form a complete
// prefix code (Kraft sum exactly 1), so any 22 bits match a row and the
// "no row matched within 32 bits" failure cannot happen with this table.
TEST(FrequentDoubles, CompletePrefixCode) {
    const auto table = frequentDoubleTable();
    ASSERT_EQ(table.size(), 2077u);
    size_t valueRows = 0;
    std::set<uint64_t> exponents;
    uint64_t kraft = 0;  // in units of 2^-22
    for (const FrequentDoubleEntry& e : table) {
        ASSERT_TRUE(e.bit_count >= 2 && e.bit_count <= 22 && e.code >> e.bit_count == 0);
        if (e.kind == 0) {
            ++valueRows;
        } else {
            exponents.insert((e.value >> 52) & 0x7FF);
        }
        kraft += uint64_t(1) << (22 - e.bit_count);
        // The key is the pair: 01 and 0001 differ.
        EXPECT_EQ(lookupFrequentDouble(uint64_t(e.bit_count) << 32 | e.code), &e);
    }
    EXPECT_EQ(valueRows, 29u);
    EXPECT_EQ(exponents.size(), 2048u);
    EXPECT_EQ(kraft, uint64_t(1) << 22);
    EXPECT_EQ(lookupFrequentDouble(uint64_t(4) << 32 | 1), nullptr);
}

// Which row a bit string reaches in a trie over made-up rows; -1 for none.
int rowReached(const std::vector<FrequentDoubleTrie::Node>& nodes, const std::string& bits) {
    int32_t node = 0;
    for (char c : bits) {
        node = nodes[size_t(node)].child[c == '1'];
        if (node == FrequentDoubleTrie::kNoChild) return -1;
        if (node < 0) return -node - 1;
    }
    return -1;
}

TEST(FrequentDoubles, FirstRowAndShortestCodeWin) {
    const std::vector<FrequentDoubleEntry> rows = {
        {0, 3, 0b011, 0},   // shadowed by the shorter 01 below, although listed first
        {0, 2, 0b01, 0},    // row 1
        {0, 2, 0b01, 0},    // same key as row 1: the first row keeps it
        {0, 4, 0b1100, 0},  // row 3
        {0, 4, 0b1100, 0},
    };
    const auto nodes = buildFrequentDoubleTrie(rows);
    EXPECT_EQ(rowReached(nodes, "01"), 1);
    EXPECT_EQ(rowReached(nodes, "011"), 1);
    EXPECT_EQ(rowReached(nodes, "1100"), 3);
    EXPECT_EQ(rowReached(nodes, "1101"), -1);
}

}  // namespace
}  // namespace prc
