// CRC-32: eight table look-ups per eight bytes everywhere, and carry-less
// multiplication folding where the processor has it (64 bytes a round).
#include "crc32.hpp"

#include <bit>
#include <cstring>
#include <mutex>

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#endif

namespace orv {
namespace {

// 0x04C11DB7 with its bits reversed: bytes enter the register least
// significant bit first, so the register shifts right and the polynomial is
// written backwards.
constexpr uint32_t kReflectedPoly = 0xEDB88320u;

// Slicing-by-8 tables: t[0][b] is the register after one byte b entered an
// empty register; t[s][b] is the same byte followed by s zero bytes, so
// eight bytes at different distances are looked up at once.
struct CrcTables {
    uint32_t t[8][256];
};

const CrcTables &crc_tables() {
    static CrcTables tables;
    static std::once_flag once;
    std::call_once(once, [] {
        for (uint32_t b = 0; b < 256; ++b) {
            uint32_t c = b;
            for (int k = 0; k < 8; ++k) c = (c & 1) ? kReflectedPoly ^ (c >> 1) : c >> 1;
            tables.t[0][b] = c;
        }
        for (uint32_t b = 0; b < 256; ++b)
            for (int s = 1; s < 8; ++s)
                tables.t[s][b] = (tables.t[s - 1][b] >> 8) ^ tables.t[0][tables.t[s - 1][b] & 0xff];
    });
    return tables;
}

uint32_t crc_slice8(uint32_t crc, const unsigned char *p, size_t n) {
    const auto &t = crc_tables().t;
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
// The folding constants. Moving a 128-bit lane forward by d bits multiplies
// it by x^d modulo P, and since the lane is split in two 64-bit halves each
// half needs its own power: x^(d+32) and x^(d-32) mod P. Every constant is
// such a remainder, bit-reversed like the data and shifted left once (the
// reversed product of two 64-bit values comes out one bit short).
//   k1, k2: x^(4*128+32), x^(4*128-32) mod P   four lanes forward 512 bits
//   k3, k4: x^(128+32),   x^(128-32)   mod P   one lane forward 128 bits
//   k5:     x^64 mod P                         96 bits down to 64
//   mu, P': floor(x^64 / P) and P itself, both reversed: Barrett reduction
//           of the last 64 bits to the 32-bit remainder.
alignas(16) constexpr uint64_t kK1K2[] = {0x0154442bd4, 0x01c6e41596};
alignas(16) constexpr uint64_t kK3K4[] = {0x01751997d0, 0x00ccaa009e};
alignas(16) constexpr uint64_t kK5[] = {0x0163cd6124, 0x0000000000};
alignas(16) constexpr uint64_t kPolyMu[] = {0x01db710641, 0x01f7011641};

// One fold step: x times the two halves of k, added to the next block.
__attribute__((target("pclmul,sse4.1"))) inline __m128i fold(__m128i x, __m128i k, __m128i next) {
    const __m128i lo = _mm_clmulepi64_si128(x, k, 0x00);
    const __m128i hi = _mm_clmulepi64_si128(x, k, 0x11);
    return _mm_xor_si128(_mm_xor_si128(hi, lo), next);
}

// Four 128-bit lanes folded 64 bytes at a time, then down to one lane, then
// reduced to 32 bits. Takes n >= 64, a multiple of 16.
__attribute__((target("pclmul,sse4.1"))) uint32_t crc_fold(uint32_t crc, const unsigned char *p, size_t n) {
    auto load = [](const unsigned char *q) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(q)); };
    __m128i x1 = _mm_xor_si128(load(p), _mm_cvtsi32_si128(static_cast<int>(crc)));
    __m128i x2 = load(p + 16);
    __m128i x3 = load(p + 32);
    __m128i x4 = load(p + 48);
    p += 64;
    n -= 64;
    __m128i k = _mm_load_si128(reinterpret_cast<const __m128i *>(kK1K2));
    while (n >= 64) {
        x1 = fold(x1, k, load(p));
        x2 = fold(x2, k, load(p + 16));
        x3 = fold(x3, k, load(p + 32));
        x4 = fold(x4, k, load(p + 48));
        p += 64;
        n -= 64;
    }
    k = _mm_load_si128(reinterpret_cast<const __m128i *>(kK3K4));
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
    k = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(kK5));
    x2b = _mm_srli_si128(x1, 4);
    x1 = _mm_xor_si128(_mm_clmulepi64_si128(_mm_and_si128(x1, mask), k, 0x00), x2b);
    // Barrett reduction to 32 bits.
    k = _mm_load_si128(reinterpret_cast<const __m128i *>(kPolyMu));
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

}  // namespace

uint32_t crc32_update(uint32_t state, const void *data, size_t n) {
    const auto *p = static_cast<const unsigned char *>(data);
#if defined(__x86_64__) && defined(__GNUC__)
    if (n >= 64 && has_clmul()) {
        const size_t bulk = n & ~static_cast<size_t>(15);
        state = crc_fold(state, p, bulk);
        p += bulk;
        n -= bulk;
    }
#endif
    return crc_slice8(state, p, n);
}

}  // namespace orv
