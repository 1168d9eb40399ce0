// The server frame: server descriptions and their record check, URL
// templates, the reply readers, the call object under every kind of
// operation, and the two free functions that make requests of their own.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "CloudCheckCert.h"
#include "CorvaneApi.h"
#include "ECertExpand.h"
#include "FakeTransport.h"
#include "InkwellApi.h"
#include "KXCommonType.h"
#include "KXReplyParsers.h"
#include "KXSealOpenApi.h"
#include "KXServerApi.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "TempEnv.h"
#include "frame/ReplyReaders.h"
#include "frame/UrlTemplate.h"

using kxtest::FakeTransport;
using kxtest::LastError;
using kxtest::MarkLastError;

// Completeness rule of a server description, reading one from the store,
// and the server type texts.
namespace {

_init_Info_s Info(int type, const char* id, const char* secret, const char* host, int port) {
    _init_Info_s info;
    info.SerType = type;
    info.ProjectID = id;
    info.ProjectSecret = secret;
    info.ServerIp = host;
    info.Port = port;
    return info;
}

}  // namespace

TEST(ServerBase, CheckInitInfoRules) {
    TempEnv env;
    EXPECT_EQ(0, KXServerBase::CheckInitInfo(Info(2, "", "", "h", 443)));
    EXPECT_EQ(0, KXServerBase::CheckInitInfo(Info(4, "", "", "h", 1)));
    EXPECT_EQ(10001, KXServerBase::CheckInitInfo(Info(2, "id", "s", "h", 0)));
    EXPECT_EQ(10001, KXServerBase::CheckInitInfo(Info(2, "", "", "", 443)));
    EXPECT_EQ(0, KXServerBase::CheckInitInfo(Info(9, "id", "", "h", 0)));
    EXPECT_EQ(0, KXServerBase::CheckInitInfo(Info(10, "id", "", "h", -5)));
    EXPECT_EQ(10001, KXServerBase::CheckInitInfo(Info(9, "", "s", "h", 1)));
    EXPECT_EQ(0, KXServerBase::CheckInitInfo(Info(3, "id", "s", "h", 1)));
    EXPECT_EQ(10001, KXServerBase::CheckInitInfo(Info(3, "id", "", "h", 1)));
    EXPECT_EQ(10001, KXServerBase::CheckInitInfo(Info(0, "id", "s", "h", -1)));
    EXPECT_EQ(10001, KXServerBase::CheckInitInfo(_init_Info_s()));
    // The secret never reaches the log line of the check.
    KXServerBase::CheckInitInfo(Info(3, "proj", "TopSecret-123", "host.example", 8443));
    const std::string log = env.readLog();
    EXPECT_NE(std::string::npos,
              log.find("lRes:0, ProjectID:proj,ServerIp:host.example, Port:8443, SerType:3"));
    EXPECT_EQ(std::string::npos, log.find("TopSecret-123"));
}

TEST(ServerBase, InitKeepsLastCompleteRecordAndCopiesDeeply) {
    TempEnv env;
    KXServerBase base;
    EXPECT_FALSE(base.IsInit());
    EXPECT_EQ(10001, base.Init(Info(0, "id", "", "h", 1)));
    EXPECT_FALSE(base.IsInit());
    EXPECT_EQ(0, base.Init(Info(0, "id", "s", "h", 1)));
    EXPECT_TRUE(base.IsInit());
    EXPECT_EQ(10001, base.Init(_init_Info_s()));
    EXPECT_TRUE(base.IsInit());
    EXPECT_EQ("s", base.m_stInitInfo.ProjectSecret);

    KXServerBase copy(base);
    base.m_stInitInfo.ServerIp = "changed";
    EXPECT_EQ("h", copy.m_stInitInfo.ServerIp);
    copy = copy;  // self-assignment keeps every string
    EXPECT_EQ("h", copy.m_stInitInfo.ServerIp);
    EXPECT_TRUE(copy.IsInit());
}

