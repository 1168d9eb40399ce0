// Any bytes as a store's text. The first line of the input names a section,
// key and value ("section\tkey\tvalue"); the rest is the text. Reading must
// not crash, and a key the writer accepted must read back as written.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "KXIni.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t eol = input.find('\n');
    const std::string head = input.substr(0, eol);
    std::string text = eol == std::string::npos ? std::string() : input.substr(eol + 1);

    const size_t tab1 = head.find('\t');
    const size_t tab2 = tab1 == std::string::npos ? tab1 : head.find('\t', tab1 + 1);
    if (tab2 == std::string::npos) return 0;
    const std::string section = head.substr(0, tab1);
    const std::string key = head.substr(tab1 + 1, tab2 - tab1 - 1);
    const std::string value = head.substr(tab2 + 1);

    std::string found;
    kxini::Values(text).Find(section, key, found);
    if (kxini::SetKey(text, section, key, value)) {
        std::string back;
        // Values read back trimmed of blanks.
        const size_t first = value.find_first_not_of(" \t");
        const std::string trimmed =
            first == std::string::npos
                ? std::string()
                : value.substr(first, value.find_last_not_of(" \t") - first + 1);
        if (!kxini::Values(text).Find(section, key, back) || back != trimmed) std::abort();
    }
    return 0;
}
