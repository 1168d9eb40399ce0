// The configuration store: one INI file (its text rules in KXIni.h), read
// through a stat-validated cache and rewritten atomically (temporary file +
// rename) under a file lock.
#include "KXAscii.h"
#include "KXConfigSnapshot.h"
#include "KXIni.h"
#include "KXUtils.h"
#include "os/KXOs.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

namespace {

// The parsed text of the store.
using Store = kxini::Values;

std::string DefaultConfigPath() {
    return kxos::UserFile(kxos::UserDir::Config, "KXServerApi.ini");
}

// ---------------------------------------------------------------------------
// Cache

bool SameStamp(const kxos::FileStamp& a, const kxos::FileStamp& b) {
    return kxos::SameFile(a, b) && a.size == b.size && a.mtimeNs == b.mtimeNs &&
           a.ctimeNs == b.ctimeNs;
}

// A file modified within the last two seconds may change again without its
// timestamps moving (coarse file system clocks), so it is never trusted.
bool IsRacy(const kxos::FileStamp& s) {
    return kxos::WallClockNs() - s.mtimeNs <= 2000000000LL;
}

struct Cache {
    bool valid = false;
    std::string path;
    kxos::FileStamp stamp;
    std::shared_ptr<const Store> store;
};

std::mutex g_cacheMutex;

// Never destroyed: the log reads the store and may run in static destructors.
Cache& TheCache() {
    static Cache* cache = new Cache;
    return *cache;
}

// Serialises writers of this process; flock does the same across processes.
std::mutex g_writeMutex;

std::shared_ptr<const Store> EmptyStore() {
    static const auto* empty = new std::shared_ptr<const Store>(std::make_shared<Store>());
    return *empty;
}

std::shared_ptr<const Store> LoadStore() {
    const std::string path = IWK_GetConfigFilePath();
    if (path.empty()) return EmptyStore();
    kxos::FileStamp stamp;
    if (!kxos::StatPath(path, stamp)) return EmptyStore();
    {
        std::lock_guard<std::mutex> lock(g_cacheMutex);
        const Cache& cache = TheCache();
        if (cache.valid && cache.path == path && SameStamp(cache.stamp, stamp) &&
            !IsRacy(cache.stamp)) {
            return cache.store;
        }
    }
    kxos::File file = kxos::File::OpenRead(path);
    // Stamp and text both come from the open file, so they always agree.
    std::string text;
    if (!file.Stamp(stamp) || !file.ReadAll(text)) return EmptyStore();
    std::shared_ptr<const Store> store = std::make_shared<const Store>(text);
    std::lock_guard<std::mutex> lock(g_cacheMutex);
    Cache& cache = TheCache();
    cache.valid = true;
    cache.path = path;
    cache.stamp = stamp;
    cache.store = store;
    return store;
}

std::atomic<unsigned long> g_generation{0};

void InvalidateCache() {
    g_generation.fetch_add(1);
    std::lock_guard<std::mutex> lock(g_cacheMutex);
    Cache& cache = TheCache();
    cache.valid = false;
    cache.store.reset();
}

bool SetKey(const std::string& section, const std::string& key, const std::string& value) {
    const std::string path = IWK_GetConfigFilePath();
    if (path.empty()) return false;

    std::lock_guard<std::mutex> guard(g_writeMutex);
    if (!kxos::MakeParentDirs(path)) return false;
    const kxos::FileLock lock(path + ".lock");
    if (!lock.held()) return false;

    // A store that is a symbolic link stays one: the file it names is replaced.
    const std::string target = kxos::ResolvePath(path);
    std::string text;
    unsigned mode = 0600;
    kxos::File in = kxos::File::OpenRead(target);
    if (in.ok()) {
        kxos::FileStamp stamp;
        if (!in.Stamp(stamp) || !in.ReadAll(text)) return false;
        mode = stamp.mode;
    } else if (!in.absent()) {
        // Never replace a file that exists but cannot be read.
        return false;
    }

    if (!kxini::SetKey(text, section, key, value)) return false;
    // A writer killed between its temporary file and the rename left that
    // file behind; under the lock no live writer has one.
    kxos::RemoveLeftoverTemporaries(target);
    const bool ok = kxos::ReplaceFile(target, text, mode);
    InvalidateCache();
    return ok;
}

}  // namespace

std::string IWK_GetConfigFilePath() {
    try {
        const std::string explicitPath = kxos::GetEnv("KX_CONFIG_FILE");
        return explicitPath.empty() ? DefaultConfigPath() : explicitPath;
    } catch (...) {
        return std::string();
    }
}

namespace kxutils {

ConfigSnapshot::ConfigSnapshot() {
    try {
        store_ = LoadStore();
    } catch (...) {
        store_.reset();
    }
}

ConfigSnapshot::~ConfigSnapshot() = default;

unsigned long ConfigGeneration() {
    return g_generation.load();
}

int ConfigSnapshot::Get(const std::string& section, const std::string& key, std::string& value,
                        const std::string& fallback) const {
    try {
        const Store* store = static_cast<const Store*>(store_.get());
        if (store != nullptr && store->Find(section, key, value)) return 1;
        value = fallback;
        return 0;
    } catch (...) {
        try {
            value = fallback;
        } catch (...) {
        }
        return 0;
    }
}

int ConfigSnapshot::Get(const std::string& section, const std::string& key, int& value,
                        int fallback) const {
    try {
        std::string text;
        int parsed = 0;
        if (Get(section, key, text, std::string()) && kxascii::ParseInt(text, parsed)) {
            value = parsed;
            return 1;
        }
    } catch (...) {
    }
    value = fallback;
    return 0;
}

}  // namespace kxutils

int IWK_GetConfigByKey(const std::string& section, const std::string& key, std::string& value,
                       const std::string& fallback) {
    return kxutils::ConfigSnapshot().Get(section, key, value, fallback);
}

int IWK_GetConfigByKey(const std::string& section, const std::string& key, int& value,
                       int fallback) {
    return kxutils::ConfigSnapshot().Get(section, key, value, fallback);
}

int IWK_SetConfigByKey(const std::string& section, const std::string& key,
                       const std::string& value) {
    try {
        if (!kxini::CanSet(section, key, value)) return 0;
        return SetKey(section, key, value) ? 1 : 0;
    } catch (...) {
        return 0;
    }
}

std::string IWK_ReplaceSubStrByConfig(std::string text, std::string what, std::string section,
                                      std::string key) {
    try {
        if (what.empty()) return text;
        std::string replacement;
        if (!IWK_GetConfigByKey(section, key, replacement, std::string())) return text;
        return kxascii::ReplaceAll(text, what, replacement);
    } catch (...) {
        return text;
    }
}
