// The name/value dictionary over a platform string array (names) and
// pointer array (values).
#include "orvutil/cal_dict.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <vector>

#include "crc32.hpp"
#include "orv/ascii.hpp"
#include "orv/sizes.hpp"
#include "orv/strcopy.hpp"

namespace {

const char *name_at(const caldict *d, int i) { return strarray_elementat(d->names, i); }

// Exact lookup in a sorted dictionary; -1 when absent.
int binary_search(const caldict *d, const char *key) {
    int low = 0;
    int high = static_cast<int>(d->count) - 1;
    while (low <= high) {
        const int mid = low + (high - low) / 2;
        const char *name = name_at(d, mid);
        const int c = name == nullptr ? 1 : orv::ascii_casecmp(key, name);
        if (c == 0) return mid;
        if (c > 0)
            low = mid + 1;
        else
            high = mid - 1;
    }
    return -1;
}

// Where key belongs in a sorted dictionary: the index of the pair that equals
// it (*found = 1) or of the first pair above it, or -1 for "after the last".
int insert_point(const caldict *d, const char *key, bool *found) {
    *found = false;
    const int last = static_cast<int>(d->count) - 1;
    int low = 0;
    int high = last;
    auto cmp = [&](int i) {
        const char *name = name_at(d, i);
        return name == nullptr ? 1 : orv::ascii_casecmp(key, name);
    };
    while (low <= high) {
        if (low == high) {
            const int c = cmp(low);
            if (c <= 0) {
                *found = c == 0;
                return low;
            }
            return low + 1 > last ? -1 : low + 1;
        }
        const int mid = low + (high - low) / 2;
        const int c = cmp(mid);
        if (c == 0) {
            *found = true;
            return mid;
        }
        if (c > 0) {
            low = mid + 1;
        } else {
            high = mid - 1;
            if (high < low) return mid;
        }
    }
    return -1;
}

// Index of name as caldict_get finds it, or -1.
int find(const caldict *d, const char *name, int exactCase) {
    if (d == nullptr || name == nullptr) return -1;
    if (!d->sorted || exactCase) return strarray_indexof(d->names, name, exactCase ? 0 : 1);
    return binary_search(d, name);
}

// Stores name and value before index (-1 appends), both or neither.
int insert_pair(caldict *d, const char *name, void *value, int index) {
    if (index < 0) index = static_cast<int>(d->count);
    if (strarray_insert(d->names, index, name) != 0) return CALDICT_E_FAIL;
    if (array_insert(d->values, index, value) != 0) {
        std::free(array_removeat(d->names, index));
        return CALDICT_E_FAIL;
    }
    ++d->count;
    return 0;
}

void replace_value(caldict *d, int index, void *value, bool free_old) {
    void *old = array_elementat(d->values, index);
    array_modifyat(d->values, index, value);
    if (free_old && old != value) std::free(old);
}

int add_sorted(caldict *d, const char *name, void *value, int replace, bool free_old) {
    bool found;
    const int at = insert_point(d, name, &found);
    if (found) {
        if (replace) replace_value(d, at, value, free_old);
        return 0;
    }
    return insert_pair(d, name, value, at);
}

int add_pair(caldict *d, const char *name, void *value, int replace, bool free_old, bool sort_first) {
    if (d == nullptr || name == nullptr) return CALDICT_E_FAIL;
    if (!d->sorted && sort_first) {
        caldict_sort(d);
        if (!d->sorted) return CALDICT_E_FAIL;
    }
    if (d->sorted) return add_sorted(d, name, value, replace, free_old);
    const int at = strarray_indexof(d->names, name, 0);
    if (at >= 0) {
        if (replace) replace_value(d, at, value, free_old);
        return 0;
    }
    if (insert_pair(d, name, value, -1) != 0) return CALDICT_E_FAIL;
    d->sorted = 0;
    return 0;
}

caldict *new_dict(int sorted) {
    auto *d = static_cast<caldict *>(std::calloc(1, sizeof(caldict)));
    if (d == nullptr) return nullptr;
    d->names = array_new();
    d->values = array_new();
    if (d->names == nullptr || d->values == nullptr) {
        array_delete(d->names);
        array_delete(d->values);
        std::free(d);
        return nullptr;
    }
    d->sorted = sorted;
    return d;
}

// Adds name -> malloc copy of value to an unsorted dictionary with
// replacement, the replaced copy freed; false when memory runs out. The
// string array owns malloc'ed names, so the name copy is stored as it is.
bool add_copy(caldict *d, std::string_view name, std::string_view value) {
    char *key = orv::dup_string(name);
    char *copy = orv::dup_string(value);
    if (key == nullptr || copy == nullptr) {
        std::free(key);
        std::free(copy);
        return false;
    }
    const int at = strarray_indexof(d->names, key, 0);
    if (at >= 0) {
        std::free(key);
        replace_value(d, at, copy, true);
        return true;
    }
    if (array_append(d->names, key) != 0) {
        std::free(key);
        std::free(copy);
        return false;
    }
    if (array_append(d->values, copy) != 0) {
        std::free(array_removeat(d->names, static_cast<int>(d->count)));
        std::free(copy);
        return false;
    }
    ++d->count;
    d->sorted = 0;
    return true;
}

// The pair parser behind caldict_create_from_string, over a bounded text.
caldict *parse_pairs(std::string_view s, char sep) {
    caldict *d = caldict_create();
    if (d == nullptr) return nullptr;
    size_t pos = 0;
    while (pos < s.size()) {
        const size_t eq = s.find('=', pos);
        if (eq == std::string_view::npos || eq == pos) break;
        const size_t end = sep == '\0' ? std::string_view::npos : s.find(sep, pos);
        if (end != std::string_view::npos && end <= eq) {
            // The separator stands inside the name: skip that piece.
            pos = end + 1;
            continue;
        }
        const std::string_view name = s.substr(pos, eq - pos);
        const std::string_view value =
            end == std::string_view::npos ? s.substr(eq + 1) : s.substr(eq + 1, end - eq - 1);
        if (!add_copy(d, name, value)) {
            caldict_delete_all(d, std::free);
            return nullptr;
        }
        if (end == std::string_view::npos) break;
        pos = end + 1;
    }
    return d;
}

const char *value_text(const caldict *d, int i) {
    const auto *v = static_cast<const char *>(array_elementat(d->values, i));
    return v == nullptr ? "" : v;
}

const char *name_text(const caldict *d, int i) {
    const char *n = name_at(d, i);
    return n == nullptr ? "" : n;
}

}  // namespace

