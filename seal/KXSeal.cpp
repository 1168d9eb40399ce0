// CKXSealOpenApi: the session with the seal server and the operations inside it.
#include <cstdlib>

#include "KXSealOpenApi.h"
#include "KXUtils.h"

namespace {

const char kSource[] = "KXSeal";
const char kSection[] = "OpenApiURL";
const char kDiscoveryPath[] = "/kxmonitor/rest/app!getAPIInfo";

// The reply check of every operation of the class: a flat object whose
// errCode (absent or unusable: 10027) decides; msg goes to the last error.
long ParseOpenApiReply(const std::string& text, Json::Value& root) {
    if (!kxjson::Parse(text, root) || !root.isObject()) return KX_ERR_REPLY_UNPARSABLE;
    int code = 0;
    IWK_GetJsonValue(kxjson::Member(root, "errCode"), code, KX_ERR_REPLY_NO_STATUS);
    if (code != 0) IWK_SetLastError(code, kxjson::String(root, "msg"));
    return code;
}

// Printable form of an argument that may be null, for the log.
const char* Text(const char* s) {
    return s != nullptr ? s : "";
}

std::string HexDigest(const std::string& text) {
    return IWK_CharToHex(IWK_Digest(text, KX_HASH_MD5));
}

// Posts a JSON body; on 0 reply holds the raw reply text.
long PostJson(const std::string& url, const Json::Value& request, std::string& reply) {
    KXReqResult result;
    CIWKHttp::Post(url, kxjson::Write(request), "", &result, HTTP_CONTENT_JSON, HTTP_REQ_PLAIN,
                   nullptr, nullptr, nullptr);
    if (result.errCode == 0) reply.swap(result.msg);
    return result.errCode;
}

}  // namespace

CKXSealOpenApi::CKXSealOpenApi() : iLoginType(0), iServerFlag(0), bIsLogin(0) {}
CKXSealOpenApi::CKXSealOpenApi(const CKXSealOpenApi& other) = default;
CKXSealOpenApi& CKXSealOpenApi::operator=(const CKXSealOpenApi& other) = default;
CKXSealOpenApi::~CKXSealOpenApi() = default;

long CKXSealOpenApi::Init(const _init_Info_s& info) {
    long lRes = KX_OK;
    try {
        lRes = KXServerBase::Init(info);
        if (lRes == KX_OK) {
            strMac = IWK_GetMacAddress();
            strEquipId = HexDigest(strMac);

            IWK_GetConfigByKey(kSection, "ServerFlag", iServerFlag, 0);
            IWK_GetConfigByKey(kSection, "InitUrl", strInitUrl, "");
            IWK_GetConfigByKey(kSection, "LoginUrl", strLoginUrl, "");
            IWK_GetConfigByKey(kSection, "LogoutUrl", strLogoutUrl, "");
            IWK_GetConfigByKey(kSection, "GetSealListUrl", strGetSealListUrl, "");
            IWK_GetConfigByKey(kSection, "SignHashUrl", strSignHashUrl, "");
            IWK_GetConfigByKey(kSection, "SaveSignLogUrl", strSaveSignLogUrl, "");
            IWK_GetConfigByKey(kSection, "convertToPdfUrl", strConvertToPdfUrl, "");
            IWK_GetConfigByKey(kSection, "sealManageHost", strSealManageHost, "");
            IWK_GetConfigByKey(kSection, "sealManagePort", strSealManagePort, "");
            IWK_GetConfigByKey(kSection, "getPrintCount", strGetPrintCount, "");
            IWK_GetConfigByKey(kSection, "updatePrint", strUpdatePrint, "");

            if (iServerFlag != 0) {
                strHost = m_stInitInfo.ServerIp;
                strPort = std::to_string(m_stInitInfo.Port);
            } else {
                std::string url;
                if (strInitUrl.find("getAPIInfo") != std::string::npos) {
                    url = strInitUrl;
                } else if (!strInitUrl.empty()) {
                    url = strInitUrl + kDiscoveryPath;
                }
                // The form grows with its values: nothing is ever cut.
                const std::string body = "project_id=" + m_stInitInfo.ProjectID +
                                         "&project_secret=" + m_stInitInfo.ProjectSecret +
                                         "&mac=" + strMac + "&equipId=" + strEquipId;
                KXReqResult result;
                CIWKHttp::Post(url, body, "", &result, HTTP_CONTENT_FORM, HTTP_REQ_PLAIN, nullptr,
                               nullptr, nullptr);
                lRes = result.errCode == 0 ? OnInit(result.msg) : result.errCode;
            }
        }
    } catch (...) {
        lRes = KX_ERR_INVALID_VALUE;
    }
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::Init", "lRes:%d", static_cast<int>(lRes));
    return lRes;
}

