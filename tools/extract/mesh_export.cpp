#include "tools/extract/mesh_export.h"

#include <tiny_gltf.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>
#include <sstream>

#include "tools/extract/output_file.h"

namespace extract {

std::optional<MeshFormat> meshFormatFromName(std::string_view name) {
    if (name == "glb" || name == "gltf") return MeshFormat::Glb;
    if (name == "obj") return MeshFormat::Obj;
    if (name == "ply") return MeshFormat::Ply;
    if (name == "stl") return MeshFormat::Stl;
    return std::nullopt;
}

std::optional<MeshFormat> meshFormatFromExtension(std::string_view path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash)) return std::nullopt;
    std::string suffix(path.substr(dot + 1));
    for (char& c : suffix) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (suffix == "gltf") return std::nullopt;  // we write the binary form only
    return meshFormatFromName(suffix);
}

const char* meshFormatExtension(MeshFormat format) {
    switch (format) {
        case MeshFormat::Glb: return ".glb";
        case MeshFormat::Obj: return ".obj";
        case MeshFormat::Ply: return ".ply";
        case MeshFormat::Stl: return ".stl";
    }
    return ".glb";
}

float srgbByteToLinear(uint8_t value) {
    const double c = value / 255.0;
    return static_cast<float>(c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4));
}

namespace {

// The triangles that one output node draws: a range of the stream, or an
// explicit list (the triangles that no part claimed).
struct TriangleSet {
    uint32_t first = 0;
    uint32_t count = 0;
    const std::vector<uint32_t>* list = nullptr;

    uint32_t size() const { return list != nullptr ? static_cast<uint32_t>(list->size()) : count; }
    uint32_t at(uint32_t i) const { return list != nullptr ? (*list)[i] : first + i; }
};

// Appends the bytes of a trivially copyable value to a byte vector.
template <typename T>
void appendBytes(std::vector<unsigned char>& out, const T& value) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&value);
    out.insert(out.end(), bytes, bytes + sizeof(T));
}

class GlbBuilder {
public:
    GlbBuilder(const ModelMesh& mesh, const ExportInfo& info) : mesh_(mesh), info_(info) {
        remap_.assign(mesh.vertexCount(), kUnmapped);
        for (int i = 0; i < 256; ++i) linear_[i] = srgbByteToLinear(static_cast<uint8_t>(i));
    }

    tinygltf::Model build() {
        tinygltf::Model model;
        model.asset.version = "2.0";
        model.asset.generator = info_.generator;

        tinygltf::Material material;
        material.name = "vertex colours";
        // CAD colours are meant as they are: a rough dielectric shows them
        // without the highlights of a metal.
        material.pbrMetallicRoughness.baseColorFactor = {1.0, 1.0, 1.0, 1.0};
        material.pbrMetallicRoughness.metallicFactor = 0.0;
        material.pbrMetallicRoughness.roughnessFactor = 0.8;
        // Triangle winding in PRC data is not reliable enough for culling.
        material.doubleSided = true;
        model.materials.push_back(material);

        tinygltf::Scene scene;
        scene.name = info_.model_name;
        for (size_t i = 0; i < mesh_.parts.size(); ++i) {
            const ModelPart& part = mesh_.parts[i];
            tinygltf::Node node;
            node.name = toValidUtf8(part.name);
            node.mesh = addMesh(model, node.name, TriangleSet{part.first_triangle, part.triangle_count, nullptr});
            model.nodes.push_back(node);
            if (part.parent != kNoParent && part.parent < i) {
                model.nodes[part.parent].children.push_back(static_cast<int>(i));
            } else {
                scene.nodes.push_back(static_cast<int>(i));
            }
        }
        const std::vector<uint32_t> rest = unclaimedTriangles(mesh_);
        if (!rest.empty()) {
            tinygltf::Node node;
            node.name = toValidUtf8(mesh_.parts.empty() ? info_.model_name : info_.model_name + " (unassigned)");
            node.mesh = addMesh(model, node.name, TriangleSet{0, 0, &rest});
            scene.nodes.push_back(static_cast<int>(model.nodes.size()));
            model.nodes.push_back(node);
        }
        if (!info_.cameras.empty()) {
            // The cameras hang under one node of their own, which the up
            // axis turns with the model.
            tinygltf::Node views;
            views.name = "views";
            const int viewsNode = static_cast<int>(model.nodes.size());
            model.nodes.push_back(views);
            scene.nodes.push_back(viewsNode);
            for (const ViewCamera& view : info_.cameras) {
                tinygltf::Camera camera;
                camera.name = toValidUtf8(view.name);
                if (view.perspective) {
                    camera.type = "perspective";
                    camera.perspective.yfov = view.yfov;
                    camera.perspective.aspectRatio = view.aspect_ratio;
                    camera.perspective.znear = view.znear;
                    camera.perspective.zfar = view.zfar;
                } else {
                    camera.type = "orthographic";
                    camera.orthographic.xmag = view.xmag;
                    camera.orthographic.ymag = view.ymag;
                    camera.orthographic.znear = view.znear;
                    camera.orthographic.zfar = view.zfar;
                }
                tinygltf::Node node;
                node.name = camera.name;
                node.camera = static_cast<int>(model.cameras.size());
                node.translation.assign(view.translation, view.translation + 3);
                node.rotation.assign(view.rotation, view.rotation + 4);
                model.cameras.push_back(camera);
                model.nodes[viewsNode].children.push_back(static_cast<int>(model.nodes.size()));
                model.nodes.push_back(node);
            }
        }
        if (info_.up == UpAxis::Z) {
            // A quarter turn about X, -90 degrees, takes +Z to +Y.
            const double h = std::sqrt(0.5);
            for (int root : scene.nodes) model.nodes[root].rotation = {-h, 0.0, 0.0, h};
        }
        model.scenes.push_back(scene);
        model.defaultScene = 0;

        if (!positions_.empty()) {
            // One buffer, three views: positions, colours, indices. Each
            // block starts on a 4-byte boundary as accessors require.
            tinygltf::Buffer buffer;
            buffer.data = std::move(positions_);
            const size_t colorOffset = buffer.data.size();
            buffer.data.insert(buffer.data.end(), colors_.begin(), colors_.end());
            const size_t indexOffset = buffer.data.size();
            buffer.data.insert(buffer.data.end(), indices_.begin(), indices_.end());
            addView(model, 0, colorOffset, 12, TINYGLTF_TARGET_ARRAY_BUFFER);
            addView(model, colorOffset, indexOffset - colorOffset, 12, TINYGLTF_TARGET_ARRAY_BUFFER);
            addView(model, indexOffset, buffer.data.size() - indexOffset, 0, TINYGLTF_TARGET_ELEMENT_ARRAY_BUFFER);
            model.buffers.push_back(std::move(buffer));
        }
        return model;
    }

private:
    static constexpr uint32_t kUnmapped = 0xFFFFFFFF;
    static constexpr int kPositionView = 0, kColorView = 1, kIndexView = 2;

