// CKXSealOpenApi against a loopback server: the bytes of every request, the
// configuration written back by discovery, the login state machine, the seal
// list outcomes, hash signing, the sign log, print counts and bad replies.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <string>
#include <vector>

#include "KXSealOpenApi.h"
#include "KXUtils.h"
#include "LoopbackServer.h"
#include "TempEnv.h"

using kxtest::LoopbackServer;
using kxtest::RecordedRequest;
using kxtest::Reply;

namespace {

const char kDiscovery[] = "/kxmonitor/rest/app!getAPIInfo";

// Lower-case hex MD5, made here with OpenSSL rather than the platform layer.
std::string Md5Hex(const std::string& text) {
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(text.data(), text.size(), md, &length, EVP_md5(), nullptr);
    static const char digits[] = "0123456789abcdef";
    std::string hex;
    for (unsigned int i = 0; i < length; ++i) {
        hex += digits[md[i] >> 4];
        hex += digits[md[i] & 15];
    }
    return hex;
}

Reply JsonReply(const std::string& body) {
    return Reply(200, body, "application/json");
}

// A seal document as the servers send it: Base64 of XML.
std::string SealDoc(const std::string& inner, const std::string& root = "Seal") {
    return IWK_Base64Encode("<" + root + ">" + inner + "</" + root + ">");
}

std::string FullSealXml(const std::string& esId = "es-1", const std::string& width = "120") {
    return "<SealInfo><esID>" + esId +
           "</esID><PropertyInfo><name>\xB9\xAB\xD5\xC2</name><cert>CERTB64</cert>"
           "<type>3</type></PropertyInfo><PictrueInfo><data>UElD</data><type>png</type>"
           "<width>" +
           width + "</width><height>80</height></PictrueInfo></SealInfo>";
}

long LastErrorCode() {
    long code = 0;
    std::string text;
    IWK_GetLastError(code, text);
    return code;
}

class SealOpenApiTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(env.set("KXUtils", "Proxy", ""));
        info.SerType = 3;
        info.ProjectID = "pid";
        info.ProjectSecret = "psec";
        info.ServerIp = "http://127.0.0.1";
        info.Port = server.port();
        IWK_SetLastError(-1, "marker");
    }

    // Endpoints from configuration alone, no discovery request.
    void InitWithoutDiscovery() {
        ASSERT_TRUE(env.set("OpenApiURL", "ServerFlag", "1"));
        ASSERT_TRUE(env.set("OpenApiURL", "LoginUrl", "/api/login"));
        ASSERT_TRUE(env.set("OpenApiURL", "LogoutUrl", "/api/logout"));
        ASSERT_TRUE(env.set("OpenApiURL", "GetSealListUrl", "/api/seals"));
        ASSERT_TRUE(env.set("OpenApiURL", "SignHashUrl", "/api/sign"));
        ASSERT_TRUE(env.set("OpenApiURL", "SaveSignLogUrl", "/api/log"));
        ASSERT_TRUE(env.set("OpenApiURL", "sealManageHost", "http://127.0.0.1"));
        ASSERT_TRUE(env.set("OpenApiURL", "sealManagePort", std::to_string(server.port())));
        ASSERT_TRUE(env.set("OpenApiURL", "getPrintCount", "/pm/get"));
        ASSERT_TRUE(env.set("OpenApiURL", "updatePrint", "/pm/update"));
        ASSERT_EQ(0, api.Init(info));
        ASSERT_EQ(0u, server.requestCount());
    }

    void LogIn(const std::string& token = "T0K") {
        server.queueReply(JsonReply(R"({"errCode":0,"token":")" + token + "\"}"));
        ASSERT_EQ(0, api.Login("demo", "pw", 2));
        ASSERT_EQ(token, api.strToken);
        server.clearRequests();
    }

    std::string EquipId() const { return Md5Hex(IWK_GetMacAddress()); }

    TempEnv env;
    LoopbackServer server;
    _init_Info_s info;
    CKXSealOpenApi api;
};

}  // namespace

