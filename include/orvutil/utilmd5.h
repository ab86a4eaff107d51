/*
 * MD5 message digest (RFC 1321). The final step leaves the digest inside
 * the context:
 *
 *     util_MD5_CTX ctx;
 *     util_MD5Init(&ctx);
 *     util_MD5Update(&ctx, data, len);      (any number of times)
 *     util_MD5Final(&ctx);                  (ctx.digest holds 16 bytes)
 */
#ifndef ORVUTIL_UTILMD5_H
#define ORVUTIL_UTILMD5_H

#include <stdint.h>
#include "orv_defs.h"

ORV_BEGIN_DECLS

typedef struct util_MD5_CTX {
    uint32_t count[2];        /* number of bits, modulo 2^64 (low word first) */
    uint32_t state[4];        /* A, B, C, D */
    unsigned char buffer[64]; /* input block being filled */
    unsigned char digest[16]; /* result of util_MD5Final */
} util_MD5_CTX;

ORV_API void util_MD5Init(util_MD5_CTX *ctx) ORV_NOEXCEPT;
ORV_API void util_MD5Update(util_MD5_CTX *ctx, const unsigned char *data, unsigned int len) ORV_NOEXCEPT;
ORV_API void util_MD5Final(util_MD5_CTX *ctx) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_UTILMD5_H */
