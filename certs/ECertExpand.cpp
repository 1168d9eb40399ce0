// Client side of the double-certificate expansion: four signed requests,
// each answered in the code/message/data envelope.
#include "ECertExpand.h"

#include <climits>

#include "KXReplyParsers.h"
#include "KXUtils.h"
#include "frame/UrlTemplate.h"

namespace {

const char kSource[] = "ECertExpand";

// A template must hold exactly the conversions its values fill ("%s" for
// text, "%d" for a number), so that a changed template cannot read past the
// arguments. "%d" becomes "%ld": identifiers are long and must not be cut.
bool PrepareTemplate(const std::string& tmpl, const char* expected, std::string& format) {
    format.clear();
    for (size_t i = 0; i < tmpl.size(); ++i) {
        format += tmpl[i];
        if (tmpl[i] != '%') continue;
        if (i + 1 >= tmpl.size()) return false;
        const char conv = tmpl[++i];
        if (conv == '%') {
            format += conv;
        } else if ((conv == 's' || conv == 'd') && *expected == conv) {
            if (conv == 'd') format += 'l';
            format += conv;
            ++expected;
        } else {
            return false;
        }
    }
    return *expected == '\0';
}

// Text of a member that is a string; empty for anything else.
std::string TextOf(const Json::Value& data, const char* key) {
    const Json::Value& value = kxjson::Member(data, key);
    return value.isString() ? kxjson::String(value) : std::string();
}

// An unsigned 32-bit identifier; 0 when absent, negative, text or too large.
long IdOf(const Json::Value& data, const char* key) {
    long long value = 0;
    if (!kxjson::Int64(kxjson::Member(data, key), value) || value < 0 || value > UINT_MAX) return 0;
    return static_cast<long>(value);
}

long Exit(const char* function, long lRes) {
    KX_LOG(KX_LOG_TRACE, kSource, function, "lRes:%d", static_cast<int>(lRes));
    return lRes;
}

}  // namespace

CECertExpand::CECertExpand()
    : strServiceTimeUrl("https://%s/v1/orbis/ukey/client/cert/serviceTime/%s"),
      strDoubleCertRequestUrl("https://%s/v1/orbis/ukey/client/certOpt/doubleCertRequest"),
      strDoubleCertInfoUrl("https://%s/v1/orbis/ukey/client/certOpt/doubleCertInfo/%d"),
      strFinishCertUrl("https://%s/v1/orbis/ukey/client/certOpt/finishCert") {}
CECertExpand::CECertExpand(const CECertExpand& other) = default;
CECertExpand& CECertExpand::operator=(const CECertExpand& other) = default;
CECertExpand::~CECertExpand() = default;

long CECertExpand::CheckServiceRequest(const std::string& strId, bool& expired) {
    const char* function = "CECertExpand::CheckServiceRequest";
    try {
        std::string format, url;
        if (!PrepareTemplate(strServiceTimeUrl, "ss", format))
            return Exit(function, KX_ERR_INVALID_VALUE);
        long lRes = KXFormatUrl(url, format.c_str(), m_stInitInfo.ServerIp.c_str(), strId.c_str());
        if (lRes != KX_OK) return Exit(function, lRes);
        const std::string head = CIWKHttp::GetSignatureHead(
            HTTP_FUNC_GET, url, m_stInitInfo.ServerIp, m_stInitInfo.ProjectID,
            m_stInitInfo.ProjectSecret, std::vector<std::string>(), "application/json");
        KXReqResult result;
        CIWKHttp::Get(url, "", head, &result, HTTP_REQ_PLAIN, nullptr);
        Json::Value data;
        lRes = ParseCodeEnvelope(result, data);
        if (lRes == KX_OK) {
            bool value = false;
            kxjson::Bool(kxjson::Member(data, "expired"), value);
            expired = value;
        }
        return Exit(function, lRes);
    } catch (...) {
        return Exit(function, KX_ERR_INVALID_VALUE);
    }
}

