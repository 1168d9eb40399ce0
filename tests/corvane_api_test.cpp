// CCorvaneApi on the fake transport. Every operation, one row per request:
// method, URL, body bytes, a signature head that verifies, the outputs and
// the last error; the same calls on an incomplete record send nothing. Then
// the object: URL table, copies, Init, the hourly timer across objects, and
// the URL checks every operation shares.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "CorvaneApi.h"
#include "FakeTransport.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "TempEnv.h"
#include "platform/CorvaneTimer.h"

using kxtest::FakeTransport;

namespace {

const std::string kBase = "https://platform.example:8443";
const long long kHourMs = 3600000;
long long g_now = 0;

size_t Count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

// Base64url without padding, as a token carries its parts.
std::string Base64Url(const std::string& text) {
    std::string b64 = IWK_Base64Encode(text);
    for (char& ch : b64) ch = ch == '+' ? '-' : ch == '/' ? '_' : ch;
    return b64.substr(0, b64.find('='));
}

std::string Ok(const std::string& data) {
    return R"({"code":0,"data":)" + data + "}";
}

// An accepted reply carrying a token whose payload is this text.
std::string Token(const std::string& payload) {
    return Ok(R"({"token":")" + Base64Url(R"({"alg":"HS256","typ":"JWT"})") + "." +
              Base64Url(payload) + ".c2ln\"}");
}

// The request of a snapshot: option is the doc's option member (or none),
// flow adds the finished flow.
std::string Snapshot(const std::string& id, const std::string& step, const std::string& text,
                     const std::string& option, bool flow) {
    return "POST /v1/witnessflows/" + id +
           R"(/saveSnapshot {"data":{"doc":[{"docHash":"H=","docName":"doc-1","hashAlgorithm":)"
           R"("SHA256",)" +
           option + R"("thirdDocId":"doc-1","type":1,"version":"v1"}])" +
           (flow ? R"(,"flow":{"option":"UPDATE","signStatus":"FINISHED","version":"v1"})" : "") +
           R"(},"step":")" + step + R"(","stepDescription":")" + text + "\"}\n";
}

// One request. A row without a call repeats the call of the row before, which
// sends the same request, with another reply.
struct Row {
    std::function<long()> call;
    long code;
    std::string state;  // State() afterwards
    std::string reply = "";
    std::string sent = "";  // "METHOD path body"; empty: nothing may be sent
    int status = 200;       // 0: the exchange times out instead
    bool shield = false;    // the record names a mobile-shield client
};

// A complete record of the platform service, a private store and log, and
// the fake transport.
class CorvaneTest : public ::testing::Test {
protected:
    CorvaneTest() {
        info.SerType = 3;
        info.ProjectID = "proj-1";
        info.ProjectSecret = "secret-1";
        info.ServerIp = kBase.substr(8);
        info.Port = 8443;
    }

    TempEnv env;
    FakeTransport fake;
    _init_Info_s info;
};

class CorvaneOpsTest : public CorvaneTest {
protected:
    void SetUp() override { ASSERT_EQ(0, api.Init(info)); }

    // The last request, once its head verified with the project's secret and
    // named the JSON content type once (a GET too).
    std::string Sent() {
        const KXWireRequest req = fake.lastRequest();
        const std::string target = req.url.substr(std::min(kBase.size(), req.url.size()));
        EXPECT_EQ(KX_HEAD_OK, FakeTransport::VerifySigned(req, kBase, "proj-1", "secret-1"))
            << req.url;
        EXPECT_EQ(1, std::count(req.headers.begin(), req.headers.end(),
                                "Content-Type: application/json"));
        return req.method + " " + target + (req.body.empty() ? "" : " " + req.body);
    }

    // The outputs a|b|c|d without the trailing ones still "k", "unpassed" once
    // passed is false, then the last error unless it is still the marker.
    std::string State() const {
        std::string state = a + "|" + b + "|" + c + "|" + d;
        while (state.size() > 1 && state.compare(state.size() - 2, 2, "|k") == 0)
            state.resize(state.size() - 2);
        const std::string error = kxtest::LastError();
        return state + (passed ? "" : " unpassed") + (error == "-1 marker" ? "" : " " + error);
    }
    void Reset() {
        a = b = c = d = "k";
        passed = true;
        kxtest::MarkLastError();
    }

