#pragma once
// Representation items: what a part definition draws, where, and in which style.

#include <cstdint>
#include <vector>

#include "prc/entities/transformation.h"
#include "prc/io/bit_reader.h"

namespace prc {

struct PRCRepresentationItem {
    uint32_t type = 0;
    int64_t index_tessellation = -1;
    int64_t index_local_coordinate_system = -1;
    uint32_t line_style_index = 0xFFFFFFFF;
    std::vector<PRCRepresentationItem> items;
    Matrix4 transformation = kIdentityMatrix;
};

// Sets nest, one recursion per level. The real files at hand nest them two
// levels deep at most; 32 levels keep a crafted section's recursion to a few
// kilobytes of stack even with sanitizer redzones. Deeper nesting fails the
// section.
constexpr int kMaxRepresentationItemDepth = 32;

PRCRepresentationItem readRepresentationItem(PRCBitReader& r);
void readRepresentationItemContent(PRCBitReader& r, PRCRepresentationItem& item);

}  // namespace prc