TEST(ServerBase, GetServerConfigReadsKeysAndSecrets) {
    TempEnv env;
    env.writeConfig(
        "[Seal]\nSerType=3\nHost=seal.example\nPort=8443\nProjectID=p1\nProjectSecret=" +
        IWK_EncryptConfigInfo("s3cr\xD6\xD0") + "\nserverVer=5.3\n[Clear]\nProjectSecret=plain\n" +
        "[Broken]\nProjectSecret=KXENC1:AAAA\nPort=abc\n");
    _init_Info_s info;
    info.serverVer = "keep";
    EXPECT_EQ(0, KX_GetServerConfig("Seal", info));
    EXPECT_EQ(3, info.SerType);
    EXPECT_EQ("seal.example", info.ServerIp);
    EXPECT_EQ(8443, info.Port);
    EXPECT_EQ("p1", info.ProjectID);
    EXPECT_EQ("s3cr\xD6\xD0", info.ProjectSecret);
    EXPECT_EQ("keep", info.serverVer);  // only the five keys are read

    _init_Info_s clear;
    EXPECT_EQ(0, KX_GetServerConfig("Clear", clear));
    EXPECT_EQ("plain", clear.ProjectSecret);
    EXPECT_EQ("", clear.ServerIp);

    // A secret that does not decipher is kept as stored.
    _init_Info_s broken;
    broken.Port = 99;
    EXPECT_EQ(0, KX_GetServerConfig("Broken", broken));
    EXPECT_EQ("KXENC1:AAAA", broken.ProjectSecret);
    EXPECT_EQ(0, broken.Port);

    _init_Info_s none;
    EXPECT_EQ(0, KX_GetServerConfig("NoSuchSection", none));
    EXPECT_EQ(10001, KXServerBase::CheckInitInfo(none));
}

TEST(ServerBase, ServerTypeTexts) {
    TempEnv env;
    int type = -9;
    EXPECT_EQ(0, KX_GetServerTypeByStr("3.0", type, -1));
    EXPECT_EQ(2, type);
    EXPECT_EQ(0, KX_GetServerTypeByStr("agent", type, -1));
    EXPECT_EQ(4, type);
    EXPECT_EQ(0, KX_GetServerTypeByStr("", type, 7));
    EXPECT_EQ(7, type);
    EXPECT_EQ(10001, KX_GetServerTypeByStr("", type, -1));
    EXPECT_EQ(7, type);
    EXPECT_EQ(10001, KX_GetServerTypeByStr("3.0 ", type, 1));
    EXPECT_EQ(7, type);
    EXPECT_NE(std::string::npos, env.readLog().find("lRes:10001, nServerType:7"));
}

// URL templates: values go in as they are, and 1023 bytes is the most.
TEST(UrlTemplate, FormatsWholeOrRefuses) {
    std::string url = "stale";
    EXPECT_EQ(0, KXFormatUrl(url, "%s/v1/accounts/%s?x=%s", "https://h:1", "a b", "\xD6\xD0&"));
    EXPECT_EQ("https://h:1/v1/accounts/a b?x=\xD6\xD0&", url);

    const std::string base = "https://h";
    const std::string fits(kKXUrlLimit - base.size() - 1, 'v');
    EXPECT_EQ(0, KXFormatUrl(url, "%s/%s", base.c_str(), fits.c_str()));
    EXPECT_EQ(kKXUrlLimit, url.size());

    const std::string tooLong = fits + "w";
    EXPECT_EQ(KX_ERR_URL_TOO_LONG, KXFormatUrl(url, "%s/%s", base.c_str(), tooLong.c_str()));
    EXPECT_EQ("", url);
}

// Every reply reader against one table: the code, what it hands on as data,
// what it leaves in the last error and in the result record. Replies of any
// shape get a code, never an exception.
namespace {

const char kMarked[] = "-1 marker";
const char kUntouched[] = "untouched";

struct Row {
    KXReply reader;
    const char* reply;
    long code;
    const char* data;       // kxjson::Write of data without its line end, or kUntouched
    const char* lastError;  // "code text", or kMarked when none was written
    const char* msg;        // the result record's msg afterwards; null: the reply as it came
};

std::string Name(KXReply r) {
    const char* names[] = {"code", "errCode", "service", "openApi", "legacy", "xml", "print"};
    return names[static_cast<int>(r)];
}

}  // namespace

