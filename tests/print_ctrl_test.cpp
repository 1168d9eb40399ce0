// Print control on the fake transport: the factory's release rules, and the
// wire and reply handling of KXPrintCtrl's operations.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "FakeTransport.h"
#include "KXPrintCtrl.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "TempEnv.h"

using kxtest::FakeTransport;
using kxtest::LastError;
using kxtest::MarkLastError;

namespace {

const std::string kBase = "https://h.example:443";

// An object no factory made: release must log it and leave it alone.
class Foreign : public PrintCtrlHelper {
public:
    long QueryPrintInfo(const std::string&, int&, int&) override { return 0; }
    long UpdatePrintInfo(const std::string&, const int&) override { return 0; }
};

class PrintCtrlTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(0, client.Init(kxtest::FakeRecord()));
        MarkLastError();
    }
    // "url\nbody" of the last request, which must carry the legacy head.
    std::string Sent() {
        const KXWireRequest req = fake.lastRequest();
        EXPECT_EQ(KX_HEAD_OK, FakeTransport::VerifyLegacy(req, "p", "s", nullptr)) << req.url;
        return req.url + "\n" + req.body;
    }
    // sn=accountCode:data:printId of every record.
    static std::string Records(const std::map<std::string, KXReceiveData>& certs) {
        std::string out;
        for (const auto& [sn, r] : certs)
            out += sn + "=" + r.accountCode + ":" + r.data + ":" + std::to_string(r.printId) + " ";
        return out;
    }

    TempEnv env;
    FakeTransport fake;
    KXPrintCtrl client;
};

}  // namespace

TEST_F(PrintCtrlTest, FactoryReleasesFirstAndByVersion) {
    env.writeConfig(
        "[KXPrintCtrl]\nHost=h.example\nPort=443\nProjectID=p\nProjectSecret=s\n"
        "savePrintInfo=/mine\n[OpenApiURL]\nHost=h.example\nPort=443\nProjectID=p\n"
        "ProjectSecret=s\nServerFlag=1\n");
    PrintCtrlHelper* helper = nullptr;
    ASSERT_EQ(0, KX_CreatePrintCtrl(3, &helper));
    ASSERT_NE(nullptr, KX_AsKXPrintCtrl(helper));
    EXPECT_EQ("/mine|/seal/v1/print/getPrintInfo", KX_AsKXPrintCtrl(helper)->strSavePrintInfo +
                                                       "|" +
                                                       KX_AsKXPrintCtrl(helper)->strGetPrintInfo);
    // The live object goes before the version is looked at.
    EXPECT_EQ(25034, KX_CreatePrintCtrl(2, &helper));
    EXPECT_EQ(nullptr, helper);
    ASSERT_EQ(0, KX_CreatePrintCtrl(1, &helper));
    EXPECT_EQ(1, helper->Version);
    EXPECT_EQ(nullptr, KX_AsKXPrintCtrl(helper));
    KX_ReleasePrintCtrl(&helper);
    EXPECT_EQ(nullptr, helper);
    EXPECT_EQ(0u, fake.requestCount());  // ServerFlag: no discovery, and version 3 asks nothing

    // An object of no known version is logged, never destroyed.
    Foreign foreign;
    foreign.Version = 7;
    helper = &foreign;
    env.writeConfig("[KXPrintCtrl]\nHost=h.example\n");
    EXPECT_EQ(10001, KX_CreatePrintCtrl(3, &helper));  // incomplete: the new object goes too
    EXPECT_EQ(nullptr, helper);
    EXPECT_NE(std::string::npos, env.readLog().find("KX_ReleasePrintCtrl> <\"Version:7\">"));
    EXPECT_EQ(10005, KX_CreatePrintCtrl(3, nullptr));
}

