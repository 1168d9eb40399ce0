// The BID operations of CCorvaneApi on the fake transport: every operation's
// request bytes and head, its outputs, its answer to a refused token and to an
// incomplete record; then the login's body and user data, and the masked log.
#include <gtest/gtest.h>

#include <functional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "CorvaneApi.h"
#include "FakeTransport.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "TempEnv.h"

using kxtest::FakeTransport;

namespace {

const std::string kBase = "https://bid.example";

std::string Ok(const std::string& data) {
    return R"({"code":0,"data":)" + data + "}";
}

// "code|output|output...", the shape every row compares.
template <typename... T>
std::string Out(long code, const T&... outputs) {
    std::ostringstream text;
    text << code;
    ((text << "|" << outputs), ...);
    return text.str();
}

std::string Code(const std::string& out) {
    return out.substr(0, out.find('|'));
}

KXReceiveData File(const std::string& id, const std::string& hash) {
    KXReceiveData file;
    file.externalFileId = id;
    file.fileName = id + ".pdf";
    file.signHash = hash;
    return file;
}

KXReceiveData Envelope(const std::string& b64) {
    KXReceiveData item;
    item.digitalEnvelopeB64 = b64;
    item.symmetricKey = "k";
    return item;
}

std::string Files(const std::vector<KXReceiveData>& files) {
    std::string text;
    for (const KXReceiveData& f : files) {
        text += "[" + f.externalFileId + " " + f.signLogId + " " + f.signature + " " +
                f.symmetricKey + " " + f.publicKey + " " + f.authInfo + "]";
    }
    return text;
}

std::string Seals(const std::vector<_seal_Info_s>& seals) {
    std::string text;
    for (const _seal_Info_s& s : seals) {
        text += "[" + s.sealId + " " + s.sealName + " " + std::to_string(s.height) + "x" +
                std::to_string(s.width) + " t" + std::to_string(s.sealType) + " " + s.fileKey +
                " " + s.fileUrl + " p" + std::to_string(s.purchaseStatus) + " " + s.purchaseUrl +
                " " + s.scanModel;
        for (int type : s.purchaseSealTypes) text += " " + std::to_string(type);
        text += "]";
    }
    return text;
}

class BidTest : public ::testing::Test {
protected:
    void SetUp() override {
        _init_Info_s info = kxtest::FakeRecord();
        info.ServerIp = "bid.example";
        ASSERT_EQ(0, api.Init(info));
        blank.m_stInitInfo = info;
        blank.m_stInitInfo.ProjectSecret.clear();
    }

    // Which head the last request carried: the signature (verified), the
    // token, or none of the scheme's headers at all.
    std::string Head() const {
        const KXWireRequest req = fake.lastRequest();
        if (FakeTransport::VerifySigned(req, kBase, "p", "s") == KX_HEAD_OK) return "sig";
        std::string head = "none";
        for (const std::string& line : req.headers) {
            if (line.compare(0, 5, "X-KX-") != 0) continue;
            head = line.compare(0, 12, "X-KX-Token: ") == 0 && head == "none"
                       ? "token " + line.substr(12)
                       : "bad";
        }
        return head;
    }
    std::string Sent() const {
        const KXWireRequest req = fake.lastRequest();
        return req.method + " " + req.url.substr(kBase.size()) +
               (req.body.empty() ? "" : " " + req.body);
    }

    TempEnv env;
    FakeTransport fake;
    CCorvaneApi api;
    CCorvaneApi blank;  // a record without project: 10009 before any request
};

struct Row {
    std::function<std::string(CCorvaneApi&)> call;
    std::string head;
    std::string sent;
    std::string reply;
    std::string out;
    long on401;  // the code of a 401 from the server
};

}  // namespace

