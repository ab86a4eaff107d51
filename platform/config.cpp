// Configuration cache, the configuration file read and write drivers, and
// the process's default cache.
#include "orvutil/platform/config.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "config_text.hpp"
#include "orv/ascii.hpp"
#include "orv/confname.hpp"
#include "orv/fsutil.hpp"
#include "orvutil/platform/zolog.h"

namespace {

struct Entry {
    const char *name;
    size_t name_len;
    uint32_t first_value;  // index into Snapshot::values
    uint32_t nvalues;      // values[first_value + nvalues] is NULL
};

// One complete read of a cache's drivers. Immutable once published. Names
// and values live in the text of each file read, decoded in place, so a read
// costs a few large allocations rather than several per entry.
struct Snapshot {
    std::deque<std::string> texts;                // files parsed in place (a deque never moves them)
    std::vector<std::unique_ptr<char[]>> arenas;  // copies made by config_add_entry
    std::vector<Entry> entries;
    std::vector<const char *> values;
    orv::ConfNameIndex index;      // names to the last entry of each
    size_t open_entry = SIZE_MAX;  // entry still taking continuation values while building

    void begin_entry(const char *name, size_t len, const char *value) {
        end_entry();
        entries.push_back({name, len, static_cast<uint32_t>(values.size()), 1});
        values.push_back(value);
        open_entry = entries.size() - 1;
    }
    bool add_value(const char *value) {
        if (open_entry == SIZE_MAX) return false;
        values.push_back(value);
        entries[open_entry].nvalues++;
        return true;
    }
    void end_entry() {
        if (open_entry != SIZE_MAX) values.push_back(nullptr);
        open_entry = SIZE_MAX;
    }

    auto name_of() const {
        return [this](size_t i) { return std::string_view(entries[i].name, entries[i].name_len); };
    }

    // Indexes every name once the entries are complete; a later entry of a
    // name replaces an earlier one, so a look-up finds the last.
    void build_index() {
        end_entry();
        index.reset(entries.size());
        for (size_t i = 0; i < entries.size(); ++i) index.put(i, name_of());
    }

    // True when both hold the same names and values in the same order.
    bool same_entries(const Snapshot &other) const {
        if (entries.size() != other.entries.size() || values.size() != other.values.size()) return false;
        for (size_t i = 0; i < entries.size(); ++i) {
            const Entry &a = entries[i], &b = other.entries[i];
            if (a.name_len != b.name_len || a.nvalues != b.nvalues || std::strcmp(a.name, b.name) != 0) return false;
        }
        for (size_t i = 0; i < values.size(); ++i) {
            if ((values[i] == nullptr) != (other.values[i] == nullptr)) return false;
            if (values[i] != nullptr && std::strcmp(values[i], other.values[i]) != 0) return false;
        }
        return true;
    }

    const Entry *find(const char *key) const {
        const long i = index.find(key, name_of());
        return i == orv::ConfNameIndex::kAbsent ? nullptr : &entries[static_cast<size_t>(i)];
    }
};

}  // namespace

struct config_cache {
    std::vector<config_readdriver *> drivers;
    std::atomic<const Snapshot *> current{nullptr};
    // Every snapshot ever published, so texts handed out stay valid.
    std::vector<std::unique_ptr<Snapshot>> published;
    Snapshot *building = nullptr;  // set while config_fetch runs

    config_cache() { publish(std::make_unique<Snapshot>()); }
    // Indexes a complete snapshot and makes it the one readers see.
    void publish(std::unique_ptr<Snapshot> snap) {
        snap->build_index();
        current.store(snap.get(), std::memory_order_release);
        published.push_back(std::move(snap));
    }
    const Snapshot &now() const { return *current.load(std::memory_order_acquire); }
};

