// Request heads: what the default scheme signs, that a head survives the trip
// to a server and verifies there, what each kind of tampering gives, the
// provider swap, and refusal of values that would inject header lines.
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <chrono>
#include <regex>
#include <stdexcept>
#include <string>
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
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(data.data(), data.size(), digest, &length, EVP_sha256(), nullptr);
    static const char kHex[] = "0123456789abcdef";
    std::string out;
    for (unsigned int i = 0; i < length; ++i) {
        out.push_back(kHex[digest[i] >> 4]);
        out.push_back(kHex[digest[i] & 15]);
    }
    return out;
}

std::vector<std::string> HeadNames(const std::string& head) {
    std::vector<std::string> names;
    size_t start = 0;
    while (start <= head.size()) {
        size_t end = head.find("\r\n", start);
        if (end == std::string::npos) end = head.size();
        std::string line = head.substr(start, end - start);
        names.push_back(line.substr(0, line.find(':')));
        start = end + 2;
    }
    return names;
}

}  // namespace

TEST(SignatureHead, LayoutAndSignedText) {
    const long long before = NowMs();
    const std::string head =
        CIWKHttp::GetSignatureHead(HTTP_FUNC_POST,
                                   "https://h.example:8443/api/v1/x?b=2&a="
                                   "\xD6\xD0"
                                   "#frag",
                                   "h.example", kProject, kSecret, {}, "application/json");
    const long long after = NowMs();

    // Lines in this order, CRLF between them and none at the end.
    EXPECT_EQ((std::vector<std::string>{KX_HDR_PROJECT_ID, KX_HDR_TIMESTAMP, KX_HDR_NONCE,
                                        KX_HDR_SIGNATURE, "Content-Type"}),
              HeadNames(head));
    EXPECT_NE("\r\n", head.substr(head.size() - 2));

    const Headers h = ParseHead(head);
    EXPECT_EQ(kProject, kxtest::HeaderValue(h, KX_HDR_PROJECT_ID));
    EXPECT_EQ("application/json", kxtest::HeaderValue(h, "Content-Type"));
    const std::string ts = kxtest::HeaderValue(h, KX_HDR_TIMESTAMP);
    const std::string nonce = kxtest::HeaderValue(h, KX_HDR_NONCE);
    ASSERT_TRUE(std::regex_match(ts, std::regex("[0-9]+")));
    EXPECT_GE(std::stoll(ts), before);
    EXPECT_LE(std::stoll(ts), after);
    EXPECT_TRUE(std::regex_match(nonce, std::regex("[0-9a-f]{32}")));
    // The fragment is never sent, so it is never signed; the host is not signed.
    EXPECT_EQ(RefMacB64(kSecret, "POST\n/api/v1/x?b=2&a=\xD6\xD0\n" + ts + "\n" + nonce),
              kxtest::HeaderValue(h, KX_HDR_SIGNATURE));

    // Two heads never share a nonce.
    const std::string again =
        CIWKHttp::GetSignatureHead(HTTP_FUNC_POST, "https://h/x", "h", kProject, kSecret, {}, "");
    EXPECT_NE(nonce, kxtest::HeaderValue(ParseHead(again), KX_HDR_NONCE));
    EXPECT_EQ(0u, ParseHead(again).count("Content-Type"));

    // No path signs as "/"; a bare query gets the "/" the request line has.
    struct Case {
        std::string url;
        HTTPFuncType func;
        std::string signedText;
    };
    const std::vector<Case> cases = {
        {"https://h.example:8443", HTTP_FUNC_GET, "GET\n/\n"},
        {"http://h?x=1", HTTP_FUNC_PUT, "PUT\n/?x=1\n"},
        {"https://user@h/a/../b?q=http://x#f", HTTP_FUNC_GET, "GET\n/a/../b?q=http://x\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.url);
        const Headers ch =
            ParseHead(CIWKHttp::GetSignatureHead(c.func, c.url, "", kProject, kSecret, {}, ""));
        EXPECT_EQ(RefMacB64(kSecret, c.signedText + kxtest::HeaderValue(ch, KX_HDR_TIMESTAMP) +
                                         "\n" + kxtest::HeaderValue(ch, KX_HDR_NONCE)),
                  kxtest::HeaderValue(ch, KX_HDR_SIGNATURE));
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
    // GBK bytes in the path go out percent-encoded, in the query as they are:
    // the signature must cover what the server sees.
    const std::string url = server.url("/api/v1/\xD6\xD0/list?name=\xD6\xD0\xCE\xC4&page=1");
    KXReqResult result;

    const std::string getHead =
        CIWKHttp::GetSignatureHead(HTTP_FUNC_GET, url, "127.0.0.1", kProject, kSecret, {}, "");
    ASSERT_EQ(0, CIWKHttp::Get(url, "", getHead, &result, HTTP_REQ_PLAIN, nullptr));
    const kxtest::RecordedRequest get = server.lastRequest();
    EXPECT_EQ("/api/v1/%d6%d0/list?name=\xD6\xD0\xCE\xC4&page=1", get.target);
    const long long now = NowMs();
    EXPECT_EQ(KX_HEAD_OK,
              IWK_VerifySignatureHead("GET", get.target, get.getter(), Lookup(), now, kWindowMs));

    const std::string putHead = CIWKHttp::GetSignatureHead(
        HTTP_FUNC_PUT, url, "127.0.0.1", kProject, kSecret, {}, "application/json");
    ASSERT_EQ(0, CIWKHttp::Put(url, "{}", putHead, &result, HTTP_CONTENT_JSON, HTTP_REQ_PUT,
                               nullptr, nullptr, nullptr));
    const kxtest::RecordedRequest put = server.lastRequest();
    EXPECT_EQ(1u, put.headerCount("Content-Type"));
    EXPECT_EQ(KX_HEAD_OK, IWK_VerifySignatureHead(put.method, put.target, put.getter(), Lookup(),
                                                  now, kWindowMs));

    // Tampering with any signed part.
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE,
              IWK_VerifySignatureHead("POST", get.target, get.getter(), Lookup(), now, kWindowMs));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, IWK_VerifySignatureHead("GET", get.target + "0", get.getter(),
                                                             Lookup(), now, kWindowMs));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE,
              IWK_VerifySignatureHead("GET", get.target, get.getter(), Lookup(kProject, "other"),
                                      now, kWindowMs));
    auto altered = [&](const std::string& name, const std::string& value) {
        Headers h = get.headers;
        h.erase(name);
        if (!value.empty()) h.emplace(name, value);
        return kxtest::HeaderGetter(h);
    };
    const std::string ts = get.header(KX_HDR_TIMESTAMP);
    const std::string nonce = get.header(KX_HDR_NONCE);
    const std::string sig = get.header(KX_HDR_SIGNATURE);
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE,
              IWK_VerifySignatureHead("GET", get.target,
                                      altered(KX_HDR_TIMESTAMP, std::to_string(std::stoll(ts) + 1)),
                                      Lookup(), now, kWindowMs));
    std::string otherNonce = nonce;
    otherNonce[0] = otherNonce[0] == 'a' ? 'b' : 'a';
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE,
              IWK_VerifySignatureHead("GET", get.target, altered(KX_HDR_NONCE, otherNonce),
                                      Lookup(), now, kWindowMs));
    std::string otherSig = sig;
    otherSig[0] = otherSig[0] == 'A' ? 'B' : 'A';
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE,
              IWK_VerifySignatureHead("GET", get.target, altered(KX_HDR_SIGNATURE, otherSig),
                                      Lookup(), now, kWindowMs));

    // Time window, unknown project, missing or malformed headers.
    EXPECT_EQ(KX_HEAD_STALE, IWK_VerifySignatureHead("GET", get.target, get.getter(), Lookup(),
                                                     now + kWindowMs + 60000, kWindowMs));
    EXPECT_EQ(KX_HEAD_STALE, IWK_VerifySignatureHead("GET", get.target, get.getter(), Lookup(),
                                                     now - kWindowMs - 60000, kWindowMs));
    EXPECT_EQ(KX_HEAD_UNKNOWN_PROJECT,
              IWK_VerifySignatureHead("GET", get.target, get.getter(), Lookup("someone-else"), now,
                                      kWindowMs));
    EXPECT_EQ(KX_HEAD_UNKNOWN_PROJECT, IWK_VerifySignatureHead("GET", get.target, get.getter(),
                                                               KXSecretLookup(), now, kWindowMs));
    for (const char* name : {KX_HDR_PROJECT_ID, KX_HDR_TIMESTAMP, KX_HDR_NONCE, KX_HDR_SIGNATURE}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(KX_HEAD_MISSING, IWK_VerifySignatureHead("GET", get.target, altered(name, ""),
                                                           Lookup(), now, kWindowMs));
    }
    EXPECT_EQ(KX_HEAD_MISSING,
              IWK_VerifySignatureHead("GET", get.target, altered(KX_HDR_TIMESTAMP, "12a"), Lookup(),
                                      now, kWindowMs));
    EXPECT_EQ(KX_HEAD_MISSING,
              IWK_VerifySignatureHead("GET", get.target, altered(KX_HDR_SIGNATURE, sig + "AAAA"),
                                      Lookup(), now, kWindowMs));
    EXPECT_EQ(KX_HEAD_MISSING, IWK_VerifySignatureHead("GET", get.target, KXHeaderGetter(),
                                                       Lookup(), now, kWindowMs));

    // A lookup that throws is a refusal, not a crash.
    KXSecretLookup throwing = [](const std::string&, std::string&) -> bool {
        throw std::runtime_error("lookup failed");
    };
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE,
              IWK_VerifySignatureHead("GET", get.target, get.getter(), throwing, now, kWindowMs));
}