TEST(ReplyReaders, Table) {
    using R = KXReply;
    const std::string noMessage = IWK_GetErrorMsg(KX_ERR_SERVER_NO_MESSAGE);
    const std::string unparsable = IWK_GetErrorMsg(KX_ERR_REPLY_UNPARSABLE);
    const Row rows[] = {
        // code/message/data: data handed on, raw reply kept.
        {R::CodeEnvelope, "{}", 0, "null", kMarked, nullptr},
        {R::CodeEnvelope, R"({"code":0,"message":"ok","data":{"k":[1,2]}})", 0, R"({"k":[1,2]})",
         kMarked, nullptr},
        // Decimal text counts as its number; text without digits as 0.
        {R::CodeEnvelope, R"({"code":"abc","data":1})", 0, "1", kMarked, nullptr},
        {R::CodeEnvelope, R"({"code":"401"})", 401, kUntouched, kMarked, noMessage.c_str()},
        {R::CodeEnvelope, R"({"code":5,"message":"x","data":{"a":1}})", 5, kUntouched, "5 x", "x"},
        {R::CodeEnvelope, R"({"code":3,"message":["no"]})", 3, kUntouched, kMarked,
         noMessage.c_str()},
        // errCode/msg reads its own keys only.
        {R::ErrCodeEnvelope, R"({"errCode":"0","data":5})", 0, "5", kMarked, nullptr},
        {R::ErrCodeEnvelope, R"({"code":9,"errCode":-7,"msg":"bad","message":"other"})", -7,
         kUntouched, "-7 bad", "bad"},
        {R::ErrCodeEnvelope, R"({"errCode":[1]})", 10003, kUntouched, kMarked, unparsable.c_str()},
        // The web service: an empty message leaves the whole reply behind.
        {R::ServiceEnvelope, R"({"code":0})", 0, "null", kMarked, nullptr},
        {R::ServiceEnvelope, R"({"code":0,"data":{"a":1}})", 0, R"({"a":1})", kMarked, nullptr},
        {R::ServiceEnvelope, R"({"data":2})", 0, "2", kMarked, nullptr},
        {R::ServiceEnvelope, R"({"code":7})", 7, kUntouched, R"(7 {"code":7})", nullptr},
        {R::ServiceEnvelope, R"({"code":7,"message":"m"})", 7, kUntouched, "7 m", nullptr},
        {R::ServiceEnvelope, "[]", 10003, kUntouched, kMarked, nullptr},
        {R::ServiceEnvelope, R"({"code":true})", 10003, kUntouched, kMarked, nullptr},
        // The seal server: flat object, 10027 without a usable errCode, the
        // last error written even with an empty msg; data is the object as read.
        {R::OpenApi, R"({"errCode":0,"token":"t"})", 0, R"({"errCode":0,"token":"t"})", kMarked,
         nullptr},
        {R::OpenApi, R"({"token":"t"})", 10027, R"({"token":"t"})", "10027 ", nullptr},
        {R::OpenApi, R"({"errCode":"5"})", 10027, R"({"errCode":"5"})", "10027 ", nullptr},
        {R::OpenApi, R"({"errCode":12,"msg":"no"})", 12, R"({"errCode":12,"msg":"no"})", "12 no",
         nullptr},
        {R::OpenApi, "[0]", 10003, "[0]", kMarked, nullptr},
        // The print-control service: as the seal server, but data is "data",
        // null when absent.
        {R::PrintCtrl, R"({"errCode":0,"data":[1]})", 0, "[1]", kMarked, nullptr},
        {R::PrintCtrl, R"({"errCode":0})", 0, "null", kMarked, nullptr},
        {R::PrintCtrl, R"({"errCode":"0","data":1})", 10027, kUntouched, "10027 ", nullptr},
        {R::PrintCtrl, R"({"errCode":3,"msg":"m","data":1})", 3, kUntouched, "3 m", nullptr},
        {R::PrintCtrl, "[0]", 10003, kUntouched, kMarked, nullptr},
        // The legacy authorization URL: 31015 for no JSON or no integer, data
        // handed on whatever the code.
        {R::Legacy, R"({"errCode":0,"data":"v"})", 0, R"("v")", kMarked, nullptr},
        {R::Legacy, R"({"data":"v","msg":"m"})", 31015, R"("v")", "31015 m", nullptr},
        {R::Legacy, R"({"errCode":4,"msg":7})", 4, "null", "4 7", nullptr},
        {R::Legacy, "<html>", 31015, kUntouched, "31015 <html>", nullptr},
        // The certificate check's XML.
        {R::CloudCheckXml, "<result><retcode>0</retcode></result>", 0, kUntouched, kMarked,
         nullptr},
        {R::CloudCheckXml, "<result><retcode>17</retcode></result>", 32004, kUntouched, kMarked,
         nullptr},
        {R::CloudCheckXml, "<result><retcode></retcode></result>", 10003, kUntouched, kMarked,
         nullptr},
        // Text that is no number reads as 0; white space is kept.
        {R::CloudCheckXml, "<result><retcode>ok</retcode></result>", 0, kUntouched, kMarked,
         nullptr},
        {R::CloudCheckXml, "<result><retcode> 3</retcode></result>", 32004, kUntouched, kMarked,
         nullptr},
        {R::CloudCheckXml, "<result><x><retcode>0</retcode></x></result>", 10003, kUntouched,
         kMarked, nullptr},
        {R::CloudCheckXml, "", 10003, kUntouched, kMarked, nullptr},
        {R::CloudCheckXml, "<other><retcode>0</retcode></other>", 10003, kUntouched, kMarked,
         nullptr},
        {R::CloudCheckXml, "{\"retcode\":0}", 10003, kUntouched, kMarked, nullptr},
    };
    for (const Row& row : rows) {
        const std::string what = Name(row.reader) + " " + row.reply;
        MarkLastError();
        KXReqResult result;
        result.msg = result.strBody = row.reply;
        Json::Value data(kUntouched);
        EXPECT_EQ(row.code, KXReadReply(row.reader, result, data)) << what;
        const std::string written = kxjson::Write(data);
        EXPECT_EQ(row.data == kUntouched ? "\"untouched\"" : row.data,
                  written.substr(0, written.size() - 1))
            << what;
        EXPECT_EQ(row.lastError, LastError()) << what;
        EXPECT_EQ(row.msg != nullptr ? row.msg : row.reply, result.msg) << what;
    }
}

