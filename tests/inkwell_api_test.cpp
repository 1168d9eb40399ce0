// CInkwellApi against a loopback server: the certificate application's body
// and reply fields, and the try report with its probe, context path and head.
#include <gtest/gtest.h>

#include <string>

#include "InkwellApi.h"
#include "KXUtils.h"
#include "LoopbackServer.h"
#include "TempEnv.h"

using kxtest::LoopbackServer;
using kxtest::RecordedRequest;
using kxtest::Reply;

namespace {

class InkwellApiTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(env.set("KXUtils", "Proxy", ""));
        info.SerType = 3;
        info.ServerIp = "http://127.0.0.1";
        info.Port = server.port();
        info.ProjectID = "proj-1";
        info.ProjectSecret = "secret-1";
        IWK_SetLastError(-1, "marker");
    }

    // The legacy head over the exact body; gives the authorization it carried.
    std::string ExpectSigned(const RecordedRequest& req) {
        std::string authorization = "unset";
        EXPECT_EQ(KX_HEAD_OK, IWK_VerifyInkwellHead(
                                  req.body, req.getter(),
                                  [](const std::string& id, std::string& secret) {
                                      secret = "secret-1";
                                      return id == "proj-1";
                                  },
                                  IWK_GetCurTime(), 60000, &authorization));
        return authorization;
    }

    void ExpectLastError(long code, const std::string& text) {
        long gotCode = 0;
        std::string gotText;
        ASSERT_TRUE(IWK_GetLastError(gotCode, gotText));
        EXPECT_EQ(code, gotCode);
        EXPECT_EQ(text, gotText);
    }

    TempEnv env;
    LoopbackServer server;
    _init_Info_s info;
    CInkwellApi client;
};

const char kFullReply[] =
    R"({"errCode":0,"msg":"ok","data":{"certId_openca":42,"uKeyNum":"UK1","encCert":"E",)"
    R"("encSn":"ES","signCert":"S","signSn":"SS","extention":"{\"symmCipher\":\"C\",)"
    R"(\"symmAlg\":\"SM4\",\"encryptedKeypair\":\"K\",\"authCode\":\"A\"}"}})";

}  // namespace

