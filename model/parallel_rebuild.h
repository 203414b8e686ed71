#pragma once
// The highly compressed tessellations of a pass rebuilt on every processor
// before the walk that places them.

#include <functional>
#include <vector>

#include "prc/entities/file_structure.h"

namespace model {

// Rebuilds every compressed tessellation of every file structure into its
// rebuilt_compressed entry, on as many threads as there are processors and
// records, and at most threads (0: no bound). A rebuild depends on its record
// alone, so the walk that takes the results in its own order draws exactly
// what it would have drawn by rebuilding each where it meets it. With one
// thread or processor, fewer than two records or too few triangles to be
// worth a thread, or when the entries cannot be allocated, nothing is done
// and the walk rebuilds as before.
void rebuildCompressedTessellations(std::vector<prc::PRCFileStructure>& fileStructures, unsigned threads = 0);

// Calls read(i) for every file structure, in order, on the calling thread
// (where the pass's inflation budget and memo live), and rebuilds the
// compressed tessellations. Once the records read reach kParallelTriangles
// triangles, and when threads and processors allow, the other processors
// rebuild the records of each file structure as soon as it is read, and the
// calling thread joins them after the last; otherwise as
// rebuildCompressedTessellations after the reading. Whatever read throws is
// thrown again once every thread has stopped.
void readAndRebuild(std::vector<prc::PRCFileStructure>& fileStructures, const std::function<void(size_t)>& read,
                    unsigned threads = 0);

}  // namespace model
