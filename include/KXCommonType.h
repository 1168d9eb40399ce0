// Records, enumerations and result codes shared by every client of the library.
#pragma once

#include <string>
#include <vector>

#include "KXExport.h"

// One server and the identity the client presents to it.
struct KXUTILS_API _init_Info_s {
    int SerType = 0;
    std::string ProjectID;
    std::string ProjectSecret;
    std::string ServerIp;
    int Port = 0;
    std::string strReserved1;
    std::string strReserved2;
    std::string strReserved3;
    std::string serverVer;
    int authorizationType = 0;
    std::string authorization;
    std::string strMobileShieldClientId;
    int iReserved1 = 0;
    int iAuthSeconds = 0;
    int iWithEncCert = 0;
    int iReserved2 = 0;
    int iWithServicesInProject = 0;
};

// One seal, or one signature position on a page.
struct KXUTILS_API _seal_Info_s {
    std::string sealData;
    std::string sealId;
    std::string sealName;
    std::string picData;
    std::string picType;
    int width = 0;
    int height = 0;
    int sealType = 0;
    std::string certB64;
    std::string cert;
    std::string fileUrl;
    std::string certId;
    std::string keyWord;
    int posPage = 0;
    std::string signType;
    int posX = 0;
    int posY = 0;
    std::string fileKey;
    int purchaseStatus = 1;
    std::string purchaseUrl;
    std::string scanModel;
    std::vector<int> purchaseSealTypes;
    int sealDataType = 0;
};

// One work item: a file, a digital envelope or a certificate.
struct KXUTILS_API KXReceiveData {
    int iReserved1 = 0;
    std::string strReserved1;
    std::string strReserved2;
    std::string strReserved3;
    std::string data;
    std::string accountCode;
    long long printId = 0;
    int printCount = 0;
    int iReserved2 = 0;
    std::string strReserved4;
    std::string strReserved5;
    std::string strReserved6;
    std::string strReserved7;
    std::string publicKey;
    std::string strReserved8;
    std::string strReserved9;
    std::string signHash;
    std::string strReserved10;
    std::string strReserved11;
    int iReserved3 = 0;
    std::string signature;
    std::string strReserved12;
    std::string strReserved13;
    std::string signLogId;
    std::string strReserved14;
    std::string symmetricKey;
    std::string strReserved15;
    std::string fileName;
    std::string externalFileId;
    int iReserved4 = 1;
    std::string digitalEnvelopeB64;
    std::vector<_seal_Info_s> vecSeals;
    std::string strReserved16;
    std::string strReserved17;
    std::string strReserved18;
    std::string authInfo;
    int iReserved5 = 0;
    std::string strReserved19;
    std::string strReserved20;
    std::string strReserved21;
    std::string strReserved22;
};

// The outcome of one request. Polymorphic so that a derived record can carry
// more; the request calls always store errCode.
struct KXUTILS_API KXReqResult {
    int errCode = 0;
    std::string msg;
    std::string strExtra;  // HTTP status line of the reply, when one arrived
    std::string strBody;

    KXReqResult() = default;
    KXReqResult(const KXReqResult&) = default;
    KXReqResult& operator=(const KXReqResult&) = default;
    virtual ~KXReqResult();
};

enum HTTPFuncType {
    HTTP_FUNC_GET = 0,
    HTTP_FUNC_POST = 1,
    HTTP_FUNC_PUT = 2,
};

enum HTTPRequestType {
    HTTP_REQ_PLAIN = 1,
    HTTP_REQ_DOWNLOAD = 3,
    HTTP_REQ_PUT = 4,
};

enum HTTPContentType {
    HTTP_CONTENT_FORM = 0,
    HTTP_CONTENT_JSON = 8,
    HTTP_CONTENT_MULTIPART = 10,
};

enum KXHashAlg {
    KX_HASH_MD5 = 1,
};

enum KX_LOG_LEVEL {
    KX_LOG_TRACE = 1,
    KX_LOG_INFO = 2,
    KX_LOG_WARN = 3,
    KX_LOG_ERROR = 4,
};

enum KX_TuoMinDataType {
    KX_TUOMIN_JSON_KEY = 1,
};

// Result codes the library produces itself. A server's own non-zero status is
// passed on unchanged and may be any number.
enum KXResultCode : long {
    KX_OK = 0,
    KX_ERR_INVALID_VALUE = 10001,
    KX_ERR_REPLY_UNPARSABLE = 10003,
    KX_ERR_ARGUMENT_EMPTY = 10005,
    KX_ERR_SEAL_LIST_EMPTY = 10006,
    KX_ERR_NOT_INITIALISED = 10009,
    KX_ERR_SEAL_INCOMPLETE = 10010,
    KX_ERR_BID_LOGIN_TYPE = 10016,
    KX_ERR_SERVER_NO_MESSAGE = 10024,
    KX_ERR_REPLY_NO_STATUS = 10027,
    KX_ERR_CHECK_NOT_INITIALISED = 10046,
    KX_ERR_SEAL_LIST_NO_SEAL = 10048,
    KX_ERR_SEAL_URL_NOT_SET = 10076,
    KX_ERR_PRINT_VERSION = 25034,
    KX_ERR_LEGACY_REPLY = 31015,
    KX_ERR_CERT_REFUSED = 32004,
    KX_ERR_CONV_NO_URL = 33030,
    KX_ERR_BID_TOKEN_REFUSED = 37007,
    KX_ERR_ENVELOPE_MISMATCH = 37008,
    KX_ERR_BID_STATUS_1490152 = 37011,

    // Transport failures of the platform layer: one code per class, with the
    // transport's own detail in KXReqResult::msg.
    KX_ERR_HTTP_BAD_URL = 10101,
    KX_ERR_HTTP_RESOLVE = 10102,
    KX_ERR_HTTP_CONNECT = 10103,
    KX_ERR_HTTP_TLS = 10104,
    KX_ERR_HTTP_TIMEOUT = 10105,
    KX_ERR_HTTP_TOO_LARGE = 10106,
    KX_ERR_HTTP_TRANSPORT = 10107,
    KX_ERR_HTTP_LOCAL_FILE = 10108,

    // A URL that would not fit its template's 1023-byte limit; refused before
    // anything is sent, never cut.
    KX_ERR_URL_TOO_LONG = 10110,
    // A URL holding a byte that cannot go on the wire as given ('#', a blank,
    // a control character); refused before anything is sent, never changed.
    KX_ERR_URL_BAD_CHAR = 10111,
};
