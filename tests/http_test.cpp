// The HTTP transport against real loopback servers: bytes on the wire, result
// codes per outcome, connection reuse, TLS trust, and transport failures.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "KXUtils.h"
#include "LoopbackServer.h"
#include "TempEnv.h"
#include "TestCA.h"

using kxtest::LoopbackServer;
using kxtest::Reply;
using kxtest::TestCA;

namespace {

const std::string kGbk = "\xD6\xD0\xCE\xC4";  // two GBK characters

// Every test has its own store; an empty Proxy keeps curl from taking a
// proxy out of the environment, so nothing leaves the machine.
class HttpTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(env.set("KXUtils", "Proxy", "")); }

    int get(const std::string& url, const std::string& head = "",
            HTTPRequestType type = HTTP_REQ_PLAIN) {
        return CIWKHttp::Get(url, "", head, &result, type, nullptr);
    }
    int post(const std::string& url, const std::string& body, const std::string& head = "",
             HTTPContentType ct = HTTP_CONTENT_JSON) {
        return CIWKHttp::Post(url, body, head, &result, ct, HTTP_REQ_PLAIN, nullptr, nullptr,
                              nullptr);
    }
    int put(const std::string& url, const std::string& body, const std::string& head = "",
            HTTPContentType ct = HTTP_CONTENT_JSON) {
        return CIWKHttp::Put(url, body, head, &result, ct, HTTP_REQ_PUT, nullptr, nullptr, nullptr);
    }

    TempEnv env;
    KXReqResult result;
};

// A port on 127.0.0.1 that nothing listens on.
int ClosedPort() {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = 0;
    ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    socklen_t length = sizeof addr;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &length);
    ::close(fd);
    return ntohs(addr.sin_port);
}

// Answers one connection with fixed bytes, whatever they are, then closes:
// for replies no HTTP server library would send.
class RawServer {
public:
    explicit RawServer(std::string reply) : reply_(std::move(reply)) {
        listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(listener_, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
        socklen_t length = sizeof addr;
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&addr), &length);
        port_ = ntohs(addr.sin_port);
        ::listen(listener_, 1);
        thread_ = std::thread([this] { serveOne(); });
    }
    ~RawServer() {
        ::shutdown(listener_, SHUT_RDWR);
        thread_.join();
        ::close(listener_);
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/raw"; }

private:
    void serveOne() {
        int fd = ::accept(listener_, nullptr, nullptr);
        if (fd < 0) return;
        std::string request;
        char buffer[4096];
        while (request.find("\r\n\r\n") == std::string::npos) {
            ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
            if (n <= 0) break;
            request.append(buffer, static_cast<size_t>(n));
        }
        size_t sent = 0;
        while (sent < reply_.size()) {
            ssize_t n = ::send(fd, reply_.data() + sent, reply_.size() - sent, MSG_NOSIGNAL);
            if (n <= 0) break;
            sent += static_cast<size_t>(n);
        }
        ::shutdown(fd, SHUT_RDWR);
        ::close(fd);
    }

    std::string reply_;
    int listener_ = -1;
    int port_ = 0;
    std::thread thread_;
};

}  // namespace

