// Configuration files: the entry list of one file, its editing rules, its
// line form, and the in-place and safe (temporary file and rename) rewrites.
#include "orvutil/cal_conf.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <plstr.h>

#include "orv/ascii.hpp"
#include "orv/confname.hpp"
#include "orv/confquote.hpp"
#include "orv/fsutil.hpp"
#include "orvutil/platform/prot.h"
#include "orvutil/platform/sys.h"

// Open-addressing table of entry indexes, keyed by the entries' names with
// ASCII case ignored; for a repeated name it holds the last entry's index.
// The names stay in the handle's array, so building it allocates once.
struct calconf_index {
    struct Slot {
        int entry;      // entry index, or -1
        uint32_t hash;  // low bits of the name's hash: most mismatches end here
    };
    std::vector<Slot> slots;  // size a power of two
    int used = 0;
};

namespace {

constexpr size_t kWriteChunk = 65536;

// The slot holding name, or the empty slot where it would go; *hash
// receives the name's hash.
size_t probe(const calconf_index &index, const array_t *names, const char *name, uint32_t *hash) {
    const size_t mask = index.slots.size() - 1;
    const size_t len = std::strlen(name);
    const uint64_t full = orv::confname_hash(name, len);
    *hash = static_cast<uint32_t>(full);
    for (size_t at = (full >> 32) & mask;; at = (at + 1) & mask) {
        const calconf_index::Slot &slot = index.slots[at];
        if (slot.entry < 0) return at;
        if (slot.hash != *hash) continue;
        const char *other = strarray_elementat(names, slot.entry);
        if (std::strlen(other) == len && orv::confname_equal(other, name, len)) return at;
    }
}

// Records entry i (the last of its name so far); grows the table first when
// it would pass half full.
void index_put(calconf_index &index, const array_t *names, int i) {
    if (2 * (static_cast<size_t>(index.used) + 1) > index.slots.size()) {
        std::vector<calconf_index::Slot> old(std::max<size_t>(16, 2 * index.slots.size()), {-1, 0});
        old.swap(index.slots);
        index.used = 0;
        for (const auto &slot : old)
            if (slot.entry >= 0) index_put(index, names, slot.entry);
    }
    uint32_t hash;
    calconf_index::Slot &slot = index.slots[probe(index, names, strarray_elementat(names, i), &hash)];
    if (slot.entry < 0) ++index.used;
    slot = {i, hash};
}

void drop_index(calconf_handle *h) {
    delete h->index;
    h->index = nullptr;
}

// The index of the last entry called name, or -1.
int find_last(calconf_handle *h, const char *name) {
    try {
        if (h->index == nullptr) {
            auto index = std::make_unique<calconf_index>();
            const int count = array_count(h->names);
            size_t size = 16;
            while (size < 2 * static_cast<size_t>(count) + 2) size *= 2;
            index->slots.assign(size, {-1, 0});
            for (int i = 0; i < count; ++i) index_put(*index, h->names, i);
            h->index = index.release();
        }
        uint32_t hash;
        return h->index->slots[probe(*h->index, h->names, name, &hash)].entry;
    } catch (const std::bad_alloc &) {
        drop_index(h);
        return strarray_lastof(h->names, name, 1);
    }
}

// Records an entry appended at index i.
void note_append(calconf_handle *h, int i) {
    if (h->index == nullptr) return;
    try {
        index_put(*h->index, h->names, i);
    } catch (const std::bad_alloc &) {
        drop_index(h);
    }
}

bool is_escaped(unsigned char c) { return orv::conf_escape_letter(c) != 0; }

bool needs_quotes(const char *value) { return orv::conf_needs_quotes(value); }

// a += b, false on overflow.
bool add(size_t &a, size_t b) {
    if (a > SIZE_MAX - b) return false;
    a += b;
    return true;
}

// Appends one value, quoted and escaped when needed, at *out.
char *put_value(char *out, const char *value) {
    if (!needs_quotes(value)) {
        const size_t n = std::strlen(value);
        std::memcpy(out, value, n);
        return out + n;
    }
    *out++ = '"';
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(value); *p; ++p) {
        const char letter = orv::conf_escape_letter(*p);
        if (letter != 0) *out++ = '\\';
        *out++ = letter != 0 ? letter : static_cast<char>(*p);
    }
    *out++ = '"';
    return out;
}

void release_drivers(calconf_handle *h) {
    if (h->readdriver != nullptr) h->readdriver->release(h->readdriver);
    if (h->writedriver != nullptr) h->writedriver->release(h->writedriver);
    h->readdriver = nullptr;
    h->writedriver = nullptr;
}

