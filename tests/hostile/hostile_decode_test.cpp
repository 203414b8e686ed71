// Hostile files through the C interface and the decode driver: each ends in the answer that the
// bounds prescribe, within a bounded amount of memory.

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <stdexcept>
#include <string>

#include "meshdrone/meshdrone.h"
#include "model/assembly.h"
#include "prc/io/inflate_section.h"
#include "tests/hostile/hostile_files.h"
#include "tests/support/prc_builder.h"
#include "tests/support/worker_runs.h"
#include "tools/inspect/result_stream_reader.h"
#include "worker/decoded_model.h"

// This program counts the bytes live on the operator new heap, and their peak
// since the last reset; a request that fails counts as granted.
namespace {
constexpr size_t kHeader = alignof(std::max_align_t);  // the block's size, kept in front of it
std::atomic<size_t> live{0}, peak{0};
void* allocate(size_t n, bool orNull = false) {
    const size_t now = live += n;
    for (size_t seen = peak; now > seen && !peak.compare_exchange_weak(seen, now);) {
    }
    void* block = n <= SIZE_MAX - kHeader ? std::malloc(n + kHeader) : nullptr;
    if (block == nullptr) {
        live -= n;
        if (orNull) return nullptr;
        throw std::bad_alloc();
    }
    *static_cast<size_t*>(block) = n;
    return static_cast<char*>(block) + kHeader;
}
void release(void* p) noexcept {
    if (p == nullptr) return;
    live -= *reinterpret_cast<size_t*>(static_cast<char*>(p) - kHeader);
    std::free(static_cast<char*>(p) - kHeader);
}
size_t peakSince(size_t baseline) { return peak - baseline; }
size_t resetPeak() { return peak = live.load(); }
}  // namespace
void* operator new(size_t n) { return allocate(n); }
void* operator new[](size_t n) { return allocate(n); }
// Under the sanitizers the nothrow forms must be ours too: the plain delete releases them.
void* operator new(size_t n, const std::nothrow_t&) noexcept { return allocate(n, true); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept { return allocate(n, true); }
void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, size_t) noexcept { release(p); }
void operator delete[](void* p, size_t) noexcept { release(p); }

namespace prc::test::hostile {
namespace {

// Resident set peak of this process in bytes, and a fresh start for it (the
// inflation buffer is not on the operator new heap).
uint64_t residentPeak() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmHWM:", 0) == 0) return std::stoull(line.substr(6)) * 1024;
    return 0;
}
uint64_t resetResidentPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
    return residentPeak();
}

// The address sanitizer's runtime reserves terabytes of address space: no limit under it.
#if defined(__SANITIZE_ADDRESS__)
const char* const kRun = "exec \"$0\" \"$1\"";
#else
const char* const kRun = "ulimit -v 2097152 && exec \"$0\" \"$1\"";
#endif

// The worker's answer to the file as the host gets it, inside a 2 GiB address
// space: always a complete, well-formed stream, and exit status 0.
result_reader::ResultStream workerAnswer(const std::vector<uint8_t>& bytes) {
    const std::string file = testing::TempDir() + "meshdrone_hostile_" + std::to_string(getpid()) + ".prc";
    std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    std::vector<uint8_t> out;
    EXPECT_EQ(runProgram({"/bin/sh", "-c", kRun, workerPath(), file}, out), 0);
    std::filesystem::remove(file);
    result_reader::ResultStream stream;
    EXPECT_NO_THROW(stream = result_reader::readResultStream(out.data(), out.size()));
    return stream;
}

// Through the C interface, with the heap counted, and through the worker
// process. Unharmed, the model is a red part placed under its root.
TEST(HostileFiles, EachEndsInItsAnswerWithBoundedMemory) {
    if (workerPath().empty()) GTEST_SKIP() << "MESHDRONE_BIN is not set";
    const std::vector<uint8_t> intact = modelFile({});
    meshdrone_model* model = nullptr;
    ASSERT_EQ(meshdrone_decode(intact.data(), intact.size(), &model), MESHDRONE_OK);
    EXPECT_EQ(std::tuple(model->part_count, model->triangle_count, model->positions[0], model->colors[0], model->colors[1],
                         model->color_count + model->style_count),
              std::tuple(2u, 1u, 10.0f, 255, 0, 2u));
    meshdrone_free(model);
    for (const HostileCase& c : hostileCases()) {
        SCOPED_TRACE(c.name);
        const uint64_t resident = resetResidentPeak();
        const size_t heap = resetPeak();
        const meshdrone_result result = meshdrone_decode(c.file.data(), c.file.size(), &model);
        // A reservation capped by the bits left of a section with the filler
        // costs a few megabytes, 200,000 nodes some tens; the instancing fills
        // the mesh with 20,000,000 triangles (240 MB of indices) as it grows.
        EXPECT_LE(peakSince(heap), c.triangles == 1000 ? size_t(600) << 20 : size_t(96) << 20);
        // The bomb: the growth rule's largest buffer, just under 1 GiB.
        EXPECT_LE(residentPeak() - resident, 2 * kInflateSafetyLimit + (uint64_t(64) << 20));
        const result_reader::ResultStream answer = workerAnswer(c.file);
        if (c.records < 0) {
            EXPECT_EQ(result, MESHDRONE_NO_GEOMETRY);
            EXPECT_EQ(answer.header.status, kOutcomeNoGeometry);
        } else {
            ASSERT_EQ(result, MESHDRONE_OK);
            EXPECT_EQ(std::tuple(model->part_count, answer.parts.size()), std::tuple(uint32_t(c.records), size_t(c.records)));
            EXPECT_EQ(model->triangle_count, c.triangles);
        }
        meshdrone_free(model);
    }
}

