// What a failed libcurl transfer means to a caller of CIWKHttp. Internal to
// libKXUtils.
#pragma once

#include <curl/curl.h>

namespace kxhttp {

// One KX_ERR_HTTP_* code per curl code. connected: a connection to the server
// was made, so the failure lies in what came back, never in the URL.
int MapCurlCode(CURLcode code, bool connected);

}  // namespace kxhttp
