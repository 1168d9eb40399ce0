#include "LoopbackServer.h"

#include <httplib.h>

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "KXAscii.h"
#include "TestCA.h"

namespace kxtest {

bool CaseLess::operator()(const std::string& a, const std::string& b) const {
    return kxascii::Compare(a, b, true) < 0;
}

std::string HeaderValue(const Headers& headers, const std::string& name) {
    auto it = headers.find(name);
    return it != headers.end() ? it->second : std::string();
}

KXHeaderGetter HeaderGetter(const Headers& headers) {
    return [headers](const std::string& name) { return HeaderValue(headers, name); };
}

Headers ParseHead(const std::string& head) {
    Headers out;
    size_t start = 0;
    while (start <= head.size()) {
        size_t end = head.find('\n', start);
        if (end == std::string::npos) end = head.size();
        std::string line = head.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty()) {
            size_t colon = line.find(':');
            if (colon == std::string::npos) {
                out.emplace(line, std::string());
            } else {
                size_t value = line.find_first_not_of(" \t", colon + 1);
                out.emplace(line.substr(0, colon),
                            value == std::string::npos ? std::string() : line.substr(value));
            }
        }
        start = end + 1;
    }
    return out;
}

namespace {

// cpp-httplib keeps an idle kept-alive connection open for its keep-alive
// timeout (5 s) and its stop() waits for that. A client in this very process
// (libcurl keeps connections) would make every server take 5 s to stop, so
// the server's side of its connections is shut down here instead.
// The connected sockets on a loopback port, found in the process's own fds.
std::vector<int> ConnectionsOn(int port) {
    std::vector<int> fds;
    if (DIR* dir = opendir("/proc/self/fd")) {
        const int own = dirfd(dir);
        while (dirent* entry = readdir(dir)) {
            char* end = nullptr;
            long fd = std::strtol(entry->d_name, &end, 10);
            if (end != entry->d_name && *end == '\0' && fd != own) fds.push_back(int(fd));
        }
        closedir(dir);
    }
    std::vector<int> connected;
    for (int fd : fds) {
        sockaddr_in local{};
        socklen_t length = sizeof local;
        if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &length) != 0 ||
            local.sin_family != AF_INET || ntohs(local.sin_port) != port ||
            ntohl(local.sin_addr.s_addr) != INADDR_LOOPBACK)
            continue;
        sockaddr_in peer{};
        length = sizeof peer;
        if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length) != 0) continue;
        connected.push_back(fd);
    }
    return connected;
}

void ShutdownConnectionsOn(int port) {
    for (int fd : ConnectionsOn(port)) ::shutdown(fd, SHUT_RDWR);
}

}  // namespace

struct LoopbackServer::Impl {
    std::unique_ptr<httplib::Server> server;
    std::thread thread;
    std::atomic<bool> listenReturned{false};
    std::atomic<bool> stopping{false};
    std::string scheme;
    int port = -1;

    mutable std::mutex mutex;
    std::vector<RecordedRequest> requests;
    std::map<std::string, Handler> handlers;
    std::deque<Reply> queue;
    Reply defaultReply;

    void serve(const httplib::Request& req, httplib::Response& res) {
        RecordedRequest record;
        record.method = req.method;
        record.target = req.target;
        for (const auto& h : req.headers) record.headers.emplace(h.first, h.second);
        record.body = req.body;
        for (const auto& f : req.files)
            record.form.push_back({f.second.name, f.second.filename, f.second.content});
        record.remotePort = req.remote_port;

        Handler handler;
        Reply reply;
        {
            std::lock_guard<std::mutex> lock(mutex);
            requests.push_back(record);
            auto found = handlers.find(req.path);
            if (found != handlers.end()) {
                handler = found->second;
            } else if (!queue.empty()) {
                reply = queue.front();
                queue.pop_front();
            } else {
                reply = defaultReply;
            }
        }
        if (handler) reply = handler(record);
        res.status = reply.status;
        for (const auto& h : reply.headers) res.set_header(h.first, h.second);
        misbehave(reply, res);
    }

