// Table-driven web encoders (URL, HTML, cookie, caret, underscore) and
// their decoders.
#include "orvutil/url_encode_decode.h"

#include <array>
#include <cstdlib>
#include <cstring>

#include "orv/ascii.hpp"
#include "orv/sizes.hpp"
#include "text_internal.hpp"

namespace {

// One replacement table: the entry for each byte and its length (0 copies
// the byte). Built at compile time, so every thread sees it ready.
struct CodeMap {
    std::array<std::array<char, 8>, 256> entry{};
    std::array<unsigned char, 256> len{};

    constexpr void set(unsigned char b, const char *s) {
        size_t n = 0;
        for (; s[n] != '\0'; ++n) entry[b][n] = s[n];
        entry[b][n] = '\0';
        len[b] = static_cast<unsigned char>(n);
    }
    constexpr void set_hex(unsigned char b, char escape) {
        const char s[4] = {escape, orv::kHexUpper[b >> 4], orv::kHexUpper[b & 15], '\0'};
        set(b, s);
    }
};

enum class Kind { url, html, cookie, full, alpha };

constexpr CodeMap make_map(Kind kind) {
    CodeMap m;
    for (int i = 0; i < 256; ++i) {
        const auto b = static_cast<unsigned char>(i);
        if (orv::ascii_isalnum(b)) continue;
        if (kind == Kind::url) m.set_hex(b, '%');
        if (kind == Kind::full) m.set_hex(b, '^');
        if (kind == Kind::alpha) m.set(b, "_");
    }
    switch (kind) {
        case Kind::url:
            m.set(' ', "+");
            for (const char c : {'-', '_', '.', '*', '@'}) m.set(static_cast<unsigned char>(c), "");
            break;
        case Kind::html:
            m.set('"', "&quot;");
            m.set('&', "&amp;");
            m.set('>', "&gt;");
            m.set('<', "&lt;");
            break;
        case Kind::cookie:
            m.set(' ', "+");
            m.set(',', "%2C");
            m.set(';', "%3B");
            break;
        case Kind::full: m.set(' ', "+"); break;
        case Kind::alpha: break;
    }
    return m;
}

constexpr CodeMap url_code_map = make_map(Kind::url);
constexpr CodeMap html_code_map = make_map(Kind::html);
constexpr CodeMap cookie_code_map = make_map(Kind::cookie);
constexpr CodeMap full_code_map = make_map(Kind::full);
constexpr CodeMap alpha_code_map = make_map(Kind::alpha);

// Longest input any encoder takes: its output buffer of six bytes per
// input byte plus six must fit size_t.
bool too_long(size_t len) { return !orv::size_mul(len, 6) || !orv::size_add(len, 6); }

char *encode(const CodeMap &map, const char *text) {
    if (text == nullptr) return nullptr;
    const size_t len = std::strlen(text);
    if (too_long(len)) return nullptr;
    const auto *in = reinterpret_cast<const unsigned char *>(text);
    // Exact size first: entries are at most 7 bytes, and len * 7 may not fit
    // even when len * 6 does, so the sum is checked as it grows.
    size_t need = 1;
    for (size_t i = 0; i < len; ++i) {
        const size_t add = map.len[in[i]] ? map.len[in[i]] : 1;
        if (!orv::size_add(need, add)) return nullptr;
    }
    // Entries are copied as whole 8-byte slots (one fixed-size move instead
    // of a variable one), so the buffer has one slot of slack at its end.
    constexpr size_t kSlot = sizeof map.entry[0];
    size_t cap = need;
    if (!orv::size_add(cap, kSlot)) return nullptr;
    char *out = static_cast<char *>(std::malloc(cap));
    if (out == nullptr) return nullptr;
    char *w = out;
    for (size_t i = 0; i < len; ++i) {
        const unsigned char c = in[i];
        const unsigned n = map.len[c];
        if (n == 0) {
            *w++ = static_cast<char>(c);
        } else {
            std::memcpy(w, map.entry[c].data(), kSlot);
            w += n;
        }
    }
    *w = '\0';
    return out;
}

// Hex digit values by byte, -1 for the rest: a look-up instead of range
// tests keeps mixed digits and letters free of mispredicted branches.
constexpr std::array<signed char, 256> kHexValue = [] {
    std::array<signed char, 256> t{};
    for (int i = 0; i < 256; ++i)
        t[static_cast<size_t>(i)] = static_cast<signed char>(orv::ascii_hexvalue(static_cast<unsigned char>(i)));
    return t;
}();

// Value of the two hex digits at p, 0 when either is not one; p[1] is read
// only when p[0] is a digit, so never past a terminator.
inline int xtoi_inline(const unsigned char *p) {
    const int hi = kHexValue[p[0]];
    if (hi < 0) return 0;
    const int lo = kHexValue[p[1]];
    return lo < 0 ? 0 : hi * 16 + lo;
}

// Decodes the byte at p (an escape character or '+') into *w; returns how
// many input bytes it consumed. p[2] is read only when p[1] is a hex digit,
// so never past the terminator.
inline size_t decode_one(const unsigned char *p, unsigned char *&w, unsigned char escape) {
    if (*p != escape) {
        *w++ = ' ';
        return 1;
    }
    const int v = xtoi_inline(p + 1);
    *w++ = v != 0 ? static_cast<unsigned char>(v) : escape;
    return v != 0 ? 3 : 1;
}

char *decode(const char *text, char escape_char) {
    if (text == nullptr) return nullptr;
    const auto escape = static_cast<unsigned char>(escape_char);
    const size_t len = std::strlen(text);
    // The output is never longer than the input; 16 bytes of slack let runs
    // be stored as whole 16-byte moves.
    size_t cap = len;
    if (!orv::size_add(cap, 17)) return nullptr;
    char *out = static_cast<char *>(std::malloc(cap));
    if (out == nullptr) return nullptr;
    const auto *p = reinterpret_cast<const unsigned char *>(text);
    auto special = [escape](unsigned char c) { return c == escape || c == '+'; };
    auto block_mask = [escape](auto x) {
        using namespace orv::text;
        return block_or(block_eq(x, static_cast<char>(escape)), block_eq(x, '+'));
    };
    auto emit = [escape](const unsigned char *at, unsigned char *&w) { return decode_one(at, w, escape); };
    unsigned char *w = orv::text::copy_runs(p, len, reinterpret_cast<unsigned char *>(out), block_mask, special, emit);
    *w = '\0';
    return out;
}

}  // namespace

