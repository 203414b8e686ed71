// The mesh files, read back by readers that share no code with the writers:
// the GLB framing and JSON by hand, its accessors through the binary chunk,
// OBJ/PLY/STL by their layouts, and assimp where it is installed.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "tests/tools_extract/extract_test_support.h"
#include "tools/extract/mesh_export.h"

namespace extract {
namespace {

using test::ScratchDir;

ExportInfo info(UpAxis up = UpAxis::Z) { return ExportInfo{"sample.pdf", "meshdrone-extract test", up}; }

std::string exportTo(const ModelMesh& mesh, MeshFormat format, const std::string& path, UpAxis up = UpAxis::Z) {
    std::string error;
    EXPECT_TRUE(exportMesh(mesh, format, info(up), path, &error)) << error;
    return path;
}

TEST(ExtractGlb, OneNodePerPartWithTheHierarchyAndItsOwnTriangles) {
    ScratchDir dir;
    const ModelMesh mesh = test::sampleAssembly();
    const test::Glb glb = test::readGlb(exportTo(mesh, MeshFormat::Glb, dir.file("a.glb")));
    const nlohmann::json& nodes = glb.json["nodes"];
    ASSERT_EQ(nodes.size(), 4u);  // every triangle belongs to a part: no extra node
    EXPECT_EQ(glb.json["asset"]["version"], "2.0");
    EXPECT_EQ(nodes[0]["name"], "assembly");
    EXPECT_EQ(nodes[3]["name"], "blue quad");
    EXPECT_EQ(nodes[0]["children"], nlohmann::json::array({1, 2}));
    EXPECT_EQ(nodes[2]["children"], nlohmann::json::array({3}));
    EXPECT_EQ(glb.json["scenes"][0]["nodes"], nlohmann::json::array({0}));
    EXPECT_FALSE(nodes[0].contains("mesh"));  // assemblies draw nothing themselves
    EXPECT_FALSE(nodes[2].contains("mesh"));

    EXPECT_EQ(test::canonicalTriangles(test::glbTriangles(glb, nodes[1]["mesh"])), test::meshTriangles(mesh, 0, 4));
    EXPECT_EQ(test::canonicalTriangles(test::glbTriangles(glb, nodes[3]["mesh"])), test::meshTriangles(mesh, 4, 2));

    // The quad's own compact vertices: 4, with its bounds and its colour.
    const nlohmann::json& primitive = glb.json["meshes"][nodes[3]["mesh"].get<int>()]["primitives"][0];
    const nlohmann::json& position = glb.json["accessors"][primitive["attributes"]["POSITION"].get<int>()];
    EXPECT_EQ(position["count"], 4);
    EXPECT_EQ(position["min"], nlohmann::json::array({2.0, 0.0, 0.0}));
    EXPECT_EQ(position["max"], nlohmann::json::array({3.0, 1.0, 0.5}));
    const nlohmann::json& color = glb.json["accessors"][primitive["attributes"]["COLOR_0"].get<int>()];
    const size_t offset = glb.json["bufferViews"][color["bufferView"].get<int>()].value("byteOffset", 0) +
                          color.value("byteOffset", 0);
    float rgb[3];
    std::memcpy(rgb, glb.bin.data() + offset, sizeof rgb);
    EXPECT_EQ(rgb[0], 0.0f);
    EXPECT_EQ(rgb[2], 1.0f);
}

TEST(ExtractGlb, ZUpModelsAreTurnedUprightAtTheirRootsOnly) {
    ScratchDir dir;
    const ModelMesh mesh = test::sampleAssembly();
    const test::Glb zUp = test::readGlb(exportTo(mesh, MeshFormat::Glb, dir.file("z.glb"), UpAxis::Z));
    const nlohmann::json& rotation = zUp.json["nodes"][0]["rotation"];
    ASSERT_EQ(rotation.size(), 4u);
    EXPECT_NEAR(rotation[0].get<double>(), -std::sqrt(0.5), 1e-12);  // -90 degrees about X
    EXPECT_NEAR(rotation[3].get<double>(), std::sqrt(0.5), 1e-12);
    EXPECT_FALSE(zUp.json["nodes"][1].contains("rotation"));
    const test::Glb yUp = test::readGlb(exportTo(mesh, MeshFormat::Glb, dir.file("y.glb"), UpAxis::Y));
    EXPECT_FALSE(yUp.json["nodes"][0].contains("rotation"));
}

TEST(ExtractGlb, TrianglesWithoutAPartGetANodeOfTheirOwn) {
    ScratchDir dir;
    ModelMesh flat = test::sampleAssembly();
    flat.parts.clear();  // the worker's fallback: a mesh without records
    test::Glb glb = test::readGlb(exportTo(flat, MeshFormat::Glb, dir.file("flat.glb")));
    ASSERT_EQ(glb.json["nodes"].size(), 1u);
    EXPECT_EQ(glb.json["nodes"][0]["name"], "sample.pdf");
    EXPECT_EQ(test::canonicalTriangles(test::glbTriangles(glb, 0)), test::meshTriangles(flat, 0, 6));

    ModelMesh partial = test::sampleAssembly();
    partial.parts[3].triangle_count = 1;  // triangle 5 is nobody's
    glb = test::readGlb(exportTo(partial, MeshFormat::Glb, dir.file("partial.glb")));
    ASSERT_EQ(glb.json["nodes"].size(), 5u);
    EXPECT_EQ(glb.json["nodes"][4]["name"], "sample.pdf (unassigned)");
    EXPECT_EQ(glb.json["scenes"][0]["nodes"], nlohmann::json::array({0, 4}));
    EXPECT_EQ(test::canonicalTriangles(test::glbTriangles(glb, glb.json["nodes"][4]["mesh"])),
              test::meshTriangles(partial, 5, 1));
}

TEST(ExtractGlb, NamesCutInsideACharacterStillMakeValidJson) {
    ScratchDir dir;
    ModelMesh mesh = test::sampleAssembly();
    mesh.parts[1].name = "Stra\xC3\x9F" "e \xC3";  // a UTF-8 sequence cut at the 127-byte limit
    mesh.parts[3].name = "caf\xE9";              // Latin-1
    const test::Glb glb = test::readGlb(exportTo(mesh, MeshFormat::Glb, dir.file("names.glb")));
    EXPECT_EQ(glb.json["nodes"][1]["name"], "Stra\xC3\x9F" "e \xC3\x83");
    EXPECT_EQ(glb.json["nodes"][3]["name"], "caf\xC3\xA9");
}

TEST(ExtractGlb, AssimpReadsTheFile) {
    if (std::system("command -v assimp >/dev/null 2>&1") != 0) GTEST_SKIP() << "assimp is not installed";
    ScratchDir dir;
    const std::string path = exportTo(test::sampleAssembly(), MeshFormat::Glb, dir.file("a.glb"));
    FILE* pipe = ::popen(("assimp info " + path + " 2>&1").c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string text;
    char buffer[4096];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) text.append(buffer, got);
    EXPECT_EQ(::pclose(pipe), 0) << text;
    EXPECT_NE(text.find("Faces:              6"), std::string::npos) << text;
    EXPECT_NE(text.find("Vertices:           8"), std::string::npos) << text;
    EXPECT_NE(text.find("blue quad"), std::string::npos) << text;
    EXPECT_NE(text.find("sub-assembly"), std::string::npos) << text;
}

TEST(ExtractMeshFiles, ObjPlyAndStlHoldTheSameMesh) {
    ScratchDir dir;
    const ModelMesh mesh = test::sampleAssembly();

    std::istringstream obj(std::string(
        [&] {
            const auto bytes = test::readFile(exportTo(mesh, MeshFormat::Obj, dir.file("a.obj")));
            return std::string(bytes.begin(), bytes.end());
        }()));
    std::vector<std::string> objects, vertices;
    size_t faces = 0;
    for (std::string line; std::getline(obj, line);) {
        if (line.rfind("v ", 0) == 0) vertices.push_back(line);
        if (line.rfind("f ", 0) == 0) ++faces;
        if (line.rfind("o ", 0) == 0) objects.push_back(line.substr(2));
    }
    EXPECT_EQ(vertices.size(), 8u);
    EXPECT_EQ(vertices[0], "v 0 0 0 1 0 0");  // position, then the colour from 0 to 1
    EXPECT_EQ(vertices[7], "v 2 1 0.5 0 0 1");
    EXPECT_EQ(faces, 6u);
    EXPECT_EQ(objects, (std::vector<std::string>{"assembly/red_tetra", "assembly/sub-assembly/blue_quad"}));

    const std::vector<uint8_t> ply = test::readFile(exportTo(mesh, MeshFormat::Ply, dir.file("a.ply")));
    const std::string plyText(ply.begin(), ply.end());
    const size_t body = plyText.find("end_header\n") + 11;
    ASSERT_NE(body, std::string::npos + 11);
    EXPECT_NE(plyText.find("element vertex 8\n"), std::string::npos);
    EXPECT_NE(plyText.find("element face 6\n"), std::string::npos);
    ASSERT_EQ(ply.size(), body + 8 * 15 + 6 * 13);  // xyz + rgb; count byte + 3 indices
    EXPECT_EQ(ply[body + 7 * 15 + 14], 255);      // blue of the last vertex
    uint32_t lastIndex;
    std::memcpy(&lastIndex, &ply[ply.size() - 4], 4);
    EXPECT_EQ(lastIndex, 7u);

    const std::vector<uint8_t> stl = test::readFile(exportTo(mesh, MeshFormat::Stl, dir.file("a.stl")));
    ASSERT_EQ(stl.size(), 84u + 6 * 50);
    EXPECT_NE(std::string(stl.begin(), stl.begin() + 5), "solid");  // else readers take it for text
    uint32_t count;
    std::memcpy(&count, &stl[80], 4);
    EXPECT_EQ(count, 6u);
    float normal[3], corner[3];
    std::memcpy(normal, &stl[84], 12);  // triangle 0 lies in z = 0
    std::memcpy(corner, &stl[84 + 12 + 12], 12);
    EXPECT_FLOAT_EQ(std::abs(normal[2]), 1.0f);
    EXPECT_EQ(corner[0], 1.0f);  // its second corner, vertex 1
}

TEST(ExtractWriteFailures, AFullDiskOrAMissingDirectoryIsAClearError) {
    std::string error;
    EXPECT_FALSE(exportMesh(test::sampleAssembly(), MeshFormat::Glb, info(), "/dev/full", &error));
    EXPECT_EQ(error, "cannot write /dev/full: No space left on device");
    EXPECT_FALSE(exportMesh(test::sampleAssembly(), MeshFormat::Stl, info(), "/dev/full", &error));
    ScratchDir dir;
    const std::string missing = dir.file("no/such/dir.glb");
    EXPECT_FALSE(exportMesh(test::sampleAssembly(), MeshFormat::Obj, info(), missing, &error));
    EXPECT_EQ(error, "cannot create " + missing + ": No such file or directory");
}

TEST(ExtractFormats, NamesAndExtensions) {
    EXPECT_EQ(meshFormatFromExtension("out/Car.STL"), MeshFormat::Stl);
    EXPECT_EQ(meshFormatFromExtension("a.b/model"), std::nullopt);  // the dot is in a directory
    EXPECT_EQ(meshFormatFromExtension("model.gltf"), std::nullopt);  // text glTF is not written
    EXPECT_EQ(meshFormatFromName("ply"), MeshFormat::Ply);
    EXPECT_NEAR(srgbByteToLinear(128), 0.2158605, 1e-6);
    EXPECT_EQ(srgbByteToLinear(255), 1.0f);
}

}  // namespace
}  // namespace extract
