// BID digital-envelope tasks: decrypt tasks hand back the symmetric key of
// each envelope, encrypt tasks a public key with its authInfo.
#include "CorvaneApi.h"
#include "bid/BidCall.h"

namespace {

// The body of both decrypt create operations: null, not [], for no envelope.
Json::Value DecryptBody(const std::vector<KXReceiveData>& vecEnvelopes) {
    Json::Value body;
    body["digitalEnvelopeList"] = Json::Value();
    for (size_t i = 0; i < vecEnvelopes.size(); ++i) {
        body["digitalEnvelopeList"][static_cast<Json::ArrayIndex>(i)] =
            vecEnvelopes[i].digitalEnvelopeB64;
    }
    body["comment"] = "";
    return body;
}

}  // namespace

long CCorvaneApi::CreateBIDDecryptTask(std::vector<KXReceiveData>& vecEnvelopes, std::string sToken,
                                       std::string& strTaskId, std::string& strUrl,
                                       std::string& strScanMode) {
    static const char kFn[] = "CCorvaneApi::CreateBIDDecryptTask";
    KXCall call(m_stInitInfo);
    call.Run([&] {
        kxbid::TokenHead(call, sToken);
        if (!call.Url(strBIDDecryptTasksUrl) || !call.Post(DecryptBody(vecEnvelopes))) return;
        kxbid::TaskOutputs(call.data, strTaskId, strUrl, strScanMode);
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}

long CCorvaneApi::CreateBIDDecryptTaskWithAppId(std::vector<KXReceiveData>& vecEnvelopes,
                                                std::string strAppId, std::string& strTaskId,
                                                std::string& strUrl, std::string& strScanMode) {
    static const char kFn[] = "CCorvaneApi::CreateBIDDecryptTaskWithAppId";
    KXCall call(m_stInitInfo);
    call.Run([&] {
        // The application id stands in for the token: no head at all.
        call.Head(KXHead::None).Map(401, KX_ERR_BID_TOKEN_REFUSED);
        if (!call.Url(strBIDDecryptTasksUrl)) return;
        Json::Value body = DecryptBody(vecEnvelopes);
        body["appId"] = strAppId;
        if (!call.Post(body)) return;
        kxbid::TaskOutputs(call.data, strTaskId, strUrl, strScanMode);
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}

long CCorvaneApi::CreateBIDEncryptTask(std::string& strAppId, std::string& strTaskId,
                                       std::string& strUrl, std::string& strScanMode) {
    static const char kFn[] = "CCorvaneApi::CreateBIDEncryptTask";
    KXCall call(m_stInitInfo);
    call.Run([&] {
        call.Head(KXHead::None);
        if (!call.Url(strBIDEncryptTasksUrl)) return;
        Json::Value body;
        body["checkSubject"] = false;
        body["appId"] = strAppId;
        if (!call.Post(body)) return;
        kxbid::TaskOutputs(call.data, strTaskId, strUrl, strScanMode);
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}

long CCorvaneApi::QueryBIDDecryptResultTask(std::string sTaskId, std::string sToken, int& iStatus,
                                            std::vector<KXReceiveData>& vecEnvelopes) {
    static const char kFn[] = "CCorvaneApi::QueryBIDDecryptResultTask";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "sTaskId:%s", sTaskId.c_str());
    KXCall call(m_stInitInfo);
    long lRes = KX_OK;
    call.Run([&] {
        kxbid::TokenHead(call, sToken);
        if (!call.Url(strBIDDecryptTaskUrl, sTaskId) || !call.Get()) return;
        iStatus = kxbid::Int(call.data, "status");
        if (iStatus != 1) return;
        const Json::Value& keys = kxjson::Member(call.data, "symmetricKeys");
        if (!keys.isArray()) return;
        // By position, byte for byte: a key goes only to the envelope it was
        // made for. Entries past the caller's vector match nothing.
        for (Json::ArrayIndex k = 0; k < keys.size() && k < vecEnvelopes.size(); ++k) {
            if (kxjson::String(keys[k], "digitalEnvelopeB64") !=
                vecEnvelopes[k].digitalEnvelopeB64) {
                lRes = KX_ERR_ENVELOPE_MISMATCH;
                continue;
            }
            vecEnvelopes[k].symmetricKey = kxjson::String(keys[k], "symmetricKey");
        }
    });
    // A mismatch is the caller's to see, not a failure of the exchange: no
    // last error.
    if (call.lRes == KX_OK) call.lRes = lRes;
    // The reply holds the keys: it stays out of the log.
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d", call.code(),
           call.errCode());
    return call.lRes;
}

long CCorvaneApi::QueryBIDEncryptResultTask(std::string sTaskId, int& iStatus,
                                            std::vector<KXReceiveData>& vecItems) {
    static const char kFn[] = "CCorvaneApi::QueryBIDEncryptResultTask";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "sTaskId:%s", sTaskId.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        call.Head(KXHead::None);
        if (!call.Url(strBIDEncryptTaskUrl, sTaskId) || !call.Get()) return;
        iStatus = kxbid::Int(call.data, "status");
        if (iStatus != 1) return;
        const std::string publicKey = kxjson::String(call.data, "publicKey");
        const std::string authInfo = kxjson::Write(kxjson::Member(call.data, "authInfo"));
        // One key for every item the caller holds.
        for (KXReceiveData& item : vecItems) {
            item.publicKey = publicKey;
            item.authInfo = authInfo;
        }
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d", call.code(),
           call.errCode());
    return call.lRes;
}