long CECertExpand::SendExpandRequest(const std::string& ukeyNum, const std::string& csr,
                                     long& certOptId, long& logId) {
    const char* function = "CECertExpand::SendExpandRequest";
    try {
        std::string format, url;
        if (!PrepareTemplate(strDoubleCertRequestUrl, "s", format))
            return Exit(function, KX_ERR_INVALID_VALUE);
        long lRes = KXFormatUrl(url, format.c_str(), m_stInitInfo.ServerIp.c_str());
        if (lRes != KX_OK) return Exit(function, lRes);
        const std::string head = CIWKHttp::GetSignatureHead(
            HTTP_FUNC_POST, url, m_stInitInfo.ServerIp, m_stInitInfo.ProjectID,
            m_stInitInfo.ProjectSecret, std::vector<std::string>(), "application/json");
        Json::Value root(Json::objectValue);
        root["csr"] = csr;
        root["ukeyNum"] = ukeyNum;
        KXReqResult result;
        CIWKHttp::Post(url, kxjson::Write(root), head, &result, HTTP_CONTENT_JSON, HTTP_REQ_PLAIN,
                       nullptr, nullptr, nullptr);
        Json::Value data;
        lRes = ParseCodeEnvelope(result, data);
        if (lRes == KX_OK) {
            certOptId = IdOf(data, "certOptId");
            logId = IdOf(data, "logId");
        }
        return Exit(function, lRes);
    } catch (...) {
        return Exit(function, KX_ERR_INVALID_VALUE);
    }
}

long CECertExpand::GetDoubleCertRequest(long certOptId, std::string& encCert, std::string& signCert,
                                        std::string& sn, std::string& authCode, int& status) {
    const char* function = "CECertExpand::GetDoubleCertRequest";
    try {
        std::string format, url;
        if (!PrepareTemplate(strDoubleCertInfoUrl, "sd", format))
            return Exit(function, KX_ERR_INVALID_VALUE);
        long lRes = KXFormatUrl(url, format.c_str(), m_stInitInfo.ServerIp.c_str(), certOptId);
        if (lRes != KX_OK) return Exit(function, lRes);
        const std::string head = CIWKHttp::GetSignatureHead(
            HTTP_FUNC_GET, url, m_stInitInfo.ServerIp, m_stInitInfo.ProjectID,
            m_stInitInfo.ProjectSecret, std::vector<std::string>(), "application/json");
        KXReqResult result;
        CIWKHttp::Get(url, "", head, &result, HTTP_REQ_PLAIN, nullptr);
        Json::Value data;
        lRes = ParseCodeEnvelope(result, data);
        if (lRes == KX_OK) {
            std::string enc = TextOf(data, "encCert");
            std::string sign = TextOf(data, "signCert");
            std::string serial = TextOf(data, "sn");
            std::string code = TextOf(data, "authCode");
            int value = -1;
            if (!kxjson::Int(kxjson::Member(data, "status"), value)) value = -1;
            encCert.swap(enc);
            signCert.swap(sign);
            sn.swap(serial);
            authCode.swap(code);
            status = value;
        }
        return Exit(function, lRes);
    } catch (...) {
        return Exit(function, KX_ERR_INVALID_VALUE);
    }
}

long CECertExpand::UploadFinish(long certOptId, long logId, const std::string& encryptCert,
                                const std::string& signCert, const std::string& ukeyNum) {
    const char* function = "CECertExpand::UploadFinish";
    try {
        std::string format, url;
        if (!PrepareTemplate(strFinishCertUrl, "s", format))
            return Exit(function, KX_ERR_INVALID_VALUE);
        long lRes = KXFormatUrl(url, format.c_str(), m_stInitInfo.ServerIp.c_str());
        if (lRes != KX_OK) return Exit(function, lRes);
        const std::string head = CIWKHttp::GetSignatureHead(
            HTTP_FUNC_POST, url, m_stInitInfo.ServerIp, m_stInitInfo.ProjectID,
            m_stInitInfo.ProjectSecret, std::vector<std::string>(), "application/json");
        Json::Value root(Json::objectValue);
        root["certOptId"] = static_cast<Json::Int64>(certOptId);
        root["logId"] = static_cast<Json::Int64>(logId);
        root["encryptCert"] = encryptCert;
        root["signCert"] = signCert;
        root["ukeyNum"] = ukeyNum;
        KXReqResult result;
        CIWKHttp::Post(url, kxjson::Write(root), head, &result, HTTP_CONTENT_JSON, HTTP_REQ_PLAIN,
                       nullptr, nullptr, nullptr);
        Json::Value data;
        lRes = ParseCodeEnvelope(result, data);
        return Exit(function, lRes);
    } catch (...) {
        return Exit(function, KX_ERR_INVALID_VALUE);
    }
}
