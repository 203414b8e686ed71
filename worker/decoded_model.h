#pragma once
// The contract between the process entry and the decode driver, and the
// byte layouts of the result stream that the host reads.

#include <cstdint>

// Records of the result stream, built in memory exactly as they are written
// (all fields little-endian, floats IEEE 754 single precision).
struct ResultHeader {
    uint8_t success;             // 1 for a decoded model
    uint8_t optional_block_flag; // never set by this worker
    uint8_t zero[2];
    uint32_t vertex_count;
    uint32_t triangle_count;
    uint32_t part_count;
    uint32_t message_length;
    uint32_t status;
    uint32_t minimal_version_for_read;
    uint32_t authoring_version;
    uint32_t number_of_file_structures;
    uint32_t color_count;
    uint32_t material_count;
    uint32_t style_count;
};
static_assert(sizeof(ResultHeader) == 48);

struct PartRecord {
    char name[128];  // at most 127 bytes, NUL-padded
    uint32_t node_index;
    uint32_t parent_index;  // 0xFFFFFFFF for a root
    uint32_t first_triangle;
    uint32_t triangle_count;
    uint8_t zero[16];
    float box_min[3];
    float box_max[3];
    uint8_t flag;  // always 1
    uint8_t zero2[3];
};
static_assert(sizeof(PartRecord) == 188);

enum OutcomeCode : uint32_t {
    kOutcomeNoResult = 0,    // no input, or the output arrays could not be allocated
    kOutcomeNoGeometry = 1,  // the file decoded but holds no triangle
    kOutcomeDecodingError = 2,
};

struct DecodedModel {
    float* positions;
    uint32_t* triangles;
    uint8_t* colors;
    uint32_t vertex_count;
    uint32_t triangle_count;
    PartRecord* part_records;
    uint32_t part_count;
    uint8_t optional_block[36];
    uint32_t optional_block_present;
    uint32_t minimal_version_for_read;
    uint32_t authoring_version;
    uint32_t number_of_file_structures;
    uint32_t color_count;
    uint32_t material_count;
    uint32_t style_count;
    uint32_t outcome;
};

// Implemented by the decode driver. Zeroes *out first; true when out holds a
// mesh with at least one triangle, false with out->outcome set otherwise.
bool decodePrcModel(const uint8_t* data, uint64_t size, DecodedModel* out);
