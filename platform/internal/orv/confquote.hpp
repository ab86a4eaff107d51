// How a configuration value is written in a file and read back: the one
// quoting rule of the file driver, the in-place editor and the
// configuration files family.
#pragma once

#include <cstring>
#include <string>
#include <string_view>

#include "orv/ascii.hpp"

namespace orv {

// A value is written between double quotes when it holds one of these
// bytes. '!' and the other control bytes deliberately do not force quotes.
constexpr bool conf_forces_quotes(unsigned char c) {
    return c == '\t' || c == '\n' || c == '\r' || c == ' ' || c == '"' || c == ',' || c == '\\';
}

// Inside quotes a byte is written as a backslash and this letter, or copied
// when the letter is 0.
constexpr char conf_escape_letter(unsigned char c) {
    switch (c) {
        case '"': return '"';
        case '\\': return '\\';
        case '\r': return 'r';
        case '\t': return 't';
        case '\n': return 'n';
        default: return 0;
    }
}

// What a backslash and letter inside quotes stand for: \n \r \t, and any
// other letter itself (\" and \\ among them).
constexpr char conf_unescape(char letter) {
    return letter == 'n' ? '\n' : letter == 'r' ? '\r' : letter == 't' ? '\t' : letter;
}

inline bool conf_needs_quotes(std::string_view value) {
    for (char c : value)
        if (conf_forces_quotes(static_cast<unsigned char>(c))) return true;
    return false;
}

// Appends value as it is written in a file: quoted and escaped when needed.
inline void conf_append_value(std::string &out, std::string_view value) {
    if (!conf_needs_quotes(value)) {
        out += value;
        return;
    }
    out += '"';
    for (char c : value) {
        const char letter = conf_escape_letter(static_cast<unsigned char>(c));
        if (letter != 0) {
            out += '\\';
            c = letter;
        }
        out += c;
    }
    out += '"';
}

// A name the file syntax gives back unchanged: not empty, no '#' or blank
// first (a comment or a continuation), no blank last (trimmed), and no '=',
// CR or LF.
inline bool conf_writable_name(const char *name) {
    const size_t n = std::strlen(name);
    if (n == 0 || name[0] == '#' || ascii_isblank(name[0]) || ascii_isblank(name[n - 1])) return false;
    return std::strpbrk(name, "=\n\r") == nullptr;
}

}  // namespace orv
