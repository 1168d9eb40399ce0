// What several commands do alike: open a client on a section's server, poll
// until a server is done.
#include <chrono>
#include <iostream>
#include <thread>

#include "Commands.h"
#include "KXAscii.h"
#include "KXServerApi.h"
#include "KXUtils.h"

namespace kxapi {

_init_Info_s ReadServer(const std::string& section) {
    _init_Info_s info;
    KX_GetServerConfig(section, info);
    IWK_GetConfig(section, KXKey::MobileShieldClientId, info.strMobileShieldClientId);
    return info;
}

int OpenServer(KXServerBase& client, const std::string& section, const std::string& clientName) {
    const _init_Info_s info = ReadServer(section);
    const long code = client.Init(info);
    if (code == 0) return 0;
    if (KXServerBase::CheckInitInfo(info) != 0) {
        std::cerr << "kxapi: section [" << section << "] holds no complete server description\n";
    }
    return Fail(clientName + "::Init (" + section + ")", code);
}

bool ReadPollLimits(const Args& args, const std::string& command, PollLimits& limits, int& status) {
    if (!kxascii::ParseInt(args.get("interval-ms", std::to_string(limits.intervalMs)),
                           limits.intervalMs) ||
        !kxascii::ParseInt(args.get("timeout", std::to_string(limits.timeoutS)), limits.timeoutS) ||
        limits.intervalMs < 10 || limits.timeoutS < 1) {
        status = UsageError(command, "--interval-ms is at least 10, --timeout at least 1");
        return false;
    }
    return true;
}

int Poll(const PollLimits& limits, const std::function<int()>& poll, int& polls) {
    const long long deadline = IWK_GetMonotonicMs() + 1000LL * limits.timeoutS;
    for (polls = 1;; ++polls) {
        const int answer = poll();
        if (answer != 0) return answer;
        if (IWK_GetMonotonicMs() + limits.intervalMs > deadline) return 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(limits.intervalMs));
    }
}

}  // namespace kxapi