// Replies of the wrong shape: both envelopes give 10003, keep data and the
// last error, and put the standard text in the record.
TEST(ReplyReaders, UnusableEnvelopes) {
    const char* replies[] = {
        "no json",
        "",
        "[1,2,3]",
        "42",
        "\"text\"",
        "null",
        R"({"code":true})",
        R"({"code":1.5})",
        R"({"code":{}})",
        R"({"code":[0]})",
        R"({"code":4294967296})",
        R"({"code":"99999999999999999999"})",
    };
    for (const char* text : replies) {
        MarkLastError();
        Json::Value data(kUntouched);
        KXReqResult r;
        r.msg = text;
        EXPECT_EQ(10003, ParseCodeEnvelope(r, data)) << text;
        EXPECT_EQ(10003, r.errCode) << text;
        EXPECT_EQ(IWK_GetErrorMsg(10003), r.msg) << text;
        EXPECT_EQ(kUntouched, kxjson::String(data)) << text;
        EXPECT_EQ(kMarked, LastError());
    }
    // A transport failure handed to an envelope passes through unparsed.
    MarkLastError();
    Json::Value data;
    KXReqResult r;
    r.errCode = 7;
    r.msg = "connect failed";
    EXPECT_EQ(7, ParseErrCodeEnvelope(r, data));
    EXPECT_EQ("connect failed", r.msg);
    EXPECT_EQ("7 connect failed", LastError());
}

