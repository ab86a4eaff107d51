// The configuration file driver: whatever a file holds, the entries the
// cache reads from it, written back through the write driver (the first
// value of each), read back as the same entries; the look-ups see the last
// entry of each name.
#include <orvutil/platform/config.h>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "fuzz_io.hpp"

namespace {

using Entries = std::vector<std::pair<std::string, std::vector<std::string>>>;

int collect(const char *name, const char *const *values, int nvalues, void *arg) {
    static_cast<Entries *>(arg)->push_back({name, std::vector<std::string>(values, values + nvalues)});
    return 0;
}

// The entries of the file, after checking the look-ups against them.
Entries read_back(const std::string &path) {
    config_cache *cache = config_newcache();
    config_readdriver *driver = config_readdriver_fileinit(path.c_str());
    if (cache == nullptr || driver == nullptr || config_adddriver(cache, 0, driver) != 0 || config_fetch(cache) != 0)
        abort();
    Entries entries;
    config_scan_config(cache, collect, 0, &entries);
    std::map<std::string, std::string> last;
    for (const auto &[name, values] : entries) last[fuzz_io::folded(name)] = values.at(0);
    for (const auto &[key, value] : last)
        if (value != config_get_string(cache, key.c_str(), nullptr)) abort();
    config_freecache(cache);
    driver->release(driver);
    return entries;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_io::quiet_setup();
    Entries entries = read_back(fuzz_io::input_file("in.conf", data, size));
    const std::string out = fuzz_io::fresh_file("out.conf");

    config_writedriver *writer = config_writedriver_fileinit(out.c_str());
    int scratch = 0;
    for (auto &[name, values] : entries) {
        values.resize(1);
        if (writer->write_entry(writer, name.c_str(), values[0].c_str(), &scratch) != 0) abort();
    }
    writer->release(writer);
    if (scratch != 0 && read_back(out) != entries) abort();
    return 0;
}
