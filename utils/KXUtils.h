/// @file
/// The platform layer: HTTP, request heads, configuration store, last error,
/// digests and encodings, masking, system facts and the log. Everything the
/// client library needs from its environment goes through this header.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <json/json.h>

#include "KXCommonType.h"
#include "KXConfigKeys.h"

// ---------------------------------------------------------------------------
// HTTP

/// Progress callback of the request calls: download total, downloaded, upload
/// total, uploaded (0 while unknown); false aborts the request (10107).
typedef bool (*KXProgressCallback)(long long, long long, long long, long long);
/// The callback of requests whose caller passes none (an application's
/// progress bar under operations that pass null); null for none. Returns the
/// one it replaces.
KXUTILS_API KXProgressCallback IWK_SetDefaultProgress(KXProgressCallback progress);

/// The HTTP front of the library: requests and request heads.
///
/// Synchronous requests through the installed transport (KXTransport.h).
/// result->errCode is always stored, and the returned int equals it: 0 for
/// a 2xx reply (msg = the raw reply; strBody too for a GET of type 1), the
/// HTTP status for 300 and above (msg = the reply or the status text), the
/// code of IWK_CheckRequestUrl when the URL fails it (nothing is sent), or
/// one KX_ERR_HTTP_* code per transport failure class with the transport's
/// detail in msg. strExtra holds the final status line as it came. A null
/// result gives 10001. A null progress means the one of
/// IWK_SetDefaultProgress.
class KXUTILS_API CIWKHttp {
public:
    /// A GET of url with the header lines of head. type HTTP_REQ_DOWNLOAD
    /// writes a 2xx reply to the file that the "fileName" key of the JSON text
    /// params names (none: 10001; a file that cannot be written: 10108), whole
    /// or not at all; other types do not read params.
    static int Get(std::string url, std::string params, std::string head, KXReqResult* result,
                   HTTPRequestType type, KXProgressCallback progress);
    /// A POST of body: form text, JSON text, or with HTTP_CONTENT_MULTIPART
    /// the top-level keys of the JSON object body as fields and the file at
    /// filePath as part "file" (a directory: the files its res_file and
    /// ps_file keys name). Another content type gives 10001; a file that
    /// cannot be read 10108, with nothing sent. type is HTTP_REQ_PLAIN
    /// (HTTP_REQ_PUT for a PUT); HTTP_REQ_DOWNLOAD has no target here and
    /// gives 10001. reserved is not read.
    static int Post(std::string url, std::string body, std::string head, KXReqResult* result,
                    HTTPContentType contentType, HTTPRequestType type, KXProgressCallback progress,
                    const char* filePath, const char* reserved);
    /// A PUT, with the arguments of Post.
    static int Put(std::string url, std::string body, std::string head, KXReqResult* result,
                   HTTPContentType contentType, HTTPRequestType type, KXProgressCallback progress,
                   const char* filePath, const char* reserved);

    /// Scheme (kept when host has one, else https), host, ":port" unless the
    /// port text is empty or "0", then path as it is. flag is reserved.
    static std::string GetCompleteUrl(const std::string& path, const std::string& host,
                                      const std::string& port, bool flag);

    // Request heads, made by the installed head provider (see IWK_SetHeadProvider).

    /// The project's signature head for a request of funcType to url, with the
    /// lines of extra added and a Content-Type line of contentType when not
    /// empty. Empty when a value would break a line.
    static std::string GetSignatureHead(HTTPFuncType funcType, const std::string& url,
                                        const std::string& host, const std::string& projectId,
                                        const std::string& projectSecret,
                                        std::vector<std::string> extra, std::string contentType);
    /// The token head of a BID request; empty for an empty token.
    static std::string GetBIDHeadToken(std::string token);
    /// The legacy head over the exact body, carrying authorization when not
    /// empty.
    static std::string GenInkwellHttpHead(const std::string& projectId,
                                          const std::string& projectSecret, const std::string& body,
                                          const std::string& authorization);
};

/// The rule every request URL passes before anything is sent: an http or https
/// URL whose path and query then go on the wire exactly as given, bytes of 0x80
/// and above included. Returns 0; KX_ERR_HTTP_BAD_URL for an empty URL, one
/// curl cannot parse, or another scheme; KX_ERR_HTTP_RESOLVE for a host under
/// .invalid; KX_ERR_URL_BAD_CHAR for a '#', a blank or a control byte, which
/// cannot go out as given ("URL holds '#' (0x23) at byte 41", counted from 0).
/// detail receives the reason. KX_ERR_HTTP_TRANSPORT only when out of memory.
KXUTILS_API int IWK_CheckRequestUrl(const std::string& url, std::string& detail);

