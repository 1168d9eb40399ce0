// Every key of the configuration store that the project reads, with its
// section and default, in one table (KXConfigKeys.cpp) that README's "Keys"
// table mirrors row by row. Code reads a key through its enumerator, so a
// misspelt key does not compile and the default is the table's:
//
//     std::string base;
//     IWK_GetConfig(KXKey::CertServiceQuery, base);        // [KXServerApi]
//     IWK_GetConfig(section, KXKey::Host, info.ServerIp);  // a "*" key
#pragma once

#include <cstddef>
#include <string>

#include "KXExport.h"

// Each enumerator is the key's name as stored, in the table's order.
enum class KXKey {
    // [KXUtils]
    CAFile,
    VerifyTLS,
    ConnectTimeoutMs,
    TimeoutMs,
    Proxy,
    MaxReplyBytes,
    LogFile,
    LogLevel,
    LogMaxBytes,
    Language,
    // [KXServerApi]
    CertServiceQuery,
    CertServiceQueryUri,
    CheckCert,
    CheckCertAgent,
    // [KXInkwell]
    serverVer,
    authorizationType,
    authorization,
    // [KXPrintMgr]
    ContextPath,
    // [OpenApiURL]
    ServerFlag,
    InitUrl,
    LoginUrl,
    LogoutUrl,
    GetSealListUrl,
    SignHashUrl,
    SaveSignLogUrl,
    convertToPdfUrl,
    sealManageHost,
    sealManagePort,
    getPrintCount,
    updatePrint,
    // [KXPrintCtrl]
    getEncryptionCerts,
    savePrintInfo,
    getPrintInfo,
    updatePrintInfo,
    VerifySMSKaptchaForClient,
    QueryOrganizeCodeByCertSn,
    isGoGateWay,
    // [MobileShield]
    publicServer,
    publicPort,
    appId,
    appSecret,
    // [KXSign]
    serverUrl,
    // [MobileBIDShield]
    needUserAddress,
    // [KXServerApi], [KXCertBase], [version]: records and reports
    ReportHostPort,
    ReportsignLog,
    ReportEncryptLog,
    ReportDecryptLog,
    eventCallBackUrl,
    version,
    projectID,
    TApiserverUrl,
    getSealWithUser,
    getCertSealInfosBySn,
    // [RbnSeal]; two names are taken by other sections
    RbnServerUrl,  // serverUrl
    getToken,
    RbnAppId,  // appId
    getSealListBySignCert,
    // "*": one server description, in whatever section the caller names
    SerType,
    Host,
    Port,
    ProjectID,
    ProjectSecret,
    MobileShieldClientId,  // last: the table's length follows from it
};

struct KXConfigKey {
    KXKey id;
    const char* section;       // "*": any section, named by the caller
    const char* key;           // the name in the store
    const char* defaultValue;  // as text; "" when there is none
};

// The whole table, in enumerator order; count receives its length.
KXUTILS_API const KXConfigKey* IWK_ConfigKeys(size_t& count);
KXUTILS_API const KXConfigKey& IWK_ConfigKey(KXKey key);

// Reads a key in its table section: value gets the stored text, else the
// table's default (the int form also takes the default for text that is no
// decimal number in int range). 1 when the store held the key, 0 when the
// default was used. A "*" key has no section of its own: these forms give
// its default and 0.
KXUTILS_API int IWK_GetConfig(KXKey key, std::string& value);
KXUTILS_API int IWK_GetConfig(KXKey key, int& value);
// The same in a section the caller names: for the "*" keys, and where a
// caller may name another section (KX_InkwellCompatible's serverVer...).
KXUTILS_API int IWK_GetConfig(const std::string& section, KXKey key, std::string& value);
KXUTILS_API int IWK_GetConfig(const std::string& section, KXKey key, int& value);
