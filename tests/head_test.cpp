// Request heads: what the default scheme signs, what its verifiers accept and
// what each kind of tampering gives, the provider swap, and refusal of values
// that would inject header lines. (Targets as they arrive: http_test.cpp.)
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>

#include <regex>
#include <stdexcept>
#include <tuple>

#include "KXUtils.h"
#include "LoopbackServer.h"

using kxtest::Headers;
using kxtest::HeaderValue;
using kxtest::ParseHead;

namespace {

const std::string kProject = "proj-001";
const std::string kSecret = "s3cr3t-\xD6\xD0-key";
const long long kWindowMs = 5 * 60 * 1000;
const std::string kBase64 = "[A-Za-z0-9+/]+=*";

KXSecretLookup Lookup(const std::string& project = kProject, const std::string& secret = kSecret) {
    return [project, secret](const std::string& id, std::string& out) {
        if (id == project) out = secret;
        return id == project;
    };
}

// A signature head of the test project (the host plays no part).
std::string SigHead(HTTPFuncType func, const std::string& url,
                    const std::vector<std::string>& extra = {}, const std::string& contentType = "",
                    const std::string& project = kProject) {
    return CIWKHttp::GetSignatureHead(func, url, "h", project, kSecret, extra, contentType);
}

// Independent reference of the scheme, written from its description.
std::string RefMacB64(const std::string& key, const std::string& text) {
    unsigned char mac[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
         reinterpret_cast<const unsigned char*>(text.data()), text.size(), mac, &length);
    return IWK_Base64Encode(std::string(reinterpret_cast<char*>(mac), length));
}

std::string RefSha256Hex(const std::string& data) {
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(data.data()), data.size(), digest);
    return IWK_CharToHex(std::string(reinterpret_cast<char*>(digest), sizeof digest));
}

// A pattern for a whole head: the project, timestamp and nonce lines, then
// these, in this order, CRLF between them and none at the end.
std::regex HeadPattern(std::initializer_list<std::pair<const char*, std::string>> rest) {
    std::string pattern = std::string(KX_HDR_PROJECT_ID) + ": " + kProject +
                          "\r\n" KX_HDR_TIMESTAMP ": [0-9]+\r\n" KX_HDR_NONCE ": [0-9a-f]{32}";
    for (const auto& [name, value] : rest) pattern += "\r\n" + std::string(name) + ": " + value;
    return std::regex(pattern);
}

// The reference signature of a head whose signed text is prefix, timestamp,
// "\n", nonce, suffix.
std::string RefSignature(const Headers& h, const std::string& prefix,
                         const std::string& suffix = "") {
    return RefMacB64(kSecret, prefix + HeaderValue(h, KX_HDR_TIMESTAMP) + "\n" +
                                  HeaderValue(h, KX_HDR_NONCE) + suffix);
}

// A getter for headers with one header replaced (removed when value is empty).
KXHeaderGetter Altered(Headers headers, const std::string& name, const std::string& value) {
    headers.erase(name);
    if (!value.empty()) headers.emplace(name, value);
    return kxtest::HeaderGetter(headers);
}

// A provider that shows what it was given; its token call can throw.
class FixedProvider : public IKXHeadProvider {
public:
    std::string SignatureHead(HTTPFuncType funcType, const std::string& url,
                              const std::string& host, const std::string& projectId,
                              const std::string&, const std::vector<std::string>& extra,
                              const std::string& contentType) override {
        return "X-Sig: " + std::to_string(funcType) + "|" + url + "|" + host + "|" + projectId +
               "|" + std::to_string(extra.size()) + "|" + contentType;
    }
    std::string BIDHeadToken(const std::string& token) override {
        if (throws) throw std::runtime_error("no");
        return "X-Tok: " + token;
    }
    std::string InkwellHead(const std::string& projectId, const std::string&,
                            const std::string& body, const std::string& authorization) override {
        return "X-Ink: " + projectId + "|" + body + "|" + authorization;
    }
    bool throws = false;
};

}  // namespace

