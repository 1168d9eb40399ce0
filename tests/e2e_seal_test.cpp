// The road of one hash as a user runs it: kxsim and kxapi as separate
// processes, the signature checked here with OpenSSL against the seal's
// certificate, the sign log and the print counts read back from the simulator.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <fstream>
#include <string>

#include "KXUtils.h"
#include "Processes.h"
#include "TempEnv.h"

using kxtest::RunKxapi;
using kxtest::RunResult;
using kxtest::SimProcess;

namespace {

std::string Sha256(const std::string& data) {
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(data.data(), data.size(), md, &length, EVP_sha256(), nullptr);
    return std::string(reinterpret_cast<char*>(md), length);
}

// RSA PKCS#1 v1.5 over SHA-256 of data, with the key of a PEM certificate.
bool Verifies(const std::string& certPem, const std::string& data, const std::string& sig) {
    BIO* bio = BIO_new_mem_buf(certPem.data(), static_cast<int>(certPem.size()));
    X509* cert = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    if (cert == nullptr) return false;
    EVP_PKEY* key = X509_get_pubkey(cert);
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    const bool ok =
        key != nullptr && EVP_DigestVerifyInit(ctx, nullptr, EVP_sha256(), nullptr, key) == 1 &&
        EVP_DigestVerify(ctx, reinterpret_cast<const unsigned char*>(sig.data()), sig.size(),
                         reinterpret_cast<const unsigned char*>(data.data()), data.size()) == 1;
    EVP_MD_CTX_free(ctx);
    EVP_PKEY_free(key);
    X509_free(cert);
    return ok;
}

Json::Value ParseOut(const RunResult& r) {
    Json::Value out;
    EXPECT_TRUE(kxjson::Parse(r.out, out)) << r.out;
    return out;
}

}  // namespace

TEST(EndToEndSeal, RoadOfOneHashVerifies) {
    TempEnv env;
    const std::string config = env.dir() + "/sim.ini";
    SimProcess sim(env.dir() + "/state", config);
    ASSERT_FALSE(sim.baseUrl().empty());
    const std::string doc = env.dir() + "/contract.txt";
    const std::string content = "a contract \xD5\xC5\n";
    std::ofstream(doc) << content;

    RunResult r = RunKxapi(
        config, {"seal", "sign", "--user", "demo", "--password", "demo-password", "--sign-pwd",
                 "demo-pin", "--file", doc, "--cert-out", env.dir() + "/cert.pem", "--sig-out",
                 env.dir() + "/sig.bin", "--login-type", "3"});
    ASSERT_EQ(0, r.status) << r.err;
    Json::Value out = ParseOut(r);
    EXPECT_EQ(6u, out["steps"].size());
    EXPECT_EQ(IWK_Base64Encode(Sha256(content)), out["hash"].asString());
    EXPECT_EQ("seal-0001", out["seal"]["sealId"].asString());
    const std::string sig = ReadFileText(env.dir() + "/sig.bin");
    EXPECT_EQ(IWK_Base64Decode(out["signature"].asString()), sig);
    const std::string certPem = ReadFileText(env.dir() + "/cert.pem");
    EXPECT_TRUE(Verifies(certPem, content, sig));
    EXPECT_FALSE(Verifies(certPem, content + "x", sig));

    // Discovery wrote the endpoints into the configuration.
    const std::string ini = ReadFileText(config);
    EXPECT_NE(std::string::npos, ini.find("LoginUrl=/kxseal/openapi/login"));
    EXPECT_NE(std::string::npos, ini.find("SignHashUrl=/kxseal/openapi/signHash"));

    // The second seal signs a given hash; the sign log keeps both reports.
    const std::string hash = IWK_Base64Encode(Sha256("other"));
    r = RunKxapi(config,
                 {"seal", "sign", "--user", "demo", "--password", "demo-password", "--sign-pwd",
                  "demo-pin", "--hash", hash, "--seal-id", "2", "--login-type", "1", "--cert-out",
                  env.dir() + "/cert2.pem", "--sig-out", env.dir() + "/sig2.bin"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("seal-0002", ParseOut(r)["seal"]["sealId"].asString());
    EXPECT_TRUE(Verifies(ReadFileText(env.dir() + "/cert2.pem"), "other",
                         ReadFileText(env.dir() + "/sig2.bin")));

    r = RunKxapi(config, {"call", "OpenApiURL", "GET", "/kxsim/seal/signLogs"});
    ASSERT_EQ(0, r.status) << r.err;
    const Json::Value logs = ParseOut(r)["signLogs"];
    ASSERT_EQ(2u, logs.size());
    EXPECT_EQ("contract.txt", logs[0]["docName"].asString());
    EXPECT_EQ(1, logs[0]["certId"].asInt());
    EXPECT_EQ("seal-0001", logs[0]["sealId"].asString());
    EXPECT_EQ(out["signature"].asString(), logs[0]["signInfo"].asString());
    EXPECT_EQ(hash, logs[1]["docHash"].asString());
    EXPECT_EQ(2, logs[1]["certId"].asInt());

    // Refusals reach the exit status with the server's code and text.
    r = RunKxapi(config, {"seal", "sign", "--user", "demo", "--password", "wrong", "--hash", hash});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("code 1002")) << r.err;
    r = RunKxapi(config, {"seal", "sign", "--user", "demo", "--password", "demo-password",
                          "--sign-pwd", "nope", "--hash", hash});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("wrong sign password")) << r.err;
    r = RunKxapi(config, {"seal", "sign", "--user", "demo", "--password", "demo-password",
                          "--sign-pwd", "demo-pin", "--hash", "c2hvcnQ="});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("code 1006")) << r.err;
    r = RunKxapi(config, {"seal", "list", "--user", "demo", "--password", "demo-password",
                          "--seal-id", "3"});
    EXPECT_EQ(1, r.status);  // seal 3 belongs to another user: an empty list
    EXPECT_NE(std::string::npos, r.err.find("code 10006")) << r.err;
    r = RunKxapi(config, {"seal", "sign", "--user", "demo", "--password", "x"});
    EXPECT_EQ(2, r.status);
}

