// The name/value dictionary over a platform string array (names) and
// pointer array (values).
#include "orvutil/cal_dict.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string_view>
#include <vector>

#include "orv/ascii.hpp"

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#endif

namespace {

// strcasecmp over ASCII letters only, so the caller's locale plays no part.
int casecmp(const char *a, const char *b) {
    for (;; ++a, ++b) {
        const int ca = orv::ascii_tolower(static_cast<unsigned char>(*a));
        const int cb = orv::ascii_tolower(static_cast<unsigned char>(*b));
        if (ca != cb || ca == 0) return ca - cb;
    }
}

int ncasecmp(const char *a, const char *b, size_t n) {
    for (; n > 0; --n, ++a, ++b) {
        const int ca = orv::ascii_tolower(static_cast<unsigned char>(*a));
        const int cb = orv::ascii_tolower(static_cast<unsigned char>(*b));
        if (ca != cb || ca == 0) return ca - cb;
    }
    return 0;
}

const char *name_at(const caldict *d, int i) { return strarray_elementat(d->names, i); }

// Exact lookup in a sorted dictionary; -1 when absent.
int binary_search(const caldict *d, const char *key) {
    int low = 0;
    int high = static_cast<int>(d->count) - 1;
    while (low <= high) {
        const int mid = low + (high - low) / 2;
        const char *name = name_at(d, mid);
        const int c = name == nullptr ? 1 : casecmp(key, name);
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
        return name == nullptr ? 1 : casecmp(key, name);
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
    if (strarray_insert(d->names, index, name) != 0) return -1;
    if (array_insert(d->values, index, value) != 0) {
        std::free(array_removeat(d->names, index));
        return -1;
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
    if (d == nullptr || name == nullptr) return -1;
    if (!d->sorted && sort_first) {
        caldict_sort(d);
        if (!d->sorted) return -1;
    }
    if (d->sorted) return add_sorted(d, name, value, replace, free_old);
    const int at = strarray_indexof(d->names, name, 0);
    if (at >= 0) {
        if (replace) replace_value(d, at, value, free_old);
        return 0;
    }
    if (insert_pair(d, name, value, -1) != 0) return -1;
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

char *copy_text(std::string_view text) {
    auto *copy = static_cast<char *>(std::malloc(text.size() + 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

// Adds name -> malloc copy of value to an unsorted dictionary with
// replacement, the replaced copy freed; false when memory runs out. The
// string array owns malloc'ed names, so the name copy is stored as it is.
bool add_copy(caldict *d, std::string_view name, std::string_view value) {
    char *key = copy_text(name);
    char *copy = copy_text(value);
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

// Slicing-by-8 tables of the reflected CRC-32; table[0] is the classic
// byte-at-a-time table.
struct CrcTables {
    uint32_t t[8][256];
};

const CrcTables &crc_tables() {
    static CrcTables tables;
    static std::once_flag once;
    std::call_once(once, [] {
        for (uint32_t b = 0; b < 256; ++b) {
            uint32_t c = b;
            for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            tables.t[0][b] = c;
        }
        for (uint32_t b = 0; b < 256; ++b)
            for (int s = 1; s < 8; ++s)
                tables.t[s][b] = (tables.t[s - 1][b] >> 8) ^ tables.t[0][tables.t[s - 1][b] & 0xff];
    });
    return tables;
}

// Runs the (already complemented) register over n bytes, eight at a time.
uint32_t crc_slice8(const CrcTables &tab, uint32_t crc, const unsigned char *p, size_t n) {
    const auto &t = tab.t;
    while (n >= 8) {
        uint32_t lo;
        uint32_t hi;
        std::memcpy(&lo, p, 4);
        std::memcpy(&hi, p + 4, 4);
        if constexpr (std::endian::native == std::endian::big) {
            lo = __builtin_bswap32(lo);
            hi = __builtin_bswap32(hi);
        }
        lo ^= crc;
        crc = t[7][lo & 0xff] ^ t[6][(lo >> 8) & 0xff] ^ t[5][(lo >> 16) & 0xff] ^ t[4][lo >> 24] ^ t[3][hi & 0xff] ^
              t[2][(hi >> 8) & 0xff] ^ t[1][(hi >> 16) & 0xff] ^ t[0][hi >> 24];
        p += 8;
        n -= 8;
    }
    while (n-- > 0) crc = t[0][(crc ^ *p++) & 0xff] ^ (crc >> 8);
    return crc;
}

#if defined(__x86_64__) && defined(__GNUC__)
// One fold step: x times the two halves of k, added to the next block.
__attribute__((target("pclmul,sse4.1"))) inline __m128i fold(__m128i x, __m128i k, __m128i next) {
    const __m128i lo = _mm_clmulepi64_si128(x, k, 0x00);
    const __m128i hi = _mm_clmulepi64_si128(x, k, 0x11);
    return _mm_xor_si128(_mm_xor_si128(hi, lo), next);
}

// Carry-less multiplication folding of the reflected CRC-32: four 128-bit
// lanes folded 64 bytes at a time, then down to one lane, then reduced to
// 32 bits by Barrett reduction. Takes n >= 64, a multiple of 16.
__attribute__((target("pclmul,sse4.1"))) uint32_t crc_fold(uint32_t crc, const unsigned char *p, size_t n) {
    alignas(16) static const uint64_t k1k2[] = {0x0154442bd4, 0x01c6e41596};
    alignas(16) static const uint64_t k3k4[] = {0x01751997d0, 0x00ccaa009e};
    alignas(16) static const uint64_t k5k0[] = {0x0163cd6124, 0x0000000000};
    alignas(16) static const uint64_t poly[] = {0x01db710641, 0x01f7011641};
    auto load = [](const unsigned char *q) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(q)); };
    __m128i x1 = _mm_xor_si128(load(p), _mm_cvtsi32_si128(static_cast<int>(crc)));
    __m128i x2 = load(p + 16);
    __m128i x3 = load(p + 32);
    __m128i x4 = load(p + 48);
    p += 64;
    n -= 64;
    __m128i k = _mm_load_si128(reinterpret_cast<const __m128i *>(k1k2));
    while (n >= 64) {
        x1 = fold(x1, k, load(p));
        x2 = fold(x2, k, load(p + 16));
        x3 = fold(x3, k, load(p + 32));
        x4 = fold(x4, k, load(p + 48));
        p += 64;
        n -= 64;
    }
    k = _mm_load_si128(reinterpret_cast<const __m128i *>(k3k4));
    x1 = fold(x1, k, x2);
    x1 = fold(x1, k, x3);
    x1 = fold(x1, k, x4);
    while (n >= 16) {
        x1 = fold(x1, k, load(p));
        p += 16;
        n -= 16;
    }
    // 128 bits to 64.
    const __m128i mask = _mm_setr_epi32(~0, 0, ~0, 0);
    __m128i x2b = _mm_clmulepi64_si128(x1, k, 0x10);
    x1 = _mm_xor_si128(_mm_srli_si128(x1, 8), x2b);
    k = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(k5k0));
    x2b = _mm_srli_si128(x1, 4);
    x1 = _mm_xor_si128(_mm_clmulepi64_si128(_mm_and_si128(x1, mask), k, 0x00), x2b);
    // Barrett reduction to 32 bits.
    k = _mm_load_si128(reinterpret_cast<const __m128i *>(poly));
    x2b = _mm_clmulepi64_si128(_mm_and_si128(x1, mask), k, 0x10);
    x2b = _mm_clmulepi64_si128(_mm_and_si128(x2b, mask), k, 0x00);
    x1 = _mm_xor_si128(x1, x2b);
    return static_cast<uint32_t>(_mm_extract_epi32(x1, 1));
}

bool has_clmul() {
    static const bool yes = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
    return yes;
}
#endif

uint32_t crc_update(const CrcTables &tab, uint32_t crc, const unsigned char *p, size_t n) {
#if defined(__x86_64__) && defined(__GNUC__)
    if (n >= 64 && has_clmul()) {
        const size_t bulk = n & ~static_cast<size_t>(15);
        crc = crc_fold(crc, p, bulk);
        p += bulk;
        n -= bulk;
    }
#endif
    return crc_slice8(tab, crc, p, n);
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
    if (d == nullptr || name == nullptr) return -1;
    if (index > static_cast<int>(d->count)) return -1;
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
    if (at < 0) return -1;
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
        const int c = caseSensitive ? std::strncmp(name, fragment, n) : ncasecmp(name, fragment, n);
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
    return in_range ? 0 : -1;
}

char *caldict_get_as_string(const caldict *d) noexcept {
    if (d == nullptr || d->count == 0) return nullptr;
    const int n = static_cast<int>(d->count);
    size_t size = 0;
    for (int i = 0; i < n; ++i) {
        const size_t pair = std::strlen(name_text(d, i)) + std::strlen(value_text(d, i)) + 2;
        if (size > SIZE_MAX - pair) return nullptr;
        size += pair;
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
        return casecmp(na, nb) < 0;
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
    const CrcTables &tab = crc_tables();
    uint32_t crc = 0xFFFFFFFFu;
    for (int i = 0; i < static_cast<int>(d->count); ++i) {
        for (const auto *text : {name_at(d, i), static_cast<const char *>(array_elementat(d->values, i))}) {
            if (text == nullptr) continue;
            crc = crc_update(tab, crc, reinterpret_cast<const unsigned char *>(text), std::strlen(text));
        }
    }
    return crc ^ 0xFFFFFFFFu;
}

}  // extern "C"
