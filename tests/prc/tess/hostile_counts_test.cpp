// Counts of four billion in front of every counted list: the readers must fail
// at the end of the data without first sizing anything by the count.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <new>
#include <stdexcept>

#include "prc/entities/entity_framing.h"
#include "tests/prc/tess/tess_test_util.h"
#include "tests/support/prc_tess_writer.h"

// The largest single allocation while watching: every new and delete of this
// test program goes through malloc and free, so the sanitizers see matching pairs.
static bool g_watching = false;
static std::size_t g_largest = 0;
static void* allocate(std::size_t n) {
    if (g_watching && n > g_largest) g_largest = n;
    if (void* p = std::malloc(n == 0 ? 1 : n)) return p;
    throw std::bad_alloc();
}
void* operator new(std::size_t n) { return allocate(n); }
void* operator new[](std::size_t n) { return allocate(n); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return std::malloc(n == 0 ? 1 : n); }
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { return std::malloc(n == 0 ? 1 : n); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace prc::test {
namespace {

constexpr uint32_t kHostile = 4000000000u;
// Enough data that a reservation by the bits left is visible, small enough
// that reading it through stays quick.
constexpr size_t kFillerBytes = 16384;

// The largest single allocation that f makes.
std::size_t largestAllocationOf(const std::function<void()>& f) {
    g_largest = 0;
    g_watching = true;
    f();
    g_watching = false;
    return g_largest;
}

// Reads after the filler; at most one 8-byte element per bit left may be reserved.
void expectFailsFast(PRCBitWriter w, const std::function<void(PRCBitReader&)>& read, uint8_t filler = 0) {
    for (size_t i = 0; i < kFillerBytes; ++i) w.writeBits(filler, 8);
    WrittenReader in(w, 0xFFFFFFFF);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_LE(largestAllocationOf([&] { EXPECT_THROW(read(in.reader), std::runtime_error); }),
              kFillerBytes * 8 * 8 + 4096);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST(HostileCounts, PlainWireAndMarkupListsFailFast) {
    auto tess = [](PRCBitReader& r) { readPRC3DTess(r); };
    auto face = [](PRCBitReader& r) { readTessFace(r); };
    auto wire = [](PRCBitReader& r) { readPRC3DWireTess(r); };
    auto markup = [](PRCBitReader& r) { readPRCMarkupTess(r); };
    const int64_t bit = -1;
    const int64_t t = k3DTess;  // through the version-dependent Booleans, normals not recalculated
    struct Case {
        const char* list;
        std::vector<int64_t> before;  // UnsignedIntegers, each -1 a single 0 bit
        std::function<void(PRCBitReader&)> read;
    };
    const Case cases[] = {
        {"coordinates", {t, bit}, tess},
        {"normal_coordinates", {t, bit, 0, bit, bit, bit}, tess},
        {"skipped indices", {t, bit, 0, bit, bit, bit, 0}, tess},
        {"triangulated_indices", {t, bit, 0, bit, bit, bit, 0, 0}, tess},
        {"faces", {t, bit, 0, bit, bit, bit, 0, 0, 0}, tess},
        {"trailing doubles", {t, bit, 0, bit, bit, bit, 0, 0, 0, 0}, tess},
        {"line_attributes", {kTessFace}, face},
        {"face skipped values", {kTessFace, 0, 0}, face},
        {"sizes_triangulated", {kTessFace, 0, 0, 0, 0, 0}, face},
        // One size of four billion: a fan of that many vertices, or triangles
        // whose corner count passes 32 bits, each then coloured.
        {"fan colours", {kTessFace, 0, 0, 0, 0x0004, 0, 2, 1}, face},
        {"triangle colours", {kTessFace, 0, 0, 0, 0x0002, 0, 1}, face},
        {"wire coordinates", {k3DWireTess, bit}, wire},
        {"wire_indexes", {k3DWireTess, bit, 0}, wire},
        {"markup codes", {kMarkupTess, bit, 0}, markup},
        {"markup texts", {kMarkupTess, bit, 0, 0}, markup},
    };
    for (const Case& c : cases)
        for (uint8_t filler : {uint8_t(0x00), uint8_t(0xFF)}) {
            SCOPED_TRACE(std::string(c.list) + (filler ? " over ones" : " over zeros"));
            PRCBitWriter w;
            for (int64_t v : c.before) v < 0 ? w.writeBit(false) : w.writeUnsignedInteger(uint32_t(v));
            w.writeUnsignedInteger(kHostile);
            if (std::string(c.list).find("colours") != std::string::npos) {
                w.writeUnsignedInteger(0);
                w.writeBits(0b100, 3);  // colours on, RGB, not optimised
            }
            expectFailsFast(w, c.read, filler);
        }
    PRCBitWriter section;
    writeTessellationSectionHead(section, kHostile);
    for (size_t i = 0; i < kFillerBytes; ++i) section.writeBits(0, 8);
    EXPECT_LE(largestAllocationOf([&] { EXPECT_TRUE(readSection(section.bytes(), 0xFFFFFFFF).tessellations.empty()); }),
              kFillerBytes * 8 * sizeof(PRC3DTess));
}

// The compressed record's own counts: the reference bits, the normal bits, and
// in the ignored block the byte runs and the variable-width run. Written by
// hand: the record writer cannot carry a hostile count.
TEST(HostileCounts, CompressedRecordCountsFailFast) {
    for (int which = 0; which < 4; ++which) {
        SCOPED_TRACE(which);
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
            w.writeBits(0, 3);  // no texture, styles per face, the style array plain
            w.writeUnsignedInteger(0);
            w.writeBit(false);  // the block follows
            w.writeUnsignedInteger(which == 2 ? 0x3FFFFFFFu : 0);
            if (which == 3) w.writeUnsignedInteger(0), w.writeUnsignedInteger(kHostile);
        }
        expectFailsFast(w, [](PRCBitReader& r) { readPRC3DTessCompressed(r, 0xFFFFFFFF); });
    }
}

}  // namespace
}  // namespace prc::test
