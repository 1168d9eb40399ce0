// ASCII text helpers, shared by libKXUtils and the tools (header only). Names
// of sections, keys, headers and schemes compare ignoring ASCII case; bytes of
// 0x80 and above (GBK, UTF-8) are never changed or folded.
#pragma once

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

namespace kxascii {

inline char Lower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

inline char Upper(char c) {
    return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
}

inline std::string Lower(std::string s) {
    for (char& c : s) c = Lower(c);
    return s;
}

inline std::string Upper(std::string s) {
    for (char& c : s) c = Upper(c);
    return s;
}

// Space and tab: what INI lines and header values are trimmed of.
inline bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

// -1, 0 or 1 as the bytes compare (unsigned), after folding case when asked.
inline int Compare(const std::string& a, const std::string& b, bool ignoreCase) {
    const size_t n = a.size() < b.size() ? a.size() : b.size();
    for (size_t i = 0; i < n; ++i) {
        const char ca = ignoreCase ? Lower(a[i]) : a[i];
        const char cb = ignoreCase ? Lower(b[i]) : b[i];
        const unsigned char x = static_cast<unsigned char>(ca);
        const unsigned char y = static_cast<unsigned char>(cb);
        if (x != y) return x < y ? -1 : 1;
    }
    if (a.size() == b.size()) return 0;
    return a.size() < b.size() ? -1 : 1;
}

inline bool EqualsNoCase(const std::string& a, const std::string& b) {
    return a.size() == b.size() && Compare(a, b, true) == 0;
}

// Whether word stands in s at `at`, ignoring case.
inline bool MatchesNoCaseAt(const std::string& s, size_t at, const char* word) {
    const size_t n = std::strlen(word);
    if (at > s.size() || s.size() - at < n) return false;
    for (size_t k = 0; k < n; ++k) {
        if (Lower(s[at + k]) != Lower(word[k])) return false;
    }
    return true;
}

inline bool StartsWithNoCase(const std::string& s, const char* prefix) {
    return MatchesNoCaseAt(s, 0, prefix);
}

inline bool EndsWith(const std::string& s, const std::string& suffix) {
    return s.size() >= suffix.size() &&
           s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// text with every `what` replaced by `with`; text itself for an empty what.
inline std::string ReplaceAll(const std::string& text, const std::string& what,
                              const std::string& with) {
    if (what.empty()) return text;
    std::string out;
    size_t pos = 0;
    for (size_t hit; (hit = text.find(what, pos)) != std::string::npos; pos = hit + what.size())
        out.append(text, pos, hit - pos).append(with);
    return out.append(text, pos, std::string::npos);
}

// s[from, to) without the blanks at either end.
inline std::string Trim(const std::string& s, size_t from = 0, size_t to = std::string::npos) {
    if (to > s.size()) to = s.size();
    while (from < to && IsBlank(s[from])) ++from;
    while (to > from && IsBlank(s[to - 1])) --to;
    return s.substr(from, to - from);
}

// A decimal integer in int range taking the whole text: an optional sign,
// then digits; no blanks, no other bases. false leaves out untouched.
inline bool ParseInt(const std::string& text, int& out) {
    if (text.empty()) return false;
    const char c = text[0];
    if (!(c == '+' || c == '-' || (c >= '0' && c <= '9'))) return false;
    const int saved = errno;
    errno = 0;
    char* end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 10);
    const bool overflow = errno == ERANGE;
    errno = saved;
    if (overflow || end != text.c_str() + text.size() || end == text.c_str()) return false;
    if (v < INT_MIN || v > INT_MAX) return false;
    out = static_cast<int>(v);
    return true;
}

}  // namespace kxascii
