/*
 * A small blocking HTTP/1.0 and TCP client over NSPR sockets, for the
 * suite's tools talking to its own servers: open a connection (with retries
 * and optional progress marks), send a GET or raw text, and read the answer
 * line by line or in blocks through the 1024-byte buffer held in the
 * connection. Every wait is bounded by a time-out in seconds.
 *
 * Wire form: requests are "GET <path><query> HTTP/1.0" followed by the
 * optional header text and an empty line, every line ending in a bare LF.
 *
 * Time-outs: the open, the GET and raw sends and the line and block reads
 * wait at most calhttp_timeout seconds per step; only the TCP pair uses the
 * connection's own field (calhttp_Timeout). A time-out of 0 or less does not
 * wait; one above six hours counts as six hours.
 *
 * Opening: a refused connection is tried again every 5 seconds until the
 * time-out has passed (about 24 attempts with the default 120 seconds); a
 * connect that is refused after being in progress waits the full time-out
 * once and starts over; a second such refusal ends the open with -4 (on
 * loopback the system reports refusals only after the connect was in
 * progress, so that second path is the one taken there). With
 * show-wait exactly 1, "." goes to standard output before each attempt,
 * after a refusal, after each 5-second pause, before the poll of a connect in
 * progress and after the long wait, and "\n" at the end.
 *
 * Reading: a response is readable while respOpen is 1; the peer's close
 * clears it and reads return -1 until the next send. A line is delivered
 * with its LF (a CR before it stays); a line longer than the out buffer comes
 * in pieces of size - 1 bytes, and 1024 bytes without a LF (a full buffer)
 * come as one piece. Nothing is logged.
 *
 * Decisions of this implementation:
 * - A request that does not fit the 1024-byte buffer with its terminating
 *   NUL (at most 1023 bytes of text) is refused with -1 before anything is
 *   sent; so is raw text of that size.
 * - When a GET's send meets a connection reset (the server dropped an idle
 *   connection), the connection is opened again once and the new socket
 *   replaces the old one inside the same record: the caller's handle stays
 *   valid and keeps its own time-out and show-wait settings.
 * - A line read that meets the peer's close while bytes without a LF are
 *   held delivers those bytes (at most size - 1 of them) with result 0, and
 *   the next read returns -1. A read that meets the close with nothing held
 *   delivers an empty string with result 0 (and clears respOpen); the reads
 *   after it return -1.
 * - A line read moves the read pointer past the bytes it delivered, also
 *   when they are a piece of a full buffer without a LF, so the next piece
 *   continues the line where this one stopped.
 * - A block read places the read pointer at the buffer's start plus the
 *   bytes still pending (not past the bytes copied), as callers of this
 *   interface expect; an out buffer of at least 1025 bytes always takes the
 *   whole block, and a later read never goes beyond the record.
 * - Every failed open frees the record it allocated; NULL arguments give -1
 *   (-2 for a NULL host name in calhttp_Open); a port above 65535 gives -3.
 * - Reads try the socket before polling it, so a response that is already
 *   waiting costs no poll; the bound on every wait is unchanged.
 * - The line and block reads take up to 64 KiB from the socket at a time
 *   into a read-ahead kept behind the record (not part of it) and fill the
 *   1024-byte buffer from there, so a large response costs one receive per
 *   64 KiB instead of one per 1 KiB. Read pointer and pending count behave
 *   exactly as without it; bytes in the read-ahead count as still in the
 *   socket: calhttp_ReadTCPRaw returns them first (without a wait), a send
 *   leaves them, and the reconnect drops them with the old socket.
 * - A block read with nothing held and an out buffer of more than 1024 bytes
 *   delivers the whole block, so it is copied straight to out and the
 *   connection's buffer keeps its old content (after a time-out the bytes
 *   that came are held there as usual).
 * Connections are not locked: one thread uses a connection at a time. Set
 * the two module settings before connections are opened.
 */
#ifndef ORVUTIL_CAL_HTTP_H
#define ORVUTIL_CAL_HTTP_H

#include <prinrval.h>
#include <prio.h>

#include "orv_defs.h"

ORV_BEGIN_DECLS

/* Size of the connection's data buffer and of its host name field. */
#define CALHTTP_BUFFER_SIZE 1024
#define CALHTTP_HOST_SIZE   1024

