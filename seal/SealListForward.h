// What the three certificate-keyed seal lists share: the forward envelope and
// the header lines inside it.
#pragma once

#include <json/json.h>

#include <initializer_list>
#include <string>

#include "KXUtils.h"

namespace kxseal {

// "" for null: the arguments a function does not test still go out as text.
inline const char* Arg(const char* s) {
    return s != nullptr ? s : "";
}

// The envelope's header text: {"httpHead":[lines]}, or empty for no lines.
inline std::string HttpHead(std::initializer_list<std::string> lines) {
    if (lines.size() == 0) return std::string();
    Json::Value head(Json::objectValue);
    Json::Value& array = head["httpHead"] = Json::Value(Json::arrayValue);
    for (const std::string& line : lines) array.append(line);
    return kxjson::Write(head);
}

// One request of the envelope; body null sends an empty param.
inline Json::Value Envelope(const char* method, const std::string& url, const Json::Value* body,
                            const std::string& header) {
    Json::Value envelope(Json::objectValue);
    envelope["funcType"] = method;
    envelope["funcName"] = url;
    envelope["param"] = body != nullptr ? kxjson::Write(*body) : std::string();
    envelope["header"] = header;
    return envelope;
}

const char kJsonLine[] = "Content-Type: application/json;charset=UTF-8";

}  // namespace kxseal
