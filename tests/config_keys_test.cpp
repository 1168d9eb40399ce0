// The table of configuration keys: README's "Keys" table is the code's, row by
// row, and reads through it take the table's section and default.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "KXUtils.h"
#include "TempEnv.h"

namespace {

// "section|key|default" of each row of README's key table, as the code writes
// them: backticks dropped, "empty" for no default.
std::vector<std::string> ReadmeRows() {
    std::ifstream in(KX_README);
    std::vector<std::string> rows;
    bool inKeys = false;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("#", 0) == 0) inKeys = line == "### Keys";
        if (!inKeys || line.rfind("| `", 0) != 0) continue;
        std::string row;
        size_t at = 1;
        for (int cell = 0; cell < 3; ++cell) {
            const size_t end = line.find(" |", at);
            std::string text = line.substr(at + 1, end - at - 1);
            if (text == "empty") text.clear();
            if (text.size() >= 2 && text.front() == '`') text = text.substr(1, text.size() - 2);
            row += (cell > 0 ? "|" : "") + text;
            at = end + 2;
        }
        rows.push_back(row);
    }
    return rows;
}

}  // namespace

TEST(ConfigKeys, ReadmeTableIsTheCodeTable) {
    size_t count = 0;
    const KXConfigKey* keys = IWK_ConfigKeys(count);
    const std::vector<std::string> readme = ReadmeRows();
    EXPECT_EQ(count, readme.size());
    for (size_t i = 0; i < count; ++i) {
        const std::string row =
            std::string(keys[i].section) + "|" + keys[i].key + "|" + keys[i].defaultValue;
        EXPECT_EQ(row, i < readme.size() ? readme[i] : "<missing>") << "row " << i;
        EXPECT_EQ(&keys[i], &IWK_ConfigKey(keys[i].id));
    }
}

TEST(ConfigKeys, ReadWithTheTableDefault) {
    TempEnv env;
    env.writeConfig(
        "[KXServerApi]\nCheckCert=\n[kxutils]\nLogLevel=x\nTimeoutMs=5\nLogFile=a.log\n"
        "[Mine]\nhost=h\nPort=7\n[*]\nHost=star\n[KXPrintMgr]\nContextPath=ink2\n");
    // "rc:value" of a read: in the key's section, or in a section given first.
    const auto read = [](auto&&... args) {
        std::string text;
        const int rc = IWK_GetConfig(args..., text);
        return std::to_string(rc) + ":" + text;
    };
    const auto readInt = [](auto&&... args) {
        int value = -1;
        const int rc = IWK_GetConfig(args..., value);
        return std::to_string(rc) + ":" + std::to_string(value);
    };
    EXPECT_EQ("1:", read(KXKey::CheckCert));  // an empty value is a value
    EXPECT_EQ("0:/agent/integrate/getCertSealInfos", read(KXKey::CheckCertAgent));
    EXPECT_EQ("1:a.log", read(KXKey::LogFile));
    EXPECT_EQ("0:1", readInt(KXKey::LogLevel));  // no number: the default
    EXPECT_EQ("1:5", readInt(KXKey::TimeoutMs));
    EXPECT_EQ("0:67108864", readInt(KXKey::MaxReplyBytes));
    EXPECT_EQ("1:h", read(std::string("Mine"), KXKey::Host));
    EXPECT_EQ("1:7", readInt(std::string("Mine"), KXKey::Port));
    EXPECT_EQ("0:0", readInt(std::string("Mine"), KXKey::SerType));
    EXPECT_EQ("0:", read(KXKey::Host));  // a "*" key needs a section: "[*]" is none
    EXPECT_EQ("0:0", readInt(KXKey::Port));
    EXPECT_EQ("/ink2/rest",
              IWK_ReplaceSubStrByConfig("/inkwell/rest", "inkwell", KXKey::ContextPath));
}
