#pragma once
// Test-only reader of the small JSON files that describe expected results:
// objects, arrays, numbers, strings, true, false, null. No dependency.

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace prc::test {

struct JsonValue {
    enum class Kind { Null, Boolean, Number, String, Array, Object };
    Kind kind = Kind::Null;
    bool boolean = false;
    double number = 0.0;
    std::string string;
    std::vector<JsonValue> array;
    std::map<std::string, JsonValue> object;

    bool has(const std::string& key) const { return kind == Kind::Object && object.count(key) != 0; }
    const JsonValue& operator[](const std::string& key) const;  // throws when absent
    const JsonValue& operator[](size_t i) const { return array.at(i); }
    size_t size() const { return kind == Kind::Array ? array.size() : object.size(); }
};

// Throws std::runtime_error with the offset of the first bad character.
JsonValue parseJson(const std::string& text);
JsonValue readJsonFile(const std::string& path);

}  // namespace prc::test
