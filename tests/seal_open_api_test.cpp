// CKXSealOpenApi against a loopback server: the bytes of every request, the
// configuration written back by discovery, the login state machine, the seal
// list outcomes, hash signing, the sign log, print counts and bad replies.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <string>
#include <vector>

#include "KXSealOpenApi.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "LoopbackServer.h"
#include "TempEnv.h"

using kxtest::LoopbackServer;
using kxtest::MarkLastError;
using kxtest::RecordedRequest;
using kxtest::Reply;

namespace {

const char kDiscovery[] = "/kxmonitor/rest/app!getAPIInfo";

// Lower-case hex MD5, made here with OpenSSL rather than the platform layer.
std::string Md5Hex(const std::string& text) {
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(text.data(), text.size(), md, &length, EVP_md5(), nullptr);
    std::string hex;
    for (unsigned int i = 0; i < length; ++i) {
        hex += "0123456789abcdef"[md[i] >> 4];
        hex += "0123456789abcdef"[md[i] & 15];
    }
    return hex;
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

// The fields the seal readers fill, in one line.
std::string Fields(const _seal_Info_s& s) {
    return s.sealId + "|" + s.sealName + "|" + s.cert + "|" + std::to_string(s.sealType) + "|" +
           s.picData + "|" + s.picType + "|" + std::to_string(s.width) + "|" +
           std::to_string(s.height) + "|" + std::to_string(s.sealDataType) + "|" + s.certB64 + "|" +
           s.certId;
}

long LastErrorCode() {
    long code = 0;
    std::string text;
    IWK_GetLastError(code, text);
    return code;
}

void ExpectLogHas(const std::string& log, std::initializer_list<const char*> lines) {
    for (const char* line : lines) EXPECT_NE(std::string::npos, log.find(line)) << line;
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
        MarkLastError();
    }

    // Endpoints from configuration alone, no discovery request.
    void InitWithoutDiscovery() {
        ASSERT_TRUE(env.set("OpenApiURL", "sealManagePort", std::to_string(server.port())));
        for (const std::string kv : {"ServerFlag=1", "LoginUrl=/api/login", "LogoutUrl=/api/logout",
                                     "GetSealListUrl=/api/seals", "SignHashUrl=/api/sign",
                                     "SaveSignLogUrl=/api/log", "getPrintCount=/pm/get",
                                     "updatePrint=/pm/update", "sealManageHost=http://127.0.0.1"}) {
            const size_t eq = kv.find('=');
            ASSERT_TRUE(env.set("OpenApiURL", kv.substr(0, eq), kv.substr(eq + 1)));
        }
        ASSERT_EQ(0, api.Init(info));
        ASSERT_EQ(0u, server.requestCount());
    }

    void LogIn(const std::string& token = "T0K") {
        ASSERT_EQ(0, On(R"({"errCode":0,"token":")" + token + "\"}").Login("demo", "pw", 2));
        server.clearRequests();
    }

