// ASCII character classes and case folding, independent of the C locale the
// caller may have set. Internal to the libraries: #include "orv/ascii.hpp".
#pragma once

#include <cstddef>
#include <string_view>

namespace orv {

inline constexpr char kHexLower[] = "0123456789abcdef";
inline constexpr char kHexUpper[] = "0123456789ABCDEF";

constexpr bool ascii_isdigit(unsigned char c) { return c >= '0' && c <= '9'; }
constexpr bool ascii_isupper(unsigned char c) { return c >= 'A' && c <= 'Z'; }
constexpr bool ascii_islower(unsigned char c) { return c >= 'a' && c <= 'z'; }
constexpr bool ascii_isalpha(unsigned char c) { return ascii_isupper(c) || ascii_islower(c); }
constexpr bool ascii_isalnum(unsigned char c) { return ascii_isalpha(c) || ascii_isdigit(c); }
constexpr bool ascii_isxdigit(unsigned char c) {
    return ascii_isdigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
constexpr bool ascii_isblank(unsigned char c) { return c == ' ' || c == '\t'; }
constexpr bool ascii_isspace(unsigned char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool ascii_iscntrl(unsigned char c) { return c < 0x20 || c == 0x7f; }
constexpr bool ascii_isprint(unsigned char c) { return c >= 0x20 && c < 0x7f; }
constexpr unsigned char ascii_tolower(unsigned char c) { return ascii_isupper(c) ? c + 32 : c; }
constexpr unsigned char ascii_toupper(unsigned char c) { return ascii_islower(c) ? c - 32 : c; }

// Value of a hex digit, or -1.
constexpr int ascii_hexvalue(unsigned char c) {
    if (ascii_isdigit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

constexpr bool ascii_iequal(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (ascii_tolower(static_cast<unsigned char>(a[i])) != ascii_tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

// Three-way comparisons ignoring case, by the C library's strcasecmp rule
// in the C locale: 'A'-'Z' fold onto 'a'-'z', bytes compare unsigned, the
// caller's locale plays no part. NSPR's PL_strcasecmp folds onto 'A'-'Z'
// instead, which orders '[' to '`' after the letters rather than before: the
// configuration and profiling files' sorts keep calling it for that order.
constexpr int ascii_casecmp(const char *a, const char *b) {
    for (;; ++a, ++b) {
        const int ca = ascii_tolower(static_cast<unsigned char>(*a));
        const int cb = ascii_tolower(static_cast<unsigned char>(*b));
        if (ca != cb || ca == 0) return ca - cb;
    }
}

// The same over at most n bytes (strncasecmp).
constexpr int ascii_ncasecmp(const char *a, const char *b, size_t n) {
    for (; n > 0; --n, ++a, ++b) {
        const int ca = ascii_tolower(static_cast<unsigned char>(*a));
        const int cb = ascii_tolower(static_cast<unsigned char>(*b));
        if (ca != cb || ca == 0) return ca - cb;
    }
    return 0;
}

}  // namespace orv
