// Configuration cache, the configuration file read and write drivers, and
// the process's default cache.
#include "orvutil/platform/config.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>
#include <vector>

#include "orv/ascii.hpp"
#include "orv/fsutil.hpp"
#include "orvutil/platform/zolog.h"
#include "config_text.hpp"

namespace {

// Hash and equality for configuration names: ASCII case is ignored. Both
// accept string_view so that a look-up never allocates.
struct NameHash {
    using is_transparent = void;
    size_t operator()(std::string_view s) const noexcept {
        size_t h = 1469598103934665603ull;
        for (unsigned char c : s) h = (h ^ orv::ascii_tolower(c)) * 1099511628211ull;
        return h;
    }
};
struct NameEqual {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const noexcept { return orv::ascii_iequal(a, b); }
};

struct Entry {
    std::string name;
    std::vector<std::string> values;
    std::vector<const char *> pointers;  // values as C strings, NULL-terminated

    void seal() {
        pointers.clear();
        for (const auto &v : values) pointers.push_back(v.c_str());
        pointers.push_back(nullptr);
    }
};

// One complete read of a cache's drivers. Immutable once published.
struct Snapshot {
    std::vector<Entry> entries;
    std::unordered_map<std::string, size_t, NameHash, NameEqual> last;  // name -> index of its last entry

    // Entries move while the vector grows (and short strings move with
    // them), so the C-string pointers are taken once, by seal_all, when the
    // snapshot is complete.
    void seal_all() {
        last.clear();
        for (size_t i = 0; i < entries.size(); ++i) {
            entries[i].seal();
            last[entries[i].name] = i;
        }
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
    void publish(std::unique_ptr<Snapshot> snap) {
        current.store(snap.get(), std::memory_order_release);
        published.push_back(std::move(snap));
    }
    const Snapshot &now() const { return *current.load(std::memory_order_acquire); }
};

namespace {

const Entry *find_last(config_cache *cache, const char *key) {
    if (cache == nullptr || key == nullptr) return nullptr;
    const Snapshot &snap = cache->now();
    auto it = snap.last.find(std::string_view(key));
    return it == snap.last.end() ? nullptr : &snap.entries[it->second];
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

int file_fetch(config_readdriver *self, config_cache *cache) {
    auto *drv = reinterpret_cast<FileReadDriver *>(self);
    std::string text;
    if (!orv::read_file(drv->path, &text)) {
        zolog(0, 3, "%s: cannot read configuration file: %m", drv->path.c_str());
        return -1;
    }
    struct stat st;
    if (::stat(drv->path.c_str(), &st) == 0) {
        drv->mtime = st.st_mtim;
        drv->size = st.st_size;
    }
    // Gather each entry with its continuation lines; a continuation after a
    // skipped line has no entry to join and is skipped too.
    struct Pending {
        std::string name;
        std::vector<std::string> values;
    };
    std::vector<Pending> entries;
    bool open_entry = false;
    parse_config_text(text, [&](const ConfigLine &line) {
        if (!line.error.empty()) {
            report_malformed(drv->path, line.number, line.error.c_str());
            open_entry = false;
        } else if (line.continuation) {
            if (open_entry)
                entries.back().values.push_back(line.value);
            else
                report_malformed(drv->path, line.number, "continuation without an entry");
        } else {
            entries.push_back({line.name, {line.value}});
            open_entry = true;
        }
    });
    for (const Pending &e : entries) {
        std::vector<const char *> values;
        for (const auto &v : e.values) values.push_back(v.c_str());
        if (config_add_entry(cache, e.name.c_str(), values.data(), static_cast<int>(values.size())) != 0)
            return -1;
    }
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
        snap->seal_all();
        cache->publish(std::move(snap));
        return 0;
    } catch (const std::bad_alloc &) {
        cache->building = nullptr;
        return -1;
    }
}

int config_add_entry(config_cache *cache, const char *name, const char *const *values, int nvalues) noexcept {
    if (cache == nullptr || name == nullptr || values == nullptr || nvalues < 1) return -1;
    try {
        Entry entry;
        entry.name = name;
        for (int i = 0; i < nvalues; ++i) entry.values.emplace_back(values[i] != nullptr ? values[i] : "");
        if (cache->building != nullptr) {
            cache->building->entries.push_back(std::move(entry));
        } else {
            auto snap = std::make_unique<Snapshot>();
            snap->entries = cache->now().entries;
            snap->entries.push_back(std::move(entry));
            snap->seal_all();
            cache->publish(std::move(snap));
        }
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
        const int r = proc(e.name.c_str(), e.pointers.data(), static_cast<int>(e.values.size()), arg);
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
    const Entry *e = find_last(cache, key);
    return e != nullptr ? e->values.front().c_str() : def;
}

char *config_get_stringcopy(config_cache *cache, const char *key, const char *def) noexcept {
    const char *value = config_get_string(cache, key, def);
    return value != nullptr ? strdup(value) : nullptr;
}

int config_get_int(config_cache *cache, const char *key, int def) noexcept {
    const Entry *e = find_last(cache, key);
    if (e == nullptr) return def;
    const char *text = e->values.front().c_str();
    errno = 0;
    char *end = nullptr;
    const long v = std::strtol(text, &end, 10);
    if (end == text || errno == ERANGE || v < INT_MIN || v > INT_MAX) return def;
    while (orv::ascii_isblank(static_cast<unsigned char>(*end))) ++end;
    return *end == '\0' ? static_cast<int>(v) : def;
}

int config_get_switch(config_cache *cache, const char *key, int def) noexcept {
    const Entry *e = find_last(cache, key);
    if (e == nullptr) return def;
    std::string_view v = e->values.front();
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