    CCorvaneApi api;
    std::string a, b, c, d;
    bool passed = true;
};

class CorvaneApiTest : public CorvaneTest {
protected:
    void SetUp() override {
        g_now = 5000;
        oldClock = IWK_SetTimerClock([] { return g_now; });
    }
    void TearDown() override {
        IWK_KillTimer(nullptr, static_cast<uintptr_t>(iTimerId));
        IWK_SetTimerClock(oldClock);
    }
    // An hour on: whether a timer fired, and when the next one is due (-1: none).
    std::string Tick() {
        g_now += kHourMs;
        const int fired = IWK_DispatchTimers();
        return std::to_string(fired) + " " + std::to_string(IWK_NextTimerDueMs());
    }
    // The identity code an object reads from an accepted reply (all replies are
    // alike, so one left queued by a call refused locally does no harm).
    std::string Identity(CCorvaneApi& api, const std::string& id = "acc") {
        fake.reply(200, R"({"code":0,"data":{"code":"ID-9"}})");
        std::string code = "kept";
        const long lRes = api.GetIdentityInfo(id, code);
        return lRes == 0 ? code : std::to_string(lRes) + " " + code;
    }

    KXTimerClock oldClock = nullptr;
};

}  // namespace

TEST_F(CorvaneOpsTest, EveryOperationOnTheWire) {
    CCorvaneApi* on = &api;
    const std::string des = "\xBC\xD3\xC3\xDC";  // GBK bytes go out raw
    const std::string mob =
        R"(POST /v1/willingness/createMobShieldAuth {"accountId":"acc-1","bizDes":"d",)"
        R"("bizType":"ENC","bizTypeDes":")" +
        des + "\"";
    const std::string sign =
        R"("sealType":1,"signHash":"H=","signPkcsType":"pkcs1","signTicket":"TK-1",)"
        "\"subjectAccountId\":\"acc-1\",\"thirdDocId\":\"doc-1\"}\n";
    std::vector<Row> rows = {
        // The code comes before the redirect URI; nothing is escaped, the secret in clear.
        {[&] { return on->GetRealAccoutIdByCode("https://app/cb&b=2", "C&D%41", a); }, 0, "acc-7",
         Token(R"({"authorizer":"acc-7","exp":1})"),
         "GET /v1/oauth2/access_token?appId=proj-1&code=C&D%41&grantType=authorization_code&"
         "redirectUri=https://app/cb&b=2&secret=secret-1"},
        {nullptr, 0, "", Token(R"({"sub":"x"})")},
        // No token, a payload that is no JSON: 10001 although the server said 0;
        // no last error.
        {nullptr, 10001, "k", Ok("{}")},
        {nullptr, 10001, "k", Token("not json")},
        {nullptr, 4001, "k 4001 code expired", R"({"code":4001,"message":"code expired"})"},

        {[&] { return on->GetIdentityInfo("acc%201&x=1", a); }, 0, "IDC-1",
         Ok(R"({"code":"IDC-1"})"), "GET /v1/accounts/acc%201&x=1/getIdentityInfo"},
        {nullptr, 401, "k 401 denied", "denied", "", 401},
        {[&] { return on->GetAllInfo("acc-1", a, b); }, 0, "RN-1|138",
         Ok(R"({"baseRealname":{"code":"RN-1"},"loginInfo":{"idcard":{"mobile":"138"}}})"),
         "GET /v1/accounts/acc-1/getAllInfo"},
        // Without loginInfo the phone is emptied; wrong shapes read as empty.
        {nullptr, 0, "|", Ok(R"({"baseRealname":["RN"]})")},
        {nullptr, 12, "k 12 no such account", R"({"code":"12","message":"no such account"})"},
        {[&] { return on->GetFinalRealnameOrgInfo("org-1", a); }, 0, "OU-9",
         Ok(R"({"base":{"ouid":"OU-9"}})"), "GET /v1/organizations/org-1/getFinalRealnameOrgInfo"},
        {nullptr, 10105, std::string("k 10105 fake: timed out"), "", "", 0},

        // Every key, empty ones too; the type as a JSON integer; GBK bytes raw.
        {[&] { return on->CreateEncOrDecTask("acc-1", "", "\xD6\xD0", "", -7, a); }, 0, "enc-1",
         Ok(R"({"taskId":"enc-1"})"),
         R"(POST /v1/encryptions {"accountId":"acc-1","description":")"
         "\xD6\xD0"
         "\",\"ownerOrganId\":\"\",\"refTaskId\":\"\",\"type\":-7}\n"},
        {nullptr, 10003, "k", R"({"code":1.5})"},
        {[&] { return on->ExecuteEncOrDecTask("enc-1", "EPK", "WILL", a, b); }, 0, "PUB|SYM",
         Ok(R"({"publicKey":"PUB","symmetricKey":"SYM"})"),
         "PUT /v1/encryptions/enc-1/execute {\"encryptedSymmetricKey\":\"EPK\",\"willAuthCode\":"
         "\"WILL\"}\n"},
        {nullptr, 3301, "k 3301 will not given", R"({"code":3301,"message":"will not given"})"},
        // An empty id is sent all the same.
        {[&] { return on->ExecuteEncOrDecTask("", "E", "W", a, b); }, 0, "P2|",
         Ok(R"({"publicKey":"P2"})"),
         "PUT /v1/encryptions//execute {\"encryptedSymmetricKey\":\"E\",\"willAuthCode\":\"W\"}\n"},
        {[&] { return on->EndEncOrDecTask("enc-1", 2, "done"); }, 0, "k", R"({"code":0})",
         "PUT /v1/encryptions/enc-1 {\"result\":2,\"resultDescription\":\"done\"}\n"},

        // Without a mobile-shield client: four keys, whatever the scene and space.
        {[&] { return on->CreateMobShieldAuth("acc-1", "ENC", des, "d", a, b, c, true, "s-1"); }, 0,
         "B1|https://m/x?id=1|W1",
         Ok(R"({"bizId":"B1","qrcodeContent":"https://m/x?id=1","willAuthId":"W1"})"), mob + "}\n"},
        {nullptr, 500, "k 500 oops", "oops", "", 500},
        {[&] { return on->CreateMobShieldAuth("acc-1", "ENC", des, "d", a, b, c, true, ""); }, 0,
         "||", Ok("{}"),
         mob + R"(,"mobShieldClientId":"msc-1","mobShieldScene":"mobileShieldEncryptWill",)"
               "\"space\":\"\"}\n",
         200, true},
        {[&] { return on->CreateMobShieldAuth("acc-1", "ENC", des, "d", a, b, c, false, "sp"); }, 0,
         "||", Ok("{}"),
         mob + R"(,"mobShieldClientId":"msc-1","mobShieldScene":"mobileShieldDecryptWill",)"
               "\"space\":\"sp\"}\n",
         200, true},
        // All three identifiers in the body, none in the URL.
        {[&] { return on->VerifyMobShieldAuth("B1", "ENC", "W1", a, passed); }, 0, "APPROVED",
         Ok(R"({"status":"APPROVED","passed":true})"),
         "PUT /v1/willingness/verifyMobShieldAuth "
         "{\"bizId\":\"B1\",\"bizType\":\"ENC\",\"willAuthId\":\"W1\"}\n"},
        {nullptr, 5, "k 5 no such request", R"({"code":5,"message":"no such request"})"},

        // The business scene is GBK.
        {[&] { return on->CreateWitnessFlowTask("org-1", a); }, 0, "wf-1",
         Ok(R"({"witnessFlowId":"wf-1"})"),
         "POST /v1/witnessflows {\"businessScene\":\"\xCA\xB5\xC3\xFB\xC8\xCF\xD6\xA4\","
         R"("launchEndpoint":"ZENMARK_CLIENT","launchIp":"127.0.0.1","mobileShieldVersion":1,)"
         "\"payerAccountId\":\"org-1\",\"signOrder\":\"SIGN_NON_SEQUENCE\"}\n"},
        {nullptr, -1, "k -1 payer unknown", R"({"code":-1,"message":"payer unknown"})"},
        {[&] { return on->ExecuteSnapShotTask("wf-1", "doc-1", "H=", "SHA256", "START", "begin"); },
         0, "k", R"({"code":0})", Snapshot("wf-1", "START", "begin", R"("option":"ADD",)", false)},
        {[&] { return on->ExecuteSnapShotTask("wf-1", "doc-1", "H=", "SHA256", "FINISH", ""); }, 0,
         "k", R"({"code":0})", Snapshot("wf-1", "FINISH", "", R"("option":"UPDATE",)", true)},
        {[&] { return on->CheckSignAccessTask("wf-1", "acc-1", "doc-1", "H=", a); }, 0, "TK-1",
         Ok(R"({"signTicket":"TK-1"})"),
         R"(POST /v1/witnessflows/wf-1/checkSignAccess {"docs":[{"docHash":"H=","thirdDocId":)"
         R"("doc-1"}],"endpoint":"ZENMARK_CLIENT","launchApproval":false,"signerAccountId":)"
         "\"acc-1\",\"signerIp\":\"127.0.0.1\",\"signerType\":3}\n"},
        {[&] { return on->SignTask("wf-1", "acc-1", "doc-1", "H=", "TK-1", 65536, a, b); }, 0,
         "ST-1|QR-1", Ok(R"({"taskId":"ST-1","qrcodeContent":"QR-1"})"),
         "POST /v1/witnessflows/wf-1/sign {" + sign},
        {[&] { return on->SignTask("wf-1", "acc-1", "doc-1", "H=", "TK-1", 0x10000, a, b); }, 0,
         "|", Ok("{}"),
         R"(POST /v1/witnessflows/wf-1/sign {"mobileShieldClientId":"msc-1",)" + sign, 200, true},
        {[&] { return on->QuerySignResultTask("wf-1", "TK&1=", "ST+1", a, b, c, d); }, 0,
         "SIG|SL-1|CERT|RSA",
         Ok(R"({"taskId":"ST-1","thirdDocId":"doc-1","signlogId":"SL-1","signResult":"SIG",)"
            R"("certBase64":"CERT","certAlgorithm":"RSA"})"),
         "GET /v1/witnessflows/wf-1/mobileShield/signResult?signTicket=TK&1=&taskId=ST+1"},
        {[&] { return on->SignConfirmTask("wf-1", "doc-1", "H=", "SHA256", "TK-1", ""); }, 0, "k",
         R"({"code":0})",
         R"(POST /v1/witnessflows/wf-1/confirm {"confirmDatas":[{"docFileKey":"doc-1",)"
         R"("hashAlgorithm":"SHA256","signedHash":"H=","thirdDocId":"doc-1"}],)"
         "\"signTicket\":\"TK-1\",\"signlogIds\":[\"\"]}\n"},
    };
    // Other step words add neither option nor flow and go out unchanged.
    for (const std::string step : {"finish", "START ", "FINISHED", ""}) {
        rows.push_back(
            {[&, step] { return on->ExecuteSnapShotTask("", "doc-1", "H=", "SHA256", step, "x"); },
             0, "k", R"({"code":0})", Snapshot("", step, "x", "", false)});
    }
    // Only PKCS #1 is accepted: anything else ends before a head or a request.
    for (long type : {0L, 1L, 0x10001L, -65536L, 0x100010000L}) {
        rows.push_back(
            {[&, type] { return on->SignTask("wf-1", "acc-1", "doc-1", "H=", "TK-1", type, a, b); },
             10001, "k"});
    }

    // A record that names the server but is incomplete: before each row's
    // request its call ends there with 10009, sending nothing (before the sign
    // type's refusal too), outputs and last error untouched.
    CCorvaneApi blank;
    blank.m_stInitInfo = info;
    blank.m_stInitInfo.ProjectSecret.clear();
    const Row* last = nullptr;
    size_t calls = 0;
    for (const Row& row : rows) {
        const size_t before = fake.requestCount();
        if (row.call) {
            last = &row;
            Reset();
            on = &blank;
            EXPECT_EQ(10009, row.call()) << row.sent;
            EXPECT_EQ("k", State()) << row.sent;
            on = &api;
            ++calls;
        }
        const std::string sent = last->sent;
        Reset();
        api.m_stInitInfo.strMobileShieldClientId = row.shield ? "msc-1" : "";
        if (!sent.empty() && row.status == 0) fake.fail(FakeTransport::Fault::Timeout);
        if (!sent.empty() && row.status != 0) fake.reply(row.status, row.reply);
        EXPECT_EQ(row.code, last->call()) << row.reply;
        ASSERT_EQ(before + (sent.empty() ? 0 : 1), fake.requestCount()) << sent;
        EXPECT_EQ(sent, sent.empty() ? "" : Sent());
        EXPECT_EQ(row.state, State()) << row.reply;
    }
    const std::string log = env.readLog();
    // reqRes stays empty in the exit line of a local refusal.
    EXPECT_EQ(calls, Count(log, "\"lRes:10009, reqRes.errCode:0, reqRes.msg:"));
    for (const char* line :
         {"<Corvane [",
          "- CCorvaneApi::GetRealAccoutIdByCode> <\"strRedirectUri:https://app/cb&b=2, "
          "strCode:C&D%41\">",
          ", token:{\"authorizer\":\"acc-7\",\"exp\":1}\">",
          "strRealAccountId:acc-1,strRealOrgId:,strDescription:\xD6\xD0,strrRefTaskId:,"
          "iTaskType:-7\">",
          "<\"strRealOrgId:org-1,strRealOrgId:org-1,description:create witnessflows\">",
          "<\"strRealAccountId\xA3\xBA"
          "acc-1,strThirdDocId:doc-1,strDocHash:H=\">",
          "- CCorvaneApi::SignTask> <\"lRes:10001, reqRes.errCode:0, reqRes.msg:\">",
          "strSignTicket:TK-1,signType:4295032832\">",
          "<\"strRealAccountId\xA3\xBA"
          "acc-1,strThirdDocId:doc-1,strDocHash:H=\xA3\xAC"
          "strSignTicket:TK-1,signType:65536\">",
          "<\"strThirdDocId:doc-1,strDocHash:H=\xA3\xAC"
          "strAlgorithm:SHA256, strSignTicket:TK-1, strSignlogId:\">"}) {
        EXPECT_NE(std::string::npos, log.find(line)) << line;
    }
}

