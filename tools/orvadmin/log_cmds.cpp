// orvadmin's "log" command: the last records of a log, reading back from the
// current file into its rolled files ("FILE.YYYYMMDDTHHMMSS.uuuuuuZ", whose
// names sort in time order) when the current file holds too few.
#include <algorithm>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "orvadmin.hpp"

namespace orvadmin {
namespace {

namespace fs = std::filesystem;

// Rolled files of the log at path, newest first.
std::vector<std::string> rolled_newest_first(const fs::path &path) {
    std::vector<std::string> names;
    const fs::path dir = path.has_parent_path() ? path.parent_path() : fs::path(".");
    const std::string prefix = path.filename().string() + ".";
    std::error_code ec;
    for (const auto &entry : fs::directory_iterator(dir, ec)) {
        const std::string name = entry.path().filename().string();
        const std::string stamp = name.substr(std::min(name.size(), prefix.size()));
        if (name.rfind(prefix, 0) == 0 && stamp.size() == 23 && stamp[8] == 'T' && stamp[15] == '.' && stamp[22] == 'Z')
            names.push_back(entry.path().string());
    }
    std::sort(names.rbegin(), names.rend());
    return names;
}

// Puts the last lines of a file (up to want more) in front of lines.
bool prepend_tail(const std::string &file, size_t want, std::deque<std::string> &lines) {
    std::ifstream in(file, std::ios::binary);
    if (!in) return false;
    std::deque<std::string> tail;
    for (std::string line; std::getline(in, line);) {
        tail.push_back(line);
        if (tail.size() > want) tail.pop_front();
    }
    lines.insert(lines.begin(), tail.begin(), tail.end());
    return true;
}

}  // namespace

int cmd_log(int argc, char **argv) {
    const char *usage = "usage: log tail file [count]";
    char *end = nullptr;
    const long count = argc > 3 ? std::strtol(argv[3], &end, 10) : 10;
    if (std::string(argv[1]) != "tail" || argc > 4 || count <= 0 || (end != nullptr && *end != '\0'))
        return fail("log", "%s", usage);
    const std::string file = argv[2];
    std::deque<std::string> lines;
    bool found = prepend_tail(file, static_cast<size_t>(count), lines);
    for (const auto &rolled : rolled_newest_first(file)) {
        if (lines.size() >= static_cast<size_t>(count)) break;
        found = prepend_tail(rolled, static_cast<size_t>(count) - lines.size(), lines) || found;
    }
    if (!found) return fail("log", "cannot read %s", file.c_str());
    for (const auto &line : lines) out("%s\n", line.c_str());
    return 0;
}

}  // namespace orvadmin
