#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <string>

#include "orvutil/platform/mee.h"

namespace {

std::string take(char *s) {
    std::string out = s != nullptr ? s : "(null)";
    std::free(s);
    return out;
}

TEST(Mee, LanguageTable) {
    struct Case {
        const char *tag;
        int id;
        const char *rfc, *http;
        int dbcs;
    };
    const Case cases[] = {
        {"FR", 1, "fr-FR", "ISO-8859-1", 0},  {"fr-CA", 1, "fr-FR", "ISO-8859-1", 0},
        {"ja", 11, "ja-JP", "Shift_JIS", 1},  {"ko_KR", 12, "ko-KR", "EUC-KR", 1},
        {"english", -1, nullptr, nullptr, 0}, {"", -1, nullptr, nullptr, 0},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(MEE_GetIntLanguageID(c.tag), c.id) << c.tag;
        EXPECT_STREQ(MEE_GetRFC1766LanguageID(c.id), c.rfc) << c.tag;
        EXPECT_STREQ(MEE_HTTPContentCharset(c.tag), c.http) << c.tag;
        EXPECT_EQ(MEE_IsDBCSLanguage(c.tag), c.dbcs) << c.tag;
    }
    EXPECT_EQ(MEE_GetIntLanguageID(nullptr), MEE_LANGUAGE_UNKNOWN);
    EXPECT_EQ(MEE_GetLanguage(MEE_LANGUAGE_COUNT), nullptr);
}

TEST(Mee, ConversionsAreWholeOrNothing) {
    struct Case {
        const char *tag;
        std::string local, utf8;
    };
    const Case cases[] = {
        {"fr", "caf\xe9", "caf\xc3\xa9"},
        {"ja", "\x93\xfa\x96\x7b", "\xe6\x97\xa5\xe6\x9c\xac"},
        {"kr", "\xc7\xd1", "\xed\x95\x9c"},
        {"ch", "\xd6\xd0", "\xe4\xb8\xad"},
        {"de", std::string(5000, '\xe9'),
         [] {
             std::string s;
             for (int i = 0; i < 5000; ++i) s += "\xc3\xa9";
             return s;
         }()},
    };
    for (const auto &c : cases) {
        const int id = MEE_GetIntLanguageID(c.tag);
        EXPECT_EQ(take(MEE_LocalToUTF8(id, c.local.c_str())), c.utf8) << c.tag;
        EXPECT_EQ(take(MEE_UTF8ToLocal(id, c.utf8.c_str())), c.local) << c.tag;
    }
    EXPECT_EQ(MEE_UTF8ToLocal(0, "bad \xc3"), nullptr);      // truncated sequence
    EXPECT_EQ(MEE_UTF8ToLocal(0, "\xff"), nullptr);          // never valid UTF-8
    EXPECT_EQ(MEE_UTF8ToLocal(0, "\xe6\x97\xa5"), nullptr);  // no Latin-1 form
    EXPECT_EQ(MEE_LocalToUTF8(11, "\x93"), nullptr);         // lead byte alone
    EXPECT_EQ(MEE_LocalToUTF8(MEE_LANGUAGE_COUNT, "a"), nullptr);
    // A negative id takes the C locale's character set: ASCII under "C".
    ASSERT_NE(std::setlocale(LC_CTYPE, "C"), nullptr);
    EXPECT_EQ(take(MEE_LocalToUTF8(-1, "abc")), "abc");
    EXPECT_EQ(MEE_LocalToUTF8(-1, "\xe9"), nullptr);
}

const char *lookup(int msgid, const char *deftext) { return msgid == 7 ? "seven" : deftext; }

TEST(Mee, InitializeAndAsciiTest) {
    EXPECT_EQ(MEE_Initialize(lookup, 5), 0);
    EXPECT_STREQ(MEE_GetMessage(7, "default"), "seven");
    EXPECT_EQ(MEE_Terminate(), 0);
    EXPECT_STREQ(MEE_GetMessage(7, "default"), "default");
    EXPECT_EQ(MEE_IsASCIIString("\x7f plain"), 1);
    EXPECT_EQ(MEE_IsASCIIString("caf\xc3\xa9"), 0);
}

}  // namespace
