// Certificate check at the cloud platform (XML) or at the agent (JSON).
#include "CloudCheckCert.h"

#include <tinyxml2.h>

#include <cstdlib>

#include "KXReplyParsers.h"
#include "KXUtils.h"

namespace {

const char kSource[] = "CloudCheckCert";
const char kDefaultCheckUri[] = "/kxsign/rest/seal-rest!SOF_GetCertSeals.xml";
const char kDefaultAgentUri[] = "/agent/integrate/getCertSealInfos";

// The default path applies only when the key is absent; an empty value stays empty.
std::string CheckPath(const char* key, const char* fallback) {
    std::string value;
    if (IWK_GetConfigByKey("KXServerApi", key, value, fallback) == 0) return fallback;
    return value;
}

// <result><retcode>N</retcode></result>: 0 passes, any other number refuses.
long ParseCheckCertRes(const std::string& text) {
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
    KX_LOG(KX_LOG_TRACE, kSource, "ParseCheckCertRes", "lRes:%ld", number);
    return KX_ERR_CERT_REFUSED;
}

}  // namespace

CCloudCheckCert::CCloudCheckCert() = default;
CCloudCheckCert::CCloudCheckCert(const CCloudCheckCert& other) = default;
CCloudCheckCert& CCloudCheckCert::operator=(const CCloudCheckCert& other) = default;
CCloudCheckCert::~CCloudCheckCert() = default;

long CCloudCheckCert::CheckCert(const std::string& cert) {
    long lRes = KX_OK;
    try {
        if (CheckInitInfo(m_stInitInfo) != KX_OK) {
            lRes = KX_ERR_CHECK_NOT_INITIALISED;
        } else if (m_stInitInfo.SerType == 4) {
            lRes = CheckCertByAgentIntegrate(cert);
        } else {
            lRes = CheckCertByCloudPlatform(cert);
        }
    } catch (...) {
        lRes = KX_ERR_INVALID_VALUE;
    }
    KX_LOG(KX_LOG_TRACE, kSource, "CCloudCheckCert::CheckCert", "lRes:%d", static_cast<int>(lRes));
    return lRes;
}

long CCloudCheckCert::CheckCertByCloudPlatform(const std::string& cert) {
    strCheckUri = CheckPath("CheckCert", kDefaultCheckUri);
    const std::string url = CIWKHttp::GetCompleteUrl(strCheckUri, m_stInitInfo.ServerIp,
                                                     std::to_string(m_stInitInfo.Port), false);
    // The certificate is Base64 and goes in as it is.
    const std::string body = "<inDatas><userCert>" + cert + "</userCert></inDatas>";
    KXReqResult result;
    CIWKHttp::Post(url, body, "", &result, HTTP_CONTENT_JSON, HTTP_REQ_PLAIN, nullptr, nullptr,
                   nullptr);
    long lRes = KX_OK;
    if (result.errCode != 0) {
        IWK_SetLastError(result.errCode, result.msg);
        lRes = result.errCode;
    } else {
        lRes = ParseCheckCertRes(result.msg);
    }
    KX_LOG(KX_LOG_TRACE, kSource, "CCloudCheckCert::CheckCertByCloudPlatform", "lRes:%d",
           static_cast<int>(lRes));
    return lRes;
}

long CCloudCheckCert::CheckCertByAgentIntegrate(const std::string& cert) {
    strCheckUri = CheckPath("CheckCertAgent", kDefaultAgentUri);
    const std::string url = CIWKHttp::GetCompleteUrl(strCheckUri, m_stInitInfo.ServerIp,
                                                     std::to_string(m_stInitInfo.Port), false);
    Json::Value root(Json::objectValue);
    root["certB64"] = cert;
    KXReqResult result;
    CIWKHttp::Post(url, kxjson::Write(root), "", &result, HTTP_CONTENT_JSON, HTTP_REQ_PLAIN,
                   nullptr, nullptr, nullptr);
    long lRes = KX_OK;
    if (result.errCode != 0) {
        IWK_SetLastError(result.errCode, result.msg);
        lRes = result.errCode;
    } else {
        Json::Value data;  // the agent's seal details are not the caller's concern here
        lRes = ParseErrCodeEnvelope(result, data);
    }
    KX_LOG(KX_LOG_TRACE, kSource, "CCloudCheckCert::CheckCertByAgentIntegrate", "lRes:%d",
           static_cast<int>(lRes));
    return lRes;
}
