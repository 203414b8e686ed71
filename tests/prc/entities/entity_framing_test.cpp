#include "prc/entities/entity_framing.h"

#include "tests/prc/entities/entity_test_util.h"

namespace prc::test {
namespace {

TEST(EntityFraming, ContentBasesAndNames) {
    // Identifiers follow the type: 311 and the 0 some callers pass carry
    // them, 303 and 703 do not. A marker bit after each must stay unread.
    for (uint32_t type : {311u, 0u, 303u, 703u}) {
        PRCBitWriter w;
        writeContentBase(w, type, std::nullopt);
        w.writeBit(true);
        PRCBitReader r = readerOn(w, kOldVersion);
        EXPECT_EQ(readContentPRCBase(r, type), "");
        EXPECT_EQ(r.bitIndex() + 1, w.bitCount()) << type;
    }
    // A reused name is the last one read, which also blocks an empty base.
    PRCBitWriter w;
    writeContentBase(w, 311, std::string("A"));
    writeContentBase(w, 310, std::nullopt);
    w.writeUnsignedInteger(0);
    w.writeBit(true);
    EXPECT_EQ(failureOf(w, kOldVersion,
                        [](PRCBitReader& r) {
                            EXPECT_EQ(readContentPRCBase(r, 311), "A");
                            EXPECT_EQ(readContentPRCBase(r, 310), "A");
                            readEmptyContentPRCBase(r);
                        }),
              "readEmptyContentPRCBase: unexpected name (non-empty section?)");

    PRCBitWriter attributed;
    writeAttributes(attributed, {AttributeFields{}});
    attributed.writeEmptyName();
    EXPECT_EQ(failureOf(attributed, kOldVersion, readEmptyContentPRCBase),
              "readEmptyContentPRCBase: unexpected attributes (non-empty section?)");
}

TEST(EntityFraming, Attributes) {
    AttributeFields every;  // one key of each value type, titles by string and by number
    every.title_number = 12;
    for (uint32_t type = 0; type <= 5; ++type) {
        AttributeKeyFields key{.title = "k",
                               .title_number = {},
                               .value_type = type,
                               .integer = -300,
                               .number = 2.5,
                               .text = "v",
                               .unsigned_value = 70000};
        if (type % 2) key.title_number = type;
        every.keys.push_back(key);
    }
    PRCBitWriter w;
    writeContentBase(w, 311, std::string("named"), {every, AttributeFields{}});
    expectReadsExactly(w, kOldVersion, [](PRCBitReader& r) { EXPECT_EQ(readContentPRCBase(r, 311), "named"); });

    AttributeFields badValue;
    badValue.keys = {AttributeKeyFields{.value_type = 6}};
    AttributeFields badType;
    badType.type = 202;
    for (const auto& [attribute, message] :
         {std::pair{badValue, "readSingleAttribute: unhandled attribute type 6"},
          std::pair{badType, "unexpected type for PRCAttribute: expected 201, got 202"}}) {
        PRCBitWriter bad;
        writeAttributes(bad, {attribute});
        EXPECT_EQ(failureOf(bad, kOldVersion, readAttributes), message);
    }
    for (const char* list : {"Attributes", "Attribute.keys"})
        expectHostileCountFails(
            list, [](PRCBitWriter& w) { writeAttributes(w, {AttributeFields{}}); }, kOldVersion, readAttributes);
}

TEST(EntityFraming, ReferenceForms) {
    ReferenceFields other{.same_file_structure = false, .file_structure = {1, 2, 300, 4}, .unique_identifier = 99};
    ReferenceFields bare{.code = 206, .has_topology = false};
    ReferenceFields full = other;
    full.code = 206;
    full.indices = {5, 6, 7};
    for (const ReferenceFields& ref : {ReferenceFields{}, other, bare, full}) {
        PRCBitWriter w;
        writeReferenceData(w, ref);
        expectReadsExactly(w, kOldVersion, readReferenceData);
    }
    PRCBitWriter w;
    writeReferenceData(w, bare);
    EXPECT_EQ(w.bitCount(), 10u + 1u + 1u);  // 206 in one byte, target type 0, the bit

    PRCBitWriter unknown;
    writeReferenceData(unknown, ReferenceFields{.code = 207});
    EXPECT_EQ(failureOf(unknown, kOldVersion, readReferenceData), "ReferenceData: unknown type");
    EXPECT_EQ(failureOf(unknown, kOldVersion, [](PRCBitReader& r) { readReferenceOnPRCBase(r, "View.annotations"); }),
              "unexpected type for View.annotations: expected 205, got 207");
    expectHostileCountFails(
        "ReferenceData.indices", [&](PRCBitWriter& w) { writeReferenceData(w, full); }, kOldVersion, readReferenceData);
}

}  // namespace
}  // namespace prc::test
