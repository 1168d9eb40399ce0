// Shared by the sources of the BID sign service.
#pragma once

#include <json/json.h>

#include <string>

#include "KXUtils.h"
#include "frame/KXCall.h"
#include "platform/CorvaneCall.h"

namespace kxbid {

// The integer of a reply key as asInt reads it; 0 when absent or unusable.
inline int Int(const Json::Value& object, const char* key) {
    int value = 0;
    kxjson::Int(kxjson::Member(object, key), value);
    return value;
}

inline long long Int64(const Json::Value& object, const char* key) {
    long long value = 0;
    kxjson::Int64(kxjson::Member(object, key), value);
    return value;
}

// atoi of decimal text (blanks, a sign, digits up to the first other byte; no
// digits is 0); false for a number outside int range, which atoi would not
// give back as it was written.
bool AtoI(const std::string& text, int& out);

// The token head; a token refused by the server (401) comes back as 37007.
inline void TokenHead(KXCall& call, const std::string& token) {
    call.Head(KXHead::Token, token).Map(401, KX_ERR_BID_TOKEN_REFUSED);
}

// taskId, url and scanMode of a create operation's reply.
inline void TaskOutputs(const Json::Value& data, std::string& strTaskId, std::string& strUrl,
                        std::string& strScanMode) {
    strTaskId = kxjson::String(data, "taskId");
    strUrl = kxjson::String(data, "url");
    strScanMode = kxjson::String(data, "scanMode");
}

// The reply text with idNo and loginAccount masked, for exit lines only.
std::string MaskedReply(const char* text) noexcept;

}  // namespace kxbid
