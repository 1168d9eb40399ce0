// IWK_SplitPath: the portable stand-in for the Windows runtime's _splitpath_s.
#include "KXAscii.h"
#include "KXUtils.h"

KXPathParts IWK_SplitPath(const std::string& path) {
    KXPathParts parts;
    try {
        size_t start = 0;
        if (path.size() >= 2 && path[1] == ':' && kxascii::Lower(path[0]) >= 'a' &&
            kxascii::Lower(path[0]) <= 'z') {
            parts.drive = path.substr(0, 2);
            start = 2;
        }
        const size_t slash = path.find_last_of("/\\");
        const size_t nameAt = slash == std::string::npos || slash < start ? start : slash + 1;
        parts.dir = path.substr(start, nameAt - start);
        const std::string last = path.substr(nameAt);
        const size_t dot = last.rfind('.');
        parts.name = last.substr(0, dot);
        if (dot != std::string::npos) parts.ext = last.substr(dot);
    } catch (...) {
        parts = KXPathParts();
    }
    return parts;
}
