// CKXSealOpenApi on the fake transport: the bytes of every request, the
// configuration written back by discovery, the login state machine, the seal
// list outcomes, hash signing, the sign log and print counts; and the parser
// of one seal's XML document.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FakeTransport.h"
#include "KXSealOpenApi.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "TempEnv.h"

using kxtest::LastError;
using kxtest::MarkLastError;

namespace {

const char kMarked[] = "-1 marker";

// Hex MD5 through the platform layer, whose digest is held to known values
// in its own test.
std::string Md5Hex(const std::string& text) {
    return IWK_CharToHex(IWK_Digest(text, KX_HASH_MD5));
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

class SealOpenApiTest : public ::testing::Test {
protected:
    void SetUp() override {
        info.SerType = 3;
        info.ProjectID = "pid";
        info.ProjectSecret = "psec";
        info.ServerIp = "http://s";
        info.Port = 1;
        MarkLastError();
    }

    // Endpoints from configuration alone (no discovery request), then a
    // session with this token unless it is empty.
    void Start(const std::string& token) {
        env.writeConfig(
            "[OpenApiURL]\nServerFlag=1\nLoginUrl=/in\nLogoutUrl=/out\nGetSealListUrl=/seals\n"
            "SignHashUrl=/sign\nSaveSignLogUrl=/log\nsealManageHost=http://m\nsealManagePort=2\n"
            "getPrintCount=/get\nupdatePrint=/set\n");
        ASSERT_EQ(0, api.Init(info));
        ASSERT_EQ(0u, fake.requestCount());
        if (!token.empty()) LogIn(token);
    }
    void LogIn(const std::string& token) {
        ASSERT_EQ(0, On(R"({"errCode":0,"token":")" + token + "\"}").Login("demo", "pw", 2));
    }
    // The object, with this reply queued for its next request.
    CKXSealOpenApi& On(const std::string& reply, int status = 200) {
        fake.reply(status, reply);
        return api;
    }
    // URL and body of the last request, a POST without head: its one header
    // line names the body's type.
    std::string Sent() const {
        const KXWireRequest req = fake.lastRequest();
        const bool json = req.body.compare(0, 1, "{") == 0;
        EXPECT_EQ("POST", req.method);
        EXPECT_EQ(
            std::vector<std::string>{json ? "Content-Type: application/json"
                                          : "Content-Type: application/x-www-form-urlencoded"},
            req.headers);
        return req.url + " " + req.body;
    }
    // Login state, token, user and password; the last error unless it is the marker.
    std::string Session() {
        const std::string error = LastError();
        return std::to_string(api.IsLogin()) + ":" + api.strToken + " " + api.strUserName + "/" +
               api.strUserPwd + (error == kMarked ? "" : " " + error);
    }
    bool Logged(const std::string& line) { return env.readLog().find(line) != std::string::npos; }

    TempEnv env;
    kxtest::FakeTransport fake;
    _init_Info_s info;
    CKXSealOpenApi api;
    const std::string equip = Md5Hex(IWK_GetMacAddress());
};

}  // namespace

TEST_F(SealOpenApiTest, InitDiscoversEndpointsAndWritesThemBack) {
    env.writeConfig("[OpenApiURL]\nInitUrl=http://d:3\nLogoutUrl=/kept\nsealManageHost=mgr\n");
    ASSERT_EQ(0, On(R"({"errCode":0,"host":"http://h","port":"8443","loginUrl":"/in",)"
                    R"("logoutUrl":"","getSealListUrl":"/list","signHashUrl":"/sign",)"
                    R"("saveSignLogUrl":"/log","ConvertDocUrl":"/conv","sealManageHost":"x"})")
                     .Init(info));
    ASSERT_EQ(1u, fake.requestCount());
    const std::string mac = IWK_GetMacAddress();
    EXPECT_EQ("http://d:3/kxmonitor/rest/app!getAPIInfo project_id=pid&project_secret=psec&mac=" +
                  mac + "&equipId=" + equip,
              Sent());
    EXPECT_EQ(equip + " http://h", api.strEquipId + " " + api.strHost);
    // Written back: an empty value changes nothing, sealManageHost is never
    // taken from a reply, ConvertDocUrl is kept as convertToPdfUrl.
    EXPECT_EQ(
        "[OpenApiURL]\nInitUrl=http://d:3\nLogoutUrl=/kept\nsealManageHost=mgr\n"
        "Host=http://h\nPort=8443\nLoginUrl=/in\nGetSealListUrl=/list\nSignHashUrl=/sign\n"
        "SaveSignLogUrl=/log\nconvertToPdfUrl=/conv\n",
        ReadFileText(env.configPath()));
}

