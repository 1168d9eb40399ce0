// The libcurl transport. Each thread keeps one easy handle for its whole life,
// so sequential requests to one server share a kept-alive connection, and the
// handle's options stay set between them.
#include <curl/curl.h>
#include <openssl/ssl.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "KXCurlErrors.h"
#include "KXHttpParts.h"
#include "os/KXOs.h"

namespace {

// The one process-wide set-up of OpenSSL and libcurl, run once at the first
// request through curl. Not at load time: a library must not do such work
// while it is being loaded (DllMain on Windows forbids it). OpenSSL first,
// since curl builds on it; it would set itself up on first use as well, but
// this way a failure shows here rather than inside a handshake. Never undone:
// the host process may use curl or OpenSSL itself, and threads keep their
// handles until they end. Returns false, with the reason, when it failed.
bool GlobalSetUp(std::string& detail) {
    static std::once_flag once;
    static const char* failure = nullptr;
    static CURLcode curlStatus = CURLE_OK;
    std::call_once(once, [] {
        // No clean-up at exit either: a request may still run on another thread.
        if (OPENSSL_init_ssl(OPENSSL_INIT_NO_ATEXIT, nullptr) != 1) {
            failure = "OpenSSL initialisation failed";
            return;
        }
        curlStatus = curl_global_init(CURL_GLOBAL_DEFAULT);
        if (curlStatus != CURLE_OK) failure = "curl_global_init: ";
    });
    if (failure == nullptr) return true;
    detail = failure;
    if (curlStatus != CURLE_OK) detail += curl_easy_strerror(curlStatus);
    return false;
}

// What every handle of the process shares: TLS sessions, so that a new
// connection (a new thread, or after the server closed an idle one) resumes
// its session instead of a full handshake, and resolved names. Never
// destroyed: threads keep their handles until they end. Null when curl could
// not make it; handles then go without.
CURLSH* Share() {
    struct Shared {
        CURLSH* share = curl_share_init();
        std::mutex locks[CURL_LOCK_DATA_LAST];

        Shared() {
            if (share == nullptr) return;
            const bool ok =
                curl_share_setopt(share, CURLSHOPT_LOCKFUNC, &Lock) == CURLSHE_OK &&
                curl_share_setopt(share, CURLSHOPT_UNLOCKFUNC, &Unlock) == CURLSHE_OK &&
                curl_share_setopt(share, CURLSHOPT_USERDATA, this) == CURLSHE_OK &&
                curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION) ==
                    CURLSHE_OK &&
                curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS) == CURLSHE_OK;
            if (!ok) {
                curl_share_cleanup(share);
                share = nullptr;
            }
        }
        static void Lock(CURL*, curl_lock_data data, curl_lock_access, void* user) {
            static_cast<Shared*>(user)->locks[data].lock();
        }
        static void Unlock(CURL*, curl_lock_data data, void* user) {
            static_cast<Shared*>(user)->locks[data].unlock();
        }
    };
    static Shared* shared = new Shared;
    return shared->share;
}