// A real file cut short: any answer will do, as long as it is one.
TEST(HostileFiles, TheWorkerAnswersEveryCutOfARealFile) {
    if (workerPath().empty()) GTEST_SKIP() << "MESHDRONE_BIN is not set";
    const std::vector<uint8_t> real = readFile("0a1283e2edd5.prc");
    for (size_t cut = 97; cut < real.size(); cut += 97) {
        SCOPED_TRACE(cut);
        workerAnswer({real.begin(), real.begin() + ptrdiff_t(cut)});
    }
}

// Records whose arrays lie about each other, over three points, with their
// heap counted. A hundred thousand triangles, every edge opened (the stack of
// open edges only grows), each later corner a reference, the last one outside
// the points so that the strategy runs again: each run keeps one open edge
// per triangle at most. Twenty thousand triangles, each a reference back to
// point 1 across the newest edge: the closed set keeps a handful of keys.
// One face index that claims two billion faces: only faces with a
// single-normal bit are ever tracked.
TEST(HostileFiles, CompressedRecordsThatLieAboutEachOther) {
    const auto loop = [](uint32_t n, uint8_t status, std::vector<int32_t> references) {
        PRC3DTessCompressed r;
        r.tolerance = 1, r.must_recalculate_normals = true;
        r.point_array = {0, 0, 0, 1, 0, 0, 0, 1, 0};
        r.triangle_face_array.assign(n, 0), r.edge_status_array.assign(n, status), r.normal_is_reversed.assign(n, true);
        r.point_is_reference_array.assign(n + 2, true), r.point_reference_array = std::move(references);
        return r;
    };
    std::vector<int32_t> lies(99998, 2);
    lies.push_back(3);
    PRC3DTessCompressed huge = loop(1, 0, {});
    huge.triangle_face_array = {INT32_MAX}, huge.point_is_reference_array = {false, false, false};
    huge.must_recalculate_normals = false, huge.normal_angle_number_of_bits = 10, huge.face_has_single_normal = {true};
    huge.normal_binary_data.assign(12, false), huge.normal_angle_array = {0, 1023, 0, 1023, 0, 1023};
    const std::pair<PRC3DTessCompressed, size_t> cases[] = {
        {loop(100000, 3, lies), 0}, {loop(20000, 2, std::vector<int32_t>(19999, 1)), 20000}, {huge, 1}};
    for (const auto& [record, triangles] : cases) {
        const size_t heap = resetPeak();
        TessMesh piece;
        EXPECT_EQ(errorOf([&] { model::buildCompressedTessPiece(piece, record, PRCGlobals(), nullptr); }).empty(), triangles > 0);
        EXPECT_EQ(piece.triangles.size(), 3 * triangles);
        EXPECT_LE(peakSince(heap), record.triangle_face_array.size() * 400 + 4096);
    }
}

// A header may name one bomb from every file structure. Under a budget of
// 64 MiB around the decode, the first inflation spends it and every later one
// of every pass fails at once: nothing is drawn, and little memory was taken.
TEST(HostileFiles, OneBombNamedByAThousandFileStructuresIsInflatedOnce) {
    const std::vector<uint8_t> file = zlibBombFile(0, 1000);
    const uint64_t resident = resetResidentPeak();
    DecodedModel model{};
    {
        InflationBudget budget(64 << 20);
        EXPECT_FALSE(decodePrcModel(file.data(), file.size(), &model));
        EXPECT_EQ(budget.left(), 0u);
    }
    EXPECT_EQ(model.outcome, kOutcomeNoGeometry);
    EXPECT_LE(residentPeak() - resident, uint64_t(192) << 20);
}

}  // namespace
}  // namespace prc::test::hostile
