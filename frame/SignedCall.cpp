#include "frame/SignedCall.h"

#include "KXReplyParsers.h"
#include "KXServerBase.h"

KXSignedCall::KXSignedCall(const _init_Info_s& record, bool requireRecord) : record_(record) {
    if (requireRecord && KXServerBase::CheckInitInfo(record) != KX_OK) {
        lRes = KX_ERR_NOT_INITIALISED;
    }
}

bool KXSignedCall::PrepareFormat(const std::string& tmpl, const char* kinds, std::string& format) {
    format.clear();
    size_t next = 0;
    for (size_t i = 0; i < tmpl.size(); ++i) {
        format += tmpl[i];
        if (tmpl[i] != '%') continue;
        const std::string rest = tmpl.substr(i + 1, 2);
        char kind = 0;
        if (rest.compare(0, 1, "%") == 0) {
            format += '%';
            ++i;
            continue;
        } else if (rest.compare(0, 1, "s") == 0) {
            kind = 's';
            i += 1;
        } else if (rest.compare(0, 1, "d") == 0) {
            kind = kinds[next] == 'l' ? 'l' : 'd';
            i += 1;
        } else if (rest == "ld") {
            kind = 'l';
            i += 2;
        } else {
            return false;
        }
        if (kinds[next] != kind) return false;
        format += kind == 's' ? "s" : kind == 'd' ? "d" : "ld";
        ++next;
    }
    return kinds[next] == '\0';
}

bool KXSignedCall::Refuse(long code) {
    // reqRes stays empty: the exit line shows that nothing was sent.
    lRes = code;
    data = Json::Value();
    return false;
}

bool KXSignedCall::Send(HTTPFuncType verb, const Json::Value* body, const std::string* head) {
    if (lRes != KX_OK) return false;
    const std::string text = body != nullptr ? kxjson::Write(*body) : std::string();
    const std::string signatureHead =
        head != nullptr ? std::string()
                        : CIWKHttp::GetSignatureHead(
                              verb, url, record_.ServerIp, record_.ProjectID, record_.ProjectSecret,
                              std::vector<std::string>(), "application/json");
    const std::string& useHead = head != nullptr ? *head : signatureHead;
    switch (verb) {
        case HTTP_FUNC_GET:
            CIWKHttp::Get(url, "", useHead, &reqRes, HTTP_REQ_PLAIN, nullptr);
            break;
        case HTTP_FUNC_POST:
            CIWKHttp::Post(url, text, useHead, &reqRes, HTTP_CONTENT_JSON, HTTP_REQ_PLAIN, nullptr,
                           nullptr, nullptr);
            break;
        case HTTP_FUNC_PUT:
            CIWKHttp::Put(url, text, useHead, &reqRes, HTTP_CONTENT_JSON, HTTP_REQ_PUT, nullptr,
                          nullptr, nullptr);
            break;
        default:
            return Refuse(KX_ERR_INVALID_VALUE);
    }
    lRes = ParseCodeEnvelope(reqRes, data);
    return lRes == KX_OK;
}
