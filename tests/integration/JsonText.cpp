#include "JsonText.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace it {

JsonValue JsonValue::String(const std::string& utf8)
{
    JsonValue v;
    v.kind = Kind::String;
    v.text = utf8;
    return v;
}

JsonValue JsonValue::Int(int64_t value)
{
    JsonValue v;
    v.kind = Kind::Int;
    v.integer = value;
    return v;
}

JsonValue JsonValue::Object()
{
    JsonValue v;
    v.kind = Kind::Object;
    return v;
}

JsonValue JsonValue::Array()
{
    JsonValue v;
    v.kind = Kind::Array;
    return v;
}

const JsonValue* JsonValue::Find(const std::string& key) const
{
    if (kind != Kind::Object)
        return nullptr;
    for (const auto& [name, value] : members)
        if (name == key)
            return &value;
    return nullptr;
}

JsonValue& JsonValue::Set(const std::string& key, JsonValue value)
{
    kind = Kind::Object;
    for (auto& [name, existing] : members)
        if (name == key)
            return existing = std::move(value);
    members.emplace_back(key, std::move(value));
    return members.back().second;
}

std::vector<std::string> JsonValue::Keys() const
{
    std::vector<std::string> keys;
    for (const auto& member : members)
        keys.push_back(member.first);
    return keys;
}

bool JsonValue::operator==(const JsonValue& other) const
{
    if (kind != other.kind)
        return false;
    switch (kind) {
    case Kind::Null:
        return true;
    case Kind::Bool:
        return boolean == other.boolean;
    case Kind::Int:
        return integer == other.integer;
    case Kind::Real:
    case Kind::String:
        return text == other.text;
    case Kind::Array:
        return items == other.items;
    case Kind::Object: {
        // Member order is not part of an object's value.
        if (members.size() != other.members.size())
            return false;
        for (const auto& [name, value] : members) {
            const JsonValue* theirs = other.Find(name);
            if (!theirs || !(*theirs == value))
                return false;
        }
        return true;
    }
    }
    return false;
}

namespace {

class Reader {
public:
    explicit Reader(const std::string& text) : s_(text) {}

    JsonValue value(int depth)
    {
        if (depth > 1000)
            throw std::runtime_error("nesting too deep");
        skipBlanks();
        if (pos_ >= s_.size())
            throw std::runtime_error("unexpected end of text");
        char c = s_[pos_];
        if (c == '{')
            return object(depth);
        if (c == '[')
            return array(depth);
        if (c == '"') {
            JsonValue v;
            v.kind = JsonValue::Kind::String;
            v.text = string();
            return v;
        }
        if (c == '-' || (c >= '0' && c <= '9'))
            return number();
        if (literal("true")) {
            JsonValue v;
            v.kind = JsonValue::Kind::Bool;
            v.boolean = true;
            return v;
        }
        if (literal("false")) {
            JsonValue v;
            v.kind = JsonValue::Kind::Bool;
            return v;
        }
        if (literal("null"))
            return JsonValue();
        throw std::runtime_error("unexpected character");
    }

    void skipBlanks()
    {
        while (pos_ < s_.size() && (s_[pos_] == ' ' || s_[pos_] == '\t' || s_[pos_] == '\r' || s_[pos_] == '\n'))
            ++pos_;
    }

    size_t pos() const { return pos_; }

private:
    const std::string& s_;
    size_t pos_ = 0;

    bool literal(const char* word)
    {
        size_t n = std::char_traits<char>::length(word);
        if (s_.compare(pos_, n, word) != 0)
            return false;
        pos_ += n;
        return true;
    }

    void expect(char c)
    {
        skipBlanks();
        if (pos_ >= s_.size() || s_[pos_] != c)
            throw std::runtime_error(std::string("expected '") + c + "'");
        ++pos_;
    }

    JsonValue object(int depth)
    {
        JsonValue v = JsonValue::Object();
        ++pos_;
        skipBlanks();
        if (pos_ < s_.size() && s_[pos_] == '}') {
            ++pos_;
            return v;
        }
        for (;;) {
            skipBlanks();
            if (pos_ >= s_.size() || s_[pos_] != '"')
                throw std::runtime_error("expected a key");
            std::string key = string();
            expect(':');
            v.members.emplace_back(std::move(key), value(depth + 1));
            skipBlanks();
            if (pos_ < s_.size() && s_[pos_] == ',') {
                ++pos_;
                continue;
            }
            expect('}');
            return v;
        }
    }