// The call object under every kind of operation, on the fake transport: what
// a transport failure, an HTTP failure status and a URL byte that cannot be
// sent leave as code and last error, operation by operation.
namespace {

enum class Rule { Text, Code, Unchanged };

struct Operation {
    const char* name;
    Rule onTransport;
    // Runs the operation; with bad, a '#' stands in its URL.
    std::function<long(bool bad)> run;
};

}  // namespace

TEST(Call, FailuresAndTheLastErrorOperationByOperation) {
    TempEnv env;
    FakeTransport fake;
    const _init_Info_s info = kxtest::FakeRecord();
    CCloudCheckCert check;
    ASSERT_EQ(0, check.Init(info));
    CInkwellApi legacy;
    ASSERT_EQ(0, legacy.Init(info));
    CECertExpand expand;
    expand.m_stInitInfo = info;
    CCorvaneApi platform;
    ASSERT_EQ(0, platform.Init(info));
    CKXSealOpenApi seal;
    seal.m_stInitInfo = info;
    seal.strHost = "h.example";
    seal.strPort = "443";
    std::string text;
    bool flag = false;
    int number = 0;
    MakeCertData made;

    const Operation operations[] = {
        {"KXSER_CertServiceQuery", Rule::Unchanged,
         [&](bool bad) { return KXSER_CertServiceQuery(bad ? "AB#12" : "AB", "UK1", text); }},
        {"KX_InkwellCompatible", Rule::Unchanged,
         [&](bool bad) {
             _init_Info_s probe = info;
             probe.serverVer = "4";
             probe.authorizationType = 2;
             probe.authorization = bad ? "https://a.example/auth#x" : "https://a.example/auth";
             return KX_InkwellCompatible(probe, text, "KXInkwell");
         }},
        {"CKXSealOpenApi::Login", Rule::Unchanged,
         [&](bool bad) {
             seal.strLoginUrl = bad ? "/login#" : "/login";
             return seal.Login("u", "p", 2);
         }},
        {"CCloudCheckCert::CheckCert", Rule::Text,
         [&](bool bad) {
             env.set("KXServerApi", "CheckCert", bad ? "/check#" : "/check");
             return check.CheckCert("C");
         }},
        {"CInkwellApi::MakeCert", Rule::Text,
         [&](bool bad) {
             legacy.strMakeCertUri = bad ? "/apply#" : "/apply";
             return legacy.MakeCert("csr", "{}", made);
         }},
        {"CInkwellApi::UpdateUkeyTryTime", Rule::Code,
         [&](bool bad) {
             legacy.strUpdateUkeyTryTimeUri = bad ? "/try#" : "/try";
             return legacy.UpdateUkeyTryTime("SN", true, false, number);
         }},
        {"CECertExpand::CheckServiceRequest", Rule::Text,
         [&](bool bad) { return expand.CheckServiceRequest(bad ? "id#1" : "id", flag); }},
        {"CCorvaneApi::VerifyMobShieldAuth", Rule::Text,
         [&](bool bad) {
             platform.strVerifyMobShieldAuthUrl = bad ? "https://%s/v1/will#" : "https://%s/v1/w";
             return platform.VerifyMobShieldAuth("b", "t", "w", text, flag);
         }},
    };

    for (const Operation& op : operations) {
        // No reply: the transport's code, and its text, or the code's own
        // text, or nothing in the last error.
        MarkLastError();
        fake.fail(FakeTransport::Fault::Timeout);
        EXPECT_EQ(10105, op.run(false)) << op.name;
        const std::string timeout[] = {"10105 fake: timed out", "10105 " + IWK_GetErrorMsg(10105),
                                       "-1 marker"};
        EXPECT_EQ(timeout[static_cast<int>(op.onTransport)], LastError()) << op.name;

        // A failure status is the code; its reply is the text.
        MarkLastError();
        fake.reply(503, "busy");
        EXPECT_EQ(503, op.run(false)) << op.name;
        const std::string busy[] = {"503 busy", "503 " + IWK_GetErrorMsg(503), "-1 marker"};
        EXPECT_EQ(busy[static_cast<int>(op.onTransport)], LastError()) << op.name;

        // A byte that cannot go as given: nothing sent, and every operation
        // names it in the last error.
        MarkLastError();
        const size_t sent = fake.requestCount();
        EXPECT_EQ(10111, op.run(true)) << op.name;
        EXPECT_EQ(sent, fake.requestCount()) << op.name;
        EXPECT_NE(std::string::npos, LastError().find("10111 URL holds '#' (0x23) at byte "))
            << op.name << ": " << LastError();
    }
}

