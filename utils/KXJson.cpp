// JSON helpers that never throw, and the one compact writer of request bodies.
#include <climits>
#include <cstring>

#include "KXUtils.h"

namespace {

const Json::Value& NullValue() {
    static const Json::Value kNull;
    return kNull;
}

// A string as Json::FastWriter quotes it, except that bytes of 0x80 and above
// pass unchanged (FastWriter would turn them into \u escapes).
void AppendQuoted(std::string& out, const char* text, size_t length) {
    static const char kHex[] = "0123456789abcdef";
    out += '"';
    size_t plain = 0;  // start of the run of bytes that need no escape
    for (size_t i = 0; i < length; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c != '"' && c != '\\') continue;
        // Bodies are mostly Base64 and names: runs go out in one append.
        out.append(text + plain, i - plain);
        plain = i + 1;
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\b':
                out += "\\b";
                break;
            case '\f':
                out += "\\f";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                out += "\\u00";
                out += kHex[c >> 4];
                out += kHex[c & 0x0f];
        }
    }
    out.append(text + plain, length - plain);
    out += '"';
}

// FastWriter's layout: no blanks, object members in jsoncpp's (sorted) order,
// numbers through jsoncpp's own formatting.
void AppendValue(std::string& out, const Json::Value& value) {
    switch (value.type()) {
        case Json::nullValue:
            out += "null";
            break;
        case Json::intValue:
            out += Json::valueToString(value.asLargestInt());
            break;
        case Json::uintValue:
            out += Json::valueToString(value.asLargestUInt());
            break;
        case Json::realValue:
            out += Json::valueToString(value.asDouble());
            break;
        case Json::booleanValue:
            out += value.asBool() ? "true" : "false";
            break;
        case Json::stringValue: {
            const char* begin = nullptr;
            const char* end = nullptr;
            if (value.getString(&begin, &end)) {
                AppendQuoted(out, begin, static_cast<size_t>(end - begin));
            } else {
                out += "\"\"";
            }
            break;
        }
        case Json::arrayValue: {
            out += '[';
            const Json::ArrayIndex size = value.size();
            for (Json::ArrayIndex i = 0; i < size; ++i) {
                if (i > 0) out += ',';
                AppendValue(out, value[i]);
            }
            out += ']';
            break;
        }
        case Json::objectValue: {
            out += '{';
            bool first = true;
            for (auto it = value.begin(); it != value.end(); ++it) {
                if (!first) out += ',';
                first = false;
                const char* end = nullptr;
                const char* name = it.memberName(&end);
                AppendQuoted(out, name, static_cast<size_t>(end - name));
                out += ':';
                AppendValue(out, *it);
            }
            out += '}';
            break;
        }
    }
}

}  // namespace

namespace kxjson {

bool Parse(const std::string& text, Json::Value& root) {
    try {
        // One reader per thread: a new one allocates its stacks on every reply.
        // It reads the caller's text in place (the string form copies it), and
        // comments are skipped, not kept: nothing writes them back.
        thread_local Json::Reader reader;
        Json::Value parsed;
        if (!reader.parse(text.data(), text.data() + text.size(), parsed, false)) return false;
        root.swap(parsed);
        return true;
    } catch (...) {
        return false;
    }
}

std::string Write(const Json::Value& value) {
    try {
        std::string out;
        out.reserve(256);  // most bodies fit: no growing copy by copy
        AppendValue(out, value);
        out += '\n';
        return out;
    } catch (...) {
        return std::string();
    }
}

const Json::Value& Member(const Json::Value& object, const char* key) {
    if (key == nullptr || !object.isObject()) return NullValue();
    const Json::Value* found = object.find(key, key + strlen(key));
    return found != nullptr ? *found : NullValue();
}

std::string String(const Json::Value& value) {
    try {
        switch (value.type()) {
            case Json::stringValue:
            case Json::intValue:
            case Json::uintValue:
            case Json::realValue:
            case Json::booleanValue:
                return value.asString();
            default:
                return std::string();
        }
    } catch (...) {
        return std::string();
    }
}

std::string String(const Json::Value& object, const char* key) {
    return String(Member(object, key));
}

std::string Text(const Json::Value& object, const char* key) {
    const Json::Value& value = Member(object, key);
    return value.isString() ? String(value) : std::string();
}

bool Int(const Json::Value& value, int& out) {
    long long wide = 0;
    if (!Int64(value, wide) || wide < INT_MIN || wide > INT_MAX) return false;
    out = static_cast<int>(wide);
    return true;
}

bool Int64(const Json::Value& value, long long& out) {
    try {
        if (!value.isInt64()) return false;
        out = value.asInt64();
        return true;
    } catch (...) {
        return false;
    }
}

bool Bool(const Json::Value& value, bool& out) {
    if (!value.isBool()) return false;
    out = value.asBool();
    return true;
}

bool Truth(const Json::Value& value) {
    switch (value.type()) {
        case Json::booleanValue:
            return value.asBool();
        case Json::intValue:
        case Json::uintValue:
        case Json::realValue:
            return value.asDouble() != 0.0;
        default:
            return false;
    }
}

}  // namespace kxjson

long IWK_GetJsonValue(Json::Value value, int& out, int fallback) {
    if (kxjson::Int(value, out)) return 0;
    out = fallback;
    return 1;
}