TEST_F(PrintCtrlTest, EncryptCertsRequestAndFirstSerialWins) {
    std::map<std::string, KXReceiveData> certs;
    certs["S0"].accountCode = "caller";
    const std::vector<std::string> none;
    fake.reply(200, R"({"errCode":0})");
    EXPECT_EQ(0, client.GetEncryptCerts(none, certs));
    EXPECT_EQ(kBase + "/seal/v1/account/getEncryptionCerts\nnull\n", Sent());

    fake.reply(
        200, R"({"errCode":0,"data":[{"accountCode":"A","certList":[{"sn":"S1","data":"d1"},)"
             R"({"sn":"S0","data":"x"},7]},{"accountCode":"B","certList":[{"sn":"S1","data":"d2"},)"
             R"({"sn":"S2","data":"d3"}]},{"accountCode":"C","certList":{"sn":"S9"}}]})");
    EXPECT_EQ(0, client.GetEncryptCerts({"A", "B"}, certs));
    EXPECT_EQ(kBase + "/seal/v1/account/getEncryptionCerts\n" +
                  R"([{"accountCode":"A"},{"accountCode":"B"}])" + "\n",
              Sent());
    const std::string filled = "S0=caller::0 S1=A:d1:0 S2=B:d3:0 ";
    EXPECT_EQ(filled, Records(certs));

    // Failures and replies of the wrong shape change nothing.
    for (const char* reply : {R"({"errCode":0,"data":{"accountCode":"D"}})", R"({"errCode":0})",
                              R"({"errCode":5,"msg":"no","data":[]})", "[]"}) {
        fake.reply(200, reply);
        client.GetEncryptCerts({"A"}, certs);
        EXPECT_EQ(filled, Records(certs)) << reply;
    }
    EXPECT_EQ("5 no", LastError());
}

TEST_F(PrintCtrlTest, SavePrintInfoListsByKeyAndTakesKnownIds) {
    std::map<std::string, KXReceiveData> certs;
    const long long before = IWK_Time64();
    fake.reply(200, R"({"errCode":0})");
    EXPECT_EQ(0, client.SavePrintInfo("f.pdf", "H", 1LL << 40, certs));
    Json::Value sent;
    ASSERT_TRUE(kxjson::Parse(fake.lastRequest().body, sent));
    const long long date = sent["fileCreateDate"].asInt64();
    EXPECT_TRUE(date >= before && date <= IWK_Time64()) << date;  // seconds, not milliseconds
    EXPECT_EQ(
        kBase + "/seal/v1/print/savePrintInfo\n" + R"({"createUser":"","fileCreateDate":)" +
            std::to_string(date) +
            R"(,"fileHash":"H","fileName":"f.pdf","fileSize":1099511627776,"printList":null})" +
            "\n",
        Sent());

    certs["b"].printCount = 2;
    certs["a"].printCount = 1;
    certs["c"].printId = 9;
    fake.reply(200,
               R"({"errCode":0,"data":{"printList":[{"sn":"b","printId":5000000000},)"
               R"({"sn":"zz","printId":1},{"sn":"c","printId":"x"},{"sn":"a","printId":4}]}})");
    EXPECT_EQ(0, client.SavePrintInfo("f", "H", 3, certs));
    EXPECT_NE(std::string::npos,
              Sent().find(R"("printList":[{"printCount":1,"sn":"a"},{"printCount":2,"sn":"b"},)"
                          R"({"printCount":0,"sn":"c"}]})"));
    EXPECT_EQ("a=::4 b=::5000000000 c=::9 ", Records(certs));
}

