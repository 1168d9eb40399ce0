/// @file
/// Records, enumerations and result codes shared by every client of the library.
#pragma once

#include <string>
#include <vector>

#include "KXExport.h"

/// One server and the identity the client presents to it.
struct KXUTILS_API _init_Info_s {
    /// Server type: decides which fields KXServerBase::CheckInitInfo demands, and
    /// 4 sends CCloudCheckCert to the agent (key SerType).
    int SerType = 0;
    /// Project identifier presented in the request heads (key ProjectID).
    std::string ProjectID;
    /// Project secret in clear; stored enciphered (key ProjectSecret).
    std::string ProjectSecret;
    /// Server host (key Host).
    std::string ServerIp;
    /// Server port (key Port).
    int Port = 0;
    /// Reserved, not used by the library.
    std::string strReserved1;
    /// Reserved, not used by the library.
    std::string strReserved2;
    /// Reserved, not used by the library.
    std::string strReserved3;
    /// Version text of a legacy server; "5.3" enables the authorization keys
    /// (see KX_InkwellCompatible).
    std::string serverVer;
    /// How authorization is read: 1 the value itself, 2 a URL to fetch it from.
    int authorizationType = 0;
    /// Authorization value or URL, as authorizationType says.
    std::string authorization;
    /// Mobile-shield client id; sent by the platform client when not empty.
    std::string strMobileShieldClientId;
    /// Reserved, not used by the library.
    int iReserved1 = 0;
    /// Not 0: sent as "seconds" by CCorvaneApi::CreateBIDAuthInfoTask.
    int iAuthSeconds = 0;
    /// 1: a BID login of type 1 asks for the encryption certificate too.
    int iWithEncCert = 0;
    /// Reserved, not used by the library.
    int iReserved2 = 0;
    /// Sent as "withServicesInProject" by a BID login.
    int iWithServicesInProject = 0;
};

/// One seal, or one signature position on a page.
struct KXUTILS_API _seal_Info_s {
    /// The seal as the server sent it: Base64 of an XML document
    /// (sealDataType 0) or of an ASN.1 seal (sealDataType 1).
    std::string sealData;
    /// Seal identifier.
    std::string sealId;
    /// Seal name.
    std::string sealName;
    /// Picture data, as text.
    std::string picData;
    /// Picture type.
    std::string picType;
    /// Picture width, in the unit of the source (pixels or millimetres).
    int width = 0;
    /// Picture height, in the unit of width.
    int height = 0;
    /// Seal type.
    int sealType = 0;
    /// Signer's certificate in Base64.
    std::string certB64;
    /// Certificate named inside the seal.
    std::string cert;
    /// Where the seal's file can be fetched.
    std::string fileUrl;
    /// Certificate identifier.
    std::string certId;
    /// Signature position: text to look for in the document.
    std::string keyWord;
    /// Signature position: page.
    int posPage = 0;
    /// Signature type as decimal text.
    std::string signType;
    /// Signature position: horizontal.
    int posX = 0;
    /// Signature position: vertical.
    int posY = 0;
    /// Key of the seal's file.
    std::string fileKey;
    /// Purchase state of the seal.
    int purchaseStatus = 1;
    /// Where the seal can be purchased.
    std::string purchaseUrl;
    /// Scan model of the seal.
    std::string scanModel;
    /// Seal types open to purchase.
    std::vector<int> purchaseSealTypes;
    /// Form of sealData: 0 XML document, 1 ASN.1 seal.
    int sealDataType = 0;
};

