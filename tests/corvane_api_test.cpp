// CCorvaneApi as an object: URL table, copies, Init, the hourly timer across
// objects, and the guards every operation shares (precondition, URL limit).
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "CorvaneApi.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "LoopbackServer.h"
#include "TempEnv.h"
#include "TestCA.h"
#include "platform/CorvaneTimer.h"

using kxtest::LoopbackServer;
using kxtest::MarkLastError;
using kxtest::Reply;
using kxtest::TestCA;

namespace {

const long long kHourMs = 3600000;
long long g_now = 0;

size_t Count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t pos = text.find(what); pos != std::string::npos; pos = text.find(what, pos + 1)) {
        ++n;
    }
    return n;
}

class CorvaneApiTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(env.set("KXUtils", "Proxy", ""));
        ASSERT_TRUE(env.set("KXUtils", "CAFile", TestCA::instance().caFile()));
        server.setDefaultReply(
            Reply(200, R"({"code":0,"data":{"code":"ID-9"}})", "application/json"));
        info.SerType = 3;
        info.ProjectID = "proj-1";
        info.ProjectSecret = "secret-1";
        info.ServerIp = "127.0.0.1:" + std::to_string(server.port());
        info.Port = server.port();
        g_now = 5000;
        oldClock = IWK_SetTimerClock([] { return g_now; });
    }
    void TearDown() override {
        IWK_KillTimer(nullptr, static_cast<uintptr_t>(iTimerId));
        IWK_SetTimerClock(oldClock);
    }
    // Whether this thread has a timer, after an hour has passed.
    int TickAfterAnHour() {
        g_now += kHourMs;
        return IWK_DispatchTimers();
    }

    TempEnv env;
    LoopbackServer server{LoopbackServer::Scheme::Https};
    _init_Info_s info;
    KXTimerClock oldClock = nullptr;
};

}  // namespace

TEST_F(CorvaneApiTest, UrlTableAndCopies) {
    CCorvaneApi api;
    EXPECT_EQ("https://%s/v1/oauth2/access_token?appId=%s&secret=%s&grantType=client_credentials",
              api.strClientTokenUrl);
    EXPECT_EQ("", api.strReservedA + api.strReservedB);
    EXPECT_EQ("https://%s/v3/bid-sign/seals/%s?sealType=%d&accountId=%s", api.strBIDSealByTypeUrl);
    EXPECT_EQ("https://%s/v3/bid-sign/logout", api.strBIDLogoutUrl);
    EXPECT_EQ(&api, pCurrentCorvaneApi);

    ASSERT_EQ(0, api.Init(info));
    api.strAllInfoUrl = "changed";
    {
        CCorvaneApi copy(api);  // ready at once; the current object stays
        EXPECT_EQ(&api, pCurrentCorvaneApi);
        EXPECT_EQ("changed", copy.strAllInfoUrl);
        EXPECT_EQ(info.ServerIp, copy.m_stInitInfo.ServerIp);
        std::string code;
        EXPECT_EQ(0, copy.GetIdentityInfo("acc", code));
        EXPECT_EQ("ID-9", code);

        CCorvaneApi other;
        EXPECT_EQ(&other, pCurrentCorvaneApi);
        other = other;
        other = copy;
        EXPECT_EQ("changed", other.strAllInfoUrl);
        EXPECT_EQ("proj-1", other.m_stInitInfo.ProjectID);
    }
    // Destroying the copies cleared the current object, the original works on.
    EXPECT_EQ(nullptr, pCurrentCorvaneApi);
    std::string a = "a", b = "b";
    EXPECT_EQ(0, api.GetNetworkToken(a, b, true));
    EXPECT_EQ("a b", a + " " + b);
    CCorvaneApi fresh;
    EXPECT_EQ(10009, fresh.GetNetworkToken(a, b, false));
}

TEST_F(CorvaneApiTest, InitAndTheHourlyTimerAcrossObjects) {
    CCorvaneApi a;
    _init_Info_s bad = info;
    bad.ProjectSecret.clear();
    EXPECT_EQ(10001, a.Init(bad));
    EXPECT_EQ(-1, IWK_NextTimerDueMs());  // no timer from a refused record

    ASSERT_EQ(0, a.Init(info));
    const int first = iTimerId;
    EXPECT_NE(0, first);
    EXPECT_EQ(kHourMs, IWK_NextTimerDueMs());
    // A second Init replaces the timer: one runs, not two.
    ASSERT_EQ(0, a.Init(info));
    EXPECT_NE(first, iTimerId);
    EXPECT_FALSE(IWK_KillTimer(nullptr, static_cast<uintptr_t>(first)));
    // A refused record leaves the object ready and the timer as it was.
    const int second = iTimerId;
    EXPECT_EQ(10001, a.Init(bad));
    EXPECT_EQ("secret-1", a.m_stInitInfo.ProjectSecret);
    EXPECT_EQ(second, iTimerId);

    // The tick sees a ready current object: the timer goes on.
    EXPECT_EQ(1, TickAfterAnHour());
    EXPECT_EQ(kHourMs, IWK_NextTimerDueMs());
    std::string log = env.readLog();
    EXPECT_EQ(1u, Count(log, "<Corvane ["));
    EXPECT_NE(std::string::npos, log.find("- TimerProc> <\"TimerProc Begin\">"));
    EXPECT_NE(std::string::npos, log.find("<KXServerBase [")) << log;

    {
        // A later object that never saw Init: the next tick finds its record
        // incomplete and ends the timer, although a is ready.
        CCorvaneApi b;
        EXPECT_EQ(1, TickAfterAnHour());
        EXPECT_EQ(-1, IWK_NextTimerDueMs());
        EXPECT_EQ(0, TickAfterAnHour());
        EXPECT_EQ(2u, Count(env.readLog(), "TimerProc Begin"));

        ASSERT_EQ(0, a.Init(info));  // b is still the current object
        EXPECT_EQ(1, TickAfterAnHour());
        EXPECT_EQ(-1, IWK_NextTimerDueMs());
    }
    // b's destruction cleared the current object; a new Init runs a timer
    // whose ticks find no object and leave the timer running.
    ASSERT_EQ(0, a.Init(info));
    EXPECT_EQ(nullptr, pCurrentCorvaneApi);
    EXPECT_EQ(1, TickAfterAnHour());
    EXPECT_EQ(kHourMs, IWK_NextTimerDueMs());

    // Destroying any object, a copy too, ends the process's timer.
    { CCorvaneApi copy(a); }
    EXPECT_EQ(-1, IWK_NextTimerDueMs());
    std::string code;
    EXPECT_EQ(0, a.GetIdentityInfo("acc", code));
}

