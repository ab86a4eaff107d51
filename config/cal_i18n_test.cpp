#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include <prerror.h>

#include "orvtest.hpp"
#include "orvutil/cal_domain.h"
#include "orvutil/cal_i18n.h"
#include "orvutil/platform/config.h"

namespace {

using orvtest::TempDir;
using orvtest::write_file;

// Points the default configuration cache at a file holding text (or at a
// missing file for nullptr) for the scope.
class DefaultConfig {
public:
    explicit DefaultConfig(const char *text) {
        const std::string path = dir_.file("orv.conf");
        if (text != nullptr) write_file(path, text);
        config_setdefaultfile(path.c_str());
    }
    ~DefaultConfig() { config_setdefaultfile(dir_.file("gone.conf").c_str()); }

private:
    TempDir dir_;
};

std::string take(char *s) {
    std::string out = s != nullptr ? s : "(null)";
    std::free(s);
    return out;
}

TEST(CalI18n, SiteLanguageDefaultsToEnglish) {
    DefaultConfig conf(nullptr);
    EXPECT_EQ(cal_i18n_get_sessionlanguageid(nullptr), MEE_GetIntLanguageID("en"));
    EXPECT_STREQ(cal_i18n_get_sessionlanguagestring(-1), "en-US");
    EXPECT_STREQ(cal_i18n_get_sessioncharset(-1), "ISO-8859-1");
}

TEST(CalI18n, SessionLanguageLookups) {
    DefaultConfig conf("local.sitelanguage = ja\n");
    const int ja = MEE_GetIntLanguageID("ja"), kr = MEE_GetIntLanguageID("kr");
    EXPECT_EQ(cal_i18n_get_sessionlanguageid(nullptr), ja);
    EXPECT_EQ(cal_i18n_get_sessionlanguageid("KR"), kr);
    EXPECT_EQ(cal_i18n_get_sessionlanguageid("xx"), MEE_LANGUAGE_UNKNOWN);
    EXPECT_STREQ(cal_i18n_get_sessionlanguagestring(-1), "ja-JP");
    EXPECT_STREQ(cal_i18n_get_sessionlanguagestring(kr), "ko-KR");
    EXPECT_EQ(cal_i18n_get_sessionlanguagestring(MEE_LANGUAGE_COUNT), nullptr);
    EXPECT_STREQ(cal_i18n_get_sessioncharset(-1), "Shift_JIS");
    EXPECT_STREQ(cal_i18n_get_sessioncharset(kr), "EUC-KR");
    EXPECT_EQ(cal_i18n_isdbcslanguage("ch"), 1);
    EXPECT_EQ(cal_i18n_isdbcslanguage("de"), 0);
    EXPECT_EQ(cal_i18n_isasciistring("abc"), 1);
    EXPECT_EQ(cal_i18n_isasciistring("\xa4"), 0);
}

TEST(CalI18n, ErrorTexts) {
    DefaultConfig conf(nullptr);
    // No suite tag matches NSPR's error-language list exactly: index 1.
    EXPECT_EQ(cal_i18n_get_sessionlanguageid_et(0), 1);
    EXPECT_EQ(cal_i18n_get_sessionlanguageid_et(MEE_LANGUAGE_COUNT + 5), 1);
    const std::string expect = PR_ErrorToString(PR_FILE_NOT_FOUND_ERROR, 1);
    EXPECT_EQ(take(cal_i18n_et_message_localcharset(PR_FILE_NOT_FOUND_ERROR, -1)), expect);
    EXPECT_EQ(take(cal_i18n_et_message_localcharset(PR_FILE_NOT_FOUND_ERROR, MEE_GetIntLanguageID("ja"))), expect);
    EXPECT_EQ(cal_i18n_et_message_localcharset(PR_FILE_NOT_FOUND_ERROR, MEE_LANGUAGE_COUNT), nullptr);
}

TEST(CalI18n, LocalizedFileFallsBackToSiteThenEnglish) {
    DefaultConfig conf("local.sitelanguage = fr\n");
    TempDir dir;
    const std::string d = dir.path();
    struct Case {
        std::vector<const char *> present;  // language folders holding help.html
        const char *lang;
        const char *expect;  // the folder chosen, or nullptr
    };
    const Case cases[] = {
        {{"de", "fr", "en"}, "de", "de"},
        {{"fr", "en"}, "de", "fr"},
        {{"en"}, "de", "en"},
        {{}, "de", nullptr},
        {{"en"}, "en", "en"},
    };
    for (const auto &c : cases) {
        std::filesystem::remove_all(d + "/l");
        for (const char *lang : c.present) {
            std::filesystem::create_directories(d + "/l/" + lang);
            write_file(d + "/l/" + lang + "/help.html", lang);
        }
        char *path = cal_i18n_get_localized_file((d + "/l").c_str(), "help.html", c.lang);
        if (c.expect == nullptr) {
            EXPECT_EQ(path, nullptr);
        } else {
            EXPECT_EQ(take(path), d + "/l/" + c.expect + "/help.html");
        }
    }
    EXPECT_EQ(cal_i18n_get_localized_file(nullptr, "f", "en"), nullptr);
    EXPECT_EQ(cal_i18n_get_localized_file("d", nullptr, "en"), nullptr);
    EXPECT_EQ(cal_i18n_get_localized_file("d", "f", nullptr), nullptr);
}

TEST(CalI18n, LocalizedFileSkipsASiteLanguageThatDoesNotFit) {
    DefaultConfig conf("local.sitelanguage = a-much-longer-site-language\n");
    TempDir dir;
    std::filesystem::create_directories(dir.file("a-much-longer-site-language"));
    std::filesystem::create_directories(dir.file("en"));
    write_file(dir.file("a-much-longer-site-language/f"), "");
    write_file(dir.file("en/f"), "");
    EXPECT_EQ(take(cal_i18n_get_localized_file(dir.path().c_str(), "f", "x")), dir.file("en/f"));
}

TEST(CalI18n, DbcsLeadBytes) {
    struct Case {
        const char *language;
        const char *charset;
        int byte;
        int expect;
    };
    const Case cases[] = {
        {"ja", "Shift_JIS", 0x81, 1}, {"ja", "Shift_JIS", 0xE0, 1}, {"ja", "Shift_JIS", 0xA0, 0},
        {"ja", "Shift_JIS", 0xFD, 0}, {"JA", "shift_jis", 0x9F, 1}, {"ja", "Shift_JIS", 0xFC, 1},
        {"ja", "Shift_JIS", 0x80, 0}, {"ja", "euc-jp", 0x80, 1},    {"ja", "euc-jp", 0x7F, 0},
        {"ja", "UTF-8", 0x81, 0},     {"kr", "EUC-KR", 0xB0, 1},    {"ch", "GB2312", 0xFF, 1},
        {"ch", "GB2312", 0x41, 0},    {"en", "ISO-8859-1", 0xE9, 0}, {"ja", "Shift_JIS", -127, 1},
    };
    for (const auto &c : cases) {
        const MEE_Language record = {c.language, "", c.charset, "", 0, 0};
        EXPECT_EQ(isdbcsleadbyte(&record, c.byte), c.expect) << c.language << " " << c.charset << " " << c.byte;
    }
    const MEE_Language no_charset = {"ja", "ja-JP", nullptr, nullptr, 11, 1};
    EXPECT_EQ(isdbcsleadbyte(&no_charset, 0x81), 0);
    EXPECT_EQ(isdbcsleadbyte(nullptr, 0x81), 0);
    EXPECT_EQ(isdbcsleadbyte(MEE_GetLanguage(MEE_GetIntLanguageID("ja")), 0x81), 1);
}

TEST(CalI18n, MessageLookupReturnsTheDefault) {
    const char *text = "default text";
    EXPECT_EQ(config_msg_getstring(42, text), text);
    EXPECT_EQ(config_msg_getstring(0, nullptr), nullptr);
}

TEST(CalDomain, DefaultDomain) {
    {
        DefaultConfig conf(nullptr);
        char *domain = nullptr;
        EXPECT_EQ(cal_get_default_domain(&domain), 0);
        EXPECT_EQ(take(domain), "");
    }
    DefaultConfig conf("dwp.defaultdomain = example.org\n");
    char *domain = nullptr;
    ASSERT_EQ(cal_get_default_domain(&domain), 0);
    EXPECT_STREQ(domain, "example.org");
    // A pointer that already holds text is refused and left alone.
    char *const before = domain;
    EXPECT_EQ(cal_get_default_domain(&domain), CAL_DOMAIN_E_INVALIDARG);
    EXPECT_EQ(domain, before);
    EXPECT_EQ(static_cast<unsigned>(cal_get_default_domain(nullptr)), 0x80070057u);
    std::free(domain);
}

}  // namespace