TEST_F(HttpTest, GetSendsTargetAndHeadLinesUnchanged) {
    LoopbackServer server;
    server.setDefaultReply(Reply(200, "{\"code\":0,\"t\":\"" + kGbk + "\"}", "application/json"));
    // Query values unencoded, a GBK value, escapes and dot segments: all as typed.
    const std::string target = "/a/../b/./c?name=" + kGbk + "&p=/x:y@z&enc=%41%2f&e=&l=a,b;c*";
    const std::string head = "X-One: 1\r\nX-Two: two words\n\r\n\r\nX-Three:3";

    ASSERT_EQ(0, get(server.url(target), head));
    EXPECT_EQ(0, result.errCode);
    EXPECT_EQ("{\"code\":0,\"t\":\"" + kGbk + "\"}", result.msg);
    EXPECT_EQ(result.msg, result.strBody);
    EXPECT_EQ("HTTP/1.1 200 OK", result.strExtra);

    ASSERT_EQ(1u, server.requestCount());
    const kxtest::RecordedRequest req = server.lastRequest();
    EXPECT_EQ("GET", req.method);
    EXPECT_EQ(target, req.target);
    EXPECT_EQ("1", req.header("X-One"));
    EXPECT_EQ("two words", req.header("x-two"));
    EXPECT_EQ("3", req.header("X-Three"));
    EXPECT_EQ(0u, req.headerCount("Expect"));
    EXPECT_EQ(0u, req.headerCount("Content-Type"));
    EXPECT_TRUE(req.body.empty());

    // strBody is for GETs of type 1 only; a reused record keeps nothing old.
    ASSERT_EQ(0, get(server.url("/p"), "", HTTP_REQ_PUT));
    EXPECT_TRUE(result.strBody.empty());
}

TEST_F(HttpTest, PostAndPutSendBodyBytesUnchanged) {
    LoopbackServer server;
    std::string body = "{\"name\":\"" + kGbk + "\",\"bin\":\"";
    body.push_back('\0');
    body += "\xFF\x80\x01\"}";

    ASSERT_EQ(0, post(server.url("/post?x=1"), body));
    kxtest::RecordedRequest req = server.lastRequest();
    EXPECT_EQ("POST", req.method);
    EXPECT_EQ("/post?x=1", req.target);
    EXPECT_EQ(body, req.body);
    EXPECT_EQ(std::to_string(body.size()), req.header("Content-Length"));
    EXPECT_EQ("application/json", req.header("Content-Type"));
    EXPECT_EQ(1u, req.headerCount("Content-Type"));
    EXPECT_TRUE(result.strBody.empty());

    ASSERT_EQ(0, put(server.url("/put"), body, "", HTTP_CONTENT_FORM));
    req = server.lastRequest();
    EXPECT_EQ("PUT", req.method);
    EXPECT_EQ(body, req.body);
    EXPECT_EQ("application/x-www-form-urlencoded", req.header("Content-Type"));

    // A Content-Type of the head replaces the default one; curl would add
    // "Expect: 100-continue" to a body this large unless told not to.
    const std::string large(200000, 'x');
    ASSERT_EQ(0, post(server.url("/xml"), large, "content-type: text/xml; charset=GBK\r\nX-A: b"));
    req = server.lastRequest();
    EXPECT_EQ(large, req.body);
    EXPECT_EQ(1u, req.headerCount("Content-Type"));
    EXPECT_EQ("text/xml; charset=GBK", req.header("Content-Type"));
    EXPECT_EQ("b", req.header("X-A"));
    EXPECT_EQ(0u, req.headerCount("Expect"));

    // An empty body is still a POST with a length of 0.
    ASSERT_EQ(0, post(server.url("/empty"), ""));
    req = server.lastRequest();
    EXPECT_EQ("POST", req.method);
    EXPECT_EQ("0", req.header("Content-Length"));
}

TEST_F(HttpTest, StatusCodesBecomeResultCodes) {
    LoopbackServer server;
    server.queueReply(Reply(401, "{\"code\":401,\"msg\":\"token refused\"}", "application/json"));
    server.queueReply(Reply(404, ""));
    server.queueReply(Reply(500, "boom"));
    Reply redirect(302, "");
    redirect.headers.push_back({"Location", "/elsewhere"});
    server.queueReply(redirect);
    server.queueReply(Reply(204, ""));

    result.strBody = "stale";
    EXPECT_EQ(401, get(server.url("/a")));
    EXPECT_EQ(401, result.errCode);
    EXPECT_EQ("{\"code\":401,\"msg\":\"token refused\"}", result.msg);
    EXPECT_EQ("HTTP/1.1 401 Unauthorized", result.strExtra);
    EXPECT_TRUE(result.strBody.empty());

    EXPECT_EQ(404, post(server.url("/b"), "{}"));
    EXPECT_EQ(404, result.errCode);
    EXPECT_EQ("HTTP 404 Not Found", result.msg);

    EXPECT_EQ(500, put(server.url("/c"), "{}"));
    EXPECT_EQ("boom", result.msg);

    // Redirects are not followed: the 302 itself is the outcome.
    EXPECT_EQ(302, get(server.url("/d")));
    EXPECT_EQ("HTTP 302 Found", result.msg);
    EXPECT_EQ(4u, server.requestCount());

    EXPECT_EQ(0, get(server.url("/e")));
    EXPECT_EQ(0, result.errCode);
    EXPECT_EQ("", result.msg);
    EXPECT_EQ("HTTP/1.1 204 No Content", result.strExtra);
}

