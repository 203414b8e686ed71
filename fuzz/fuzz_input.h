#pragma once
// The section targets take the version of the file structure from their
// input's first byte and the section from the rest.

#include <cstddef>
#include <cstdint>

namespace fuzz {

// One version from each interval that the format's version tests tell apart
// (the Graphics count above 8137, the scene Boolean above 8136, the light
// Double from 8030, the tessellation fields above 7046, 7038 and 7030), the
// newest first: every real version reads like the smallest entry not below it.
constexpr uint32_t kVersions[] = {0xFFFFFFFF, 8137, 8136, 8029, 7046, 7038, 7030};
constexpr uint8_t kVersionCount = sizeof kVersions / sizeof kVersions[0];

inline uint32_t version(uint8_t selector) { return kVersions[selector % kVersionCount]; }

inline uint8_t versionSelector(uint32_t version) {
    uint8_t best = 0;
    for (uint8_t i = 1; i < kVersionCount; ++i)
        if (kVersions[i] >= version) best = i;  // the entries fall
    return best;
}

}  // namespace fuzz