TEST(InkwellHead, CoversBodyAndAuthorization) {
    TempEnv env;
    ASSERT_TRUE(env.set("KXUtils", "Proxy", ""));
    LoopbackServer server;
    const std::string body = "{\"name\":\"\xD6\xD0\xCE\xC4\",\"n\":1}";
    const std::string head =
        CIWKHttp::GenInkwellHttpHead(kProject, kSecret, body, "Bearer abc.def");
    EXPECT_EQ(
        (std::vector<std::string>{KX_HDR_PROJECT_ID, KX_HDR_TIMESTAMP, KX_HDR_NONCE,
                                  KX_HDR_CONTENT_SHA256, KX_HDR_SIGNATURE, KX_HDR_AUTHORIZATION}),
        HeadNames(head));

    KXReqResult result;
    ASSERT_EQ(0, CIWKHttp::Post(server.url("/inkwell"), body, head, &result, HTTP_CONTENT_JSON,
                                HTTP_REQ_PLAIN, nullptr, nullptr, nullptr));
    const kxtest::RecordedRequest req = server.lastRequest();
    const std::string ts = req.header(KX_HDR_TIMESTAMP);
    const std::string nonce = req.header(KX_HDR_NONCE);
    EXPECT_EQ(RefSha256Hex(body), req.header(KX_HDR_CONTENT_SHA256));
    EXPECT_EQ(RefMacB64(kSecret, "BODY\n" + ts + "\n" + nonce + "\n" + RefSha256Hex(body) +
                                     "\nBearer abc.def"),
              req.header(KX_HDR_SIGNATURE));

    const long long now = NowMs();
    std::string authorization = "stale";
    EXPECT_EQ(KX_HEAD_OK, IWK_VerifyInkwellHead(req.body, req.getter(), Lookup(), now, kWindowMs,
                                                &authorization));
    EXPECT_EQ("Bearer abc.def", authorization);
    EXPECT_EQ(KX_HEAD_OK,
              IWK_VerifyInkwellHead(req.body, req.getter(), Lookup(), now, kWindowMs, nullptr));

    // A changed body, digest or authorization breaks it.
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, IWK_VerifyInkwellHead(req.body + " ", req.getter(), Lookup(),
                                                           now, kWindowMs, &authorization));
    EXPECT_EQ("", authorization);
    auto altered = [&](const std::string& name, const std::string& value) {
        Headers h = req.headers;
        h.erase(name);
        if (!value.empty()) h.emplace(name, value);
        return kxtest::HeaderGetter(h);
    };
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE,
              IWK_VerifyInkwellHead(req.body + " ",
                                    altered(KX_HDR_CONTENT_SHA256, RefSha256Hex(req.body + " ")),
                                    Lookup(), now, kWindowMs, nullptr));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE,
              IWK_VerifyInkwellHead(req.body, altered(KX_HDR_AUTHORIZATION, "Bearer other"),
                                    Lookup(), now, kWindowMs, nullptr));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE,
              IWK_VerifyInkwellHead(req.body, altered(KX_HDR_AUTHORIZATION, ""), Lookup(), now,
                                    kWindowMs, nullptr));
    EXPECT_EQ(KX_HEAD_MISSING, IWK_VerifyInkwellHead(req.body, altered(KX_HDR_CONTENT_SHA256, ""),
                                                     Lookup(), now, kWindowMs, nullptr));
    EXPECT_EQ(KX_HEAD_STALE, IWK_VerifyInkwellHead(req.body, req.getter(), Lookup(),
                                                   now + 2 * kWindowMs, kWindowMs, nullptr));
    EXPECT_EQ(KX_HEAD_UNKNOWN_PROJECT,
              IWK_VerifyInkwellHead(req.body, req.getter(), Lookup("x"), now, kWindowMs, nullptr));

    // Without authorization there is no such line, and none is reported.
    const std::string plain = CIWKHttp::GenInkwellHttpHead(kProject, kSecret, "", "");
    const Headers ph = ParseHead(plain);
    EXPECT_EQ(0u, ph.count(KX_HDR_AUTHORIZATION));
    EXPECT_EQ("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855",
              kxtest::HeaderValue(ph, KX_HDR_CONTENT_SHA256));
    authorization = "stale";
    EXPECT_EQ(KX_HEAD_OK, IWK_VerifyInkwellHead("", kxtest::HeaderGetter(ph), Lookup(), NowMs(),
                                                kWindowMs, &authorization));
    EXPECT_EQ("", authorization);
}

