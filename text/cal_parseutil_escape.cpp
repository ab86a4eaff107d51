// iCalendar and XML output escaping into a protstream, the XML string
// converters and the control-character cleaner.
#include "orvutil/cal_parseutil.h"

#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>

#include <plstr.h>

#include "orv/sizes.hpp"
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

inline void put(protstream *s, unsigned char c) { prot_putc(c, s); }

inline void put_form(protstream *s, const char *form) { prot_write(s, form, std::strlen(form)); }

inline int next_column(int col, int step) { return col <= INT_MAX - step ? col + step : INT_MAX; }

void fold(protstream *s, int *col) {
    prot_write(s, "\n ", 2);
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
    if (s == nullptr) return CAL_PARSEUTIL_E_NOSTREAM;
    const auto b = static_cast<unsigned char>(c);
    if (forms[b] != nullptr)
        put_form(s, forms[b]);
    else
        put(s, b);
    return 0;
}

inline int print_ical_with(char c, protstream *s, int *col, const Forms &forms) {
    if (s == nullptr || col == nullptr) return CAL_PARSEUTIL_E_NOSTREAM;
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

using orv::text::plain_span;

// Block tests for the string writers' special bytes (see plain_span).
constexpr auto kIcalEsBlock = [](auto x) {
    using namespace orv::text;
    return block_or(block_or(block_low_controls(x), block_eq(x, '\\')), block_or(block_eq(x, ','), block_eq(x, ';')));
};
constexpr auto kIcalNoEsBlock = [](auto x) {
    using namespace orv::text;
    return block_or(block_low_controls(x), block_eq(x, '\\'));
};
constexpr auto kXmlBlock = [](auto x) {
    using namespace orv::text;
    return block_or(block_or(block_low_controls(x), block_eq(x, '\\')),
                    block_or(block_eq(x, '&'), block_or(block_eq(x, '<'), block_eq(x, '>'))));
};

// Appends n bytes that need no escaping (avail bytes are readable at p)
// into the stream's free room; runs longer than the room go through
// prot_write, which flushes as it fills. Short runs move as whole 16-byte
// pieces when both sides have room: what is stored past the run is scratch
// in the free part of the buffer.
inline void put_run(protstream *s, const unsigned char *p, size_t n, size_t avail) {
    size_t room = 0;
    unsigned char *w = prot_reserve(s, &room);
    if (w == nullptr) return;
    const size_t pieces = (n + 15) & ~size_t{15};
    if (pieces <= avail && pieces <= room) {
        for (size_t i = 0; i < pieces; i += 16) std::memcpy(w + i, p + i, 16);
        prot_commit(s, n);
    } else if (n <= room) {
        std::memcpy(w, p, n);
        prot_commit(s, n);
    } else {
        prot_write(s, reinterpret_cast<const char *>(p), n);
    }
}

template <typename BlockMask>
int print_string_ical_with(protstream *s, const char *str, const Forms &forms, const Plain &plain,
                           BlockMask block_mask) {
    if (s == nullptr) return CAL_PARSEUTIL_E_NOSTREAM;
    if (str == nullptr) return 0;
    int col = buffer_column(s);
    const auto *p = reinterpret_cast<const unsigned char *>(str);
    const unsigned char *end = p + std::strlen(str);
    auto special = [&plain](unsigned char c) { return !plain[c]; };
    while (p < end && !stopped(s)) {
        if (col <= kFoldColumn) {
            // Up to the byte that would see the column pass the fold point,
            // plain bytes go out in one piece.
            const size_t n = plain_span(p, static_cast<size_t>(end - p), static_cast<size_t>(kFoldColumn + 1 - col),
                                        block_mask, special);
            if (n > 0) {
                put_run(s, p, n, static_cast<size_t>(end - p));
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

// Entities of the XML converters: index into kEntities per byte, 0 for none.
// Stored as 8-byte slots so that an entity is one fixed-size move.
constexpr char kEntities[][8] = {"", "&#10;", "&#34;", "&#38;", "&#39;", "&#47;", "&#60;", "&#62;"};
constexpr size_t kEntityLength = 5;

using EntityIndex = std::array<unsigned char, 256>;

constexpr EntityIndex make_entity_index(bool full) {
    EntityIndex e{};
    e['\n'] = e['\r'] = 1;  // a lone CR becomes a line feed too
    if (full) {
        e['"'] = 2;
        e['&'] = 3;
        e['\''] = 4;
        e['/'] = 5;
        e['<'] = 6;
        e['>'] = 7;
    }
    return e;
}

constexpr EntityIndex kFullEntities = make_entity_index(true);
constexpr EntityIndex kLineEntities = make_entity_index(false);

// Converted form of source, into a buffer from malloc: every byte of the
// set becomes a five-byte entity; CR LF pairs lose the CR when compressing.
// A first pass counts the entities, so the buffer has the exact size.
char *convert_to_xml(const char *source, bool compress, bool full) {
    const EntityIndex &index = full ? kFullEntities : kLineEntities;
    const size_t len = std::strlen(source);
    size_t worst = len;
    if (!orv::size_mul(worst, kEntityLength) || !orv::size_add(worst, 1 + 16)) return nullptr;
    const auto *p = reinterpret_cast<const unsigned char *>(source);
    auto special = [&index](unsigned char c) { return index[c] != 0; };
    auto block_full = [](auto x) {
        using namespace orv::text;
        return block_or(
            block_or(block_or(block_eq(x, '\n'), block_eq(x, '\r')), block_or(block_eq(x, '"'), block_eq(x, '&'))),
            block_or(block_or(block_eq(x, '\''), block_eq(x, '/')), block_or(block_eq(x, '<'), block_eq(x, '>'))));
    };
    auto block_lines = [](auto x) {
        using namespace orv::text;
        return block_or(block_eq(x, '\n'), block_eq(x, '\r'));
    };
    size_t entities = full ? orv::text::count_special(p, len, block_full, special)
                           : orv::text::count_special(p, len, block_lines, special);
    size_t dropped = 0;  // CRs of CR LF pairs, when compressing
    if (compress)
        for (const char *cr = std::strchr(source, '\r'); cr != nullptr; cr = std::strchr(cr + 1, '\r'))
            if (cr[1] == '\n') ++dropped;
    // Each entity adds four bytes; each dropped CR takes its whole entity
    // away. At most the worst case computed above, so no overflow. The 16
    // bytes of slack let runs and entities be stored as whole 16- and
    // 8-byte pieces.
    const size_t need = len + (kEntityLength - 1) * entities - kEntityLength * dropped + 1;
    char *out = static_cast<char *>(std::malloc(need + 16));
    if (out == nullptr) return nullptr;
    auto emit = [&](const unsigned char *at, unsigned char *&w) {
        const unsigned char c = *at;
        if (compress && c == '\r' && at[1] == '\n') return size_t{1};  // at[1] is at most the terminator
        std::memcpy(w, kEntities[index[c]], 8);
        w += kEntityLength;
        return size_t{1};
    };
    unsigned char *w =
        full ? orv::text::copy_runs(p, len, reinterpret_cast<unsigned char *>(out), block_full, special, emit)
             : orv::text::copy_runs(p, len, reinterpret_cast<unsigned char *>(out), block_lines, special, emit);
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
    return escape ? print_string_ical_with(s, str, kIcalEs, kIcalEsPlain, kIcalEsBlock)
                  : print_string_ical_with(s, str, kIcalNoEs, kIcalNoEsPlain, kIcalNoEsBlock);
}

int cal_parseutil_print_string_ical(protstream *s, const char *str) noexcept {
    return cal_parseutil_print_string_ical_es(s, str, 1);
}

int cal_parseutil_print_string_no_esc_ical(protstream *s, const char *str) noexcept {
    return cal_parseutil_print_string_ical_es(s, str, 0);
}

int cal_parseutil_print_string_xml_es(protstream *s, const char *str, int /*escape: ignored*/) noexcept {
    if (s == nullptr) return CAL_PARSEUTIL_E_NOSTREAM;
    if (str == nullptr) return 0;
    const auto *p = reinterpret_cast<const unsigned char *>(str);
    const unsigned char *end = p + std::strlen(str);
    auto special = [](unsigned char c) { return !kXmlPlain[c]; };
    while (p < end && !stopped(s)) {
        const auto avail = static_cast<size_t>(end - p);
        const size_t n = plain_span(p, avail, avail, kXmlBlock, special);
        put_run(s, p, n, avail);
        p += n;
        if (p == end) break;
        const unsigned char c = *p++;
        if (kXmlChar[c] != nullptr)
            put_form(s, kXmlChar[c]);
        else
            put(s, c);
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
    if (source == nullptr) return CAL_PARSEUTIL_XML_E_SOURCE;
    if (out == nullptr) return CAL_PARSEUTIL_XML_E_OUT;
    if (*out != nullptr) {
        std::free(*out);
        *out = nullptr;
    }
    *out = convert_to_xml(source, compress != 0, full != 0);
    return *out != nullptr ? 0 : CAL_PARSEUTIL_XML_E_SOURCE;
}

int cal_parseutil_convert_to_xml_string(const char *source, char **out, int compress) noexcept {
    return cal_parseutil_convert_to_xml_string_helper(source, out, compress, 0);
}

int cal_parseutil_convert_to_xml_string_always(const char *source, char **out, int compress) noexcept {
    return cal_parseutil_convert_to_xml_string_helper(source, out, compress, 1);
}

}  // extern "C"