long CKXSealOpenApi::OnInit(const std::string& text) {
    Json::Value root;
    long lRes = ParseOpenApiReply(text, root);
    if (lRes != KX_OK) return lRes;
    struct Endpoint {
        const char* replyKey;
        std::string* field;
        const char* configKey;
    };
    const Endpoint endpoints[] = {
        {"host", &strHost, "Host"},
        {"port", &strPort, "Port"},
        {"loginUrl", &strLoginUrl, "LoginUrl"},
        {"logoutUrl", &strLogoutUrl, "LogoutUrl"},
        {"getSealListUrl", &strGetSealListUrl, "GetSealListUrl"},
        {"signHashUrl", &strSignHashUrl, "SignHashUrl"},
        {"saveSignLogUrl", &strSaveSignLogUrl, "SaveSignLogUrl"},
        {"ConvertDocUrl", &strConvertToPdfUrl, "convertToPdfUrl"},
    };
    for (const Endpoint& e : endpoints) {
        const std::string value = kxjson::String(root, e.replyKey);
        if (value.empty()) continue;
        *e.field = value;
        // Kept in the store so that the next start begins from what was discovered.
        IWK_SetConfigByKey(kSection, e.configKey, value);
    }
    return KX_OK;
}

long CKXSealOpenApi::Login(const char* user, const char* userPwd, int nLoginType) {
    long lRes = KX_OK;
    try {
        // A login of any outcome ends the session held so far.
        bIsLogin = 0;
        strToken.clear();
        KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::Login", "user:%s, nLoginType:%d", Text(user),
               nLoginType);
        if (IWK_Len(user) == 0 || IWK_Len(userPwd) == 0) {
            lRes = KX_ERR_ARGUMENT_EMPTY;
        } else {
            std::string name;
            std::string pwd;
            switch (nLoginType) {
                case KX_SEAL_LOGIN_DIGEST:
                case KX_SEAL_LOGIN_DIGEST3:
                    name = user;
                    pwd = HexDigest(userPwd);
                    break;
                case KX_SEAL_LOGIN_ENCODED:
                    name = IWK_UrlEncode(user);
                    pwd = IWK_UrlEncode(userPwd);
                    break;
                case KX_SEAL_LOGIN_PLAIN:
                    name = user;
                    pwd = userPwd;
                    break;
                default:
                    lRes = KX_ERR_INVALID_VALUE;
                    break;
            }
            if (lRes == KX_OK) {
                iLoginType = nLoginType;
                const std::string url =
                    CIWKHttp::GetCompleteUrl(strLoginUrl, strHost, strPort, false);
                const std::string body =
                    "project_id=" + m_stInitInfo.ProjectID +
                    "&project_secret=" + m_stInitInfo.ProjectSecret + "&equipId=" + strEquipId +
                    "&username=" + name + "&userpwd=" + pwd +
                    "&loginType=" + std::to_string(iLoginType) + "&response_type=post";
                KXReqResult result;
                CIWKHttp::Post(url, body, "", &result, HTTP_CONTENT_FORM, HTTP_REQ_PLAIN, nullptr,
                               nullptr, nullptr);
                lRes = result.errCode == 0 ? OnLogin(result.msg) : result.errCode;
                if (lRes == KX_OK) {
                    strUserName = user;
                    strUserPwd = userPwd;
                }
            }
        }
    } catch (...) {
        lRes = KX_ERR_INVALID_VALUE;
    }
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::Login", "lRes:%d", static_cast<int>(lRes));
    return lRes;
}

long CKXSealOpenApi::OnLogin(const std::string& text) {
    Json::Value root;
    long lRes = ParseOpenApiReply(text, root);
    if (lRes == KX_OK) {
        strToken = kxjson::String(root, "token");
        bIsLogin = 1;
    }
    return lRes;
}

long CKXSealOpenApi::Logout() {
    long lRes = KX_OK;
    try {
        const std::string url = CIWKHttp::GetCompleteUrl(strLogoutUrl, strHost, strPort, false);
        const std::string body = "project_id=" + m_stInitInfo.ProjectID +
                                 "&project_secret=" + m_stInitInfo.ProjectSecret +
                                 "&equipId=" + strEquipId + "&token=" + strToken;
        KXReqResult result;
        CIWKHttp::Post(url, body, "", &result, HTTP_CONTENT_FORM, HTTP_REQ_PLAIN, nullptr, nullptr,
                       nullptr);
        lRes = result.errCode == 0 ? OnLogout(result.msg) : result.errCode;
    } catch (...) {
        lRes = KX_ERR_INVALID_VALUE;
    }
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::Logout", "lRes:%d", static_cast<int>(lRes));
    return lRes;
}