    static void addView(tinygltf::Model& model, size_t offset, size_t length, int stride, int target) {
        tinygltf::BufferView view;
        view.buffer = 0;
        view.byteOffset = offset;
        view.byteLength = length;
        view.byteStride = stride;  // several accessors share the attribute views
        view.target = target;
        model.bufferViews.push_back(view);
    }

    // A mesh of the node's own triangles with its own compact vertex list, so
    // that importers which copy whole accessors per mesh copy only its vertices.
    int addMesh(tinygltf::Model& model, const std::string& name, const TriangleSet& set) {
        const uint32_t vertexCount = mesh_.vertexCount();
        std::vector<uint32_t> local;  // this mesh's vertices, as stream indices
        std::vector<uint32_t> corners;
        for (uint32_t i = 0; i < set.size(); ++i) {
            const uint32_t t = set.at(i);
            if (t >= mesh_.triangleCount()) continue;
            const uint32_t* tri = &mesh_.triangles[size_t{t} * 3];
            if (tri[0] >= vertexCount || tri[1] >= vertexCount || tri[2] >= vertexCount) continue;
            for (int k = 0; k < 3; ++k) {
                if (remap_[tri[k]] == kUnmapped) {
                    remap_[tri[k]] = static_cast<uint32_t>(local.size());
                    local.push_back(tri[k]);
                }
                corners.push_back(remap_[tri[k]]);
            }
        }
        for (uint32_t v : local) remap_[v] = kUnmapped;
        if (corners.empty()) return -1;

        const size_t positionOffset = positions_.size();
        const size_t colorOffset = colors_.size();
        // glTF wants the bounds of every position accessor; JSON has no
        // spelling for a coordinate that is not finite, so those stay out.
        std::vector<double> lo(3, 0.0), hi(3, 0.0);
        bool bounded[3] = {false, false, false};
        for (size_t i = 0; i < local.size(); ++i) {
            const float* p = &mesh_.positions[size_t{local[i]} * 3];
            for (int axis = 0; axis < 3; ++axis) {
                appendBytes(positions_, p[axis]);
                if (!std::isfinite(p[axis])) continue;
                if (!bounded[axis] || p[axis] < lo[axis]) lo[axis] = p[axis];
                if (!bounded[axis] || p[axis] > hi[axis]) hi[axis] = p[axis];
                bounded[axis] = true;
            }
            const size_t c = size_t{local[i]} * 3;
            for (int k = 0; k < 3; ++k) {
                appendBytes(colors_, c + k < mesh_.colors.size() ? linear_[mesh_.colors[c + k]] : 1.0f);
            }
        }
        const size_t indexOffset = indices_.size();
        const bool narrow = local.size() <= 0xFFFF;
        for (uint32_t corner : corners) {
            if (narrow) {
                appendBytes(indices_, static_cast<uint16_t>(corner));
            } else {
                appendBytes(indices_, corner);
            }
        }
        while (indices_.size() % 4 != 0) indices_.push_back(0);

        tinygltf::Accessor position;
        position.bufferView = kPositionView;
        position.byteOffset = positionOffset;
        position.componentType = TINYGLTF_COMPONENT_TYPE_FLOAT;
        position.type = TINYGLTF_TYPE_VEC3;
        position.count = local.size();
        position.minValues = lo;
        position.maxValues = hi;
        tinygltf::Accessor color = position;
        color.bufferView = kColorView;
        color.byteOffset = colorOffset;
        color.minValues.clear();
        color.maxValues.clear();
        tinygltf::Accessor index;
        index.bufferView = kIndexView;
        index.byteOffset = indexOffset;
        index.componentType = narrow ? TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT : TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT;
        index.type = TINYGLTF_TYPE_SCALAR;
        index.count = corners.size();

        tinygltf::Primitive primitive;
        primitive.mode = TINYGLTF_MODE_TRIANGLES;
        primitive.material = 0;
        primitive.attributes["POSITION"] = static_cast<int>(model.accessors.size());
        model.accessors.push_back(position);
        primitive.attributes["COLOR_0"] = static_cast<int>(model.accessors.size());
        model.accessors.push_back(color);
        primitive.indices = static_cast<int>(model.accessors.size());
        model.accessors.push_back(index);

        tinygltf::Mesh out;
        out.name = name;
        out.primitives.push_back(primitive);
        model.meshes.push_back(out);
        return static_cast<int>(model.meshes.size() - 1);
    }

