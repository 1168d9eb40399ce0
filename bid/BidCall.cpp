// Helpers of the BID sign service.
#include "bid/BidCall.h"

#include <cstdlib>

namespace kxbid {

bool AtoI(const std::string& text, int& out) {
    size_t at = 0;
    while (at < text.size() && (text[at] == ' ' || (text[at] >= '\t' && text[at] <= '\r'))) ++at;
    const bool negative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) ++at;
    long long value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        value = value * 10 + (text[at] - '0');
        if (value > 2147483648LL) return false;
    }
    value = negative ? -value : value;
    if (value > 2147483647LL) return false;
    out = static_cast<int>(value);
    return true;
}

std::string MaskedReply(const std::string& text) noexcept {
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