TEST_F(PrintCtrlTest, QueryCountsMustBeIntegers) {
    const struct {
        const char* reply;
        long code;
        int total, remain;  // -1: untouched
    } rows[] = {
        {R"({"errCode":0,"data":{"totalPrintCount":5,"remainPrintCount":3}})", 0, 5, 3},
        {R"({"errCode":0,"data":{"totalPrintCount":5.5,"remainPrintCount":"3"}})", 0, 0, 0},
        {R"({"errCode":0,"data":{"totalPrintCount":4294967296,"remainPrintCount":true}})", 0, 0, 0},
        {R"({"errCode":0})", 0, 0, 0},
        {R"({"errCode":"0","data":{"totalPrintCount":5}})", 10027, -1, -1},
        {R"({"errCode":8,"data":{"totalPrintCount":5}})", 8, -1, -1},
        {"<html>", 10003, -1, -1},
    };
    for (const auto& row : rows) {
        int total = -1, remain = -1;
        fake.reply(200, row.reply);
        EXPECT_EQ(row.code, client.QueryPrintInfo("12", total, remain)) << row.reply;
        EXPECT_EQ(row.total, total) << row.reply;
        EXPECT_EQ(row.remain, remain) << row.reply;
    }
    EXPECT_EQ("8 ", LastError());  // written with an empty msg too
    EXPECT_EQ(kBase + "/seal/v1/print/getPrintInfo\n{\"printId\":\"12\"}\n", Sent());
    fake.fail(FakeTransport::Fault::Refused);
    EXPECT_EQ(10103, client.UpdatePrintInfo("12", 4));
    EXPECT_EQ(
        kBase + "/seal/v1/print/updatePrintInfo\n{\"printId\":\"12\",\"remainPrintCount\":4}\n",
        Sent());
    std::string org = "kept";
    fake.reply(200, R"({"errCode":0,"data":{"organizeCode":"ORG-1"}})");
    EXPECT_EQ(0, client.QueryOrganizeCodeByCertSn("SN", org));
    EXPECT_EQ("ORG-1", org);
    EXPECT_EQ(kBase + "/seal/api/seal/queryOrganizeCodeByCertSn\n{\"certSn\":\"SN\"}\n", Sent());
}

TEST_F(PrintCtrlTest, SmsCheckTakesTheDirectRouteOrTheGateway) {
    KXPrintCtrl bare;
    EXPECT_EQ(10009, bare.VerifySMSKaptchaForClient("SN", "123456", "U"));
    EXPECT_EQ(0u, fake.requestCount());

    const std::string body = R"({"accountUUID":"U","certSn":"SN","code":"123456"})";
    for (const char* gateway : {"", "2"}) {
        env.set("KXPrintCtrl", "isGoGateWay", gateway);
        fake.reply(200, R"({"msg":"ok"})");  // no errCode: success
        EXPECT_EQ(0, client.VerifySMSKaptchaForClient("SN", "123456", "U"));
        EXPECT_EQ(kBase + "/seal/api/authentication/verifySMSKaptchaForClient\n" + body + "\n",
                  Sent());
    }

    env.set("KXPrintCtrl", "isGoGateWay", "1");
    env.set("KXUtils", "Language", "zh-CN");
    env.set("MobileShield", "publicServer", "gw.example");
    env.set("MobileShield", "publicPort", "9443");
    env.set("MobileShield", "appId", "app");
    env.set("MobileShield", "appSecret", IWK_EncryptConfigInfo("app-secret"));
    env.set("KXSign", "serverUrl", "https://gw.example:9443/gw");
    fake.reply(200, R"({"errCode":4,"data":1})");  // no msg: no last error
    EXPECT_EQ(4, client.VerifySMSKaptchaForClient("SN", "123456", "U"));
    KXWireRequest req = fake.lastRequest();
    EXPECT_EQ(std::string("https://gw.example:9443/gw\n") +
                  R"({"accountUUID":"U","certSn":"SN","code":"123456","language":"zh-CN"})" + "\n",
              req.url + "\n" + req.body);  // the built-in path does not apply here
    EXPECT_EQ(KX_HEAD_OK,
              FakeTransport::VerifySigned(req, "https://gw.example:9443", "app", "app-secret"));
    EXPECT_EQ("-1 marker", LastError());

    env.set("KXPrintCtrl", "VerifySMSKaptchaForClient", "/sms");
    fake.reply(503, "busy");
    EXPECT_EQ(503, client.VerifySMSKaptchaForClient("SN", "1", "U"));
    EXPECT_EQ("https://gw.example:9443/gw/sms", fake.lastRequest().url);
    EXPECT_EQ("503 " + IWK_GetErrorMsg(503), LastError());
    EXPECT_NE(std::string::npos,
              env.readLog().find("KXPrintCtrl::VerifySMSKaptchaForClient> <\"lRes:503\">"));
}