namespace {

// The first value of the last entry called key, or NULL.
const char *lookup(config_cache *cache, const char *key) {
    if (cache == nullptr || key == nullptr) return nullptr;
    const Snapshot &snap = cache->now();
    const Entry *e = snap.find(key);
    return e != nullptr ? snap.values[e->first_value] : nullptr;
}

// ---- the file driver --------------------------------------------------------

struct FileReadDriver {
    config_readdriver ops;  // first member: the driver pointer is this struct
    std::string path;
    struct timespec mtime = {0, 0};
    off_t size = -1;
};

struct FileWriteDriver {
    config_writedriver ops;
    std::string path;
    int fd = -1;
};

void report_malformed(const std::string &path, int line, const char *why) {
    zolog(0, 4, "%s:%d: configuration line skipped: %s", path.c_str(), line, why);
}

// Adds what the parser finds to the snapshot being built. A continuation
// after a skipped line has no entry to join and is skipped too.
class SnapshotSink : public ConfigSink {
  public:
    SnapshotSink(Snapshot &snap, const std::string &path) : snap_(snap), path_(path) {}
    void entry(int, const char *name, size_t name_len, const char *value) override {
        snap_.begin_entry(name, name_len, value);
    }
    void continuation(int line, const char *value) override {
        if (!snap_.add_value(value)) report_malformed(path_, line, "continuation without an entry");
    }
    void malformed(int line, const char *why) override {
        snap_.end_entry();
        report_malformed(path_, line, why);
    }

  private:
    Snapshot &snap_;
    const std::string &path_;
};

int file_fetch(config_readdriver *self, config_cache *cache) {
    auto *drv = reinterpret_cast<FileReadDriver *>(self);
    Snapshot *snap = cache->building;
    if (snap == nullptr) return -1;  // only config_fetch calls the fetch slot
    std::string text;
    struct stat st;
    if (!orv::read_file(drv->path, &text, &st)) {
        zolog(0, 7, "%s: cannot read configuration file: %m", drv->path.c_str());
        return -1;
    }
    drv->mtime = st.st_mtim;
    drv->size = st.st_size;
    snap->texts.push_back(std::move(text));
    std::string &kept = snap->texts.back();
    kept.push_back('\0');  // the spare byte the in-place parser may write
    SnapshotSink sink(*snap, drv->path);
    parse_config_text(kept.data(), kept.size() - 1, sink);
    snap->end_entry();
    return 0;
}

void file_read_release(config_readdriver *self) { delete reinterpret_cast<FileReadDriver *>(self); }

int file_changed(config_readdriver *self) {
    auto *drv = reinterpret_cast<FileReadDriver *>(self);
    struct stat st;
    if (::stat(drv->path.c_str(), &st) != 0) return drv->size >= 0;
    return st.st_size != drv->size || st.st_mtim.tv_sec != drv->mtime.tv_sec ||
           st.st_mtim.tv_nsec != drv->mtime.tv_nsec;
}

int file_write_entry(config_writedriver *self, const char *name, const char *value, int *scratch) {
    auto *drv = reinterpret_cast<FileWriteDriver *>(self);
    if (name == nullptr || scratch == nullptr) return -1;
    try {
        if (*scratch == 0 || drv->fd < 0) {
            const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (*scratch == 0 ? O_TRUNC : O_APPEND);
            if (drv->fd >= 0) ::close(drv->fd);
            drv->fd = ::open(drv->path.c_str(), flags, 0666);
            if (drv->fd < 0) return -1;
            *scratch = 1;
        }
        const std::string line = format_config_line(name, value != nullptr ? value : "");
        return orv::write_all(drv->fd, line.data(), line.size());
    } catch (const std::bad_alloc &) {
        return -1;
    }
}

int file_sync(config_writedriver *self) {
    auto *drv = reinterpret_cast<FileWriteDriver *>(self);
    return drv->fd < 0 ? 0 : ::fsync(drv->fd);
}

const char *file_path(config_writedriver *self) { return reinterpret_cast<FileWriteDriver *>(self)->path.c_str(); }

void file_write_release(config_writedriver *self) {
    auto *drv = reinterpret_cast<FileWriteDriver *>(self);
    if (drv->fd >= 0) ::close(drv->fd);
    delete drv;
}

// ---- the default cache ------------------------------------------------------

struct DefaultCache {
    std::mutex mutex;  // serialises loads, reloads and path changes
    std::string path;
    bool path_set = false;
    config_cache *cache = nullptr;
    config_readdriver *driver = nullptr;