TEST_F(SealOpenApiTest, InitDiscoversEndpointsAndWritesThemBack) {
    ASSERT_TRUE(env.set("OpenApiURL", "InitUrl", server.baseUrl()));
    ASSERT_TRUE(env.set("OpenApiURL", "LogoutUrl", "/kept"));
    ASSERT_TRUE(env.set("OpenApiURL", "sealManageHost", "mgr.example"));
    server.handle(kDiscovery, [](const RecordedRequest&) {
        return JsonReply(
            R"({"errCode":0,"host":"http://h.example","port":"8443","loginUrl":"/in",)"
            R"("logoutUrl":"","getSealListUrl":"/list","signHashUrl":"/sign",)"
            R"("saveSignLogUrl":"/log","ConvertDocUrl":"/conv","sealManageHost":"x"})");
    });
    ASSERT_EQ(0, api.Init(info));

    ASSERT_EQ(1u, server.requestCount());
    const RecordedRequest req = server.lastRequest();
    EXPECT_EQ("POST", req.method);
    EXPECT_EQ(kDiscovery, req.target);
    EXPECT_EQ("application/x-www-form-urlencoded", req.header("Content-Type"));
    const std::string mac = IWK_GetMacAddress();
    EXPECT_EQ("project_id=pid&project_secret=psec&mac=" + mac + "&equipId=" + Md5Hex(mac),
              req.body);
    EXPECT_EQ(Md5Hex(mac), api.strEquipId);

    EXPECT_EQ("http://h.example", api.strHost);
    EXPECT_EQ("8443", api.strPort);
    EXPECT_EQ("/in", api.strLoginUrl);
    EXPECT_EQ("/kept", api.strLogoutUrl);  // an empty value changes nothing
    EXPECT_EQ("/conv", api.strConvertToPdfUrl);
    EXPECT_EQ("mgr.example", api.strSealManageHost);  // never taken from a reply
    std::string value;
    const std::pair<const char*, const char*> stored[] = {
        {"Host", "http://h.example"},
        {"Port", "8443"},
        {"LoginUrl", "/in"},
        {"LogoutUrl", "/kept"},
        {"GetSealListUrl", "/list"},
        {"SignHashUrl", "/sign"},
        {"SaveSignLogUrl", "/log"},
        {"convertToPdfUrl", "/conv"},
        {"sealManageHost", "mgr.example"},
    };
    for (const auto& kv : stored) {
        IWK_GetConfigByKey("OpenApiURL", kv.first, value, "absent");
        EXPECT_EQ(kv.second, value) << kv.first;
    }
    IWK_GetConfigByKey("OpenApiURL", "ConvertDocUrl", value, "absent");
    EXPECT_EQ("absent", value);
    EXPECT_EQ(0, api.IsLogin());

    // An InitUrl naming getAPIInfo goes out unchanged.
    ASSERT_TRUE(env.set("OpenApiURL", "InitUrl", server.url("/other/app!getAPIInfo?v=2")));
    server.queueReply(JsonReply(R"({"errCode":0})"));
    CKXSealOpenApi second;
    EXPECT_EQ(0, second.Init(info));
    EXPECT_EQ("/other/app!getAPIInfo?v=2", server.lastRequest().target);
    EXPECT_EQ("", second.strHost);  // a reply naming nothing leaves the endpoints empty
}

TEST_F(SealOpenApiTest, InitFailures) {
    ASSERT_TRUE(env.set("OpenApiURL", "InitUrl", server.baseUrl()));
    ASSERT_TRUE(env.set("OpenApiURL", "LoginUrl", "/cfg-login"));

    _init_Info_s incomplete = info;
    incomplete.ProjectID.clear();
    EXPECT_EQ(10001, api.Init(incomplete));
    EXPECT_EQ(0u, server.requestCount());
    EXPECT_EQ("", api.strLoginUrl);  // no configuration read

    server.queueReply(JsonReply(R"({"errCode":42,"msg":"project disabled","host":"h"})"));
    EXPECT_EQ(42, api.Init(info));
    EXPECT_EQ(42, LastErrorCode());
    EXPECT_EQ("/cfg-login", api.strLoginUrl);
    EXPECT_EQ("", api.strHost);
    EXPECT_FALSE(api.strEquipId.empty());

    IWK_SetLastError(-1, "marker");
    for (const char* bad : {"not json", "[1]", "\"text\""}) {
        server.queueReply(JsonReply(bad));
        EXPECT_EQ(10003, api.Init(info)) << bad;
    }
    EXPECT_EQ(-1, LastErrorCode());  // a reply that cannot be read sets no last error
    for (const char* bad : {R"({"host":"h"})", R"({"errCode":"0"})", R"({"errCode":1e20})"}) {
        server.queueReply(JsonReply(bad));
        EXPECT_EQ(10027, api.Init(info)) << bad;
    }
    EXPECT_EQ("", api.strHost);
    server.queueReply(Reply(503, "busy"));
    EXPECT_EQ(503, api.Init(info));

    // ServerFlag set: the description's host and port, and no request at all.
    const size_t before = server.requestCount();
    ASSERT_TRUE(env.set("OpenApiURL", "ServerFlag", "1"));
    EXPECT_EQ(0, api.Init(info));
    EXPECT_EQ(before, server.requestCount());
    EXPECT_EQ("http://127.0.0.1", api.strHost);
    EXPECT_EQ(std::to_string(server.port()), api.strPort);
}

