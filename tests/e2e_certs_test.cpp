// The certificate services as a user runs them: kxapi against kxsim, with a
// CSR made here, certificates issued by the simulator's CA and checked back.
#include <gtest/gtest.h>

#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <string>
#include <vector>

#include "KXPki.h"
#include "KXUtils.h"
#include "Processes.h"
#include "TempEnv.h"

using kxtest::RunKxapi;
using kxtest::RunResult;
using kxtest::SimProcess;

namespace {

// Undoes the legacy server's key transport: RSA-OAEP for the AES-256 key,
// then AES-256-CBC with the IV in front. Empty when anything fails.
std::string OpenKeyPair(EVP_PKEY* key, const std::string& wrapped, const std::string& sealed) {
    EVP_PKEY_CTX* rsa = EVP_PKEY_CTX_new(key, nullptr);
    unsigned char aes[512];
    size_t aesLen = sizeof aes;
    const bool opened =
        rsa != nullptr && EVP_PKEY_decrypt_init(rsa) == 1 &&
        EVP_PKEY_CTX_set_rsa_padding(rsa, RSA_PKCS1_OAEP_PADDING) == 1 &&
        EVP_PKEY_decrypt(rsa, aes, &aesLen, reinterpret_cast<const unsigned char*>(wrapped.data()),
                         wrapped.size()) == 1;
    EVP_PKEY_CTX_free(rsa);
    if (!opened || aesLen != 32 || sealed.size() <= 16) return std::string();
    std::string plain(sealed.size(), '\0');
    int len = 0, tail = 0;
    EVP_CIPHER_CTX* cipher = EVP_CIPHER_CTX_new();
    const auto* in = reinterpret_cast<const unsigned char*>(sealed.data());
    auto* out = reinterpret_cast<unsigned char*>(&plain[0]);
    const bool ok =
        EVP_DecryptInit_ex(cipher, EVP_aes_256_cbc(), nullptr, aes, in) == 1 &&
        EVP_DecryptUpdate(cipher, out, &len, in + 16, static_cast<int>(sealed.size() - 16)) == 1 &&
        EVP_DecryptFinal_ex(cipher, out + len, &tail) == 1;
    EVP_CIPHER_CTX_free(cipher);
    if (!ok) return std::string();
    plain.resize(static_cast<size_t>(len + tail));
    return plain;
}

Json::Value Output(const RunResult& r) {
    Json::Value out;
    EXPECT_TRUE(kxjson::Parse(r.out, out)) << r.out << r.err;
    return out;
}

kxpki::Cert LoadCert(const std::string& path) {
    std::string pem;
    return kxpki::ReadFile(path, pem) ? kxpki::CertFromPem(pem) : kxpki::Cert();
}

// A simulator of its own, and an RSA key with its CSR in csrFile.
class EndToEndCerts : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(sim.baseUrl().empty()); }
    void WriteCsr(const std::string& commonName) {
        X509_REQ* req = X509_REQ_new();
        X509_NAME_add_entry_by_txt(X509_REQ_get_subject_name(req), "CN", MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(commonName.c_str()), -1,
                                   -1, 0);
        X509_REQ_set_pubkey(req, key.get());
        X509_REQ_sign(req, key.get(), EVP_sha256());
        FILE* file = std::fopen(csrFile.c_str(), "w");
        ASSERT_TRUE(file != nullptr);
        EXPECT_EQ(1, PEM_write_X509_REQ(file, req));
        std::fclose(file);
        X509_REQ_free(req);
    }
    RunResult kxapi(const std::vector<std::string>& args) { return RunKxapi(config, args); }

    TempEnv env;
    const std::string dir = env.dir();
    const std::string config = dir + "/sim.ini";
    SimProcess sim{dir + "/state", config};
    kxpki::Key key = kxpki::MakeRsaKey(2048);
    const std::string csrFile = dir + "/ukey.csr";
};

}  // namespace

