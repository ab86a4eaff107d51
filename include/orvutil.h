/*
 * orvutil: every public header of the library and its platform services.
 */
#ifndef ORVUTIL_H
#define ORVUTIL_H

#include "orvutil/platform/array.h"
#include "orvutil/platform/config.h"
#include "orvutil/platform/mee.h"
#include "orvutil/platform/pidfile.h"
#include "orvutil/platform/prot.h"
#include "orvutil/platform/sys.h"
#include "orvutil/platform/zolog.h"

/* Dates, durations and periods. */
#include "orvutil/cal_time.h"

/* Text: identifiers, escaping, argument lists, web encodings. */
#include "orvutil/cal_errorHandler.h"
#include "orvutil/cal_exactstr.h"
#include "orvutil/cal_parseutil.h"
#include "orvutil/url_encode_decode.h"

/* Containers and URLs. */
#include "orvutil/cal_dict.h"
#include "orvutil/cal_strm.h"
#include "orvutil/cal_tree.h"
#include "orvutil/dllist.h"
#include "orvutil/url_parser.h"

/* Files, configuration, profiling, languages. */
#include "orvutil/cal_conf.h"
#include "orvutil/cal_counter.h"
#include "orvutil/cal_domain.h"
#include "orvutil/cal_file.h"
#include "orvutil/cal_i18n.h"
#include "orvutil/cal_log.h"
#include "orvutil/cal_prf.h"

/* Services and processes. */
#include "orvutil/cal_exec.h"
#include "orvutil/cal_service.h"

/* HTTP client. */
#include "orvutil/cal_http.h"

/* Authentication. */

/* Command tools. */
#include "orvutil/cal_cmd.h"

/* Identifiers and digests. */
#include "orvutil/cal_guid.h"
#include "orvutil/cal_ver.h"
#include "orvutil/utilmd5.h"
/* login.h and sasl_server.h are included on their own: the mechanisms export
 * data named username and password, which would collide with callers' names. */

#endif /* ORVUTIL_H */
