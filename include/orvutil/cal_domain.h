/*
 * The default mail domain: the default configuration cache key
 * "dwp.defaultdomain" (the empty text when unset).
 */
#ifndef ORVUTIL_CAL_DOMAIN_H
#define ORVUTIL_CAL_DOMAIN_H

#include "orv_defs.h"

ORV_BEGIN_DECLS

/* Status values (the 32-bit patterns 0x80070057 and 0x8007000E, see
 * orv_defs.h). */
#define CAL_DOMAIN_E_INVALIDARG  ORV_E_INVALIDARG
#define CAL_DOMAIN_E_OUTOFMEMORY ORV_E_OUTOFMEMORY

/* Stores a malloc copy of the default domain in *out (free it with free()).
 * 0; CAL_DOMAIN_E_INVALIDARG when out is NULL or *out is not NULL (nothing
 * is stored, so a second call with the same pointer is refused);
 * CAL_DOMAIN_E_OUTOFMEMORY when the copy cannot be made. */
ORV_API int cal_get_default_domain(char **out) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_DOMAIN_H */