TEST_F(HttpTest, SequentialRequestsShareOneConnection) {
    for (LoopbackServer::Scheme scheme :
         {LoopbackServer::Scheme::Http, LoopbackServer::Scheme::Https}) {
        SCOPED_TRACE(scheme == LoopbackServer::Scheme::Http ? "http" : "https");
        ASSERT_TRUE(env.set("KXUtils", "CAFile", TestCA::instance().caFile()));
        LoopbackServer server(scheme);
        ASSERT_EQ(0, get(server.url("/1")));
        ASSERT_EQ(0, post(server.url("/2"), "{\"a\":1}"));
        ASSERT_EQ(0, get(server.url("/3")));
        const std::vector<kxtest::RecordedRequest> reqs = server.requests();
        ASSERT_EQ(3u, reqs.size());
        EXPECT_EQ(reqs[0].remotePort, reqs[1].remotePort);
        EXPECT_EQ(reqs[0].remotePort, reqs[2].remotePort);
    }
}

TEST_F(HttpTest, EachThreadCompletesItsOwnRequests) {
    LoopbackServer server;
    server.handle("/echo", [](const kxtest::RecordedRequest& r) { return Reply(200, r.body); });
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 5; ++i) {
                KXReqResult r;
                const std::string body = "t" + std::to_string(t) + "i" + std::to_string(i);
                int rc = CIWKHttp::Post(server.url("/echo"), body, "", &r, HTTP_CONTENT_JSON,
                                        HTTP_REQ_PLAIN, nullptr, nullptr, nullptr);
                if (rc != 0 || r.msg != body) ++failures;
            }
        });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(20u, server.requestCount());
}

TEST_F(HttpTest, TlsTrustFollowsConfiguration) {
    LoopbackServer server(LoopbackServer::Scheme::Https);
    const std::string url = server.url("/tls");

    ASSERT_TRUE(env.set("KXUtils", "CAFile", TestCA::instance().caFile()));
    EXPECT_EQ(0, get(url));
    EXPECT_EQ("HTTP/1.1 200 OK", result.strExtra);

    // The connection verified under the test CA must not serve a request
    // that trusts something else.
    ASSERT_TRUE(env.set("KXUtils", "CAFile", TestCA::unrelated().caFile()));
    EXPECT_EQ(KX_ERR_HTTP_TLS, get(url));
    EXPECT_EQ(KX_ERR_HTTP_TLS, result.errCode);
    EXPECT_FALSE(result.msg.empty());
    EXPECT_TRUE(result.strExtra.empty());

    ASSERT_TRUE(env.set("KXUtils", "CAFile", ""));  // the system store
    EXPECT_EQ(KX_ERR_HTTP_TLS, get(url));

    ASSERT_TRUE(env.set("KXUtils", "CAFile", env.dir() + "/absent.pem"));
    EXPECT_EQ(KX_ERR_HTTP_TLS, get(url));

    // The certificate names localhost as well as 127.0.0.1.
    ASSERT_TRUE(env.set("KXUtils", "CAFile", TestCA::instance().caFile()));
    EXPECT_EQ(0, get("https://localhost:" + std::to_string(server.port()) + "/name"));

    ASSERT_TRUE(env.set("KXUtils", "CAFile", ""));
    ASSERT_TRUE(env.set("KXUtils", "VerifyTLS", "0"));
    EXPECT_EQ(0, get(url));
    EXPECT_NE(std::string::npos, env.readLog().find("VerifyTLS=0"));

    // Plain HTTP to the TLS port is no success either.
    EXPECT_NE(0, get("http://127.0.0.1:" + std::to_string(server.port()) + "/x"));
}

