// iCalendar and XML output escaping into a protstream, the XML string
// converters and the control-character cleaner.
#include "orvutil/cal_parseutil.h"

#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>

#include <plstr.h>

#include "text_internal.hpp"

namespace {

// Escape form of each byte for one writer; nullptr writes the byte as is.
using Forms = std::array<const char *, 256>;

constexpr Forms make_forms(bool quote, bool xml, bool ical_separators) {
    Forms f{};
    f['\b'] = "\\b";
    f['\f'] = "\\f";
    f['\\'] = "\\\\";
    f['\n'] = xml ? "&#10;" : "\\n";
    f['\r'] = xml ? "&#13;" : "\\r";
    if (quote) f['\''] = "\\'";
    if (xml) {
        f['&'] = "&#38;";
        f['<'] = "&#60;";
        f['>'] = "&#62;";
    }
    if (ical_separators) {
        f[','] = "\\,";
        f[';'] = "\\;";
    }
    return f;
}

constexpr Forms kPrintChar = make_forms(true, false, false);
constexpr Forms kXmlChar = make_forms(false, true, false);
constexpr Forms kIcalEs = make_forms(false, false, true);
constexpr Forms kIcalNoEs = make_forms(false, false, false);

// Bytes a string writer may copy in bulk: no escape form and not the
// terminator. Bytes 0x80 and above always qualify.
using Plain = std::array<bool, 256>;

constexpr Plain make_plain(const Forms &forms) {
    Plain p{};
    for (size_t i = 1; i < 256; ++i) p[i] = forms[i] == nullptr;
    return p;
}

constexpr Plain kIcalEsPlain = make_plain(kIcalEs);
constexpr Plain kIcalNoEsPlain = make_plain(kIcalNoEs);
constexpr Plain kXmlPlain = make_plain(kXmlChar);

// A fold goes before a character written while the column is above this.
constexpr int kFoldColumn = 73;

bool stopped(const protstream *s) { return s->error || s->eof; }

// The put rule, inline: dropped once the stream has stopped, flushed when
// the buffer is full.
inline void put(protstream *s, unsigned char c) {
    if (stopped(s)) return;
    *s->ptr++ = c;
    if (--s->cnt == 0) prot_flush(s);
}

inline void put_form(protstream *s, const char *form) {
    for (; *form; ++form) put(s, static_cast<unsigned char>(*form));
}

inline int next_column(int col, int step) { return col <= INT_MAX - step ? col + step : INT_MAX; }

void fold(protstream *s, int *col) {
    put(s, '\n');
    put(s, ' ');
    *col = 1;
}

// Bytes behind the last LF still in the buffer, or behind its start.
int buffer_column(const protstream *s) {
    const auto pending = static_cast<size_t>(s->ptr - s->buf);
    if (pending == 0) return 0;
    const char *start = reinterpret_cast<const char *>(s->buf);
    const char *lf = PL_strnrchr(start, '\n', static_cast<PRUint32>(pending));
    const char *from = lf != nullptr ? lf + 1 : start;
    const auto n = static_cast<size_t>(reinterpret_cast<const char *>(s->ptr) - from);
    return n > INT_MAX ? INT_MAX : static_cast<int>(n);
}

int print_with(char c, protstream *s, const Forms &forms) {
    if (s == nullptr) return 1;
    const auto b = static_cast<unsigned char>(c);
    if (forms[b] != nullptr)
        put_form(s, forms[b]);
    else
        put(s, b);
    return 0;
}

int print_ical_with(char c, protstream *s, int *col, const Forms &forms) {
    if (s == nullptr || col == nullptr) return 1;
    if (*col > kFoldColumn) fold(s, col);
    const auto b = static_cast<unsigned char>(c);
    if (forms[b] != nullptr) {
        put_form(s, forms[b]);
        *col = next_column(*col, 1);
    } else {
        put(s, b);
    }
    return 0;
}

// Length of the run of bulk-copyable bytes at p, at most limit.
inline size_t plain_run(const unsigned char *p, size_t limit, const Plain &plain) {
    size_t n = 0;
    while (n < limit && plain[p[n]]) ++n;
    return n;
}

int print_string_ical_with(protstream *s, const char *str, const Forms &forms, const Plain &plain) {
    if (s == nullptr) return 1;
    if (str == nullptr) return 0;
    int col = buffer_column(s);
    const auto *p = reinterpret_cast<const unsigned char *>(str);
    while (*p != '\0' && !stopped(s)) {
        if (col <= kFoldColumn) {
            // Up to the byte that would see the column pass the fold point,
            // plain bytes go out in one piece.
            const size_t n = plain_run(p, static_cast<size_t>(kFoldColumn + 1 - col), plain);
            if (n > 0) {
                prot_write(s, reinterpret_cast<const char *>(p), n);
                col += static_cast<int>(n);
                p += n;
                continue;
            }
        }
        const unsigned char c = *p++;
        if (c >= 0x80)
            put(s, c);  // raw, and never a fold before it
        else
            print_ical_with(static_cast<char>(c), s, &col, forms);
        col = next_column(col, 1);
    }
    return 0;
}

// Converted form of source, into a buffer from malloc. Every byte of the
// set becomes a five-byte entity; CR LF pairs lose the CR when compressing.
char *convert_to_xml(const char *source, bool compress, bool full) {
    static constexpr const char *kLineFeed = "&#10;";
    auto entity = [full](unsigned char c) -> const char * {
        switch (c) {
        case '\n':
        case '\r': return kLineFeed;
        default: break;
        }
        if (!full) return nullptr;
        switch (c) {
        case '"': return "&#34;";
        case '&': return "&#38;";
        case '\'': return "&#39;";
        case '/': return "&#47;";
        case '<': return "&#60;";
        case '>': return "&#62;";
        default: return nullptr;
        }
    };
    const size_t len = std::strlen(source);
    size_t cap = 0;
    if (!orv::text::scaled_size(len, 5, 1, cap)) return nullptr;
    size_t need = 1;
    for (size_t i = 0; i < len; ++i) {
        const auto c = static_cast<unsigned char>(source[i]);
        if (compress && c == '\r' && source[i + 1] == '\n') continue;
        need += entity(c) ? 5 : 1;
    }
    char *out = static_cast<char *>(std::malloc(need));
    if (out == nullptr) return nullptr;
    char *w = out;
    for (size_t i = 0; i < len; ++i) {
        const auto c = static_cast<unsigned char>(source[i]);
        if (compress && c == '\r' && source[i + 1] == '\n') continue;
        if (const char *e = entity(c)) {
            std::memcpy(w, e, 5);
            w += 5;
        } else {
            *w++ = static_cast<char>(c);
        }
    }
    *w = '\0';
    return out;
}

}  // namespace