    std::string EquipId() const { return Md5Hex(IWK_GetMacAddress()); }
    // Login state and token.
    std::string Session() { return std::to_string(api.IsLogin()) + ":" + api.strToken; }
    // Target and body of the last request.
    std::string Sent() const {
        const RecordedRequest req = server.lastRequest();
        return req.target + " " + req.body;
    }
    // The object, with this reply queued for its next request.
    CKXSealOpenApi& On(const std::string& reply, int status = 200) {
        server.queueReply(Reply(status, reply, "application/json"));
        return api;
    }

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
        return Reply(200,
                     R"({"errCode":0,"host":"http://h.example","port":"8443","loginUrl":"/in",)"
                     R"("logoutUrl":"","getSealListUrl":"/list","signHashUrl":"/sign",)"
                     R"("saveSignLogUrl":"/log","ConvertDocUrl":"/conv","sealManageHost":"x"})",
                     "application/json");
    });
    ASSERT_EQ(0, api.Init(info));

    ASSERT_EQ(1u, server.requestCount());
    EXPECT_EQ("POST", server.lastRequest().method);
    EXPECT_EQ("application/x-www-form-urlencoded", server.lastRequest().header("Content-Type"));
    const std::string mac = IWK_GetMacAddress();
    EXPECT_EQ(std::string(kDiscovery) + " project_id=pid&project_secret=psec&mac=" + mac +
                  "&equipId=" + Md5Hex(mac),
              Sent());
    EXPECT_EQ(Md5Hex(mac), api.strEquipId);
    EXPECT_EQ("http://h.example", api.strHost);
    // An empty value changes nothing; sealManageHost is never taken from a reply.
    std::string value;
    for (const std::string kv :
         {"Host=http://h.example", "Port=8443", "LoginUrl=/in", "LogoutUrl=/kept",
          "GetSealListUrl=/list", "SignHashUrl=/sign", "SaveSignLogUrl=/log",
          "convertToPdfUrl=/conv", "sealManageHost=mgr.example", "ConvertDocUrl=absent"}) {
        const size_t eq = kv.find('=');
        IWK_GetConfigByKey("OpenApiURL", kv.substr(0, eq), value, "absent");
        EXPECT_EQ(kv.substr(eq + 1), value) << kv;
    }

    // An InitUrl naming getAPIInfo goes out unchanged.
    ASSERT_TRUE(env.set("OpenApiURL", "InitUrl", server.url("/other/app!getAPIInfo?v=2")));
    On(R"({"errCode":0})");
    CKXSealOpenApi second;
    EXPECT_EQ(0, second.Init(info));
    EXPECT_EQ("/other/app!getAPIInfo?v=2", server.lastRequest().target);
    EXPECT_EQ("", second.strHost);
}

TEST_F(SealOpenApiTest, InitFailures) {
    ASSERT_TRUE(env.set("OpenApiURL", "InitUrl", server.baseUrl()));
    ASSERT_TRUE(env.set("OpenApiURL", "LoginUrl", "/cfg-login"));

    _init_Info_s incomplete = info;
    incomplete.ProjectID.clear();
    EXPECT_EQ(10001, api.Init(incomplete));
    EXPECT_EQ(0u, server.requestCount());
    EXPECT_EQ("", api.strLoginUrl);  // no configuration read

    EXPECT_EQ(42, On(R"({"errCode":42,"msg":"project disabled","host":"h"})").Init(info));
    EXPECT_EQ(42, LastErrorCode());
    EXPECT_EQ("/cfg-login", api.strLoginUrl);
    EXPECT_EQ("", api.strHost);
    EXPECT_FALSE(api.strEquipId.empty());

    // A reply that cannot be read sets no last error.
    MarkLastError();
    for (const char* bad : {"not json", "[1]"}) EXPECT_EQ(10003, On(bad).Init(info)) << bad;
    EXPECT_EQ(-1, LastErrorCode());
    for (const char* bad : {R"({"host":"h"})", R"({"errCode":"0"})", R"({"errCode":1e20})"}) {
        EXPECT_EQ(10027, On(bad).Init(info)) << bad;
    }
    EXPECT_EQ("", api.strHost);
    EXPECT_EQ(503, On("busy", 503).Init(info));

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
    const std::string form = "project_id=pid&project_secret=psec&equipId=" + EquipId();
    const std::string longPwd(5000, 'p');  // goes out whole
    // Types 0 and 3 send the password's MD5, 1 escapes both, 2 sends both as they are.
    const struct {
        int type;
        std::string user, pwd, sent;
    } forms[] = {{0, "demo", "s3cret", "username=demo&userpwd=" + Md5Hex("s3cret")},
                 {3, "demo", "s3cret", "username=demo&userpwd=" + Md5Hex("s3cret")},
                 {1, "a b&\xD5\xC5", "p=w%", "username=a%20b%26%D5%C5&userpwd=p%3Dw%25"},
                 {2, "u", longPwd, "username=u&userpwd=" + longPwd}};
    for (const auto& f : forms) {
        EXPECT_EQ(0, On(R"({"errCode":0,"token":"tok-)" + f.user + "\"}")
                         .Login(f.user.c_str(), f.pwd.c_str(), f.type));
        EXPECT_EQ("/api/login " + form + "&" + f.sent + "&loginType=" + std::to_string(f.type) +
                      "&response_type=post",
                  Sent());
        EXPECT_EQ("1:tok-" + f.user, Session());
        EXPECT_EQ(f.user, api.strUserName);
        EXPECT_EQ(f.pwd, api.strUserPwd);  // the plain text, whatever was sent
    }
    EXPECT_EQ(0, On(R"({"errCode":0})").Login("u", "p", 2));
    EXPECT_EQ("1:", Session());  // accepted without a token

    // Refused locally: the session is dropped and nothing is sent.
    LogIn();
    EXPECT_EQ(10001, api.Login("demo", "pw", 5));
    EXPECT_EQ("0:", Session());
    EXPECT_EQ(2, api.iLoginType);
    LogIn();
    EXPECT_EQ(10005, api.Login("demo", "", 0));
    EXPECT_EQ(10005, api.Login(nullptr, "pw", 0));
    EXPECT_EQ(0, api.IsLogin());
    EXPECT_EQ(0u, server.requestCount());
    EXPECT_EQ(-1, LastErrorCode());

    // A second login the server refuses still ends the first session here.
    LogIn("first");
    EXPECT_EQ(1002,
              On(R"({"errCode":1002,"msg":"wrong password","token":"x"})").Login("demo", "bad", 2));
    EXPECT_EQ("0:", Session());
    EXPECT_EQ("pw", api.strUserPwd);  // kept from the last successful login
    EXPECT_EQ(1002, LastErrorCode());
    EXPECT_EQ(10003, On("<html>").Login("demo", "pw", 2));

    // Logout: a refusal keeps the session, success ends it.
    LogIn("live");
    EXPECT_EQ(1, On(R"({"errCode":1,"msg":"no"})").Logout());
    EXPECT_EQ("/api/logout " + form + "&token=live", Sent());
    EXPECT_EQ(500, On("down", 500).Logout());
    EXPECT_EQ("1:live", Session());
    EXPECT_EQ(0, On(R"({"errCode":0})").Logout());
    EXPECT_EQ("0:", Session());

    ExpectLogHas(env.readLog(),
                 {"<KXSeal [", "- CKXSealOpenApi::Login> <\"user:demo, nLoginType:5\">"});
}

