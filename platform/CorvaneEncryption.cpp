// Encryption tasks and mobile-shield willingness, by CCorvaneApi.
#include "CorvaneApi.h"
#include "platform/CorvaneCall.h"

long CCorvaneApi::CreateEncOrDecTask(std::string strRealAccountId, std::string strRealOrgId,
                                     std::string strDescription, std::string strrRefTaskId,
                                     int iTaskType, std::string& strTaskId) {
    static const char kFn[] = "CCorvaneApi::CreateEncOrDecTask";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn,
           "strRealAccountId:%s,strRealOrgId:%s,strDescription:%s,strrRefTaskId:%s,iTaskType:%d",
           strRealAccountId.c_str(), strRealOrgId.c_str(), strDescription.c_str(),
           strrRefTaskId.c_str(), iTaskType);
    KXCall call(m_stInitInfo);
    call.Run([&] {
        if (!call.Url(strEncryptionsUrl)) return;
        Json::Value body;
        body["accountId"] = strRealAccountId;
        body["description"] = strDescription;
        body["ownerOrganId"] = strRealOrgId;
        body["refTaskId"] = strrRefTaskId;
        body["type"] = iTaskType;
        if (!call.Post(body)) return;
        strTaskId = kxjson::String(call.data, "taskId");
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn,
           "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s, taskId:%s", call.code(), call.errCode(),
           call.msg(), strTaskId.c_str());
    return call.lRes;
}

long CCorvaneApi::ExecuteEncOrDecTask(std::string strTaskId, std::string strEncryptedPrivateKey,
                                      std::string strWillAuthCode, std::string& strPublicKey,
                                      std::string& strSymmetricKey) {
    static const char kFn[] = "CCorvaneApi::ExecuteEncOrDecTask";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn,
           "strTaskId:%s,strEncryptedPrivateKey:%s,strWillAuthCode:%s", strTaskId.c_str(),
           strEncryptedPrivateKey.c_str(), strWillAuthCode.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        if (!call.Url(strEncryptionExecuteUrl, strTaskId)) return;
        Json::Value body;
        body["encryptedSymmetricKey"] = strEncryptedPrivateKey;
        body["willAuthCode"] = strWillAuthCode;
        if (!call.Put(body)) return;
        strPublicKey = kxjson::String(call.data, "publicKey");
        strSymmetricKey = kxjson::String(call.data, "symmetricKey");
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}

long CCorvaneApi::EndEncOrDecTask(std::string strTaskId, int iResult,
                                  std::string strResultDescription) {
    static const char kFn[] = "CCorvaneApi::EndEncOrDecTask";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "strTaskId:%s,iResult:%d,strResultDescription:%s",
           strTaskId.c_str(), iResult, strResultDescription.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        if (!call.Url(strEncryptionUrl, strTaskId)) return;
        Json::Value body;
        body["result"] = iResult;
        body["resultDescription"] = strResultDescription;
        call.Put(body);
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}

long CCorvaneApi::CreateMobShieldAuth(std::string strRealAccountId, std::string strBizType,
                                      std::string strBizTypeDes, std::string strBizDes,
                                      std::string& strBizId, std::string& strQrcodeContent,
                                      std::string& strWillAuthId, bool bEncryptWill,
                                      std::string strSpace) {
    static const char kFn[] = "CCorvaneApi::CreateMobShieldAuth";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "strRealAccountId:%s,strBizType:%s",
           strRealAccountId.c_str(), strBizType.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        if (!call.Url(strCreateMobShieldAuthUrl)) return;
        Json::Value body;
        body["accountId"] = strRealAccountId;
        body["bizType"] = strBizType;
        body["bizTypeDes"] = strBizTypeDes;
        body["bizDes"] = strBizDes;
        // Without a mobile-shield client the request names no scene and no space.
        if (!m_stInitInfo.strMobileShieldClientId.empty()) {
            body["mobShieldClientId"] = m_stInitInfo.strMobileShieldClientId;
            body["mobShieldScene"] =
                bEncryptWill ? "mobileShieldEncryptWill" : "mobileShieldDecryptWill";
            body["space"] = strSpace;
        }
        if (!call.Post(body)) return;
        strBizId = kxjson::String(call.data, "bizId");
        strQrcodeContent = kxjson::String(call.data, "qrcodeContent");
        strWillAuthId = kxjson::String(call.data, "willAuthId");
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}

long CCorvaneApi::VerifyMobShieldAuth(std::string strBizId, std::string strBizType,
                                      std::string strWillAuthId, std::string& strStatus,
                                      bool& bPassed) {
    static const char kFn[] = "CCorvaneApi::VerifyMobShieldAuth";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "strBizId:%s,strBizType:%s,strWillAuthId:%s",
           strBizId.c_str(), strBizType.c_str(), strWillAuthId.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        if (!call.Url(strVerifyMobShieldAuthUrl)) return;
        Json::Value body;
        body["bizId"] = strBizId;
        body["bizType"] = strBizType;
        body["willAuthId"] = strWillAuthId;
        if (!call.Put(body)) return;
        strStatus = kxjson::String(call.data, "status");
        // Read as asBool would: a non-zero number passes too.
        bPassed = kxjson::Truth(kxjson::Member(call.data, "passed"));
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}
