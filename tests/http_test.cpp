// CIWKHttp. Against real loopback servers: the bytes libcurl puts on the wire
// (targets, heads, bodies), connection reuse, TLS trust and failures only a
// socket shows. On the fake transport: the front's own rules (URL refusals,
// result codes, faults, the reply limit, settings, the log).
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>
#include <tuple>

#include "FakeTransport.h"
#include "LoopbackServer.h"
#include "TempEnv.h"
#include "TestCA.h"

using namespace kxtest;

namespace {

const std::string kGbk = "\xD6\xD0\xCE\xC4";

// An empty Proxy keeps curl from taking one out of the environment.
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
    int put(const std::string& url, const std::string& body, HTTPContentType ct) {
        return CIWKHttp::Put(url, body, "", &result, ct, HTTP_REQ_PUT, nullptr, nullptr, nullptr);
    }
    // errCode|msg|strExtra of the last call.
    std::string outcome() const {
        return std::to_string(result.errCode) + "|" + result.msg + "|" + result.strExtra;
    }
    // errCode|strExtra of a failed call, whose msg must name the cause.
    std::string failure() const {
        return std::to_string(result.errCode) + "|" + result.strExtra +
               (result.msg.empty() ? "|no detail" : "");
    }

    TempEnv env;
    KXReqResult result;
};

// The front alone: nothing leaves the process.
class HttpFrontTest : public HttpTest {
protected:
    FakeTransport fake;
};

// "method target|value|..." of the named headers of a request; "#Name" gives
// the number of such lines instead.
std::string Line(const RecordedRequest& req, std::initializer_list<const char*> names) {
    std::string out = req.method + " " + req.target;
    for (const char* name : names)
        out += "|" + (*name == '#' ? std::to_string(req.headerCount(name + 1)) : req.header(name));
    return out;
}

// A TCP socket on a free port of 127.0.0.1 that answers one connection with
// fixed bytes once the request's head arrived; unless it listens, connections
// to it are refused.
class OneReply {
public:
    explicit OneReply(const std::string& reply, bool listens = true) {
        fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof addr;
        ::bind(fd_, reinterpret_cast<sockaddr*>(&addr), length);
        ::getsockname(fd_, reinterpret_cast<sockaddr*>(&addr), &length);
        url = "http://127.0.0.1:" + std::to_string(ntohs(addr.sin_port)) + "/raw";
        if (listens) ::listen(fd_, 1);
        thread_ = std::thread([this, reply] {
            const int fd = ::accept(fd_, nullptr, nullptr);  // -1 unless listening
            char buffer[4096];
            for (ssize_t n = 1; n > 0 && received_.find("\r\n\r\n") == std::string::npos;)
                if ((n = ::recv(fd, buffer, sizeof buffer, 0)) > 0) received_.append(buffer, n);
            (void)::send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
            ::close(fd);
        });
    }
    ~OneReply() {
        ::shutdown(fd_, SHUT_RDWR);
        if (thread_.joinable()) thread_.join();
        ::close(fd_);
    }
    // The request's head as it arrived, once it was answered.
    std::string received() {
        thread_.join();
        return received_;
    }
    std::string url;

private:
    int fd_;
    std::string received_;
    std::thread thread_;
};

}  // namespace

