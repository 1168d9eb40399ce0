// The [KXUtils] settings of a request.
#include "KXConfigSnapshot.h"
#include "KXHttpParts.h"

void kxhttp::ReadSettings(KXWireRequest& request) {
    const kxutils::ConfigSnapshot config;
    config.Get(KXKey::CAFile, request.caFile);
    int verify = 1;
    config.Get(KXKey::VerifyTLS, verify);
    request.verifyTls = verify != 0;
    int value = 0;
    // 0 keeps curl's meaning (no limit); a negative value is a typing error.
    config.Get(KXKey::ConnectTimeoutMs, value);
    request.connectTimeoutMs = value >= 0 ? value : kxutils::DefaultInt(KXKey::ConnectTimeoutMs);
    config.Get(KXKey::TimeoutMs, value);
    request.timeoutMs = value >= 0 ? value : kxutils::DefaultInt(KXKey::TimeoutMs);
    request.proxySet = config.Get(KXKey::Proxy, request.proxy) != 0;
    config.Get(KXKey::MaxReplyBytes, value);
    request.maxReplyBytes = value > 0 ? value : kxutils::DefaultInt(KXKey::MaxReplyBytes);
}
