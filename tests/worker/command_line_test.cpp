#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/wide_text.h"
#include "worker/command_line.h"
#include "worker/worker_entry.h"

namespace {

using Args = std::vector<std::wstring>;

Args split(const wchar_t* line) { return splitCommandLine(line); }

TEST(SplitCommandLine, SeparatesOnWhiteSpaceAndKeepsPlainBackslashes) {
    EXPECT_EQ(split(L"  C:\\bin\\meshdrone.exe \t C:\\tmp\\a.prc  "), (Args{L"C:\\bin\\meshdrone.exe", L"C:\\tmp\\a.prc"}));
    EXPECT_EQ(split(L"a\\\\ b\\"), (Args{L"a\\\\", L"b\\"}));
    EXPECT_TRUE(split(L"").empty());
    EXPECT_TRUE(split(L" \t ").empty());
    EXPECT_TRUE(split(nullptr).empty());
}

TEST(SplitCommandLine, QuotesGroupJoinAndCanBeDoubled) {
    EXPECT_EQ(split(L"\"C:\\Program Files\\m.exe\" x"), (Args{L"C:\\Program Files\\m.exe", L"x"}));
    EXPECT_EQ(split(L"\"a\"b c\"d e\""), (Args{L"ab", L"cd e"}));
    EXPECT_EQ(split(L"\"\" \"\""), (Args{L"", L""}));
    EXPECT_EQ(split(L"\"a\"\"b\""), (Args{L"a\"b"}));
    EXPECT_EQ(split(L"\"\"\"x"), (Args{L"\"x"}));
    EXPECT_EQ(split(L"p \"open to the end"), (Args{L"p", L"open to the end"}));
}

TEST(SplitCommandLine, BackslashRunsBeforeAQuote) {
    EXPECT_EQ(split(L"a\\\"b"), (Args{L"a\"b"}));           // odd: literal quote
    EXPECT_EQ(split(L"a\\\\\"b c\""), (Args{L"a\\b c"}));    // even: halved, quote opens
    EXPECT_EQ(split(L"\"a\\\\\\\\\" b"), (Args{L"a\\\\", L"b"}));
    // A quote reached through backslashes never pairs with the next quote.
    EXPECT_EQ(split(L"\"a\\\\\"\"b\""), (Args{L"a\\b"}));
    EXPECT_EQ(split(L"\"a\\\"\" b"), (Args{L"a\"", L"b"}));
}

// The cases of the host contract, with the program path in front.
TEST(SplitCommandLine, HostContractCases) {
    EXPECT_EQ(split(L"m.exe \""), (Args{L"m.exe", L""}));
    EXPECT_EQ(split(L"m.exe \"C:\\Temp Dir\\x.prc\""), (Args{L"m.exe", L"C:\\Temp Dir\\x.prc"}));
    EXPECT_EQ(split(L"m.exe a\\\\\\\"b"), (Args{L"m.exe", L"a\\\"b"}));
    EXPECT_EQ(split(L"m.exe \"a\\\\\" b"), (Args{L"m.exe", L"a\\", L"b"}));
    EXPECT_EQ(split(L"m.exe \"say \"\"hi\"\"\""), (Args{L"m.exe", L"say \"hi\""}));
}

TEST(InputPathArgument, NeedsExactlyTheProgramAndOnePath) {
    EXPECT_EQ(inputPathArgument(L"  m.exe   \"C:\\a b.prc\" "), std::wstring(L"C:\\a b.prc"));
    EXPECT_EQ(inputPathArgument(L"m.exe \""), std::wstring());
    EXPECT_FALSE(inputPathArgument(nullptr));
    EXPECT_FALSE(inputPathArgument(L" \t "));
    EXPECT_FALSE(inputPathArgument(L"m.exe    "));
    EXPECT_FALSE(inputPathArgument(L"m.exe a.prc b.prc"));
    EXPECT_FALSE(inputPathArgument(L"m.exe \"a\\\\\" b"));
}

// argv bytes -> command line -> split -> bytes must give argv back, whatever
// the bytes: quotes, backslash runs, white space, empty, non-ASCII, invalid.
TEST(PosixCommandLine, RoundTripsRandomArgv) {
    const std::vector<std::string> pieces = {"a",    "Z",    " ",        "\t",       "\"",       "\\",    "\\\\",
                                             "\\\"", "\"\"", "\xC3\xA9", "\xE4\xB8\xAD", "\xF0\x9F\x98\x80",
                                             "\xFF", "\xC3", "\xED\xB2\x80", "\xC0\xAF", "/tmp/x y.prc"};
    std::mt19937 random(20240611);
    for (int round = 0; round < 3000; ++round) {
        std::vector<std::string> argv(1 + random() % 5);
        for (std::string& arg : argv) {
            for (unsigned n = random() % 7; n > 0; --n) arg += pieces[random() % pieces.size()];
        }
        std::vector<char*> pointers;
        for (std::string& arg : argv) pointers.push_back(arg.data());
        pointers.push_back(nullptr);

        const std::wstring line = platformCommandLine(int(argv.size()), pointers.data());
        const Args split = splitCommandLine(line.c_str());
        std::vector<std::string> back;
        for (const std::wstring& arg : split) back.push_back(encodeUtf8Lossless(arg));
        ASSERT_EQ(back, argv) << "round " << round;
    }
}

}  // namespace
