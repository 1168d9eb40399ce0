// The per-thread timers of the platform layer, driven by a test clock.
#include <gtest/gtest.h>

#include <thread>

#include "KXUtils.h"

namespace {

long long g_now = 0;

std::vector<uintptr_t> g_fired;
uintptr_t g_killInCallback = 0;
void Record(void* window, unsigned int message, uintptr_t id, unsigned long timeMs) {
    EXPECT_EQ(nullptr, window);
    EXPECT_EQ(0x0113u, message);
    EXPECT_EQ(static_cast<unsigned long>(g_now), timeMs);
    g_fired.push_back(id);
    if (g_killInCallback != 0) IWK_KillTimer(nullptr, g_killInCallback);
}

class TimerTest : public ::testing::Test {
protected:
    void SetUp() override {
        g_now = 1000;
        g_fired.clear();
        g_killInCallback = 0;
        old_ = IWK_SetTimerClock([] { return g_now; });
    }
    void TearDown() override { IWK_SetTimerClock(old_); }
    KXTimerClock old_ = nullptr;
};

}  // namespace

TEST_F(TimerTest, FiresOnDispatchOnlyWhenDueAndCollapsesMissedPeriods) {
    EXPECT_EQ(-1, IWK_NextTimerDueMs());
    const uintptr_t a = IWK_SetTimer(nullptr, 1, 100, Record);
    const uintptr_t b = IWK_SetTimer(nullptr, 1, 100, Record);
    ASSERT_NE(0u, a);
    EXPECT_NE(a, b);  // the event number does not decide the id
    EXPECT_EQ(100, IWK_NextTimerDueMs());

    g_now = 1099;
    EXPECT_EQ(0, IWK_DispatchTimers());
    EXPECT_EQ(1, IWK_NextTimerDueMs());
    g_now = 1100;
    EXPECT_EQ(2, IWK_DispatchTimers());
    EXPECT_EQ((std::vector<uintptr_t>{a, b}), g_fired);

    // Ten periods pass unattended: one firing, next period counted from now.
    // a's callback kills b, which was due as well and so never fires.
    g_now = 2150;
    g_fired.clear();
    g_killInCallback = b;
    EXPECT_EQ(1, IWK_DispatchTimers());
    EXPECT_EQ((std::vector<uintptr_t>{a}), g_fired);
    EXPECT_FALSE(IWK_KillTimer(nullptr, b));
    EXPECT_EQ(100, IWK_NextTimerDueMs());
    EXPECT_EQ(0, IWK_DispatchTimers());

    EXPECT_TRUE(IWK_KillTimer(nullptr, a));
    EXPECT_FALSE(IWK_KillTimer(nullptr, a));
    EXPECT_FALSE(IWK_KillTimer(nullptr, 0));
    EXPECT_EQ(-1, IWK_NextTimerDueMs());

    // A window handle names nothing here; a null callback is refused.
    int window = 0;
    EXPECT_EQ(0u, IWK_SetTimer(&window, 1, 10, Record));
    EXPECT_EQ(0u, IWK_SetTimer(nullptr, 1, 10, nullptr));
    EXPECT_FALSE(IWK_KillTimer(&window, 1));
}

TEST_F(TimerTest, TimersBelongToTheirThread) {
    const uintptr_t mine = IWK_SetTimer(nullptr, 1, 10, Record);
    uintptr_t theirs = 0;
    int firedThere = -1;
    std::thread([&] {
        theirs = IWK_SetTimer(nullptr, 1, 10, Record);
        g_now += 10;  // read by both threads; this thread alone writes it now
        firedThere = IWK_DispatchTimers();
    }).join();
    // The other thread fired only its own timer, which ended with the thread.
    EXPECT_EQ(1, firedThere);
    EXPECT_EQ((std::vector<uintptr_t>{theirs}), g_fired);
    EXPECT_FALSE(IWK_KillTimer(nullptr, theirs));

    // Killing works from any thread.
    std::thread([&] { EXPECT_TRUE(IWK_KillTimer(nullptr, mine)); }).join();
    EXPECT_EQ(0, IWK_DispatchTimers());
}