// Handles of threads that ended, for threads that start: a handle keeps its
// live connections and the trust store it loaded, so that a new thread's
// first request costs no more than a resumed handshake at worst. Never
// destroyed, like the share.
class IdleHandles {
public:
    static IdleHandles& Instance() {
        static IdleHandles* idle = new IdleHandles;
        return *idle;
    }
    CURL* Take() {
        std::lock_guard<std::mutex> lock(mutex_);
        if (handles_.empty()) return nullptr;
        CURL* curl = handles_.back();
        handles_.pop_back();
        return curl;
    }
    // Takes over curl, which has been reset.
    void Give(CURL* curl) {
        std::unique_lock<std::mutex> lock(mutex_);
        if (handles_.size() < kMax) {
            try {
                handles_.push_back(curl);
                return;
            } catch (...) {
            }
        }
        lock.unlock();
        curl_easy_cleanup(curl);
    }

private:
    static const size_t kMax = 16;
    std::mutex mutex_;
    std::vector<CURL*> handles_;
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

struct Transfer {
    std::string reply;
    std::string statusLine;
    size_t limit = 0;
    bool tooLarge = false;
    bool outOfMemory = false;
};

size_t OnReplyBytes(char* data, size_t size, size_t count, void* user) {
    Transfer* t = static_cast<Transfer*>(user);
    const size_t length = size * count;
    if (length > t->limit || t->reply.size() > t->limit - length) {
        t->tooLarge = true;
        return 0;
    }
    try {
        t->reply.append(data, length);
    } catch (...) {
        t->outOfMemory = true;
        return 0;
    }
    return length;
}

size_t OnHeaderLine(char* data, size_t size, size_t count, void* user) {
    Transfer* t = static_cast<Transfer*>(user);
    const size_t length = size * count;
    try {
        // Every reply starts with a status line; after a 100 Continue or a
        // proxy's CONNECT reply the last one seen is the final one.
        if (length >= 5 && std::memcmp(data, "HTTP/", 5) == 0) {
            size_t end = length;
            while (end > 0 && (data[end - 1] == '\r' || data[end - 1] == '\n')) --end;
            t->statusLine.assign(data, end);
        }
    } catch (...) {
        t->outOfMemory = true;
        return 0;
    }
    return length;
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

// Whether plain HTTP may go through an HTTP proxy: the configured one, else
// the one curl takes from the environment.
bool HttpProxyMayApply(const KXWireRequest& request) {
    std::string proxy = request.proxy;
    if (!request.proxySet) {
        for (const char* name : {"http_proxy", "all_proxy", "ALL_PROXY"}) {
            const char* value = std::getenv(name);
            if (value != nullptr && value[0] != '\0') {
                proxy = value;
                break;
            }
        }
    }
    return !proxy.empty() && !kxascii::StartsWithNoCase(proxy, "socks");
}

// The request line carries path and query exactly as given: from the URL
// alone curl would percent-encode bytes of 0x80 and above in the path. Plain
// HTTP through a proxy names the whole URL there, and a given target replaces
// that too; should no_proxy send it direct after all, the server gets that
// absolute form, which HTTP/1.1 servers accept.
std::string TargetOf(const KXWireRequest& request) {
    std::string target = kxhttp::PathAndQuery(request.url);
    if (kxascii::StartsWithNoCase(request.url, "http://") && HttpProxyMayApply(request))
        target.insert(0, kxhttp::Origin(request.url));
    return target;
}

// curl drops a line with nothing after its colon (that form removes one of
// its own headers); "Name;" is how it sends a header with an empty value.
std::string CurlLine(const std::string& line) {
    const size_t colon = line.find(':');
    if (colon == std::string::npos || colon == 0 ||
        line.find_first_not_of(" \t", colon + 1) != std::string::npos)
        return line;
    return line.substr(0, colon) + ";";
}

void Fail(KXWireReply& reply, int code, std::string detail) {
    reply.code = code;
    reply.detail = std::move(detail);
}

// The options of a request that seldom change between the requests of one
// thread. While they stay the same, a handle keeps every option set and a
// request sets only the URL, the header lines and the body that differ.
struct Fixed {
    std::string method;
    bool verifyTls = true;
    std::string caFile;
    long connectTimeoutMs = 0;
    long timeoutMs = 0;
    bool proxySet = false;
    std::string proxy;
    long long maxReplyBytes = 0;

    static Fixed Of(const KXWireRequest& r) {
        return Fixed{r.method,    r.verifyTls, r.caFile, r.connectTimeoutMs,
                     r.timeoutMs, r.proxySet,  r.proxy,  r.maxReplyBytes};
    }
    bool operator==(const Fixed& o) const {
        return method == o.method && verifyTls == o.verifyTls && caFile == o.caFile &&
               connectTimeoutMs == o.connectTimeoutMs && timeoutMs == o.timeoutMs &&
               proxySet == o.proxySet && proxy == o.proxy && maxReplyBytes == o.maxReplyBytes;
    }
};

// An easy handle with what its options point to: the transfer record, the
// error text and the header list live as long as the handle does.
class Handle {
public:
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    // A thread's handle goes to the idle ones when the thread ends.
    explicit Handle(bool pooled) : pooled_(pooled) {}
    ~Handle() {
        if (curl_ == nullptr) return;
        if (pooled_) {
            // Drops every option, keeps connections and the trust store.
            curl_easy_reset(curl_);
            IdleHandles::Instance().Give(curl_);
        } else {
            curl_easy_cleanup(curl_);
        }
    }

    // False when curl could not make the handle.
    bool Open() {
        if (curl_ != nullptr) return true;
        if (pooled_) curl_ = IdleHandles::Instance().Take();
        if (curl_ != nullptr) return true;
        curl_ = curl_easy_init();
        if (curl_ == nullptr) return false;
        CURLSH* share = Share();
        if (share != nullptr) curl_easy_setopt(curl_, CURLOPT_SHARE, share);
        return true;
    }

    // Sets what this request needs that is not set yet.
    CURLcode Prepare(const KXWireRequest& request) {
        transfer_ = Transfer();
        transfer_.limit = request.maxReplyBytes > 0 ? static_cast<size_t>(request.maxReplyBytes)
                                                    : static_cast<size_t>(-1);
        errorBuffer_[0] = '\0';
        Options opt(curl_);
        const Fixed fixed = Fixed::Of(request);
        // Uploads, downloads and progress set options of their own: they
        // start from curl's defaults.
        if (!request.parts.empty() || !request.downloadPath.empty() || request.progress != nullptr)
            ready_ = false;
        if (!ready_ || !(fixed_ == fixed)) {
            // Back to curl's defaults (the live connections stay), then all of it.
            if (ready_ || fixedSet_) curl_easy_reset(curl_);
            ready_ = false;
            fixedSet_ = true;
            url_.clear();
            target_.clear();
            headerLines_.clear();
            headers_.reset(new HeaderList);
            SetFixed(opt, request);
            fixed_ = fixed;
        }
        const std::string target = TargetOf(request);
        if (url_ != request.url || target_ != target) {
            opt.set(CURLOPT_URL, request.url.c_str());
            opt.set(CURLOPT_REQUEST_TARGET, target.c_str());
            url_ = request.url;
            target_ = target;
        }
        if (headerLines_ != request.headers || !headers_->get()) {
            std::unique_ptr<HeaderList> headers(new HeaderList);
            // Keeps curl from sending "Expect: 100-continue" before a large
            // body and waiting for an answer.
            bool ok = headers->add("Expect:");
            for (const std::string& line : request.headers) ok = ok && headers->add(CurlLine(line));
            if (!ok) throw std::bad_alloc();
            opt.set(CURLOPT_HTTPHEADER, headers->get());
            headers_.swap(headers);
            headerLines_ = request.headers;
        }
        if (request.method != "GET" && request.parts.empty()) {
            opt.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
            opt.set(CURLOPT_POSTFIELDS, request.body.data());
        }
        ready_ = opt.status() == CURLE_OK;
        return opt.status();
    }

    CURL* curl() const { return curl_; }
    Transfer& transfer() { return transfer_; }
    // The next Prepare sets every option again.
    void Invalidate() { ready_ = false; }
    const char* error() const { return errorBuffer_; }
    bool busy = false;

private:
    void SetFixed(Options& opt, const KXWireRequest& request) {
        opt.set(CURLOPT_ERRORBUFFER, errorBuffer_);
        opt.set(CURLOPT_PROTOCOLS_STR, "http,https");
        opt.set(CURLOPT_NOSIGNAL, 1L);
        opt.set(CURLOPT_FOLLOWLOCATION, 0L);
        opt.set(CURLOPT_WRITEFUNCTION, &OnReplyBytes);
        opt.set(CURLOPT_WRITEDATA, &transfer_);
        opt.set(CURLOPT_HEADERFUNCTION, &OnHeaderLine);
        opt.set(CURLOPT_HEADERDATA, &transfer_);
        if (request.maxReplyBytes > 0)
            opt.set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(request.maxReplyBytes));
        opt.set(CURLOPT_CONNECTTIMEOUT_MS, request.connectTimeoutMs);
        opt.set(CURLOPT_TIMEOUT_MS, request.timeoutMs);
        opt.set(CURLOPT_SSL_VERIFYPEER, request.verifyTls ? 1L : 0L);
        opt.set(CURLOPT_SSL_VERIFYHOST, request.verifyTls ? 2L : 0L);
        if (!request.caFile.empty()) {
            // The named bundle is the whole trust: the system directory no longer counts.
            opt.set(CURLOPT_CAINFO, request.caFile.c_str());
            opt.set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
        }
        if (request.proxySet) opt.set(CURLOPT_PROXY, request.proxy.c_str());
        if (request.method == "GET") {
            opt.set(CURLOPT_HTTPGET, 1L);
        } else {
            opt.set(CURLOPT_POST, 1L);
            if (request.method != "POST") opt.set(CURLOPT_CUSTOMREQUEST, request.method.c_str());
        }
    }

    const bool pooled_;
    CURL* curl_ = nullptr;
    Transfer transfer_;
    char errorBuffer_[CURL_ERROR_SIZE] = {0};
    bool ready_ = false;     // every option of fixed_ and url_ is in place
    bool fixedSet_ = false;  // options were set since the handle was made
    Fixed fixed_;
    std::string url_;
    std::string target_;
    std::vector<std::string> headerLines_;
    std::unique_ptr<HeaderList> headers_{new HeaderList};
};

// Lends the thread's handle for one request, or a fresh one if the thread's
// handle is already in use further up the stack. The thread's handle keeps
// its connections and its options between requests.
class HandleLease {
public:
    HandleLease() {
        thread_local Handle mine(true);
        if (!mine.busy && mine.Open()) {
            mine.busy = true;
            handle_ = &mine;
            return;
        }
        fresh_.reset(new Handle(false));
        if (fresh_->Open()) handle_ = fresh_.get();
    }
    HandleLease(const HandleLease&) = delete;
    HandleLease& operator=(const HandleLease&) = delete;
    ~HandleLease() {
        if (handle_ != nullptr && !fresh_) handle_->busy = false;
    }
    Handle* get() const { return handle_; }

private:
    Handle* handle_ = nullptr;
    std::unique_ptr<Handle> fresh_;
};

// ---------------------------------------------------------------------------
// Multipart uploads, downloads to a file and progress: apart from the plain
// exchange, which calls in at three places.

// The multipart body of a request; files are streamed from disk by curl.
class MimeBody {
public:
    MimeBody() = default;
    MimeBody(const MimeBody&) = delete;
    MimeBody& operator=(const MimeBody&) = delete;
    ~MimeBody() { curl_mime_free(mime_); }

