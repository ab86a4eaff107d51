// Hashing, comparing and indexing configuration names, which ignore ASCII
// case.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

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

namespace orv {

// Open-addressing index from configuration names (ASCII case ignored) to the
// position of the last entry of each name. The names stay with the caller:
// name_of(i) gives entry i's name as a std::string_view, so the index holds
// only positions and hashes and building it allocates once. Growing throws
// std::bad_alloc like any vector.
class ConfNameIndex {
  public:
    static constexpr long kAbsent = -1;

    // Empties the index and makes room for n entries without growing.
    void reset(size_t n) {
        size_t size = 16;
        while (size < 2 * n + 2) size *= 2;
        slots_.assign(size, Slot{0, 0});
        used_ = 0;
    }

    // Records entry i under its name; it replaces an earlier entry of that
    // name, so entries are put in order and a look-up finds the last.
    template <class NameOf>
    void put(size_t i, NameOf name_of) {
        if (2 * (used_ + 1) > slots_.size()) grow();
        const std::string_view name = name_of(i);
        const uint32_t hash = hash_of(name);
        Slot &slot = slots_[probe(name, hash, name_of)];
        if (slot.entry == 0) ++used_;
        slot = Slot{static_cast<uint32_t>(i + 1), hash};
    }

    // The position of the last entry called name, or kAbsent.
    template <class NameOf>
    long find(std::string_view name, NameOf name_of) const {
        if (slots_.empty()) return kAbsent;
        const Slot &slot = slots_[probe(name, hash_of(name), name_of)];
        return slot.entry == 0 ? kAbsent : static_cast<long>(slot.entry) - 1;
    }

  private:
    struct Slot {
        uint32_t entry;  // position + 1, or 0 when empty
        uint32_t hash;   // the name's hash: the low bits place it, all of them end most mismatches
    };

    static uint32_t hash_of(std::string_view name) {
        const uint64_t h = confname_hash(name.data(), name.size());
        return static_cast<uint32_t>(h ^ (h >> 32));
    }

    // The slot holding name, or the empty slot where it would go.
    template <class NameOf>
    size_t probe(std::string_view name, uint32_t hash, NameOf name_of) const {
        const size_t mask = slots_.size() - 1;
        for (size_t at = hash & mask;; at = (at + 1) & mask) {
            const Slot &slot = slots_[at];
            if (slot.entry == 0) return at;
            if (slot.hash != hash) continue;
            const std::string_view other = name_of(slot.entry - 1);
            if (other.size() == name.size() && confname_equal(other.data(), name.data(), name.size())) return at;
        }
    }

    // Doubles the table, placing the slots again by their stored hashes.
    void grow() {
        std::vector<Slot> old(std::max<size_t>(16, 2 * slots_.size()), Slot{0, 0});
        old.swap(slots_);
        const size_t mask = slots_.size() - 1;
        for (const Slot &slot : old) {
            if (slot.entry == 0) continue;
            size_t at = slot.hash & mask;
            while (slots_[at].entry != 0) at = (at + 1) & mask;
            slots_[at] = slot;
        }
    }

    std::vector<Slot> slots_;
    size_t used_ = 0;
};

}  // namespace orv
