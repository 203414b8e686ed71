#pragma once
// Conversions between the byte strings that POSIX hands out (argv, paths) and
// the wide strings that the worker works with, and the quoting that turns an
// argument list back into one command line.

#include <string>
#include <string_view>
#include <vector>

// UTF-8 to wide text without loss: a byte that does not belong to a valid,
// shortest-form sequence of a scalar value becomes U+DC80 + (byte - 0x80), a
// code point that valid UTF-8 can never produce, so every byte string comes
// back unchanged from encodeUtf8Lossless.
std::wstring decodeUtf8Lossless(std::string_view bytes);

// The inverse of decodeUtf8Lossless: U+DC80..U+DCFF become their single byte,
// every other value its UTF-8 sequence.
std::string encodeUtf8Lossless(std::wstring_view text);

// One argument written so that the command-line splitter gives it back as it
// is: bare when it holds no white space or quote and is not empty, else
// between quotes with the backslashes before a quote doubled.
std::wstring quoteCommandLineArgument(std::wstring_view argument);

// The arguments quoted and joined by single spaces.
std::wstring joinCommandLine(const std::vector<std::wstring>& arguments);