// ---------------------------------------------------------------------------
// Request heads. A head is header lines joined by CRLF.

// Header names of the default scheme.

/// The project id.
#define KX_HDR_PROJECT_ID "X-KX-Project-Id"
/// Milliseconds since the epoch when the head was made.
#define KX_HDR_TIMESTAMP "X-KX-Timestamp"
/// A random value of 32 hex characters, new for each head.
#define KX_HDR_NONCE "X-KX-Nonce"
/// Base64 of the HMAC-SHA256 with the project secret over the signed text.
#define KX_HDR_SIGNATURE "X-KX-Signature"
/// Hex SHA-256 of the exact body (legacy head).
#define KX_HDR_CONTENT_SHA256 "X-KX-Content-SHA256"
/// The authorization value of a legacy server, when there is one.
#define KX_HDR_AUTHORIZATION "X-KX-Authorization"
/// The token of a BID request.
#define KX_HDR_TOKEN "X-KX-Token"

/// A site that signs differently installs its own provider.
class KXUTILS_API IKXHeadProvider {
public:
    /// Virtual: a provider is released through this interface.
    virtual ~IKXHeadProvider();
    /// Makes the head of CIWKHttp::GetSignatureHead.
    virtual std::string SignatureHead(HTTPFuncType funcType, const std::string& url,
                                      const std::string& host, const std::string& projectId,
                                      const std::string& projectSecret,
                                      const std::vector<std::string>& extra,
                                      const std::string& contentType) = 0;
    /// Makes the head of CIWKHttp::GetBIDHeadToken.
    virtual std::string BIDHeadToken(const std::string& token) = 0;
    /// Makes the head of CIWKHttp::GenInkwellHttpHead.
    virtual std::string InkwellHead(const std::string& projectId, const std::string& projectSecret,
                                    const std::string& body, const std::string& authorization) = 0;
};

/// Installs a provider (not owned) and returns the one it replaces; null puts
/// the default scheme back.
KXUTILS_API IKXHeadProvider* IWK_SetHeadProvider(IKXHeadProvider* provider);

/// Outcome of the server-side check of a default-scheme head (simulators, tests).
enum KXHeadCheck {
    KX_HEAD_OK = 0,               ///< the head is valid
    KX_HEAD_MISSING = 1,          ///< a header of the scheme is absent or malformed
    KX_HEAD_UNKNOWN_PROJECT = 2,  ///< the lookup knows no such project
    KX_HEAD_STALE = 3,            ///< timestamp outside the window
    KX_HEAD_BAD_SIGNATURE = 4,    ///< signature or body digest does not match
};
/// Returns the value of a request header by name (case-insensitive), or empty.
typedef std::function<std::string(const std::string& name)> KXHeaderGetter;
/// Finds the secret of a project; false when the project is unknown.
typedef std::function<bool(const std::string& projectId, std::string& secret)> KXSecretLookup;

/// Checks the signature head of a request at time nowMs: the timestamp must
/// lie within windowMs of it.
/// method: "GET", "POST" or "PUT"; target: path and query as sent on the wire.
KXUTILS_API KXHeadCheck IWK_VerifySignatureHead(const std::string& method,
                                                const std::string& target,
                                                const KXHeaderGetter& header,
                                                const KXSecretLookup& lookup, long long nowMs,
                                                long long windowMs);
/// Checks the legacy head of a request at time nowMs, as
/// IWK_VerifySignatureHead does.
/// body: the exact request body. authorization, when given, receives the
/// authorization value the head carried (empty when none).
KXUTILS_API KXHeadCheck IWK_VerifyInkwellHead(const std::string& body, const KXHeaderGetter& header,
                                              const KXSecretLookup& lookup, long long nowMs,
                                              long long windowMs, std::string* authorization);

// ---------------------------------------------------------------------------
// Configuration store (an INI file, see README "Configuration"). Keys the
// code reads are read through the table of KXConfigKeys.h (IWK_GetConfig);
// these forms serve names given at run time.

/// Reads key of section: value gets the stored text, else fallback. 1 when
/// the store held the key, 0 when fallback was used.
KXUTILS_API int IWK_GetConfigByKey(const std::string& section, const std::string& key,
                                   std::string& value, const std::string& fallback);