// passed as asBool reads it: a non-zero number is true; text, arrays,
// objects, null and an absent key are false. A number status reads as its digits.
TEST_F(CorvaneOpsTest, VerifyReadsPassedAsAsBoolDoes) {
    const std::pair<const char*, bool> forms[] = {
        {"1", true},    {"-2", true},  {"0.5", true},   {"0", false},    {"\"true\"", false},
        {"[1]", false}, {"{}", false}, {"null", false}, {"false", false}};
    for (const auto& form : forms) {
        passed = !form.second;
        fake.reply(200, Ok(std::string(R"({"status":1,"passed":)") + form.first + "}"));
        EXPECT_EQ(0, api.VerifyMobShieldAuth("B1", "ENC", "W1", a, passed));
        EXPECT_EQ(form.second, passed) << form.first;
    }
    EXPECT_EQ("1", a);
}

TEST_F(CorvaneApiTest, UrlTableAndCopies) {
    CCorvaneApi api;
    EXPECT_EQ("https://%s/v1/oauth2/access_token?appId=%s&secret=%s&grantType=client_credentials",
              api.strClientTokenUrl);
    EXPECT_EQ("", api.strReservedA + api.strReservedB);
    EXPECT_EQ("https://%s/v3/bid-sign/seals/%s?sealType=%d&accountId=%s", api.strBIDSealByTypeUrl);
    EXPECT_EQ("https://%s/v3/bid-sign/logout", api.strBIDLogoutUrl);
    EXPECT_EQ(&api, pCurrentCorvaneApi);

    ASSERT_EQ(0, api.Init(info));
    api.strAllInfoUrl = "changed";
    {
        CCorvaneApi copy(api);  // ready at once; the current object stays
        EXPECT_EQ(&api, pCurrentCorvaneApi);
        EXPECT_EQ("changed " + info.ServerIp,
                  copy.strAllInfoUrl + " " + copy.m_stInitInfo.ServerIp);
        EXPECT_EQ("ID-9", Identity(copy));

        CCorvaneApi other;
        EXPECT_EQ(&other, pCurrentCorvaneApi);
        other = other;
        other = copy;
        EXPECT_EQ("changed proj-1", other.strAllInfoUrl + " " + other.m_stInitInfo.ProjectID);
    }
    // Destroying the copies cleared the current object, the original works on.
    EXPECT_EQ(nullptr, pCurrentCorvaneApi);
    std::string a = "a", b = "b";
    EXPECT_EQ(0, api.GetNetworkToken(a, b, true));
    EXPECT_EQ("a b", a + " " + b);
    CCorvaneApi fresh;
    EXPECT_EQ(10009, fresh.GetNetworkToken(a, b, false));
}

