// Counts of four billion in front of every counted list: the readers must fail
// at the end of the data without first sizing anything by the count.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <stdexcept>

#include "prc/entities/entity_framing.h"
#include "tests/prc/tess/allocation_probe.h"
#include "tests/prc/tess/tess_test_util.h"
#include "tests/support/prc_tess_writer.h"

namespace prc::test {
namespace {

constexpr uint32_t kHostile = 4000000000u;
constexpr uint32_t kNewest = 0xFFFFFFFF;
// Enough data that a reservation by the bits left is visible, small enough
// that reading it through stays quick.
constexpr size_t kFillerBytes = 16384;

// The fields in front of a count, as UnsignedIntegers (each -1 is a single
// bit, for the Booleans), then the count itself.
struct HostileCase {
    const char* list;
    std::vector<int64_t> before;
    std::function<void(PRCBitReader&)> read;
};

std::vector<HostileCase> hostileCases() {
    auto tess = [](PRCBitReader& r) { readPRC3DTess(r); };
    auto face = [](PRCBitReader& r) { readTessFace(r); };
    auto wire = [](PRCBitReader& r) { readPRC3DWireTess(r); };
    auto markup = [](PRCBitReader& r) { readPRCMarkupTess(r); };
    const int64_t bit = -1;
    // Through the version-dependent Booleans, normals not recalculated.
    const std::vector<int64_t> tess_head = {k3DTess, bit, 0, bit, bit, bit};
    auto after = [](std::vector<int64_t> head, std::initializer_list<int64_t> more) {
        head.insert(head.end(), more);
        return head;
    };
    return {
        {"coordinates", {k3DTess, bit}, tess},
        {"normal_coordinates", tess_head, tess},
        {"skipped indices", after(tess_head, {0}), tess},
        {"triangulated_indices", after(tess_head, {0, 0}), tess},
        {"faces", after(tess_head, {0, 0, 0}), tess},
        {"trailing doubles", after(tess_head, {0, 0, 0, 0}), tess},
        {"line_attributes", {kTessFace}, face},
        {"face skipped values", {kTessFace, 0, 0}, face},
        {"sizes_triangulated", {kTessFace, 0, 0, 0, 0, 0}, face},
        // Colour entries from one size: a fan of four billion vertices, then
        // triangles whose corner count passes 32 bits; the count is the size.
        {"fan colours", {kTessFace, 0, 0, 0, 0x0004, 0, 1}, face},
        {"triangle colours", {kTessFace, 0, 0, 0, 0x0002, 0, 1}, face},
        {"wire coordinates", {k3DWireTess, bit}, wire},
        {"wire_indexes", {k3DWireTess, bit, 0}, wire},
        {"markup codes", {kMarkupTess, bit, 0}, markup},
        {"markup texts", {kMarkupTess, bit, 0, 0}, markup},
    };
}

TEST(HostileCounts, FailAtTheEndOfTheDataWithoutSizingByTheCount) {
    for (const HostileCase& c : hostileCases()) {
        for (uint8_t filler : {uint8_t(0x00), uint8_t(0xFF)}) {
            PRCBitWriter w;
            for (int64_t v : c.before) {
                if (v < 0)
                    w.writeBit(false);
                else
                    w.writeUnsignedInteger(uint32_t(v));
            }
            w.writeUnsignedInteger(kHostile);
            const bool colours = std::string(c.list).find("colours") != std::string::npos;
            if (colours) {  // the size's trailing value, colours on, RGB, not optimised
                w.writeUnsignedInteger(0);
                w.writeBits(0b100, 3);
            }
            for (size_t i = 0; i < kFillerBytes; ++i) w.writeBits(filler, 8);
            WrittenReader in(w, kNewest);
            const auto start = std::chrono::steady_clock::now();
            LargestAllocation probe;
            EXPECT_THROW(c.read(in.reader), std::runtime_error) << c.list;
            // At most one element per bit left, 8 bytes each.
            EXPECT_LE(probe.bytes(), kFillerBytes * 8 * 8 + 4096) << c.list;
            EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2)) << c.list;
        }
    }
}

TEST(HostileCounts, SectionAndCompressedCountsFailFast) {
    for (uint8_t filler : {uint8_t(0x00), uint8_t(0xFF)}) {
        PRCBitWriter w;
        writeTessellationSectionHead(w, kHostile);
        for (size_t i = 0; i < kFillerBytes; ++i) w.writeBits(filler, 8);
        LargestAllocation probe;
        EXPECT_TRUE(readSection(w.bytes(), kNewest).tessellations.empty());
        EXPECT_LE(probe.bytes(), kFillerBytes * 8 * sizeof(PRC3DTess));
    }
    // The compressed record's own counts: the reference bits, the normal
    // bits, and in the ignored block the byte runs and the variable-width run.
    // Written by hand: the record writer cannot carry a hostile count.
    for (int which = 0; which < 4; ++which) {
        PRCBitWriter w;
        w.writeUnsignedInteger(k3DTessCompressed);
        w.writeBits(0, 2);
        w.writeDouble(0.5);
        w.writeBits(0, 96);
        w.writeCompressedIntegerArray({}, false);
        w.writeCharacterArray({}, false, true, 2);
        w.writeCompressedIndiceArray({}, false, true, 6);
        w.writeUnsignedInteger(which == 0 ? kHostile : 0);
        if (which > 0) {
            w.writeCompressedIndiceArray({}, false, false, 6);
            w.writeBit(false);
            w.writeBits(4, 8);
            w.writeUnsignedInteger(which == 1 ? kHostile : 0);
        }
        if (which > 1) {
            w.writeShortArray({}, false);
            w.writeBits(0, 3);  // no texture, styles per face, and (as a flag) the style array plain
            w.writeUnsignedInteger(0);
            w.writeBit(false);  // the block follows
            w.writeUnsignedInteger(which == 2 ? 0x3FFFFFFFu : 0);
            if (which == 3) {
                w.writeUnsignedInteger(0);
                w.writeUnsignedInteger(kHostile);
            }
        }
        for (size_t i = 0; i < kFillerBytes; ++i) w.writeBits(0, 8);
        WrittenReader in(w, kNewest);
        const auto start = std::chrono::steady_clock::now();
        LargestAllocation probe;
        EXPECT_THROW(readPRC3DTessCompressed(in.reader, kNewest), std::runtime_error) << which;
        EXPECT_LE(probe.bytes(), kFillerBytes * 8 + 4096) << which;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2)) << which;
    }
}

}  // namespace
}  // namespace prc::test
