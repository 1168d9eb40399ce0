// Any bytes as log text or as a reply to mask.
#include <cstddef>
#include <cstdint>
#include <string>

#include "KXMask.h"
#include "KXUtils.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string masked;
    kxutils::AppendMaskedLogText(text, masked);
    const KX_TuoMinData rules[] = {KX_TuoMinData(KX_TUOMIN_JSON_KEY, "idNo", 6, 8),
                                   KX_TuoMinData(KX_TUOMIN_JSON_KEY, "loginAccount", 3, 4)};
    IWK_DataTuomin(text, rules, 2);
    return 0;
}
