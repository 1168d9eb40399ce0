// The configuration store: one INI file, read through a stat-validated cache
// and rewritten atomically (temporary file + rename) under a file lock.
#include "KXAscii.h"
#include "KXConfigSnapshot.h"
#include "KXUtils.h"
#include "os/KXOs.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

// Lower-cased "section\nkey" -> value; a line cannot hold '\n', so the joined
// form is unambiguous.
using Store = std::unordered_map<std::string, std::string>;

const char kBom[] = "\xEF\xBB\xBF";

using kxascii::IsBlank;
using kxascii::Trim;

std::string StoreKey(const std::string& section, const std::string& key) {
    return kxascii::Lower(section) + '\n' + kxascii::Lower(key);
}

enum class LineKind { Other, Blank, Comment, Section, Key };

struct LineInfo {
    LineKind kind = LineKind::Other;
    std::string name;    // section name or key, trimmed
    size_t valueAt = 0;  // Key: offset of the value's first non-blank byte
    std::string value;   // Key: trimmed value
};

// Classifies one line (without its line end). `skip` bytes at the front are
// ignored: the byte order mark of the first line.
LineInfo Classify(const std::string& line, size_t skip) {
    LineInfo info;
    size_t i = skip;
    while (i < line.size() && IsBlank(line[i])) ++i;
    if (i == line.size()) {
        info.kind = LineKind::Blank;
        return info;
    }
    if (line[i] == ';' || line[i] == '#') {
        info.kind = LineKind::Comment;
        return info;
    }
    if (line[i] == '[') {
        const size_t close = line.find(']', i + 1);
        if (close == std::string::npos) return info;
        info.kind = LineKind::Section;
        info.name = Trim(line, i + 1, close);
        return info;
    }
    const size_t eq = line.find('=', i);
    if (eq == std::string::npos) return info;
    info.name = Trim(line, i, eq);
    if (info.name.empty()) return info;
    info.kind = LineKind::Key;
    size_t v = eq + 1;
    while (v < line.size() && IsBlank(line[v])) ++v;
    info.valueAt = v;
    info.value = Trim(line, v);
    return info;
}

// One line of the file and the line end that followed it ("" for a last line
// without one), so that a rewrite can keep every byte it does not change.
struct RawLine {
    std::string body;
    std::string eol;
};

std::vector<RawLine> SplitLines(const std::string& text) {
    std::vector<RawLine> lines;
    size_t pos = 0;
    while (pos < text.size()) {
        const size_t nl = text.find('\n', pos);
        RawLine line;
        if (nl == std::string::npos) {
            line.body = text.substr(pos);
            pos = text.size();
        } else {
            line.body = text.substr(pos, nl - pos);
            line.eol = "\n";
            if (!line.body.empty() && line.body.back() == '\r') {
                line.body.pop_back();
                line.eol = "\r\n";
            }
            pos = nl + 1;
        }
        lines.push_back(std::move(line));
    }
    return lines;
}

size_t BomLength(const std::vector<RawLine>& lines, size_t index) {
    if (index != 0 || lines.empty()) return 0;
    return lines[0].body.compare(0, 3, kBom) == 0 ? 3 : 0;
}

std::shared_ptr<const Store> Parse(const std::string& text) {
    auto store = std::make_shared<Store>();
    const std::vector<RawLine> lines = SplitLines(text);
    std::string section;
    for (size_t i = 0; i < lines.size(); ++i) {
        const LineInfo info = Classify(lines[i].body, BomLength(lines, i));
        if (info.kind == LineKind::Section) {
            section = info.name;
        } else if (info.kind == LineKind::Key) {
            // emplace keeps an existing entry: the first occurrence wins.
            store->emplace(StoreKey(section, info.name), info.value);
        }
    }
    return store;
}

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
    std::shared_ptr<const Store> store = Parse(text);
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

// ---------------------------------------------------------------------------
// Writing

bool HasLineBreak(const std::string& s) {
    return s.find_first_of("\r\n") != std::string::npos;
}

bool ValidForWrite(const std::string& section, const std::string& key, const std::string& value) {
    if (section.empty() || key.empty()) return false;
    if (HasLineBreak(section) || HasLineBreak(key) || HasLineBreak(value)) return false;
    if (section.find(']') != std::string::npos) return false;
    if (key.find('=') != std::string::npos) return false;
    // Names are stored trimmed; the first byte left must not make the line
    // read as a section or a comment.
    const std::string name = Trim(key);
    if (Trim(section).empty() || name.empty()) return false;
    if (name[0] == '[' || name[0] == ';' || name[0] == '#') return false;
    return true;
}

// Returns the text with the key set, changing nothing else.
std::string EditText(const std::string& text, const std::string& section, const std::string& key,
                     const std::string& value) {
    std::vector<RawLine> lines = SplitLines(text);
    std::string eolStyle = "\n";
    for (const RawLine& l : lines) {
        if (!l.eol.empty()) {
            eolStyle = l.eol;
            break;
        }
    }
    const std::string wantSection = Trim(section);
    const std::string wantKey = Trim(key);

    bool inMatch = false;
    bool inFirstMatch = false;
    long firstSection = -1;
    long lastKeyOfFirst = -1;
    for (size_t i = 0; i < lines.size(); ++i) {
        const LineInfo info = Classify(lines[i].body, BomLength(lines, i));
        if (info.kind == LineKind::Section) {
            inMatch = kxascii::EqualsNoCase(info.name, wantSection);
            inFirstMatch = inMatch && firstSection < 0;
            if (inFirstMatch) firstSection = static_cast<long>(i);
        } else if (info.kind == LineKind::Key && inMatch) {
            if (kxascii::EqualsNoCase(info.name, wantKey)) {
                // Same key spelling, spacing and line end; only the value changes.
                lines[i].body = lines[i].body.substr(0, info.valueAt) + value;
                std::string out;
                for (const RawLine& l : lines) out += l.body + l.eol;
                return out;
            }
            if (inFirstMatch) lastKeyOfFirst = static_cast<long>(i);
        }
    }

    const std::string newLine = wantKey + "=" + value;
    if (firstSection >= 0) {
        const size_t at = static_cast<size_t>(lastKeyOfFirst >= 0 ? lastKeyOfFirst : firstSection);
        if (lines[at].eol.empty()) lines[at].eol = eolStyle;
        lines.insert(lines.begin() + static_cast<long>(at) + 1, RawLine{newLine, eolStyle});
    } else {
        if (!lines.empty() && lines.back().eol.empty()) lines.back().eol = eolStyle;
        lines.push_back(RawLine{"[" + wantSection + "]", eolStyle});
        lines.push_back(RawLine{newLine, eolStyle});
    }
    std::string out;
    for (const RawLine& l : lines) out += l.body + l.eol;
    return out;
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

    const bool ok = kxos::ReplaceFile(target, EditText(text, section, key, value), mode);
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
        if (store != nullptr) {
            const auto it = store->find(StoreKey(Trim(section), Trim(key)));
            if (it != store->end()) {
                value = it->second;
                return 1;
            }
        }
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
        if (!ValidForWrite(section, key, value)) return 0;
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
        std::string out;
        size_t pos = 0;
        for (;;) {
            const size_t hit = text.find(what, pos);
            if (hit == std::string::npos) break;
            out.append(text, pos, hit - pos);
            out += replacement;
            pos = hit + what.size();
        }
        out.append(text, pos, std::string::npos);
        return out;
    } catch (...) {
        return text;
    }
}
