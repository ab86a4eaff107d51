#include "config_text.hpp"

#include <algorithm>
#include <cstring>

#include "orv/ascii.hpp"
#include "orv/confquote.hpp"

namespace {

using orv::ascii_isblank;

size_t skip_blanks(std::string_view s, size_t i) {
    while (i < s.size() && ascii_isblank(static_cast<unsigned char>(s[i]))) ++i;
    return i;
}

std::string_view trim_right(std::string_view s) {
    while (!s.empty() && ascii_isblank(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
    return s;
}

// Decodes, in place, the value that starts at line[i], the line ending at
// line[len] (a byte that may be overwritten). Returns the value, or NULL
// with *why set when the value is malformed.
char *parse_value(char *line, size_t len, size_t i, const char **why) {
    const std::string_view s(line, len);
    i = skip_blanks(s, i);
    if (i >= len || line[i] != '"') {
        const size_t start = std::min(i, len);
        const std::string_view plain = trim_right(s.substr(start));
        line[start + plain.size()] = '\0';
        return line + start;
    }
    char *value = line + i;  // decoded over the opening quote onwards
    char *w = value;
    for (++i; i < len; ++i) {
        char c = line[i];
        if (c == '"') {
            if (skip_blanks(s, i + 1) != len) {
                *why = "text after the closing quote";
                return nullptr;
            }
            *w = '\0';
            return value;
        }
        if (c == '\\' && i + 1 < len) c = orv::conf_unescape(line[++i]);
        *w++ = c;
    }
    *why = "unterminated quote";
    return nullptr;
}

// One line of n bytes; line[n] is the line's end (newline, carriage return,
// or the spare byte after the text) and may be overwritten.
void parse_line(char *line, size_t n, int number, ConfigSink &sink) {
    const std::string_view raw(line, n);
    const size_t start = skip_blanks(raw, 0);
    if (start == n || line[start] == '#') return;
    // Names and values are handed out as C strings: a NUL would cut them
    // short, and the scan and the look-ups would disagree on the entry.
    if (std::memchr(line + start, '\0', n - start) != nullptr) {
        sink.malformed(number, "NUL byte");
        return;
    }
    const char *why = nullptr;
    if (start > 0 && line[start] == ',') {
        if (const char *value = parse_value(line, n, start + 1, &why))
            sink.continuation(number, value);
        else
            sink.malformed(number, why);
        return;
    }
    const size_t eq = raw.find('=', start);
    if (eq == std::string_view::npos) {
        sink.malformed(number, "no '='");
        return;
    }
    const std::string_view name = trim_right(raw.substr(start, eq - start));
    if (name.empty()) {
        sink.malformed(number, "empty name");
        return;
    }
    // The value is read first: the name's terminator goes over a blank or
    // the '=' that the value no longer needs.
    const char *value = parse_value(line, n, eq + 1, &why);
    if (value == nullptr) {
        sink.malformed(number, why);
        return;
    }
    line[start + name.size()] = '\0';
    sink.entry(number, line + start, name.size(), value);
}

}  // namespace

void parse_config_text(char *text, size_t len, ConfigSink &sink) {
    int number = 0;
    char *const end = text + len;
    for (char *line = text; line < end;) {
        char *newline = static_cast<char *>(std::memchr(line, '\n', static_cast<size_t>(end - line)));
        char *next = newline != nullptr ? newline + 1 : end;
        size_t n = static_cast<size_t>((newline != nullptr ? newline : end) - line);
        if (n > 0 && line[n - 1] == '\r') --n;
        ++number;
        parse_line(line, n, number, sink);
        line = next;
    }
}

std::string format_config_line(std::string_view name, std::string_view value) {
    std::string line(name);
    line += " = ";
    orv::conf_append_value(line, value);
    line += '\n';
    return line;
}
