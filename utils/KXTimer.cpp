// Per-thread timers delivered by a dispatch call, in place of a message
// queue's timer messages.
#include <atomic>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "KXUtils.h"
#include "os/KXOs.h"

namespace {

// The message number a Windows timer callback receives.
const unsigned int kTimerMessage = 0x0113;

struct Timer {
    std::thread::id owner;
    long long intervalMs = 0;
    long long dueMs = 0;
    KXTimerProc proc = nullptr;
};

std::atomic<KXTimerClock> g_clock{nullptr};

long long NowMs() {
    KXTimerClock clock = g_clock.load();
    return clock != nullptr ? clock() : kxos::MonotonicMs();
}

// Timers of all threads; ids are never reused, so a stale id kills nothing.
struct Registry {
    std::mutex mutex;
    std::map<uintptr_t, Timer> timers;
    uintptr_t lastId = 0;
};

Registry& TheRegistry() {
    static Registry* registry = new Registry();  // outlives every thread's exit
    return *registry;
}

// A thread's timers end with the thread, as its message queue would.
struct ThreadTimers {
    bool used = false;
    ~ThreadTimers() {
        if (!used) return;
        Registry& r = TheRegistry();
        std::lock_guard<std::mutex> lock(r.mutex);
        const std::thread::id self = std::this_thread::get_id();
        for (auto it = r.timers.begin(); it != r.timers.end();) {
            it = it->second.owner == self ? r.timers.erase(it) : std::next(it);
        }
    }
};
thread_local ThreadTimers t_threadTimers;

}  // namespace

uintptr_t IWK_SetTimer(void* window, uintptr_t, unsigned int intervalMs, KXTimerProc proc) {
    if (window != nullptr || proc == nullptr) return 0;
    try {
        t_threadTimers.used = true;
        Timer timer;
        timer.owner = std::this_thread::get_id();
        timer.intervalMs = intervalMs == 0 ? 1 : intervalMs;
        timer.dueMs = NowMs() + timer.intervalMs;
        timer.proc = proc;
        Registry& r = TheRegistry();
        std::lock_guard<std::mutex> lock(r.mutex);
        const uintptr_t id = ++r.lastId;
        r.timers[id] = timer;
        return id;
    } catch (...) {
        return 0;
    }
}

bool IWK_KillTimer(void* window, uintptr_t id) {
    if (window != nullptr) return false;
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> lock(r.mutex);
    return r.timers.erase(id) != 0;
}

int IWK_DispatchTimers() {
    try {
        Registry& r = TheRegistry();
        const std::thread::id self = std::this_thread::get_id();
        const long long now = NowMs();
        std::vector<uintptr_t> due;
        {
            std::lock_guard<std::mutex> lock(r.mutex);
            for (auto& entry : r.timers) {
                Timer& t = entry.second;
                if (t.owner != self || t.dueMs > now) continue;
                // Missed periods collapse into this one firing.
                t.dueMs = now + t.intervalMs;
                due.push_back(entry.first);
            }
        }
        int fired = 0;
        for (uintptr_t id : due) {
            KXTimerProc proc = nullptr;
            {
                // An earlier callback of this round may have killed it.
                std::lock_guard<std::mutex> lock(r.mutex);
                auto it = r.timers.find(id);
                if (it == r.timers.end()) continue;
                proc = it->second.proc;
            }
            proc(nullptr, kTimerMessage, id, static_cast<unsigned long>(now));
            ++fired;
        }
        return fired;
    } catch (...) {
        return 0;
    }
}

long long IWK_NextTimerDueMs() {
    Registry& r = TheRegistry();
    const std::thread::id self = std::this_thread::get_id();
    const long long now = NowMs();
    long long wait = -1;
    std::lock_guard<std::mutex> lock(r.mutex);
    for (const auto& entry : r.timers) {
        if (entry.second.owner != self) continue;
        const long long left = entry.second.dueMs > now ? entry.second.dueMs - now : 0;
        if (wait < 0 || left < wait) wait = left;
    }
    return wait;
}

KXTimerClock IWK_SetTimerClock(KXTimerClock clock) {
    return g_clock.exchange(clock);
}