TEST_F(InkwellApiTest, MakeCertRequestAndFields) {
    MakeCertData data;
    data.errCode = 3;
    data.msg = "caller's";
    data.certId = 9;
    // No Init: 10009, nothing sent, nothing written.
    EXPECT_EQ(10009, client.MakeCert("CSR", "{}", data));
    EXPECT_EQ(0u, server.requestCount());
    EXPECT_EQ(3, data.errCode);
    EXPECT_EQ(9, data.certId);
    EXPECT_NE(std::string::npos,
              env.readLog().find("- CInkwellApi::MakeCert> <\"lRes:10009, resData.errCode:3, "
                                 "resData.msg:caller's\">"));

    ASSERT_EQ(0, client.Init(info));
    for (const char* bad : {"not json", "[1]", "\"text\"", ""}) {
        EXPECT_EQ(10001, client.MakeCert("CSR", bad, data)) << bad;
    }
    EXPECT_EQ(0u, server.requestCount());
    EXPECT_EQ(3, data.errCode);

    // The caller's object with csr replaced; keys sorted, bytes as given.
    server.queueReply(Reply(200, kFullReply));
    EXPECT_EQ(0, client.MakeCert("MII+/=", R"({"name":"\u4e2d\u6587","csr":"old","b":[1]})", data));
    RecordedRequest req = server.lastRequest();
    EXPECT_EQ("POST", req.method);
    EXPECT_EQ("/openapi/rest/cert/ukeyCertApply", req.target);
    EXPECT_EQ("{\"b\":[1],\"csr\":\"MII+/=\",\"name\":\"\xE4\xB8\xAD\xE6\x96\x87\"}\n", req.body);
    EXPECT_EQ("", ExpectSigned(req));
    EXPECT_EQ(0, data.errCode);
    EXPECT_EQ(42, data.certId);
    EXPECT_EQ("UK1", data.ukeyNum);
    EXPECT_EQ("E", data.encCert);
    EXPECT_EQ("ES", data.encSn);
    EXPECT_EQ("S", data.signCert);
    EXPECT_EQ("SS", data.signSn);
    EXPECT_EQ("C", data.symmCipher);
    EXPECT_EQ("SM4", data.symmAlg);
    EXPECT_EQ("K", data.encryptedKeypair);
    EXPECT_EQ("A", data.authCode);
    EXPECT_EQ("", data.strReserved);

    // certId as decimal text; extention as an object, or as text that is no JSON.
    server.queueReply(Reply(200, R"({"errCode":0,"data":{"certId_openca":"123",)"
                                 R"("extention":{"authCode":"A"},"uKeyNum":5}})"));
    EXPECT_EQ(0, client.MakeCert("C", "{}", data));
    EXPECT_EQ(123, data.certId);
    EXPECT_EQ("", data.ukeyNum + data.symmCipher + data.symmAlg + data.encryptedKeypair +
                      data.authCode + data.encCert + data.signCert);
    server.queueReply(Reply(200, R"({"errCode":0,"data":{"certId_openca":"12x",)"
                                 R"("extention":"{not json","signSn":"X"}})"));
    EXPECT_EQ(0, client.MakeCert("C", "{}", data));
    EXPECT_EQ(0, data.certId);
    EXPECT_EQ("X", data.signSn);
    EXPECT_EQ("", data.authCode);
    server.queueReply(Reply(200, R"({"errCode":0,"data":{"certId_openca":true,)"
                                 R"("extention":"{\"authCode\":7,\"symmAlg\":\"A\"}"}})"));
    EXPECT_EQ(0, client.MakeCert("C", "{}", data));
    EXPECT_EQ(0, data.certId);
    EXPECT_EQ("", data.authCode);
    EXPECT_EQ("A", data.symmAlg);

    // Failures leave the fields alone.
    server.queueReply(Reply(200, kFullReply));
    ASSERT_EQ(0, client.MakeCert("C", "{}", data));
    server.queueReply(
        Reply(200, R"({"errCode":31020,"msg":"csr refused","data":{"certId_openca":1}})"));
    EXPECT_EQ(31020, client.MakeCert("C", "{}", data));
    EXPECT_EQ(31020, data.errCode);
    EXPECT_EQ(42, data.certId);
    ExpectLastError(31020, "csr refused");
    server.queueReply(Reply(200, "no json"));
    EXPECT_EQ(10003, client.MakeCert("C", "{}", data));
    EXPECT_EQ(IWK_GetErrorMsg(10003), data.msg);
    EXPECT_EQ("SM4", data.symmAlg);
    server.queueReply(Reply(502, "bad gateway"));
    EXPECT_EQ(502, client.MakeCert("C", "{}", data));
    EXPECT_EQ("UK1", data.ukeyNum);
    ExpectLastError(502, "bad gateway");
}

TEST_F(InkwellApiTest, UpdateUkeyTryTimeProbesThenReports) {
    int remaining = -7;
    EXPECT_EQ(10009, client.UpdateUkeyTryTime("SN1", false, false, remaining));
    EXPECT_EQ(0u, server.requestCount());
    EXPECT_EQ(-7, remaining);

    // A 5.3 server whose authorization value is fetched first.
    env.writeConfig(
        "[KXUtils]\nProxy=\n[KXInkwell]\nserverVer=5.3\nauthorizationType=2\n"
        "authorization=" +
        server.url("/auth") + "\n");
    server.handle("/auth", [](const RecordedRequest&) {
        return Reply(200, R"({"errCode":0,"data":"AUTH-V"})");
    });
    ASSERT_EQ(0, client.Init(info));
    server.queueReply(Reply(200, R"({"errCode":0,"data":{"remainingTime":4}})"));
    EXPECT_EQ(0, client.UpdateUkeyTryTime("SN\xD6\xD0", true, false, remaining));
    EXPECT_EQ(4, remaining);
    auto requests = server.requests();
    ASSERT_EQ(2u, requests.size());
    EXPECT_EQ("GET", requests[0].method);
    EXPECT_EQ("/auth", requests[0].target);
    EXPECT_EQ("POST", requests[1].method);
    EXPECT_EQ("/inkwell/rest/authentication/updateUkeyTryTime", requests[1].target);
    EXPECT_EQ("{\"isLocked\":false,\"isSuccess\":true,\"sn\":\"SN\xD6\xD0\"}\n", requests[1].body);
    EXPECT_EQ("AUTH-V", ExpectSigned(requests[1]));
    EXPECT_EQ("5.3", client.m_stInitInfo.serverVer);  // the probe keeps what it learned
    // A successful report writes no line of its own.
    EXPECT_EQ(std::string::npos, env.readLog().find("CInkwellApi::UpdateUkeyTryTime"));

    // Context path and language from the configuration; a failed probe sends all the same.
    ASSERT_TRUE(env.set("KXPrintMgr", "ContextPath", "legacy"));
    ASSERT_TRUE(env.set("KXUtils", "Language", "zh-CN"));
    server.handle("/auth",
                  [](const RecordedRequest&) { return Reply(200, R"({"errCode":9,"msg":"no"})"); });
    server.queueReply(Reply(200, R"({"errCode":0,"data":{"remainingTime":"3"}})"));
    remaining = -7;
    EXPECT_EQ(0, client.UpdateUkeyTryTime("SN1", false, true, remaining));
    EXPECT_EQ(0, remaining);  // not an integer: 0
    RecordedRequest req = server.lastRequest();
    EXPECT_EQ("/legacy/rest/authentication/updateUkeyTryTime", req.target);
    EXPECT_EQ("{\"isLocked\":true,\"isSuccess\":false,\"language\":\"zh-CN\",\"sn\":\"SN1\"}\n",
              req.body);
    EXPECT_EQ("", ExpectSigned(req));

    // Server code, no JSON, transport: remainingTime untouched.
    remaining = -7;
    server.queueReply(Reply(200, R"({"errCode":31001,"msg":"locked","data":{"remainingTime":0}})"));
    EXPECT_EQ(31001, client.UpdateUkeyTryTime("SN1", false, false, remaining));
    ExpectLastError(31001, "locked");
    server.queueReply(Reply(200, "<html>"));
    EXPECT_EQ(10003, client.UpdateUkeyTryTime("SN1", false, false, remaining));
    IWK_SetLastError(-1, "marker");
    server.queueReply(Reply(500, "oops"));
    EXPECT_EQ(500, client.UpdateUkeyTryTime("SN1", false, false, remaining));
    ExpectLastError(500, IWK_GetErrorMsg(500));
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
