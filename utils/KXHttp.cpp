// CIWKHttp, the front of every request: checks the URL, builds the header
// lines, hands one KXWireRequest to the installed transport and reads what
// came back into a KXReqResult.
#include <atomic>
#include <new>
#include <string>
#include <utility>

#include "KXHttpParts.h"

namespace {

const char kSource[] = "KXHttp";

std::atomic<IKXTransport*> g_transport{nullptr};
std::atomic<KXProgressCallback> g_progress{nullptr};

KXProgressCallback ProgressOr(KXProgressCallback given) {
    return given != nullptr ? given : g_progress.load(std::memory_order_acquire);
}

IKXTransport& Transport() {
    IKXTransport* installed = g_transport.load(std::memory_order_acquire);
    return installed != nullptr ? *installed : kxhttp::CurlTransport();
}

enum class Method { Get, Post, Put };

const char* MethodName(Method m) {
    switch (m) {
        case Method::Get:
            return "GET";
        case Method::Post:
            return "POST";
        default:
            return "PUT";
    }
}

const char* FunctionName(Method m) {
    switch (m) {
        case Method::Get:
            return "CIWKHttp::Get";
        case Method::Post:
            return "CIWKHttp::Post";
        default:
            return "CIWKHttp::Put";
    }
}

// Stores the outcome; the returned value always equals result->errCode.
int Finish(KXReqResult* result, int code, const std::string& msg) {
    result->errCode = code;
    result->msg = msg;
    return code;
}

// "HTTP/1.1 404 Not Found" -> "HTTP 404 Not Found".
std::string StatusText(const std::string& statusLine, long status) {
    std::string text = "HTTP " + std::to_string(status);
    size_t codeAt = statusLine.find(' ');
    if (codeAt != std::string::npos) {
        size_t reasonAt = statusLine.find(' ', codeAt + 1);
        if (reasonAt != std::string::npos) {
            size_t first = statusLine.find_first_not_of(' ', reasonAt);
            if (first != std::string::npos) text += " " + statusLine.substr(first);
        }
    }
    return text;
}

// The reply as the rules of CIWKHttp (KXUtils.h) give it to the caller.
int ReadReply(Method method, HTTPRequestType type, long long maxReplyBytes, KXWireReply& reply,
              KXReqResult* result, std::string& logDetail) {
    result->strExtra = reply.statusLine;
    // Whatever the transport: the limit holds for every reply.
    if (reply.code == KX_OK && reply.body.size() > static_cast<unsigned long long>(maxReplyBytes)) {
        reply.code = KX_ERR_HTTP_TOO_LARGE;
        reply.detail = "reply larger than " + std::to_string(maxReplyBytes) + " bytes";
    }
    if (reply.code != KX_OK) {
        logDetail = reply.detail.empty() ? IWK_GetErrorMsg(reply.code) : reply.detail;
        return Finish(result, reply.code, logDetail);
    }
    const long status = reply.status;
    if (status >= 200 && status < 300) {
        if (method == Method::Get && type == HTTP_REQ_PLAIN) result->strBody = reply.body;
        result->errCode = KX_OK;
        result->msg.swap(reply.body);
        return KX_OK;
    }
    logDetail = reply.statusLine.empty() ? "status " + std::to_string(status) : reply.statusLine;
    if (status < 200)
        return Finish(result, KX_ERR_HTTP_TRANSPORT, "unexpected reply: " + logDetail);
    const int code = static_cast<int>(status);
    if (reply.body.empty()) return Finish(result, code, StatusText(reply.statusLine, status));
    result->errCode = code;
    result->msg.swap(reply.body);
    return code;
}

// What a request takes beside URL, body and head: the file of an upload, the
// params of a download, the progress callback.
struct Extras {
    const char* filePath = nullptr;
    const std::string* params = nullptr;
    KXProgressCallback progress = nullptr;
};

int Perform(Method method, const std::string& url, std::string* body, const std::string& head,
            HTTPContentType contentType, HTTPRequestType type, const Extras& extras,
            KXReqResult* result, std::string& logDetail) {
    result->strExtra.clear();
    result->strBody.clear();

    KXWireRequest request;
    const bool multipart = method != Method::Get && contentType == HTTP_CONTENT_MULTIPART;
    if (method != Method::Get && contentType != HTTP_CONTENT_JSON &&
        contentType != HTTP_CONTENT_FORM && !multipart) {
        logDetail = "not supported: content type " + std::to_string(contentType);
        return Finish(result, KX_ERR_INVALID_VALUE, logDetail);
    }
    // The check depends on the URL alone: a thread that sends to the same
    // URL again does not parse it again.
    thread_local std::string lastGoodUrl;
    if (url.empty() || url != lastGoodUrl) {
        const int urlCode = IWK_CheckRequestUrl(url, logDetail);
        if (urlCode != KX_OK) return Finish(result, urlCode, logDetail);
        lastGoodUrl = url;
    }
    // Files are looked at before anything is sent.
    int fileCode = KX_OK;
    if (type == HTTP_REQ_DOWNLOAD)
        fileCode = kxhttp::DownloadTarget(extras.params ? *extras.params : std::string(),
                                          request.downloadPath, logDetail);
    if (fileCode == KX_OK && multipart)
        fileCode = kxhttp::MultipartParts(*body, extras.filePath, request.parts, logDetail);
    if (fileCode != KX_OK) return Finish(result, fileCode, logDetail);

    request.method = MethodName(method);
    request.url = url;
    request.progress = extras.progress;
    kxhttp::ReadSettings(request);
    request.headers = kxhttp::HeaderLines(head, body != nullptr, contentType);
    if (body != nullptr && !multipart) request.body = std::move(*body);
    if (!request.verifyTls && kxascii::StartsWithNoCase(url, "https://"))
        KX_LOG(KX_LOG_WARN, kSource, FunctionName(method),
               "TLS verification is off ([KXUtils] VerifyTLS=0): %s", url.c_str());

    KXWireReply reply;
    Transport().Exchange(request, reply);
    return ReadReply(method, type, request.maxReplyBytes, reply, result, logDetail);
}

int Request(Method method, const std::string& url, std::string* body, const std::string& head,
            HTTPContentType contentType, HTTPRequestType type, const Extras& extras,
            KXReqResult* result) {
    const char* function = FunctionName(method);
    if (result == nullptr) {
        KX_LOG(KX_LOG_ERROR, kSource, function, "%s %s: no result record", MethodName(method),
               url.c_str());
        return KX_ERR_INVALID_VALUE;
    }
    int code;
    std::string logDetail;
    try {
        code = Perform(method, url, body, head, contentType, type, extras, result, logDetail);
    } catch (...) {
        // Memory, or an installed transport that broke its promise not to throw.
        code = KX_ERR_HTTP_TRANSPORT;
        result->errCode = code;
        try {
            logDetail = "out of memory";
            result->msg = logDetail;
        } catch (...) {
        }
    }
    KX_LOG(KX_LOG_TRACE, kSource, function, "%s %s -> %d", MethodName(method), url.c_str(), code);
    if (code != KX_OK) {
        KX_LOG(KX_LOG_ERROR, kSource, function, "%s %s failed: %d %s", MethodName(method),
               url.c_str(), code, logDetail.c_str());
    }
    return code;
}

}  // namespace

