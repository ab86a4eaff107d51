// MD5 message digest (RFC 1321).
#include "orvutil/utilmd5.h"

#include <cstring>

namespace {

inline uint32_t rotl(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

inline uint32_t load_le32(const unsigned char *p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

inline void store_le32(unsigned char *p, uint32_t v) {
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
    p[2] = static_cast<unsigned char>(v >> 16);
    p[3] = static_cast<unsigned char>(v >> 24);
}

// The four rounds' step functions. F and G are written in the forms with the
// shortest dependency chains.
#define MD5_F(x, y, z) ((z) ^ ((x) & ((y) ^ (z))))
#define MD5_G(x, y, z) (((x) & (z)) | ((y) & ~(z)))
#define MD5_H(x, y, z) ((x) ^ (y) ^ (z))
#define MD5_I(x, y, z) ((y) ^ ((x) | ~(z)))
#define MD5_STEP(f, a, b, c, d, x, t, s) \
    (a) += f((b), (c), (d)) + (x) + (t); \
    (a) = rotl((a), (s)) + (b)

// Transforms the state with every 64-byte block of data[0 .. blocks*64).
void transform(uint32_t state[4], const unsigned char *data, size_t blocks) {
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    for (; blocks > 0; --blocks, data += 64) {
        uint32_t x[16];
        for (int i = 0; i < 16; ++i) x[i] = load_le32(data + 4 * i);
        const uint32_t aa = a, bb = b, cc = c, dd = d;

        MD5_STEP(MD5_F, a, b, c, d, x[0], 0xd76aa478, 7);
        MD5_STEP(MD5_F, d, a, b, c, x[1], 0xe8c7b756, 12);
        MD5_STEP(MD5_F, c, d, a, b, x[2], 0x242070db, 17);
        MD5_STEP(MD5_F, b, c, d, a, x[3], 0xc1bdceee, 22);
        MD5_STEP(MD5_F, a, b, c, d, x[4], 0xf57c0faf, 7);
        MD5_STEP(MD5_F, d, a, b, c, x[5], 0x4787c62a, 12);
        MD5_STEP(MD5_F, c, d, a, b, x[6], 0xa8304613, 17);
        MD5_STEP(MD5_F, b, c, d, a, x[7], 0xfd469501, 22);
        MD5_STEP(MD5_F, a, b, c, d, x[8], 0x698098d8, 7);
        MD5_STEP(MD5_F, d, a, b, c, x[9], 0x8b44f7af, 12);
        MD5_STEP(MD5_F, c, d, a, b, x[10], 0xffff5bb1, 17);
        MD5_STEP(MD5_F, b, c, d, a, x[11], 0x895cd7be, 22);
        MD5_STEP(MD5_F, a, b, c, d, x[12], 0x6b901122, 7);
        MD5_STEP(MD5_F, d, a, b, c, x[13], 0xfd987193, 12);
        MD5_STEP(MD5_F, c, d, a, b, x[14], 0xa679438e, 17);
        MD5_STEP(MD5_F, b, c, d, a, x[15], 0x49b40821, 22);

        MD5_STEP(MD5_G, a, b, c, d, x[1], 0xf61e2562, 5);
        MD5_STEP(MD5_G, d, a, b, c, x[6], 0xc040b340, 9);
        MD5_STEP(MD5_G, c, d, a, b, x[11], 0x265e5a51, 14);
        MD5_STEP(MD5_G, b, c, d, a, x[0], 0xe9b6c7aa, 20);
        MD5_STEP(MD5_G, a, b, c, d, x[5], 0xd62f105d, 5);
        MD5_STEP(MD5_G, d, a, b, c, x[10], 0x02441453, 9);
        MD5_STEP(MD5_G, c, d, a, b, x[15], 0xd8a1e681, 14);
        MD5_STEP(MD5_G, b, c, d, a, x[4], 0xe7d3fbc8, 20);
        MD5_STEP(MD5_G, a, b, c, d, x[9], 0x21e1cde6, 5);
        MD5_STEP(MD5_G, d, a, b, c, x[14], 0xc33707d6, 9);
        MD5_STEP(MD5_G, c, d, a, b, x[3], 0xf4d50d87, 14);
        MD5_STEP(MD5_G, b, c, d, a, x[8], 0x455a14ed, 20);
        MD5_STEP(MD5_G, a, b, c, d, x[13], 0xa9e3e905, 5);
        MD5_STEP(MD5_G, d, a, b, c, x[2], 0xfcefa3f8, 9);
        MD5_STEP(MD5_G, c, d, a, b, x[7], 0x676f02d9, 14);
        MD5_STEP(MD5_G, b, c, d, a, x[12], 0x8d2a4c8a, 20);

        MD5_STEP(MD5_H, a, b, c, d, x[5], 0xfffa3942, 4);
        MD5_STEP(MD5_H, d, a, b, c, x[8], 0x8771f681, 11);
        MD5_STEP(MD5_H, c, d, a, b, x[11], 0x6d9d6122, 16);
        MD5_STEP(MD5_H, b, c, d, a, x[14], 0xfde5380c, 23);
        MD5_STEP(MD5_H, a, b, c, d, x[1], 0xa4beea44, 4);
        MD5_STEP(MD5_H, d, a, b, c, x[4], 0x4bdecfa9, 11);
        MD5_STEP(MD5_H, c, d, a, b, x[7], 0xf6bb4b60, 16);
        MD5_STEP(MD5_H, b, c, d, a, x[10], 0xbebfbc70, 23);
        MD5_STEP(MD5_H, a, b, c, d, x[13], 0x289b7ec6, 4);
        MD5_STEP(MD5_H, d, a, b, c, x[0], 0xeaa127fa, 11);
        MD5_STEP(MD5_H, c, d, a, b, x[3], 0xd4ef3085, 16);
        MD5_STEP(MD5_H, b, c, d, a, x[6], 0x04881d05, 23);
        MD5_STEP(MD5_H, a, b, c, d, x[9], 0xd9d4d039, 4);
        MD5_STEP(MD5_H, d, a, b, c, x[12], 0xe6db99e5, 11);
        MD5_STEP(MD5_H, c, d, a, b, x[15], 0x1fa27cf8, 16);
        MD5_STEP(MD5_H, b, c, d, a, x[2], 0xc4ac5665, 23);

        MD5_STEP(MD5_I, a, b, c, d, x[0], 0xf4292244, 6);
        MD5_STEP(MD5_I, d, a, b, c, x[7], 0x432aff97, 10);
        MD5_STEP(MD5_I, c, d, a, b, x[14], 0xab9423a7, 15);
        MD5_STEP(MD5_I, b, c, d, a, x[5], 0xfc93a039, 21);
        MD5_STEP(MD5_I, a, b, c, d, x[12], 0x655b59c3, 6);
        MD5_STEP(MD5_I, d, a, b, c, x[3], 0x8f0ccc92, 10);
        MD5_STEP(MD5_I, c, d, a, b, x[10], 0xffeff47d, 15);
        MD5_STEP(MD5_I, b, c, d, a, x[1], 0x85845dd1, 21);
        MD5_STEP(MD5_I, a, b, c, d, x[8], 0x6fa87e4f, 6);
        MD5_STEP(MD5_I, d, a, b, c, x[15], 0xfe2ce6e0, 10);
        MD5_STEP(MD5_I, c, d, a, b, x[6], 0xa3014314, 15);
        MD5_STEP(MD5_I, b, c, d, a, x[13], 0x4e0811a1, 21);
        MD5_STEP(MD5_I, a, b, c, d, x[4], 0xf7537e82, 6);
        MD5_STEP(MD5_I, d, a, b, c, x[11], 0xbd3af235, 10);
        MD5_STEP(MD5_I, c, d, a, b, x[2], 0x2ad7d2bb, 15);
        MD5_STEP(MD5_I, b, c, d, a, x[9], 0xeb86d391, 21);

        a += aa;
        b += bb;
        c += cc;
        d += dd;
    }
    state[0] = a;
    state[1] = b;
    state[2] = c;
    state[3] = d;
}

}  // namespace

extern "C" {

void util_MD5Init(util_MD5_CTX *ctx) noexcept {
    if (ctx == nullptr) return;
    ctx->count[0] = ctx->count[1] = 0;
    ctx->state[0] = 0x67452301;
    ctx->state[1] = 0xefcdab89;
    ctx->state[2] = 0x98badcfe;
    ctx->state[3] = 0x10325476;
}

void util_MD5Update(util_MD5_CTX *ctx, const unsigned char *data, unsigned int len) noexcept {
    // Nothing to add: a null pointer with no length is allowed, and must not
    // reach memcpy.
    if (ctx == nullptr || data == nullptr || len == 0) return;
    size_t used = (ctx->count[0] >> 3) & 63;
    const uint32_t bits_low = static_cast<uint32_t>(len) << 3;
    ctx->count[0] += bits_low;
    if (ctx->count[0] < bits_low) ctx->count[1]++;
    ctx->count[1] += static_cast<uint32_t>(len) >> 29;

    size_t n = len;
    if (used != 0) {
        const size_t room = 64 - used;
        if (n < room) {
            std::memcpy(ctx->buffer + used, data, n);
            return;
        }
        std::memcpy(ctx->buffer + used, data, room);
        transform(ctx->state, ctx->buffer, 1);
        data += room;
        n -= room;
    }
    // Whole blocks straight from the caller's data, no copy.
    transform(ctx->state, data, n / 64);
    data += n & ~static_cast<size_t>(63);
    std::memcpy(ctx->buffer, data, n & 63);
}

void util_MD5Final(util_MD5_CTX *ctx) noexcept {
    if (ctx == nullptr) return;
    unsigned char length[8];
    store_le32(length, ctx->count[0]);
    store_le32(length + 4, ctx->count[1]);
    // Pad to 56 mod 64 with 0x80 and zeros, then append the bit length.
    static const unsigned char padding[64] = {0x80};
    const size_t used = (ctx->count[0] >> 3) & 63;
    const unsigned int pad = static_cast<unsigned int>(used < 56 ? 56 - used : 120 - used);
    util_MD5Update(ctx, padding, pad);
    util_MD5Update(ctx, length, 8);
    for (int i = 0; i < 4; ++i) store_le32(ctx->digest + 4 * i, ctx->state[i]);
    // Clear what the digest was made of; the digest itself stays.
    std::memset(ctx->buffer, 0, sizeof ctx->buffer);
    std::memset(ctx->state, 0, sizeof ctx->state);
    std::memset(ctx->count, 0, sizeof ctx->count);
}

}  // extern "C"
