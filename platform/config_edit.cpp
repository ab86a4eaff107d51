// In-place edits of a configuration file: only the named entry's lines
// change, every other byte stays, and the file is replaced whole.
#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "config_text.hpp"
#include "orv/confname.hpp"
#include "orv/confquote.hpp"
#include "orv/fsutil.hpp"
#include "orvutil/platform/config.h"

namespace {

// An entry of the file: its name where it stands, and the numbers of its
// lines (the entry line, then its continuation lines).
struct Entry {
    size_t name_at;
    size_t name_len;
    std::vector<int> lines;
};

// Finds the entries as the reader does; a continuation after a malformed
// line joins nothing, as there.
class EntrySink : public ConfigSink {
  public:
    EntrySink(const char *base, std::vector<Entry> &entries) : base_(base), entries_(entries) {}
    void entry(int line, const char *name, size_t name_len, const char *) override {
        entries_.push_back({static_cast<size_t>(name - base_), name_len, {line}});
        open_ = true;
    }
    void continuation(int line, const char *) override {
        if (open_) entries_.back().lines.push_back(line);
    }
    void malformed(int, const char *) override { open_ = false; }

  private:
    const char *base_;
    std::vector<Entry> &entries_;
    bool open_ = false;
};

// A line of the file: [start, end) its text, [end, next) its line end.
struct Line {
    size_t start, end, next;
};

std::vector<Line> split_lines(std::string_view text) {
    std::vector<Line> lines;
    for (size_t at = 0; at < text.size();) {
        const size_t nl = text.find('\n', at);
        const size_t next = nl == std::string_view::npos ? text.size() : nl + 1;
        size_t end = nl == std::string_view::npos ? text.size() : nl;
        if (end > at && text[end - 1] == '\r') --end;
        lines.push_back({at, end, next});
        at = next;
    }
    return lines;
}

struct Parsed {
    std::string text;
    std::vector<Line> lines;  // lines[n - 1] is line n
    std::vector<Entry> entries;
};

// Reads path; false with errno set when it cannot be read. A missing file
// reads as empty when missing_ok.
bool load(const char *path, bool missing_ok, Parsed *p) {
    if (!orv::read_file(path, &p->text)) {
        if (!(missing_ok && errno == ENOENT)) return false;
        p->text.clear();
    }
    std::string scratch = p->text;
    scratch.push_back('\0');  // the spare byte the in-place parser may write
    EntrySink sink(scratch.data(), p->entries);
    parse_config_text(scratch.data(), p->text.size(), sink);
    p->lines = split_lines(p->text);
    return true;
}

bool named(const Parsed &p, const Entry &e, const char *name) {
    return e.name_len == std::strlen(name) && orv::confname_equal(p.text.data() + e.name_at, name, e.name_len);
}

// The text with the given lines (1-based) left out and, when replacement is
// not null, line `at` replaced by it (line end kept).
std::string rebuild(const Parsed &p, const std::vector<int> &drop, int at, const std::string *replacement) {
    std::vector<bool> dropped(p.lines.size() + 1, false);
    for (int n : drop) dropped[static_cast<size_t>(n)] = true;
    std::string out;
    out.reserve(p.text.size() + (replacement != nullptr ? replacement->size() : 0));
    for (size_t n = 1; n <= p.lines.size(); ++n) {
        const Line &l = p.lines[n - 1];
        if (static_cast<int>(n) == at && replacement != nullptr) {
            out += *replacement;
            out.append(p.text, l.end, l.next - l.end);
        } else if (!dropped[n]) {
            out.append(p.text, l.start, l.next - l.start);
        }
    }
    return out;
}

int set(const char *path, const char *name, const char *value) {
    Parsed p;
    if (!load(path, true, &p)) return -1;
    const Entry *last = nullptr;
    for (const Entry &e : p.entries)
        if (named(p, e, name)) last = &e;
    std::string text;
    if (last != nullptr) {
        // Indentation and the name's spelling stay as they were.
        const Line &first = p.lines[static_cast<size_t>(last->lines[0]) - 1];
        std::string line = p.text.substr(first.start, last->name_at + last->name_len - first.start);
        line += " = ";
        orv::conf_append_value(line, value);
        text = rebuild(p, std::vector<int>(last->lines.begin() + 1, last->lines.end()), last->lines[0], &line);
    } else {
        // A new entry goes last, with the line end the file already uses.
        const std::string eol = !p.lines.empty() && p.lines[0].next - p.lines[0].end == 2 ? "\r\n" : "\n";
        text = p.text;
        if (!text.empty() && text.back() != '\n') text += eol;
        text += name;
        text += " = ";
        orv::conf_append_value(text, value);
        text += eol;
    }
    return orv::replace_file(path, text);
}

int remove(const char *path, const char *name) {
    Parsed p;
    if (!load(path, false, &p)) return -1;
    std::vector<int> drop;
    for (const Entry &e : p.entries)
        if (named(p, e, name)) drop.insert(drop.end(), e.lines.begin(), e.lines.end());
    if (drop.empty()) return 1;
    return orv::replace_file(path, rebuild(p, drop, 0, nullptr));
}

}  // namespace

extern "C" {

int config_file_set(const char *path, const char *name, const char *value) noexcept {
    if (path == nullptr || name == nullptr || value == nullptr || !orv::conf_writable_name(name)) {
        errno = EINVAL;
        return -1;
    }
    try {
        return set(path, name, value);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
}

int config_file_delete(const char *path, const char *name) noexcept {
    if (path == nullptr || name == nullptr) {
        errno = EINVAL;
        return -1;
    }
    try {
        return remove(path, name);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
}

}  // extern "C"