TEST(SignatureHead, LayoutAndSignedText) {
    const std::string head = SigHead(
        HTTP_FUNC_POST, "https://h.example:8443/api/\xD6\xD0/x?b=2&a=\xD6\xD0#frag", {}, "text/x");
    ASSERT_TRUE(std::regex_match(
        head, HeadPattern({{KX_HDR_SIGNATURE, kBase64}, {"Content-Type", "text/x"}})))
        << head;
    const Headers h = ParseHead(head);
    // The bytes of path and query as given; neither fragment nor host.
    EXPECT_EQ(RefSignature(h, "POST\n/api/\xD6\xD0/x?b=2&a=\xD6\xD0\n"),
              HeaderValue(h, KX_HDR_SIGNATURE));

    // Extra lines follow as they are; no Content-Type line when none is given.
    // Two heads never share a nonce.
    const std::string extra = SigHead(HTTP_FUNC_POST, "https://h/x", {"X-A: 1", "", "X-B: 2"});
    EXPECT_TRUE(std::regex_match(
        extra, HeadPattern({{KX_HDR_SIGNATURE, kBase64}, {"X-A", "1"}, {"X-B", "2"}})))
        << extra;
    EXPECT_NE(HeaderValue(h, KX_HDR_NONCE), HeaderValue(ParseHead(extra), KX_HDR_NONCE));

    // No path signs as "/"; a bare query gets the "/" the request line has.
    const std::vector<std::tuple<std::string, HTTPFuncType, std::string>> cases = {
        {"https://h.example:8443", HTTP_FUNC_GET, "GET\n/\n"},
        {"http://h?x=1", HTTP_FUNC_PUT, "PUT\n/?x=1\n"},
        {"https://user@h/a/../b?q=http://x#f", HTTP_FUNC_GET, "GET\n/a/../b?q=http://x\n"},
    };
    for (const auto& [url, func, text] : cases) {
        const Headers ch = ParseHead(SigHead(func, url));
        EXPECT_EQ(RefSignature(ch, text), HeaderValue(ch, KX_HDR_SIGNATURE)) << url;
    }
    EXPECT_EQ("", SigHead(static_cast<HTTPFuncType>(7), "https://h/x"));  // no such verb
}

TEST(SignatureHead, VerifierCatchesTampering) {
    // A server verifies against its raw target, or the absolute form a proxy gets.
    const std::string target = "/api/v1/\xD6\xD0/list?name=\xD6\xD0\xCE\xC4&page=1";
    const Headers sent = ParseHead(SigHead(HTTP_FUNC_GET, "http://127.0.0.1:8080" + target));
    const long long now = IWK_GetCurTime();
    auto verify = [&](const KXHeaderGetter& getter, const std::string& method = "GET",
                      const std::string& at = "", const KXSecretLookup& lookup = Lookup(),
                      long long when = 0) {
        return IWK_VerifySignatureHead(method, at.empty() ? target : at, getter, lookup,
                                       when ? when : now, kWindowMs);
    };
    auto altered = [&](const std::string& name, const std::string& value) {
        return verify(Altered(sent, name, value));
    };
    const KXHeaderGetter getter = kxtest::HeaderGetter(sent);
    EXPECT_EQ(KX_HEAD_OK, verify(getter));
    EXPECT_EQ(KX_HEAD_OK, verify(getter, "GET", "http://kx-proxied.test:8080" + target));

    // Tampering with any signed part.
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, verify(getter, "POST"));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, verify(getter, "GET", target + "0"));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, verify(getter, "GET", "", Lookup(kProject, "other")));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE,
              altered(KX_HDR_TIMESTAMP,
                      std::to_string(std::stoll(HeaderValue(sent, KX_HDR_TIMESTAMP)) + 1)));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, altered(KX_HDR_NONCE, std::string(32, '0')));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, altered(KX_HDR_SIGNATURE, RefMacB64("k", "x")));
    for (const char* name : {KX_HDR_PROJECT_ID, KX_HDR_TIMESTAMP, KX_HDR_NONCE, KX_HDR_SIGNATURE})
        EXPECT_EQ(KX_HEAD_MISSING, altered(name, "")) << name;
    EXPECT_EQ(KX_HEAD_MISSING, altered(KX_HDR_TIMESTAMP, "12a"));
    EXPECT_EQ(KX_HEAD_MISSING,
              altered(KX_HDR_SIGNATURE, HeaderValue(sent, KX_HDR_SIGNATURE) + "AAAA"));
    EXPECT_EQ(KX_HEAD_MISSING, verify(KXHeaderGetter()));

    EXPECT_EQ(KX_HEAD_STALE, verify(getter, "GET", "", Lookup(), now + kWindowMs + 60000));
    EXPECT_EQ(KX_HEAD_STALE, verify(getter, "GET", "", Lookup(), now - kWindowMs - 60000));
    EXPECT_EQ(KX_HEAD_UNKNOWN_PROJECT, verify(getter, "GET", "", Lookup("someone-else")));
    EXPECT_EQ(KX_HEAD_UNKNOWN_PROJECT, verify(getter, "GET", "", KXSecretLookup()));

    // A lookup that throws is a refusal, not a crash.
    KXSecretLookup throwing = [](const std::string&, std::string&) -> bool {
        throw std::runtime_error("lookup failed");
    };
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, verify(getter, "GET", "", throwing));
}

