/*
 * File utilities: path-separator conversion, copy, rename and delete of a
 * file (also of a file named by a bare name and a directory, joined as
 * "%s/%s"), the first free numbered file name, recursive directory creation
 * and deletion of a directory's contents.
 *
 * Every function takes NUL-terminated paths and allocates nothing the caller
 * has to free. Functions that can fail return CALFILE_OK (0) on success
 * and CALFILE_E_FAIL (-1) on failure; the directory deleters always return
 * 0. Only
 * calfile_mkdir_recursive logs (level 3, tag "UTIL"). NSPR's error state is
 * left as the failing call set it.
 */
#ifndef ORVUTIL_CAL_FILE_H
#define ORVUTIL_CAL_FILE_H

#include "orv_defs.h"

ORV_BEGIN_DECLS

#define CALFILE_OK     0
#define CALFILE_E_FAIL (-1)

/* Puts a path into this platform's form, in place: calfile_DosToUnixPath.
 * NULL is ignored. */
ORV_API void calfile_ToLocalPath(char *path) ORV_NOEXCEPT;
/* In place: a leading drive ("C:") is removed, then every '\' becomes '/'.
 * "C:\a\b" becomes "/a/b", "a:" the empty string. NULL is ignored. */
ORV_API void calfile_DosToUnixPath(char *path) ORV_NOEXCEPT;
/* In place: every '/' becomes '\'. NULL is ignored. */
ORV_API void calfile_UnixToDosPath(char *path) ORV_NOEXCEPT;

/* Copies a regular file. With noOverwrite non-zero an existing destination
 * makes it fail untouched. The destination is created or truncated with
 * permission bits 07777 trimmed by the umask, and the source is copied in
 * chunks of at most 4096 bytes up to the size it had when the copy began.
 * -1 when the source is missing, unreadable or not a regular file, when the
 * destination cannot be opened, on a read or write error, and when the
 * source ends early (it shrank during the copy: the copy stops rather than
 * waiting). A destination that is the source itself (same file, under any
 * name) is refused with -1 before anything is opened, since truncating it
 * would lose the data. After a failure during the copy the partial
 * destination is left in place. */
ORV_API int calfile_CopyFile(const char *source, const char *destination, int noOverwrite) ORV_NOEXCEPT;
/* Copies fromDir/name to toDir/name; an existing destination makes it fail. */
ORV_API int calfile_CopySourceFile(const char *name, const char *fromDir, const char *toDir) ORV_NOEXCEPT;

/* Renames oldPath to newPath, replacing an existing newPath. When newPath
 * exists its content is first saved to a temporary file "tempXXXXXX" made
 * beside newPath (in newPath's directory, so that the current directory need
 * not be writable); newPath is then deleted and oldPath renamed. If that
 * rename fails, the saved content is copied back to newPath. The temporary
 * file is removed in every case. 0, or -1 (newPath then keeps its content). */
ORV_API int calfile_RenameFile(const char *oldPath, const char *newPath) ORV_NOEXCEPT;
/* Renames fromDir/name to toDir/name with calfile_RenameFile. */
ORV_API int calfile_RenameSourceFile(const char *name, const char *fromDir, const char *toDir) ORV_NOEXCEPT;

/* Deletes a file; 0 or -1. */
ORV_API int calfile_DeleteFile(const char *path) ORV_NOEXCEPT;
/* Deletes dir/name; 0 or -1. */
ORV_API int calfile_DeleteSourceFile(const char *name, const char *dir) ORV_NOEXCEPT;

/* Writes into buffer the first name prefix + N + suffix (N = 0, 1, 2, ...
 * in decimal, cut to its first four digits) that does not exist, and
 * returns 0. prefix and suffix may be NULL. The buffer needs
 * 6 + strlen(prefix) + strlen(suffix) bytes: when it is NULL or smaller,
 * -1 is returned with nothing written. Numbers from 10000 on are cut to
 * four digits and so repeat names already tried: when every name from 0 to
 * 9999 exists the search goes on until one is freed; the counter itself
 * never overflows (at INT_MAX the search gives up with -1). */
ORV_API int calfile_mktemp_filename(const char *prefix, const char *suffix, char *buffer, int size) ORV_NOEXCEPT;

/* Creates a directory and its missing parents (mode 0777, trimmed by the
 * umask). path must be writable: it is cut at each '/' during the call and
 * restored before return. A leading drive ("C:") is never created. 0 when the
 * directory exists afterwards (also when it existed before), else -1 and a
 * level 3 record "UTIL: Unable to create directory <path>: <error>". */
ORV_API int calfile_mkdir_recursive(char *path) ORV_NOEXCEPT;

/* Deletes the entries of dir, except hidden ones (names starting with '.'),
 * with calfile_DeleteSourceFile, then removes dir. Failures are ignored: a
 * subdirectory is not removed, and a directory holding hidden files stays.
 * Always 0 (also for NULL). */
ORV_API int calfile_delete_dir(const char *dir) ORV_NOEXCEPT;
/* Empties and removes every non-hidden entry of dir one level down with
 * calfile_delete_dir, then removes dir. It descends exactly two levels:
 * plain files standing in dir itself and directories below the second level
 * are kept. Each entry's path "dir/name" is built in a 1024-byte buffer; an
 * entry whose path does not fit is skipped (never cut short, which would
 * name another directory). Always 0 (also for NULL). */
ORV_API int calfile_delete_dir_recursive(const char *dir) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_FILE_H */
