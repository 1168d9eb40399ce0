// The legacy server's certificate application and UKey try counting.
#pragma once

#include <json/json.h>

#include <string>

#include "KXCommonType.h"
#include "KXExport.h"
#include "KXServerBase.h"

// What a certificate application hands back, read from the reply's data.
struct KX_API MakeCertFields {
    int certId = 0;
    std::string ukeyNum;
    std::string symmCipher;
    std::string symmAlg;
    std::string encryptedKeypair;
    std::string strReserved;
    std::string authCode;
    std::string encCert;
    std::string encSn;
    std::string signCert;
    std::string signSn;

    // Sets every field but strReserved from data; absent or wrong-typed keys
    // give 0 or empty. The four keys of "extention" come from the JSON text
    // that value holds.
    void ReadReply(const Json::Value& data);
};

// The result record of MakeCert: the request's own result and the fields.
struct KX_API MakeCertData : public KXReqResult, public MakeCertFields {};

class KX_API CInkwellApi : public KXServerBase {
public:
    CInkwellApi();
    CInkwellApi(const CInkwellApi& other);
    CInkwellApi& operator=(const CInkwellApi& other);
    ~CInkwellApi();

    // certApplyInfo: the application as a JSON object; "csr" is added or
    // replaced ("null" stands for an empty object). 10009 without a
    // successful Init, 10001 when certApplyInfo is no JSON object; else
    // resData.errCode. The fields of resData are written only on 0.
    long MakeCert(const std::string& certCsrB64, const std::string& certApplyInfo,
                  MakeCertData& resData);
    // Reports one try on a UKey; remainingTime written only on 0. Runs the
    // legacy probe (section KXInkwell) first, which may change the held record.
    long UpdateUkeyTryTime(std::string sn, bool isSuccess, bool isLocked, int& remainingTime);

    std::string strMakeCertUri;
    std::string strUpdateUkeyTryTimeUri;
};