TEST_F(HttpTest, RequestsGoOutAsGiven) {
    LoopbackServer server;
    const std::string reply = "{\"code\":0,\"t\":\"" + kGbk + "\"}";
    server.setDefaultReply(Reply(200, reply, "application/json"));
    // GBK bytes in path and query, escapes and dot segments: all as typed.
    const std::string target =
        "/a/../b/" + kGbk + "/./c?name=" + kGbk + "&p=/x:y@z&enc=%41%2f&e=&l=a,b;c*";

    ASSERT_EQ(0, get(server.url(target), "X-One: 1\r\nX-Two: two words\n\r\n\r\nX-Three:3"));
    EXPECT_EQ("0|" + reply + "|HTTP/1.1 200 OK", outcome());
    ASSERT_EQ(1u, server.requestCount());
    EXPECT_EQ(
        "GET " + target + "|1|two words|3|0|0",
        Line(server.lastRequest(), {"X-One", "x-two", "X-Three", "#Expect", "#Content-Type"}));
    EXPECT_TRUE(server.lastRequest().body.empty());
    OneReply raw("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");  // sees empty values
    ASSERT_EQ(0, get(raw.url, "X-Empty: \r\nX-Z: z"));
    EXPECT_NE(std::string::npos, raw.received().find("\r\nX-Empty:\r\nX-Z: z\r\n"));

    // Redirects are not followed.
    Reply redirect(302, "");
    redirect.headers.push_back({"Location", "/elsewhere"});
    server.queueReply(redirect);
    EXPECT_EQ(302, get(server.url("/d")));
    EXPECT_EQ("302|HTTP 302 Found|HTTP/1.1 302 Found", outcome());
    // Both went over one kept-alive connection.
    EXPECT_EQ(server.requests()[0].remotePort, server.lastRequest().remotePort);

    // Bodies go out byte for byte.
    const std::string body =
        "{\"name\":\"" + kGbk + "\",\"bin\":\"" + std::string("\0\xFF\x80\x01", 4) + "\"}";
    ASSERT_EQ(0, post(server.url("/post?x=1"), body));
    EXPECT_EQ("POST /post?x=1|" + std::to_string(body.size()) + "|application/json|1",
              Line(server.lastRequest(), {"Content-Length", "Content-Type", "#Content-Type"}));
    EXPECT_EQ(body, server.lastRequest().body);

    ASSERT_EQ(0, put(server.url("/put"), body, HTTP_CONTENT_FORM));
    EXPECT_EQ("PUT /put|application/x-www-form-urlencoded",
              Line(server.lastRequest(), {"Content-Type"}));
    EXPECT_EQ(body, server.lastRequest().body);

    // The head's Content-Type replaces the default; a body this large must not
    // bring curl's "Expect: 100-continue".
    const std::string large(200000, 'x');
    ASSERT_EQ(0, post(server.url("/xml"), large, "content-type: text/xml; charset=GBK\r\nX-A: b"));
    EXPECT_EQ("POST /xml|text/xml; charset=GBK|1|b|0",
              Line(server.lastRequest(), {"Content-Type", "#Content-Type", "X-A", "#Expect"}));
    EXPECT_TRUE(large == server.lastRequest().body);

    ASSERT_EQ(0, post(server.url("/empty"), ""));
    EXPECT_EQ("POST /empty|0", Line(server.lastRequest(), {"Content-Length"}));

    // Plain HTTP through a proxy names the whole URL there, still as given.
    ASSERT_TRUE(env.set("KXUtils", "Proxy", server.baseUrl()));
    const std::string proxied = "http://kx-proxied.test:8080" + target;
    ASSERT_EQ(0, get(proxied));
    EXPECT_EQ("GET " + proxied + "|kx-proxied.test:8080", Line(server.lastRequest(), {"Host"}));
}

TEST_F(HttpTest, EachThreadCompletesItsOwnRequests) {
    LoopbackServer server;
    server.handle("/echo", [](const RecordedRequest& r) { return Reply(200, r.body); });
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 5; ++i) {
                KXReqResult r;
                const std::string body = std::to_string(t * 100 + i);
                failures += CIWKHttp::Post(server.url("/echo"), body, "", &r, HTTP_CONTENT_JSON,
                                           HTTP_REQ_PLAIN, nullptr, nullptr, nullptr) != 0 ||
                            r.msg != body;
            }
        });
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(20u, server.requestCount());
}

TEST_F(HttpTest, TlsTrustFollowsConfiguration) {
    LoopbackServer server(LoopbackServer::Scheme::Https);
    const std::string url = server.url("/tls");

    ASSERT_TRUE(env.set("KXUtils", "CAFile", TestCA::instance().caFile()));
    EXPECT_EQ(0, get(url));
    EXPECT_EQ(0, post(url, "{}"));  // over the same kept-alive connection
    EXPECT_EQ(server.requests()[0].remotePort, server.lastRequest().remotePort);
    // The certificate names localhost as well as 127.0.0.1.
    EXPECT_EQ(0, get("https://localhost:" + std::to_string(server.port()) + "/name"));

    // The connection verified under the test CA must not serve a request that
    // trusts something else; nor do the system store or a missing file trust it.
    for (const std::string& ca :
         {TestCA::unrelated().caFile(), std::string(), env.dir() + "/absent.pem"}) {
        ASSERT_TRUE(env.set("KXUtils", "CAFile", ca));
        get(url);
        EXPECT_EQ(std::to_string(KX_ERR_HTTP_TLS) + "|", failure()) << ca;
    }

    ASSERT_TRUE(env.set("KXUtils", "CAFile", ""));
    ASSERT_TRUE(env.set("KXUtils", "VerifyTLS", "0"));
    EXPECT_EQ(0, get(url));
    EXPECT_NE(std::string::npos, env.readLog().find("VerifyTLS=0"));
    // Plain HTTP to the TLS port is no success either.
    EXPECT_NE(0, get("http://127.0.0.1:" + std::to_string(server.port()) + "/x"));
}