    // 0, or a code with detail.
    int Build(CURL* curl, const std::vector<KXWirePart>& parts, std::string& detail) {
        mime_ = curl_mime_init(curl);
        if (mime_ == nullptr) throw std::bad_alloc();
        for (const KXWirePart& p : parts) {
            curl_mimepart* part = curl_mime_addpart(mime_);
            if (part == nullptr || curl_mime_name(part, p.name.c_str()) != CURLE_OK)
                throw std::bad_alloc();
            if (p.filePath.empty()) {
                if (curl_mime_data(part, p.value.data(), p.value.size()) != CURLE_OK)
                    throw std::bad_alloc();
                continue;
            }
            if (curl_mime_filedata(part, p.filePath.c_str()) != CURLE_OK ||
                curl_mime_filename(part, p.fileName.c_str()) != CURLE_OK) {
                detail = "cannot read " + p.filePath;
                return KX_ERR_HTTP_LOCAL_FILE;
            }
        }
        return KX_OK;
    }
    curl_mime* get() const { return mime_; }

private:
    curl_mime* mime_ = nullptr;
};

// The body of a 2xx reply goes to a temporary file beside the target, which
// replaces the target only once the whole reply is there; any other reply
// stays in memory as an error text.
class DownloadSink {
public:
    DownloadSink(CURL* curl, const std::string& target, Transfer& memory)
        : curl_(curl), target_(target), memory_(memory) {}
    DownloadSink(const DownloadSink&) = delete;
    DownloadSink& operator=(const DownloadSink&) = delete;
    ~DownloadSink() {
        file_.Close();
        if (!tmpPath_.empty()) kxos::RemoveFile(tmpPath_);
    }