extern "C" {

caldict *caldict_create(void) noexcept { return new_dict(0); }

caldict *caldict_create_sort(void) noexcept { return new_dict(1); }

caldict *caldict_create_from_string(const char *s, char sep) noexcept {
    if (s == nullptr) return nullptr;
    return parse_pairs(s, sep);
}

caldict *caldict_create_from_url(const char *url) noexcept {
    if (url == nullptr) return nullptr;
    const char *q = std::strchr(url, '?');
    if (q == nullptr) return nullptr;
    std::string_view query(q + 1);
    const size_t hash = query.find('#');
    // The '#' itself stays in the parsed text, so the last value ends with it.
    if (hash != std::string_view::npos) query = query.substr(0, hash + 1);
    return parse_pairs(query, '&');
}

caldict *caldict_create_from_argv(char **argv) noexcept {
    if (argv == nullptr || argv[0] == nullptr) return nullptr;
    caldict *d = caldict_create();
    if (d == nullptr) return nullptr;
    for (char **arg = argv; *arg != nullptr; ++arg) {
        const std::string_view text(*arg);
        const size_t eq = text.find('=');
        if (eq == std::string_view::npos) continue;
        size_t v = eq + 1;
        while (v < text.size() && orv::ascii_isblank(static_cast<unsigned char>(text[v]))) ++v;
        if (!add_copy(d, text.substr(0, eq), text.substr(v))) {
            caldict_delete_all(d, std::free);
            return nullptr;
        }
    }
    return d;
}

void caldict_delete(caldict *d) noexcept { caldict_delete_all(d, nullptr); }

void caldict_delete_all(caldict *d, void (*freeValue)(void *)) noexcept {
    if (d == nullptr) return;
    strarray_free_and_destroy(d->names);
    if (freeValue != nullptr) {
        const int n = array_count(d->values);
        for (int i = 0; i < n; ++i) freeValue(array_elementat(d->values, i));
    }
    array_delete(d->values);
    std::free(d);
}

int caldict_add(caldict *d, const char *name, void *value, int replace) noexcept {
    return add_pair(d, name, value, replace, false, false);
}

int caldict_add_string(caldict *d, const char *name, char *value, int replace) noexcept {
    return add_pair(d, name, value, replace, true, false);
}

int caldict_add_sort(caldict *d, const char *name, void *value, int replace) noexcept {
    return add_pair(d, name, value, replace, false, true);
}

int caldict_add_sort_string(caldict *d, const char *name, char *value, int replace) noexcept {
    return add_pair(d, name, value, replace, true, true);
}

int caldict_insert(caldict *d, const char *name, void *value, int index) noexcept {
    if (d == nullptr || name == nullptr) return CALDICT_E_FAIL;
    if (index > static_cast<int>(d->count)) return CALDICT_E_FAIL;
    return insert_pair(d, name, value, index);
}

void *caldict_get(const caldict *d, const char *name, int exactCase) noexcept {
    const int at = find(d, name, exactCase);
    return at < 0 ? nullptr : array_elementat(d->values, at);
}

void *caldict_get_extended(caldict *d, const char *name, int *index) noexcept {
    int dummy;
    if (index == nullptr) index = &dummy;
    *index = -1;
    if (d == nullptr || name == nullptr) return nullptr;
    if (!d->sorted) caldict_sort(d);
    bool found;
    *index = insert_point(d, name, &found);
    return found ? array_elementat(d->values, *index) : nullptr;
}

int caldict_remove(caldict *d, const char *name, int exactCase) noexcept {
    const int at = find(d, name, exactCase);
    if (at < 0) return CALDICT_E_FAIL;
    std::free(array_removeat(d->names, at));
    array_removeat(d->values, at);
    --d->count;
    return 0;
}

caldict *caldict_match_name_fragment(const caldict *d, const char *fragment, size_t n, int caseSensitive) noexcept {
    if (d == nullptr || fragment == nullptr || *fragment == '\0' || n == 0) return nullptr;
    caldict *out = nullptr;
    for (int i = 0; i < static_cast<int>(d->count); ++i) {
        const char *name = name_at(d, i);
        if (name == nullptr) continue;
        const int c = caseSensitive ? std::strncmp(name, fragment, n) : orv::ascii_ncasecmp(name, fragment, n);
        if (c != 0) continue;
        if (out == nullptr && (out = caldict_create()) == nullptr) return nullptr;
        if (caldict_add(out, name, array_elementat(d->values, i), 1) != 0) {
            caldict_delete(out);
            return nullptr;
        }
    }
    return out;
}

uint32_t caldict_length(const caldict *d) noexcept { return d == nullptr ? 0 : d->count; }

int caldict_isSorted(const caldict *d) noexcept { return d == nullptr ? 0 : d->sorted; }

char *caldict_get_indexed_name(const caldict *d, int i) noexcept {
    if (d == nullptr || i > array_count(d->names)) return nullptr;
    return strarray_elementat(d->names, i);
}

void *caldict_get_indexed_value(const caldict *d, int i) noexcept {
    if (d == nullptr || i > array_count(d->values)) return nullptr;
    return array_elementat(d->values, i);
}

int caldict_get_indexed(const caldict *d, int i, char **name, void **value) noexcept {
    const bool in_range = d != nullptr && i >= 0 && i < static_cast<int>(d->count);
    if (name != nullptr) *name = in_range ? strarray_elementat(d->names, i) : nullptr;
    if (value != nullptr) *value = in_range ? array_elementat(d->values, i) : nullptr;
    return in_range ? CALDICT_OK : CALDICT_E_FAIL;
}

char *caldict_get_as_string(const caldict *d) noexcept {
    if (d == nullptr || d->count == 0) return nullptr;
    const int n = static_cast<int>(d->count);
    size_t size = 0;
    for (int i = 0; i < n; ++i) {
        const size_t pair = std::strlen(name_text(d, i)) + std::strlen(value_text(d, i)) + 2;
        if (!orv::size_add(size, pair)) return nullptr;
    }
    auto *out = static_cast<char *>(std::malloc(size));
    if (out == nullptr) return nullptr;
    char *p = out;
    for (int i = 0; i < n; ++i) {
        if (i > 0) *p++ = '&';
        for (const char *part : {name_text(d, i), "=", value_text(d, i)}) {
            const size_t len = std::strlen(part);
            std::memcpy(p, part, len);
            p += len;
        }
    }
    *p = '\0';
    return out;
}

char **caldict_get_as_argv(const caldict *d) noexcept {
    if (d == nullptr || d->count == 0) return nullptr;
    const size_t n = d->count;
    auto **argv = static_cast<char **>(std::calloc(n + 1, sizeof(char *)));
    if (argv == nullptr) return nullptr;
    for (size_t i = 0; i < n; ++i) {
        const std::string_view name = name_text(d, static_cast<int>(i));
        const std::string_view value = value_text(d, static_cast<int>(i));
        argv[i] = static_cast<char *>(std::malloc(name.size() + value.size() + 2));
        if (argv[i] == nullptr) {
            caldict_argv_destroy(argv);
            std::free(argv);
            return nullptr;
        }
        std::memcpy(argv[i], name.data(), name.size());
        argv[i][name.size()] = '=';
        std::memcpy(argv[i] + name.size() + 1, value.data(), value.size());
        argv[i][name.size() + 1 + value.size()] = '\0';
    }
    return argv;
}

void caldict_argv_destroy(char **argv) noexcept {
    if (argv == nullptr) return;
    for (char **p = argv; *p != nullptr; ++p) {
        std::free(*p);
        *p = nullptr;
    }
}

caldict *caldict_copy(const caldict *d, char *(*copyValue)(const char *)) noexcept {
    if (d == nullptr || copyValue == nullptr) return nullptr;
    caldict *out = new_dict(d->sorted);
    if (out == nullptr) return nullptr;
    for (int i = 0; i < static_cast<int>(d->count); ++i) {
        char *value = copyValue(static_cast<const char *>(array_elementat(d->values, i)));
        if (insert_pair(out, name_at(d, i), value, -1) != 0) {
            std::free(value);
            caldict_delete_all(out, std::free);
            return nullptr;
        }
    }
    return out;
}

caldict *caldict_copy_str(const caldict *d) noexcept {
    if (d == nullptr) return nullptr;
    caldict *out = caldict_create();
    if (out == nullptr) return nullptr;
    for (int i = 0; i < static_cast<int>(d->count); ++i) {
        const char *name = name_at(d, i);
        if (name == nullptr) continue;
        if (!add_copy(out, name, value_text(d, i))) {
            caldict_delete_all(out, std::free);
            return nullptr;
        }
    }
    out->sorted = d->sorted;
    return out;
}

void caldict_sort(caldict *d) noexcept {
    if (d == nullptr) return;
    const size_t n = d->count;
    std::vector<int> order;
    try {
        order.resize(n);
    } catch (const std::bad_alloc &) {
        d->sorted = 1;  // marked sorted without sorting, kept on purpose
        return;
    }
    for (size_t i = 0; i < n; ++i) order[i] = static_cast<int>(i);
    std::stable_sort(order.begin(), order.end(), [d](int a, int b) {
        const char *na = name_at(d, a);
        const char *nb = name_at(d, b);
        if (na == nullptr || nb == nullptr) return na == nullptr && nb != nullptr;
        return orv::ascii_casecmp(na, nb) < 0;
    });
    std::vector<void *> names;
    std::vector<void *> values;
    try {
        names.resize(n);
        values.resize(n);
    } catch (const std::bad_alloc &) {
        return;  // left as it was
    }
    for (size_t i = 0; i < n; ++i) {
        names[i] = array_elementat(d->names, order[i]);
        values[i] = array_elementat(d->values, order[i]);
    }
    for (size_t i = 0; i < n; ++i) {
        array_modifyat(d->names, static_cast<int>(i), names[i]);
        array_modifyat(d->values, static_cast<int>(i), values[i]);
    }
    d->sorted = 1;
}

uint32_t caldict_get_CRC32(const caldict *d) noexcept {
    if (d == nullptr || d->count == 0) return 0;
    uint32_t crc = orv::kCrc32Start;
    for (int i = 0; i < static_cast<int>(d->count); ++i) {
        for (const auto *text : {name_at(d, i), static_cast<const char *>(array_elementat(d->values, i))}) {
            if (text == nullptr) continue;
            crc = orv::crc32_update(crc, text, std::strlen(text));
        }
    }
    return orv::crc32_finish(crc);
}

}  // extern "C"
