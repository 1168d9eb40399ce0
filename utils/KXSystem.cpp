// Facts about the machine: hardware address, clock, configured language.
#include "KXUtils.h"
#include "os/KXOs.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace {

const char kNoMac[] = "00-00-00-00-00-00";

}  // namespace

std::string IWK_GetMacAddress() {
    try {
        // Sorted by name so that the choice stays the same from run to run.
        std::vector<std::pair<std::string, std::string>> found;
        for (const kxos::HardwareAddress& a : kxos::HardwareAddresses()) {
            const unsigned char* b = a.bytes;
            if ((b[0] | b[1] | b[2] | b[3] | b[4] | b[5]) == 0) continue;
            char text[18];
            std::snprintf(text, sizeof text, "%02X-%02X-%02X-%02X-%02X-%02X", b[0], b[1], b[2],
                          b[3], b[4], b[5]);
            found.emplace_back(a.interfaceName, text);
        }
        if (found.empty()) return kNoMac;
        std::sort(found.begin(), found.end());
        return found.front().second;
    } catch (...) {
        return kNoMac;
    }
}

long long IWK_GetCurTime() {
    return kxos::WallClockNs() / 1000000;
}

long long IWK_Time64() {
    return kxos::WallClockNs() / 1000000000;
}

long long IWK_GetMonotonicMs() {
    return kxos::MonotonicMs();
}

std::string IWK_GetLanguageName() {
    try {
        std::string language;
        IWK_GetConfig(KXKey::Language, language);
        return language;
    } catch (...) {
        return std::string();
    }
}
