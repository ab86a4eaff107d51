// The configuration file family: a file opened and written out whole
// (sorted by name, as the safe rewrite writes it) opens again with the same
// entries, each name's values in their order, and the same look-ups.
#include <orvutil/cal_conf.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "fuzz_io.hpp"

namespace {

using Entries = std::map<std::string, std::vector<std::string>>;

// The entries of an open handle by name (ASCII case folded), checking that
// the look-up of each name gives its last value.
Entries entries_of(calconf_handle *handle) {
    Entries entries;
    for (int i = 0; i < array_count(handle->names); ++i) {
        entries[fuzz_io::folded(strarray_elementat(handle->names, i))].push_back(strarray_elementat(handle->values, i));
    }
    for (const auto &[key, values] : entries) {
        const char *got = calconf_Get(handle, key.c_str());
        if (got == nullptr || values.back() != got) abort();
    }
    return entries;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_io::quiet_setup();
    const std::string in = fuzz_io::input_file("in.conf", data, size), out = fuzz_io::fresh_file("out.conf");
    calconf_handle *handle = nullptr;
    if (calconf_Open(in.c_str(), &handle) != CALCONF_OK) abort();
    const Entries before = entries_of(handle);
    // The rewrite's own writer, without its fsync, which would slow the run down.
    const int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0 || calconf_FlushQuick(handle, fd) != CALCONF_OK || close(fd) != 0) abort();
    calconf_Close(&handle, 1);
    if (calconf_Open(out.c_str(), &handle) != CALCONF_OK || entries_of(handle) != before) abort();
    calconf_Close(&handle, 1);
    return 0;
}
