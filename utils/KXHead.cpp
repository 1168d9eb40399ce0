// Request heads: the default signing scheme, the swappable provider behind the
// CIWKHttp head calls, and the server-side check of the scheme.
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <atomic>
#include <climits>
#include <string>
#include <vector>

#include "KXHttpParts.h"
#include "KXUtils.h"

namespace {

const size_t kMacBytes = 32;
const size_t kNonceBytes = 16;
const char kCrlf[] = "\r\n";

// A value that would end its header line early (CR, LF) or be cut short by
// the transport (NUL). Heads refuse such values instead of sending them.
bool BreaksLine(const std::string& value) {
    return value.find_first_of(std::string("\r\n\0", 3)) != std::string::npos;
}

// Raw SHA-256 of data; empty on failure.
std::string Sha256(const std::string& data) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(data.data(), data.size(), digest, &length, EVP_sha256(), nullptr) != 1)
        return std::string();
    return std::string(reinterpret_cast<char*>(digest), length);
}

// Raw HMAC-SHA256; empty on failure.
std::string HmacSha256(const std::string& key, const std::string& data) {
    if (key.size() > static_cast<size_t>(INT_MAX)) return std::string();
    unsigned char mac[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
             reinterpret_cast<const unsigned char*>(data.data()), data.size(), mac,
             &length) == nullptr)
        return std::string();
    return std::string(reinterpret_cast<char*>(mac), length);
}

// 32 lower-case hex characters; empty when the random source fails.
std::string NewNonce() {
    return IWK_CharToHex(IWK_GenRand(kNonceBytes));
}

const char* MethodOf(HTTPFuncType funcType) {
    switch (funcType) {
        case HTTP_FUNC_GET:
            return "GET";
        case HTTP_FUNC_POST:
            return "POST";
        case HTTP_FUNC_PUT:
            return "PUT";
        default:
            return nullptr;
    }
}

// pathAndQuery: the bytes of the request line, which carries them exactly as
// the caller gave them; a server passes its raw target, which may also be the
// absolute form a proxy gets.
std::string SignedTextOfRequest(const std::string& method, const std::string& pathAndQuery,
                                const std::string& timestamp, const std::string& nonce) {
    return method + "\n" + pathAndQuery + "\n" + timestamp + "\n" + nonce;
}

std::string SignedTextOfBody(const std::string& timestamp, const std::string& nonce,
                             const std::string& bodyDigestHex, const std::string& authorization) {
    std::string text = "BODY\n" + timestamp + "\n" + nonce + "\n" + bodyDigestHex;
    if (!authorization.empty()) text += "\n" + authorization;
    return text;
}

void AddLine(std::string& head, const char* name, const std::string& value) {
    if (!head.empty()) head += kCrlf;
    head += name;
    head += ": ";
    head += value;
}

class DefaultHeadProvider final : public IKXHeadProvider {
public:
    std::string SignatureHead(HTTPFuncType funcType, const std::string& url,
                              const std::string& /*host*/, const std::string& projectId,
                              const std::string& projectSecret,
                              const std::vector<std::string>& extra,
                              const std::string& contentType) override {
        const char* method = MethodOf(funcType);
        if (method == nullptr || BreaksLine(projectId) || BreaksLine(contentType))
            return std::string();
        for (const std::string& line : extra) {
            if (BreaksLine(line)) return std::string();
        }
        const std::string timestamp = std::to_string(IWK_GetCurTime());
        const std::string nonce = NewNonce();
        const std::string mac =
            HmacSha256(projectSecret,
                       SignedTextOfRequest(method, kxhttp::PathAndQuery(url), timestamp, nonce));
        if (nonce.empty() || mac.empty()) return std::string();

        std::string head;
        AddLine(head, KX_HDR_PROJECT_ID, projectId);
        AddLine(head, KX_HDR_TIMESTAMP, timestamp);
        AddLine(head, KX_HDR_NONCE, nonce);
        AddLine(head, KX_HDR_SIGNATURE, IWK_Base64Encode(mac));
        if (!contentType.empty()) AddLine(head, "Content-Type", contentType);
        for (const std::string& line : extra) {
            if (line.empty()) continue;
            head += kCrlf;
            head += line;
        }
        return head;
    }

