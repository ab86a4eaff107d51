// The text form of configuration files: one parsed line, the parser and the
// writer of one entry.
#pragma once

#include <functional>
#include <string>
#include <string_view>

struct ConfigLine {
    int number = 0;             // 1-based line number
    bool continuation = false;  // " ,value": another value of the entry above
    std::string name;           // empty for a continuation
    std::string value;
    std::string error;          // non-empty: the line is malformed, and why
};

// Calls emit for every entry, continuation and malformed line of text, in
// order; comment and blank lines are passed over.
void parse_config_text(std::string_view text, const std::function<void(const ConfigLine &)> &emit);

// "name = value\n", the value quoted and escaped when it holds a blank, tab,
// line feed, carriage return, double quote, comma or backslash.
std::string format_config_line(std::string_view name, std::string_view value);