TEST_F(BidTest, EveryOperationHeadBodyOutputsAndCodes) {
    std::vector<KXReceiveData> two = {File("f1", "H1="), File("f2", "H2=")};
    _seal_Info_s pos;
    pos.keyWord = "Party A";
    pos.posPage = 2;
    pos.posX = -10;
    pos.posY = 30;
    pos.signType = " 3x";
    pos.sealId = "seal-1";
    two[0].vecSeals = {pos};
    const std::string files =
        R"({"signFiles":[{"externalFileId":"f1","fileName":"f1.pdf","posBeans":[{"keyWord":)"
        R"("Party A","posPage":2,"posX":-10,"posY":30,"sealId":"seal-1","signType":3}],)"
        R"("signHash":"H1="},{"externalFileId":"f2","fileName":"f2.pdf","signHash":"H2="}],)";
    const std::string created = Ok(R"({"taskId":"T1","url":"https://m/T1","scanMode":"QR"})");
    const std::vector<KXReceiveData> three = {Envelope("E1"), Envelope("E2"), Envelope("E3")};
    std::vector<_seal_Info_s> held(1);
    held[0].sealId = "old";
    const std::string seal =
        R"({"sealName":"S","height":40,"width":42,"sealId":"s1","sealType":2,"fileKey":"fk",)"
        R"("fileUrl":"fu","purchaseUrl":"pu","scanModel":"sm","purchaseSealTypes":[1,3]})";

    auto fileSign = [&](const char* auth, const char* type, std::vector<KXReceiveData> vec,
                        int use) {
        return [=](CCorvaneApi& o) mutable {
            std::string url = "k", mode = "k", task = "k";
            int activated = -1;
            const long rc = o.CreateBIDFileSignTask("acc-1", auth, "grp-1", type, "tok-1", vec, url,
                                                    mode, task, activated, use);
            return Out(rc, url, mode, task, activated);
        };
    };
    auto fileQuery = [&](int use) {
        return [=](CCorvaneApi& o) {
            std::vector<KXReceiveData> vec = two;
            int status = -1;
            const long rc = o.QueryBIDFileSignResultTask("T1", "tok-1", vec, status, use);
            return Out(rc, status, Files(vec));
        };
    };
    auto task = [](std::function<long(std::string&, std::string&, std::string&)> f) {
        return [=](CCorvaneApi&) {
            std::string id = "k", url = "k", mode = "k";
            const long rc = f(id, url, mode);
            return Out(rc, id, url, mode);
        };
    };
    CCorvaneApi* on = nullptr;  // the object the task rows run on

    const std::vector<Row> rows = {
        // Token head; positions as numbers, signType by atoi; taskGroupId for "2" only.
        {fileSign("auth-1", "2", two, 1), "token tok-1",
         "POST /v3/bid-sign/signatures/fileSignTasks " + files +
             R"("signerAccountId":"acc-1","signerAuthAccountId":"auth-1","taskGroupId":"grp-1",)"
             "\"taskGroupType\":2}\n",
         Ok(R"({"url":"U","scanMode":"M","taskId":"T1","taskGroupActivated":1})"), "0|U|M|T1|1",
         37007},
        // Any other choice signs, token ignored; no files, no signFiles; the
        // signer stands for an empty authorising account.
        {fileSign("", "02", {}, 0), "sig",
         "POST /v3/bid-sign/signatures/fileSignTasks {\"signerAccountId\":\"acc-1\","
         "\"signerAuthAccountId\":\"acc-1\",\"taskGroupType\":2}\n",
         Ok("{}"), "0||||0", 37007},
        {fileSign("", "", {}, 2), "sig",
         "POST /v3/bid-sign/signatures/fileSignTasks {\"signerAccountId\":\"acc-1\","
         "\"signerAuthAccountId\":\"acc-1\",\"taskGroupType\":0}\n",
         Ok("{}"), "0||||0", 37007},
        // By position, up to the caller's vector: the third result is dropped.
        {fileQuery(1), "token tok-1", "GET /v3/bid-sign/signatures/fileSignTasks/T1",
         Ok(R"({"status":1,"signResults":[{"externalFileId":"x1","signLogId":"L1","signature":)"
            R"("S1"},{"externalFileId":"x2","signLogId":"L2","signature":"S2"},)"
            R"({"externalFileId":"x3","signLogId":"L3","signature":"S3"}]})"),
         "0|1|[x1 L1 S1   ][x2 L2 S2   ]", 37007},
        {fileQuery(0), "sig", "GET /v3/bid-sign/signatures/fileSignTasks/T1",
         Ok(R"({"status":2,"signResults":[{"signature":"S1"}]})"), "0|2|[f1     ][f2     ]", 37007},
        {task([&](std::string& i, std::string& u, std::string& m) {
             return on->CreateBIDLoginTask(i, u, m, "app-1", 0, 1);
         }),
         "none",
         "POST /v3/bid-sign/loginTasks "
         "{\"signRawData\":\"\",\"type\":0,\"withServicesInProject\":0}\n",
         created, "0|T1|https://m/T1|QR", 401},
        {[](CCorvaneApi& o) { return Out(o.GetBIDLoginOutTask("tok-1")); }, "token tok-1",
         "POST /v3/bid-sign/logout", Ok("null"), "0", 401},
        // No envelope: null, not an empty list.
        {task([&](std::string& i, std::string& u, std::string& m) {
             std::vector<KXReceiveData> none;
             return on->CreateBIDDecryptTask(none, "tok-1", i, u, m);
         }),
         "token tok-1",
         "POST /v3/bid-sign/decryptTasks {\"comment\":\"\",\"digitalEnvelopeList\":null}\n",
         created, "0|T1|https://m/T1|QR", 37007},
        {task([&](std::string& i, std::string& u, std::string& m) {
             std::vector<KXReceiveData> vec = three;
             return on->CreateBIDDecryptTaskWithAppId(vec, "app-1", i, u, m);
         }),
         "none",
         "POST /v3/bid-sign/decryptTasks "
         "{\"appId\":\"app-1\",\"comment\":\"\",\"digitalEnvelopeList\":[\"E1\",\"E2\",\"E3\"]}\n",
         created, "0|T1|https://m/T1|QR", 37007},
        {task([&](std::string& i, std::string& u, std::string& m) {
             std::string app = "app-1";
             return on->CreateBIDEncryptTask(app, i, u, m);
         }),
         "none", "POST /v3/bid-sign/encryptTasks {\"appId\":\"app-1\",\"checkSubject\":false}\n",
         created, "0|T1|https://m/T1|QR", 401},
        // A mismatch at the second position: 37008, first and third stored.
        {[&](CCorvaneApi& o) {
             std::vector<KXReceiveData> vec = three;
             int status = -1;
             const long rc = o.QueryBIDDecryptResultTask("T1", "tok-1", status, vec);
             return Out(rc, status, Files(vec));
         },
         "token tok-1", "GET /v3/bid-sign/decryptTasks/T1",
         Ok(R"({"status":1,"symmetricKeys":[{"digitalEnvelopeB64":"E1","symmetricKey":"K1"},)"
            R"({"digitalEnvelopeB64":"E3","symmetricKey":"K3"},)"
            R"({"digitalEnvelopeB64":"E3","symmetricKey":"K3"}]})"),
         "37008|1|[   K1  ][   k  ][   K3  ]", 37007},
        // One public key and authInfo for every item.
        {[&](CCorvaneApi& o) {
             std::vector<KXReceiveData> vec(3);
             int status = -1;
             const long rc = o.QueryBIDEncryptResultTask("T1", status, vec);
             return Out(rc, status, Files(vec));
         },
         "none", "GET /v3/bid-sign/encryptTasks/T1",
         Ok(R"({"status":1,"publicKey":"PK","authInfo":{"b":[1],"a":"x"}})"),
         "0|1|[    PK {\"a\":\"x\",\"b\":[1]}\n][    PK {\"a\":\"x\",\"b\":[1]}\n]"
         "[    PK {\"a\":\"x\",\"b\":[1]}\n]",
         401},
        {task([&](std::string& i, std::string& u, std::string& m) {
             return on->CreateBIDAuthInfoTask("tok-1", "Contract 7", i, u, m);
         }),
         "token tok-1",
         "POST /v3/bid-sign/authTasks {\"seconds\":-5,\"subjectName\":\"Contract 7\"}\n", created,
         "0|T1|https://m/T1|QR", 37007},
        {[](CCorvaneApi& o) {
             int status = -1;
             std::string code = "k";
             const long rc = o.QueryBIDAuthInfoResultTask("T1", "tok-1", status, code);
             return Out(rc, status, code);
         },
         "token tok-1", "GET /v3/bid-sign/authTasks/T1",
         Ok(R"({"status":1,"bizData":{"authCode":"AC-1","other":2}})"), "0|1|AC-1", 37007},
        {[](CCorvaneApi& o) {
             std::string sig = "k";
             const long rc =
                 o.GetBIDSignDataTask("tok-1", "AC-1", "aGk=", sig, "1", "1.2.840.113549.1.1.11");
             return Out(rc, sig);
         },
         "token tok-1",
         "POST /v3/bid-sign/signatures/textHashSign "
         "{\"authCode\":\"AC-1\",\"hashAlg\":\"SHA256\",\"rawBase64\":\"aGk=\"}\n",
         Ok(R"({"signature":"SIG"})"), "0|SIG", 37007},
        // A failed verification is an answer: result 0, the certificate filled.
        {[](CCorvaneApi& o) {
             std::string cert = "k";
             bool verified = true;
             const long rc = o.GetBIDVerifyResultTask("tok-1", "hi", "SIG", cert, verified);
             return Out(rc, cert, verified);
         },
         "token tok-1",
         "POST /v3/bid-sign/signatures/verifyTextHashSign "
         "{\"signResult\":\"SIG\",\"text\":\"hi\"}\n",
         Ok(R"({"certBase64":"CERT","verifyResult":false})"), "0|CERT|0", 37007},
        // The account stands in the URL for an empty organisation.
        {[](CCorvaneApi& o) {
             std::string seals = "k";
             const long rc = o.GetBIDSealTask("acc-1", "", seals);
             return Out(rc, seals);
         },
         "sig", "POST /v1/bid-sign/seal/acc-1/initAndGetSeals {\"accountId\":\"acc-1\"}\n",
         Ok("null"), "0|{\"data\":null}\n", 401},
        {[](CCorvaneApi& o) {
             std::string seals = "k";
             const long rc = o.GetBIDSealTask("acc-1", "org-1", seals);
             return Out(rc, seals);
         },
         "sig", "POST /v1/bid-sign/seal/org-1/initAndGetSeals {\"accountId\":\"acc-1\"}\n",
         Ok(R"([{"b":1}])"), "0|{\"data\":[{\"b\":1}]}\n", 401},
        // One seal object is one record, appended; purchaseStatus stays 1.
        {[&](CCorvaneApi& o) {
             std::vector<_seal_Info_s> vec = held;
             const long rc = o.GetBIDSealByAuthCodeTask("tok-1", "AC-1", 0, vec);
             return Out(rc, Seals(vec));
         },
         "token tok-1", "POST /v3/bid-sign/seals {\"authCode\":\"AC-1\",\"sealType\":0}\n",
         Ok(seal), "0|[old  0x0 t0   p1  ][s1 S 40x42 t2 fk fu p1  ]", 37007},
        {[&](CCorvaneApi& o) {
             std::vector<_seal_Info_s> vec = held;
             const long rc = o.GetBIDSealByAuthCodeTask("tok-1", "AC-1", 3, vec);
             return Out(rc, Seals(vec));
         },
         "token tok-1", "POST /v3/bid-sign/seals {\"authCode\":\"AC-1\",\"sealType\":3}\n",
         Ok("[" + seal + R"(,{"sealId":"s2"}])"),
         "0|[old  0x0 t0   p1  ][s1 S 40x42 t2 fk fu p1  ][s2  0x0 t0   p1  ]", 37007},
        // By organisation: an absent purchaseStatus is 0 here.
        {[&](CCorvaneApi& o) {
             std::vector<_seal_Info_s> vec = held;
             const long rc = o.GetBIDSealByOrgIdTask("tok-1", "acc-1", "", 0, vec);
             return Out(rc, Seals(vec));
         },
         "token tok-1", "GET /v3/bid-sign/seals/acc-1?accountId=acc-1",
         Ok("[" + seal + R"(,{"sealId":"s2","purchaseStatus":2}])"),
         "0|[old  0x0 t0   p1  ][s1 S 40x42 t2 fk fu p0 pu sm 1 3][s2  0x0 t0   p2  ]", 37007},
        {[&](CCorvaneApi& o) {
             std::vector<_seal_Info_s> vec;
             const long rc = o.GetBIDSealByOrgIdTask("tok-1", "acc-1", "org-1", -3, vec);
             return Out(rc, Seals(vec));
         },
         "token tok-1", "GET /v3/bid-sign/seals/org-1?sealType=-3&accountId=acc-1", Ok("[]"), "0|",
         37007},
    };

    api.m_stInitInfo.iAuthSeconds = -5;
    blank.m_stInitInfo.iAuthSeconds = -5;
    for (const Row& row : rows) {
        const size_t before = fake.requestCount();
        on = &blank;
        EXPECT_EQ("10009", Code(row.call(blank))) << row.sent;
        EXPECT_EQ(before, fake.requestCount()) << row.sent;

        on = &api;
        kxtest::MarkLastError();
        fake.reply(200, row.reply);
        EXPECT_EQ(row.out, row.call(api)) << row.sent;
        EXPECT_EQ(row.sent, Sent());
        EXPECT_EQ(row.head, Head()) << row.sent;
        kxtest::ExpectLastErrorMarked();  // 37008 too stays out of the last error

        // Replies of any shape are read without a fault.
        for (
            const char* odd :
            {R"("x")", "[[1]]",
             R"({"status":1,"signResults":{"a":1},"symmetricKeys":[{"digitalEnvelopeB64":"E1","symmetricKey":[]}],)"
             R"("servicesInProject":{"a":{}},"addressInfo":[1],"bizData":"x","taskId":{},)"
             R"("authInfo":1e300,"purchaseSealTypes":"x","status ":1,"height":"40"})"}) {
            fake.reply(200, Ok(odd));
            EXPECT_EQ("0", Code(row.call(api))) << row.sent << " " << odd;
        }

        // 401 maps after the envelope: the last error keeps the server's word.
        fake.reply(200, R"({"code":401,"message":"token expired"})");
        EXPECT_EQ(std::to_string(row.on401), Code(row.call(api))) << row.sent;
        kxtest::ExpectLastError(401, "token expired");
    }

    // 1490152 becomes 37011 only where an authCode signs.
    std::string sig = "k";
    fake.reply(200, R"({"code":1490152,"message":"auth code used up"})");
    EXPECT_EQ(37011, api.GetBIDSignDataTask("tok-1", "AC", "t", sig, "0", ""));
    kxtest::ExpectLastError(1490152, "auth code used up");
    fake.reply(200, R"({"code":1490152,"message":"auth code used up"})");
    bool verified = true;
    EXPECT_EQ(1490152, api.GetBIDVerifyResultTask("tok-1", "t", "s", sig, verified));
    EXPECT_EQ("k", sig);

    // hashAlg only on a whole OID of the table; rawBase64 only for exactly "1".
    const std::vector<std::pair<std::pair<const char*, const char*>, const char*>> forms = {
        {{"1.2.840.113549.1.1.5", "0"}, R"({"authCode":"AC","hashAlg":"SHA1","text":"t"})"},
        {{"1.2.840.113549.1.1.1", "11"}, R"({"authCode":"AC","text":"t"})"},
        {{"1.2.840.113549.1.1.110", ""}, R"({"authCode":"AC","text":"t"})"},
        {{"", "1"}, R"({"authCode":"AC","rawBase64":"t"})"},
    };
    for (const auto& form : forms) {
        fake.reply(200, Ok("{}"));
        EXPECT_EQ(0, api.GetBIDSignDataTask("tok-1", "AC", "t", sig, form.first.second,
                                            form.first.first));
        EXPECT_EQ(std::string(form.second) + "\n", fake.lastRequest().body) << form.first.first;
    }
    // No seconds for 0.
    api.m_stInitInfo.iAuthSeconds = 0;
    std::string a, b, c;
    fake.reply(200, Ok("{}"));
    EXPECT_EQ(0, api.CreateBIDAuthInfoTask("tok-1", "S", a, b, c));
    EXPECT_EQ("{\"subjectName\":\"S\"}\n", fake.lastRequest().body);
    // What cannot go out as given is refused, never cut or sent bare: a task
    // group type beyond int, a task id holding a NUL (it would poll task T1),
    // a token that no head can carry.
    std::vector<KXReceiveData> vec = two;
    int status = -1;
    c = "k";
    const size_t before = fake.requestCount();
    EXPECT_EQ("10001|k|k|k|-1", fileSign("", "99999999999", two, 1)(api));
    EXPECT_EQ(10111, api.QueryBIDFileSignResultTask(std::string("T1\0/", 4), "t", vec, status, 1));
    EXPECT_EQ(10001, api.QueryBIDAuthInfoResultTask("T1", "tok\r\nX-A: 1", status, c));
    EXPECT_EQ(before, fake.requestCount());
    EXPECT_EQ("-1|k|" + Files(two), Out(status, c, Files(vec)));
    // The token in plain, a full-width comma before it; the key polls log no reply.
    const std::string log = env.readLog();
    for (const char* line : {"<\"strRealAccountId:acc-1,strRealAccountId:auth-1,sTaskGroupId:grp-1,"
                             "sTaskGroupType:2\xA3\xACsToken:tok-1\">",
                             "QueryBIDDecryptResultTask> <\"lRes:37008, reqRes.errCode:0\">",
                             "QueryBIDEncryptResultTask> <\"lRes:0, reqRes.errCode:0\">"}) {
        EXPECT_NE(std::string::npos, log.find(line)) << line;
    }
}

TEST_F(BidTest, LoginBodyByTypeAndConfiguration) {
    struct Case {
        int type, withEncCert, services;
        const char* needUserAddress;  // nullptr: not in the store
        std::string body;             // R stands for the challenge
    };
    const Case cases[] = {
        {0, 1, 0, nullptr, R"({"signRawData":"","type":0,"withServicesInProject":0})"},
        {0, 1, 2, "1",
         R"({"isNeedUserAddress":1,"signRawData":"","type":0,"withServicesInProject":2})"},
        {1, 1, 1, "2",
         R"({"appId":"app-1","signRawData":"R","type":1,"withEncCert":true,)"
         R"("withServicesInProject":1})"},
        {1, 0, 0, "1",
         R"({"appId":"app-1","isNeedUserAddress":1,"signRawData":"R","type":1,)"
         R"("withServicesInProject":0})"},
    };
    std::string challenge;
    for (const Case& c : cases) {
        env.writeConfig(c.needUserAddress == nullptr
                            ? ""
                            : std::string("[MobileBIDShield]\nneedUserAddress=") +
                                  c.needUserAddress + "\n");
        api.m_stInitInfo.iWithEncCert = c.withEncCert;
        api.m_stInitInfo.iWithServicesInProject = c.services;
        std::string id, url, mode;
        fake.reply(200, Ok("{}"));
        ASSERT_EQ(0, api.CreateBIDLoginTask(id, url, mode, "app-1", c.type, 0));
        EXPECT_EQ("sig", Head());
        // The challenge: Base64 of 8 fresh random bytes.
        std::smatch m;
        std::string body = fake.lastRequest().body;
        if (std::regex_search(body, m, std::regex("\"signRawData\":\"([A-Za-z0-9+/]{11}=)\""))) {
            EXPECT_NE(challenge, m[1].str());
            challenge = m[1].str();
            body.replace(m.position(1), m.length(1), "R");
        }
        EXPECT_EQ(c.body + "\n", body);
    }
    // Type 2: 10016, nothing sent, no last error, outputs untouched.
    kxtest::MarkLastError();
    const size_t before = fake.requestCount();
    std::string id = "k", url = "k", mode = "k";
    EXPECT_EQ(10016, api.CreateBIDLoginTask(id, url, mode, "app-1", 2, 1));
    EXPECT_EQ(before, fake.requestCount());
    EXPECT_EQ("k k k", id + " " + url + " " + mode);
    kxtest::ExpectLastErrorMarked();
    EXPECT_NE(std::string::npos,
              env.readLog().find("<\"strAppId:app-1,iLoginType:2,iUseHeadToken:1\">"));
}

TEST_F(BidTest, LoginResultUserInfoAndMaskedLog) {
    const std::string reply =
        Ok(R"({"status":1,"ouid":"OU","orgId":"ORG","cert":"C","encCert":"EC","publicKey":"PK",)"
           R"("token":"TOK","orgName":"","name":"Zhang","idNo":"110101199001011234",)"
           R"("loginAccount":"13800138000","orgCertNo":"91X","serviceEndTime":17000000000000,)"
           R"("addressInfo":{"cityName":"Hefei","districtName":"","provinceName":"Anhui"},)"
           R"("servicesInProject":[{"licenseId":"L1","startTime":0,"endTime":5,"grantStartTime":)"
           R"(6,"grantEndTime":0},{}]})");
    std::string ouid = "k", org = "k", enc = "k", cert = "k", token = "k", orgName = "k", pub = "k",
                raw = "k", user = "k";
    int status = -1;
    auto query = [&](CCorvaneApi& on, int use) {
        return on.QueryBIDLoginResultTask("T9", ouid, org, status, enc, cert, token, orgName, pub,
                                          raw, user, use);
    };
    fake.reply(200, Ok(R"({"status":0,"token":"TOK"})"));
    EXPECT_EQ(0, query(api, 1));
    EXPECT_EQ("none", Head());
    EXPECT_EQ("0 k k k", std::to_string(status) + " " + token + " " + raw + " " + user);

    fake.reply(401, "expired");
    EXPECT_EQ(37007, query(api, 1));
    kxtest::ExpectLastError(401, "expired");
    fake.reply(200, reply);
    EXPECT_EQ(0, query(api, 0));
    EXPECT_EQ("sig", Head());
    EXPECT_EQ("GET /v3/bid-sign/loginTasks/T9", Sent());
    EXPECT_EQ("1 OU ORG C EC PK TOK Zhang", std::to_string(status) + " " + ouid + " " + org + " " +
                                                cert + " " + enc + " " + pub + " " + token + " " +
                                                orgName);
    // Outputs stay plain; the raw reply is the whole text.
    EXPECT_EQ(reply, raw);
    EXPECT_EQ(R"({"cityName":"Hefei","idNo":"110101199001011234","loginAccount":"13800138000",)"
              R"("name":"Zhang","orgCertNo":"91X","orgId":"ORG","orgName":"Zhang","ouid":"OU",)"
              R"("provinceName":"Anhui","serviceEndTime":17000000000000,"servicesInProject":[)"
              R"({"endTime":5,"grantStartTime":6,"licenseId":"L1","status":0},{"status":0}],)"
              R"("taskId":"T9"})"
              "\n",
              user);

    // Both polls that carry personal data mask it in the log, on every path.
    fake.reply(200, reply);
    int authStatus = 0;
    std::string code;
    EXPECT_EQ(0, api.QueryBIDAuthInfoResultTask("T9", "tok", authStatus, code));
    EXPECT_EQ(10009, query(blank, 0));
    const std::string log = env.readLog();
    EXPECT_EQ(std::string::npos, log.find("110101199001011234"));
    EXPECT_EQ(std::string::npos, log.find("13800138000"));
    for (const char* fn : {"QueryBIDLoginResultTask", "QueryBIDAuthInfoResultTask"}) {
        EXPECT_NE(std::string::npos,
                  log.find(std::string(fn) + "> <\"lRes:0, reqRes.errCode:0, reqRes.msg:"
                                             "{\"code\":0,\"data\":{\"addressInfo\":"))
            << fn;
    }
    EXPECT_NE(std::string::npos, log.find("\"idNo\":\"110101********1234\""));
    EXPECT_NE(std::string::npos, log.find("\"loginAccount\":\"138****8000\""));
    EXPECT_NE(std::string::npos,
              log.find("QueryBIDLoginResultTask> <\"lRes:10009, reqRes.errCode:0, reqRes.msg:\">"));
}
