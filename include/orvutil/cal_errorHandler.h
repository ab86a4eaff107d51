/*
 * Error-code range test.
 */
#ifndef ORVUTIL_CAL_ERRORHANDLER_H
#define ORVUTIL_CAL_ERRORHANDLER_H

#include "orv_defs.h"

ORV_BEGIN_DECLS

/* kind 1: 1 when 11000 <= code <= 11999; kind 2: 10000..10999; kind 4:
 * 5000..5999; else 0. Any other kind is returned as it is. */
ORV_API int cal_checkErrorRange(int kind, int code) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_ERRORHANDLER_H */
