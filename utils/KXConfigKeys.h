/// @file
/// Every key of the configuration store that the project reads, with its
/// section and default, in one table (KXConfigKeys.cpp) that README's "Keys"
/// table mirrors row by row. Code reads a key through its enumerator, so a
/// misspelt key does not compile and the default is the table's:
///
///     std::string base;
///     IWK_GetConfig(KXKey::CertServiceQuery, base);        // [KXServerApi]
///     IWK_GetConfig(section, KXKey::Host, info.ServerIp);  // a "*" key
#pragma once

#include <cstddef>
#include <string>

#include "KXExport.h"

/// Each enumerator is the key's name as stored, in the table's order.
enum class KXKey {
    // [KXUtils]
    CAFile,            ///< CA bundle for server certificates; empty: system store
    VerifyTLS,         ///< 0 turns TLS peer and host verification off
    ConnectTimeoutMs,  ///< connect time limit
    TimeoutMs,         ///< time limit of a whole exchange
    Proxy,             ///< proxy URL; absent: the environment decides
    MaxReplyBytes,     ///< larger replies are refused with 10106
    LogFile,           ///< log destination ("-" is stderr)
    LogLevel,          ///< lowest log level written
    LogMaxBytes,       ///< size at which the log is rotated
    Language,          ///< what IWK_GetLanguageName gives
    // [KXServerApi]
    CertServiceQuery,     ///< base of the service query URL, scheme included
    CertServiceQueryUri,  ///< path of the service query
    CheckCert,            ///< path of the cloud platform's certificate check
    CheckCertAgent,       ///< path of the agent's certificate check
    // [KXInkwell]
    serverVer,          ///< legacy server version
    authorizationType,  ///< for "5.3": 1 value, 2 URL of the value
    authorization,      ///< the authorization value, or its URL
    // [KXPrintMgr]
    ContextPath,  ///< replaces "inkwell" in the try report's path
    // [OpenApiURL]
    ServerFlag,       ///< not 0: no discovery of the seal server
    InitUrl,          ///< base of the seal server's discovery URL
    LoginUrl,         ///< path of the seal server's login
    LogoutUrl,        ///< path of its logout
    GetSealListUrl,   ///< path of its seal list
    SignHashUrl,      ///< path of its hash signing
    SaveSignLogUrl,   ///< path of its sign log
    convertToPdfUrl,  ///< path of its document conversion
    sealManageHost,   ///< host of the print counts (version 1)
    sealManagePort,   ///< port of the print counts
    getPrintCount,    ///< path of the print count query
    updatePrint,      ///< path of the print count update
    // [KXPrintCtrl]
    getEncryptionCerts,         ///< path of KXPrintCtrl::GetEncryptCerts
    savePrintInfo,              ///< path of KXPrintCtrl::SavePrintInfo
    getPrintInfo,               ///< path of KXPrintCtrl::QueryPrintInfo
    updatePrintInfo,            ///< path of KXPrintCtrl::UpdatePrintInfo
    VerifySMSKaptchaForClient,  ///< path of the SMS check
    QueryOrganizeCodeByCertSn,  ///< path of the organisation look-up
    isGoGateWay,                ///< exactly 1: the SMS check goes through the gateway
    // [MobileShield]
    publicServer,  ///< gateway host
    publicPort,    ///< gateway port
    appId,         ///< application id the gateway signs with
    appSecret,     ///< its secret, in clear or enciphered
    // [KXSign]
    serverUrl,  ///< base URL of the gateway and seal lists
    // [MobileBIDShield]
    needUserAddress,  ///< exactly 1: a BID login asks for the address
    // [KXServerApi], [KXCertBase], [version]: records and reports
    ReportHostPort,        ///< base of the usage report URLs
    ReportsignLog,         ///< path of a signing report (type 1)
    ReportEncryptLog,      ///< path of an encrypting report (type 2)
    ReportDecryptLog,      ///< path of a decrypting report (type 3)
    eventCallBackUrl,      ///< URL that KX_UKeyEventUpload posts to
    version,               ///< client version, sent in reports
    projectID,             ///< client project, sent in reports
    TApiserverUrl,         ///< server URL of KX_GetSealListByYPT
    getSealWithUser,       ///< path of KX_GetSealListByYPT
    getCertSealInfosBySn,  ///< path of KX_GetSealListByCertSN
    // [RbnSeal]; two names are taken by other sections
    RbnServerUrl,           ///< "serverUrl": server of KX_GetSealListByCert_RBN
    getToken,               ///< path of its access-token request
    RbnAppId,               ///< "appId": application id of that request
    getSealListBySignCert,  ///< path of its list request
    // "*": one server description, in whatever section the caller names
    SerType,               ///< server type of a description
    Host,                  ///< server host
    Port,                  ///< server port
    ProjectID,             ///< project id of the request heads
    ProjectSecret,         ///< project secret, in clear or enciphered
    MobileShieldClientId,  ///< mobile-shield client id; last: the table's length follows from it
};

/// One row of the key table.
struct KXConfigKey {
    KXKey id;                  ///< the key's enumerator
    const char* section;       ///< "*": any section, named by the caller
    const char* key;           ///< the name in the store
    const char* defaultValue;  ///< as text; "" when there is none
};

/// The whole table, in enumerator order; count receives its length.
KXUTILS_API const KXConfigKey* IWK_ConfigKeys(size_t& count);
/// The table's row of key.
KXUTILS_API const KXConfigKey& IWK_ConfigKey(KXKey key);

/// Reads a key in its table section: value gets the stored text, else the
/// table's default (the int form also takes the default for text that is no
/// decimal number in int range). 1 when the store held the key, 0 when the
/// default was used. A "*" key has no section of its own: these forms give
/// its default and 0.
KXUTILS_API int IWK_GetConfig(KXKey key, std::string& value);
/// The int form of the one above.
KXUTILS_API int IWK_GetConfig(KXKey key, int& value);
/// The same in a section the caller names: for the "*" keys, and where a
/// caller may name another section (KX_InkwellCompatible's serverVer...).
KXUTILS_API int IWK_GetConfig(const std::string& section, KXKey key, std::string& value);
/// The int form of the one above.
KXUTILS_API int IWK_GetConfig(const std::string& section, KXKey key, int& value);
