// The certificate clients on the fake transport.
#include <gtest/gtest.h>

#include <string>

#include "CloudCheckCert.h"
#include "ECertExpand.h"
#include "FakeTransport.h"
#include "InkwellApi.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "TempEnv.h"

using kxtest::FakeTransport;
using kxtest::LastError;
using kxtest::MarkLastError;

// CCloudCheckCert on the fake transport: the XML and JSON requests, the path
// chosen by SerType and configuration, and how each reply maps to a code.
// The XML and errCode readers' own rules are in the reader table (frame_test).
namespace {

const char kCert[] = "MIIB+/x=&<>\"";  // not escaped on its way out
const std::string kCheckBase = "https://ca.example:8443";

class CloudCheckCertTest : public ::testing::Test {
protected:
    void SetUp() override {
        info.SerType = 2;
        info.ServerIp = "ca.example";
        info.Port = 8443;
        MarkLastError();
    }
    long check(const std::string& body) {
        fake.reply(200, body);
        return client.CheckCert(kCert);
    }
    // "METHOD url\nbody" of the last request; no head of any kind goes with it.
    std::string sent() const {
        const KXWireRequest req = fake.lastRequest();
        for (const std::string& line : req.headers) EXPECT_EQ(std::string::npos, line.find("X-KX"));
        return req.method + " " + req.url + "\n" + req.body;
    }

    TempEnv env;
    FakeTransport fake;
    _init_Info_s info;
    CCloudCheckCert client;
};

}  // namespace

TEST_F(CloudCheckCertTest, CloudPlatformRequestAndReplies) {
    // No Init: 10046 and nothing sent.
    EXPECT_EQ(10046, client.CheckCert(kCert));
    EXPECT_EQ(0u, fake.requestCount());
    EXPECT_EQ("", client.strCheckUri);

    // Any SerType but 4 takes this path, even one without a project identity.
    ASSERT_EQ(0, client.Init(info));
    EXPECT_EQ(0, check("<?xml version=\"1.0\"?><result><retcode>0</retcode></result>"));
    EXPECT_EQ("/kxsign/rest/seal-rest!SOF_GetCertSeals.xml", client.strCheckUri);
    EXPECT_EQ("POST " + kCheckBase + "/kxsign/rest/seal-rest!SOF_GetCertSeals.xml\n" +
                  "<inDatas><userCert>" + kCert + "</userCert></inDatas>",
              sent());
    // The platform's number reaches only the log; an unreadable reply is 10003.
    EXPECT_EQ(32004, check("<result><retcode>17</retcode></result>"));
    EXPECT_EQ(10003, check("not xml"));
    EXPECT_EQ("-1 marker", LastError());
    const std::string log = env.readLog();
    for (const char* line : {"- CCloudCheckCert::CheckCertByCloudPlatform> <\"lRes:0\">",
                             "- CCloudCheckCert::CheckCert> <\"lRes:32004\">", "<CloudCheckCert [",
                             "- ParseCheckCertRes> <\"lRes:17\">"})
        EXPECT_NE(std::string::npos, log.find(line)) << line;

    // A configured path replaces the default; an empty value is kept as empty.
    ASSERT_TRUE(env.set("KXServerApi", "CheckCert", "/own/check?x=1"));
    EXPECT_EQ(0, check("<result><retcode>0</retcode></result>"));
    EXPECT_EQ(kCheckBase + "/own/check?x=1", fake.lastRequest().url);
    ASSERT_TRUE(env.set("KXServerApi", "CheckCert", ""));
    EXPECT_EQ(0, check("<result><retcode>0</retcode></result>"));
    EXPECT_EQ("", client.strCheckUri);
    EXPECT_EQ(kCheckBase, fake.lastRequest().url);

    // Copies carry the record and the last path.
    client.strCheckUri = "/x";
    CCloudCheckCert copy(client);
    CCloudCheckCert assigned;
    assigned = copy;
    EXPECT_EQ("/x", assigned.strCheckUri);
    EXPECT_EQ(info.Port, assigned.m_stInitInfo.Port);
    EXPECT_TRUE(assigned.IsInit());
}

