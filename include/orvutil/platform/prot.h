/*
 * Buffered protocol output streams.
 *
 * A stream buffers bytes in memory and hands them to its sink when the
 * buffer is full or on prot_flush. Two sinks exist: a file descriptor
 * (prot_new) and a growable memory buffer (prot_new_memory), for tests and
 * for servers that build a reply before sending it.
 *
 * The record is public so that writers may check the flags and look at the
 * bytes not yet flushed (the iCalendar writers find the current column in
 * the buffer). Change the fields only through the functions below; a writer
 * that wants to store bytes into the buffer itself (a vectorised copy, say)
 * asks for the room with prot_reserve and hands it back with prot_commit.
 *
 * Put rule (prot_putc, and byte by byte prot_write):
 *   1. when `error` or `eof` is set the byte is silently dropped;
 *   2. otherwise it is stored at `ptr`, `ptr` advances, `cnt` drops by one;
 *   3. when `cnt` reaches zero, prot_flush runs.
 * A failed write to the sink sets `error`; from then on every byte is
 * dropped. Nothing else reports write errors, so a writer that cares checks
 * `error` (or the result of prot_flush) at the end.
 *
 * Only output is built. Reading streams (write == 0) and a TLS layer are
 * meant to be added later: `write` tells the direction, `tls` is reserved
 * for the layer's state and is always NULL today, `fd` is the descriptor the
 * layer would wrap.
 *
 * A stream is not locked; one thread uses it at a time.
 */
#ifndef ORVUTIL_PLATFORM_PROT_H
#define ORVUTIL_PLATFORM_PROT_H

#include <stddef.h>
#include <sys/types.h>
#include "../orv_defs.h"

ORV_BEGIN_DECLS

/* Default buffer size of a stream, in bytes. */
#define PROT_BUFSIZE 4096

struct protstream {
    unsigned char *buf; /* buffer start */
    unsigned char *ptr; /* next free byte of the buffer */
    int cnt;            /* free bytes left behind ptr */
    int error;          /* set by a failed write; bytes are dropped */
    int eof;            /* end of stream; bytes are dropped */
    int fd;             /* the descriptor, or -1 for a memory stream */
    int write;          /* 1: output stream (the only kind built today) */
    int bufsize;        /* capacity of buf */
    void *sink;         /* memory sink, NULL for a descriptor stream */
    void *tls;          /* reserved for a TLS layer; NULL */
};

/* A new output stream over fd with a PROT_BUFSIZE buffer, or NULL when
 * memory runs out, fd < 0, or write is 0 (reading is not built yet). The
 * stream never closes fd. */
ORV_API struct protstream *prot_new(int fd, int write) ORV_NOEXCEPT;

/* A new output stream whose flush appends to a growable memory buffer;
 * bufsize is the stream's own buffer (0 means PROT_BUFSIZE; at most
 * 1 MiB). NULL when memory runs out or bufsize is out of range. A sink
 * that cannot grow sets the error flag. */
ORV_API struct protstream *prot_new_memory(int bufsize) ORV_NOEXCEPT;

/* Flushes a memory stream and returns its bytes so far, NUL-terminated
 * (the terminator is not counted in *len; len may be NULL). The pointer
 * stays valid until the next write, prot_memory_clear or prot_free. NULL
 * for NULL or a descriptor stream. */
ORV_API const char *prot_memory_data(struct protstream *s, size_t *len) ORV_NOEXCEPT;

/* Empties a memory stream's sink and its buffer, and clears the error and
 * end-of-stream flags. Nothing for NULL or a descriptor stream. */
ORV_API void prot_memory_clear(struct protstream *s) ORV_NOEXCEPT;

/* Flushes what is pending (errors are ignored) and frees the stream; the
 * descriptor stays open. Nothing for NULL. */
ORV_API void prot_free(struct protstream *s) ORV_NOEXCEPT;

/* Writes the buffered bytes to the sink and empties the buffer. A
 * descriptor sink is written with retry_write. Returns 0, or -1 when s is
 * NULL or the error or end-of-stream flag is set (then or afterwards); the
 * pending bytes of a failed stream are discarded. */
ORV_API int prot_flush(struct protstream *s) ORV_NOEXCEPT;

/* Puts one byte (c converted to unsigned char) by the put rule. Returns 0,
 * or -1 for NULL or a set error/end-of-stream flag after the put. */
ORV_API int prot_putc(int c, struct protstream *s) ORV_NOEXCEPT;

/* Puts len bytes by the put rule, with the same result as len prot_putc
 * calls; returns as prot_putc does. */
ORV_API int prot_write(struct protstream *s, const char *buf, size_t len) ORV_NOEXCEPT;

/* Room in the buffer for a writer that stores bytes itself: returns where
 * the next byte goes and sets *room to the number of free bytes there (at
 * least 1, since a full buffer is flushed at once). The writer stores at
 * most *room bytes from that pointer and then calls prot_commit with how
 * many of them it puts; bytes stored beyond those are scratch, overwritten
 * later. Nothing is flushed, so the flush points stay those of the put
 * rule. NULL (and *room 0) for NULL arguments or a set error/end-of-stream
 * flag. */
ORV_API unsigned char *prot_reserve(struct protstream *s, size_t *room) ORV_NOEXCEPT;

/* Puts the first used bytes of the room prot_reserve gave, as used
 * prot_putc calls would: the buffer is flushed when they fill it. No other
 * call on the stream may come between the two. Returns as prot_putc does,
 * and -1 (putting nothing) when used is more than the free room. */
ORV_API int prot_commit(struct protstream *s, size_t used) ORV_NOEXCEPT;

/* Formats like printf and writes the text; returns as prot_write does, and
 * -1 also when formatting fails. */
ORV_API int prot_printf(struct protstream *s, const char *fmt, ...) ORV_NOEXCEPT ORV_PRINTF(2, 3);

/* Writes all n bytes to fd, retrying short writes and EINTR. Returns n, or
 * -1 with errno set when a write fails (n == 0 writes nothing and returns
 * 0; buf NULL with n > 0 fails with EINVAL). */
ORV_API ssize_t retry_write(int fd, const void *buf, size_t n) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_PLATFORM_PROT_H */
