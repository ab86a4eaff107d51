// The text form of configuration files: the parser and the writer of one
// entry.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Receives what the parser finds, in file order; comment and blank lines are
// passed over. Texts point into the parsed buffer and are NUL-terminated.
class ConfigSink {
  public:
    virtual ~ConfigSink() = default;
    virtual void entry(int line, const char *name, size_t name_len, const char *value) = 0;
    // " ,value": another value of the entry above.
    virtual void continuation(int line, const char *value) = 0;
    // The line is malformed and skipped.
    virtual void malformed(int line, const char *why) = 0;
};

// Parses text[0 .. len) in place and reports each line to sink: names and
// values are decoded where they stand (a decoded text is never longer than
// its source) and terminated over the byte that follows them, so text must
// have one writable byte at text[len].
void parse_config_text(char *text, size_t len, ConfigSink &sink);

// "name = value\n", the value quoted and escaped when it holds a blank, tab,
// line feed, carriage return, double quote, comma or backslash.
std::string format_config_line(std::string_view name, std::string_view value);