TEST_F(SealOpenApiTest, LoginFormsAndStateMachine) {
    InitWithoutDiscovery();
    const std::string equip = EquipId();
    const std::string form = "project_id=pid&project_secret=psec&equipId=" + equip;

    server.queueReply(JsonReply(R"({"errCode":0,"token":"tok-0"})"));
    EXPECT_EQ(0, api.Login("demo", "s3cret", 0));
    RecordedRequest req = server.lastRequest();
    EXPECT_EQ("/api/login", req.target);
    EXPECT_EQ(
        form + "&username=demo&userpwd=" + Md5Hex("s3cret") + "&loginType=0&response_type=post",
        req.body);
    EXPECT_EQ(1, api.IsLogin());
    EXPECT_EQ("tok-0", api.strToken);
    EXPECT_EQ("s3cret", api.strUserPwd);  // the plain text, whatever was sent

    server.queueReply(JsonReply(R"({"errCode":0,"token":"tok-3"})"));
    EXPECT_EQ(0, api.Login("demo", "s3cret", 3));
    EXPECT_EQ(
        form + "&username=demo&userpwd=" + Md5Hex("s3cret") + "&loginType=3&response_type=post",
        server.lastRequest().body);

    server.queueReply(JsonReply(R"({"errCode":0,"token":"tok-1"})"));
    EXPECT_EQ(0, api.Login("a b&\xD5\xC5", "p=w%", 1));
    EXPECT_EQ(form + "&username=a%20b%26%D5%C5&userpwd=p%3Dw%25&loginType=1&response_type=post",
              server.lastRequest().body);
    EXPECT_EQ("a b&\xD5\xC5", api.strUserName);

    // Type 2 sends both as they are; a long password goes out whole.
    const std::string longPwd(5000, 'p');
    server.queueReply(JsonReply(R"({"errCode":0})"));
    EXPECT_EQ(0, api.Login("u", longPwd.c_str(), 2));
    EXPECT_EQ(form + "&username=u&userpwd=" + longPwd + "&loginType=2&response_type=post",
              server.lastRequest().body);
    EXPECT_EQ(1, api.IsLogin());  // accepted without a token
    EXPECT_EQ("", api.strToken);
    EXPECT_EQ(2, api.iLoginType);

    // Refused locally: the session is dropped and nothing is sent.
    LogIn();
    EXPECT_EQ(10001, api.Login("demo", "pw", 5));
    EXPECT_EQ(0, api.IsLogin());
    EXPECT_EQ("", api.strToken);
    EXPECT_EQ(2, api.iLoginType);
    LogIn();
    EXPECT_EQ(10005, api.Login("demo", "", 0));
    EXPECT_EQ(10005, api.Login(nullptr, "pw", 0));
    EXPECT_EQ(0, api.IsLogin());
    EXPECT_EQ(0u, server.requestCount());
    EXPECT_EQ(-1, LastErrorCode());

    // A second login the server refuses still ends the first session here.
    LogIn("first");
    server.queueReply(JsonReply(R"({"errCode":1002,"msg":"wrong password","token":"x"})"));
    EXPECT_EQ(1002, api.Login("demo", "bad", 2));
    EXPECT_EQ(0, api.IsLogin());
    EXPECT_EQ("", api.strToken);
    EXPECT_EQ("demo", api.strUserName);  // kept from the last successful login
    EXPECT_EQ(1002, LastErrorCode());
    server.queueReply(JsonReply("<html>"));
    EXPECT_EQ(10003, api.Login("demo", "pw", 2));
    EXPECT_EQ(0, api.IsLogin());

    // Logout: a refusal keeps the session, success ends it.
    LogIn("live");
    server.queueReply(JsonReply(R"({"errCode":1,"msg":"no"})"));
    EXPECT_EQ(1, api.Logout());
    EXPECT_EQ(form + "&token=live", server.lastRequest().body);
    EXPECT_EQ("/api/logout", server.lastRequest().target);
    EXPECT_EQ(1, api.IsLogin());
    server.queueReply(Reply(500, "down"));
    EXPECT_EQ(500, api.Logout());
    EXPECT_EQ("live", api.strToken);
    server.queueReply(JsonReply(R"({"errCode":0})"));
    EXPECT_EQ(0, api.Logout());
    EXPECT_EQ(0, api.IsLogin());
    EXPECT_EQ("", api.strToken);

    const std::string log = env.readLog();
    EXPECT_NE(std::string::npos, log.find("<KXSeal ["));
    EXPECT_NE(std::string::npos,
              log.find("- CKXSealOpenApi::Login> <\"user:demo, nLoginType:5\">"));
    EXPECT_NE(std::string::npos, log.find("- CKXSealOpenApi::Logout> <\"lRes:1\">"));
    EXPECT_NE(std::string::npos, log.find("- CKXSealOpenApi::IsLogin> <\"bRes:0\">"));
}

