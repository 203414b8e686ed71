#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/wide_text.h"
#include "worker/command_line.h"
#include "worker/worker_entry.h"

namespace {

using Args = std::vector<std::wstring>;

TEST(SplitCommandLine, WhiteSpaceQuotesAndBackslashRuns) {
    const std::pair<const wchar_t*, Args> cases[] = {
        {nullptr, {}}, {L" \t ", {}}, {L"\"\" \"\"", {L"", L""}}, {L"m \"", {L"m", L""}},
        {L"  C:\\bin\\m.exe \t C:\\tmp\\a.prc  ", {L"C:\\bin\\m.exe", L"C:\\tmp\\a.prc"}},
        {L"a\\\\ b\\", {L"a\\\\", L"b\\"}},  // no quote after the run: literal
        {L"\"a\"b c\"d e\"", {L"ab", L"cd e"}},
        {L"\"a\"\"b\"", {L"a\"b"}}, {L"\"\"\"x", {L"\"x"}},
        {L"m \"say \"\"hi\"\"\"", {L"m", L"say \"hi\""}},
        {L"p \"open to the end", {L"p", L"open to the end"}},
        {L"m a\\\\\\\"b", {L"m", L"a\\\"b"}},  // odd run: halved, the quote literal
        {L"a\\\\\"b c\"", {L"a\\b c"}},         // even run: halved, the quote opens
        {L"\"a\\\\\"\"b\"", {L"a\\b"}},        // a quote after a run never pairs with the next
        {L"\"a\\\"\" b", {L"a\"", L"b"}},
    };
    for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(splitCommandLine(cases[i].first), cases[i].second) << "row " << i;
}

TEST(InputPathArgument, NeedsExactlyTheProgramAndOnePath) {
    const std::pair<const wchar_t*, std::optional<std::wstring>> cases[] = {
        {L"  m.exe   \"C:\\a b.prc\" ", L"C:\\a b.prc"}, {L"m.exe \"", L""}, {nullptr, std::nullopt},
        {L" \t ", std::nullopt}, {L"m.exe    ", std::nullopt}, {L"m.exe a.prc b.prc", std::nullopt},
        {L"m.exe \"a\\\\\" b", std::nullopt},
    };
    for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(inputPathArgument(cases[i].first), cases[i].second) << "row " << i;
}

// argv bytes -> command line -> split -> bytes must give argv back, whatever
// the bytes: quotes, backslash runs, white space, empty, non-ASCII, invalid.
TEST(PosixCommandLine, RoundTripsRandomArgv) {
    const std::vector<std::string> pieces = {"a", " ", "\t", "\"", "\\", "\\\\", "\\\"", "\"\"", "\xC3\xA9", "\xE4\xB8\xAD",
                                             "\xF0\x9F\x98\x80", "\xFF", "\xC3", "\xED\xB2\x80", "\xC0\xAF", "/tmp/x y.prc"};
    std::mt19937 random(20240611);
    for (int round = 0; round < 3000; ++round) {
        std::vector<std::string> argv(1 + random() % 5);
        for (std::string& arg : argv) {
            for (unsigned n = random() % 7; n > 0; --n) arg += pieces[random() % pieces.size()];
        }
        std::vector<char*> pointers;
        for (std::string& arg : argv) pointers.push_back(arg.data());
        pointers.push_back(nullptr);
        std::vector<std::string> back;
        for (const std::wstring& arg : splitCommandLine(platformCommandLine(int(argv.size()), pointers.data()).c_str()))
            back.push_back(encodeUtf8Lossless(arg));
        ASSERT_EQ(back, argv) << "round " << round;
    }
}

}  // namespace