// KXSER_CertServiceQuery on the fake transport: the request as it goes out,
// data written back as text, and what a failure leaves behind. The web
// service's reply rules themselves are in the reader table above.
TEST(CertServiceQuery, RequestsAndResults) {
    TempEnv env;
    FakeTransport fake;
    std::string result = "stale";
    const std::string base = "https://ws.example/kxweb/v3/bid-sign/services";
    // Values go out as they are: nothing encoded, nothing between the parts.
    const struct {
        const char* sn;
        const char* ukey;
        std::string url;
    } queries[] = {
        {"5A1B&x=\xD6\xD0", "UK-1", base + "?certSn=5A1B&x=\xD6\xD0&ukeyNum=UK-1"},
        {nullptr, "UK-2", base + "?ukeyNum=UK-2"},
        {"SN3", "", base + "?certSn=SN3"},
    };
    ASSERT_TRUE(env.set("KXServerApi", "CertServiceQuery", "https://ws.example/kxweb"));
    for (const auto& q : queries) {
        fake.reply(200, R"({"code":0,"data":{"b":"\u4e2d","a":[1,{"c":null}]}})");
        EXPECT_EQ(0, KXSER_CertServiceQuery(q.sn, q.ukey, result));
        const KXWireRequest req = fake.lastRequest();
        EXPECT_EQ("GET " + q.url + " ", req.method + " " + req.url + " " + req.body);
        for (const std::string& line : req.headers) EXPECT_EQ(std::string::npos, line.find("X-KX"));
        EXPECT_EQ("{\"a\":[1,{\"c\":null}],\"b\":\"\xE4\xB8\xAD\"}\n", result);
    }
    ASSERT_TRUE(env.set("KXServerApi", "CertServiceQueryUri", "/other"));
    fake.reply(200, R"({"code":0})");
    EXPECT_EQ(0, KXSER_CertServiceQuery("SN4", nullptr, result));
    EXPECT_EQ("https://ws.example/kxweb/other?certSn=SN4", fake.lastRequest().url);
    EXPECT_EQ("null\n", result);

    // Failures empty the result; both arguments empty send nothing.
    MarkLastError();
    const size_t sent = fake.requestCount();
    EXPECT_EQ(10005, KXSER_CertServiceQuery(nullptr, "", result));
    EXPECT_EQ("|-1 marker", result + "|" + LastError());
    EXPECT_EQ(sent, fake.requestCount());
    result = "stale";
    fake.reply(200, R"({"code":7})");
    EXPECT_EQ(7, KXSER_CertServiceQuery("SN", nullptr, result));
    EXPECT_EQ(R"(|7 {"code":7})", result + "|" + LastError());
    result = "stale";
    fake.reply(200, "[0]");
    EXPECT_EQ(10003, KXSER_CertServiceQuery("SN", nullptr, result));
    EXPECT_EQ("", result);
    // A '#' would have cut the query; a blank would have been sent encoded.
    const size_t before = fake.requestCount();
    for (const char* sn : {"AB#12", "A B"}) {
        result = "stale";
        EXPECT_EQ(10111, KXSER_CertServiceQuery(sn, "UK1", result)) << sn;
        EXPECT_EQ("", result);
    }
    EXPECT_EQ(before, fake.requestCount());
}

