// curl codes -> KX_ERR_HTTP_* (10101..10108).
#include "KXCurlErrors.h"

#include "KXCommonType.h"

namespace {

bool IsTlsFailure(CURLcode code) {
    switch (code) {
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_ENGINE_NOTFOUND:
        case CURLE_SSL_ENGINE_SETFAILED:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_USE_SSL_FAILED:
        case CURLE_SSL_SHUTDOWN_FAILED:
        case CURLE_SSL_CRL_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
        case CURLE_SSL_INVALIDCERTSTATUS:
        case CURLE_SSL_CLIENTCERT:
            return true;
        default:
            return false;
    }
}

}  // namespace

int kxhttp::MapCurlCode(CURLcode code, bool connected) {
    if (IsTlsFailure(code)) return KX_ERR_HTTP_TLS;
    switch (code) {
        case CURLE_URL_MALFORMAT:
            return KX_ERR_HTTP_BAD_URL;
        case CURLE_UNSUPPORTED_PROTOCOL:
            // Also what curl says of a reply that is no HTTP at all.
            return connected ? KX_ERR_HTTP_TRANSPORT : KX_ERR_HTTP_BAD_URL;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            return KX_ERR_HTTP_RESOLVE;
        case CURLE_COULDNT_CONNECT:
            return KX_ERR_HTTP_CONNECT;
        case CURLE_OPERATION_TIMEDOUT:
            return KX_ERR_HTTP_TIMEOUT;
        case CURLE_FILESIZE_EXCEEDED:
            return KX_ERR_HTTP_TOO_LARGE;
        case CURLE_READ_ERROR:  // a file being uploaded could not be read
            return KX_ERR_HTTP_LOCAL_FILE;
        default:
            return KX_ERR_HTTP_TRANSPORT;
    }
}
