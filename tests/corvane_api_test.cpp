// CCorvaneApi as an object: URL table, copies, Init, the hourly timer across
// objects, and the URL checks every operation shares (limit, conversions).
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "CorvaneApi.h"
#include "FakeTransport.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "TempEnv.h"
#include "platform/CorvaneTimer.h"

namespace {

const long long kHourMs = 3600000;
long long g_now = 0;

size_t Count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

class CorvaneApiTest : public ::testing::Test {
protected:
    void SetUp() override {
        info.SerType = 3;
        info.ProjectID = "proj-1";
        info.ProjectSecret = "secret-1";
        info.ServerIp = "platform.example:8443";
        info.Port = 8443;
        g_now = 5000;
        oldClock = IWK_SetTimerClock([] { return g_now; });
    }
    void TearDown() override {
        IWK_KillTimer(nullptr, static_cast<uintptr_t>(iTimerId));
        IWK_SetTimerClock(oldClock);
    }
    // An hour on: whether a timer fired, and when the next one is due (-1: none).
    std::string Tick() {
        g_now += kHourMs;
        const int fired = IWK_DispatchTimers();
        return std::to_string(fired) + " " + std::to_string(IWK_NextTimerDueMs());
    }
    // The identity code an object reads from an accepted reply (all replies are
    // alike, so one left queued by a call refused locally does no harm).
    std::string Identity(CCorvaneApi& api, const std::string& id = "acc") {
        fake.reply(200, R"({"code":0,"data":{"code":"ID-9"}})");
        std::string code = "kept";
        const long lRes = api.GetIdentityInfo(id, code);
        return lRes == 0 ? code : std::to_string(lRes) + " " + code;
    }

    TempEnv env;
    kxtest::FakeTransport fake;
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
        EXPECT_EQ("ID-9", Identity(copy));

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
    EXPECT_EQ("1 3600000", Tick());
    const std::string log = env.readLog();
    EXPECT_EQ(1u, Count(log, "<Corvane ["));
    EXPECT_NE(std::string::npos, log.find("- TimerProc> <\"TimerProc Begin\">"));
    EXPECT_NE(std::string::npos, log.find("<KXServerBase [")) << log;

    {
        // A later object that never saw Init: the next tick finds its record
        // incomplete and ends the timer, although a is ready.
        CCorvaneApi b;
        EXPECT_EQ("1 -1", Tick());
        EXPECT_EQ("0 -1", Tick());
        EXPECT_EQ(2u, Count(env.readLog(), "TimerProc Begin"));

        ASSERT_EQ(0, a.Init(info));  // b is still the current object
        EXPECT_EQ("1 -1", Tick());
    }
    // b's destruction cleared the current object; a new Init runs a timer
    // whose ticks find no object and leave the timer running.
    ASSERT_EQ(0, a.Init(info));
    EXPECT_EQ(nullptr, pCurrentCorvaneApi);
    EXPECT_EQ("1 3600000", Tick());

    // Destroying any object, a copy too, ends the process's timer.
    { CCorvaneApi copy(a); }
    EXPECT_EQ(-1, IWK_NextTimerDueMs());
    EXPECT_EQ("ID-9", Identity(a));
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
        Tick();
    }
    stop = true;
    churn.join();
}

// The URL rules are the call's (see the URL template and certificate
// expansion tests); here only that the client goes through them.
TEST_F(CorvaneApiTest, UrlLimitAndConversionsBeforeSending) {
    CCorvaneApi api;
    ASSERT_EQ(0, api.Init(info));
    kxtest::MarkLastError();
    // One byte over 1023.
    const std::string url = "https://" + info.ServerIp + "/v1/accounts//getIdentityInfo";
    EXPECT_EQ("10110 kept", Identity(api, std::string(1024 - url.size(), 'x')));
    // A template changed to conversions the operation does not supply.
    api.strIdentityInfoUrl = "https://%s/v1/accounts/%s/%s";
    EXPECT_EQ("10001 kept", Identity(api));
    EXPECT_EQ(0u, fake.requestCount());
    kxtest::ExpectLastErrorMarked();  // a local refusal leaves the last error alone
}