TEST_F(SealOpenApiTest, SealListRequestsAndOutcomes) {
    InitWithoutDiscovery();
    LogIn("T");
    const std::string equip = EquipId();
    std::vector<_seal_Info_s> list(3);

    server.queueReply(JsonReply(R"({"errCode":0,"seals":[]})"));
    EXPECT_EQ(10006, api.GetSealList(0, "", list));
    RecordedRequest req = server.lastRequest();
    EXPECT_EQ("/api/seals", req.target);
    EXPECT_EQ("application/json", req.header("Content-Type"));
    EXPECT_EQ("{\"equipId\":\"" + equip + "\",\"token\":\"T\"}\n", req.body);
    EXPECT_TRUE(list.empty());

    server.queueReply(JsonReply(R"({"errCode":0})"));
    EXPECT_EQ(10006, api.GetSealList(7, "5A\xD5", list));
    EXPECT_EQ(
        "{\"certSerial\":\"5A\xD5\",\"equipId\":\"" + equip + "\",\"sealId\":7,\"token\":\"T\"}\n",
        server.lastRequest().body);
    for (const char* notArray :
         {R"({"errCode":0,"seals":{"a":1}})", R"({"errCode":0,"seals":"x"})"}) {
        server.queueReply(JsonReply(notArray));
        EXPECT_EQ(10006, api.GetSealList(0, nullptr, list)) << notArray;
    }

    const std::string good = SealDoc(FullSealXml("es-1"));
    const std::string good2 = SealDoc(FullSealXml("es-2"), "Other");
    server.queueReply(JsonReply(R"({"errCode":0,"seals":[{"certB64":"CB","data":")" + good +
                                R"(","sesealId":"9","type":1,"certId":"12"},{"data":")" + good2 +
                                R"(","type":"bad","certId":5}]})"));
    ASSERT_EQ(0, api.GetSealList(0, "", list));
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ("CB", list[0].certB64);
    EXPECT_EQ(good, list[0].sealData);
    EXPECT_EQ("es-1", list[0].sealId);  // the document's esID wins over sesealId
    EXPECT_EQ(3, list[0].sealType);     // and its type over the element's
    EXPECT_EQ("12", list[0].certId);
    EXPECT_EQ("\xB9\xAB\xD5\xC2", list[0].sealName);
    EXPECT_EQ("es-2", list[1].sealId);
    EXPECT_EQ("5", list[1].certId);

    // The first seal unreadable: 10010 whatever the parser said.
    server.queueReply(JsonReply(R"({"errCode":0,"seals":[{"data":""},{"data":")" + good + "\"}]}"));
    EXPECT_EQ(10010, api.GetSealList(0, "", list));
    EXPECT_TRUE(list.empty());
    server.queueReply(JsonReply(R"({"errCode":0,"seals":[7]})"));
    EXPECT_EQ(10010, api.GetSealList(0, "", list));
    // A later one: the parser's code, earlier seals kept, the loop stopped.
    server.queueReply(JsonReply(R"({"errCode":0,"seals":[{"data":")" + good +
                                R"("},{"data":""},{"data":")" + good2 + "\"}]}"));
    EXPECT_EQ(10005, api.GetSealList(0, "", list));
    ASSERT_EQ(1u, list.size());
    EXPECT_EQ("es-1", list[0].sealId);
    server.queueReply(JsonReply(R"({"errCode":0,"seals":[{"data":")" + good + R"("},{"data":")" +
                                SealDoc("<SealInfo/>") + "\"}]}"));
    EXPECT_EQ(10010, api.GetSealList(0, "", list));
    EXPECT_EQ(1u, list.size());
    EXPECT_NE(std::string::npos,
              env.readLog().find("- CKXSealOpenApi::OnGetSealList> <\"lRes:10005\">"));

    server.queueReply(JsonReply(R"({"errCode":3,"msg":"token expired","seals":[]})"));
    EXPECT_EQ(3, api.GetSealList(0, "", list));
    EXPECT_TRUE(list.empty());
    server.queueReply(JsonReply(R"([{"errCode":0}])"));
    EXPECT_EQ(10003, api.GetSealList(0, "", list));
    server.queueReply(Reply(401, ""));
    list.resize(2);
    EXPECT_EQ(401, api.GetSealList(0, "", list));
    EXPECT_TRUE(list.empty());
}

