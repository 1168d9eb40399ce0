// BID logout: the token of a login ends at the server.
#include "CorvaneApi.h"
#include "bid/BidCall.h"

long CCorvaneApi::GetBIDLoginOutTask(std::string sToken) {
    static const char kFn[] = "CCorvaneApi::GetBIDLoginOutTask";
    KXCall call(m_stInitInfo);
    call.Run([&] {
        // A refused token stays 401 here: the session is over either way.
        call.Head(KXHead::Token, sToken);
        if (!call.Url(strBIDLogoutUrl)) return;
        call.Send(HTTP_FUNC_POST, HTTP_CONTENT_JSON, std::string());
    });
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, kFn, "lRes:%d, reqRes.errCode:%d, reqRes.msg:%s",
           call.code(), call.errCode(), call.msg());
    return call.lRes;
}
