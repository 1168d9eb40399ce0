// Text helpers: lengths, case, URL/Base64/hex encodings, digests, random
// bytes, JWT payloads, UTF-8 <-> UTF-32 and masking of JSON values.
#include "KXAscii.h"
#include "KXUtils.h"

#include <cstring>
#include <memory>
#include <new>

#include <openssl/evp.h>
#include <openssl/rand.h>

namespace {

const char kB64Std[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Value of each byte in one alphabet: 0..63, kSpace for the blanks a
// decoder skips, kBad for anything else ('=' too: padding is cut first).
const signed char kBad = -1;
const signed char kSpace = -2;

struct B64Table {
    signed char value[256];
    explicit B64Table(bool url) {
        for (signed char& v : value) v = kBad;
        for (int i = 0; i < 64; ++i)
            value[static_cast<unsigned char>(kB64Std[i])] = static_cast<signed char>(i);
        if (url) {
            value[static_cast<unsigned char>('+')] = kBad;
            value[static_cast<unsigned char>('/')] = kBad;
            value[static_cast<unsigned char>('-')] = 62;
            value[static_cast<unsigned char>('_')] = 63;
        }
        for (char c : {' ', '\t', '\r', '\n', '\v', '\f'})
            value[static_cast<unsigned char>(c)] = kSpace;
    }
};

const B64Table& TableOf(bool url) {
    static const B64Table standard(false), urlSafe(true);
    return url ? urlSafe : standard;
}

enum class B64 { Ok, Bad, Blank };

B64 Failure(const signed char* value, const unsigned char* p, size_t n) {
    for (size_t k = 0; k < n; ++k)
        if (value[p[k]] == kSpace) return B64::Blank;
    return B64::Bad;
}

// Decodes s, which must hold no blanks: Blank when it fails and holds any
// (all before the failing byte decoded, so only the rest is looked at).
B64 DecodeAs(const std::string& s, const signed char* value, bool paddingOptional,
             std::string& out) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(s.data());
    size_t pad = 0;
    while (pad < s.size() && pad < 2 && s[s.size() - 1 - pad] == '=') ++pad;
    const size_t body = s.size() - pad;
    // A lone trailing character of a group cannot carry a whole byte.
    if (((pad > 0 || !paddingOptional) && s.size() % 4 != 0) || body % 4 == 1)
        return Failure(value, p, s.size());
    out.resize(body / 4 * 3 + 2);
    char* o = &out[0];
    size_t i = 0;
    for (; i + 4 <= body; i += 4) {
        const int a = value[p[i]], b = value[p[i + 1]], c = value[p[i + 2]], d = value[p[i + 3]];
        if ((a | b | c | d) < 0) return Failure(value, p + i, s.size() - i);
        const unsigned int n = static_cast<unsigned int>(a << 18 | b << 12 | c << 6 | d);
        *o++ = static_cast<char>(n >> 16);
        *o++ = static_cast<char>(n >> 8 & 0xFF);
        *o++ = static_cast<char>(n & 0xFF);
    }
    unsigned int acc = 0;
    int bits = 0;
    for (; i < body; ++i) {
        const int v = value[p[i]];
        if (v < 0) return Failure(value, p + i, s.size() - i);
        acc = (acc << 6) | static_cast<unsigned int>(v);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            *o++ = static_cast<char>((acc >> bits) & 0xFF);
        }
    }
    out.resize(static_cast<size_t>(o - out.data()));
    return B64::Ok;
}

// Decodes Base64 of either alphabet; false on any malformed input. With
// paddingOptional a final group of 2 or 3 characters may stand unpadded.
// Blanks anywhere are skipped: the text is decoded as it is first, and
// again without them only when it holds any.
bool B64Decode(const std::string& in, bool url, bool paddingOptional, std::string& out) {
    const signed char* value = TableOf(url).value;
    const B64 first = DecodeAs(in, value, paddingOptional, out);
    if (first != B64::Blank) return first == B64::Ok;
    std::string stripped;
    stripped.reserve(in.size());
    for (char c : in) {
        if (value[static_cast<unsigned char>(c)] != kSpace) stripped.push_back(c);
    }
    return DecodeAs(stripped, value, paddingOptional, out) == B64::Ok;
}

