// CECertExpand against a loopback HTTPS server: the four signed requests as
// they arrive, the reading of reply values of every type, and the URL limit.
#include <gtest/gtest.h>

#include <string>

#include "ECertExpand.h"
#include "KXUtils.h"
#include "LoopbackServer.h"
#include "TempEnv.h"
#include "TestCA.h"

using kxtest::LoopbackServer;
using kxtest::RecordedRequest;
using kxtest::Reply;
using kxtest::TestCA;

namespace {

class CertExpandTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(env.set("KXUtils", "Proxy", ""));
        ASSERT_TRUE(env.set("KXUtils", "CAFile", TestCA::instance().caFile()));
        info.SerType = 3;
        info.ServerIp = "127.0.0.1:" + std::to_string(server.port());
        info.Port = 1;  // plays no part: the host carries the port
        info.ProjectID = "proj-1";
        info.ProjectSecret = "secret-1";
        ASSERT_EQ(0, client.Init(info));
        IWK_SetLastError(-1, "marker");
    }

    // The request carries a valid signature head for its method and target.
    void ExpectSigned(const RecordedRequest& req) {
        EXPECT_EQ(KX_HEAD_OK, IWK_VerifySignatureHead(
                                  req.method, req.target, req.getter(),
                                  [](const std::string& id, std::string& secret) {
                                      secret = "secret-1";
                                      return id == "proj-1";
                                  },
                                  IWK_GetCurTime(), 60000))
            << req.method << " " << req.target;
    }

    void Ok(const std::string& data) {
        server.queueReply(Reply(200, "{\"code\":0,\"message\":\"ok\",\"data\":" + data + "}"));
    }

    TempEnv env;
    LoopbackServer server{LoopbackServer::Scheme::Https};
    _init_Info_s info;
    CECertExpand client;
};

}  // namespace

TEST_F(CertExpandTest, FourStepsOnTheWire) {
    bool expired = true;
    Ok(R"({"expired":false})");
    EXPECT_EQ(0, client.CheckServiceRequest("UK-1&a=b;c", expired));
    EXPECT_FALSE(expired);
    RecordedRequest req = server.lastRequest();
    EXPECT_EQ("GET", req.method);
    EXPECT_EQ("/v1/orbis/ukey/client/cert/serviceTime/UK-1&a=b;c", req.target);
    EXPECT_EQ("", req.body);
    ExpectSigned(req);

    long certOptId = -1, logId = -1;
    Ok(R"({"certOptId":4294967295,"logId":77})");
    EXPECT_EQ(0, client.SendExpandRequest("UK\xD6\xD0", "MIIC+/=", certOptId, logId));
    EXPECT_EQ(4294967295L, certOptId);
    EXPECT_EQ(77, logId);
    req = server.lastRequest();
    EXPECT_EQ("POST", req.method);
    EXPECT_EQ("/v1/orbis/ukey/client/certOpt/doubleCertRequest", req.target);
    EXPECT_EQ("{\"csr\":\"MIIC+/=\",\"ukeyNum\":\"UK\xD6\xD0\"}\n", req.body);
    ExpectSigned(req);

    std::string enc, sign, sn, auth;
    int status = 9;
    Ok(R"({"status":2,"encCert":"E","signCert":"S","sn":"5A","authCode":"AC"})");
    EXPECT_EQ(0, client.GetDoubleCertRequest(certOptId, enc, sign, sn, auth, status));
    EXPECT_EQ("/v1/orbis/ukey/client/certOpt/doubleCertInfo/4294967295",
              server.lastRequest().target);
    ExpectSigned(server.lastRequest());
    EXPECT_EQ("E", enc);
    EXPECT_EQ("S", sign);
    EXPECT_EQ("5A", sn);
    EXPECT_EQ("AC", auth);
    EXPECT_EQ(2, status);
    Ok("null");
    EXPECT_EQ(0, client.GetDoubleCertRequest(-3, enc, sign, sn, auth, status));
    EXPECT_EQ("/v1/orbis/ukey/client/certOpt/doubleCertInfo/-3", server.lastRequest().target);

    Ok("{}");
    EXPECT_EQ(0, client.UploadFinish(12, 77, "E\xD6", "S", "UK1"));
    req = server.lastRequest();
    EXPECT_EQ("POST", req.method);
    EXPECT_EQ("/v1/orbis/ukey/client/certOpt/finishCert", req.target);
    // Keys in the writer's order, numbers as numbers, bytes as given.
    EXPECT_EQ(
        "{\"certOptId\":12,\"encryptCert\":\"E\xD6\",\"logId\":77,\"signCert\":\"S\","
        "\"ukeyNum\":\"UK1\"}\n",
        req.body);
    ExpectSigned(req);

    const std::string log = env.readLog();
    EXPECT_NE(std::string::npos, log.find("<ECertExpand ["));
    for (const char* fn :
         {"CheckServiceRequest", "SendExpandRequest", "GetDoubleCertRequest", "UploadFinish"}) {
        EXPECT_NE(std::string::npos,
                  log.find(std::string("- CECertExpand::") + fn + "> <\"lRes:0\">"))
            << fn;
    }
    long code = 0;
    std::string text;
    ASSERT_TRUE(IWK_GetLastError(code, text));
    EXPECT_EQ(-1, code);
}

