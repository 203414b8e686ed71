#pragma once
// The decode driver behind decodePrcModel: a statistics pass over the
// globals, a structured pass that walks the product structure from the model
// file's roots, and a flat pass that draws every tessellation untransformed
// when the structured pass fails or draws nothing.

#include <cstdint>
#include <vector>

#include "model/assembly.h"
#include "prc/io/bit_reader.h"
#include "prc/io/prc_header.h"
#include "worker/decoded_model.h"

namespace model {

// A root product occurrence named by the model file.
struct ModelFileRoot {
    prc::FileStructureId file_structure{};
    int64_t index_product_occurrence = -1;
};

// The model file section up to its product entries (nothing after them is
// read); entries with no occurrence are left out.
std::vector<ModelFileRoot> readModelFile(prc::PRCBitReader& r);

// The passes on their own. Both fail by exception; the structured pass's
// mesh has nodes, the flat pass's none.
PreviewMesh runStructuredPass(const uint8_t* data, uint64_t size);
PreviewMesh runFlatPass(const uint8_t* data, uint64_t size);

// Which pass produced a successful result.
enum class DecodePass { None, Structured, Flat };

// decodePrcModel, also telling which pass produced the mesh (pass may be null).
bool decodePrcModel(const uint8_t* data, uint64_t size, DecodedModel* out, DecodePass* pass);

}  // namespace model
