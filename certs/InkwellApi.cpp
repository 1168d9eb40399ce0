// The legacy server: certificate application and UKey try counting, both
// signed over the exact body with the legacy head.
#include "InkwellApi.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "KXReplyParsers.h"
#include "KXServerApi.h"
#include "KXUtils.h"

namespace {

const char kSource[] = "InkwellApi";

std::string TextOf(const Json::Value& object, const char* key) {
    const Json::Value& value = kxjson::Member(object, key);
    return value.isString() ? kxjson::String(value) : std::string();
}

// certId_openca comes as a number or as its decimal text.
int CertIdOf(const Json::Value& data) {
    const Json::Value& value = kxjson::Member(data, "certId_openca");
    int id = 0;
    if (kxjson::Int(value, id)) return id;
    if (!value.isString()) return 0;
    const std::string text = kxjson::String(value);
    if (text.empty()) return 0;
    errno = 0;
    char* end = nullptr;
    const long long number = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || end != text.c_str() + text.size() || number < INT_MIN || number > INT_MAX)
        return 0;
    return static_cast<int>(number);
}

}  // namespace

void MakeCertFields::ReadReply(const Json::Value& data) {
    certId = CertIdOf(data);
    ukeyNum = TextOf(data, "uKeyNum");
    encCert = TextOf(data, "encCert");
    encSn = TextOf(data, "encSn");
    signCert = TextOf(data, "signCert");
    signSn = TextOf(data, "signSn");
    // "extention" is JSON text inside a string, not a nested object.
    Json::Value extension;
    const Json::Value& text = kxjson::Member(data, "extention");
    if (!text.isString() || !kxjson::Parse(kxjson::String(text), extension)) {
        extension = Json::Value();
    }
    symmCipher = TextOf(extension, "symmCipher");
    symmAlg = TextOf(extension, "symmAlg");
    encryptedKeypair = TextOf(extension, "encryptedKeypair");
    authCode = TextOf(extension, "authCode");
}

CInkwellApi::CInkwellApi()
    : strMakeCertUri("/openapi/rest/cert/ukeyCertApply"),
      strUpdateUkeyTryTimeUri("/inkwell/rest/authentication/updateUkeyTryTime") {}
CInkwellApi::CInkwellApi(const CInkwellApi& other) = default;
CInkwellApi& CInkwellApi::operator=(const CInkwellApi& other) = default;
CInkwellApi::~CInkwellApi() = default;

long CInkwellApi::MakeCert(const std::string& certCsrB64, const std::string& certApplyInfo,
                           MakeCertData& resData) {
    KX_LOG(KX_LOG_TRACE, kSource, "CInkwellApi::MakeCert", "certCsrB64:%s, certApplyInfo:%s",
           certCsrB64.c_str(), certApplyInfo.c_str());
    long lRes = KX_OK;
    try {
        Json::Value root;
        if (CheckInitInfo(m_stInitInfo) != KX_OK) {
            lRes = KX_ERR_NOT_INITIALISED;
        } else if (!kxjson::Parse(certApplyInfo, root) || !(root.isObject() || root.isNull())) {
            // "null" is an empty application; any other non-object cannot take "csr".
            lRes = KX_ERR_INVALID_VALUE;
        } else {
            root["csr"] = certCsrB64;
            const std::string body = kxjson::Write(root);
            const std::string url = CIWKHttp::GetCompleteUrl(
                strMakeCertUri, m_stInitInfo.ServerIp, std::to_string(m_stInitInfo.Port), false);
            const std::string head = CIWKHttp::GenInkwellHttpHead(
                m_stInitInfo.ProjectID, m_stInitInfo.ProjectSecret, body, "");
            CIWKHttp::Post(url, body, head, &resData, HTTP_CONTENT_JSON, HTTP_REQ_PLAIN, nullptr,
                           nullptr, nullptr);
            Json::Value data;
            if (ParseErrCodeEnvelope(resData, data) == KX_OK) {
                MakeCertFields fields;
                fields.strReserved = resData.strReserved;
                fields.ReadReply(data);
                static_cast<MakeCertFields&>(resData) = fields;
            }
            lRes = resData.errCode;
        }
    } catch (...) {
        lRes = KX_ERR_INVALID_VALUE;
    }
    KX_LOG(KX_LOG_TRACE, kSource, "CInkwellApi::MakeCert",
           "lRes:%d, resData.errCode:%d, resData.msg:%s", static_cast<int>(lRes), resData.errCode,
           resData.msg.c_str());
    return lRes;
}

long CInkwellApi::UpdateUkeyTryTime(std::string sn, bool isSuccess, bool isLocked,
                                    int& remainingTime) {
    try {
        if (CheckInitInfo(m_stInitInfo) != KX_OK) return KX_ERR_NOT_INITIALISED;
        Json::Value root(Json::objectValue);
        const std::string language = IWK_GetLanguageName();
        if (!language.empty()) root["language"] = language;
        root["sn"] = sn;
        root["isSuccess"] = isSuccess;
        root["isLocked"] = isLocked;
        const std::string body = kxjson::Write(root);

        // A failed probe leaves the value empty; the report goes out all the same.
        std::string strAuthorization;
        KX_InkwellCompatible(m_stInitInfo, strAuthorization, "KXInkwell");

        const std::string head = CIWKHttp::GenInkwellHttpHead(
            m_stInitInfo.ProjectID, m_stInitInfo.ProjectSecret, body, strAuthorization);
        std::string url = CIWKHttp::GetCompleteUrl(strUpdateUkeyTryTimeUri, m_stInitInfo.ServerIp,
                                                   std::to_string(m_stInitInfo.Port), false);
        // "inkwell" is the web application's context path; a site may deploy it elsewhere.
        url = IWK_ReplaceSubStrByConfig(url, "inkwell", "KXPrintMgr", "ContextPath");

        KXReqResult result;
        const long sent = CIWKHttp::Post(url, body, head, &result, HTTP_CONTENT_JSON,
                                         HTTP_REQ_PLAIN, nullptr, nullptr, nullptr);
        if (sent != 0) {
            KX_LOG(KX_LOG_ERROR, kSource, "CInkwellApi::UpdateUkeyTryTime", "lRes:%d",
                   static_cast<int>(sent));
            IWK_SetLastError(sent);
            return sent;
        }
        Json::Value data;
        const long lRes = ParseErrCodeEnvelope(result, data);
        if (lRes == KX_OK) {
            int remaining = 0;
            if (!kxjson::Int(kxjson::Member(data, "remainingTime"), remaining)) remaining = 0;
            remainingTime = remaining;
        }
        return lRes;
    } catch (...) {
        return KX_ERR_INVALID_VALUE;
    }
}
