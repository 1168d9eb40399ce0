// Reading and editing INI text (rules in KXIni.h).
#include "KXIni.h"

#include <utility>
#include <vector>

#include "KXAscii.h"

namespace kxini {

namespace {

const char kBom[] = "\xEF\xBB\xBF";

using kxascii::IsBlank;
using kxascii::Trim;

std::string JoinedKey(const std::string& section, const std::string& key) {
    return kxascii::Lower(section) + '\n' + kxascii::Lower(key);
}

enum class LineKind { Other, Blank, Comment, Section, Key };

struct LineInfo {
    LineKind kind = LineKind::Other;
    std::string name;    // section name or key, trimmed
    size_t valueAt = 0;  // Key: offset of the value's first non-blank byte
    std::string value;   // Key: trimmed value
};

// Classifies one line (without its line end). `skip` bytes at the front are
// ignored: the byte order mark of the first line.
LineInfo Classify(const std::string& line, size_t skip) {
    LineInfo info;
    size_t i = skip;
    while (i < line.size() && IsBlank(line[i])) ++i;
    if (i == line.size()) {
        info.kind = LineKind::Blank;
        return info;
    }
    if (line[i] == ';' || line[i] == '#') {
        info.kind = LineKind::Comment;
        return info;
    }
    if (line[i] == '[') {
        const size_t close = line.find(']', i + 1);
        if (close == std::string::npos) return info;
        info.kind = LineKind::Section;
        info.name = Trim(line, i + 1, close);
        return info;
    }
    const size_t eq = line.find('=', i);
    if (eq == std::string::npos) return info;
    info.name = Trim(line, i, eq);
    if (info.name.empty()) return info;
    info.kind = LineKind::Key;
    size_t v = eq + 1;
    while (v < line.size() && IsBlank(line[v])) ++v;
    info.valueAt = v;
    info.value = Trim(line, v);
    return info;
}

// One line of the file and the line end that followed it ("" for a last line
// without one), so that a rewrite can keep every byte it does not change.
struct RawLine {
    std::string body;
    std::string eol;
};

std::vector<RawLine> SplitLines(const std::string& text) {
    std::vector<RawLine> lines;
    size_t pos = 0;
    while (pos < text.size()) {
        const size_t nl = text.find('\n', pos);
        RawLine line;
        if (nl == std::string::npos) {
            line.body = text.substr(pos);
            pos = text.size();
        } else {
            line.body = text.substr(pos, nl - pos);
            line.eol = "\n";
            if (!line.body.empty() && line.body.back() == '\r') {
                line.body.pop_back();
                line.eol = "\r\n";
            }
            pos = nl + 1;
        }
        lines.push_back(std::move(line));
    }
    return lines;
}

size_t BomLength(const std::vector<RawLine>& lines, size_t index) {
    if (index != 0 || lines.empty()) return 0;
    return lines[0].body.compare(0, 3, kBom) == 0 ? 3 : 0;
}

bool HasLineBreak(const std::string& s) {
    return s.find_first_of("\r\n") != std::string::npos;
}

std::string Edit(const std::string& text, const std::string& section, const std::string& key,
                 const std::string& value) {
    std::vector<RawLine> lines = SplitLines(text);
    std::string eolStyle = "\n";
    for (const RawLine& l : lines) {
        if (!l.eol.empty()) {
            eolStyle = l.eol;
            break;
        }
    }
    const std::string wantSection = Trim(section);
    const std::string wantKey = Trim(key);

    bool inMatch = false;
    bool inFirstMatch = false;
    long firstSection = -1;
    long lastKeyOfFirst = -1;
    for (size_t i = 0; i < lines.size(); ++i) {
        const LineInfo info = Classify(lines[i].body, BomLength(lines, i));
        if (info.kind == LineKind::Section) {
            inMatch = kxascii::EqualsNoCase(info.name, wantSection);
            inFirstMatch = inMatch && firstSection < 0;
            if (inFirstMatch) firstSection = static_cast<long>(i);
        } else if (info.kind == LineKind::Key && inMatch) {
            if (kxascii::EqualsNoCase(info.name, wantKey)) {
                // Same key spelling, spacing and line end; only the value changes.
                lines[i].body = lines[i].body.substr(0, info.valueAt) + value;
                std::string out;
                for (const RawLine& l : lines) out += l.body + l.eol;
                return out;
            }
            if (inFirstMatch) lastKeyOfFirst = static_cast<long>(i);
        }
    }

    const std::string newLine = wantKey + "=" + value;
    if (firstSection >= 0) {
        const size_t at = static_cast<size_t>(lastKeyOfFirst >= 0 ? lastKeyOfFirst : firstSection);
        if (lines[at].eol.empty()) lines[at].eol = eolStyle;
        lines.insert(lines.begin() + static_cast<long>(at) + 1, RawLine{newLine, eolStyle});
    } else {
        if (!lines.empty() && lines.back().eol.empty()) lines.back().eol = eolStyle;
        lines.push_back(RawLine{"[" + wantSection + "]", eolStyle});
        lines.push_back(RawLine{newLine, eolStyle});
    }
    std::string out;
    for (const RawLine& l : lines) out += l.body + l.eol;
    return out;
}

}  // namespace

Values::Values(const std::string& text) {
    const std::vector<RawLine> lines = SplitLines(text);
    std::string section;
    for (size_t i = 0; i < lines.size(); ++i) {
        const LineInfo info = Classify(lines[i].body, BomLength(lines, i));
        if (info.kind == LineKind::Section) {
            section = info.name;
        } else if (info.kind == LineKind::Key) {
            // emplace keeps an existing entry: the first occurrence wins.
            values_.emplace(JoinedKey(section, info.name), info.value);
        }
    }
}

bool Values::Find(const std::string& section, const std::string& key, std::string& value) const {
    const auto it = values_.find(JoinedKey(Trim(section), Trim(key)));
    if (it == values_.end()) return false;
    value = it->second;
    return true;
}

bool CanSet(const std::string& section, const std::string& key, const std::string& value) {
    if (section.empty() || key.empty()) return false;
    if (HasLineBreak(section) || HasLineBreak(key) || HasLineBreak(value)) return false;
    if (section.find(']') != std::string::npos) return false;
    if (key.find('=') != std::string::npos) return false;
    // Names are stored trimmed; the first byte left must not make the line
    // read as a section or a comment.
    const std::string name = Trim(key);
    if (Trim(section).empty() || name.empty()) return false;
    if (name[0] == '[' || name[0] == ';' || name[0] == '#') return false;
    return true;
}

bool SetKey(std::string& text, const std::string& section, const std::string& key,
            const std::string& value) {
    if (!CanSet(section, key, value)) return false;
    text = Edit(text, section, key, value);
    return true;
}

}  // namespace kxini
