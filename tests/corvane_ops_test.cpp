// Every CCorvaneApi operation on the wire against a loopback HTTPS server:
// method, target, body bytes, signature head, reply fields, and what stays
// untouched when a reply is refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "CorvaneApi.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "LoopbackServer.h"
#include "TempEnv.h"
#include "TestCA.h"

using kxtest::ExpectLastError;
using kxtest::LoopbackServer;
using kxtest::MarkLastError;
using kxtest::RecordedRequest;
using kxtest::Reply;
using kxtest::TestCA;

namespace {

Reply Json200(const std::string& body) {
    return Reply(200, body, "application/json");
}

std::string Base64Url(const std::string& text) {
    std::string b64 = IWK_Base64Encode(text);
    std::replace(b64.begin(), b64.end(), '+', '-');
    std::replace(b64.begin(), b64.end(), '/', '_');
    while (!b64.empty() && b64.back() == '=') b64.pop_back();
    return b64;
}

std::string Jwt(const std::string& payload) {
    return Base64Url(R"({"alg":"HS256","typ":"JWT"})") + "." + Base64Url(payload) + ".c2ln";
}

class CorvaneOpsTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(env.set("KXUtils", "Proxy", ""));
        ASSERT_TRUE(env.set("KXUtils", "CAFile", TestCA::instance().caFile()));
        info.SerType = 3;
        info.ProjectID = "proj-1";
        info.ProjectSecret = "secret-1";
        info.ServerIp = "127.0.0.1:" + std::to_string(server.port());
        info.Port = server.port();
        ASSERT_EQ(0, api.Init(info));
        MarkLastError();
    }

    // The last request, checked for its method, target and a signature head
    // that verifies with the project's secret.
    RecordedRequest Expect(const std::string& method, const std::string& target) {
        RecordedRequest req = server.lastRequest();
        EXPECT_EQ(method, req.method);
        EXPECT_EQ(target, req.target);
        EXPECT_EQ(KX_HEAD_OK, IWK_VerifySignatureHead(
                                  req.method, req.target, req.getter(),
                                  [](const std::string& id, std::string& secret) {
                                      secret = "secret-1";
                                      return id == "proj-1";
                                  },
                                  IWK_GetCurTime(), 60000));
        EXPECT_EQ("application/json", req.header("Content-Type"));  // from the head, GET too
        return req;
    }

    void ExpectLogHas(std::initializer_list<const char*> lines) {
        const std::string log = env.readLog();
        for (const char* line : lines) EXPECT_NE(std::string::npos, log.find(line)) << line;
    }

    TempEnv env;
    LoopbackServer server{LoopbackServer::Scheme::Https};
    _init_Info_s info;
    CCorvaneApi api;
};

}  // namespace

TEST_F(CorvaneOpsTest, AccountIdFromCodeThroughTheJwt) {
    std::string account = "old";
    server.queueReply(Json200(R"({"code":0,"data":{"token":")" +
                              Jwt(R"({"authorizer":"acc-7","exp":1})") + "\"}}"));
    EXPECT_EQ(0, api.GetRealAccoutIdByCode("https://app/cb&b=2", "C&D%41", account));
    EXPECT_EQ("acc-7", account);
    // The code comes before the redirect URI; nothing is escaped, the secret in clear.
    Expect("GET",
           "/v1/oauth2/access_token?appId=proj-1&code=C&D%41&grantType=authorization_code&"
           "redirectUri=https://app/cb&b=2&secret=secret-1");
    EXPECT_EQ("", server.lastRequest().body);

    // A payload without the key: success with an empty account.
    server.queueReply(Json200(R"({"code":0,"data":{"token":")" + Jwt(R"({"sub":"x"})") + "\"}}"));
    EXPECT_EQ(0, api.GetRealAccoutIdByCode("u", "c", account));
    EXPECT_EQ("", account);

    // No token, a token that is no JWT, a payload that is no JSON: 10001,
    // although the server said 0; the output stays, no last error.
    for (const std::string& data :
         {std::string(R"({})"), std::string(R"({"token":"abc"})"),
          R"({"token":")" + Jwt("not json") + "\"}", std::string(R"({"token":["x"]})")}) {
        account = "kept";
        server.queueReply(Json200(R"({"code":0,"data":)" + data + "}"));
        EXPECT_EQ(10001, api.GetRealAccoutIdByCode("u", "c", account)) << data;
        EXPECT_EQ("kept", account);
    }
    ExpectLastError(-1, "marker");

    server.queueReply(Json200(R"({"code":4001,"message":"code expired"})"));
    EXPECT_EQ(4001, api.GetRealAccoutIdByCode("u", "c", account));
    EXPECT_EQ("kept", account);
    ExpectLastError(4001, "code expired");
    ExpectLogHas({"<Corvane [",
                  "- CCorvaneApi::GetRealAccoutIdByCode> <\"strRedirectUri:https://app/cb&b=2, "
                  "strCode:C&D%41\">",
                  ", token:{\"authorizer\":\"acc-7\",\"exp\":1}\">"});
}

