// The table of configuration keys and the reads through it.
#include "KXConfigKeys.h"

#include <cstring>
#include <iterator>

#include "KXAscii.h"
#include "KXConfigSnapshot.h"
#include "KXUtils.h"

namespace {

constexpr KXConfigKey kKeys[] = {
    {KXKey::CAFile, "KXUtils", "CAFile", ""},
    {KXKey::VerifyTLS, "KXUtils", "VerifyTLS", "1"},
    {KXKey::ConnectTimeoutMs, "KXUtils", "ConnectTimeoutMs", "10000"},
    {KXKey::TimeoutMs, "KXUtils", "TimeoutMs", "60000"},
    {KXKey::Proxy, "KXUtils", "Proxy", ""},
    {KXKey::MaxReplyBytes, "KXUtils", "MaxReplyBytes", "67108864"},
    {KXKey::LogFile, "KXUtils", "LogFile", ""},
    {KXKey::LogLevel, "KXUtils", "LogLevel", "1"},
    {KXKey::LogMaxBytes, "KXUtils", "LogMaxBytes", "10485760"},
    {KXKey::Language, "KXUtils", "Language", ""},
    // A neutral placeholder: sites set their own web service.
    {KXKey::CertServiceQuery, "KXServerApi", "CertServiceQuery",
     "https://webservice.kxserverapi.example/kxweb"},
    {KXKey::CertServiceQueryUri, "KXServerApi", "CertServiceQueryUri", "/v3/bid-sign/services"},
    {KXKey::CheckCert, "KXServerApi", "CheckCert", "/kxsign/rest/seal-rest!SOF_GetCertSeals.xml"},
    {KXKey::CheckCertAgent, "KXServerApi", "CheckCertAgent", "/agent/integrate/getCertSealInfos"},
    {KXKey::serverVer, "KXInkwell", "serverVer", ""},
    {KXKey::authorizationType, "KXInkwell", "authorizationType", "0"},
    {KXKey::authorization, "KXInkwell", "authorization", ""},
    {KXKey::ContextPath, "KXPrintMgr", "ContextPath", ""},
    {KXKey::ServerFlag, "OpenApiURL", "ServerFlag", "0"},
    {KXKey::InitUrl, "OpenApiURL", "InitUrl", ""},
    {KXKey::LoginUrl, "OpenApiURL", "LoginUrl", ""},
    {KXKey::LogoutUrl, "OpenApiURL", "LogoutUrl", ""},
    {KXKey::GetSealListUrl, "OpenApiURL", "GetSealListUrl", ""},
    {KXKey::SignHashUrl, "OpenApiURL", "SignHashUrl", ""},
    {KXKey::SaveSignLogUrl, "OpenApiURL", "SaveSignLogUrl", ""},
    {KXKey::convertToPdfUrl, "OpenApiURL", "convertToPdfUrl", ""},
    {KXKey::sealManageHost, "OpenApiURL", "sealManageHost", ""},
    {KXKey::sealManagePort, "OpenApiURL", "sealManagePort", ""},
    {KXKey::getPrintCount, "OpenApiURL", "getPrintCount", ""},
    {KXKey::updatePrint, "OpenApiURL", "updatePrint", ""},
    {KXKey::getEncryptionCerts, "KXPrintCtrl", "getEncryptionCerts",
     "/seal/v1/account/getEncryptionCerts"},
    {KXKey::savePrintInfo, "KXPrintCtrl", "savePrintInfo", "/seal/v1/print/savePrintInfo"},
    {KXKey::getPrintInfo, "KXPrintCtrl", "getPrintInfo", "/seal/v1/print/getPrintInfo"},
    {KXKey::updatePrintInfo, "KXPrintCtrl", "updatePrintInfo", "/seal/v1/print/updatePrintInfo"},
    {KXKey::VerifySMSKaptchaForClient, "KXPrintCtrl", "VerifySMSKaptchaForClient",
     "/seal/api/authentication/verifySMSKaptchaForClient"},
    {KXKey::QueryOrganizeCodeByCertSn, "KXPrintCtrl", "QueryOrganizeCodeByCertSn",
     "/seal/api/seal/queryOrganizeCodeByCertSn"},
    {KXKey::isGoGateWay, "KXPrintCtrl", "isGoGateWay", "0"},
    {KXKey::publicServer, "MobileShield", "publicServer", ""},
    {KXKey::publicPort, "MobileShield", "publicPort", ""},
    {KXKey::appId, "MobileShield", "appId", ""},
    {KXKey::appSecret, "MobileShield", "appSecret", ""},
    {KXKey::serverUrl, "KXSign", "serverUrl", ""},
    {KXKey::needUserAddress, "MobileBIDShield", "needUserAddress", "0"},
    // Reports go to the same placeholder web service by default.
    {KXKey::ReportHostPort, "KXServerApi", "ReportHostPort",
     "https://webservice.kxserverapi.example/kxweb"},
    {KXKey::ReportsignLog, "KXServerApi", "ReportsignLog", "/v3/orbis/client/report/signLog"},
    {KXKey::ReportEncryptLog, "KXServerApi", "ReportEncryptLog",
     "/v3/orbis/client/report/encryptLog"},
    {KXKey::ReportDecryptLog, "KXServerApi", "ReportDecryptLog",
     "/v3/orbis/client/report/decryptLog"},
    {KXKey::eventCallBackUrl, "KXCertBase", "eventCallBackUrl", ""},
    {KXKey::version, "version", "version", ""},
    {KXKey::projectID, "version", "projectID", ""},
    {KXKey::TApiserverUrl, "KXSign", "TApiserverUrl", ""},
    {KXKey::getSealWithUser, "KXSign", "getSealWithUser",
     "/v1/orbis/ukey/integrate/getSealWithUser"},
    {KXKey::getCertSealInfosBySn, "KXSign", "getCertSealInfosBySn",
     "/integrate/getCertSealInfosBySn"},
    {KXKey::RbnServerUrl, "RbnSeal", "serverUrl", ""},
    {KXKey::getToken, "RbnSeal", "getToken", "/v1/oauth/token"},
    {KXKey::RbnAppId, "RbnSeal", "appId", ""},
    {KXKey::getSealListBySignCert, "RbnSeal", "getSealListBySignCert",
     "/v1/seal/getSealBySignCert"},
    {KXKey::SerType, "*", "SerType", "0"},
    {KXKey::Host, "*", "Host", ""},
    {KXKey::Port, "*", "Port", "0"},
    {KXKey::ProjectID, "*", "ProjectID", ""},
    {KXKey::ProjectSecret, "*", "ProjectSecret", ""},
    {KXKey::MobileShieldClientId, "*", "MobileShieldClientId", ""},
};

constexpr size_t kKeyCount = std::size(kKeys);

// Row i holds enumerator i, and every enumerator has its row.
constexpr bool InEnumeratorOrder() {
    for (size_t i = 0; i < kKeyCount; ++i) {
        if (static_cast<size_t>(kKeys[i].id) != i) return false;
    }
    return true;
}
static_assert(InEnumeratorOrder(), "kKeys lists KXKey in enumerator order");
static_assert(kKeyCount == static_cast<size_t>(KXKey::MobileShieldClientId) + 1,
              "every KXKey has a row in kKeys");

bool AnySection(const KXConfigKey& row) {
    return std::strcmp(row.section, "*") == 0;
}

}  // namespace