/// One work item: a file, a digital envelope or a certificate. Each operation
/// reads and writes only the few fields its documentation names.
struct KXUTILS_API KXReceiveData {
    /// Reserved, not used by the library.
    int iReserved1 = 0;
    /// Reserved, not used by the library.
    std::string strReserved1;
    /// Reserved, not used by the library.
    std::string strReserved2;
    /// Reserved, not used by the library.
    std::string strReserved3;
    /// Certificate data (print control).
    std::string data;
    /// Account of a certificate (print control).
    std::string accountCode;
    /// Print record identifier (print control).
    long long printId = 0;
    /// Print count (print control).
    int printCount = 0;
    /// Reserved, not used by the library.
    int iReserved2 = 0;
    /// Reserved, not used by the library.
    std::string strReserved4;
    /// Reserved, not used by the library.
    std::string strReserved5;
    /// Reserved, not used by the library.
    std::string strReserved6;
    /// Reserved, not used by the library.
    std::string strReserved7;
    /// Public key, a BID encrypt result.
    std::string publicKey;
    /// Reserved, not used by the library.
    std::string strReserved8;
    /// Reserved, not used by the library.
    std::string strReserved9;
    /// File hash as text, for BID file signing.
    std::string signHash;
    /// Reserved, not used by the library.
    std::string strReserved10;
    /// Reserved, not used by the library.
    std::string strReserved11;
    /// Reserved, not used by the library.
    int iReserved3 = 0;
    /// Signature, a BID file signing result.
    std::string signature;
    /// Reserved, not used by the library.
    std::string strReserved12;
    /// Reserved, not used by the library.
    std::string strReserved13;
    /// Sign log id, a BID file signing result.
    std::string signLogId;
    /// Reserved, not used by the library.
    std::string strReserved14;
    /// Symmetric key, a BID decrypt result.
    std::string symmetricKey;
    /// Reserved, not used by the library.
    std::string strReserved15;
    /// File name, for BID file signing.
    std::string fileName;
    /// The caller's own identifier of a file, for BID file signing.
    std::string externalFileId;
    /// Reserved, not used by the library.
    int iReserved4 = 1;
    /// Digital envelope in Base64, for a BID decrypt task.
    std::string digitalEnvelopeB64;
    /// Signature positions of a file, for BID file signing.
    std::vector<_seal_Info_s> vecSeals;
    /// Reserved, not used by the library.
    std::string strReserved16;
    /// Reserved, not used by the library.
    std::string strReserved17;
    /// Reserved, not used by the library.
    std::string strReserved18;
    /// Authorization info, a BID encrypt result.
    std::string authInfo;
    /// Reserved, not used by the library.
    int iReserved5 = 0;
    /// Reserved, not used by the library.
    std::string strReserved19;
    /// Reserved, not used by the library.
    std::string strReserved20;
    /// Reserved, not used by the library.
    std::string strReserved21;
    /// Reserved, not used by the library.
    std::string strReserved22;
};

/// The outcome of one request. Polymorphic so that a derived record can carry
/// more; the request calls always store errCode.
struct KXUTILS_API KXReqResult {
    /// 0 when the request went through, else its code; a reply parser
    /// overwrites it with the server's code or 10003.
    int errCode = 0;
    /// The raw reply text on success, else the error text; a reply parser
    /// overwrites it with the server's message.
    std::string msg;
    std::string strExtra;  ///< HTTP status line of the reply, when one arrived
    /// The raw reply text of a plain GET.
    std::string strBody;

    /// An empty result, errCode 0.
    KXReqResult() = default;
    /// Copies every field.
    KXReqResult(const KXReqResult&) = default;
    /// Copies every field.
    KXReqResult& operator=(const KXReqResult&) = default;
    /// Virtual, so that derived records are destroyed whole.
    virtual ~KXReqResult();
};

/// The method a signature head is made for (CIWKHttp::GetSignatureHead).
enum HTTPFuncType {
    HTTP_FUNC_GET = 0,   ///< a GET
    HTTP_FUNC_POST = 1,  ///< a POST
    HTTP_FUNC_PUT = 2,   ///< a PUT
};

/// What a request does with its reply.
enum HTTPRequestType {
    HTTP_REQ_PLAIN = 1,     ///< the reply text comes back in the KXReqResult
    HTTP_REQ_DOWNLOAD = 3,  ///< a GET that saves a 2xx reply into a file
    HTTP_REQ_PUT = 4,       ///< every PUT
};

/// The form of a request body.
enum HTTPContentType {
    HTTP_CONTENT_FORM = 0,        ///< name=value pairs joined by '&'
    HTTP_CONTENT_JSON = 8,        ///< JSON text
    HTTP_CONTENT_MULTIPART = 10,  ///< multipart upload of a file
};

/// Digest algorithms of IWK_Digest.
enum KXHashAlg {
    KX_HASH_MD5 = 1,  ///< MD5, the one digest in use
};

