// Any bytes as an XML document: the seal's XML (as sent, Base64 of XML, and
// as the XML itself) and the certificate check's XML reply.
#include <cstddef>
#include <cstdint>
#include <string>

#include "KXSealOpenApi.h"
#include "KXUtils.h"
#include "frame/ReplyReaders.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    _seal_Info_s seal;
    KX_PraseXMLSeal(text.c_str(), seal);
    KX_PraseXMLSeal(IWK_Base64Encode(text).c_str(), seal);

    KXReqResult result;
    result.errCode = 0;
    result.msg = text;
    result.strBody = text;
    Json::Value payload;
    KXReadReply(KXReply::CloudCheckXml, result, payload);
    return 0;
}
