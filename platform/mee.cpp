// The locale library: the language table and iconv conversions between a
// language's local character set and UTF-8.
#include "orvutil/platform/mee.h"

#include <iconv.h>
#include <langinfo.h>
#include <atomic>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "orv/ascii.hpp"

namespace {

constexpr MEE_Language kLanguages[MEE_LANGUAGE_COUNT] = {
    {"en", "en-US", "ISO-8859-1", "ISO-8859-1", 0, 0},  {"fr", "fr-FR", "ISO-8859-1", "ISO-8859-1", 1, 0},
    {"de", "de-DE", "ISO-8859-1", "ISO-8859-1", 2, 0},  {"es", "es-ES", "ISO-8859-1", "ISO-8859-1", 3, 0},
    {"it", "it-IT", "ISO-8859-1", "ISO-8859-1", 4, 0},  {"pt", "pt-PT", "ISO-8859-1", "ISO-8859-1", 5, 0},
    {"nl", "nl-NL", "ISO-8859-1", "ISO-8859-1", 6, 0},  {"sv", "sv-SE", "ISO-8859-1", "ISO-8859-1", 7, 0},
    {"fi", "fi-FI", "ISO-8859-1", "ISO-8859-1", 8, 0},  {"da", "da-DK", "ISO-8859-1", "ISO-8859-1", 9, 0},
    {"no", "no-NO", "ISO-8859-1", "ISO-8859-1", 10, 0}, {"ja", "ja-JP", "Shift_JIS", "Shift_JIS", 11, 1},
    {"kr", "ko-KR", "EUC-KR", "EUC-KR", 12, 1},         {"ch", "zh-CN", "GB2312", "GB2312", 13, 1},
};

std::atomic<MEE_MessageLookup> g_lookup{nullptr};
std::atomic<int> g_allow8bit{0};

// The primary subtag of an RFC 1766 tag ("ko" of "ko-KR").
std::string_view primary(std::string_view rfc) { return rfc.substr(0, rfc.find('-')); }

const MEE_Language *find(const char *tag) {
    if (tag == nullptr) return nullptr;
    const std::string_view t(tag);
    for (const auto &l : kLanguages)
        if (orv::ascii_iequal(t, l.language) || orv::ascii_iequal(t, l.rfc1766)) return &l;
    // A primary subtag alone or followed by a region or variant.
    const std::string_view head = t.substr(0, t.find_first_of("-_"));
    for (const auto &l : kLanguages)
        if (orv::ascii_iequal(head, l.language) || orv::ascii_iequal(head, primary(l.rfc1766))) return &l;
    return nullptr;
}

const char *charset_of(int id) {
    if (id < 0) return nl_langinfo(CODESET);
    const MEE_Language *l = MEE_GetLanguage(id);
    return l != nullptr ? l->charset : nullptr;
}

// Converts the whole of text, or gives NULL.
char *convert(const char *text, const char *from, const char *to) {
    if (text == nullptr || from == nullptr || to == nullptr) return nullptr;
    iconv_t cd = iconv_open(to, from);
    if (cd == reinterpret_cast<iconv_t>(-1)) return nullptr;
    char *in = const_cast<char *>(text);
    size_t in_left = std::strlen(text);
    // Room for the common case, doubled on demand; one byte is kept for the
    // terminator.
    size_t cap = in_left * 2 + 16;
    char *out = static_cast<char *>(std::malloc(cap));
    size_t used = 0;
    bool ok = out != nullptr;
    // Converts the input, then flushes the shift state (in == nullptr).
    for (bool flushing = false; ok;) {
        char *dst = out + used;
        size_t out_left = cap - used - 1;
        const size_t r =
            flushing ? iconv(cd, nullptr, nullptr, &dst, &out_left) : iconv(cd, &in, &in_left, &dst, &out_left);
        // Counted from what is left rather than dst - out: at -O3 GCC cannot
        // see that out was reassigned after the realloc below and warns.
        used = cap - 1 - out_left;
        if (r != static_cast<size_t>(-1)) {
            if (flushing) break;
            flushing = true;
            continue;
        }
        if (errno != E2BIG || cap > (static_cast<size_t>(-1) >> 2)) {
            ok = false;
            break;
        }
        char *bigger = static_cast<char *>(std::realloc(out, cap * 2));
        if (bigger == nullptr) {
            ok = false;
            break;
        }
        out = bigger;
        cap *= 2;
    }
    iconv_close(cd);
    if (!ok) {
        std::free(out);
        return nullptr;
    }
    out[used] = '\0';
    return out;
}

}  // namespace

extern "C" {

int MEE_Initialize(MEE_MessageLookup lookup, int allow8bit) noexcept {
    g_lookup.store(lookup);
    g_allow8bit.store(allow8bit != 0);
    return 0;
}

int MEE_Terminate(void) noexcept {
    g_lookup.store(nullptr);
    g_allow8bit.store(0);
    return 0;
}

const char *MEE_GetMessage(int msgid, const char *deftext) noexcept {
    const MEE_MessageLookup lookup = g_lookup.load();
    if (lookup == nullptr) return deftext;
    const char *text = lookup(msgid, deftext);
    return text != nullptr ? text : deftext;
}

int MEE_Allow8Bit(void) noexcept { return g_allow8bit.load(); }

char *MEE_LocalToUTF8(int languageId, const char *text) noexcept {
    return convert(text, charset_of(languageId), "UTF-8");
}

char *MEE_UTF8ToLocal(int languageId, const char *text) noexcept {
    return convert(text, "UTF-8", charset_of(languageId));
}

int MEE_GetIntLanguageID(const char *tag) noexcept {
    const MEE_Language *l = find(tag);
    return l != nullptr ? l->id : MEE_LANGUAGE_UNKNOWN;
}

const char *MEE_GetRFC1766LanguageID(int languageId) noexcept {
    const MEE_Language *l = MEE_GetLanguage(languageId);
    return l != nullptr ? l->rfc1766 : nullptr;
}

const char *MEE_HTTPContentCharset(const char *tag) noexcept {
    const MEE_Language *l = find(tag);
    return l != nullptr ? l->httpcharset : nullptr;
}

int MEE_IsDBCSLanguage(const char *tag) noexcept {
    const MEE_Language *l = find(tag);
    return l != nullptr && l->dbcs ? 1 : 0;
}

int MEE_IsASCIIString(const char *text) noexcept {
    if (text == nullptr) return 1;
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(text); *p; ++p)
        if (*p >= 0x80) return 0;
    return 1;
}

const MEE_Language *MEE_GetLanguage(int languageId) noexcept {
    if (languageId < 0 || languageId >= MEE_LANGUAGE_COUNT) return nullptr;
    return &kLanguages[languageId];
}

}  // extern "C"