/// The int form: fallback also for text that is no decimal number in int range.
KXUTILS_API int IWK_GetConfigByKey(const std::string& section, const std::string& key, int& value,
                                   int fallback);
/// Writes key of section to the store.
/// 1 when written, 0 when the value could not be stored.
KXUTILS_API int IWK_SetConfigByKey(const std::string& section, const std::string& key,
                                   const std::string& value);
/// The clear text of a value stored enciphered (the KXENC1: form); empty for
/// anything else, or when the key file is missing or does not fit.
KXUTILS_API std::string IWK_DecryptEncryptedConfigInfo(const std::string& stored);
/// The enciphered form of a secret for the store; empty on failure.
KXUTILS_API std::string IWK_EncryptConfigInfo(const std::string& clear);
/// text with every what replaced by the value of key in section; text
/// unchanged when what is empty or the store has no such key.
KXUTILS_API std::string IWK_ReplaceSubStrByConfig(std::string text, std::string what,
                                                  std::string section, std::string key);
/// Path of the store in use now.
KXUTILS_API std::string IWK_GetConfigFilePath();

// ---------------------------------------------------------------------------
// Last error (per thread) and error texts.

/// Sets this thread's last error to code with its standard text
/// (IWK_GetErrorMsg). Always true.
KXUTILS_API bool IWK_SetLastError(long code);
/// Sets this thread's last error to code and text. Always true.
KXUTILS_API bool IWK_SetLastError(long code, const std::string& text);
/// The same with a wide text, kept as UTF-8. Always true.
KXUTILS_API bool IWK_SetLastError(long code, const std::wstring& text);
/// This thread's last error: code and text.
/// false when this thread has no last error yet.
KXUTILS_API bool IWK_GetLastError(long& code, std::string& text);
/// The standard text of a result code; "unknown error N" for a number the
/// library does not know.
KXUTILS_API std::string IWK_GetErrorMsg(long code);
/// true when the library has no standard text for code.
KXUTILS_API bool IWK_IsUnknownError(long code);

// ---------------------------------------------------------------------------
// JSON.

/// Stores an integer value in out, or fallback when value holds none that fits
/// an int. Returns 0 when the value was used, 1 when the fallback was.
KXUTILS_API long IWK_GetJsonValue(Json::Value value, int& out, int fallback);

/// Helpers that never throw, whatever the shape of the document.
namespace kxjson {
/// Parses like Json::Reader::parse(text, root, true); false on any failure.
KXUTILS_API bool Parse(const std::string& text, Json::Value& root);
/// Compact text, byte for byte what Json::FastWriter writes (sorted keys,
/// trailing line feed), except that bytes of 0x80 and above pass unchanged.
KXUTILS_API std::string Write(const Json::Value& value);
/// The member of an object, or a null value for anything else.
KXUTILS_API const Json::Value& Member(const Json::Value& object, const char* key);
/// Text of a scalar as asString gives it; empty for null, arrays and objects.
KXUTILS_API std::string String(const Json::Value& value);
/// Text of the member key of object, as the one above gives it.
KXUTILS_API std::string String(const Json::Value& object, const char* key);
/// The member's text only when it is a string; empty for anything else.
KXUTILS_API std::string Text(const Json::Value& object, const char* key);
/// Integer of a value that holds one in range; false otherwise (out untouched).
KXUTILS_API bool Int(const Json::Value& value, int& out);
/// The same for a 64-bit integer.
KXUTILS_API bool Int64(const Json::Value& value, long long& out);
/// A boolean value; false for anything else (out untouched).
KXUTILS_API bool Bool(const Json::Value& value, bool& out);
/// What asBool makes of a value: a boolean as it is, a number true when not
/// zero, null false; and false, where asBool would throw, for text, arrays
/// and objects.
KXUTILS_API bool Truth(const Json::Value& value);
}  // namespace kxjson

// ---------------------------------------------------------------------------
// Text, encodings, digests.

/// One masking rule: the value of JSON key `key` keeps `start` characters,
/// then `length` characters become '*', the rest stays.
struct KXUTILS_API KX_TuoMinData {
    KX_TuoMinDataType type;  ///< kind of rule: KX_TUOMIN_JSON_KEY
    std::string key;         ///< the JSON key whose value is masked
    int start;               ///< characters kept at the start
    int length;              ///< characters masked after them
    /// A rule; a null key is an empty one.
    KX_TuoMinData(KX_TuoMinDataType type, const char* key, int start, int length);
};

