#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "orvutil/platform/mee.h"

namespace {

struct FreeDeleter {
    void operator()(char *p) const { std::free(p); }
};
using Owned = std::unique_ptr<char, FreeDeleter>;

TEST(Mee, LanguageTable) {
    struct Case {
        const char *tag;
        int id;
        const char *rfc;
        const char *http;
        int dbcs;
    };
    const Case cases[] = {
        {"en", 0, "en-US", "ISO-8859-1", 0}, {"FR", 1, "fr-FR", "ISO-8859-1", 0},
        {"de-DE", 2, "de-DE", "ISO-8859-1", 0}, {"no", 10, "no-NO", "ISO-8859-1", 0},
        {"ja", 11, "ja-JP", "Shift_JIS", 1},    {"kr", 12, "ko-KR", "EUC-KR", 1},
        {"ko", 12, "ko-KR", "EUC-KR", 1},       {"ko_KR", 12, "ko-KR", "EUC-KR", 1},
        {"ch", 13, "zh-CN", "GB2312", 1},       {"zh-TW", 13, "zh-CN", "GB2312", 1},
        {"fr-CA", 1, "fr-FR", "ISO-8859-1", 0},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(MEE_GetIntLanguageID(c.tag), c.id) << c.tag;
        EXPECT_STREQ(MEE_GetRFC1766LanguageID(c.id), c.rfc) << c.tag;
        EXPECT_STREQ(MEE_HTTPContentCharset(c.tag), c.http) << c.tag;
        EXPECT_EQ(MEE_IsDBCSLanguage(c.tag), c.dbcs) << c.tag;
    }
    // Every row's id is its index and its tags lead back to it.
    for (int id = 0; id < MEE_LANGUAGE_COUNT; ++id) {
        const MEE_Language *l = MEE_GetLanguage(id);
        ASSERT_NE(l, nullptr);
        EXPECT_EQ(l->id, id);
        EXPECT_EQ(MEE_GetIntLanguageID(l->language), id);
        EXPECT_EQ(MEE_GetIntLanguageID(l->rfc1766), id);
    }
}

TEST(Mee, UnknownTagsAndIds) {
    for (const char *tag : {static_cast<const char *>(nullptr), "", "xx", "e", "english", "-en", "enx"}) {
        EXPECT_EQ(MEE_GetIntLanguageID(tag), MEE_LANGUAGE_UNKNOWN) << (tag ? tag : "(null)");
        EXPECT_EQ(MEE_HTTPContentCharset(tag), nullptr);
        EXPECT_EQ(MEE_IsDBCSLanguage(tag), 0);
    }
    for (int id : {-1, MEE_LANGUAGE_COUNT, 1000}) {
        EXPECT_EQ(MEE_GetRFC1766LanguageID(id), nullptr);
        EXPECT_EQ(MEE_GetLanguage(id), nullptr);
    }
    EXPECT_EQ(MEE_UTF8ToLocal(MEE_LANGUAGE_COUNT, "a"), nullptr);
    EXPECT_EQ(MEE_LocalToUTF8(0, nullptr), nullptr);
}

TEST(Mee, Conversions) {
    struct Case {
        const char *tag;
        std::string local;
        std::string utf8;
    };
    const Case cases[] = {
        {"fr", "caf\xe9", "caf\xc3\xa9"},
        {"en", "plain", "plain"},
        {"ja", "\x93\xfa\x96\x7b", "\xe6\x97\xa5\xe6\x9c\xac"},  // "Japan" in Shift_JIS
        {"kr", "\xc7\xd1", "\xed\x95\x9c"},                      // one Hangul syllable
        {"ch", "\xd6\xd0", "\xe4\xb8\xad"},                      // "middle"
        {"de", "", ""},
    };
    for (const auto &c : cases) {
        const int id = MEE_GetIntLanguageID(c.tag);
        Owned to_utf8(MEE_LocalToUTF8(id, c.local.c_str()));
        Owned to_local(MEE_UTF8ToLocal(id, c.utf8.c_str()));
        ASSERT_NE(to_utf8, nullptr) << c.tag;
        ASSERT_NE(to_local, nullptr) << c.tag;
        EXPECT_EQ(std::string(to_utf8.get()), c.utf8) << c.tag;
        EXPECT_EQ(std::string(to_local.get()), c.local) << c.tag;
    }
    // Long texts grow the output buffer.
    std::string long_local(10000, '\xe9'), long_utf8;
    for (int i = 0; i < 10000; ++i) long_utf8 += "\xc3\xa9";
    Owned grown(MEE_LocalToUTF8(0, long_local.c_str()));
    ASSERT_NE(grown, nullptr);
    EXPECT_EQ(std::string(grown.get()), long_utf8);
}

TEST(Mee, InvalidOrUnrepresentableTextGivesNull) {
    const int en = MEE_GetIntLanguageID("en"), ja = MEE_GetIntLanguageID("ja");
    EXPECT_EQ(MEE_UTF8ToLocal(en, "bad \xc3"), nullptr);            // truncated sequence
    EXPECT_EQ(MEE_UTF8ToLocal(en, "bad \xff here"), nullptr);       // never valid in UTF-8
    EXPECT_EQ(MEE_UTF8ToLocal(en, "\xe6\x97\xa5"), nullptr);        // no Latin-1 form
    EXPECT_EQ(MEE_LocalToUTF8(ja, "\x93"), nullptr);                // lead byte alone
}

TEST(Mee, NegativeIdUsesTheCLocale) {
    // Under the "C" locale the character set is ASCII: 8-bit bytes do not
    // convert.
    ASSERT_NE(std::setlocale(LC_CTYPE, "C"), nullptr);
    Owned ascii(MEE_LocalToUTF8(-1, "abc"));
    ASSERT_NE(ascii, nullptr);
    EXPECT_STREQ(ascii.get(), "abc");
    EXPECT_EQ(MEE_LocalToUTF8(-1, "\xe9"), nullptr);
}

const char *upper_lookup(int msgid, const char *deftext) { return msgid == 7 ? "seven" : deftext; }

TEST(Mee, InitializeRecordsLookupAndSwitch) {
    EXPECT_STREQ(MEE_GetMessage(7, "default"), "default");
    EXPECT_EQ(MEE_Initialize(upper_lookup, 5), 0);
    EXPECT_STREQ(MEE_GetMessage(7, "default"), "seven");
    EXPECT_STREQ(MEE_GetMessage(8, "default"), "default");
    EXPECT_EQ(MEE_Allow8Bit(), 1);
    EXPECT_EQ(MEE_Terminate(), 0);
    EXPECT_STREQ(MEE_GetMessage(7, "default"), "default");
    EXPECT_EQ(MEE_Allow8Bit(), 0);
}

TEST(Mee, IsASCIIString) {
    EXPECT_EQ(MEE_IsASCIIString(nullptr), 1);
    EXPECT_EQ(MEE_IsASCIIString(""), 1);
    EXPECT_EQ(MEE_IsASCIIString("\x7f plain"), 1);
    EXPECT_EQ(MEE_IsASCIIString("caf\xc3\xa9"), 0);
    EXPECT_EQ(MEE_IsASCIIString("\x80"), 0);
}

}  // namespace
