// The in-place percent decoders, the URL and script-string encoders, the
// query splitter and the character scrambler.
#include "orvutil/cal_parseutil.h"

#include <cstdlib>
#include <cstring>

#include "orv/ascii.hpp"
#include "orv/sizes.hpp"
#include "orv/strcopy.hpp"

namespace {

// Scrambling key: byte i is shifted by kKey[i % 6]. Unscrambling uses the
// same offsets, which is what makes the two inverse.
constexpr int kKey[6] = {1, 3, 2, 3, 1, 2};

bool upper_hex(unsigned char c) { return orv::ascii_isdigit(c) || (c >= 'A' && c <= 'F'); }

int upper_hex_value(unsigned char c) { return orv::ascii_isdigit(c) ? c - '0' : c - 'A' + 10; }

// Digit value without any check: code minus '0' up to '9', minus '7' above
// (so 'A'..'F' give 10..15 and other bytes give whatever falls out).
int loose_digit(unsigned char c) { return c <= '9' ? c - '0' : c - '7'; }

const char *js_form(unsigned char c) {
    switch (c) {
        case '\'': return "\\'";
        case '\\': return "\\\\";
        case '\b': return "\\b";
        case '\f': return "\\f";
        case '\n': return "\\n";
        case '\r': return "\\r";
        default: return nullptr;
    }
}

}  // namespace

extern "C" {

char *cal_parseutil_URLencode(const char *text) noexcept {
    if (text == nullptr || *text == '\0') return nullptr;
    const size_t len = std::strlen(text);
    size_t cap = len;
    if (!orv::size_mul(cap, 3) || !orv::size_add(cap, 1)) return nullptr;
    char *out = static_cast<char *>(std::malloc(cap));
    if (out == nullptr) return nullptr;
    char *w = out;
    for (size_t i = 0; i < len; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x80 || orv::ascii_isalnum(c)) {
            *w++ = static_cast<char>(c);
            continue;
        }
        // printf's "%2X": a single hex digit is padded with a space.
        *w++ = '%';
        *w++ = c < 16 ? ' ' : orv::kHexUpper[c >> 4];
        *w++ = orv::kHexUpper[c & 15];
    }
    *w = '\0';
    return out;
}

char *cal_parseutil_JSencode(const char *text) noexcept {
    if (text == nullptr) return nullptr;
    const size_t len = std::strlen(text);
    if (std::strpbrk(text, "'\\\b\f\n\r/") == nullptr) return orv::dup_string({text, len});
    size_t cap = len;
    if (!orv::size_mul(cap, 4) || !orv::size_add(cap, 1)) return nullptr;
    char *out = static_cast<char *>(std::malloc(cap));
    if (out == nullptr) return nullptr;
    char *w = out;
    for (size_t i = 0; i < len; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (const char *form = js_form(c)) {
            *w++ = form[0];
            *w++ = form[1];
        } else if (c == '/' && text[i + 1] == 's') {
            std::memcpy(w, "/'+'", 4);
            w += 4;
        } else {
            *w++ = static_cast<char>(c);
        }
    }
    *w = '\0';
    return out;
}

char *cal_parseutil_unescape(char *text, int plus) noexcept {
    if (text == nullptr) return nullptr;
    char *r = plus ? text : std::strchr(text, '%');
    if (r == nullptr) return text;
    // One pass with the write position never ahead of the read position:
    // what a decode produces is behind the reader and never read again.
    char *w = r;
    while (*r != '\0') {
        const auto c = static_cast<unsigned char>(*r);
        if (c == '%' && r[1] == 'u') {
            *w++ = '\\';
            *w++ = 'u';
            r += 2;
        } else if (c == '%' && upper_hex(static_cast<unsigned char>(r[1])) &&
                   upper_hex(static_cast<unsigned char>(r[2]))) {
            *w++ = static_cast<char>(upper_hex_value(static_cast<unsigned char>(r[1])) * 16 +
                                     upper_hex_value(static_cast<unsigned char>(r[2])));
            r += 3;
        } else {
            *w++ = plus && c == '+' ? ' ' : static_cast<char>(c);
            ++r;
        }
    }
    *w = '\0';
    return text;
}

char *cal_parseutil_unescape_escaped_unicode(char *text) noexcept {
    if (text == nullptr) return nullptr;
    char *r = std::strchr(text, '%');
    if (r == nullptr) return text;
    char *w = r;
    while (*r != '\0') {
        if (*r == '%' && r[1] == 'u') {
            *w++ = '\\';
            *w++ = 'u';
            r += 2;
        } else if (*r == '%' && r[1] != '\0' && r[2] != '\0') {
            const int v =
                loose_digit(static_cast<unsigned char>(r[1])) * 16 + loose_digit(static_cast<unsigned char>(r[2]));
            *w++ = static_cast<char>(static_cast<unsigned char>(v & 0xFF));
            r += 3;
        } else {
            *w++ = *r++;
        }
    }
    *w = '\0';
    return text;
}

int cal_parseutil_decode_url(char *query, int max, char **vector) noexcept {
    if (query == nullptr || vector == nullptr || max < 1) return 0;
    int n = 0;
    char *rest = query;
    while (rest != nullptr && n < max - 1) {
        char *entry = strsep(&rest, "&");
        while (orv::ascii_isblank(static_cast<unsigned char>(*entry))) ++entry;
        if (*entry == '\0') continue;
        vector[n++] = entry;
    }
    vector[n] = nullptr;
    for (int i = 0; i < n; ++i) cal_parseutil_unescape(vector[i], 1);
    return n;
}

int cal_parseutil_dumbEnCrypt(const char *src, char **dst, int n) noexcept {
    if (src == nullptr || dst == nullptr || *dst == nullptr) return 0;
    for (int i = 0; i < n; ++i) {
        const int c = static_cast<unsigned char>(src[i]);
        const int k = kKey[i % 6];
        int e = c + k;
        if (c == 0)
            e = 0;
        else if (c < 58 && c + k > 57)
            e = 'a' + (c + k - 58);  // digits wrap into the lower-case letters
        (*dst)[i] = static_cast<char>(static_cast<unsigned char>(e & 0xFF));
    }
    return 0;
}

int cal_parseutil_dumbDeCrypt(const char *src, char **dst, int n) noexcept {
    if (src == nullptr || dst == nullptr || *dst == nullptr) return 0;
    for (int i = 0; i < n; ++i) {
        const int e = static_cast<unsigned char>(src[i]);
        const int k = kKey[i % 6];
        int c = e - k;
        if (e == 0)
            c = 0;
        else if (e > 96 && e - k < 97)
            c = e - k - 39;  // undoes the wrap of digits into letters
        (*dst)[i] = static_cast<char>(static_cast<unsigned char>(c & 0xFF));
    }
    return 0;
}

}  // extern "C"
