#include "tests/support/prc_bit_writer.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <map>
#include <queue>
#include <stdexcept>

#include "prc/io/frequent_doubles.h"

namespace prc::test {

void PRCBitWriter::writeBit(bool bit) {
    if (bits_ % 8 == 0) bytes_.push_back(0);
    if (bit) bytes_.back() |= uint8_t(0x80 >> (bits_ % 8));
    ++bits_;
}

void PRCBitWriter::writeBits(uint32_t value, int n) {
    for (int i = n - 1; i >= 0; --i) writeBit(i < 32 && ((value >> i) & 1));
}

void PRCBitWriter::writeBitString(std::string_view bits) {
    for (char c : bits) {
        if (c == '0' || c == '1') {
            writeBit(c == '1');
        } else if (c != ' ') {
            throw std::logic_error("bit string holds something other than 0, 1 and blanks");
        }
    }
}

void PRCBitWriter::writeUnsignedInteger(uint32_t value) {
    while (value != 0) {
        writeBit(true);
        writeCharacter(uint8_t(value));
        value >>= 8;
    }
    writeBit(false);
}

void PRCBitWriter::writeInteger(int32_t value) {
    // Bytes least significant first until the rest is the sign extension of
    // the last byte written.
    while (value != 0) {  // zero is the closing bit alone
        const uint8_t byte = uint8_t(uint32_t(value));
        writeBit(true);
        writeCharacter(byte);
        value >>= 8;  // arithmetic
        if ((value == 0 && !(byte & 0x80)) || (value == -1 && (byte & 0x80))) break;
        if (value == 0) {  // a positive value whose last byte has its top bit set
            writeBit(true);
            writeCharacter(0);
            break;
        }
    }
    writeBit(false);
}

void PRCBitWriter::writeString(const std::string& s) {
    writeBit(true);
    writeUnsignedInteger(uint32_t(s.size()));
    for (char c : s) writeCharacter(uint8_t(c));
}

void PRCBitWriter::writeVector3d(double x, double y, double z) {
    writeDouble(x);
    writeDouble(y);
    writeDouble(z);
}

void PRCBitWriter::writeUserData(uint32_t bits) {
    writeUnsignedInteger(bits);
    for (uint32_t i = 0; i < bits; ++i) writeBit(false);
}

namespace {

// The first row of a kind for a value pattern (value rows) or a biased
// exponent (exponent rows).
const FrequentDoubleEntry* findRow(uint8_t kind, uint64_t value) {
    static const auto index = [] {
        std::map<std::pair<uint8_t, uint64_t>, const FrequentDoubleEntry*> m;
        for (const FrequentDoubleEntry& e : frequentDoubleTable())
            m.emplace(std::pair{e.kind, e.kind == 0 ? e.value : (e.value >> 52) & 0x7FF}, &e);
        return m;
    }();
    const auto it = index.find({kind, value});
    return it == index.end() ? nullptr : it->second;
}

}  // namespace

void PRCBitWriter::writeDouble(double value, MantissaStyle style) {
    const uint64_t pattern = std::bit_cast<uint64_t>(value);
    const uint64_t sign = pattern >> 63;
    if (pattern == 0) {
        const FrequentDoubleEntry* zero = findRow(0, 0);
        writeBits(zero->code, zero->bit_count);
        return;
    }
    const uint64_t magnitude = pattern & ~(uint64_t(1) << 63);
    if (magnitude != 0) {
        if (const FrequentDoubleEntry* row = findRow(0, magnitude)) {
            writeBits(row->code, row->bit_count);
            writeBit(sign != 0);
            return;
        }
    }
    const uint64_t exponent = (pattern >> 52) & 0x7FF;
    const FrequentDoubleEntry* row = findRow(1, exponent);
    if (!row) throw std::logic_error("no exponent row");
    writeBits(row->code, row->bit_count);
    writeBit(sign != 0);
    const uint64_t mantissa = pattern & ((uint64_t(1) << 52) - 1);
    if (mantissa == 0) {
        writeBit(false);
        return;
    }
    writeBit(true);
    const uint32_t nibble = uint32_t(mantissa >> 48) & 0xF;
    writeBits(nibble, 4);
    uint8_t b[8];
    for (int i = 0; i < 6; ++i) b[i] = uint8_t(mantissa >> (8 * i));
    b[7] = uint8_t(sign << 7 | exponent >> 4);
    b[6] = uint8_t((exponent << 4 | nibble) & 0xFF);
    for (int i = 5; i >= 0; --i) {
        if (style == MantissaStyle::Shortest) {
            bool rest_equal = true;
            for (int j = i; j >= 0; --j) rest_equal = rest_equal && b[j] == b[i + 1];
            if (rest_equal) {
                writeBit(false);
                writeBits(0, 3);
                return;
            }
            if (i >= 1) {
                bool all_but_last = true;
                for (int j = i; j >= 1; --j) all_but_last = all_but_last && b[j] == b[i + 1];
                if (all_but_last) {
                    writeBit(false);
                    writeBits(6, 3);
                    writeCharacter(b[0]);
                    return;
                }
            }
            int ref = 0;
            for (int c = 1; c <= 7 && i + c <= 7; ++c)
                if (c != 6 && b[i + c] == b[i]) {
                    ref = c;
                    break;
                }
            if (ref != 0) {
                writeBit(false);
                writeBits(uint32_t(ref), 3);
                continue;
            }
        }
        writeBit(true);
        writeCharacter(b[i]);
    }
}

void PRCBitWriter::writeGraphics(uint32_t version, bool same_as_current, uint32_t layer_plus_one,
                                 uint32_t style_plus_one, uint16_t behaviour,
                                 const std::vector<std::pair<uint32_t, uint32_t>>& pairs) {
    writeBit(same_as_current);
    if (!same_as_current) {
        writeUnsignedInteger(layer_plus_one);
        writeUnsignedInteger(style_plus_one);
        writeCharacter(uint8_t(behaviour));
        writeCharacter(uint8_t(behaviour >> 8));
    }
    if (version > 8137) {
        writeUnsignedInteger(uint32_t(pairs.size()));
        for (auto [a, b] : pairs) {
            writeUnsignedInteger(a);
            writeUnsignedInteger(b);
        }
    }
}

void PRCBitWriter::writeContentBase(uint32_t type, const std::string* name) {
    writeUnsignedInteger(0);  // attributes
    if (name) {
        writeBit(false);
        writeString(*name);
    } else {
        writeBit(true);  // same name as the current one
    }
    const bool ids = !((type >= 301 && type <= 305) || type == 703);
    if (ids)
        for (int i = 0; i < 3; ++i) writeUnsignedInteger(0);
}

void PRCBitWriter::append(const PRCBitWriter& other) {
    for (uint64_t i = 0; i < other.bits_; ++i) writeBit((other.bytes_[i / 8] >> (7 - i % 8)) & 1);
}

void LsbBitFieldWriter::writeBits(uint32_t value, int n) {
    for (int i = 0; i < n; ++i, ++bits_) {
        if (bits_ % 8 == 0) bytes_.push_back(0);
        if (i < 32 && ((value >> i) & 1)) bytes_.back() |= uint8_t(1u << (bits_ % 8));
    }
}

std::vector<HuffmanLeaf> buildHuffmanCode(const std::vector<uint32_t>& values) {
    std::map<uint32_t, uint64_t> frequency;
    for (uint32_t v : values) ++frequency[v];
    std::vector<HuffmanLeaf> leaves;
    if (frequency.empty()) return leaves;
    if (frequency.size() == 1) return {HuffmanLeaf{frequency.begin()->first, 1, 0}};

    // Tree nodes: leaves first (by value), then merged nodes. Ties are broken
    // by node number so that the code is the same on every run.
    struct Node {
        int child[2] = {-1, -1};
        uint32_t value = 0;
    };
    std::vector<Node> nodes;
    using Item = std::pair<uint64_t, int>;  // (weight, node)
    std::priority_queue<Item, std::vector<Item>, std::greater<Item>> queue;
    for (auto [value, count] : frequency) {
        nodes.push_back(Node{{-1, -1}, value});
        queue.push({count, int(nodes.size()) - 1});
    }
    while (queue.size() > 1) {
        const Item a = queue.top();
        queue.pop();
        const Item b = queue.top();
        queue.pop();
        nodes.push_back(Node{{a.second, b.second}, 0});
        queue.push({a.first + b.first, int(nodes.size()) - 1});
    }
    // Walk down from the root; the bit taken at depth d is bit d of the code.
    struct Pending {
        int node;
        uint32_t length, code;
    };
    std::vector<Pending> stack{{queue.top().second, 0, 0}};
    while (!stack.empty()) {
        const Pending p = stack.back();
        stack.pop_back();
        const Node& n = nodes[size_t(p.node)];
        if (n.child[0] < 0) {
            if (p.length > 32) throw std::logic_error("Huffman code longer than 32 bits");
            leaves.push_back({n.value, p.length, p.code});
            continue;
        }
        for (uint32_t bit = 0; bit < 2; ++bit) stack.push_back({n.child[bit], p.length + 1, p.code | bit << p.length});
    }
    std::sort(leaves.begin(), leaves.end(), [](const HuffmanLeaf& a, const HuffmanLeaf& b) { return a.value < b.value; });
    return leaves;
}

namespace {

uint32_t reversed(uint32_t v, uint32_t n) {
    uint32_t r = 0;
    for (uint32_t i = 0; i < n; ++i, v >>= 1) r = r << 1 | (v & 1);
    return r;
}

uint32_t lowBits(uint32_t v, uint32_t n) { return n >= 32 ? v : v & ((uint32_t(1) << n) - 1); }

}  // namespace

void writeHuffmanBitField(LsbBitFieldWriter& field, uint8_t numBitsPerElem, const std::vector<HuffmanLeaf>& leaves,
                          const std::vector<uint32_t>& values, uint32_t lengthFieldWidth) {
    field.writeBits(uint32_t(leaves.size()), numBitsPerElem + 1);
    if (leaves.empty()) return;
    uint32_t longest = 0;
    for (const HuffmanLeaf& leaf : leaves) longest = std::max(longest, leaf.length);
    const uint32_t width = lengthFieldWidth != 0 ? lengthFieldWidth : uint32_t(std::bit_width(longest));
    field.writeBits(width, 8);
    std::map<uint32_t, const HuffmanLeaf*> byValue;
    for (const HuffmanLeaf& leaf : leaves) {
        field.writeBits(lowBits(leaf.value, numBitsPerElem), numBitsPerElem);
        field.writeBits(leaf.length, int(width));
        field.writeBits(reversed(leaf.code, leaf.length), int(leaf.length));
        byValue[leaf.value] = &leaf;
    }
    field.writeBits(uint32_t(values.size()), 32);
    for (uint32_t v : values) {
        auto it = byValue.find(v);
        if (it == byValue.end()) throw std::logic_error("value without a Huffman leaf");
        field.writeBits(it->second->code, int(it->second->length));
    }
}

void PRCBitWriter::writeHuffmanArray(const LsbBitFieldWriter& field, int64_t bitsUsedInLastWord) {
    const uint64_t words = (field.bitCount() + 31) / 32;
    writeUnsignedInteger(uint32_t(words));
    if (words == 0) return;
    for (uint64_t i = 0; i < words * 4; ++i) writeCharacter(i < field.bytes().size() ? field.bytes()[i] : 0);
    const uint64_t used = field.bitCount() - (words - 1) * 32;
    writeUnsignedInteger(uint32_t(bitsUsedInLastWord >= 0 ? uint64_t(bitsUsedInLastWord) : used));
}

void PRCBitWriter::writeHuffmanArray(const std::vector<uint32_t>& values, uint8_t numBitsPerElem) {
    std::vector<uint32_t> stored(values.size());
    for (size_t i = 0; i < values.size(); ++i) stored[i] = lowBits(values[i], numBitsPerElem);
    LsbBitFieldWriter field;
    writeHuffmanBitField(field, numBitsPerElem, buildHuffmanCode(stored), stored);
    writeHuffmanArray(field);
}

void PRCBitWriter::writeShortArray(const std::vector<uint16_t>& values, bool compressed, bool withFlag,
                                   uint8_t numBitsPerElem) {
    if (withFlag) writeBit(compressed);
    if (compressed) {
        writeHuffmanArray(std::vector<uint32_t>(values.begin(), values.end()), numBitsPerElem);
        return;
    }
    writeUnsignedInteger(uint32_t(values.size()));
    for (uint16_t v : values) {
        writeCharacter(uint8_t(v));
        writeCharacter(uint8_t(v >> 8));
    }
}

void PRCBitWriter::writeCharacterArray(const std::vector<uint8_t>& values, bool compressed, bool withFlag,
                                       uint8_t numBitsPerElem) {
    if (withFlag) writeBit(compressed);
    if (compressed) {
        writeHuffmanArray(std::vector<uint32_t>(values.begin(), values.end()), numBitsPerElem);
        return;
    }
    writeUnsignedInteger(uint32_t(values.size()));
    for (uint8_t v : values) writeCharacter(v);
}

namespace {

// Sign bit plus the magnitude's bits; zero takes the sign bit alone.
uint32_t signedMagnitudeBits(int64_t v) {
    const uint64_t magnitude = uint64_t(v < 0 ? -v : v);
    if (magnitude >= (uint64_t(1) << 31)) throw std::logic_error("magnitude needs more than 31 bits");
    return 1 + uint32_t(std::bit_width(magnitude));
}

void writeSignedMagnitude(PRCBitWriter& w, int64_t v, uint32_t bitCount) {
    w.writeBit(v < 0);
    if (bitCount > 1) w.writeBits(uint32_t(v < 0 ? -v : v), int(bitCount - 1));
}

void checkHuffmanCounts(const std::vector<int32_t>& counts, bool compressed) {
    // A 6-bit signed leaf holds -32..31.
    if (compressed)
        for (int32_t c : counts)
            if (c < -32 || c > 31) throw std::logic_error("bit count does not fit a 6-bit signed leaf");
}

std::vector<uint8_t> asBytes(const std::vector<int32_t>& counts) {
    std::vector<uint8_t> bytes;
    for (int32_t c : counts) bytes.push_back(uint8_t(int8_t(c)));
    return bytes;
}

}  // namespace

void PRCBitWriter::writeCompressedIntegerArray(const std::vector<int32_t>& values, bool compressedCounts) {
    std::vector<int32_t> counts;
    for (int32_t v : values) counts.push_back(int32_t(signedMagnitudeBits(v)));
    checkHuffmanCounts(counts, compressedCounts);
    writeCharacterArray(asBytes(counts), compressedCounts, true, 6);
    for (size_t i = 0; i < values.size(); ++i) writeSignedMagnitude(*this, values[i], uint32_t(counts[i]));
}

void PRCBitWriter::writeCompressedIndiceArray(const std::vector<int32_t>& values, bool compressedCounts,
                                              bool withFlag, uint8_t bitCountWidth) {
    std::vector<int64_t> deltas;
    std::vector<int32_t> counts;
    uint32_t previousBits = 0;
    for (size_t i = 0; i < values.size(); ++i) {
        const int64_t delta = i == 0 ? int64_t(values[0]) : int64_t(values[i]) - values[i - 1];
        const uint32_t bits = signedMagnitudeBits(delta);
        deltas.push_back(delta);
        counts.push_back(int32_t(bits) - int32_t(previousBits));
        previousBits = bits;
    }
    checkHuffmanCounts(counts, compressedCounts);
    writeCharacterArray(asBytes(counts), compressedCounts, withFlag, bitCountWidth);
    uint32_t bits = 0;
    for (size_t i = 0; i < deltas.size(); ++i) {
        bits += uint32_t(counts[i]);
        writeSignedMagnitude(*this, deltas[i], bits);
    }
}

}  // namespace prc::test
