#include "tests/support/mini_json.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace prc::test {

namespace {

class Parser {
public:
    explicit Parser(const std::string& text) : s_(text) {}

    JsonValue document() {
        JsonValue v = value(0);
        skipSpace();
        if (pos_ != s_.size()) fail("trailing characters");
        return v;
    }

private:
    [[noreturn]] void fail(const char* what) const {
        throw std::runtime_error(std::string("json: ") + what + " at offset " + std::to_string(pos_));
    }
    void skipSpace() {
        while (pos_ < s_.size() && (s_[pos_] == ' ' || s_[pos_] == '\n' || s_[pos_] == '\r' || s_[pos_] == '\t'))
            ++pos_;
    }
    bool take(char c) {
        skipSpace();
        if (pos_ < s_.size() && s_[pos_] == c) {
            ++pos_;
            return true;
        }
        return false;
    }
    void expect(char c) {
        if (!take(c)) fail("unexpected character");
    }
    bool word(const char* w) {
        const std::string k(w);
        if (s_.compare(pos_, k.size(), k) != 0) return false;
        pos_ += k.size();
        return true;
    }

    JsonValue value(int depth) {
        if (depth > 64) fail("nesting too deep");
        skipSpace();
        if (pos_ >= s_.size()) fail("unexpected end");
        JsonValue v;
        const char c = s_[pos_];
        if (c == '{') {
            ++pos_;
            v.kind = JsonValue::Kind::Object;
            if (take('}')) return v;
            do {
                skipSpace();
                std::string key = string();
                expect(':');
                v.object[key] = value(depth + 1);
            } while (take(','));
            expect('}');
        } else if (c == '[') {
            ++pos_;
            v.kind = JsonValue::Kind::Array;
            if (take(']')) return v;
            do v.array.push_back(value(depth + 1));
            while (take(','));
            expect(']');
        } else if (c == '"') {
            v.kind = JsonValue::Kind::String;
            v.string = string();
        } else if (word("true")) {
            v.kind = JsonValue::Kind::Boolean;
            v.boolean = true;
        } else if (word("false")) {
            v.kind = JsonValue::Kind::Boolean;
        } else if (word("null")) {
        } else {
            const char* begin = s_.c_str() + pos_;
            char* end = nullptr;
            v.kind = JsonValue::Kind::Number;
            v.number = std::strtod(begin, &end);
            if (end == begin) fail("bad value");
            pos_ += size_t(end - begin);
        }
        return v;
    }

    // Escapes other than \uXXXX are enough for these files; \u keeps ASCII only.
    std::string string() {
        if (pos_ >= s_.size() || s_[pos_] != '"') fail("expected a string");
        ++pos_;
        std::string out;
        while (pos_ < s_.size() && s_[pos_] != '"') {
            char c = s_[pos_++];
            if (c == '\\') {
                if (pos_ >= s_.size()) fail("unexpected end");
                const char e = s_[pos_++];
                switch (e) {
                    case 'n': c = '\n'; break;
                    case 't': c = '\t'; break;
                    case 'r': c = '\r'; break;
                    case 'b': c = '\b'; break;
                    case 'f': c = '\f'; break;
                    case 'u': {
                        if (pos_ + 4 > s_.size()) fail("bad escape");
                        const unsigned long code = std::strtoul(s_.substr(pos_, 4).c_str(), nullptr, 16);
                        pos_ += 4;
                        c = code < 0x80 ? char(code) : '?';
                        break;
                    }
                    default: c = e; break;
                }
            }
            out.push_back(c);
        }
        if (pos_ >= s_.size()) fail("unterminated string");
        ++pos_;
        return out;
    }

    const std::string& s_;
    size_t pos_ = 0;
};

}  // namespace

const JsonValue& JsonValue::operator[](const std::string& key) const {
    auto it = object.find(key);
    if (kind != Kind::Object || it == object.end()) throw std::runtime_error("json: no key " + key);
    return it->second;
}

JsonValue parseJson(const std::string& text) { return Parser(text).document(); }

JsonValue readJsonFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("json: cannot open " + path);
    std::ostringstream text;
    text << in.rdbuf();
    return parseJson(text.str());
}

}  // namespace prc::test
