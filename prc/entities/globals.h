#pragma once
// The globals section of a file structure: colours, materials, styles and
// reference coordinate systems.

#include <cstdint>
#include <vector>

#include "prc/entities/transformation.h"
#include "prc/io/bit_reader.h"

namespace prc {

struct RgbColor {
    double red = 0, green = 0, blue = 0;
};

struct PRCMaterial {
    int64_t ambient = -1, diffuse = -1, emissive = -1, specular = -1;
    double shininess = 0.0;
    double ambient_alpha = 1.0, diffuse_alpha = 1.0, emissive_alpha = 1.0, specular_alpha = 1.0;
};

struct PRCStyle {
    double line_width = 0.0;
    bool is_material = false;
    int64_t color_material_index = -1;
};

struct PRCGlobals {
    std::vector<uint32_t> schema_entity_types;
    std::vector<RgbColor> colors;
    std::vector<PRCMaterial> materials;
    std::vector<PRCStyle> styles;
    std::vector<Matrix4> reference_coordinate_systems;
};

PRCGlobals readFileStructureGlobals(PRCBitReader& r);

}  // namespace prc
