// KX_GetSealListByCert_RBN: a certificate's seals from the sister seal
// service, which hands out an access token first.
#include "KXSealOpenApi.h"
#include "frame/KXCall.h"
#include "seal/SealListForward.h"
#include "seal/SealListParsers.h"

long KX_GetSealListByCert_RBN(const char* signCert, const char* ukeySN, int sealType,
                              std::vector<_seal_Info_s>& seals) {
    KXCall call(KXReply::CodeEnvelope);
    call.Require(IWK_Len(signCert) != 0 || IWK_Len(ukeySN) != 0, KX_ERR_ARGUMENT_EMPTY);
    call.Run([&] {
        std::string server, tokenPath, appId, listPath;
        const bool configured = IWK_GetConfig(KXKey::RbnServerUrl, server) != 0;
        IWK_GetConfig(KXKey::getToken, tokenPath);
        IWK_GetConfig(KXKey::RbnAppId, appId);
        IWK_GetConfig(KXKey::getSealListBySignCert, listPath);
        if (!configured) {
            call.Refuse(KX_ERR_SEAL_URL_NOT_SET);
            return;
        }
        std::string token;
        call.ReadWith([&](const std::string& text) { return OnParseRBNTokenRes(text, token); });
        const std::string tokenHeader =
            appId.empty() ? std::string() : kxseal::HttpHead({"appId: " + appId});
        if (!call.Forward(kxseal::Envelope("GET", server + tokenPath, nullptr, tokenHeader)) ||
            token.empty())
            return;
        Json::Value body(Json::objectValue);
        body["signCert"] = kxseal::Arg(signCert);
        body["ukeySN"] = kxseal::Arg(ukeySN);
        body["sealType"] = sealType;
        call.ReadWith([&](const std::string& text) { return OnParseRBNSealListRes(text, seals); });
        call.Forward(
            kxseal::Envelope("POST", server + listPath, &body,
                             kxseal::HttpHead({"accessToken: " + token, kxseal::kJsonLine})));
    });
    KX_LOG(KX_LOG_TRACE, "KXSeal", "KX_GetSealListByCert_RBN", "lRes:%d", call.code());
    return call.lRes;
}