TEST_F(HttpTest, TransportFailuresMapToOneCodeEach) {
    LoopbackServer server;

    struct Case {
        std::string url;
        int code;
    };
    const std::vector<Case> cases = {
        {"", KX_ERR_HTTP_BAD_URL},
        {"no-scheme://x", KX_ERR_HTTP_BAD_URL},
        {"ftp://127.0.0.1:" + std::to_string(server.port()) + "/f", KX_ERR_HTTP_BAD_URL},
        // curl would guess http:// for these; the layer wants a complete URL.
        {"127.0.0.1:" + std::to_string(server.port()) + "/x", KX_ERR_HTTP_BAD_URL},
        {server.url("/with space"), KX_ERR_HTTP_BAD_URL},
        {server.url("/nul") + std::string("\0tail", 5), KX_ERR_HTTP_BAD_URL},
        {"https://kx-test.invalid/x", KX_ERR_HTTP_RESOLVE},
        {"http://KX.Test.Invalid./x", KX_ERR_HTTP_RESOLVE},
        {"http://127.0.0.1:" + std::to_string(ClosedPort()) + "/x", KX_ERR_HTTP_CONNECT},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.url);
        result.msg = "stale";
        result.strExtra = "stale";
        EXPECT_EQ(c.code, get(c.url));
        EXPECT_EQ(c.code, result.errCode);
        EXPECT_FALSE(result.msg.empty());
        EXPECT_NE("stale", result.msg);
        EXPECT_TRUE(result.strExtra.empty());
        EXPECT_EQ(c.code, post(c.url, "{}"));
    }
    EXPECT_EQ(0u, server.requestCount());
}

TEST_F(HttpTest, TimeoutAndReplyLimit) {
    LoopbackServer server;
    ASSERT_TRUE(env.set("KXUtils", "TimeoutMs", "300"));
    server.queueReply([] {
        Reply slow(200, "late");
        slow.delayMs = 1000;
        return slow;
    }());
    EXPECT_EQ(KX_ERR_HTTP_TIMEOUT, get(server.url("/slow")));
    EXPECT_EQ(KX_ERR_HTTP_TIMEOUT, result.errCode);
    EXPECT_EQ(1u, server.requestCount());

    ASSERT_TRUE(env.set("KXUtils", "MaxReplyBytes", "1000"));
    server.queueReply(Reply(200, std::string(5000, 'r')));
    EXPECT_EQ(KX_ERR_HTTP_TOO_LARGE, get(server.url("/large")));
    EXPECT_TRUE(result.strBody.empty());
    server.queueReply(Reply(200, std::string(1000, 'r')));  // exactly the limit
    EXPECT_EQ(0, get(server.url("/limit")));
    EXPECT_EQ(1000u, result.msg.size());
    // An error reply counts as well.
    server.queueReply(Reply(500, std::string(5000, 'e')));
    EXPECT_EQ(KX_ERR_HTTP_TOO_LARGE, post(server.url("/large"), "{}"));
}

