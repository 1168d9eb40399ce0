// The common shape of a signed request answered in the code/message/data
// envelope (the platform client and certificate expansion). An operation
// writes its entry line, makes one KXSignedCall, and inside Run() formats its
// URL, sends its body and reads its reply fields; then it writes its exit line
// and returns lRes. The call holds the precondition, the URL limit, the head,
// the request, the reply envelope and the guard against exceptions.
#pragma once

#include <json/json.h>

#include <string>
#include <type_traits>

#include "KXCommonType.h"
#include "KXUtils.h"
#include "frame/UrlTemplate.h"

class KXSignedCall {
public:
    // With requireRecord, 10009 in lRes when the record is incomplete: nothing
    // will be sent. Without it the call goes to whatever the record names.
    explicit KXSignedCall(const _init_Info_s& record, bool requireRecord = true);

    // Runs the operation's own steps unless the precondition failed. An
    // exception inside ends the operation with 10001.
    template <typename Steps>
    void Run(Steps&& steps) {
        if (lRes != KX_OK) return;
        try {
            steps();
        } catch (...) {
            Refuse(KX_ERR_INVALID_VALUE);
        }
    }

    // The template, the record's ServerIp first, then the values as they
    // are (std::string for %s, int for %d, long for %ld or %d: a long is never
    // cut). A template whose conversions do not match the values gives 10001,
    // a URL over the limit 10110; false then, with nothing sent.
    template <typename... V>
    bool Url(const std::string& tmpl, const V&... values) {
        const char kinds[] = {'s', Kind(values)..., '\0'};
        std::string format;
        if (!PrepareFormat(tmpl, kinds, format)) return Refuse(KX_ERR_INVALID_VALUE);
        const long code =
            KXFormatUrl(url, format.c_str(), record_.ServerIp.c_str(), Arg(values)...);
        return code == KX_OK || Refuse(code);
    }

    // Sends to the formatted URL with a signature head and reads the
    // code/message/data envelope into data; true when lRes is 0.
    bool Get() { return Send(HTTP_FUNC_GET, nullptr, nullptr); }
    bool Post(const Json::Value& body) { return Send(HTTP_FUNC_POST, &body, nullptr); }
    bool Put(const Json::Value& body) { return Send(HTTP_FUNC_PUT, &body, nullptr); }
    // The same with a head the operation made itself (null: signature head).
    bool Send(HTTPFuncType verb, const Json::Value* body, const std::string* head);

    // Ends the operation with a local code: no request, no last error.
    // Always false.
    bool Refuse(long code);

    const char* msg() const { return reqRes.msg.c_str(); }
    int errCode() const { return reqRes.errCode; }
    int code() const { return static_cast<int>(lRes); }

    long lRes = KX_OK;
    KXReqResult reqRes;
    std::string url;
    Json::Value data;  // the reply's data once lRes is 0 after a request

private:
    static constexpr char Kind(const std::string&) { return 's'; }
    static constexpr char Kind(int) { return 'd'; }
    static constexpr char Kind(long) { return 'l'; }
    static const char* Arg(const std::string& s) { return s.c_str(); }
    static int Arg(int v) { return v; }
    static long Arg(long v) { return v; }
    // The template's conversions, in order, are exactly kinds ('s' %s, 'd' %d,
    // 'l' %ld or %d, which becomes %ld), %% as text; format gets the template
    // to hand to printf.
    static bool PrepareFormat(const std::string& tmpl, const char* kinds, std::string& format);

    const _init_Info_s& record_;
};