    void misbehave(const Reply& reply, httplib::Response& res) {
        using Fault = Reply::Fault;
        auto body = std::make_shared<std::string>(reply.body);
        const size_t half = body->size() / 2;
        switch (reply.fault) {
            case Fault::None:
                res.set_content(reply.body, reply.contentType);
                return;
            case Fault::Stall:
                while (!stopping) std::this_thread::sleep_for(std::chrono::milliseconds(20));
                return;
            case Fault::Drip:
                res.set_content_provider(
                    body->size(), reply.contentType,
                    [this, body](size_t offset, size_t, httplib::DataSink& sink) {
                        std::this_thread::sleep_for(std::chrono::milliseconds(100));
                        return !stopping && sink.write(body->data() + offset, 1);
                    });
                return;
            case Fault::Reset:
                res.set_content_provider(
                    body->size(), reply.contentType,
                    [this, body, half](size_t, size_t, httplib::DataSink& sink) {
                        sink.write(body->data(), half);
                        // The close that follows the failed provider sends RST.
                        const linger abort{1, 0};
                        for (int fd : ConnectionsOn(port))
                            ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
                        return false;
                    });
                return;
            case Fault::CutChunked:
                res.set_chunked_content_provider(reply.contentType,
                                                 [body, half](size_t, httplib::DataSink& sink) {
                                                     sink.write(body->data(), half);
                                                     return false;
                                                 });
                return;
        }
    }
};

LoopbackServer::LoopbackServer(Scheme scheme, const TestCA* ca) : impl_(new Impl) {
    if (scheme == Scheme::Https) {
        const TestCA& authority = ca != nullptr ? *ca : TestCA::instance();
        impl_->server.reset(
            new httplib::SSLServer(authority.certFile().c_str(), authority.keyFile().c_str()));
        impl_->scheme = "https";
    } else {
        impl_->server.reset(new httplib::Server);
        impl_->scheme = "http";
    }
    httplib::Server& server = *impl_->server;
    if (!server.is_valid()) throw std::runtime_error("LoopbackServer: server not valid");
    // Nagle plus delayed ACK would stall every exchange by tens of milliseconds.
    server.set_tcp_nodelay(true);
    server.set_keep_alive_max_count(1000);
    Impl* impl = impl_.get();
    auto serve = [impl](const httplib::Request& req, httplib::Response& res) {
        impl->serve(req, res);
    };
    server.Get(".*", serve);
    server.Post(".*", serve);
    server.Put(".*", serve);

    impl_->port = server.bind_to_any_port("127.0.0.1");
    if (impl_->port <= 0) throw std::runtime_error("LoopbackServer: cannot bind 127.0.0.1");
    impl_->thread = std::thread([impl] {
        impl->server->listen_after_bind();
        impl->listenReturned = true;
    });
    // stop() does nothing before the accept loop runs, so wait for it.
    while (!server.is_running() && !impl_->listenReturned)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (!server.is_running()) {
        impl_->thread.join();
        throw std::runtime_error("LoopbackServer: listen failed");
    }
}

LoopbackServer::~LoopbackServer() {
    impl_->stopping = true;
    impl_->server->stop();
    ShutdownConnectionsOn(impl_->port);
    impl_->thread.join();
}

void LoopbackServer::setDefaultReply(const Reply& reply) {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->defaultReply = reply;
}

void LoopbackServer::handle(const std::string& path, Handler handler) {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->handlers[path] = std::move(handler);
}

void LoopbackServer::queueReply(const Reply& reply) {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->queue.push_back(reply);
}

std::string LoopbackServer::baseUrl() const {
    return impl_->scheme + "://127.0.0.1:" + std::to_string(impl_->port);
}

int LoopbackServer::port() const {
    return impl_->port;
}

std::vector<RecordedRequest> LoopbackServer::requests() const {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->requests;
}

RecordedRequest LoopbackServer::lastRequest() const {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->requests.empty() ? RecordedRequest() : impl_->requests.back();
}

}  // namespace kxtest
