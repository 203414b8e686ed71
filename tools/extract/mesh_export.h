#pragma once
// Writers of the decoded mesh in the formats people's tools read.

#include <optional>
#include <string>
#include <string_view>

#include "tools/extract/model_mesh.h"
#include "tools/extract/view3d.h"

namespace extract {

enum class MeshFormat { Glb, Obj, Ply, Stl };

std::optional<MeshFormat> meshFormatFromName(std::string_view name);      // "glb", "obj", ...
std::optional<MeshFormat> meshFormatFromExtension(std::string_view path);  // by the file name's suffix
const char* meshFormatExtension(MeshFormat format);                       // ".glb", ...

struct ExportInfo {
    std::string model_name;  // the name of the node that holds unclaimed triangles
    std::string generator;   // "meshdrone-extract <version>"
    UpAxis up = UpAxis::Z;
    std::vector<ViewCamera> cameras;  // glTF only: the first is the view shown on opening
};

// Writes the mesh to path. On failure returns false with the reason in *error
// and leaves no partial file behind.
bool exportMesh(const ModelMesh& mesh, MeshFormat format, const ExportInfo& info, const std::string& path,
                std::string* error);

// The glTF display colours: the stream's bytes are display (sRGB) values and
// glTF colour attributes are linear.
float srgbByteToLinear(uint8_t value);

}  // namespace extract
