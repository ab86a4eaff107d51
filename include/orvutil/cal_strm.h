/*
 * A growable in-memory byte buffer: append bytes, format text into it with a
 * small printf, then take the buffer whole.
 *
 * Growth always adds one chunk (default 4096 bytes) beyond what a write
 * needs, and a write that would exactly fill the buffer grows it too, so
 * the buffer always keeps a spare byte. The buffer is not NUL-terminated;
 * its length is calstrm_getlength. Memory comes from malloc and is released
 * by calstrm_delete.
 *
 * Reads copy from the start of the buffer, whatever the position (kept on
 * purpose); the position only limits how much remains. Writes advance the
 * position too, so a read right after writes answers -1.
 *
 * Decisions of this implementation:
 * - When growth fails (no memory, or a size beyond 32 bits), the record is
 *   left unchanged and the writing call returns -1 instead of its count.
 * - Every call accepts a NULL stream: counts answer -1 (0 for the getters),
 *   the buffer NULL.
 * - calstrm_printf writes "(null)" for a NULL "%s" argument.
 * A stream is not locked; one thread uses it at a time.
 */
#ifndef ORVUTIL_CAL_STRM_H
#define ORVUTIL_CAL_STRM_H

#include "orv_defs.h"

ORV_BEGIN_DECLS

/* What a counting call answers instead of a count when it fails. */
#define CALSTRM_E_FAIL (-1)

#define CALSTRM_DEFAULT_CHUNK 4096

typedef struct calstrm {
    char *buffer;          /* owned, or NULL before the first growth */
    unsigned int capacity; /* bytes allocated */
    unsigned int length;   /* bytes written */
    unsigned int position; /* offset of the next write; reads use it too */
    unsigned int chunksize;
} calstrm;

/* A new stream with chunk size 4096; with mode 1 the buffer is allocated at
 * once (capacity 8192). NULL when memory runs out. */
ORV_API calstrm *calstrm_new(int mode) ORV_NOEXCEPT;
/* Frees the buffer and the record; 0. */
ORV_API int calstrm_delete(calstrm *stream) ORV_NOEXCEPT;
/* Appends n bytes; n, or -1 (nothing written) when growth fails or n is
 * above INT_MAX. */
ORV_API int calstrm_write(calstrm *stream, const void *data, unsigned int n) ORV_NOEXCEPT;
/* Appends the byte c; 1 or -1. */
ORV_API int calstrm_putc(calstrm *stream, int c) ORV_NOEXCEPT;
/* Copies min(n, length - position) bytes from the start of the buffer and
 * advances the position by that count; -1 when position == length. */
ORV_API int calstrm_read(calstrm *stream, void *out, unsigned int n) ORV_NOEXCEPT;
/* Appends the formatted text and returns its length (at most INT_MAX), or
 * -1 when growth fails (what was written before the failure stays). Conversions: %% %d %u
 * %x %X %o %c %s, and %l followed by one letter: u, o, x, X as unsigned
 * long, any other letter as %ld. Any other character after '%' (flags,
 * widths and a trailing '%' included) aborts the process. */
ORV_API int calstrm_printf(calstrm *stream, const char *format, ...) ORV_NOEXCEPT;
ORV_API void calstrm_set_chunksize(calstrm *stream, unsigned int n) ORV_NOEXCEPT;
ORV_API unsigned int calstrm_get_chunksize(const calstrm *stream) ORV_NOEXCEPT;
/* The buffer itself (not terminated), or NULL before the first write. */
ORV_API char *calstrm_getbuffer(const calstrm *stream) ORV_NOEXCEPT;
ORV_API unsigned int calstrm_getlength(const calstrm *stream) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_STRM_H */