TEST_F(SealOpenApiTest, InitFailures) {
    env.writeConfig("[OpenApiURL]\nInitUrl=http://d/x/app!getAPIInfo?v=2\nLoginUrl=/cfg-login\n");
    _init_Info_s incomplete = info;
    incomplete.ProjectID.clear();
    EXPECT_EQ(10001, api.Init(incomplete));
    EXPECT_EQ(0u, fake.requestCount());
    EXPECT_EQ("", api.strLoginUrl);  // no configuration read

    EXPECT_EQ(42, On(R"({"errCode":42,"msg":"project disabled","host":"h"})").Init(info));
    EXPECT_EQ("42 project disabled", LastError());
    // An InitUrl naming getAPIInfo goes out unchanged.
    EXPECT_EQ("http://d/x/app!getAPIInfo?v=2", fake.lastRequest().url);
    EXPECT_EQ("/cfg-login  " + equip, api.strLoginUrl + " " + api.strHost + " " + api.strEquipId);
    // A reply that cannot be read sets no last error; a transport failure neither.
    MarkLastError();
    EXPECT_EQ(10003, On("not json").Init(info));
    EXPECT_EQ(503, On("busy", 503).Init(info));
    EXPECT_EQ(kMarked, LastError());

    // ServerFlag set: the description's host and port, and no request at all.
    const size_t before = fake.requestCount();
    ASSERT_TRUE(env.set("OpenApiURL", "ServerFlag", "1"));
    EXPECT_EQ(0, api.Init(info));
    EXPECT_EQ(before, fake.requestCount());
    EXPECT_EQ("http://s:1", api.strHost + ":" + api.strPort);
}

TEST_F(SealOpenApiTest, LoginFormsAndStateMachine) {
    Start("");
    const std::string form = "project_id=pid&project_secret=psec&equipId=" + equip;
    const std::string longPwd(5000, 'p');  // goes out whole
    // Types 0 and 3 send the password's MD5, 1 escapes both, 2 sends both as
    // they are; the object keeps the plain text.
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
        EXPECT_EQ("http://s:1/in " + form + "&" + f.sent + "&loginType=" + std::to_string(f.type) +
                      "&response_type=post",
                  Sent());
        EXPECT_EQ("1:tok-" + f.user + " " + f.user + "/" + f.pwd, Session());
    }
    EXPECT_EQ(0, On(R"({"errCode":0})").Login("u", "p", 2));
    EXPECT_EQ("1: u/p", Session());  // accepted without a token

    // Refused locally: the session is dropped and nothing is sent.
    LogIn("T");
    const size_t before = fake.requestCount();
    EXPECT_EQ(10001, api.Login("demo", "pw", 5));
    EXPECT_EQ("0: demo/pw 2", Session() + " " + std::to_string(api.iLoginType));
    LogIn("T");
    EXPECT_EQ(10005, api.Login("demo", "", 0));
    EXPECT_EQ(10005, api.Login(nullptr, "pw", 0));
    EXPECT_EQ("0: demo/pw", Session());
    EXPECT_EQ(before + 1, fake.requestCount());  // the second LogIn alone

    // A second login the server refuses still ends the first session here;
    // the password stays that of the last successful login.
    LogIn("first");
    EXPECT_EQ(1002,
              On(R"({"errCode":1002,"msg":"wrong password","token":"x"})").Login("demo", "bad", 2));
    EXPECT_EQ("0: demo/pw 1002 wrong password", Session());

    // Logout: a refusal keeps the session, success ends it.
    LogIn("live");
    EXPECT_EQ(1, On(R"({"errCode":1,"msg":"no"})").Logout());
    EXPECT_EQ("http://s:1/out " + form + "&token=live", Sent());
    MarkLastError();
    EXPECT_EQ(500, On("down", 500).Logout());
    EXPECT_EQ("1:live demo/pw", Session());
    EXPECT_EQ(0, On(R"({"errCode":0})").Logout());
    EXPECT_EQ("0: demo/pw", Session());
    EXPECT_TRUE(Logged("<KXSeal ["));
    EXPECT_TRUE(Logged("- CKXSealOpenApi::Login> <\"user:demo, nLoginType:5\">"));
}

