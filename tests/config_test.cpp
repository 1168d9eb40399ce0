// The INI store (reads, atomic rewrites, cache freshness, concurrency) and the
// enciphered values kept in it.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "KXUtils.h"
#include "TempEnv.h"

namespace {

std::string Get(const std::string& section, const std::string& key,
                const std::string& fallback = "<none>") {
    std::string value;
    IWK_GetConfigByKey(section, key, value, fallback);
    return value;
}

// "result code:value" of a read, for string and integer values.
std::string Read(const std::string& section, const std::string& key, const std::string& fallback) {
    std::string value;
    const int rc = IWK_GetConfigByKey(section, key, value, fallback);
    return std::to_string(rc) + ":" + value;
}
std::string Read(const std::string& section, const std::string& key, int fallback) {
    int value = 0;
    const int rc = IWK_GetConfigByKey(section, key, value, fallback);
    return std::to_string(rc) + ":" + std::to_string(value);
}

mode_t ModeOf(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

}  // namespace

// The rules of the text are IniText's; here the file as it is at each read.
TEST(ConfigStore, ReadsTheFile) {
    TempEnv env;
    env.writeConfig("[S]\r\n url = a;b#c \r\nn= -7 \r\nhex=0x10\r\n");
    EXPECT_EQ("1:a;b#c", Read("s", "URL", "fb"));
    EXPECT_EQ("1:-7", Read("S", "n", 99));
    EXPECT_EQ("0:99", Read("S", "hex", 99));  // no decimal number: absent
    EXPECT_EQ("0:fb", Read("Nope", "n", "fb"));
    ::unlink(env.configPath().c_str());
    EXPECT_EQ("0:gone", Read("S", "url", "gone"));
}

TEST(ConfigStore, RoundTripAndSubstitution) {
    TempEnv env;
    ASSERT_TRUE(env.set("KXSign", "serverUrl", "https://h:8443/api?x=1&y=;#"));
    ASSERT_TRUE(env.set("KXSign", "gbk", "\xD6\xD0\xCE\xC4"));
    ASSERT_TRUE(env.set("KXSign", "empty", ""));
    EXPECT_EQ("https://h:8443/api?x=1&y=;#", Get("KXSign", "serverUrl"));
    EXPECT_EQ("\xD6\xD0\xCE\xC4", Get("kxsign", "GBK"));
    EXPECT_EQ("", Get("KXSign", "empty"));
    ASSERT_TRUE(env.set("kxsign", "SERVERURL", "changed"));
    EXPECT_EQ("changed", Get("KXSign", "serverUrl"));
    EXPECT_EQ("[KXSign]\nserverUrl=changed\ngbk=\xD6\xD0\xCE\xC4\nempty=\n",
              ReadFileText(env.configPath()));
    EXPECT_EQ("", ReadFileText(env.configPath() + ".lock"));

    EXPECT_EQ("a changed b changed",
              IWK_ReplaceSubStrByConfig("a @U b @U", "@U", "KXSign", "serverUrl"));
    EXPECT_EQ("a @U", IWK_ReplaceSubStrByConfig("a @U", "@U", "KXSign", "missing"));
    EXPECT_EQ("a @U", IWK_ReplaceSubStrByConfig("a @U", "", "KXSign", "serverUrl"));
    EXPECT_EQ("a  b", IWK_ReplaceSubStrByConfig("a @U b", "@U", "KXSign", "empty"));
    EXPECT_EQ(env.configPath(), IWK_GetConfigFilePath());
}

TEST(ConfigStore, RefusesWhatCannotBeStored) {
    TempEnv env;
    env.writeConfig("[S]\nk=v\n");
    EXPECT_EQ(0, IWK_SetConfigByKey("S", "k", "a\nb"));
    EXPECT_EQ(0, IWK_SetConfigByKey("S", "[k", "v"));
    EXPECT_EQ("[S]\nk=v\n", ReadFileText(env.configPath()));
}

TEST(ConfigStore, NewFileIsPrivateAndOldModeIsKept) {
    TempEnv env;
    const std::string nested = env.dir() + "/a/b/KXServerApi.ini";
    ::setenv("KX_CONFIG_FILE", nested.c_str(), 1);
    ASSERT_TRUE(env.set("S", "k", "v"));
    EXPECT_EQ(0600u, ModeOf(nested));
    EXPECT_EQ(0700u, ModeOf(env.dir() + "/a/b"));
    ::chmod(nested.c_str(), 0640);
    ASSERT_TRUE(env.set("S", "k", "w"));
    EXPECT_EQ(0640u, ModeOf(nested));
    EXPECT_EQ("w", Get("S", "k"));
    // No temporary file is left behind: only the store and its lock.
    EXPECT_EQ(2, std::distance(std::filesystem::directory_iterator(env.dir() + "/a/b"),
                               std::filesystem::directory_iterator()));
}

TEST(ConfigStore, SeesChangeWithinTheSameSecond) {
    TempEnv env;
    env.writeConfig("[S]\nk=AAAA\n");
    EXPECT_EQ("AAAA", Get("S", "k"));
    struct stat st;
    ASSERT_EQ(0, ::stat(env.configPath().c_str(), &st));
    // Same file, same size, and the old modification time put back: only a
    // reader that distrusts fresh files can notice.
    env.writeConfig("[S]\nk=BBBB\n");
    const struct timespec times[2] = {st.st_atim, st.st_mtim};
    ASSERT_EQ(0, ::utimensat(AT_FDCWD, env.configPath().c_str(), times, 0));
    EXPECT_EQ("BBBB", Get("S", "k"));

    // A writer of the store itself is seen at once too.
    ASSERT_TRUE(env.set("S", "k", "CCCC"));
    EXPECT_EQ("CCCC", Get("S", "k"));

    // Switching stores between reads (another test's environment) is seen.
    TempEnv other;
    other.writeConfig("[S]\nk=other\n");
    EXPECT_EQ("other", Get("S", "k"));
}

TEST(ConfigStore, ReaderNeverSeesAPartialRewrite) {
    TempEnv env;
    const std::string a(200000, 'a');
    const std::string b(200000, 'b');
    ASSERT_TRUE(env.set("S", "before", "1"));
    ASSERT_TRUE(env.set("S", "big", a));
    ASSERT_TRUE(env.set("S", "after", "2"));
    const size_t fileSize = ReadFileText(env.configPath()).size();
    std::atomic<bool> stop(false);
    std::atomic<int> reads(0), bad(0);
    std::thread reader([&] {
        for (; !stop.load(); ++reads) {
            const std::string v = Get("S", "big");
            const std::string raw = ReadFileText(env.configPath());
            bad += (v != a && v != b) || Get("S", "before") != "1" || Get("S", "after") != "2" ||
                   raw.size() != fileSize || raw.find("after=2\n") == std::string::npos;
        }
    });
    for (int i = 0; i < 40; ++i) ASSERT_TRUE(env.set("S", "big", i % 2 ? a : b));
    while (reads.load() < 5) std::this_thread::yield();
    stop = true;
    reader.join();
    EXPECT_EQ(0, bad.load());
    EXPECT_EQ(a, Get("S", "big"));
}

TEST(ConfigStore, ConcurrentWritersLoseNoKey) {
    TempEnv env;
    // Two processes, then six threads; each writes its own keys into a shared section.
    const std::vector<std::pair<std::string, std::string>> writers = {
        {"p0", "P"},  {"p1", "P"},  {"k0", "T0"}, {"k1", "T1"},
        {"k2", "T0"}, {"k3", "T1"}, {"k4", "T0"}, {"k5", "T1"},
    };
    auto writeAll = [](const std::string& who, const std::string& section) {
        int failed = 0;
        for (int i = 0; i < 10; ++i) {
            const std::string key = who + "_" + std::to_string(i);
            failed += IWK_SetConfigByKey(section, key, key) != 1;
            Get("T0", "k0_0");
        }
        return failed;
    };
    // Processes serialise on the lock file. They start first: forking beside
    // running threads could copy a held lock into the child.
    std::vector<pid_t> children;
    for (int p = 0; p < 2; ++p) {
        const pid_t pid = ::fork();
        if (pid == 0) ::_exit(writeAll(writers[p].first, writers[p].second));
        children.push_back(pid);
    }
    std::atomic<int> failed(0);
    std::vector<std::thread> threads;
    for (size_t w = 2; w < writers.size(); ++w)
        threads.emplace_back([&, w] { failed += writeAll(writers[w].first, writers[w].second); });
    for (auto& th : threads) th.join();
    EXPECT_EQ(0, failed.load());
    for (pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(pid, ::waitpid(pid, &status, 0));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    for (const auto& [who, section] : writers)
        for (int i = 0; i < 10; ++i)
            EXPECT_EQ(who + "_" + std::to_string(i), Get(section, who + "_" + std::to_string(i)));
}

TEST(ConfigCipher, RoundTripAndKeyFile) {
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
    // Fresh IV every time, and IV + tag around the text.
    EXPECT_NE(stored, IWK_EncryptConfigInfo(gbk));
    EXPECT_EQ(12 + gbk.size() + 16, IWK_Base64Decode(stored.substr(7)).size());
    // The key is reused, not replaced.
    EXPECT_EQ(keyText, ReadFileText(env.keyPath()));

    const std::string empty = IWK_EncryptConfigInfo("");
    ASSERT_FALSE(empty.empty());
    EXPECT_EQ(28u, IWK_Base64Decode(empty.substr(7)).size());
    EXPECT_EQ("", IWK_DecryptEncryptedConfigInfo(empty));

    // Stored through the INI file and read back.
    ASSERT_TRUE(env.set("KXSign", "ProjectSecret", stored));
    std::string v;
    IWK_GetConfigByKey("KXSign", "ProjectSecret", v, "");
    EXPECT_EQ(gbk, IWK_DecryptEncryptedConfigInfo(v));
}

TEST(ConfigCipher, RejectsAnythingElse) {
    TempEnv env;
    const std::string stored = IWK_EncryptConfigInfo("clear text");
    ASSERT_FALSE(stored.empty());
    std::string raw = IWK_Base64Decode(stored.substr(7));
    const auto flip = [&](size_t at) {
        std::string r = raw;
        r[at] = static_cast<char>(r[at] ^ 1);
        return "KXENC1:" + IWK_Base64Encode(r);
    };
    EXPECT_EQ("", IWK_DecryptEncryptedConfigInfo(flip(0)));               // IV
    EXPECT_EQ("", IWK_DecryptEncryptedConfigInfo(flip(12)));              // text
    EXPECT_EQ("", IWK_DecryptEncryptedConfigInfo(flip(raw.size() - 1)));  // tag
    EXPECT_EQ("", IWK_DecryptEncryptedConfigInfo(stored.substr(7)));      // no prefix
    EXPECT_EQ("", IWK_DecryptEncryptedConfigInfo("kxenc1:" + stored.substr(7)));
    EXPECT_EQ("", IWK_DecryptEncryptedConfigInfo("KXENC1:%%%%" + stored.substr(11)));
    EXPECT_EQ("", IWK_DecryptEncryptedConfigInfo(stored.substr(0, stored.size() - 4)));
    EXPECT_EQ("", IWK_DecryptEncryptedConfigInfo("KXENC1:" + IWK_Base64Encode(raw.substr(0, 27))));
    EXPECT_EQ("", IWK_DecryptEncryptedConfigInfo(""));
    EXPECT_EQ("clear text", IWK_DecryptEncryptedConfigInfo(stored));

    // Another key, or a damaged key file, opens nothing.
    const std::string key = ReadFileText(env.keyPath()).substr(0, 64);
    const std::vector<std::pair<std::string, std::string>> keyFiles = {
        {std::string(64, '0') + "\n", ""},
        {key.substr(0, 63) + "\n", ""},
        {key + "\r\n", "clear text"},
        {key + "zz", ""},
    };
    for (const auto& [text, expected] : keyFiles) {
        std::ofstream(env.keyPath(), std::ios::binary | std::ios::trunc) << text;
        EXPECT_EQ(expected, IWK_DecryptEncryptedConfigInfo(stored)) << text;
    }
    ::unlink(env.keyPath().c_str());
    EXPECT_EQ("", IWK_DecryptEncryptedConfigInfo(stored));
}