TEST_F(SealOpenApiTest, SignHashAndReportSignResult) {
    InitWithoutDiscovery();
    const std::string equip = EquipId();

    // Without a session: an empty token, and the digest of the equipment id alone.
    std::string sig = "old";
    server.queueReply(JsonReply(R"({"errCode":0,"signResult":"U0lH"})"));
    EXPECT_EQ(0, api.SignHash("aGFzaA==", "p\xD5\xC5", sig));
    EXPECT_EQ("U0lH", sig);
    RecordedRequest req = server.lastRequest();
    EXPECT_EQ("/api/sign", req.target);
    EXPECT_EQ("{\"equipId\":\"" + equip + "\",\"hash\":\"aGFzaA==\",\"md5\":\"" + Md5Hex(equip) +
                  "\",\"signPwd\":\"p\xD5\xC5\",\"token\":\"\"}\n",
              req.body);

    LogIn("TK");
    const std::string md5 = Md5Hex(equip + "TK");
    server.queueReply(JsonReply(R"({"errCode":0})"));
    EXPECT_EQ(0, api.SignHash("", "", sig));
    EXPECT_EQ("", sig);  // accepted without a signature
    EXPECT_NE(std::string::npos, server.lastRequest().body.find("\"md5\":\"" + md5 + "\""));

    sig = "kept";
    server.queueReply(
        JsonReply(R"({"errCode":1005,"msg":"wrong sign password","signResult":"x"})"));
    EXPECT_EQ(1005, api.SignHash("aA==", "bad", sig));
    EXPECT_EQ("kept", sig);
    EXPECT_EQ(1005, LastErrorCode());
    server.queueReply(JsonReply("{\"errCode\":0,"));
    EXPECT_EQ(10003, api.SignHash("aA==", "pin", sig));
    EXPECT_EQ("kept", sig);

    const size_t before = server.requestCount();
    EXPECT_EQ(10005, api.SignHash(nullptr, "pin", sig));
    EXPECT_EQ(10005, api.SignHash("aA==", nullptr, sig));
    EXPECT_EQ(10005, api.ReportSignResult("t", "d", "h", "c", "s", "1", nullptr));
    EXPECT_EQ(10005, api.ReportSignResult(nullptr, "d", "h", "c", "s", "1", "2"));
    EXPECT_EQ(before, server.requestCount());
    EXPECT_EQ("kept", sig);

    server.queueReply(JsonReply(R"({"errCode":0,"logId":1})"));
    EXPECT_EQ(0, api.ReportSignResult("1700000000", "\xBA\xCF.pdf", "SEFTSA==", "", "U0lH", "12",
                                      "es-1"));
    req = server.lastRequest();
    EXPECT_EQ("/api/log", req.target);
    EXPECT_EQ(
        "{\"certId\":12,\"docContent\":\"\",\"docHash\":\"SEFTSA==\",\"docName\":\"\xBA\xCF"
        ".pdf\",\"equipId\":\"" +
            equip + "\",\"md5\":\"" + md5 +
            "\",\"sealId\":\"es-1\",\"signInfo\":\"U0lH\",\"timestamp\":\"1700000000\","
            "\"token\":\"TK\"}\n",
        req.body);
    server.queueReply(JsonReply(R"({"errCode":0})"));
    EXPECT_EQ(0, api.ReportSignResult("t", "d", "h", "c", "s", "no number", "7"));
    EXPECT_NE(std::string::npos, server.lastRequest().body.find("\"certId\":0,"));
    server.queueReply(JsonReply(R"({"errCode":9,"msg":"log refused"})"));
    EXPECT_EQ(9, api.ReportSignResult("t", "d", "h", "c", "s", "1", "7"));
    server.queueReply(JsonReply(R"({"msg":"no code"})"));
    EXPECT_EQ(10027, api.ReportSignResult("t", "d", "h", "c", "s", "1", "7"));
}

