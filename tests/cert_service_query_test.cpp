// KXSER_CertServiceQuery on the fake transport: the request as it goes out,
// data written back as text, and what a failure leaves behind. The web
// service's reply rules themselves are in reply_readers_test.
#include <gtest/gtest.h>

#include <string>

#include "FakeTransport.h"
#include "KXServerApi.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "TempEnv.h"

using kxtest::FakeTransport;
using kxtest::LastError;
using kxtest::MarkLastError;

TEST(CertServiceQuery, RequestsAndResults) {
    TempEnv env;
    FakeTransport fake;
    std::string result = "stale";
    const std::string base = "https://ws.example/kxweb/v3/bid-sign/services";
    // Values go out as they are: nothing encoded, nothing between the parts.
    const struct {
        const char* sn;
        const char* ukey;
        std::string url;
    } queries[] = {
        {"5A1B&x=\xD6\xD0", "UK-1", base + "?certSn=5A1B&x=\xD6\xD0&ukeyNum=UK-1"},
        {nullptr, "UK-2", base + "?ukeyNum=UK-2"},
        {"SN3", "", base + "?certSn=SN3"},
    };
    ASSERT_TRUE(env.set("KXServerApi", "CertServiceQuery", "https://ws.example/kxweb"));
    for (const auto& q : queries) {
        fake.reply(200, R"({"code":0,"data":{"b":"\u4e2d","a":[1,{"c":null}]}})");
        EXPECT_EQ(0, KXSER_CertServiceQuery(q.sn, q.ukey, result));
        const KXWireRequest req = fake.lastRequest();
        EXPECT_EQ("GET " + q.url + " ", req.method + " " + req.url + " " + req.body);
        for (const std::string& line : req.headers) EXPECT_EQ(std::string::npos, line.find("X-KX"));
        EXPECT_EQ("{\"a\":[1,{\"c\":null}],\"b\":\"\xE4\xB8\xAD\"}\n", result);
    }
    ASSERT_TRUE(env.set("KXServerApi", "CertServiceQueryUri", "/other"));
    fake.reply(200, R"({"code":0})");
    EXPECT_EQ(0, KXSER_CertServiceQuery("SN4", nullptr, result));
    EXPECT_EQ("https://ws.example/kxweb/other?certSn=SN4", fake.lastRequest().url);
    EXPECT_EQ("null\n", result);

    // Failures empty the result; both arguments empty send nothing.
    MarkLastError();
    const size_t sent = fake.requestCount();
    EXPECT_EQ(10005, KXSER_CertServiceQuery(nullptr, "", result));
    EXPECT_EQ("|-1 marker", result + "|" + LastError());
    EXPECT_EQ(sent, fake.requestCount());
    result = "stale";
    fake.reply(200, R"({"code":7})");
    EXPECT_EQ(7, KXSER_CertServiceQuery("SN", nullptr, result));
    EXPECT_EQ(R"(|7 {"code":7})", result + "|" + LastError());
    result = "stale";
    fake.reply(200, "[0]");
    EXPECT_EQ(10003, KXSER_CertServiceQuery("SN", nullptr, result));
    EXPECT_EQ("", result);
    // A '#' would have cut the query; a blank would have been sent encoded.
    const size_t before = fake.requestCount();
    for (const char* sn : {"AB#12", "A B"}) {
        result = "stale";
        EXPECT_EQ(10111, KXSER_CertServiceQuery(sn, "UK1", result)) << sn;
        EXPECT_EQ("", result);
    }
    EXPECT_EQ(before, fake.requestCount());
}