TEST_F(CertExpandTest, ReplyValuesOfEveryType) {
    bool expired = true;
    long certOptId = 5, logId = 6;
    std::string enc = "e", sign = "s", sn = "n", auth = "a";
    int status = 9;

    // Code 0 without data: the defaults.
    for (int i = 0; i < 3; ++i) server.queueReply(Reply(200, R"({"code":0})"));
    EXPECT_EQ(0, client.CheckServiceRequest("U", expired));
    EXPECT_FALSE(expired);
    EXPECT_EQ(0, client.SendExpandRequest("U", "C", certOptId, logId));
    EXPECT_EQ(0, certOptId);
    EXPECT_EQ(0, logId);
    EXPECT_EQ(0, client.GetDoubleCertRequest(1, enc, sign, sn, auth, status));
    EXPECT_EQ("", enc + sign + sn + auth);
    EXPECT_EQ(-1, status);

    // Wrong types read as absent.
    expired = true;
    Ok(R"({"expired":1})");
    EXPECT_EQ(0, client.CheckServiceRequest("U", expired));
    EXPECT_FALSE(expired);
    Ok(R"({"expired":true})");
    EXPECT_EQ(0, client.CheckServiceRequest("U", expired));
    EXPECT_TRUE(expired);
    for (const char* data : {R"({"certOptId":"12","logId":-4})", R"({"certOptId":1.5,"logId":[]})",
                             R"({"certOptId":4294967296,"logId":{}})", R"([1,2])"}) {
        certOptId = 5;
        logId = 6;
        Ok(data);
        EXPECT_EQ(0, client.SendExpandRequest("U", "C", certOptId, logId)) << data;
        EXPECT_EQ(0, certOptId) << data;
        EXPECT_EQ(0, logId) << data;
    }
    Ok(R"({"status":"2","encCert":5,"signCert":null,"sn":["x"],"authCode":{"a":1}})");
    EXPECT_EQ(0, client.GetDoubleCertRequest(1, enc, sign, sn, auth, status));
    EXPECT_EQ("", enc + sign + sn + auth);
    EXPECT_EQ(-1, status);
    Ok(R"({"status":3000000000})");
    EXPECT_EQ(0, client.GetDoubleCertRequest(1, enc, sign, sn, auth, status));
    EXPECT_EQ(-1, status);
}

