// INI text on strings: what a read finds, what setting a key writes and what
// it refuses; and the strict integer form of a value.
#include <gtest/gtest.h>

#include "KXAscii.h"
#include "KXIni.h"

TEST(IniText, Reads) {
    const kxini::Values values(
        "\xEF\xBB\xBF; leading comment\r\n[Server]\r\n  Url = https://h/x?a=1;b=2#frag  \r\n"
        "Name=\xD6\xD0\xCE\xC4\r\nempty=\r\n# hidden=1\r\n\t; tabbed=1\r\nurl=second occurrence\r\n"
        "no equals sign\r\n = no name\r\n[ other "
        "]\r\nn=42\r\n[server]\r\nlate=yes\r\nName=loses\r\n"
        "[unclosed\r\nlast=no line end");
    const char* const cases[][3] = {
        {"server", "URL", "https://h/x?a=1;b=2#frag"},  // no inline comments; first one wins
        {"Server", "Name", "\xD6\xD0\xCE\xC4"},
        {"Server", "empty", ""},
        {"SERVER", "late", "yes"},  // a repeated section adds keys
        {" other ", " N ", "42"},
        {"server", "last", "no line end"},  // "[unclosed" is no section line
        {"Server", "hidden", nullptr},
        {"Server", "tabbed", nullptr},
        {"Server", "; leading comment", nullptr},
        {"Server", "", nullptr},
        {"Nope", "n", nullptr},
        {"other", "late", nullptr},
    };
    for (const auto& c : cases) {
        std::string value = "<none>";
        EXPECT_EQ(c[2] != nullptr, values.Find(c[0], c[1], value)) << c[0] << "/" << c[1];
        EXPECT_EQ(c[2] != nullptr ? c[2] : "<none>", value) << c[0] << "/" << c[1];
    }
}

TEST(IniText, SetChangesOneKeyAndNothingElse) {
    const std::string a = "; top\r\n\r\n[A]\r\n  Key1 =  old value \r\nkey2=x\r\n; in A\r\n\r\n";
    const std::string b =
        "[B]\r\nk=\xD6\xD0\r\n\t# tabbed\r\n[A]\r\nkey1=second\r\ntail=no newline";
    // text, section, key, value, text after
    const std::string cases[][5] = {
        // Spelling, spacing and CRLF of the first occurrence stay; only the value changes.
        {a + b, "a", "KEY1", "new",
         "; top\r\n\r\n[A]\r\n  Key1 =  new\r\nkey2=x\r\n; in A\r\n\r\n" + b},
        // A new key follows the last key line of the first [A]; a new section goes at the end.
        {a + b, "A", "added", "1",
         "; top\r\n\r\n[A]\r\n  Key1 =  old value \r\nkey2=x\r\nadded=1\r\n; in A\r\n\r\n" + b},
        {a + b, " C ", " c ", "3", a + b + "\r\n[C]\r\nc=3\r\n"},
        // A key only in a later section of that name is changed there.
        {"[A]\nx=1\n[a]\nk=old\n", "A", "k", "v", "[A]\nx=1\n[a]\nk=v\n"},
        // A section without keys takes the key right after its header; LF stays LF.
        {"[E]\n; nothing\n[F]\nf=1\n", "E", "e", "2", "[E]\ne=2\n; nothing\n[F]\nf=1\n"},
        {"\xEF\xBB\xBF[S]\nk=1", "s", "K", "", "\xEF\xBB\xBF[S]\nk="},
    };
    for (const auto& c : cases) {
        std::string text = c[0];
        EXPECT_TRUE(kxini::SetKey(text, c[1], c[2], c[3])) << c[2];
        EXPECT_EQ(c[4], text) << c[2];
        std::string value;
        EXPECT_TRUE(kxini::Values(text).Find(c[1], c[2], value) && value == c[3]);
    }

    // What could not be read back as written is refused, the text unchanged.
    const char* const refused[][3] = {
        {"S", "k", "a\nb"}, {"S", "k", "a\rb"}, {"S\n", "k", "v"}, {"S]", "k", "v"},
        {"S", "k=", "v"},   {"S", "[k", "v"},   {"S", ";k", "v"},  {"S", "#k", "v"},
        {"", "k", "v"},     {"S", "", "v"},     {"S", "k\r", "v"}, {"S", "  ", "v"},
        {" ", "k", "v"},    {"S", " #k", "v"},
    };
    for (const auto& r : refused) {
        std::string text = "[S]\nk=v\n";
        EXPECT_FALSE(kxini::CanSet(r[0], r[1], r[2])) << r[0] << "/" << r[1];
        EXPECT_FALSE(kxini::SetKey(text, r[0], r[1], r[2])) << r[0] << "/" << r[1];
        EXPECT_EQ("[S]\nk=v\n", text);
    }
}

TEST(IniText, IntegerValues) {
    const std::pair<const char*, int> numbers[] = {
        {"42", 42}, {"-7", -7}, {"+3", 3}, {"-2147483648", -2147483647 - 1}, {"007", 7}};
    for (const auto& [text, expected] : numbers) {
        int value = 99;
        EXPECT_TRUE(kxascii::ParseInt(text, value)) << text;
        EXPECT_EQ(expected, value) << text;
    }
    for (const char* text : {"0x10", "12abc", "", "2147483648", "1 2", " 1", "+", "-", "1.0"}) {
        int value = 99;
        EXPECT_FALSE(kxascii::ParseInt(text, value)) << text;
        EXPECT_EQ(99, value) << text;
    }
}
