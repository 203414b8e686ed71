#pragma once
// What the tessellation dump checks, kept in a header so that the corpus
// tests assert exactly what the tool reports.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "prc/io/inflate_section.h"
#include "prc/io/prc_header.h"
#include "prc/tess/compressed_tess_mesh.h"
#include "prc/tess/tessellation_section.h"

namespace tessdump {

// Edge statistics of a triangle list. A correctly decoded CAD mesh is closed
// or nearly so, and consistently wound: every interior edge is used once in
// each direction.
//
// The format winds a triangle by the side its decoded normal points to, and
// its points are quantised in steps of the record's tolerance: a triangle
// less than a step or two tall can come out folded over its neighbour, its
// winding turned with it, however exactly it is decoded. A same-direction edge
// all of whose triangles stand at least kFirmHeight steps tall has no such
// excuse; those are counted apart.
struct EdgeStats {
    uint64_t boundary_edges = 0;        // undirected edges of exactly one triangle
    uint64_t same_direction_edges = 0;  // directed edges used by more than one triangle
    uint64_t firm_same_direction_edges = 0;  // of those, the ones between triangles kFirmHeight steps tall
    uint64_t collapsed_triangles = 0;   // a point index repeated in one triangle
};

constexpr double kFirmHeight = 2.0;

// The height of triangle t over its longest edge, in units of step.
inline double heightInSteps(const std::vector<double>& positions, const std::vector<uint32_t>& triangles, size_t t,
                            double step) {
    prc::Vec3 p[3];
    for (int k = 0; k < 3; ++k) {
        const double* xyz = &positions[3 * size_t(triangles[3 * t + k])];
        p[k] = {xyz[0], xyz[1], xyz[2]};
    }
    double longest = 0.0;
    for (int k = 0; k < 3; ++k) {
        const prc::Vec3 e = prc::sub(p[(k + 1) % 3], p[k]);
        longest = std::max(longest, prc::dot(e, e));
    }
    const prc::Vec3 n = prc::cross(prc::sub(p[1], p[0]), prc::sub(p[2], p[0]));
    return longest > 0.0 ? std::sqrt(prc::dot(n, n)) / std::sqrt(longest) / step : 0.0;
}

// positions are those the triangles index (a decoding run's result) and step
// the record's tolerance.
inline EdgeStats edgeStats(const std::vector<uint32_t>& triangles, const std::vector<double>& positions,
                           double step) {
    struct Directed {
        uint64_t key;
        uint32_t triangle;
        bool operator<(const Directed& o) const { return key < o.key; }
    };
    std::vector<Directed> directed;
    directed.reserve(triangles.size());
    EdgeStats stats;
    for (size_t t = 0; t + 2 < triangles.size(); t += 3) {
        const uint32_t c[3] = {triangles[t], triangles[t + 1], triangles[t + 2]};
        if (c[0] == c[1] || c[1] == c[2] || c[0] == c[2]) {
            ++stats.collapsed_triangles;
            continue;
        }
        for (int k = 0; k < 3; ++k) {
            directed.push_back({(uint64_t(c[k]) << 32) | c[(k + 1) % 3], uint32_t(t / 3)});
        }
    }
    std::sort(directed.begin(), directed.end());
    for (size_t i = 0; i < directed.size();) {
        size_t j = i;
        bool firm = true;
        while (j < directed.size() && directed[j].key == directed[i].key) {
            if (heightInSteps(positions, triangles, directed[j].triangle, step) < kFirmHeight) {
                firm = false;
            }
            ++j;
        }
        if (j - i > 1) {
            ++stats.same_direction_edges;
            stats.firm_same_direction_edges += firm;
        }
        i = j;
    }
    std::vector<uint64_t> undirected;
    undirected.reserve(directed.size());
    for (const Directed& d : directed) {
        const uint32_t a = uint32_t(d.key >> 32);
        const uint32_t b = uint32_t(d.key);
        undirected.push_back(a < b ? (uint64_t(a) << 32) | b : (uint64_t(b) << 32) | a);
    }
    std::sort(undirected.begin(), undirected.end());
    for (size_t i = 0; i < undirected.size();) {
        size_t j = i;
        while (j < undirected.size() && undirected[j] == undirected[i]) {
            ++j;
        }
        stats.boundary_edges += (j - i == 1);
        i = j;
    }
    return stats;
}

struct RecordReport {
    uint32_t file_structure = 0;
    uint32_t index = 0;            // position in the file structure's compressed list
    uint64_t triangles = 0;
    std::string run;               // "first", "second", "tie" or "error"
    std::string error;
    bool consumed_exactly = false;
    EdgeStats edges;
};

// The compressed records of one file structure, read from its tessellation
// section (section 3, bounded by offsets 3 and 4).
inline std::vector<prc::PRC3DTessCompressed> readCompressedRecords(const uint8_t* data, uint64_t size,
                                                                   const prc::FileStructureDescriptor& fs,
                                                                   std::string* error) {
    std::vector<prc::PRC3DTessCompressed> records;
    try {
        if (fs.offsets.size() < 5 || fs.offsets[4] < fs.offsets[3] || fs.offsets[4] > size) {
            throw std::runtime_error("no tessellation section");
        }
        const uint64_t head = prc::readFileStructureHeader(data, size, fs.offsets[0]);
        const uint32_t minimal = uint32_t(head);
        const uint32_t authoring = uint32_t(head >> 32);
        const std::vector<uint8_t> section =
            prc::inflateSection(data + fs.offsets[3], uint64_t(fs.offsets[4]) - fs.offsets[3]);
        prc::readFileStructureTessellation(section.data(), section.size(), minimal, authoring, records, nullptr);
    } catch (const std::exception& e) {
        if (error != nullptr) {
            *error = e.what();
        }
    }
    return records;
}

inline RecordReport inspectRecord(const prc::PRC3DTessCompressed& record) {
    RecordReport report;
    try {
        prc::CompressedTessRun run = prc::CompressedTessRun::First;
        const prc::CompressedTessResult result = prc::buildCompressedTessMesh(record, &run);
        report.run = run == prc::CompressedTessRun::First    ? "first"
                     : run == prc::CompressedTessRun::Second ? "second"
                                                             : "tie";
        report.triangles = result.triangles.size() / 3;
        report.consumed_exactly = prc::consumedExactly(result, record);
        report.edges = edgeStats(result.triangles, result.positions, record.tolerance);
    } catch (const std::exception& e) {
        report.run = "error";
        report.error = e.what();
    }
    return report;
}

}  // namespace tessdump
