// Every CCorvaneApi operation on the wire against a loopback HTTPS server:
// method, target, body bytes, signature head, reply fields, and what stays
// untouched when a reply is refused.
#include <gtest/gtest.h>

#include <string>

#include "CorvaneApi.h"
#include "KXUtils.h"
#include "LoopbackServer.h"
#include "TempEnv.h"
#include "TestCA.h"

using kxtest::LoopbackServer;
using kxtest::RecordedRequest;
using kxtest::Reply;
using kxtest::TestCA;

namespace {

Reply Json200(const std::string& body) {
    return Reply(200, body, "application/json");
}

std::string Base64Url(const std::string& text) {
    std::string b64 = IWK_Base64Encode(text);
    for (char& c : b64) {
        if (c == '+') c = '-';
        if (c == '/') c = '_';
    }
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
        IWK_SetLastError(-1, "marker");
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

    void ExpectLastError(long code, const std::string& text) {
        long gotCode = 0;
        std::string gotText;
        ASSERT_TRUE(IWK_GetLastError(gotCode, gotText));
        EXPECT_EQ(code, gotCode);
        EXPECT_EQ(text, gotText);
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
    const std::string log = env.readLog();
    EXPECT_NE(std::string::npos,
              log.find("<Corvane [") != std::string::npos
                  ? log.find("- CCorvaneApi::GetRealAccoutIdByCode> <\"strRedirectUri:https://app/"
                             "cb&b=2, strCode:C&D%41\">")
                  : std::string::npos);
    EXPECT_NE(std::string::npos, log.find(", token:{\"authorizer\":\"acc-7\",\"exp\":1}\">"));

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
    EXPECT_EQ("RN-1", realname);
    EXPECT_EQ("138", phone);
    Expect("GET", "/v1/accounts/acc-1/getAllInfo");
    EXPECT_NE(std::string::npos,
              env.readLog().find("reqRes.msg:{\"code\":0,\"data\":{\"baseRealname"));

    // Without loginInfo the phone is emptied; wrong shapes read as empty.
    server.queueReply(Json200(R"({"code":0,"data":{"baseRealname":{"code":"RN-2"}}})"));
    EXPECT_EQ(0, api.GetAllInfo("acc-1", realname, phone));
    EXPECT_EQ("RN-2", realname);
    EXPECT_EQ("", phone);
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
    EXPECT_NE(std::string::npos, env.readLog().find(", token:OU-9\">"));

    // Refused replies leave every output as it was.
    realname = "r", phone = "p", ouid = "o", code = "c";
    server.queueReply(Json200(R"({"code":"12","message":"no such account"})"));
    EXPECT_EQ(12, api.GetAllInfo("x", realname, phone));
    ExpectLastError(12, "no such account");
    server.queueReply(Json200("<html>"));
    EXPECT_EQ(10003, api.GetFinalRealnameOrgInfo("x", ouid));
    server.queueReply(Reply(401, R"({"code":401,"message":"signature does not match"})"));
    EXPECT_EQ(401, api.GetIdentityInfo("x", code));
    EXPECT_EQ("r", realname);
    EXPECT_EQ("p", phone);
    EXPECT_EQ("o", ouid);
    EXPECT_EQ("c", code);
}