    JsonValue array(int depth)
    {
        JsonValue v = JsonValue::Array();
        ++pos_;
        skipBlanks();
        if (pos_ < s_.size() && s_[pos_] == ']') {
            ++pos_;
            return v;
        }
        for (;;) {
            v.items.push_back(value(depth + 1));
            skipBlanks();
            if (pos_ < s_.size() && s_[pos_] == ',') {
                ++pos_;
                continue;
            }
            expect(']');
            return v;
        }
    }

    JsonValue number()
    {
        size_t start = pos_;
        bool real = false;
        if (s_[pos_] == '-')
            ++pos_;
        while (pos_ < s_.size()) {
            char c = s_[pos_];
            if (c >= '0' && c <= '9') {
                ++pos_;
            } else if (c == '.' || c == 'e' || c == 'E' || c == '+' || (c == '-' && pos_ > start)) {
                real = true;
                ++pos_;
            } else {
                break;
            }
        }
        std::string digits = s_.substr(start, pos_ - start);
        if (digits == "-" || digits.empty())
            throw std::runtime_error("bad number");
        JsonValue v;
        if (real) {
            v.kind = JsonValue::Kind::Real;
            v.text = digits;
        } else {
            v.kind = JsonValue::Kind::Int;
            v.integer = std::stoll(digits);
        }
        return v;
    }

    unsigned hex4()
    {
        if (pos_ + 4 > s_.size())
            throw std::runtime_error("short \\u escape");
        unsigned value = 0;
        for (int i = 0; i < 4; ++i) {
            char c = s_[pos_++];
            value <<= 4;
            if (c >= '0' && c <= '9')
                value |= static_cast<unsigned>(c - '0');
            else if (c >= 'a' && c <= 'f')
                value |= static_cast<unsigned>(c - 'a' + 10);
            else if (c >= 'A' && c <= 'F')
                value |= static_cast<unsigned>(c - 'A' + 10);
            else
                throw std::runtime_error("bad \\u escape");
        }
        return value;
    }

