// The log: one line per call, secrets masked, appended to a size-rotated file.
//
// The caller's thread formats the line and queues it; a writer thread masks
// and appends what has gathered at least every 100 ms, so that a line costs
// the caller no system call and no scan (unless the writer falls behind: the
// caller then masks its own line). Errors, and lines to the standard error
// stream, are written before the call returns, after everything queued
// before them; the queue is written at normal exit, and by KX_FlushLog.
#include "KXConfigSnapshot.h"
#include "KXMask.h"
#include "KXUtils.h"
#include "os/KXOs.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

// ---------------------------------------------------------------------------
// Line text

bool FormatV(const char* format, va_list ap, std::string& out) {
    char small[1024];
    va_list copy;
    va_copy(copy, ap);
    const int n = std::vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (n < 0) return false;
    if (static_cast<size_t>(n) < sizeof small) {
        out.assign(small, static_cast<size_t>(n));
        return true;
    }
    out.assign(static_cast<size_t>(n) + 1, '\0');
    const int m = std::vsnprintf(&out[0], out.size(), format, ap);
    if (m < 0) return false;
    out.resize(static_cast<size_t>(std::min(m, n)));
    return true;
}

// "2024-05-01 12:00:00.123 4711 INFO ". The date and time down to the
// second change once a second: each thread keeps its last one.
void AppendPrefix(int level, std::string& out) {
    struct Clock {
        long long second = -1;
        char text[32] = {0};
        int length = 0;
    };
    thread_local Clock clock;
    const long long nowNs = kxos::WallClockNs();
    const long long second = nowNs / 1000000000LL;
    if (second != clock.second) {
        const kxos::LocalTime now = kxos::LocalTimeAt(nowNs);
        const int n = std::snprintf(clock.text, sizeof clock.text, "%04d-%02d-%02d %02d:%02d:%02d",
                                    now.year, now.month, now.day, now.hour, now.minute, now.second);
        clock.length = n > 0 ? std::min(n, static_cast<int>(sizeof clock.text) - 1) : 0;
        clock.second = second;
    }
    // ".123 4711 ": milliseconds, and the thread's id, formatted once.
    thread_local const std::string threadId = " " + std::to_string(kxos::ThreadId()) + " ";
    const int ms = static_cast<int>(nowNs / 1000000LL % 1000);
    out.append(clock.text, static_cast<size_t>(clock.length));
    out += '.';
    out += static_cast<char>('0' + ms / 100);
    out += static_cast<char>('0' + ms / 10 % 10);
    out += static_cast<char>('0' + ms % 10);
    out += threadId;
    switch (level) {
        case KX_LOG_TRACE:
            out += "TRACE ";
            break;
        case KX_LOG_INFO:
            out += "INFO ";
            break;
        case KX_LOG_WARN:
            out += "WARN ";
            break;
        case KX_LOG_ERROR:
            out += "ERROR ";
            break;
        default:
            out += std::to_string(level) + " ";
            break;
    }
}

// ---------------------------------------------------------------------------
// Destination

// Where lines go: a file, or "-" for the standard error stream.
struct Target {
    std::string path;
    unsigned long long maxBytes = 0;  // LogMaxBytes
};

// The log's own keys of the store and the file they name. They are looked
// up at most every kSettingsRefreshMs, so that a line costs no look at the
// store; a write to the store by this process, another store file or another
// KX_LOG_FILE counts at once.
struct LogSettings {
    int minLevel = 0;  // LogLevel
    std::shared_ptr<const Target> target;
};

const long long kSettingsRefreshMs = 1000;

std::string LogPath(const std::string& configured) {
    const std::string env = kxos::GetEnv("KX_LOG_FILE");
    if (!env.empty()) return env;
    if (!configured.empty()) return configured;
    const std::string path = kxos::UserFile(kxos::UserDir::State, "KXServerApi.log");
    return path.empty() ? "-" : path;
}