TEST_F(SealOpenApiTest, PrintCountsAtTheSealManagementServer) {
    InitWithoutDiscovery();
    LogIn("PT");
    PrintCtrlHelper* helper = &api;  // reached through the print-control interface
    int total = -1;
    int remain = -1;

    server.queueReply(JsonReply(R"({"errCode":0,"printCount":3,"printTotalCount":9})"));
    EXPECT_EQ(0, helper->QueryPrintInfo("P-1", total, remain));
    EXPECT_EQ(3, remain);
    EXPECT_EQ(9, total);
    RecordedRequest req = server.lastRequest();
    EXPECT_EQ("/pm/get", req.target);
    EXPECT_EQ("{\"printId\":\"P-1\",\"token\":\"PT\"}\n", req.body);

    server.queueReply(JsonReply(R"({"errCode":0})"));
    EXPECT_EQ(0, helper->QueryPrintInfo("P-1", total, remain));
    EXPECT_EQ(0, remain);
    EXPECT_EQ(0, total);
    server.queueReply(JsonReply(R"({"errCode":0,"printCount":"4","printTotalCount":[1]})"));
    total = remain = -1;
    EXPECT_EQ(0, helper->QueryPrintInfo("P-1", total, remain));
    EXPECT_EQ(0, remain);
    EXPECT_EQ(0, total);

    total = remain = -1;
    server.queueReply(JsonReply(R"({"errCode":1007,"msg":"no such print id","printCount":1})"));
    EXPECT_EQ(1007, helper->QueryPrintInfo("P-9", total, remain));
    server.queueReply(JsonReply("null"));
    EXPECT_EQ(10003, helper->QueryPrintInfo("P-9", total, remain));
    EXPECT_EQ(-1, remain);
    EXPECT_EQ(-1, total);

    server.queueReply(JsonReply(R"({"errCode":0})"));
    EXPECT_EQ(0, helper->UpdatePrintInfo("P-1", 4));
    req = server.lastRequest();
    EXPECT_EQ("/pm/update", req.target);
    EXPECT_EQ("{\"printCount\":4,\"printId\":\"P-1\",\"token\":\"PT\"}\n", req.body);
    server.queueReply(JsonReply(R"({"errCode":1008,"msg":"too many"})"));
    EXPECT_EQ(1008, helper->UpdatePrintInfo("P-1", 99));

    const std::string log = env.readLog();
    EXPECT_NE(std::string::npos, log.find("- CKXSealOpenApi::QueryPrintInfo> <\"sPrintID::P-9\">"));
    EXPECT_NE(std::string::npos,
              log.find("- CKXSealOpenApi::QueryPrintInfo> <\"lRes:1007, iRemain:-1, iTotal:-1\">"));
    EXPECT_NE(std::string::npos,
              log.find("- CKXSealOpenApi::UpdatePrintInfo> <\"lRes:0, iRemain:4\">"));

    // Copies carry the session and the version.
    api.Version = 1;
    CKXSealOpenApi copy(api);
    EXPECT_EQ(1, copy.Version);
    EXPECT_EQ("PT", copy.strToken);
    EXPECT_EQ("/pm/get", copy.strGetPrintCount);
    CKXSealOpenApi assigned;
    assigned = copy;
    EXPECT_EQ(1, assigned.IsLogin());
    EXPECT_EQ(info.ProjectID, assigned.m_stInitInfo.ProjectID);
}

