// The log: one line per call, secrets masked, appended to a size-rotated file.
#include "KXConfigSnapshot.h"
#include "KXMask.h"
#include "KXUtils.h"
#include "os/KXOs.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

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

std::string Prefix(int level) {
    const kxos::LocalTime now = kxos::LocalTimeNow();
    std::string levelName;
    switch (level) {
        case KX_LOG_TRACE:
            levelName = "TRACE";
            break;
        case KX_LOG_INFO:
            levelName = "INFO";
            break;
        case KX_LOG_WARN:
            levelName = "WARN";
            break;
        case KX_LOG_ERROR:
            levelName = "ERROR";
            break;
        default:
            levelName = std::to_string(level);
            break;
    }
    char head[96];
    const int n = std::snprintf(head, sizeof head, "%04d-%02d-%02d %02d:%02d:%02d.%03d %ld ",
                                now.year, now.month, now.day, now.hour, now.minute, now.second,
                                now.millisecond, kxos::ThreadId());
    std::string out(head, n > 0 ? std::min(static_cast<size_t>(n), sizeof head - 1) : 0);
    return out + levelName + " ";
}

// ---------------------------------------------------------------------------
// Destination

// The log's own keys of the store. They are looked up at most every
// kSettingsRefreshMs, so that a line costs no look at the store; a write to
// the store by this process, or another store file, counts at once.
struct LogSettings {
    int minLevel = 0;  // LogLevel
    int maxBytes = 0;  // LogMaxBytes
    std::string file;  // LogFile
};

const long long kSettingsRefreshMs = 1000;

struct SettingsCache {
    std::mutex mutex;
    bool valid = false;
    long long readAtMs = 0;
    std::string configPath;
    unsigned long generation = 0;
    LogSettings settings;
};

// Never destroyed, for the same reason as the secret list.
SettingsCache& TheSettingsCache() {
    static SettingsCache* cache = new SettingsCache;
    return *cache;
}

LogSettings CurrentSettings() {
    const long long nowMs = kxos::MonotonicMs();
    const std::string configPath = IWK_GetConfigFilePath();
    const unsigned long generation = kxutils::ConfigGeneration();
    SettingsCache& cache = TheSettingsCache();
    {
        std::lock_guard<std::mutex> lock(cache.mutex);
        if (cache.valid && cache.configPath == configPath && cache.generation == generation &&
            nowMs - cache.readAtMs < kSettingsRefreshMs) {
            return cache.settings;
        }
    }
    const kxutils::ConfigSnapshot config;
    LogSettings settings;
    config.Get(KXKey::LogLevel, settings.minLevel);
    config.Get(KXKey::LogMaxBytes, settings.maxBytes);
    if (settings.maxBytes <= 0) settings.maxBytes = kxutils::DefaultInt(KXKey::LogMaxBytes);
    config.Get(KXKey::LogFile, settings.file);
    std::lock_guard<std::mutex> lock(cache.mutex);
    cache.valid = true;
    cache.readAtMs = nowMs;
    cache.configPath = configPath;
    cache.generation = generation;
    cache.settings = settings;
    return settings;
}

std::string LogPath(const LogSettings& settings) {
    const std::string env = kxos::GetEnv("KX_LOG_FILE");
    if (!env.empty()) return env;
    if (!settings.file.empty()) return settings.file;
    const std::string path = kxos::UserFile(kxos::UserDir::State, "KXServerApi.log");
    return path.empty() ? "-" : path;
}

// The open log file. Guarded by g_sinkMutex, which also keeps lines whole.
// How often the sink looks at the file on disk: whether another process
// rotated or removed it, and how large it is. In between, a line costs one
// write and the size is counted here.
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
};

// Never destroyed, for the same reason as the secret list.
Sink& TheSink() {
    static Sink* sink = new Sink;
    return *sink;
}

std::mutex g_sinkMutex;

void Emit(const std::string& line, const LogSettings& settings) {
    const std::string path = LogPath(settings);
    const int maxBytes = settings.maxBytes;

    std::lock_guard<std::mutex> lock(g_sinkMutex);
    Sink& sink = TheSink();
    if (path == "-") {
        kxos::WriteStderr(line);
        return;
    }
    if (!sink.Ensure(path)) return;
    if (sink.size > 0 && sink.size + line.size() > static_cast<unsigned long long>(maxBytes)) {
        const std::string old = path + ".1";
        kxos::Rename(path, old);
        if (!sink.Open(path)) return;
    }
    // One write per line with O_APPEND: lines of several processes never mix.
    sink.file.WriteAll(line);
    sink.size += line.size();
}

}  // namespace

void KX_WriteLog(KX_LOG_LEVEL level, const char* format, ...) {
    try {
        if (!format) return;
        const LogSettings settings = CurrentSettings();
        if (static_cast<int>(level) < settings.minLevel) return;

        std::string text;
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

        Emit(Prefix(static_cast<int>(level)) + kxutils::MaskLogText(text) + "\n", settings);
    } catch (...) {
        // The log never disturbs its caller.
    }
}