LogSettings ReadSettings() {
    const kxutils::ConfigSnapshot config;
    LogSettings settings;
    int maxBytes = 0;
    std::string file;
    config.Get(KXKey::LogLevel, settings.minLevel);
    config.Get(KXKey::LogMaxBytes, maxBytes);
    if (maxBytes <= 0) maxBytes = kxutils::DefaultInt(KXKey::LogMaxBytes);
    config.Get(KXKey::LogFile, file);
    auto target = std::make_shared<Target>();
    target->path = LogPath(file);
    target->maxBytes = static_cast<unsigned long long>(maxBytes);
    settings.target = std::move(target);
    return settings;
}

// Each thread keeps the settings it read last, with what they were read for.
struct SettingsCache {
    bool valid = false;
    long long readAtMs = 0;
    std::string configPath;
    std::string logEnv;
    unsigned long generation = 0;
    LogSettings settings;
};

bool SameText(const std::string& kept, const char* now) {
    return now == nullptr ? kept.empty() : kept == now;
}

const LogSettings& CurrentSettings() {
    thread_local SettingsCache cache;
    const long long nowMs = kxos::MonotonicMs();
    const unsigned long generation = kxutils::ConfigGeneration();
    const char* configEnv = std::getenv("KX_CONFIG_FILE");
    const char* logEnv = std::getenv("KX_LOG_FILE");
    // Without KX_CONFIG_FILE the store's path follows other variables; only
    // then is it worked out here.
    const bool sameStore = configEnv != nullptr && configEnv[0] != '\0'
                               ? SameText(cache.configPath, configEnv)
                               : cache.configPath == IWK_GetConfigFilePath();
    if (cache.valid && sameStore && SameText(cache.logEnv, logEnv) &&
        cache.generation == generation && nowMs - cache.readAtMs < kSettingsRefreshMs) {
        return cache.settings;
    }
    cache.valid = false;
    cache.configPath = IWK_GetConfigFilePath();
    cache.logEnv = logEnv != nullptr ? logEnv : "";
    cache.generation = generation;
    cache.readAtMs = nowMs;
    cache.settings = ReadSettings();
    cache.valid = true;
    return cache.settings;
}

// The open log file. How often it looks at the file on disk: whether another
// process rotated or removed it, and how large it is. In between, a write
// costs one system call and the size is counted here.
const long long kSinkCheckMs = 1000;

struct Sink {
    std::string path;
    kxos::File file;
    unsigned long long size = 0;  // of the open file, as far as this process knows
    long long checkedAtMs = 0;

    void Close() {
        file.Close();
        path.clear();
    }

    bool Open(const std::string& p) {
        Close();
        if (!kxos::MakeParentDirs(p)) return false;
        file = kxos::File::OpenAppend(p, 0600);
        if (!file.ok()) return false;
        kxos::FileStamp stamp;
        size = file.Stamp(stamp) ? static_cast<unsigned long long>(stamp.size) : 0;
        checkedAtMs = kxos::MonotonicMs();
        path = p;
        return true;
    }

    // Open on `p`, and on the file that now stands there: after a rotation by
    // another process or a removal, the old descriptor points elsewhere.
    bool Ensure(const std::string& p) {
        if (!file.ok() || path != p) return Open(p);
        const long long now = kxos::MonotonicMs();
        if (now - checkedAtMs < kSinkCheckMs) return true;
        kxos::FileStamp onDisk, open;
        if (kxos::StatPath(p, onDisk) && file.Stamp(open) && kxos::SameFile(onDisk, open)) {
            size = static_cast<unsigned long long>(open.size);
            checkedAtMs = now;
            return true;
        }
        return Open(p);
    }

    // Whole lines, ends[i] the end of line i in bytes. A line that would take
    // the file past maxBytes moves it to ".1" first; each run of lines that
    // fits goes in one write with O_APPEND, so lines of several processes
    // never mix.
    void Write(const Target& target, const std::string& bytes, const std::vector<size_t>& ends) {
        if (target.path == "-") {
            kxos::WriteStderr(bytes);
            return;
        }
        size_t runStart = 0, lineStart = 0;
        bool open = Ensure(target.path);
        for (const size_t end : ends) {
            const size_t run = lineStart - runStart;
            const size_t line = end - lineStart;
            if (open && size + run > 0 && size + run + line > target.maxBytes) {
                Flush(bytes, runStart, run);
                runStart = lineStart;
                kxos::Rename(target.path, target.path + ".1");
                open = Open(target.path);
            }
            if (!open) runStart = end;  // as before: a line with no file is dropped
            lineStart = end;
        }
        if (open) Flush(bytes, runStart, lineStart - runStart);
    }

