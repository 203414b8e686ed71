#include "prc/entities/transformation.h"

#include <stdexcept>

#include "prc/entities/entity_framing.h"

namespace prc {

namespace {

// Bits of the behaviour byte of a cartesian transformation; 0x04 and 0x80
// carry no data.
constexpr uint8_t kTranslate = 0x01;
constexpr uint8_t kRotate = 0x02;
constexpr uint8_t kUniformScale = 0x08;
constexpr uint8_t kNonUniformScale = 0x10;
constexpr uint8_t kNonOrthogonal = 0x20;
constexpr uint8_t kHomogeneous = 0x40;

// The behaviour byte and the data its bits call for, in stream order: origin,
// axes, scale vector, uniform scale, homogeneous values. Planes embed the same
// layout without a type code.
Matrix4 readCartesianTransformation(PRCBitReader& r) {
    const uint8_t behaviour = r.readCharacter();
    Vector3d origin;
    if (behaviour & kTranslate) origin = r.readVector3d();
    Vector3d x{1, 0, 0}, y{0, 1, 0}, z{0, 0, 1};
    if (behaviour & kNonOrthogonal) {
        x = r.readVector3d();
        y = r.readVector3d();
        z = r.readVector3d();
    } else if (behaviour & kRotate) {
        x = r.readVector3d();
        y = r.readVector3d();
        z = {x.y * y.z - x.z * y.y, x.z * y.x - x.x * y.z, x.x * y.y - x.y * y.x};
    }
    Vector3d scale{1, 1, 1};
    if (behaviour & kNonUniformScale) scale = r.readVector3d();
    double uniform = 1.0;
    if (behaviour & kUniformScale) uniform = r.readDouble();
    if (behaviour & kHomogeneous)
        for (int i = 0; i < 4; ++i) r.readDouble();  // perspective terms: a placement never uses them

    // Axes stay as stored, not normalised: their length is part of the placement.
    const double axes[3][3] = {{x.x, x.y, x.z}, {y.x, y.y, y.z}, {z.x, z.y, z.z}};
    const double factors[3] = {scale.x, scale.y, scale.z};
    const double translation[3] = {origin.x, origin.y, origin.z};
    Matrix4 m = kIdentityMatrix;
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column)
            m[size_t(4 * row + column)] = axes[column][row] * factors[column] * uniform;
        m[size_t(4 * row + 3)] = translation[row];
    }
    return m;
}

}  // namespace

Matrix4 readTransformation3d(PRCBitReader& r) {
    const uint32_t code = r.readUnsignedInteger();
    if (code == kCartesianTransformation) return readCartesianTransformation(r);
    if (code != kGeneralTransformation) throw std::runtime_error("readTransformation3d: unknown transformation type");
    // Stored column after column; the bottom row is kept as the data has it.
    Matrix4 m{};
    for (int column = 0; column < 4; ++column)
        for (int row = 0; row < 4; ++row) m[size_t(4 * row + column)] = r.readDouble();
    return m;
}

void readSurfacePlane(PRCBitReader& r) {
    readExpectedType(r, kSurfacePlane, "PRCSurfacePlane");
    if (r.readBoolean()) {  // base information: attributes, name, one identifier
        readAttributes(r);
        if (!r.readBoolean()) r.current_name = r.readString();
        r.readUnsignedInteger();
    }
    r.readUnsignedInteger();
    readCartesianTransformation(r);
    for (int i = 0; i < 8; ++i) r.readDouble();  // parameterisation: two groups of four
}

}  // namespace prc
