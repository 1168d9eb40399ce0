// The log sink: line format, level filter, whole lines, destinations, file
// mode, rotation and the masking of secrets; and IWK_DataTuomin's masking of
// JSON values.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>
#include <chrono>
#include <sstream>
#include <thread>

#include <sys/stat.h>
#include <sys/wait.h>
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

// What the log shows of one INFO line with this text, after the level.
std::string MaskedLine(const std::string& text) {
    TempEnv env;
    KX_WriteLog(KX_LOG_INFO, "%s", text.c_str());
    const std::string log = env.readLog();
    const size_t at = log.find(" INFO ");
    if (at == std::string::npos || log.back() != '\n') return "<" + log + ">";
    return log.substr(at + 6, log.size() - at - 7);
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

// Queued lines: a failure is in the file when its call returns, behind every
// line before it; a process that exits normally leaves every line, also one
// that forked after its writer thread started.
TEST(Log, WhenLinesReachTheFile) {
    TempEnv env;
    auto unflushed = [&] {  // the file as it is, without KX_FlushLog
        std::ifstream in(env.logPath());
        return std::string(std::istreambuf_iterator<char>(in), {});
    };
    KX_WriteLog(KX_LOG_TRACE, "first");  // makes the file
    KX_WriteLog(KX_LOG_TRACE, "queued");
    KX_WriteLog(KX_LOG_ERROR, "failure");
    EXPECT_EQ("TRACE first\nTRACE queued\nERROR failure\n", Tails(unflushed()));

    const std::string child = env.dir() + "/child.log";
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::setenv("KX_LOG_FILE", child.c_str(), 1);
        for (int i = 0; i < 2000; ++i) KX_WriteLog(KX_LOG_TRACE, "line %d", i);
        std::exit(0);
    }
    int status = 0;
    ASSERT_EQ(pid, ::waitpid(pid, &status, 0));
    const std::vector<std::string> lines = Lines(Tails(ReadFileText(child)));
    ASSERT_EQ(2000u, lines.size());
    EXPECT_EQ("TRACE line 1999", lines.back());
}

TEST(Mask, LogText) {
    IWK_RegisterSecret("S3cr3t-Pr0ject");
    IWK_RegisterSecret("S3cr3t");  // a shorter one inside: the long one still goes whole
    IWK_RegisterSecret("abc");     // too short to register
    const char* const cases[][2] = {
        {"id=1 S3cr3t-Pr0ject and S3cr3t!", "id=1 ****** and ******!"},
        {"abc", "abc"},
        {"/x?user=bob&password=hunter2&next=1", "/x?user=bob&password=******&next=1"},
        {"GET /x?a=1&secret=abc123", "GET /x?a=1&secret=******"},
        {"PassWD=p1 pwd='p 2' x", "PassWD=****** pwd='******' x"},
        // A key in capitals, and one that ends the text with a one-byte value.
        {"SIGNPWD=7&pwd=1", "SIGNPWD=******&pwd=******"},
        {R"({"signPwd":"123456","a":1})", R"({"signPwd":"******","a":1})"},
        {R"({"signPwd" : "1 \"2", "n":{"appSecret":42}})",
         R"({"signPwd" : "******", "n":{"appSecret":******}})"},
        {R"(msg:{\"ProjectSecret\":\"zz\",\"k\":1})",
         R"(msg:{\"ProjectSecret\":\"******\",\"k\":1})"},
        // Names that only begin like a key, and other keys, stay.
        {"passwordHint=yes user=bob \"pwdLen\":\"3\"",
         "passwordHint=yes user=bob \"pwdLen\":\"3\""},
        // Header lines: the value only, never the next line.
        {"head:\nX-KX-Signature: c2ln==\nX-KX-Nonce: 00ff",
         "head:\nX-KX-Signature: ******\nX-KX-Nonce: 00ff"},
        {"head:\r\nx-kx-signature:c2ln==\r\nX-KX-Nonce: 00ff",
         "head:\r\nx-kx-signature:******\r\nX-KX-Nonce: 00ff"},
        // key:value in a framed line ends where key=value does; the frame stays whole.
        {R"(<Seal [12] - CKXSealOpenApi::Login> <"user:bob, password:hunter2">)",
         R"(<Seal [12] - CKXSealOpenApi::Login> <"user:bob, password:******">)"},
        {R"(<Base [3] - Init> <"ProjectSecret:zz">)",
         R"(<Base [3] - Init> <"ProjectSecret:******">)"},
        {R"(<X [1] - CSecret::Load> <"secret: a b;signPwd:'c d'&pwd:e>f">)",
         R"(<X [1] - CSecret::Load> <"secret: ****** b;signPwd:'******'&pwd:******>f">)"},
    };
    for (const auto& c : cases) EXPECT_EQ(c[1], MaskedLine(c[0])) << c[0];
}

TEST(Mask, DataTuominAtAnyDepth) {
    const KX_TuoMinData rules[] = {KX_TuoMinData(KX_TUOMIN_JSON_KEY, "idNo", 6, 8),
                                   KX_TuoMinData(KX_TUOMIN_JSON_KEY, "loginAccount", 3, 4)};
    EXPECT_EQ(R"({"code":0,"data":{"idNo":"110101********1234","loginAccount":"138****5678"}})",
              IWK_DataTuomin(R"({"code": 0, "data": {"loginAccount": "13812345678",)"
                             R"( "idNo": "110101199001011234"}})",
                             rules, 2));
    // Inside arrays, numbers turned to text, short values, multi-byte characters.
    EXPECT_EQ(
        "{\"list\":[{\"x\":[{\"idNo\":\"\xE5\xBC\xA0\xE4\xB8\x89\xE4\xB8\xB0\xE5\x8C\x97"
        "\xE4\xBA\xAC\xE5\xB8\x82**\"}]},{\"loginAccount\":\"138****5678\"},"
        "{\"loginAccount\":\"12\"}]}\n",
        IWK_DataTuomin("{\"list\":[{\"x\":[{\"idNo\":\"\xE5\xBC\xA0\xE4\xB8\x89\xE4\xB8\xB0"
                       "\xE5\x8C\x97\xE4\xBA\xAC\xE5\xB8\x82\xE6\xB5\xB7\xE6\xB7\x80\"}]},"
                       "{\"loginAccount\":13812345678},{\"loginAccount\":\"12\"}]}\n",
                       rules, 2));

    // Nothing to mask, no JSON, no rules: the very same bytes. Deep nesting
    // yields a result, not a crash.
    for (const std::string& text : std::vector<std::string>{
             "{ \"other\" : \"110101199001011234\" }", "{\"loginAccount\":\"12\"}",
             "{\"idNo\":{\"nested\":true}}", "not json {", "", "[1, 2]", "{\"loginAccount\": true}",
             std::string(100000, '[') + std::string(100000, ']')})
        EXPECT_EQ(text, IWK_DataTuomin(text, rules, 2)) << text.substr(0, 40);
    EXPECT_EQ("{\"idNo\":\"1234567890\"}", IWK_DataTuomin("{\"idNo\":\"1234567890\"}", nullptr, 2));
    EXPECT_EQ("{\"idNo\":\"1234567890\"}", IWK_DataTuomin("{\"idNo\":\"1234567890\"}", rules, 0));
}