TEST_F(CorvaneOpsTest, IdentityAllInfoAndOrganisation) {
    std::string code = "c0", realname = "r0", phone = "p0", ouid = "o0";
    server.queueReply(Json200(R"({"code":0,"data":{"code":"IDC-1"}})"));
    EXPECT_EQ(0, api.GetIdentityInfo("acc%201&x=1", code));
    EXPECT_EQ("IDC-1", code);
    Expect("GET", "/v1/accounts/acc%201&x=1/getIdentityInfo");

    server.queueReply(Json200(
        R"({"code":0,"data":{"baseRealname":{"code":"RN-1"},"loginInfo":{"idcard":{"mobile":"138"}}}})"));
    EXPECT_EQ(0, api.GetAllInfo("acc-1", realname, phone));
    EXPECT_EQ("RN-1 138", realname + " " + phone);
    Expect("GET", "/v1/accounts/acc-1/getAllInfo");

    // Without loginInfo the phone is emptied; wrong shapes read as empty.
    server.queueReply(Json200(R"({"code":0,"data":{"baseRealname":{"code":"RN-2"}}})"));
    EXPECT_EQ(0, api.GetAllInfo("acc-1", realname, phone));
    EXPECT_EQ("RN-2 ", realname + " " + phone);
    server.queueReply(
        Json200(R"({"code":0,"data":{"baseRealname":["RN"],"loginInfo":{"idcard":"x"}}})"));
    EXPECT_EQ(0, api.GetAllInfo("acc-1", realname, phone));
    EXPECT_EQ("", realname);
    server.queueReply(Json200(R"({"code":0,"data":"text"})"));
    EXPECT_EQ(0, api.GetIdentityInfo("a", code));
    EXPECT_EQ("", code);

    server.queueReply(Json200(R"({"code":0,"data":{"base":{"ouid":"OU-9"}}})"));
    EXPECT_EQ(0, api.GetFinalRealnameOrgInfo("org-1", ouid));
    EXPECT_EQ("OU-9", ouid);
    Expect("GET", "/v1/organizations/org-1/getFinalRealnameOrgInfo");

    // Refused replies leave every output as it was.
    realname = "r", phone = "p", ouid = "o", code = "c";
    server.queueReply(Json200(R"({"code":"12","message":"no such account"})"));
    EXPECT_EQ(12, api.GetAllInfo("x", realname, phone));
    ExpectLastError(12, "no such account");
    server.queueReply(Json200("<html>"));
    EXPECT_EQ(10003, api.GetFinalRealnameOrgInfo("x", ouid));
    server.queueReply(Reply(401, R"({"code":401,"message":"signature does not match"})"));
    EXPECT_EQ(401, api.GetIdentityInfo("x", code));
    EXPECT_EQ("r p o c", realname + " " + phone + " " + ouid + " " + code);
}

