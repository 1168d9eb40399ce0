#include "FakeTransport.h"

#include <fstream>
#include <utility>

#include "LoopbackServer.h"

namespace kxtest {

namespace {

// Stands in the queue for Fault::Oversize, whose body depends on the request.
const int kOversize = -1;

// Code and detail of each Fault, in its order.
const std::pair<int, const char*> kFaults[] = {
    {KX_ERR_HTTP_CONNECT, "fake: connection refused"},
    {KX_ERR_HTTP_TRANSPORT, "fake: connection reset by peer"},
    {KX_ERR_HTTP_TIMEOUT, "fake: timed out"},
    {KX_ERR_HTTP_TLS, "fake: TLS handshake failed"},
    {kOversize, ""},
};

}  // namespace

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
    answer.code = kFaults[static_cast<int>(fault)].first;
    answer.detail = kFaults[static_cast<int>(fault)].second;
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
        // A download's 2xx body goes to its file, whole.
        if (!request.downloadPath.empty() && answer.code == 0 && answer.status / 100 == 2) {
            std::ofstream(request.downloadPath, std::ios::binary | std::ios::trunc) << answer.body;
            answer.body.clear();
        }
        reply = std::move(answer);
    } catch (...) {
        reply.code = KX_ERR_HTTP_TRANSPORT;  // memory; detail left as it is
    }
}

namespace {

KXHeaderGetter Getter(const KXWireRequest& request) {
    std::string head;
    for (const std::string& line : request.headers) head += line + "\r\n";
    return HeaderGetter(ParseHead(head));
}

KXSecretLookup Lookup(const std::string& id, const std::string& secret) {
    return [id, secret](const std::string& project, std::string& out) {
        out = secret;
        return project == id;
    };
}

}  // namespace

KXHeadCheck FakeTransport::VerifySigned(const KXWireRequest& request, const std::string& base,
                                        const std::string& id, const std::string& secret) {
    if (request.url.compare(0, base.size(), base) != 0) return KX_HEAD_MISSING;
    return IWK_VerifySignatureHead(request.method, request.url.substr(base.size()), Getter(request),
                                   Lookup(id, secret), IWK_GetCurTime(), 60000);
}

KXHeadCheck FakeTransport::VerifyLegacy(const KXWireRequest& request, const std::string& id,
                                        const std::string& secret, std::string* authorization) {
    return IWK_VerifyInkwellHead(request.body, Getter(request), Lookup(id, secret),
                                 IWK_GetCurTime(), 60000, authorization);
}

}  // namespace kxtest
