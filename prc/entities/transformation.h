#pragma once
// Placements: PRC transformations as 4 x 4 matrices, and plane surfaces read through.

#include <array>

#include "prc/io/bit_reader.h"

namespace prc {

// Row-major, applied to column vectors, translation in column 3.
using Matrix4 = std::array<double, 16>;

constexpr Matrix4 kIdentityMatrix = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

Matrix4 readTransformation3d(PRCBitReader& r);
void readSurfacePlane(PRCBitReader& r);

}  // namespace prc
