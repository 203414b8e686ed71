#include "tests/tools_extract/extract_test_support.h"

#include <png.h>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "worker/decoded_model.h"

extern char** environ;

namespace extract::test {

std::vector<uint8_t> readFile(const std::string& path) {
    FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) throw std::runtime_error("cannot open " + path);
    std::vector<uint8_t> bytes;
    uint8_t block[65536];
    size_t got;
    while ((got = std::fread(block, 1, sizeof block, file)) > 0) bytes.insert(bytes.end(), block, block + got);
    std::fclose(file);
    return bytes;
}

void writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) throw std::runtime_error("cannot create " + path);
    if (!bytes.empty()) std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::fclose(file);
}

void writeFile(const std::string& path, const std::string& text) {
    writeFile(path, std::vector<uint8_t>(text.begin(), text.end()));
}

bool fileExists(const std::string& path) {
    struct stat info;
    return ::lstat(path.c_str(), &info) == 0;
}

std::string dataFile(const std::string& name) { return std::string(MESHDRONE_TEST_DATA) + (name.ends_with(".prc") ? "/gen/" : "/pdf/") + name; }

ScratchDir::ScratchDir() {
    std::string pattern = std::filesystem::temp_directory_path().string() + "/extract-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot create a scratch directory");
    path_ = pattern;
}

ScratchDir::~ScratchDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> ScratchDir::entries() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

std::string writeScript(const std::string& path, const std::string& body) {
    writeFile(path, "#!/bin/bash\n" + body + "\n");
    ::chmod(path.c_str(), 0755);
    return path;
}

namespace {

template <typename T>
void append(std::vector<uint8_t>& out, const T& value) {
    const size_t at = out.size();
    out.resize(at + sizeof(T));
    std::memcpy(out.data() + at, &value, sizeof(T));
}

}  // namespace

std::vector<uint8_t> successStream(const ModelMesh& mesh, uint32_t authoringVersion) {
    ResultHeader header{};
    header.success = 1;
    header.vertex_count = mesh.vertexCount();
    header.triangle_count = mesh.triangleCount();
    header.part_count = static_cast<uint32_t>(mesh.parts.size());
    header.minimal_version_for_read = 8137;
    header.authoring_version = authoringVersion;
    header.number_of_file_structures = 1;
    header.color_count = 2;
    header.material_count = 1;
    header.style_count = 3;

    // Subtree boxes: each part's own vertices, then children into parents
    // (children come after their parents).
    std::vector<PartRecord> records(mesh.parts.size());
    std::vector<bool> filled(mesh.parts.size(), false);
    const auto widen = [&](size_t i, const float* lo, const float* hi) {
        for (int a = 0; a < 3; ++a) {
            records[i].box_min[a] = filled[i] ? std::min(records[i].box_min[a], lo[a]) : lo[a];
            records[i].box_max[a] = filled[i] ? std::max(records[i].box_max[a], hi[a]) : hi[a];
        }
        filled[i] = true;
    };
    for (size_t i = 0; i < mesh.parts.size(); ++i) {
        const ModelPart& part = mesh.parts[i];
        PartRecord& record = records[i];
        std::memset(&record, 0, sizeof record);
        std::strncpy(record.name, part.name.c_str(), 127);
        record.node_index = static_cast<uint32_t>(i);
        record.parent_index = part.parent;
        record.first_triangle = part.first_triangle;
        record.triangle_count = part.triangle_count;
        record.flag = 1;
        for (uint32_t t = part.first_triangle; t < part.first_triangle + part.triangle_count; ++t) {
            for (int k = 0; k < 3; ++k) {
                const float* p = &mesh.positions[size_t{mesh.triangles[t * 3 + k]} * 3];
                widen(i, p, p);
            }
        }
    }
    for (size_t i = mesh.parts.size(); i-- > 0;) {
        const uint32_t parent = mesh.parts[i].parent;
        if (parent != kNoParent && filled[i]) widen(parent, records[i].box_min, records[i].box_max);
    }

    std::vector<uint8_t> out;
    append(out, header);
    for (float f : mesh.positions) append(out, f);
    for (uint32_t i : mesh.triangles) append(out, i);
    out.insert(out.end(), mesh.colors.begin(), mesh.colors.end());
    for (const PartRecord& record : records) append(out, record);
    return out;
}

std::vector<uint8_t> failureHeader(uint32_t status) {
    ResultHeader header{};
    header.status = status;
    std::vector<uint8_t> out;
    append(out, header);
    return out;
}