    static void appendUtf8(std::string& out, unsigned cp)
    {
        if (cp < 0x80) {
            out.push_back(static_cast<char>(cp));
        } else if (cp < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else if (cp < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        }
    }

    std::string string()
    {
        ++pos_;  // opening quote
        std::string out;
        for (;;) {
            if (pos_ >= s_.size())
                throw std::runtime_error("unterminated string");
            char c = s_[pos_++];
            if (c == '"')
                return out;
            if (c != '\\') {
                out.push_back(c);
                continue;
            }
            if (pos_ >= s_.size())
                throw std::runtime_error("unterminated escape");
            char e = s_[pos_++];
            switch (e) {
            case '"': out.push_back('"'); break;
            case '\\': out.push_back('\\'); break;
            case '/': out.push_back('/'); break;
            case 'b': out.push_back('\b'); break;
            case 'f': out.push_back('\f'); break;
            case 'n': out.push_back('\n'); break;
            case 'r': out.push_back('\r'); break;
            case 't': out.push_back('\t'); break;
            case 'u': {
                unsigned cp = hex4();
                if (cp >= 0xD800 && cp < 0xDC00 && s_.compare(pos_, 2, "\\u") == 0) {
                    pos_ += 2;
                    unsigned low = hex4();
                    cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
                }
                appendUtf8(out, cp);
                break;
            }
            default:
                throw std::runtime_error("bad escape");
            }
        }
    }
};

// One UTF-8 sequence from the text; a broken one yields its first byte.
unsigned nextCodePoint(const std::string& s, size_t& i)
{
    unsigned char c = static_cast<unsigned char>(s[i++]);
    int extra = c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : c >= 0xC0 ? 1 : 0;
    unsigned cp = extra == 3 ? (c & 0x07) : extra == 2 ? (c & 0x0F) : extra == 1 ? (c & 0x1F) : c;
    for (int k = 0; k < extra && i < s.size(); ++k)
        cp = (cp << 6) | (static_cast<unsigned char>(s[i++]) & 0x3F);
    return cp;
}

void appendEscape(std::string& out, unsigned unit)
{
    char buffer[8];
    std::snprintf(buffer, sizeof buffer, "\\u%04x", unit);
    out += buffer;
}

std::string quoted(const std::string& s)
{
    std::string out = "\"";
    for (size_t i = 0; i < s.size();) {
        unsigned cp = nextCodePoint(s, i);
        switch (cp) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\b': out += "\\b"; break;
        case '\f': out += "\\f"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (cp >= 0x20 && cp < 0x80) {
                out.push_back(static_cast<char>(cp));
            } else if (cp < 0x10000) {
                appendEscape(out, cp);
            } else {
                cp -= 0x10000;
                appendEscape(out, 0xD800 + (cp >> 10));
                appendEscape(out, 0xDC00 + (cp & 0x3FF));
            }
        }
    }
    out += "\"";
    return out;
}

void styledObjectBody(std::string& out, const JsonValue& v, int depth);

void styled(std::string& out, const JsonValue& v, int depth)
{
    auto newline = [&](int level) {
        out.push_back('\n');
        out.append(static_cast<size_t>(level), '\t');
    };
    switch (v.kind) {
    case JsonValue::Kind::Null:
        out += "null";
        return;
    case JsonValue::Kind::Bool:
        out += v.boolean ? "true" : "false";
        return;
    case JsonValue::Kind::Int:
        out += std::to_string(v.integer);
        return;
    case JsonValue::Kind::Real:
        throw std::runtime_error("StyledJson: real numbers are not supported");
    case JsonValue::Kind::String:
        out += quoted(v.text);
        return;
    case JsonValue::Kind::Array:
        if (v.items.empty()) {
            out += "[]";
            return;
        }
        out += "[";
        for (size_t i = 0; i < v.items.size(); ++i) {
            newline(depth + 1);
            // An element opens on the line of its own indentation.
            styled(out, v.items[i], depth + 1);
            if (i + 1 < v.items.size())
                out += ",";
        }
        newline(depth);
        out += "]";
        return;
    case JsonValue::Kind::Object:
        if (v.members.empty()) {
            out += "{}";
            return;
        }
        styledObjectBody(out, v, depth);
        return;
    }
}

// Members in byte order of their keys, each on a line of its own.
void styledObjectBody(std::string& out, const JsonValue& v, int depth)
{
    std::vector<const std::pair<std::string, JsonValue>*> sorted;
    for (const auto& member : v.members)
        sorted.push_back(&member);
    std::sort(sorted.begin(), sorted.end(), [](auto* a, auto* b) { return a->first < b->first; });
    out += "{";
    for (size_t i = 0; i < sorted.size(); ++i) {
        out.push_back('\n');
        out.append(static_cast<size_t>(depth + 1), '\t');
        out += quoted(sorted[i]->first);
        out += " : ";
        const JsonValue& value = sorted[i]->second;
        // A non-empty object or array as a member value starts on a line of its own.
        if ((value.IsObject() && !value.members.empty()) || (value.IsArray() && !value.items.empty())) {
            out.push_back('\n');
            out.append(static_cast<size_t>(depth + 1), '\t');
        }
        styled(out, value, depth + 1);
        if (i + 1 < sorted.size())
            out += ",";
    }
    out.push_back('\n');
    out.append(static_cast<size_t>(depth), '\t');
    out += "}";
}

}  // namespace

JsonParse ParseJsonPrefix(const std::string& text)
{
    JsonParse result;
    Reader reader(text);
    try {
        result.value = reader.value(0);
        result.end = reader.pos();
    } catch (const std::exception& e) {
        result.value.reset();
        result.error = e.what();
        result.end = reader.pos();
    }
    return result;
}

std::optional<JsonValue> ParseJson(const std::string& text)
{
    Reader reader(text);
    try {
        JsonValue value = reader.value(0);
        reader.skipBlanks();
        if (reader.pos() != text.size())
            return std::nullopt;
        return value;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::string StyledJson(const JsonValue& value)
{
    std::string out;
    styled(out, value, 0);
    out += "\n";
    return out;
}

}  // namespace it
