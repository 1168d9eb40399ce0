// What several commands do alike: open a client on a section's server, poll
// until a server is done.
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iostream>
#include <map>
#include <thread>

#include "Commands.h"
#include "CorvaneApi.h"
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

int OpenClient(const Args& args, CCorvaneApi& api) {
    return OpenServer(api, args.get("section", "KXPlatform"), "CCorvaneApi");
}

bool ShowsProgress() {
    static const bool terminal = ::isatty(STDERR_FILENO) == 1;
    return terminal;
}

std::string Secret(const Args& args, const std::string& name, const char* env) {
    std::string value;
    if (args.has(name + "-file")) {
        std::ifstream in(args.get(name + "-file"));
        std::getline(in, value);
        if (!value.empty() && value.back() == '\r') value.pop_back();
        return value;
    }
    if (const char* fromEnv = std::getenv(env)) return fromEnv;
    if (args.has(name)) return args.get(name);
    if (::isatty(STDIN_FILENO) != 1) return value;
    // Asked once per run, whoever asks again.
    static std::map<std::string, std::string> asked;
    if (asked.count(name)) return asked[name];
    std::cerr << "kxapi: " << name << ": " << std::flush;
    termios saved{};
    const bool quiet = ::tcgetattr(STDIN_FILENO, &saved) == 0;
    if (quiet) {
        termios noEcho = saved;
        noEcho.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &noEcho);
    }
    std::getline(std::cin, value);
    if (quiet) ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
    std::cerr << "\n";
    return asked[name] = value;
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