TEST_F(EndToEndCerts, ExpandCheckRevoke) {
    WriteCsr("KXUKEY0001");
    RunResult r = kxapi({"cert", "expand", "--ukey-num", "KXUKEY0001", "--csr", csrFile,
                         "--out-dir", dir, "--interval", "20"});
    ASSERT_EQ(0, r.status) << r.err;
    Json::Value out = Output(r);
    EXPECT_EQ(2, out["status"].asInt());
    EXPECT_EQ(3, out["polls"].asInt());  // pending, processing, done
    // The progress line shows each status the service went through.
    EXPECT_NE(std::string::npos, r.err.find("[status 0] [status 1] [status 2] done")) << r.err;

    // Both certificates are real: issued by the simulator's CA for the CSR's key.
    const std::string signFile = dir + "/sign-cert.pem";
    kxpki::Cert ca = LoadCert(dir + "/state/ca.pem");
    kxpki::Cert sign = LoadCert(signFile);
    kxpki::Cert enc = LoadCert(dir + "/enc-cert.pem");
    ASSERT_TRUE(ca && sign && enc);
    EXPECT_TRUE(kxpki::VerifyIssuedBy(sign.get(), ca.get()));
    EXPECT_TRUE(kxpki::VerifyIssuedBy(enc.get(), ca.get()));
    EXPECT_EQ(1, EVP_PKEY_eq(X509_get0_pubkey(sign.get()), key.get()));
    EXPECT_NE(0u, X509_get_key_usage(enc.get()) & KU_KEY_ENCIPHERMENT);
    EXPECT_EQ(0u, X509_get_key_usage(sign.get()) & KU_KEY_ENCIPHERMENT);

    // Both check paths pass it; a certificate of another CA fails both.
    EXPECT_EQ(0, (r = kxapi({"cert", "check", "--cert", signFile})).status) << r.err;
    r = kxapi({"cert", "check", "--cert", signFile, "--section", "KXCloudCheckAgent"});
    EXPECT_EQ(0, r.status) << r.err;
    kxpki::Key otherKey = kxpki::MakeEcKey();
    kxpki::CertRequest request;
    request.commonName = "stranger";
    kxpki::Cert stranger = kxpki::IssueCert(request, otherKey.get(), nullptr, otherKey.get());
    ASSERT_TRUE(kxpki::WriteFile(dir + "/stranger.der", kxpki::CertToDer(stranger.get())));
    r = kxapi({"cert", "check", "--cert", dir + "/stranger.der"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("code 32004")) << r.err;

    // Revoked at the simulator: refused by both paths from then on.
    r = kxapi({"call", "KXSim", "POST", "/kxsim/cert/revoke", "--body",
               "{\"sn\":\"" + out["sn"].asString() + "\"}"});
    ASSERT_EQ(0, r.status) << r.err;
    r = kxapi({"cert", "check", "--cert", signFile});
    EXPECT_NE(std::string::npos, r.err.find("code 32004")) << r.err;
    r = kxapi({"cert", "check", "--cert", signFile, "--section", "KXCloudCheckAgent"});
    EXPECT_NE(std::string::npos, r.err.find("certificate revoked")) << r.err;
    EXPECT_EQ(0, (r = kxapi({"cert", "check", "--cert", dir + "/enc-cert.pem"})).status) << r.err;

    // An expired service stops the flow before a request is filed.
    r = kxapi({"cert", "expand", "--ukey-num", "0000DEAD", "--csr", csrFile, "--out-dir", dir});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("has expired")) << r.err;
    // A CSR that is no CSR: the service's own code.
    ASSERT_TRUE(kxpki::WriteFile(dir + "/bad.csr", "bm90IGEgY3Ny"));
    r = kxapi({"cert", "expand", "--ukey-num", "KXUKEY0002", "--csr", dir + "/bad.csr", "--out-dir",
               dir});
    EXPECT_NE(std::string::npos, r.err.find("code 4002")) << r.err;
}

TEST_F(EndToEndCerts, ApplyAndUkeyTries) {
    WriteCsr("applicant");
    RunResult r = kxapi({"cert", "apply", "--csr", csrFile, "--info",
                         R"({"ukeyNum":"KXUKEY0009","csr":"replaced"})", "--out-dir", dir});
    ASSERT_EQ(0, r.status) << r.err;
    Json::Value out = Output(r);
    EXPECT_EQ("KXUKEY0009", out["ukeyNum"].asString());
    EXPECT_GT(out["certId"].asInt(), 0);               // sent as decimal text
    EXPECT_EQ(8u, out["authCode"].asString().size());  // from the extention text
    EXPECT_EQ(0, (r = kxapi({"cert", "check", "--cert", dir + "/sign-cert.pem"})).status) << r.err;
    // The encryption key pair travels enciphered: the applicant's key opens
    // the AES key, which opens the pair that the encryption certificate certifies.
    EXPECT_EQ("AES-256-CBC", out["symmAlg"].asString());
    const std::string pair = OpenKeyPair(key.get(), IWK_Base64Decode(out["symmCipher"].asString()),
                                         IWK_Base64Decode(out["encryptedKeypair"].asString()));
    const unsigned char* p = reinterpret_cast<const unsigned char*>(pair.data());
    kxpki::Key encKey(d2i_AutoPrivateKey(nullptr, &p, static_cast<long>(pair.size())));
    kxpki::Cert enc = LoadCert(dir + "/enc-cert.pem");
    ASSERT_TRUE(encKey && enc);
    EXPECT_EQ(1, EVP_PKEY_eq(X509_get0_pubkey(enc.get()), encKey.get()));
    EXPECT_EQ(0, (r = kxapi({"cert", "check", "--cert", dir + "/enc-cert.pem"})).status) << r.err;

    r = kxapi({"cert", "apply", "--csr", csrFile, "--info", "not json"});
    EXPECT_NE(std::string::npos, r.err.find("code 10001")) << r.err;

    // Failed tries count down; a locked key stays locked until reset.
    auto tryKey = [&](std::vector<std::string> flags) {
        std::vector<std::string> args = {"ukey", "try", "--sn", "SN-1"};
        args.insert(args.end(), flags.begin(), flags.end());
        RunResult t = kxapi(args);
        EXPECT_EQ(0, t.status) << t.err;
        return Output(t)["remainingTime"].asInt();
    };
    EXPECT_EQ(4, tryKey({"--failure"}));
    EXPECT_EQ(3, tryKey({"--failure"}));
    EXPECT_EQ(5, tryKey({"--success"}));
    EXPECT_EQ(0, tryKey({"--failure", "--locked"}));
    EXPECT_EQ(0, tryKey({"--success"}));
    r = kxapi({"call", "KXSim", "POST", "/kxsim/ukey/reset", "--body", R"({"sn":"SN-1"})"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(5, tryKey({"--success"}));
    r = kxapi({"ukey", "try", "--sn", "SN-1", "--success", "--failure"});
    EXPECT_EQ(2, r.status);

    // The try report carries the authorization value the probe fetched: with a
    // wrong one configured, the legacy server refuses it.
    std::string ini = ReadFileText(config);
    ini.replace(ini.find("authorizationType=2"), 19, "authorizationType=1");
    ini.replace(ini.find("authorization=http"), 14, "authorization=wrong-value;");
    kxpki::WriteFile(dir + "/wrong.ini", ini);
    r = RunKxapi(dir + "/wrong.ini", {"ukey", "try", "--sn", "SN-1", "--failure"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("authorization value missing or wrong")) << r.err;
}