TEST(EndToEndSeal, ListsAndPrintCounts) {
    TempEnv env;
    const std::string config = env.dir() + "/sim.ini";
    SimProcess sim(env.dir() + "/state", config);
    ASSERT_FALSE(sim.baseUrl().empty());

    RunResult r =
        RunKxapi(config, {"seal", "list", "--user", "demo", "--password", "demo-password"});
    ASSERT_EQ(0, r.status) << r.err;
    Json::Value seals = ParseOut(r)["seals"];
    ASSERT_EQ(2u, seals.size());
    EXPECT_EQ("seal-0002", seals[1]["sealId"].asString());
    EXPECT_EQ("\xBA\xCF\xCD\xAC\xD7\xA8\xD3\xC3\xD5\xC2", seals[1]["sealName"].asString());
    EXPECT_EQ(160, seals[1]["width"].asInt());

    const std::vector<std::string> login = {"--user",         "demo2",        "--password",
                                            "demo2-password", "--login-type", "2"};
    auto withLogin = [&](std::vector<std::string> args) {
        args.insert(args.end(), login.begin(), login.end());
        return RunKxapi(config, args);
    };
    r = withLogin({"seal", "print-count", "get", "print-0001"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(5, ParseOut(r)["remain"].asInt());
    EXPECT_EQ(5, ParseOut(r)["total"].asInt());
    r = withLogin({"seal", "print-count", "set", "print-0001", "2"});
    ASSERT_EQ(0, r.status) << r.err;
    r = withLogin({"seal", "print-count", "get", "print-0001"});
    EXPECT_EQ(2, ParseOut(r)["remain"].asInt());
    r = withLogin({"seal", "print-count", "set", "print-0001", "6"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("code 1008")) << r.err;
    r = withLogin({"seal", "print-count", "get", "print-9999"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("code 1007")) << r.err;
    r = withLogin({"seal", "print-count", "sideways", "x"});
    EXPECT_EQ(2, r.status);
}
