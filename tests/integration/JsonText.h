#pragma once
// A small JSON reader and the styled writer the tool's telemetry file is
// written with, so that tests can read that file and check its exact text
// without the tool's own library.
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace it {

struct JsonValue {
    enum class Kind { Null, Bool, Int, Real, String, Array, Object };
    Kind kind = Kind::Null;
    bool boolean = false;
    int64_t integer = 0;
    std::string text;  // a string's UTF-8, or a real number as written
    std::vector<JsonValue> items;
    std::vector<std::pair<std::string, JsonValue>> members;  // in the order of the text

    static JsonValue String(const std::string& utf8);
    static JsonValue Int(int64_t value);
    static JsonValue Object();
    static JsonValue Array();

    bool IsObject() const { return kind == Kind::Object; }
    bool IsArray() const { return kind == Kind::Array; }
    // A member of an object; nothing when absent or not an object.
    const JsonValue* Find(const std::string& key) const;
    JsonValue& Set(const std::string& key, JsonValue value);
    std::vector<std::string> Keys() const;
    bool operator==(const JsonValue& other) const;
};

struct JsonParse {
    std::optional<JsonValue> value;  // nothing on a syntax error
    size_t end = 0;                  // offset just behind the value
    std::string error;
};

// Reads one value from the start of the text (leading white space skipped);
// what follows it is not looked at.
JsonParse ParseJsonPrefix(const std::string& text);
// The whole text must be one value with nothing but white space behind it.
std::optional<JsonValue> ParseJson(const std::string& text);

// The text the tool's writer gives for a document: tab indentation, one
// member or element a line, " : " between key and value, object keys in byte
// order, characters outside ASCII as \u escapes, a line feed at the end.
// Real numbers are not supported (the telemetry entry has none).
std::string StyledJson(const JsonValue& value);

}  // namespace it
