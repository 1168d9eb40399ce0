// IWK_ServerForword: the forwarding service in process. It performs the
// exchange its envelope describes over CIWKHttp and answers the reply
// envelope; another service can be installed in its place.
#include <atomic>
#include <string>

#include "KXAscii.h"
#include "KXUtils.h"

namespace {

const char kSource[] = "KXServerForword";

std::atomic<KXForwarder> g_forwarder{nullptr};

// The header lines of the envelope: empty, or JSON text {"httpHead":[lines]}.
// A line may not hold CR or LF: it would smuggle in a header of its own.
bool HeadOf(const std::string& header, std::string& head) {
    if (header.empty()) return true;
    Json::Value root;
    if (!kxjson::Parse(header, root)) return false;
    const Json::Value& lines = kxjson::Member(root, "httpHead");
    if (!lines.isArray()) return false;
    for (Json::ArrayIndex i = 0; i < lines.size(); ++i) {
        if (!lines[i].isString()) return false;
        const std::string line = kxjson::String(lines[i]);
        if (line.find_first_of("\r\n") != std::string::npos) return false;
        head += line + "\r\n";
    }
    return true;
}

bool HasContentType(const std::string& head) {
    const std::string lower = kxascii::Lower(head);
    return lower.rfind("content-type:", 0) == 0 ||
           lower.find("\ncontent-type:") != std::string::npos;
}

long Forward(const char* data, size_t length, std::string& reply) {
    Json::Value envelope;
    if (data == nullptr || !kxjson::Parse(std::string(data, length), envelope) ||
        !envelope.isObject())
        return KX_ERR_INVALID_VALUE;
    const std::string method = kxjson::Text(envelope, "funcType");
    const std::string url = kxjson::Text(envelope, "funcName");
    const std::string param = kxjson::Text(envelope, "param");
    std::string head;
    if (!HeadOf(kxjson::Text(envelope, "header"), head)) return KX_ERR_INVALID_VALUE;
    const Json::Value& contentType = kxjson::Member(envelope, "contentType");
    if (contentType.isString() && !HasContentType(head)) {
        const std::string value = kxjson::String(contentType);
        if (value.find_first_of("\r\n") != std::string::npos) return KX_ERR_INVALID_VALUE;
        head += "Content-Type: " + value + "\r\n";
    }

    KXReqResult result;
    if (method == "GET" && param.empty()) {
        CIWKHttp::Get(url, "", head, &result, HTTP_REQ_PLAIN, nullptr);
    } else if (method == "POST") {
        CIWKHttp::Post(url, param, head, &result, HTTP_CONTENT_JSON, HTTP_REQ_PLAIN, nullptr,
                       nullptr, nullptr);
    } else if (method == "PUT") {
        CIWKHttp::Put(url, param, head, &result, HTTP_CONTENT_JSON, HTTP_REQ_PUT, nullptr, nullptr,
                      nullptr);
    } else {
        // An unknown method, or a GET with a body it cannot carry.
        return KX_ERR_INVALID_VALUE;
    }
    Json::Value answer(Json::objectValue);
    answer["errorCode"] = result.errCode;
    answer["result"] = result.msg;
    reply = kxjson::Write(answer);
    return KX_OK;
}

}  // namespace

long IWK_ServerForword(const char* data, size_t length, std::string& reply,
                       const _init_Info_s* info) {
    const KXForwarder installed = g_forwarder.load(std::memory_order_acquire);
    if (installed != nullptr) return installed(data, length, reply, info);
    try {
        const long code = Forward(data, length, reply);
        if (code != KX_OK)
            KX_LOG(KX_LOG_ERROR, kSource, "IWK_ServerForword", "envelope refused: %ld", code);
        return code;
    } catch (...) {
        return KX_ERR_INVALID_VALUE;
    }
}

KXForwarder IWK_SetForwarder(KXForwarder forwarder) {
    return g_forwarder.exchange(forwarder, std::memory_order_acq_rel);
}
