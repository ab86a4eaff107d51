#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <prerror.h>

#include "orvtest.hpp"
#include "orvutil/cal_domain.h"
#include "orvutil/cal_i18n.h"
#include "orvutil/platform/config.h"

namespace {

using orvtest::TempDir;
using orvtest::write_file;

// Points the default configuration cache at text (nullptr: a missing file).
class DefaultConfig {
  public:
    explicit DefaultConfig(const char *text) {
        if (text != nullptr) write_file(dir_.file("orv.conf"), text);
        config_setdefaultfile(dir_.file("orv.conf").c_str());
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

TEST(CalI18n, SessionLanguages) {
    {
        DefaultConfig conf(nullptr);
        EXPECT_EQ(cal_i18n_get_sessionlanguageid(nullptr), 0);  // "en"
        EXPECT_STREQ(cal_i18n_get_sessionlanguagestring(-1), "en-US");
    }
    DefaultConfig conf("local.sitelanguage = ja\n");
    EXPECT_EQ(cal_i18n_get_sessionlanguageid(nullptr), 11);
    EXPECT_EQ(cal_i18n_get_sessionlanguageid("KR"), 12);
    EXPECT_STREQ(cal_i18n_get_sessionlanguagestring(-1), "ja-JP");
    EXPECT_STREQ(cal_i18n_get_sessioncharset(-1), "Shift_JIS");
    EXPECT_STREQ(cal_i18n_get_sessioncharset(12), "EUC-KR");
    EXPECT_EQ(cal_i18n_get_sessionlanguagestring(MEE_LANGUAGE_COUNT), nullptr);
    // No suite tag is in NSPR's error-language list: index 1, whose text is
    // converted to the language's character set (-1: the site language).
    EXPECT_EQ(cal_i18n_get_sessionlanguageid_et(0), 1);
    const std::string text = PR_ErrorToString(PR_FILE_NOT_FOUND_ERROR, 1);
    EXPECT_EQ(take(cal_i18n_et_message_localcharset(PR_FILE_NOT_FOUND_ERROR, -1)), text);
    EXPECT_EQ(cal_i18n_et_message_localcharset(PR_FILE_NOT_FOUND_ERROR, MEE_LANGUAGE_COUNT), nullptr);
}

TEST(CalI18n, LocalizedFileFallsBackToSiteThenEnglish) {
    DefaultConfig conf("local.sitelanguage = fr\n");
    TempDir dir;
    const std::string d = dir.file("l");
    const std::pair<std::vector<const char *>, const char *> cases[] = {
        {{"de", "fr", "en"}, "de"}, {{"fr", "en"}, "fr"}, {{"en"}, "en"}, {{}, nullptr}};
    for (const auto &[present, expect] : cases) {
        std::filesystem::remove_all(d);
        for (const char *lang : present) {
            std::filesystem::create_directories(d + "/" + lang);
            write_file(d + "/" + lang + "/f", "");
        }
        EXPECT_EQ(take(cal_i18n_get_localized_file(d.c_str(), "f", "de")), expect ? d + "/" + expect + "/f" : "(null)");
    }
    EXPECT_EQ(cal_i18n_get_localized_file(d.c_str(), "f", nullptr), nullptr);
}

TEST(CalI18n, LocalizedFileCutsASiteLanguageThatDoesNotFit) {
    DefaultConfig conf("local.sitelanguage = a-much-longer-language\n");
    TempDir dir;
    // The buffer holds strlen(dir) + 1 + 1 + 9 bytes with "x": the site
    // candidate is cut to dir + "/a-much-lo", which is tried before "en".
    std::filesystem::create_directories(dir.file("en"));
    write_file(dir.file("en/f"), "");
    write_file(dir.file("a-much-lo"), "");
    EXPECT_EQ(take(cal_i18n_get_localized_file(dir.path().c_str(), "f", "x")), dir.file("a-much-lo"));
}

TEST(CalI18n, DbcsLeadBytes) {
    struct Case {
        const char *language, *charset;
        int byte, expect;
    };
    const Case cases[] = {
        {"ja", "Shift_JIS", 0x80, 0},  {"JA", "shift_jis", 0x9F, 1}, {"ja", "Shift_JIS", 0xA0, 0},
        {"ja", "Shift_JIS", 0xFC, 1},  {"ja", "Shift_JIS", 0xFD, 0}, {"ja", "euc-jp", 0x80, 1},
        {"ja", "euc-jp", 0x7F, 0},     {"ja", "UTF-8", 0x81, 0},     {"kr", "EUC-KR", 0xB0, 1},
        {"en", "ISO-8859-1", 0xE9, 0}, {"ja", "Shift_JIS", -127, 1}, {"ja", nullptr, 0x81, 0},
        {"ja", "Shift_JIS", 0xDF, 0},  {"ja", "Shift_JIS", 0xE0, 1},
    };
    for (const auto &c : cases) {
        const MEE_Language record = {c.language, "", c.charset, "", 0, 0};
        EXPECT_EQ(isdbcsleadbyte(&record, c.byte), c.expect) << c.language << " " << c.byte;
    }
    EXPECT_EQ(isdbcsleadbyte(nullptr, 0x81), 0);
}

TEST(CalDomain, DefaultDomain) {
    DefaultConfig conf("dwp.defaultdomain = example.org\n");
    char *domain = nullptr;
    ASSERT_EQ(cal_get_default_domain(&domain), 0);
    EXPECT_STREQ(domain, "example.org");
    char *const before = domain;
    EXPECT_EQ(cal_get_default_domain(&domain), CAL_DOMAIN_E_INVALIDARG);  // already holds text
    EXPECT_EQ(domain, before);
    EXPECT_EQ(static_cast<unsigned>(cal_get_default_domain(nullptr)), 0x80070057u);  // the bit pattern itself
    std::free(domain);
    DefaultConfig unset(nullptr);
    domain = nullptr;
    ASSERT_EQ(cal_get_default_domain(&domain), 0);
    EXPECT_EQ(take(domain), "");
}

}  // namespace