/// Length of a C string; 0 for null.
KXUTILS_API unsigned int IWK_Len(const char* s);
/// -1, 0 or 1 as the bytes compare (unsigned), ASCII case folded when ignoreCase.
KXUTILS_API int IWK_Compare(const std::string& a, const std::string& b, bool ignoreCase);
/// Turns ASCII letters of s to upper case in place: length bytes, or up to
/// the terminating zero when length is negative. Null is ignored.
KXUTILS_API void IWK_Upper(char* s, int length);
/// Percent-encodes every byte but letters, digits and "-._~".
KXUTILS_API std::string IWK_UrlEncode(const std::string& s);
/// Standard Base64 with padding.
KXUTILS_API std::string IWK_Base64Encode(const std::string& s);
/// The bytes of standard Base64 text; empty when it is not valid.
KXUTILS_API std::string IWK_Base64Decode(const std::string& s);
/// Lower-case hex of the bytes of s.
KXUTILS_API std::string IWK_CharToHex(const std::string& s);
/// The raw digest of s by alg (KX_HASH_MD5); empty for another alg.
KXUTILS_API std::string IWK_Digest(const std::string& s, KXHashAlg alg);
/// length random bytes from the system's secure generator; empty on failure
/// or for a length of 0 or less.
KXUTILS_API std::string IWK_GenRand(int length);
/// The payload of a JSON web token (its second part, Base64url decoded),
/// signature not checked. 0, or 1 with payload empty when the token has no
/// such part.
KXUTILS_API int IWK_JWTDecode(std::string token, std::string& payload);
/// UTF-8 of a wide text (a value that is no code point becomes U+FFFD).
KXUTILS_API std::string IWK_WideCharToUtf8(const std::wstring& s);
/// The wide text of UTF-8 text.
KXUTILS_API std::wstring IWK_Utf8ToWideChar(const std::string& s);
/// The last element of a path, after its last '/' or '\'; empty for null.
KXUTILS_API std::string IWK_GetBaseName(const char* path);
/// A path's parts as the Windows runtime's _splitpath_s gives them, with both
/// '/' and '\\' as separators on every system: "C:" (a drive letter and colon,
/// or empty), the directory with its last separator, the name, and the
/// extension from the last dot of the last element on ("" when none).
struct KXUTILS_API KXPathParts {
    std::string drive, dir, name, ext;
};
/// @var KXPathParts::drive
/// "C:", or empty.
/// @var KXPathParts::dir
/// The directory with its last separator.
/// @var KXPathParts::name
/// The name without its extension.
/// @var KXPathParts::ext
/// The extension with its dot, or empty.

/// Splits path into its parts (KXPathParts).
KXUTILS_API KXPathParts IWK_SplitPath(const std::string& path);
/// JSON text with the values of the keys that rules name masked, at any
/// depth; text that is no JSON, or that no rule changes, comes back as it is.
KXUTILS_API std::string IWK_DataTuomin(const std::string& text, const KX_TuoMinData* rules,
                                       int count);

// ---------------------------------------------------------------------------
// System.

/// A hardware address of this machine as "AA-BB-CC-DD-EE-FF" (that of the
/// first interface by name); "00-00-00-00-00-00" when there is none.
KXUTILS_API std::string IWK_GetMacAddress();
/// Milliseconds since the epoch.
KXUTILS_API long long IWK_GetCurTime();
/// Seconds since the epoch, as the Windows runtime's _time64(nullptr) gives them.
KXUTILS_API long long IWK_Time64();
/// Milliseconds of a clock that never goes back, for intervals and deadlines
/// (the clock the timers read by default).
KXUTILS_API long long IWK_GetMonotonicMs();
/// The language that requests name: [KXUtils] Language, empty by default.
KXUTILS_API std::string IWK_GetLanguageName();

// ---------------------------------------------------------------------------
// Modules loaded at run time (a plug-in). Wide paths are UTF-8 here.

/// The directory of the module that holds the address module (any address of
/// its code or data), ending in a path separator; empty when none holds it.
KXUTILS_API std::wstring IWK_GetModulePathW(const void* module);
/// The module at path with its symbols bound; null when it cannot be loaded.
KXUTILS_API void* IWK_LoadLibraryW(const wchar_t* path);
/// An export of a loaded module by name; null when it has none.
KXUTILS_API void* IWK_GetProcAddress(void* module, const char* name);
/// Unloads a module of IWK_LoadLibraryW; null is ignored.
KXUTILS_API void IWK_FreeLibrary(void* module);

