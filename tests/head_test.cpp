// Request heads: what the default scheme signs, that a head survives the trip
// to a server and verifies there, what each kind of tampering gives, the
// provider swap, and refusal of values that would inject header lines.
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>

#include <chrono>
#include <regex>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "KXUtils.h"
#include "LoopbackServer.h"
#include "TempEnv.h"

using kxtest::Headers;
using kxtest::LoopbackServer;
using kxtest::ParseHead;

namespace {

const std::string kProject = "proj-001";
const std::string kSecret = "s3cr3t-\xD6\xD0-key";
const long long kWindowMs = 5 * 60 * 1000;

long long NowMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

KXSecretLookup Lookup(const std::string& project = kProject, const std::string& secret = kSecret) {
    return [project, secret](const std::string& id, std::string& out) {
        if (id != project) return false;
        out = secret;
        return true;
    };
}

// Independent reference of the scheme, written from its description.
std::string RefMacB64(const std::string& key, const std::string& text) {
    unsigned char mac[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
         reinterpret_cast<const unsigned char*>(text.data()), text.size(), mac, &length);
    unsigned char b64[128];
    int n = EVP_EncodeBlock(b64, mac, static_cast<int>(length));
    return std::string(reinterpret_cast<char*>(b64), static_cast<size_t>(n));
}

std::string RefSha256Hex(const std::string& data) {
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(data.data()), data.size(), digest);
    std::string out;
    for (unsigned char c : digest) out += {"0123456789abcdef"[c >> 4], "0123456789abcdef"[c & 15]};
    return out;
}

// A pattern for a whole head: these lines in this order, CRLF between them
// and none at the end.
std::regex HeadPattern(std::initializer_list<std::pair<const char*, std::string>> lines) {
    std::string pattern;
    for (const auto& [name, value] : lines)
        pattern += (pattern.empty() ? "" : "\r\n") + std::string(name) + ": " + value;
    return std::regex(pattern);
}

// The reference signature of a head whose signed text is prefix, timestamp,
// "\n", nonce, suffix.
std::string RefSignature(const Headers& h, const std::string& prefix,
                         const std::string& suffix = "") {
    return RefMacB64(kSecret, prefix + kxtest::HeaderValue(h, KX_HDR_TIMESTAMP) + "\n" +
                                  kxtest::HeaderValue(h, KX_HDR_NONCE) + suffix);
}

// A getter for headers with one header replaced (removed when value is empty).
KXHeaderGetter Altered(Headers headers, const std::string& name, const std::string& value) {
    headers.erase(name);
    if (!value.empty()) headers.emplace(name, value);
    return kxtest::HeaderGetter(headers);
}

}  // namespace