TEST_F(HttpTest, BadRepliesAreTransportFailures) {
    ASSERT_TRUE(env.set("KXUtils", "MaxReplyBytes", "1000"));
    {
        // No length announced: the limit must hold while bytes arrive.
        std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
        for (int i = 0; i < 5; ++i) chunked += "3e8\r\n" + std::string(1000, 'c') + "\r\n";
        chunked += "0\r\n\r\n";
        RawServer raw(chunked);
        EXPECT_EQ(KX_ERR_HTTP_TOO_LARGE, get(raw.url()));
        EXPECT_EQ("HTTP/1.1 200 OK", result.strExtra);
    }
    {
        RawServer raw("this is no HTTP reply\r\n\r\n");
        EXPECT_EQ(KX_ERR_HTTP_TRANSPORT, get(raw.url()));
        EXPECT_FALSE(result.msg.empty());
    }
    {
        RawServer raw("");  // closes without a byte
        EXPECT_EQ(KX_ERR_HTTP_TRANSPORT, post(raw.url(), "{}"));
    }
    {
        RawServer raw("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort");
        EXPECT_EQ(KX_ERR_HTTP_TRANSPORT, get(raw.url()));
    }
}

TEST_F(HttpTest, UnsupportedCallsSendNothing) {
    LoopbackServer server;
    EXPECT_EQ(KX_ERR_INVALID_VALUE, get(server.url("/dl"), "", HTTP_REQ_DOWNLOAD));
    EXPECT_EQ(KX_ERR_INVALID_VALUE, result.errCode);
    EXPECT_EQ(0u, result.msg.rfind("not supported: ", 0));

    EXPECT_EQ(KX_ERR_INVALID_VALUE, post(server.url("/up"), "{}", "", HTTP_CONTENT_MULTIPART));
    EXPECT_EQ(0u, result.msg.rfind("not supported: ", 0));

    EXPECT_EQ(KX_ERR_INVALID_VALUE,
              CIWKHttp::Get(server.url("/null"), "", "", nullptr, HTTP_REQ_PLAIN, nullptr));
    EXPECT_EQ(KX_ERR_INVALID_VALUE,
              CIWKHttp::Post(server.url("/null"), "{}", "", nullptr, HTTP_CONTENT_JSON,
                             HTTP_REQ_PLAIN, nullptr, nullptr, nullptr));
    EXPECT_EQ(0u, server.requestCount());
}

TEST_F(HttpTest, LogShowsRequestButNeverHeadOrBody) {
    LoopbackServer server;
    server.queueReply(Reply(403, "denied"));
    const std::string url = server.url("/logged?k=v");
    EXPECT_EQ(403, post(url, "{\"body\":\"BODY-MARKER\"}", "X-Secret: HEAD-MARKER"));
    EXPECT_EQ(0, get(url, "X-Secret: HEAD-MARKER"));
    const std::string log = env.readLog();
    EXPECT_NE(std::string::npos, log.find("POST " + url + " -> 403"));
    EXPECT_NE(std::string::npos, log.find("GET " + url + " -> 0"));
    EXPECT_EQ(std::string::npos, log.find("HEAD-MARKER"));
    EXPECT_EQ(std::string::npos, log.find("BODY-MARKER"));
}

TEST(HttpUrl, GetCompleteUrl) {
    EXPECT_EQ("https://h.example:8443/api/x",
              CIWKHttp::GetCompleteUrl("/api/x", "h.example", "8443", false));
    EXPECT_EQ("http://h:80/p", CIWKHttp::GetCompleteUrl("/p", "http://h", "80", false));
    EXPECT_EQ("HTTPS://h/p", CIWKHttp::GetCompleteUrl("/p", "HTTPS://h", "", false));
    EXPECT_EQ("Http://h/p", CIWKHttp::GetCompleteUrl("/p", "Http://h", "0", true));
    EXPECT_EQ("https://10.0.0.1", CIWKHttp::GetCompleteUrl("", "10.0.0.1", "0", false));
    // Only a whole "http://" counts as a scheme.
    EXPECT_EQ("https://httpbin:1/q?a=b c",
              CIWKHttp::GetCompleteUrl("/q?a=b c", "httpbin", "1", false));
    EXPECT_EQ("https://h:443/p", CIWKHttp::GetCompleteUrl("/p", "https://h", "443", false));
}
