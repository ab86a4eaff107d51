// Languages: site and session languages, localized error texts and files,
// and the double-byte lead-byte test, on top of the locale library.
#include "orvutil/cal_i18n.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <prerror.h>
#include <prio.h>

#include "orv/ascii.hpp"
#include "orv/sizes.hpp"
#include "orvutil/platform/config.h"

namespace {

const char *site_language() { return config_get_string(config_getdefaultcache(), "local.sitelanguage", "en"); }

int resolve(int languageId) { return languageId < 0 ? MEE_GetIntLanguageID(site_language()) : languageId; }

bool iequal(const char *a, std::string_view b) { return a != nullptr && orv::ascii_iequal(a, b); }

}  // namespace

extern "C" {

int cal_i18n_get_sessionlanguageid(const char *language) noexcept {
    return MEE_GetIntLanguageID(language != nullptr ? language : site_language());
}

const char *cal_i18n_get_sessionlanguagestring(int languageId) noexcept {
    return MEE_GetRFC1766LanguageID(resolve(languageId));
}

const char *cal_i18n_get_sessioncharset(int languageId) noexcept {
    return MEE_HTTPContentCharset(cal_i18n_get_sessionlanguagestring(languageId));
}

int cal_i18n_get_sessionlanguageid_et(int languageId) noexcept {
    const char *tag = cal_i18n_get_sessionlanguagestring(languageId);
    const char *const *languages = PR_ErrorLanguages();
    if (tag == nullptr || languages == nullptr) return 1;
    for (int i = 0; languages[i] != nullptr; ++i)
        if (std::strcmp(languages[i], tag) == 0) return i;
    return 1;
}

char *cal_i18n_et_message_localcharset(int errorCode, int languageId) noexcept {
    // An id of -1 picks the error-language entry of id 1, not the site
    // language's; the conversion below does use the site language.
    const int index = cal_i18n_get_sessionlanguageid_et(languageId == -1 ? 1 : languageId);
    const char *text = PR_ErrorToString(errorCode, static_cast<PRLanguageCode>(index));
    if (text == nullptr) return nullptr;
    return MEE_UTF8ToLocal(resolve(languageId), text);
}

char *cal_i18n_get_localized_file(const char *dir, const char *file, const char *lang) noexcept {
    if (dir == nullptr || file == nullptr || lang == nullptr) return nullptr;
    const size_t parts[] = {std::strlen(dir), std::strlen(file), std::strlen(lang)};
    size_t size = 10;
    for (size_t n : parts) {
        if (!orv::size_add(size, n)) return nullptr;
    }
    char *path = static_cast<char *>(std::malloc(size));
    if (path == nullptr) return nullptr;
    // The buffer is sized for lang: a longer site language is cut by the
    // formatting and the cut path is tried as it stands, as it always was.
    for (const char *candidate : {lang, site_language(), "en"}) {
        if (std::snprintf(path, size - 1, "%s/%s/%s", dir, candidate, file) < 0) continue;
        if (PR_Access(path, PR_ACCESS_READ_OK) == PR_SUCCESS) return path;
    }
    std::free(path);
    return nullptr;
}

int cal_i18n_isdbcslanguage(const char *language) noexcept { return MEE_IsDBCSLanguage(language); }

int cal_i18n_isasciistring(const char *text) noexcept { return MEE_IsASCIIString(text); }

int isdbcsleadbyte(const MEE_Language *record, int byte) noexcept {
    if (record == nullptr || record->language == nullptr || record->charset == nullptr) return 0;
    const int b = byte & 0xff;
    if (iequal(record->language, "ja")) {
        if (iequal(record->charset, "Shift_JIS")) return (b >= 129 && b <= 159) || (b >= 224 && b <= 252);
        if (iequal(record->charset, "euc-jp")) return b > 127;
        return 0;
    }
    if (iequal(record->language, "kr") || iequal(record->language, "ch")) return b > 127;
    return 0;
}

const char *config_msg_getstring(int /*msgid*/, const char *deftext) noexcept { return deftext; }

}  // extern "C"
