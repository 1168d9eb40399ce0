// BID login: a task that the user approves on the mobile device, and its
// poll, which hands over identity, certificates and the token of later calls.
#include "CorvaneApi.h"
#include "bid/BidCall.h"

namespace {

// The user data of a finished login as one flat JSON text: the address at
// the top level, services under their own key, optional keys only when set.
std::string UserInfo(const Json::Value& data, const std::string& orgName,
                     const std::string& sTaskId) {
    Json::Value info;
    info["idNo"] = kxjson::String(data, "idNo");
    info["loginAccount"] = kxjson::String(data, "loginAccount");
    info["name"] = kxjson::String(data, "name");
    info["orgName"] = orgName;
    info["orgCertNo"] = kxjson::String(data, "orgCertNo");
    info["ouid"] = kxjson::String(data, "ouid");
    info["orgId"] = kxjson::String(data, "orgId");
    info["serviceEndTime"] = static_cast<Json::Int64>(kxbid::Int64(data, "serviceEndTime"));
    info["taskId"] = sTaskId;
    const Json::Value& address = kxjson::Member(data, "addressInfo");
    for (const char* key : {"cityName", "districtName", "latitude", "longitude", "provinceName"}) {
        const std::string value = kxjson::String(address, key);
        if (!value.empty()) info[key] = value;
    }
    const Json::Value& services = kxjson::Member(data, "servicesInProject");
    for (Json::ArrayIndex n = 0; services.isArray() && n < services.size(); ++n) {
        const Json::Value& from = services[n];
        Json::Value& to = info["servicesInProject"][n];
        const std::string licenseId = kxjson::String(from, "licenseId");
        if (!licenseId.empty()) to["licenseId"] = licenseId;
        for (const char* key : {"startTime", "endTime"}) {
            const long long value = kxbid::Int64(from, key);
            if (value != 0) to[key] = static_cast<Json::Int64>(value);
        }
        to["status"] = kxbid::Int(from, "status");
        for (const char* key : {"grantStartTime", "grantEndTime"}) {
            const long long value = kxbid::Int64(from, key);
            if (value != 0) to[key] = static_cast<Json::Int64>(value);
        }
    }
    return kxjson::Write(info);
}

}  // namespace

long CCorvaneApi::CreateBIDLoginTask(std::string& strTaskId, std::string& strUrl,
                                     std::string& strScanMode, std::string strAppId, int iLoginType,
                                     int iUseHeadToken) {
    static const char kFn[] = "CCorvaneApi::CreateBIDLoginTask";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "strAppId:%s,iLoginType:%d,iUseHeadToken:%d",
           strAppId.c_str(), iLoginType, iUseHeadToken);
    KXCall call(m_stInitInfo);
    call.Run([&] {
        // No token exists before a login: the choice is no head or the signature.
        if (iUseHeadToken == 1) call.Head(KXHead::None);
        if (!call.Url(strBIDLoginTasksUrl)) return;
        if (iLoginType != 0 && iLoginType != 1) {
            call.Refuse(KX_ERR_BID_LOGIN_TYPE);
            return;
        }
        Json::Value body;
        if (iLoginType == 0) {
            body["signRawData"] = "";
            body["type"] = 0;
        } else {
            // A fresh challenge per login; nothing keeps it.
            body["signRawData"] = IWK_Base64Encode(IWK_GenRand(8));
            body["type"] = 1;
            if (m_stInitInfo.iWithEncCert == 1) body["withEncCert"] = true;
            body["appId"] = strAppId;
        }
        int needUserAddress = 0;
        IWK_GetConfig(KXKey::needUserAddress, needUserAddress);
        if (needUserAddress == 1) body["isNeedUserAddress"] = 1;
        body["withServicesInProject"] = m_stInitInfo.iWithServicesInProject;
        if (!call.Post(body)) return;
        kxbid::TaskOutputs(call.data, strTaskId, strUrl, strScanMode);
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}

long CCorvaneApi::QueryBIDLoginResultTask(std::string sTaskId, std::string& strOuid,
                                          std::string& strOrgId, int& iStatus,
                                          std::string& strEncCert, std::string& strCert,
                                          std::string& strToken, std::string& strOrgName,
                                          std::string& strPublicKey, std::string& strRawReply,
                                          std::string& strUserInfo, int iUseHeadToken) {
    static const char kFn[] = "CCorvaneApi::QueryBIDLoginResultTask";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "sTaskId:%s", sTaskId.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        if (iUseHeadToken == 1) call.Head(KXHead::None);
        call.Map(401, KX_ERR_BID_TOKEN_REFUSED);
        if (!call.Url(strBIDLoginTaskUrl, sTaskId) || !call.Get()) return;
        const Json::Value& data = call.data;
        iStatus = kxbid::Int(data, "status");
        if (iStatus != 1) return;
        // Read in full before any output changes.
        const std::string name = kxjson::String(data, "name");
        std::string orgName = kxjson::String(data, "orgName");
        if (orgName.empty()) orgName = name;
        std::string userInfo = UserInfo(data, orgName, sTaskId);
        strOuid = kxjson::String(data, "ouid");
        strOrgId = kxjson::String(data, "orgId");
        strCert = kxjson::String(data, "cert");
        strEncCert = kxjson::String(data, "encCert");
        strPublicKey = kxjson::String(data, "publicKey");
        strToken = kxjson::String(data, "token");
        strOrgName = orgName;
        strRawReply = call.reqRes.msg;
        strUserInfo = std::move(userInfo);
    });
    // The reply carries personal data: the log gets a masked copy.
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), kxbid::MaskedReply(call.msg()).c_str());
    return call.lRes;
}
