/*
 * Small process services.
 */
#ifndef ORVUTIL_PLATFORM_SYS_H
#define ORVUTIL_PLATFORM_SYS_H

#include <time.h>
#include "../orv_defs.h"

ORV_BEGIN_DECLS

/* The calling thread's id (the kernel's thread id). */
ORV_API unsigned long thread_id(void) ORV_NOEXCEPT;
/* The process id. */
ORV_API int process_id(void) ORV_NOEXCEPT;
/* Forces a file's data to disk: flag non-zero syncs data and metadata
 * (fsync), zero the data only (fdatasync). 0, or -1 with errno set. */
ORV_API int sync_file(int fd, int flag) ORV_NOEXCEPT;
/* Reentrant local time: fills *result from *t and returns result, or NULL
 * when t or result is NULL or the time cannot be broken down. */
ORV_API struct tm *mtlocaltime(const time_t *t, struct tm *result) ORV_NOEXCEPT;
/* The inverse of gmtime: reads *tm as UTC (tm_isdst ignored), normalises
 * its fields like mktime and returns the time, or -1 when tm is NULL or the
 * time does not fit time_t. */
ORV_API time_t mkgmtime(struct tm *tm) ORV_NOEXCEPT;
/* Flushes the logs before the process ends with status; it does not exit
 * (the caller calls exit). */
ORV_API void service_exit(int status) ORV_NOEXCEPT;
/* Sleeps whole seconds; a signal does not cut the sleep short. */
ORV_API void sleep_seconds(unsigned int seconds) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_PLATFORM_SYS_H */
