// The [KXUtils] settings of a request.
#include "KXConfigSnapshot.h"
#include "KXHttpParts.h"

namespace {

const int kDefaultConnectTimeoutMs = 10000;
const int kDefaultTimeoutMs = 60000;
const int kDefaultMaxReplyBytes = 67108864;

}  // namespace

void kxhttp::ReadSettings(KXWireRequest& request) {
    const kxutils::ConfigSnapshot config;
    config.Get("KXUtils", "CAFile", request.caFile, "");
    int verify = 1;
    config.Get("KXUtils", "VerifyTLS", verify, 1);
    request.verifyTls = verify != 0;
    int value = 0;
    // 0 keeps curl's meaning (no limit); a negative value is a typing error.
    config.Get("KXUtils", "ConnectTimeoutMs", value, kDefaultConnectTimeoutMs);
    request.connectTimeoutMs = value >= 0 ? value : kDefaultConnectTimeoutMs;
    config.Get("KXUtils", "TimeoutMs", value, kDefaultTimeoutMs);
    request.timeoutMs = value >= 0 ? value : kDefaultTimeoutMs;
    request.proxySet = config.Get("KXUtils", "Proxy", request.proxy, "") != 0;
    config.Get("KXUtils", "MaxReplyBytes", value, kDefaultMaxReplyBytes);
    request.maxReplyBytes = value > 0 ? value : kDefaultMaxReplyBytes;
}