    std::string BIDHeadToken(const std::string& token) override {
        if (token.empty() || BreaksLine(token)) return std::string();
        std::string head;
        AddLine(head, KX_HDR_TOKEN, token);
        return head;
    }

    std::string InkwellHead(const std::string& projectId, const std::string& projectSecret,
                            const std::string& body, const std::string& authorization) override {
        if (BreaksLine(projectId) || BreaksLine(authorization)) return std::string();
        const std::string timestamp = std::to_string(IWK_GetCurTime());
        const std::string nonce = NewNonce();
        const std::string digest = Sha256(body);
        if (nonce.empty() || digest.empty()) return std::string();
        const std::string digestHex = IWK_CharToHex(digest);
        const std::string mac =
            HmacSha256(projectSecret, SignedTextOfBody(timestamp, nonce, digestHex, authorization));
        if (mac.empty()) return std::string();

        std::string head;
        AddLine(head, KX_HDR_PROJECT_ID, projectId);
        AddLine(head, KX_HDR_TIMESTAMP, timestamp);
        AddLine(head, KX_HDR_NONCE, nonce);
        AddLine(head, KX_HDR_CONTENT_SHA256, digestHex);
        AddLine(head, KX_HDR_SIGNATURE, IWK_Base64Encode(mac));
        if (!authorization.empty()) AddLine(head, KX_HDR_AUTHORIZATION, authorization);
        return head;
    }
};

std::atomic<IKXHeadProvider*> g_installed{nullptr};

IKXHeadProvider& CurrentProvider() {
    static DefaultHeadProvider defaultProvider;
    IKXHeadProvider* installed = g_installed.load(std::memory_order_acquire);
    return installed != nullptr ? *installed : defaultProvider;
}

// ---------------------------------------------------------------------------
// Server side.

std::string Trimmed(const std::string& value) {
    size_t first = value.find_first_not_of(" \t");
    if (first == std::string::npos) return std::string();
    size_t last = value.find_last_not_of(" \t");
    return value.substr(first, last - first + 1);
}

bool IsLowerHex(const std::string& text, size_t length) {
    if (text.size() != length) return false;
    for (char c : text) {
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
    }
    return true;
}

bool ParseTimestamp(const std::string& text, long long& out) {
    if (text.empty() || text.size() > 18) return false;
    long long value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + (c - '0');
    }
    out = value;
    return true;
}

// The 32 MAC bytes of a signature header; only the canonical Base64 text of
// exactly 32 bytes is accepted.
bool DecodeMac(const std::string& text, std::string& mac) {
    if (text.size() != 4 * ((kMacBytes + 2) / 3)) return false;
    std::string raw = IWK_Base64Decode(text);
    if (raw.size() != kMacBytes || IWK_Base64Encode(raw) != text) return false;
    mac = raw;
    return true;
}

bool SameBytes(const std::string& a, const std::string& b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

bool Stale(long long nowMs, long long timestamp, long long windowMs) {
    if (windowMs < 0) return true;
    unsigned long long distance =
        nowMs >= timestamp
            ? static_cast<unsigned long long>(nowMs) - static_cast<unsigned long long>(timestamp)
            : static_cast<unsigned long long>(timestamp) - static_cast<unsigned long long>(nowMs);
    return distance > static_cast<unsigned long long>(windowMs);
}

// What both verifiers share: the identity headers, checked in the order
// missing, unknown project, stale.
struct Identity {
    std::string projectId;
    std::string timestampText;
    std::string nonce;
    std::string mac;
    std::string secret;
};

KXHeadCheck ReadIdentity(const KXHeaderGetter& header, const KXSecretLookup& lookup,
                         long long nowMs, long long windowMs, Identity& id) {
    if (!header) return KX_HEAD_MISSING;
    id.projectId = Trimmed(header(KX_HDR_PROJECT_ID));
    id.timestampText = Trimmed(header(KX_HDR_TIMESTAMP));
    id.nonce = Trimmed(header(KX_HDR_NONCE));
    const std::string signature = Trimmed(header(KX_HDR_SIGNATURE));
    long long timestamp = 0;
    if (id.projectId.empty() || !ParseTimestamp(id.timestampText, timestamp) ||
        !IsLowerHex(id.nonce, 2 * kNonceBytes) || !DecodeMac(signature, id.mac))
        return KX_HEAD_MISSING;
    if (!lookup || !lookup(id.projectId, id.secret)) return KX_HEAD_UNKNOWN_PROJECT;
    if (Stale(nowMs, timestamp, windowMs)) return KX_HEAD_STALE;
    return KX_HEAD_OK;
}

}  // namespace