// Encodes one code point; invalid ones (surrogates, beyond U+10FFFF) become U+FFFD.
void AppendUtf8(std::string& out, unsigned long cp) {
    if ((cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) cp = 0xFFFD;
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

}  // namespace

unsigned int IWK_Len(const char* s) {
    return s ? static_cast<unsigned int>(std::strlen(s)) : 0u;
}

int IWK_Compare(const std::string& a, const std::string& b, bool ignoreCase) {
    return kxascii::Compare(a, b, ignoreCase);
}

void IWK_Upper(char* s, int length) {
    if (!s) return;
    for (int i = 0; length < 0 ? s[i] != '\0' : i < length; ++i) s[i] = kxascii::Upper(s[i]);
}

std::string IWK_UrlEncode(const std::string& s) {
    static const char hex[] = "0123456789ABCDEF";
    std::string out;
    try {
        out.reserve(s.size() * 3);
        for (unsigned char c : s) {
            const bool unreserved = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                                    (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' ||
                                    c == '~';
            if (unreserved) {
                out.push_back(static_cast<char>(c));
            } else {
                out.push_back('%');
                out.push_back(hex[c >> 4]);
                out.push_back(hex[c & 0x0F]);
            }
        }
    } catch (...) {
        return std::string();
    }
    return out;
}

std::string IWK_Base64Encode(const std::string& s) {
    std::string out;
    try {
        out.reserve((s.size() + 2) / 3 * 4);
        size_t i = 0;
        for (; i + 3 <= s.size(); i += 3) {
            const unsigned int v = (static_cast<unsigned char>(s[i]) << 16) |
                                   (static_cast<unsigned char>(s[i + 1]) << 8) |
                                   static_cast<unsigned char>(s[i + 2]);
            out.push_back(kB64Std[(v >> 18) & 63]);
            out.push_back(kB64Std[(v >> 12) & 63]);
            out.push_back(kB64Std[(v >> 6) & 63]);
            out.push_back(kB64Std[v & 63]);
        }
        const size_t rest = s.size() - i;
        if (rest == 1) {
            const unsigned int v = static_cast<unsigned char>(s[i]) << 16;
            out.push_back(kB64Std[(v >> 18) & 63]);
            out.push_back(kB64Std[(v >> 12) & 63]);
            out.append("==");
        } else if (rest == 2) {
            const unsigned int v = (static_cast<unsigned char>(s[i]) << 16) |
                                   (static_cast<unsigned char>(s[i + 1]) << 8);
            out.push_back(kB64Std[(v >> 18) & 63]);
            out.push_back(kB64Std[(v >> 12) & 63]);
            out.push_back(kB64Std[(v >> 6) & 63]);
            out.push_back('=');
        }
    } catch (...) {
        return std::string();
    }
    return out;
}

std::string IWK_Base64Decode(const std::string& s) {
    try {
        std::string out;
        if (!B64Decode(s, false, false, out)) return std::string();
        return out;
    } catch (...) {
        return std::string();
    }
}

std::string IWK_CharToHex(const std::string& s) {
    static const char hex[] = "0123456789abcdef";
    std::string out;
    try {
        out.reserve(s.size() * 2);
        for (unsigned char c : s) {
            out.push_back(hex[c >> 4]);
            out.push_back(hex[c & 0x0F]);
        }
    } catch (...) {
        return std::string();
    }
    return out;
}

std::string IWK_Digest(const std::string& s, KXHashAlg alg) {
    if (alg != KX_HASH_MD5) return std::string();
    try {
        // Fetched once: an implicit fetch on every call costs more than the digest.
        static EVP_MD* const md5 = EVP_MD_fetch(nullptr, "MD5", nullptr);
        unsigned char md[EVP_MAX_MD_SIZE];
        unsigned int len = 0;
        if (md5 == nullptr || EVP_Digest(s.data(), s.size(), md, &len, md5, nullptr) != 1) {
            return std::string();
        }
        return std::string(reinterpret_cast<const char*>(md), len);
    } catch (...) {
        return std::string();
    }
}

std::string IWK_GenRand(int length) {
    if (length <= 0) return std::string();
    try {
        std::string out(static_cast<size_t>(length), '\0');
        if (RAND_bytes(reinterpret_cast<unsigned char*>(&out[0]), length) != 1) {
            return std::string();
        }
        return out;
    } catch (...) {
        return std::string();
    }
}

int IWK_JWTDecode(std::string token, std::string& payload) {
    try {
        payload.clear();
        const size_t first = token.find('.');
        if (first == std::string::npos) return 1;
        const size_t second = token.find('.', first + 1);
        if (second == std::string::npos) return 1;
        std::string decoded;
        if (!B64Decode(token.substr(first + 1, second - first - 1), true, true, decoded)) {
            return 1;
        }
        payload.swap(decoded);
        return 0;
    } catch (...) {
        payload.clear();
        return 1;
    }
}

std::string IWK_WideCharToUtf8(const std::wstring& s) {
    std::string out;
    try {
        out.reserve(s.size());
        for (wchar_t wc : s) {
            // wchar_t is 32 bits here; a negative value is no code point.
            const long v = static_cast<long>(wc);
            AppendUtf8(out, v < 0 ? 0xFFFDul : static_cast<unsigned long>(v));
        }
    } catch (...) {
        return std::string();
    }
    return out;
}

std::wstring IWK_Utf8ToWideChar(const std::string& s) {
    std::wstring out;
    try {
        out.reserve(s.size());
        size_t i = 0;
        while (i < s.size()) {
            const unsigned char c = static_cast<unsigned char>(s[i]);
            if (c < 0x80) {
                out.push_back(static_cast<wchar_t>(c));
                ++i;
                continue;
            }
            size_t need = 0;
            unsigned long cp = 0;
            unsigned char lo = 0x80, hi = 0xBF;  // range of the second byte
            if (c >= 0xC2 && c <= 0xDF) {
                need = 1;
                cp = c & 0x1F;
            } else if (c >= 0xE0 && c <= 0xEF) {
                need = 2;
                cp = c & 0x0F;
                if (c == 0xE0) lo = 0xA0;  // no overlong forms
                if (c == 0xED) hi = 0x9F;  // no surrogates
            } else if (c >= 0xF0 && c <= 0xF4) {
                need = 3;
                cp = c & 0x07;
                if (c == 0xF0) lo = 0x90;
                if (c == 0xF4) hi = 0x8F;  // nothing beyond U+10FFFF
            } else {
                out.push_back(static_cast<wchar_t>(0xFFFD));
                ++i;
                continue;
            }
            // One U+FFFD for the longest valid prefix of a broken sequence.
            size_t j = 1;
            bool ok = true;
            for (; j <= need; ++j) {
                if (i + j >= s.size()) {
                    ok = false;
                    break;
                }
                const unsigned char b = static_cast<unsigned char>(s[i + j]);
                const unsigned char l = (j == 1) ? lo : 0x80;
                const unsigned char h = (j == 1) ? hi : 0xBF;
                if (b < l || b > h) {
                    ok = false;
                    break;
                }
                cp = (cp << 6) | (b & 0x3F);
            }
            if (ok) {
                out.push_back(static_cast<wchar_t>(cp));
                i += need + 1;
            } else {
                out.push_back(static_cast<wchar_t>(0xFFFD));
                i += j;
            }
        }
    } catch (...) {
        return std::wstring();
    }
    return out;
}

std::string IWK_GetBaseName(const char* path) {
    if (!path) return std::string();
    try {
        const char* base = path;
        for (const char* p = path; *p; ++p) {
            if (*p == '/' || *p == '\\') base = p + 1;
        }
        return std::string(base);
    } catch (...) {
        return std::string();
    }
}