IKXTransport::~IKXTransport() = default;

KXProgressCallback IWK_SetDefaultProgress(KXProgressCallback progress) {
    return g_progress.exchange(progress, std::memory_order_acq_rel);
}

IKXTransport* IWK_SetTransport(IKXTransport* transport) {
    return g_transport.exchange(transport, std::memory_order_acq_rel);
}

int CIWKHttp::Get(std::string url, std::string params, std::string head, KXReqResult* result,
                  HTTPRequestType type, KXProgressCallback progress) {
    Extras extras;
    extras.params = &params;
    extras.progress = ProgressOr(progress);
    return Request(Method::Get, url, nullptr, head, HTTP_CONTENT_FORM, type, extras, result);
}

int CIWKHttp::Post(std::string url, std::string body, std::string head, KXReqResult* result,
                   HTTPContentType contentType, HTTPRequestType type, KXProgressCallback progress,
                   const char* filePath, const char* /*reserved*/) {
    Extras extras;
    extras.filePath = filePath;
    extras.progress = ProgressOr(progress);
    return Request(Method::Post, url, &body, head, contentType, type, extras, result);
}

int CIWKHttp::Put(std::string url, std::string body, std::string head, KXReqResult* result,
                  HTTPContentType contentType, HTTPRequestType type, KXProgressCallback progress,
                  const char* filePath, const char* /*reserved*/) {
    Extras extras;
    extras.filePath = filePath;
    extras.progress = ProgressOr(progress);
    return Request(Method::Put, url, &body, head, contentType, type, extras, result);
}

std::string CIWKHttp::GetCompleteUrl(const std::string& path, const std::string& host,
                                     const std::string& port, bool /*flag*/) {
    try {
        std::string url;
        if (!kxascii::StartsWithNoCase(host, "http://") &&
            !kxascii::StartsWithNoCase(host, "https://"))
            url = "https://";
        url += host;
        if (!port.empty() && port != "0") url += ":" + port;
        url += path;
        return url;
    } catch (...) {
        return std::string();
    }
}
