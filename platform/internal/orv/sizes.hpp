// Size arithmetic that refuses to wrap. One form throughout: the result goes
// to the first argument, and the call is false, leaving it unchanged, when
// the result would not fit size_t.
#pragma once

#include <cstddef>

namespace orv {

constexpr bool size_add(size_t &size, size_t n) {
    size_t sum = 0;
    if (__builtin_add_overflow(size, n, &sum)) return false;
    size = sum;
    return true;
}

constexpr bool size_mul(size_t &size, size_t n) {
    size_t product = 0;
    if (__builtin_mul_overflow(size, n, &product)) return false;
    size = product;
    return true;
}

}  // namespace orv