TEST_F(SealOpenApiTest, SealListRequestsAndOutcomes) {
    InitWithoutDiscovery();
    LogIn("T");
    const std::string equip = EquipId();
    std::vector<_seal_Info_s> list(3);

    EXPECT_EQ(10006, On(R"({"errCode":0,"seals":[]})").GetSealList(0, "", list));
    EXPECT_EQ("application/json", server.lastRequest().header("Content-Type"));
    EXPECT_EQ("/api/seals {\"equipId\":\"" + equip + "\",\"token\":\"T\"}\n", Sent());
    EXPECT_TRUE(list.empty());

    EXPECT_EQ(10006, On(R"({"errCode":0})").GetSealList(7, "5A\xD5", list));
    EXPECT_EQ(
        "{\"certSerial\":\"5A\xD5\",\"equipId\":\"" + equip + "\",\"sealId\":7,\"token\":\"T\"}\n",
        server.lastRequest().body);
    EXPECT_EQ(10006, On(R"({"errCode":0,"seals":{"a":1}})").GetSealList(0, nullptr, list));

    const std::string good = SealDoc(FullSealXml("es-1"));
    const std::string good2 = SealDoc(FullSealXml("es-2"), "Other");
    ASSERT_EQ(0, On(R"({"errCode":0,"seals":[{"certB64":"CB","data":")" + good +
                    R"(","sesealId":"9","type":1,"certId":"12"},{"data":")" + good2 +
                    R"(","type":"bad","certId":5}]})")
                     .GetSealList(0, "", list));
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ(good, list[0].sealData);
    // The document's esID wins over sesealId, and its type over the element's.
    EXPECT_EQ("es-1|\xB9\xAB\xD5\xC2|CERTB64|3|UElD|png|120|80|0|CB|12", Fields(list[0]));
    EXPECT_EQ("es-2|\xB9\xAB\xD5\xC2|CERTB64|3|UElD|png|120|80|0||5", Fields(list[1]));

    // The first seal unreadable: 10010 whatever the parser said; a later one:
    // the parser's code, earlier seals kept, the loop stopped.
    const struct {
        std::string seals;
        long code;
        size_t kept;
    } partial[] = {
        {R"({"data":""},{"data":")" + good + "\"}", 10010, 0},
        {"7", 10010, 0},
        {"{\"data\":\"" + good + R"("},{"data":""},{"data":")" + good2 + "\"}", 10005, 1},
        {"{\"data\":\"" + good + "\"},{\"data\":\"" + SealDoc("<SealInfo/>") + "\"}", 10010, 1}};
    for (const auto& p : partial) {
        EXPECT_EQ(p.code, On(R"({"errCode":0,"seals":[)" + p.seals + "]}").GetSealList(0, "", list))
            << p.seals;
        ASSERT_EQ(p.kept, list.size()) << p.seals;
        if (p.kept) {
            EXPECT_EQ("es-1", list[0].sealId);
        }
    }
    ExpectLogHas(env.readLog(), {"- CKXSealOpenApi::OnGetSealList> <\"lRes:10005\">"});

    EXPECT_EQ(3, On(R"({"errCode":3,"msg":"token expired","seals":[]})").GetSealList(0, "", list));
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(10003, On(R"([{"errCode":0}])").GetSealList(0, "", list));
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
    EXPECT_EQ(0, On(R"({"errCode":0,"signResult":"U0lH"})").SignHash("aGFzaA==", "p\xD5\xC5", sig));
    EXPECT_EQ("U0lH", sig);
    EXPECT_EQ("/api/sign {\"equipId\":\"" + equip + "\",\"hash\":\"aGFzaA==\",\"md5\":\"" +
                  Md5Hex(equip) + "\",\"signPwd\":\"p\xD5\xC5\",\"token\":\"\"}\n",
              Sent());

    LogIn("TK");
    const std::string md5 = Md5Hex(equip + "TK");
    EXPECT_EQ(0, On(R"({"errCode":0})").SignHash("", "", sig));
    EXPECT_EQ("", sig);  // accepted without a signature
    EXPECT_NE(std::string::npos, server.lastRequest().body.find("\"md5\":\"" + md5 + "\""));

    sig = "kept";
    EXPECT_EQ(1005, On(R"({"errCode":1005,"msg":"wrong sign password","signResult":"x"})")
                        .SignHash("aA==", "bad", sig));
    EXPECT_EQ(1005, LastErrorCode());
    EXPECT_EQ(10003, On("{\"errCode\":0,").SignHash("aA==", "pin", sig));

    const size_t before = server.requestCount();
    EXPECT_EQ(10005, api.SignHash(nullptr, "pin", sig));
    EXPECT_EQ(10005, api.SignHash("aA==", nullptr, sig));
    EXPECT_EQ(10005, api.ReportSignResult("t", "d", "h", "c", "s", "1", nullptr));
    EXPECT_EQ(10005, api.ReportSignResult(nullptr, "d", "h", "c", "s", "1", "2"));
    EXPECT_EQ(before, server.requestCount());
    EXPECT_EQ("kept", sig);

    EXPECT_EQ(0, On(R"({"errCode":0,"logId":1})")
                     .ReportSignResult("1700000000", "\xBA\xCF.pdf", "SEFTSA==", "", "U0lH", "12",
                                       "es-1"));
    EXPECT_EQ(
        "/api/log "
        "{\"certId\":12,\"docContent\":\"\",\"docHash\":\"SEFTSA==\",\"docName\":\"\xBA\xCF"
        ".pdf\",\"equipId\":\"" +
            equip + "\",\"md5\":\"" + md5 +
            "\",\"sealId\":\"es-1\",\"signInfo\":\"U0lH\",\"timestamp\":\"1700000000\","
            "\"token\":\"TK\"}\n",
        Sent());
    EXPECT_EQ(0,
              On(R"({"errCode":0})").ReportSignResult("t", "d", "h", "c", "s", "no number", "7"));
    EXPECT_NE(std::string::npos, server.lastRequest().body.find("\"certId\":0,"));
    EXPECT_EQ(9, On(R"({"errCode":9,"msg":"log refused"})")
                     .ReportSignResult("t", "d", "h", "c", "s", "1", "7"));
    EXPECT_EQ(10027,
              On(R"({"msg":"no code"})").ReportSignResult("t", "d", "h", "c", "s", "1", "7"));
}

