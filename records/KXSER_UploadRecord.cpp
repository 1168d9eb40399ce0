// Usage reports: fire and forget, one detached thread per report.
//
// Reports in flight when the process exits (or the library unloads). Each
// worker owns its work item, so it shares nothing with its caller. A count of
// workers in flight lives in a gate that is never destroyed. When the library
// unloads, it waits for them, at most one second, and then closes the gate. A
// worker looks at the gate before each step (configuration, request, log
// line): once it is closed the worker ends at once, its report lost like any
// failed delivery. A request already under way when the wait ends runs on only over
// state that is never destroyed: the configuration store, the log and the
// HTTP transport of the platform layer.
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "KXRecords.h"
#include "KXUtils.h"
#include "frame/KXCall.h"
#include "records/UploadRecord.h"

namespace {

const long long kUnloadWaitMs = 1000;

class ReportGate {
public:
    // false once closed: no new worker then.
    bool Start() {
        std::lock_guard<std::mutex> lock(mutex_);
        if (closed_) return false;
        ++inFlight_;
        return true;
    }
    void Done() {
        std::lock_guard<std::mutex> lock(mutex_);
        --inFlight_;
        idle_.notify_all();
    }
    bool Closed() {
        std::lock_guard<std::mutex> lock(mutex_);
        return closed_;
    }
    // Waits for the workers in flight; close then turns the rest away.
    bool Wait(long long timeoutMs, bool close) {
        std::unique_lock<std::mutex> lock(mutex_);
        const bool idle = idle_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                         [this] { return inFlight_ == 0; });
        closed_ = closed_ || close;
        return idle;
    }

private:
    std::mutex mutex_;
    std::condition_variable idle_;
    long inFlight_ = 0;
    bool closed_ = false;
};

// Never destroyed: a worker may still look at it while the process ends.
ReportGate& Gate() {
    static ReportGate* gate = new ReportGate;
    return *gate;
}

struct Unload {
    ~Unload() { Gate().Wait(kUnloadWaitMs, true); }
} g_unload;

// Crosses to the thread, which owns it from then on.
struct ReportItem {
    int recordType;
    std::string body;
};

std::string GetUrlByRecordType(int recordType) {
    std::string base;
    IWK_GetConfig(KXKey::ReportHostPort, base);
    std::string path;
    switch (recordType) {
        case 1:
            IWK_GetConfig(KXKey::ReportsignLog, path);
            break;
        case 2:
            IWK_GetConfig(KXKey::ReportEncryptLog, path);
            break;
        case 3:
            IWK_GetConfig(KXKey::ReportDecryptLog, path);
            break;
        default:
            // Posted to the bare base.
            KX_LOG(KX_LOG_ERROR, "UploadRecord", "GetUrlByRecordType", "recordType:%d", recordType);
            break;
    }
    return base + path;
}

void UploadRecordThread(std::unique_ptr<ReportItem> item) {
    ReportGate& gate = Gate();
    KXGuard([&] {
        if (gate.Closed()) return 0L;
        const std::string url = GetUrlByRecordType(item->recordType);
        if (gate.Closed()) return 0L;
        // No head, the reply is not read, and no last error: nobody reads
        // this thread's.
        KXCall call(KXReply::None);
        call.OnTransport(KXOnTransport::Silent);
        call.Run([&] {
            if (call.UrlIs(url)) call.Send(HTTP_FUNC_POST, HTTP_CONTENT_JSON, item->body);
        });
        if (gate.Closed()) return 0L;
        KX_LOG(KX_LOG_TRACE, "UploadRecord", "UploadRecordThread", "dwRes:%d", call.code());
        return 0L;
    });
    item.reset();
    gate.Done();
}

// false when the thread could not be started.
bool StartReport(std::unique_ptr<ReportItem> item) {
    if (!Gate().Start()) return false;
    try {
        std::thread(UploadRecordThread, std::move(item)).detach();
        return true;
    } catch (...) {
        Gate().Done();
        return false;
    }
}

}  // namespace

bool KXWaitForReports(long long timeoutMs) {
    return Gate().Wait(timeoutMs, false);
}

long KXSER_UploadRecord(int recordType, const char* msg) {
    const long code = KXGuard([&]() -> long {
        if (IWK_Len(msg) == 0) return KX_ERR_ARGUMENT_EMPTY;
        Json::Value root;
        if (!kxjson::Parse(msg, root) || !root.isObject()) return KX_ERR_INVALID_VALUE;
        // These three replace whatever the caller put under their names.
        root["localMac"] = IWK_GetMacAddress();
        root["localTime"] = Json::Int64(IWK_GetCurTime());
        std::string version;
        std::string project;
        IWK_GetConfig(KXKey::version, version);
        IWK_GetConfig(KXKey::projectID, project);
        root["clientVersion"] = project + ":" + version;
        std::unique_ptr<ReportItem> item(new ReportItem{recordType, kxjson::Write(root)});
        // A report whose thread cannot start is lost; the caller still gets 0.
        if (!StartReport(std::move(item))) {
            KX_LOG(KX_LOG_ERROR, "UploadRecord", "KXSER_UploadRecord", "NULL == hThread");
        }
        return KX_OK;
    });
    if (code == KX_OK) {
        KX_LOG(KX_LOG_TRACE, "UploadRecord", "KXSER_UploadRecord", "lRes:%d, recordType:%d", 0,
               recordType);
    } else {
        KX_LOG(KX_LOG_ERROR, "UploadRecord", "KXSER_UploadRecord", "lRes:%d, recordType:%d, msg:%s",
               static_cast<int>(code), recordType, msg != nullptr ? msg : "");
    }
    return code;
}
