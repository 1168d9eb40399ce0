// Any bytes as a server reply: the parsers and helpers that read replies must
// answer with a code or a value, never crash or throw.
#include <cstddef>
#include <cstdint>
#include <string>

#include "KXUtils.h"
#include "frame/ReplyReaders.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);

    for (KXReply reader :
         {KXReply::CodeEnvelope, KXReply::ErrCodeEnvelope, KXReply::ServiceEnvelope,
          KXReply::OpenApi, KXReply::Legacy, KXReply::CloudCheckXml, KXReply::PrintCtrl}) {
        KXReqResult result;
        result.errCode = 0;
        result.msg = text;
        result.strBody = text;
        Json::Value payload;
        KXReadReply(reader, result, payload);
        kxjson::Write(payload);
    }

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

    const KX_TuoMinData rules[] = {KX_TuoMinData(KX_TUOMIN_JSON_KEY, "idNo", 6, 8),
                                   KX_TuoMinData(KX_TUOMIN_JSON_KEY, "loginAccount", 3, 4)};
    IWK_DataTuomin(text, rules, 2);
    std::string payload;
    IWK_JWTDecode(text, payload);
    IWK_Base64Decode(text);
    return 0;
}
