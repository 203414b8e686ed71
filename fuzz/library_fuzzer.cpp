// Whole files through the C interface: a model only with OK, a message for
// every result, and arrays as long as their counts, with indices and ranges
// inside them.

#include <cstdlib>

#include "meshdrone/meshdrone.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    meshdrone_model* m = nullptr;
    const meshdrone_result result = meshdrone_decode(data, size, &m);
    if ((result == MESHDRONE_OK) != (m != nullptr) || *meshdrone_result_message(result) == '\0') std::abort();
    if (m == nullptr) return 0;
    // The last element of each array: the address sanitizer checks the extents.
    volatile float x = m->positions[3 * m->vertex_count - 1];
    volatile uint8_t c = m->colors[3 * m->vertex_count - 1];
    (void)x, (void)c;
    for (uint32_t i = 0; i < 3 * m->triangle_count; ++i)
        if (m->triangles[i] >= m->vertex_count) std::abort();
    for (uint32_t i = 0; i < m->part_count; ++i) {
        const meshdrone_part& p = m->parts[i];
        if (p.index != i || (p.parent >= i && p.parent != MESHDRONE_NO_PARENT) ||
            uint64_t(p.first_triangle) + p.triangle_count > m->triangle_count)
            std::abort();
    }
    meshdrone_free(m);
    return 0;
}