extern "C" {

char *url_EncodeCore(const char *const *table, const char *text) noexcept {
    if (table == nullptr || text == nullptr) return nullptr;
    const size_t len = std::strlen(text);
    if (too_long(len)) return nullptr;
    const auto *in = reinterpret_cast<const unsigned char *>(text);
    size_t lens[256];
    for (size_t b = 0; b < 256; ++b) lens[b] = table[b] != nullptr ? std::strlen(table[b]) : 0;
    size_t need = 1;
    for (size_t i = 0; i < len; ++i) {
        const size_t add = lens[in[i]] ? lens[in[i]] : 1;
        if (!orv::size_add(need, add)) return nullptr;
    }
    char *out = static_cast<char *>(std::malloc(need));
    if (out == nullptr) return nullptr;
    char *w = out;
    for (size_t i = 0; i < len; ++i) {
        if (const size_t n = lens[in[i]]) {
            std::memcpy(w, table[in[i]], n);
            w += n;
        } else {
            *w++ = static_cast<char>(in[i]);
        }
    }
    *w = '\0';
    return out;
}

char *url_Encode(const char *text) noexcept { return encode(url_code_map, text); }
char *url_EncodeHTML(const char *text) noexcept { return encode(html_code_map, text); }
char *url_EncodeCookie(const char *text) noexcept { return encode(cookie_code_map, text); }
char *full_Encode(const char *text) noexcept { return encode(full_code_map, text); }
char *alpha_Encode(const char *text) noexcept { return encode(alpha_code_map, text); }

int xdtoi(int c) noexcept {
    const int v = orv::ascii_hexvalue(static_cast<unsigned char>(c));
    return c >= 0 && c <= 0xFF && v >= 0 ? v : 0;
}

int xtoi(const char *p) noexcept { return p != nullptr ? xtoi_inline(reinterpret_cast<const unsigned char *>(p)) : 0; }

char *url_Decode(const char *text) noexcept { return decode(text, '%'); }
char *full_Decode(const char *text) noexcept { return decode(text, '^'); }

}  // extern "C"
