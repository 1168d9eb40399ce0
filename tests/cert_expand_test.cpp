// CECertExpand on the fake transport: the four signed requests as they go
// out, the reading of reply values of every type, outputs left alone on
// failure, and the URL limit and template checks of the call.
#include <gtest/gtest.h>

#include <string>

#include "ECertExpand.h"
#include "FakeTransport.h"
#include "KXUtils.h"
#include "TempEnv.h"

using kxtest::FakeTransport;

namespace {

const std::string kHost = "ca.example:8443";
const std::string kPath = "/v1/orbis/ukey/client/";

class CertExpandTest : public ::testing::Test {
protected:
    void SetUp() override {
        info.SerType = 3;
        info.ServerIp = kHost;
        info.Port = 1;  // plays no part: the host carries the port
        info.ProjectID = "proj-1";
        info.ProjectSecret = "secret-1";
        ASSERT_EQ(0, client.Init(info));
    }

    long check(const std::string& id = "U") { return client.CheckServiceRequest(id, expired); }
    long request() { return client.SendExpandRequest("U", "C", certOptId, logId); }
    long fetch(long id = 1) { return client.GetDoubleCertRequest(id, enc, sign, sn, auth, status); }
    // Every out parameter, "expired|certOptId|logId|enc|sign|sn|auth|status".
    std::string outs() const {
        return std::string(expired ? "T" : "F") + "|" + std::to_string(certOptId) + "|" +
               std::to_string(logId) + "|" + enc + "|" + sign + "|" + sn + "|" + auth + "|" +
               std::to_string(status);
    }
    // "METHOD path\nbody" of the last request, which must carry a valid
    // signature head for its method and its path and query as sent.
    std::string sent() {
        const KXWireRequest req = fake.lastRequest();
        const std::string target = req.url.substr(("https://" + kHost).size());
        EXPECT_EQ(KX_HEAD_OK,
                  FakeTransport::VerifySigned(req, "https://" + kHost, "proj-1", "secret-1"))
            << req.method << " " << target;
        return req.method + " " + target + "\n" + req.body;
    }
    void Ok(const std::string& data) {
        fake.reply(200, "{\"code\":0,\"message\":\"ok\",\"data\":" + data + "}");
    }

    TempEnv env;
    FakeTransport fake;
    _init_Info_s info;
    CECertExpand client;
    bool expired = true;
    long certOptId = 5, logId = 6;
    std::string enc = "e", sign = "s", sn = "n", auth = "a";
    int status = 9;
};

}  // namespace

TEST_F(CertExpandTest, FourStepsOnTheWire) {
    Ok(R"({"expired":false})");
    EXPECT_EQ(0, check("UK-1&a=b;c"));
    EXPECT_EQ("GET " + kPath + "cert/serviceTime/UK-1&a=b;c\n", sent());

    Ok(R"({"certOptId":4294967295,"logId":77})");
    EXPECT_EQ(0, client.SendExpandRequest("UK\xD6\xD0", "MIIC+/=", certOptId, logId));
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
}

TEST_F(CertExpandTest, ReplyValuesOfEveryType) {
    // Code 0 without data: the defaults.
    for (int i = 0; i < 3; ++i) fake.reply(200, R"({"code":0})");
    EXPECT_EQ(0, check());
    EXPECT_EQ(0, request());
    EXPECT_EQ(0, fetch());
    EXPECT_EQ("F|0|0|||||-1", outs());

    // Wrong types read as absent; only a JSON true is expired.
    for (const char* data : {R"({"expired":1})", R"({"expired":true})"}) {
        Ok(data);
        EXPECT_EQ(0, check());
    }
    for (const char* data : {R"({"certOptId":"12","logId":-4})", R"({"certOptId":1.5,"logId":[]})",
                             R"({"certOptId":4294967296,"logId":{}})", R"([1,2])"}) {
        certOptId = 5;
        logId = 6;
        Ok(data);
        EXPECT_EQ(0, request()) << data;
        EXPECT_EQ("T|0|0|||||-1", outs()) << data;
    }
    enc = sign = sn = auth = "x";
    for (const char* data : {R"({"status":"2","encCert":5,"signCert":null,"sn":["x"],)"
                             R"("authCode":{"a":1}})",
                             R"({"status":3000000000})"}) {
        status = 9;
        Ok(data);
        EXPECT_EQ(0, fetch());
        EXPECT_EQ("T|0|0|||||-1", outs());
    }
}

TEST_F(CertExpandTest, FailuresLeaveOutParametersAlone) {
    const std::string before = outs();
    const std::string refused = R"({"code":4004,"message":"no such operation",)"
                                R"("data":{"expired":false,"certOptId":1,"logId":1,"status":2}})";
    for (int i = 0; i < 4; ++i) fake.reply(200, refused);
    EXPECT_EQ(4004, check());
    EXPECT_EQ(4004, request());
    EXPECT_EQ(4004, fetch());
    EXPECT_EQ(4004, client.UploadFinish(1, 2, "E", "S", "U"));
    EXPECT_EQ(before, outs());

    // A URL that would pass 1023 bytes is refused before anything is sent;
    // one of exactly 1023 bytes goes out whole.
    const std::string path = kPath + "cert/serviceTime/";
    const std::string fits(1023 - ("https://" + kHost + path).size(), 'x');
    Ok(R"({"expired":true})");
    EXPECT_EQ(0, check(fits));
    EXPECT_EQ(1023u, fake.lastRequest().url.size());
    const size_t sent = fake.requestCount();
    EXPECT_EQ(10110, check(fits + "y"));
    CECertExpand longHost(client);
    longHost.m_stInitInfo.ServerIp = std::string(1100, 'h');
    EXPECT_EQ(10110, longHost.SendExpandRequest("U", "C", certOptId, logId));
    EXPECT_EQ(10110, longHost.GetDoubleCertRequest(1, enc, sign, sn, auth, status));
    EXPECT_EQ(10110, longHost.UploadFinish(1, 2, "E", "S", "U"));
    EXPECT_NE(std::string::npos,
              env.readLog().find("- CECertExpand::UploadFinish> <\"lRes:10110\">"));

    // A template changed to read more values than it is given is refused;
    // "%%" stays a plain percent sign.
    CECertExpand changed(client);
    changed.strServiceTimeUrl = "https://%s/%s/%s";
    EXPECT_EQ(10001, changed.CheckServiceRequest("U", expired));
    changed.strDoubleCertInfoUrl = "https://%s/%s";
    EXPECT_EQ(10001, changed.GetDoubleCertRequest(1, enc, sign, sn, auth, status));
    changed.strFinishCertUrl = "https://%n";
    EXPECT_EQ(10001, changed.UploadFinish(1, 2, "E", "S", "U"));
    EXPECT_EQ(sent, fake.requestCount());
    EXPECT_EQ(before, outs());
    changed.strDoubleCertRequestUrl = "https://%s/a%%2Fb";
    fake.reply(200, R"({"code":0})");
    EXPECT_EQ(0, changed.SendExpandRequest("U", "C", certOptId, logId));
    EXPECT_EQ("https://" + kHost + "/a%2Fb", fake.lastRequest().url);
}
