// CKXSealOpenApi::Conv2PDF on the fake transport: the upload's fields and
// file, the PostScript path with its second upload to ps_conv.php, the
// download to the target file, and each way it ends early; and the path
// splitter it takes the extension from.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "FakeTransport.h"
#include "KXSealOpenApi.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "TempEnv.h"

using kxtest::LastError;
using kxtest::MarkLastError;

namespace {

// URL, then name=value (a file part as name=@path/filename) of each part.
std::string Upload(const KXWireRequest& r) {
    std::string out = r.method + " " + r.url;
    for (const KXWirePart& p : r.parts)
        out += " " + p.name + "=" +
               (p.filePath.empty() ? p.value : "@" + p.filePath + "/" + p.fileName);
    return out;
}

class ConvertTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"a.ps", "font.ttf", "report.doc", "README", "\xE6\x8A\xA5.txt"})
            std::ofstream(dir + "/" + name) << name;
        api.strHost = "http://s";
        api.strPort = "8";
        api.strConvertToPdfUrl = "/conv/toPdf";
        MarkLastError();
    }
    long Convert(const std::string& src, const std::string& url = "") {
        return api.Conv2PDF(IWK_Utf8ToWideChar(src.empty() ? src : dir + "/" + src),
                            IWK_Utf8ToWideChar(pdf), IWK_Utf8ToWideChar(url));
    }

    TempEnv env;
    kxtest::FakeTransport fake;
    CKXSealOpenApi api;  // no Init: the conversion needs none
    const std::string dir = env.dir();
    const std::string pdf = env.dir() + "/out.pdf";
    const std::string equip = IWK_CharToHex(IWK_Digest(IWK_GetMacAddress(), KX_HASH_MD5));
};

}  // namespace

