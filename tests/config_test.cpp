// The configuration store: its INI text on strings, the file it keeps, its
// enciphered values, and the table of keys the code reads.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "KXAscii.h"
#include "KXIni.h"
#include "KXUtils.h"
#include "TempEnv.h"

// The INI store (reads, atomic rewrites, cache freshness, concurrency) and the
// enciphered values kept in it.
namespace {

// "result code:value" of a read.
std::string Read(const std::string& section, const std::string& key,
                 const std::string& fallback = "") {
    std::string value;
    const int rc = IWK_GetConfigByKey(section, key, value, fallback);
    return std::to_string(rc) + ":" + value;
}

mode_t ModeOf(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

}  // namespace

// The rules of the text are IniText's; here the file as it is at each read,
// what a write leaves behind, and the substitution of a stored value.
TEST(ConfigStore, ReadsAndWritesTheFile) {
    TempEnv env;
    env.writeConfig("[S]\r\nn= -7 \r\n");
    int n = 0;
    EXPECT_EQ(1, IWK_GetConfigByKey("s", "N", n, 99));
    EXPECT_EQ(-7, n);

    // A store that is not there reads as empty; the first write makes it, and
    // its folders, private.
    const std::string path = env.dir() + "/a/b/KXServerApi.ini";
    ::setenv("KX_CONFIG_FILE", path.c_str(), 1);
    EXPECT_EQ(path, IWK_GetConfigFilePath());
    EXPECT_EQ("0:gone", Read("S", "n", "gone"));
    ASSERT_TRUE(env.set("KXSign", "serverUrl", "https://h:8443/api?x=1&y=;#"));
    EXPECT_EQ(0600u, ModeOf(path));
    EXPECT_EQ(0700u, ModeOf(env.dir() + "/a/b"));
    ::chmod(path.c_str(), 0640);  // a rewrite keeps the mode it finds
    ASSERT_TRUE(env.set("KXSign", "empty", ""));
    ASSERT_TRUE(env.set("kxsign", "SERVERURL", "\xD6\xD0\xCE\xC4"));
    EXPECT_EQ(0640u, ModeOf(path));
    EXPECT_EQ("1:\xD6\xD0\xCE\xC4", Read("KXSign", "serverUrl", "fb"));  // seen at once
    // What the text cannot hold is refused, and the file stays as it was.
    EXPECT_EQ(0, IWK_SetConfigByKey("KXSign", "k", "a\nb"));
    EXPECT_EQ("[KXSign]\nserverUrl=\xD6\xD0\xCE\xC4\nempty=\n", ReadFileText(path));
    // No temporary file is left behind: only the store and its empty lock.
    EXPECT_EQ("", ReadFileText(path + ".lock"));
    EXPECT_EQ(2, std::distance(std::filesystem::directory_iterator(env.dir() + "/a/b"),
                               std::filesystem::directory_iterator()));

    EXPECT_EQ("a \xD6\xD0\xCE\xC4 b \xD6\xD0\xCE\xC4",
              IWK_ReplaceSubStrByConfig("a @U b @U", "@U", "KXSign", "serverUrl"));
    EXPECT_EQ("a @U", IWK_ReplaceSubStrByConfig("a @U", "@U", "KXSign", "missing"));
    EXPECT_EQ("a @U", IWK_ReplaceSubStrByConfig("a @U", "", "KXSign", "serverUrl"));
    EXPECT_EQ("a  b", IWK_ReplaceSubStrByConfig("a @U b", "@U", "KXSign", "empty"));
}

TEST(ConfigStore, SeesChangeWithinTheSameSecond) {
    TempEnv env;
    env.writeConfig("[S]\nk=AAAA\n");
    EXPECT_EQ("1:AAAA", Read("S", "k"));
    struct stat st;
    ASSERT_EQ(0, ::stat(env.configPath().c_str(), &st));
    // Same file, same size, and the old modification time put back: only a
    // reader that distrusts fresh files can notice.
    env.writeConfig("[S]\nk=BBBB\n");
    const struct timespec times[2] = {st.st_atim, st.st_mtim};
    ASSERT_EQ(0, ::utimensat(AT_FDCWD, env.configPath().c_str(), times, 0));
    EXPECT_EQ("1:BBBB", Read("S", "k"));

    // Switching stores between reads (another test's environment) is seen.
    TempEnv other;
    other.writeConfig("[S]\nk=other\n");
    EXPECT_EQ("1:other", Read("S", "k"));
}

TEST(ConfigStore, ReaderNeverSeesAPartialRewrite) {
    TempEnv env;
    const std::string a(200000, 'a');
    const std::string b(200000, 'b');
    env.writeConfig("[S]\nbefore=1\nbig=" + a + "\nafter=2\n");
    const size_t fileSize = ReadFileText(env.configPath()).size();
    std::atomic<bool> stop(false);
    std::atomic<int> reads(0), bad(0);
    std::thread reader([&] {
        for (; !stop.load(); ++reads) {
            const std::string v = Read("S", "big");
            const std::string raw = ReadFileText(env.configPath());
            bad += (v != "1:" + a && v != "1:" + b) ||
                   Read("S", "before") + Read("S", "after") != "1:11:2" || raw.size() != fileSize ||
                   raw.find("after=2\n") == std::string::npos;
        }
    });
    for (int i = 0; i < 40; ++i) ASSERT_TRUE(env.set("S", "big", i % 2 ? a : b));
    while (reads.load() < 5) std::this_thread::yield();
    stop = true;
    reader.join();
    EXPECT_EQ(0, bad.load());
    EXPECT_EQ("1:" + a, Read("S", "big"));
}

TEST(ConfigStore, ConcurrentWritersLoseNoKey) {
    TempEnv env;
    // Writer w (two processes, then six threads) writes keys w_0 to w_9 into
    // section S<w % 3>, which it shares with others.
    auto key = [](int w, int i) { return std::to_string(w) + "_" + std::to_string(i); };
    auto section = [](int w) { return "S" + std::to_string(w % 3); };
    auto writeAll = [&](int w) {
        int failed = 0;
        for (int i = 0; i < 10; ++i) {
            failed += IWK_SetConfigByKey(section(w), key(w, i), key(w, i)) != 1;
            Read("S0", "0_0");
        }
        return failed;
    };
    // Processes serialise on the lock file. They start first: forking beside
    // running threads could copy a held lock into the child.
    pid_t children[2];
    for (int w = 0; w < 2; ++w)
        if ((children[w] = ::fork()) == 0) ::_exit(writeAll(w));
    std::atomic<int> failed(0);
    std::vector<std::thread> threads;
    for (int w = 2; w < 8; ++w) threads.emplace_back([&, w] { failed += writeAll(w); });
    for (auto& th : threads) th.join();
    EXPECT_EQ(0, failed.load());
    for (pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(pid, ::waitpid(pid, &status, 0));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    for (int w = 0; w < 8; ++w)
        for (int i = 0; i < 10; ++i) EXPECT_EQ("1:" + key(w, i), Read(section(w), key(w, i)));
}

TEST(ConfigCipher, RoundTripKeyFileAndRefusals) {
    TempEnv env;
    EXPECT_EQ("", IWK_DecryptEncryptedConfigInfo("KXENC1:AAAA"));
    EXPECT_NE(0, ::access(env.keyPath().c_str(), F_OK));  // decryption never makes a key

    const std::string gbk = "\xD6\xD0\xCE\xC4 secret";
    const std::string stored = IWK_EncryptConfigInfo(gbk);
    ASSERT_EQ(0u, stored.rfind("KXENC1:", 0));
    EXPECT_EQ(0600u, ModeOf(env.keyPath()));
    const std::string keyText = ReadFileText(env.keyPath());
    ASSERT_EQ(65u, keyText.size());
    EXPECT_EQ(std::string::npos, keyText.substr(0, 64).find_first_not_of("0123456789abcdef"));
    EXPECT_EQ(gbk, IWK_DecryptEncryptedConfigInfo(stored));
    // Fresh IV every time, and IV + tag around the text; the key is reused.
    EXPECT_NE(stored, IWK_EncryptConfigInfo(gbk));
    const std::string raw = IWK_Base64Decode(stored.substr(7));
    EXPECT_EQ(12 + gbk.size() + 16, raw.size());
    EXPECT_EQ(keyText, ReadFileText(env.keyPath()));
    const std::string empty = IWK_EncryptConfigInfo("");  // IV and tag alone
    EXPECT_EQ(28u, IWK_Base64Decode(empty.substr(std::min<size_t>(7, empty.size()))).size());
    EXPECT_EQ("", IWK_DecryptEncryptedConfigInfo(empty));

    // A flipped bit of IV, text or tag, a missing or other prefix, bad Base64,
    // a cut text: nothing opens.
    const auto flip = [&](size_t at) {
        std::string r = raw;
        r[at] ^= 1;
        return "KXENC1:" + IWK_Base64Encode(r);
    };
    for (const std::string& bad :
         {flip(0), flip(12), flip(raw.size() - 1), stored.substr(7), "kxenc1:" + stored.substr(7),
          "KXENC1:%%%%" + stored.substr(11), stored.substr(0, stored.size() - 4),
          "KXENC1:" + IWK_Base64Encode(raw.substr(0, 27)), std::string()})
        EXPECT_EQ("", IWK_DecryptEncryptedConfigInfo(bad)) << bad;

    // Another key, or a damaged key file, opens nothing.
    const std::string key = keyText.substr(0, 64);
    const std::vector<std::pair<std::string, std::string>> keyFiles = {
        {std::string(64, '0') + "\n", ""},
        {key.substr(0, 63) + "\n", ""},
        {key + "\r\n", gbk},
        {key + "zz", ""},
    };
    for (const auto& [text, expected] : keyFiles) {
        std::ofstream(env.keyPath(), std::ios::binary | std::ios::trunc) << text;
        EXPECT_EQ(expected, IWK_DecryptEncryptedConfigInfo(stored)) << text;
    }
    ::unlink(env.keyPath().c_str());
    EXPECT_EQ("", IWK_DecryptEncryptedConfigInfo(stored));
}

// INI text on strings: what a read finds, what setting a key writes and what
// it refuses; and the strict integer form of a value.
TEST(IniText, Reads) {
    const kxini::Values values(
        "\xEF\xBB\xBF; leading comment\r\n[Server]\r\n  Url = https://h/x?a=1;b=2#frag  \r\n"
        "Name=\xD6\xD0\xCE\xC4\r\nempty=\r\n# hidden=1\r\n\t; tabbed=1\r\nurl=second occurrence\r\n"
        "no equals sign\r\n = no name\r\n[ other "
        "]\r\nn=42\r\n[server]\r\nlate=yes\r\nName=loses\r\n"
        "[unclosed\r\nlast=no line end");
    const char* const cases[][3] = {
        {"server", "URL", "https://h/x?a=1;b=2#frag"},  // no inline comments; first one wins
        {"Server", "Name", "\xD6\xD0\xCE\xC4"},
        {"Server", "empty", ""},
        {"SERVER", "late", "yes"},  // a repeated section adds keys
        {" other ", " N ", "42"},
        {"server", "last", "no line end"},  // "[unclosed" is no section line
        {"Server", "hidden", nullptr},
        {"Server", "tabbed", nullptr},
        {"Server", "; leading comment", nullptr},
        {"Server", "", nullptr},
        {"Nope", "n", nullptr},
        {"other", "late", nullptr},
    };
    for (const auto& c : cases) {
        std::string value = "<none>";
        EXPECT_EQ(c[2] != nullptr, values.Find(c[0], c[1], value)) << c[0] << "/" << c[1];
        EXPECT_EQ(c[2] != nullptr ? c[2] : "<none>", value) << c[0] << "/" << c[1];
    }
}

TEST(IniText, SetChangesOneKeyAndNothingElse) {
    const std::string a = "; top\r\n\r\n[A]\r\n  Key1 =  old value \r\nkey2=x\r\n; in A\r\n\r\n";
    const std::string b =
        "[B]\r\nk=\xD6\xD0\r\n\t# tabbed\r\n[A]\r\nkey1=second\r\ntail=no newline";
    // text, section, key, value, text after
    const std::string cases[][5] = {
        // Spelling, spacing and CRLF of the first occurrence stay; only the value changes.
        {a + b, "a", "KEY1", "new",
         "; top\r\n\r\n[A]\r\n  Key1 =  new\r\nkey2=x\r\n; in A\r\n\r\n" + b},
        // A new key follows the last key line of the first [A]; a new section goes at the end.
        {a + b, "A", "added", "1",
         "; top\r\n\r\n[A]\r\n  Key1 =  old value \r\nkey2=x\r\nadded=1\r\n; in A\r\n\r\n" + b},
        {a + b, " C ", " c ", "3", a + b + "\r\n[C]\r\nc=3\r\n"},
        // A key only in a later section of that name is changed there.
        {"[A]\nx=1\n[a]\nk=old\n", "A", "k", "v", "[A]\nx=1\n[a]\nk=v\n"},
        // A section without keys takes the key right after its header; LF stays LF.
        {"[E]\n; nothing\n[F]\nf=1\n", "E", "e", "2", "[E]\ne=2\n; nothing\n[F]\nf=1\n"},
        {"\xEF\xBB\xBF[S]\nk=1", "s", "K", "", "\xEF\xBB\xBF[S]\nk="},
    };
    for (const auto& c : cases) {
        std::string text = c[0];
        EXPECT_TRUE(kxini::SetKey(text, c[1], c[2], c[3])) << c[2];
        EXPECT_EQ(c[4], text) << c[2];
        std::string value;
        EXPECT_TRUE(kxini::Values(text).Find(c[1], c[2], value) && value == c[3]);
    }

    // What could not be read back as written is refused, the text unchanged.
    const char* const refused[][3] = {
        {"S", "k", "a\nb"}, {"S", "k", "a\rb"}, {"S\n", "k", "v"}, {"S]", "k", "v"},
        {"S", "k=", "v"},   {"S", "[k", "v"},   {"S", ";k", "v"},  {"S", "#k", "v"},
        {"", "k", "v"},     {"S", "", "v"},     {"S", "k\r", "v"}, {"S", "  ", "v"},
        {" ", "k", "v"},    {"S", " #k", "v"},
    };
    for (const auto& r : refused) {
        std::string text = "[S]\nk=v\n";
        EXPECT_FALSE(kxini::CanSet(r[0], r[1], r[2])) << r[0] << "/" << r[1];
        EXPECT_FALSE(kxini::SetKey(text, r[0], r[1], r[2])) << r[0] << "/" << r[1];
        EXPECT_EQ("[S]\nk=v\n", text);
    }
}

TEST(IniText, IntegerValues) {
    const std::pair<const char*, int> numbers[] = {
        {"42", 42}, {"-7", -7}, {"+3", 3}, {"-2147483648", -2147483647 - 1}, {"007", 7}};
    for (const auto& [text, expected] : numbers) {
        int value = 99;
        EXPECT_TRUE(kxascii::ParseInt(text, value)) << text;
        EXPECT_EQ(expected, value) << text;
    }
    for (const char* text : {"0x10", "12abc", "", "2147483648", "1 2", " 1", "+", "-", "1.0"}) {
        int value = 99;
        EXPECT_FALSE(kxascii::ParseInt(text, value)) << text;
        EXPECT_EQ(99, value) << text;
    }
}

// The table of configuration keys: README's "Keys" table is the code's, row by
// row, and reads through it take the table's section and default.
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
        "[Mine]\nhost=h\nPort=7\n[*]\nHost=star\n");
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
}
