// The reply readers: the two general envelopes and those of the web service,
// the seal server, the legacy authorization URL, the certificate check and
// the print-control service.
#include "frame/ReplyReaders.h"

#include <tinyxml2.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "KXReplyParsers.h"
#include "KXUtils.h"

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

// The web service reads strBody, which a plain GET fills with the reply too.
// An unparsable reply or status gives 10003 and leaves the record as it came.
long ReadServiceEnvelope(const KXReqResult& result, Json::Value& data) {
    Json::Value root;
    if (!kxjson::Parse(result.strBody, root) || !root.isObject()) return KX_ERR_REPLY_UNPARSABLE;
    int status = 0;
    if (!KXReadStatus(kxjson::Member(root, "code"), status)) return KX_ERR_REPLY_UNPARSABLE;
    if (status != 0) {
        const std::string message = kxjson::String(root, "message");
        IWK_SetLastError(status, message.empty() ? result.strBody : message);
        return status;
    }
    data = kxjson::Member(root, "data");
    return KX_OK;
}

// {"errCode":0,"data":"<value>"}; an errCode that is absent or no integer
// gives 31015, and data is handed on whatever the code.
long ReadLegacy(const KXReqResult& result, Json::Value& data) {
    Json::Value root;
    if (!kxjson::Parse(result.msg, root)) {
        IWK_SetLastError(KX_ERR_LEGACY_REPLY, result.msg);
        return KX_ERR_LEGACY_REPLY;
    }
    int code = 0;
    IWK_GetJsonValue(kxjson::Member(root, "errCode"), code, KX_ERR_LEGACY_REPLY);
    data = kxjson::Member(root, "data");
    if (code != 0) IWK_SetLastError(code, kxjson::String(root, "msg"));
    return code;
}

// <result><retcode>N</retcode></result>: 0 passes, any other number refuses.
long ReadCloudCheck(const std::string& text) {
    tinyxml2::XMLDocument doc(true, tinyxml2::PRESERVE_WHITESPACE);
    doc.Parse(text.c_str(), text.size());
    const tinyxml2::XMLElement* result = doc.FirstChildElement("result");
    const tinyxml2::XMLElement* retcode =
        result != nullptr ? result->FirstChildElement("retcode") : nullptr;
    const char* value = retcode != nullptr ? retcode->GetText() : nullptr;
    if (value == nullptr || *value == '\0') return KX_ERR_REPLY_UNPARSABLE;
    const long number = std::atol(value);
    if (number == 0) return KX_OK;
    // The platform's own number is its matter; the caller learns only the refusal.
    KX_LOG(KX_LOG_TRACE, "CloudCheckCert", "ParseCheckCertRes", "lRes:%ld", number);
    return KX_ERR_CERT_REFUSED;
}

}  // namespace

long ParseCodeEnvelope(KXReqResult& result, Json::Value& data) {
    return ParseEnvelope(result, data, "code", "message");
}

long ParseErrCodeEnvelope(KXReqResult& result, Json::Value& data) {
    return ParseEnvelope(result, data, "errCode", "msg");
}

long ParseOpenApiReply(const std::string& text, Json::Value& root) {
    if (!kxjson::Parse(text, root) || !root.isObject()) return KX_ERR_REPLY_UNPARSABLE;
    int code = 0;
    IWK_GetJsonValue(kxjson::Member(root, "errCode"), code, KX_ERR_REPLY_NO_STATUS);
    if (code != 0) IWK_SetLastError(code, kxjson::String(root, "msg"));
    return code;
}

// The seal server's check, with the payload under "data".
long ParsePrintCtrlReply(const std::string& text, Json::Value& data) {
    Json::Value root;
    const long code = ParseOpenApiReply(text, root);
    if (code == KX_OK) data = kxjson::Member(root, "data");
    return code;
}

long KXReadForwardReply(const std::string& reply, std::string& text) {
    Json::Value root;
    if (!kxjson::Parse(reply, root) || !root.isObject()) return KX_ERR_INVALID_VALUE;
    const Json::Value& errorCode = kxjson::Member(root, "errorCode");
    int code = 0;
    if (!errorCode.isNull() && !kxjson::Int(errorCode, code)) return KX_ERR_INVALID_VALUE;
    if (code == 0) text = kxjson::String(root, "result");
    return code;
}

long KXReadReply(KXReply reply, KXReqResult& result, Json::Value& data) {
    switch (reply) {
        case KXReply::CodeEnvelope:
            return ParseCodeEnvelope(result, data);
        case KXReply::ErrCodeEnvelope:
            return ParseErrCodeEnvelope(result, data);
        case KXReply::ServiceEnvelope:
            return ReadServiceEnvelope(result, data);
        case KXReply::OpenApi:
            return ParseOpenApiReply(result.msg, data);
        case KXReply::Legacy:
            return ReadLegacy(result, data);
        case KXReply::CloudCheckXml:
            return ReadCloudCheck(result.msg);
        case KXReply::PrintCtrl:
            return ParsePrintCtrlReply(result.msg, data);
        case KXReply::None:
            return KX_OK;
    }
    return KX_ERR_INVALID_VALUE;
}
