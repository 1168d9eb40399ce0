// Masking: the secrets the log never shows, and IWK_DataTuomin's masking of
// JSON values.
#include "KXMask.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "KXAscii.h"
#include "KXUtils.h"

namespace {

const char kMask[] = "******";

// Registered secrets, replaced as a whole list so that a line masks against
// a consistent copy without holding the lock. Never destroyed: a static
// destructor elsewhere may still log at exit.
struct SecretList {
    std::mutex mutex;
    std::shared_ptr<const std::vector<std::string>> list =
        std::make_shared<const std::vector<std::string>>();
};

SecretList& SecretState() {
    static SecretList* state = new SecretList;
    return *state;
}

std::shared_ptr<const std::vector<std::string>> Secrets() {
    SecretList& state = SecretState();
    std::lock_guard<std::mutex> lock(state.mutex);
    return state.list;
}

const char* const kSecretKeys[] = {"password", "passwd",        "pwd",       "signPwd",
                                   "secret",   "ProjectSecret", "appSecret", "X-KX-Signature"};
const size_t kKeyCount = sizeof kSecretKeys / sizeof kSecretKeys[0];

// The keys by their first letter folded to lower case, in the order of
// kSecretKeys, with their lengths: a line is scanned byte by byte, and most
// bytes start no key.
struct KeyIndex {
    struct Key {
        const char* name;
        size_t length;
    };
    Key byLetter[256][kKeyCount] = {};
    size_t count[256] = {};
    // Whether any key starts with this byte, in any case: the one test most
    // bytes meet.
    bool startsKey[256] = {};
    // Whether any key starts with this pair of bytes, in any case: 8 KB.
    uint64_t pairs[256][4] = {};

    KeyIndex() {
        for (const char* key : kSecretKeys) {
            const unsigned h = TripleHash(key[0], key[1], key[2]);
            triples[h >> 6] |= uint64_t(1) << (h & 63);
            const unsigned char first = static_cast<unsigned char>(kxascii::Lower(key[0]));
            byLetter[first][count[first]++] = Key{key, std::char_traits<char>::length(key)};
            for (const char a : {kxascii::Lower(key[0]), kxascii::Upper(key[0])}) {
                startsKey[static_cast<unsigned char>(a)] = true;
                for (const char b : {kxascii::Lower(key[1]), kxascii::Upper(key[1])}) {
                    const unsigned char second = static_cast<unsigned char>(b);
                    pairs[static_cast<unsigned char>(a)][second >> 6] |= uint64_t(1)
                                                                         << (second & 63);
                }
            }
        }
    }
    // Whether any key may start with three bytes, by a hash of them folded to
    // lower case: Base64 text meets a key's first pair every few hundred
    // bytes, and its third byte then rules the key out at once.
    uint64_t triples[64] = {};

