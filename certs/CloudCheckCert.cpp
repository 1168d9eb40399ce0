// Certificate check at the cloud platform (XML) or at the agent (JSON).
#include "CloudCheckCert.h"

#include "KXUtils.h"
#include "frame/KXCall.h"

namespace {

const char kSource[] = "CloudCheckCert";

}  // namespace

CCloudCheckCert::CCloudCheckCert() = default;
CCloudCheckCert::CCloudCheckCert(const CCloudCheckCert& other) = default;
CCloudCheckCert& CCloudCheckCert::operator=(const CCloudCheckCert& other) = default;
CCloudCheckCert::~CCloudCheckCert() = default;

long CCloudCheckCert::CheckCert(const std::string& cert) {
    const long lRes = KXGuard([&]() -> long {
        if (CheckInitInfo(m_stInitInfo) != KX_OK) return KX_ERR_CHECK_NOT_INITIALISED;
        return m_stInitInfo.SerType == 4 ? CheckCertByAgentIntegrate(cert)
                                         : CheckCertByCloudPlatform(cert);
    });
    KX_LOG(KX_LOG_TRACE, kSource, "CCloudCheckCert::CheckCert", "lRes:%d", static_cast<int>(lRes));
    return lRes;
}

long CCloudCheckCert::CheckCertByCloudPlatform(const std::string& cert) {
    KXCall call(m_stInitInfo, KXReply::CloudCheckXml);
    call.Run([&] {
        // The default path applies only when the key is absent; an empty value stays empty.
        IWK_GetConfig(KXKey::CheckCert, strCheckUri);
        call.UrlAt(strCheckUri, m_stInitInfo.ServerIp, std::to_string(m_stInitInfo.Port));
        // The certificate is Base64 and goes in as it is.
        call.PostXml("<inDatas><userCert>" + cert + "</userCert></inDatas>");
    });
    KX_LOG(KX_LOG_TRACE, kSource, "CCloudCheckCert::CheckCertByCloudPlatform", "lRes:%d",
           call.code());
    return call.lRes;
}

long CCloudCheckCert::CheckCertByAgentIntegrate(const std::string& cert) {
    // The agent's seal details in data are not the caller's concern here.
    KXCall call(m_stInitInfo, KXReply::ErrCodeEnvelope);
    call.Run([&] {
        IWK_GetConfig(KXKey::CheckCertAgent, strCheckUri);
        call.UrlAt(strCheckUri, m_stInitInfo.ServerIp, std::to_string(m_stInitInfo.Port));
        Json::Value root(Json::objectValue);
        root["certB64"] = cert;
        call.Post(root);
    });
    KX_LOG(KX_LOG_TRACE, kSource, "CCloudCheckCert::CheckCertByAgentIntegrate", "lRes:%d",
           call.code());
    return call.lRes;
}