TEST(SignatureHead, LayoutAndSignedText) {
    const long long before = NowMs();
    const std::string head = CIWKHttp::GetSignatureHead(
        HTTP_FUNC_POST, "https://h.example:8443/api/v1/x?b=2&a=\xD6\xD0#frag", "h.example",
        kProject, kSecret, {}, "application/json");
    const long long after = NowMs();
    ASSERT_TRUE(std::regex_match(head, HeadPattern({{KX_HDR_PROJECT_ID, kProject},
                                                    {KX_HDR_TIMESTAMP, "[0-9]+"},
                                                    {KX_HDR_NONCE, "[0-9a-f]{32}"},
                                                    {KX_HDR_SIGNATURE, "[A-Za-z0-9+/]+=*"},
                                                    {"Content-Type", "application/json"}})))
        << head;
    const Headers h = ParseHead(head);
    const long long ts = std::stoll(kxtest::HeaderValue(h, KX_HDR_TIMESTAMP));
    EXPECT_TRUE(before <= ts && ts <= after) << ts;
    // The fragment is never sent, so it is never signed; the host is not signed.
    EXPECT_EQ(RefSignature(h, "POST\n/api/v1/x?b=2&a=\xD6\xD0\n"),
              kxtest::HeaderValue(h, KX_HDR_SIGNATURE));

    // Two heads never share a nonce.
    const Headers again = ParseHead(
        CIWKHttp::GetSignatureHead(HTTP_FUNC_POST, "https://h/x", "h", kProject, kSecret, {}, ""));
    EXPECT_NE(kxtest::HeaderValue(h, KX_HDR_NONCE), kxtest::HeaderValue(again, KX_HDR_NONCE));
    EXPECT_EQ(0u, again.count("Content-Type"));

    // No path signs as "/"; a bare query gets the "/" the request line has.
    const std::vector<std::tuple<std::string, HTTPFuncType, std::string>> cases = {
        {"https://h.example:8443", HTTP_FUNC_GET, "GET\n/\n"},
        {"http://h?x=1", HTTP_FUNC_PUT, "PUT\n/?x=1\n"},
        {"https://user@h/a/../b?q=http://x#f", HTTP_FUNC_GET, "GET\n/a/../b?q=http://x\n"},
    };
    for (const auto& [url, func, text] : cases) {
        const Headers ch =
            ParseHead(CIWKHttp::GetSignatureHead(func, url, "", kProject, kSecret, {}, ""));
        EXPECT_EQ(RefSignature(ch, text), kxtest::HeaderValue(ch, KX_HDR_SIGNATURE)) << url;
    }

    // Extra lines follow as they are; an unknown verb gives no head.
    const std::string extra = CIWKHttp::GetSignatureHead(
        HTTP_FUNC_GET, "https://h/x", "h", kProject, kSecret, {"X-A: 1", "", "X-B: 2"}, "");
    EXPECT_EQ(0u, extra.rfind(KX_HDR_PROJECT_ID, 0));
    EXPECT_EQ(extra.size() - std::string("\r\nX-A: 1\r\nX-B: 2").size(),
              extra.find("\r\nX-A: 1\r\nX-B: 2"));
    EXPECT_EQ("", CIWKHttp::GetSignatureHead(static_cast<HTTPFuncType>(7), "https://h/x", "h",
                                             kProject, kSecret, {}, ""));
}

TEST(SignatureHead, VerifiesAtTheServerAndCatchesTampering) {
    TempEnv env;
    ASSERT_TRUE(env.set("KXUtils", "Proxy", ""));
    LoopbackServer server;
    // GBK bytes go out as they are, in the path and in the query alike, and
    // the server verifies against its raw target.
    const std::string url = server.url("/api/v1/\xD6\xD0/list?name=\xD6\xD0\xCE\xC4&page=1");
    KXReqResult result;
    ASSERT_EQ(0, CIWKHttp::Get(url, "",
                               CIWKHttp::GetSignatureHead(HTTP_FUNC_GET, url, "127.0.0.1", kProject,
                                                          kSecret, {}, ""),
                               &result, HTTP_REQ_PLAIN, nullptr));
    const kxtest::RecordedRequest get = server.lastRequest();
    EXPECT_EQ("/api/v1/\xD6\xD0/list?name=\xD6\xD0\xCE\xC4&page=1", get.target);
    const long long now = NowMs();
    auto verify = [&](const KXHeaderGetter& getter, const std::string& method = "GET",
                      const std::string& target = "", const KXSecretLookup& lookup = Lookup(),
                      long long at = 0) {
        return IWK_VerifySignatureHead(method, target.empty() ? get.target : target, getter, lookup,
                                       at ? at : now, kWindowMs);
    };
    EXPECT_EQ(KX_HEAD_OK, verify(get.getter()));

    // Tampering with any signed part.
    auto altered = [&](const std::string& name, const std::string& value) {
        return Altered(get.headers, name, value);
    };
    const std::string sig = get.header(KX_HDR_SIGNATURE);
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, verify(get.getter(), "POST"));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, verify(get.getter(), "GET", get.target + "0"));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, verify(get.getter(), "GET", "", Lookup(kProject, "other")));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE,
              verify(altered(KX_HDR_TIMESTAMP,
                             std::to_string(std::stoll(get.header(KX_HDR_TIMESTAMP)) + 1))));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, verify(altered(KX_HDR_NONCE, std::string(32, '0'))));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, verify(altered(KX_HDR_SIGNATURE, RefMacB64("k", "x"))));
    for (const char* name : {KX_HDR_PROJECT_ID, KX_HDR_TIMESTAMP, KX_HDR_NONCE, KX_HDR_SIGNATURE})
        EXPECT_EQ(KX_HEAD_MISSING, verify(altered(name, ""))) << name;
    EXPECT_EQ(KX_HEAD_MISSING, verify(altered(KX_HDR_TIMESTAMP, "12a")));
    EXPECT_EQ(KX_HEAD_MISSING, verify(altered(KX_HDR_SIGNATURE, sig + "AAAA")));
    EXPECT_EQ(KX_HEAD_MISSING, verify(KXHeaderGetter()));

    EXPECT_EQ(KX_HEAD_STALE, verify(get.getter(), "GET", "", Lookup(), now + kWindowMs + 60000));
    EXPECT_EQ(KX_HEAD_STALE, verify(get.getter(), "GET", "", Lookup(), now - kWindowMs - 60000));
    EXPECT_EQ(KX_HEAD_UNKNOWN_PROJECT, verify(get.getter(), "GET", "", Lookup("someone-else")));
    EXPECT_EQ(KX_HEAD_UNKNOWN_PROJECT, verify(get.getter(), "GET", "", KXSecretLookup()));

    // A lookup that throws is a refusal, not a crash.
    KXSecretLookup throwing = [](const std::string&, std::string&) -> bool {
        throw std::runtime_error("lookup failed");
    };
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, verify(get.getter(), "GET", "", throwing));
}

