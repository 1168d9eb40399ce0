// BID seals: by account or organisation at the /v1/ endpoint, under an
// authCode, and by organisation under a token.
#include "CorvaneApi.h"
#include "bid/BidCall.h"

namespace {

// One seal of a reply, on a record whose defaults stand for absent keys.
_seal_Info_s SealOf(const Json::Value& from, bool purchase) {
    _seal_Info_s seal;
    seal.sealName = kxjson::String(from, "sealName");
    seal.height = kxbid::Int(from, "height");
    seal.width = kxbid::Int(from, "width");
    seal.sealId = kxjson::String(from, "sealId");
    seal.sealType = kxbid::Int(from, "sealType");
    seal.fileKey = kxjson::String(from, "fileKey");
    seal.fileUrl = kxjson::String(from, "fileUrl");
    if (!purchase) return seal;
    // Here an absent purchaseStatus means 0, unlike the record's default of 1.
    seal.purchaseStatus = kxbid::Int(from, "purchaseStatus");
    seal.purchaseUrl = kxjson::String(from, "purchaseUrl");
    seal.scanModel = kxjson::String(from, "scanModel");
    const Json::Value& types = kxjson::Member(from, "purchaseSealTypes");
    for (Json::ArrayIndex i = 0; types.isArray() && i < types.size(); ++i) {
        int type = 0;
        kxjson::Int(types[i], type);
        seal.purchaseSealTypes.push_back(type);
    }
    return seal;
}

}  // namespace

long CCorvaneApi::GetBIDSealTask(std::string strRealAccountId, std::string strRealOrgId,
                                 std::string& strSeals) {
    static const char kFn[] = "CCorvaneApi::GetBIDSealTask";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "strRealAccountId:%s,strRealOrgId:%s",
           strRealAccountId.c_str(), strRealOrgId.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        if (!call.Url(strBIDInitAndGetSealsUrl,
                      strRealOrgId.empty() ? strRealAccountId : strRealOrgId)) {
            return;
        }
        Json::Value body;
        body["accountId"] = strRealAccountId;
        if (!call.Post(body)) return;
        Json::Value seals;
        seals["data"] = call.data;
        strSeals = kxjson::Write(seals);
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}

long CCorvaneApi::GetBIDSealByAuthCodeTask(std::string sToken, std::string strAuthCode,
                                           int iSealType, std::vector<_seal_Info_s>& vecSeals) {
    static const char kFn[] = "CCorvaneApi::GetBIDSealByAuthCodeTask";
    KXCall call(m_stInitInfo);
    call.Run([&] {
        kxbid::TokenHead(call, sToken);
        if (!call.Url(strBIDSealsUrl)) return;
        Json::Value body;
        body["authCode"] = strAuthCode;
        body["sealType"] = iSealType;
        if (!call.Post(body)) return;
        // data is one seal or a list of seals; either way one record per seal
        // (an object's size counts its members, not seals).
        std::vector<_seal_Info_s> found;
        if (call.data.isArray()) {
            for (Json::ArrayIndex n = 0; n < call.data.size(); ++n) {
                found.push_back(SealOf(call.data[n], false));
            }
        } else if (call.data.isObject() && call.data.size() > 0) {
            found.push_back(SealOf(call.data, false));
        }
        vecSeals.insert(vecSeals.end(), found.begin(), found.end());
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}

long CCorvaneApi::GetBIDSealByOrgIdTask(std::string sToken, std::string strRealAccountId,
                                        std::string strRealOrgId, int iSealType,
                                        std::vector<_seal_Info_s>& vecSeals) {
    static const char kFn[] = "CCorvaneApi::GetBIDSealByOrgIdTask";
    KXCall call(m_stInitInfo);
    call.Run([&] {
        kxbid::TokenHead(call, sToken);
        const std::string orgId = strRealOrgId.empty() ? strRealAccountId : strRealOrgId;
        const bool formatted =
            iSealType != 0 ? call.Url(strBIDSealByTypeUrl, orgId, iSealType, strRealAccountId)
                           : call.Url(strBIDSealUrl, orgId, strRealAccountId);
        if (!formatted || !call.Get()) return;
        std::vector<_seal_Info_s> found;
        for (Json::ArrayIndex n = 0; call.data.isArray() && n < call.data.size(); ++n) {
            found.push_back(SealOf(call.data[n], true));
        }
        vecSeals.insert(vecSeals.end(), found.begin(), found.end());
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}
