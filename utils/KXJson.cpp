// JSON helpers that never throw, and the one compact writer of request bodies.
#include <climits>
#include <cstring>
#include <memory>
#include <sstream>

#include "KXUtils.h"

namespace {

const Json::Value& NullValue() {
    static const Json::Value kNull;
    return kNull;
}

// Same layout as Json::FastWriter; emitUTF8 keeps bytes >= 0x80 as they are,
// so GBK text reaches the server unchanged.
std::unique_ptr<Json::StreamWriter> NewCompactWriter() {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["commentStyle"] = "None";
    builder["emitUTF8"] = true;
    builder["enableYAMLCompatibility"] = false;
    builder["dropNullPlaceholders"] = false;
    return std::unique_ptr<Json::StreamWriter>(builder.newStreamWriter());
}

}  // namespace

namespace kxjson {

bool Parse(const std::string& text, Json::Value& root) {
    try {
        Json::Reader reader;
        Json::Value parsed;
        if (!reader.parse(text, parsed, true)) return false;
        root.swap(parsed);
        return true;
    } catch (...) {
        return false;
    }
}

std::string Write(const Json::Value& value) {
    try {
        thread_local std::unique_ptr<Json::StreamWriter> writer = NewCompactWriter();
        std::ostringstream out;
        writer->write(value, &out);
        out << '\n';
        return out.str();
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

}  // namespace kxjson

long IWK_GetJsonValue(Json::Value value, int& out, int fallback) {
    if (kxjson::Int(value, out)) return 0;
    out = fallback;
    return 1;
}