// KX_InkwellCompatible: where the authorization value of a legacy server comes
// from, what the record keeps between calls, and the fetch, on the fake
// transport. The legacy reply's rules are in the reader table above.
namespace {

class InkwellProbeTest : public ::testing::Test {
protected:
    void SetUp() override { MarkLastError(); }
    long Probe(const std::string& section = "KXInkwell") {
        return KX_InkwellCompatible(info, authorization, section);
    }
    // What the probe gave back, and the record's three settings.
    std::string State() const {
        return authorization + "|" + info.serverVer + "|" + std::to_string(info.authorizationType) +
               "|" + info.authorization;
    }

    TempEnv env;
    FakeTransport fake;
    _init_Info_s info;
    std::string authorization = "stale";
};

}  // namespace

TEST_F(InkwellProbeTest, VersionDecidesWhetherSettingsAreRead) {
    // Another version keeps the record's own settings and reads nothing more.
    env.writeConfig("[KXInkwell]\nauthorizationType=2\nauthorization=from-config\n");
    info.serverVer = "5.2";
    info.authorizationType = 1;
    info.authorization = "own";
    EXPECT_EQ(0, Probe());
    EXPECT_EQ("own|5.2|1|own", State());

    // No version anywhere: type becomes 0 and the value is empty.
    info.serverVer.clear();
    EXPECT_EQ(0, Probe());
    EXPECT_EQ("||0|own", State());

    // Only exactly "5.3" loads the settings.
    env.writeConfig("[KXInkwell]\nauthorizationType=1\nauthorization=v\n");
    for (const char* version : {"5.3 ", "5.", "5.30"}) {
        info = _init_Info_s();
        info.serverVer = version;
        EXPECT_EQ(0, Probe()) << version;
        EXPECT_EQ("|" + std::string(version) + "|0|", State());
    }
    env.writeConfig("[Legacy]\nserverVer=5.3\nauthorizationType=1\nauthorization=v\xD6\xD0\n");
    info = _init_Info_s();
    EXPECT_EQ(0, Probe("Legacy"));
    EXPECT_EQ("v\xD6\xD0|5.3|1|v\xD6\xD0", State());
    EXPECT_EQ(0u, fake.requestCount());
}

TEST_F(InkwellProbeTest, FetchesTheValueFromItsUrl) {
    const std::string url = "https://auth.example/auth?app=1";
    env.writeConfig("[KXInkwell]\nserverVer=5.3\nauthorizationType=2\nauthorization=" + url + "\n");
    fake.reply(200, R"({"errCode":0,"data":"auth-value"})");
    EXPECT_EQ(0, Probe());
    // A value is not stored: every call fetches again.
    EXPECT_EQ("auth-value|5.3|2|" + url, State());
    const KXWireRequest req = fake.lastRequest();
    EXPECT_EQ("GET " + url, req.method + " " + req.url);
    for (const std::string& line : req.headers) EXPECT_EQ(std::string::npos, line.find("X-KX"));

    // An empty value turns the record to type 1 until the store says 2 again.
    fake.reply(200, R"({"errCode":0,"data":""})");
    EXPECT_EQ(0, Probe());
    EXPECT_EQ("|5.3|1|", State());
    fake.reply(200, R"({"errCode":0,"data":"again"})");
    EXPECT_EQ(0, Probe());
    EXPECT_EQ("again", authorization);
    EXPECT_EQ("-1 marker", LastError());

    // A refusal or a failure gives back nothing and keeps the store's settings.
    fake.reply(200, R"({"errCode":3,"msg":"locked","data":"x"})");
    EXPECT_EQ(3, Probe());
    EXPECT_EQ("|5.3|2|" + url, State());
    EXPECT_EQ("3 locked", LastError());
    fake.reply(503, "busy");
    EXPECT_EQ(503, Probe());
    EXPECT_EQ("|5.3|2|" + url, State());
    EXPECT_EQ(5u, fake.requestCount());

    // Type 2 with no URL: nothing fetched, empty value, success.
    env.writeConfig("[KXInkwell]\nserverVer=5.3\nauthorizationType=2\n");
    EXPECT_EQ(0, Probe());
    EXPECT_EQ("|5.3|2|", State());
    EXPECT_EQ(5u, fake.requestCount());  // nothing more
}
