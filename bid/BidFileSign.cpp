// BID file signing: a task over files whose hashes the caller computed, each
// with its signature positions, and its poll.
#include "CorvaneApi.h"
#include "bid/BidCall.h"

namespace {

// The caller picks the head: its token, or the project's signature.
void FileSignHead(KXCall& call, const std::string& sToken, int iUseHeadToken) {
    if (iUseHeadToken == 1) {
        kxbid::TokenHead(call, sToken);
    } else {
        call.Map(401, KX_ERR_BID_TOKEN_REFUSED);
    }
}

}  // namespace

long CCorvaneApi::CreateBIDFileSignTask(std::string strRealAccountId, std::string strAuthAccountId,
                                        std::string sTaskGroupId, std::string sTaskGroupType,
                                        std::string sToken, std::vector<KXReceiveData>& vecFiles,
                                        std::string& strUrl, std::string& strScanMode,
                                        std::string& strTaskId, int& iTaskGroupActivated,
                                        int iUseHeadToken) {
    static const char kFn[] = "CCorvaneApi::CreateBIDFileSignTask";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn,
           "strRealAccountId:%s,strRealAccountId:%s,sTaskGroupId:%s,sTaskGroupType:%s\xA3\xAC"
           "sToken:%s",
           strRealAccountId.c_str(), strAuthAccountId.c_str(), sTaskGroupId.c_str(),
           sTaskGroupType.c_str(), sToken.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        FileSignHead(call, sToken, iUseHeadToken);
        if (!call.Url(strBIDFileSignTasksUrl)) return;
        Json::Value body;
        for (size_t i = 0; i < vecFiles.size(); ++i) {
            const KXReceiveData& file = vecFiles[i];
            Json::Value& entry = body["signFiles"][static_cast<Json::ArrayIndex>(i)];
            entry["externalFileId"] = file.externalFileId;
            entry["fileName"] = file.fileName;
            entry["signHash"] = file.signHash;
            for (size_t j = 0; j < file.vecSeals.size(); ++j) {
                const _seal_Info_s& pos = file.vecSeals[j];
                Json::Value& bean = entry["posBeans"][static_cast<Json::ArrayIndex>(j)];
                int signType = 0;
                if (!kxbid::AtoI(pos.signType, signType)) {
                    call.Refuse(KX_ERR_INVALID_VALUE);
                    return;
                }
                bean["keyWord"] = pos.keyWord;
                bean["posPage"] = pos.posPage;
                bean["posX"] = pos.posX;
                bean["posY"] = pos.posY;
                bean["signType"] = signType;
                bean["sealId"] = pos.sealId;
            }
        }
        int groupType = 0;
        if (!kxbid::AtoI(sTaskGroupType, groupType)) {
            call.Refuse(KX_ERR_INVALID_VALUE);
            return;
        }
        body["signerAccountId"] = strRealAccountId;
        body["signerAuthAccountId"] =
            strAuthAccountId.empty() ? strRealAccountId : strAuthAccountId;
        if (sTaskGroupType == "2") body["taskGroupId"] = sTaskGroupId;
        body["taskGroupType"] = groupType;
        if (!call.Post(body)) return;
        strUrl = kxjson::String(call.data, "url");
        strScanMode = kxjson::String(call.data, "scanMode");
        strTaskId = kxjson::String(call.data, "taskId");
        iTaskGroupActivated = kxbid::Int(call.data, "taskGroupActivated");
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}

long CCorvaneApi::QueryBIDFileSignResultTask(std::string strTaskId, std::string sToken,
                                             std::vector<KXReceiveData>& vecFiles, int& iStatus,
                                             int iUseHeadToken) {
    static const char kFn[] = "CCorvaneApi::QueryBIDFileSignResultTask";
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "strTaskId:%s", strTaskId.c_str());
    KXCall call(m_stInitInfo);
    call.Run([&] {
        FileSignHead(call, sToken, iUseHeadToken);
        if (!call.Url(strBIDFileSignTaskUrl, strTaskId) || !call.Get()) return;
        iStatus = kxbid::Int(call.data, "status");
        if (iStatus != 1) return;
        const Json::Value& results = kxjson::Member(call.data, "signResults");
        if (!results.isArray()) return;
        // By position: the server answers in the order of signFiles. Entries
        // past the caller's vector have nowhere to go and are dropped.
        for (Json::ArrayIndex k = 0; k < results.size() && k < vecFiles.size(); ++k) {
            vecFiles[k].externalFileId = kxjson::String(results[k], "externalFileId");
            vecFiles[k].signLogId = kxjson::String(results[k], "signLogId");
            vecFiles[k].signature = kxjson::String(results[k], "signature");
        }
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}
