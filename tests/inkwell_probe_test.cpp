// KX_InkwellCompatible: where the authorization value of a legacy server comes
// from, what the record keeps between calls, and the fetch, on the fake
// transport. The legacy reply's rules are in reply_readers_test.
#include <gtest/gtest.h>

#include <string>

#include "FakeTransport.h"
#include "KXServerApi.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "TempEnv.h"

using kxtest::FakeTransport;
using kxtest::LastError;
using kxtest::MarkLastError;

namespace {

class InkwellProbeTest : public ::testing::Test {
protected:
    void SetUp() override { MarkLastError(); }
    long Probe(const std::string& section = "KXInkwell") {
        return KX_InkwellCompatible(info, authorization, section);
    }
    // What the probe gave back, and the record's three settings.
    std::string State() const {
        return authorization + "|" + info.serverVer + "|" + std::to_string(info.authorizationType) +
               "|" + info.authorization;
    }

    TempEnv env;
    FakeTransport fake;
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
    EXPECT_EQ("own|5.2|1|own", State());

    // No version anywhere: type becomes 0 and the value is empty.
    info.serverVer.clear();
    EXPECT_EQ(0, Probe());
    EXPECT_EQ("||0|own", State());

    // Only exactly "5.3" loads the settings.
    env.writeConfig("[KXInkwell]\nauthorizationType=1\nauthorization=v\n");
    for (const char* version : {"5.3 ", "5.", "5.30"}) {
        info = _init_Info_s();
        info.serverVer = version;
        EXPECT_EQ(0, Probe()) << version;
        EXPECT_EQ("|" + std::string(version) + "|0|", State());
    }
    env.writeConfig("[Legacy]\nserverVer=5.3\nauthorizationType=1\nauthorization=v\xD6\xD0\n");
    info = _init_Info_s();
    EXPECT_EQ(0, Probe("Legacy"));
    EXPECT_EQ("v\xD6\xD0|5.3|1|v\xD6\xD0", State());
    EXPECT_EQ(0u, fake.requestCount());
}

TEST_F(InkwellProbeTest, FetchesTheValueFromItsUrl) {
    const std::string url = "https://auth.example/auth?app=1";
    env.writeConfig("[KXInkwell]\nserverVer=5.3\nauthorizationType=2\nauthorization=" + url + "\n");
    fake.reply(200, R"({"errCode":0,"data":"auth-value"})");
    EXPECT_EQ(0, Probe());
    // A value is not stored: every call fetches again.
    EXPECT_EQ("auth-value|5.3|2|" + url, State());
    const KXWireRequest req = fake.lastRequest();
    EXPECT_EQ("GET " + url, req.method + " " + req.url);
    for (const std::string& line : req.headers) EXPECT_EQ(std::string::npos, line.find("X-KX"));

    // An empty value turns the record to type 1 until the store says 2 again.
    fake.reply(200, R"({"errCode":0,"data":""})");
    EXPECT_EQ(0, Probe());
    EXPECT_EQ("|5.3|1|", State());
    fake.reply(200, R"({"errCode":0,"data":"again"})");
    EXPECT_EQ(0, Probe());
    EXPECT_EQ("again", authorization);
    EXPECT_EQ("-1 marker", LastError());

    // A refusal or a failure gives back nothing and keeps the store's settings.
    fake.reply(200, R"({"errCode":3,"msg":"locked","data":"x"})");
    EXPECT_EQ(3, Probe());
    EXPECT_EQ("|5.3|2|" + url, State());
    EXPECT_EQ("3 locked", LastError());
    fake.reply(503, "busy");
    EXPECT_EQ(503, Probe());
    EXPECT_EQ("|5.3|2|" + url, State());
    EXPECT_EQ(5u, fake.requestCount());

    // Type 2 with no URL: nothing fetched, empty value, success.
    env.writeConfig("[KXInkwell]\nserverVer=5.3\nauthorizationType=2\n");
    EXPECT_EQ(0, Probe());
    EXPECT_EQ("|5.3|2|", State());
    EXPECT_EQ(5u, fake.requestCount());  // nothing more
}