    const ModelMesh& mesh_;
    const ExportInfo& info_;
    std::vector<uint32_t> remap_;
    std::array<float, 256> linear_;
    std::vector<unsigned char> positions_, colors_, indices_;
};

bool writeGlb(const ModelMesh& mesh, const ExportInfo& info, OutputFile& file, std::string* error) {
    const tinygltf::Model model = GlbBuilder(mesh, info).build();
    std::ostringstream stream;
    tinygltf::TinyGLTF writer;
    if (!writer.WriteGltfSceneToStream(&model, stream, false, true)) {
        *error = "cannot build the glTF data for " + file.path();
        return false;
    }
    file.write(stream.str());
    return true;
}

// Bytes go out in large blocks: the formats below are written element by
// element and stdio's own buffer is small.
class BlockWriter {
public:
    explicit BlockWriter(OutputFile& file) : file_(file) { block_.reserve(kBlock + 256); }
    ~BlockWriter() { flush(); }
    void text(std::string_view s) {
        block_.append(s);
        if (block_.size() >= kBlock) flush();
    }
    template <typename T>
    void raw(const T& value) {
        block_.append(reinterpret_cast<const char*>(&value), sizeof(T));
        if (block_.size() >= kBlock) flush();
    }
    void number(float value) {
        char buffer[32];
        const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
        block_.append(buffer, result.ptr);
    }
    void number(uint64_t value) {
        char buffer[24];
        const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
        block_.append(buffer, result.ptr);
    }
    void flush() {
        file_.write(block_);
        block_.clear();
    }

private:
    static constexpr size_t kBlock = 1 << 20;
    OutputFile& file_;
    std::string block_;
};

// OBJ object names end at white space; slashes join the names on the path
// from the root, since the format has no hierarchy of its own.
std::string objName(const std::string& name) {
    std::string out = toValidUtf8(name);
    for (char& c : out) {
        if (static_cast<unsigned char>(c) <= ' ' || c == 0x7F) c = '_';
    }
    return out;
}