    static size_t OnBytes(char* data, size_t size, size_t count, void* user) {
        DownloadSink* sink = static_cast<DownloadSink*>(user);
        if (!sink->Success()) return OnReplyBytes(data, size, count, &sink->memory_);
        const size_t length = size * count;
        if (!sink->Open() || !sink->file_.WriteAll(data, length)) {
            sink->failed_ = true;
            return 0;
        }
        return length;
    }
    // After a complete exchange: puts the file in place (an empty reply makes
    // an empty file). 0, or a code with detail.
    int Commit(std::string& detail) {
        if (!Success()) return KX_OK;
        if (!Open() || !file_.Sync() || !file_.Close() || !kxos::Rename(tmpPath_, target_)) {
            detail = "cannot write " + target_;
            return KX_ERR_HTTP_LOCAL_FILE;
        }
        tmpPath_.clear();
        return KX_OK;
    }
    bool failed() const { return failed_; }
    const std::string& target() const { return target_; }

private:
    bool Success() const {
        long status = 0;
        curl_easy_getinfo(curl_, CURLINFO_RESPONSE_CODE, &status);
        return status >= 200 && status < 300;
    }
    bool Open() {
        if (!file_.ok() && tmpPath_.empty()) {
            kxos::RemoveOrphanPartials(target_);
            file_ = kxos::File::CreatePartial(target_, tmpPath_);
            if (!file_.ok()) tmpPath_.clear();
        }
        return file_.ok();
    }