TEST_F(CorvaneOpsTest, EncryptionTaskCycle) {
    std::string task = "t0", pub = "p0", sym = "s0";
    server.queueReply(Json200(R"({"code":0,"data":{"taskId":"enc-1"}})"));
    EXPECT_EQ(0, api.CreateEncOrDecTask("acc-1", "", "\xD6\xD0", "", -7, task));
    EXPECT_EQ("enc-1", task);
    // Every key, empty ones too; the type as a JSON integer; GBK bytes raw.
    EXPECT_EQ(
        "{\"accountId\":\"acc-1\",\"description\":\"\xD6\xD0\",\"ownerOrganId\":\"\","
        "\"refTaskId\":\"\",\"type\":-7}\n",
        Expect("POST", "/v1/encryptions").body);

    server.queueReply(Json200(R"({"code":0,"data":{"publicKey":"PUB","symmetricKey":"SYM"}})"));
    EXPECT_EQ(0, api.ExecuteEncOrDecTask("enc-1", "EPK", "WILL", pub, sym));
    EXPECT_EQ("PUB SYM", pub + " " + sym);
    EXPECT_EQ("{\"encryptedSymmetricKey\":\"EPK\",\"willAuthCode\":\"WILL\"}\n",
              Expect("PUT", "/v1/encryptions/enc-1/execute").body);

    server.queueReply(Json200(R"({"code":0,"data":{"publicKey":"PUB2"}})"));
    EXPECT_EQ(0, api.ExecuteEncOrDecTask("", "EPK", "WILL", pub, sym));
    EXPECT_EQ("PUB2 ", pub + " " + sym);
    Expect("PUT", "/v1/encryptions//execute");  // an empty id is sent all the same

    server.queueReply(Json200(R"({"code":0})"));
    EXPECT_EQ(0, api.EndEncOrDecTask("enc-1", 2, "done"));
    EXPECT_EQ("{\"result\":2,\"resultDescription\":\"done\"}\n",
              Expect("PUT", "/v1/encryptions/enc-1").body);

    pub = "kp", sym = "ks", task = "kt";
    server.queueReply(Json200(R"({"code":3301,"message":"will not given"})"));
    EXPECT_EQ(3301, api.ExecuteEncOrDecTask("enc-1", "EPK", "WILL", pub, sym));
    server.queueReply(Json200(R"({"code":1.5})"));
    EXPECT_EQ(10003, api.CreateEncOrDecTask("a", "o", "d", "r", 1, task));
    EXPECT_EQ("kp ks kt", pub + " " + sym + " " + task);
    ExpectLastError(3301, "will not given");
    ExpectLogHas(
        {"strRealAccountId:acc-1,strRealOrgId:,strDescription:\xD6\xD0,"
         "strrRefTaskId:,iTaskType:-7\">"});
}

TEST_F(CorvaneOpsTest, WillingnessKeysFollowTheMobileShieldClient) {
    std::string biz = "b", qr = "q", will = "w", status = "s";
    bool passed = false;
    const std::string reply =
        R"({"code":0,"data":{"bizId":"B1","qrcodeContent":"https://m/x?id=1","willAuthId":"W1"}})";
    // No client id: four keys, whatever the scene and space.
    server.queueReply(Json200(reply));
    EXPECT_EQ(0, api.CreateMobShieldAuth("acc-1", "ENC", "\xBC\xD3\xC3\xDC", "d", biz, qr, will,
                                         true, "space-1"));
    EXPECT_EQ(
        "{\"accountId\":\"acc-1\",\"bizDes\":\"d\",\"bizType\":\"ENC\",\"bizTypeDes\":"
        "\"\xBC\xD3\xC3\xDC\"}\n",
        Expect("POST", "/v1/willingness/createMobShieldAuth").body);
    EXPECT_EQ("B1 https://m/x?id=1 W1", biz + " " + qr + " " + will);

    info.strMobileShieldClientId = "msc-1";
    ASSERT_EQ(0, api.Init(info));
    server.queueReply(Json200(reply));
    EXPECT_EQ(0, api.CreateMobShieldAuth("acc-1", "ENC", "t", "d", biz, qr, will, true, ""));
    EXPECT_EQ(
        "{\"accountId\":\"acc-1\",\"bizDes\":\"d\",\"bizType\":\"ENC\",\"bizTypeDes\":\"t\","
        "\"mobShieldClientId\":\"msc-1\",\"mobShieldScene\":\"mobileShieldEncryptWill\","
        "\"space\":\"\"}\n",
        server.lastRequest().body);
    server.queueReply(Json200(reply));
    EXPECT_EQ(0, api.CreateMobShieldAuth("acc-1", "DEC", "t", "d", biz, qr, will, false, "sp"));
    EXPECT_NE(std::string::npos,
              server.lastRequest().body.find(
                  "\"mobShieldScene\":\"mobileShieldDecryptWill\",\"space\":\"sp\"}"));

    server.queueReply(Json200(R"({"code":0,"data":{"status":"APPROVED","passed":true}})"));
    EXPECT_EQ(0, api.VerifyMobShieldAuth("B1", "ENC", "W1", status, passed));
    EXPECT_EQ("APPROVED", status);
    EXPECT_TRUE(passed);
    // All three identifiers in the body, none in the URL.
    EXPECT_EQ("{\"bizId\":\"B1\",\"bizType\":\"ENC\",\"willAuthId\":\"W1\"}\n",
              Expect("PUT", "/v1/willingness/verifyMobShieldAuth").body);

    // passed as asBool reads it: a non-zero number is true; text, arrays,
    // objects, null and an absent key are false.
    const std::pair<const char*, bool> forms[] = {
        {"1", true},    {"-2", true},  {"0.5", true},   {"0", false},    {"\"true\"", false},
        {"[1]", false}, {"{}", false}, {"null", false}, {"false", false}};
    for (const auto& form : forms) {
        passed = !form.second;
        server.queueReply(
            Json200(std::string(R"({"code":0,"data":{"status":1,"passed":)") + form.first + "}}"));
        EXPECT_EQ(0, api.VerifyMobShieldAuth("B1", "ENC", "W1", status, passed));
        EXPECT_EQ(form.second, passed) << form.first;
    }
    EXPECT_EQ("1", status);

    // Refused: outputs stay.
    status = "kept", passed = true, biz = "kb", qr = "kq", will = "kw";
    server.queueReply(Json200(R"({"code":5,"message":"no such request"})"));
    EXPECT_EQ(5, api.VerifyMobShieldAuth("B1", "ENC", "W1", status, passed));
    server.queueReply(Reply(500, "oops"));
    EXPECT_EQ(500, api.CreateMobShieldAuth("a", "b", "c", "d", biz, qr, will, true, ""));
    EXPECT_TRUE(passed);
    EXPECT_EQ("kept kb kq kw", status + " " + biz + " " + qr + " " + will);
}

