// Helpers shared by the text family's sources (not installed).
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace orv::text {

// n * per + extra, or false when that does not fit size_t.
constexpr bool scaled_size(size_t n, size_t per, size_t extra, size_t &out) {
    if (per != 0 && n > (SIZE_MAX - extra) / per) return false;
    out = n * per + extra;
    return true;
}

#if defined(__SSE2__)
using Block = __m128i;

inline Block block_eq(Block x, char c) { return _mm_cmpeq_epi8(x, _mm_set1_epi8(c)); }

// Bytes 0x00..0x0D: every control character the escapers act on (and a few
// they do not, which the callers' byte-wise path handles as well).
inline Block block_low_controls(Block x) { return _mm_cmpeq_epi8(_mm_min_epu8(x, _mm_set1_epi8(13)), x); }

inline Block block_or(Block a, Block b) { return _mm_or_si128(a, b); }
#endif

// Number of leading bytes of p that are not special, at most limit. Only
// the avail bytes at p are ever read. Sixteen bytes are tested at once where
// that many are available: block_mask gives a bit per special byte and may
// flag more bytes than special() does (the callers treat every byte they
// stop at correctly); special() decides byte by byte at the end.
template <typename BlockMask, typename Special>
inline size_t plain_span(const unsigned char *p, size_t avail, size_t limit, BlockMask block_mask, Special special) {
    size_t n = 0;
#if defined(__SSE2__)
    while (n < limit && n + 16 <= avail) {
        const auto bits = static_cast<unsigned>(
            _mm_movemask_epi8(block_mask(_mm_loadu_si128(reinterpret_cast<const Block *>(p + n)))));
        if (bits != 0) {
            n += static_cast<size_t>(__builtin_ctz(bits));
            return n < limit ? n : limit;
        }
        n += 16;
    }
#else
    (void)block_mask;
#endif
    while (n < limit && n < avail && !special(p[n])) ++n;
    return n < limit ? n : limit;
}

// Number of special bytes among the n at p (block_mask must be exact here).
template <typename BlockMask, typename Special>
inline size_t count_special(const unsigned char *p, size_t n, BlockMask block_mask, Special special) {
    size_t count = 0, i = 0;
#if defined(__SSE2__)
    // Each matching lane is -1: subtracting the masks counts per lane, and
    // the lanes are summed before any of them can pass 255.
    while (i + 16 <= n) {
        Block lanes = _mm_setzero_si128();
        for (int round = 0; round < 255 && i + 16 <= n; ++round, i += 16)
            lanes = _mm_sub_epi8(lanes, block_mask(_mm_loadu_si128(reinterpret_cast<const Block *>(p + i))));
        const Block sums = _mm_sad_epu8(lanes, _mm_setzero_si128());
        count += static_cast<size_t>(_mm_cvtsi128_si32(sums)) + static_cast<size_t>(_mm_extract_epi16(sums, 4));
    }
#else
    (void)block_mask;
#endif
    for (; i < n; ++i) count += special(p[i]) ? 1 : 0;
    return count;
}

// Copies the leading non-special bytes of p (at most avail) to w and
// returns their number. Sixteen bytes are stored at once, so w must have
// room for avail bytes even when fewer are plain.
template <typename BlockMask, typename Special>
inline size_t copy_plain(const unsigned char *p, size_t avail, unsigned char *w, BlockMask block_mask,
                         Special special) {
    size_t n = 0;
#if defined(__SSE2__)
    while (n + 16 <= avail) {
        const Block x = _mm_loadu_si128(reinterpret_cast<const Block *>(p + n));
        _mm_storeu_si128(reinterpret_cast<Block *>(w + n), x);
        const auto bits = static_cast<unsigned>(_mm_movemask_epi8(block_mask(x)));
        if (bits != 0) return n + static_cast<size_t>(__builtin_ctz(bits));
        n += 16;
    }
#else
    (void)block_mask;
#endif
    for (; n < avail && !special(p[n]); ++n) w[n] = p[n];
    return n;
}

}  // namespace orv::text
