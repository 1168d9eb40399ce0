// General reply envelopes used by most clients.
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "KXReplyParsers.h"
#include "KXUtils.h"
#include "frame/ReplyStatus.h"

bool KXReadStatus(const Json::Value& value, int& code) {
    long long wide = 0;
    if (value.isNull()) {
        wide = 0;
    } else if (kxjson::Int64(value, wide)) {
        // taken as it is
    } else if (value.isString()) {
        const std::string text = kxjson::String(value);
        errno = 0;
        wide = std::strtoll(text.c_str(), nullptr, 10);
        if (errno == ERANGE) return false;
    } else {
        return false;
    }
    if (wide < INT_MIN || wide > INT_MAX) return false;
    code = static_cast<int>(wide);
    return true;
}

namespace {

long Unparsable(KXReqResult& result) {
    result.errCode = KX_ERR_REPLY_UNPARSABLE;
    result.msg = IWK_GetErrorMsg(KX_ERR_REPLY_UNPARSABLE);
    return result.errCode;
}

long ParseEnvelope(KXReqResult& result, Json::Value& data, const char* statusKey,
                   const char* messageKey) {
    try {
        if (result.errCode != 0) {
            IWK_SetLastError(result.errCode, result.msg);
            return result.errCode;
        }
        Json::Value root;
        if (!kxjson::Parse(result.msg, root) || !root.isObject()) return Unparsable(result);
        int code = 0;
        if (!KXReadStatus(kxjson::Member(root, statusKey), code)) return Unparsable(result);
        result.errCode = code;
        if (code == 0) {
            data = kxjson::Member(root, "data");
            return 0;
        }
        result.msg = kxjson::String(root, messageKey);
        if (!result.msg.empty()) {
            IWK_SetLastError(code, result.msg);
        } else {
            result.msg = IWK_GetErrorMsg(KX_ERR_SERVER_NO_MESSAGE);
        }
        return code;
    } catch (...) {
        return Unparsable(result);
    }
}

}  // namespace

long ParseCodeEnvelope(KXReqResult& result, Json::Value& data) {
    return ParseEnvelope(result, data, "code", "message");
}

long ParseErrCodeEnvelope(KXReqResult& result, Json::Value& data) {
    return ParseEnvelope(result, data, "errCode", "msg");
}