TEST_F(CorvaneOpsTest, WitnessFlowAndSnapshots) {
    std::string flow = "f0";
    server.queueReply(Json200(R"({"code":0,"data":{"witnessFlowId":"wf-1"}})"));
    EXPECT_EQ(0, api.CreateWitnessFlowTask("org-1", flow));
    EXPECT_EQ("wf-1", flow);
    EXPECT_EQ(
        "{\"businessScene\":\"\xCA\xB5\xC3\xFB\xC8\xCF\xD6\xA4\",\"launchEndpoint\":\"ZENMARK_"
        "CLIENT\",\"launchIp\":\"127.0.0.1\",\"mobileShieldVersion\":1,\"payerAccountId\":\"org-"
        "1\",\"signOrder\":\"SIGN_NON_SEQUENCE\"}\n",
        Expect("POST", "/v1/witnessflows").body);

    const std::string doc =
        "{\"docHash\":\"H=\",\"docName\":\"doc-1\",\"hashAlgorithm\":\"SHA256\",";
    server.setDefaultReply(Json200(R"({"code":0})"));
    EXPECT_EQ(0, api.ExecuteSnapShotTask("wf-1", "doc-1", "H=", "SHA256", "START", "begin"));
    EXPECT_EQ("{\"data\":{\"doc\":[" + doc +
                  "\"option\":\"ADD\",\"thirdDocId\":\"doc-1\",\"type\":1,\"version\":\"v1\"}]},"
                  "\"step\":\"START\",\"stepDescription\":\"begin\"}\n",
              Expect("POST", "/v1/witnessflows/wf-1/saveSnapshot").body);

    EXPECT_EQ(0, api.ExecuteSnapShotTask("wf-1", "doc-1", "H=", "SHA256", "FINISH", ""));
    EXPECT_EQ(
        "{\"data\":{\"doc\":[" + doc +
            "\"option\":\"UPDATE\",\"thirdDocId\":\"doc-1\",\"type\":1,\"version\":\"v1\"}],"
            "\"flow\":{\"option\":\"UPDATE\",\"signStatus\":\"FINISHED\",\"version\":\"v1\"}},"
            "\"step\":\"FINISH\",\"stepDescription\":\"\"}\n",
        server.lastRequest().body);

    // Other step words add neither option nor flow and go out unchanged.
    for (const std::string step : {"finish", "START ", "FINISHED", ""}) {
        EXPECT_EQ(0, api.ExecuteSnapShotTask("", "doc-1", "H=", "SHA256", step, "x"));
        EXPECT_EQ("{\"data\":{\"doc\":[" + doc +
                      "\"thirdDocId\":\"doc-1\",\"type\":1,\"version\":\"v1\"}]},\"step\":\"" +
                      step + "\",\"stepDescription\":\"x\"}\n",
                  Expect("POST", "/v1/witnessflows//saveSnapshot").body);
    }

    flow = "kept";
    server.queueReply(Json200(R"({"code":0,"data":{"witnessFlowId":["wf"]}})"));
    EXPECT_EQ(0, api.CreateWitnessFlowTask("org-1", flow));
    EXPECT_EQ("", flow);
    flow = "kept";
    server.queueReply(Json200(R"({"code":-1,"message":"payer unknown"})"));
    EXPECT_EQ(-1, api.CreateWitnessFlowTask("org-x", flow));
    EXPECT_EQ("kept", flow);
    ExpectLastError(-1, "payer unknown");
    ExpectLogHas({
        "<\"strRealOrgId:org-1,strRealOrgId:org-1,description:create "
        "witnessflows\">",
    });
}

