// Encodings, digests, JWT payloads, wide text, the JSON helpers (the compact
// writer matches Json::FastWriter byte for byte on ASCII text and keeps other
// bytes raw; the readers never throw), last error and system facts.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <regex>
#include <thread>

#include "KXUtils.h"
#include "TempEnv.h"

namespace {

std::string Fast(const Json::Value& v) {
    Json::FastWriter writer;
    return writer.write(v);
}

}  // namespace

TEST(Text, Base64UrlAndHexVectors) {
    // RFC 4648 test vectors.
    const char* plain[] = {"", "f", "fo", "foo", "foob", "fooba", "foobar"};
    const char* coded[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(coded[i], IWK_Base64Encode(plain[i]));
        EXPECT_EQ(plain[i], IWK_Base64Decode(coded[i]));
    }
    const std::string binary("\x00\xFF\xFE\x3E\x3F", 5);
    EXPECT_EQ("AP/+Pj8=", IWK_Base64Encode(binary));
    EXPECT_EQ(binary, IWK_Base64Decode("AP/+\r\n Pj8="));
    for (const char* bad : {"Zg=", "Zm9", "Z===", "Zm9v!", "AP_-Pj8=", "Zg==Zg==", "=Zg="})
        EXPECT_EQ("", IWK_Base64Decode(bad)) << bad;

    EXPECT_EQ("AZaz09-._~%20%2F%3F%26%3D%2B%25%D6%D0%00",
              IWK_UrlEncode(std::string("AZaz09-._~ /?&=+%\xD6\xD0\x00", 20)));
    EXPECT_EQ("00ff7f0a", IWK_CharToHex(std::string("\x00\xFF\x7F\x0A", 4)));
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", IWK_CharToHex(IWK_Digest("abc", KX_HASH_MD5)));
    EXPECT_EQ("", IWK_Digest("abc", static_cast<KXHashAlg>(2)));

    EXPECT_EQ(8u, IWK_GenRand(8).size());
    EXPECT_NE(IWK_GenRand(16), IWK_GenRand(16));
    EXPECT_EQ("", IWK_GenRand(0) + IWK_GenRand(-1));
}

TEST(Text, SmallHelpers) {
    EXPECT_EQ(0u, IWK_Len(nullptr));
    EXPECT_EQ(3u, IWK_Len("abc"));
    EXPECT_EQ(0, IWK_Compare("Abc", "aBC", true));
    EXPECT_NE(0, IWK_Compare("Abc", "aBC", false));
    EXPECT_NE(0, IWK_Compare("abc", "abcd", true));

    char s[] = "ab\xD6z";
    IWK_Upper(s, -1);
    EXPECT_STREQ("AB\xD6Z", s);
    char t[] = "abcd";
    IWK_Upper(t, 2);
    EXPECT_STREQ("ABcd", t);
    IWK_Upper(nullptr, -1);

    std::string names;
    for (const char* path :
         {"/a/b/f.txt", "C:\\dir\\g.txt", "h", "/a/", static_cast<const char*>(nullptr)})
        names += IWK_GetBaseName(path) + "|";
    EXPECT_EQ("f.txt|g.txt|h|||", names);

    const KX_TuoMinData rule(KX_TUOMIN_JSON_KEY, nullptr, 1, 2);
    EXPECT_EQ("", rule.key);
}

TEST(Text, WideAndUtf8) {
    const std::wstring wide = L"a\u00E9\u4E2D\U0001F600";
    const std::string utf8 = "a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80";
    EXPECT_EQ(utf8, IWK_WideCharToUtf8(wide));
    EXPECT_EQ(wide, IWK_Utf8ToWideChar(utf8));
    // Broken input becomes U+FFFD, one per maximal broken piece.
    EXPECT_EQ(L"x\uFFFDy", IWK_Utf8ToWideChar("x\xFFy"));
    EXPECT_EQ(L"\uFFFD\uFFFD", IWK_Utf8ToWideChar("\xC0\xAF"));            // overlong
    EXPECT_EQ(L"\uFFFD\uFFFD\uFFFD", IWK_Utf8ToWideChar("\xED\xA0\x80"));  // surrogate
    EXPECT_EQ(L"a\uFFFD", IWK_Utf8ToWideChar("a\xE4\xB8"));                // cut short
    EXPECT_EQ(L"\uFFFDb", IWK_Utf8ToWideChar("\xE4\xB8\x62"));
    // A surrogate or a value past U+10FFFF is no character either.
    EXPECT_EQ("\xEF\xBF\xBD\xEF\xBF\xBD",
              IWK_WideCharToUtf8({static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000)}));
}

