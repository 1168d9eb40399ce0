// A UKey event, posted to the URL the site configured; none configured means
// no upload and no error.
#include "KXRecords.h"
#include "KXUtils.h"
#include "frame/KXCall.h"

long KX_UKeyEventUpload(const char* ukeySN, const char* certSN, const char* certCN, long) {
    // No head, the reply is not read, a transport failure leaves the last
    // error as it was.
    KXCall call(KXReply::None);
    call.Run([&] {
        std::string url;
        IWK_GetConfig(KXKey::eventCallBackUrl, url);
        if (url.empty()) return;
        if (IWK_Len(ukeySN) == 0 && IWK_Len(certSN) == 0 && IWK_Len(certCN) == 0) {
            call.Refuse(KX_ERR_ARGUMENT_EMPTY);
            return;
        }
        // Only a null pointer leaves its key out: an empty text is sent.
        Json::Value event(Json::objectValue);
        if (ukeySN != nullptr) event["ukeySN"] = ukeySN;
        if (certSN != nullptr) event["certSN"] = certSN;
        if (certCN != nullptr) event["certCN"] = certCN;
        if (call.UrlIs(url)) call.Post(event);
    });
    KX_LOG(KX_LOG_TRACE, "KXSaveSignRecord", "KX_UKeyEventUpload", "lRes:%d", call.code());
    return call.lRes;
}
