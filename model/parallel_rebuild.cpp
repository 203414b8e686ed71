#include "model/parallel_rebuild.h"

#include <algorithm>
#include <atomic>
#include <exception>

#include "model/assembly.h"
#include "platform/threads.h"

namespace model {

namespace {

struct Job {
    prc::PRCFileStructure* fs;
    size_t record;
    size_t triangles;  // the cost, to start the largest first
};

struct Jobs {
    std::vector<Job> list;
    std::atomic<size_t> next{0};
};

void runJobs(void* context) {
    Jobs& jobs = *static_cast<Jobs*>(context);
    for (size_t i; (i = jobs.next.fetch_add(1, std::memory_order_relaxed)) < jobs.list.size();) {
        const Job& job = jobs.list[i];
        prc::RebuiltCompressedTess& out = job.fs->rebuilt_compressed[job.record];
        try {
            out.geometry = compressedTessGeometry(job.fs->compressed_tessellations[job.record]);
        } catch (...) {
            out.failure = std::current_exception();
        }
    }
}

// Below this a second thread costs more than it saves: starting and joining
// one takes some 50 microseconds, about what rebuilding 300 triangles takes.
// The bound sits well above that.
constexpr uint64_t kParallelTriangles = 8192;

}  // namespace

void rebuildCompressedTessellations(std::vector<prc::PRCFileStructure>& fileStructures, unsigned threads) {
    // The size of the work first: asking the system for its processors reads
    // a file, which costs more than decoding a small model.
    size_t records = 0;
    uint64_t triangles = 0;
    for (const prc::PRCFileStructure& fs : fileStructures) {
        records += fs.compressed_tessellations.size();
        for (const auto& record : fs.compressed_tessellations) triangles += record.triangle_face_array.size();
    }
    if (records < 2 || triangles < kParallelTriangles) return;
    const unsigned processors = threads == 0 ? platformProcessorCount() : std::min(threads, platformProcessorCount());
    if (processors < 2) return;
    Jobs jobs;
    try {
        jobs.list.reserve(records);
        for (prc::PRCFileStructure& fs : fileStructures) {
            fs.rebuilt_compressed.resize(fs.compressed_tessellations.size());
            for (size_t r = 0; r < fs.compressed_tessellations.size(); ++r)
                jobs.list.push_back({&fs, r, fs.compressed_tessellations[r].triangle_face_array.size()});
        }
    } catch (const std::bad_alloc&) {
        for (prc::PRCFileStructure& fs : fileStructures) fs.rebuilt_compressed.clear();
        return;
    }
    // Largest first, so that no thread is left with a large record at the end.
    std::stable_sort(jobs.list.begin(), jobs.list.end(),
                     [](const Job& a, const Job& b) { return a.triangles > b.triangles; });
    platformRunOnThreads(unsigned(std::min<size_t>(processors, jobs.list.size())), runJobs, &jobs);
}

}  // namespace model
