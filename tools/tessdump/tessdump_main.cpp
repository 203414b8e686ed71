// meshdrone-tessdump FILE.prc...
//
// Decodes every tessellation of each file and prints one line per record.
// Highly compressed records: file structure, index, triangles, the run that
// succeeded (first, second, tie) or the error, whether every array was used up
// exactly, the boundary edges and the edges used twice in the same direction,
// with how many of those lie between triangles at least two quantisation
// steps tall ("firm": no fold of the quantised points explains them). Plain
// records: triangles, how many index values belong to exactly one face and how
// many to none, whether a face ran past the index list, the boundary and
// same-direction edges, and the triangles wound against their vertex normals.
// A summary line per file and one over all files follow.

#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

#include "tools/tessdump/tess_inspection.h"

namespace {

using ull = unsigned long long;

struct Summary {
    uint64_t records = 0, first = 0, second = 0, tie = 0, failed = 0, not_consumed = 0;
    uint64_t triangles = 0, boundary = 0, same_direction = 0, firm = 0, collapsed = 0, unreadable_sections = 0;
    uint64_t plain = 0, plain_triangles = 0, index_values = 0, used_once = 0, ran_out = 0, plain_boundary = 0,
             plain_same_direction = 0, against_normals = 0;

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
    void add(const tessdump::PlainReport& r) {
        ++plain;
        plain_triangles += r.triangles;
        index_values += r.index_values;
        used_once += r.used_once;
        ran_out += r.ran_out;
        plain_boundary += r.edges.boundary_edges;
        plain_same_direction += r.edges.same_direction_edges;
        against_normals += r.against_normals;
    }
    void add(const Summary& s) {
        records += s.records, first += s.first, second += s.second, tie += s.tie, failed += s.failed;
        not_consumed += s.not_consumed, triangles += s.triangles, boundary += s.boundary;
        same_direction += s.same_direction, firm += s.firm, collapsed += s.collapsed;
        unreadable_sections += s.unreadable_sections;
        plain += s.plain, plain_triangles += s.plain_triangles, index_values += s.index_values;
        used_once += s.used_once, ran_out += s.ran_out, plain_boundary += s.plain_boundary;
        plain_same_direction += s.plain_same_direction, against_normals += s.against_normals;
    }
    void print(const char* label) const {
        std::printf(
            "summary %s: records %llu, first %llu, second %llu, tie %llu, failed %llu, not consumed exactly %llu, "
            "triangles %llu, boundary edges %llu, same-direction edges %llu (firm %llu), collapsed triangles %llu, "
            "unreadable sections %llu\n",
            label, ull(records), ull(first), ull(second), ull(tie), ull(failed), ull(not_consumed), ull(triangles),
            ull(boundary), ull(same_direction), ull(firm), ull(collapsed), ull(unreadable_sections));
        std::printf(
            "summary %s: plain records %llu, triangles %llu, index values used once %llu of %llu, ran out %llu, "
            "boundary edges %llu, same-direction edges %llu, against normals %llu\n",
            label, ull(plain), ull(plain_triangles), ull(used_once), ull(index_values), ull(ran_out),
            ull(plain_boundary), ull(plain_same_direction), ull(against_normals));
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
                std::vector<prc::PRC3DTess> plain;
                std::vector<prc::PRC3DTessCompressed> records;
                tessdump::readTessellations(bytes.data(), bytes.size(), header.file_structures[f], &plain, &records,
                                            &error);
                if (!error.empty()) {
                    std::printf("  fs %zu: tessellation section: %s\n", f, error.c_str());
                    ++file.unreadable_sections;
                }
                for (size_t i = 0; i < plain.size(); ++i) {
                    const tessdump::PlainReport r = tessdump::inspectPlain(plain[i]);
                    std::printf("  fs %zu plain %zu: triangles %llu, index values used once %llu of %llu, unused %llu, "
                                "ran out %s, boundary %llu, same-direction %llu, against normals %llu\n",
                                f, i, ull(r.triangles), ull(r.used_once), ull(r.index_values), ull(r.unused),
                                r.ran_out ? "yes" : "no", ull(r.edges.boundary_edges),
                                ull(r.edges.same_direction_edges), ull(r.against_normals));
                    file.add(r);
                }
                for (size_t i = 0; i < records.size(); ++i) {
                    const tessdump::RecordReport r = tessdump::inspectRecord(records[i]);
                    std::printf("  fs %zu record %zu: triangles %llu, run %s%s%s, consumed %s, boundary %llu, "
                                "same-direction %llu (firm %llu)\n",
                                f, i, ull(r.triangles), r.run.c_str(), r.error.empty() ? "" : ": ", r.error.c_str(),
                                r.consumed_exactly ? "yes" : "no", ull(r.edges.boundary_edges),
                                ull(r.edges.same_direction_edges), ull(r.edges.firm_same_direction_edges));
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
    if (argc > 2) all.print("all files");
    return status;
}
