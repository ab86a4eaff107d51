// Helpers shared by the text family's sources (not installed).
#pragma once

#include <cstddef>
#include <cstdint>

namespace orv::text {

// n * per + extra, or false when that does not fit size_t.
constexpr bool scaled_size(size_t n, size_t per, size_t extra, size_t &out) {
    if (per != 0 && n > (SIZE_MAX - extra) / per) return false;
    out = n * per + extra;
    return true;
}

}  // namespace orv::text
