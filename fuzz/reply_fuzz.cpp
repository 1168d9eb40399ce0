// Any bytes as a server reply: the envelope parsers and every reply reader
// must answer with a code, never crash or throw, and what they hand on must
// write back out.
#include <cstddef>
#include <cstdint>
#include <string>

#include "KXReplyParsers.h"
#include "KXUtils.h"
#include "frame/ReplyReaders.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);

    for (KXReply reader :
         {KXReply::CodeEnvelope, KXReply::ErrCodeEnvelope, KXReply::ServiceEnvelope,
          KXReply::OpenApi, KXReply::Legacy, KXReply::PrintCtrl}) {
        KXReqResult result;
        result.errCode = 0;
        result.msg = text;
        result.strBody = text;
        Json::Value payload;
        KXReadReply(reader, result, payload);
        kxjson::Write(payload);
    }
    Json::Value payload;
    ParsePrintCtrlReply(text, payload);

    Json::Value root;
    if (kxjson::Parse(text, root)) {
        int i = 0;
        long long l = 0;
        bool b = false;
        for (const char* key : {"code", "errCode", "data", "msg"}) {
            const Json::Value& v = kxjson::Member(root, key);
            kxjson::String(v);
            kxjson::Int(v, i);
            kxjson::Int64(v, l);
            kxjson::Bool(v, b);
            kxjson::Truth(v);
        }
        kxjson::Write(root);
    }
    IWK_Base64Decode(text);
    return 0;
}
