// The compact writer must match Json::FastWriter byte for byte on ASCII text,
// keep non-ASCII bytes raw, and the readers must never throw.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>

#include "KXUtils.h"

namespace {

std::string Fast(const Json::Value& v) {
    Json::FastWriter writer;
    return writer.write(v);
}

}  // namespace

TEST(CompactWriter, MatchesFastWriterOnEdgeNumbersAndKeyOrder) {
    Json::Value v;
    v["b"] = Json::UInt64(18446744073709551615ULL);
    v["a"] = Json::Int64(-9223372036854775807LL - 1);
    v["B"].append(1e300);
    v["B"].append(2.0);
    v["B"].append(Json::Value(Json::objectValue));
    EXPECT_EQ(Fast(v), kxjson::Write(v));
    // Keys come out in jsoncpp's sorted order whatever the order of insertion.
    const std::string text = kxjson::Write(v);
    EXPECT_EQ(0u, text.find("{\"B\":[1")) << text;
    EXPECT_NE(std::string::npos, text.find(",2.0,{}],\"a\":-9223372036854775808,\"b\":1844"))
        << text;
    EXPECT_EQ("null\n", kxjson::Write(Json::Value()));
}

// Random documents with every byte value in strings and keys: the writer must
// agree with jsoncpp's own writer in raw-UTF-8 mode, and with FastWriter
// wherever the text is ASCII.
TEST(CompactWriter, AgreesWithJsoncppOnRandomDocuments) {
    std::mt19937 random(7);
    auto text = [&](bool ascii) {
        std::string s(random() % 12, ' ');
        for (char& c : s) c = static_cast<char>(ascii ? random() % 128 : random() % 256);
        return s;
    };
    std::function<Json::Value(int, bool)> make = [&](int depth, bool ascii) -> Json::Value {
        switch (depth > 3 ? random() % 6 : random() % 8) {
            case 0:
                return Json::Value();
            case 1:
                return Json::Value(
                    static_cast<Json::Int64>(static_cast<Json::Int64>(random()) - (1LL << 31)));
            case 2:
                return Json::Value(static_cast<double>(random()) / 7.0);
            case 3:
                return Json::Value(random() % 2 == 0);
            case 4:
            case 5:
                return Json::Value(text(ascii));
            case 6: {
                Json::Value a(Json::arrayValue);
                for (int i = random() % 4; i > 0; --i) a.append(make(depth + 1, ascii));
                return a;
            }
            default: {
                Json::Value o(Json::objectValue);
                for (int i = random() % 4; i > 0; --i) o[text(ascii)] = make(depth + 1, ascii);
                return o;
            }
        }
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
}

TEST(CompactWriter, KeepsGbkAndUtf8BytesRaw) {
    Json::Value v;
    const std::string gbk = "\xD6\xD0\xCE\xC4\xA3\xBA";  // GBK text with a full-width colon
    const std::string utf8 = "\xE4\xB8\xAD";
    v["gbk"] = gbk;
    v["utf8"] = utf8;
    EXPECT_EQ("{\"gbk\":\"" + gbk + "\",\"utf8\":\"" + utf8 + "\"}\n", kxjson::Write(v));
    // FastWriter would have escaped them: the reason this writer exists.
    EXPECT_NE(Fast(v), kxjson::Write(v));
    // Control characters are still escaped as FastWriter does.
    EXPECT_EQ("\"\\u001f\\r\"\n", kxjson::Write(Json::Value("\x1f\r")));
}

TEST(SafeJson, ReadersNeverThrowOnAnyShape) {
    Json::Value root;
    EXPECT_FALSE(kxjson::Parse("not json", root));
    EXPECT_FALSE(kxjson::Parse(std::string(100000, '['), root));  // nesting past the reader's limit
    EXPECT_TRUE(kxjson::Parse("[1,2]", root));
    EXPECT_TRUE(kxjson::Member(root, "code").isNull());  // operator[] would throw on an array
    EXPECT_EQ("", kxjson::String(root, "code"));
    EXPECT_EQ("", kxjson::String(root));

    ASSERT_TRUE(kxjson::Parse(
        R"({"s":"t","i":7,"big":9999999999,"neg":-3,"r":1.5,"b":true,"o":{},"a":[],"n":null})",
        root));
    EXPECT_EQ("t", kxjson::String(root, "s"));
    EXPECT_EQ("7", kxjson::String(root, "i"));
    EXPECT_EQ("true", kxjson::String(root, "b"));
    EXPECT_EQ("", kxjson::String(root, "o"));
    EXPECT_EQ("", kxjson::String(root, "a"));
    EXPECT_EQ("", kxjson::String(root, "n"));

    int i = 42;
    EXPECT_TRUE(kxjson::Int(kxjson::Member(root, "i"), i));
    EXPECT_EQ(7, i);
    i = 42;
    EXPECT_FALSE(kxjson::Int(kxjson::Member(root, "big"), i));  // asInt would throw
    EXPECT_FALSE(kxjson::Int(kxjson::Member(root, "s"), i));
    EXPECT_FALSE(kxjson::Int(kxjson::Member(root, "r"), i));
    EXPECT_FALSE(kxjson::Int(kxjson::Member(root, "o"), i));
    EXPECT_EQ(42, i);
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