TEST_F(CertExpandTest, FailuresLeaveOutParametersAlone) {
    bool expired = true;
    long certOptId = 5, logId = 6;
    std::string enc = "e", sign = "s", sn = "n", auth = "a";
    int status = 9;
    auto untouched = [&](const std::string& what) {
        EXPECT_TRUE(expired) << what;
        EXPECT_EQ(5, certOptId) << what;
        EXPECT_EQ(6, logId) << what;
        EXPECT_EQ("esna", enc + sign + sn + auth) << what;
        EXPECT_EQ(9, status) << what;
    };
    auto all = [&](long code, const std::string& what) {
        EXPECT_EQ(code, client.CheckServiceRequest("U", expired)) << what;
        EXPECT_EQ(code, client.SendExpandRequest("U", "C", certOptId, logId)) << what;
        EXPECT_EQ(code, client.GetDoubleCertRequest(1, enc, sign, sn, auth, status)) << what;
        EXPECT_EQ(code, client.UploadFinish(1, 2, "E", "S", "U")) << what;
        untouched(what);
    };

    server.setDefaultReply(Reply(200, R"({"code":4004,"message":"no such operation",
        "data":{"expired":false,"certOptId":1,"logId":1,"status":2,"encCert":"X"}})"));
    all(4004, "server code");
    long code = 0;
    std::string text;
    ASSERT_TRUE(IWK_GetLastError(code, text));
    EXPECT_EQ(4004, code);
    EXPECT_EQ("no such operation", text);

    server.setDefaultReply(Reply(200, "<html>not json</html>"));
    all(10003, "no JSON");
    server.setDefaultReply(Reply(401, R"({"code":401,"message":"signature does not match"})"));
    all(401, "HTTP status");

    // A URL that would pass 1023 bytes is refused before anything is sent.
    server.clearRequests();
    const std::string path = "/v1/orbis/ukey/client/cert/serviceTime/";
    const std::string fits(1023 - ("https://" + info.ServerIp + path).size(), 'x');
    server.setDefaultReply(Reply(200, R"({"code":0,"data":{"expired":false}})"));
    EXPECT_EQ(0, client.CheckServiceRequest(fits, expired));
    EXPECT_EQ(1u, server.requestCount());
    EXPECT_EQ(path + fits, server.lastRequest().target);  // exactly 1023 bytes go out whole
    expired = true;
    EXPECT_EQ(10110, client.CheckServiceRequest(fits + "y", expired));
    EXPECT_EQ(1u, server.requestCount());
    CECertExpand longHost(client);
    longHost.m_stInitInfo.ServerIp = std::string(1100, 'h');
    EXPECT_EQ(10110, longHost.SendExpandRequest("U", "C", certOptId, logId));
    EXPECT_EQ(10110, longHost.GetDoubleCertRequest(1, enc, sign, sn, auth, status));
    EXPECT_EQ(10110, longHost.UploadFinish(1, 2, "E", "S", "U"));
    EXPECT_EQ(1u, server.requestCount());
    untouched("too long");
    EXPECT_NE(std::string::npos,
              env.readLog().find("- CECertExpand::UploadFinish> <\"lRes:10110\">"));

    // A template changed to read more values than it is given is refused.
    CECertExpand changed(client);
    changed.strServiceTimeUrl = "https://%s/%s/%s";
    EXPECT_EQ(10001, changed.CheckServiceRequest("U", expired));
    changed.strDoubleCertInfoUrl = "https://%s/%s";
    EXPECT_EQ(10001, changed.GetDoubleCertRequest(1, enc, sign, sn, auth, status));
    changed.strFinishCertUrl = "https://%n";
    EXPECT_EQ(10001, changed.UploadFinish(1, 2, "E", "S", "U"));
    EXPECT_EQ(1u, server.requestCount());
    untouched("changed template");
    // "%%" stays a plain percent sign.
    changed.strDoubleCertRequestUrl = "https://%s/a%%2Fb";
    server.setDefaultReply(Reply(200, R"({"code":0})"));
    EXPECT_EQ(0, changed.SendExpandRequest("U", "C", certOptId, logId));
    EXPECT_EQ("/a%2Fb", server.lastRequest().target);
}
