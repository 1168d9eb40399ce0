// Server type texts.
#include "KXServerApi.h"
#include "KXUtils.h"

long KX_GetServerTypeByStr(const std::string& text, int& serverType, int defaultType) {
    long lRes = KX_ERR_INVALID_VALUE;
    if (text.empty() && defaultType != -1) {
        serverType = defaultType;
        lRes = KX_OK;
    } else if (IWK_Compare(text, "3.0", true) == 0) {
        serverType = 2;
        lRes = KX_OK;
    } else if (IWK_Compare(text, "Agent", true) == 0) {
        serverType = 4;
        lRes = KX_OK;
    }
    KX_LOG(KX_LOG_TRACE, "CommonType", "KX_GetServerTypeByStr", "lRes:%d, nServerType:%d",
           static_cast<int>(lRes), serverType);
    return lRes;
}
