// KX_InkwellCompatible: where the authorization value of a legacy server comes
// from, what the record keeps between calls, and the fetch's reply cases.
#include <gtest/gtest.h>

#include <string>

#include "KXServerApi.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "LoopbackServer.h"
#include "TempEnv.h"

using kxtest::ExpectLastError;
using kxtest::LoopbackServer;
using kxtest::MarkLastError;
using kxtest::Reply;

namespace {

class InkwellProbeTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(env.set("KXUtils", "Proxy", ""));
        MarkLastError();
    }

    long Probe(const std::string& section = "KXInkwell") {
        return KX_InkwellCompatible(info, authorization, section);
    }

    void UseFetch() {
        env.writeConfig(
            "[KXUtils]\nProxy=\n[KXInkwell]\nserverVer=5.3\nauthorizationType=2\n"
            "authorization=" +
            server.url("/auth?app=1") + "\n");
    }

    TempEnv env;
    LoopbackServer server;
    _init_Info_s info;
    std::string authorization = "stale";
};

}  // namespace

TEST_F(InkwellProbeTest, VersionDecidesWhetherSettingsAreRead) {
    // Another version keeps the record's own settings and reads nothing more.
    env.writeConfig("[KXInkwell]\nauthorizationType=2\nauthorization=from-config\n");
    info.serverVer = "5.2";
    info.authorizationType = 1;
    info.authorization = "own";
    EXPECT_EQ(0, Probe());
    EXPECT_EQ("own", authorization);
    EXPECT_EQ(1, info.authorizationType);

    // No version anywhere: type becomes 0 and the value is empty.
    _init_Info_s empty;
    empty.authorizationType = 1;
    empty.authorization = "x";
    info = empty;
    EXPECT_EQ(0, Probe());
    EXPECT_EQ("", info.serverVer);
    EXPECT_EQ(0, info.authorizationType);
    EXPECT_EQ("", authorization);

    // Only exactly "5.3" loads the settings.
    env.writeConfig("[KXInkwell]\nauthorizationType=1\nauthorization=v\n");
    for (const char* version : {"5.3 ", "5.", "5.30"}) {
        info = _init_Info_s();
        info.serverVer = version;
        EXPECT_EQ(0, Probe()) << version;
        EXPECT_EQ(0, info.authorizationType) << version;
        EXPECT_EQ("", authorization) << version;
    }
    env.writeConfig("[Legacy]\nserverVer=5.3\nauthorizationType=1\nauthorization=v\xD6\xD0\n");
    info = _init_Info_s();
    EXPECT_EQ(0, Probe("Legacy"));
    EXPECT_EQ("5.3", info.serverVer);
    EXPECT_EQ(1, info.authorizationType);
    EXPECT_EQ("v\xD6\xD0", authorization);
    EXPECT_EQ(0u, server.requestCount());
}

TEST_F(InkwellProbeTest, FetchesTheValueFromItsUrl) {
    UseFetch();
    server.setDefaultReply(Reply(200, R"({"errCode":0,"data":"auth-value"})"));
    EXPECT_EQ(0, Probe());
    EXPECT_EQ("auth-value", authorization);
    EXPECT_EQ(2, info.authorizationType);  // a value is not stored: every call fetches again
    auto req = server.lastRequest();
    EXPECT_EQ("GET", req.method);
    EXPECT_EQ("/auth?app=1", req.target);
    EXPECT_EQ("", req.header(KX_HDR_SIGNATURE));
    EXPECT_EQ(0, Probe());
    EXPECT_EQ(2u, server.requestCount());

    // An empty value turns the record to type 1 until the store says 2 again.
    server.setDefaultReply(Reply(200, R"({"errCode":0,"data":""})"));
    EXPECT_EQ(0, Probe());
    EXPECT_EQ("", authorization);
    EXPECT_EQ(1, info.authorizationType);
    EXPECT_EQ("", info.authorization);
    server.setDefaultReply(Reply(200, R"({"errCode":0,"data":"again"})"));
    EXPECT_EQ(0, Probe());
    EXPECT_EQ("again", authorization);
    ExpectLastError(-1, "marker");

    // Type 2 with no URL: nothing fetched, empty value, success.
    env.writeConfig("[KXInkwell]\nserverVer=5.3\nauthorizationType=2\n");
    const size_t before = server.requestCount();
    EXPECT_EQ(0, Probe());
    EXPECT_EQ("", authorization);
    EXPECT_EQ(before, server.requestCount());
}

TEST_F(InkwellProbeTest, FetchFailures) {
    UseFetch();
    server.queueReply(Reply(200, "no json"));
    EXPECT_EQ(31015, Probe());
    EXPECT_EQ("", authorization);
    ExpectLastError(31015, "no json");

    server.queueReply(Reply(200, R"({"errCode":"0","data":"x"})"));  // text is no integer
    EXPECT_EQ(31015, Probe());
    ExpectLastError(31015, "");

    server.queueReply(Reply(200, R"({"errCode":3,"msg":"locked","data":"x"})"));
    EXPECT_EQ(3, Probe());
    EXPECT_EQ("", authorization);
    ExpectLastError(3, "locked");

    server.queueReply(Reply(200, R"([1])"));
    EXPECT_EQ(31015, Probe());

    server.queueReply(Reply(503, "busy"));
    MarkLastError();
    EXPECT_EQ(503, Probe());
    EXPECT_EQ("", authorization);
    EXPECT_EQ(2, info.authorizationType);  // settings of the store stay in the record
    EXPECT_EQ(server.url("/auth?app=1"), info.authorization);
    ExpectLastError(-1, "marker");
}
