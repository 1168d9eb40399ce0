// Witness flows, snapshots and signing under a flow, by CCorvaneApi.
#include "CorvaneApi.h"
#include "platform/CorvaneCall.h"

namespace {

// The one sign type the platform takes: PKCS #1.
const long kSignTypePkcs1 = 0x10000;
// What the platform records as the launching client and address.
const char kEndpoint[] = "ZENMARK_CLIENT";
const char kLocalIp[] = "127.0.0.1";
// "实名认证" in GBK.
const char kBusinessScene[] = "\xCA\xB5\xC3\xFB\xC8\xCF\xD6\xA4";

}  // namespace

long CCorvaneApi::CreateWitnessFlowTask(std::string strRealOrgId, std::string& strWitnessFlowId) {
    static const char kFn[] = "CCorvaneApi::CreateWitnessFlowTask";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn,
           "strRealOrgId:%s,strRealOrgId:%s,description:create witnessflows", strRealOrgId.c_str(),
           strRealOrgId.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        if (!call.Url(strWitnessFlowsUrl)) return;
        Json::Value body;
        body["businessScene"] = kBusinessScene;
        body["launchEndpoint"] = kEndpoint;
        body["launchIp"] = kLocalIp;
        body["signOrder"] = "SIGN_NON_SEQUENCE";
        body["payerAccountId"] = strRealOrgId;
        body["mobileShieldVersion"] = 1;
        if (!call.Post(body)) return;
        strWitnessFlowId = kxjson::String(call.data, "witnessFlowId");
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn,
           "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s, strWitnessFlowId:%s", call.code(),
           call.errCode(), call.msg(), strWitnessFlowId.c_str());
    return call.lRes;
}

long CCorvaneApi::ExecuteSnapShotTask(std::string strWitnessFlowId, std::string strThirdDocId,
                                      std::string strDocHash, std::string strAlgorithm,
                                      std::string strStep, std::string strStepDescription) {
    static const char kFn[] = "CCorvaneApi::ExecuteSnapShotTask";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn,
           "strThirdDocId:%s,strDocHash:%s,strAlgorithm:%s,strStep:%s,strStepDescription:%s",
           strThirdDocId.c_str(), strDocHash.c_str(), strAlgorithm.c_str(), strStep.c_str(),
           strStepDescription.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        if (!call.Url(strSaveSnapshotUrl, strWitnessFlowId)) return;
        // Step words compare whole and case-sensitively; others add nothing.
        const bool start = strStep == "START";
        const bool finish = strStep == "FINISH";
        Json::Value body;
        Json::Value& doc = body["data"]["doc"][0];
        doc["thirdDocId"] = strThirdDocId;
        doc["docName"] = strThirdDocId;
        doc["docHash"] = strDocHash;
        doc["type"] = 1;
        doc["version"] = "v1";
        doc["hashAlgorithm"] = strAlgorithm;
        if (start) doc["option"] = "ADD";
        if (finish) {
            doc["option"] = "UPDATE";
            Json::Value& flow = body["data"]["flow"];
            flow["version"] = "v1";
            flow["option"] = "UPDATE";
            flow["signStatus"] = "FINISHED";
        }
        body["step"] = strStep;
        body["stepDescription"] = strStepDescription;
        call.Post(body);
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}

long CCorvaneApi::CheckSignAccessTask(std::string strWitnessFlowId, std::string strRealAccountId,
                                      std::string strThirdDocId, std::string strDocHash,
                                      std::string& strSignTicket) {
    static const char kFn[] = "CCorvaneApi::CheckSignAccessTask";
    // The first colon is full-width (GBK A3 BA).
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn,
           "strRealAccountId\xA3\xBA"
           "%s,strThirdDocId:%s,strDocHash:%s",
           strRealAccountId.c_str(), strThirdDocId.c_str(), strDocHash.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        if (!call.Url(strCheckSignAccessUrl, strWitnessFlowId)) return;
        Json::Value body;
        body["docs"][0]["thirdDocId"] = strThirdDocId;
        body["docs"][0]["docHash"] = strDocHash;
        body["endpoint"] = kEndpoint;
        body["launchApproval"] = false;
        body["signerAccountId"] = strRealAccountId;
        body["signerIp"] = kLocalIp;
        body["signerType"] = 3;
        if (!call.Post(body)) return;
        strSignTicket = kxjson::String(call.data, "signTicket");
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}

