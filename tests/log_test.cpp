// The log sink: line format, level filter, whole lines, destinations, file
// mode and rotation (its masking: mask_test.cpp).
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <chrono>
#include <sstream>
#include <thread>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "KXUtils.h"
#include "TempEnv.h"

namespace {

// Date and time of a line, then the thread id.
const std::string kTime = R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3} )";

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Each line without its "<date> <time> <tid> " prefix, one per line; a line
// without that prefix shows as "<bad prefix: ...>". Only the line's head goes
// through the regex: std::regex recurses per character.
std::string Tails(const std::string& text) {
    const std::regex prefix(kTime + R"(\d+ )");
    std::string out;
    for (const std::string& l : Lines(text)) {
        const std::string head = l.substr(0, 64);
        std::smatch m;
        const bool ok = std::regex_search(head, m, prefix, std::regex_constants::match_continuous);
        out += (ok ? l.substr(m.length()) : "<bad prefix: " + l + ">") + "\n";
    }
    return out;
}

mode_t ModeOf(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

}  // namespace

TEST(Log, LineFormatAndLevels) {
    TempEnv env;
    KX_LOG(KX_LOG_INFO, "Corvane", "CCorvaneApi::GetAllInfo", "lRes:%d, msg:%s", 5, "ok");
    const std::string at = std::to_string(__LINE__ - 1);  // the line of the call above
    const std::string tid = std::to_string(static_cast<long>(::syscall(SYS_gettid)));
    const std::string text = env.readLog();
    EXPECT_TRUE(std::regex_match(text.substr(0, 24), std::regex(kTime))) << text;
    EXPECT_EQ(tid + " INFO <Corvane [" + at + "] - CCorvaneApi::GetAllInfo> <\"lRes:5, msg:ok\">\n",
              text.substr(24));

    // Level names, then the lowest level written (0: LogLevel set to the text
    // instead), which follows the store at once.
    TempEnv levels;
    const std::pair<int, const char*> steps[] = {{1, "a"}, {3, "b"},       {4, "c"}, {7, "d%"},
                                                 {0, "3"}, {2, "dropped"}, {3, "e"}, {4, "f"},
                                                 {0, "1"}, {1, "g"}};
    for (const auto& [level, text] : steps)
        level ? KX_WriteLog(static_cast<KX_LOG_LEVEL>(level), "%s", text)
              : (void)levels.set("KXUtils", "LogLevel", text);
    EXPECT_EQ("TRACE a\nWARN b\nERROR c\n7 d%\nWARN e\nERROR f\nTRACE g\n",
              Tails(levels.readLog()));
}

TEST(Log, DestinationsAndFileMode) {
    TempEnv env;
    const std::string nested = env.dir() + "/logs/deep/app.log";
    ::setenv("KX_LOG_FILE", nested.c_str(), 1);
    KX_WriteLog(KX_LOG_INFO, "to nested");
    EXPECT_EQ(0600u, ModeOf(nested));
    EXPECT_EQ(0700u, ModeOf(env.dir() + "/logs/deep"));
    EXPECT_EQ("INFO to nested\n", Tails(ReadFileText(nested)));

    // Without the environment variable the store names the file.
    ::unsetenv("KX_LOG_FILE");
    const std::string configured = env.dir() + "/configured.log";
    ASSERT_TRUE(env.set("KXUtils", "LogFile", configured));
    KX_WriteLog(KX_LOG_WARN, "to configured");
    EXPECT_EQ("WARN to configured\n", Tails(ReadFileText(configured)));
    EXPECT_EQ("INFO to nested\n", Tails(ReadFileText(nested)));

    // A file removed under the log is made again: the sink looks at the disk
    // about once a second, not on every line.
    ::unlink(configured.c_str());
    for (int i = 0; i < 60 && ReadFileText(configured).empty(); ++i) {
        KX_WriteLog(KX_LOG_WARN, "again");
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_EQ(0u, Tails(ReadFileText(configured)).find("WARN again\n"));

    ::setenv("KX_LOG_FILE", "-", 1);
    testing::internal::CaptureStderr();
    KX_WriteLog(KX_LOG_ERROR, "to stderr");
    EXPECT_EQ("ERROR to stderr\n", Tails(testing::internal::GetCapturedStderr()));
}

TEST(Log, RotatesBySize) {
    TempEnv env;
    ASSERT_TRUE(env.set("KXUtils", "LogMaxBytes", "1000"));
    const std::string dots(40, '.');
    for (int i = 100; i < 150; ++i) KX_WriteLog(KX_LOG_INFO, "line %d %s", i, dots.c_str());
    const std::string current = env.readLog();
    const std::string rotated = ReadFileText(env.logPath() + ".1");
    EXPECT_LE(current.size(), 1000u);
    EXPECT_LE(rotated.size(), 1000u);
    EXPECT_GT(rotated.size(), 900u);  // filled up to the limit before moving on
    EXPECT_EQ('\n', current.back());
    // The two files hold consecutive lines ending with the last one: none lost
    // or cut at the rotation.
    const std::string all = Tails(rotated + current);
    std::string expected;
    for (int i = 150 - static_cast<int>(Lines(all).size()); i < 150; ++i)
        expected += "INFO line " + std::to_string(i) + " " + dots + "\n";
    EXPECT_EQ(expected, all);
}

// Lines stay whole, however long and however many threads write.
TEST(Log, ConcurrentWritersGiveWholeLines) {
    TempEnv env;
    const std::string big(100 * 1024, 'x');  // far past any line buffer
    KX_WriteLog(KX_LOG_INFO, "body:%s end", big.c_str());
    std::vector<std::string> want = {"INFO body:" + big + " end"};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        const std::string pad(100 + t * 300, static_cast<char>('a' + t));
        for (int i = 0; i < 200; ++i)
            want.push_back("INFO t" + std::to_string(t) + " i" + std::to_string(i) + " " + pad +
                           " end");
        threads.emplace_back([t, pad] {
            for (int i = 0; i < 200; ++i)
                KX_WriteLog(KX_LOG_INFO, "t%d i%d %s end", t, i, pad.c_str());
        });
    }
    for (auto& th : threads) th.join();
    std::vector<std::string> got = Lines(Tails(env.readLog()));
    std::sort(got.begin(), got.end());
    std::sort(want.begin(), want.end());
    EXPECT_EQ(want.size(), got.size());
    EXPECT_TRUE(want == got);  // every line whole, none lost or doubled
}