    static unsigned TripleHash(char a, char b, char c) {
        return (static_cast<unsigned char>(kxascii::Lower(a)) * 961u +
                static_cast<unsigned char>(kxascii::Lower(b)) * 31u +
                static_cast<unsigned char>(kxascii::Lower(c))) &
               4095u;
    }
    bool MayStartKey(char first, char second) const {
        const unsigned char b = static_cast<unsigned char>(second);
        return (pairs[static_cast<unsigned char>(first)][b >> 6] >> (b & 63)) & 1;
    }
    bool MayStartKey(char first, char second, char third) const {
        const unsigned h = TripleHash(first, second, third);
        return (triples[h >> 6] >> (h & 63)) & 1;
    }
};

// kxascii::MatchesNoCaseAt with the length known, the first byte already
// matched.
bool MatchesAt(const std::string& s, size_t at, const KeyIndex::Key& key) {
    if (s.size() - at < key.length) return false;
    for (size_t k = 1; k < key.length; ++k) {
        if (kxascii::Lower(s[at + k]) != kxascii::Lower(key.name[k])) return false;
    }
    return true;
}

const KeyIndex& Keys() {
    static const KeyIndex index;
    return index;
}

using kxascii::IsBlank;

bool EndsPlainValue(char c) {
    return c == '&' || c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '"' || c == '\'' ||
           c == ',' || c == ';' || c == '>';
}

// The value that starts at v in the key=value and key: value forms: the text
// inside quotes when it starts with ' or ", else up to the first byte that
// ends a plain value (so the log frame's closing "> always stays).
bool PlainValue(const std::string& s, size_t v, size_t& begin, size_t& end) {
    if (v < s.size() && (s[v] == '"' || s[v] == '\'')) {
        const size_t close = s.find(s[v], v + 1);
        begin = v + 1;
        end = close == std::string::npos ? s.size() : close;
        return end > begin;
    }
    begin = v;
    while (v < s.size() && !EndsPlainValue(s[v])) ++v;
    end = v;
    return end > begin;
}

// End of a JSON string body that starts at `from` (just after the opening
// quote); with `escaped` the quotes themselves stand as \" (JSON in a JSON string).
size_t JsonStringEnd(const std::string& s, size_t from, bool escaped) {
    if (escaped) {
        const size_t end = s.find("\\\"", from);
        return end == std::string::npos ? s.size() : end;
    }
    size_t i = from;
    while (i < s.size() && s[i] != '"') i += (s[i] == '\\') ? 2 : 1;
    return std::min(i, s.size());
}

// Finds the value that follows a key name ending at `j`. On success [begin, end)
// is the text to hide.
bool FindValue(const std::string& s, size_t j, size_t& begin, size_t& end) {
    if (j >= s.size()) return false;
    // key=value, as in a query or a form body.
    if (s[j] == '=') return PlainValue(s, j + 1, begin, end);
    if (s[j] == '"' || (s[j] == '\\' && j + 1 < s.size() && s[j + 1] == '"')) {
        // "key":"value" or "key":123, plain or escaped inside another string.
        const bool escaped = s[j] == '\\';
        size_t v = j + (escaped ? 2 : 1);
        while (v < s.size() && IsBlank(s[v])) ++v;
        if (v >= s.size() || s[v] != ':') return false;
        ++v;
        while (v < s.size() && IsBlank(s[v])) ++v;
        if (v >= s.size()) return false;
        if (escaped ? (s[v] == '\\' && v + 1 < s.size() && s[v + 1] == '"') : s[v] == '"') {
            begin = v + (escaped ? 2 : 1);
            end = JsonStringEnd(s, begin, escaped);
            return end > begin;
        }
        if (s[v] == '-' || (s[v] >= '0' && s[v] <= '9')) {
            begin = v;
            while (v < s.size() && s[v] != ',' && s[v] != '}' && s[v] != ']' && !IsBlank(s[v]) &&
                   s[v] != '\r' && s[v] != '\n' && s[v] != '\\') {
                ++v;
            }
            end = v;
            return end > begin;
        }
        return false;
    }
    if (s[j] == ':') {
        // key: value, a header line or a log text's "key:value, ...". "key::"
        // is a C++ scope (a function name in the frame), not a key.
        size_t v = j + 1;
        if (v < s.size() && s[v] == ':') return false;
        while (v < s.size() && IsBlank(s[v])) ++v;
        return PlainValue(s, v, begin, end);
    }
    return false;
}

// Appends s to out with the value of every secret key masked.
void MaskKeys(const std::string& s, std::string& out) {
    const KeyIndex& keys = Keys();
    out.reserve(out.size() + s.size());
    size_t copied = 0;
    size_t i = 0;
    const char* const text = s.data();
    const size_t size = s.size();
    // Every key is longer than two bytes.
    while (i + 2 < size) {
        if (!keys.startsKey[static_cast<unsigned char>(text[i])] ||
            !keys.MayStartKey(text[i], text[i + 1]) ||
            !keys.MayStartKey(text[i], text[i + 1], text[i + 2])) {
            ++i;
            continue;
        }
        const unsigned char c = static_cast<unsigned char>(kxascii::Lower(s[i]));
        const size_t candidates = keys.count[c];
        bool masked = false;
        for (size_t k = 0; k < candidates; ++k) {
            const KeyIndex::Key& key = keys.byLetter[c][k];
            if (!MatchesAt(s, i, key)) continue;
            size_t begin = 0, end = 0;
            if (FindValue(s, i + key.length, begin, end)) {
                out.append(s, copied, begin - copied);
                out += kMask;
                copied = end;
                i = end;
                masked = true;
                break;
            }
        }
        if (!masked) ++i;
    }
    out.append(s, copied, std::string::npos);
}

}  // namespace

