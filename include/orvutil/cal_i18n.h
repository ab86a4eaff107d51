/*
 * Languages: the site language and session language ids, their tags and
 * HTTP character sets, localized NSPR error texts, the choice of a
 * localized file, and the double-byte lead-byte test.
 *
 * Language ids, tags and character sets are the locale library's
 * (platform/mee.h); a negative id stands for the site language, read from
 * the default configuration cache key "local.sitelanguage" (default "en").
 * Strings returned as const are static; the others are allocated with
 * malloc: free them with free().
 */
#ifndef ORVUTIL_CAL_I18N_H
#define ORVUTIL_CAL_I18N_H

#include "orv_defs.h"
#include "platform/mee.h"

ORV_BEGIN_DECLS

/* The id of a language tag (NULL: the site language); MEE_LANGUAGE_UNKNOWN
 * for a tag the locale library does not know. */
ORV_API int cal_i18n_get_sessionlanguageid(const char *language) ORV_NOEXCEPT;
/* The RFC 1766 tag of an id (negative: the site language), or NULL when the
 * id (or the configured site language) is unknown. */
ORV_API const char *cal_i18n_get_sessionlanguagestring(int languageId) ORV_NOEXCEPT;
/* The HTTP content character set of an id (negative: the site language), or
 * NULL when unknown. */
ORV_API const char *cal_i18n_get_sessioncharset(int languageId) ORV_NOEXCEPT;
/* The index of the id's RFC 1766 tag in NSPR's error-language list (exact
 * comparison), or 1 when it is not there. */
ORV_API int cal_i18n_get_sessionlanguageid_et(int languageId) ORV_NOEXCEPT;
/* NSPR's text for an error code, in the language of the id's error-language
 * index (an id of -1 is looked up as id 1), converted from UTF-8 to the
 * local character set of the id (-1: the site language). A malloc string,
 * or NULL when NSPR has no text, the language is unknown or the text does
 * not convert. */
ORV_API char *cal_i18n_et_message_localcharset(int errorCode, int languageId) ORV_NOEXCEPT;
/* The first readable path of dir/lang/file, dir/<site language>/file and
 * dir/en/file, as a malloc string, or NULL when none is readable or an
 * argument is NULL. Each candidate is built in strlen(dir) + strlen(file) +
 * strlen(lang) + 9 bytes; a candidate that does not fit (a site language
 * much longer than lang) is cut to that size and tried as cut. */
ORV_API char *cal_i18n_get_localized_file(const char *dir, const char *file, const char *lang) ORV_NOEXCEPT;
/* The locale library's MEE_IsDBCSLanguage and MEE_IsASCIIString. */
ORV_API int cal_i18n_isdbcslanguage(const char *language) ORV_NOEXCEPT;
ORV_API int cal_i18n_isasciistring(const char *text) ORV_NOEXCEPT;

/* 1 when byte starts a double-byte character in the record's language and
 * character set, else 0 (only the byte's low 8 bits count, so a plain char
 * may be passed): "ja" with "Shift_JIS" for 129-159 and
 * 224-252, "ja" with "euc-jp" for 128-255, "kr" and "ch" for 128-255 (tags
 * and character sets compared ignoring ASCII case). 0 without a record, a
 * language or a character set. */
ORV_API int isdbcsleadbyte(const MEE_Language *record, int byte) ORV_NOEXCEPT;

/* The message look-up handed to MEE_Initialize: returns deftext unchanged. */
ORV_API const char *config_msg_getstring(int msgid, const char *deftext) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_I18N_H */
