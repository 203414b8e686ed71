#include "tools/tessdump/tess_inspection.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <stdexcept>

#include "prc/io/inflate_section.h"
#include "prc/tess/face_triangulation.h"

namespace tessdump {

namespace {

// The height of triangle t over its longest edge, in units of step.
double heightInSteps(const std::vector<double>& positions, const std::vector<uint32_t>& triangles, size_t t,
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

prc::Vec3 vectorAt(const std::vector<double>& coordinates, uint64_t index) {
    if (index + 3 > coordinates.size()) return {0.0, 0.0, 0.0};
    return {coordinates[index], coordinates[index + 1], coordinates[index + 2]};
}

}  // namespace

EdgeStats edgeStats(const std::vector<uint32_t>& triangles, const std::vector<double>& positions, double step) {
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
        for (int k = 0; k < 3; ++k) directed.push_back({(uint64_t(c[k]) << 32) | c[(k + 1) % 3], uint32_t(t / 3)});
    }
    std::sort(directed.begin(), directed.end());
    for (size_t i = 0; i < directed.size();) {
        size_t j = i;
        bool firm = true;
        for (; j < directed.size() && directed[j].key == directed[i].key; ++j)
            if (heightInSteps(positions, triangles, directed[j].triangle, step) < kFirmHeight) firm = false;
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
        while (j < undirected.size() && undirected[j] == undirected[i]) ++j;
        stats.boundary_edges += (j - i == 1);
        i = j;
    }
    return stats;
}

void readTessellations(const uint8_t* data, uint64_t size, const prc::FileStructureDescriptor& fs,
                       std::vector<prc::PRC3DTess>* plain, std::vector<prc::PRC3DTessCompressed>* compressed,
                       std::string* error) {
    std::vector<prc::PRC3DTessCompressed> ignored;
    try {
        if (fs.offsets.size() < 5 || fs.offsets[4] < fs.offsets[3] || fs.offsets[4] > size)
            throw std::runtime_error("no tessellation section");
        const uint64_t head = prc::readFileStructureHeader(data, size, fs.offsets[0]);
        const prc::InflatedSection section =
            prc::inflateSection(data + fs.offsets[3], uint64_t(fs.offsets[4]) - fs.offsets[3]);
        std::vector<prc::PRC3DTess> tess = prc::readFileStructureTessellation(
            section.data(), section.size(), uint32_t(head), uint32_t(head >> 32), compressed ? *compressed : ignored,
            nullptr);
        if (plain) *plain = std::move(tess);
    } catch (const std::exception& e) {
        if (error) *error = e.what();
    }
}

RecordReport inspectRecord(const prc::PRC3DTessCompressed& record) {
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

PlainReport inspectPlain(const prc::PRC3DTess& tess) {
    PlainReport report;
    const std::vector<uint32_t>& indices = tess.triangulated_indices;
    report.index_values = indices.size();
    std::vector<uint8_t> faces_using(indices.size(), 0);  // saturates at 2
    std::vector<uint64_t> tuples;  // the first value of each tuple one face reaches
    std::vector<uint32_t> triangles;
    for (const prc::PRCTessFace& face : tess.faces) {
        if (!prc::isDrawnFace(face.used_entities_flag)) continue;
        const uint64_t stride = prc::vertexStride(tess, face.used_entities_flag);
        tuples.clear();
        prc::forEachFaceTriangle(tess, face, [&](const uint64_t position[3], const uint64_t*) {
            if (position[0] >= indices.size() || position[1] >= indices.size() || position[2] >= indices.size()) {
                report.ran_out = true;
                return false;
            }
            const uint64_t vertices = tess.coordinates.size() / 3;
            for (int m = 0; m < 3; ++m) tuples.push_back(position[m] + 1 - stride);
            // The piece leaves out a triangle naming a vertex it does not have.
            if (indices[position[0]] / 3 >= vertices || indices[position[1]] / 3 >= vertices ||
                indices[position[2]] / 3 >= vertices)
                return true;
            prc::Vec3 normals{0.0, 0.0, 0.0};
            for (int m = 0; m < 3; ++m) {
                const uint64_t tuple = position[m] + 1 - stride;
                triangles.push_back(indices[position[m]] / 3);
                // The normal index leads the tuple when the file stores normals.
                if (!tess.must_recalculate_normals) normals = prc::add(normals, vectorAt(tess.normal_coordinates, indices[tuple]));
            }
            const size_t t = triangles.size() - 3;
            const prc::Vec3 a = vectorAt(tess.coordinates, 3 * uint64_t(triangles[t]));
            const prc::Vec3 b = vectorAt(tess.coordinates, 3 * uint64_t(triangles[t + 1]));
            const prc::Vec3 c = vectorAt(tess.coordinates, 3 * uint64_t(triangles[t + 2]));
            if (!tess.must_recalculate_normals && prc::dot(prc::cross(prc::sub(b, a), prc::sub(c, a)), normals) < 0.0)
                ++report.against_normals;
            return true;
        });
        // A strip's tuples serve up to three triangles: count each once per face.
        std::sort(tuples.begin(), tuples.end());
        tuples.erase(std::unique(tuples.begin(), tuples.end()), tuples.end());
        for (uint64_t tuple : tuples)
            for (uint64_t v = tuple; v < tuple + stride; ++v) faces_using[v] = uint8_t(std::min(faces_using[v] + 1, 2));
    }
    for (uint8_t uses : faces_using) {
        report.used_once += uses == 1;
        report.unused += uses == 0;
    }
    report.triangles = triangles.size() / 3;
    report.edges = edgeStats(triangles, tess.coordinates, 1.0);
    return report;
}

}  // namespace tessdump
