/// @file
/// The legacy server's certificate application and UKey try counting.
#pragma once

#include <json/json.h>

#include <string>

#include "KXCommonType.h"
#include "KXExport.h"
#include "KXServerBase.h"

/// What a certificate application hands back, read from the reply's data.
struct KX_API MakeCertFields {
    int certId = 0;                ///< certificate id
    std::string ukeyNum;           ///< UKey number ("uKeyNum")
    std::string symmCipher;        ///< enciphered symmetric key (from "extention")
    std::string symmAlg;           ///< symmetric algorithm (from "extention")
    std::string encryptedKeypair;  ///< enciphered key pair (from "extention")
    std::string strReserved;       ///< reserved, not used by the library
    std::string authCode;          ///< authorization code (from "extention")
    std::string encCert;           ///< encryption certificate
    std::string encSn;             ///< serial number of encCert
    std::string signCert;          ///< signing certificate
    std::string signSn;            ///< serial number of signCert

    /// Sets every field but strReserved from data; absent or wrong-typed keys
    /// give 0 or empty. The four keys of "extention" come from the JSON text
    /// that value holds.
    void ReadReply(const Json::Value& data);
};

/// The result record of MakeCert: the request's own result and the fields.
struct KX_API MakeCertData : public KXReqResult, public MakeCertFields {};

/// Client of the legacy server: certificate application and UKey try
/// counting, with the legacy head. Both need a complete description (else
/// 10009 and nothing is sent).
class KX_API CInkwellApi : public KXServerBase {
public:
    /// The default paths.
    CInkwellApi();
    /// Copies the description and the paths.
    CInkwellApi(const CInkwellApi& other);
    /// Copies the description and the paths.
    CInkwellApi& operator=(const CInkwellApi& other);
    /// Not virtual, like its base's.
    ~CInkwellApi();

    /// certApplyInfo: the application as a JSON object; "csr" is added or
    /// replaced ("null" stands for an empty object). 10009 without a
    /// successful Init, 10001 when certApplyInfo is no JSON object; else
    /// resData.errCode. The fields of resData are written only on 0.
    long MakeCert(const std::string& certCsrB64, const std::string& certApplyInfo,
                  MakeCertData& resData);
    /// Reports one try on a UKey; remainingTime written only on 0. Runs the
    /// legacy probe (section KXInkwell) first, which may change the held record.
    long UpdateUkeyTryTime(std::string sn, bool isSuccess, bool isLocked, int& remainingTime);

    std::string strMakeCertUri;           ///< path of MakeCert on the server
    std::string strUpdateUkeyTryTimeUri;  ///< path of UpdateUkeyTryTime; ContextPath may change it
};
