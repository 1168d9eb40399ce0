// KX_GetSealListByYPT: a certificate's seals from the integrate service.
#include "KXSealOpenApi.h"
#include "frame/KXCall.h"
#include "seal/SealListForward.h"
#include "seal/SealListParsers.h"

long KX_GetSealListByYPT(const char* certB64, const char* ukeyNum, const char* algorithm,
                         const char* originB64, const char* signatureB64, int mark,
                         std::vector<_seal_Info_s>& seals, bool keepPixels) {
    KXCall call(KXReply::CodeEnvelope);
    call.Require(IWK_Len(certB64) != 0 && IWK_Len(algorithm) != 0 && IWK_Len(originB64) != 0,
                 KX_ERR_ARGUMENT_EMPTY);
    call.Run([&] {
        // The dedicated address wins; the app id header goes only to the shared one.
        std::string server, path, appId;
        const bool dedicated = IWK_GetConfig(KXKey::TApiserverUrl, server) != 0 && !server.empty();
        const bool configured = dedicated || IWK_GetConfig(KXKey::serverUrl, server) != 0;
        IWK_GetConfig(KXKey::getSealWithUser, path);
        IWK_GetConfig(KXKey::appId, appId);
        if (!configured) {
            call.Refuse(KX_ERR_SEAL_URL_NOT_SET);
            return;
        }
        Json::Value body(Json::objectValue);
        body["appId"] = appId;
        body["certB64"] = certB64;
        body["ukeyNum"] = kxseal::Arg(ukeyNum);
        body["algorithm"] = algorithm;
        body["originB64"] = originB64;
        body["signatureB64"] = kxseal::Arg(signatureB64);
        body["mark"] = mark;
        const std::string header =
            dedicated ? kxseal::HttpHead({kxseal::kJsonLine})
                      : kxseal::HttpHead({"X-Vmark-Open-App-Id: " + appId, kxseal::kJsonLine});
        call.ReadWith(
            [&](const std::string& text) { return OnParseSealListRes(text, seals, keepPixels); });
        call.Forward(kxseal::Envelope("POST", server + path, &body, header));
    });
    KX_LOG(KX_LOG_TRACE, "KXSeal", "KX_GetSealListByYPT", "lRes:%d", call.code());
    return call.lRes;
}
