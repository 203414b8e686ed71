// The C interface against the worker process: the same answer for every kind
// of input, and the same models when several threads decode at once.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "meshdrone/meshdrone.h"
#include "tests/support/worker_runs.h"
#include "tools/inspect/result_stream_reader.h"

namespace {

const std::string kData = MESHDRONE_TEST_DATA;
const std::vector<std::string> kModels = {kData + "/0a1283e2edd5.prc", kData + "/18d2868a5ddb.prc",
                                          kData + "/5aab25a32cdb.prc", kData + "/gen/groups_transforms.prc"};


template <class T>
bool sameBytes(const std::vector<T>& a, const void* b) {
    return a.empty() || std::memcmp(a.data(), b, a.size() * sizeof(T)) == 0;
}

TEST(Library, AnswersEveryInputAsTheWorkerDoes) {
    if (prc::test::workerPath().empty()) GTEST_SKIP() << "MESHDRONE_BIN is not set";
    const std::string dir = testing::TempDir() + "meshdrone_lib_" + std::to_string(getpid());
    std::filesystem::create_directories(dir);
    const std::vector<uint8_t> bytes = prc::test::readFile(kModels[2]);
    const std::string real(bytes.begin(), bytes.end());
    const std::pair<const char*, std::string> made[] = {
        {"/empty.prc", ""}, {"/garbage.prc", "PRC not really"}, {"/cut.prc", real.substr(0, real.size() / 2)}};
    std::vector<std::string> inputs = kModels;
    for (const auto& [name, bytes] : made) std::ofstream(inputs.emplace_back(dir + name), std::ios::binary) << bytes;
    for (const char* other : {"/gen/lines_only.prc", "/gen/torus_3k.prc", "/missing.prc", ""}) inputs.push_back(kData + other);
    for (const std::string& path : inputs) {
        SCOPED_TRACE(path);
        std::vector<uint8_t> answer;
        EXPECT_EQ(prc::test::runProgram({prc::test::workerPath(), path}, answer), 0);
        const result_reader::ResultStream s = result_reader::readResultStream(answer.data(), answer.size());
        meshdrone_model* m = nullptr;
        const meshdrone_result r = meshdrone_decode_file(path.c_str(), &m);
        if (s.kind == result_reader::ResultKind::Success) {
            ASSERT_EQ(r, MESHDRONE_OK);
            EXPECT_TRUE(sameBytes(s.positions, m->positions) && sameBytes(s.triangles, m->triangles) &&
                        sameBytes(s.colors, m->colors) && sameBytes(s.parts, m->parts));
            const ResultHeader& h = s.header;
            EXPECT_EQ((std::vector{h.vertex_count, h.triangle_count, h.part_count, h.minimal_version_for_read,
                                   h.authoring_version, h.number_of_file_structures, h.color_count, h.material_count,
                                   h.style_count}),
                      (std::vector{m->vertex_count, m->triangle_count, m->part_count, m->minimal_version_for_read,
                                   m->authoring_version, m->number_of_file_structures, m->color_count,
                                   m->material_count, m->style_count}));
        } else {
            EXPECT_EQ(m, nullptr);
            const bool record = s.kind == result_reader::ResultKind::ErrorRecord;
            EXPECT_EQ(meshdrone_result_outcome(r), record ? -1 : int(s.header.status));
            EXPECT_EQ(meshdrone_result_message(r), record ? s.message : meshdrone_result_message(r));
        }
        meshdrone_free(m);
    }
    std::filesystem::remove_all(dir);
}

TEST(Library, RefusesBadArgumentsWithoutReadingTheBuffer) {
    meshdrone_model* m = nullptr;
    const char byte = 'P';
    EXPECT_EQ(meshdrone_decode(&byte, size_t(1) << 31, &m), MESHDRONE_EMPTY_INPUT);  // the worker's largest file + 1
    EXPECT_EQ(meshdrone_decode(nullptr, 0, &m), MESHDRONE_EMPTY_INPUT);
    EXPECT_EQ(meshdrone_decode(nullptr, 1, &m), MESHDRONE_INVALID_ARGUMENT);
    EXPECT_EQ(meshdrone_decode(&byte, 1, nullptr), MESHDRONE_INVALID_ARGUMENT);
    EXPECT_EQ(meshdrone_decode_file(nullptr, &m), MESHDRONE_INVALID_ARGUMENT);
    EXPECT_EQ(m, nullptr);
}

// Each thread decodes every model several times, in its own order; every
// result must equal the one decoded alone.
TEST(Library, ThreadsDecodingAtOnceGetTheSameModels) {
    std::vector<std::vector<float>> alone;
    for (const std::string& path : kModels) {
        meshdrone_model* m = nullptr;
        ASSERT_EQ(meshdrone_decode_file(path.c_str(), &m), MESHDRONE_OK);
        alone.emplace_back(m->positions, m->positions + 3 * m->vertex_count);
        meshdrone_free(m);
    }
    std::vector<int> differing(4, 0);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < differing.size(); ++t)
        threads.emplace_back([&, t] {
            for (size_t i = 0; i < 3 * kModels.size(); ++i) {
                const size_t k = (i + t) % kModels.size();
                meshdrone_model* m = nullptr;
                if (meshdrone_decode_file(kModels[k].c_str(), &m) != MESHDRONE_OK ||
                    std::vector<float>(m->positions, m->positions + 3 * m->vertex_count) != alone[k])
                    ++differing[t];
                meshdrone_free(m);
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(differing, std::vector<int>(differing.size(), 0));
}

}  // namespace
