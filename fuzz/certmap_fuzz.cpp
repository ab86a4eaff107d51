// The certificate map reader: whatever the map file holds, it is read or
// refused with a level 2 record naming the file and a line of it; a refused
// file leaves no rules behind.
#include <orvutil/platform/certmap.h>
#include <orvutil/platform/zolog.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz_io.hpp"

namespace {

std::string g_refusal;

void record(void *, int, int level, const char *message) {
    if (level == 2) g_refusal = message;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_io::quiet_setup();
    zolog_set_hook(record, nullptr);
    const std::string path = fuzz_io::input_file("map", data, size);
    g_refusal.clear();
    const int rc = ldapu_certmap_init(path.c_str(), "fuzz");
    struct ldapmsg *res = nullptr;
    // No directory operations are installed: a map that was read gets that far.
    const int mapped = ldapu_cert_to_user(nullptr, nullptr, "dc=example", &res, nullptr);
    if (rc == LDAPU_SUCCESS) {
        if (!g_refusal.empty() || mapped != LDAPU_ERR_NO_VTABLE) abort();
        return 0;
    }
    const std::string prefix = "fuzz: " + path + ":";
    const long lines = std::count(data, data + size, '\n') + 1;
    if (rc != LDAPU_ERR_CERTMAP_SYNTAX || mapped != LDAPU_ERR_NOT_INITIALIZED || g_refusal.rfind(prefix, 0) != 0)
        abort();
    const long line = std::strtol(g_refusal.c_str() + prefix.size(), nullptr, 10);
    if (line < 1 || line > lines) abort();
    return 0;
}
