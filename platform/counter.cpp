// Shared-memory counters: registry, configuration, objects, instances and
// the hot path. The file layout and its checks are in counter_file.cpp.
#include "orvutil/platform/counter.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "counter_file.hpp"
#include "orv/ascii.hpp"
#include "orv/fsutil.hpp"
#include "orvutil/platform/zolog.h"

using namespace orv::counter;

struct countermsg_registry {
    std::string dir;
};

struct counterobject {
    std::string name;
    std::string path;
    Mapping map;
};

namespace {

constexpr std::string_view kSuffix = ".cnt";

bool valid_name(std::string_view s, bool dots) {
    if (s.empty() || s.size() >= COUNTER_NAME_SIZE) return false;
    for (unsigned char c : s)
        if (!orv::ascii_isalnum(c) && c != '_' && c != '-' && !(dots && c == '.')) return false;
    return true;
}

bool valid_instance_name(std::string_view s) {
    if (s.empty() || s.size() >= COUNTER_NAME_SIZE) return false;
    return std::all_of(s.begin(), s.end(), [](unsigned char c) { return orv::ascii_isprint(c); });
}

// A copy of a name field, never reading past it.
std::string field(const char *f, size_t size) { return std::string(f, strnlen(f, size)); }

uint64_t my_start() {
    static const uint64_t start = process_start(::getpid());
    return start;
}

// Reading the counter configuration of one object.
struct ConfigScan {
    std::string_view object;
    std::vector<Desc> descs;
};

int scan_entry(const char *name, const char *const *values, int, void *arg) {
    auto *scan = static_cast<ConfigScan *>(arg);
    std::string_view entry(name);
    size_t dot = entry.find('.');
    if (dot == std::string_view::npos || !orv::ascii_iequal(entry.substr(0, dot), scan->object)) return 0;
    std::string_view counter = entry.substr(dot + 1);
    std::string_view value(values[0]);
    size_t blank = value.find_first_of(" \t");
    std::string_view kind = value.substr(0, blank);
    std::string_view help = blank == std::string_view::npos ? std::string_view() : value.substr(blank);
    while (!help.empty() && orv::ascii_isblank(static_cast<unsigned char>(help.front()))) help.remove_prefix(1);
    bool repeated = std::any_of(scan->descs.begin(), scan->descs.end(),
                                [&](const Desc &d) { return orv::ascii_iequal(d.name, counter); });
    bool gauge = orv::ascii_iequal(kind, "gauge");
    if (!valid_name(counter, true) || repeated || (!gauge && !orv::ascii_iequal(kind, "count")) ||
        scan->descs.size() >= COUNTER_MAX_COUNTERS) {
        zolog(0, 4, "Counter configuration: entry %s skipped", name);
        return 0;
    }
    scan->descs.push_back({std::string(counter), gauge ? uint32_t{COUNTER_KIND_GAUGE} : uint32_t{COUNTER_KIND_COUNT},
                           std::string(help.substr(0, COUNTER_HELP_SIZE - 1))});
    return 0;
}

bool same_counters(const Mapping &m, const std::vector<Desc> &descs) {
    if (m.header->ncounters != descs.size()) return false;
    for (size_t i = 0; i < descs.size(); ++i)
        if (field(m.descs[i].name, COUNTER_NAME_SIZE) != descs[i].name || m.descs[i].kind != descs[i].kind ||
            field(m.descs[i].help, COUNTER_HELP_SIZE) != descs[i].help)
            return false;
    return true;
}

std::string object_path(const countermsg_registry *r, const std::string &name) {
    return r->dir + "/" + name + std::string(kSuffix);
}

// Slots. A claim moves a slot to kClaiming (with our pid) by compare and
// swap, writes owner and name, then publishes kUsed with release ordering:
// a reader that sees kUsed sees the name.
uint64_t phase(uint64_t state) { return state & kPhase; }

void publish(const Mapping &m, Slot &s, const char *name, bool zero) {
    s.owner_pid = static_cast<uint32_t>(::getpid());
    s.owner_start = my_start();
    std::strncpy(s.name, name, sizeof s.name - 1);
    s.name[sizeof s.name - 1] = '\0';
    if (zero) {
        uint64_t *row = m.row(static_cast<uint32_t>(&s - m.slots));
        for (uint32_t i = 0; i < m.header->ncounters; ++i) atomic(row[i]).store(0, std::memory_order_relaxed);
    }
    uint64_t number = atomic(m.header->claims).fetch_add(1, std::memory_order_relaxed) + 1;
    atomic(s.state).store(number << 2 | kUsed, std::memory_order_release);
}

// Takes slot s from the state seen, when its owner (or claimer) is gone or
// the slot is free. True when this process now holds it in kClaiming.
bool take(Slot &s, uint64_t seen) {
    if (phase(seen) == kClaiming && owner_alive(static_cast<uint32_t>(seen >> 2), 0)) return false;
    if (phase(seen) == kUsed && owner_alive(s.owner_pid, s.owner_start)) return false;
    uint64_t mine = static_cast<uint64_t>(::getpid()) << 2 | kClaiming;
    return atomic(s.state).compare_exchange_strong(seen, mine, std::memory_order_acquire);
}

// The index of the slot in use called name, or -1.
int find_slot(const Mapping &m, const char *name, int after) {
    for (uint32_t i = static_cast<uint32_t>(after + 1); i < m.header->nslots; ++i) {
        Slot &s = m.slots[i];
        if (phase(atomic(s.state).load(std::memory_order_acquire)) == kUsed &&
            std::strncmp(s.name, name, sizeof s.name) == 0)
            return static_cast<int>(i);
    }
    return -1;
}

int claim_slot(const Mapping &m, const char *name) {
    for (;;) {
        int found = find_slot(m, name, -1);
        if (found >= 0) {
            // Attach; a row whose owner died becomes ours, values kept.
            Slot &s = m.slots[found];
            uint64_t seen = atomic(s.state).load(std::memory_order_acquire);
            if (found > 0 && phase(seen) == kUsed && take(s, seen)) publish(m, s, name, false);
            return found;
        }
        int got = -1;
        for (int pass = 0; pass < 2 && got < 0; ++pass) {
            // Free slots first; only then those of dead owners.
            for (uint32_t i = 1; i < m.header->nslots && got < 0; ++i) {
                uint64_t seen = atomic(m.slots[i].state).load(std::memory_order_acquire);
                if ((pass == 0) != (phase(seen) == kFree)) continue;
                if (take(m.slots[i], seen)) got = static_cast<int>(i);
            }
        }
        if (got < 0) return COUNTER_EFULL;
        publish(m, m.slots[got], name, true);
        // Two processes claiming the same new name at once: the lower slot
        // wins and the other gives its slot back.
        int first = find_slot(m, name, -1);
        if (first == got) return got;
        atomic(m.slots[got].state).store(kFree, std::memory_order_release);
    }
}

int make_instance(const Mapping &m, int slot, counterinstance **inst) {
    auto *i = new (std::nothrow) counterinstance{m.row(static_cast<uint32_t>(slot)), m.header->ncounters};
    *inst = i;
    return i ? 0 : COUNTER_ENOMEM;
}

int attach_or_create(countermsg_registry *r, const char *name, int flags, int mode, int slots,
                     const std::vector<Desc> &descs, Mapping *m) {
    const std::string path = object_path(r, name);
    remove_dead_temporaries(r->dir, name);
    uint64_t floor = 0;
    for (int attempt = 0; attempt < 3; ++attempt) {
        Mapping old;
        int status = map_file(path, true, &old);
        if (status == 0) {
            floor = old.header->generation;
            if (!(flags & COUNTER_CREATE_FRESH) && same_counters(old, descs)) {
                *m = old;
                return 0;
            }
            old.unmap();
        } else if (status == COUNTER_EIO) {
            return status;
        }
        bool replace = status != COUNTER_ENOTFOUND, exists = false;
        uint32_t n = slots <= 0 ? COUNTER_DEFAULT_SLOTS : static_cast<uint32_t>(std::min(slots, COUNTER_MAX_SLOTS));
        status = create_file(r->dir, path, name, descs, n, mode, replace, floor, m, &exists);
        if (!exists) return status;
        flags &= ~COUNTER_CREATE_FRESH;  // someone else just made it: use theirs
    }
    return COUNTER_EIO;
}

}  // namespace

