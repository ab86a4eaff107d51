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

// Decodes the value that starts at s[i] into *out (NUL-terminated) and
// advances *out past it. Returns NULL, or why the value is malformed.
const char *parse_value(std::string_view s, size_t i, char **out) {
    i = skip_blanks(s, i);
    char *w = *out;
    if (i >= s.size() || s[i] != '"') {
        const std::string_view plain = trim_right(s.substr(std::min(i, s.size())));
        std::memcpy(w, plain.data(), plain.size());
        w[plain.size()] = '\0';
        *out = w + plain.size() + 1;
        return nullptr;
    }
    for (++i; i < s.size(); ++i) {
        char c = s[i];
        if (c == '"') {
            if (skip_blanks(s, i + 1) != s.size()) return "text after the closing quote";
            *w = '\0';
            *out = w + 1;
            return nullptr;
        }
        if (c == '\\' && i + 1 < s.size()) {
            c = s[++i];
            switch (c) {
                case 'n': c = '\n'; break;
                case 'r': c = '\r'; break;
                case 't': c = '\t'; break;
                default: break;  // \" \\ and any other pair stand for the second character
            }
        }
        *w++ = c;
    }
    return "unterminated quote";
}

bool needs_quotes(std::string_view value) {
    for (char c : value) {
        switch (c) {
            case '\t': case '\n': case '\r': case ' ': case '"': case ',': case '\\': return true;
            default: break;
        }
    }
    return false;
}

}  // namespace

// A line of n bytes writes at most n + 2 (two terminators; " = " or the
// quotes pay for the rest), and lines are at most newlines + 1.
size_t config_arena_size(std::string_view text) {
    return text.size() + 2 * (static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1);
}

void parse_config_text(std::string_view text, char *arena, ConfigSink &sink) {
    int number = 0;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        std::string_view raw = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        ++number;
        if (!raw.empty() && raw.back() == '\r') raw.remove_suffix(1);

        const size_t start = skip_blanks(raw, 0);
        if (start == raw.size() || raw[start] == '#') continue;
        if (start > 0 && raw[start] == ',') {
            const char *value = arena;
            if (const char *why = parse_value(raw, start + 1, &arena))
                sink.malformed(number, why);
            else
                sink.continuation(number, value);
            continue;
        }
        const size_t eq = raw.find('=', start);
        if (eq == std::string_view::npos) {
            sink.malformed(number, "no '='");
            continue;
        }
        const std::string_view name = trim_right(raw.substr(start, eq - start));
        if (name.empty()) {
            sink.malformed(number, "empty name");
            continue;
        }
        char *name_copy = arena;
        std::memcpy(name_copy, name.data(), name.size());
        name_copy[name.size()] = '\0';
        arena += name.size() + 1;
        const char *value = arena;
        if (const char *why = parse_value(raw, eq + 1, &arena))
            sink.malformed(number, why);
        else
            sink.entry(number, name_copy, name.size(), value);
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