std::vector<uint8_t> errorRecord(const std::string& message) {
    ResultHeader header{};
    header.status = 2;
    header.message_length = static_cast<uint32_t>(message.size());
    std::vector<uint8_t> out;
    append(out, header);
    out.insert(out.end(), message.begin(), message.end());
    return out;
}

ModelMesh sampleAssembly() {
    ModelMesh mesh;
    mesh.positions = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1,       // tetrahedron
                      2, 0, 0, 3, 0, 0, 3, 1, 0.5f, 2, 1, 0.5f};  // quad
    mesh.triangles = {0, 1, 2, 0, 1, 3, 0, 2, 3, 1, 2, 3, 4, 5, 6, 4, 6, 7};
    mesh.colors = {255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255};
    mesh.parts = {{"assembly", kNoParent, 0, 0, {}, {}},
                  {"red tetra", 0, 0, 4, {}, {}},
                  {"sub-assembly", 0, 0, 0, {}, {}},
                  {"blue quad", 2, 4, 2, {}, {}}};
    return mesh;
}

std::string workerExecutable() { return MESHDRONE_WORKER_EXE; }

ToolRun runTool(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& env) {
    ScratchDir capture;
    const std::string outPath = capture.file("out"), errPath = capture.file("err");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);

    std::vector<std::string> args = {MESHDRONE_EXTRACT_EXE};
    args.insert(args.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);

    std::vector<std::string> variables;
    for (char** e = environ; *e != nullptr; ++e) {
        const std::string entry = *e;
        if (env.count(entry.substr(0, entry.find('='))) == 0) variables.push_back(entry);
    }
    for (const auto& [name, value] : env) variables.push_back(name + "=" + value);
    std::vector<char*> envp;
    for (std::string& v : variables) envp.push_back(v.data());
    envp.push_back(nullptr);

    ToolRun run;
    pid_t pid;
    if (posix_spawn(&pid, args[0].c_str(), &actions, nullptr, argv.data(), envp.data()) != 0) {
        posix_spawn_file_actions_destroy(&actions);
        throw std::runtime_error("cannot start " + args[0]);
    }
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    run.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    const std::vector<uint8_t> out = readFile(outPath), err = readFile(errPath);
    run.out.assign(out.begin(), out.end());
    run.err.assign(err.begin(), err.end());
    return run;
}

void writePdf(const std::string& path, const std::vector<std::vector<Annotation3d>>& pages) {
    QPDF pdf;
    pdf.emptyPDF();
    QPDFPageDocumentHelper pageHelper(pdf);
    for (const std::vector<Annotation3d>& annotations : pages) {
        QPDFObjectHandle page = pdf.makeIndirectObject(
            QPDFObjectHandle::parse("<< /Type /Page /MediaBox [0 0 612 792] /Resources << >> >>"));
        QPDFObjectHandle list = QPDFObjectHandle::newArray();
        list.appendItem(pdf.makeIndirectObject(QPDFObjectHandle::parse(
            "<< /Type /Annot /Subtype /Link /Rect [0 0 10 10] /A << /S /URI /URI (https://example.org) >> >>")));
        for (const Annotation3d& a : annotations) {
            QPDFObjectHandle stream =
                pdf.newStream(std::string(reinterpret_cast<const char*>(a.data.data()), a.data.size()));
            stream.getDict().replaceKey("/Type", QPDFObjectHandle::newName("/3D"));
            if (!a.subtype.empty()) stream.getDict().replaceKey("/Subtype", QPDFObjectHandle::newName("/" + a.subtype));
            if (!a.filter.empty()) {
                stream.replaceStreamData(std::string(a.data.begin(), a.data.end()),
                                         QPDFObjectHandle::newName("/" + a.filter), QPDFObjectHandle::newNull());
            }
            QPDFObjectHandle annotation = QPDFObjectHandle::parse("<< /Type /Annot /Subtype /3D /Rect [50 50 550 450] >>");
            if (a.through_reference) {
                QPDFObjectHandle reference = QPDFObjectHandle::parse("<< /Type /3DRef >>");
                reference.replaceKey("/3DD", stream);
                annotation.replaceKey("/3DD", pdf.makeIndirectObject(reference));
            } else {
                annotation.replaceKey("/3DD", stream);
            }
            list.appendItem(pdf.makeIndirectObject(annotation));
        }
        page.replaceKey("/Annots", list);
        pageHelper.addPage(QPDFPageObjectHelper(page), false);
    }
    QPDFWriter writer(pdf, path.c_str());
    // Raw data stays as it is given (junk under a filter included); the rest
    // is compressed, as real PDFs store their 3D streams.
    writer.setDecodeLevel(qpdf_dl_none);
    writer.setStaticID(true);
    writer.write();
}