TEST_F(SealOpenApiTest, SealListRequestsAndOutcomes) {
    Start("T");
    std::vector<_seal_Info_s> list(3);
    EXPECT_EQ(10006, On(R"({"errCode":0,"seals":[]})").GetSealList(0, "", list));
    EXPECT_EQ("http://s:1/seals {\"equipId\":\"" + equip + "\",\"token\":\"T\"}\n", Sent());
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(10006, On(R"({"errCode":0})").GetSealList(7, "5A\xD5", list));
    EXPECT_EQ("http://s:1/seals {\"certSerial\":\"5A\xD5\",\"equipId\":\"" + equip +
                  "\",\"sealId\":7,\"token\":\"T\"}\n",
              Sent());
    EXPECT_EQ(10006, On(R"({"errCode":0,"seals":{"a":1}})").GetSealList(0, nullptr, list));

    const std::string good = "{\"data\":\"" + SealDoc(FullSealXml("es-1")) + "\"}";
    const std::string good2 = "{\"data\":\"" + SealDoc(FullSealXml("es-2"), "Other") + "\"";
    const auto seals = [](const std::string& s) { return R"({"errCode":0,"seals":[)" + s + "]}"; };
    ASSERT_EQ(0, On(seals(R"({"certB64":"CB","sesealId":"9","type":1,"certId":"12",)" +
                          good.substr(1) + "," + good2 + R"(,"type":"bad","certId":5})"))
                     .GetSealList(0, "", list));
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ(SealDoc(FullSealXml("es-1")), list[0].sealData);
    // The document's esID wins over sesealId, and its type over the element's.
    EXPECT_EQ("es-1|\xB9\xAB\xD5\xC2|CERTB64|3|UElD|png|120|80|0|CB|12", Fields(list[0]));
    EXPECT_EQ("es-2|\xB9\xAB\xD5\xC2|CERTB64|3|UElD|png|120|80|0||5", Fields(list[1]));

    // The first seal unreadable: 10010 whatever the parser said; a later one:
    // the parser's code, earlier seals kept, the loop stopped. A refused or
    // failed request leaves the list empty.
    const struct {
        std::string reply;
        long code;
        size_t kept;
        int status = 200;
    } outcomes[] = {{seals(R"({"data":""},)" + good), 10010, 0},
                    {seals("7"), 10010, 0},
                    {seals(good + R"(,{"data":""},)" + good2 + "}"), 10005, 1},
                    {seals(good + ",{\"data\":\"" + SealDoc("<SealInfo/>") + "\"}"), 10010, 1},
                    {R"({"errCode":3,"msg":"token expired","seals":[]})", 3, 0},
                    {"", 401, 0, 401}};
    for (const auto& o : outcomes) {
        list.resize(2);
        EXPECT_EQ(o.code, On(o.reply, o.status).GetSealList(0, "", list)) << o.reply;
        ASSERT_EQ(o.kept, list.size()) << o.reply;
        EXPECT_EQ(o.kept ? "es-1" : "", o.kept ? list[0].sealId : "");
    }
    EXPECT_TRUE(Logged("- CKXSealOpenApi::OnGetSealList> <\"lRes:10005\">"));
}

