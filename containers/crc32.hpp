// CRC-32 as zip, PNG and Ethernet compute it: polynomial 0x04C11DB7, bits
// taken least significant first, register preset to all ones and
// complemented at the end. Internal to the library.
#pragma once

#include <cstddef>
#include <cstdint>

namespace orv {

// The register before the first byte.
inline constexpr uint32_t kCrc32Start = 0xFFFFFFFFu;

// Runs the register over n bytes; call again for the next piece of the same
// message.
uint32_t crc32_update(uint32_t state, const void *data, size_t n);

// The CRC of everything the register has run over.
constexpr uint32_t crc32_finish(uint32_t state) { return state ^ 0xFFFFFFFFu; }

}  // namespace orv