// The hourly check runs on the thread of Init while other threads make and
// destroy objects: the check must never look at an object being destroyed
// (a sanitizer build sees the race this guards against).
TEST_F(CorvaneApiTest, HourlyCheckBesideDestructionOnAnotherThread) {
    CCorvaneApi a;
    std::atomic<bool> stop{false};
    std::thread churn([&] {
        while (!stop) {
            CCorvaneApi b;
            b.m_stInitInfo = info;
        }
    });
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(0, a.Init(info));
        TickAfterAnHour();
    }
    stop = true;
    churn.join();
}

TEST_F(CorvaneApiTest, PreconditionAndUrlLimitSendNothing) {
    CCorvaneApi api;
    // A record that names the server but is incomplete: nothing may reach it.
    api.m_stInitInfo = info;
    api.m_stInitInfo.ProjectSecret.clear();
    std::string s1 = "s1", s2 = "s2", s3 = "s3", s4 = "s4";
    bool passed = true;
    EXPECT_EQ(10009, api.GetRealAccoutIdByCode("u", "c", s1));
    EXPECT_EQ(10009, api.GetIdentityInfo("a", s1));
    EXPECT_EQ(10009, api.GetAllInfo("a", s1, s2));
    EXPECT_EQ(10009, api.GetFinalRealnameOrgInfo("o", s1));
    EXPECT_EQ(10009, api.CreateEncOrDecTask("a", "o", "d", "r", 1, s1));
    EXPECT_EQ(10009, api.ExecuteEncOrDecTask("t", "k", "w", s1, s2));
    EXPECT_EQ(10009, api.EndEncOrDecTask("t", 0, "ok"));
    EXPECT_EQ(10009, api.CreateMobShieldAuth("a", "b", "c", "d", s1, s2, s3, true, "s"));
    EXPECT_EQ(10009, api.VerifyMobShieldAuth("b", "t", "w", s1, passed));
    EXPECT_EQ(10009, api.CreateWitnessFlowTask("o", s1));
    EXPECT_EQ(10009, api.ExecuteSnapShotTask("f", "d", "h", "SHA256", "START", ""));
    EXPECT_EQ(10009, api.CheckSignAccessTask("f", "a", "d", "h", s1));
    // The precondition comes before the refusal of the sign type.
    EXPECT_EQ(10009, api.SignTask("f", "a", "d", "h", "t", 0, s1, s2));
    EXPECT_EQ(10009, api.QuerySignResultTask("f", "t", "k", s1, s2, s3, s4));
    EXPECT_EQ(10009, api.SignConfirmTask("f", "d", "h", "SHA256", "t", "l"));
    EXPECT_EQ(0u, server.requestCount());
    EXPECT_EQ("s1 s2 s3 s4", s1 + " " + s2 + " " + s3 + " " + s4);
    EXPECT_TRUE(passed);
    const std::string log = env.readLog();
    EXPECT_EQ(15u, Count(log, "\"lRes:10009, reqRes.errCode:0, reqRes.msg:"));
    EXPECT_NE(std::string::npos, log.find("- CCorvaneApi::SignTask> <\"lRes:10009"));

    ASSERT_EQ(0, api.Init(info));
    // "https://" + host + "/v1/accounts/" + id + "/getIdentityInfo" at exactly 1023 bytes.
    const size_t fixed = std::string("https:///v1/accounts//getIdentityInfo").size();
    const std::string longest(1023 - fixed - info.ServerIp.size(), 'x');
    std::string code = "kept", lastText;
    long lastCode = 0;
    MarkLastError();
    EXPECT_EQ(10110, api.GetIdentityInfo(longest + "y", code));
    EXPECT_EQ("kept", code);
    EXPECT_EQ(0u, server.requestCount());
    ASSERT_TRUE(IWK_GetLastError(lastCode, lastText));
    EXPECT_EQ(-1, lastCode);  // a local refusal leaves the last error alone
    EXPECT_EQ(0, api.GetIdentityInfo(longest, code));
    EXPECT_EQ("/v1/accounts/" + longest + "/getIdentityInfo", server.lastRequest().target);

    // A template changed to conversions the operation does not supply is
    // refused rather than handed to the formatter.
    api.strIdentityInfoUrl = "https://%s/v1/accounts/%s/%s";
    EXPECT_EQ(10001, api.GetIdentityInfo("a", code));
    api.strIdentityInfoUrl = "https://%s/v1/%n";
    EXPECT_EQ(10001, api.GetIdentityInfo("a", code));
    api.strIdentityInfoUrl = "https://%s/v1/100%%/%s";
    EXPECT_EQ(0, api.GetIdentityInfo("a", code));
    EXPECT_EQ("/v1/100%/a", server.lastRequest().target);
    EXPECT_EQ(2u, server.requestCount());
}
