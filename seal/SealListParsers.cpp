// The reply readers of KX_GetSealListByYPT, KX_GetSealListByCertSN and
// KX_GetSealListByCert_RBN.
#include "seal/SealListParsers.h"

#include <json/json.h>

#include "KXSealOpenApi.h"
#include "KXUtils.h"
#include "frame/ReplyReaders.h"

namespace {

// The part all four share: 10003 for no JSON object or an unusable code; a
// code not 0 or an empty data (null, [] or {}) ends the reading with that
// code, written to the last error with the message even when it is 0.
bool ReadEnvelope(const std::string& text, Json::Value& data, long& lRes) {
    Json::Value root;
    int code = 0;
    if (!kxjson::Parse(text, root) || !root.isObject() ||
        !KXReadStatus(kxjson::Member(root, "code"), code)) {
        lRes = KX_ERR_REPLY_UNPARSABLE;
        return false;
    }
    data = kxjson::Member(root, "data");
    lRes = code;
    if (code == 0 && !data.empty()) return true;
    IWK_SetLastError(code, kxjson::String(root, "message"));
    return false;
}

// The list's elements; null when it is no array or holds none.
const Json::Value* ListOf(const Json::Value& list) {
    return list.isArray() && list.size() >= 1 ? &list : nullptr;
}

// Pixels at 96 dpi to whole millimetres, truncated.
int Millimetres(int pixels) {
    return static_cast<int>(static_cast<float>(pixels) * 25.4 / 96.0);
}

}  // namespace

long OnParseSealListRes(const std::string& text, std::vector<_seal_Info_s>& seals,
                        bool keepPixels) {
    Json::Value data;
    long lRes = KX_OK;
    if (!ReadEnvelope(text, data, lRes)) return lRes;
    const Json::Value* list = ListOf(kxjson::Member(data, "sealList"));
    lRes = KX_ERR_SEAL_LIST_NO_SEAL;
    if (list == nullptr) return lRes;
    // The result follows the last element that held data.
    for (const Json::Value& element : *list) {
        _seal_Info_s seal;
        seal.sealData = kxjson::String(element, "data");
        if (seal.sealData.empty()) continue;
        lRes = KX_PraseXMLSeal(seal.sealData.c_str(), seal);
        if (lRes != KX_OK) {
            // An ASN.1 seal is no XML document: kept with what was read.
            int type = 0;
            kxjson::Int(kxjson::Member(element, "sealDataType"), type);
            seal.sealDataType = type;
            if (type != 1) continue;
        }
        if (!keepPixels) {
            seal.width = Millimetres(seal.width);
            seal.height = Millimetres(seal.height);
        }
        seals.push_back(std::move(seal));
        lRes = KX_OK;
    }
    return lRes;
}

long OnParseSealListRes2(const std::string& text, std::vector<_seal_Info_s>& seals) {
    Json::Value data;
    long lRes = KX_OK;
    if (!ReadEnvelope(text, data, lRes)) return lRes;
    const std::string certB64 = kxjson::String(data, "certB64");
    const Json::Value* list = ListOf(kxjson::Member(data, "seals"));
    lRes = KX_ERR_SEAL_LIST_NO_SEAL;
    if (list == nullptr) return lRes;
    for (const Json::Value& element : *list) {
        _seal_Info_s seal;
        seal.sealData = kxjson::String(element, "data");
        if (seal.sealData.empty() || KX_PraseXMLSeal(seal.sealData.c_str(), seal) != KX_OK)
            continue;
        seal.certB64 = certB64;
        seals.push_back(std::move(seal));
        lRes = KX_OK;
    }
    return lRes;
}

long OnParseRBNSealListRes(const std::string& text, std::vector<_seal_Info_s>& seals) {
    Json::Value data;
    long lRes = KX_OK;
    if (!ReadEnvelope(text, data, lRes)) return lRes;
    const Json::Value* list = ListOf(data);
    lRes = KX_ERR_SEAL_LIST_NO_SEAL;
    if (list == nullptr) return lRes;
    for (const Json::Value& element : *list) {
        _seal_Info_s seal;
        seal.sealData = kxjson::String(element, "asnBase64");
        if (seal.sealData.empty()) continue;
        seal.sealDataType = 1;
        seals.push_back(std::move(seal));
        lRes = KX_OK;
    }
    return lRes;
}

long OnParseRBNTokenRes(const std::string& text, std::string& accessToken) {
    Json::Value data;
    long lRes = KX_OK;
    if (!ReadEnvelope(text, data, lRes)) return lRes;
    accessToken = kxjson::String(data, "accessToken");
    return KX_OK;
}