TEST(InkwellHead, CoversBodyAndAuthorization) {
    const std::string body = "{\"name\":\"\xD6\xD0\xCE\xC4\",\"n\":1}";
    const std::string head =
        CIWKHttp::GenInkwellHttpHead(kProject, kSecret, body, "Bearer abc.def");
    EXPECT_TRUE(std::regex_match(head, HeadPattern({{KX_HDR_CONTENT_SHA256, RefSha256Hex(body)},
                                                    {KX_HDR_SIGNATURE, kBase64},
                                                    {KX_HDR_AUTHORIZATION, "Bearer abc\\.def"}})))
        << head;
    const Headers h = ParseHead(head);
    EXPECT_EQ(RefSignature(h, "BODY\n", "\n" + RefSha256Hex(body) + "\nBearer abc.def"),
              HeaderValue(h, KX_HDR_SIGNATURE));

    const long long now = IWK_GetCurTime();
    std::string authorization = "stale";
    auto verify = [&](const std::string& b, const KXHeaderGetter& getter,
                      const KXSecretLookup& lookup = Lookup(), long long at = 0) {
        return IWK_VerifyInkwellHead(b, getter, lookup, at ? at : now, kWindowMs, &authorization);
    };
    const KXHeaderGetter sent = kxtest::HeaderGetter(h);
    EXPECT_EQ(KX_HEAD_OK, verify(body, sent));
    EXPECT_EQ("Bearer abc.def", authorization);
    EXPECT_EQ(KX_HEAD_OK, IWK_VerifyInkwellHead(body, sent, Lookup(), now, kWindowMs, nullptr));

    // A changed body, digest or authorization breaks it.
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, verify(body + " ", sent));
    EXPECT_EQ("", authorization);
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE,
              verify(body + " ", Altered(h, KX_HDR_CONTENT_SHA256, RefSha256Hex(body + " "))));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE,
              verify(body, Altered(h, KX_HDR_AUTHORIZATION, "Bearer other")));
    EXPECT_EQ(KX_HEAD_BAD_SIGNATURE, verify(body, Altered(h, KX_HDR_AUTHORIZATION, "")));
    EXPECT_EQ(KX_HEAD_MISSING, verify(body, Altered(h, KX_HDR_CONTENT_SHA256, "")));
    EXPECT_EQ(KX_HEAD_STALE, verify(body, sent, Lookup(), now + 2 * kWindowMs));
    EXPECT_EQ(KX_HEAD_UNKNOWN_PROJECT, verify(body, sent, Lookup("x")));

    // Without authorization there is no such line, and none is reported.
    const std::string plain = CIWKHttp::GenInkwellHttpHead(kProject, kSecret, "", "");
    EXPECT_TRUE(std::regex_match(plain, HeadPattern({{KX_HDR_CONTENT_SHA256, RefSha256Hex("")},
                                                     {KX_HDR_SIGNATURE, kBase64}})))
        << plain;
    authorization = "stale";
    EXPECT_EQ(KX_HEAD_OK, verify("", kxtest::HeaderGetter(ParseHead(plain))));
    EXPECT_EQ("", authorization);
}

TEST(Heads, LineBreaksInValuesNeverInjectHeaders) {
    for (const std::string& e : {std::string("x\r\nX-Evil: 1"), std::string("x\nX-Evil: 1"),
                                 std::string("x\rX-Evil: 1"), std::string("x\0X-Evil: 1", 11)}) {
        // Every one of these heads must be refused (empty).
        EXPECT_EQ("", CIWKHttp::GetBIDHeadToken(e) +
                          SigHead(HTTP_FUNC_GET, "https://h/x", {}, "", e) +
                          SigHead(HTTP_FUNC_GET, "https://h/x", {}, "application/json" + e) +
                          SigHead(HTTP_FUNC_GET, "https://h/x", {"X-A: " + e}) +
                          CIWKHttp::GenInkwellHttpHead(e, kSecret, "{}", "") +
                          CIWKHttp::GenInkwellHttpHead(kProject, kSecret, "{}", e));
    }
    // The secret and the body never reach a header line, so they may hold anything.
    EXPECT_NE("", CIWKHttp::GenInkwellHttpHead(kProject, "a\r\nb", "line1\r\nline2", ""));
    EXPECT_EQ("", CIWKHttp::GetBIDHeadToken(""));
}

TEST(Heads, ProviderCanBeReplacedAndRestored) {
    FixedProvider fixed;
    EXPECT_EQ(nullptr, IWK_SetHeadProvider(&fixed));
    EXPECT_EQ("X-Sig: 1|https://h/x|h|p|1|text/plain",
              CIWKHttp::GetSignatureHead(HTTP_FUNC_POST, "https://h/x", "h", "p", "s", {"e"},
                                         "text/plain"));
    EXPECT_EQ("X-Tok: t", CIWKHttp::GetBIDHeadToken("t"));
    EXPECT_EQ("X-Ink: p|b|a", CIWKHttp::GenInkwellHttpHead("p", "s", "b", "a"));
    fixed.throws = true;
    EXPECT_EQ("", CIWKHttp::GetBIDHeadToken("t"));  // contained, not thrown

    // The default scheme again: a token goes out as it is.
    EXPECT_EQ(&fixed, IWK_SetHeadProvider(nullptr));
    EXPECT_EQ(std::string(KX_HDR_TOKEN) + ": eyJ.a-b_c.d",
              CIWKHttp::GetBIDHeadToken("eyJ.a-b_c.d"));
    EXPECT_EQ(nullptr, IWK_SetHeadProvider(nullptr));
}
