// Masking: secrets in log text (every key form, framed lines whole) and
// IWK_DataTuomin's masking of JSON values.
#include <gtest/gtest.h>

#include "KXUtils.h"
#include "TempEnv.h"

namespace {

// What the log shows of one INFO line with this text, after the level.
std::string MaskedLine(const std::string& text) {
    TempEnv env;
    KX_WriteLog(KX_LOG_INFO, "%s", text.c_str());
    const std::string log = env.readLog();
    const size_t at = log.find(" INFO ");
    if (at == std::string::npos || log.back() != '\n') return "<" + log + ">";
    return log.substr(at + 6, log.size() - at - 7);
}

}  // namespace

TEST(Mask, LogText) {
    IWK_RegisterSecret("S3cr3t-Pr0ject");
    IWK_RegisterSecret("S3cr3t");  // a shorter one inside: the long one still goes whole
    IWK_RegisterSecret("abc");     // too short to register
    const char* const cases[][2] = {
        {"id=1 S3cr3t-Pr0ject and S3cr3t!", "id=1 ****** and ******!"},
        {"abc", "abc"},
        {"/x?user=bob&password=hunter2&next=1", "/x?user=bob&password=******&next=1"},
        {"GET /x?a=1&secret=abc123", "GET /x?a=1&secret=******"},
        {"PassWD=p1 pwd='p 2' x", "PassWD=****** pwd='******' x"},
        {R"({"signPwd":"123456","a":1})", R"({"signPwd":"******","a":1})"},
        {R"({"signPwd" : "1 \"2", "n":{"appSecret":42}})",
         R"({"signPwd" : "******", "n":{"appSecret":******}})"},
        {R"(msg:{\"ProjectSecret\":\"zz\",\"k\":1})",
         R"(msg:{\"ProjectSecret\":\"******\",\"k\":1})"},
        // Names that only begin like a key, and other keys, stay.
        {"passwordHint=yes user=bob \"pwdLen\":\"3\"",
         "passwordHint=yes user=bob \"pwdLen\":\"3\""},
        // Header lines: the value only, never the next line.
        {"head:\nX-KX-Signature: c2ln==\nX-KX-Nonce: 00ff",
         "head:\nX-KX-Signature: ******\nX-KX-Nonce: 00ff"},
        {"head:\r\nx-kx-signature:c2ln==\r\nX-KX-Nonce: 00ff",
         "head:\r\nx-kx-signature:******\r\nX-KX-Nonce: 00ff"},
        // key:value in a framed line ends where key=value does; the frame stays whole.
        {R"(<Seal [12] - CKXSealOpenApi::Login> <"user:bob, password:hunter2">)",
         R"(<Seal [12] - CKXSealOpenApi::Login> <"user:bob, password:******">)"},
        {R"(<Base [3] - Init> <"ProjectSecret:zz">)",
         R"(<Base [3] - Init> <"ProjectSecret:******">)"},
        {R"(<X [1] - CSecret::Load> <"secret: a b;signPwd:'c d'&pwd:e>f">)",
         R"(<X [1] - CSecret::Load> <"secret: ****** b;signPwd:'******'&pwd:******>f">)"},
    };
    for (const auto& c : cases) EXPECT_EQ(c[1], MaskedLine(c[0])) << c[0];
}

TEST(Mask, DataTuominAtAnyDepth) {
    const KX_TuoMinData rules[] = {KX_TuoMinData(KX_TUOMIN_JSON_KEY, "idNo", 6, 8),
                                   KX_TuoMinData(KX_TUOMIN_JSON_KEY, "loginAccount", 3, 4)};
    EXPECT_EQ(R"({"code":0,"data":{"idNo":"110101********1234","loginAccount":"138****5678"}})",
              IWK_DataTuomin(R"({"code": 0, "data": {"loginAccount": "13812345678",)"
                             R"( "idNo": "110101199001011234"}})",
                             rules, 2));
    // Inside arrays, numbers turned to text, short values, multi-byte characters.
    EXPECT_EQ(
        "{\"list\":[{\"x\":[{\"idNo\":\"\xE5\xBC\xA0\xE4\xB8\x89\xE4\xB8\xB0\xE5\x8C\x97"
        "\xE4\xBA\xAC\xE5\xB8\x82**\"}]},{\"loginAccount\":\"138****5678\"},"
        "{\"loginAccount\":\"12\"}]}\n",
        IWK_DataTuomin("{\"list\":[{\"x\":[{\"idNo\":\"\xE5\xBC\xA0\xE4\xB8\x89\xE4\xB8\xB0"
                       "\xE5\x8C\x97\xE4\xBA\xAC\xE5\xB8\x82\xE6\xB5\xB7\xE6\xB7\x80\"}]},"
                       "{\"loginAccount\":13812345678},{\"loginAccount\":\"12\"}]}\n",
                       rules, 2));

    // Nothing to mask, no JSON, no rules: the very same bytes. Deep nesting
    // yields a result, not a crash.
    for (const std::string& text : std::vector<std::string>{
             "{ \"other\" : \"110101199001011234\" }", "{\"loginAccount\":\"12\"}",
             "{\"idNo\":{\"nested\":true}}", "not json {", "", "[1, 2]", "{\"loginAccount\": true}",
             std::string(100000, '[') + std::string(100000, ']')})
        EXPECT_EQ(text, IWK_DataTuomin(text, rules, 2)) << text.substr(0, 40);
    EXPECT_EQ("{\"idNo\":\"1234567890\"}", IWK_DataTuomin("{\"idNo\":\"1234567890\"}", nullptr, 2));
    EXPECT_EQ("{\"idNo\":\"1234567890\"}", IWK_DataTuomin("{\"idNo\":\"1234567890\"}", rules, 0));
}