// Forwarding.

/// Performs the exchange a JSON envelope of length bytes describes, over
/// CIWKHttp: method "GET", "POST" or "PUT" from funcType, the complete URL from
/// funcName, the body from param (a GET has none), header lines from header
/// (empty, or JSON text {"httpHead":["Name: value",...]}), and, when the key is
/// there, a Content-Type line of contentType unless the lines name one.
/// reply gets {"errorCode":N,"result":"..."}: 0 with the reply text, or the
/// request's code with its text: a transport failure's class, or the HTTP
/// status of 300 and above with the reply (or the status text). Returns 0 when
/// reply was written; 10001, with reply untouched, for an envelope it cannot
/// read or a header line holding CR or LF. info is not used.
KXUTILS_API long IWK_ServerForword(const char* data, size_t length, std::string& reply,
                                   const _init_Info_s* info);
/// A forwarding service, in the form of IWK_ServerForword.
typedef long (*KXForwarder)(const char* data, size_t length, std::string& reply,
                            const _init_Info_s* info);
/// Installs another forwarding service (the suite's own, or a test's) in place
/// of the one above and returns the one it replaces; null puts it back.
KXUTILS_API KXForwarder IWK_SetForwarder(KXForwarder forwarder);

// ---------------------------------------------------------------------------
// Log.

#if defined(__GNUC__)
/// Lets the compiler check a printf-like format (argument f) against the
/// arguments from a on.
#define KX_PRINTF_LIKE(f, a) __attribute__((format(printf, f, a)))
#else
/// Lets the compiler check a printf-like format (argument f) against the
/// arguments from a on.
#define KX_PRINTF_LIKE(f, a)
#endif

/// Writes one line to the log when level is at least [KXUtils] LogLevel:
/// the printf-formatted text, with every registered secret hidden. Never
/// disturbs its caller. Lines below KX_LOG_ERROR reach the file within
/// 100 ms, from a writer thread; KX_LOG_ERROR and above, and lines to the
/// standard error stream, before the call returns. Every line is written by
/// the time the process exits normally.
KXUTILS_API void KX_WriteLog(KX_LOG_LEVEL level, const char* format, ...) KX_PRINTF_LIKE(2, 3);
/// Writes every line logged so far before it returns.
KXUTILS_API void KX_FlushLog();
/// Adds a text that the log never shows (a project secret, say).
KXUTILS_API void IWK_RegisterSecret(const std::string& secret);

/// One line in the frame every line of the library uses:
/// `<source [line] - function> <"text">`
#define KX_LOG(level, source, function, fmt, ...) \
    KX_WriteLog(level, "<%s [%d] - %s> <\"" fmt "\">", source, __LINE__, function, ##__VA_ARGS__)

// ---------------------------------------------------------------------------
// Timers. A portable form of a thread's message-queue timer: each timer
// belongs to the thread that set it and fires only inside IWK_DispatchTimers
// called on that thread, as a Windows application's message loop would
// deliver it. Timers that fell due several times meanwhile fire once.

/// The callback of a timer: window (always null here), message number,
/// timer id, and the clock in milliseconds when it fired.
typedef void (*KXTimerProc)(void* window, unsigned int message, uintptr_t id, unsigned long timeMs);
/// Millisecond clock the timers read; monotonic by default.
typedef long long (*KXTimerClock)();

/// Sets a timer on the calling thread's queue: fires every intervalMs (at
/// least 1). window must be null; event is then ignored. Returns the new
/// timer's id, unique in the process and never 0, or 0 on failure.
KXUTILS_API uintptr_t IWK_SetTimer(void* window, uintptr_t event, unsigned int intervalMs,
                                   KXTimerProc proc);
/// Ends a timer, from any thread. false when window is not null or no such
/// timer runs.
KXUTILS_API bool IWK_KillTimer(void* window, uintptr_t id);
/// Runs the callbacks of the calling thread's timers that are due; returns
/// how many ran. An application's loop calls it on each thread that set timers.
KXUTILS_API int IWK_DispatchTimers();
/// Milliseconds until the calling thread's next timer is due (0 when one is
/// due now), or -1 when the thread has none: how long its loop may sleep.
KXUTILS_API long long IWK_NextTimerDueMs();
/// Replaces the clock (null puts the monotonic one back) and returns the old;
/// tests drive the timers with it.
KXUTILS_API KXTimerClock IWK_SetTimerClock(KXTimerClock clock);
