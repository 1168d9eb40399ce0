// The legacy server: certificate application and UKey try counting, both
// signed over the exact body with the legacy head.
#include "InkwellApi.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "KXAscii.h"
#include "KXServerApi.h"
#include "KXUtils.h"
#include "frame/KXCall.h"

namespace {

const char kSource[] = "InkwellApi";

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

void ReadFields(const Json::Value& data, MakeCertFields& fields) {
    fields.certId = CertIdOf(data);
    fields.ukeyNum = kxjson::Text(data, "uKeyNum");
    fields.encCert = kxjson::Text(data, "encCert");
    fields.encSn = kxjson::Text(data, "encSn");
    fields.signCert = kxjson::Text(data, "signCert");
    fields.signSn = kxjson::Text(data, "signSn");
    // "extention" is JSON text inside a string, not a nested object.
    Json::Value extension;
    const Json::Value& text = kxjson::Member(data, "extention");
    if (!text.isString() || !kxjson::Parse(kxjson::String(text), extension)) {
        extension = Json::Value();
    }
    fields.symmCipher = kxjson::Text(extension, "symmCipher");
    fields.symmAlg = kxjson::Text(extension, "symmAlg");
    fields.encryptedKeypair = kxjson::Text(extension, "encryptedKeypair");
    fields.authCode = kxjson::Text(extension, "authCode");
}

// "inkwell" is the legacy web application's context path, and a site may
// deploy it elsewhere ([KXPrintMgr] ContextPath). Only the URL's path
// changes, so a host named after it stays. An empty value means the
// application sits at the root: its segment goes, leaving no empty one.
std::string WithContextPath(const std::string& url) {
    const size_t scheme = url.find("://");
    const size_t pathAt = url.find('/', scheme == std::string::npos ? 0 : scheme + 3);
    if (pathAt == std::string::npos) return url;
    const size_t queryAt = url.find('?', pathAt);
    std::string path =
        url.substr(pathAt, queryAt == std::string::npos ? queryAt : queryAt - pathAt);
    // One read decides both the replacement and what it replaces.
    std::string value;
    if (IWK_GetConfig(KXKey::ContextPath, value) == 0) return url;
    path = kxascii::ReplaceAll(path, value.empty() ? "/inkwell" : "inkwell", value);
    return url.substr(0, pathAt) + path +
           (queryAt == std::string::npos ? std::string() : url.substr(queryAt));
}

}  // namespace

void MakeCertFields::ReadReply(const Json::Value& data) {
    try {
        MakeCertFields fields;
        fields.strReserved = strReserved;
        ReadFields(data, fields);
        *this = std::move(fields);
    } catch (...) {
        // Out of memory: the fields stay as they were.
    }
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
    KXCall call(m_stInitInfo, KXReply::ErrCodeEnvelope, KXHead::Legacy);
    call.Require().ResultInto(resData);
    call.Run([&] {
        Json::Value root;
        // "null" is an empty application; any other non-object cannot take "csr".
        if (!kxjson::Parse(certApplyInfo, root) || !(root.isObject() || root.isNull())) {
            call.Refuse(KX_ERR_INVALID_VALUE);
            return;
        }
        root["csr"] = certCsrB64;
        call.UrlAt(strMakeCertUri, m_stInitInfo.ServerIp, std::to_string(m_stInitInfo.Port));
        if (!call.Post(root)) return;
        MakeCertFields fields;
        fields.strReserved = resData.strReserved;
        ReadFields(call.data, fields);
        static_cast<MakeCertFields&>(resData) = std::move(fields);
    });
    KX_LOG(KX_LOG_TRACE, kSource, "CInkwellApi::MakeCert",
           "lRes:%d, resData.errCode:%d, resData.msg:%s", call.code(), resData.errCode,
           resData.msg.c_str());
    return call.lRes;
}

long CInkwellApi::UpdateUkeyTryTime(std::string sn, bool isSuccess, bool isLocked,
                                    int& remainingTime) {
    // A transport failure leaves only its code's standard text behind.
    KXCall call(m_stInitInfo, KXReply::ErrCodeEnvelope, KXHead::Legacy);
    call.Require().OnTransport(KXOnTransport::Code);
    call.Run([&] {
        Json::Value root(Json::objectValue);
        const std::string language = IWK_GetLanguageName();
        if (!language.empty()) root["language"] = language;
        root["sn"] = sn;
        root["isSuccess"] = isSuccess;
        root["isLocked"] = isLocked;

        // A failed probe leaves the value empty; the report goes out all the same.
        std::string strAuthorization;
        KX_InkwellCompatible(m_stInitInfo, strAuthorization, "KXInkwell");
        call.Head(KXHead::Legacy, strAuthorization);
        call.UrlIs(
            WithContextPath(CIWKHttp::GetCompleteUrl(strUpdateUkeyTryTimeUri, m_stInitInfo.ServerIp,
                                                     std::to_string(m_stInitInfo.Port), false)));
        if (!call.Post(root)) {
            if (call.TransportFailed())
                KX_LOG(KX_LOG_ERROR, kSource, "CInkwellApi::UpdateUkeyTryTime", "lRes:%d",
                       call.code());
            return;
        }
        int remaining = 0;
        if (!kxjson::Int(kxjson::Member(call.data, "remainingTime"), remaining)) remaining = 0;
        remainingTime = remaining;
    });
    return call.lRes;
}
