#include "prc/entities/transformation.h"

#include "tests/prc/entities/entity_test_util.h"

namespace prc::test {
namespace {

Matrix4 readBack(const PRCBitWriter& w) {
    Matrix4 m{};
    expectReadsExactly(w, kOldVersion, [&](PRCBitReader& r) { m = readTransformation3d(r); });
    return m;
}

Matrix4 cartesian(const CartesianFields& t) {
    PRCBitWriter w;
    writeCartesianTransformation(w, t);
    return readBack(w);
}

TEST(Transformation, Cartesian) {
    PRCBitWriter identity;
    writeCartesianTransformation(identity, {});
    EXPECT_EQ(identity.bitCount(), 10u + 8u);  // the code and the behaviour byte only
    EXPECT_EQ(readBack(identity), kIdentityMatrix);

    // Rotation: Z = X x Y.
    EXPECT_EQ(cartesian({.behaviour = 0x02, .x = {0, 1, 0}, .y = {-1, 0, 0}}),
              (Matrix4{0, -1, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}));

    // Every bit, distinct values everywhere so that a swapped read shows:
    // non-orthogonal axes win over the rotation (Z read, nothing normalised),
    // both scales multiply, homogeneous terms are consumed and leave row 3,
    // 0x04 and 0x80 carry nothing.
    const CartesianFields all{.behaviour = 0xFF,
                              .origin = {10, 20, 30},
                              .x = {1, 2, 3},
                              .y = {4, 5, 6},
                              .z = {7, 8, 9},
                              .scale = {0.5, 0.25, 2},
                              .uniform_scale = 4,
                              .homogeneous = {0.25, 0.5, 0.75, 3}};
    EXPECT_EQ(cartesian(all), (Matrix4{2, 4, 56, 10, 4, 5, 64, 20, 6, 6, 72, 30, 0, 0, 0, 1}));
}

TEST(Transformation, GeneralAndUnknown) {
    PRCBitWriter w;  // stored column after column; row 3 as stored
    w.writeUnsignedInteger(207);
    for (int i = 1; i <= 16; ++i) w.writeDouble(i);
    EXPECT_EQ(readBack(w), (Matrix4{1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15, 4, 8, 12, 16}));

    PRCBitWriter unknown;
    unknown.writeUnsignedInteger(203);
    EXPECT_EQ(failureOf(unknown, kOldVersion, [](PRCBitReader& r) { readTransformation3d(r); }),
              "readTransformation3d: unknown transformation type");
}

TEST(SurfacePlane, ReadThrough) {
    PRCBitWriter plain;
    writeSurfacePlane(plain, {.transformation = {.behaviour = 0x7F}});
    expectReadsExactly(plain, kOldVersion, readSurfacePlane);

    // With base information, a name replaces the current one; the reuse bit keeps it.
    for (const NameField& name : {NameField("clip"), NameField()}) {
        PRCBitWriter w;
        writeSurfacePlane(w, {.base_information = true, .name = name, .attributes = {AttributeFields{}}});
        PRCBitReader r = readerOn(w, kOldVersion);
        r.current_name = "before";
        readSurfacePlane(r);
        EXPECT_EQ(r.bitIndex(), w.bitCount());
        EXPECT_EQ(r.current_name, name.value_or("before"));
    }

    PRCBitWriter wrong;
    writeSurfacePlane(wrong, {.type = 87});
    EXPECT_EQ(failureOf(wrong, kOldVersion, readSurfacePlane),
              "unexpected type for PRCSurfacePlane: expected 86, got 87");
}

}  // namespace
}  // namespace prc::test
