// A document signed under a witness flow of the platform: the flow records the
// document, checks that the account may sign it, asks the account's device to
// sign, polls until it did, and confirms.
//
//   witness_sign ORG_ID ACCOUNT_ID DOC_ID < document
//
// The platform comes from section [KXPlatform] of the configuration store.
#include <CorvaneApi.h>
#include <KXServerApi.h>
#include <KXUtils.h>
#include <openssl/sha.h>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <string>
#include <thread>

static int Failed(const char* step, long code) {
    std::fprintf(stderr, "%s failed: %ld (%s)\n", step, code, IWK_GetErrorMsg(code).c_str());
    return 1;
}

int main(int argc, char** argv) {
    if (argc != 4) return std::fprintf(stderr, "usage: witness_sign ORG ACCOUNT DOC_ID\n"), 2;
    const std::string org = argv[1], account = argv[2], docId = argv[3], alg = "SHA256";
    const std::string document((std::istreambuf_iterator<char>(std::cin)), {});
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(document.data()), document.size(), digest);
    const std::string hash = IWK_Base64Encode(std::string(digest, digest + sizeof digest));

    _init_Info_s server;
    KX_GetServerConfig("KXPlatform", server);
    CCorvaneApi api;
    if (long rc = api.Init(server)) return Failed("Init", rc);
    std::string flow, ticket, taskId, qr;
    if (long rc = api.CreateWitnessFlowTask(org, flow)) return Failed("CreateWitnessFlow", rc);
    if (long rc = api.ExecuteSnapShotTask(flow, docId, hash, alg, "START", "entered"))
        return Failed("ExecuteSnapShotTask", rc);
    if (long rc = api.CheckSignAccessTask(flow, account, docId, hash, ticket))
        return Failed("CheckSignAccessTask", rc);
    if (long rc = api.SignTask(flow, account, docId, hash, ticket, 0x10000, taskId, qr))
        return Failed("SignTask", rc);
    std::printf("scan to approve: %s\n", qr.c_str());

    // The caller drives the polling: here every half second, for a minute.
    std::string signature, signlogId, cert, certAlg;
    for (int i = 0; i < 120 && signature.empty(); ++i) {
        if (long rc =
                api.QuerySignResultTask(flow, ticket, taskId, signature, signlogId, cert, certAlg))
            return Failed("QuerySignResultTask", rc);
        if (signature.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    if (signature.empty()) return std::fprintf(stderr, "not approved in time\n"), 1;
    if (long rc = api.SignConfirmTask(flow, docId, hash, alg, ticket, signlogId))
        return Failed("SignConfirmTask", rc);
    if (long rc = api.ExecuteSnapShotTask(flow, docId, hash, alg, "FINISH", "signed"))
        return Failed("ExecuteSnapShotTask", rc);
    std::printf("flow %s signed by %s\nsignature %s\n", flow.c_str(), account.c_str(),
                signature.c_str());
    return 0;
}