long CKXSealOpenApi::OnLogout(const std::string& text) {
    Json::Value root;
    long lRes = ParseOpenApiReply(text, root);
    if (lRes == KX_OK) {
        bIsLogin = 0;
        strToken.clear();
    }
    return lRes;
}

int CKXSealOpenApi::IsLogin() {
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::IsLogin", "bRes:%d", bIsLogin);
    return bIsLogin;
}

long CKXSealOpenApi::GetSealList(int sealId, const char* certSerial,
                                 std::vector<_seal_Info_s>& sealInfoList) {
    long lRes = KX_OK;
    try {
        sealInfoList.clear();
        const std::string url =
            CIWKHttp::GetCompleteUrl(strGetSealListUrl, strHost, strPort, false);
        Json::Value request(Json::objectValue);
        request["token"] = strToken;
        request["equipId"] = strEquipId;
        if (IWK_Len(certSerial) != 0) request["certSerial"] = certSerial;
        if (sealId != 0) request["sealId"] = sealId;
        std::string reply;
        lRes = PostJson(url, request, reply);
        if (lRes == KX_OK) lRes = OnGetSealList(reply, sealInfoList);
    } catch (...) {
        sealInfoList.clear();
        lRes = KX_ERR_INVALID_VALUE;
    }
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::GetSealList", "lRes:%d, sealInfoList.size():%d",
           static_cast<int>(lRes), static_cast<int>(sealInfoList.size()));
    return lRes;
}

long CKXSealOpenApi::OnGetSealList(const std::string& text,
                                   std::vector<_seal_Info_s>& sealInfoList) {
    Json::Value root;
    long lRes = ParseOpenApiReply(text, root);
    if (lRes != KX_OK) return lRes;
    // Anything but an array under "seals" counts as an empty list.
    const Json::Value& seals = kxjson::Member(root, "seals");
    const Json::ArrayIndex count = seals.isArray() ? seals.size() : 0;
    if (count == 0) return KX_ERR_SEAL_LIST_EMPTY;

    sealInfoList.reserve(count);
    for (Json::ArrayIndex i = 0; i < count; ++i) {
        const Json::Value& element = seals[i];
        _seal_Info_s seal;
        seal.certB64 = kxjson::String(element, "certB64");
        seal.sealData = kxjson::String(element, "data");
        seal.sealId = kxjson::String(element, "sesealId");
        kxjson::Int(kxjson::Member(element, "type"), seal.sealType);
        seal.certId = kxjson::String(element, "certId");
        lRes = KX_PraseXMLSeal(seal.sealData.c_str(), seal);
        if (lRes != KX_OK) {
            KX_LOG(KX_LOG_ERROR, kSource, "CKXSealOpenApi::OnGetSealList", "lRes:%d",
                   static_cast<int>(lRes));
            break;
        }
        sealInfoList.push_back(std::move(seal));
    }
    return sealInfoList.empty() ? KX_ERR_SEAL_INCOMPLETE : lRes;
}

long CKXSealOpenApi::SignHash(const char* originalB64, const char* signPwd,
                              std::string& signValueB64) {
    long lRes = KX_OK;
    try {
        KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::SignHash", "originalB64:%s",
               Text(originalB64));
        if (originalB64 == nullptr || signPwd == nullptr) {
            lRes = KX_ERR_ARGUMENT_EMPTY;
        } else {
            const std::string url =
                CIWKHttp::GetCompleteUrl(strSignHashUrl, strHost, strPort, false);
            Json::Value request(Json::objectValue);
            request["token"] = strToken;
            request["equipId"] = strEquipId;
            request["md5"] = HexDigest(strEquipId + strToken);
            request["hash"] = originalB64;
            request["signPwd"] = signPwd;
            std::string reply;
            lRes = PostJson(url, request, reply);
            if (lRes == KX_OK) lRes = OnSignHash(reply, signValueB64);
        }
    } catch (...) {
        lRes = KX_ERR_INVALID_VALUE;
    }
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::SignHash", "lRes:%d, signValueB64:%s",
           static_cast<int>(lRes), signValueB64.c_str());
    return lRes;
}

