#include "prc/entities/representation_item.h"

#include "tests/prc/entities/entity_test_util.h"

namespace prc::test {
namespace {

PRCRepresentationItem readBack(const RepresentationItemFields& fields, uint32_t version = kOldVersion) {
    PRCBitWriter w;
    writeRepresentationItem(w, version, fields);
    PRCRepresentationItem item;
    expectReadsExactly(w, version, [&](PRCBitReader& r) { item = readRepresentationItem(r); });
    return item;
}

std::string failure(const PRCBitWriter& w) {
    return failureOf(w, kOldVersion, [](PRCBitReader& r) { readRepresentationItem(r); });
}

TEST(RepresentationItem, EmptyItemIsTheTypeCodeAlone) {
    PRCBitWriter w;
    w.writeUnsignedInteger(0);
    w.writeBitString("1111");  // would be user data if any were read
    PRCBitReader r = readerOn(w, kOldVersion);
    const PRCRepresentationItem item = readRepresentationItem(r);
    EXPECT_EQ(r.bitIndex(), 1u);
    EXPECT_EQ(item.type, 0u);
    EXPECT_EQ(item.index_tessellation, -1);
    EXPECT_EQ(item.index_local_coordinate_system, -1);
    EXPECT_EQ(item.line_style_index, 0xFFFFFFFFu);
    EXPECT_TRUE(item.items.empty());
    EXPECT_EQ(item.transformation, kIdentityMatrix);
}

TEST(RepresentationItem, EveryKindKeepsItsHead) {
    // Each kind with and without its optional parts, at both graphics layouts;
    // only a coordinate system has a matrix other than the identity.
    for (uint32_t version : {kOldVersion, kNewVersion})
        for (uint32_t type = 232; type <= 240; ++type)
            for (bool flag : {false, true}) {
                const RepresentationItemFields s{.type = type,
                                                 .graphics = {.style_plus_one = 7},
                                                 .coordinate_system_plus_one = 1,
                                                 .tessellation_plus_one = type,
                                                 .flag = flag,
                                                 .is_closed = !flag,
                                                 .points = flag ? 3u : 0u,
                                                 .cartesian = {.behaviour = 0x01, .origin = {1, 2, 3}},
                                                 .user_data_bits = flag ? 13u : 0u};
                const PRCRepresentationItem item = readBack(s, version);
                EXPECT_EQ(item.type, type);
                EXPECT_EQ(item.index_local_coordinate_system, 0);
                EXPECT_EQ(item.index_tessellation, int64_t(type) - 1);
                EXPECT_EQ(item.line_style_index, 6u);
                EXPECT_EQ(item.transformation[3], type == 240 ? 1.0 : 0.0) << type;
            }
    const Matrix4 m{0, -1, 0, 5, 1, 0, 0, 6, 0, 0, 2, 7, 0, 0, 0, 1};
    EXPECT_EQ(readBack(RepresentationItemFields::coordinateSystem(m)).transformation, m);
}

TEST(RepresentationItem, SetsKeepTheirChildrenInOrder) {
    const RepresentationItemFields a{.coordinate_system_plus_one = 3, .tessellation_plus_one = 1};
    const RepresentationItemFields b{.graphics = {.style_plus_one = 2}, .tessellation_plus_one = 2};
    RepresentationItemFields outer = RepresentationItemFields::set(
        {RepresentationItemFields::set({a}), RepresentationItemFields::set({b}), RepresentationItemFields{.type = 0}});
    outer.tessellation_plus_one = 9;

    const PRCRepresentationItem item = readBack(outer);
    EXPECT_EQ(item.index_tessellation, 8);
    ASSERT_EQ(item.items.size(), 3u);
    ASSERT_EQ(item.items[0].items.size(), 1u);
    ASSERT_EQ(item.items[1].items.size(), 1u);
    const PRCRepresentationItem& first = item.items[0].items[0];
    const PRCRepresentationItem& second = item.items[1].items[0];
    EXPECT_EQ(first.type, 237u);
    EXPECT_EQ(first.index_tessellation, 0);
    EXPECT_EQ(first.index_local_coordinate_system, 2);
    EXPECT_EQ(first.line_style_index, 0xFFFFFFFFu);
    EXPECT_EQ(second.index_tessellation, 1);
    EXPECT_EQ(second.line_style_index, 1u);
    EXPECT_EQ(item.items[2].type, 0u);
}

TEST(RepresentationItem, Failures) {
    for (uint32_t type : {1u, 231u, 241u}) {
        PRCBitWriter w;
        w.writeUnsignedInteger(type);
        EXPECT_EQ(failure(w), "readRepresentationItem: unhandled type (" + std::to_string(type) + ")");
    }
    PRCBitWriter set;  // a bad child fails the whole set
    writeRepresentationItem(
        set, kOldVersion,
        RepresentationItemFields::set({RepresentationItemFields{}, RepresentationItemFields{.type = 231}}));
    EXPECT_EQ(failure(set), "readRepresentationItem: unhandled type (231)");

    PRCBitWriter system;  // a coordinate system fails as its transformation does
    system.writeUnsignedInteger(240);
    writeContentBase(system, 240, std::string("item"));
    writeGraphics(system, kOldVersion, {});
    system.writeBitString("0 0");  // no coordinate system, no tessellation
    system.writeUnsignedInteger(203);
    EXPECT_EQ(failure(system), "readTransformation3d: unknown transformation type");

    RepresentationItemFields points{.type = 236};
    for (const auto& [list, fields] : {std::pair{"Set.items", nestedSets(2)}, std::pair{"PointSet.points", points}})
        expectHostileCountFails(
            list, [&](PRCBitWriter& w) { writeRepresentationItem(w, kOldVersion, fields); }, kOldVersion,
            [](PRCBitReader& r) { readRepresentationItem(r); });
}

TEST(RepresentationItem, NestingIsBounded) {
    PRCBitWriter deepest, beyond, chain;  // kMaxRepresentationItemDepth levels: sets and the innermost item
    writeRepresentationItem(deepest, kOldVersion, nestedSets(kMaxRepresentationItemDepth - 1));
    expectReadsExactly(deepest, kOldVersion, [](PRCBitReader& r) { readRepresentationItem(r); });

    const std::string tooDeep = "readRepresentationItem: sets nested too deeply";
    writeRepresentationItem(beyond, kOldVersion, nestedSets(kMaxRepresentationItemDepth));
    EXPECT_EQ(failure(beyond), tooDeep);
    for (int i = 0; i < 100000; ++i) {  // far deeper than any stack could follow
        chain.writeUnsignedInteger(239);
        writeContentBase(chain, 239, std::nullopt);
        writeGraphics(chain, kOldVersion, {.same_as_current = true});
        chain.writeBitString("0 0");
        chain.writeUnsignedInteger(1);
    }
    EXPECT_EQ(failure(chain), tooDeep);
}

}  // namespace
}  // namespace prc::test
