// The road of one hash as a user runs it: kxsim and kxapi as separate
// processes, the signature checked here with OpenSSL against the seal's
// certificate, the sign log and the print counts read back from the simulator.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "KXUtils.h"
#include "Processes.h"
#include "TempEnv.h"

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

// kxapi with a command line split at spaces.
RunResult Kxapi(const std::string& config, const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> args;
    for (std::string arg; in >> arg;) args.push_back(arg);
    return kxtest::RunKxapi(config, args);
}

// Each command fails with its exit status and a text on standard error.
void ExpectRefusals(const std::string& config,
                    std::initializer_list<std::tuple<std::string, int, std::string>> cases) {
    for (const auto& c : cases) {
        const RunResult r = Kxapi(config, std::get<0>(c));
        EXPECT_EQ(std::get<1>(c), r.status) << std::get<0>(c);
        EXPECT_NE(std::string::npos, r.err.find(std::get<2>(c))) << std::get<0>(c) << r.err;
    }
}

}  // namespace

TEST(EndToEndSeal, RoadOfOneHashListsAndPrintCounts) {
    TempEnv env;
    const std::string config = env.dir() + "/sim.ini", dir = env.dir();
    SimProcess sim(dir + "/state", config);
    ASSERT_FALSE(sim.baseUrl().empty());
    const std::string content = "a contract \xD5\xC5\n";
    std::ofstream(dir + "/contract.txt") << content;
    const std::string demo = "seal sign --user demo --password demo-password";
    const std::string sign = demo + " --sign-pwd demo-pin ";

    RunResult r = Kxapi(config, sign + "--file " + dir + "/contract.txt --cert-out " + dir +
                                    "/cert.pem --sig-out " + dir + "/sig.bin --login-type 3");
    ASSERT_EQ(0, r.status) << r.err;
    Json::Value out = ParseOut(r);
    EXPECT_EQ(6u, out["steps"].size());
    EXPECT_EQ(IWK_Base64Encode(Sha256(content)), out["hash"].asString());
    EXPECT_EQ("seal-0001", out["seal"]["sealId"].asString());
    const std::string sig = ReadFileText(dir + "/sig.bin");
    EXPECT_EQ(IWK_Base64Decode(out["signature"].asString()), sig);
    const std::string certPem = ReadFileText(dir + "/cert.pem");
    EXPECT_TRUE(Verifies(certPem, content, sig));
    EXPECT_FALSE(Verifies(certPem, content + "x", sig));

    // The second seal signs a given hash; the sign log keeps both reports.
    const std::string hash = IWK_Base64Encode(Sha256("other"));
    r = Kxapi(config, sign + "--hash " + hash + " --seal-id 2 --login-type 1 --cert-out " + dir +
                          "/cert2.pem --sig-out " + dir + "/sig2.bin");
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("seal-0002", ParseOut(r)["seal"]["sealId"].asString());
    EXPECT_TRUE(
        Verifies(ReadFileText(dir + "/cert2.pem"), "other", ReadFileText(dir + "/sig2.bin")));

    r = Kxapi(config, "call OpenApiURL GET /kxsim/seal/signLogs");
    ASSERT_EQ(0, r.status) << r.err;
    const Json::Value logs = ParseOut(r)["signLogs"];
    ASSERT_EQ(2u, logs.size());
    EXPECT_EQ("contract.txt", logs[0]["docName"].asString());
    EXPECT_EQ(1, logs[0]["certId"].asInt());
    EXPECT_EQ("seal-0001", logs[0]["sealId"].asString());
    EXPECT_EQ(out["signature"].asString(), logs[0]["signInfo"].asString());
    EXPECT_EQ(hash, logs[1]["docHash"].asString());
    EXPECT_EQ(2, logs[1]["certId"].asInt());

    // Refusals reach the exit status with the server's code and text; seal 3
    // belongs to another user, which makes an empty list.
    ExpectRefusals(config,
                   {{"seal sign --user demo --password wrong --hash " + hash, 1, "code 1002"},
                    {demo + " --sign-pwd nope --hash " + hash, 1, "wrong sign password"},
                    {sign + "--hash c2hvcnQ=", 1, "code 1006"},
                    {"seal list --user demo --password demo-password --seal-id 3", 1, "code 10006"},
                    {"seal sign --user demo --password x", 2, ""}});

    // Seal lists and print counts, with a second user.
    r = Kxapi(config, "seal list --user demo --password demo-password");
    ASSERT_EQ(0, r.status) << r.err;
    Json::Value seals = ParseOut(r)["seals"];
    ASSERT_EQ(2u, seals.size());
    EXPECT_EQ("seal-0002", seals[1]["sealId"].asString());
    EXPECT_EQ("\xBA\xCF\xCD\xAC\xD7\xA8\xD3\xC3\xD5\xC2", seals[1]["sealName"].asString());
    EXPECT_EQ(160, seals[1]["width"].asInt());

    const std::string login = " --user demo2 --password demo2-password --login-type 2";
    r = Kxapi(config, "seal print-count get print-0001" + login);
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(5, ParseOut(r)["remain"].asInt());
    EXPECT_EQ(5, ParseOut(r)["total"].asInt());
    ASSERT_EQ(0, Kxapi(config, "seal print-count set print-0001 2" + login).status);
    EXPECT_EQ(2,
              ParseOut(Kxapi(config, "seal print-count get print-0001" + login))["remain"].asInt());
    ExpectRefusals(config, {{"seal print-count set print-0001 6" + login, 1, "code 1008"},
                            {"seal print-count get print-9999" + login, 1, "code 1007"},
                            {"seal print-count sideways x" + login, 2, ""}});
}
