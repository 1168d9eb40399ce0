#include "frame/UrlTemplate.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

#include "KXCommonType.h"

long KXFormatUrl(std::string& url, const char* format, ...) {
    url.clear();
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    if (length < 0 || static_cast<size_t>(length) > kKXUrlLimit) {
        va_end(copy);
        return KX_ERR_URL_TOO_LONG;
    }
    std::vector<char> buffer(static_cast<size_t>(length) + 1);
    std::vsnprintf(buffer.data(), buffer.size(), format, copy);
    va_end(copy);
    url.assign(buffer.data(), static_cast<size_t>(length));
    return KX_OK;
}
