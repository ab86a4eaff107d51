/*
 * The locale library: the suite's language table and character-set
 * conversion between a language's local character set and UTF-8.
 *
 * Languages (integer id, suite tag, RFC 1766 tag, local and HTTP character
 * sets, double-byte flag):
 *
 *     0 en en-US ISO-8859-1       7 sv sv-SE ISO-8859-1
 *     1 fr fr-FR ISO-8859-1       8 fi fi-FI ISO-8859-1
 *     2 de de-DE ISO-8859-1       9 da da-DK ISO-8859-1
 *     3 es es-ES ISO-8859-1      10 no no-NO ISO-8859-1
 *     4 it it-IT ISO-8859-1      11 ja ja-JP Shift_JIS    double-byte
 *     5 pt pt-PT ISO-8859-1      12 kr ko-KR EUC-KR       double-byte
 *     6 nl nl-NL ISO-8859-1      13 ch zh-CN GB2312       double-byte
 *
 * The local and HTTP character sets are the same for every language.
 *
 * Language tags are matched without regard to ASCII case, as the suite tag
 * ("kr"), the RFC 1766 tag ("ko-KR"), or a primary subtag followed by '-' or
 * '_' and anything ("ko", "ko_KR", "fr-CA" give kr, kr, fr). A tag that
 * matches none of these is unknown: MEE_GetIntLanguageID gives
 * MEE_LANGUAGE_UNKNOWN (-1) and the per-tag queries give NULL or 0. An id
 * outside 0..13 is unknown too.
 *
 * Conversions go through iconv and return a new NUL-terminated string
 * allocated with malloc (free it with free()), or NULL when the text is NULL,
 * the language is unknown, memory runs out, or the text is not valid in its
 * source character set or holds a character the target set cannot
 * represent. Nothing is dropped or replaced silently: a text converts whole
 * or not at all.
 *
 * Initialisation is optional for the table and conversions; it records the
 * message look-up and the 8-bit header switch for the callers that need
 * them. Set up on the main thread before others run.
 */
#ifndef ORVUTIL_PLATFORM_MEE_H
#define ORVUTIL_PLATFORM_MEE_H

#include "../orv_defs.h"

ORV_BEGIN_DECLS

#define MEE_LANGUAGE_UNKNOWN (-1)
/* Number of languages in the table (ids 0 .. MEE_LANGUAGE_COUNT - 1). */
#define MEE_LANGUAGE_COUNT 14

/* A row of the language table; the suite tag comes first and the local
 * character set third. The strings are static. */
typedef struct MEE_Language {
    const char *language;    /* suite tag: "en", ..., "kr", "ch" */
    const char *rfc1766;     /* "en-US", ..., "ko-KR", "zh-CN" */
    const char *charset;     /* local character set */
    const char *httpcharset; /* HTTP content character set */
    int id;
    int dbcs; /* 1 for double-byte languages */
} MEE_Language;

/* Message look-up: the text for a message id, or deftext. */
typedef const char *(*MEE_MessageLookup)(int msgid, const char *deftext);

/* Records the message look-up (NULL: none) and whether 8-bit bytes are
 * allowed in mail headers. Returns 0. May be called again to replace both. */
ORV_API int MEE_Initialize(MEE_MessageLookup lookup, int allow8bit) ORV_NOEXCEPT;
/* Forgets what MEE_Initialize recorded. Returns 0. */
ORV_API int MEE_Terminate(void) ORV_NOEXCEPT;
/* The recorded look-up's text for msgid, or deftext when there is none (or
 * it answers NULL). */
ORV_API const char *MEE_GetMessage(int msgid, const char *deftext) ORV_NOEXCEPT;
/* The 8-bit header switch given to MEE_Initialize (0 before). */
ORV_API int MEE_Allow8Bit(void) ORV_NOEXCEPT;

/* Converts text from the local character set of languageId to UTF-8. A
 * negative id takes the character set of the process's current C locale
 * (LC_CTYPE), as for a line read from a terminal. */
ORV_API char *MEE_LocalToUTF8(int languageId, const char *text) ORV_NOEXCEPT;
/* Converts UTF-8 text to the local character set of languageId (negative:
 * the C locale's). */
ORV_API char *MEE_UTF8ToLocal(int languageId, const char *text) ORV_NOEXCEPT;

/* The id of a language tag, or MEE_LANGUAGE_UNKNOWN (also for NULL). */
ORV_API int MEE_GetIntLanguageID(const char *tag) ORV_NOEXCEPT;
/* The RFC 1766 tag of an id (static), or NULL for an unknown id. */
ORV_API const char *MEE_GetRFC1766LanguageID(int languageId) ORV_NOEXCEPT;
/* The HTTP content character set of a language tag (static), or NULL. */
ORV_API const char *MEE_HTTPContentCharset(const char *tag) ORV_NOEXCEPT;
/* 1 when the tag names a double-byte language, else 0. */
ORV_API int MEE_IsDBCSLanguage(const char *tag) ORV_NOEXCEPT;
/* 1 when every byte of text is below 0x80 (NULL and "" included), else 0. */
ORV_API int MEE_IsASCIIString(const char *text) ORV_NOEXCEPT;
/* The table row of an id, or NULL for an unknown id. */
ORV_API const MEE_Language *MEE_GetLanguage(int languageId) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_PLATFORM_MEE_H */