TEST(Text, JwtPayload) {
    // Chosen so that its Base64 holds '/' and padding: base64url differs.
    const std::string payload =
        "{\"sub\":\"1\",\"n\":\"\xC3\xA9~?"
        "?>\",\"x\":\"\"}";
    const std::string b64 = IWK_Base64Encode(payload);
    std::string url = b64;
    std::replace(url.begin(), url.end(), '+', '-');
    std::replace(url.begin(), url.end(), '/', '_');
    ASSERT_NE(std::string::npos, b64.find('/'));
    ASSERT_NE(std::string::npos, b64.find('='));
    // "result:payload" of a token.
    auto decode = [](const std::string& token) {
        std::string out = "stale";
        const int rc = IWK_JWTDecode(token, out);
        return std::to_string(rc) + ":" + out;
    };
    EXPECT_EQ("0:" + payload, decode("eyJhbGciOiJIUzI1NiJ9." + url + ".sig"));
    EXPECT_EQ("0:" + payload, decode("h." + url.substr(0, url.find('=')) + "."));  // unpadded
    for (const std::string& bad : {std::string(), std::string("abc"), "h." + url,
                                   std::string("h.!!!.s"), "h." + b64 + ".s", std::string("h.a.s")})
        EXPECT_EQ("1:", decode(bad)) << bad;
}

TEST(LastError, PerThreadAndTexts) {
    // "code text" of this thread's last error.
    auto last = [] {
        long code = 0;
        std::string text;
        return IWK_GetLastError(code, text) ? std::to_string(code) + " " + text : "<none>";
    };
    std::thread([&] {
        IWK_SetLastError(10003);
        EXPECT_EQ("10003 the reply cannot be parsed", last());
        IWK_SetLastError(401, std::wstring(L"refus\u00E9"));
        EXPECT_EQ("401 refus\xC3\xA9", last());
    }).join();
    // Another thread's last error is none of this one's.
    std::thread([&] { EXPECT_EQ("<none>", last()); }).join();
    EXPECT_TRUE(IWK_SetLastError(37007, std::string("server text")));
    EXPECT_EQ("37007 server text", last());

    EXPECT_EQ("the server reported a failure without a message", IWK_GetErrorMsg(10024));
    EXPECT_EQ("TLS handshake or certificate verification failed", IWK_GetErrorMsg(10104));
    EXPECT_EQ("unknown error 1490152", IWK_GetErrorMsg(1490152));
    EXPECT_TRUE(IWK_IsUnknownError(1490152) && IWK_IsUnknownError(-1));
    for (long known :
         {0L,     10001L, 10003L, 10005L, 10006L, 10009L, 10010L, 10016L, 10024L, 10027L,
          10046L, 10048L, 10076L, 25034L, 31015L, 32004L, 33030L, 37007L, 37008L, 37011L,
          10101L, 10102L, 10103L, 10104L, 10105L, 10106L, 10107L, 10108L, 10110L, 10111L}) {
        EXPECT_FALSE(IWK_IsUnknownError(known)) << known;
        EXPECT_EQ(std::string::npos, IWK_GetErrorMsg(known).find("unknown")) << known;
    }
}

TEST(System, MacTimeAndLanguage) {
    EXPECT_TRUE(std::regex_match(IWK_GetMacAddress(), std::regex("([0-9A-F]{2}-){5}[0-9A-F]{2}")))
        << IWK_GetMacAddress();
    EXPECT_EQ(IWK_GetMacAddress(), IWK_GetMacAddress());
    const long long now = IWK_GetCurTime();
    EXPECT_GT(now, 1600000000000LL);  // milliseconds, not seconds
    EXPECT_LT(now, 4000000000000LL);

    TempEnv env;
    EXPECT_EQ("", IWK_GetLanguageName());
    ASSERT_TRUE(env.set("KXUtils", "Language", "zh-CN"));
    EXPECT_EQ("zh-CN", IWK_GetLanguageName());
}