TEST(InkwellHead, CoversBodyAndAuthorization) {
    const std::string body = "{\"name\":\"\xD6\xD0\xCE\xC4\",\"n\":1}";
    const std::string head =
        CIWKHttp::GenInkwellHttpHead(kProject, kSecret, body, "Bearer abc.def");
    EXPECT_TRUE(std::regex_match(head, HeadPattern({{KX_HDR_PROJECT_ID, kProject},
                                                    {KX_HDR_TIMESTAMP, "[0-9]+"},
                                                    {KX_HDR_NONCE, "[0-9a-f]{32}"},
                                                    {KX_HDR_CONTENT_SHA256, "[0-9a-f]{64}"},
                                                    {KX_HDR_SIGNATURE, "[A-Za-z0-9+/]+=*"},
                                                    {KX_HDR_AUTHORIZATION, "Bearer abc\\.def"}})))
        << head;

    const Headers h = ParseHead(head);
    const KXHeaderGetter sent = kxtest::HeaderGetter(h);
    EXPECT_EQ(RefSha256Hex(body), kxtest::HeaderValue(h, KX_HDR_CONTENT_SHA256));
    EXPECT_EQ(RefSignature(h, "BODY\n", "\n" + RefSha256Hex(body) + "\nBearer abc.def"),
              kxtest::HeaderValue(h, KX_HDR_SIGNATURE));

    const long long now = NowMs();
    std::string authorization = "stale";
    auto verify = [&](const std::string& b, const KXHeaderGetter& getter,
                      const KXSecretLookup& lookup = Lookup(), long long at = 0) {
        return IWK_VerifyInkwellHead(b, getter, lookup, at ? at : now, kWindowMs, &authorization);
    };
    auto altered = [&](const std::string& name, const std::string& value) {
        return Altered(h, name, value);
    };
    EXPECT_EQ(KX_HEAD_OK, verify(body, sent));
    EXPECT_EQ("Bearer abc.def", authorization);
    EXPECT_EQ(KX_HEAD_OK, IWK_VerifyInkwellHead(body, sent, Lookup(), now, kWindowMs, nullptr));

    // A changed body, digest or authorization breaks it.
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, verify(body + " ", sent));
    EXPECT_EQ("", authorization);
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE,
              verify(body + " ", altered(KX_HDR_CONTENT_SHA256, RefSha256Hex(body + " "))));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, verify(body, altered(KX_HDR_AUTHORIZATION, "Bearer other")));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, verify(body, altered(KX_HDR_AUTHORIZATION, "")));
    EXPECT_EQ(KX_HEAD_MISSING, verify(body, altered(KX_HDR_CONTENT_SHA256, "")));
    EXPECT_EQ(KX_HEAD_STALE, verify(body, sent, Lookup(), now + 2 * kWindowMs));
    EXPECT_EQ(KX_HEAD_UNKNOWN_PROJECT, verify(body, sent, Lookup("x")));

    // Without authorization there is no such line, and none is reported.
    const Headers ph = ParseHead(CIWKHttp::GenInkwellHttpHead(kProject, kSecret, "", ""));
    EXPECT_EQ(0u, ph.count(KX_HDR_AUTHORIZATION));
    EXPECT_EQ("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855",
              kxtest::HeaderValue(ph, KX_HDR_CONTENT_SHA256));
    authorization = "stale";
    EXPECT_EQ(KX_HEAD_OK, verify("", kxtest::HeaderGetter(ph)));
    EXPECT_EQ("", authorization);
}