namespace kxutils {

void AppendMaskedLogText(const std::string& text, std::string& out) {
    const auto secrets = Secrets();
    const std::string* s = &text;
    std::string replaced;
    for (const std::string& secret : *secrets) {
        size_t pos = s->find(secret);
        if (pos == std::string::npos) continue;
        std::string next;
        size_t from = 0;
        for (; pos != std::string::npos; pos = s->find(secret, from)) {
            next.append(*s, from, pos - from);
            next += kMask;
            from = pos + secret.size();
        }
        next.append(*s, from, std::string::npos);
        replaced.swap(next);
        s = &replaced;
    }
    MaskKeys(*s, out);
}

}  // namespace kxutils

void IWK_RegisterSecret(const std::string& secret) {
    try {
        if (secret.size() < 4) return;
        SecretList& state = SecretState();
        std::lock_guard<std::mutex> lock(state.mutex);
        if (std::find(state.list->begin(), state.list->end(), secret) != state.list->end()) {
            return;
        }
        auto next = std::make_shared<std::vector<std::string>>(*state.list);
        next->push_back(secret);
        // Longer first, so that a secret holding a shorter one is hidden whole.
        std::stable_sort(
            next->begin(), next->end(),
            [](const std::string& a, const std::string& b) { return a.size() > b.size(); });
        state.list = std::move(next);
    } catch (...) {
    }
}

// ---------------------------------------------------------------------------
// IWK_DataTuomin

namespace {

// Byte length of the UTF-8 character at s[i]; a stray or broken byte counts
// as a character of its own so that masking never splits a valid sequence.
size_t Utf8CharLen(const std::string& s, size_t i) {
    const unsigned char c = static_cast<unsigned char>(s[i]);
    size_t n = 1;
    if (c >= 0xC2 && c <= 0xDF) {
        n = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
        n = 3;
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4;
    }
    if (i + n > s.size()) return 1;
    for (size_t k = 1; k < n; ++k) {
        if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return 1;
    }
    return n;
}

// Keeps `start` characters, turns the next `length` into '*'; false when no
// character was replaced.
bool MaskChars(const std::string& in, int start, int length, std::string& out) {
    if (length <= 0) return false;
    if (start < 0) start = 0;
    out.clear();
    out.reserve(in.size());
    long index = 0;
    bool changed = false;
    for (size_t i = 0; i < in.size();) {
        const size_t n = Utf8CharLen(in, i);
        if (index >= start && index - start < length) {
            out.push_back('*');
            changed = true;
        } else {
            out.append(in, i, n);
        }
        i += n;
        ++index;
    }
    return changed;
}

bool MaskTree(Json::Value& node, const KX_TuoMinData* rules, int count, int depth) {
    // The parser already limits nesting; this only guards the stack.
    if (depth > 10000) return false;
    bool changed = false;
    if (node.isArray()) {
        for (Json::Value::ArrayIndex i = 0; i < node.size(); ++i) {
            changed = MaskTree(node[i], rules, count, depth + 1) || changed;
        }
        return changed;
    }
    if (!node.isObject()) return false;
    for (auto it = node.begin(); it != node.end(); ++it) {
        Json::Value& member = *it;
        if (member.isString() || member.isNumeric()) {
            const std::string name = it.name();
            for (int r = 0; r < count; ++r) {
                if (rules[r].type != KX_TUOMIN_JSON_KEY || rules[r].key != name) continue;
                std::string masked;
                if (MaskChars(kxjson::String(member), rules[r].start, rules[r].length, masked)) {
                    member = Json::Value(masked);
                    changed = true;
                }
            }
        } else {
            changed = MaskTree(member, rules, count, depth + 1) || changed;
        }
    }
    return changed;
}

}  // namespace

KX_TuoMinData::KX_TuoMinData(KX_TuoMinDataType type_, const char* key_, int start_, int length_)
    : type(type_), key(key_ ? key_ : ""), start(start_), length(length_) {}

std::string IWK_DataTuomin(const std::string& text, const KX_TuoMinData* rules, int count) {
    try {
        if (!rules || count <= 0) return text;
        Json::Value root;
        if (!kxjson::Parse(text, root)) return text;
        if (!MaskTree(root, rules, count, 0)) return text;
        std::string out = kxjson::Write(root);
        const bool keepNewline = !text.empty() && text.back() == '\n';
        if (!keepNewline && !out.empty() && out.back() == '\n') out.pop_back();
        return out;
    } catch (...) {
        // Only allocation can fail here; the log gets the text as it was.
        return text;
    }
}
