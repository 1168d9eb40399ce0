/// @file
/// The seam under CIWKHttp: one exchange of bytes with a server. CIWKHttp
/// checks the URL, builds the header lines and reads the outcome into a
/// KXReqResult; a transport only carries the request and brings back what
/// came. libcurl is the one in use; tests install a fake that records the
/// requests and answers canned replies or faults.
#pragma once

#include <string>
#include <vector>

#include "KXCommonType.h"

/// One part of a multipart/form-data body: a text field, or a file that the
/// transport streams from disk (never read whole into memory).
struct KXUTILS_API KXWirePart {
    std::string name;      ///< the part's field name
    std::string value;     ///< a field's text
    std::string filePath;  ///< not empty: the part carries this file
    std::string fileName;  ///< the filename the part names
};

/// One request as it goes on the wire.
struct KXUTILS_API KXWireRequest {
    std::string method;                ///< "GET", "POST" or "PUT"
    std::string url;                   ///< complete, passed IWK_CheckRequestUrl; sent as it is
    std::vector<std::string> headers;  ///< header lines in the order they go out
    std::string body;                  ///< empty for GET
    bool verifyTls = true;             ///< [KXUtils] VerifyTLS for this request
    std::string caFile;                ///< CA bundle to verify against; empty: the system store
    long connectTimeoutMs = 0;         ///< connect time limit; 0: no limit
    long timeoutMs = 0;                ///< time limit of the whole exchange; 0: no limit
    bool proxySet = false;  ///< false: the environment decides; an empty proxy means none
    std::string proxy;      ///< proxy URL, when proxySet
    /// A transport may stop receiving past it; CIWKHttp checks it too.
    long long maxReplyBytes = 0;
    /// Not empty: the body is multipart/form-data of these parts, and `body`
    /// is not sent.
    std::vector<KXWirePart> parts;
    /// Not empty: the body of a 2xx reply goes to this file instead of `body`,
    /// through a temporary file beside it that replaces it only when the whole
    /// reply arrived; on any failure the file is as it was. Other replies come
    /// back in `body` as usual. maxReplyBytes does not limit what goes to disk.
    std::string downloadPath;
    /// Progress of the exchange (download total, downloaded, upload total,
    /// uploaded); false from it aborts the exchange. Null: none.
    bool (*progress)(long long, long long, long long, long long) = nullptr;
};

/// What came back from one exchange.
struct KXUTILS_API KXWireReply {
    /// 0 when a reply arrived, else one KX_ERR_HTTP_* code with the
    /// transport's own words in detail.
    int code = 0;
    std::string detail;      ///< the transport's words for a failure
    long status = 0;         ///< HTTP status of the final reply
    std::string statusLine;  ///< "HTTP/1.1 200 OK", as it came (also kept on a failure)
    std::string body;        ///< empty when a download went to its file
};

/// A transport: carries one request and brings back what came.
class KXUTILS_API IKXTransport {
public:
    /// Virtual: a transport is released through this interface.
    virtual ~IKXTransport();
    /// Runs one exchange; never throws.
    virtual void Exchange(const KXWireRequest& request, KXWireReply& reply) = 0;
};

/// Installs a transport (not owned) for the whole process and returns the one
/// it replaces; null puts libcurl back. Meant for tests: not safe while
/// requests are running.
KXUTILS_API IKXTransport* IWK_SetTransport(IKXTransport* transport);
