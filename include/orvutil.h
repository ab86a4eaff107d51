/*
 * orvutil: every public header of the library and its platform services.
 */
#ifndef ORVUTIL_H
#define ORVUTIL_H

#include "orvutil/platform/array.h"
#include "orvutil/platform/config.h"
#include "orvutil/platform/prot.h"
#include "orvutil/platform/sys.h"
#include "orvutil/platform/zolog.h"

/* Dates, durations and periods. */

/* Text: identifiers, escaping, argument lists, web encodings. */
#include "orvutil/cal_errorHandler.h"
#include "orvutil/cal_exactstr.h"
#include "orvutil/cal_parseutil.h"
#include "orvutil/url_encode_decode.h"

/* Containers and URLs. */

/* Files, configuration, profiling, languages. */

/* Services and processes. */

/* HTTP client. */

/* Authentication. */

/* Command tools. */

/* Identifiers and digests. */
#include "orvutil/cal_guid.h"
#include "orvutil/cal_ver.h"
#include "orvutil/utilmd5.h"

#endif /* ORVUTIL_H */
