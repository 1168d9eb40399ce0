// URLs formatted from a template with values as they are (not encoded). The
// templates of the platform and certificate clients allow 1023 bytes; a URL
// that would be longer is refused, never cut.
#pragma once

#include <string>

#if defined(__GNUC__)
#define KX_URL_FORMAT_CHECK __attribute__((format(printf, 2, 3)))
#else
#define KX_URL_FORMAT_CHECK
#endif

const size_t kKXUrlLimit = 1023;

// printf-style; 0 with the URL in url, or KX_ERR_URL_TOO_LONG (url emptied).
long KXFormatUrl(std::string& url, const char* format, ...) KX_URL_FORMAT_CHECK;