/// Levels of the log (KX_WriteLog); [KXUtils] LogLevel is the lowest written.
enum KX_LOG_LEVEL {
    KX_LOG_TRACE = 1,  ///< routine trace: entries, exits, results
    KX_LOG_INFO = 2,   ///< information
    KX_LOG_WARN = 3,   ///< warning
    KX_LOG_ERROR = 4,  ///< failure that stops or skips a step
};

/// Kinds of masking rule (KX_TuoMinData).
enum KX_TuoMinDataType {
    KX_TUOMIN_JSON_KEY = 1,  ///< the rule names a JSON key
};

/// Result codes the library produces itself. A server's own non-zero status is
/// passed on unchanged and may be any number.
enum KXResultCode : long {
    KX_OK = 0,                         ///< success
    KX_ERR_INVALID_VALUE = 10001,      ///< a given value is unusable
    KX_ERR_REPLY_UNPARSABLE = 10003,   ///< a reply cannot be parsed, or has no usable status
    KX_ERR_ARGUMENT_EMPTY = 10005,     ///< a required argument is empty or null
    KX_ERR_SEAL_LIST_EMPTY = 10006,    ///< the seal list of a reply is empty
    KX_ERR_NOT_INITIALISED = 10009,    ///< the client holds no complete server description
    KX_ERR_SEAL_INCOMPLETE = 10010,    ///< a seal is incomplete, or none of a reply could be read
    KX_ERR_BID_LOGIN_TYPE = 10016,     ///< a BID login type other than 0 and 1
    KX_ERR_SERVER_NO_MESSAGE = 10024,  ///< text only: a non-zero status without a message
    KX_ERR_REPLY_NO_STATUS = 10027,    ///< a reply without a usable errCode
    KX_ERR_CHECK_NOT_INITIALISED = 10046,  ///< the certificate check client is not initialised
    KX_ERR_SEAL_LIST_NO_SEAL = 10048,      ///< a seal-list reply holds no readable seal
    KX_ERR_SEAL_URL_NOT_SET = 10076,       ///< a seal-list server URL is not configured
    KX_ERR_PRINT_VERSION = 25034,          ///< a print-control version other than 1 and 3
    KX_ERR_LEGACY_REPLY = 31015,           ///< a legacy-server reply unparsable or without errCode
    KX_ERR_CERT_REFUSED = 32004,           ///< the cloud platform refused the certificate
    KX_ERR_CONV_NO_URL = 33030,            ///< a conversion with no URL given and none configured
    KX_ERR_BID_TOKEN_REFUSED = 37007,      ///< the BID token is no longer accepted (HTTP 401)
    KX_ERR_ENVELOPE_MISMATCH = 37008,      ///< a reply names another digital envelope
    KX_ERR_BID_STATUS_1490152 = 37011,     ///< the BID server's status 1490152

    // Transport failures of the platform layer: one code per class, with the
    // transport's own detail in KXReqResult::msg.
    KX_ERR_HTTP_BAD_URL = 10101,     ///< empty or unparsable URL, or no http/https scheme
    KX_ERR_HTTP_RESOLVE = 10102,     ///< the host (or proxy) name does not resolve
    KX_ERR_HTTP_CONNECT = 10103,     ///< the connection was refused or could not be made
    KX_ERR_HTTP_TLS = 10104,         ///< TLS handshake or certificate verification failed
    KX_ERR_HTTP_TIMEOUT = 10105,     ///< the exchange timed out
    KX_ERR_HTTP_TOO_LARGE = 10106,   ///< the reply is larger than [KXUtils] MaxReplyBytes
    KX_ERR_HTTP_TRANSPORT = 10107,   ///< any other transport failure
    KX_ERR_HTTP_LOCAL_FILE = 10108,  ///< a local file to upload or download into failed

    /// A URL that would not fit its template's 1023-byte limit; refused before
    /// anything is sent, never cut.
    KX_ERR_URL_TOO_LONG = 10110,
    /// A URL holding a byte that cannot go on the wire as given ('#', a blank,
    /// a control character); refused before anything is sent, never changed.
    KX_ERR_URL_BAD_CHAR = 10111,
};
