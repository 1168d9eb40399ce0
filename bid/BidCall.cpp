// Helpers of the BID sign service.
#include "bid/BidCall.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace kxbid {

bool AtoI(const std::string& text, int& out) {
    errno = 0;
    const long value = std::strtol(text.c_str(), nullptr, 10);
    if (errno == ERANGE || value < INT_MIN || value > INT_MAX) return false;
    out = static_cast<int>(value);
    return true;
}

std::string MaskedReply(const char* text) noexcept {
    try {
        const KX_TuoMinData rules[2] = {
            KX_TuoMinData(KX_TUOMIN_JSON_KEY, "idNo", 6, 8),
            KX_TuoMinData(KX_TUOMIN_JSON_KEY, "loginAccount", 3, 4),
        };
        return IWK_DataTuomin(text, rules, 2);
    } catch (...) {
        // Out of memory: the line goes without the reply rather than unmasked.
        return std::string();
    }
}

}  // namespace kxbid
