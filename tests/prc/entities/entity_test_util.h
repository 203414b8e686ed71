#pragma once
// Reading entities back from what the test writers wrote.

#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <string>

#include "prc/io/bit_reader.h"
#include "tests/support/prc_entity_writer.h"

namespace prc::test {

// 8137 is the last version without the count after every Graphics block;
// 0xFFFFFFFF stands for a file structure without a readable head.
constexpr uint32_t kOldVersion = 8137;
constexpr uint32_t kNewVersion = 0xFFFFFFFF;

using ReadFn = std::function<void(PRCBitReader&)>;

inline PRCBitReader readerOn(const PRCBitWriter& w, uint32_t version) {
    return PRCBitReader(w.bytes().data(), w.bytes().size(), version);
}

// Runs read over the written bits and checks that it stops exactly after the
// last bit written.
inline void expectReadsExactly(const PRCBitWriter& w, uint32_t version, const ReadFn& read) {
    PRCBitReader r = readerOn(w, version);
    ASSERT_NO_THROW(read(r));
    EXPECT_EQ(r.bitIndex(), w.bitCount());
}

// The message of the failure that read raises, or "" when it succeeds.
inline std::string failureOf(const PRCBitWriter& w, uint32_t version, const ReadFn& read) {
    PRCBitReader r = readerOn(w, version);
    try {
        read(r);
    } catch (const std::exception& e) {
        return e.what();
    }
    return "";
}

// Writes with the count of `list` replaced by 4,000,000,000 and cut right
// after it; the reader must run out of data, not allocate for the count. The
// last byte is filled with 1 bits: whatever the list holds (a type code, an
// UnsignedInteger, a Double, a byte), they cannot complete one more entry,
// while zero bits would read as a type code 0 and fail otherwise.
inline void expectHostileCountFails(const std::string& list, const std::function<void(PRCBitWriter&)>& write,
                                    uint32_t version, const ReadFn& read) {
    PRCBitWriter w;
    {
        HostileCount hostile(list);
        try {
            write(w);
        } catch (const HostileCountWritten&) {
        }
        ASSERT_TRUE(hostile.used()) << list << " was never written";
    }
    while (w.bitCount() % 8 != 0) w.writeBit(true);
    EXPECT_EQ(failureOf(w, version, read), "PRCBitReader: read past end") << list;
}

}  // namespace prc::test