TEST_F(SealOpenApiTest, SignHashSignLogAndPrintCounts) {
    Start("");
    // Without a session: an empty token, and the digest of the equipment id alone.
    std::string sig = "old";
    EXPECT_EQ(0, On(R"({"errCode":0,"signResult":"U0lH"})").SignHash("aGFzaA==", "p\xD5\xC5", sig));
    EXPECT_EQ("U0lH", sig);
    EXPECT_EQ("http://s:1/sign {\"equipId\":\"" + equip + "\",\"hash\":\"aGFzaA==\",\"md5\":\"" +
                  Md5Hex(equip) + "\",\"signPwd\":\"p\xD5\xC5\",\"token\":\"\"}\n",
              Sent());

    LogIn("TK");
    const std::string md5 = Md5Hex(equip + "TK");
    EXPECT_EQ(0, On(R"({"errCode":0})").SignHash("", "", sig));
    EXPECT_EQ("", sig);  // accepted without a signature
    EXPECT_NE(std::string::npos, fake.lastRequest().body.find("\"md5\":\"" + md5 + "\""));
    sig = "kept";
    EXPECT_EQ(1005, On(R"({"errCode":1005,"msg":"wrong sign password","signResult":"x"})")
                        .SignHash("aA==", "bad", sig));
    EXPECT_EQ("1005 wrong sign password", LastError());

    const size_t before = fake.requestCount();
    EXPECT_EQ(10005, api.SignHash(nullptr, "pin", sig));
    EXPECT_EQ(10005, api.SignHash("aA==", nullptr, sig));
    EXPECT_EQ(10005, api.ReportSignResult("t", "d", "h", "c", "s", "1", nullptr));
    EXPECT_EQ(10005, api.ReportSignResult(nullptr, "d", "h", "c", "s", "1", "2"));
    EXPECT_EQ(before, fake.requestCount());
    EXPECT_EQ("kept", sig);

    EXPECT_EQ(0, On(R"({"errCode":0,"logId":1})")
                     .ReportSignResult("1700000000", "\xBA\xCF.pdf", "SEFTSA==", "", "U0lH", "12",
                                       "es-1"));
    EXPECT_EQ(
        "http://s:1/log {\"certId\":12,\"docContent\":\"\",\"docHash\":\"SEFTSA==\","
        "\"docName\":\"\xBA\xCF.pdf\",\"equipId\":\"" +
            equip + "\",\"md5\":\"" + md5 +
            "\",\"sealId\":\"es-1\",\"signInfo\":\"U0lH\",\"timestamp\":\"1700000000\","
            "\"token\":\"TK\"}\n",
        Sent());
    EXPECT_EQ(9, On(R"({"errCode":9,"msg":"log refused"})")
                     .ReportSignResult("t", "d", "h", "c", "s", "no number", "7"));
    EXPECT_NE(std::string::npos, fake.lastRequest().body.find("\"certId\":0,"));
    EXPECT_EQ("9 log refused", LastError());

    // Print counts, at the seal-management server.
    PrintCtrlHelper* helper = &api;  // reached through the print-control interface
    int total = -1, remain = -1;
    const auto counts = [&] { return std::to_string(remain) + "/" + std::to_string(total); };
    fake.reply(200, R"({"errCode":0,"printCount":3,"printTotalCount":9})");
    EXPECT_EQ(0, helper->QueryPrintInfo("P-1", total, remain));
    EXPECT_EQ("3/9", counts());
    EXPECT_EQ("http://m:2/get {\"printId\":\"P-1\",\"token\":\"TK\"}\n", Sent());
    // Counts that are no integers read as 0.
    EXPECT_EQ(0, On(R"({"errCode":0,"printCount":"4","printTotalCount":[1]})")
                     .QueryPrintInfo("P-1", total, remain));
    EXPECT_EQ("0/0", counts());
    total = remain = -1;
    EXPECT_EQ(1007, On(R"({"errCode":1007,"msg":"no such print id","printCount":1})")
                        .QueryPrintInfo("P-9", total, remain));
    EXPECT_EQ("-1/-1", counts());

    EXPECT_EQ(0, On(R"({"errCode":0})").UpdatePrintInfo("P-1", 4));
    EXPECT_EQ("http://m:2/set {\"printCount\":4,\"printId\":\"P-1\",\"token\":\"TK\"}\n", Sent());
    EXPECT_EQ(1008, On(R"({"errCode":1008,"msg":"too many"})").UpdatePrintInfo("P-1", 99));
    EXPECT_TRUE(Logged("- CKXSealOpenApi::QueryPrintInfo> <\"sPrintID::P-9\">"));
    EXPECT_TRUE(Logged("- CKXSealOpenApi::QueryPrintInfo> <\"lRes:1007, iRemain:-1, iTotal:-1\">"));
    EXPECT_TRUE(Logged("- CKXSealOpenApi::UpdatePrintInfo> <\"lRes:0, iRemain:4\">"));

    // Copies carry the session and the version.
    api.Version = 1;
    CKXSealOpenApi copy(api);
    EXPECT_EQ("1 TK /get",
              std::to_string(copy.Version) + " " + copy.strToken + " " + copy.strGetPrintCount);
    CKXSealOpenApi assigned;
    assigned = copy;
    EXPECT_EQ("1 pid", std::to_string(assigned.IsLogin()) + " " + assigned.m_stInitInfo.ProjectID);
}

