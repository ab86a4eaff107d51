#include "config_text.hpp"

#include <algorithm>
#include <cstring>

#include "orv/ascii.hpp"

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
        if (c == '\\' && i + 1 < len) {
            c = line[++i];
            switch (c) {
                case 'n': c = '\n'; break;
                case 'r': c = '\r'; break;
                case 't': c = '\t'; break;
                default: break;  // \" \\ and any other pair stand for the second character
            }
        }
        *w++ = c;
    }
    *why = "unterminated quote";
    return nullptr;
}

bool needs_quotes(std::string_view value) {
    for (char c : value) {
        switch (c) {
            case '\t':
            case '\n':
            case '\r':
            case ' ':
            case '"':
            case ',':
            case '\\': return true;
            default: break;
        }
    }
    return false;
}

}  // namespace

namespace {

// One line of n bytes; line[n] is the line's end (newline, carriage return,
// or the spare byte after the text) and may be overwritten.
void parse_line(char *line, size_t n, int number, ConfigSink &sink) {
    const std::string_view raw(line, n);
    const size_t start = skip_blanks(raw, 0);
    if (start == n || line[start] == '#') return;
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
    if (!needs_quotes(value)) {
        line += value;
    } else {
        line += '"';
        for (char c : value) {
            switch (c) {
                case '"': line += "\\\""; break;
                case '\\': line += "\\\\"; break;
                case '\r': line += "\\r"; break;
                case '\t': line += "\\t"; break;
                case '\n': line += "\\n"; break;
                default: line += c;
            }
        }
        line += '"';
    }
    line += '\n';
    return line;
}
