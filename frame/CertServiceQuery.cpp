// The smallest complete path through the frame: one GET, one code/message/data reply.
#include "KXServerApi.h"
#include "KXUtils.h"
#include "frame/ReplyStatus.h"

// Neutral placeholder of the built-in web service; sites set
// [KXServerApi] CertServiceQuery to their own.
#define KX_DEFAULT_CERT_SERVICE_QUERY "https://webservice.kxserverapi.example/kxweb"
#define KX_DEFAULT_CERT_SERVICE_QUERY_URI "/v3/bid-sign/services"

namespace {

long QueryServices(const char* certSn, const char* ukeyNum, std::string& result) {
    const bool hasSn = IWK_Len(certSn) != 0;
    const bool hasUkey = IWK_Len(ukeyNum) != 0;
    if (!hasSn && !hasUkey) return KX_ERR_ARGUMENT_EMPTY;

    std::string query = "?";
    if (hasSn) query.append("certSn=").append(certSn);
    if (hasSn && hasUkey) query.append("&");
    if (hasUkey) query.append("ukeyNum=").append(ukeyNum);

    std::string base;
    std::string uri;
    IWK_GetConfigByKey("KXServerApi", "CertServiceQuery", base, KX_DEFAULT_CERT_SERVICE_QUERY);
    IWK_GetConfigByKey("KXServerApi", "CertServiceQueryUri", uri,
                       KX_DEFAULT_CERT_SERVICE_QUERY_URI);

    KXReqResult reply;
    long code = CIWKHttp::Get(base + uri + query, "", "", &reply, HTTP_REQ_PLAIN, nullptr);
    if (code != 0) return code;
    if (reply.errCode != 0) return reply.errCode;

    Json::Value root;
    if (!kxjson::Parse(reply.strBody, root) || !root.isObject()) return KX_ERR_REPLY_UNPARSABLE;
    int status = 0;
    if (!KXReadStatus(kxjson::Member(root, "code"), status)) return KX_ERR_REPLY_UNPARSABLE;
    if (status != 0) {
        std::string message = kxjson::String(root, "message");
        IWK_SetLastError(status, message.empty() ? reply.strBody : message);
        return status;
    }
    result = kxjson::Write(kxjson::Member(root, "data"));
    return KX_OK;
}

}  // namespace

long KXSER_CertServiceQuery(const char* certSn, const char* ukeyNum, std::string& result) {
    long lRes = KX_OK;
    try {
        result.clear();
        lRes = QueryServices(certSn, ukeyNum, result);
    } catch (...) {
        result.clear();
        lRes = KX_ERR_INVALID_VALUE;
    }
    KX_LOG(KX_LOG_TRACE, "CertServiceQuery", "KXSER_CertServiceQuery", "lRes:%d",
           static_cast<int>(lRes));
    return lRes;
}