typedef struct calhttp_conn {
    PRFileDesc *sock;
    /* Where the unread buffered bytes begin; the end-of-buffer mark is
     * buffer + CALHTTP_BUFFER_SIZE (the start of hostName). */
    char *readPtr;
    int pending;  /* unread bytes buffered */
    int respOpen; /* 1 once a request was sent; 0 when the peer has closed */
    /* The outgoing request while sending, then the incoming data; scratch
     * for the host look-up while opening. */
    char buffer[CALHTTP_BUFFER_SIZE];
    char hostName[CALHTTP_HOST_SIZE]; /* official name, kept for reconnecting */
    unsigned int port;
    int timeout;  /* seconds, for calhttp_SendTCPRaw and calhttp_ReadTCPRaw */
    int showwait; /* copied from calhttp_showwait at open */
} calhttp_conn;

/* Seconds allowed for each connect, poll and transfer step (default 120). */
ORV_API extern int calhttp_timeout;
/* 1: print progress marks on standard output while connecting (default 0). */
ORV_API extern int calhttp_showwait;

ORV_API void calhttp_SetGlobalTimeout(int seconds) ORV_NOEXCEPT;
ORV_API void calhttp_SetGlobalShowwait(int flag) ORV_NOEXCEPT;

/* Set the connection's field and return the value; a NULL connection is
 * left alone and gives -1. */
ORV_API int calhttp_Timeout(calhttp_conn *conn, int seconds) ORV_NOEXCEPT;
ORV_API int calhttp_Showwait(calhttp_conn *conn, int flag) ORV_NOEXCEPT;

/* Opens a TCP connection to the first IPv4 address of host. *out is cleared
 * first and set on success. elapsed (may be NULL) receives the time spent in
 * the last connect call plus the poll, in NSPR interval ticks.
 * Returns 0, -1 no memory, -2 host look-up failed, -3 no address, -4
 * connect failed, -5 no socket. Release with calhttp_Close. */
ORV_API int calhttp_Open(const char *host, unsigned int port, calhttp_conn **out, PRIntervalTime *elapsed) ORV_NOEXCEPT;
/* Closes the socket, frees the record and sets *conn to NULL: 0, or -1 when
 * there is no connection. */
ORV_API int calhttp_Close(calhttp_conn **conn) ORV_NOEXCEPT;

/* Send "GET " path query " HTTP/1.0\n\n" (query may be NULL or empty; it
 * is added as given, '?' included). The SSO form sends "GET " path query
 * " HTTP/1.0\n" headers "\n\n": header lines separated by "\n", without a
 * final newline (NULL: none). 0 or -1. */
ORV_API int calhttp_SendGet(calhttp_conn *conn, const char *path, const char *query) ORV_NOEXCEPT;
ORV_API int SSO_calhttp_SendGet(calhttp_conn *conn, const char *path, const char *query,
                                const char *headers) ORV_NOEXCEPT;
/* Sends text as it is, without the reconnect. 0 or -1. */
ORV_API int calhttp_SendRaw(calhttp_conn *conn, const char *text) ORV_NOEXCEPT;

/* One line (LF included), NUL-terminated in out[size]: 0, or -1 when the
 * response is closed (respOpen 0: an earlier read met the peer's close) or
 * nothing came within the time-out (bytes already held stay for the next
 * call). The read that meets the close delivers what was held, possibly "". */
ORV_API int calhttp_ReadGet(calhttp_conn *conn, char *out, int size) ORV_NOEXCEPT;
/* One block: what arrives until size bytes are held, the buffer is full or
 * the peer closes; min(held, size - 1) bytes are copied and terminated with
 * NUL. 0 or -1 as for calhttp_ReadGet. */
ORV_API int calhttp_ReadRaw(calhttp_conn *conn, char *out, int size) ORV_NOEXCEPT;

/* The connection's socket directly, bypassing its buffer, each bounded by
 * the connection's own time-out: send all len bytes (0 or -1), or receive up
 * to len bytes (PR_Recv's result: bytes, 0 at the peer's close, -1 on error
 * or when nothing came in time). */
ORV_API int calhttp_SendTCPRaw(calhttp_conn *conn, const char *bytes, int len) ORV_NOEXCEPT;
ORV_API int calhttp_ReadTCPRaw(calhttp_conn *conn, char *buffer, int len) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_HTTP_H */
