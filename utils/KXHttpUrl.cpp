// The URL rule of every request: path and query go on the wire exactly as the
// caller gave them, or the request is refused before anything is sent.
#include <curl/curl.h>

#include <cctype>
#include <new>
#include <memory>
#include <string>

#include "KXHttpParts.h"

namespace {

// Bytes no request line can carry as given: '#' would start a fragment that
// is never sent, a blank would end the target, and control bytes are no part
// of a URL (a NUL would cut it short).
bool CannotGoAsGiven(unsigned char c) {
    return c == '#' || c == ' ' || c < 0x20 || c == 0x7f;
}

std::string ByteReport(unsigned char c, size_t at) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string text = "URL holds ";
    if (c == '#' || c == ' ') {
        text += '\'';
        text += static_cast<char>(c);
        text += '\'';
    } else {
        // Never the byte itself: it would break the log line.
        text += "a control byte";
    }
    text += " (0x";
    text += kDigits[c >> 4];
    text += kDigits[c & 0x0f];
    text += ") at byte " + std::to_string(at);
    return text;
}

// Where the authority of "scheme://authority..." ends.
size_t AuthorityEnd(const std::string& url, size_t authority) {
    const size_t end = url.find_first_of("/?#", authority);
    return end == std::string::npos ? url.size() : end;
}

struct UrlHandle {
    CURLU* url = curl_url();

    UrlHandle() = default;
    UrlHandle(const UrlHandle&) = delete;
    UrlHandle& operator=(const UrlHandle&) = delete;
    ~UrlHandle() { curl_url_cleanup(url); }
    std::string part(CURLUPart which) const {
        char* text = nullptr;
        if (curl_url_get(url, which, &text, 0) != CURLUE_OK || text == nullptr)
            return std::string();
        // Freed even when the copy runs out of memory.
        const std::unique_ptr<char, void (*)(void*)> owned(text, curl_free);
        return std::string(text);
    }
};

int Check(const std::string& url, std::string& detail) {
    if (url.empty()) {
        detail = "empty URL";
        return KX_ERR_HTTP_BAD_URL;
    }
    for (size_t i = 0; i < url.size(); ++i) {
        if (CannotGoAsGiven(static_cast<unsigned char>(url[i]))) {
            detail = ByteReport(static_cast<unsigned char>(url[i]), i);
            return KX_ERR_URL_BAD_CHAR;
        }
    }
    UrlHandle parsed;
    if (parsed.url == nullptr) throw std::bad_alloc();
    // Without a guessed scheme: curl would send elsewhere than asked.
    const CURLUcode rc = curl_url_set(parsed.url, CURLUPART_URL, url.c_str(),
                                      CURLU_NON_SUPPORT_SCHEME | CURLU_PATH_AS_IS);
    if (rc != CURLUE_OK) {
        detail = std::string("URL rejected: ") + curl_url_strerror(rc);
        return KX_ERR_HTTP_BAD_URL;
    }
    const std::string scheme = parsed.part(CURLUPART_SCHEME);
    if (scheme != "http" && scheme != "https") {
        detail = "Protocol \"" + scheme + "\" not supported";
        return KX_ERR_HTTP_BAD_URL;
    }
    // curl also takes "http:/h" and "http:///h", each with its own idea of
    // where the path starts; only the plain form leaves no doubt.
    const size_t authority = scheme.size() + 3;
    if (!kxascii::StartsWithNoCase(url, (scheme + "://").c_str()) ||
        AuthorityEnd(url, authority) == authority) {
        detail = "URL rejected: no host after " + scheme + "://";
        return KX_ERR_HTTP_BAD_URL;
    }
    // Names under .invalid never resolve (RFC 6761): fail without asking a
    // name server.
    std::string host = parsed.part(CURLUPART_HOST);
    host = kxascii::Lower(host);
    while (!host.empty() && host.back() == '.') host.pop_back();
    if (host == "invalid" || kxascii::EndsWith(host, ".invalid")) {
        detail = "Could not resolve host: " + host;
        return KX_ERR_HTTP_RESOLVE;
    }
    return KX_OK;
}

}  // namespace

int IWK_CheckRequestUrl(const std::string& url, std::string& detail) {
    try {
        detail.clear();
        return Check(url, detail);
    } catch (...) {
        try {
            detail = "out of memory";
        } catch (...) {
        }
        return KX_ERR_HTTP_TRANSPORT;
    }
}

std::string kxhttp::PathAndQuery(const std::string& url) {
    std::string rest;
    if (!url.empty() && url[0] == '/' && url.compare(0, 2, "//") != 0) {
        rest = url;
    } else {
        size_t authority = 0;
        const size_t firstDelimiter = url.find_first_of("/?#");
        const size_t scheme = url.find("://");
        if (scheme != std::string::npos && scheme < firstDelimiter) {
            authority = scheme + 3;
        } else if (url.compare(0, 2, "//") == 0) {
            authority = 2;
        }
        const size_t pathAt = url.find_first_of("/?#", authority);
        if (pathAt != std::string::npos) rest = url.substr(pathAt);
    }
    const size_t fragment = rest.find('#');
    if (fragment != std::string::npos) rest.erase(fragment);
    if (rest.empty() || rest[0] == '?') rest.insert(0, "/");
    return rest;
}

std::string kxhttp::Origin(const std::string& url) {
    const size_t scheme = url.find("://");
    if (scheme == std::string::npos) return std::string();
    const size_t authority = scheme + 3;
    const size_t end = AuthorityEnd(url, authority);
    const size_t at = url.rfind('@', end == 0 ? 0 : end - 1);
    const size_t host = at != std::string::npos && at >= authority ? at + 1 : authority;
    return url.substr(0, authority) + url.substr(host, end - host);
}