TEST_F(HttpTest, SocketFailuresMapToTheirCodes) {
    // A port that refuses, then replies no server library would send from a
    // server that answers one connection with fixed bytes. A chunked one
    // announces no length, so the limit must hold while bytes arrive.
    ASSERT_TRUE(env.set("KXUtils", "MaxReplyBytes", "1000"));
    std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (int i = 0; i < 5; ++i) chunked += "3e8\r\n" + std::string(1000, 'c') + "\r\n";
    const char kRefuse[] = "(refuse)";
    const std::vector<std::pair<std::string, std::string>> replies = {
        {kRefuse, "10103|"},
        {chunked + "0\r\n\r\n", "10106|HTTP/1.1 200 OK"},
        {"this is no HTTP reply\r\n\r\n", "10107|"},
        {"", "10107|"},
        {"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort", "10107|HTTP/1.1 200 OK"},
    };
    for (const auto& [reply, expected] : replies) {
        {
            const OneReply server(reply, reply != kRefuse);
            reply.empty() ? post(server.url, "{}") : get(server.url);
        }
        EXPECT_EQ(expected, failure()) << reply.substr(0, 30);
    }
}

// Uploads stream files as parts; downloads land whole in their file or not at all.
TEST_F(HttpTest, MultipartUploadsAndDownloadsToFiles) {
    namespace fs = std::filesystem;
    LoopbackServer server;
    const std::string dir = env.dir() + "/files";
    fs::create_directory(dir);
    const std::string binary = "%!PS\n" + kGbk + std::string("\0\xFF", 2);
    for (const auto& [name, text] : {std::pair<std::string, std::string>{"doc.ps", binary},
                                     {"font.ttf", "FONT"},
                                     {"page.eps", "EPS"}})
        std::ofstream(dir + "/" + name, std::ios::binary) << text;
    auto upload = [&](const std::string& body, const std::string& path) {
        return CIWKHttp::Post(server.url("/up"), body, "", &result, HTTP_CONTENT_MULTIPART,
                              HTTP_REQ_PLAIN, nullptr, path.c_str(), nullptr);
    };
    // name|filename|content of each part as the server parsed it
    auto parts = [&] {
        std::string out;
        for (const FormPart& p : server.lastRequest().form)
            out += p.name + "|" + p.filename + "|" + p.content + ";";
        return out;
    };
    ASSERT_EQ(0, upload(R"({"saveToDisk":"1","doctype":")" + kGbk + R"(","n":5,"o":{"a":[1]}})",
                        dir + "/doc.ps"));
    EXPECT_EQ("doctype||" + kGbk + ";file|doc.ps|" + binary + ";n||5;o||{\"a\":[1]};saveToDisk||1;",
              parts());
    EXPECT_EQ(
        0u, server.lastRequest().header("Content-Type").rfind("multipart/form-data; boundary=", 0));
    // A directory: the files the body names, each under its key.
    ASSERT_EQ(0, upload(R"({"res_file":["font.ttf","page.eps"],"ps_file":"doc.ps"})", dir));
    EXPECT_EQ("ps_file||doc.ps;ps_file|doc.ps|" + binary +
                  ";res_file||[\"font.ttf\",\"page.eps\"];res_file|font.ttf|FONT;res_file|page.eps|"
                  "EPS;",
              parts());

    // A download larger than MaxReplyBytes replaces the file; the progress
    // callback sees it, and stops it when it answers false.
    ASSERT_TRUE(env.set("KXUtils", "MaxReplyBytes", "1000"));
    const std::string pdf = "%PDF-1.4\n" + std::string(5000, 'p');
    server.handle("/pdf",
                  [&](const RecordedRequest&) { return Reply(200, pdf, "application/pdf"); });
    const std::string target = dir + "/out.pdf";
    const std::string params = R"({"fileName":")" + target + "\"}";
    static long long downloaded;
    static bool goOn;
    KXProgressCallback progress = [](long long, long long now, long long, long long) {
        downloaded = now;
        return goOn;
    };
    auto download = [&](const std::string& url, KXProgressCallback cb = nullptr) {
        return CIWKHttp::Get(url, params, "", &result, HTTP_REQ_DOWNLOAD, cb);
    };
    std::ofstream(target) << "OLD";
    goOn = false;
    EXPECT_EQ(KX_ERR_HTTP_TRANSPORT, download(server.url("/pdf"), progress));
    EXPECT_EQ("OLD", ReadFileText(target));
    goOn = true;
    ASSERT_EQ(0, download(server.url("/pdf"), progress));
    EXPECT_EQ(5009, downloaded);
    EXPECT_EQ("0||HTTP/1.1 200 OK", outcome());
    EXPECT_TRUE(pdf == ReadFileText(target));
    // An error reply comes back as text and leaves the file alone.
    server.queueReply(Reply(404, "no such pdf"));
    EXPECT_EQ(404, download(server.url("/none")));
    EXPECT_EQ("404|no such pdf|HTTP/1.1 404 Not Found", outcome());
    EXPECT_TRUE(pdf == ReadFileText(target));

    // A reply cut short: no file where there was none, the old one untouched.
    for (const bool existing : {true, false}) {
        if (!existing) fs::remove(target);
        {
            const OneReply cut("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n%PDF-cut");
            EXPECT_EQ(KX_ERR_HTTP_TRANSPORT, download(cut.url));
        }
        EXPECT_EQ(existing ? pdf : "", ReadFileText(target));
        EXPECT_EQ(existing, fs::exists(target));
    }
    // No temporary file is left anywhere.
    EXPECT_EQ(3, std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
}

