// Records and reporting: module loading, the sign-record plug-in, UKey events
// and usage reports.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "FakeTransport.h"
#include "KXRecords.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "LoopbackServer.h"
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

size_t Count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

}  // namespace

TEST(Records, ModuleLoading) {
    EXPECT_EQ(std::filesystem::canonical("/proc/self/exe").parent_path().string() + "/", TestDir());
    EXPECT_EQ(L"", IWK_GetModulePathW(nullptr));
    EXPECT_EQ(nullptr, IWK_LoadLibraryW(nullptr));
    void* module = IWK_LoadLibraryW(IWK_Utf8ToWideChar(TestDir() + kPlugin).c_str());
    ASSERT_NE(nullptr, module);
    // The directory of the module that holds the address, not this program's.
    EXPECT_EQ(TestDir() + "plugins/seal/kxoes/",
              IWK_WideCharToUtf8(IWK_GetModulePathW(IWK_GetProcAddress(module, "KXGetLastError"))));
    IWK_FreeLibrary(module);
}

TEST(Records, SignRecordPerType) {
    TempEnv env;
    setenv("KX_SEAL_RECORDS_FILE", (env.dir() + "/r.jsonl").c_str(), 1);
    const struct {
        int type;
        const char *data, *value, *path, *cert;
        long code;
    } cases[] = {
        {1, "", "V", "a.pdf", "C", 10005},
        {1, "D", nullptr, "a.pdf", "C", 10005},
        {3, "D", "V", "a.pdf", "", 10005},
        {3, "D", "V", nullptr, nullptr, 10005},
        {1, "D", "V", "/tmp/x/contract.pdf", "C", 0},
        {3, "D", "V", "/tmp/x/contract.pdf", "C", 0},
        {2, "D", "V", "", "C", 0},
        {7, "D", "V", "C:\\docs\\\xba\xcf\xcd\xac.ofd", nullptr, 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.code, KX_SaveSignRecord(c.type, c.data, c.value, c.path, c.cert)) << c.type;
        // A record that cannot be made never loads the plug-in.
        EXPECT_TRUE(c.code == 0 || LoadKXSealApi::Instance().hModule == nullptr);
    }
    EXPECT_EQ(
        "{\"recordType\":1,\"record\":{\"docName\":\"contract.pdf\",\"signDataB64\":\"D\","
        "\"signValueB64\":\"V\"}}\n"
        "{\"recordType\":3,\"record\":{\"certB64\":\"C\",\"signDataB64\":\"D\","
        "\"signValueB64\":\"V\"}}\n"
        "{\"recordType\":2,\"record\":{\"signDataB64\":\"D\",\"signValueB64\":\"V\"}}\n"
        "{\"recordType\":7,\"record\":{\"docName\":\"\xba\xcf\xcd\xac.ofd\",\"signDataB64\":"
        "\"D\",\"signValueB64\":\"V\"}}\n",
        ReadFileText(env.dir() + "/r.jsonl"));
    // Loaded once: one Init line, none for the later calls.
    EXPECT_EQ(1u, Count(env.readLog(), "LoadKXSealApi::Init> <\"lRes:0\">"));
    EXPECT_EQ(8u, Count(env.readLog(), "KX_SaveSignRecord> <\"lRes:"));
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
}

TEST(Records, MissingPluginOrExportAndRetry) {
    TempEnv env;
    const std::string empty = env.dir() + "/lib/";
    LoadKXSealApi missing(IWK_Utf8ToWideChar(empty));
    EXPECT_EQ(10001, missing.Init());
    LoadKXSealApi noExport(IWK_Utf8ToWideChar(TestDir() + "noexport/"));
    EXPECT_EQ(10001, noExport.SaveSignRecordEx(1, "{}"));
    EXPECT_TRUE(noExport.hModule == nullptr && noExport.pfnSaveSignRecordEx == nullptr);
    // Each call tries again: the plug-in installed meanwhile is found.
    std::filesystem::create_directories(empty + "plugins/seal/kxoes");
    std::filesystem::copy_file(TestDir() + kPlugin, empty + kPlugin);
    EXPECT_EQ(0, missing.Init());
    EXPECT_EQ(0, missing.Init());
    EXPECT_EQ(2u, Count(env.readLog(), "LoadKXSealApi::Init> <\"lRes:10001\">"));
    EXPECT_EQ(1u, Count(env.readLog(), "LoadKXSealApi::Init> <\"lRes:0\">"));
}

