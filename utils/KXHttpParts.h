// The parts of CIWKHttp, internal to libKXUtils. The front (KXHttp.cpp)
// checks the URL, reads the settings, builds the header lines and hands one
// KXWireRequest to the installed transport; libcurl's (KXCurlTransport.cpp)
// serves while no other is installed.
#pragma once

#include <string>
#include <vector>

#include "KXAscii.h"
#include "KXTransport.h"
#include "KXUtils.h"

namespace kxhttp {

// KXHttpSettings.cpp: the [KXUtils] settings of one request, read in one look
// at the store at every request, so that a change applies to the next one.
void ReadSettings(KXWireRequest& request);

// KXHttpHeaders.cpp: the header lines of a request. With a body, a
// Content-Type of its type first unless the head names one; then every
// non-blank line of the head (a multipart body gets its type from the
// transport). Any CR or LF ends a line.
std::vector<std::string> HeaderLines(const std::string& head, bool withBody,
                                     HTTPContentType contentType);

// KXHttpUrl.cpp: path and query of a URL as the request line carries them:
// all that follows scheme and authority, up to a fragment; "/" before a bare
// query or in place of no path. A text that already starts with "/" is taken
// as path and query.
std::string PathAndQuery(const std::string& url);
// "scheme://host[:port]" of a URL as written, without user information.
std::string Origin(const std::string& url);

// KXHttpFiles.cpp. The parts of a multipart upload: each top-level key of the
// JSON body a field (a string as it is, anything else as its JSON text), then
// the file filePath names under "file" with its base name (a null filePath:
// the fields alone; an empty one names no file and is refused), or, when it names
// a directory, each file of it that the body's "res_file" and "ps_file" name
// (a name or an array of names; bare names only) under that key. The target
// of a download: the "fileName" key of params. 0, or a code with detail.
int MultipartParts(const std::string& body, const char* filePath, std::vector<KXWirePart>& parts,
                   std::string& detail);
int DownloadTarget(const std::string& params, std::string& path, std::string& detail);

// KXCurlTransport.cpp.
IKXTransport& CurlTransport();

}  // namespace kxhttp
