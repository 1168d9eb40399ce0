// Records and reporting: module loading, the sign-record plug-in, UKey events
// and usage reports.
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "FakeTransport.h"
#include "KXRecords.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "TempEnv.h"
#include "records/LoadKXSealApi.h"
#include "records/UploadRecord.h"

using kxtest::FakeTransport;

namespace {

const char kPlugin[] = "plugins/seal/kxoes/libKXSealApi.so";

// This program's directory: the build tree keeps test plug-ins below it.
std::string TestDir() {
    static const char self = 0;
    return IWK_WideCharToUtf8(IWK_GetModulePathW(&self));
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

size_t Count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

}  // namespace

TEST(Records, ModuleLoading) {
    const std::string dir = TestDir();
    ASSERT_FALSE(dir.empty());
    EXPECT_EQ('/', dir.back());
    EXPECT_EQ(std::filesystem::canonical("/proc/self/exe").parent_path().string() + "/", dir);
    EXPECT_EQ(L"", IWK_GetModulePathW(nullptr));
    EXPECT_EQ(nullptr, IWK_LoadLibraryW(nullptr));
    EXPECT_EQ(nullptr, IWK_LoadLibraryW(IWK_Utf8ToWideChar(dir + "no/such.so").c_str()));
    void* module = IWK_LoadLibraryW(IWK_Utf8ToWideChar(dir + kPlugin).c_str());
    ASSERT_NE(nullptr, module);
    EXPECT_NE(nullptr, IWK_GetProcAddress(module, "SaveSignRecordEx"));
    EXPECT_EQ(nullptr, IWK_GetProcAddress(module, "NoSuchExport"));
    // The module's own directory, whichever address inside it is given.
    EXPECT_EQ(dir + "plugins/seal/kxoes/",
              IWK_WideCharToUtf8(IWK_GetModulePathW(IWK_GetProcAddress(module, "KXGetLastError"))));
    IWK_FreeLibrary(module);
    IWK_FreeLibrary(nullptr);
}

TEST(Records, SignRecordPerType) {
    TempEnv env;
    const std::string file = env.dir() + "/records.jsonl";
    setenv("KX_SEAL_RECORDS_FILE", file.c_str(), 1);
    struct Case {
        int type;
        const char *data, *value, *path, *cert;
        long code;
        const char* record;  // as stored; null when nothing is
    } cases[] = {
        {1, "", "V", "a.pdf", "C", 10005, nullptr},
        {1, "D", nullptr, "a.pdf", "C", 10005, nullptr},
        {3, "D", "V", "a.pdf", "", 10005, nullptr},
        {3, "D", "V", nullptr, nullptr, 10005, nullptr},
        {1, "D", "V", "/tmp/x/contract.pdf", "C", 0,
         R"({"docName":"contract.pdf","signDataB64":"D","signValueB64":"V"})"},
        {3, "D", "V", "/tmp/x/contract.pdf", "C", 0,
         R"({"certB64":"C","signDataB64":"D","signValueB64":"V"})"},
        {2, "D", "V", "", "C", 0, R"({"signDataB64":"D","signValueB64":"V"})"},
        {7, "D", "V", "C:\\docs\\\xba\xcf\xcd\xac.ofd", nullptr, 0,
         "{\"docName\":\"\xba\xcf\xcd\xac.ofd\",\"signDataB64\":\"D\",\"signValueB64\":\"V\"}"},
    };
    std::vector<std::string> expected;
    for (const Case& c : cases) {
        EXPECT_EQ(c.code, KX_SaveSignRecord(c.type, c.data, c.value, c.path, c.cert)) << c.type;
        // A record that cannot be made never loads the plug-in.
        if (c.code != 0) {
            EXPECT_EQ(nullptr, LoadKXSealApi::Instance().hModule);
        }
        if (c.record) {
            expected.push_back("{\"recordType\":" + std::to_string(c.type) + ",\"time\":");
            expected.back() += std::string(",\"record\":") + c.record + "}";
        }
    }
    const std::vector<std::string> lines = Lines(ReadFileText(file));
    ASSERT_EQ(expected.size(), lines.size());
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string& want = expected[i];
        const size_t time = want.find(",\"record\"");
        EXPECT_EQ(want.substr(0, time), lines[i].substr(0, time));
        EXPECT_EQ(want.substr(time), lines[i].substr(lines[i].find(",\"record\""))) << i;
    }
    // Loaded once: one Init line, none for the later calls.
    EXPECT_EQ(1u, Count(env.readLog(), "LoadKXSealApi::Init> <\"lRes:0\">"));
    EXPECT_EQ(8u, Count(env.readLog(), "KX_SaveSignRecord> <\"lRes:"));
    unsetenv("KX_SEAL_RECORDS_FILE");
}