TEST_F(SealOpenApiTest, PrintCountsAtTheSealManagementServer) {
    InitWithoutDiscovery();
    LogIn("PT");
    PrintCtrlHelper* helper = &api;  // reached through the print-control interface
    int total = -1, remain = -1;

    On(R"({"errCode":0,"printCount":3,"printTotalCount":9})");
    EXPECT_EQ(0, helper->QueryPrintInfo("P-1", total, remain));
    EXPECT_EQ("3/9", std::to_string(remain) + "/" + std::to_string(total));
    EXPECT_EQ("/pm/get {\"printId\":\"P-1\",\"token\":\"PT\"}\n", Sent());
    // Absent or wrong-typed counts read as 0.
    for (const char* reply :
         {R"({"errCode":0})", R"({"errCode":0,"printCount":"4","printTotalCount":[1]})"}) {
        total = remain = -1;
        EXPECT_EQ(0, On(reply).QueryPrintInfo("P-1", total, remain));
        EXPECT_EQ("0/0", std::to_string(remain) + "/" + std::to_string(total));
    }
    total = remain = -1;
    EXPECT_EQ(1007, On(R"({"errCode":1007,"msg":"no such print id","printCount":1})")
                        .QueryPrintInfo("P-9", total, remain));
    EXPECT_EQ(10003, On("null").QueryPrintInfo("P-9", total, remain));
    EXPECT_EQ("-1/-1", std::to_string(remain) + "/" + std::to_string(total));

    EXPECT_EQ(0, On(R"({"errCode":0})").UpdatePrintInfo("P-1", 4));
    EXPECT_EQ("/pm/update {\"printCount\":4,\"printId\":\"P-1\",\"token\":\"PT\"}\n", Sent());
    EXPECT_EQ(1008, On(R"({"errCode":1008,"msg":"too many"})").UpdatePrintInfo("P-1", 99));
    ExpectLogHas(env.readLog(),
                 {"- CKXSealOpenApi::QueryPrintInfo> <\"sPrintID::P-9\">",
                  "- CKXSealOpenApi::QueryPrintInfo> <\"lRes:1007, iRemain:-1, iTotal:-1\">",
                  "- CKXSealOpenApi::UpdatePrintInfo> <\"lRes:0, iRemain:4\">"});

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
    // The picture data is not decoded; certB64 is not the parser's.
    EXPECT_EQ("es-7|\xB9\xAB\xD5\xC2|CERTB64|3|UElD|png|120|80|0|preset|", Fields(seal));

    // No name: parses, and the name stays as it was.
    _seal_Info_s noName;
    noName.sealName = "before";
    std::string xml = FullSealXml();
    xml.erase(xml.find("<name>"), xml.find("</name>") + 7 - xml.find("<name>"));
    EXPECT_EQ(0, KX_PraseXMLSeal(SealDoc(xml).c_str(), noName));
    EXPECT_EQ("before", noName.sealName);

    // An empty width counts as absent; what was read before it stays set.
    _seal_Info_s partial;
    partial.sealDataType = 5;
    EXPECT_EQ(10010, KX_PraseXMLSeal(SealDoc(FullSealXml("es-8", "")).c_str(), partial));
    EXPECT_EQ("es-8|\xB9\xAB\xD5\xC2|CERTB64|3|UElD|png|0|0|5||", Fields(partial));
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
    // Required elements, each missing in turn.
    for (const char* element : {"<data>UElD</data>", "<type>png</type>", "<height>80</height>",
                                "<cert>CERTB64</cert>", "<type>3</type>"}) {
        std::string doc = FullSealXml();
        doc.erase(doc.find(element), std::string(element).size());
        EXPECT_EQ(10010, KX_PraseXMLSeal(SealDoc(doc).c_str(), seal)) << element;
    }
}
