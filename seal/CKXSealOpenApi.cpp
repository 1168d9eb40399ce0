// CKXSealOpenApi: the session with the seal server and the operations inside it.
#include <cstdlib>

#include "KXSealOpenApi.h"
#include "KXUtils.h"
#include "frame/KXCall.h"

namespace {

const char kSource[] = "KXSeal";
const char kSection[] = "OpenApiURL";
const char kDiscoveryPath[] = "/kxmonitor/rest/app!getAPIInfo";

// Printable form of an argument that may be null, for the log.
const char* Text(const char* s) {
    return s != nullptr ? s : "";
}

std::string HexDigest(const std::string& text) {
    return IWK_CharToHex(IWK_Digest(text, KX_HASH_MD5));
}

// The md5 field of signing calls: the same for every call of a session, so
// each thread keeps the last one rather than hashing again.
const std::string& SessionDigest(const std::string& equipId, const std::string& token) {
    thread_local std::string input;
    thread_local std::string digest;
    if (digest.empty() || input.size() != equipId.size() + token.size() ||
        input.compare(0, equipId.size(), equipId) != 0 ||
        input.compare(equipId.size(), std::string::npos, token) != 0) {
        input = equipId + token;
        digest = HexDigest(input);
    }
    return digest;
}

}  // namespace

CKXSealOpenApi::CKXSealOpenApi() : iLoginType(0), iServerFlag(0), bIsLogin(0) {}
CKXSealOpenApi::CKXSealOpenApi(const CKXSealOpenApi& other) = default;
CKXSealOpenApi& CKXSealOpenApi::operator=(const CKXSealOpenApi& other) = default;
CKXSealOpenApi::~CKXSealOpenApi() = default;

long CKXSealOpenApi::Init(const _init_Info_s& info) {
    long lRes = KXServerBase::Init(info);
    if (lRes == KX_OK) {
        // No head, and a transport failure leaves the last error as it was:
        // so for every request of the seal server.
        KXCall call(m_stInitInfo, KXReply::OpenApi);
        call.Run([&] {
            strMac = IWK_GetMacAddress();
            strEquipId = HexDigest(strMac);

            IWK_GetConfig(KXKey::ServerFlag, iServerFlag);
            IWK_GetConfig(KXKey::InitUrl, strInitUrl);
            IWK_GetConfig(KXKey::LoginUrl, strLoginUrl);
            IWK_GetConfig(KXKey::LogoutUrl, strLogoutUrl);
            IWK_GetConfig(KXKey::GetSealListUrl, strGetSealListUrl);
            IWK_GetConfig(KXKey::SignHashUrl, strSignHashUrl);
            IWK_GetConfig(KXKey::SaveSignLogUrl, strSaveSignLogUrl);
            IWK_GetConfig(KXKey::convertToPdfUrl, strConvertToPdfUrl);
            IWK_GetConfig(KXKey::sealManageHost, strSealManageHost);
            IWK_GetConfig(KXKey::sealManagePort, strSealManagePort);
            IWK_GetConfig(KXKey::getPrintCount, strGetPrintCount);
            IWK_GetConfig(KXKey::updatePrint, strUpdatePrint);

            if (iServerFlag != 0) {
                strHost = m_stInitInfo.ServerIp;
                strPort = std::to_string(m_stInitInfo.Port);
                return;
            }
            std::string url;
            if (strInitUrl.find("getAPIInfo") != std::string::npos) {
                url = strInitUrl;
            } else if (!strInitUrl.empty()) {
                url = strInitUrl + kDiscoveryPath;
            }
            call.UrlIs(url);
            call.ReadWith([this](const std::string& text) { return OnInit(text); });
            // The form grows with its values: nothing is ever cut.
            call.PostForm("project_id=" + m_stInitInfo.ProjectID + "&project_secret=" +
                          m_stInitInfo.ProjectSecret + "&mac=" + strMac + "&equipId=" + strEquipId);
        });
        lRes = call.lRes;
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
        KXKey configKey;
    };
    const Endpoint endpoints[] = {
        {"host", &strHost, KXKey::Host},
        {"port", &strPort, KXKey::Port},
        {"loginUrl", &strLoginUrl, KXKey::LoginUrl},
        {"logoutUrl", &strLogoutUrl, KXKey::LogoutUrl},
        {"getSealListUrl", &strGetSealListUrl, KXKey::GetSealListUrl},
        {"signHashUrl", &strSignHashUrl, KXKey::SignHashUrl},
        {"saveSignLogUrl", &strSaveSignLogUrl, KXKey::SaveSignLogUrl},
        {"ConvertDocUrl", &strConvertToPdfUrl, KXKey::convertToPdfUrl},
    };
    for (const Endpoint& e : endpoints) {
        const std::string value = kxjson::String(root, e.replyKey);
        if (value.empty()) continue;
        *e.field = value;
        // Kept in the store so that the next start begins from what was discovered.
        IWK_SetConfigByKey(kSection, IWK_ConfigKey(e.configKey).key, value);
    }
    return KX_OK;
}

