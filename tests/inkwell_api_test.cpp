// CInkwellApi on the fake transport: the certificate application's body and
// reply fields, and the try report with its probe, context path and head.
#include <gtest/gtest.h>

#include <string>

#include "FakeTransport.h"
#include "InkwellApi.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "TempEnv.h"

using kxtest::FakeTransport;
using kxtest::LastError;
using kxtest::MarkLastError;

const std::string kBase = "https://legacy.example:8443";

namespace {

class InkwellApiTest : public ::testing::Test {
protected:
    void SetUp() override {
        info.SerType = 3;
        info.ServerIp = "legacy.example";
        info.Port = 8443;
        info.ProjectID = "proj-1";
        info.ProjectSecret = "secret-1";
        MarkLastError();
    }

    // "METHOD url\nbody" of a request, which must carry the legacy head over
    // its exact body; the authorization that head carried in *authorization.
    std::string Sent(const KXWireRequest& req, std::string* authorization) {
        *authorization = "unset";
        EXPECT_EQ(KX_HEAD_OK,
                  FakeTransport::VerifyLegacy(req, "proj-1", "secret-1", authorization));
        return req.method + " " + req.url + "\n" + req.body;
    }

    // The code of one call that gets this reply.
    long make(const std::string& reply, int status = 200) {
        fake.reply(status, reply);
        return client.MakeCert("C", "null", data);
    }
    long report(const std::string& reply, int status = 200) {
        fake.reply(status, reply);
        return client.UpdateUkeyTryTime("SN1", false, false, remaining);
    }

    TempEnv env;
    FakeTransport fake;
    _init_Info_s info;
    CInkwellApi client;
    MakeCertData data;
    int remaining = -7;
};

const char kFullReply[] =
    R"({"errCode":0,"msg":"ok","data":{"certId_openca":42,"uKeyNum":"UK1","encCert":"E",)"
    R"("encSn":"ES","signCert":"S","signSn":"SS","extention":"{\"symmCipher\":\"C\",)"
    R"(\"symmAlg\":\"SM4\",\"encryptedKeypair\":\"K\",\"authCode\":\"A\"}"}})";
const char kFullFields[] = "42|UK1|E|ES|S|SS|C|SM4|K|A|";

// Every field of a certificate application, joined by "|".
std::string Fields(const MakeCertFields& f) {
    return std::to_string(f.certId) + "|" + f.ukeyNum + "|" + f.encCert + "|" + f.encSn + "|" +
           f.signCert + "|" + f.signSn + "|" + f.symmCipher + "|" + f.symmAlg + "|" +
           f.encryptedKeypair + "|" + f.authCode + "|" + f.strReserved;
}

}  // namespace

TEST_F(InkwellApiTest, MakeCertRequestAndFields) {
    data.errCode = 3;
    data.msg = "caller's";
    data.certId = 9;
    const std::string before = Fields(data);
    // No Init: 10009, nothing sent, nothing written.
    EXPECT_EQ(10009, client.MakeCert("CSR", "{}", data));
    EXPECT_EQ(0u, fake.requestCount());
    EXPECT_EQ(3, data.errCode);
    EXPECT_EQ(before, Fields(data));
    EXPECT_NE(std::string::npos,
              env.readLog().find("- CInkwellApi::MakeCert> <\"lRes:10009, resData.errCode:3, "
                                 "resData.msg:caller's\">"));

    ASSERT_EQ(0, client.Init(info));
    for (const char* bad : {"not json", "[1]", "\"text\"", ""})
        EXPECT_EQ(10001, client.MakeCert("CSR", bad, data)) << bad;
    EXPECT_EQ(0u, fake.requestCount());
    EXPECT_EQ(3, data.errCode);

    // The caller's object with csr replaced; keys sorted, bytes as given.
    fake.reply(200, kFullReply);
    EXPECT_EQ(0, client.MakeCert("MII+/=", R"({"name":"\u4e2d\u6587","csr":"old","b":[1]})", data));
    std::string authorization;
    EXPECT_EQ("POST " + kBase + "/openapi/rest/cert/ukeyCertApply\n" +
                  "{\"b\":[1],\"csr\":\"MII+/=\",\"name\":\"\xE4\xB8\xAD\xE6\x96\x87\"}\n",
              Sent(fake.lastRequest(), &authorization));
    EXPECT_EQ("", authorization);
    EXPECT_EQ(0, data.errCode);
    EXPECT_EQ(kFullFields, Fields(data));

    // certId as decimal text; extention as an object, or as text that is no
    // JSON; wrong types read as absent.
    const std::pair<const char*, const char*> replies[] = {
        {R"({"errCode":0,"data":{"certId_openca":"123","extention":{"authCode":"A"},"uKeyNum":5}})",
         "123||||||||||"},
        {R"({"errCode":0,"data":{"certId_openca":"12x","extention":"{not json","signSn":"X"}})",
         "0|||||X|||||"},
        {R"({"errCode":0,"data":{"certId_openca":true,)"
         R"("extention":"{\"authCode\":7,\"symmAlg\":\"A\"}"}})",
         "0|||||||A|||"},
    };
    for (const auto& [reply, fields] : replies) {
        ASSERT_EQ(0, make(kFullReply));
        EXPECT_EQ(0, make(reply));
        EXPECT_EQ(fields, Fields(data)) << reply;
    }

    // Failures leave the fields alone.
    ASSERT_EQ(0, make(kFullReply));
    EXPECT_EQ("{\"csr\":\"C\"}\n", fake.lastRequest().body);  // "null": an empty application
    EXPECT_EQ(31020, make(R"({"errCode":31020,"msg":"csr refused","data":{"certId_openca":1}})"));
    EXPECT_EQ(31020, data.errCode);
    EXPECT_EQ("31020 csr refused", LastError());
    EXPECT_EQ(502, make("bad gateway", 502));
    EXPECT_EQ(kFullFields, Fields(data));
}