    std::string default_path() const {
        const char *home = std::getenv("ORV_HOME");
        return std::string(home != nullptr && *home ? home : ".") + "/config/orv.conf";
    }

    // Reads the file into the cache; a missing file gives no entries.
    int load() {
        if (!path_set) {
            path = default_path();
            path_set = true;
        }
        if (cache == nullptr) cache = config_newcache();
        if (cache == nullptr) return -1;
        if (driver != nullptr) driver->release(driver);
        driver = config_readdriver_fileinit(path.c_str());
        if (driver == nullptr) return -1;
        cache->drivers.assign(1, driver);
        if (::access(path.c_str(), F_OK) != 0 && errno == ENOENT) {
            cache->publish(std::make_unique<Snapshot>());
            return 0;
        }
        return config_fetch(cache);
    }
};

DefaultCache &default_cache() {
    static DefaultCache *d = new DefaultCache;  // lives until exit; readers may run during it
    return *d;
}

}  // namespace

extern "C" {

config_cache *config_newcache(void) noexcept {
    try {
        return new config_cache;
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

void config_freecache(config_cache *cache) noexcept { delete cache; }

int config_adddriver(config_cache *cache, int position, config_readdriver *driver) noexcept {
    if (cache == nullptr || driver == nullptr) return -1;
    try {
        if (position <= 0 || static_cast<size_t>(position) >= cache->drivers.size())
            cache->drivers.push_back(driver);
        else
            cache->drivers.insert(cache->drivers.begin() + position, driver);
        return 0;
    } catch (const std::bad_alloc &) {
        return -1;
    }
}

int config_fetch(config_cache *cache) noexcept {
    if (cache == nullptr) return -1;
    try {
        auto snap = std::make_unique<Snapshot>();
        cache->building = snap.get();
        for (config_readdriver *driver : cache->drivers) {
            if (driver->fetch == nullptr || driver->fetch(driver, cache) != 0) {
                cache->building = nullptr;
                return -1;  // the entries read before stay in force
            }
        }
        cache->building = nullptr;
        // A read that found what is already in force is dropped, so periodic
        // reloads of an unchanged file keep no extra copies alive.
        if (!snap->same_entries(cache->now())) cache->publish(std::move(snap));
        return 0;
    } catch (const std::bad_alloc &) {
        cache->building = nullptr;
        return -1;
    }
}

int config_add_entry(config_cache *cache, const char *name, const char *const *values, int nvalues) noexcept {
    if (cache == nullptr || name == nullptr || values == nullptr || nvalues < 1) return -1;
    try {
        // One arena holds the copies of the name and the values.
        const size_t name_len = std::strlen(name);
        size_t size = name_len + 1;
        for (int i = 0; i < nvalues; ++i) size += (values[i] != nullptr ? std::strlen(values[i]) : 0) + 1;
        auto arena = std::make_unique<char[]>(size);
        char *w = arena.get();
        auto copy = [&w](const char *text) {
            const size_t n = text != nullptr ? std::strlen(text) : 0;
            char *start = w;
            if (n > 0) std::memcpy(w, text, n);
            w[n] = '\0';
            w += n + 1;
            return start;
        };
        const char *name_copy = copy(name);

        std::unique_ptr<Snapshot> fresh;
        Snapshot *snap = cache->building;
        if (snap == nullptr) {
            // Outside a fetch: a new snapshot with the current entries and this
            // one. The arenas stay with the snapshots that own them.
            fresh = std::make_unique<Snapshot>();
            fresh->entries = cache->now().entries;
            fresh->values = cache->now().values;
            snap = fresh.get();
        }
        snap->begin_entry(name_copy, name_len, copy(values[0]));
        for (int i = 1; i < nvalues; ++i) snap->add_value(copy(values[i]));
        snap->end_entry();
        snap->arenas.push_back(std::move(arena));
        if (fresh) cache->publish(std::move(fresh));
        return 0;
    } catch (const std::bad_alloc &) {
        return -1;
    }
}

int config_scan_config(config_cache *cache, config_scanproc proc, int flags, void *arg) noexcept {
    (void)flags;
    if (cache == nullptr || proc == nullptr) return -1;
    const Snapshot &snap = cache->now();
    for (const Entry &e : snap.entries) {
        const int r = proc(e.name, &snap.values[e.first_value], static_cast<int>(e.nvalues), arg);
        if (r != 0) return r;
    }
    return 0;
}

int config_entry_count(config_cache *cache) noexcept {
    return cache == nullptr ? 0 : static_cast<int>(cache->now().entries.size());
}

config_readdriver *config_readdriver_fileinit(const char *path) noexcept {
    if (path == nullptr) return nullptr;
    try {
        auto *drv = new FileReadDriver;
        drv->ops = {file_fetch, file_read_release, file_changed};
        drv->path = path;
        return &drv->ops;
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

config_writedriver *config_writedriver_fileinit(const char *path) noexcept {
    if (path == nullptr) return nullptr;
    try {
        auto *drv = new FileWriteDriver;
        drv->ops = {file_write_entry, file_sync, file_path, file_write_release};
        drv->path = path;
        return &drv->ops;
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

const char *config_get_string(config_cache *cache, const char *key, const char *def) noexcept {
    const char *value = lookup(cache, key);
    return value != nullptr ? value : def;
}

char *config_get_stringcopy(config_cache *cache, const char *key, const char *def) noexcept {
    const char *value = config_get_string(cache, key, def);
    return value != nullptr ? strdup(value) : nullptr;
}

int config_get_int(config_cache *cache, const char *key, int def) noexcept {
    const char *text = lookup(cache, key);
    if (text == nullptr) return def;
    errno = 0;
    char *end = nullptr;
    const long v = std::strtol(text, &end, 10);
    if (end == text || errno == ERANGE || v < INT_MIN || v > INT_MAX) return def;
    while (orv::ascii_isblank(static_cast<unsigned char>(*end))) ++end;
    return *end == '\0' ? static_cast<int>(v) : def;
}

int config_get_switch(config_cache *cache, const char *key, int def) noexcept {
    const char *value = lookup(cache, key);
    if (value == nullptr) return def;
    std::string_view v = value;
    while (!v.empty() && orv::ascii_isblank(static_cast<unsigned char>(v.front()))) v.remove_prefix(1);
    while (!v.empty() && orv::ascii_isblank(static_cast<unsigned char>(v.back()))) v.remove_suffix(1);
    for (const char *on : {"on", "yes", "true", "1"})
        if (orv::ascii_iequal(v, on)) return 1;
    for (const char *off : {"off", "no", "false", "0"})
        if (orv::ascii_iequal(v, off)) return 0;
    return def;
}

config_cache *config_getdefaultcache(void) noexcept {
    DefaultCache &d = default_cache();
    // Fast path once loaded: the pointer never changes afterwards.
    static std::atomic<config_cache *> loaded{nullptr};
    if (config_cache *c = loaded.load(std::memory_order_acquire)) return c;
    std::lock_guard<std::mutex> lock(d.mutex);
    if (d.cache == nullptr) {
        try {
            d.load();
        } catch (...) {
        }
    }
    if (d.cache != nullptr) loaded.store(d.cache, std::memory_order_release);
    return d.cache;
}

int config_setdefaultfile(const char *path) noexcept {
    if (path == nullptr) return -1;
    DefaultCache &d = default_cache();
    std::lock_guard<std::mutex> lock(d.mutex);
    try {
        d.path = path;
        d.path_set = true;
        return d.cache != nullptr ? d.load() : 0;
    } catch (...) {
        return -1;
    }
}

const char *config_getdefaultfile(void) noexcept {
    DefaultCache &d = default_cache();
    std::lock_guard<std::mutex> lock(d.mutex);
    if (!d.path_set) {
        d.path = d.default_path();
        d.path_set = true;
    }
    return d.path.c_str();
}

int config_reloaddefault(void) noexcept {
    config_getdefaultcache();
    DefaultCache &d = default_cache();
    std::lock_guard<std::mutex> lock(d.mutex);
    try {
        return d.load();
    } catch (...) {
        return -1;
    }
}

}  // extern "C"
