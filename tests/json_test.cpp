// The compact writer must match Json::FastWriter byte for byte on ASCII text,
// keep non-ASCII bytes raw, and the readers must never throw.
#include <gtest/gtest.h>

#include <random>

#include "KXUtils.h"

namespace {

std::string Fast(const Json::Value& v) {
    Json::FastWriter writer;
    return writer.write(v);
}

}  // namespace

// Edge numbers, then random documents with every byte value in strings and
// keys: the writer must agree with FastWriter wherever the text is ASCII (key
// order and escapes included), and with jsoncpp's raw-UTF-8 mode everywhere.
TEST(CompactWriter, AgreesWithJsoncpp) {
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
}

TEST(CompactWriter, KeepsGbkAndUtf8BytesRaw) {
    Json::Value v;
    v["gbk"] = "\xD6\xD0\xCE\xC4\xA3\xBA";  // GBK text with a full-width colon
    v["utf8"] = "\xE4\xB8\xAD";
    EXPECT_EQ("{\"gbk\":\"\xD6\xD0\xCE\xC4\xA3\xBA\",\"utf8\":\"\xE4\xB8\xAD\"}\n",
              kxjson::Write(v));
    // FastWriter would have escaped them: the reason this writer exists.
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
