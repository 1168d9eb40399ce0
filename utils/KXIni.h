// INI text, on strings only: reading it into values and setting one key.
// The store's file (path, cache, atomic write, lock) is KXConfig.cpp's.
//
// Rules: "[Section]" lines, "key=value" lines, and comment lines whose first
// byte after blanks is ';' or '#'. Section and key names compare ignoring
// ASCII case; names and values are trimmed of blanks (space, tab); there are
// no inline comments, so values may hold ';' and '#'. Lines end with LF or
// CRLF; a UTF-8 byte order mark at the start is skipped; other lines are
// ignored. A repeated section adds keys; the first occurrence of a key wins.
// Values are bytes (GBK and UTF-8 pass unchanged). Internal to libKXUtils.
#pragma once

#include <string>
#include <unordered_map>

namespace kxini {

class Values {
public:
    Values() = default;
    explicit Values(const std::string& text);
    // false when the section holds no such key (value untouched).
    bool Find(const std::string& section, const std::string& key, std::string& value) const;

private:
    // Lower-cased "section\nkey": a line cannot hold LF, so the form is unambiguous.
    std::unordered_map<std::string, std::string> values_;
};

// Whether a key can be written: no CR or LF anywhere, no ']' in the section
// nor '=' in the key, names not blank, and a key that cannot read back as a
// section or a comment line.
bool CanSet(const std::string& section, const std::string& key, const std::string& value);

// Sets one key in text and changes nothing else: every other section, key,
// comment, blank line and line end stays byte for byte. An existing key keeps
// its spelling and spacing up to the value (the first occurrence, in any
// section of that name). A new key goes after the last key line of the first
// section of that name (right after its header when it has none); a new
// section goes at the end. New lines take the text's first line end. false,
// with text unchanged, when !CanSet.
bool SetKey(std::string& text, const std::string& section, const std::string& key,
            const std::string& value);

}  // namespace kxini
