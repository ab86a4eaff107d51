// orvadmin's "conf" command: list, read and edit a configuration file.
// Edits are made in place: only the named entry's lines change, and the
// comments, the order and every other line of the file stay as they were.
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "orvadmin.hpp"
#include "orvutil/platform/config.h"

namespace orvadmin {
namespace {

const char usage[] = "usage: conf list file | get file name | set file name value | del file name";

struct Entry {
    std::string name;
    std::vector<std::string> values;
};

int collect(const char *name, const char *const *values, int nvalues, void *arg) {
    auto *entries = static_cast<std::vector<Entry> *>(arg);
    entries->push_back({name, std::vector<std::string>(values, values + nvalues)});
    return 0;
}

// The entries of file as the cache reads them, every value of each; false
// with errno set when the file cannot be read.
bool read_entries(const char *file, std::vector<Entry> *entries) {
    config_cache *cache = config_newcache();
    config_readdriver *driver = config_readdriver_fileinit(file);
    bool ok = cache != nullptr && driver != nullptr && config_adddriver(cache, 0, driver) == 0 &&
              config_fetch(cache) == 0 && config_scan_config(cache, collect, 0, entries) == 0;
    const int err = errno;
    if (driver != nullptr) driver->release(driver);
    config_freecache(cache);
    errno = err;
    return ok;
}

// "name = first" and a " ,value" line for each further value, as the file
// writes continuation lines.
void print_entry(const std::string &name, const std::vector<std::string> &values) {
    out("%s = %s\n", name.c_str(), values.empty() ? "" : values[0].c_str());
    for (size_t i = 1; i < values.size(); ++i) out(" ,%s\n", values[i].c_str());
}

int list_or_get(const char *file, const char *name) {
    if (const char *why = why_unreadable(file)) return fail("conf", "cannot read %s: %s", file, why);
    std::vector<Entry> entries;
    if (!read_entries(file, &entries)) return fail("conf", "cannot read %s: %s", file, std::strerror(errno));
    const Entry *last = nullptr;
    for (const Entry &e : entries) {
        if (name == nullptr)
            print_entry(e.name, e.values);
        else if (ascii_iequal(e.name.c_str(), name))
            last = &e;
    }
    if (name == nullptr) return 0;
    if (last == nullptr) return fail("conf", "%s is not set in %s", name, file);
    print_entry(name, last->values);
    return 0;
}

int set(const char *file, const char *name, const char *value) {
    if (config_file_set(file, name, value) != 0)
        return errno == EINVAL ? fail("conf", "%s cannot be written as a name", name)
                               : fail("conf", "cannot write %s: %s", file, std::strerror(errno));
    out("%s = %s\n", name, value);
    return 0;
}

int del(const char *file, const char *name) {
    if (const char *why = why_unreadable(file)) return fail("conf", "cannot read %s: %s", file, why);
    const int r = config_file_delete(file, name);
    if (r == 1) return fail("conf", "%s is not set in %s", name, file);
    if (r != 0) return fail("conf", "cannot write %s: %s", file, std::strerror(errno));
    out("deleted %s\n", name);
    return 0;
}

}  // namespace

int cmd_conf(int argc, char **argv) {
    const std::string op = argv[1];
    const int words = op == "list" ? 3 : op == "get" || op == "del" ? 4 : op == "set" ? 5 : 0;
    if (words == 0 || argc != words) return fail("conf", "%s", usage);
    if (op == "list") return list_or_get(argv[2], nullptr);
    if (op == "get") return list_or_get(argv[2], argv[3]);
    if (op == "set") return set(argv[2], argv[3], argv[4]);
    return del(argv[2], argv[3]);
}

}  // namespace orvadmin
