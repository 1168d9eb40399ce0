// The certificate services as a user runs them: kxapi against kxsim, with a
// CSR made here, certificates issued by the simulator's CA and checked back.
#include <gtest/gtest.h>

#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <string>

#include "KXPki.h"
#include "KXUtils.h"
#include "Processes.h"
#include "TempEnv.h"

using kxtest::RunKxapi;
using kxtest::RunResult;
using kxtest::SimProcess;

namespace {

std::string MakeCsrPem(EVP_PKEY* key, const std::string& commonName) {
    X509_REQ* req = X509_REQ_new();
    X509_NAME* name = X509_REQ_get_subject_name(req);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1,
                               0);
    X509_REQ_set_pubkey(req, key);
    X509_REQ_sign(req, key, EVP_sha256());
    BIO* bio = BIO_new(BIO_s_mem());
    PEM_write_bio_X509_REQ(bio, req);
    char* data = nullptr;
    const long len = BIO_get_mem_data(bio, &data);
    std::string pem(data, static_cast<size_t>(len));
    BIO_free(bio);
    X509_REQ_free(req);
    return pem;
}

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

}  // namespace

TEST(EndToEndCerts, ExpandCheckRevoke) {
    TempEnv env;
    const std::string config = env.dir() + "/sim.ini";
    SimProcess sim(env.dir() + "/state", config);
    ASSERT_FALSE(sim.baseUrl().empty());

    kxpki::Key key = kxpki::MakeRsaKey(2048);
    const std::string csrFile = env.dir() + "/ukey.csr";
    ASSERT_TRUE(kxpki::WriteFile(csrFile, MakeCsrPem(key.get(), "KXUKEY0001")));

    RunResult r = RunKxapi(config, {"cert", "expand", "--ukey-num", "KXUKEY0001", "--csr", csrFile,
                                    "--out-dir", env.dir(), "--interval", "20"});
    ASSERT_EQ(0, r.status) << r.err;
    Json::Value out = Output(r);
    EXPECT_EQ(2, out["status"].asInt());
    EXPECT_EQ(3, out["polls"].asInt());  // pending, processing, done
    // The progress line shows each status the service went through.
    EXPECT_NE(std::string::npos, r.err.find("[status 0] [status 1] [status 2] done")) << r.err;

    // Both certificates are real: issued by the simulator's CA for the CSR's key.
    std::string caPem, signPem, encPem;
    ASSERT_TRUE(kxpki::ReadFile(env.dir() + "/state/ca.pem", caPem));
    ASSERT_TRUE(kxpki::ReadFile(env.dir() + "/sign-cert.pem", signPem));
    ASSERT_TRUE(kxpki::ReadFile(env.dir() + "/enc-cert.pem", encPem));
    kxpki::Cert ca = kxpki::CertFromPem(caPem);
    kxpki::Cert sign = kxpki::CertFromPem(signPem);
    kxpki::Cert enc = kxpki::CertFromPem(encPem);
    ASSERT_TRUE(ca && sign && enc);
    EXPECT_TRUE(kxpki::VerifyIssuedBy(sign.get(), ca.get()));
    EXPECT_TRUE(kxpki::VerifyIssuedBy(enc.get(), ca.get()));
    EXPECT_EQ(1, EVP_PKEY_eq(X509_get0_pubkey(sign.get()), key.get()));
    EXPECT_NE(0u, X509_get_key_usage(enc.get()) & KU_KEY_ENCIPHERMENT);
    EXPECT_EQ(0u, X509_get_key_usage(sign.get()) & KU_KEY_ENCIPHERMENT);

    // Both check paths pass it; a certificate of another CA fails both.
    const std::string signFile = env.dir() + "/sign-cert.pem";
    r = RunKxapi(config, {"cert", "check", "--cert", signFile});
    EXPECT_EQ(0, r.status) << r.err;
    r = RunKxapi(config, {"cert", "check", "--cert", signFile, "--section", "KXCloudCheckAgent"});
    EXPECT_EQ(0, r.status) << r.err;
    kxpki::Key otherKey = kxpki::MakeEcKey();
    kxpki::CertRequest request;
    request.commonName = "stranger";
    kxpki::Cert stranger = kxpki::IssueCert(request, otherKey.get(), nullptr, otherKey.get());
    ASSERT_TRUE(kxpki::WriteFile(env.dir() + "/stranger.der", kxpki::CertToDer(stranger.get())));
    r = RunKxapi(config, {"cert", "check", "--cert", env.dir() + "/stranger.der"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("code 32004")) << r.err;

    // Revoked at the simulator: refused by both paths from then on.
    r = RunKxapi(config, {"call", "KXSim", "POST", "/kxsim/cert/revoke", "--body",
                          "{\"sn\":\"" + out["sn"].asString() + "\"}"});
    ASSERT_EQ(0, r.status) << r.err;
    r = RunKxapi(config, {"cert", "check", "--cert", signFile});
    EXPECT_NE(std::string::npos, r.err.find("code 32004")) << r.err;
    r = RunKxapi(config, {"cert", "check", "--cert", signFile, "--section", "KXCloudCheckAgent"});
    EXPECT_NE(std::string::npos, r.err.find("certificate revoked")) << r.err;
    r = RunKxapi(config, {"cert", "check", "--cert", env.dir() + "/enc-cert.pem"});
    EXPECT_EQ(0, r.status) << r.err;

    // An expired service stops the flow before a request is filed.
    r = RunKxapi(config, {"cert", "expand", "--ukey-num", "0000DEAD", "--csr", csrFile, "--out-dir",
                          env.dir()});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("has expired")) << r.err;
    // A CSR that is no CSR: the service's own code.
    ASSERT_TRUE(kxpki::WriteFile(env.dir() + "/bad.csr", "bm90IGEgY3Ny"));
    r = RunKxapi(config, {"cert", "expand", "--ukey-num", "KXUKEY0002", "--csr",
                          env.dir() + "/bad.csr", "--out-dir", env.dir()});
    EXPECT_NE(std::string::npos, r.err.find("code 4002")) << r.err;
}

