// The table of configuration keys: README's "Keys" table is the code's, row by
// row, and reads through it take the table's section and default.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>

#include "KXUtils.h"
#include "TempEnv.h"

namespace {

// "section|key|default" of each row of README's key table, as the code writes
// them: backticks dropped, "empty" for no default.
std::vector<std::string> ReadmeRows() {
    std::ifstream in(KX_README);
    const std::regex row(R"(\| `([^`]*)` \| `([^`]*)` \| (?:`([^`]*)`|empty) \|.*)");
    std::vector<std::string> rows;
    bool inKeys = false;
    std::smatch m;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("#", 0) == 0) inKeys = line == "### Keys";
        if (inKeys && std::regex_match(line, m, row)) rows.push_back(m.format("$1|$2|$3"));
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
    // "rc:value" of a read into a value of value's type: in the key's section,
    // or in a section given first.
    const auto read = [](auto value, auto... args) {
        const int rc = IWK_GetConfig(args..., value);
        std::ostringstream out;
        out << rc << ":" << value;
        return out.str();
    };
    const std::string text;
    EXPECT_EQ("1:", read(text, KXKey::CheckCert));  // an empty value is a value
    EXPECT_EQ("0:/agent/integrate/getCertSealInfos", read(text, KXKey::CheckCertAgent));
    EXPECT_EQ("1:a.log", read(text, KXKey::LogFile));
    EXPECT_EQ("0:1", read(-1, KXKey::LogLevel));  // no number: the default
    EXPECT_EQ("1:5", read(-1, KXKey::TimeoutMs));
    EXPECT_EQ("0:67108864", read(-1, KXKey::MaxReplyBytes));
    EXPECT_EQ("1:h", read(text, std::string("Mine"), KXKey::Host));
    EXPECT_EQ("1:7", read(-1, std::string("Mine"), KXKey::Port));
    EXPECT_EQ("0:0", read(-1, std::string("Mine"), KXKey::SerType));
    EXPECT_EQ("0:", read(text, KXKey::Host));  // a "*" key needs a section: "[*]" is none
    EXPECT_EQ("0:0", read(-1, KXKey::Port));
    EXPECT_EQ("/ink2/rest",
              IWK_ReplaceSubStrByConfig("/inkwell/rest", "inkwell", KXKey::ContextPath));
}
