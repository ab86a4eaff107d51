/*
 * The product-and-version banner, e.g. "Orvane 2005Q1 (built Nov 21 2026)":
 * product, release and the library's build date in the compiler's
 * "Mmm dd yyyy" form (a day below 10 is padded with a blank).
 */
#ifndef ORVUTIL_CAL_VER_H
#define ORVUTIL_CAL_VER_H

#include "orv_defs.h"

ORV_BEGIN_DECLS

#define ORV_PRODUCT_NAME "Orvane"
#define ORV_RELEASE      "2005Q1"

/* Formats the banner into a static 255-byte buffer, rewritten by every
 * call, and returns it. Not safe against a concurrent call. */
ORV_API char *orv_product_and_version(void) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_VER_H */
