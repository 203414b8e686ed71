#include "platform/wide_text.h"

#include <cwctype>

namespace {

// Bytes that cannot be decoded are parked in the upper half of the low
// surrogates: valid UTF-8 never encodes a surrogate, so the escape can never
// be mistaken for a decoded character.
constexpr char32_t kEscapeBase = 0xDC00;
constexpr char32_t kEscapeFirst = 0xDC80;
constexpr char32_t kEscapeLast = 0xDCFF;

constexpr bool kUtf16 = sizeof(wchar_t) == 2;

bool isContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// Decodes the sequence that starts at bytes[i]; 0 when it is not a valid
// shortest-form encoding of a scalar value. The second byte's range excludes
// overlong forms (E0, F0), the surrogates (ED) and values above U+10FFFF (F4).
size_t decodeSequence(std::string_view bytes, size_t i, char32_t& value) {
    const unsigned char lead = static_cast<unsigned char>(bytes[i]);
    size_t length = 0;
    unsigned char low = 0x80, high = 0xBF;
    if (lead < 0x80) {
        value = lead;
        return 1;
    } else if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        value = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        value = lead & 0x0F;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        value = lead & 0x07;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    if (bytes.size() - i < length) return 0;
    const unsigned char second = static_cast<unsigned char>(bytes[i + 1]);
    if (second < low || second > high) return 0;
    for (size_t k = 1; k < length; ++k) {
        const unsigned char byte = static_cast<unsigned char>(bytes[i + k]);
        if (!isContinuation(byte)) return 0;
        value = (value << 6) | (byte & 0x3F);
    }
    return length;
}

void appendCodePoint(std::wstring& out, char32_t value) {
    if (kUtf16 && value > 0xFFFF) {
        value -= 0x10000;
        out.push_back(static_cast<wchar_t>(0xD800 + (value >> 10)));
        out.push_back(static_cast<wchar_t>(0xDC00 + (value & 0x3FF)));
    } else {
        out.push_back(static_cast<wchar_t>(value));
    }
}

void appendUtf8(std::string& out, char32_t value) {
    if (value > 0x10FFFF) value = 0xFFFD;  // no wide text we build holds one
    if (value < 0x80) {
        out.push_back(static_cast<char>(value));
    } else if (value < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (value >> 6)));
        out.push_back(static_cast<char>(0x80 | (value & 0x3F)));
    } else if (value < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (value >> 12)));
        out.push_back(static_cast<char>(0x80 | ((value >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (value & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (value >> 18)));
        out.push_back(static_cast<char>(0x80 | ((value >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((value >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (value & 0x3F)));
    }
}

bool needsQuotes(std::wstring_view argument) {
    if (argument.empty()) return true;
    for (wchar_t c : argument) {
        if (c == L'"' || std::iswspace(static_cast<wint_t>(c))) return true;
    }
    return false;
}

}  // namespace

std::wstring decodeUtf8Lossless(std::string_view bytes) {
    std::wstring out;
    out.reserve(bytes.size());
    size_t i = 0;
    while (i < bytes.size()) {
        char32_t value = 0;
        const size_t length = decodeSequence(bytes, i, value);
        if (length == 0) {
            appendCodePoint(out, kEscapeBase + static_cast<unsigned char>(bytes[i]));
            ++i;
        } else {
            appendCodePoint(out, value);
            i += length;
        }
    }
    return out;
}

std::string encodeUtf8Lossless(std::wstring_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t value = static_cast<char32_t>(text[i]);
        if constexpr (kUtf16) {
            value &= 0xFFFF;
            // A decoded supplementary character is always a whole pair, and an
            // escaped byte never follows an unpaired high surrogate.
            if (value >= 0xD800 && value <= 0xDBFF && i + 1 < text.size()) {
                const char32_t next = static_cast<char32_t>(text[i + 1]) & 0xFFFF;
                if (next >= 0xDC00 && next <= 0xDFFF) {
                    appendUtf8(out, 0x10000 + ((value - 0xD800) << 10) + (next - 0xDC00));
                    ++i;
                    continue;
                }
            }
        }
        if (value >= kEscapeFirst && value <= kEscapeLast) {
            out.push_back(static_cast<char>(value - kEscapeBase));
        } else {
            appendUtf8(out, value);
        }
    }
    return out;
}

std::wstring quoteCommandLineArgument(std::wstring_view argument) {
    if (!needsQuotes(argument)) return std::wstring(argument);
    // Backslashes are literal except in a run that ends at a quote, where the
    // splitter halves the run; so such a run is doubled, plus one backslash to
    // make the quote literal. The run before the closing quote is doubled only.
    std::wstring out = L"\"";
    size_t backslashes = 0;
    for (wchar_t c : argument) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        if (c == L'"') {
            out.append(2 * backslashes + 1, L'\\');
        } else {
            out.append(backslashes, L'\\');
        }
        backslashes = 0;
        out.push_back(c);
    }
    out.append(2 * backslashes, L'\\');
    out.push_back(L'"');
    return out;
}

std::wstring joinCommandLine(const std::vector<std::wstring>& arguments) {
    std::wstring line;
    for (size_t i = 0; i < arguments.size(); ++i) {
        if (i != 0) line.push_back(L' ');
        line += quoteCommandLineArgument(arguments[i]);
    }
    return line;
}