extern "C" {

int cal_parseutil_print_char(char c, protstream *s) noexcept { return print_with(c, s, kPrintChar); }

int cal_parseutil_print_xml_char(char c, protstream *s) noexcept { return print_with(c, s, kXmlChar); }

int cal_parseutil_print_char_ical_es(char c, protstream *s, int *column) noexcept {
    return print_ical_with(c, s, column, kIcalEs);
}

int cal_parseutil_print_char_ical_no_es(char c, protstream *s, int *column) noexcept {
    return print_ical_with(c, s, column, kIcalNoEs);
}

int cal_parseutil_print_char_ical(protstream *s, char c) noexcept {
    if (s == nullptr) return 0;
    if (buffer_column(s) > kFoldColumn) {
        put(s, '\n');
        put(s, ' ');
    }
    put(s, static_cast<unsigned char>(c));
    return 0;
}

int cal_parseutil_print_char_xml(protstream *s, char c) noexcept {
    if (s != nullptr) put(s, static_cast<unsigned char>(c));
    return 0;
}

int cal_parseutil_print_string_ical_es(protstream *s, const char *str, int escape) noexcept {
    return escape ? print_string_ical_with(s, str, kIcalEs, kIcalEsPlain)
                  : print_string_ical_with(s, str, kIcalNoEs, kIcalNoEsPlain);
}

int cal_parseutil_print_string_ical(protstream *s, const char *str) noexcept {
    return cal_parseutil_print_string_ical_es(s, str, 1);
}

int cal_parseutil_print_string_no_esc_ical(protstream *s, const char *str) noexcept {
    return cal_parseutil_print_string_ical_es(s, str, 0);
}

int cal_parseutil_print_string_xml_es(protstream *s, const char *str, int /*escape: ignored*/) noexcept {
    if (s == nullptr) return 1;
    if (str == nullptr) return 0;
    const auto *p = reinterpret_cast<const unsigned char *>(str);
    while (*p != '\0' && !stopped(s)) {
        const size_t n = plain_run(p, SIZE_MAX, kXmlPlain);
        if (n > 0) {
            prot_write(s, reinterpret_cast<const char *>(p), n);
            p += n;
        } else {
            put_form(s, kXmlChar[*p++]);
        }
    }
    return 0;
}

int cal_parseutil_print_string_xml(protstream *s, const char *str) noexcept {
    return cal_parseutil_print_string_xml_es(s, str, 1);
}

int cal_parseutil_print_string_xml_no_esc(protstream *s, const char *str) noexcept {
    return cal_parseutil_print_string_xml_es(s, str, 0);
}

void compressNewLines(char *s) noexcept {
    if (s == nullptr) return;
    char *w = s;
    for (const char *r = s; *r; ++r)
        if (!(r[0] == '\r' && r[1] == '\n')) *w++ = *r;
    *w = '\0';
}

void cal_parseutil_ValidateXMLData(char *s) noexcept {
    if (s == nullptr) return;
    for (; *s; ++s) {
        const auto c = static_cast<unsigned char>(*s);
        if (c < 0x20 && c != '\t' && c != '\n' && c != '\r') *s = ' ';
    }
}

int cal_parseutil_convert_to_xml_string_helper(const char *source, char **out, int compress, int full) noexcept {
    if (source == nullptr) return 1;
    if (out == nullptr) return 2;
    if (*out != nullptr) {
        std::free(*out);
        *out = nullptr;
    }
    *out = convert_to_xml(source, compress != 0, full != 0);
    return *out != nullptr ? 0 : 1;
}

int cal_parseutil_convert_to_xml_string(const char *source, char **out, int compress) noexcept {
    return cal_parseutil_convert_to_xml_string_helper(source, out, compress, 0);
}

int cal_parseutil_convert_to_xml_string_always(const char *source, char **out, int compress) noexcept {
    return cal_parseutil_convert_to_xml_string_helper(source, out, compress, 1);
}

}  // extern "C"
