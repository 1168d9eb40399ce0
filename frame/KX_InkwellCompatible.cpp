// The probe of a legacy server: the authorization value a version 5.3 server
// wants in the head of its requests, kept in the record for later calls.
#include "KXServerApi.h"
#include "KXUtils.h"
#include "frame/KXCall.h"

long KX_InkwellCompatible(_init_Info_s& info, std::string& strAuthorization,
                          const std::string& section) {
    strAuthorization.clear();
    // No head; a transport failure leaves the last error as it was.
    KXCall call(info, KXReply::Legacy);
    call.Run([&] {
        if (info.serverVer.empty()) {
            IWK_GetConfig(section, KXKey::serverVer, info.serverVer);
            info.authorizationType = 0;
        }
        if (info.serverVer == "5.3") {
            IWK_GetConfig(section, KXKey::authorizationType, info.authorizationType);
            IWK_GetConfig(section, KXKey::authorization, info.authorization);
        }
        if (info.authorizationType == 2 && !info.authorization.empty()) {
            if (!call.UrlIs(info.authorization) || !call.Get()) return;
            strAuthorization = kxjson::String(call.data);
            if (strAuthorization.empty()) {
                info.authorizationType = 1;
                info.authorization.clear();
            }
        } else if (info.authorizationType == 1) {
            strAuthorization = info.authorization;
        }
    });
    KX_LOG(KX_LOG_TRACE, "KXServerBase", "KX_InkwellCompatible", "lRes:%d, strAuthorization:%s",
           call.code(), strAuthorization.c_str());
    return call.lRes;
}