const KXConfigKey* IWK_ConfigKeys(size_t& count) {
    count = kKeyCount;
    return kKeys;
}

const KXConfigKey& IWK_ConfigKey(KXKey key) {
    const size_t index = static_cast<size_t>(key);
    // A value outside the enumeration names no key: one empty row for all of
    // them (its id means nothing), read as absent.
    static const KXConfigKey kUnknown = {KXKey::MobileShieldClientId, "", "", ""};
    return index < kKeyCount ? kKeys[index] : kUnknown;
}

namespace kxutils {

int DefaultInt(KXKey key) {
    int value = 0;
    return kxascii::ParseInt(IWK_ConfigKey(key).defaultValue, value) ? value : 0;
}

int ConfigSnapshot::Get(KXKey key, std::string& value) const {
    const KXConfigKey& row = IWK_ConfigKey(key);
    try {
        if (!AnySection(row)) return Get(row.section, row.key, value, row.defaultValue);
        value = row.defaultValue;
    } catch (...) {
    }
    return 0;
}

int ConfigSnapshot::Get(KXKey key, int& value) const {
    const KXConfigKey& row = IWK_ConfigKey(key);
    try {
        if (!AnySection(row)) return Get(row.section, row.key, value, DefaultInt(key));
    } catch (...) {
    }
    value = DefaultInt(key);
    return 0;
}

}  // namespace kxutils

int IWK_GetConfig(KXKey key, std::string& value) {
    return kxutils::ConfigSnapshot().Get(key, value);
}

int IWK_GetConfig(KXKey key, int& value) {
    return kxutils::ConfigSnapshot().Get(key, value);
}

int IWK_GetConfig(const std::string& section, KXKey key, std::string& value) {
    const KXConfigKey& row = IWK_ConfigKey(key);
    try {
        return kxutils::ConfigSnapshot().Get(section, row.key, value, row.defaultValue);
    } catch (...) {
        try {
            value = row.defaultValue;
        } catch (...) {
        }
        return 0;
    }
}

int IWK_GetConfig(const std::string& section, KXKey key, int& value) {
    const KXConfigKey& row = IWK_ConfigKey(key);
    try {
        return kxutils::ConfigSnapshot().Get(section, row.key, value, kxutils::DefaultInt(key));
    } catch (...) {
        value = kxutils::DefaultInt(key);
        return 0;
    }
}