// One row per document: the code, and the fields of a seal that was
// {sealId "same", sealName "before", certB64 "preset", sealDataType 5}
// (certB64 is not the parser's; sealDataType is set only on success).
TEST(XmlSealParser, Cases) {
    std::string noName = FullSealXml();
    noName.erase(noName.find("<name>"), noName.find("</name>") + 7 - noName.find("<name>"));
    const std::string read = "|\xB9\xAB\xD5\xC2|CERTB64|3|UElD|png|";
    const std::string untouched = "same|before||0|||0|0|5|preset|";
    const struct {
        std::string doc;
        long code;
        std::string fields;
    } rows[] = {
        // The picture data is not decoded.
        {SealDoc(FullSealXml("es-7")), 0, "es-7" + read + "120|80|0|preset|"},
        // No name: parses, and the name stays as it was.
        {SealDoc(noName), 0, "es-1|before|CERTB64|3|UElD|png|120|80|0|preset|"},
        // An element without text counts as absent; what was read before it stays set.
        {SealDoc(FullSealXml("es-8", "")), 10010, "es-8" + read + "0|0|5|preset|"},
        {SealDoc(FullSealXml("es-9", "<b/>")), 10010, "es-9" + read + "0|0|5|preset|"},
        {SealDoc(FullSealXml("es-1", "wide")), 0, "es-1" + read + "0|80|0|preset|"},
        // Only the first element of a name counts.
        {SealDoc(FullSealXml("first") + FullSealXml("second")), 0,
         "first" + read + "120|80|0|preset|"},
        {"", 10005, untouched},
        {"!!!not base64!!!", 10010, untouched},
        {IWK_Base64Encode("plain text, no XML"), 10010, untouched},
        {IWK_Base64Encode("<a><b>"), 10010, untouched},
        {SealDoc("<Info/>"), 10010, untouched},
        {SealDoc("<SealInfo><PropertyInfo/></SealInfo>"), 10010, untouched},
        {SealDoc("<SealInfo><esID></esID></SealInfo>"), 10010, untouched},
    };
    for (const auto& row : rows) {
        _seal_Info_s seal;
        seal.sealId = "same";
        seal.sealName = "before";
        seal.certB64 = "preset";
        seal.sealDataType = 5;
        EXPECT_EQ(row.code, KX_PraseXMLSeal(row.doc.c_str(), seal)) << row.doc;
        EXPECT_EQ(row.fields, Fields(seal)) << row.doc;
    }
    _seal_Info_s seal;
    EXPECT_EQ(10005, KX_PraseXMLSeal(nullptr, seal));
    // Required elements, each missing in turn.
    for (const char* element : {"<data>UElD</data>", "<type>png</type>", "<height>80</height>",
                                "<cert>CERTB64</cert>", "<type>3</type>"}) {
        std::string doc = FullSealXml();
        doc.erase(doc.find(element), std::string(element).size());
        EXPECT_EQ(10010, KX_PraseXMLSeal(SealDoc(doc).c_str(), seal)) << element;
    }
}
