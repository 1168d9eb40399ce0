// CECertExpand against a loopback HTTPS server: the four signed requests as
// they arrive, the reading of reply values of every type, and the URL limit.
#include <gtest/gtest.h>

#include <string>

#include "ECertExpand.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "LoopbackServer.h"
#include "TempEnv.h"
#include "TestCA.h"

using kxtest::LoopbackServer;
using kxtest::MarkLastError;
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
        MarkLastError();
    }

    long check(const std::string& id = "U") { return client.CheckServiceRequest(id, expired); }
    long request(const std::string& ukey = "U", const std::string& csr = "C") {
        return client.SendExpandRequest(ukey, csr, certOptId, logId);
    }
    long fetch(long id = 1) { return client.GetDoubleCertRequest(id, enc, sign, sn, auth, status); }
    // Every out parameter, "expired|certOptId|logId|enc|sign|sn|auth|status".
    std::string outs() const {
        return std::string(expired ? "T" : "F") + "|" + std::to_string(certOptId) + "|" +
               std::to_string(logId) + "|" + enc + "|" + sign + "|" + sn + "|" + auth + "|" +
               std::to_string(status);
    }

    // "METHOD target\nbody" of the last request, which must carry a valid
    // signature head for its method and target.
    std::string sent() {
        const RecordedRequest req = server.lastRequest();
        EXPECT_EQ(KX_HEAD_OK, IWK_VerifySignatureHead(
                                  req.method, req.target, req.getter(),
                                  [](const std::string& id, std::string& secret) {
                                      secret = "secret-1";
                                      return id == "proj-1";
                                  },
                                  IWK_GetCurTime(), 60000))
            << req.method << " " << req.target;
        return req.method + " " + req.target + "\n" + req.body;
    }

    void Ok(const std::string& data) {
        server.queueReply(Reply(200, "{\"code\":0,\"message\":\"ok\",\"data\":" + data + "}"));
    }

    TempEnv env;
    LoopbackServer server{LoopbackServer::Scheme::Https};
    _init_Info_s info;
    CECertExpand client;
    bool expired = true;
    long certOptId = 5, logId = 6;
    std::string enc = "e", sign = "s", sn = "n", auth = "a";
    int status = 9;
};

const std::string kPath = "/v1/orbis/ukey/client/";

}  // namespace

TEST_F(CertExpandTest, FourStepsOnTheWire) {
    Ok(R"({"expired":false})");
    EXPECT_EQ(0, check("UK-1&a=b;c"));
    EXPECT_EQ("GET " + kPath + "cert/serviceTime/UK-1&a=b;c\n", sent());

    Ok(R"({"certOptId":4294967295,"logId":77})");
    EXPECT_EQ(0, request("UK\xD6\xD0", "MIIC+/="));
    EXPECT_EQ("POST " + kPath + "certOpt/doubleCertRequest\n" +
                  "{\"csr\":\"MIIC+/=\",\"ukeyNum\":\"UK\xD6\xD0\"}\n",
              sent());

    Ok(R"({"status":2,"encCert":"E","signCert":"S","sn":"5A","authCode":"AC"})");
    EXPECT_EQ(0, fetch(certOptId));
    EXPECT_EQ("GET " + kPath + "certOpt/doubleCertInfo/4294967295\n", sent());
    EXPECT_EQ("F|4294967295|77|E|S|5A|AC|2", outs());
    Ok("null");
    EXPECT_EQ(0, fetch(-3));
    EXPECT_EQ("GET " + kPath + "certOpt/doubleCertInfo/-3\n", sent());

    Ok("{}");
    EXPECT_EQ(0, client.UploadFinish(12, 77, "E\xD6", "S", "UK1"));
    // Keys in the writer's order, numbers as numbers, bytes as given.
    EXPECT_EQ("POST " + kPath + "certOpt/finishCert\n" +
                  "{\"certOptId\":12,\"encryptCert\":\"E\xD6\",\"logId\":77,\"signCert\":\"S\","
                  "\"ukeyNum\":\"UK1\"}\n",
              sent());

    const std::string log = env.readLog();
    EXPECT_NE(std::string::npos, log.find("<ECertExpand ["));
    for (const char* fn :
         {"CheckServiceRequest", "SendExpandRequest", "GetDoubleCertRequest", "UploadFinish"})
        EXPECT_NE(std::string::npos,
                  log.find(std::string("- CECertExpand::") + fn + "> <\"lRes:0\">"))
            << fn;
    long code = 0;
    std::string text;
    ASSERT_TRUE(IWK_GetLastError(code, text));
    EXPECT_EQ(-1, code);
}

