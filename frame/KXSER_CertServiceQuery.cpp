// The smallest complete path through the frame: one GET, one code/message/data reply.
#include "KXServerApi.h"
#include "KXUtils.h"
#include "frame/KXCall.h"

// Neutral placeholder of the built-in web service; sites set
// [KXServerApi] CertServiceQuery to their own.
#define KX_DEFAULT_CERT_SERVICE_QUERY "https://webservice.kxserverapi.example/kxweb"
#define KX_DEFAULT_CERT_SERVICE_QUERY_URI "/v3/bid-sign/services"

long KXSER_CertServiceQuery(const char* certSn, const char* ukeyNum, std::string& result) {
    result.clear();
    const bool hasSn = IWK_Len(certSn) != 0;
    const bool hasUkey = IWK_Len(ukeyNum) != 0;
    // No head; a transport failure leaves the last error as it was.
    KXCall call(KXReply::ServiceEnvelope);
    call.Require(hasSn || hasUkey, KX_ERR_ARGUMENT_EMPTY);
    call.Run([&] {
        // Values go in as they are: the call refuses a byte that cannot.
        std::string query = "?";
        if (hasSn) query.append("certSn=").append(certSn);
        if (hasSn && hasUkey) query.append("&");
        if (hasUkey) query.append("ukeyNum=").append(ukeyNum);
        std::string base;
        std::string uri;
        IWK_GetConfigByKey("KXServerApi", "CertServiceQuery", base, KX_DEFAULT_CERT_SERVICE_QUERY);
        IWK_GetConfigByKey("KXServerApi", "CertServiceQueryUri", uri,
                           KX_DEFAULT_CERT_SERVICE_QUERY_URI);
        if (!call.UrlIs(base + uri + query) || !call.Get()) return;
        std::string text = kxjson::Write(call.data);
        result.swap(text);
    });
    KX_LOG(KX_LOG_TRACE, "CertServiceQuery", "KXSER_CertServiceQuery", "lRes:%d", call.code());
    return call.lRes;
}
