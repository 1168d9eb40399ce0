// Records and reporting: module loading, the sign-record plug-in, UKey events
// and usage reports.
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
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
