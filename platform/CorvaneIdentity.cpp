// Account and organisation queries of CCorvaneApi.
#include "CorvaneApi.h"
#include "platform/CorvaneCall.h"

long CCorvaneApi::GetRealAccoutIdByCode(std::string strRedirectUri, std::string strCode,
                                        std::string& strRealAccountId) {
    static const char kFn[] = "CCorvaneApi::GetRealAccoutIdByCode";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "strRedirectUri:%s, strCode:%s",
           strRedirectUri.c_str(), strCode.c_str());
    KXCall call(m_stInitInfo);
    std::string payload;
    call.Run([&] {
        // The code goes into the query before the redirect URI.
        if (!call.Url(strCodeTokenUrl, m_stInitInfo.ProjectID, strCode, strRedirectUri,
                      m_stInitInfo.ProjectSecret) ||
            !call.Get()) {
            return;
        }
        IWK_JWTDecode(kxjson::String(call.data, "token"), payload);
        Json::Value claims;
        if (!kxjson::Parse(payload, claims)) {
            // The server said yes, but the token says nothing usable.
            call.lRes = KX_ERR_INVALID_VALUE;
            return;
        }
        strRealAccountId = kxjson::String(claims, "authorizer");
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s, token:%s",
           call.code(), call.errCode(), call.msg(), payload.c_str());
    return call.lRes;
}

long CCorvaneApi::GetIdentityInfo(std::string strRealAccountId, std::string& strIdentityCode) {
    static const char kFn[] = "CCorvaneApi::GetIdentityInfo";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "strRealAccountId:%s", strRealAccountId.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        if (!call.Url(strIdentityInfoUrl, strRealAccountId) || !call.Get()) return;
        // data's own "code", not the envelope's.
        strIdentityCode = kxjson::String(call.data, "code");
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s, token:%s",
           call.code(), call.errCode(), call.msg(), strIdentityCode.c_str());
    return call.lRes;
}

long CCorvaneApi::GetAllInfo(std::string strRealAccountId, std::string& strRealnameCode,
                             std::string& strIdPhone) {
    static const char kFn[] = "CCorvaneApi::GetAllInfo";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "strRealAccountId:%s", strRealAccountId.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        if (!call.Url(strAllInfoUrl, strRealAccountId) || !call.Get()) return;
        strRealnameCode = kxjson::String(kxjson::Member(call.data, "baseRealname"), "code");
        const Json::Value& loginInfo = kxjson::Member(call.data, "loginInfo");
        strIdPhone = kxjson::String(kxjson::Member(loginInfo, "idcard"), "mobile");
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn,
           "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s, strIdPhone:%s", call.code(), call.errCode(),
           call.msg(), strIdPhone.c_str());
    return call.lRes;
}

long CCorvaneApi::GetFinalRealnameOrgInfo(std::string strOrgId, std::string& strOuid) {
    static const char kFn[] = "CCorvaneApi::GetFinalRealnameOrgInfo";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "strOrgId:%s", strOrgId.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        if (!call.Url(strRealnameOrgInfoUrl, strOrgId) || !call.Get()) return;
        strOuid = kxjson::String(kxjson::Member(call.data, "base"), "ouid");
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s, token:%s",
           call.code(), call.errCode(), call.msg(), strOuid.c_str());
    return call.lRes;
}
