// The tree section reader, then the assembly walk from the first occurrences
// over what it read, one triangle standing behind tessellation 0.

#include <exception>

#include "fuzz/fuzz_input.h"
#include "model/assembly.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    prc::PRCBitReader r(data + 1, size - 1, fuzz::version(data[0]));
    try {
        prc::PRCFileStructureTree tree = prc::readFileStructureTree(r);
        model::AssemblyContext ctx;
        // A tenth of the worker's bounds: an input that reaches them costs a
        // tenth of the time. The full bounds are the hostile-input suite's.
        ctx.limits = {model::kMaxAssemblyNodes / 10, model::kMaxAssemblyTriangles / 10,
                      model::kMaxAssemblyVertices / 10, model::kMaxAssemblySteps / 10};
        ctx.header.file_structures.resize(1);
        prc::PRCFileStructure& fs = ctx.file_structures.emplace_back();
        fs.part_definitions = std::move(tree.part_definitions);
        fs.product_occurrences = std::move(tree.product_occurrences);
        fs.tree_loaded = true;
        prc::PRC3DTess& tess = fs.tessellations.emplace_back();
        tess.coordinates = {0, 0, 0, 1, 0, 0, 0, 1, 0};
        tess.triangulated_indices = {0, 3, 6};
        tess.faces.push_back({.used_entities_flag = 0x0002, .sizes_triangulated = {1}});
        fs.tessellation_refs = {{prc::TessellationKind::Tess3D, 0}};
        model::PreviewMesh mesh;
        for (int64_t root = 0; root < 4; ++root)
            model::assembleOccurrence(ctx, 0, root, 0xFFFFFFFF, prc::kIdentityMatrix.data(), 0, 0, mesh);
    } catch (const std::exception&) {
    }
    return 0;
}