void writeObj(const ModelMesh& mesh, const ExportInfo& info, OutputFile& file) {
    BlockWriter out(file);
    out.text("# " + info.generator + "\n# " + objName(info.model_name) + "\n");
    out.text("# vertex colours follow the positions (r g b from 0 to 1)\n");
    const uint32_t vertexCount = mesh.vertexCount();
    for (uint32_t v = 0; v < vertexCount; ++v) {
        out.text("v");
        for (int axis = 0; axis < 3; ++axis) {
            out.text(" ");
            out.number(mesh.positions[size_t{v} * 3 + axis]);
        }
        for (int k = 0; k < 3; ++k) {
            const size_t c = size_t{v} * 3 + k;
            out.text(" ");
            out.number(c < mesh.colors.size() ? mesh.colors[c] / 255.0f : 1.0f);
        }
        out.text("\n");
    }
    const auto faces = [&](const TriangleSet& set) {
        for (uint32_t i = 0; i < set.size(); ++i) {
            const uint32_t t = set.at(i);
            out.text("f");
            for (int k = 0; k < 3; ++k) {
                out.text(" ");
                out.number(uint64_t{mesh.triangles[size_t{t} * 3 + k]} + 1);
            }
            out.text("\n");
        }
    };
    std::vector<std::string> paths(mesh.parts.size());
    for (size_t i = 0; i < mesh.parts.size(); ++i) {
        const ModelPart& part = mesh.parts[i];
        std::string own = objName(part.name);
        if (own.empty()) own = "part" + std::to_string(i);
        paths[i] = part.parent < i ? paths[part.parent] + "/" + own : own;
        if (part.triangle_count == 0) continue;
        out.text("o " + paths[i] + "\n");
        faces(TriangleSet{part.first_triangle, part.triangle_count, nullptr});
    }
    const std::vector<uint32_t> rest = unclaimedTriangles(mesh);
    if (!rest.empty()) {
        out.text("o " + objName(info.model_name) + "\n");
        faces(TriangleSet{0, 0, &rest});
    }
}

void writePly(const ModelMesh& mesh, const ExportInfo& info, OutputFile& file) {
    BlockWriter out(file);
    out.text("ply\nformat binary_little_endian 1.0\ncomment " + info.generator + "\n");
    out.text("element vertex " + std::to_string(mesh.vertexCount()) + "\n");
    out.text("property float x\nproperty float y\nproperty float z\n");
    out.text("property uchar red\nproperty uchar green\nproperty uchar blue\n");
    out.text("element face " + std::to_string(mesh.triangleCount()) + "\n");
    out.text("property list uchar uint vertex_indices\nend_header\n");
    for (uint32_t v = 0; v < mesh.vertexCount(); ++v) {
        for (int axis = 0; axis < 3; ++axis) out.raw(mesh.positions[size_t{v} * 3 + axis]);
        for (int k = 0; k < 3; ++k) {
            const size_t c = size_t{v} * 3 + k;
            out.raw(c < mesh.colors.size() ? mesh.colors[c] : uint8_t{255});
        }
    }
    for (uint32_t t = 0; t < mesh.triangleCount(); ++t) {
        out.raw(uint8_t{3});
        for (int k = 0; k < 3; ++k) out.raw(mesh.triangles[size_t{t} * 3 + k]);
    }
}

void writeStl(const ModelMesh& mesh, const ExportInfo& info, OutputFile& file) {
    BlockWriter out(file);
    // The 80-byte header must not begin with "solid", or readers take the
    // file for the text form.
    char header[80] = {};
    const std::string title = "binary STL, " + info.generator;
    std::memcpy(header, title.data(), std::min(title.size(), sizeof header));
    out.raw(header);
    out.raw(mesh.triangleCount());
    const uint32_t vertexCount = mesh.vertexCount();
    for (uint32_t t = 0; t < mesh.triangleCount(); ++t) {
        const uint32_t* tri = &mesh.triangles[size_t{t} * 3];
        float p[3][3] = {};
        for (int k = 0; k < 3; ++k) {
            if (tri[k] < vertexCount) std::memcpy(p[k], &mesh.positions[size_t{tri[k]} * 3], sizeof p[k]);
        }
        const double u[3] = {double{p[1][0]} - p[0][0], double{p[1][1]} - p[0][1], double{p[1][2]} - p[0][2]};
        const double w[3] = {double{p[2][0]} - p[0][0], double{p[2][1]} - p[0][1], double{p[2][2]} - p[0][2]};
        double n[3] = {u[1] * w[2] - u[2] * w[1], u[2] * w[0] - u[0] * w[2], u[0] * w[1] - u[1] * w[0]};
        const double length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        for (double& c : n) c = length > 0 && std::isfinite(length) ? c / length : 0.0;
        for (double c : n) out.raw(static_cast<float>(c));
        out.raw(p);
        out.raw(uint16_t{0});
    }
}

}  // namespace

bool exportMesh(const ModelMesh& mesh, MeshFormat format, const ExportInfo& info, const std::string& path,
                std::string* error) {
    OutputFile file(path);
    if (!file.ok()) {
        *error = file.error();
        return false;
    }
    switch (format) {
        case MeshFormat::Glb:
            if (!writeGlb(mesh, info, file, error)) return false;
            break;
        case MeshFormat::Obj: writeObj(mesh, info, file); break;
        case MeshFormat::Ply: writePly(mesh, info, file); break;
        case MeshFormat::Stl: writeStl(mesh, info, file); break;
    }
    if (!file.finish()) {
        *error = file.error();
        return false;
    }
    return true;
}

}  // namespace extract