TEST(Heads, LineBreaksInValuesNeverInjectHeaders) {
    const std::vector<std::string> evil = {"x\r\nX-Evil: 1", "x\nX-Evil: 1", "x\rX-Evil: 1",
                                           std::string("x\0X-Evil: 1", 11)};
    for (const std::string& e : evil) {
        EXPECT_EQ("", CIWKHttp::GetBIDHeadToken(e));
        EXPECT_EQ(
            "", CIWKHttp::GetSignatureHead(HTTP_FUNC_GET, "https://h/x", "h", e, kSecret, {}, ""));
        EXPECT_EQ("", CIWKHttp::GetSignatureHead(HTTP_FUNC_GET, "https://h/x", "h", kProject,
                                                 kSecret, {}, "application/json" + e));
        EXPECT_EQ("", CIWKHttp::GetSignatureHead(HTTP_FUNC_GET, "https://h/x", "h", kProject,
                                                 kSecret, {"X-A: " + e}, ""));
        EXPECT_EQ("", CIWKHttp::GenInkwellHttpHead(e, kSecret, "{}", ""));
        EXPECT_EQ("", CIWKHttp::GenInkwellHttpHead(kProject, kSecret, "{}", e));
    }
    // The secret and the body never reach a header line, so they may hold anything.
    EXPECT_NE("", CIWKHttp::GenInkwellHttpHead(kProject, "a\r\nb", "line1\r\nline2", ""));

    EXPECT_EQ(std::string(KX_HDR_TOKEN) + ": eyJ.a-b_c.d",
              CIWKHttp::GetBIDHeadToken("eyJ.a-b_c.d"));
    EXPECT_EQ("", CIWKHttp::GetBIDHeadToken(""));

    // On the wire: a refused head sends no header at all.
    TempEnv env;
    ASSERT_TRUE(env.set("KXUtils", "Proxy", ""));
    LoopbackServer server;
    KXReqResult result;
    ASSERT_EQ(0, CIWKHttp::Get(server.url("/t"), "", CIWKHttp::GetBIDHeadToken(evil[0]), &result,
                               HTTP_REQ_PLAIN, nullptr));
    EXPECT_EQ(0u, server.lastRequest().headerCount("X-Evil"));
    EXPECT_EQ(0u, server.lastRequest().headerCount(KX_HDR_TOKEN));
    ASSERT_EQ(0, CIWKHttp::Get(server.url("/t"), "", CIWKHttp::GetBIDHeadToken("tok-1"), &result,
                               HTTP_REQ_PLAIN, nullptr));
    EXPECT_EQ("tok-1", server.lastRequest().header(KX_HDR_TOKEN));
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
