// Any bytes as the reply of a BID poll or seal call: the writers of results
// (file signatures by position, login with its user data, decrypt and
// encrypt results, seals) must end in a code, never crash or throw.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "CorvaneApi.h"
#include "KXTransport.h"
#include "KXUtils.h"

namespace {

// Answers every request with the input as a 200 reply.
struct ReplayTransport : IKXTransport {
    std::string body;
    void Exchange(const KXWireRequest&, KXWireReply& reply) override {
        reply.code = 0;
        reply.status = 200;
        reply.statusLine = "HTTP/1.1 200 OK";
        reply.body = body;
    }
};

CCorvaneApi& Api() {
    static CCorvaneApi* api = [] {
        auto* a = new CCorvaneApi;
        _init_Info_s info;
        info.SerType = 3;
        info.ProjectID = "p";
        info.ProjectSecret = "s";
        info.ServerIp = "h.example";
        info.Port = 443;
        a->Init(info);
        return a;
    }();
    return *api;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ReplayTransport transport;
    IWK_SetTransport(&transport);
    transport.body.assign(reinterpret_cast<const char*>(data), size);
    CCorvaneApi& api = Api();
    int status = 0;

    std::vector<KXReceiveData> files(2);
    files[0].signHash = "aGFzaA==";
    api.QueryBIDFileSignResultTask("t", "tok", files, status, 1);

    std::string ouid, org, enc, cert, token, orgName, key, raw, userInfo;
    api.QueryBIDLoginResultTask("t", ouid, org, status, enc, cert, token, orgName, key, raw,
                                userInfo, 0);

    std::vector<KXReceiveData> envelopes(2);
    envelopes[1].digitalEnvelopeB64 = "ZW52";
    api.QueryBIDDecryptResultTask("t", "tok", status, envelopes);
    std::vector<KXReceiveData> items(3);
    api.QueryBIDEncryptResultTask("t", status, items);

    std::string authCode, signature, certB64, seals;
    bool verified = false;
    api.QueryBIDAuthInfoResultTask("t", "tok", status, authCode);
    api.GetBIDSignDataTask("tok", "code", "text", signature, "0", "");
    api.GetBIDVerifyResultTask("tok", "text", "sig", certB64, verified);
    api.GetBIDSealTask("acc", "org", seals);
    std::vector<_seal_Info_s> list;
    api.GetBIDSealByAuthCodeTask("tok", "code", 0, list);
    api.GetBIDSealByOrgIdTask("tok", "acc", "org", 0, list);
    return 0;
}