// Edge numbers, then random documents with every byte value in strings and
// keys: the writer must agree with FastWriter wherever the text is ASCII (key
// order and escapes included), and with jsoncpp's raw-UTF-8 mode everywhere.
TEST(CompactWriter, AgreesWithJsoncppAndKeepsBytesRaw) {
    Json::Value edge;
    edge["b"] = Json::UInt64(18446744073709551615ULL);
    edge["a"] = Json::Int64(-9223372036854775807LL - 1);
    edge["B"].append(1e300);
    edge["B"].append(2.0);
    edge["B"].append(Json::Value(Json::objectValue));
    EXPECT_EQ(Fast(edge), kxjson::Write(edge));

    std::mt19937 random(7);
    auto text = [&](bool ascii) {
        std::string s(random() % 12, ' ');
        for (char& c : s) c = static_cast<char>(ascii ? random() % 128 : random() % 256);
        return s;
    };
    std::function<Json::Value(int, bool)> make = [&](int depth, bool ascii) -> Json::Value {
        const unsigned kind = depth > 3 ? random() % 6 : random() % 8;
        if (kind == 0) return Json::Value();
        if (kind == 1)
            return Json::Value(static_cast<Json::Int64>(random()) - (Json::Int64(1) << 31));
        if (kind == 2) return Json::Value(static_cast<double>(random()) / 7.0);
        if (kind == 3) return Json::Value(random() % 2 == 0);
        if (kind < 6) return Json::Value(text(ascii));
        Json::Value v(kind == 6 ? Json::arrayValue : Json::objectValue);
        for (int i = random() % 4; i > 0; --i)
            kind == 6 ? v.append(make(depth + 1, ascii))
                      : (v[text(ascii)] = make(depth + 1, ascii));
        return v;
    };
    Json::StreamWriterBuilder raw;
    raw["indentation"] = "";
    raw["emitUTF8"] = true;
    for (int i = 0; i < 300; ++i) {
        const Json::Value any = make(0, false);
        EXPECT_EQ(Json::writeString(raw, any) + "\n", kxjson::Write(any));
        const Json::Value ascii = make(0, true);
        EXPECT_EQ(Fast(ascii), kxjson::Write(ascii));
    }

    // GBK and UTF-8 bytes stay raw, where FastWriter would have escaped them:
    // the reason this writer exists.
    Json::Value v;
    v["gbk"] = "\xD6\xD0\xCE\xC4\xA3\xBA";  // GBK text with a full-width colon
    v["utf8"] = "\xE4\xB8\xAD";
    EXPECT_EQ("{\"gbk\":\"\xD6\xD0\xCE\xC4\xA3\xBA\",\"utf8\":\"\xE4\xB8\xAD\"}\n",
              kxjson::Write(v));
    EXPECT_NE(Fast(v), kxjson::Write(v));
}

TEST(SafeJson, ReadersNeverThrowOnAnyShape) {
    Json::Value root;
    EXPECT_FALSE(kxjson::Parse("not json", root));
    EXPECT_FALSE(kxjson::Parse(std::string(100000, '['), root));  // nesting past the reader's limit
    EXPECT_TRUE(kxjson::Parse("[1,2]", root));
    EXPECT_TRUE(kxjson::Member(root, "code").isNull());  // operator[] would throw on an array
    EXPECT_EQ("", kxjson::String(root, "code") + kxjson::String(root));

    ASSERT_TRUE(kxjson::Parse(
        R"({"s":"t","i":7,"big":9999999999,"neg":-3,"r":1.5,"b":true,"o":{},"a":[],"n":null})",
        root));
    std::string texts;
    for (const char* key : {"s", "i", "b", "o", "a", "n"}) texts += kxjson::String(root, key) + "|";
    EXPECT_EQ("t|7|true||||", texts);

    int i = 42;
    EXPECT_TRUE(kxjson::Int(kxjson::Member(root, "i"), i));
    EXPECT_EQ(7, i);
    for (const char* key : {"big", "s", "r", "o"})  // asInt would throw on "big"
        EXPECT_FALSE(kxjson::Int(kxjson::Member(root, key), i)) << key;
    EXPECT_EQ(7, i);
    long long wide = 0;
    EXPECT_TRUE(kxjson::Int64(kxjson::Member(root, "big"), wide));
    EXPECT_EQ(9999999999LL, wide);
    bool b = false;
    EXPECT_TRUE(kxjson::Bool(kxjson::Member(root, "b"), b));
    EXPECT_TRUE(b);
    EXPECT_FALSE(kxjson::Bool(kxjson::Member(root, "i"), b));

    int out = 0;
    EXPECT_EQ(1, IWK_GetJsonValue(Json::Value(), out, 31015));
    EXPECT_EQ(31015, out);
    EXPECT_EQ(1, IWK_GetJsonValue(Json::Value("0"), out, 31015));
    EXPECT_EQ(31015, out);
    EXPECT_EQ(0, IWK_GetJsonValue(Json::Value(-2), out, 31015));
    EXPECT_EQ(-2, out);
}
