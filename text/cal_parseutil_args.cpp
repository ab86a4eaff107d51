// Argument strings, delimited lists, blank splitting, number reading, case
// conversion and the name search over argument vectors.
#include "orvutil/cal_parseutil.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <plstr.h>
#include <prmem.h>

#include "orv/ascii.hpp"

namespace {

// True when entry is "name" or starts with "name=", ignoring ASCII case.
bool arg_matches(const char *entry, std::string_view name) {
    const size_t n = ::strnlen(entry, name.size() + 1);
    if (n < name.size()) return false;
    if (!orv::ascii_iequal(std::string_view(entry, name.size()), name)) return false;
    return entry[name.size()] == '=' || entry[name.size()] == '\0';
}

// Value of a matching entry behind '=' and leading blanks; nullptr when the
// entry has no '='. An empty value gives the entry's terminator.
char *value_of(char *entry, size_t namelen) {
    if (entry[namelen] != '=') return nullptr;
    char *v = entry + namelen + 1;
    while (orv::ascii_isblank(static_cast<unsigned char>(*v))) ++v;
    return v;
}

char *lookup(char **vector, const char *name, bool empty_ok) {
    if (vector == nullptr || name == nullptr) return nullptr;
    const std::string_view n(name);
    for (; *vector != nullptr; ++vector) {
        if (!arg_matches(*vector, n)) continue;
        char *v = value_of(*vector, n.size());
        if (v == nullptr || (*v == '\0' && !empty_ok)) return nullptr;
        return v;
    }
    return nullptr;
}

// Walks the elements of a delimited list, honouring double quotes where a
// delimiter still follows. emit(begin, length) returns false to stop.
template <typename Emit>
bool split_list(const char *text, char delimiter, Emit emit) {
    const char *p = text;
    // The next quote is looked up again only once the walk has passed it, so
    // a long list without quotes is not rescanned for each element.
    const char *quote = std::strchr(p, '"');
    for (;;) {
        const char *delim = delimiter != '\0' ? std::strchr(p, delimiter) : nullptr;
        if (quote != nullptr && quote < p) quote = std::strchr(p, '"');
        if (quote != nullptr && delim != nullptr && quote < delim) {
            const char *close = std::strchr(quote + 1, '"');
            if (close == nullptr) return emit(quote + 1, std::strlen(quote + 1));
            if (!emit(quote + 1, static_cast<size_t>(close - quote - 1))) return false;
            // Text between the closing quote and the next delimiter is dropped.
            delim = std::strchr(close, delimiter);
            if (delim == nullptr) return true;
        } else if (delim == nullptr) {
            return emit(p, std::strlen(p));
        } else if (!emit(p, static_cast<size_t>(delim - p))) {
            return false;
        }
        p = delim + 1;
    }
}

void free_list(char **list, int count) {
    for (int i = 0; i < count; ++i)
        if (list[i] != nullptr) PL_strfree(list[i]);
    PR_Free(list);
}

constexpr int kListStep = 10;

int name_length(const char *entry) {
    const char *eq = std::strchr(entry, '=');
    const auto n = static_cast<size_t>(eq - entry);
    return n > INT_MAX ? INT_MAX : static_cast<int>(n);
}

}  // namespace