long CKXSealOpenApi::Login(const char* user, const char* userPwd, int nLoginType) {
    // A login of any outcome ends the session held so far.
    bIsLogin = 0;
    strToken.clear();
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::Login", "user:%s, nLoginType:%d", Text(user),
           nLoginType);
    KXCall call(m_stInitInfo, KXReply::OpenApi);
    call.Require(IWK_Len(user) != 0 && IWK_Len(userPwd) != 0, KX_ERR_ARGUMENT_EMPTY);
    call.Run([&] {
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
                call.Refuse(KX_ERR_INVALID_VALUE);
                return;
        }
        iLoginType = nLoginType;
        call.UrlAt(strLoginUrl, strHost, strPort);
        call.ReadWith([this](const std::string& text) { return OnLogin(text); });
        if (!call.PostForm("project_id=" + m_stInitInfo.ProjectID +
                           "&project_secret=" + m_stInitInfo.ProjectSecret +
                           "&equipId=" + strEquipId + "&username=" + name + "&userpwd=" + pwd +
                           "&loginType=" + std::to_string(iLoginType) + "&response_type=post"))
            return;
        strUserName = user;
        strUserPwd = userPwd;
    });
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::Login", "lRes:%d", call.code());
    return call.lRes;
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
    KXCall call(m_stInitInfo, KXReply::OpenApi);
    call.Run([&] {
        call.UrlAt(strLogoutUrl, strHost, strPort);
        call.ReadWith([this](const std::string& text) { return OnLogout(text); });
        call.PostForm("project_id=" + m_stInitInfo.ProjectID + "&project_secret=" +
                      m_stInitInfo.ProjectSecret + "&equipId=" + strEquipId + "&token=" + strToken);
    });
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::Logout", "lRes:%d", call.code());
    return call.lRes;
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
    sealInfoList.clear();
    KXCall call(m_stInitInfo, KXReply::OpenApi);
    call.Run([&] {
        call.UrlAt(strGetSealListUrl, strHost, strPort);
        Json::Value request(Json::objectValue);
        request["token"] = strToken;
        request["equipId"] = strEquipId;
        if (IWK_Len(certSerial) != 0) request["certSerial"] = certSerial;
        if (sealId != 0) request["sealId"] = sealId;
        // The seals read before a bad one are handed back with its code; on
        // an exception the list stays empty.
        call.ReadWith([&](const std::string& text) {
            std::vector<_seal_Info_s> seals;
            const long code = OnGetSealList(text, seals);
            sealInfoList.swap(seals);
            return code;
        });
        call.Post(request);
    });
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::GetSealList", "lRes:%d, sealInfoList.size():%d",
           call.code(), static_cast<int>(sealInfoList.size()));
    return call.lRes;
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
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::SignHash", "originalB64:%s", Text(originalB64));
    KXCall call(m_stInitInfo, KXReply::OpenApi);
    call.Require(originalB64 != nullptr && signPwd != nullptr, KX_ERR_ARGUMENT_EMPTY);
    call.Run([&] {
        call.UrlAt(strSignHashUrl, strHost, strPort);
        Json::Value request(Json::objectValue);
        request["token"] = strToken;
        request["equipId"] = strEquipId;
        request["md5"] = SessionDigest(strEquipId, strToken);
        request["hash"] = originalB64;
        request["signPwd"] = signPwd;
        call.ReadWith([&](const std::string& text) { return OnSignHash(text, signValueB64); });
        call.Post(request);
    });
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::SignHash", "lRes:%d, signValueB64:%s",
           call.code(), signValueB64.c_str());
    return call.lRes;
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
    bool given = true;
    for (const char* a : {timestamp, docName, docHash, docContent, signInfo, certId, sealId})
        given = given && a != nullptr;
    KXCall call(m_stInitInfo, KXReply::OpenApi);
    call.Require(given, KX_ERR_ARGUMENT_EMPTY);
    call.Run([&] {
        call.UrlAt(strSaveSignLogUrl, strHost, strPort);
        Json::Value request(Json::objectValue);
        request["token"] = strToken;
        request["md5"] = SessionDigest(strEquipId, strToken);
        request["equipId"] = strEquipId;
        request["timestamp"] = timestamp;
        request["docName"] = docName;
        request["docHash"] = docHash;
        request["docContent"] = docContent;
        request["signInfo"] = signInfo;
        request["certId"] = std::atoi(certId);
        request["sealId"] = sealId;
        call.ReadWith([this](const std::string& text) { return OnReportSignResult(text); });
        call.Post(request);
    });
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::ReportSignResult", "lRes:%d", call.code());
    return call.lRes;
}

long CKXSealOpenApi::OnReportSignResult(const std::string& text) {
    Json::Value root;
    return ParseOpenApiReply(text, root);
}

long CKXSealOpenApi::QueryPrintInfo(const std::string& sPrintID, int& iTotal, int& iRemain) {
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::QueryPrintInfo", "sPrintID::%s",
           sPrintID.c_str());
    KXCall call(m_stInitInfo, KXReply::OpenApi);
    call.Run([&] {
        Json::Value request(Json::objectValue);
        request["token"] = strToken;
        request["printId"] = sPrintID;
        call.UrlAt(strGetPrintCount, strSealManageHost, strSealManagePort);
        call.ReadWith(
            [&](const std::string& text) { return OnQueryPrintInfo(text, iTotal, iRemain); });
        call.Post(request);
    });
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::QueryPrintInfo",
           "lRes:%d, iRemain:%d, iTotal:%d", call.code(), iRemain, iTotal);
    return call.lRes;
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
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::UpdatePrintInfo", "sPrintID::%s",
           sPrintID.c_str());
    KXCall call(m_stInitInfo, KXReply::OpenApi);
    call.Run([&] {
        Json::Value request(Json::objectValue);
        request["token"] = strToken;
        request["printId"] = sPrintID;
        request["printCount"] = iRemain;
        call.UrlAt(strUpdatePrint, strSealManageHost, strSealManagePort);
        call.ReadWith([this](const std::string& text) { return OnUpdatePrintInfo(text); });
        call.Post(request);
    });
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::UpdatePrintInfo", "lRes:%d, iRemain:%d",
           call.code(), iRemain);
    return call.lRes;
}

long CKXSealOpenApi::OnUpdatePrintInfo(const std::string& text) {
    Json::Value root;
    return ParseOpenApiReply(text, root);
}
