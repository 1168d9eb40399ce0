// BID authorisation and text-hash signing: an authorisation task gives an
// authCode, under which a text or hash is signed at once; the server also
// verifies such signatures.
#include "CorvaneApi.h"
#include "bid/BidCall.h"

namespace {

const long kStatusAuthCodeRefused = 1490152;

// The hash name of an RSA signature algorithm of PKCS #1, by whole OID; empty
// for any other text.
const char* HashAlgOf(const std::string& oid) {
    if (oid == "1.2.840.113549.1.1.5") return "SHA1";
    if (oid == "1.2.840.113549.1.1.11") return "SHA256";
    return "";
}

}  // namespace

long CCorvaneApi::CreateBIDAuthInfoTask(std::string sToken, std::string strSubjectName,
                                        std::string& strTaskId, std::string& strUrl,
                                        std::string& strScanMode) {
    static const char kFn[] = "CCorvaneApi::CreateBIDAuthInfoTask";
    KXCall call(m_stInitInfo);
    call.Run([&] {
        kxbid::TokenHead(call, sToken);
        if (!call.Url(strBIDAuthTasksUrl)) return;
        Json::Value body;
        body["subjectName"] = strSubjectName;
        if (m_stInitInfo.iAuthSeconds != 0) body["seconds"] = m_stInitInfo.iAuthSeconds;
        if (!call.Post(body)) return;
        kxbid::TaskOutputs(call.data, strTaskId, strUrl, strScanMode);
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}

long CCorvaneApi::QueryBIDAuthInfoResultTask(std::string sTaskId, std::string sToken, int& iStatus,
                                             std::string& strAuthCode) {
    static const char kFn[] = "CCorvaneApi::QueryBIDAuthInfoResultTask";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "sTaskId:%s", sTaskId.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        kxbid::TokenHead(call, sToken);
        if (!call.Url(strBIDAuthTaskUrl, sTaskId) || !call.Get()) return;
        iStatus = kxbid::Int(call.data, "status");
        if (iStatus != 1) return;
        strAuthCode = kxjson::String(kxjson::Member(call.data, "bizData"), "authCode");
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), kxbid::MaskedReply(call.msg()).c_str());
    return call.lRes;
}

long CCorvaneApi::GetBIDSignDataTask(std::string sToken, std::string strAuthCode,
                                     std::string strText, std::string& strSignature,
                                     std::string strIsBase64, std::string strSignAlgOid) {
    static const char kFn[] = "CCorvaneApi::GetBIDSignDataTask";
    KXCall call(m_stInitInfo);
    call.Run([&] {
        kxbid::TokenHead(call, sToken);
        call.Map(kStatusAuthCodeRefused, KX_ERR_BID_STATUS_1490152);
        if (!call.Url(strBIDTextHashSignUrl)) return;
        Json::Value body;
        body["authCode"] = strAuthCode;
        const std::string hashAlg = HashAlgOf(strSignAlgOid);
        if (!hashAlg.empty()) body["hashAlg"] = hashAlg;
        body[strIsBase64 == "1" ? "rawBase64" : "text"] = strText;
        if (!call.Post(body)) return;
        strSignature = kxjson::String(call.data, "signature");
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}

long CCorvaneApi::GetBIDVerifyResultTask(std::string sToken, std::string strText,
                                         std::string strSignResult, std::string& strCertBase64,
                                         bool& bVerifyResult) {
    static const char kFn[] = "CCorvaneApi::GetBIDVerifyResultTask";
    KXCall call(m_stInitInfo);
    call.Run([&] {
        kxbid::TokenHead(call, sToken);
        if (!call.Url(strBIDVerifyTextHashSignUrl)) return;
        Json::Value body;
        body["signResult"] = strSignResult;
        body["text"] = strText;
        if (!call.Post(body)) return;
        strCertBase64 = kxjson::String(call.data, "certBase64");
        bVerifyResult = kxjson::Truth(kxjson::Member(call.data, "verifyResult"));
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}
