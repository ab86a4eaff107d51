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
#include "orv/sizes.hpp"
#include "orvutil/platform/prot.h"
#include "orvutil/platform/sys.h"

// The handle's look-up index: entry names (in the handle's array) to the
// last entry of each name.
struct calconf_index : orv::ConfNameIndex {};

namespace {

constexpr size_t kWriteChunk = 65536;

auto names_of(const calconf_handle *h) {
    return [names = h->names](size_t i) { return std::string_view(strarray_elementat(names, static_cast<int>(i))); };
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
            index->reset(static_cast<size_t>(count));
            for (int i = 0; i < count; ++i) index->put(static_cast<size_t>(i), names_of(h));
            h->index = index.release();
        }
        return static_cast<int>(h->index->find(name, names_of(h)));
    } catch (const std::bad_alloc &) {
        drop_index(h);
        return strarray_lastof(h->names, name, 1);
    }
}

// Records an entry appended at index i.
void note_append(calconf_handle *h, int i) {
    if (h->index == nullptr) return;
    try {
        h->index->put(static_cast<size_t>(i), names_of(h));
    } catch (const std::bad_alloc &) {
        drop_index(h);
    }
}

bool forces_quotes(unsigned char c) {
    switch (c) {
        case '\t':
        case '\n':
        case '\r':
        case ' ':
        case '"':
        case ',':
        case '\\': return true;
        default: return false;
    }
}

bool is_escaped(unsigned char c) { return c == '"' || c == '\\' || c == '\r' || c == '\t' || c == '\n'; }

bool needs_quotes(const char *value) {
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(value); *p; ++p)
        if (forces_quotes(*p)) return true;
    return false;
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
        if (!is_escaped(*p)) {
            *out++ = static_cast<char>(*p);
            continue;
        }
        *out++ = '\\';
        switch (*p) {
            case '\r': *out++ = 'r'; break;
            case '\t': *out++ = 't'; break;
            case '\n': *out++ = 'n'; break;
            default: *out++ = static_cast<char>(*p);
        }
    }
    *out++ = '"';
    return out;
}

// A name the file syntax gives back unchanged.
bool writable_name(const char *name) {
    const size_t n = std::strlen(name);
    if (n == 0 || name[0] == '#' || orv::ascii_isblank(name[0]) || orv::ascii_isblank(name[n - 1])) return false;
    return std::strpbrk(name, "=\n\r") == nullptr;
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
    if (path == nullptr) return CALCONF_E_FAIL;
    const int fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return CALCONF_E_FAIL;
    return ::close(fd) == 0 ? CALCONF_OK : CALCONF_E_FAIL;
}

}  // namespace