extern "C" {

int counterlib_init(void) noexcept { return 0; }

const char *counter_strerror(int status) noexcept {
    switch (status) {
        case 0: return "success";
        case COUNTER_EINVAL: return "bad argument or name";
        case COUNTER_ENOMEM: return "out of memory";
        case COUNTER_EIO: return "cannot create, open or map the file";
        case COUNTER_ENOTFOUND: return "not found";
        case COUNTER_EFOREIGN: return "not a counter file of this layout version";
        case COUNTER_ECORRUPT: return "truncated or corrupt counter file";
        case COUNTER_EFULL: return "every instance slot is in use";
        default: return "unknown status";
    }
}

countermsg_registry *countermsg_get_registry(const char *path, int create) noexcept {
    try {
        config_cache *conf = config_getdefaultcache();
        std::string dir = path ? path : config_get_string(conf, "local.instance.counter.path", "counter");
        if (dir.empty() || dir[0] != '/')
            dir = std::string(config_get_string(conf, "local.instancedir", ".")) + "/" + dir;
        while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
        if (create) orv::make_dirs(dir);
        struct stat st;
        if (::stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return nullptr;
        return new countermsg_registry{dir};
    } catch (...) {
        return nullptr;
    }
}

void countermsg_free_registry(countermsg_registry *registry) noexcept { delete registry; }

const char *countermsg_registry_path(const countermsg_registry *registry) noexcept {
    return registry ? registry->dir.c_str() : nullptr;
}

config_cache *countermsg_open_config(const char *path) noexcept {
    // The entries are copied into a cache of their own, so that the caller
    // frees one thing and no driver outlives the call.
    config_cache *out = config_newcache();
    if (!out || !path) return out;
    config_cache *read = config_newcache();
    config_readdriver *driver = config_readdriver_fileinit(path);
    if (read && driver && config_adddriver(read, 0, driver) == 0 && config_fetch(read) == 0) {
        config_scan_config(
            read,
            [](const char *name, const char *const *values, int n, void *arg) {
                return config_add_entry(static_cast<config_cache *>(arg), name, values, n) == 0 ? 0 : 1;
            },
            0, out);
    }
    config_freecache(read);
    if (driver) driver->release(driver);
    return out;
}

int countermsg_create_instance(const char *name, int flags, int mode, const char *instance, int slots,
                               counterobject **obj, counterinstance **inst, config_cache *config,
                               countermsg_registry *registry) noexcept {
    if (obj) *obj = nullptr;
    if (inst) *inst = nullptr;
    if (!name || !obj || !registry || !valid_name(name, false) || (instance && !inst)) return COUNTER_EINVAL;
    try {
        ConfigScan scan{name, {}};
        config_scan_config(config, scan_entry, 0, &scan);
        if (scan.descs.empty()) return COUNTER_ENOTFOUND;
        auto *o = new counterobject{name, object_path(registry, name), {}};
        int status = attach_or_create(registry, name, flags, mode, slots, scan.descs, &o->map);
        if (status == 0 && instance) status = counterinstance_open(o, instance, 0, inst);
        if (status != 0) {
            counterobject_close(o);
            return status;
        }
        *obj = o;
        return 0;
    } catch (const std::bad_alloc &) {
        return COUNTER_ENOMEM;
    }
}

int countermsg_list_objects(countermsg_registry *registry, counter_listproc proc, void *arg) noexcept {
    if (!registry || !proc) return COUNTER_EINVAL;
    DIR *d = ::opendir(registry->dir.c_str());
    if (!d) return COUNTER_EIO;
    int r = 0;
    while (const dirent *e = ::readdir(d)) {
        std::string_view n(e->d_name);
        if (n.size() <= kSuffix.size() || n.substr(n.size() - kSuffix.size()) != kSuffix) continue;
        std::string object(n.substr(0, n.size() - kSuffix.size()));
        if (!valid_name(object, false)) continue;
        if ((r = proc(object.c_str(), arg)) != 0) break;
    }
    ::closedir(d);
    return r;
}

int counterobject_open(countermsg_registry *registry, const char *name, counterobject **obj) noexcept {
    if (!obj) return COUNTER_EINVAL;
    *obj = nullptr;
    if (!registry || !name || !valid_name(name, false)) return COUNTER_EINVAL;
    auto *o = new (std::nothrow) counterobject;
    if (!o) return COUNTER_ENOMEM;
    try {
        o->name = name;
        o->path = object_path(registry, name);
    } catch (...) {
        delete o;
        return COUNTER_ENOMEM;
    }
    int status = map_file(o->path, false, &o->map);
    if (status != 0) {
        delete o;
        return status;
    }
    *obj = o;
    return 0;
}

void counterobject_close(counterobject *obj) noexcept {
    if (!obj) return;
    obj->map.unmap();
    delete obj;
}

const char *counterobject_name(const counterobject *obj) noexcept { return obj ? obj->name.c_str() : nullptr; }

uint64_t counterobject_generation(const counterobject *obj) noexcept { return obj ? obj->map.header->generation : 0; }

int counterobject_changed(const counterobject *obj) noexcept {
    if (!obj) return 0;
    int fd = ::open(obj->path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return 1;
    FileHeader h{};
    struct stat st;
    bool same = ::fstat(fd, &st) == 0 && st.st_dev == obj->map.dev && st.st_ino == obj->map.ino &&
                ::pread(fd, &h, sizeof h, 0) == static_cast<ssize_t>(sizeof h) &&
                h.generation == obj->map.header->generation;
    ::close(fd);
    return same ? 0 : 1;
}

int counterobject_counters(const counterobject *obj) noexcept {
    return obj ? static_cast<int>(obj->map.header->ncounters) : 0;
}

int counterobject_slots(const counterobject *obj) noexcept {
    return obj ? static_cast<int>(obj->map.header->nslots) : 0;
}

int counterobject_counterat(const counterobject *obj, int index, const char **name, int *kind,
                            const char **help) noexcept {
    if (!obj || index < 0 || static_cast<uint32_t>(index) >= obj->map.header->ncounters) return COUNTER_ENOTFOUND;
    const CounterDesc &d = obj->map.descs[index];
    if (name) *name = d.name;
    if (kind) *kind = static_cast<int>(d.kind);
    if (help) *help = d.help;
    return 0;
}

int counterobject_getcounterinfo(const counterobject *obj, const char *name, counterhandle *handle, int *kind,
                                 const char **help, int *index) noexcept {
    if (handle) *handle = 0;
    if (!obj || !name || !handle) return COUNTER_EINVAL;
    for (uint32_t i = 0; i < obj->map.header->ncounters; ++i) {
        if (!orv::ascii_iequal(obj->map.descs[i].name, name)) continue;
        *handle = i + 1;
        if (index) *index = static_cast<int>(i);
        return counterobject_counterat(obj, static_cast<int>(i), nullptr, kind, help);
    }
    return COUNTER_ENOTFOUND;
}

int counterobject_snapshot(const counterobject *obj, char (*names)[COUNTER_NAME_SIZE], uint64_t *values,
                           int max) noexcept {
    if (!obj || max < 0 || (max > 0 && (!names || !values))) return COUNTER_EINVAL;
    const Mapping &m = obj->map;
    const uint32_t n = m.header->ncounters;
    int used = 0;
    for (uint32_t i = 0; i < m.header->nslots; ++i) {
        Slot &s = m.slots[i];
        if (phase(atomic(s.state).load(std::memory_order_acquire)) != kUsed) continue;
        if (used < max) {
            std::memcpy(names[used], s.name, COUNTER_NAME_SIZE);
            names[used][COUNTER_NAME_SIZE - 1] = '\0';
            const uint64_t *row = m.row(i);
            for (uint32_t c = 0; c < n; ++c)
                values[size_t(used) * n + c] = atomic(const_cast<uint64_t &>(row[c])).load(std::memory_order_relaxed);
        }
        ++used;
    }
    return used;
}

int counterinstance_open(counterobject *obj, const char *name, int, counterinstance **inst) noexcept {
    if (!inst) return COUNTER_EINVAL;
    *inst = nullptr;
    if (!obj || !name || !obj->map.writable || !valid_instance_name(name)) return COUNTER_EINVAL;
    int slot = claim_slot(obj->map, name);
    return slot < 0 ? slot : make_instance(obj->map, slot, inst);
}

void counterinstance_close(counterinstance *inst) noexcept { delete inst; }

int counterinstance_delete(counterobject *obj, const char *name) noexcept {
    if (!obj || !name || !obj->map.writable) return COUNTER_EINVAL;
    if (std::strcmp(name, "global") == 0) return ::unlink(obj->path.c_str()) == 0 ? 0 : COUNTER_EIO;
    int slot = find_slot(obj->map, name, 0);
    if (slot < 0) return COUNTER_ENOTFOUND;
    Slot &s = obj->map.slots[slot];
    uint64_t seen = atomic(s.state).load(std::memory_order_acquire);
    if (phase(seen) == kUsed) atomic(s.state).compare_exchange_strong(seen, kFree, std::memory_order_release);
    return 0;
}

void counterinstance_add(counterinstance *inst, counterhandle counter, int64_t amount) noexcept {
    counter_add(inst, counter, amount);
}

void counterinstance_set(counterinstance *inst, counterhandle counter, uint64_t value) noexcept {
    counter_set(inst, counter, value);
}

uint64_t counterinstance_get(const counterinstance *inst, counterhandle counter) noexcept {
    return counter_get(inst, counter);
}

}  // extern "C"
