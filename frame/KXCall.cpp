#include "frame/KXCall.h"

#include "KXServerBase.h"

namespace {

const _init_Info_s kNoRecord;

KXOnTransport RuleOf(KXReply reply) {
    switch (reply) {
        case KXReply::ServiceEnvelope:
        case KXReply::OpenApi:
        case KXReply::Legacy:
        case KXReply::None:
            return KXOnTransport::Unchanged;
        default:
            return KXOnTransport::Text;
    }
}

}  // namespace

KXCall::KXCall(const _init_Info_s& record)
    : KXCall(record, KXReply::CodeEnvelope, KXHead::Signature) {
    Require();
}

KXCall::KXCall(const _init_Info_s& record, KXReply reply, KXHead head)
    : record_(record), reply_(reply), head_(head), onTransport_(RuleOf(reply)) {}

KXCall::KXCall(KXReply reply) : KXCall(kNoRecord, reply) {}

KXCall& KXCall::Require(long code) {
    if (lRes == KX_OK && KXServerBase::CheckInitInfo(record_) != KX_OK) lRes = code;
    return *this;
}

KXCall& KXCall::Require(bool ok, long code) {
    if (lRes == KX_OK && !ok) lRes = code;
    return *this;
}

KXCall& KXCall::Head(KXHead kind, std::string value) {
    head_ = kind;
    headValue_ = std::move(value);
    return *this;
}

KXCall& KXCall::SignAs(std::string host, std::string id, std::string secret) {
    head_ = KXHead::Signature;
    signer_.reset(new Signer{std::move(host), std::move(id), std::move(secret)});
    return *this;
}

bool KXCall::PrepareFormat(const std::string& tmpl, const char* kinds, std::string& format) {
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

long KXCall::Fill(const std::string& format, const std::vector<std::string>& values,
                  std::string& url) {
    url.clear();
    size_t next = 0;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') {
            url += format[i];
        } else if (format[i + 1] == '%') {
            url += '%';
            ++i;
        } else {
            url += values[next++];
            i += format[i + 1] == 'l' ? 2 : 1;
        }
        if (url.size() > kKXUrlLimit) {
            url.clear();
            return KX_ERR_URL_TOO_LONG;
        }
    }
    return KX_OK;
}

bool KXCall::UrlAt(const std::string& path, const std::string& host, const std::string& port) {
    url = CIWKHttp::GetCompleteUrl(path, host, port, false);
    return lRes == KX_OK;
}

bool KXCall::UrlIs(std::string complete) {
    url = std::move(complete);
    return lRes == KX_OK;
}

bool KXCall::Refuse(long code) {
    // The result record stays empty: the exit line shows that nothing was sent.
    lRes = code;
    data = Json::Value();
    return false;
}

std::string KXCall::MakeHead(HTTPFuncType verb, const std::string& body) const {
    switch (head_) {
        case KXHead::Signature:
            if (signer_) {
                return CIWKHttp::GetSignatureHead(verb, url, signer_->host, signer_->id,
                                                  signer_->secret, std::vector<std::string>(),
                                                  "application/json");
            }
            return CIWKHttp::GetSignatureHead(verb, url, record_.ServerIp, record_.ProjectID,
                                              record_.ProjectSecret, std::vector<std::string>(),
                                              "application/json");
        case KXHead::Legacy:
            // Over exactly the text that is posted.
            return CIWKHttp::GenInkwellHttpHead(record_.ProjectID, record_.ProjectSecret, body,
                                                headValue_);
        case KXHead::Token:
            return CIWKHttp::GetBIDHeadToken(headValue_);
        case KXHead::Given:
            return headValue_;
        case KXHead::None:
            break;
    }
    return std::string();
}

bool KXCall::PostMultipart(std::string fields, std::string filePath) {
    filePath_ = std::move(filePath);
    head_ = KXHead::None;
    return Send(HTTP_FUNC_POST, HTTP_CONTENT_MULTIPART, std::move(fields));
}

bool KXCall::Download(std::string params) {
    params_ = std::move(params);
    download_ = true;
    return Send(HTTP_FUNC_GET, HTTP_CONTENT_JSON, std::string());
}

bool KXCall::Send(HTTPFuncType verb, HTTPContentType type, std::string body) {
    if (lRes != KX_OK) return false;
    const std::string head = MakeHead(verb, body);
    // A head that cannot be made (a line break in the project id or the
    // token, a MAC that failed) would let the request go out without one:
    // refused instead. An empty token has no head.
    const bool headWanted = head_ == KXHead::Signature || head_ == KXHead::Legacy ||
                            (head_ == KXHead::Token && !headValue_.empty());
    if (headWanted && head.empty()) return Refuse(KX_ERR_INVALID_VALUE);
    // An upload's path goes down even when empty: the layer refuses it then.
    const char* file = type == HTTP_CONTENT_MULTIPART ? filePath_.c_str() : nullptr;
    switch (verb) {
        case HTTP_FUNC_GET:
            CIWKHttp::Get(url, params_, head, result_,
                          download_ ? HTTP_REQ_DOWNLOAD : HTTP_REQ_PLAIN, nullptr);
            break;
        case HTTP_FUNC_POST:
            CIWKHttp::Post(url, std::move(body), head, result_, type, HTTP_REQ_PLAIN, nullptr, file,
                           nullptr);
            break;
        case HTTP_FUNC_PUT:
            CIWKHttp::Put(url, std::move(body), head, result_, type, HTTP_REQ_PUT, nullptr, file,
                          nullptr);
            break;
        default:
            return Refuse(KX_ERR_INVALID_VALUE);
    }
    Read();
    for (const auto& map : maps_) {
        if (lRes == map.first) {
            lRes = map.second;
            break;
        }
    }
    return lRes == KX_OK;
}

bool KXCall::Forward(const Json::Value& envelope) {
    if (lRes != KX_OK) return false;
    const std::string text = kxjson::Write(envelope);
    std::string reply;
    const long code = IWK_ServerForword(text.data(), text.size(), reply, nullptr);
    KXReqResult& result = *result_;
    result.errCode = static_cast<int>(code);
    result.msg = reply;
    transportFailed_ = code != KX_OK;
    data = Json::Value();
    if (transportFailed_) return Refuse(code);
    std::string inner;
    lRes = KXReadForwardReply(reply, inner);
    if (lRes != KX_OK) return false;
    KXReqResult innerResult;
    innerResult.msg = inner;
    lRes = handler_ ? handler_(inner) : KXReadReply(reply_, innerResult, data);
    return lRes == KX_OK;
}

// The one place where a request's outcome becomes the operation's code and
// last error.
void KXCall::Read() {
    data = Json::Value();
    KXReqResult& result = *result_;
    transportFailed_ = result.errCode != 0;
    if (transportFailed_) {
        lRes = result.errCode;
        // A URL byte that could not be sent is named whatever the operation
        // does with other failures: the caller must learn which one it was.
        const KXOnTransport rule =
            result.errCode == KX_ERR_URL_BAD_CHAR && onTransport_ != KXOnTransport::Silent
                ? KXOnTransport::Text
                : onTransport_;
        if (rule == KXOnTransport::Text) IWK_SetLastError(result.errCode, result.msg);
        if (rule == KXOnTransport::Code) IWK_SetLastError(result.errCode);
        return;
    }
    // A download's reply is in its file: nothing to read.
    if (download_)
        lRes = KX_OK;
    else
        lRes = handler_ ? handler_(result.msg) : KXReadReply(reply_, result, data);
}