long CCorvaneApi::SignTask(std::string strWitnessFlowId, std::string strRealAccountId,
                           std::string strThirdDocId, std::string strDocHash,
                           std::string strSignTicket, long signType, std::string& strTaskId,
                           std::string& strQrcodeContent) {
    static const char kFn[] = "CCorvaneApi::SignTask";
    // Full-width colon after the account, full-width comma after the hash (GBK).
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn,
           "strRealAccountId\xA3\xBA"
           "%s,strThirdDocId:%s,strDocHash:%s\xA3\xAC"
           "strSignTicket:%s,signType:%ld",
           strRealAccountId.c_str(), strThirdDocId.c_str(), strDocHash.c_str(),
           strSignTicket.c_str(), signType);
    KXCall call(m_stInitInfo);
    call.Run([&] {
        if (!call.Url(strWitnessSignUrl, strWitnessFlowId)) return;
        Json::Value body;
        body["signHash"] = strDocHash;
        body["signTicket"] = strSignTicket;
        body["thirdDocId"] = strThirdDocId;
        body["subjectAccountId"] = strRealAccountId;
        body["sealType"] = 1;
        if (!m_stInitInfo.strMobileShieldClientId.empty()) {
            body["mobileShieldClientId"] = m_stInitInfo.strMobileShieldClientId;
        }
        if (signType != kSignTypePkcs1) {
            call.Refuse(KX_ERR_INVALID_VALUE);
            return;
        }
        body["signPkcsType"] = "pkcs1";
        if (!call.Post(body)) return;
        strTaskId = kxjson::String(call.data, "taskId");
        strQrcodeContent = kxjson::String(call.data, "qrcodeContent");
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}

long CCorvaneApi::QuerySignResultTask(std::string strWitnessFlowId, std::string strSignTicket,
                                      std::string strTaskId, std::string& strSignResult,
                                      std::string& strSignlogId, std::string& strCertBase64,
                                      std::string& strCertAlgorithm) {
    static const char kFn[] = "CCorvaneApi::QuerySignResultTask";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "strSignTicket:%s,strTaskId:%s",
           strSignTicket.c_str(), strTaskId.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        if (!call.Url(strSignResultUrl, strWitnessFlowId, strSignTicket, strTaskId) ||
            !call.Get()) {
            return;
        }
        // taskId and thirdDocId come back too; the caller already has them.
        strSignlogId = kxjson::String(call.data, "signlogId");
        strSignResult = kxjson::String(call.data, "signResult");
        strCertBase64 = kxjson::String(call.data, "certBase64");
        strCertAlgorithm = kxjson::String(call.data, "certAlgorithm");
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}

long CCorvaneApi::SignConfirmTask(std::string strWitnessFlowId, std::string strThirdDocId,
                                  std::string strDocHash, std::string strAlgorithm,
                                  std::string strSignTicket, std::string strSignlogId) {
    static const char kFn[] = "CCorvaneApi::SignConfirmTask";
    // Full-width comma after the hash (GBK A3 AC).
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn,
           "strThirdDocId:%s,strDocHash:%s\xA3\xAC"
           "strAlgorithm:%s, strSignTicket:%s, strSignlogId:%s",
           strThirdDocId.c_str(), strDocHash.c_str(), strAlgorithm.c_str(), strSignTicket.c_str(),
           strSignlogId.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        if (!call.Url(strWitnessConfirmUrl, strWitnessFlowId)) return;
        Json::Value body;
        Json::Value& confirm = body["confirmDatas"][0];
        confirm["docFileKey"] = strThirdDocId;
        confirm["hashAlgorithm"] = strAlgorithm;
        confirm["signedHash"] = strDocHash;
        confirm["thirdDocId"] = strThirdDocId;
        body["signTicket"] = strSignTicket;
        body["signlogIds"][0] = strSignlogId;
        call.Post(body);
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}
