// Last error, kept per thread, and the standard text of every result code.
#include "KXUtils.h"

#include <string>

namespace {

struct LastError {
    bool set = false;
    long code = 0;
    std::string text;
};

// Each application thread sees only the errors of its own calls.
thread_local LastError t_lastError;

const char* KnownText(long code) {
    switch (code) {
        case KX_OK:
            return "success";
        case KX_ERR_INVALID_VALUE:
            return "a given value is invalid";
        case KX_ERR_REPLY_UNPARSABLE:
            return "the reply cannot be parsed";
        case KX_ERR_ARGUMENT_EMPTY:
            return "a required argument is empty";
        case KX_ERR_SEAL_LIST_EMPTY:
            return "the seal list of the reply is empty";
        case KX_ERR_NOT_INITIALISED:
            return "the client is not initialised";
        case KX_ERR_SEAL_INCOMPLETE:
            return "a seal is incomplete or unreadable";
        case KX_ERR_BID_LOGIN_TYPE:
            return "the login type is not supported";
        case KX_ERR_SERVER_NO_MESSAGE:
            return "the server reported a failure without a message";
        case KX_ERR_REPLY_NO_STATUS:
            return "the reply carries no usable status";
        case KX_ERR_CHECK_NOT_INITIALISED:
            return "the certificate check is not initialised";
        case KX_ERR_SEAL_LIST_NO_SEAL:
            return "the seal list holds no readable seal";
        case KX_ERR_SEAL_URL_NOT_SET:
            return "the seal server URL is not configured";
        case KX_ERR_PRINT_VERSION:
            return "the print control version is not supported";
        case KX_ERR_LEGACY_REPLY:
            return "the legacy server reply cannot be parsed";
        case KX_ERR_CERT_REFUSED:
            return "the platform refused the certificate";
        case KX_ERR_CONV_NO_URL:
            return "no conversion URL is given or configured";
        case KX_ERR_BID_TOKEN_REFUSED:
            return "the token is no longer accepted";
        case KX_ERR_ENVELOPE_MISMATCH:
            return "the reply names a different digital envelope";
        case KX_ERR_BID_STATUS_1490152:
            return "the server refused the signature data request";
        case KX_ERR_HTTP_BAD_URL:
            return "the URL is empty, malformed or of an unsupported scheme";
        case KX_ERR_HTTP_RESOLVE:
            return "the host name cannot be resolved";
        case KX_ERR_HTTP_CONNECT:
            return "the connection to the server failed";
        case KX_ERR_HTTP_TLS:
            return "TLS handshake or certificate verification failed";
        case KX_ERR_HTTP_TIMEOUT:
            return "the request timed out";
        case KX_ERR_HTTP_TOO_LARGE:
            return "the reply exceeds the allowed size";
        case KX_ERR_HTTP_TRANSPORT:
            return "the transport failed";
        case KX_ERR_HTTP_LOCAL_FILE:
            return "a local file cannot be read or written";
        case KX_ERR_URL_TOO_LONG:
            return "the request URL would exceed 1023 bytes";
        case KX_ERR_URL_BAD_CHAR:
            return "the request URL holds a byte that cannot be sent as given";
        default:
            return nullptr;
    }
}

}  // namespace

bool IWK_SetLastError(long code) {
    try {
        t_lastError.code = code;
        t_lastError.text = IWK_GetErrorMsg(code);
    } catch (...) {
        t_lastError.text.clear();
    }
    t_lastError.set = true;
    return true;
}

bool IWK_SetLastError(long code, const std::string& text) {
    t_lastError.code = code;
    try {
        t_lastError.text = text;
    } catch (...) {
        t_lastError.text.clear();
    }
    t_lastError.set = true;
    return true;
}

bool IWK_SetLastError(long code, const std::wstring& text) {
    t_lastError.code = code;
    try {
        t_lastError.text = IWK_WideCharToUtf8(text);
    } catch (...) {
        t_lastError.text.clear();
    }
    t_lastError.set = true;
    return true;
}

bool IWK_GetLastError(long& code, std::string& text) {
    if (!t_lastError.set) return false;
    code = t_lastError.code;
    try {
        text = t_lastError.text;
    } catch (...) {
        text.clear();
    }
    return true;
}

std::string IWK_GetErrorMsg(long code) {
    try {
        if (const char* known = KnownText(code)) return known;
        return "unknown error " + std::to_string(code);
    } catch (...) {
        return std::string();
    }
}

bool IWK_IsUnknownError(long code) {
    return KnownText(code) == nullptr;
}