long CKXSealOpenApi::OnSignHash(const std::string& text, std::string& signValueB64) {
    Json::Value root;
    long lRes = ParseOpenApiReply(text, root);
    if (lRes == KX_OK) signValueB64 = kxjson::String(root, "signResult");
    return lRes;
}

long CKXSealOpenApi::ReportSignResult(const char* timestamp, const char* docName,
                                      const char* docHash, const char* docContent,
                                      const char* signInfo, const char* certId,
                                      const char* sealId) {
    long lRes = KX_OK;
    try {
        const char* args[] = {timestamp, docName, docHash, docContent, signInfo, certId, sealId};
        for (const char* a : args) {
            if (a == nullptr) lRes = KX_ERR_ARGUMENT_EMPTY;
        }
        if (lRes == KX_OK) {
            const std::string url =
                CIWKHttp::GetCompleteUrl(strSaveSignLogUrl, strHost, strPort, false);
            Json::Value request(Json::objectValue);
            request["token"] = strToken;
            request["md5"] = HexDigest(strEquipId + strToken);
            request["equipId"] = strEquipId;
            request["timestamp"] = timestamp;
            request["docName"] = docName;
            request["docHash"] = docHash;
            request["docContent"] = docContent;
            request["signInfo"] = signInfo;
            request["certId"] = std::atoi(certId);
            request["sealId"] = sealId;
            std::string reply;
            lRes = PostJson(url, request, reply);
            if (lRes == KX_OK) lRes = OnReportSignResult(reply);
        }
    } catch (...) {
        lRes = KX_ERR_INVALID_VALUE;
    }
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::ReportSignResult", "lRes:%d",
           static_cast<int>(lRes));
    return lRes;
}

long CKXSealOpenApi::OnReportSignResult(const std::string& text) {
    Json::Value root;
    return ParseOpenApiReply(text, root);
}

long CKXSealOpenApi::QueryPrintInfo(const std::string& sPrintID, int& iTotal, int& iRemain) {
    long lRes = KX_OK;
    try {
        KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::QueryPrintInfo", "sPrintID::%s",
               sPrintID.c_str());
        Json::Value request(Json::objectValue);
        request["token"] = strToken;
        request["printId"] = sPrintID;
        const std::string url =
            CIWKHttp::GetCompleteUrl(strGetPrintCount, strSealManageHost, strSealManagePort, false);
        std::string reply;
        lRes = PostJson(url, request, reply);
        if (lRes == KX_OK) lRes = OnQueryPrintInfo(reply, iTotal, iRemain);
    } catch (...) {
        lRes = KX_ERR_INVALID_VALUE;
    }
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::QueryPrintInfo",
           "lRes:%d, iRemain:%d, iTotal:%d", static_cast<int>(lRes), iRemain, iTotal);
    return lRes;
}

long CKXSealOpenApi::OnQueryPrintInfo(const std::string& text, int& iTotal, int& iRemain) {
    Json::Value root;
    long lRes = ParseOpenApiReply(text, root);
    if (lRes != KX_OK) return lRes;
    // The reply's printCount is what remains. A count that is absent or no
    // integer in range reads as 0.
    int remain = 0;
    int total = 0;
    kxjson::Int(kxjson::Member(root, "printCount"), remain);
    kxjson::Int(kxjson::Member(root, "printTotalCount"), total);
    iRemain = remain;
    iTotal = total;
    return KX_OK;
}

long CKXSealOpenApi::UpdatePrintInfo(const std::string& sPrintID, const int& iRemain) {
    long lRes = KX_OK;
    try {
        KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::UpdatePrintInfo", "sPrintID::%s",
               sPrintID.c_str());
        Json::Value request(Json::objectValue);
        request["token"] = strToken;
        request["printId"] = sPrintID;
        request["printCount"] = iRemain;
        const std::string url =
            CIWKHttp::GetCompleteUrl(strUpdatePrint, strSealManageHost, strSealManagePort, false);
        std::string reply;
        lRes = PostJson(url, request, reply);
        if (lRes == KX_OK) lRes = OnUpdatePrintInfo(reply);
    } catch (...) {
        lRes = KX_ERR_INVALID_VALUE;
    }
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::UpdatePrintInfo", "lRes:%d, iRemain:%d",
           static_cast<int>(lRes), iRemain);
    return lRes;
}

long CKXSealOpenApi::OnUpdatePrintInfo(const std::string& text) {
    Json::Value root;
    return ParseOpenApiReply(text, root);
}