TEST(Records, PluginTextReachesTheLastError) {
    TempEnv env;
    // A directory cannot take records: the plug-in's own code and text.
    const std::string dir = env.dir() + "/\xe7\xad\xbe\xe5\x90\x8d";
    std::filesystem::create_directory(dir);
    setenv("KX_SEAL_RECORDS_FILE", dir.c_str(), 1);
    kxtest::MarkLastError();
    EXPECT_EQ(20002, KX_SaveSignRecord(1, "D", "V", nullptr, nullptr));
    kxtest::ExpectLastError(20002, "cannot open " + dir + ": Is a directory");
    // A code with a standard text leaves the last error alone (0 here).
    setenv("KX_SEAL_RECORDS_FILE", (env.dir() + "/r.jsonl").c_str(), 1);
    kxtest::MarkLastError();
    EXPECT_EQ(0, KX_SaveSignRecord(1, "D", "V", nullptr, nullptr));
    kxtest::ExpectLastErrorMarked();
    unsetenv("KX_SEAL_RECORDS_FILE");
}

TEST(Records, MissingPluginOrExportAndRetry) {
    TempEnv env;
    const std::string empty = env.dir() + "/lib/";
    LoadKXSealApi missing(IWK_Utf8ToWideChar(empty));
    EXPECT_EQ(10001, missing.Init());
    EXPECT_EQ(nullptr, missing.hModule);
    LoadKXSealApi noExport(IWK_Utf8ToWideChar(TestDir() + "noexport/"));
    EXPECT_EQ(10001, noExport.SaveSignRecordEx(1, "{}"));
    EXPECT_EQ(nullptr, noExport.hModule);
    EXPECT_EQ(nullptr, noExport.pfnSaveSignRecordEx);
    // Each call tries again: the plug-in installed meanwhile is found.
    std::filesystem::create_directories(empty + "plugins/seal/kxoes");
    std::filesystem::copy_file(TestDir() + kPlugin, empty + kPlugin);
    EXPECT_EQ(0, missing.Init());
    EXPECT_NE(nullptr, missing.pfnKXGetLastError);
    EXPECT_EQ(0, missing.Init());
    const std::string log = env.readLog();
    EXPECT_EQ(2u, Count(log, "LoadKXSealApi::Init> <\"lRes:10001\">"));
    EXPECT_EQ(1u, Count(log, "LoadKXSealApi::Init> <\"lRes:0\">"));
}

