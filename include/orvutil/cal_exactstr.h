/*
 * Whole-word substring search.
 */
#ifndef ORVUTIL_CAL_EXACTSTR_H
#define ORVUTIL_CAL_EXACTSTR_H

#include "orv_defs.h"

ORV_BEGIN_DECLS

/* The first occurrence of needle in haystack when it stands as a whole
 * word: the byte before it (if any) and the byte after it (if not the end)
 * are in delimiters, or in ",; " when delimiters is NULL or "". Only the
 * first occurrence is tried: when it is not a whole word the result is
 * NULL. NULL also for a NULL or empty haystack/needle. The result points
 * into haystack. */
ORV_API char *cal_strexactstr(const char *haystack, const char *needle, const char *delimiters) ORV_NOEXCEPT;
/* The same ignoring ASCII case. */
ORV_API char *cal_strexactcasestr(const char *haystack, const char *needle, const char *delimiters) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_EXACTSTR_H */
