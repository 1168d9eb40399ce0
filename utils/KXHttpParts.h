// The parts of CIWKHttp, internal to libKXUtils. The front (KXHttp.cpp)
// checks the URL, reads the settings, builds the header lines and hands one
// KXWireRequest to the installed transport; libcurl's (KXCurlTransport.cpp)
// serves while no other is installed.
#pragma once

#include <string>
#include <vector>

#include "KXTransport.h"
#include "KXUtils.h"

namespace kxhttp {

// KXHttpSettings.cpp: the [KXUtils] settings of one request, read in one look
// at the store at every request, so that a change applies to the next one.
void ReadSettings(KXWireRequest& request);

// KXHttpHeaders.cpp: the header lines of a request. With a body, a
// Content-Type of its type first unless the head names one; then every
// non-blank line of the head. Any CR or LF ends a line.
std::vector<std::string> HeaderLines(const std::string& head, bool withBody,
                                     HTTPContentType contentType);
bool StartsWithNoCase(const std::string& text, const char* prefix);

// KXHttpUrl.cpp: path and query of a URL as the request line carries them:
// all that follows scheme and authority, up to a fragment; "/" before a bare
// query or in place of no path. A text that already starts with "/" is taken
// as path and query.
std::string PathAndQuery(const std::string& url);
// "scheme://host[:port]" of a URL as written, without user information.
std::string Origin(const std::string& url);

// KXCurlTransport.cpp.
IKXTransport& CurlTransport();

}  // namespace kxhttp