TEST_F(CorvaneApiTest, InitAndTheHourlyTimerAcrossObjects) {
    CCorvaneApi a;
    _init_Info_s bad = info;
    bad.ProjectSecret.clear();
    EXPECT_EQ(10001, a.Init(bad));
    EXPECT_EQ(-1, IWK_NextTimerDueMs());  // no timer from a refused record

    ASSERT_EQ(0, a.Init(info));
    const int first = iTimerId;
    EXPECT_NE(0, first);
    EXPECT_EQ(kHourMs, IWK_NextTimerDueMs());
    // A second Init replaces the timer: one runs, not two.
    ASSERT_EQ(0, a.Init(info));
    EXPECT_NE(first, iTimerId);
    EXPECT_FALSE(IWK_KillTimer(nullptr, static_cast<uintptr_t>(first)));
    // A refused record leaves the object ready and the timer as it was.
    const int second = iTimerId;
    EXPECT_EQ(10001, a.Init(bad));
    EXPECT_EQ("secret-1", a.m_stInitInfo.ProjectSecret);
    EXPECT_EQ(second, iTimerId);

    // The tick sees a ready current object: the timer goes on.
    EXPECT_EQ("1 3600000", Tick());
    const std::string log = env.readLog();
    EXPECT_EQ(1u, Count(log, "<Corvane ["));
    EXPECT_NE(std::string::npos, log.find("- TimerProc> <\"TimerProc Begin\">"));
    EXPECT_NE(std::string::npos, log.find("<KXServerBase [")) << log;

    {
        // A later object that never saw Init: the next tick finds its record
        // incomplete and ends the timer, although a is ready.
        CCorvaneApi b;
        EXPECT_EQ("1 -1", Tick());
        EXPECT_EQ("0 -1", Tick());
        EXPECT_EQ(2u, Count(env.readLog(), "TimerProc Begin"));

        ASSERT_EQ(0, a.Init(info));  // b is still the current object
        EXPECT_EQ("1 -1", Tick());
    }
    // b's destruction cleared the current object; a new Init runs a timer
    // whose ticks find no object and leave the timer running.
    ASSERT_EQ(0, a.Init(info));
    EXPECT_EQ(nullptr, pCurrentCorvaneApi);
    EXPECT_EQ("1 3600000", Tick());

    // Destroying any object, a copy too, ends the process's timer.
    { CCorvaneApi copy(a); }
    EXPECT_EQ(-1, IWK_NextTimerDueMs());
    EXPECT_EQ("ID-9", Identity(a));
}

