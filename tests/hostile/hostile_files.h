#pragma once
// The hostile files of the test suite (and of the fuzz seeds): the model of
// the test builder with one counted list, the nesting of sets, the placements
// or the size of the piece made hostile, and zlib bombs.

#include <cstdint>
#include <string>
#include <vector>

namespace prc::test::hostile {

constexpr uint32_t kFourBillion = 4000000000u;

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

}  // namespace prc::test::hostile
