/*
 * Profiling files: numbered files "<prefix><N>.prf" in a profiling
 * directory, one per writer; clearing a directory of them; appending all of
 * them to one file.
 *
 * Nothing is reported to the caller; with the verbose flag the functions
 * describe what they do on standard error. Paths are put into local form
 * (calfile_ToLocalPath) before use.
 */
#ifndef ORVUTIL_CAL_PRF_H
#define ORVUTIL_CAL_PRF_H

#include "orv_defs.h"

ORV_BEGIN_DECLS

/* NSPR's file descriptor (prio.h). */
struct PRFileDesc;

/* Size of the buffer the profiling file's path is built in, terminator
 * included. */
#define CALPRF_PATH_SIZE 1024

/* Opens a new profiling file: the first of directory/<prefix>0.prf,
 * directory/<prefix>1.prf, ... that does not exist (prefix "calprf" when NULL
 * or empty; N has at most four digits), read-write, created, with
 * synchronous writes and permission bits 0777 trimmed by the umask. Never
 * NULL: NSPR's standard output descriptor is returned for a NULL directory,
 * when the path does not fit CALPRF_PATH_SIZE, when every number from 0 to
 * 9999 is taken, or when the open fails. Close the descriptor with PR_Close
 * unless it is standard output (PR_GetSpecialFD(PR_StandardOutput)). */
ORV_API struct PRFileDesc *calprf_GetUniqueFileDesc(const char *directory, const char *prefix) ORV_NOEXCEPT;

/* Deletes every entry of directory whose name contains ".prf" anywhere
 * ("x.prf.old" too; hidden entries included). verbose: one line for the
 * directory and one per file on standard error. A NULL or unreadable
 * directory does nothing. */
ORV_API void calprf_Initialize(const char *directory, int verbose) ORV_NOEXCEPT;

/* Appends to target (created when missing, with permission bits 0777
 * trimmed by the umask; nothing is done when it exists and is not a regular
 * file) every entry of directory whose name contains
 * ".prf", in name order ignoring ASCII case, with nothing between them. Each
 * entry is opened by its bare name, relative to the current directory, so
 * run it from the profiling directory (or pass "."); a name that cannot be
 * opened there is skipped. Each file is copied up to the size it had when it
 * was opened; a read error, an early end or a short write stops that file's
 * copy, and the next file is taken. Sources are left unchanged. */
ORV_API void calprf_Aggregate(const char *directory, const char *target, int verbose) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_PRF_H */
