/*
 * Reading protocol streams and the server side of TLS.
 *
 * A reading stream is made by prot_new(fd, 0). Its buffer holds bytes read
 * from the descriptor and not yet consumed: `ptr` is the next one, `cnt`
 * how many are left. When the buffer is empty the next read waits for data,
 * at most `timeout` seconds when prot_settimeout set one, and reads what is
 * there (up to PROT_BUFSIZE bytes).
 *
 * Flags, as on the output side: once `eof` (the peer closed, or TLS was shut
 * down) or `error` (PROT_ERR_IO: a failed read; PROT_ERR_TIMEOUT: nothing
 * came within the time-out) is set, every read returns EOF or 0.
 *
 * TLS: prot_starttls turns a pair of streams over one descriptor (a reading
 * one and an output one) into a TLS session with the client, as the server.
 * Call it at once after accept for implicit TLS, or after the protocol's
 * STARTTLS reply was written for an upgrade. Both streams then read and write
 * through the session; prot_free of the second one ends it. The descriptor
 * is left non-blocking and is never closed. Building a TLS context sets
 * SIGPIPE to be ignored when it was at its default, so that a client that
 * hangs up cannot end the process.
 *
 * Configuration keys of a TLS context (prefix + name; the prefix is "tls."
 * unless another is given, e.g. "service.pop3.tls."):
 *
 *   certfile        text    ""     PEM file of the server certificate (chain)
 *   keyfile         text    ""     PEM file of its private key; "" means
 *                                  the key is in certfile
 *   cafile          text    ""     PEM file of the CAs that client
 *                                  certificates must chain to
 *   verifyclient    switch  off    ask the client for a certificate; one
 *                                  that is presented must verify against
 *                                  cafile, none at all is accepted
 *   minversion      text    "1.2"  lowest protocol: "1.2" or "1.3"
 *
 * A stream is not locked; one thread uses a stream pair at a time.
 */
#ifndef ORVUTIL_PLATFORM_PROTIO_H
#define ORVUTIL_PLATFORM_PROTIO_H

#include "config.h"
#include "prot.h"

ORV_BEGIN_DECLS

/* Values of `error` on a reading stream. */
#define PROT_ERR_IO      1
#define PROT_ERR_TIMEOUT 2

/* Sets the read and TLS handshake time-out of s in seconds (0: wait for
 * ever). Returns 0, or -1 for NULL or a negative value. */
ORV_API int prot_settimeout(struct protstream *s, int seconds) ORV_NOEXCEPT;

/* The next byte (0-255), or EOF at end of stream, on error or time-out. */
ORV_API int prot_getc(struct protstream *s) ORV_NOEXCEPT;

/* Pushes c back so that the next prot_getc returns it; one byte is always
 * possible after a successful prot_getc. Returns c, or EOF when c is EOF or
 * there is no room. */
ORV_API int prot_ungetc(int c, struct protstream *s) ORV_NOEXCEPT;

/* Reads a line of at most size - 1 bytes into buf, with its '\n' when it
 * fits, and NUL-terminates it; a longer line comes in pieces over several
 * calls. Returns buf, or NULL when nothing could be read (end, error,
 * time-out) or size < 2. A NUL byte in the line is kept. */
ORV_API char *prot_fgets(char *buf, int size, struct protstream *s) ORV_NOEXCEPT;

/* Reads at most size bytes: what is buffered, else what one read from the
 * peer brings. Returns the count, 0 at end, on error or time-out. */
ORV_API int prot_read(struct protstream *s, char *buf, int size) ORV_NOEXCEPT;

/* A server TLS context built from the configuration keys above (cache NULL
 * means the default cache, prefix NULL means "tls."). NULL on failure with
 * *err (may be NULL) set to a static text; the details go to zolog at
 * level 3. */
typedef struct prot_tls_ctx prot_tls_ctx;
ORV_API prot_tls_ctx *prot_tls_ctx_new(config_cache *cache, const char *prefix, const char **err) ORV_NOEXCEPT;
ORV_API void prot_tls_ctx_free(prot_tls_ctx *ctx) ORV_NOEXCEPT;

/* Runs the server handshake on the descriptor of in and out (the same one),
 * bounded by in's time-out. out is flushed first; bytes buffered in in are
 * discarded, so nothing sent in clear is read as if it came through TLS.
 * Returns 0, or -1 with *err set (the streams are then unusable: both get
 * the error flag). */
ORV_API int prot_starttls(struct protstream *in, struct protstream *out, prot_tls_ctx *ctx,
                          const char **err) ORV_NOEXCEPT;

/* TLS facts of a session. cert is the client certificate (an OpenSSL X509
 * pointer owned by the record) when one was presented and verified, else
 * NULL; subject and issuer are its names in RFC 4514 form (NULL without a
 * certificate). */
struct prot_ssl_info {
    int bits;             /* secret bits of the cipher */
    const char *cipher;   /* cipher name, static */
    const char *protocol; /* "TLSv1.2" or "TLSv1.3", static */
    void *cert;           /* X509 *, or NULL */
    char *subject;
    char *issuer;
};

/* Without TLS: *strength = 0, *info = NULL. With TLS: *strength is the
 * cipher's secret bits and *info a new record for prot_ssl_free_info (NULL
 * if memory runs out). info may be NULL when only the strength is wanted.
 * Returns 0, or -1 for a NULL stream or strength. */
ORV_API int prot_ssl_get_info(struct protstream *s, int *strength, struct prot_ssl_info **info) ORV_NOEXCEPT;
ORV_API void prot_ssl_free_info(struct prot_ssl_info *info) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_PLATFORM_PROTIO_H */