TEST(Records, UKeyEventFields) {
    TempEnv env;
    FakeTransport fake;
    kxtest::MarkLastError();
    // No URL: 0 before any argument is looked at.
    EXPECT_EQ(0, KX_UKeyEventUpload(nullptr, nullptr, nullptr, 0));
    EXPECT_EQ(0u, fake.requestCount());
    ASSERT_TRUE(env.set("KXCertBase", "eventCallBackUrl", "https://ev.example/cb?site=1"));
    EXPECT_EQ(10005, KX_UKeyEventUpload("", nullptr, "", 0));
    EXPECT_EQ(0u, fake.requestCount());
    const struct {
        const char *sn, *cert, *cn, *body;
    } cases[] = {
        {"U1", nullptr, "", "{\"certCN\":\"\",\"ukeySN\":\"U1\"}\n"},
        {"", "", "\xd6\xd0", "{\"certCN\":\"\xd6\xd0\",\"certSN\":\"\",\"ukeySN\":\"\"}\n"},
        {nullptr, "C", nullptr, "{\"certSN\":\"C\"}\n"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(0, KX_UKeyEventUpload(c.sn, c.cert, c.cn, 0));
        const KXWireRequest r = fake.lastRequest();
        EXPECT_EQ("POST", r.method);
        EXPECT_EQ("https://ev.example/cb?site=1", r.url);
        EXPECT_EQ(c.body, r.body);
        for (const std::string& line : r.headers) EXPECT_NE(0u, line.find("X-KX-")) << line;
    }
    fake.fail(FakeTransport::Fault::Refused);
    EXPECT_EQ(10103, KX_UKeyEventUpload("U", "C", "N", 0));
    kxtest::ExpectLastErrorMarked();
    EXPECT_EQ(1u, Count(env.readLog(), "KX_UKeyEventUpload> <\"lRes:10103\">"));
}

TEST(Records, ReportBodyAndUrl) {
    TempEnv env;
    FakeTransport fake;
    kxtest::MarkLastError();
    EXPECT_EQ(10005, KXSER_UploadRecord(1, nullptr));
    EXPECT_EQ(10005, KXSER_UploadRecord(1, ""));
    EXPECT_EQ(10001, KXSER_UploadRecord(2, "[]"));
    EXPECT_EQ(10001, KXSER_UploadRecord(2, "{\"a\":"));
    EXPECT_NE(std::string::npos, env.readLog().find("ERROR <UploadRecord [")) << env.readLog();
    EXPECT_EQ(1u,
              Count(env.readLog(), "KXSER_UploadRecord> <\"lRes:10001, recordType:2, msg:[]\">"));
    // Defaults: the built-in base, an empty version.
    EXPECT_EQ(0, KXSER_UploadRecord(1, "{}"));
    ASSERT_TRUE(KXWaitForReports(60000));
    ASSERT_EQ(1u, fake.requestCount());
    KXWireRequest r = fake.lastRequest();
    EXPECT_EQ("https://webservice.kxserverapi.example/kxweb/v3/orbis/client/report/signLog", r.url);
    Json::Value body;
    ASSERT_TRUE(kxjson::Parse(r.body, body));
    EXPECT_EQ(std::vector<std::string>({"clientVersion", "localMac", "localTime"}),
              body.getMemberNames());
    EXPECT_EQ(":", body["clientVersion"].asString());
    EXPECT_EQ(IWK_GetMacAddress(), body["localMac"].asString());
    EXPECT_TRUE(body["localTime"].isInt64());
    EXPECT_GT(body["localTime"].asInt64(), 1600000000000LL);

    // The added keys replace the caller's; the rest goes out byte for byte.
    ASSERT_TRUE(env.set("version", "version", "2.1"));
    ASSERT_TRUE(env.set("version", "projectID", "P"));
    ASSERT_TRUE(env.set("KXServerApi", "ReportHostPort", "http://r.example/base"));
    ASSERT_TRUE(env.set("KXServerApi", "ReportEncryptLog", "/enc?x=1"));
    const std::pair<int, const char*> types[] = {
        {1, "http://r.example/base/v3/orbis/client/report/signLog"},
        {2, "http://r.example/base/enc?x=1"},
        {3, "http://r.example/base/v3/orbis/client/report/decryptLog"},
        {0, "http://r.example/base"},
        {-7, "http://r.example/base"},
    };
    for (const auto& t : types) {
        const size_t before = fake.requestCount();
        EXPECT_EQ(0, KXSER_UploadRecord(t.first,
                                        "{\"localTime\":1,\"localMac\":\"m\","
                                        "\"clientVersion\":\"v\",\"n\":\"\xd6\xd0\"}"));
        ASSERT_TRUE(KXWaitForReports(60000));
        ASSERT_EQ(before + 1, fake.requestCount());
        r = fake.lastRequest();
        EXPECT_EQ(t.second, r.url);
        EXPECT_EQ("POST", r.method);
        for (const std::string& line : r.headers) EXPECT_NE(0u, line.find("X-KX-")) << line;
        ASSERT_TRUE(kxjson::Parse(r.body, body));
        EXPECT_EQ("P:2.1", body["clientVersion"].asString());
        EXPECT_NE(1, body["localTime"].asInt64());
        EXPECT_NE("m", body["localMac"].asString());
        EXPECT_NE(std::string::npos, r.body.find("\"n\":\"\xd6\xd0\"")) << r.body;
    }
    const std::string log = env.readLog();
    EXPECT_EQ(1u, Count(log, "GetUrlByRecordType> <\"recordType:0\">"));
    EXPECT_EQ(1u, Count(log, "GetUrlByRecordType> <\"recordType:-7\">"));
    EXPECT_EQ(6u, Count(log, "UploadRecordThread> <\"dwRes:0\">"));
    EXPECT_EQ(1u, Count(log, "KXSER_UploadRecord> <\"lRes:0, recordType:-7\">"));
    // A failed delivery is only a line of the thread; never a last error.
    fake.fail(FakeTransport::Fault::Timeout);
    EXPECT_EQ(0, KXSER_UploadRecord(1, "{}"));
    ASSERT_TRUE(KXWaitForReports(60000));
    EXPECT_EQ(1u, Count(env.readLog(), "UploadRecordThread> <\"dwRes:10105\">"));
    kxtest::ExpectLastErrorMarked();
}

// Every one of 1,000 reports fired at once is delivered, or its thread could
// not start and the log says so.
TEST(Records, ThousandReportsAtOnce) {
    TempEnv env;
    FakeTransport fake;
    std::vector<std::thread> callers;
    for (int t = 0; t < 4; ++t) {
        callers.emplace_back([] {
            for (int i = 0; i < 250; ++i) EXPECT_EQ(0, KXSER_UploadRecord(1, "{\"i\":1}"));
        });
    }
    for (std::thread& t : callers) t.join();
    ASSERT_TRUE(KXWaitForReports(120000));
    EXPECT_EQ(1000u, fake.requestCount() + Count(env.readLog(), "<\"NULL == hThread\">"));
}

// A process that ends with reports in flight ends cleanly: none is answered,
// the server never accepts.
TEST(Records, ExitWithReportsInFlight) {
    TempEnv env;
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_LE(0, listener);
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof addr;
    ASSERT_EQ(0, ::bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof addr));
    ASSERT_EQ(0, ::listen(listener, 1024));
    ASSERT_EQ(0, ::getsockname(listener, reinterpret_cast<sockaddr*>(&addr), &size));
    ASSERT_TRUE(env.set("KXServerApi", "ReportHostPort",
                        "http://127.0.0.1:" + std::to_string(ntohs(addr.sin_port))));
    EXPECT_EXIT(
        {
            for (int i = 0; i < 1000; ++i) KXSER_UploadRecord(i % 4, "{}");
            std::exit(KXWaitForReports(0) ? 1 : 0);
        },
        ::testing::ExitedWithCode(0), "");
    ::close(listener);
}
