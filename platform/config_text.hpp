// The text form of configuration files: the parser and the writer of one
// entry.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Receives what the parser finds, in file order; comment and blank lines are
// passed over. Texts point into the caller's arena and are NUL-terminated.
class ConfigSink {
public:
    virtual ~ConfigSink() = default;
    virtual void entry(int line, const char *name, size_t name_len, const char *value) = 0;
    // " ,value": another value of the entry above.
    virtual void continuation(int line, const char *value) = 0;
    // The line is malformed and skipped.
    virtual void malformed(int line, const char *why) = 0;
};

// Bytes of arena that parse_config_text may write for text.
size_t config_arena_size(std::string_view text);

// Parses text, writing the decoded names and values into arena (at least
// config_arena_size(text) bytes), and reports each line to sink.
void parse_config_text(std::string_view text, char *arena, ConfigSink &sink);

// "name = value\n", the value quoted and escaped when it holds a blank, tab,
// line feed, carriage return, double quote, comma or backslash.
std::string format_config_line(std::string_view name, std::string_view value);
