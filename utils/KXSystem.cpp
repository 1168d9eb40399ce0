// Facts about the machine: hardware address, clock, configured language.
#include "KXUtils.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>

namespace {

const char kNoMac[] = "00-00-00-00-00-00";

}  // namespace

std::string IWK_GetMacAddress() {
    try {
        struct ifaddrs* raw = nullptr;
        if (::getifaddrs(&raw) != 0) return kNoMac;
        const std::unique_ptr<struct ifaddrs, void (*)(struct ifaddrs*)> list(raw, ::freeifaddrs);
        // Sorted by name so that the choice stays the same from run to run.
        std::vector<std::pair<std::string, std::string>> found;
        for (struct ifaddrs* it = list.get(); it; it = it->ifa_next) {
            if (!it->ifa_addr || it->ifa_addr->sa_family != AF_PACKET || !it->ifa_name) continue;
            if (it->ifa_flags & IFF_LOOPBACK) continue;
            const auto* ll = reinterpret_cast<const struct sockaddr_ll*>(it->ifa_addr);
            if (ll->sll_halen != 6) continue;
            bool zero = true;
            for (int i = 0; i < 6; ++i) zero = zero && ll->sll_addr[i] == 0;
            if (zero) continue;
            char text[18];
            std::snprintf(text, sizeof text, "%02X-%02X-%02X-%02X-%02X-%02X", ll->sll_addr[0],
                          ll->sll_addr[1], ll->sll_addr[2], ll->sll_addr[3], ll->sll_addr[4],
                          ll->sll_addr[5]);
            found.emplace_back(it->ifa_name, text);
        }
        if (found.empty()) return kNoMac;
        std::sort(found.begin(), found.end());
        return found.front().second;
    } catch (...) {
        return kNoMac;
    }
}

long long IWK_GetCurTime() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string IWK_GetLanguageName() {
    try {
        std::string language;
        IWK_GetConfigByKey("KXUtils", "Language", language, std::string());
        return language;
    } catch (...) {
        return std::string();
    }
}
