#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

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

// Valid UTF-8 decodes to its code points, from the first and to the last of
// each length; every other byte becomes U+DC00 + byte (overlong forms,
// surrogates, beyond U+10FFFF, cut or broken sequences), and encoding gives
// the bytes back.
TEST(WideText, Utf8DecodesLosslessly) {
    const std::pair<std::string, std::wstring> cases[] = {
        {"\x7F\xC2\x80\xDF\xBF", L"\x7F\u0080\u07FF"}, {"\xE0\xA0\x80\xED\x9F\xBF\xEF\xBF\xBF", L"\u0800\uD7FF\uFFFF"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", L"\U00010000\U0010FFFF"},
        {"\xC0\xAF\xC1\xBF\xF5", L"\xDCC0\xDCAF\xDCC1\xDCBF\xDCF5"}, {"\xE0\x9F\xBF", L"\xDCE0\xDC9F\xDCBF"},
        {"\xED\xA0\x80", L"\xDCED\xDCA0\xDC80"}, {"\xF0\x8F\xBF\xBF", L"\xDCF0\xDC8F\xDCBF\xDCBF"},
        {"\xF4\x90\x80\x80", L"\xDCF4\xDC90\xDC80\xDC80"}, {"\x80\xFF\xE4\xB8", L"\xDC80\xDCFF\xDCE4\xDCB8"},
        {"\xE4\x41\x80\xE4\xB8\x41", L"\xDCE4" L"A\xDC80\xDCE4\xDCB8" L"A"},
    };
    for (const auto& [bytes, text] : cases) {
        EXPECT_EQ(decodeUtf8Lossless(bytes), text) << bytes;
        EXPECT_EQ(encodeUtf8Lossless(text), bytes);
    }
}

}  // namespace
