// The [KXUtils] settings of a request.
#include "KXConfigSnapshot.h"
#include "KXHttpParts.h"

namespace {

void Read(const kxutils::ConfigSnapshot& config, KXWireRequest& request) {
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

}  // namespace

void kxhttp::ReadSettings(KXWireRequest& request) {
    const kxutils::ConfigSnapshot config;
    // Each thread keeps the settings of the store it read last; while the
    // store is the same, they are copied instead of looked up key by key.
    struct Kept {
        std::shared_ptr<const void> store;
        KXWireRequest settings;
    };
    thread_local Kept kept;
    if (!config.store() || config.store() != kept.store) {
        kept.store.reset();
        Read(config, kept.settings);
        kept.store = config.store();
    }
    const KXWireRequest& s = kept.settings;
    request.caFile = s.caFile;
    request.verifyTls = s.verifyTls;
    request.connectTimeoutMs = s.connectTimeoutMs;
    request.timeoutMs = s.timeoutMs;
    request.proxySet = s.proxySet;
    request.proxy = s.proxy;
    request.maxReplyBytes = s.maxReplyBytes;
}
