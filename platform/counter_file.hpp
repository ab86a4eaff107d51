// The layout of a counter object's file and the mapping of one, shared by
// the counter calls (counter.cpp) and the file code (counter_file.cpp).
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "orvutil/platform/counter.h"

namespace orv::counter {

inline constexpr uint64_t kMagic = 0x31544e43564e524full;  // "ORNVCNT1" read as bytes
inline constexpr uint32_t kVersion = 1;
inline constexpr size_t kLine = 64;  // rows start on their own cache lines

// Every field has a fixed size and offset; the file is read by processes of
// the same machine only, so native byte order.
struct FileHeader {
    uint64_t magic;
    uint32_t version;
    uint32_t header_size;  // sizeof(FileHeader)
    uint64_t file_size;
    uint64_t generation;
    uint32_t ncounters;
    uint32_t nslots;
    uint64_t claims;  // atomic: a number for every claim of a slot
    char object[COUNTER_NAME_SIZE];
    uint8_t reserved[128 - 48 - COUNTER_NAME_SIZE];
};
static_assert(sizeof(FileHeader) == 128);

struct CounterDesc {
    char name[COUNTER_NAME_SIZE];
    uint32_t kind;
    uint32_t reserved;
    char help[COUNTER_HELP_SIZE];
};
static_assert(sizeof(CounterDesc) == 168);

// state (atomic): low two bits the phase, the rest its detail:
// kFree; kClaiming with the claimer's pid (reclaimable when it died);
// kUsed with the claim's number, so a slot taken over in between is noticed.
struct Slot {
    uint64_t state;
    uint64_t owner_start;  // the owner's start time (clock ticks after boot); 0: no owner
    uint32_t owner_pid;
    uint32_t reserved;
    char name[COUNTER_NAME_SIZE];
    uint8_t pad[64 - 24 - COUNTER_NAME_SIZE];
};
static_assert(sizeof(Slot) == 64);

inline constexpr uint64_t kFree = 0, kClaiming = 1, kUsed = 2, kPhase = 3;

struct Layout {
    size_t descs, slots, values, row_stride, size;
};
inline size_t round_to_line(size_t n) { return (n + kLine - 1) / kLine * kLine; }

// Offsets for these counts; the counts are bounded, so nothing overflows.
inline Layout layout_for(uint32_t ncounters, uint32_t nslots) {
    Layout l;
    l.descs = sizeof(FileHeader);
    l.slots = round_to_line(l.descs + size_t{ncounters} * sizeof(CounterDesc));
    l.values = l.slots + size_t{nslots} * sizeof(Slot);
    l.row_stride = round_to_line(size_t{ncounters} * sizeof(uint64_t));
    l.size = l.values + size_t{nslots} * l.row_stride;
    return l;
}

// A mapped file: header, descriptors, slots and values point into it.
struct Mapping {
    void *base = nullptr;
    size_t size = 0;
    bool writable = false;
    dev_t dev = 0;
    ino_t ino = 0;
    FileHeader *header = nullptr;
    CounterDesc *descs = nullptr;
    Slot *slots = nullptr;
    uint8_t *values = nullptr;
    size_t row_stride = 0;

    uint64_t *row(uint32_t slot) const { return reinterpret_cast<uint64_t *>(values + slot * row_stride); }
    void unmap();
};

// Maps and checks the file at path: 0 or COUNTER_ENOTFOUND, _EIO,
// _EFOREIGN, _ECORRUPT. Nothing beyond the file's size is ever touched.
int map_file(const std::string &path, bool writable, Mapping *m);

// A counter as configured.
struct Desc {
    std::string name;
    uint32_t kind;
    std::string help;
};

// Builds the file of object under a temporary name in dir, then renames it
// to path, replacing what is there when replace is set. Without replace, an
// existing file wins: *exists is set and nothing is mapped. The generation
// is above generation_floor. 0 and the mapping, or a status.
int create_file(const std::string &dir, const std::string &path, const std::string &object,
                const std::vector<Desc> &descs, uint32_t nslots, int mode, bool replace, uint64_t generation_floor,
                Mapping *m, bool *exists);

// Removes the temporary files ".<object>.cnt.<pid>" that creators killed
// before their rename left in dir.
void remove_dead_temporaries(const std::string &dir, const std::string &object);

// The kernel's start time of a process (clock ticks after boot), 0 when
// it does not exist.
uint64_t process_start(pid_t pid);
// True while the process that recorded (pid, start) lives.
bool owner_alive(uint32_t pid, uint64_t start);

inline std::atomic_ref<uint64_t> atomic(uint64_t &word) { return std::atomic_ref<uint64_t>(word); }

}  // namespace orv::counter
