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
    // A B-rep model's exact body: its topological context and its body in
    // that context (the worker draws tessellations only; the exact decoder
    // draws these).
    int64_t index_context = -1;
    int64_t index_body = -1;
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
