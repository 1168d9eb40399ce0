// The road of one hash: log in at the seal server, take the user's first
// seal, have the server sign a document's SHA-256 with it, report the
// signature, log out.
//
//   hash_road USER PASSWORD SIGN_PIN < document
//
// The seal server comes from section [OpenApiURL] of the configuration store
// ($KX_CONFIG_FILE; `kxsim --print-config FILE` writes one for the simulator).
#include <KXSealOpenApi.h>
#include <KXServerApi.h>
#include <KXUtils.h>

#include <openssl/sha.h>

#include <cstdio>
#include <ctime>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

static int Failed(const char* step, long code) {
    long last = 0;
    std::string text;
    IWK_GetLastError(last, text);
    std::fprintf(stderr, "%s failed: %ld (%s); last error %ld: %s\n", step, code,
                 IWK_GetErrorMsg(code).c_str(), last, text.c_str());
    return 1;
}

int main(int argc, char** argv) {
    if (argc != 4) return std::fprintf(stderr, "usage: hash_road USER PASSWORD SIGN_PIN\n"), 2;
    const std::string document((std::istreambuf_iterator<char>(std::cin)), {});
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(document.data()), document.size(), digest);
    const std::string hashB64 = IWK_Base64Encode(std::string(digest, digest + sizeof digest));

    _init_Info_s server;
    KX_GetServerConfig("OpenApiURL", server);
    CKXSealOpenApi api;
    if (long rc = api.Init(server)) return Failed("Init", rc);
    if (long rc = api.Login(argv[1], argv[2], KX_SEAL_LOGIN_PLAIN)) return Failed("Login", rc);

    std::vector<_seal_Info_s> seals;  // appended to: start empty
    if (long rc = api.GetSealList(0, "", seals)) return Failed("GetSealList", rc);
    const _seal_Info_s& seal = seals.front();

    std::string signatureB64;
    if (long rc = api.SignHash(hashB64.c_str(), argv[3], signatureB64))
        return Failed("SignHash", rc);
    const std::string now = std::to_string(static_cast<long long>(std::time(nullptr)));
    if (long rc =
            api.ReportSignResult(now.c_str(), "document", hashB64.c_str(), "", signatureB64.c_str(),
                                 seal.certId.c_str(), seal.sealId.c_str()))
        return Failed("ReportSignResult", rc);
    api.Logout();
    std::printf("seal %s signed %s\nsignature %s\n", seal.sealId.c_str(), hashB64.c_str(),
                signatureB64.c_str());
    return 0;
}
