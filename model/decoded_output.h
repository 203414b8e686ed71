#pragma once
// A finished preview mesh as the plain heap blocks and part records that the
// process entry writes to the host.

#include <cstddef>

#include "model/assembly.h"
#include "worker/decoded_model.h"

namespace model {

// Fills the mesh blocks, counts and (withRecords) part records of out.
// False only when a mesh block cannot be allocated; out is then all zero.
// Running out of memory for the temporary records escapes as bad_alloc,
// with out's blocks released.
bool buildDecodedOutput(PreviewMesh& mesh, bool withRecords, DecodedModel* out);

// The same with the block allocator given (tests make allocations fail);
// blocks are released with free().
using OutputAllocator = void* (*)(size_t);
bool buildDecodedOutput(PreviewMesh& mesh, bool withRecords, DecodedModel* out, OutputAllocator allocate);

}  // namespace model
