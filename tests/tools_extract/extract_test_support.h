#pragma once
// Helpers of the meshdrone-extract tests: scratch directories, result streams
// built in memory, stand-in workers, PDFs built with the PDF library, and
// independent readers of the files the tool writes.

#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/extract/model_mesh.h"

namespace extract::test {

std::vector<uint8_t> readFile(const std::string& path);
void writeFile(const std::string& path, const std::vector<uint8_t>& bytes);
void writeFile(const std::string& path, const std::string& text);
bool fileExists(const std::string& path);

// A copy of a file in tests/data/pdf.
std::string dataFile(const std::string& name);

// A fresh directory, removed with everything in it at the end of the test.
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    std::vector<std::string> entries() const;  // names in the directory, sorted

private:
    std::string path_;
};

// A stand-in worker: an executable shell script with the given body.
std::string writeScript(const std::string& path, const std::string& body);

// Result streams as the worker writes them. Part boxes are computed from the
// mesh (the node's own vertices and those of its subtree).
std::vector<uint8_t> successStream(const ModelMesh& mesh, uint32_t authoringVersion = 8137);
std::vector<uint8_t> failureHeader(uint32_t status);
std::vector<uint8_t> errorRecord(const std::string& message);

// A small assembly: a root with two coloured parts (a red tetrahedron of 4
// triangles and a blue quad of 2), and a 0-triangle sub-assembly.
ModelMesh sampleAssembly();

struct ToolRun {
    int exit_code = -1;  // 128 + signal when killed
    std::string out, err;
};
// Runs meshdrone-extract with the arguments and extra environment variables.
ToolRun runTool(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& env = {});
std::string workerExecutable();  // the real worker

// One 3D annotation of a PDF built for a test.
struct Annotation3d {
    Annotation3d(std::vector<uint8_t> bytes, std::string streamSubtype = "PRC", bool viaReference = false,
                 std::string storedFilter = "")
        : data(std::move(bytes)), subtype(std::move(streamSubtype)), through_reference(viaReference),
          filter(std::move(storedFilter)) {}
    std::vector<uint8_t> data;
    std::string subtype;      // the stream's /Subtype; empty for none
    bool through_reference;   // /3DD is a 3D reference dictionary
    std::string filter;       // stored with this filter name over raw data (e.g. "FlateDecode" over junk)
};
// Pages of 3D annotations; every page also gets a link annotation first, so
// that 3D annotations are not the only ones.
void writePdf(const std::string& path, const std::vector<std::vector<Annotation3d>>& pages);

// The JSON chunk and the binary chunk of a GLB file, checked for the framing.
struct Glb {
    nlohmann::json json;
    std::vector<uint8_t> bin;
};
Glb readGlb(const std::string& path);
// The triangles of one glTF mesh as corner positions, read through its
// accessors (9 floats per triangle).
std::vector<float> glbTriangles(const Glb& glb, int mesh);

struct Picture {
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> rgb;
};
Picture readPng(const std::string& path);

// Corner positions of a set of the mesh's triangles, 9 floats each, in a
// canonical order (corners sorted in each triangle, triangles sorted) so that
// two sets compare equal whatever the order and rotation.
std::vector<float> canonicalTriangles(std::vector<float> corners);
std::vector<float> meshTriangles(const ModelMesh& mesh, uint32_t first, uint32_t count);

}  // namespace extract::test