IKXHeadProvider::~IKXHeadProvider() = default;

IKXHeadProvider* IWK_SetHeadProvider(IKXHeadProvider* provider) {
    return g_installed.exchange(provider, std::memory_order_acq_rel);
}

std::string CIWKHttp::GetSignatureHead(HTTPFuncType funcType, const std::string& url,
                                       const std::string& host, const std::string& projectId,
                                       const std::string& projectSecret,
                                       std::vector<std::string> extra, std::string contentType) {
    try {
        return CurrentProvider().SignatureHead(funcType, url, host, projectId, projectSecret, extra,
                                               contentType);
    } catch (...) {
        return std::string();
    }
}

std::string CIWKHttp::GetBIDHeadToken(std::string token) {
    try {
        return CurrentProvider().BIDHeadToken(token);
    } catch (...) {
        return std::string();
    }
}

std::string CIWKHttp::GenInkwellHttpHead(const std::string& projectId,
                                         const std::string& projectSecret, const std::string& body,
                                         const std::string& authorization) {
    try {
        return CurrentProvider().InkwellHead(projectId, projectSecret, body, authorization);
    } catch (...) {
        return std::string();
    }
}

KXHeadCheck IWK_VerifySignatureHead(const std::string& method, const std::string& target,
                                    const KXHeaderGetter& header, const KXSecretLookup& lookup,
                                    long long nowMs, long long windowMs) {
    try {
        Identity id;
        KXHeadCheck check = ReadIdentity(header, lookup, nowMs, windowMs, id);
        if (check != KX_HEAD_OK) return check;
        const std::string expected = HmacSha256(
            id.secret,
            SignedTextOfRequest(method, kxhttp::PathAndQuery(target), id.timestampText, id.nonce));
        return SameBytes(expected, id.mac) ? KX_HEAD_OK : KX_HEAD_BAD_SIGNATURE;
    } catch (...) {
        // A check that could not be made is a refusal.
        return KX_HEAD_BAD_SIGNATURE;
    }
}

KXHeadCheck IWK_VerifyInkwellHead(const std::string& body, const KXHeaderGetter& header,
                                  const KXSecretLookup& lookup, long long nowMs, long long windowMs,
                                  std::string* authorization) {
    try {
        if (authorization != nullptr) authorization->clear();
        if (!header) return KX_HEAD_MISSING;
        const std::string claimedDigest = Trimmed(header(KX_HDR_CONTENT_SHA256));
        if (!IsLowerHex(claimedDigest, 2 * kMacBytes)) return KX_HEAD_MISSING;
        Identity id;
        KXHeadCheck check = ReadIdentity(header, lookup, nowMs, windowMs, id);
        if (check != KX_HEAD_OK) return check;
        const std::string carried = Trimmed(header(KX_HDR_AUTHORIZATION));
        const std::string expected = HmacSha256(
            id.secret, SignedTextOfBody(id.timestampText, id.nonce, claimedDigest, carried));
        if (!SameBytes(expected, id.mac)) return KX_HEAD_BAD_SIGNATURE;
        if (!SameBytes(IWK_CharToHex(Sha256(body)), claimedDigest)) return KX_HEAD_BAD_SIGNATURE;
        if (authorization != nullptr) *authorization = carried;
        return KX_HEAD_OK;
    } catch (...) {
        return KX_HEAD_BAD_SIGNATURE;
    }
}
