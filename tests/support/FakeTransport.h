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
// it: method, URL, header lines, body and the [KXUtils] settings. Safe from
// many threads.
#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "KXTransport.h"

namespace kxtest {

class FakeTransport : public IKXTransport {
public:
    // Transport faults, and the result code CIWKHttp gives for each.
    enum class Fault {
        Refused,   // 10103: the connection was refused
        Reset,     // 10107: the server reset the connection
        Timeout,   // 10105: the exchange timed out
        Tls,       // 10104: the TLS handshake failed
        Oversize,  // 10106: a 200 reply one byte longer than the request's
                   // maxReplyBytes (set a small MaxReplyBytes first), refused
                   // by CIWKHttp itself
    };
    // What a fault puts into the reply's detail, which CIWKHttp hands on as
    // KXReqResult::msg (Oversize: CIWKHttp's own text instead).
    static std::string FaultText(Fault fault);

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

private:
    mutable std::mutex mutex_;
    std::deque<KXWireReply> answers_;  // a fault as its code and detail
    std::vector<KXWireRequest> requests_;
    IKXTransport* previous_;
};

}  // namespace kxtest
