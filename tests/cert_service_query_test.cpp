// KXSER_CertServiceQuery end to end against a loopback HTTPS server: the
// request on the wire, the reply cases, the last error and TLS trust.
#include <gtest/gtest.h>

#include <string>

#include "KXServerApi.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "LoopbackServer.h"
#include "TempEnv.h"
#include "TestCA.h"

using kxtest::ExpectLastError;
using kxtest::LoopbackServer;
using kxtest::MarkLastError;
using kxtest::Reply;
using kxtest::TestCA;

namespace {

class CertServiceQueryTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(env.set("KXUtils", "Proxy", ""));
        ASSERT_TRUE(env.set("KXUtils", "CAFile", TestCA::instance().caFile()));
        ASSERT_TRUE(env.set("KXServerApi", "CertServiceQuery", server.baseUrl() + "/kxweb"));
        MarkLastError();
    }

    long Query(const char* sn, const char* ukey) {
        return KXSER_CertServiceQuery(sn, ukey, result);
    }

    TempEnv env;
    LoopbackServer server{LoopbackServer::Scheme::Https};
    std::string result = "stale";
};

}  // namespace

TEST_F(CertServiceQueryTest, RequestOnTheWire) {
    server.setDefaultReply(Reply(200, R"({"code":0,"data":{"a":1}})", "application/json"));
    EXPECT_EQ(0, Query("5A1B&x=\xD6\xD0", "UK-1"));
    auto req = server.lastRequest();
    EXPECT_EQ("GET", req.method);
    // Values go out as they are: nothing encoded, nothing between the parts.
    EXPECT_EQ("/kxweb/v3/bid-sign/services?certSn=5A1B&x=\xD6\xD0&ukeyNum=UK-1", req.target);
    EXPECT_EQ("", req.header(KX_HDR_SIGNATURE));
    EXPECT_EQ("", req.body);

    EXPECT_EQ(0, Query(nullptr, "UK-2"));
    EXPECT_EQ("/kxweb/v3/bid-sign/services?ukeyNum=UK-2", server.lastRequest().target);
    EXPECT_EQ(0, Query("SN3", ""));
    EXPECT_EQ("/kxweb/v3/bid-sign/services?certSn=SN3", server.lastRequest().target);

    ASSERT_TRUE(env.set("KXServerApi", "CertServiceQueryUri", "/other"));
    EXPECT_EQ(0, Query("SN4", nullptr));
    EXPECT_EQ("/kxweb/other?certSn=SN4", server.lastRequest().target);

    // Both empty: refused before anything is sent.
    const size_t before = server.requestCount();
    EXPECT_EQ(10005, Query(nullptr, ""));
    EXPECT_EQ("", result);
    EXPECT_EQ(before, server.requestCount());
    ExpectLastError(-1, "marker");
}

TEST_F(CertServiceQueryTest, ReplyCases) {
    server.queueReply(Reply(200, R"({"code":0})"));
    EXPECT_EQ(0, Query("SN", nullptr));
    EXPECT_EQ("null\n", result);

    server.queueReply(Reply(200, R"({"code":0,"data":{"b":"\u4e2d","a":[1,{"c":null}]}})"));
    EXPECT_EQ(0, Query("SN", nullptr));
    EXPECT_EQ("{\"a\":[1,{\"c\":null}],\"b\":\"\xE4\xB8\xAD\"}\n", result);

    server.queueReply(Reply(200, R"({"data":"x"})"));  // an absent code reads as success
    EXPECT_EQ(0, Query("SN", nullptr));
    EXPECT_EQ("\"x\"\n", result);
    ExpectLastError(-1, "marker");

    server.queueReply(Reply(200, R"({"code":7})"));
    EXPECT_EQ(7, Query("SN", nullptr));
    EXPECT_EQ("", result);
    ExpectLastError(7, R"({"code":7})");

    server.queueReply(Reply(200, R"({"code":"12","message":"no such cert","data":{}})"));
    EXPECT_EQ(12, Query("SN", nullptr));
    ExpectLastError(12, "no such cert");

    MarkLastError();
    for (const char* bad : {"not json", "[0]", R"({"code":true})", R"({"code":1e40})"}) {
        server.queueReply(Reply(200, bad));
        result = "stale";
        EXPECT_EQ(10003, Query("SN", nullptr)) << bad;
        EXPECT_EQ("", result) << bad;
    }
    ExpectLastError(-1, "marker");

    // An HTTP failure status is the result; the last error stays as it was.
    server.queueReply(Reply(401, "token refused"));
    EXPECT_EQ(401, Query("SN", nullptr));
    EXPECT_EQ("", result);
    ExpectLastError(-1, "marker");
}

TEST_F(CertServiceQueryTest, TlsTrustDecides) {
    server.setDefaultReply(Reply(200, R"({"code":0,"data":1})"));
    EXPECT_EQ(0, Query("SN", nullptr));
    EXPECT_EQ("1\n", result);

    ASSERT_TRUE(env.set("KXUtils", "CAFile", TestCA::unrelated().caFile()));
    EXPECT_EQ(10104, Query("SN", nullptr));
    EXPECT_EQ("", result);

    // The system store does not know the test CA either.
    env.writeConfig("[KXUtils]\nProxy=\n[KXServerApi]\nCertServiceQuery=" + server.baseUrl() +
                    "/kxweb\n");
    EXPECT_EQ(10104, Query("SN", nullptr));
    ExpectLastError(-1, "marker");
}