extern "C" {

int cal_parseutil_is_an_arg(char **vector, const char *name) noexcept {
    if (vector == nullptr || name == nullptr) return 0;
    const std::string_view n(name);
    for (; *vector != nullptr; ++vector)
        if (arg_matches(*vector, n)) return 1;
    return 0;
}

char *cal_parseutil_arg_value(char **vector, const char *name) noexcept { return lookup(vector, name, false); }

char *cal_parseutil_arg_value_or_empty(char **vector, const char *name) noexcept { return lookup(vector, name, true); }

char *cal_parseutil_arg_value_from_strarray(const array_t *array, const char *name) noexcept {
    if (array == nullptr || name == nullptr) return nullptr;
    const std::string_view n(name);
    const int count = array_count(array);
    for (int i = 0; i < count; ++i) {
        char *entry = strarray_elementat(array, i);
        if (entry == nullptr || !arg_matches(entry, n)) continue;
        char *v = value_of(entry, n.size());
        return v != nullptr && *v != '\0' ? v : nullptr;
    }
    return nullptr;
}

char *cal_parseutil_trim(char *s) noexcept {
    if (s == nullptr) return s;
    size_t n = std::strlen(s);
    while (n > 0 && orv::ascii_isblank(static_cast<unsigned char>(s[n - 1]))) --n;
    s[n] = '\0';
    return s;
}

int cal_parseutil_get_char_list(const char *text, char ***list, int *count, char delimiter) noexcept {
    if (list == nullptr || count == nullptr) return CAL_PARSEUTIL_LIST_E_ALLOC;
    *count = 0;
    *list = nullptr;
    if (text == nullptr) return 0;
    int capacity = kListStep;
    auto **items = static_cast<char **>(PR_Malloc(sizeof(char *) * kListStep));
    if (items == nullptr) return CAL_PARSEUTIL_LIST_E_ALLOC;
    int n = 0;
    int rc = 0;
    const bool complete = split_list(text, delimiter, [&](const char *from, size_t len) {
        if (n == capacity) {
            if (capacity > INT_MAX - kListStep) {
                rc = CAL_PARSEUTIL_LIST_E_GROW;
                return false;
            }
            const int grown = capacity + kListStep;
            auto **more = static_cast<char **>(PR_Realloc(items, sizeof(char *) * static_cast<size_t>(grown)));
            if (more == nullptr) {
                rc = CAL_PARSEUTIL_LIST_E_GROW;
                return false;
            }
            items = more;
            capacity = grown;
        }
        // PL_strndup takes a 32-bit length; longer elements cannot be copied.
        char *copy = len <= UINT32_MAX ? PL_strndup(from, static_cast<PRUint32>(len)) : nullptr;
        if (copy == nullptr) {
            rc = CAL_PARSEUTIL_LIST_E_ALLOC;
            return false;
        }
        items[n++] = copy;
        return true;
    });
    if (!complete) {
        free_list(items, n);
        return rc;
    }
    *list = items;
    *count = n;
    return 0;
}

int cal_parseutil_get_comma_list(const char *text, char ***list, int *count) noexcept {
    return cal_parseutil_get_char_list(text, list, count, ',');
}

int cal_parseutil_get_semicolon_list(const char *text, char ***list, int *count) noexcept {
    return cal_parseutil_get_char_list(text, list, count, ';');
}

int cal_parseutil_free_char_list(char ***list, int count) noexcept {
    if (list == nullptr) return CAL_PARSEUTIL_FREE_E_ADDRESS;
    if (*list == nullptr) return CAL_PARSEUTIL_FREE_E_NOLIST;
    free_list(*list, count);
    *list = nullptr;
    return 0;
}

int cal_parseutil_get_char_array(const char *text, char delimiter, array_t **array) noexcept {
    if (text == nullptr || array == nullptr) return 0;
    *array = array_new();
    if (*array == nullptr) return 0;
    array_t *a = *array;
    int rc = 0;
    split_list(text, delimiter, [&](const char *from, size_t len) {
        char *copy = static_cast<char *>(std::malloc(len + 1));
        if (copy == nullptr) {
            rc = CAL_PARSEUTIL_ARRAY_E_COPY;
            return false;
        }
        std::memcpy(copy, from, len);
        copy[len] = '\0';
        // The array takes the malloc'ed copy itself: strarray_append would
        // copy the piece once more.
        if (array_append(a, copy) != 0) {
            std::free(copy);
            rc = CAL_PARSEUTIL_ARRAY_E_COPY;
            return false;
        }
        return true;
    });
    return rc;
}

int cal_parseutil_get_comma_array(const char *text, array_t **array) noexcept {
    return cal_parseutil_get_char_array(text, ',', array);
}

int cal_parseutil_get_semicolon_array(const char *text, array_t **array) noexcept {
    return cal_parseutil_get_char_array(text, ';', array);
}

int cal_parseutil_to_calstrarray(array_t **array, int n, char **strings) noexcept {
    if (array == nullptr || (n > 0 && strings == nullptr)) return 0;
    if (n < 0) n = 0;
    array_t *a = array_new();
    if (a == nullptr) return 0;
    for (int i = 0; i < n; ++i) strarray_append(a, strings[i]);
    *array = a;
    return n;
}

int cal_parseutil_delimit_by_space_or_tab(char *text, array_t *array) noexcept {
    if (text == nullptr || array == nullptr) return 0;
    char *rest = text;
    while (rest != nullptr && *rest != '\0') {
        char *piece = strsep(&rest, " \t");
        strarray_append(array, piece);
    }
    return 0;
}

long cal_parseutil_getInteger(const char *s, long def) noexcept {
    if (s == nullptr) return def;
    const char *p = s;
    if (*p == '-' || *p == '+') ++p;
    for (const char *q = p; *q; ++q)
        if (!orv::ascii_isdigit(static_cast<unsigned char>(*q))) return def;
    if (*p == '\0') return 0;
    // strtol saturates where atol's result would be undefined.
    const int saved = errno;
    const long v = std::strtol(s, nullptr, 10);
    errno = saved;
    return v;
}

int cal_parseutil_getBool(const char *s) noexcept { return cal_parseutil_getInteger(s, 0) == 1 ? 1 : 0; }

char *cal_parseutil_str_tolower(char *s) noexcept {
    if (s == nullptr) return s;
    for (char *p = s; *p; ++p) *p = static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));
    return s;
}

