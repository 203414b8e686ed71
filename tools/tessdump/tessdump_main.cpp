// meshdrone-tessdump FILE.prc...
//
// Decodes every highly compressed tessellation of each file and prints, per
// record: file structure, index, triangles, the run that succeeded (first,
// second, tie) or the error, whether every array was used up exactly, the
// boundary edges and the edges used twice in the same direction, with how
// many of those lie between triangles at least two quantisation steps tall
// ("firm": no fold of the quantised points explains them). A summary line per
// file and one over all files follow.

#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

#include "tools/tessdump/tess_inspection.h"

namespace {

struct Summary {
    uint64_t records = 0, first = 0, second = 0, tie = 0, failed = 0, not_consumed = 0;
    uint64_t triangles = 0, boundary = 0, same_direction = 0, firm = 0, collapsed = 0, unreadable_sections = 0;

    void add(const tessdump::RecordReport& r) {
        ++records;
        first += r.run == "first";
        second += r.run == "second";
        tie += r.run == "tie";
        failed += r.run == "error";
        not_consumed += r.run != "error" && !r.consumed_exactly;
        triangles += r.triangles;
        boundary += r.edges.boundary_edges;
        same_direction += r.edges.same_direction_edges;
        firm += r.edges.firm_same_direction_edges;
        collapsed += r.edges.collapsed_triangles;
    }
    void add(const Summary& s) {
        records += s.records, first += s.first, second += s.second, tie += s.tie, failed += s.failed;
        not_consumed += s.not_consumed, triangles += s.triangles, boundary += s.boundary;
        same_direction += s.same_direction, firm += s.firm, collapsed += s.collapsed, unreadable_sections += s.unreadable_sections;
    }
    void print(const char* label) const {
        std::printf(
            "summary %s: records %llu, first %llu, second %llu, tie %llu, failed %llu, not consumed exactly %llu, "
            "triangles %llu, boundary edges %llu, same-direction edges %llu (firm %llu), collapsed triangles %llu, "
            "unreadable sections %llu\n",
            label, (unsigned long long)records, (unsigned long long)first, (unsigned long long)second,
            (unsigned long long)tie, (unsigned long long)failed, (unsigned long long)not_consumed,
            (unsigned long long)triangles, (unsigned long long)boundary, (unsigned long long)same_direction, (unsigned long long)firm,
            (unsigned long long)collapsed, (unsigned long long)unreadable_sections);
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: meshdrone-tessdump FILE.prc...\n");
        return 2;
    }
    Summary all;
    int status = 0;
    for (int a = 1; a < argc; ++a) {
        std::ifstream in(argv[a], std::ios::binary);
        const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (!in.good() && !in.eof()) {
            std::fprintf(stderr, "%s: cannot read\n", argv[a]);
            status = 1;
            continue;
        }
        std::printf("file %s\n", argv[a]);
        Summary file;
        try {
            const prc::PRCHeader header = prc::readPRCHeader(bytes.data(), bytes.size());
            for (size_t f = 0; f < header.file_structures.size(); ++f) {
                std::string error;
                const std::vector<prc::PRC3DTessCompressed> records =
                    tessdump::readCompressedRecords(bytes.data(), bytes.size(), header.file_structures[f], &error);
                if (!error.empty()) {
                    std::printf("  fs %zu: tessellation section: %s\n", f, error.c_str());
                    ++file.unreadable_sections;
                }
                for (size_t i = 0; i < records.size(); ++i) {
                    tessdump::RecordReport r = tessdump::inspectRecord(records[i]);
                    std::printf("  fs %zu record %zu: triangles %llu, run %s%s%s, consumed %s, boundary %llu, "
                                "same-direction %llu (firm %llu)\n",
                                f, i, (unsigned long long)r.triangles, r.run.c_str(), r.error.empty() ? "" : ": ",
                                r.error.c_str(), r.consumed_exactly ? "yes" : "no",
                                (unsigned long long)r.edges.boundary_edges,
                                (unsigned long long)r.edges.same_direction_edges,
                                (unsigned long long)r.edges.firm_same_direction_edges);
                    file.add(r);
                }
            }
        } catch (const std::exception& e) {
            std::printf("  header: %s\n", e.what());
            status = 1;
        }
        file.print(argv[a]);
        all.add(file);
    }
    if (argc > 2) {
        all.print("all files");
    }
    return status;
}