// The hourly check runs on the thread of Init while other threads make and
// destroy objects: the check must never look at an object being destroyed
// (a sanitizer build sees the race this guards against).
TEST_F(CorvaneApiTest, HourlyCheckBesideDestructionOnAnotherThread) {
    CCorvaneApi a;
    std::atomic<bool> stop{false};
    std::thread churn([&] {
        while (!stop) {
            CCorvaneApi b;
            b.m_stInitInfo = info;
        }
    });
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(0, a.Init(info));
        Tick();
    }
    stop = true;
    churn.join();
}

// The URL rules are the call's (see the URL template and certificate
// expansion tests); here only that the client goes through them.
TEST_F(CorvaneApiTest, UrlLimitAndConversionsBeforeSending) {
    CCorvaneApi api;
    ASSERT_EQ(0, api.Init(info));
    kxtest::MarkLastError();
    // One byte over 1023.
    const std::string url = "https://" + info.ServerIp + "/v1/accounts//getIdentityInfo";
    EXPECT_EQ("10110 kept", Identity(api, std::string(1024 - url.size(), 'x')));
    // A template changed to conversions the operation does not supply.
    api.strIdentityInfoUrl = "https://%s/v1/accounts/%s/%s";
    EXPECT_EQ("10001 kept", Identity(api));
    EXPECT_EQ(0u, fake.requestCount());
    kxtest::ExpectLastErrorMarked();  // a local refusal leaves the last error alone
}
