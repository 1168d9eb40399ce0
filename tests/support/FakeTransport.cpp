#include "FakeTransport.h"

#include <utility>

namespace kxtest {

namespace {

// Stands in the queue for Fault::Oversize, whose body depends on the request.
const int kOversize = -1;

struct FaultInfo {
    int code;
    const char* text;
};
const FaultInfo kFaults[] = {
    {KX_ERR_HTTP_CONNECT, "fake: connection refused"},
    {KX_ERR_HTTP_TRANSPORT, "fake: connection reset by peer"},
    {KX_ERR_HTTP_TIMEOUT, "fake: timed out"},
    {KX_ERR_HTTP_TLS, "fake: TLS handshake failed"},
    {kOversize, ""},
};

}  // namespace

std::string FakeTransport::FaultText(Fault fault) {
    return kFaults[static_cast<int>(fault)].text;
}

void FakeTransport::reply(int status, const std::string& body, const std::string& statusLine) {
    KXWireReply answer;
    answer.status = status;
    answer.body = body;
    answer.statusLine = statusLine.empty() ? "HTTP/1.1 " + std::to_string(status) : statusLine;
    std::lock_guard<std::mutex> lock(mutex_);
    answers_.push_back(std::move(answer));
}

void FakeTransport::fail(Fault fault) {
    KXWireReply answer;
    answer.code = kFaults[static_cast<int>(fault)].code;
    answer.detail = kFaults[static_cast<int>(fault)].text;
    std::lock_guard<std::mutex> lock(mutex_);
    answers_.push_back(std::move(answer));
}

std::vector<KXWireRequest> FakeTransport::requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

KXWireRequest FakeTransport::lastRequest() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_.empty() ? KXWireRequest() : requests_.back();
}

void FakeTransport::Exchange(const KXWireRequest& request, KXWireReply& reply) {
    try {
        KXWireReply answer;
        answer.status = 200;
        answer.statusLine = "HTTP/1.1 200";
        bool oversize = false;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            requests_.push_back(request);
            if (!answers_.empty()) {
                oversize = answers_.front().code == kOversize;
                if (!oversize) answer = std::move(answers_.front());
                answers_.pop_front();
            }
        }
        if (oversize) answer.body.assign(static_cast<size_t>(request.maxReplyBytes) + 1, 'x');
        reply = std::move(answer);
    } catch (...) {
        reply.code = KX_ERR_HTTP_TRANSPORT;  // memory; detail left as it is
    }
}

}  // namespace kxtest
