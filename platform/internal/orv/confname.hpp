// Hashing and comparing configuration names, which ignore ASCII case.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "orv/ascii.hpp"

namespace orv {

// OR-ing 0x20 into every byte maps 'A'-'Z' onto 'a'-'z' (it folds a few
// other bytes too, which only costs a rare extra comparison). Eight bytes at
// a time.
inline uint64_t confname_hash(const char *name, size_t len) {
    constexpr uint64_t fold = 0x2020202020202020ull;
    uint64_t h = len * 0x9e3779b97f4a7c15ull;
    size_t i = 0;
    for (; i + 8 <= len; i += 8) {
        uint64_t w;
        std::memcpy(&w, name + i, 8);
        h = (h ^ (w | fold)) * 0xff51afd7ed558ccdull;
        h ^= h >> 32;
    }
    uint64_t w = 0;
    std::memcpy(&w, name + i, len - i);
    h = (h ^ (w | fold)) * 0xc4ceb9fe1a85ec53ull;
    return h ^ (h >> 29);
}

inline bool confname_equal(const char *a, const char *b, size_t len) {
    return std::memcmp(a, b, len) == 0 || ascii_iequal(std::string_view(a, len), std::string_view(b, len));
}

}  // namespace orv
