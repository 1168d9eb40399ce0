// HTTP requests on libcurl. Each thread keeps one easy handle for its whole
// life, so sequential requests to one server share a kept-alive connection.
#include <curl/curl.h>

#include <cctype>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "KXConfigSnapshot.h"
#include "KXUtils.h"

namespace {

const char kSource[] = "KXHttp";

const int kDefaultConnectTimeoutMs = 10000;
const int kDefaultTimeoutMs = 60000;
const int kDefaultMaxReplyBytes = 67108864;

// Settings of section [KXUtils], read at every request so that a change of the
// store applies to the next one.
struct Settings {
    std::string caFile;
    bool verifyTls = true;
    long connectTimeoutMs = kDefaultConnectTimeoutMs;
    long timeoutMs = kDefaultTimeoutMs;
    bool proxySet = false;  // an empty Proxy value turns the proxy off
    std::string proxy;
    curl_off_t maxReplyBytes = kDefaultMaxReplyBytes;
};

Settings ReadSettings() {
    // One look at the store for all of them.
    const kxutils::ConfigSnapshot config;
    Settings s;
    config.Get("KXUtils", "CAFile", s.caFile, "");
    int verify = 1;
    config.Get("KXUtils", "VerifyTLS", verify, 1);
    s.verifyTls = verify != 0;
    int value = 0;
    // 0 keeps curl's meaning (no limit); a negative value is a typing error.
    config.Get("KXUtils", "ConnectTimeoutMs", value, kDefaultConnectTimeoutMs);
    s.connectTimeoutMs = value >= 0 ? value : kDefaultConnectTimeoutMs;
    config.Get("KXUtils", "TimeoutMs", value, kDefaultTimeoutMs);
    s.timeoutMs = value >= 0 ? value : kDefaultTimeoutMs;
    s.proxySet = config.Get("KXUtils", "Proxy", s.proxy, "") != 0;
    config.Get("KXUtils", "MaxReplyBytes", value, kDefaultMaxReplyBytes);
    s.maxReplyBytes = value > 0 ? value : kDefaultMaxReplyBytes;
    return s;
}

CURLcode GlobalInit() {
    static std::once_flag once;
    static CURLcode status = CURLE_FAILED_INIT;
    std::call_once(once, [] { status = curl_global_init(CURL_GLOBAL_DEFAULT); });
    return status;
}

// The handle of this thread. Its connection cache survives curl_easy_reset.
class ThreadHandle {
public:
    ThreadHandle() = default;
    ThreadHandle(const ThreadHandle&) = delete;
    ThreadHandle& operator=(const ThreadHandle&) = delete;
    ~ThreadHandle() {
        if (handle_ != nullptr) curl_easy_cleanup(handle_);
    }