void free_handle(calconf_handle *h) {
    drop_index(h);
    config_freecache(h->cache);
    release_drivers(h);
    strarray_free_and_destroy(h->names);
    strarray_free_and_destroy(h->values);
    std::free(h->filename);
    std::free(h);
}

void remove_entry(calconf_handle *h, int index) {
    std::free(array_removeat(h->names, index));
    std::free(array_removeat(h->values, index));
}

// Truncates the write driver's file, for a flush with no entry to write.
int truncate_target(config_writedriver *driver) {
    const char *path = driver->path != nullptr ? driver->path(driver) : nullptr;
    if (path == nullptr) return -1;
    const int fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return -1;
    return ::close(fd) == 0 ? 0 : -1;
}

}  // namespace

extern "C" {

int calconf_scanproc(const char *name, const char *const *values, int nvalues, void *arg) noexcept {
    auto *h = static_cast<calconf_handle *>(arg);
    const char *value = nvalues > 0 && values != nullptr && values[0] != nullptr ? values[0] : "";
    if (strarray_append(h->names, name) != 0) return -1;
    if (strarray_append(h->values, value) != 0) {
        std::free(array_removeat(h->names, array_count(h->names) - 1));
        return -1;
    }
    note_append(h, array_count(h->names) - 1);
    return 0;
}

int calconf_Open(const char *path, calconf_handle **out) noexcept {
    if (out == nullptr) return -1;
    *out = nullptr;
    auto *h = static_cast<calconf_handle *>(std::calloc(1, sizeof(calconf_handle)));
    if (h == nullptr) return -1;
    *out = h;
    int result = -1;
    h->names = array_new();
    h->values = array_new();
    if (h->names != nullptr && h->values != nullptr) {
        h->cache = config_newcache();
        h->readdriver = config_readdriver_fileinit(path);
        h->writedriver = config_writedriver_fileinit(path);
        if (h->cache != nullptr && h->readdriver != nullptr && h->writedriver != nullptr &&
            config_adddriver(h->cache, 0, h->readdriver) == 0 && config_fetch(h->cache) == 0 &&
            config_scan_config(h->cache, calconf_scanproc, 0, h) == 0)
            result = 0;
    }
    if (result != 0) {
        config_freecache(h->cache);
        h->cache = nullptr;
        release_drivers(h);
    }
    if (path != nullptr && (h->filename = strdup(path)) == nullptr) result = -1;
    return result;
}

const char *calconf_Get(calconf_handle *handle, const char *name) noexcept {
    if (handle == nullptr || name == nullptr) return nullptr;
    const int i = find_last(handle, name);
    return i < 0 ? nullptr : strarray_elementat(handle->values, i);
}

char *calconf_GetCopy(calconf_handle *handle, const char *name) noexcept {
    const char *value = calconf_Get(handle, name);
    return value != nullptr ? strdup(value) : nullptr;
}

int calconf_Modify(calconf_handle *handle, const char *name, const char *value) noexcept {
    if (handle == nullptr || name == nullptr || value == nullptr || !orv::conf_writable_name(name)) return -1;
    const int i = find_last(handle, name);
    if (i >= 0) {
        if (strarray_modifyat(handle->values, i, value) != 0) return -1;
    } else {
        if (strarray_append(handle->names, name) != 0) return -1;
        if (strarray_append(handle->values, value) != 0) {
            std::free(array_removeat(handle->names, array_count(handle->names) - 1));
            return -1;
        }
        note_append(handle, array_count(handle->names) - 1);
    }
    handle->dirty = 1;
    return 0;
}

int calconf_Delete(calconf_handle *handle, const char *name, int mode) noexcept {
    if (handle == nullptr) return -1;
    if (name == nullptr) return 1;
    bool deleted = false;
    for (;;) {
        const int i = mode == 1 ? strarray_indexof(handle->names, name, 1) : strarray_lastof(handle->names, name, 1);
        if (i < 0) break;
        remove_entry(handle, i);
        deleted = true;
        if (mode == 0) break;
    }
    if (!deleted) return 1;
    drop_index(handle);  // later entries moved down
    handle->dirty = 1;
    return 0;
}

int calconf_Flush(calconf_handle *handle) noexcept {
    if (handle == nullptr) return -1;
    if (!handle->dirty) return 0;
    config_writedriver *driver = handle->writedriver;
    if (driver == nullptr) return -1;
    const int count = array_count(handle->names);
    if (count == 0 && truncate_target(driver) != 0) return -1;
    int scratch = 0;
    for (int i = 0; i < count; ++i) {
        if (driver->write_entry(driver, strarray_elementat(handle->names, i), strarray_elementat(handle->values, i),
                                &scratch) != 0)
            return -1;
    }
    handle->dirty = 0;
    return 0;
}

int calconf_FlushQuick(calconf_handle *handle, int fd) noexcept {
    if (handle == nullptr) return -1;
    struct Line {
        char *text;
        const char *name;
    };
    std::vector<Line> lines;
    int result = 0;
    try {
        const int count = array_count(handle->names);
        lines.reserve(static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) {
            const char *value = strarray_elementat(handle->values, i);
            const char *const list[] = {value != nullptr ? value : "", nullptr};
            const char *name = strarray_elementat(handle->names, i);
            char *text = calconf_File_Converttoline(name, list, 1);
            if (text == nullptr) throw std::bad_alloc();
            lines.push_back({text, name});
        }
        // Whole lines in calconf_CompareOptions order; entries of one name
        // (ASCII case ignored) keep their order, so the last still wins.
        std::stable_sort(lines.begin(), lines.end(), [](const Line &a, const Line &b) {
            if (PL_strcasecmp(a.name, b.name) == 0) return false;
            return calconf_CompareOptions(&a.text, &b.text) < 0;
        });
        // Lines are gathered into large writes; the bytes are the same.
        std::string chunk;
        chunk.reserve(kWriteChunk);
        for (size_t i = 0; i <= lines.size() && result == 0; ++i) {
            if (i < lines.size()) chunk += lines[i].text;
            if ((i == lines.size() || chunk.size() >= kWriteChunk) && !chunk.empty()) {
                if (retry_write(fd, chunk.data(), chunk.size()) < 0) result = -1;
                chunk.clear();
            }
        }
    } catch (const std::bad_alloc &) {
        result = -1;
    }
    for (const Line &l : lines) std::free(l.text);
    if (result == 0) handle->dirty = 0;
    return result;
}

int calconf_Close(calconf_handle **address, int noFlush) noexcept {
    if (address == nullptr || *address == nullptr) return -1;
    if (!noFlush) calconf_Flush(*address);
    free_handle(*address);
    *address = nullptr;
    return 0;
}

int calconf_CloseQuick(calconf_handle **address, int noFlush) noexcept {
    if (address == nullptr || *address == nullptr) return -1;
    calconf_handle *h = *address;
    release_drivers(h);
    int result = 0;
    if (!noFlush && h->dirty) {
        if (h->filename == nullptr) return -1;
        // A link's target is replaced, not the link.
        std::string target, temp;
        try {
            target = orv::follow_links(h->filename);
            temp = target + ".tmp." + std::to_string(thread_id());
        } catch (const std::bad_alloc &) {
            return -1;
        }
        const int fd = orv::open_replacement(temp, target);
        if (fd < 0) return -1;
        struct stat st;
        if (calconf_FlushQuick(h, fd) != 0 || sync_file(fd, 1) != 0 || ::fstat(fd, &st) != 0 ||
            ::rename(temp.c_str(), target.c_str()) != 0) {
            ::unlink(temp.c_str());
            result = -1;
        }
        ::close(fd);
    }
    free_handle(h);
    *address = nullptr;
    return result;
}

char *calconf_File_Converttoline(const char *name, const char *const *values, int lineEnd) noexcept {
    if (name == nullptr) return nullptr;
    size_t size = std::strlen(name);
    if (!add(size, 6)) return nullptr;
    size_t nvalues = 0;
    for (const char *const *v = values; v != nullptr && *v != nullptr; ++v, ++nvalues) {
        const size_t len = std::strlen(*v);
        size_t escaped = 0;
        for (const unsigned char *p = reinterpret_cast<const unsigned char *>(*v); *p; ++p) escaped += is_escaped(*p);
        if (!add(size, len) || !add(size, escaped) || !add(size, needs_quotes(*v) ? 2 : 0)) return nullptr;
    }
    if (nvalues > 1 && (nvalues - 1 > SIZE_MAX / 4 || !add(size, 4 * (nvalues - 1)))) return nullptr;

    char *line = static_cast<char *>(std::calloc(size, 1));
    if (line == nullptr) return nullptr;
    char *out = line;
    const size_t name_len = std::strlen(name);
    std::memcpy(out, name, name_len);
    out += name_len;
    std::memcpy(out, " = ", 3);
    out += 3;
    for (size_t i = 0; i < nvalues; ++i) {
        if (i > 0) {
            std::memcpy(out, "\n ,", 3);
            out += 3;
        }
        out = put_value(out, values[i]);
    }
    if (lineEnd) *out++ = '\n';
    *out = '\0';
    return line;
}

int calconf_CompareOptions(const void *a, const void *b) noexcept {
    const char *sa = a != nullptr ? *static_cast<const char *const *>(a) : nullptr;
    const char *sb = b != nullptr ? *static_cast<const char *const *>(b) : nullptr;
    if (sa == nullptr || sb == nullptr) return 0;
    return PL_strcasecmp(sa, sb);
}

}  // extern "C"
