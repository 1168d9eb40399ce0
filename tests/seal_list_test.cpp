// The certificate-keyed seal lists: the forward envelopes they write (through
// an installed forwarder), their outcomes, the four reply readers; and the
// in-process forwarder on the fake transport.
#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <tuple>
#include <vector>

#include "FakeTransport.h"
#include "KXSealOpenApi.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "TempEnv.h"
#include "frame/ReplyReaders.h"
#include "seal/SealListParsers.h"

using kxtest::LastError;
using kxtest::MarkLastError;

namespace {

const std::string kGbk = "\xD6\xD0\xCE\xC4";

// Records every envelope (without the line feed it must end in) and answers
// the queued (code, reply) pairs; with none queued, 0 and no reply.
struct Forwarder {
    static std::vector<std::string> sent;
    static std::deque<std::pair<long, std::string>> answers;
    static long Serve(const char* data, size_t length, std::string& reply, const _init_Info_s*) {
        const std::string envelope(data, length);
        sent.push_back(!envelope.empty() && envelope.back() == '\n' ? envelope.substr(0, length - 1)
                                                                    : "no line feed");
        if (answers.empty()) return 0;
        const auto [code, text] = answers.front();
        answers.pop_front();
        if (code == 0) reply = text;
        return code;
    }
};
std::vector<std::string> Forwarder::sent;
std::deque<std::pair<long, std::string>> Forwarder::answers;

// A reply envelope around a server's reply.
std::string Envelope(const std::string& server) {
    return R"({"errorCode":0,"result":)" + Json::valueToQuotedString(server.c_str()) + "}";
}

std::string SealXml(int width) {
    return IWK_Base64Encode(
        "<Seal><SealInfo><esID>es</esID><PropertyInfo><name>n</name><cert>C</cert><type>1</type>"
        "</PropertyInfo><PictrueInfo><data>P</data><type>png</type><width>" +
        std::to_string(width) + "</width><height>" + std::to_string(width * 2) +
        "</height></PictrueInfo></SealInfo></Seal>");
}

// sealId|width|height|sealDataType|certB64|sealData (data only for ASN.1 seals) of each seal.
std::string Seals(const std::vector<_seal_Info_s>& seals) {
    std::string out;
    for (const _seal_Info_s& s : seals)
        out += s.sealId + "|" + std::to_string(s.width) + "|" + std::to_string(s.height) + "|" +
               std::to_string(s.sealDataType) + "|" + s.certB64 + "|" +
               (s.sealId.empty() ? s.sealData : "") + ";";
    return out;
}

class SealListTest : public ::testing::Test {
protected:
    void SetUp() override {
        previous = IWK_SetForwarder(&Forwarder::Serve);
        Forwarder::sent.clear();
        Forwarder::answers.clear();
        MarkLastError();
    }
    void TearDown() override { IWK_SetForwarder(previous); }

    TempEnv env;
    KXForwarder previous = nullptr;
    std::vector<_seal_Info_s> seals;
};

}  // namespace