char *cal_parseutil_str_toupper(char *s) noexcept {
    if (s == nullptr) return s;
    for (char *p = s; *p; ++p) *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
    return s;
}

int cal_parseutil_PrefixSearch(const char *entry, const char *pattern, int namelen) noexcept {
    if (entry == nullptr || pattern == nullptr) return -1;
    const size_t plen = std::strlen(pattern);
    if (namelen < 0 || plen > static_cast<size_t>(namelen)) return 1;
    return std::strncmp(entry, pattern, plen) == 0 ? 0 : -1;
}

int cal_parseutil_SuffixSearch(const char *entry, const char *pattern, int namelen) noexcept {
    if (entry == nullptr || pattern == nullptr) return -1;
    return namelen < 0 || std::strlen(pattern) > static_cast<size_t>(namelen) ? 1 : -1;
}

int cal_parseutil_ContainsSearch(const char *entry, const char *pattern, int namelen) noexcept {
    return cal_parseutil_SuffixSearch(entry, pattern, namelen);
}

int cal_parseutil_ExactSearch(const char *entry, const char *pattern, int namelen) noexcept {
    if (entry == nullptr || pattern == nullptr) return -1;
    return namelen < 0 || std::strlen(pattern) != static_cast<size_t>(namelen) ? 1 : -1;
}

int cal_parseutil_searchForString(char **vector, const char *pattern, int mode, array_t **array) noexcept {
    if (vector == nullptr || *vector == nullptr || pattern == nullptr || array == nullptr)
        return CAL_PARSEUTIL_SEARCH_E_ARG;
    if (*array == nullptr) {
        *array = array_new();
        if (*array == nullptr) return CAL_PARSEUTIL_SEARCH_E_ARRAY;
    }
    int (*matcher)(const char *, const char *, int) = cal_parseutil_ExactSearch;
    switch (mode) {
        case 1: matcher = cal_parseutil_PrefixSearch; break;
        case 2: matcher = cal_parseutil_SuffixSearch; break;
        case 3: matcher = cal_parseutil_ContainsSearch; break;
        default: break;
    }
    for (; *vector != nullptr; ++vector) {
        if (std::strchr(*vector, '=') == nullptr) continue;
        if (matcher(*vector, pattern, name_length(*vector)) == 0) strarray_append(*array, *vector);
    }
    return 0;
}

}  // extern "C"
