// The one request pipeline beneath every operation of the library.
//
// An operation writes its entry line, makes one KXCall, and inside Run()
// states what differs: its URL, its head, its body and the fields it takes
// from the reply. The call holds the rest: the precondition, the URL check,
// the head made over exactly what is sent, the request itself, the reply
// reader, the last error and the guard against exceptions. The operation then
// writes its exit line and returns lRes.
//
//   KXCall call(m_stInitInfo);                     // platform shape
//   call.Run([&] {
//       if (!call.Url(strIdentityInfoUrl, id) || !call.Get()) return;
//       code = kxjson::String(call.data, "code");
//   });
#pragma once

#include <json/json.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "KXCommonType.h"
#include "KXUtils.h"
#include "frame/ReplyReaders.h"
#include "frame/UrlTemplate.h"

// Runs f; an exception of any kind (std::bad_alloc too) becomes onThrow. The
// guard of every exported function that does more than copy a value.
template <typename F>
long KXGuard(F&& f, long onThrow = KX_ERR_INVALID_VALUE) noexcept {
    try {
        return f();
    } catch (...) {
        return onThrow;
    }
}

// How a request is authorised.
enum class KXHead {
    None,       // no head at all
    Signature,  // GetSignatureHead over the method and the URL as sent
    Legacy,     // GenInkwellHttpHead over the exact body text
    Token,      // GetBIDHeadToken of a token the caller holds
    Given,      // a head the operation made itself
};

// What a transport failure (no reply, or an HTTP status of 300 and above)
// leaves in the last error. Envelope readers want the transport's text;
// several operations leave the last error as it was.
enum class KXOnTransport {
    Text,       // IWK_SetLastError(code, transport text)
    Code,       // IWK_SetLastError(code): the code's standard text
    Unchanged,  // nothing
    Silent,     // nothing, not even for a URL byte that cannot be sent: a
                // report's own thread, whose last error nobody reads
};

class KXCall {
public:
    // The platform shape: the record must pass CheckInitInfo (else 10009 and
    // nothing is sent), the signature head, the code/message/data envelope.
    explicit KXCall(const _init_Info_s& record);
    // Any other shape; no precondition until Require().
    KXCall(const _init_Info_s& record, KXReply reply, KXHead head = KXHead::None);
    // A call of a free function, which has no record: no head that needs one.
    explicit KXCall(KXReply reply);

    KXCall(const KXCall&) = delete;
    KXCall& operator=(const KXCall&) = delete;

    // Precondition: the record must pass CheckInitInfo, else code.
    KXCall& Require(long code = KX_ERR_NOT_INITIALISED);
    // Precondition of the operation's own: false ends it with code.
    KXCall& Require(bool ok, long code);
    // Overrides what the reader's kind does with a transport failure.
    KXCall& OnTransport(KXOnTransport rule) {
        onTransport_ = rule;
        return *this;
    }
    // The head: Given takes the text itself, Legacy the authorization value
    // (empty for none), Token the caller's token.
    KXCall& Head(KXHead kind, std::string value = std::string());
    // The signature head under another identity than the record's: a gateway
    // that knows the caller by its own application id and secret, at host.
    KXCall& SignAs(std::string host, std::string id, std::string secret);
    // The reply's outcome lands in the caller's record instead of reqRes.
    KXCall& ResultInto(KXReqResult& result) {
        result_ = &result;
        return *this;
    }
    // The reply text goes to the client's own handler (its On... function),
    // which reads it with the call's reader and takes its fields.
    KXCall& ReadWith(std::function<long(const std::string&)> handler) {
        handler_ = std::move(handler);
        return *this;
    }
    // A code the request ended with becomes another one for the caller; the
    // last error keeps what the reader left (the server's own number). It
    // allocates: call it inside Run().
    KXCall& Map(long from, long to) {
        maps_.push_back({from, to});
        return *this;
    }

    // Runs the operation's own steps unless the precondition failed. An
    // exception inside ends the operation with 10001.
    template <typename Steps>
    void Run(Steps&& steps) noexcept {
        if (lRes != KX_OK) return;
        const long code = KXGuard([&] {
            steps();
            return 0L;
        });
        if (code != KX_OK) Refuse(code);
    }

