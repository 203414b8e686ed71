// The result stream of every PRC file of the test data, compared with the
// stream recorded in data/streams.tsv (length and CRC-32 of the whole stream):
// any change of a single output byte on real or writer files shows here. A
// change that is meant is recorded anew with MESHDRONE_RECORD_STREAMS=1, and
// the commit says why those streams moved.

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "model/decode_driver.h"
#include "tests/support/worker_runs.h"
#include "worker/worker_entry.h"

namespace {

namespace fs = std::filesystem;

struct Recorded {
    uint64_t bytes = 0;
    uint32_t crc = 0;
    bool operator==(const Recorded&) const = default;
};

Recorded streamOf(const std::vector<uint8_t>& file) {
    DecodedModel model{};
    const bool decoded = decodePrcModel(file.data(), uint32_t(file.size()), &model);
    FILE* out = std::tmpfile();
    EXPECT_NE(out, nullptr);
    if (out == nullptr) return {};
    writeDecodeResult(out, decoded, model);
    std::free(model.positions), std::free(model.triangles), std::free(model.colors), std::free(model.part_records);
    Recorded r;
    r.bytes = uint64_t(std::ftell(out));
    std::rewind(out);
    std::vector<uint8_t> stream(r.bytes);
    EXPECT_EQ(std::fread(stream.data(), 1, stream.size(), out), stream.size());
    std::fclose(out);
    r.crc = uint32_t(crc32_z(0, stream.data(), stream.size()));
    return r;
}

TEST(RecordedStreams, EveryTestFileGivesTheStreamRecordedForIt) {
    const fs::path data(MESHDRONE_TEST_DATA);
    std::map<std::string, Recorded> now;
    for (const fs::path& dir : {data, data / "gen"})
        for (const auto& entry : fs::directory_iterator(dir)) {
            if (entry.path().extension() != ".prc") continue;
            now[fs::relative(entry.path(), data).generic_string()] = streamOf(prc::test::readFile(entry.path()));
        }
    const fs::path table = data / "streams.tsv";
    if (std::getenv("MESHDRONE_RECORD_STREAMS")) {
        std::ofstream out(table);
        for (const auto& [name, r] : now) out << name << '\t' << r.bytes << '\t' << r.crc << '\n';
        GTEST_SKIP() << "recorded " << now.size() << " streams";
    }
    std::map<std::string, Recorded> recorded;
    std::ifstream in(table);
    std::string name;
    Recorded r;
    while (in >> name >> r.bytes >> r.crc) recorded[name] = r;
    ASSERT_EQ(recorded.size(), now.size()) << "files of the test data without a recorded stream, or gone";
    for (const auto& [file, stream] : now) EXPECT_EQ(recorded[file], stream) << file;
}

}  // namespace
