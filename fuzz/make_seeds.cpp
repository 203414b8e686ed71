// Seeds for the fuzz targets.
//   make_fuzz_seeds <corpus dir> <PRC files...>: each file seeds the decode
//     target, its inflated globals, tree and tessellation sections the
//     section targets (the tessellation sections the compressed mesh target
//     too), and the hostile files of the test suite are added to the decode
//     seeds. The other targets' seeds were written once with the test writers.
//   make_fuzz_seeds --hostile <dir>: every hostile file of the test suite.

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "prc/entities/file_structure.h"
#include "tests/hostile/hostile_files.h"

namespace fs = std::filesystem;
namespace hostile = prc::test::hostile;
using Bytes = std::vector<uint8_t>;

namespace {

void write(const fs::path& dir, std::string name, const Bytes& bytes, size_t limit = 64 * 1024) {
    if (bytes.size() > limit) return;  // larger seeds slow every execution down
    std::replace_if(name.begin(), name.end(), [](char c) { return !std::isalnum(uint8_t(c)); }, '_');
    fs::create_directories(dir);
    std::ofstream(dir / name, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

void seedsOf(const fs::path& corpus, const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    const Bytes file{std::istreambuf_iterator<char>(in), {}};
    write(corpus / "decode", path.stem().string(), file);
    const prc::PRCHeader header = prc::readPRCHeader(file.data(), file.size());
    for (size_t f = 0; f < header.file_structures.size() && f < 3; ++f) {
        const std::vector<uint32_t>& o = header.file_structures[f].offsets;
        const std::string id = path.stem().string() + "_fs" + std::to_string(f);
        const uint32_t version = o.empty() ? 0 : uint32_t(prc::readFileStructureHeader(file.data(), file.size(), o[0]) >> 32);
        for (size_t k = 1; k <= 4 && k + 1 < o.size(); ++k) {
            try {
                Bytes section = prc::inflateFileSection(file.data(), file.size(), o[k], o[k + 1]).toVector();
                section.insert(section.begin(), fuzz::versionSelector(version));
                if (k == 4) {  // the geometry section, after the byte that picks the tolerance (2^-9)
                    section.insert(section.begin() + 1, uint8_t(9));
                    write(corpus / "exact", id, section);
                    continue;
                }
                write(corpus / (k == 1 ? "globals" : k == 2 ? "tree" : "tessellation"), id, section);
                if (k == 3) write(corpus / "compressed_mesh", id, section);
            } catch (const std::exception&) {
            }
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    std::vector<hostile::HostileCase> cases = hostile::hostileCases();
    if (std::string(argv[1]) == "--hostile" && argc == 3) {
        cases.push_back({"zlib bomb largest buffer", hostile::zlibBombFile(hostile::kLargestBombSection), 0, 1});
        cases.push_back({"zlib bomb named by 1000 file structures", hostile::zlibBombFile(0, 1000), 0, 1});
        for (const hostile::HostileCase& c : cases) write(argv[2], c.name, c.file, SIZE_MAX);
        return 0;
    }
    for (int i = 2; i < argc; ++i) {
        try {
            seedsOf(argv[1], argv[i]);
        } catch (const std::exception& e) {
            std::fprintf(stderr, "%s: %s\n", argv[i], e.what());
        }
    }
    // Not the files that fill the assembly's bounds: under the fuzzing
    // instrumentation they take seconds each (the test suite runs them).
    for (const hostile::HostileCase& c : cases)
        if (c.records + c.triangles < 1000) write(fs::path(argv[1]) / "decode", c.name, c.file, 16 * 1024);
    return 0;
}
