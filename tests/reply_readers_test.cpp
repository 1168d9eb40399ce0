// Every reply reader against one table: the code, what it hands on as data,
// what it leaves in the last error and in the result record. Replies of any
// shape get a code, never an exception.
#include <gtest/gtest.h>

#include <string>

#include "KXReplyParsers.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "frame/ReplyReaders.h"

using kxtest::LastError;
using kxtest::MarkLastError;

namespace {

const char kMarked[] = "-1 marker";
const char kUntouched[] = "untouched";

struct Row {
    KXReply reader;
    const char* reply;
    long code;
    const char* data;       // kxjson::Write of data without its line end, or kUntouched
    const char* lastError;  // "code text", or kMarked when none was written
    const char* msg;        // the result record's msg afterwards; null: the reply as it came
};

std::string Name(KXReply r) {
    const char* names[] = {"code", "errCode", "service", "openApi", "legacy", "xml", "print"};
    return names[static_cast<int>(r)];
}

}  // namespace

TEST(ReplyReaders, Table) {
    using R = KXReply;
    const std::string noMessage = IWK_GetErrorMsg(KX_ERR_SERVER_NO_MESSAGE);
    const std::string unparsable = IWK_GetErrorMsg(KX_ERR_REPLY_UNPARSABLE);
    const Row rows[] = {
        // code/message/data: data handed on, raw reply kept.
        {R::CodeEnvelope, "{}", 0, "null", kMarked, nullptr},
        {R::CodeEnvelope, R"({"code":0,"message":"ok","data":{"k":[1,2]}})", 0, R"({"k":[1,2]})",
         kMarked, nullptr},
        // Decimal text counts as its number; text without digits as 0.
        {R::CodeEnvelope, R"({"code":"abc","data":1})", 0, "1", kMarked, nullptr},
        {R::CodeEnvelope, R"({"code":"401"})", 401, kUntouched, kMarked, noMessage.c_str()},
        {R::CodeEnvelope, R"({"code":5,"message":"x","data":{"a":1}})", 5, kUntouched, "5 x", "x"},
        {R::CodeEnvelope, R"({"code":3,"message":["no"]})", 3, kUntouched, kMarked,
         noMessage.c_str()},
        // errCode/msg reads its own keys only.
        {R::ErrCodeEnvelope, R"({"errCode":"0","data":5})", 0, "5", kMarked, nullptr},
        {R::ErrCodeEnvelope, R"({"code":9,"errCode":-7,"msg":"bad","message":"other"})", -7,
         kUntouched, "-7 bad", "bad"},
        {R::ErrCodeEnvelope, R"({"errCode":[1]})", 10003, kUntouched, kMarked, unparsable.c_str()},
        // The web service: an empty message leaves the whole reply behind.
        {R::ServiceEnvelope, R"({"code":0})", 0, "null", kMarked, nullptr},
        {R::ServiceEnvelope, R"({"code":0,"data":{"a":1}})", 0, R"({"a":1})", kMarked, nullptr},
        {R::ServiceEnvelope, R"({"data":2})", 0, "2", kMarked, nullptr},
        {R::ServiceEnvelope, R"({"code":7})", 7, kUntouched, R"(7 {"code":7})", nullptr},
        {R::ServiceEnvelope, R"({"code":7,"message":"m"})", 7, kUntouched, "7 m", nullptr},
        {R::ServiceEnvelope, "[]", 10003, kUntouched, kMarked, nullptr},
        {R::ServiceEnvelope, R"({"code":true})", 10003, kUntouched, kMarked, nullptr},
        // The seal server: flat object, 10027 without a usable errCode, the
        // last error written even with an empty msg; data is the object as read.
        {R::OpenApi, R"({"errCode":0,"token":"t"})", 0, R"({"errCode":0,"token":"t"})", kMarked,
         nullptr},
        {R::OpenApi, R"({"token":"t"})", 10027, R"({"token":"t"})", "10027 ", nullptr},
        {R::OpenApi, R"({"errCode":"5"})", 10027, R"({"errCode":"5"})", "10027 ", nullptr},
        {R::OpenApi, R"({"errCode":12,"msg":"no"})", 12, R"({"errCode":12,"msg":"no"})", "12 no",
         nullptr},
        {R::OpenApi, "[0]", 10003, "[0]", kMarked, nullptr},
        // The print-control service: as the seal server, but data is "data",
        // null when absent.
        {R::PrintCtrl, R"({"errCode":0,"data":[1]})", 0, "[1]", kMarked, nullptr},
        {R::PrintCtrl, R"({"errCode":0})", 0, "null", kMarked, nullptr},
        {R::PrintCtrl, R"({"errCode":"0","data":1})", 10027, kUntouched, "10027 ", nullptr},
        {R::PrintCtrl, R"({"errCode":3,"msg":"m","data":1})", 3, kUntouched, "3 m", nullptr},
        {R::PrintCtrl, "[0]", 10003, kUntouched, kMarked, nullptr},
        // The legacy authorization URL: 31015 for no JSON or no integer, data
        // handed on whatever the code.
        {R::Legacy, R"({"errCode":0,"data":"v"})", 0, R"("v")", kMarked, nullptr},
        {R::Legacy, R"({"data":"v","msg":"m"})", 31015, R"("v")", "31015 m", nullptr},
        {R::Legacy, R"({"errCode":4,"msg":7})", 4, "null", "4 7", nullptr},
        {R::Legacy, "<html>", 31015, kUntouched, "31015 <html>", nullptr},
        // The certificate check's XML.
        {R::CloudCheckXml, "<result><retcode>0</retcode></result>", 0, kUntouched, kMarked,
         nullptr},
        {R::CloudCheckXml, "<result><retcode>17</retcode></result>", 32004, kUntouched, kMarked,
         nullptr},
        {R::CloudCheckXml, "<result><retcode></retcode></result>", 10003, kUntouched, kMarked,
         nullptr},
        // Text that is no number reads as 0; white space is kept.
        {R::CloudCheckXml, "<result><retcode>ok</retcode></result>", 0, kUntouched, kMarked,
         nullptr},
        {R::CloudCheckXml, "<result><retcode> 3</retcode></result>", 32004, kUntouched, kMarked,
         nullptr},
        {R::CloudCheckXml, "<result><x><retcode>0</retcode></x></result>", 10003, kUntouched,
         kMarked, nullptr},
        {R::CloudCheckXml, "", 10003, kUntouched, kMarked, nullptr},
        {R::CloudCheckXml, "<other><retcode>0</retcode></other>", 10003, kUntouched, kMarked,
         nullptr},
        {R::CloudCheckXml, "{\"retcode\":0}", 10003, kUntouched, kMarked, nullptr},
    };
    for (const Row& row : rows) {
        const std::string what = Name(row.reader) + " " + row.reply;
        MarkLastError();
        KXReqResult result;
        result.msg = result.strBody = row.reply;
        Json::Value data(kUntouched);
        EXPECT_EQ(row.code, KXReadReply(row.reader, result, data)) << what;
        const std::string written = kxjson::Write(data);
        EXPECT_EQ(row.data == kUntouched ? "\"untouched\"" : row.data,
                  written.substr(0, written.size() - 1))
            << what;
        EXPECT_EQ(row.lastError, LastError()) << what;
        EXPECT_EQ(row.msg != nullptr ? row.msg : row.reply, result.msg) << what;
    }
}

// Replies of the wrong shape: both envelopes give 10003, keep data and the
// last error, and put the standard text in the record.
TEST(ReplyReaders, UnusableEnvelopes) {
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
        Json::Value data(kUntouched);
        KXReqResult r;
        r.msg = text;
        EXPECT_EQ(10003, ParseCodeEnvelope(r, data)) << text;
        EXPECT_EQ(10003, r.errCode) << text;
        EXPECT_EQ(IWK_GetErrorMsg(10003), r.msg) << text;
        EXPECT_EQ(kUntouched, kxjson::String(data)) << text;
        EXPECT_EQ(kMarked, LastError());
    }
    // A transport failure handed to an envelope passes through unparsed.
    MarkLastError();
    Json::Value data;
    KXReqResult r;
    r.errCode = 7;
    r.msg = "connect failed";
    EXPECT_EQ(7, ParseErrCodeEnvelope(r, data));
    EXPECT_EQ("connect failed", r.msg);
    EXPECT_EQ("7 connect failed", LastError());
}