TEST_F(HttpFrontTest, LocalRefusalsSendNothing) {
    // URL, code, the beginning of the detail
    const std::vector<std::tuple<std::string, int, std::string>> cases = {
        {"", KX_ERR_HTTP_BAD_URL, "empty URL"},
        {"ftp://h/f", KX_ERR_HTTP_BAD_URL, "Protocol \"ftp\" not supported"},
        {"h.example:8080/x", KX_ERR_HTTP_BAD_URL, "URL rejected: "},  // curl would guess http://
        {"http:/h/x", KX_ERR_HTTP_BAD_URL, "URL rejected: no host after http://"},
        {"https:///x", KX_ERR_HTTP_BAD_URL, "URL rejected: no host after https://"},
        {"https://kx.invalid/x", KX_ERR_HTTP_RESOLVE, "Could not resolve host: kx.invalid"},
        {"https://h/x?certSn=AB#12", KX_ERR_URL_BAD_CHAR, "URL holds '#' (0x23) at byte 21"},
        {"https://h/a b", KX_ERR_URL_BAD_CHAR, "URL holds ' ' (0x20) at byte 11"},
        {std::string("https://h/x\0y", 13), KX_ERR_URL_BAD_CHAR,
         "URL holds a control byte (0x00) at byte 11"},
        {"https://h/x?a=\t", KX_ERR_URL_BAD_CHAR, "URL holds a control byte (0x09) at byte 14"},
        {"https://h/x\r\nX-Evil: 1", KX_ERR_URL_BAD_CHAR, "URL holds a control byte (0x0D)"},
        {"https://h/\x7F", KX_ERR_URL_BAD_CHAR, "URL holds a control byte (0x7F) at byte 10"},
        {"HTTPS://h.example:8443/p/" + kGbk + "?q=" + kGbk + "&e=%41", KX_OK, ""},
        {"http://u:p@[::1]:80?x", KX_OK, ""},
    };
    for (const auto& [url, code, start] : cases) {
        SCOPED_TRACE(url);
        std::string detail = "stale";
        EXPECT_EQ(code, IWK_CheckRequestUrl(url, detail));
        EXPECT_TRUE(code ? detail.rfind(start, 0) == 0 : detail.empty()) << detail;
        if (code == KX_OK) continue;
        result.msg = result.strExtra = "stale";
        EXPECT_EQ(code, get(url));
        EXPECT_EQ(std::to_string(code) + "|" + detail + "|", outcome());
        EXPECT_EQ(code, post(url, "{}"));
    }
    // Nor do uploads and downloads whose files cannot be used, or calls
    // without a result record.
    const std::string dir = env.dir();
    // params or body, file path (null: a download), errCode|msg
    const std::vector<std::tuple<std::string, const char*, std::string>> files = {
        {"", nullptr, "10001|download without a fileName"},
        {R"({"fileName":7})", nullptr, "10001|download without a fileName"},
        {R"({"fileName":")" + dir + "\"}", nullptr, "10108|download target is a directory: " + dir},
        {"[]", "", "10001|multipart fields are no JSON object"},
        {"{}", "/kx/absent", "10108|cannot read /kx/absent"},
        {"{}", "", "10108|cannot read "},
        {R"({"ps_file":"../kx.ini"})", dir.c_str(),
         "10001|ps_file names no file of the directory: ../kx.ini"},
        {R"({"res_file":["KXServerApi.ini","absent"]})", dir.c_str(),
         "10108|cannot read " + dir + "/absent"},
    };
    for (const auto& [text, path, expected] : files) {
        path ? CIWKHttp::Post("https://h/up", text, "", &result, HTTP_CONTENT_MULTIPART,
                              HTTP_REQ_PLAIN, nullptr, path, nullptr)
             : CIWKHttp::Get("https://h/dl", text, "", &result, HTTP_REQ_DOWNLOAD, nullptr);
        EXPECT_EQ(expected + "|", outcome());
    }
    EXPECT_EQ(KX_ERR_INVALID_VALUE,
              CIWKHttp::Get("https://h/null", "", "", nullptr, HTTP_REQ_PLAIN, nullptr));
    EXPECT_EQ(0u, fake.requestCount());
}