    // URL from a template: the record's ServerIp first, then the values as
    // they are (std::string for %s, int for %d, long for %ld or %d: a long is
    // never cut). Conversions that do not match the values give 10001, a URL
    // over the limit 10110; false then, with nothing sent.
    template <typename... V>
    bool Url(const std::string& tmpl, const V&... values) {
        const char kinds[] = {'s', Kind(values)..., '\0'};
        std::string format;
        if (!PrepareFormat(tmpl, kinds, format)) return Refuse(KX_ERR_INVALID_VALUE);
        const long code = Fill(format, {record_.ServerIp, Text(values)...}, url);
        return code == KX_OK || Refuse(code);
    }
    // URL of a configured path at a host and port (CIWKHttp::GetCompleteUrl).
    bool UrlAt(const std::string& path, const std::string& host, const std::string& port);
    // A complete URL as it is.
    bool UrlIs(std::string complete);

    // Sends to the URL and reads the reply; true when lRes is 0.
    bool Get() { return Send(HTTP_FUNC_GET, HTTP_CONTENT_JSON, std::string()); }
    bool Post(const Json::Value& body) {
        return Send(HTTP_FUNC_POST, HTTP_CONTENT_JSON, kxjson::Write(body));
    }
    bool Put(const Json::Value& body) {
        return Send(HTTP_FUNC_PUT, HTTP_CONTENT_JSON, kxjson::Write(body));
    }
    bool PostForm(std::string form) {
        return Send(HTTP_FUNC_POST, HTTP_CONTENT_FORM, std::move(form));
    }
    // XML text goes under the JSON content type: the servers that take it
    // read the body whatever its type says.
    bool PostXml(std::string xml) {
        return Send(HTTP_FUNC_POST, HTTP_CONTENT_JSON, std::move(xml));
    }
    // A multipart upload: fields is the JSON text of the form fields, filePath
    // the file (or directory) sent with them; no head goes with it.
    bool PostMultipart(std::string fields, std::string filePath);
    // A GET whose 2xx reply goes to the file that the "fileName" key of
    // params names (request type 3); no reply text to read.
    bool Download(std::string params);
    bool Send(HTTPFuncType verb, HTTPContentType type, std::string body);
    // Hands a forward envelope (written by the one compact writer) to
    // IWK_ServerForword instead of sending a request. Its failure, a reply
    // envelope that is no JSON object (10001) and a non-zero errorCode end
    // the call with their code and no last error; else the server's reply
    // text goes to the reader.
    bool Forward(const Json::Value& envelope);

    // Ends the operation with a local code: no request, no last error.
    // Always false.
    bool Refuse(long code);

    // The request's outcome, for exit lines.
    const char* msg() const { return result_->msg.c_str(); }
    int errCode() const { return result_->errCode; }
    int code() const { return static_cast<int>(lRes); }
    // True when the request failed before a reply was accepted by the
    // transport: no reply, or an HTTP status of 300 and above.
    bool TransportFailed() const { return transportFailed_; }

    long lRes = KX_OK;
    KXReqResult reqRes;
    std::string url;
    Json::Value data;  // what the reader hands on once lRes is 0

private:
    static constexpr char Kind(const std::string&) { return 's'; }
    static constexpr char Kind(int) { return 'd'; }
    static constexpr char Kind(long) { return 'l'; }
    static std::string Text(const std::string& s) { return s; }
    static std::string Text(int v) { return std::to_string(v); }
    static std::string Text(long v) { return std::to_string(v); }
    // The template's conversions, in order, are exactly kinds ('s' %s, 'd' %d,
    // 'l' %ld or %d, which becomes %ld), %% as text; format gets the template
    // to fill.
    static bool PrepareFormat(const std::string& tmpl, const char* kinds, std::string& format);
    // The URL of a prepared format with the values put in whole, as printf
    // would but for a NUL byte, which stays for the transport to refuse
    // instead of cutting the URL short; 10110 (url emptied) over the limit.
    static long Fill(const std::string& format, const std::vector<std::string>& values,
                     std::string& url);
    std::string MakeHead(HTTPFuncType verb, const std::string& body) const;
    void Read();

    const _init_Info_s& record_;
    KXReply reply_;
    KXHead head_;
    std::string headValue_;
    struct Signer {
        std::string host, id, secret;
    };
    std::unique_ptr<Signer> signer_;  // null: the record signs
    KXOnTransport onTransport_;
    KXReqResult* result_ = &reqRes;
    std::function<long(const std::string&)> handler_;
    std::string filePath_;
    std::vector<std::pair<long, long>> maps_;
    std::string params_;
    bool download_ = false;
    bool transportFailed_ = false;
};
