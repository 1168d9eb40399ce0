// An HTTP or HTTPS server on 127.0.0.1 for tests: it records every request
// exactly as it arrived and answers with scripted replies.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "KXUtils.h"

namespace kxtest {

class TestCA;

struct CaseLess {
    bool operator()(const std::string& a, const std::string& b) const;
};
// Header name -> value, names compared ignoring ASCII case.
using Headers = std::multimap<std::string, std::string, CaseLess>;

// The first value of a header, or "" when absent.
std::string HeaderValue(const Headers& headers, const std::string& name);
// A case-insensitive getter for IWK_Verify*Head; holds its own copy.
KXHeaderGetter HeaderGetter(const Headers& headers);
// The header lines of a head ("Name: value" joined by CRLF or LF), parsed as
// a server would. Lines without a colon are kept under their whole text.
Headers ParseHead(const std::string& head);

// One part of a multipart/form-data body.
struct FormPart {
    std::string name, filename, content;
};

struct RecordedRequest {
    std::string method;  // "GET", "POST", ...
    std::string target;  // path and query exactly as sent
    Headers headers;
    std::string body;            // raw bytes (empty for multipart/form-data)
    std::vector<FormPart> form;  // multipart parts, by name
    int remotePort = -1;         // the same port for requests on one TCP connection

    std::string header(const std::string& name) const { return HeaderValue(headers, name); }
    size_t headerCount(const std::string& name) const { return headers.count(name); }
    KXHeaderGetter getter() const { return HeaderGetter(headers); }
};

struct Reply {
    // How the server misbehaves while sending this reply: it never answers
    // (until it stops), drips the body a byte per 100 ms, resets the
    // connection (RST) halfway through the body, or ends a chunked body
    // halfway without its last chunk.
    enum class Fault { None, Stall, Drip, Reset, CutChunked };

    int status = 200;
    std::string body;
    std::string contentType = "text/plain";
    std::vector<std::pair<std::string, std::string>> headers;
    Fault fault = Fault::None;

    Reply() = default;
    Reply(int status, std::string body, std::string contentType = "text/plain")
        : status(status), body(std::move(body)), contentType(std::move(contentType)) {}
};

class LoopbackServer {
public:
    enum class Scheme { Http, Https };
    using Handler = std::function<Reply(const RecordedRequest&)>;

    // Https uses the certificate of ca (TestCA::instance() when null).
    // Throws std::runtime_error when the server cannot start.
    explicit LoopbackServer(Scheme scheme = Scheme::Http, const TestCA* ca = nullptr);
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    // Which reply a request gets: the handler of its path (exact match,
    // without the query), else the next queued reply, else the default.
    void setDefaultReply(const Reply& reply);
    void handle(const std::string& path, Handler handler);
    void queueReply(const Reply& reply);

    std::string baseUrl() const;  // "http(s)://127.0.0.1:PORT"
    std::string url(const std::string& target) const { return baseUrl() + target; }
    int port() const;

    std::vector<RecordedRequest> requests() const;
    RecordedRequest lastRequest() const;  // empty record when none arrived
    size_t requestCount() const { return requests().size(); }

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace kxtest