TEST_F(SealListTest, EnvelopesCarryBodyHeaderLinesAndContentType) {
    const std::string json = R"(\"Content-Type: application/json;charset=UTF-8\")";
    const std::string vmark = R"(\"X-Vmark-Open-App-Id: )" + kGbk + R"(\",)";
    const std::string ypt =
        R"({"funcName":"URL","funcType":"POST","header":"{\"httpHead\":[)" + vmark + json +
        R"(]}\n","param":"{\"algorithm\":\"SM2\",\"appId\":\")" + kGbk +
        R"(\",\"certB64\":\"C\",\"mark\":3,\"originB64\":\"O\",\"signatureB64\":\"\",\"ukeyNum\":\"U\"}\n"})";
    auto with = [](std::string text, const std::string& what, const std::string& by) {
        return text.replace(text.find(what), what.size(), by);
    };
    const std::string shared = with(ypt, "URL", "http://s/v1/orbis/ukey/integrate/getSealWithUser");
    const std::string config = "[KXSign]\nserverUrl=http://s\n[MobileShield]\nappId=" + kGbk + "\n";
    // configuration, function (0 YPT, 1 serial, 2 RBN), the envelopes sent
    const std::vector<std::tuple<std::string, int, std::vector<std::string>>> cases = {
        {config, 0, {shared}},
        {config + "[KXSign]\nTApiserverUrl=\n", 0, {shared}},
        // The dedicated URL wins, and the app id header stays away.
        {config + "[KXSign]\nTApiserverUrl=http://t\ngetSealWithUser=/y\n",
         0,
         {with(with(ypt, "URL", "http://t/y"), vmark, "")}},
        {"[KXSign]\nserverUrl=http://s\n[MobileShield]\nappId=a\n",
         1,
         {R"({"contentType":"application/json","funcName":"http://s/integrate/getCertSealInfosBySn","funcType":"POST","header":"{\"httpHead\":[)" +
          json + R"(]}\n","param":"{\"appId\":\"a\",\"certSn\":\"SN\"}\n"})"}},
        {"[KXSign]\nserverUrl=http://s\ngetCertSealInfosBySn=/sn\n",
         1,
         {R"({"contentType":"application/json","funcName":"http://s/sn","funcType":"POST","header":"","param":"{\"certSn\":\"SN\"}\n"})"}},
        {"[RbnSeal]\nserverUrl=http://r\nappId=ra\n[MobileShield]\nappId=no\n",
         2,
         {R"({"funcName":"http://r/v1/oauth/token","funcType":"GET","header":"{\"httpHead\":[\"appId: ra\"]}\n","param":""})",
          R"({"funcName":"http://r/v1/seal/getSealBySignCert","funcType":"POST","header":"{\"httpHead\":[\"accessToken: T1\",)" +
              json + R"(]}\n","param":"{\"sealType\":2,\"signCert\":\"SC\",\"ukeySN\":\"\"}\n"})"}},
        {"[RbnSeal]\nserverUrl=http://r\ngetToken=/t\n",
         2,
         {R"({"funcName":"http://r/t","funcType":"GET","header":"","param":""})"}},
    };
    for (const auto& [config, function, expected] : cases) {
        SCOPED_TRACE(config);
        env.writeConfig(config);
        Forwarder::sent.clear();
        // The token comes only where the app id is configured.
        const bool token = config.find("appId=ra") != std::string::npos;
        Forwarder::answers = {
            {0, Envelope(token ? R"({"code":0,"data":{"accessToken":"T1"}})" : "{}")}};
        if (function == 0) KX_GetSealListByYPT("C", "U", "SM2", "O", nullptr, 3, seals, false);
        if (function == 1) KX_GetSealListByCertSN("SN", seals);
        if (function == 2) KX_GetSealListByCert_RBN("SC", nullptr, 2, seals);
        EXPECT_EQ(expected, Forwarder::sent);
    }
}

TEST_F(SealListTest, OutcomesBeforeAndAroundTheForward) {
    env.writeConfig("[KXSign]\nserverUrl=http://s\n[RbnSeal]\nserverUrl=http://r\n");
    const std::string list =
        Envelope(R"({"code":0,"data":{"certB64":"CB","seals":[{"data":")" + SealXml(96) + "\"}]}}");
    seals.resize(1);
    // forward code and reply ("" for none), result, seals after, envelopes sent
    const std::vector<std::tuple<long, std::string, long, size_t>> forwards = {
        {10103, "", 10103, 1},
        {0, "not json", 10001, 1},
        {0, "[1]", 10001, 1},
        {0, R"({"errorCode":"x"})", 10001, 1},
        {0, R"({"errorCode":404,"result":"gone"})", 404, 1},
        {0, list, 0, 2},
    };
    for (const auto& [code, reply, expected, count] : forwards) {
        SCOPED_TRACE(reply);
        Forwarder::answers.push_back({code, reply});
        EXPECT_EQ(expected, KX_GetSealListByCertSN("SN", seals));
        EXPECT_EQ(count, seals.size());  // appended, never cleared
        EXPECT_EQ("-1 marker", LastError());
    }
    EXPECT_EQ("|0|0|0||;es|96|192|0|CB|;", Seals(seals));

    // Refused before any forward: required arguments, then the server URL.
    EXPECT_EQ(10005, KX_GetSealListByYPT("C", nullptr, "", "O", nullptr, 0, seals, true));
    EXPECT_EQ(10005, KX_GetSealListByCertSN(nullptr, seals));
    EXPECT_EQ(10005, KX_GetSealListByCert_RBN("", nullptr, 0, seals));
    env.writeConfig("[KXSign]\nTApiserverUrl=\n[RbnSeal]\nappId=a\n");
    EXPECT_EQ(10076, KX_GetSealListByYPT("C", nullptr, "A", "O", nullptr, 0, seals, true));
    EXPECT_EQ(10076, KX_GetSealListByCertSN("SN", seals));
    EXPECT_EQ(10076, KX_GetSealListByCert_RBN(nullptr, "U", 0, seals));
    EXPECT_EQ(6u, Forwarder::sent.size());

    // RBN: an empty token ends with 0 before the list; a refused token with its code.
    env.writeConfig("[RbnSeal]\nserverUrl=http://r\n");
    Forwarder::sent.clear();
    Forwarder::answers.push_back({0, Envelope(R"({"code":0,"message":"no data"})")});
    EXPECT_EQ(0, KX_GetSealListByCert_RBN("SC", "U", 1, seals));
    EXPECT_EQ("0 no data", LastError());
    Forwarder::answers.push_back({0, Envelope(R"({"code":401,"message":"bad app"})")});
    EXPECT_EQ(401, KX_GetSealListByCert_RBN("SC", "U", 1, seals));
    EXPECT_EQ("401 bad app", LastError());
    Forwarder::answers.push_back({0, Envelope(R"({"code":0,"data":{"accessToken":"T"}})")});
    Forwarder::answers.push_back(
        {0, Envelope(R"({"code":0,"data":[{"asnBase64":"ASN1"},{"x":1},{"asnBase64":"ASN2"}]})")});
    EXPECT_EQ(0, KX_GetSealListByCert_RBN("SC", "U", 1, seals));
    EXPECT_EQ(4u, Forwarder::sent.size());
    EXPECT_EQ("|0|0|0||;es|96|192|0|CB|;|0|0|1||ASN1;|0|0|1||ASN2;", Seals(seals));
}

TEST(SealListReaders, OutcomeTables) {
    // A reply of code 0 whose data holds the list under key (none: data is the list).
    auto list = [](const std::string& key, const std::string& items) {
        const std::string array = "[" + items + "]";
        return R"({"code":0,"data":)" + (key.empty() ? array : "{" + key + array + "}") + "}";
    };
    const std::string good = "{\"data\":\"" + SealXml(96) + "\"}";
    const std::string good2 = "{\"data\":\"" + SealXml(100) + "\"}";
    const std::string bad = "{\"data\":\"" +
                            IWK_Base64Encode("<Seal><SealInfo><esID>x</esID></SealInfo></Seal>") +
                            "\"";
    const std::string sealList = R"("sealList":)";
    const std::string seals = R"("certB64":"CB","seals":)";
    // reader (0 list, 1 by serial, 2 RBN list, 3 token), reply, result|seals|last error
    const std::vector<std::tuple<int, std::string, std::string>> cases = {
        {0, "no json", "10003||-1 marker"},
        {2, R"({"code":[1]})", "10003||-1 marker"},
        {3, R"({"code":7,"message":"m","data":{"accessToken":"T"}})", "7||7 m"},
        {0, R"({"code":0,"message":"empty","data":{}})", "0||0 empty"},
        {1, R"({"code":0,"data":[]})", "0||0 "},
        {2, R"({"code":"9","message":"text code"})", "9||9 text code"},
        {0, R"({"code":0,"data":{"sealList":{}}})", "10048||-1 marker"},
        {1, list(seals, ""), "10048||-1 marker"},
        {2, R"({"code":0,"data":{"a":1}})", "10048||-1 marker"},
        {0, list(sealList, R"({"data":""},{"x":1})"), "10048||-1 marker"},
        {2, list("", R"({"asnBase64":""})"), "10048||-1 marker"},
        // Millimetres: 96 px is 25, 100 is 26; the last element with data decides.
        {0, list(sealList, good + "," + good2 + "," + bad + "}"),
         "10010|es|25|50|0||;es|26|52|0||;|-1 marker"},
        // An ASN.1 seal whose XML fails is kept, still converted.
        {0, list(sealList, bad + R"(,"sealDataType":1},{"data":""})"), "0|x|0|0|1||;|-1 marker"},
        {1, list(seals, bad + "}," + good + "," + bad + "}"), "0|es|96|192|0|CB|;|-1 marker"},
        {3, R"({"code":0,"data":{"accessToken":"T"}})", "0|T|-1 marker"},
    };
    for (const auto& [reader, reply, expected] : cases) {
        SCOPED_TRACE(reply);
        MarkLastError();
        std::vector<_seal_Info_s> seals;
        std::string token;
        const long code = reader == 0   ? OnParseSealListRes(reply, seals, false)
                          : reader == 1 ? OnParseSealListRes2(reply, seals)
                          : reader == 2 ? OnParseRBNSealListRes(reply, seals)
                                        : OnParseRBNTokenRes(reply, token);
        EXPECT_EQ(expected, std::to_string(code) + "|" + token + Seals(seals) + "|" + LastError());
    }
    // keepPixels leaves the picture's size as it came.
    std::vector<_seal_Info_s> kept;
    OnParseSealListRes(list(sealList, good2), kept, true);
    EXPECT_EQ("es|100|200|0||;", Seals(kept));
}

TEST(ServerForword, PerformsTheEnvelopeOverHttp) {
    TempEnv env;
    kxtest::FakeTransport fake;
    std::string reply;
    auto forward = [&reply](const std::string& envelope) {
        return IWK_ServerForword(envelope.data(), envelope.size(), reply, nullptr);
    };
    const std::string post =
        R"({"funcType":"POST","funcName":"http://f/p","param":"{\"a\":\")" + kGbk + R"(\"}",)";
    // envelope, status (0: refused), reply envelope, header lines of the request
    const std::vector<std::tuple<std::string, int, std::string, std::string>> cases = {
        {post + R"("header":"{\"httpHead\":[\"X-A: 1\",\"B: 2\"]}","contentType":"a/b"})", 200,
         R"({"errorCode":0,"result":"ok"})", "X-A: 1|B: 2|Content-Type: a/b|"},
        // A status of 300 and above comes back as errorCode, with the reply.
        {R"({"funcType":"GET","funcName":"http://f/p","param":"","header":""})", 404,
         R"({"errorCode":404,"result":"ok"})", ""},
        {post + R"("header":"{\"httpHead\":[\"Content-Type: t/x\"]}","contentType":"a/b"})", 0,
         R"({"errorCode":10103,"result":"fake: connection refused"})", "Content-Type: t/x|"},
    };
    for (const auto& [envelope, status, expected, headers] : cases) {
        status ? fake.reply(status, "ok") : fake.fail(kxtest::FakeTransport::Fault::Refused);
        ASSERT_EQ(0, forward(envelope));
        EXPECT_EQ(expected + "\n", reply);
        const KXWireRequest sent = fake.lastRequest();
        std::string lines;
        for (const std::string& line : sent.headers) lines += line + "|";
        EXPECT_EQ(headers, lines);
        EXPECT_EQ(sent.method == "GET" ? "" : "{\"a\":\"" + kGbk + "\"}", sent.body);
    }
    // Envelopes it cannot carry out as written: nothing is sent, reply untouched.
    for (const std::string bad :
         {"", R"({"funcType":"DELETE","funcName":"http://f/"})",
          R"({"funcType":"GET","funcName":"http://f/","param":"{}"})",
          R"({"funcType":"POST","header":"{\"httpHead\":\"X: 1\"}"})",
          R"({"funcType":"POST","header":"{\"httpHead\":[\"X: 1\\r\\nY: 2\"]}"})",
          R"({"funcType":"POST","contentType":"a\nX-Evil: 1"})"}) {
        reply = "kept";
        EXPECT_EQ(KX_ERR_INVALID_VALUE, forward(bad)) << bad;
        EXPECT_EQ("kept", reply);
    }
    EXPECT_EQ(KX_ERR_INVALID_VALUE, IWK_ServerForword(nullptr, 3, reply, nullptr));
    EXPECT_EQ(3u, fake.requestCount());
}