    void Flush(const std::string& bytes, size_t from, size_t length) {
        if (length == 0) return;
        file.WriteAll(bytes.data() + from, length);
        size += length;
    }
};

// Lines of one destination, in the order they were logged, as the callers
// gave them: each its prefix, then its text, masked when written unless the
// caller masked it.
struct Batch {
    struct Line {
        size_t textAt;
        size_t end;
        bool masked;
    };
    std::shared_ptr<const Target> target;
    std::string bytes;
    std::vector<Line> lines;
};

// Past kWakeBytes queued the writer starts at once; past kCallerMasksBytes
// (the writer falls behind) callers mask their own lines; past
// kQueueLimitBytes a caller writes the queue itself, so that a burst never
// grows memory without bound.
const size_t kWakeBytes = 256 << 10;
const size_t kCallerMasksBytes = 1 << 20;
const size_t kQueueLimitBytes = 4 << 20;
const auto kGatherTime = std::chrono::milliseconds(100);
const size_t kKeepBytes = 64 * 1024;

class Log {
public:
    // Whether the writer falls behind, so that the caller masks its line.
    bool Behind() const { return queuedBytes_.load(std::memory_order_relaxed) > kCallerMasksBytes; }

    // One line: its prefix and its text, masked or not. Urgent lines are in
    // the file when this returns.
    void Add(const std::shared_ptr<const Target>& target, const std::string& prefix,
             const std::string& text, bool masked, bool urgent) {
        bool wake = false;
        bool drain = urgent || target->path == "-";
        {
            std::lock_guard<std::mutex> lock(queueMutex_);
            // The first line to another file makes the file at once.
            if (target != lastTarget_ && (!lastTarget_ || lastTarget_->path != target->path))
                drain = true;
            lastTarget_ = target;
            if (queue_.empty() || queue_.back().target != target) {
                queue_.emplace_back();
                queue_.back().target = target;
            }
            Batch& batch = queue_.back();
            batch.bytes += prefix;
            const size_t textAt = batch.bytes.size();
            batch.bytes += text;
            batch.lines.push_back(Batch::Line{textAt, batch.bytes.size(), masked});
            const size_t before = queuedBytes_.load(std::memory_order_relaxed);
            const size_t queued = before + prefix.size() + text.size();
            queuedBytes_.store(queued, std::memory_order_relaxed);
            if (!drain && !StartWriter()) drain = true;
            wake = !drain && (!pending_ || (before < kWakeBytes && queued >= kWakeBytes));
            pending_ = true;
            drain = drain || queued > kQueueLimitBytes;
        }
        if (wake) wake_.notify_one();
        if (drain) Drain();
    }

    // Masks and writes everything queued so far, in order: queues are taken
    // and written one at a time under the file's lock. Nothing reaches the
    // file unmasked.
    void Drain() {
        std::lock_guard<std::mutex> fileLock(fileMutex_);
        std::vector<Batch> batches;
        {
            std::lock_guard<std::mutex> lock(queueMutex_);
            batches.swap(queue_);
            queuedBytes_ = 0;
            pending_ = false;
        }
        for (const Batch& b : batches) {
            masked_.clear();
            ends_.clear();
            size_t from = 0;
            for (const Batch::Line& line : b.lines) {
                masked_.append(b.bytes, from, line.textAt - from);
                if (line.masked) {
                    masked_.append(b.bytes, line.textAt, line.end - line.textAt);
                } else {
                    text_.assign(b.bytes, line.textAt, line.end - line.textAt);
                    kxutils::AppendMaskedLogText(text_, masked_);
                }
                masked_ += '\n';
                ends_.push_back(masked_.size());
                from = line.end;
            }
            sink_.Write(*b.target, masked_, ends_);
        }
        // A burst far past the usual size gives its memory back.
        if (masked_.capacity() > kKeepBytes) std::string().swap(masked_);
        if (text_.capacity() > kKeepBytes) std::string().swap(text_);
    }

