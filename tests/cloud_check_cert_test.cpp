// CCloudCheckCert against a loopback server: the XML and JSON requests, the
// path chosen by SerType and configuration, and the codes of every reply shape.
#include <gtest/gtest.h>

#include <string>

#include "CloudCheckCert.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "LoopbackServer.h"
#include "TempEnv.h"

using kxtest::LastError;
using kxtest::LoopbackServer;
using kxtest::MarkLastError;
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
        MarkLastError();
    }

    // The code of one check that gets this reply.
    long check(const std::string& body, int status = 200) {
        server.queueReply(Reply(status, body));
        return client.CheckCert(kCert);
    }
    static std::string Xml(const std::string& retcode) {
        return "<?xml version=\"1.0\"?><result>" + retcode + "<retmsg>m</retmsg></result>";
    }
    // "METHOD target\nbody" of the last request.
    std::string sent() const {
        const kxtest::RecordedRequest req = server.lastRequest();
        return req.method + " " + req.target + "\n" + req.body;
    }
    // "code text" of the last error.
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
    EXPECT_EQ(0, check(Xml("<retcode>0</retcode>")));
    EXPECT_EQ(std::string("POST /kxsign/rest/seal-rest!SOF_GetCertSeals.xml\n") +
                  "<inDatas><userCert>" + kCert + "</userCert></inDatas>",
              sent());
    EXPECT_EQ("", server.lastRequest().header(KX_HDR_SIGNATURE) +
                      server.lastRequest().header(KX_HDR_PROJECT_ID));
    EXPECT_EQ("/kxsign/rest/seal-rest!SOF_GetCertSeals.xml", client.strCheckUri);
    // Any SerType but 4 takes this path, even one without a project identity.
    const std::string log = env.readLog();
    EXPECT_NE(std::string::npos,
              log.find("- CCloudCheckCert::CheckCertByCloudPlatform> <\"lRes:0\">"));
    EXPECT_NE(std::string::npos, log.find("<CloudCheckCert ["));
    EXPECT_NE(std::string::npos, log.find("- CCloudCheckCert::CheckCert> <\"lRes:0\">"));

    // The platform's number reaches only the log.
    EXPECT_EQ(32004, check(Xml("<retcode>17</retcode>")));
    EXPECT_NE(std::string::npos, env.readLog().find("- ParseCheckCertRes> <\"lRes:17\">"));
    // Text that is no number converts to 0 and passes; white space is kept.
    EXPECT_EQ(0, check(Xml("<retcode>ok</retcode>")));
    EXPECT_EQ(32004, check(Xml("<retcode> 3</retcode>")));
    for (const std::string& bad :
         {Xml("<retcode></retcode>"), Xml("<retcode/>"), Xml(""), std::string("not xml"),
          std::string("<other><retcode>0</retcode></other>"),
          std::string("<result><x><retcode>0</retcode></x></result>"), std::string()})
        EXPECT_EQ(10003, check(bad)) << bad;
    EXPECT_EQ("-1 marker", LastError());
    // HTTP failures: the code, with the last error.
    EXPECT_EQ(503, check("busy", 503));
    EXPECT_EQ("503 busy", LastError());

    // A configured path replaces the default; an empty value is kept as empty.
    ASSERT_TRUE(env.set("KXServerApi", "CheckCert", "/own/check?x=1"));
    EXPECT_EQ(0, check(Xml("<retcode>0</retcode>")));
    EXPECT_EQ("/own/check?x=1", server.lastRequest().target);
    ASSERT_TRUE(env.set("KXServerApi", "CheckCert", ""));
    EXPECT_EQ(0, check(Xml("<retcode>0</retcode>")));
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
    EXPECT_EQ(0, check(R"({"errCode":0,"msg":"ok","data":{"seals":[1]}})"));
    EXPECT_EQ("POST /agent/integrate/getCertSealInfos\n{\"certB64\":\"MIIB+/x=&<>\\\"\"}\n",
              sent());
    EXPECT_EQ("", server.lastRequest().header(KX_HDR_SIGNATURE));
    EXPECT_EQ("/agent/integrate/getCertSealInfos", client.strCheckUri);
    EXPECT_NE(std::string::npos,
              env.readLog().find("- CCloudCheckCert::CheckCertByAgentIntegrate> <\"lRes:0\">"));

    EXPECT_EQ(32010, check(R"({"errCode":32010,"msg":"revoked"})"));
    EXPECT_EQ("32010 revoked", LastError());
    MarkLastError();
    for (const char* bad : {"<result><retcode>0</retcode></result>", "[1]", R"({"errCode":[]})"})
        EXPECT_EQ(10003, check(bad)) << bad;
    EXPECT_EQ("-1 marker", LastError());
    EXPECT_EQ(404, check("gone", 404));
    EXPECT_EQ("404 gone", LastError());

    ASSERT_TRUE(env.set("KXServerApi", "CheckCertAgent", "/agent/v2"));
    ASSERT_TRUE(env.set("KXServerApi", "CheckCert", "/not/this"));
    EXPECT_EQ(0, check(R"({"errCode":0})"));
    EXPECT_EQ("/agent/v2", server.lastRequest().target);

    // A record that is incomplete for its type never reaches the server.
    const size_t before = server.requestCount();
    CCloudCheckCert other;
    other.m_stInitInfo = info;
    other.m_stInitInfo.Port = 0;
    EXPECT_EQ(10046, other.CheckCert(kCert));
    EXPECT_EQ(before, server.requestCount());
}