TEST_F(CorvaneOpsTest, SigningUnderAWitnessFlow) {
    std::string ticket = "t0", task = "k0", qr = "q0";
    server.queueReply(Json200(R"({"code":0,"data":{"signTicket":"TK-1"}})"));
    EXPECT_EQ(0, api.CheckSignAccessTask("wf-1", "acc-1", "doc-1", "H=", ticket));
    EXPECT_EQ("TK-1", ticket);
    EXPECT_EQ(
        "{\"docs\":[{\"docHash\":\"H=\",\"thirdDocId\":\"doc-1\"}],\"endpoint\":\"ZENMARK_CLIENT\","
        "\"launchApproval\":false,\"signerAccountId\":\"acc-1\",\"signerIp\":\"127.0.0.1\","
        "\"signerType\":3}\n",
        Expect("POST", "/v1/witnessflows/wf-1/checkSignAccess").body);

    // Only PKCS #1 is accepted: anything else ends before a head or a request.
    const size_t before = server.requestCount();
    for (long type : {0L, 1L, 0x10001L, -65536L, 0x100010000L}) {
        EXPECT_EQ(10001, api.SignTask("wf-1", "acc-1", "doc-1", "H=", "TK-1", type, task, qr));
    }
    EXPECT_EQ(before, server.requestCount());
    EXPECT_EQ("k0 q0", task + " " + qr);
    ExpectLastError(-1, "marker");

    server.queueReply(Json200(R"({"code":0,"data":{"taskId":"ST-1","qrcodeContent":"QR-1"}})"));
    EXPECT_EQ(0, api.SignTask("wf-1", "acc-1", "doc-1", "H=", "TK-1", 65536, task, qr));
    EXPECT_EQ("ST-1 QR-1", task + " " + qr);
    EXPECT_EQ(
        "{\"sealType\":1,\"signHash\":\"H=\",\"signPkcsType\":\"pkcs1\",\"signTicket\":\"TK-1\","
        "\"subjectAccountId\":\"acc-1\",\"thirdDocId\":\"doc-1\"}\n",
        Expect("POST", "/v1/witnessflows/wf-1/sign").body);

    info.strMobileShieldClientId = "msc-1";
    ASSERT_EQ(0, api.Init(info));
    server.queueReply(Json200(R"({"code":0,"data":{}})"));
    EXPECT_EQ(0, api.SignTask("wf-1", "acc-1", "doc-1", "H=", "TK-1", 0x10000, task, qr));
    EXPECT_NE(std::string::npos,
              server.lastRequest().body.find(
                  "{\"mobileShieldClientId\":\"msc-1\",\"sealType\":1,\"signHash\""));

    std::string result = "r0", logId = "l0", cert = "c0", alg = "a0";
    server.queueReply(
        Json200(R"({"code":0,"data":{"taskId":"ST-1","thirdDocId":"doc-1","signlogId":"SL-1",)"
                R"("signResult":"SIG","certBase64":"CERT","certAlgorithm":"RSA"}})"));
    EXPECT_EQ(0, api.QuerySignResultTask("wf-1", "TK&1=", "ST+1", result, logId, cert, alg));
    Expect("GET", "/v1/witnessflows/wf-1/mobileShield/signResult?signTicket=TK&1=&taskId=ST+1");
    EXPECT_EQ("SIG SL-1 CERT RSA", result + " " + logId + " " + cert + " " + alg);

    server.queueReply(Json200(R"({"code":0})"));
    EXPECT_EQ(0, api.SignConfirmTask("wf-1", "doc-1", "H=", "SHA256", "TK-1", ""));
    EXPECT_EQ(
        "{\"confirmDatas\":[{\"docFileKey\":\"doc-1\",\"hashAlgorithm\":\"SHA256\",\"signedHash\":"
        "\"H=\",\"thirdDocId\":\"doc-1\"}],\"signTicket\":\"TK-1\",\"signlogIds\":[\"\"]}\n",
        Expect("POST", "/v1/witnessflows/wf-1/confirm").body);
    ExpectLogHas(
        {"<\"strRealAccountId\xA3\xBA"
         "acc-1,strThirdDocId:doc-1,strDocHash:H=\">",
         "- CCorvaneApi::SignTask> <\"lRes:10001, reqRes.errCode:0",
         "strSignTicket:TK-1,signType:4295032832\">",
         "<\"strRealAccountId\xA3\xBA"
         "acc-1,strThirdDocId:doc-1,strDocHash:H=\xA3\xAC"
         "strSignTicket:TK-1,signType:65536\">",
         "<\"strThirdDocId:doc-1,strDocHash:H=\xA3\xAC"
         "strAlgorithm:SHA256, strSignTicket:TK-1, "
         "strSignlogId:\">"});
}