TEST(Records, UKeyEventFields) {
    TempEnv env;
    FakeTransport fake;
    kxtest::MarkLastError();
    // No URL: 0 before any argument is looked at.
    EXPECT_EQ(0, KX_UKeyEventUpload(nullptr, nullptr, nullptr, 0));
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
        EXPECT_EQ("POST https://ev.example/cb?site=1", r.method + " " + r.url);
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
    EXPECT_EQ(4u, Count(env.readLog(), "ERROR <UploadRecord ["));
    EXPECT_EQ(1u,
              Count(env.readLog(), "KXSER_UploadRecord> <\"lRes:10001, recordType:2, msg:[]\">"));
    // Defaults: the built-in base, an empty version; a failed delivery is
    // only a line of the thread.
    fake.fail(FakeTransport::Fault::Timeout);
    EXPECT_EQ(0, KXSER_UploadRecord(1, "{}"));
    ASSERT_TRUE(KXWaitForReports(60000));
    KXWireRequest r = fake.lastRequest();
    EXPECT_EQ("https://webservice.kxserverapi.example/kxweb/v3/orbis/client/report/signLog", r.url);
    Json::Value body;
    ASSERT_TRUE(kxjson::Parse(r.body, body));
    EXPECT_EQ(std::vector<std::string>({"clientVersion", "localMac", "localTime"}),
              body.getMemberNames());
    EXPECT_EQ(":", body["clientVersion"].asString());
    EXPECT_EQ(IWK_GetMacAddress(), body["localMac"].asString());
    EXPECT_GT(body["localTime"].asInt64(), 1600000000000LL);
    EXPECT_EQ(1u, Count(env.readLog(), "UploadRecordThread> <\"dwRes:10105\">"));

    // The added keys replace the caller's; the rest goes out byte for byte.
    ASSERT_TRUE(env.set("version", "version", "2.1"));
    ASSERT_TRUE(env.set("version", "projectID", "P"));
    ASSERT_TRUE(env.set("KXServerApi", "ReportHostPort", "http://r.example/base"));
    ASSERT_TRUE(env.set("KXServerApi", "ReportEncryptLog", "/enc?x=1"));
    const std::pair<int, const char*> types[] = {
        {1, "/v3/orbis/client/report/signLog"},
        {2, "/enc?x=1"},
        {3, "/v3/orbis/client/report/decryptLog"},
        {0, ""},
        {-7, ""},
    };
    for (const auto& t : types) {
        EXPECT_EQ(0, KXSER_UploadRecord(t.first,
                                        "{\"localTime\":1,\"localMac\":\"m\","
                                        "\"clientVersion\":\"v\",\"n\":\"\xd6\xd0\"}"));
        ASSERT_TRUE(KXWaitForReports(60000));
        r = fake.lastRequest();
        EXPECT_EQ("POST http://r.example/base" + std::string(t.second), r.method + " " + r.url);
        for (const std::string& line : r.headers) EXPECT_NE(0u, line.find("X-KX-")) << line;
        ASSERT_TRUE(kxjson::Parse(r.body, body));
        EXPECT_EQ("P:2.1", body["clientVersion"].asString());
        EXPECT_TRUE(body["localTime"].isInt64() && body["localTime"].asInt64() != 1);
        EXPECT_NE("m", body["localMac"].asString());
        EXPECT_NE(std::string::npos, r.body.find("\"n\":\"\xd6\xd0\"")) << r.body;
    }
    EXPECT_EQ(1u, Count(env.readLog(), "GetUrlByRecordType> <\"recordType:-7\">"));
    EXPECT_EQ(5u, Count(env.readLog(), "UploadRecordThread> <\"dwRes:0\">"));
    EXPECT_EQ(1u, Count(env.readLog(), "KXSER_UploadRecord> <\"lRes:0, recordType:-7\">"));
    kxtest::ExpectLastErrorMarked();
}

// Every one of 1,000 reports fired at once is delivered, or its thread could
// not start and the log says so.
TEST(Records, ThousandReportsAtOnce) {
    TempEnv env;
    FakeTransport fake;
    for (int i = 0; i < 1000; ++i) EXPECT_EQ(0, KXSER_UploadRecord(1, "{\"i\":1}"));
    ASSERT_TRUE(KXWaitForReports(120000));
    EXPECT_EQ(1000u, fake.requestCount() + Count(env.readLog(), "<\"NULL == hThread\">"));
}

// A process that ends with 1,000 reports in flight ends cleanly. The child
// inherits the server's socket but none of its threads: nothing is answered.
TEST(Records, ExitWithReportsInFlight) {
    TempEnv env;
    kxtest::LoopbackServer server;
    ASSERT_TRUE(env.set("KXServerApi", "ReportHostPort", server.baseUrl()));
    EXPECT_EXIT(
        {
            for (int i = 0; i < 1000; ++i) KXSER_UploadRecord(i % 4, "{}");
            std::exit(KXWaitForReports(0) ? 1 : 0);
        },
        ::testing::ExitedWithCode(0), "");
}
