// The header lines of a request.
#include <cctype>
#include <cstring>

#include "KXHttpParts.h"

namespace {

// A header line naming Content-Type, also in curl's "Name;" (empty value) form.
bool IsContentTypeLine(const std::string& line) {
    if (!kxascii::StartsWithNoCase(line, "content-type")) return false;
    size_t i = std::strlen("content-type");
    while (i < line.size() && kxascii::IsBlank(line[i])) ++i;
    return i < line.size() && (line[i] == ':' || line[i] == ';');
}

// Any CR or LF ends a line, so no line can smuggle a second header in; blank
// lines are dropped.
std::vector<std::string> SplitHead(const std::string& head) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start <= head.size()) {
        size_t end = head.find_first_of("\r\n", start);
        if (end == std::string::npos) end = head.size();
        std::string line = head.substr(start, end - start);
        if (line.find_first_not_of(" \t") != std::string::npos) lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

}  // namespace

std::vector<std::string> kxhttp::HeaderLines(const std::string& head, bool withBody,
                                             HTTPContentType contentType) {
    std::vector<std::string> lines = SplitHead(head);
    // A multipart body's type names its boundary: the transport writes it.
    if (!withBody || contentType == HTTP_CONTENT_MULTIPART) return lines;
    for (const std::string& line : lines) {
        if (IsContentTypeLine(line)) return lines;
    }
    lines.insert(lines.begin(), contentType == HTTP_CONTENT_JSON
                                    ? "Content-Type: application/json"
                                    : "Content-Type: application/x-www-form-urlencoded");
    return lines;
}
