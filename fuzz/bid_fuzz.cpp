// Any bytes as the reply of a BID poll or seal call: the writers of results
// (file signatures by position, login with its user data, decrypt and
// encrypt results, seals) must end in a code, never crash or throw. The first
// byte of an input picks the operation ('0' to '9'), the rest is the reply:
// mutations then stay with one writer, and each run costs one call.
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

// The operations whose results are written from the reply, by first byte.
const std::vector<void (*)(CCorvaneApi&)>& Operations() {
    static const std::vector<void (*)(CCorvaneApi&)> operations = {
        [](CCorvaneApi& api) {
            std::vector<KXReceiveData> files(2);
            files[0].signHash = "aGFzaA==";
            int status = 0;
            api.QueryBIDFileSignResultTask("t", "tok", files, status, 1);
        },
        [](CCorvaneApi& api) {
            std::string ouid, org, enc, cert, token, orgName, key, raw, userInfo;
            int status = 0;
            api.QueryBIDLoginResultTask("t", ouid, org, status, enc, cert, token, orgName, key, raw,
                                        userInfo, 0);
        },
        [](CCorvaneApi& api) {
            std::vector<KXReceiveData> envelopes(2);
            envelopes[1].digitalEnvelopeB64 = "ZW52";
            int status = 0;
            api.QueryBIDDecryptResultTask("t", "tok", status, envelopes);
        },
        [](CCorvaneApi& api) {
            std::vector<KXReceiveData> items(3);
            int status = 0;
            api.QueryBIDEncryptResultTask("t", status, items);
        },
        [](CCorvaneApi& api) {
            std::string authCode;
            int status = 0;
            api.QueryBIDAuthInfoResultTask("t", "tok", status, authCode);
        },
        [](CCorvaneApi& api) {
            std::string signature;
            api.GetBIDSignDataTask("tok", "code", "text", signature, "0", "");
        },
        [](CCorvaneApi& api) {
            std::string certB64;
            bool verified = false;
            api.GetBIDVerifyResultTask("tok", "text", "sig", certB64, verified);
        },
        [](CCorvaneApi& api) {
            std::string seals;
            api.GetBIDSealTask("acc", "org", seals);
        },
        [](CCorvaneApi& api) {
            std::vector<_seal_Info_s> list;
            api.GetBIDSealByAuthCodeTask("tok", "code", 0, list);
        },
        [](CCorvaneApi& api) {
            std::vector<_seal_Info_s> list;
            api.GetBIDSealByOrgIdTask("tok", "acc", "org", 0, list);
        },
    };
    return operations;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    static ReplayTransport transport;
    IWK_SetTransport(&transport);
    transport.body.assign(reinterpret_cast<const char*>(data) + 1, size - 1);
    const auto& operations = Operations();
    operations[static_cast<unsigned char>(data[0] - '0') % operations.size()](Api());
    return 0;
}