TEST(Heads, LineBreaksInValuesNeverInjectHeaders) {
    const std::vector<std::string> evil = {"x\r\nX-Evil: 1", "x\nX-Evil: 1", "x\rX-Evil: 1",
                                           std::string("x\0X-Evil: 1", 11)};
    auto sigHead = [](const std::string& project, const std::vector<std::string>& extra,
                      const std::string& contentType) {
        return CIWKHttp::GetSignatureHead(HTTP_FUNC_GET, "https://h/x", "h", project, kSecret,
                                          extra, contentType);
    };
    for (const std::string& e : evil) {
        // Every one of these heads must be refused (empty).
        EXPECT_EQ("", CIWKHttp::GetBIDHeadToken(e) + sigHead(e, {}, "") +
                          sigHead(kProject, {}, "application/json" + e) +
                          sigHead(kProject, {"X-A: " + e}, "") +
                          CIWKHttp::GenInkwellHttpHead(e, kSecret, "{}", "") +
                          CIWKHttp::GenInkwellHttpHead(kProject, kSecret, "{}", e));
    }
    // The secret and the body never reach a header line, so they may hold anything.
    EXPECT_NE("", CIWKHttp::GenInkwellHttpHead(kProject, "a\r\nb", "line1\r\nline2", ""));

    EXPECT_EQ(std::string(KX_HDR_TOKEN) + ": eyJ.a-b_c.d",
              CIWKHttp::GetBIDHeadToken("eyJ.a-b_c.d"));
    EXPECT_EQ("", CIWKHttp::GetBIDHeadToken(""));
}

namespace {

class FixedProvider : public IKXHeadProvider {
public:
    std::string SignatureHead(HTTPFuncType funcType, const std::string& url,
                              const std::string& host, const std::string& projectId,
                              const std::string&, const std::vector<std::string>& extra,
                              const std::string& contentType) override {
        return "X-Sig: " + std::to_string(funcType) + "|" + url + "|" + host + "|" + projectId +
               "|" + std::to_string(extra.size()) + "|" + contentType;
    }
    std::string BIDHeadToken(const std::string& token) override { return "X-Tok: " + token; }
    std::string InkwellHead(const std::string& projectId, const std::string&,
                            const std::string& body, const std::string& authorization) override {
        return "X-Ink: " + projectId + "|" + body + "|" + authorization;
    }
};

class ThrowingProvider : public FixedProvider {
public:
    std::string BIDHeadToken(const std::string&) override { throw std::runtime_error("no"); }
};

}  // namespace

TEST(Heads, ProviderCanBeReplacedAndRestored) {
    FixedProvider fixed;
    ThrowingProvider throwing;
    EXPECT_EQ(nullptr, IWK_SetHeadProvider(&fixed));
    EXPECT_EQ("X-Sig: 1|https://h/x|h|p|1|text/plain",
              CIWKHttp::GetSignatureHead(HTTP_FUNC_POST, "https://h/x", "h", "p", "s", {"e"},
                                         "text/plain"));
    EXPECT_EQ("X-Tok: t", CIWKHttp::GetBIDHeadToken("t"));
    EXPECT_EQ("X-Ink: p|b|a", CIWKHttp::GenInkwellHttpHead("p", "s", "b", "a"));

    EXPECT_EQ(&fixed, IWK_SetHeadProvider(&throwing));
    EXPECT_EQ("", CIWKHttp::GetBIDHeadToken("t"));  // contained, not thrown

    EXPECT_EQ(&throwing, IWK_SetHeadProvider(nullptr));
    EXPECT_EQ(std::string(KX_HDR_TOKEN) + ": t", CIWKHttp::GetBIDHeadToken("t"));
    EXPECT_EQ(nullptr, IWK_SetHeadProvider(nullptr));
}