// Every kind of answer, read by GET (type 1 and 4) and PUT alike, and the log of it.
TEST_F(HttpFrontTest, EachAnswerEndsInItsResult) {
    ASSERT_TRUE(env.set("KXUtils", "MaxReplyBytes", "1000"));
    using F = FakeTransport::Fault;
    const std::string refusal = "{\"code\":401,\"msg\":\"token refused\"}";
    const std::string full(1000, 'r');
    // status (0: the fault), body, fault, errCode|msg|strExtra
    const std::vector<std::tuple<int, std::string, F, std::string>> cases = {
        {204, "", {}, "0||HTTP/1.1 204"},
        {200, full, {}, "0|" + full + "|HTTP/1.1 200"},  // the limit itself passes
        {401, refusal, {}, "401|" + refusal + "|HTTP/1.1 401"},
        {404, "", {}, "404|HTTP 404|HTTP/1.1 404"},
        {500, full + "e", {}, "10106|reply larger than 1000 bytes|HTTP/1.1 500"},
        {101, "", {}, "10107|unexpected reply: HTTP/1.1 101|HTTP/1.1 101"},
        {0, "", F::Refused, "10103|fake: connection refused|"},
        {0, "", F::Reset, "10107|fake: connection reset by peer|"},
        {0, "", F::Timeout, "10105|fake: timed out|"},
        {0, "", F::Tls, "10104|fake: TLS handshake failed|"},
        {0, "", F::Oversize, "10106|reply larger than 1000 bytes|HTTP/1.1 200"},
    };
    for (const auto& [status, body, fault, expected] : cases) {
        SCOPED_TRACE(expected.substr(0, 40));
        for (int call = 0; call < 3; ++call) {
            status ? fake.reply(status, body) : fake.fail(fault);
            result.strBody = "stale";
            const int code = call < 2
                                 ? get("https://h/g?k=v", "X-Secret: HEAD-MARKER",
                                       call ? HTTP_REQ_PUT : HTTP_REQ_PLAIN)
                                 : put("https://h/p", "{\"BODY-MARKER\":1}", HTTP_CONTENT_JSON);
            EXPECT_EQ(expected, outcome());
            EXPECT_EQ(result.errCode, code);
            // strBody is for GETs of type 1 with a 2xx reply only.
            EXPECT_EQ(call == 0 && code == 0 ? body : "", result.strBody);
        }
    }
    // The log shows each request and failure, never a head or a body.
    const std::string log = env.readLog();
    EXPECT_NE(std::string::npos, log.find("GET https://h/g?k=v -> 401"));
    EXPECT_NE(std::string::npos,
              log.find("PUT https://h/p failed: 10103 fake: connection refused"));
    EXPECT_EQ(std::string::npos, log.find("MARKER"));
}

TEST_F(HttpFrontTest, SettingsReachTheTransport) {
    auto settings = [&] {
        const KXWireRequest r = fake.lastRequest();
        return std::to_string(r.verifyTls) + "|" + r.caFile + "|" +
               std::to_string(r.connectTimeoutMs) + "|" + std::to_string(r.timeoutMs) + "|" +
               std::to_string(r.proxySet) + "|" + r.proxy + "|" + std::to_string(r.maxReplyBytes);
    };
    env.writeConfig(
        "[KXUtils]\nCAFile=/ca.pem\nVerifyTLS=0\nConnectTimeoutMs=0\nTimeoutMs=300\n"
        "Proxy=http://proxy:3128\nMaxReplyBytes=1000\n");
    ASSERT_EQ(0, get("https://h/g"));
    EXPECT_EQ("0|/ca.pem|0|300|1|http://proxy:3128|1000", settings());
    // Unusable numbers keep the defaults; no Proxy key leaves it to the environment.
    env.writeConfig("[KXUtils]\nConnectTimeoutMs=-1\nTimeoutMs=-5\nMaxReplyBytes=0\n");
    ASSERT_EQ(0, get("https://h/g"));
    EXPECT_EQ("1||10000|60000|0||67108864", settings());
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
