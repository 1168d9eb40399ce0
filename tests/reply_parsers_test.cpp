// The two general envelopes: status reading, message and last-error rules,
// and replies of the wrong shape.
#include <gtest/gtest.h>

#include <string>

#include "KXReplyParsers.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"

using kxtest::ExpectLastError;
using kxtest::ExpectLastErrorMarked;
using kxtest::MarkLastError;

namespace {

KXReqResult Reply(const std::string& text) {
    KXReqResult r;
    r.errCode = 0;
    r.msg = text;
    return r;
}

}  // namespace

TEST(ReplyParsers, SuccessKeepsRawReplyAndHandsOutPayload) {
    MarkLastError();
    Json::Value data("untouched");
    KXReqResult r = Reply("{}");
    EXPECT_EQ(0, ParseCodeEnvelope(r, data));
    EXPECT_TRUE(data.isNull());
    EXPECT_EQ("{}", r.msg);

    r = Reply(R"({"code":0,"message":"ok","data":{"k":[1,2]}})");
    EXPECT_EQ(0, ParseCodeEnvelope(r, data));
    EXPECT_EQ(2u, data["k"].size());
    EXPECT_EQ(R"({"code":0,"message":"ok","data":{"k":[1,2]}})", r.msg);

    // Decimal text counts as the number; text without digits reads as 0.
    r = Reply(R"({"errCode":"0","data":5})");
    EXPECT_EQ(0, ParseErrCodeEnvelope(r, data));
    EXPECT_EQ(5, data.asInt());
    r = Reply(R"({"code":"abc"})");
    EXPECT_EQ(0, ParseCodeEnvelope(r, data));
    ExpectLastErrorMarked();
}

TEST(ReplyParsers, ServerFailuresCarryCodeAndMessage) {
    MarkLastError();
    Json::Value data("untouched");
    KXReqResult r = Reply(R"({"code":"401"})");
    EXPECT_EQ(401, ParseCodeEnvelope(r, data));
    EXPECT_EQ(401, r.errCode);
    EXPECT_EQ(IWK_GetErrorMsg(10024), r.msg);
    EXPECT_EQ("untouched", data.asString());
    ExpectLastErrorMarked();

    r = Reply(R"({"code":5,"message":"x","data":{"a":1}})");
    EXPECT_EQ(5, ParseCodeEnvelope(r, data));
    EXPECT_EQ("x", r.msg);
    EXPECT_EQ("untouched", data.asString());
    ExpectLastError(5, "x");

    // The other envelope reads its own keys and ignores the first one's.
    r = Reply(R"({"code":9,"errCode":-7,"msg":"bad","message":"other"})");
    EXPECT_EQ(-7, ParseErrCodeEnvelope(r, data));
    EXPECT_EQ("bad", r.msg);

    // A message of the wrong type is read as text, never thrown on.
    r = Reply(R"({"code":3,"message":["no"]})");
    EXPECT_EQ(3, ParseCodeEnvelope(r, data));
    EXPECT_EQ(IWK_GetErrorMsg(10024), r.msg);
}

TEST(ReplyParsers, TransportFailurePassesThroughUnparsed) {
    MarkLastError();
    Json::Value data;
    KXReqResult r = Reply(R"({"code":0})");
    r.errCode = 7;
    r.msg = "connect failed";
    EXPECT_EQ(7, ParseCodeEnvelope(r, data));
    EXPECT_EQ("connect failed", r.msg);
    ExpectLastError(7, "connect failed");
}

TEST(ReplyParsers, UnusableRepliesGive10003AndLeaveLastError) {
    const char* replies[] = {
        "no json",
        "",
        "[1,2,3]",
        "42",
        "\"text\"",
        "null",
        R"({"code":true})",
        R"({"code":1.5})",
        R"({"code":{}})",
        R"({"code":[0]})",
        R"({"code":4294967296})",
        R"({"code":"99999999999999999999"})",
    };
    for (const char* text : replies) {
        MarkLastError();
        Json::Value data("untouched");
        KXReqResult r = Reply(text);
        EXPECT_EQ(10003, ParseCodeEnvelope(r, data)) << text;
        EXPECT_EQ(10003, r.errCode) << text;
        EXPECT_EQ(IWK_GetErrorMsg(10003), r.msg) << text;
        EXPECT_EQ("untouched", data.asString()) << text;
        ExpectLastErrorMarked();
    }
    MarkLastError();
    Json::Value data;
    KXReqResult r = Reply(R"({"errCode":[1]})");
    EXPECT_EQ(10003, ParseErrCodeEnvelope(r, data));
    ExpectLastErrorMarked();
}