TEST(XmlSealParser, Cases) {
    _seal_Info_s seal;
    seal.certB64 = "preset";
    seal.sealDataType = 5;
    ASSERT_EQ(0, KX_PraseXMLSeal(SealDoc(FullSealXml("es-7")).c_str(), seal));
    EXPECT_EQ("es-7", seal.sealId);
    EXPECT_EQ("\xB9\xAB\xD5\xC2", seal.sealName);
    EXPECT_EQ("CERTB64", seal.cert);
    EXPECT_EQ(3, seal.sealType);
    EXPECT_EQ("UElD", seal.picData);  // not decoded
    EXPECT_EQ("png", seal.picType);
    EXPECT_EQ(120, seal.width);
    EXPECT_EQ(80, seal.height);
    EXPECT_EQ(0, seal.sealDataType);
    EXPECT_EQ("preset", seal.certB64);

    // No name: parses, and the name stays as it was.
    _seal_Info_s noName;
    noName.sealName = "before";
    std::string xml = FullSealXml();
    xml.erase(xml.find("<name>"), xml.find("</name>") + 7 - xml.find("<name>"));
    EXPECT_EQ(0, KX_PraseXMLSeal(SealDoc(xml).c_str(), noName));
    EXPECT_EQ("before", noName.sealName);

    // An empty width counts as absent; what was read before it stays set.
    _seal_Info_s partial;
    EXPECT_EQ(10010, KX_PraseXMLSeal(SealDoc(FullSealXml("es-8", "")).c_str(), partial));
    EXPECT_EQ("es-8", partial.sealId);
    EXPECT_EQ("CERTB64", partial.cert);
    EXPECT_EQ("png", partial.picType);
    EXPECT_EQ(0, partial.height);
    partial.sealDataType = 5;
    EXPECT_EQ(10010, KX_PraseXMLSeal(SealDoc(FullSealXml("es-9", "<b/>")).c_str(), partial));
    EXPECT_EQ(5, partial.sealDataType);

    _seal_Info_s wide;
    EXPECT_EQ(0, KX_PraseXMLSeal(SealDoc(FullSealXml("es-1", "wide")).c_str(), wide));
    EXPECT_EQ(0, wide.width);
    // Only the first element of a name counts.
    EXPECT_EQ(0,
              KX_PraseXMLSeal(SealDoc(FullSealXml("first") + FullSealXml("second")).c_str(), wide));
    EXPECT_EQ("first", wide.sealId);

    _seal_Info_s untouched;
    untouched.sealId = "same";
    EXPECT_EQ(10005, KX_PraseXMLSeal(nullptr, untouched));
    EXPECT_EQ(10005, KX_PraseXMLSeal("", untouched));
    const std::string bad[] = {"!!!not base64!!!",
                               IWK_Base64Encode("plain text, no XML"),
                               IWK_Base64Encode("<a><b>"),
                               SealDoc("<Info/>"),
                               SealDoc("<SealInfo><PropertyInfo/></SealInfo>"),
                               SealDoc("<SealInfo><esID></esID></SealInfo>")};
    for (const std::string& doc : bad) {
        EXPECT_EQ(10010, KX_PraseXMLSeal(doc.c_str(), untouched)) << doc;
    }
    EXPECT_EQ("same", untouched.sealId);
    // Required picture elements, each missing in turn.
    for (const char* element : {"<data>UElD</data>", "<type>png</type>", "<height>80</height>",
                                "<cert>CERTB64</cert>", "<type>3</type>"}) {
        std::string doc = FullSealXml();
        doc.erase(doc.find(element), std::string(element).size());
        _seal_Info_s s;
        EXPECT_EQ(10010, KX_PraseXMLSeal(SealDoc(doc).c_str(), s)) << element;
    }
}
