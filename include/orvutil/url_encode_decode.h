/*
 * Table-driven web encodings: URL (form) encoding, HTML and cookie
 * escaping, the caret encoding and the underscore encoding, with their
 * decoders.
 *
 * Replacement tables have 256 entries, one per unsigned byte: NULL or ""
 * copies the byte, anything else replaces it. The library's own tables are
 * built at load time (so they are ready on every thread):
 *   url:    every byte but 0-9 A-Z a-z becomes "%XX" (upper-case hex),
 *           except ' ' -> "+" and - _ . * @ which stay;
 *   html:   '"' '&' '>' '<' become "&quot;" "&amp;" "&gt;" "&lt;";
 *   cookie: ' ' ',' ';' become "+" "%2C" "%3B";
 *   full:   every byte but 0-9 A-Z a-z becomes "^XX", except ' ' -> "+";
 *   alpha:  every byte but 0-9 A-Z a-z becomes "_".
 *
 * New strings are allocated with malloc and freed with free(). Encoders and
 * decoders return NULL for a NULL text, when memory runs out, or when the
 * output size would not fit size_t (an input longer than
 * (SIZE_MAX - 6) / 6 bytes is always refused).
 */
#ifndef ORVUTIL_URL_ENCODE_DECODE_H
#define ORVUTIL_URL_ENCODE_DECODE_H

#include "orv_defs.h"

ORV_BEGIN_DECLS

/* Each byte of text replaced by its entry in table (256 entries). */
ORV_API char *url_EncodeCore(const char *const *table, const char *text) ORV_NOEXCEPT;
ORV_API char *url_Encode(const char *text) ORV_NOEXCEPT;
ORV_API char *url_EncodeHTML(const char *text) ORV_NOEXCEPT;
ORV_API char *url_EncodeCookie(const char *text) ORV_NOEXCEPT;
ORV_API char *full_Encode(const char *text) ORV_NOEXCEPT;
/* Output has the length of the input. */
ORV_API char *alpha_Encode(const char *text) ORV_NOEXCEPT;

/* Value of one hex digit (either case); 0 for anything else. */
ORV_API int xdtoi(int c) ORV_NOEXCEPT;
/* Value of the two hex digits at p; 0 when either is not a hex digit or p
 * is NULL (the second byte is not read when the first is the end). */
ORV_API int xtoi(const char *p) ORV_NOEXCEPT;

/* "%XY" becomes the byte xtoi("XY") and '+' a space. When xtoi gives 0 (no
 * hex pair, or "00") the '%' is copied and decoding goes on behind it. */
ORV_API char *url_Decode(const char *text) ORV_NOEXCEPT;
/* The same with '^' as the escape character. */
ORV_API char *full_Decode(const char *text) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_URL_ENCODE_DECODE_H */
