// The counter file reader: whatever an object's file holds, the reader
// either refuses it or hands back counters and instances whose texts end
// inside their fields. A writer then attaches to it (its counters configured
// as the seed files declare them) or re-creates it: either way it gets a
// slot, or is refused because every slot has a live owner, and the file
// holds the configured counters.
#include <orvutil/platform/counter.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fuzz_io.hpp"

namespace {

// Whether the reader took the file.
bool check_reader(countermsg_registry *registry) {
    counterobject *obj = nullptr;
    if (counterobject_open(registry, "fz", &obj) != 0) return false;
    const int n = counterobject_counters(obj), slots = counterobject_slots(obj);
    for (int i = 0; i < n; ++i) {
        const char *name = nullptr, *help = nullptr;
        int kind = -1, index = -1;
        counterhandle handle = 0;
        if (counterobject_counterat(obj, i, &name, &kind, &help) != 0 || name[0] == '\0' ||
            strnlen(name, COUNTER_NAME_SIZE) == COUNTER_NAME_SIZE ||
            strnlen(help, COUNTER_HELP_SIZE) == COUNTER_HELP_SIZE ||
            (kind != COUNTER_KIND_COUNT && kind != COUNTER_KIND_GAUGE) ||
            counterobject_getcounterinfo(obj, name, &handle, nullptr, nullptr, &index) != 0 || index > i ||
            handle != static_cast<counterhandle>(index) + 1)
            abort();
    }
    std::unique_ptr<char[][COUNTER_NAME_SIZE]> names(new char[static_cast<size_t>(slots)][COUNTER_NAME_SIZE]);
    std::vector<uint64_t> values(static_cast<size_t>(slots) * static_cast<size_t>(n));
    const int used = counterobject_snapshot(obj, names.get(), values.data(), slots);
    if (used < 0 || used > slots) abort();
    for (int i = 0; i < used; ++i)
        if (strnlen(names[i], COUNTER_NAME_SIZE) == COUNTER_NAME_SIZE) abort();
    counterobject_close(obj);
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static countermsg_registry *registry = nullptr;
    static config_cache *config = nullptr;
    if (registry == nullptr) {
        fuzz_io::quiet_setup();
        const char conf[] = "fz.requests = count Requests served\nfz.active = gauge Connections open\n";
        fuzz_io::write_file(fuzz_io::file("counter.conf"), conf, sizeof conf - 1);
        config = countermsg_open_config(fuzz_io::file("counter.conf").c_str());
        registry = countermsg_get_registry(fuzz_io::file("counter").c_str(), 1);
        if (config == nullptr || registry == nullptr) abort();
    }
    fuzz_io::input_file("counter/fz.cnt", data, size);
    // A file the reader refuses is removed before the writer comes: a
    // re-creation over it would force a flush to disk at every run, and the
    // writer refuses such a file through the same reader.
    if (!check_reader(registry)) fuzz_io::fresh_file("counter/fz.cnt");

    counterobject *obj = nullptr;
    counterinstance *inst = nullptr;
    const int rc = countermsg_create_instance("fz", 0, 0, "fuzz", 2, &obj, &inst, config, registry);
    const char *first = nullptr;
    if (rc == 0) {
        if (counterobject_counters(obj) != 2 || counterobject_counterat(obj, 0, &first, nullptr, nullptr) != 0 ||
            std::strcmp(first, "requests") != 0)
            abort();
        counter_add(inst, 1, 1);
        check_reader(registry);
    } else if (rc != COUNTER_EFULL) {
        abort();
    }
    counterinstance_close(inst);
    counterobject_close(obj);
    return 0;
}