    CURL* handle_ = nullptr;
    bool busy_ = false;
};

// Lends the thread's handle for one request, or a fresh one if the thread's
// handle is already in use further up the stack.
class HandleLease {
public:
    HandleLease() {
        thread_local ThreadHandle mine;
        if (!mine.busy_) {
            if (mine.handle_ == nullptr) mine.handle_ = curl_easy_init();
            if (mine.handle_ != nullptr) {
                owner_ = &mine;
                mine.busy_ = true;
                handle_ = mine.handle_;
                return;
            }
        }
        handle_ = curl_easy_init();
    }
    HandleLease(const HandleLease&) = delete;
    HandleLease& operator=(const HandleLease&) = delete;
    ~HandleLease() {
        if (handle_ == nullptr) return;
        if (owner_ != nullptr) {
            // Drops every option (and pointers into this call's buffers) but
            // keeps the live connections.
            curl_easy_reset(handle_);
            owner_->busy_ = false;
        } else {
            curl_easy_cleanup(handle_);
        }
    }
    CURL* get() const { return handle_; }

private:
    CURL* handle_ = nullptr;
    ThreadHandle* owner_ = nullptr;
};

class HeaderList {
public:
    HeaderList() = default;
    HeaderList(const HeaderList&) = delete;
    HeaderList& operator=(const HeaderList&) = delete;
    ~HeaderList() { curl_slist_free_all(list_); }
    bool add(const std::string& line) {
        curl_slist* next = curl_slist_append(list_, line.c_str());
        if (next == nullptr) return false;
        list_ = next;
        return true;
    }
    curl_slist* get() const { return list_; }

private:
    curl_slist* list_ = nullptr;
};

struct Exchange {
    std::string reply;
    std::string statusLine;
    size_t limit = 0;
    bool tooLarge = false;
    bool outOfMemory = false;
};

size_t OnReplyBytes(char* data, size_t size, size_t count, void* user) {
    Exchange* ex = static_cast<Exchange*>(user);
    const size_t length = size * count;
    if (length > ex->limit || ex->reply.size() > ex->limit - length) {
        ex->tooLarge = true;
        return 0;
    }
    try {
        ex->reply.append(data, length);
    } catch (...) {
        ex->outOfMemory = true;
        return 0;
    }
    return length;
}

size_t OnHeaderLine(char* data, size_t size, size_t count, void* user) {
    Exchange* ex = static_cast<Exchange*>(user);
    const size_t length = size * count;
    try {
        // Every reply starts with a status line; after a 100 Continue or a
        // proxy's CONNECT reply the last one seen is the final one.
        if (length >= 5 && std::memcmp(data, "HTTP/", 5) == 0) {
            size_t end = length;
            while (end > 0 && (data[end - 1] == '\r' || data[end - 1] == '\n')) --end;
            ex->statusLine.assign(data, end);
        }
    } catch (...) {
        ex->outOfMemory = true;
        return 0;
    }
    return length;
}

bool StartsWithNoCase(const std::string& text, const char* prefix) {
    const size_t n = std::strlen(prefix);
    if (text.size() < n) return false;
    for (size_t i = 0; i < n; ++i) {
        if (std::tolower(static_cast<unsigned char>(text[i])) !=
            std::tolower(static_cast<unsigned char>(prefix[i])))
            return false;
    }
    return true;
}

bool EndsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// A header line naming Content-Type, also in curl's "Name;" (empty value) form.
bool IsContentTypeLine(const std::string& line) {
    if (!StartsWithNoCase(line, "content-type")) return false;
    size_t i = std::strlen("content-type");
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
    return i < line.size() && (line[i] == ':' || line[i] == ';');
}

// Header lines of a head. Any CR or LF ends a line, so no line can smuggle a
// second header in; blank lines are dropped.
std::vector<std::string> SplitHead(const std::string& head) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start <= head.size()) {
        size_t end = head.find_first_of("\r\n", start);
        if (end == std::string::npos) end = head.size();
        std::string line = head.substr(start, end - start);
        if (line.find_first_not_of(" \t") != std::string::npos) lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

std::string CurlDetail(CURLcode code, const char* errorBuffer) {
    if (errorBuffer != nullptr && errorBuffer[0] != '\0') return errorBuffer;
    return curl_easy_strerror(code);
}

bool IsTlsFailure(CURLcode code) {
    switch (code) {
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_ENGINE_NOTFOUND:
        case CURLE_SSL_ENGINE_SETFAILED:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_USE_SSL_FAILED:
        case CURLE_SSL_SHUTDOWN_FAILED:
        case CURLE_SSL_CRL_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
        case CURLE_SSL_INVALIDCERTSTATUS:
        case CURLE_SSL_CLIENTCERT:
            return true;
        default:
            return false;
    }
}

// connected: a connection to the server was made, so the failure lies in what
// came back, never in the URL.
int MapCurlCode(CURLcode code, bool connected) {
    if (IsTlsFailure(code)) return KX_ERR_HTTP_TLS;
    switch (code) {
        case CURLE_URL_MALFORMAT:
            return KX_ERR_HTTP_BAD_URL;
        case CURLE_UNSUPPORTED_PROTOCOL:
            // Also what curl says of a reply that is no HTTP at all.
            return connected ? KX_ERR_HTTP_TRANSPORT : KX_ERR_HTTP_BAD_URL;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            return KX_ERR_HTTP_RESOLVE;
        case CURLE_COULDNT_CONNECT:
            return KX_ERR_HTTP_CONNECT;
        case CURLE_OPERATION_TIMEDOUT:
            return KX_ERR_HTTP_TIMEOUT;
        case CURLE_FILESIZE_EXCEEDED:
            return KX_ERR_HTTP_TOO_LARGE;
        default:
            return KX_ERR_HTTP_TRANSPORT;
    }
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

// Refuses what curl would send elsewhere than asked, or not at all: no scheme
// (curl would guess one), a scheme other than HTTP(S), an embedded NUL (the
// rest would be cut off). Names under .invalid never resolve (RFC 6761), so
// they fail here without asking a name server.
int CheckUrl(const std::string& url, std::string& detail) {
    if (url.empty()) {
        detail = "empty URL";
        return KX_ERR_HTTP_BAD_URL;
    }
    if (url.find('\0') != std::string::npos) {
        detail = "URL holds a NUL byte";
        return KX_ERR_HTTP_BAD_URL;
    }
    CURLU* parsed = curl_url();
    if (parsed == nullptr) throw std::bad_alloc();
    int code = KX_OK;
    CURLUcode rc = curl_url_set(parsed, CURLUPART_URL, url.c_str(),
                                CURLU_NON_SUPPORT_SCHEME | CURLU_PATH_AS_IS);
    if (rc != CURLUE_OK) {
        detail = std::string("URL rejected: ") + curl_url_strerror(rc);
        code = KX_ERR_HTTP_BAD_URL;
    } else {
        char* scheme = nullptr;
        char* host = nullptr;
        curl_url_get(parsed, CURLUPART_SCHEME, &scheme, 0);
        curl_url_get(parsed, CURLUPART_HOST, &host, 0);
        std::string schemeText = scheme != nullptr ? scheme : "";
        std::string hostText = host != nullptr ? host : "";
        curl_free(scheme);
        curl_free(host);
        for (char& c : hostText) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        while (!hostText.empty() && hostText.back() == '.') hostText.pop_back();
        if (schemeText != "http" && schemeText != "https") {
            detail = "Protocol \"" + schemeText + "\" not supported";
            code = KX_ERR_HTTP_BAD_URL;
        } else if (hostText == "invalid" || EndsWith(hostText, ".invalid")) {
            detail = "Could not resolve host: " + hostText;
            code = KX_ERR_HTTP_RESOLVE;
        }
    }
    curl_url_cleanup(parsed);
    return code;
}

// Stores the outcome; the returned value always equals result->errCode.
int Finish(KXReqResult* result, int code, const std::string& msg) {
    result->errCode = code;
    result->msg = msg;
    return code;
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

// Collects the first failing setopt, so that one check covers them all.
class Options {
public:
    explicit Options(CURL* handle) : handle_(handle) {}
    template <typename T>
    void set(CURLoption option, T value) {
        CURLcode rc = curl_easy_setopt(handle_, option, value);
        if (rc != CURLE_OK && first_ == CURLE_OK) first_ = rc;
    }
    CURLcode status() const { return first_; }

private:
    CURL* handle_;
    CURLcode first_ = CURLE_OK;
};

int Perform(Method method, const std::string& url, const std::string* body, const std::string& head,
            HTTPContentType contentType, HTTPRequestType type, KXReqResult* result,
            std::string& logDetail) {
    result->strExtra.clear();
    result->strBody.clear();

    if (type == HTTP_REQ_DOWNLOAD) {
        logDetail = "not supported: download to a file";
        return Finish(result, KX_ERR_INVALID_VALUE, logDetail);
    }
    if (method != Method::Get && contentType != HTTP_CONTENT_JSON &&
        contentType != HTTP_CONTENT_FORM) {
        logDetail = contentType == HTTP_CONTENT_MULTIPART
                        ? "not supported: multipart upload"
                        : "not supported: content type " + std::to_string(contentType);
        return Finish(result, KX_ERR_INVALID_VALUE, logDetail);
    }

    CURLcode init = GlobalInit();
    if (init != CURLE_OK) {
        logDetail = std::string("curl_global_init: ") + curl_easy_strerror(init);
        return Finish(result, KX_ERR_HTTP_TRANSPORT, logDetail);
    }

    std::string detail;
    int urlCode = CheckUrl(url, detail);
    if (urlCode != KX_OK) {
        logDetail = detail;
        return Finish(result, urlCode, detail);
    }

    const Settings settings = ReadSettings();

    HeaderList headers;
    bool ok = headers.add("Expect:");
    const std::vector<std::string> lines = SplitHead(head);
    if (method != Method::Get) {
        bool headHasType = false;
        for (const std::string& line : lines) headHasType = headHasType || IsContentTypeLine(line);
        if (!headHasType) {
            ok = ok && headers.add(contentType == HTTP_CONTENT_JSON
                                       ? "Content-Type: application/json"
                                       : "Content-Type: application/x-www-form-urlencoded");
        }
    }
    for (const std::string& line : lines) ok = ok && headers.add(line);
    if (!ok) throw std::bad_alloc();

    HandleLease lease;
    CURL* curl = lease.get();
    if (curl == nullptr) throw std::bad_alloc();

    Exchange ex;
    ex.limit = static_cast<size_t>(settings.maxReplyBytes);
    char errorBuffer[CURL_ERROR_SIZE];
    errorBuffer[0] = '\0';

    Options opt(curl);
    opt.set(CURLOPT_ERRORBUFFER, errorBuffer);
    opt.set(CURLOPT_URL, url.c_str());
    opt.set(CURLOPT_PROTOCOLS_STR, "http,https");
    opt.set(CURLOPT_PATH_AS_IS, 1L);
    opt.set(CURLOPT_NOSIGNAL, 1L);
    opt.set(CURLOPT_FOLLOWLOCATION, 0L);
    opt.set(CURLOPT_HTTPHEADER, headers.get());
    opt.set(CURLOPT_WRITEFUNCTION, &OnReplyBytes);
    opt.set(CURLOPT_WRITEDATA, &ex);
    opt.set(CURLOPT_HEADERFUNCTION, &OnHeaderLine);
    opt.set(CURLOPT_HEADERDATA, &ex);
    opt.set(CURLOPT_MAXFILESIZE_LARGE, settings.maxReplyBytes);
    opt.set(CURLOPT_CONNECTTIMEOUT_MS, settings.connectTimeoutMs);
    opt.set(CURLOPT_TIMEOUT_MS, settings.timeoutMs);
    if (settings.verifyTls) {
        opt.set(CURLOPT_SSL_VERIFYPEER, 1L);
        opt.set(CURLOPT_SSL_VERIFYHOST, 2L);
    } else {
        if (StartsWithNoCase(url, "https://"))
            KX_LOG(KX_LOG_WARN, kSource, FunctionName(method),
                   "TLS verification is off ([KXUtils] VerifyTLS=0): %s", url.c_str());
        opt.set(CURLOPT_SSL_VERIFYPEER, 0L);
        opt.set(CURLOPT_SSL_VERIFYHOST, 0L);
    }
    if (!settings.caFile.empty()) {
        // The named bundle is the whole trust: the system directory no longer counts.
        opt.set(CURLOPT_CAINFO, settings.caFile.c_str());
        opt.set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    }
    if (settings.proxySet) opt.set(CURLOPT_PROXY, settings.proxy.c_str());

    if (method == Method::Get) {
        opt.set(CURLOPT_HTTPGET, 1L);
    } else {
        opt.set(CURLOPT_POST, 1L);
        opt.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body->size()));
        opt.set(CURLOPT_POSTFIELDS, body->data());
        if (method == Method::Put) opt.set(CURLOPT_CUSTOMREQUEST, "PUT");
    }
    if (opt.status() != CURLE_OK) {
        logDetail = std::string("curl_easy_setopt: ") + curl_easy_strerror(opt.status());
        return Finish(result, KX_ERR_HTTP_TRANSPORT, logDetail);
    }

    const CURLcode rc = curl_easy_perform(curl);
    result->strExtra = ex.statusLine;

    if (rc != CURLE_OK) {
        int code;
        if (ex.tooLarge || rc == CURLE_FILESIZE_EXCEEDED) {
            code = KX_ERR_HTTP_TOO_LARGE;
            detail = "reply larger than " + std::to_string(settings.maxReplyBytes) + " bytes";
        } else if (ex.outOfMemory) {
            code = KX_ERR_HTTP_TRANSPORT;
            detail = "out of memory while receiving the reply";
        } else {
            char* ip = nullptr;
            curl_easy_getinfo(curl, CURLINFO_PRIMARY_IP, &ip);
            code = MapCurlCode(rc, ip != nullptr && ip[0] != '\0');
            detail = CurlDetail(rc, errorBuffer);
        }
        logDetail = detail;
        return Finish(result, code, detail);
    }

    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    if (status >= 200 && status < 300) {
        if (method == Method::Get && type == HTTP_REQ_PLAIN) result->strBody = ex.reply;
        result->errCode = KX_OK;
        result->msg.swap(ex.reply);
        return KX_OK;
    }
    logDetail = ex.statusLine.empty() ? "status " + std::to_string(status) : ex.statusLine;
    if (status < 200)
        return Finish(result, KX_ERR_HTTP_TRANSPORT, "unexpected reply: " + logDetail);
    const int code = static_cast<int>(status);
    if (ex.reply.empty()) return Finish(result, code, StatusText(ex.statusLine, status));
    result->errCode = code;
    result->msg.swap(ex.reply);
    return code;
}

int Request(Method method, const std::string& url, const std::string* body, const std::string& head,
            HTTPContentType contentType, HTTPRequestType type, KXReqResult* result) {
    const char* function = FunctionName(method);
    if (result == nullptr) {
        KX_LOG(KX_LOG_ERROR, kSource, function, "%s %s: no result record", MethodName(method),
               url.c_str());
        return KX_ERR_INVALID_VALUE;
    }
    int code;
    std::string logDetail;
    try {
        code = Perform(method, url, body, head, contentType, type, result, logDetail);
    } catch (...) {
        code = KX_ERR_HTTP_TRANSPORT;
        try {
            logDetail = "out of memory";
            result->errCode = code;
            result->msg = logDetail;
        } catch (...) {
            result->errCode = code;
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

int CIWKHttp::Get(std::string url, std::string /*params*/, std::string head, KXReqResult* result,
                  HTTPRequestType type, KXProgressCallback /*progress*/) {
    return Request(Method::Get, url, nullptr, head, HTTP_CONTENT_FORM, type, result);
}

int CIWKHttp::Post(std::string url, std::string body, std::string head, KXReqResult* result,
                   HTTPContentType contentType, HTTPRequestType type,
                   KXProgressCallback /*progress*/, const char* /*filePath*/,
                   const char* /*reserved*/) {
    return Request(Method::Post, url, &body, head, contentType, type, result);
}

int CIWKHttp::Put(std::string url, std::string body, std::string head, KXReqResult* result,
                  HTTPContentType contentType, HTTPRequestType type,
                  KXProgressCallback /*progress*/, const char* /*filePath*/,
                  const char* /*reserved*/) {
    return Request(Method::Put, url, &body, head, contentType, type, result);
}

std::string CIWKHttp::GetCompleteUrl(const std::string& path, const std::string& host,
                                     const std::string& port, bool /*flag*/) {
    try {
        std::string url;
        if (!StartsWithNoCase(host, "http://") && !StartsWithNoCase(host, "https://"))
            url = "https://";
        url += host;
        if (!port.empty() && port != "0") url += ":" + port;
        url += path;
        return url;
    } catch (...) {
        return std::string();
    }
}