TEST(EndToEndCerts, ApplyAndUkeyTries) {
    TempEnv env;
    const std::string config = env.dir() + "/sim.ini";
    SimProcess sim(env.dir() + "/state", config);
    ASSERT_FALSE(sim.baseUrl().empty());

    kxpki::Key key = kxpki::MakeRsaKey(2048);
    const std::string csrFile = env.dir() + "/ukey.csr";
    ASSERT_TRUE(kxpki::WriteFile(csrFile, MakeCsrPem(key.get(), "applicant")));
    RunResult r =
        RunKxapi(config, {"cert", "apply", "--csr", csrFile, "--info",
                          R"({"ukeyNum":"KXUKEY0009","csr":"replaced"})", "--out-dir", env.dir()});
    ASSERT_EQ(0, r.status) << r.err;
    Json::Value out = Output(r);
    EXPECT_EQ("KXUKEY0009", out["ukeyNum"].asString());
    EXPECT_GT(out["certId"].asInt(), 0);               // sent as decimal text
    EXPECT_EQ(8u, out["authCode"].asString().size());  // from the extention text
    r = RunKxapi(config, {"cert", "check", "--cert", env.dir() + "/sign-cert.pem"});
    EXPECT_EQ(0, r.status) << r.err;
    // The encryption key pair travels enciphered: the applicant's key opens
    // the AES key, which opens the pair that the encryption certificate certifies.
    EXPECT_EQ("AES-256-CBC", out["symmAlg"].asString());
    const std::string pair = OpenKeyPair(key.get(), IWK_Base64Decode(out["symmCipher"].asString()),
                                         IWK_Base64Decode(out["encryptedKeypair"].asString()));
    const unsigned char* p = reinterpret_cast<const unsigned char*>(pair.data());
    kxpki::Key encKey(d2i_AutoPrivateKey(nullptr, &p, static_cast<long>(pair.size())));
    std::string encPem;
    ASSERT_TRUE(kxpki::ReadFile(env.dir() + "/enc-cert.pem", encPem));
    kxpki::Cert enc = kxpki::CertFromPem(encPem);
    ASSERT_TRUE(encKey && enc);
    EXPECT_EQ(1, EVP_PKEY_eq(X509_get0_pubkey(enc.get()), encKey.get()));
    r = RunKxapi(config, {"cert", "check", "--cert", env.dir() + "/enc-cert.pem"});
    EXPECT_EQ(0, r.status) << r.err;

    r = RunKxapi(config, {"cert", "apply", "--csr", csrFile, "--info", "not json"});
    EXPECT_NE(std::string::npos, r.err.find("code 10001")) << r.err;

    // Failed tries count down; a locked key stays locked until reset.
    auto tryKey = [&](std::vector<std::string> flags) {
        std::vector<std::string> args = {"ukey", "try", "--sn", "SN-1"};
        args.insert(args.end(), flags.begin(), flags.end());
        RunResult t = RunKxapi(config, args);
        EXPECT_EQ(0, t.status) << t.err;
        return Output(t)["remainingTime"].asInt();
    };
    EXPECT_EQ(4, tryKey({"--failure"}));
    EXPECT_EQ(3, tryKey({"--failure"}));
    EXPECT_EQ(5, tryKey({"--success"}));
    EXPECT_EQ(0, tryKey({"--failure", "--locked"}));
    EXPECT_EQ(0, tryKey({"--success"}));
    r = RunKxapi(config,
                 {"call", "KXSim", "POST", "/kxsim/ukey/reset", "--body", R"({"sn":"SN-1"})"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(5, tryKey({"--success"}));
    r = RunKxapi(config, {"ukey", "try", "--sn", "SN-1", "--success", "--failure"});
    EXPECT_EQ(2, r.status);

    // The try report carries the authorization value the probe fetched: with a
    // wrong one configured, the legacy server refuses it.
    std::string ini = ReadFileText(config);
    ini.replace(ini.find("authorizationType=2"), 19, "authorizationType=1");
    ini.replace(ini.find("authorization=http"), 14, "authorization=wrong-value;");
    kxpki::WriteFile(env.dir() + "/wrong.ini", ini);
    r = RunKxapi(env.dir() + "/wrong.ini", {"ukey", "try", "--sn", "SN-1", "--failure"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("authorization value missing or wrong")) << r.err;
}