TEST_F(ConvertTest, UploadsConvertsAndDownloads) {
    // A PostScript document (lower case) whose dependent files are asked for:
    // they go beside the configured URL even though the caller named another.
    fake.reply(200,
               R"({"errCode":4000,"msg":"need files","res_file":["font.ttf"],"ps_file":"a.ps"})");
    fake.reply(200, R"({"errCode":0,"pdf_url":"http://files/p.pdf"})");
    fake.reply(200, "%PDF-1.4 ps");
    ASSERT_EQ(0, Convert("a.ps", "http://other/convert"));
    const std::vector<KXWireRequest> sent = fake.requests();
    ASSERT_EQ(3u, sent.size());
    EXPECT_EQ("POST http://other/convert doctype=PS equipId=" + equip + " saveToDisk=1 file=@" +
                  dir + "/a.ps/a.ps",
              Upload(sent[0]));
    EXPECT_EQ("POST http://s:8/conv/ps_conv.php ps_file=a.ps res_file=[\"font.ttf\"] res_file=@" +
                  dir + "/font.ttf/font.ttf ps_file=@" + dir + "/a.ps/a.ps",
              Upload(sent[1]));
    EXPECT_EQ("GET http://files/p.pdf " + pdf,
              sent[2].method + " " + sent[2].url + " " + sent[2].downloadPath);
    EXPECT_EQ("%PDF-1.4 ps", ReadFileText(pdf));
    EXPECT_EQ("4000 need files", LastError());  // stays after the success

    // No '/' in the configured path: ps_conv.php at the root; no key: "", null: null.
    api.strConvertToPdfUrl = "toPdf";
    fake.reply(200, R"({"errCode":4000,"res_file":null})");
    fake.reply(200, R"({"errCode":0,"pdf_url":"http://files/q.pdf"})");
    ASSERT_EQ(0, Convert("a.ps", "http://other/c"));
    EXPECT_EQ("POST http://s:8/ps_conv.php ps_file= res_file=null", Upload(fake.requests()[4]));
    // A PostScript document done at once; a name without extension; UTF-8 of a wide name.
    for (const std::string name : {"a.ps", "README", "\xE6\x8A\xA5.txt"}) {
        fake.reply(200, R"({"errCode":0,"pdf_url":"http://files/r.pdf"})");
        fake.reply(200, "%PDF-" + name);
        ASSERT_EQ(0, Convert(name, "http://other/c"));
        const KXWireRequest upload = fake.requests()[fake.requestCount() - 2];
        const std::string type = name == "README" ? "" : name == "a.ps" ? "PS" : "TXT";
        EXPECT_EQ("POST http://other/c doctype=" + type + " equipId=" + equip +
                      " saveToDisk=1 file=@" + dir + "/" + name + "/" + name,
                  Upload(upload));
        EXPECT_EQ("%PDF-" + name, ReadFileText(pdf));
    }
    EXPECT_EQ(12u, fake.requestCount());
}

TEST_F(ConvertTest, EndsAtTheFirstFailure) {
    // file, replies (status 0: refused), result, requests sent, last error, pdf after
    using Replies = std::vector<std::pair<int, std::string>>;
    const std::string need = R"({"errCode":4000,"msg":"need","res_file":"font.ttf"})";
    const std::string ok = R"({"errCode":0,"pdf_url":"http://files/p.pdf"})";
    const std::vector<std::tuple<std::string, Replies, long, size_t, std::string>> cases = {
        {"report.doc", {{0, ""}}, 10103, 1, "-1 marker"},
        {"report.doc", {{200, "no json"}}, 10003, 1, "-1 marker"},
        {"report.doc", {{200, need}}, 4000, 1, "4000 need"},  // no PostScript: a failure
        {"a.ps", {{200, R"({"errCode":5,"msg":"bad ps"})"}}, 5, 1, "5 bad ps"},
        {"a.ps", {{200, need}, {0, ""}}, 10103, 2, "4000 need"},
        {"a.ps", {{200, need}, {200, R"({"errCode":6,"msg":"dep"})"}}, 6, 2, "6 dep"},
        {"report.doc", {{200, ok}, {404, "gone"}}, 404, 2, "-1 marker"},
        {"report.doc", {{200, R"({"errCode":0})"}}, KX_ERR_HTTP_BAD_URL, 1, "-1 marker"},
        {"", {}, KX_ERR_HTTP_LOCAL_FILE, 0, "-1 marker"},  // no document, no upload
    };
    for (const auto& [file, replies, code, count, error] : cases) {
        SCOPED_TRACE(file + " " + (replies.empty() ? "" : replies[0].second));
        std::ofstream(pdf) << "OLD";
        const size_t before = fake.requestCount();
        MarkLastError();
        for (const auto& [status, body] : replies)
            status ? fake.reply(status, body) : fake.fail(kxtest::FakeTransport::Fault::Refused);
        EXPECT_EQ(code, Convert(file));
        EXPECT_EQ(count, fake.requestCount() - before);
        EXPECT_EQ(error, LastError());
        EXPECT_EQ("OLD", ReadFileText(pdf));
    }
    // No URL at all: 33030 before anything, with its exit line.
    api.strConvertToPdfUrl.clear();
    EXPECT_EQ(KX_ERR_CONV_NO_URL, Convert("report.doc"));
    EXPECT_EQ(11u, fake.requestCount());
    EXPECT_NE(std::string::npos, env.readLog().find("CKXSealOpenApi::Conv2PDF> <\"lRes:33030\">"));
}

TEST(SplitPath, AsTheWindowsRuntime) {
    // path, drive|dir|name|ext
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"C:\\docs\\a.b.ps", "C:|\\docs\\|a.b|.ps"},
        {"/tmp/x.dir/report", "|/tmp/x.dir/|report|"},
        {"dir\\sub/file.Doc", "|dir\\sub/|file|.Doc"},
        {".hidden", "|||.hidden"},
        {"d:", "d:|||"},
    };
    for (const auto& [path, expected] : cases) {
        const KXPathParts p = IWK_SplitPath(path);
        EXPECT_EQ(expected, p.drive + "|" + p.dir + "|" + p.name + "|" + p.ext) << path;
    }
}
