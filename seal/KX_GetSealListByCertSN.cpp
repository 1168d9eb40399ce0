// KX_GetSealListByCertSN: a certificate's seals by its serial number.
#include "KXSealOpenApi.h"
#include "frame/KXCall.h"
#include "seal/SealListForward.h"
#include "seal/SealListParsers.h"

long KX_GetSealListByCertSN(const char* certSn, std::vector<_seal_Info_s>& seals) {
    KXCall call(KXReply::CodeEnvelope);
    call.Require(IWK_Len(certSn) != 0, KX_ERR_ARGUMENT_EMPTY);
    call.Run([&] {
        std::string server, path, appId;
        const bool configured = IWK_GetConfig(KXKey::serverUrl, server) != 0;
        IWK_GetConfig(KXKey::getCertSealInfosBySn, path);
        IWK_GetConfig(KXKey::appId, appId);
        if (!configured) {
            call.Refuse(KX_ERR_SEAL_URL_NOT_SET);
            return;
        }
        Json::Value body(Json::objectValue);
        body["certSn"] = certSn;
        if (!appId.empty()) body["appId"] = appId;
        Json::Value envelope =
            kxseal::Envelope("POST", server + path, &body,
                             appId.empty() ? std::string() : kxseal::HttpHead({kxseal::kJsonLine}));
        envelope["contentType"] = "application/json";
        call.ReadWith([&](const std::string& text) { return OnParseSealListRes2(text, seals); });
        call.Forward(envelope);
    });
    KX_LOG(KX_LOG_TRACE, "KXSeal", "KX_GetSealListByCertSN", "lRes:%d", call.code());
    return call.lRes;
}
