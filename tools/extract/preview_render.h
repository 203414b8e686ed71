#pragma once
// A preview picture of the decoded mesh: an isometric view fitted to the
// model, or a view of the document as it states it, flat shaded with one
// light, in the vertex colours. Drawn by a small
// software rasterizer with a depth buffer, so it needs no display or GPU.

#include <cstdint>
#include <string>
#include <vector>

#include "tools/extract/mesh_export.h"
#include "tools/extract/model_mesh.h"
#include "tools/extract/view3d.h"

namespace extract {

struct PreviewImage {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> rgb;  // width x height x 3, rows from the top
};

inline constexpr uint8_t kPreviewBackground[3] = {242, 243, 245};

// The isometric view, fitted to the model, on the light grey background.
PreviewImage renderPreview(const ModelMesh& mesh, uint32_t width, uint32_t height, UpAxis up);

// What the view shows: the annotation's rectangle fitted into the picture
// and centred, the view's background (else the light grey one).
PreviewImage renderPreview(const ModelMesh& mesh, uint32_t width, uint32_t height, const View3d& view);

// Writes an 8-bit RGB PNG; false with the reason in *error, no partial file.
bool writePng(const PreviewImage& image, const std::string& path, std::string* error);

}  // namespace extract
