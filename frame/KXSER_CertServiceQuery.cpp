// The smallest complete path through the frame: one GET, one code/message/data reply.
#include "KXServerApi.h"
#include "KXUtils.h"
#include "frame/KXCall.h"

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
        // The built-in base is a neutral placeholder; sites set their own.
        IWK_GetConfig(KXKey::CertServiceQuery, base);
        IWK_GetConfig(KXKey::CertServiceQueryUri, uri);
        if (!call.UrlIs(base + uri + query) || !call.Get()) return;
        std::string text = kxjson::Write(call.data);
        result.swap(text);
    });
    KX_LOG(KX_LOG_TRACE, "CertServiceQuery", "KXSER_CertServiceQuery", "lRes:%d", call.code());
    return call.lRes;
}
