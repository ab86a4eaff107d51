#include "config_text.hpp"

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

// Reads the value that starts at s[i] into line.value, or sets line.error.
void parse_value(std::string_view s, size_t i, ConfigLine &line) {
    i = skip_blanks(s, i);
    if (i >= s.size() || s[i] != '"') {
        line.value = trim_right(s.substr(i < s.size() ? i : s.size()));
        return;
    }
    std::string value;
    for (++i; i < s.size(); ++i) {
        char c = s[i];
        if (c == '"') {
            if (skip_blanks(s, i + 1) != s.size()) {
                line.error = "text after the closing quote";
                return;
            }
            line.value = std::move(value);
            return;
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
        value += c;
    }
    line.error = "unterminated quote";
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

void parse_config_text(std::string_view text, const std::function<void(const ConfigLine &)> &emit) {
    int number = 0;
    while (!text.empty()) {
        size_t end = text.find('\n');
        std::string_view raw = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        ++number;
        if (!raw.empty() && raw.back() == '\r') raw.remove_suffix(1);

        ConfigLine line;
        line.number = number;
        const size_t start = skip_blanks(raw, 0);
        if (start == raw.size() || raw[start] == '#') continue;
        if (start > 0 && raw[start] == ',') {
            line.continuation = true;
            parse_value(raw, start + 1, line);
            emit(line);
            continue;
        }
        const size_t eq = raw.find('=', start);
        if (eq == std::string_view::npos) {
            line.error = "no '='";
        } else {
            line.name = trim_right(raw.substr(start, eq - start));
            if (line.name.empty())
                line.error = "empty name";
            else
                parse_value(raw, eq + 1, line);
        }
        emit(line);
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
