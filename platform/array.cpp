// Growable pointer arrays and owned string arrays.
#include "orvutil/platform/array.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "orv/ascii.hpp"

struct array_t {
    std::vector<void *> items;
};

namespace {

bool in_range(const array_t *a, int index) {
    return a != nullptr && index >= 0 && static_cast<size_t>(index) < a->items.size();
}

// A malloc copy of s; *ok is false only when memory ran out.
char *copy_string(const char *s, bool *ok) {
    *ok = true;
    if (s == nullptr) return nullptr;
    char *copy = strdup(s);
    if (copy == nullptr) *ok = false;
    return copy;
}

bool names_equal(const char *a, const char *b, int flag) {
    if (a == nullptr || b == nullptr) return a == b;
    return flag == 1 ? orv::ascii_iequal(a, b) : std::strcmp(a, b) == 0;
}

}  // namespace

extern "C" {

array_t *array_new(void) noexcept { return new (std::nothrow) array_t; }

int array_count(const array_t *a) noexcept { return a == nullptr ? 0 : static_cast<int>(a->items.size()); }

int array_append(array_t *a, void *element) noexcept { return array_insert(a, array_count(a), element); }

int array_insert(array_t *a, int index, void *element) noexcept {
    if (a == nullptr || index < 0 || static_cast<size_t>(index) > a->items.size()) return -1;
    try {
        a->items.insert(a->items.begin() + index, element);
    } catch (const std::bad_alloc &) {
        return -1;
    }
    return 0;
}

int array_modifyat(array_t *a, int index, void *element) noexcept {
    if (!in_range(a, index)) return -1;
    a->items[static_cast<size_t>(index)] = element;
    return 0;
}

void *array_removeat(array_t *a, int index) noexcept {
    if (!in_range(a, index)) return nullptr;
    void *element = a->items[static_cast<size_t>(index)];
    a->items.erase(a->items.begin() + index);
    return element;
}

void *array_elementat(const array_t *a, int index) noexcept {
    return in_range(a, index) ? a->items[static_cast<size_t>(index)] : nullptr;
}

void array_qsort(array_t *a, array_sortcmp cmp) noexcept {
    if (a == nullptr || cmp == nullptr || a->items.empty()) return;
    std::qsort(a->items.data(), a->items.size(), sizeof(void *), cmp);
}

int array_locate(const array_t *a, const void *key, array_findcmp cmp) noexcept {
    if (a == nullptr || cmp == nullptr) return -1;
    for (size_t i = 0; i < a->items.size(); ++i)
        if (cmp(key, a->items[i]) == 0) return static_cast<int>(i);
    return -1;
}

void array_delete(array_t *a) noexcept { delete a; }

void array_free_and_destroy(array_t *a) noexcept {
    if (a == nullptr) return;
    for (void *element : a->items) std::free(element);
    delete a;
}

int strarray_append(array_t *a, const char *s) noexcept { return strarray_insert(a, array_count(a), s); }

int strarray_insert(array_t *a, int index, const char *s) noexcept {
    if (a == nullptr) return -1;
    bool ok;
    char *copy = copy_string(s, &ok);
    if (!ok) return -1;
    if (array_insert(a, index, copy) != 0) {
        std::free(copy);
        return -1;
    }
    return 0;
}

int strarray_modifyat(array_t *a, int index, const char *s) noexcept {
    if (!in_range(a, index)) return -1;
    bool ok;
    char *copy = copy_string(s, &ok);
    if (!ok) return -1;
    std::free(a->items[static_cast<size_t>(index)]);
    a->items[static_cast<size_t>(index)] = copy;
    return 0;
}

char *strarray_elementat(const array_t *a, int index) noexcept {
    return static_cast<char *>(array_elementat(a, index));
}

int strarray_indexof(const array_t *a, const char *s, int flag) noexcept {
    if (a == nullptr) return -1;
    for (size_t i = 0; i < a->items.size(); ++i)
        if (names_equal(static_cast<const char *>(a->items[i]), s, flag)) return static_cast<int>(i);
    return -1;
}

int strarray_lastof(const array_t *a, const char *s, int flag) noexcept {
    if (a == nullptr) return -1;
    for (size_t i = a->items.size(); i-- > 0;)
        if (names_equal(static_cast<const char *>(a->items[i]), s, flag)) return static_cast<int>(i);
    return -1;
}

array_t *strarray_dup(const array_t *a) noexcept {
    if (a == nullptr) return nullptr;
    array_t *copy = array_new();
    if (copy == nullptr) return nullptr;
    for (void *element : a->items) {
        if (strarray_append(copy, static_cast<const char *>(element)) != 0) {
            strarray_free_and_destroy(copy);
            return nullptr;
        }
    }
    return copy;
}

void strarray_free_and_destroy(array_t *a) noexcept { array_free_and_destroy(a); }

}  // extern "C"
