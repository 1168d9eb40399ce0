// The client base, reading server descriptions, and the legacy-server probe.
#include "KXServerBase.h"

#include "KXServerApi.h"
#include "KXUtils.h"

namespace {
const char kSource[] = "KXServerBase";
}

KXServerBase::KXServerBase() = default;
KXServerBase::KXServerBase(const KXServerBase& other) = default;
KXServerBase& KXServerBase::operator=(const KXServerBase& other) = default;
KXServerBase::~KXServerBase() = default;

long KXServerBase::CheckInitInfo(const _init_Info_s& info) {
    const bool hasId = !info.ProjectID.empty();
    const bool hasSecret = !info.ProjectSecret.empty();
    const bool hasHost = !info.ServerIp.empty();
    const bool hasPort = info.Port >= 1;
    long lRes = KX_ERR_INVALID_VALUE;
    if ((info.SerType == 2 || info.SerType == 4) && hasHost && hasPort) {
        lRes = KX_OK;
    } else if (hasId && hasSecret && hasHost && hasPort) {
        lRes = KX_OK;
    } else if (hasId && hasHost && (info.SerType == 9 || info.SerType == 10)) {
        lRes = KX_OK;
    }
    KX_LOG(KX_LOG_TRACE, kSource, "KXServerBase::CheckInitInfo",
           "lRes:%d, ProjectID:%s,ServerIp:%s, Port:%d, SerType:%d", static_cast<int>(lRes),
           info.ProjectID.c_str(), info.ServerIp.c_str(), info.Port, info.SerType);
    return lRes;
}

long KXServerBase::Init(const _init_Info_s& info) {
    long lRes = CheckInitInfo(info);
    if (lRes == KX_OK) {
        m_stInitInfo = info;
        IWK_RegisterSecret(info.ProjectSecret);
    }
    KX_LOG(KX_LOG_TRACE, kSource, "KXServerBase::Init", "lRes:%d", static_cast<int>(lRes));
    return lRes;
}

bool KXServerBase::IsInit() {
    return CheckInitInfo(m_stInitInfo) == KX_OK;
}

long KX_GetServerConfig(const std::string& section, _init_Info_s& info) {
    KX_LOG(KX_LOG_TRACE, kSource, "KX_GetServerConfig", "section:%s", section.c_str());
    IWK_GetConfigByKey(section, "SerType", info.SerType, 0);
    IWK_GetConfigByKey(section, "Host", info.ServerIp, "");
    IWK_GetConfigByKey(section, "Port", info.Port, 0);
    IWK_GetConfigByKey(section, "ProjectID", info.ProjectID, "");
    std::string stored;
    IWK_GetConfigByKey(section, "ProjectSecret", stored, "");
    // A secret stored in clear still works: keep the stored text when it does not decipher.
    std::string clear = IWK_DecryptEncryptedConfigInfo(stored);
    info.ProjectSecret = clear.empty() ? stored : clear;
    IWK_RegisterSecret(info.ProjectSecret);
    return KX_OK;
}

namespace {

// Reply of the authorization URL: {"errCode":0,"data":"<value>"}.
long InkwellAnalysisRes(KXReqResult* result, Json::Value& data) {
    if (result == nullptr) {
        KX_LOG(KX_LOG_TRACE, kSource, "InkwellAnalysisRes", "lRes:%d",
               static_cast<int>(KX_ERR_ARGUMENT_EMPTY));
        return KX_ERR_ARGUMENT_EMPTY;
    }
    if (result->errCode != 0) {
        IWK_SetLastError(result->errCode, result->msg);
        return result->errCode;
    }
    Json::Value root;
    if (!kxjson::Parse(result->msg, root)) {
        IWK_SetLastError(KX_ERR_LEGACY_REPLY, result->msg);
        return KX_ERR_LEGACY_REPLY;
    }
    int code = 0;
    IWK_GetJsonValue(kxjson::Member(root, "errCode"), code, KX_ERR_LEGACY_REPLY);
    data = kxjson::Member(root, "data");
    if (code != 0) IWK_SetLastError(code, kxjson::String(root, "msg"));
    return code;
}

}  // namespace

long KX_InkwellCompatible(_init_Info_s& info, std::string& strAuthorization,
                          const std::string& section) {
    long lRes = KX_OK;
    try {
        strAuthorization.clear();
        if (info.serverVer.empty()) {
            IWK_GetConfigByKey(section, "serverVer", info.serverVer, "");
            info.authorizationType = 0;
        }
        if (info.serverVer == "5.3") {
            IWK_GetConfigByKey(section, "authorizationType", info.authorizationType, 0);
            IWK_GetConfigByKey(section, "authorization", info.authorization, "");
        }
        if (info.authorizationType == 2 && !info.authorization.empty()) {
            KXReqResult result;
            lRes = CIWKHttp::Get(info.authorization, "", "", &result, HTTP_REQ_PLAIN, nullptr);
            if (lRes == KX_OK) {
                Json::Value data;
                lRes = InkwellAnalysisRes(&result, data);
                if (lRes == KX_OK) {
                    strAuthorization = kxjson::String(data);
                    if (strAuthorization.empty()) {
                        info.authorizationType = 1;
                        info.authorization.clear();
                    }
                }
            }
        } else if (info.authorizationType == 1) {
            strAuthorization = info.authorization;
        }
    } catch (...) {
        lRes = KX_ERR_INVALID_VALUE;
    }
    KX_LOG(KX_LOG_TRACE, kSource, "KX_InkwellCompatible", "lRes:%d, strAuthorization:%s",
           static_cast<int>(lRes), strAuthorization.c_str());
    return lRes;
}