TEST_F(CloudCheckCertTest, AgentRequestAndReplies) {
    info.SerType = 4;
    ASSERT_EQ(0, client.Init(info));
    EXPECT_EQ(0, check(R"({"errCode":0,"msg":"ok","data":{"seals":[1]}})"));
    EXPECT_EQ("POST " + kCheckBase + "/agent/integrate/getCertSealInfos\n" +
                  "{\"certB64\":\"MIIB+/x=&<>\\\"\"}\n",
              sent());
    EXPECT_EQ("/agent/integrate/getCertSealInfos", client.strCheckUri);
    EXPECT_NE(std::string::npos,
              env.readLog().find("- CCloudCheckCert::CheckCertByAgentIntegrate> <\"lRes:0\">"));
    EXPECT_EQ(32010, check(R"({"errCode":32010,"msg":"revoked"})"));
    EXPECT_EQ("32010 revoked", LastError());

    ASSERT_TRUE(env.set("KXServerApi", "CheckCertAgent", "/agent/v2"));
    ASSERT_TRUE(env.set("KXServerApi", "CheckCert", "/not/this"));
    EXPECT_EQ(0, check(R"({"errCode":0})"));
    EXPECT_EQ(kCheckBase + "/agent/v2", fake.lastRequest().url);

    // A record that is incomplete for its type never reaches the server.
    const size_t before = fake.requestCount();
    CCloudCheckCert other;
    other.m_stInitInfo = info;
    other.m_stInitInfo.Port = 0;
    EXPECT_EQ(10046, other.CheckCert(kCert));
    EXPECT_EQ(before, fake.requestCount());
}

// CECertExpand on the fake transport: the four signed requests as they go
// out, the reading of reply values of every type, outputs left alone on
// failure, and the URL limit and template checks of the call.
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
    // A project id that no signature head can carry: refused, never sent unsigned.
    CECertExpand unsignable(client);
    unsignable.m_stInitInfo.ProjectID = "p\r\nX-A: 1";
    EXPECT_EQ(10001, unsignable.CheckServiceRequest("U", expired));
    EXPECT_EQ(sent, fake.requestCount());
    EXPECT_EQ(before, outs());
    changed.strDoubleCertRequestUrl = "https://%s/a%%2Fb";
    fake.reply(200, R"({"code":0})");
    EXPECT_EQ(0, changed.SendExpandRequest("U", "C", certOptId, logId));
    EXPECT_EQ("https://" + kHost + "/a%2Fb", fake.lastRequest().url);
}

// CInkwellApi on the fake transport: the certificate application's body and
// reply fields, and the try report with its probe, context path and head.
const std::string kLegacyBase = "https://legacy.example:8443";

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
    // Nor does a legacy request go out without its head.
    CInkwellApi unsignable(client);
    unsignable.m_stInitInfo.ProjectID = "p\nX-A: 1";
    EXPECT_EQ(10001, unsignable.MakeCert("CSR", "{}", data));
    EXPECT_EQ(0u, fake.requestCount());
    EXPECT_EQ(3, data.errCode);

    // The caller's object with csr replaced; keys sorted, bytes as given.
    fake.reply(200, kFullReply);
    EXPECT_EQ(0, client.MakeCert("MII+/=", R"({"name":"\u4e2d\u6587","csr":"old","b":[1]})", data));
    std::string authorization;
    EXPECT_EQ("POST " + kLegacyBase + "/openapi/rest/cert/ukeyCertApply\n" +
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
    EXPECT_EQ("POST " + kLegacyBase + "/inkwell/rest/authentication/updateUkeyTryTime\n" +
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
    EXPECT_EQ("POST " + kLegacyBase + "/legacy/rest/authentication/updateUkeyTryTime\n" +
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