TEST_F(CertExpandTest, ReplyValuesOfEveryType) {
    // Code 0 without data: the defaults.
    for (int i = 0; i < 3; ++i) server.queueReply(Reply(200, R"({"code":0})"));
    EXPECT_EQ(0, check());
    EXPECT_EQ(0, request());
    EXPECT_EQ(0, fetch());
    EXPECT_EQ("F|0|0|||||-1", outs());

    // Wrong types read as absent.
    expired = true;
    Ok(R"({"expired":1})");
    EXPECT_EQ(0, check());
    EXPECT_FALSE(expired);
    Ok(R"({"expired":true})");
    EXPECT_EQ(0, check());
    EXPECT_TRUE(expired);
    for (const char* data : {R"({"certOptId":"12","logId":-4})", R"({"certOptId":1.5,"logId":[]})",
                             R"({"certOptId":4294967296,"logId":{}})", R"([1,2])"}) {
        certOptId = 5;
        logId = 6;
        Ok(data);
        EXPECT_EQ(0, request()) << data;
        EXPECT_EQ("T|0|0|||||-1", outs()) << data;
    }
    enc = sign = sn = auth = "x";
    status = 9;
    Ok(R"({"status":"2","encCert":5,"signCert":null,"sn":["x"],"authCode":{"a":1}})");
    EXPECT_EQ(0, fetch());
    EXPECT_EQ("T|0|0|||||-1", outs());
    status = 9;
    Ok(R"({"status":3000000000})");
    EXPECT_EQ(0, fetch());
    EXPECT_EQ(-1, status);
}

TEST_F(CertExpandTest, FailuresLeaveOutParametersAlone) {
    const std::string before = outs();
    auto all = [&](long code, const std::string& what) {
        EXPECT_EQ(code, check()) << what;
        EXPECT_EQ(code, request()) << what;
        EXPECT_EQ(code, fetch()) << what;
        EXPECT_EQ(code, client.UploadFinish(1, 2, "E", "S", "U")) << what;
        EXPECT_EQ(before, outs()) << what;
    };
    server.setDefaultReply(Reply(200, R"({"code":4004,"message":"no such operation",
        "data":{"expired":false,"certOptId":1,"logId":1,"status":2,"encCert":"X"}})"));
    all(4004, "server code");
    long code = 0;
    std::string text;
    ASSERT_TRUE(IWK_GetLastError(code, text));
    EXPECT_EQ("4004 no such operation", std::to_string(code) + " " + text);
    server.setDefaultReply(Reply(200, "<html>not json</html>"));
    all(10003, "no JSON");
    server.setDefaultReply(Reply(401, R"({"code":401,"message":"signature does not match"})"));
    all(401, "HTTP status");

    // A URL that would pass 1023 bytes is refused before anything is sent.
    server.clearRequests();
    const std::string path = kPath + "cert/serviceTime/";
    const std::string fits(1023 - ("https://" + info.ServerIp + path).size(), 'x');
    server.setDefaultReply(Reply(200, R"({"code":0,"data":{"expired":true}})"));
    EXPECT_EQ(0, check(fits));
    EXPECT_EQ(1u, server.requestCount());
    EXPECT_EQ(path + fits, server.lastRequest().target);  // exactly 1023 bytes go out whole
    EXPECT_EQ(10110, check(fits + "y"));
    CECertExpand longHost(client);
    longHost.m_stInitInfo.ServerIp = std::string(1100, 'h');
    EXPECT_EQ(10110, longHost.SendExpandRequest("U", "C", certOptId, logId));
    EXPECT_EQ(10110, longHost.GetDoubleCertRequest(1, enc, sign, sn, auth, status));
    EXPECT_EQ(10110, longHost.UploadFinish(1, 2, "E", "S", "U"));
    EXPECT_EQ(1u, server.requestCount());
    EXPECT_EQ(before, outs());
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
    EXPECT_EQ(before, outs());
    // "%%" stays a plain percent sign.
    changed.strDoubleCertRequestUrl = "https://%s/a%%2Fb";
    server.setDefaultReply(Reply(200, R"({"code":0})"));
    EXPECT_EQ(0, changed.SendExpandRequest("U", "C", certOptId, logId));
    EXPECT_EQ("/a%2Fb", server.lastRequest().target);
}