extern "C" {

int calconf_scanproc(const char *name, const char *const *values, int nvalues, void *arg) noexcept {
    auto *h = static_cast<calconf_handle *>(arg);
    const char *value = nvalues > 0 && values != nullptr && values[0] != nullptr ? values[0] : "";
    if (strarray_append(h->names, name) != 0) return CALCONF_E_FAIL;
    if (strarray_append(h->values, value) != 0) {
        std::free(array_removeat(h->names, array_count(h->names) - 1));
        return CALCONF_E_FAIL;
    }
    note_append(h, array_count(h->names) - 1);
    return 0;
}

int calconf_Open(const char *path, calconf_handle **out) noexcept {
    if (out == nullptr) return CALCONF_E_FAIL;
    *out = nullptr;
    auto *h = static_cast<calconf_handle *>(std::calloc(1, sizeof(calconf_handle)));
    if (h == nullptr) return CALCONF_E_FAIL;
    *out = h;
    int result = CALCONF_E_FAIL;
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
    if (path != nullptr && (h->filename = strdup(path)) == nullptr) result = CALCONF_E_FAIL;
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
    if (handle == nullptr || name == nullptr || value == nullptr || !writable_name(name)) return CALCONF_E_FAIL;
    const int i = find_last(handle, name);
    if (i >= 0) {
        if (strarray_modifyat(handle->values, i, value) != 0) return CALCONF_E_FAIL;
    } else {
        if (strarray_append(handle->names, name) != 0) return CALCONF_E_FAIL;
        if (strarray_append(handle->values, value) != 0) {
            std::free(array_removeat(handle->names, array_count(handle->names) - 1));
            return CALCONF_E_FAIL;
        }
        note_append(handle, array_count(handle->names) - 1);
    }
    handle->dirty = 1;
    return 0;
}

int calconf_Delete(calconf_handle *handle, const char *name, int mode) noexcept {
    if (handle == nullptr) return CALCONF_E_FAIL;
    if (name == nullptr) return CALCONF_NOT_FOUND;
    bool deleted = false;
    for (;;) {
        const int i = mode == 1 ? strarray_indexof(handle->names, name, 1) : strarray_lastof(handle->names, name, 1);
        if (i < 0) break;
        remove_entry(handle, i);
        deleted = true;
        if (mode == 0) break;
    }
    if (!deleted) return CALCONF_NOT_FOUND;
    drop_index(handle);  // later entries moved down
    handle->dirty = 1;
    return 0;
}

int calconf_Flush(calconf_handle *handle) noexcept {
    if (handle == nullptr) return CALCONF_E_FAIL;
    if (!handle->dirty) return 0;
    config_writedriver *driver = handle->writedriver;
    if (driver == nullptr) return CALCONF_E_FAIL;
    const int count = array_count(handle->names);
    if (count == 0 && truncate_target(driver) != 0) return CALCONF_E_FAIL;
    int scratch = 0;
    for (int i = 0; i < count; ++i) {
        if (driver->write_entry(driver, strarray_elementat(handle->names, i), strarray_elementat(handle->values, i),
                                &scratch) != 0)
            return CALCONF_E_FAIL;
    }
    handle->dirty = 0;
    return 0;
}

int calconf_FlushQuick(calconf_handle *handle, int fd) noexcept {
    if (handle == nullptr) return CALCONF_E_FAIL;
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
            if (orv::ascii_iequal(a.name, b.name)) return false;
            return calconf_CompareOptions(&a.text, &b.text) < 0;
        });
        // Lines are gathered into large writes; the bytes are the same.
        std::string chunk;
        chunk.reserve(kWriteChunk);
        for (size_t i = 0; i <= lines.size() && result == 0; ++i) {
            if (i < lines.size()) chunk += lines[i].text;
            if ((i == lines.size() || chunk.size() >= kWriteChunk) && !chunk.empty()) {
                if (retry_write(fd, chunk.data(), chunk.size()) < 0) result = CALCONF_E_FAIL;
                chunk.clear();
            }
        }
    } catch (const std::bad_alloc &) {
        result = CALCONF_E_FAIL;
    }
    for (const Line &l : lines) std::free(l.text);
    if (result == 0) handle->dirty = 0;
    return result;
}

int calconf_Close(calconf_handle **address, int noFlush) noexcept {
    if (address == nullptr || *address == nullptr) return CALCONF_E_FAIL;
    if (!noFlush) calconf_Flush(*address);
    free_handle(*address);
    *address = nullptr;
    return 0;
}

int calconf_CloseQuick(calconf_handle **address, int noFlush) noexcept {
    if (address == nullptr || *address == nullptr) return CALCONF_E_FAIL;
    calconf_handle *h = *address;
    release_drivers(h);
    int result = 0;
    if (!noFlush && h->dirty) {
        if (h->filename == nullptr) return CALCONF_E_FAIL;
        std::string temp;
        try {
            temp = std::string(h->filename) + ".tmp." + std::to_string(thread_id());
        } catch (const std::bad_alloc &) {
            return CALCONF_E_FAIL;
        }
        const int fd = ::open(temp.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        if (fd < 0) return CALCONF_E_FAIL;
        struct stat st;
        if (calconf_FlushQuick(h, fd) != 0 || sync_file(fd, 1) != 0 || ::fstat(fd, &st) != 0 ||
            ::rename(temp.c_str(), h->filename) != 0) {
            ::unlink(temp.c_str());
            result = CALCONF_E_FAIL;
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
    if (!orv::size_add(size, 6)) return nullptr;
    size_t nvalues = 0;
    for (const char *const *v = values; v != nullptr && *v != nullptr; ++v, ++nvalues) {
        const size_t len = std::strlen(*v);
        size_t escaped = 0;
        for (const unsigned char *p = reinterpret_cast<const unsigned char *>(*v); *p; ++p) escaped += is_escaped(*p);
        if (!orv::size_add(size, len) || !orv::size_add(size, escaped) ||
            !orv::size_add(size, needs_quotes(*v) ? 2 : 0))
            return nullptr;
    }
    size_t separators = nvalues > 1 ? nvalues - 1 : 0;
    if (!orv::size_mul(separators, 4) || !orv::size_add(size, separators)) return nullptr;

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
    // NSPR's rule (letters fold upper case), not strcasecmp's: see
    // orv::ascii_casecmp.
    return PL_strcasecmp(sa, sb);
}

}  // extern "C"
