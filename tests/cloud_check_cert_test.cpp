// CCloudCheckCert against a loopback server: the XML and JSON requests, the
// path chosen by SerType and configuration, and the codes of every reply shape.
#include <gtest/gtest.h>

#include <string>

#include "CloudCheckCert.h"
#include "KXUtils.h"
#include "LoopbackServer.h"
#include "TempEnv.h"

using kxtest::LoopbackServer;
using kxtest::Reply;

namespace {

const char kCert[] = "MIIB+/x=&<>\"";  // not escaped on its way out

class CloudCheckCertTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(env.set("KXUtils", "Proxy", ""));
        info.SerType = 2;
        info.ServerIp = "http://127.0.0.1";
        info.Port = server.port();
        IWK_SetLastError(-1, "marker");
    }

    std::string Xml(const std::string& retcode) {
        return "<?xml version=\"1.0\"?><result>" + retcode + "<retmsg>m</retmsg></result>";
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
    CCloudCheckCert client;
};

}  // namespace

TEST_F(CloudCheckCertTest, CloudPlatformRequestAndReplies) {
    // No Init: 10046 and nothing sent.
    EXPECT_EQ(10046, client.CheckCert(kCert));
    EXPECT_EQ(0u, server.requestCount());
    EXPECT_EQ("", client.strCheckUri);

    ASSERT_EQ(0, client.Init(info));
    server.queueReply(Reply(200, Xml("<retcode>0</retcode>")));
    EXPECT_EQ(0, client.CheckCert(kCert));
    auto req = server.lastRequest();
    EXPECT_EQ("POST", req.method);
    EXPECT_EQ("/kxsign/rest/seal-rest!SOF_GetCertSeals.xml", req.target);
    EXPECT_EQ(std::string("<inDatas><userCert>") + kCert + "</userCert></inDatas>", req.body);
    EXPECT_EQ("", req.header(KX_HDR_SIGNATURE));
    EXPECT_EQ("", req.header(KX_HDR_PROJECT_ID));
    EXPECT_EQ("/kxsign/rest/seal-rest!SOF_GetCertSeals.xml", client.strCheckUri);
    // Any SerType but 4 takes this path, even one without a project identity.
    const std::string log = env.readLog();
    EXPECT_NE(std::string::npos,
              log.find("- CCloudCheckCert::CheckCertByCloudPlatform> <\"lRes:0\">"));
    EXPECT_NE(std::string::npos, log.find("<CloudCheckCert ["));
    EXPECT_NE(std::string::npos, log.find("- CCloudCheckCert::CheckCert> <\"lRes:0\">"));

    // The platform's number reaches only the log.
    server.queueReply(Reply(200, Xml("<retcode>17</retcode>")));
    EXPECT_EQ(32004, client.CheckCert(kCert));
    EXPECT_NE(std::string::npos, env.readLog().find("- ParseCheckCertRes> <\"lRes:17\">"));
    // Text that is no number converts to 0 and passes; white space is kept.
    server.queueReply(Reply(200, Xml("<retcode>ok</retcode>")));
    EXPECT_EQ(0, client.CheckCert(kCert));
    server.queueReply(Reply(200, Xml("<retcode> 3</retcode>")));
    EXPECT_EQ(32004, client.CheckCert(kCert));
    for (const std::string& bad :
         {Xml("<retcode></retcode>"), Xml("<retcode/>"), Xml(""), std::string("not xml"),
          std::string("<other><retcode>0</retcode></other>"),
          std::string("<result><x><retcode>0</retcode></x></result>"), std::string()}) {
        server.queueReply(Reply(200, bad));
        EXPECT_EQ(10003, client.CheckCert(kCert)) << bad;
    }
    ExpectLastError(-1, "marker");

    // Transport and HTTP failures: the code, with the last error.
    server.queueReply(Reply(503, "busy"));
    EXPECT_EQ(503, client.CheckCert(kCert));
    ExpectLastError(503, "busy");

    // A configured path replaces the default; an empty value is kept as empty.
    ASSERT_TRUE(env.set("KXServerApi", "CheckCert", "/own/check?x=1"));
    server.queueReply(Reply(200, Xml("<retcode>0</retcode>")));
    EXPECT_EQ(0, client.CheckCert(kCert));
    EXPECT_EQ("/own/check?x=1", server.lastRequest().target);
    ASSERT_TRUE(env.set("KXServerApi", "CheckCert", ""));
    server.queueReply(Reply(200, Xml("<retcode>0</retcode>")));
    EXPECT_EQ(0, client.CheckCert(kCert));
    EXPECT_EQ("", client.strCheckUri);
    EXPECT_EQ("/", server.lastRequest().target);

    // Copies carry the record and the last path.
    CCloudCheckCert copy(client);
    EXPECT_EQ("", copy.strCheckUri);
    EXPECT_EQ(info.Port, copy.m_stInitInfo.Port);
    CCloudCheckCert assigned;
    client.strCheckUri = "/x";
    assigned = client;
    EXPECT_EQ("/x", assigned.strCheckUri);
    EXPECT_TRUE(assigned.IsInit());
}

TEST_F(CloudCheckCertTest, AgentRequestAndReplies) {
    info.SerType = 4;
    ASSERT_EQ(0, client.Init(info));
    server.queueReply(Reply(200, R"({"errCode":0,"msg":"ok","data":{"seals":[1]}})"));
    EXPECT_EQ(0, client.CheckCert(kCert));
    auto req = server.lastRequest();
    EXPECT_EQ("POST", req.method);
    EXPECT_EQ("/agent/integrate/getCertSealInfos", req.target);
    EXPECT_EQ("{\"certB64\":\"MIIB+/x=&<>\\\"\"}\n", req.body);
    EXPECT_EQ("", req.header(KX_HDR_SIGNATURE));
    EXPECT_EQ("/agent/integrate/getCertSealInfos", client.strCheckUri);
    EXPECT_NE(std::string::npos,
              env.readLog().find("- CCloudCheckCert::CheckCertByAgentIntegrate> <\"lRes:0\">"));

    server.queueReply(Reply(200, R"({"errCode":32010,"msg":"revoked"})"));
    EXPECT_EQ(32010, client.CheckCert(kCert));
    ExpectLastError(32010, "revoked");

    IWK_SetLastError(-1, "marker");
    for (const char* bad : {"<result><retcode>0</retcode></result>", "[1]", R"({"errCode":[]})"}) {
        server.queueReply(Reply(200, bad));
        EXPECT_EQ(10003, client.CheckCert(kCert)) << bad;
    }
    ExpectLastError(-1, "marker");

    server.queueReply(Reply(404, "gone"));
    EXPECT_EQ(404, client.CheckCert(kCert));
    ExpectLastError(404, "gone");

    ASSERT_TRUE(env.set("KXServerApi", "CheckCertAgent", "/agent/v2"));
    ASSERT_TRUE(env.set("KXServerApi", "CheckCert", "/not/this"));
    server.queueReply(Reply(200, R"({"errCode":0})"));
    EXPECT_EQ(0, client.CheckCert(kCert));
    EXPECT_EQ("/agent/v2", server.lastRequest().target);

    // A record that is incomplete for its type never reaches the server.
    const size_t before = server.requestCount();
    CCloudCheckCert other;
    _init_Info_s noPort = info;
    noPort.Port = 0;
    other.m_stInitInfo = noPort;
    EXPECT_EQ(10046, other.CheckCert(kCert));
    EXPECT_EQ(before, server.requestCount());
}
