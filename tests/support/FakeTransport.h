// A transport for tests that need only a reply or a transport fault, never
// the network. While one lives it carries every request of the process
// (CIWKHttp and all that is built on it); its destructor puts the previous
// transport back.
//
//   kxtest::FakeTransport fake;
//   fake.reply(200, "{\"code\":0}");                  // answers the next request
//   fake.fail(kxtest::FakeTransport::Fault::Timeout);  // and this the one after
//   ... run the code under test ...
//   EXPECT_EQ("POST", fake.lastRequest().method);
//
// Requests take the queued answers in order; with the queue empty a request
// gets 200 with an empty body. Every request is recorded as CIWKHttp built
// it: method, URL, header lines, body and the [KXUtils] settings. A download's
// 2xx body is written to its target. Safe from many threads.
#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "KXTransport.h"
#include "KXUtils.h"

namespace kxtest {

// A complete server description (type 3, project "p" with secret "s") of a
// host that only the fake answers: https://h.example:443.
inline _init_Info_s FakeRecord() {
    _init_Info_s info;
    info.SerType = 3;
    info.ProjectID = "p";
    info.ProjectSecret = "s";
    info.ServerIp = "h.example";
    info.Port = 443;
    return info;
}

class FakeTransport : public IKXTransport {
public:
    // Transport faults: the result code CIWKHttp gives for each, and the
    // transport's text it hands on in KXReqResult::msg.
    enum class Fault {
        Refused,   // 10103 "fake: connection refused"
        Reset,     // 10107 "fake: connection reset by peer"
        Timeout,   // 10105 "fake: timed out"
        Tls,       // 10104 "fake: TLS handshake failed"
        Oversize,  // 10106: a 200 reply one byte longer than the request's
                   // maxReplyBytes (set a small MaxReplyBytes first), refused
                   // by CIWKHttp itself with "reply larger than N bytes"
    };

    FakeTransport() : previous_(IWK_SetTransport(this)) {}
    ~FakeTransport() override { IWK_SetTransport(previous_); }
    FakeTransport(const FakeTransport&) = delete;
    FakeTransport& operator=(const FakeTransport&) = delete;

    // Queues a reply; an empty statusLine stands for "HTTP/1.1 <status>".
    void reply(int status, const std::string& body = "", const std::string& statusLine = "");
    void fail(Fault fault);

    std::vector<KXWireRequest> requests() const;
    KXWireRequest lastRequest() const;  // an empty record when none came
    size_t requestCount() const { return requests().size(); }

    void Exchange(const KXWireRequest& request, KXWireReply& reply) override;

    // The default head scheme's verdict on a recorded request, as a server
    // that knows only project `id` with `secret` would give it: the signature
    // head over the request's path and query (the URL after `base`), or the
    // legacy head over its body (authorization gets the value it carried).
    static KXHeadCheck VerifySigned(const KXWireRequest& request, const std::string& base,
                                    const std::string& id, const std::string& secret);
    static KXHeadCheck VerifyLegacy(const KXWireRequest& request, const std::string& id,
                                    const std::string& secret, std::string* authorization);

private:
    mutable std::mutex mutex_;
    std::deque<KXWireReply> answers_;  // a fault as its code and detail
    std::vector<KXWireRequest> requests_;
    IKXTransport* previous_;
};

}  // namespace kxtest
