#include "model/parallel_rebuild.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <memory>

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

void rebuild(prc::PRCFileStructure& fs, size_t record) {
    prc::RebuiltCompressedTess& out = fs.rebuilt_compressed[record];
    try {
        out.geometry = compressedTessGeometry(fs.compressed_tessellations[record]);
    } catch (...) {
        out.failure = std::current_exception();
    }
}

void runJobs(void* context) {
    Jobs& jobs = *static_cast<Jobs*>(context);
    for (size_t i; (i = jobs.next.fetch_add(1, std::memory_order_relaxed)) < jobs.list.size();)
        rebuild(*jobs.list[i].fs, jobs.list[i].record);
}

// The reading thread publishes each file structure once read (its records
// and their entries in place); every thread claims records of the published
// ones through the file structure's counter.
struct Pipeline {
    std::vector<prc::PRCFileStructure>& fs;
    const std::function<void(size_t)>& read;
    std::unique_ptr<std::atomic<size_t>[]> next;
    std::atomic<size_t> published;
    std::atomic<bool> done{false};
    std::exception_ptr failure;
};

thread_local bool readingThread = false;

// Entries for the records of a file structure read; without memory for
// them the walk rebuilds those records itself.
void prepareEntries(prc::PRCFileStructure& fs) {
    try {
        fs.rebuilt_compressed.resize(fs.compressed_tessellations.size());
    } catch (const std::bad_alloc&) {
        fs.rebuilt_compressed.clear();
    }
}

void produce(Pipeline& p) {
    for (size_t i = p.published.load(std::memory_order_relaxed); i < p.fs.size(); ++i) {
        try {
            p.read(i);
        } catch (...) {
            p.failure = std::current_exception();
            break;
        }
        prepareEntries(p.fs[i]);
        p.published.store(i + 1, std::memory_order_release);
    }
    p.done.store(true, std::memory_order_release);
}

void consume(Pipeline& p) {
    for (size_t f = 0;;) {
        const bool done = p.done.load(std::memory_order_acquire);
        const size_t published = p.published.load(std::memory_order_acquire);
        bool found = false;
        while (f < published && !found) {
            const size_t r = p.next[f].fetch_add(1, std::memory_order_relaxed);
            if (r < p.fs[f].rebuilt_compressed.size()) {
                rebuild(p.fs[f], r);
                found = true;
            } else {
                ++f;
            }
        }
        if (found) continue;
        if (done) return;  // and everything published before done was seen
        platformYield();
    }
}

void runPipeline(void* context) {
    Pipeline& p = *static_cast<Pipeline*>(context);
    if (readingThread) produce(p);
    if (!p.failure) consume(p);
}

uint64_t compressedTriangles(const prc::PRCFileStructure& fs) {
    uint64_t triangles = 0;
    for (const auto& record : fs.compressed_tessellations) triangles += record.triangle_face_array.size();
    return triangles;
}

// The threads to use: every processor, or at most threads when that is not 0.
unsigned threadsFor(unsigned threads) {
    return threads == 0 ? platformProcessorCount() : std::min(threads, platformProcessorCount());
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
        triangles += compressedTriangles(fs);
    }
    if (records < 2 || triangles < kParallelTriangles) return;
    const unsigned processors = threadsFor(threads);
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

void readAndRebuild(std::vector<prc::PRCFileStructure>& fileStructures, const std::function<void(size_t)>& read,
                    unsigned threads) {
    // Read alone until the records are worth a thread: a model without many
    // compressed triangles never starts one (nor asks for the processors).
    size_t read_count = 0;
    for (uint64_t triangles = 0; read_count < fileStructures.size() && triangles < kParallelTriangles;) {
        read(read_count);
        triangles += compressedTriangles(fileStructures[read_count++]);
    }
    const unsigned processors = read_count == fileStructures.size() || threads == 1 ? 1 : threadsFor(threads);
    if (processors < 2) {
        for (; read_count < fileStructures.size(); ++read_count) read(read_count);
        rebuildCompressedTessellations(fileStructures, threads);
        return;
    }
    for (size_t i = 0; i < read_count; ++i) prepareEntries(fileStructures[i]);
    Pipeline p{fileStructures, read, std::make_unique<std::atomic<size_t>[]>(fileStructures.size()), read_count, {},
               {}};
    readingThread = true;
    platformRunOnThreads(processors, runPipeline, &p);
    readingThread = false;
    if (p.failure) std::rethrow_exception(p.failure);
}

}  // namespace model
