// Helpers shared by the text family's sources (not installed).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace orv::text {

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

// Copies the n bytes at p to w, handing each special byte to emit instead:
// emit(at, w) stores the replacement at w, advances w and returns how many
// input bytes it consumed (at least one; it may read up to two bytes past
// at, so the input must be terminated). Runs between special bytes move as
// whole 16-byte pieces, so w needs 16 bytes of slack behind the output.
// block_mask must flag exactly the special bytes. Returns the output's end.
template <typename BlockMask, typename Special, typename Emit>
inline unsigned char *copy_runs(const unsigned char *p, size_t n, unsigned char *w, BlockMask block_mask,
                                Special special, Emit emit) {
    const unsigned char *end = p + n;
#if defined(__SSE2__)
    // Sixteen bytes at a time while 32 remain: the run copies and an emit
    // reaching into the next block then stay inside the input.
    while (end - p >= 32) {
        const Block x = _mm_loadu_si128(reinterpret_cast<const Block *>(p));
        auto bits = static_cast<unsigned>(_mm_movemask_epi8(block_mask(x)));
        if (bits == 0) {
            _mm_storeu_si128(reinterpret_cast<Block *>(w), x);
            w += 16;
            p += 16;
            continue;
        }
        unsigned from = 0;
        while (bits != 0) {
            const auto at = static_cast<unsigned>(__builtin_ctz(bits));
            std::memcpy(w, p + from, 16);
            w += at - from;
            from = at + static_cast<unsigned>(emit(p + at, w));
            // Bytes an emit consumed are not looked at again.
            bits = from < 16 ? bits & ~((1u << from) - 1) : 0;
        }
        if (from < 16) {
            std::memcpy(w, p + from, 16);
            w += 16 - from;
            from = 16;
        }
        p += from;
    }
#else
    (void)block_mask;
#endif
    while (p < end) {
        if (special(*p))
            p += emit(p, w);
        else
            *w++ = *p++;
    }
    return w;
}

}  // namespace orv::text