    CURL* curl_;
    const std::string& target_;
    Transfer& memory_;
    kxos::File file_;
    std::string tmpPath_;
    bool failed_ = false;
};

int OnProgress(void* user, curl_off_t dlTotal, curl_off_t dlNow, curl_off_t ulTotal,
               curl_off_t ulNow) {
    const KXWireRequest* request = static_cast<const KXWireRequest*>(user);
    return request->progress(dlTotal, dlNow, ulTotal, ulNow) ? 0 : 1;
}

// Options of the three; 0, or a code with detail when a file cannot be used.
int SetFileOptions(Options& opt, CURL* curl, const KXWireRequest& request, MimeBody& mime,
                   DownloadSink* sink, std::string& detail) {
    if (sink != nullptr) {
        opt.set(CURLOPT_WRITEFUNCTION, &DownloadSink::OnBytes);
        opt.set(CURLOPT_WRITEDATA, sink);
    }
    if (request.progress != nullptr) {
        opt.set(CURLOPT_NOPROGRESS, 0L);
        opt.set(CURLOPT_XFERINFOFUNCTION, &OnProgress);
        opt.set(CURLOPT_XFERINFODATA, &request);
    }
    if (request.method == "GET" || request.parts.empty()) return KX_OK;
    const int code = mime.Build(curl, request.parts, detail);
    if (code != KX_OK) return code;
    opt.set(CURLOPT_MIMEPOST, mime.get());
    if (request.method != "POST") opt.set(CURLOPT_CUSTOMREQUEST, request.method.c_str());
    return KX_OK;
}

void Run(const KXWireRequest& request, KXWireReply& reply) {
    std::string detail;
    if (!GlobalSetUp(detail)) return Fail(reply, KX_ERR_HTTP_TRANSPORT, detail);

    HandleLease lease;
    Handle* handle = lease.get();
    if (handle == nullptr) throw std::bad_alloc();
    const CURLcode set = handle->Prepare(request);
    if (set != CURLE_OK)
        return Fail(reply, KX_ERR_HTTP_TRANSPORT,
                    std::string("curl_easy_setopt: ") + curl_easy_strerror(set));

    CURL* curl = handle->curl();
    Transfer& transfer = handle->transfer();
    MimeBody mime;
    std::unique_ptr<DownloadSink> sink;
    const bool special =
        !request.parts.empty() || !request.downloadPath.empty() || request.progress != nullptr;
    if (special) {
        // These options are the request's own: the next request starts the
        // handle's options afresh.
        handle->Invalidate();
        Options opt(curl);
        if (!request.downloadPath.empty()) {
            sink.reset(new DownloadSink(curl, request.downloadPath, transfer));
            opt.set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(0));
        }
        const int fileCode = SetFileOptions(opt, curl, request, mime, sink.get(), detail);
        if (fileCode != KX_OK) return Fail(reply, fileCode, detail);
        if (opt.status() != CURLE_OK)
            return Fail(reply, KX_ERR_HTTP_TRANSPORT,
                        std::string("curl_easy_setopt: ") + curl_easy_strerror(opt.status()));
    }

    const CURLcode rc = curl_easy_perform(curl);
    reply.statusLine = transfer.statusLine;
    if (rc != CURLE_OK) {
        if (transfer.tooLarge || rc == CURLE_FILESIZE_EXCEEDED)
            return Fail(reply, KX_ERR_HTTP_TOO_LARGE,
                        "reply larger than " + std::to_string(request.maxReplyBytes) + " bytes");
        if (transfer.outOfMemory)
            return Fail(reply, KX_ERR_HTTP_TRANSPORT, "out of memory while receiving the reply");
        if (sink && sink->failed())
            return Fail(reply, KX_ERR_HTTP_LOCAL_FILE, "cannot write " + sink->target());
        char* ip = nullptr;
        curl_easy_getinfo(curl, CURLINFO_PRIMARY_IP, &ip);
        return Fail(reply, kxhttp::MapCurlCode(rc, ip != nullptr && ip[0] != '\0'),
                    handle->error()[0] != '\0' ? handle->error() : curl_easy_strerror(rc));
    }
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
    if (sink && sink->Commit(detail) != KX_OK) return Fail(reply, KX_ERR_HTTP_LOCAL_FILE, detail);
    reply.body.swap(transfer.reply);
}

class LibcurlTransport final : public IKXTransport {
public:
    void Exchange(const KXWireRequest& request, KXWireReply& reply) override {
        try {
            Run(request, reply);
        } catch (...) {
            reply.code = KX_ERR_HTTP_TRANSPORT;
            try {
                reply.detail = "out of memory";
            } catch (...) {
            }
        }
    }
};

}  // namespace

// Never destroyed: a report's thread may still be inside a request while the
// process ends.
IKXTransport& kxhttp::CurlTransport() {
    static LibcurlTransport* transport = new LibcurlTransport;
    return *transport;
}
