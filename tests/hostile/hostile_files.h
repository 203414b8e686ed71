#pragma once
// Whole PRC files for the hostile-input suite (and the fuzz seeds): one file
// structure whose tree places a part drawn by one plain tessellation, with
// knobs that turn one counted list, the nesting of sets, the placements or
// the size of the piece hostile.

#include <cstdint>
#include <string>
#include <vector>

namespace prc::test::hostile {

// Above every version threshold except the count after Graphics blocks.
constexpr uint32_t kVersion = 8137;
constexpr uint32_t kFourBillion = 4000000000u;
// Zero bytes after every section of a file with a hostile count: data that
// the count's list reads on through, so that a reservation by the bits left
// is measurable.
constexpr size_t kFillerBytes = 4096;

struct Occurrence {
    std::string name;
    uint32_t part_plus_one = 0;
    uint32_t prototype_plus_one = 0;
    std::vector<uint32_t> sons;  // positions, as stored
};

struct ModelPlan {
    // The counted list (a name used by the writers, see hostile_files.cpp)
    // that claims four billion entries; null for none.
    const char* hostile = nullptr;
    uint32_t piece_triangles = 1;  // triangles of the one tessellation (all on one vertex triple)
    std::vector<Occurrence> occurrences = {{"root", 0, 0, {1}}, {"leaf", 1, 0, {}}};
    uint32_t nested_sets = 0;             // sets wrapped around the part's drawn item
    uint32_t nested_annotation_sets = 0;  // annotation sets in every list of annotations
};

// A zlib stream of at least outputBytes zero bytes, cut before its end: the
// same full-flushed block over and over (about a thousandth of its output).
std::vector<uint8_t> zlibBomb(uint64_t outputBytes);

// A file whose tree section is a bomb of 1.125 GiB (the flat pass draws its
// tessellation), stopped when the buffer passes the limit. Padded (zlib
// ignores what follows the stream) to kLargestBombSection bytes, the buffer
// doubles from just under the limit to just under 1 GiB: the most that the
// growth rule lets one section take. Further file structures name the same
// sections again.
constexpr uint64_t kLargestBombSection = 2096639;  // (0x1FFFFFFF / 32 - 4096) / 8
std::vector<uint8_t> zlibBombFile(uint64_t sectionLength, uint32_t fileStructures = 1);

// A hostile file and the answer that the decoder owes it.
struct HostileCase {
    std::string name;
    std::vector<uint8_t> file;
    int64_t records;     // part records of the answer; 0: the flat pass answers; -1: no geometry
    uint32_t triangles;  // of the answer
};
// Every hostile file of the suite: a four-billion count in each counted list,
// nesting, cycles and placements beyond the bounds, a zlib bomb.
std::vector<HostileCase> hostileCases();

// The file of a plan; with rawTree, that stream stands for its tree section.
std::vector<uint8_t> buildFile(const ModelPlan& plan, const std::vector<uint8_t>* rawTree = nullptr,
                               uint32_t fileStructures = 1);

}  // namespace prc::test::hostile