TEST_F(InkwellApiTest, UpdateUkeyTryTimeProbesThenReports) {
    EXPECT_EQ(10009, client.UpdateUkeyTryTime("SN1", false, false, remaining));
    EXPECT_EQ(0u, fake.requestCount());
    EXPECT_EQ(-7, remaining);

    // A 5.3 server whose authorization value is fetched first.
    env.writeConfig(
        "[KXInkwell]\nserverVer=5.3\nauthorizationType=2\nauthorization=https://a.example/auth\n");
    ASSERT_EQ(0, client.Init(info));
    fake.reply(200, R"({"errCode":0,"data":"AUTH-V"})");
    fake.reply(200, R"({"errCode":0,"data":{"remainingTime":4}})");
    EXPECT_EQ(0, client.UpdateUkeyTryTime("SN\xD6\xD0", true, false, remaining));
    EXPECT_EQ(4, remaining);
    const auto requests = fake.requests();
    ASSERT_EQ(2u, requests.size());
    EXPECT_EQ("GET https://a.example/auth", requests[0].method + " " + requests[0].url);
    std::string authorization;
    EXPECT_EQ("POST " + kBase + "/inkwell/rest/authentication/updateUkeyTryTime\n" +
                  "{\"isLocked\":false,\"isSuccess\":true,\"sn\":\"SN\xD6\xD0\"}\n",
              Sent(requests[1], &authorization));
    EXPECT_EQ("AUTH-V", authorization);
    EXPECT_EQ("5.3", client.m_stInitInfo.serverVer);  // the probe keeps what it learned
    // A successful report writes no line of its own.
    EXPECT_EQ(std::string::npos, env.readLog().find("CInkwellApi::UpdateUkeyTryTime"));

    // Context path and language from the configuration; a failed probe sends all the same.
    ASSERT_TRUE(env.set("KXPrintMgr", "ContextPath", "legacy"));
    ASSERT_TRUE(env.set("KXUtils", "Language", "zh-CN"));
    fake.reply(200, R"({"errCode":9,"msg":"no"})");
    fake.reply(200, R"({"errCode":0,"data":{"remainingTime":"3"}})");
    remaining = -7;
    EXPECT_EQ(0, client.UpdateUkeyTryTime("SN1", false, true, remaining));
    EXPECT_EQ(0, remaining);  // not an integer: 0
    EXPECT_EQ("POST " + kBase + "/legacy/rest/authentication/updateUkeyTryTime\n" +
                  "{\"isLocked\":true,\"isSuccess\":false,\"language\":\"zh-CN\",\"sn\":\"SN1\"}\n",
              Sent(fake.lastRequest(), &authorization));
    EXPECT_EQ("", authorization);
    // Only the path changes, never a host named after the context path; an
    // empty value takes the segment away instead of leaving it empty. (No
    // probe from here on.)
    env.writeConfig("[KXPrintMgr]\nContextPath=legacy\n");
    client.m_stInitInfo.ServerIp = "inkwell.example";
    report(R"({"errCode":0})");
    EXPECT_EQ("https://inkwell.example:8443/legacy/rest/authentication/updateUkeyTryTime",
              fake.lastRequest().url);
    ASSERT_TRUE(env.set("KXPrintMgr", "ContextPath", ""));
    report(R"({"errCode":0})");
    EXPECT_EQ("https://inkwell.example:8443/rest/authentication/updateUkeyTryTime",
              fake.lastRequest().url);

    // A server code or a failure status: remainingTime untouched; a failure is logged.
    remaining = -7;
    EXPECT_EQ(31001, report(R"({"errCode":31001,"msg":"locked","data":{"remainingTime":0}})"));
    EXPECT_EQ("31001 locked", LastError());
    EXPECT_EQ(500, report("oops", 500));
    EXPECT_EQ(-7, remaining);
    const std::string log = env.readLog();
    EXPECT_NE(std::string::npos, log.find("ERROR <InkwellApi ["));
    EXPECT_NE(std::string::npos, log.find("- CInkwellApi::UpdateUkeyTryTime> <\"lRes:500\">"));

    // Copies carry the paths.
    CInkwellApi copy(client);
    copy.strMakeCertUri = "/other";
    CInkwellApi assigned;
    assigned = copy;
    EXPECT_EQ("/other", assigned.strMakeCertUri);
    EXPECT_EQ("/inkwell/rest/authentication/updateUkeyTryTime", assigned.strUpdateUkeyTryTimeUri);
    EXPECT_TRUE(assigned.IsInit());
}