Glb readGlb(const std::string& path) {
    const std::vector<uint8_t> bytes = readFile(path);
    const auto u32 = [&](size_t offset) {
        uint32_t v;
        std::memcpy(&v, bytes.data() + offset, 4);
        return v;
    };
    Glb glb;
    if (bytes.size() < 20 || std::memcmp(bytes.data(), "glTF", 4) != 0) throw std::runtime_error("not a GLB file");
    if (u32(4) != 2 || u32(8) != bytes.size()) throw std::runtime_error("GLB version or length wrong");
    const uint32_t jsonLength = u32(12);
    if (u32(16) != 0x4E4F534A || jsonLength % 4 != 0 || 20 + size_t{jsonLength} > bytes.size())
        throw std::runtime_error("GLB JSON chunk wrong");
    glb.json = nlohmann::json::parse(bytes.begin() + 20, bytes.begin() + 20 + jsonLength);
    const size_t binStart = 20 + size_t{jsonLength};
    if (binStart < bytes.size()) {
        const uint32_t binLength = u32(binStart);
        if (u32(binStart + 4) != 0x004E4942 || binStart + 8 + binLength != bytes.size())
            throw std::runtime_error("GLB BIN chunk wrong");
        glb.bin.assign(bytes.begin() + binStart + 8, bytes.end());
    }
    return glb;
}

std::vector<float> glbTriangles(const Glb& glb, int mesh) {
    const nlohmann::json& primitive = glb.json["meshes"][mesh]["primitives"][0];
    const auto accessorStart = [&](const nlohmann::json& accessor) {
        const nlohmann::json& view = glb.json["bufferViews"][accessor["bufferView"].get<int>()];
        return view.value("byteOffset", size_t{0}) + accessor.value("byteOffset", size_t{0});
    };
    const nlohmann::json& positions = glb.json["accessors"][primitive["attributes"]["POSITION"].get<int>()];
    const nlohmann::json& indices = glb.json["accessors"][primitive["indices"].get<int>()];
    const size_t positionStart = accessorStart(positions), indexStart = accessorStart(indices);
    const bool narrow = indices["componentType"] == 5123;
    std::vector<float> corners;
    for (size_t i = 0; i < indices["count"].get<size_t>(); ++i) {
        uint32_t index = 0;
        if (narrow) {
            uint16_t small;
            std::memcpy(&small, glb.bin.data() + indexStart + i * 2, 2);
            index = small;
        } else {
            std::memcpy(&index, glb.bin.data() + indexStart + i * 4, 4);
        }
        if (index >= positions["count"].get<uint32_t>()) throw std::runtime_error("GLB index out of range");
        float p[3];
        std::memcpy(p, glb.bin.data() + positionStart + size_t{index} * 12, 12);
        corners.insert(corners.end(), p, p + 3);
    }
    return corners;
}

Picture readPng(const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) throw std::runtime_error("not a PNG: " + path);
    image.format = PNG_FORMAT_RGB;
    Picture picture;
    picture.width = image.width;
    picture.height = image.height;
    picture.rgb.resize(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, picture.rgb.data(), 0, nullptr)) {
        png_image_free(&image);
        throw std::runtime_error("PNG cannot be decoded: " + path);
    }
    return picture;
}

std::vector<float> canonicalTriangles(std::vector<float> corners) {
    using Corner = std::array<float, 3>;
    using Triangle = std::array<Corner, 3>;
    std::vector<Triangle> triangles(corners.size() / 9);
    for (size_t t = 0; t < triangles.size(); ++t) {
        for (int k = 0; k < 3; ++k) {
            for (int a = 0; a < 3; ++a) triangles[t][k][a] = corners[t * 9 + k * 3 + a];
        }
        std::sort(triangles[t].begin(), triangles[t].end());
    }
    std::sort(triangles.begin(), triangles.end());
    std::vector<float> out;
    for (const Triangle& t : triangles) {
        for (const Corner& c : t) out.insert(out.end(), c.begin(), c.end());
    }
    return out;
}

std::vector<float> meshTriangles(const ModelMesh& mesh, uint32_t first, uint32_t count) {
    std::vector<float> corners;
    for (uint32_t t = first; t < first + count; ++t) {
        for (int k = 0; k < 3; ++k) {
            const float* p = &mesh.positions[size_t{mesh.triangles[size_t{t} * 3 + k]} * 3];
            corners.insert(corners.end(), p, p + 3);
        }
    }
    return canonicalTriangles(corners);
}

}  // namespace extract::test
