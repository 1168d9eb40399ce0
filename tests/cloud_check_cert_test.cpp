// CCloudCheckCert on the fake transport: the XML and JSON requests, the path
// chosen by SerType and configuration, and how each reply maps to a code.
// The XML and errCode readers' own rules are in reply_readers_test.
#include <gtest/gtest.h>

#include <string>

#include "CloudCheckCert.h"
#include "FakeTransport.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "TempEnv.h"

using kxtest::FakeTransport;
using kxtest::LastError;
using kxtest::MarkLastError;

namespace {

const char kCert[] = "MIIB+/x=&<>\"";  // not escaped on its way out
const std::string kBase = "https://ca.example:8443";

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
    EXPECT_EQ("POST " + kBase + "/kxsign/rest/seal-rest!SOF_GetCertSeals.xml\n" +
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
    EXPECT_EQ(kBase + "/own/check?x=1", fake.lastRequest().url);
    ASSERT_TRUE(env.set("KXServerApi", "CheckCert", ""));
    EXPECT_EQ(0, check("<result><retcode>0</retcode></result>"));
    EXPECT_EQ("", client.strCheckUri);
    EXPECT_EQ(kBase, fake.lastRequest().url);

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
    EXPECT_EQ("POST " + kBase + "/agent/integrate/getCertSealInfos\n" +
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
    EXPECT_EQ(kBase + "/agent/v2", fake.lastRequest().url);

    // A record that is incomplete for its type never reaches the server.
    const size_t before = fake.requestCount();
    CCloudCheckCert other;
    other.m_stInitInfo = info;
    other.m_stInitInfo.Port = 0;
    EXPECT_EQ(10046, other.CheckCert(kCert));
    EXPECT_EQ(before, fake.requestCount());
}