    // At normal exit: the writer stops, the queue is written, and any later
    // line (a static destructor's) is written at once.
    void Stop() {
        {
            std::lock_guard<std::mutex> lock(queueMutex_);
            stopping_ = true;
        }
        wake_.notify_one();
        if (writer_.joinable() && !forked_) writer_.join();
        try {
            Drain();
        } catch (...) {
        }
    }

    // fork() waits for a write in progress, so that the child gets both
    // locks free; the child has no writer thread and writes at once, and the
    // lines queued in the parent are the parent's to write.
    void BeforeFork() {
        fileMutex_.lock();
        queueMutex_.lock();
    }
    void AfterFork(bool child) {
        if (child) {
            forked_ = true;
            queue_.clear();
            queuedBytes_ = 0;
            pending_ = false;
        }
        queueMutex_.unlock();
        fileMutex_.unlock();
    }

private:
    // Under queueMutex_. False when lines must be written by the caller.
    bool StartWriter() {
        if (stopping_ || forked_) return false;
        if (started_) return true;
        try {
            writer_ = std::thread([this] { Run(); });
        } catch (...) {
            return false;
        }
        started_ = true;
        std::atexit([] { TheLog().Stop(); });
        pthread_atfork([] { TheLog().BeforeFork(); }, [] { TheLog().AfterFork(false); },
                       [] { TheLog().AfterFork(true); });
        return true;
    }

    void Run() {
        std::unique_lock<std::mutex> lock(queueMutex_);
        while (!stopping_) {
            wake_.wait(lock, [this] { return stopping_ || pending_; });
            // Let lines gather, so that a burst costs one write.
            wake_.wait_for(lock, kGatherTime, [this] {
                return stopping_ || queuedBytes_.load(std::memory_order_relaxed) >= kWakeBytes;
            });
            lock.unlock();
            try {
                Drain();
            } catch (...) {
                // Out of memory: those lines are lost, the writer goes on.
            }
            lock.lock();
        }
    }

public:
    static Log& TheLog() {
        // Never destroyed: static destructors elsewhere may still log.
        static Log* log = new Log;
        return *log;
    }

private:
    std::mutex queueMutex_;  // queue_ and the writer's state
    std::vector<Batch> queue_;
    std::shared_ptr<const Target> lastTarget_;  // of the line queued last
    std::atomic<size_t> queuedBytes_{0};        // written under queueMutex_
    bool pending_ = false;                      // lines wait; the writer was woken for them
    bool started_ = false;
    bool stopping_ = false;
    bool forked_ = false;
    std::condition_variable wake_;
    std::thread writer_;
    std::mutex fileMutex_;  // sink_, the buffers below, and the order of writes
    Sink sink_;
    std::string masked_;
    std::string text_;
    std::vector<size_t> ends_;
};

}  // namespace

void KX_WriteLog(KX_LOG_LEVEL level, const char* format, ...) {
    try {
        if (!format) return;
        const LogSettings& settings = CurrentSettings();
        if (static_cast<int>(level) < settings.minLevel) return;
        const std::shared_ptr<const Target> target = settings.target;

        // Reused by every line of this thread.
        thread_local std::string text;
        thread_local std::string prefix;
        bool formatted = false;
        va_list ap;
        va_start(ap, format);
        try {
            formatted = FormatV(format, ap, text);
        } catch (...) {
            formatted = false;
        }
        va_end(ap);
        if (!formatted) text = std::string("(unformattable log text) ") + format;

        prefix.clear();
        AppendPrefix(static_cast<int>(level), prefix);
        Log& log = Log::TheLog();
        if (log.Behind()) {
            thread_local std::string masked;
            masked.clear();
            kxutils::AppendMaskedLogText(text, masked);
            log.Add(target, prefix, masked, true, level >= KX_LOG_ERROR);
            if (masked.capacity() > kKeepBytes) std::string().swap(masked);
        } else {
            log.Add(target, prefix, text, false, level >= KX_LOG_ERROR);
        }
        // A line far past the usual size gives its memory back.
        if (text.capacity() > kKeepBytes) std::string().swap(text);
    } catch (...) {
        // The log never disturbs its caller.
    }
}

void KX_FlushLog() {
    try {
        Log::TheLog().Drain();
    } catch (...) {
    }
}
