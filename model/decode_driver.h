#pragma once
// The decode driver behind decodePrcModel: a statistics pass over the
// globals, a structured pass that walks the product structure from the model
// file's roots, and a flat pass that draws every tessellation untransformed
// when the structured pass fails or draws nothing.

#include <cstdint>
#include <functional>
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

// Called by the structured pass for every file structure once it is read,
// before the walk: where the exact decoder gives it its exact pieces.
using FileStructureHook = std::function<void(const prc::PRCHeader&, size_t index, prc::PRCFileStructure&)>;

// The passes on their own. Both fail by exception; the structured pass's
// mesh has nodes, the flat pass's none.
// threads: how many the pass may use at most, 0 for one per processor.
PreviewMesh runStructuredPass(const uint8_t* data, uint64_t size, unsigned threads = 0,
                              const FileStructureHook& hook = {});
PreviewMesh runFlatPass(const uint8_t* data, uint64_t size);

// What every result reports besides its mesh: the first header's numbers
// and the colours, materials and styles of every globals section.
struct HeaderStatistics {
    uint32_t minimal_version_for_read = 0;
    uint32_t authoring_version = 0;
    uint32_t number_of_file_structures = 0;
    uint32_t color_count = 0;
    uint32_t material_count = 0;
    uint32_t style_count = 0;
};

// The statistics pass; false when the header cannot be read (outcome 2).
bool readHeaderStatistics(const uint8_t* data, uint64_t size, HeaderStatistics& stats);

// The result of a pass's mesh: the output blocks, the part records when
// withRecords, the statistics. False with out's outcome set when the blocks
// cannot be built.
bool finishDecodedModel(PreviewMesh& mesh, bool withRecords, const HeaderStatistics& stats, DecodedModel* out);

// Which pass produced a successful result.
enum class DecodePass { None, Structured, Flat };

// decodePrcModel, also telling which pass produced the mesh (pass may be
// null), on at most threads threads (0: one per processor).
bool decodePrcModel(const uint8_t* data, uint64_t size, DecodedModel* out, DecodePass* pass, unsigned threads = 0);

}  // namespace model
