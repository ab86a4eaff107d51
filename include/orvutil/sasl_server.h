/*
 * Server side of the SASL mechanisms CRAM-MD5, PLAIN, LOGIN and EXTERNAL.
 *
 * Each mechanism is a record of operations that a protocol engine drives:
 *
 *     const sasl_server_mech *m = &sasl_plain_server;    (or login_authenticate)
 *     void *state = NULL;
 *     int len; const char *chal; const char *err;
 *     if (m->start(m->context, &params, NULL, &len, &chal, ctx, &state, &err) != 0)
 *         refuse with err;
 *     send the challenge (len bytes, possibly 0), read the client's answer, then
 *     rc = m->step(state, answer_len, answer, &len, &chal, &err);
 *       SASL_CONTINUE: send chal and step again with the next answer
 *       SASL_FAILED:   refuse with err (may be NULL)
 *       SASL_DONE:     m->query(state, &user, &prot, &a, &b, &c) names the user
 *     m->free_state(state);
 *
 * A client's initial response is simply the first step's data. Step data is
 * writable: PLAIN wipes the client's message and LOGIN its password with
 * zeros before the step returns, and CRAM-MD5 cuts the response at its blank
 * and puts the blank back. Challenges point into the state or at static
 * texts and stay valid until the next step or free_state.
 *
 * Results of start: 0 started, 1 refused; of step: SASL_CONTINUE,
 * SASL_FAILED or SASL_DONE. Error texts are static (or the verifier's and
 * the certificate mapping's, passed through).
 *
 * Configuration keys: "local.ugldaphasplainpasswords" (switch, off) offers
 * CRAM-MD5; "service.<name>.plaintextmincipher" (integer, 0) governs PLAIN
 * and LOGIN as described in login.h; "local.instancedir" (".") locates
 * "config/certmap.conf" for EXTERNAL.
 */
#ifndef ORVUTIL_SASL_SERVER_H
#define ORVUTIL_SASL_SERVER_H

#include "orv_defs.h"

ORV_BEGIN_DECLS

struct login_params;

#define SASL_CONTINUE 0
#define SASL_FAILED   1
#define SASL_DONE     3

/* Asked by CRAM-MD5 after a matching digest: whether authid may act as
 * asid (called with the user id twice). Non-zero refuses the login; errtext
 * may then be set. */
typedef int (*sasl_proxycheck)(const char *authid, const char *asid, const char **errtext);

typedef struct sasl_server_mech {
    /* "CRAM-MD5", "PLAIN", "LOGIN" or "EXTERNAL" */
    const char *name;
    /* Non-zero when the mechanism may be offered to a client of the service
     * with this cipher strength (0 without TLS) and a client certificate
     * (cert non-zero) or none. */
    int (*available)(void *context, const char *service, int strength, int cert);
    /* Makes *state. proxycheck is kept by CRAM-MD5 (NULL: none) and ignored
     * by the others; vcontext is passed to the password verifier. */
    int (*start)(void *context, const struct login_params *params, sasl_proxycheck proxycheck, int *challen,
                 const char **challenge, void *vcontext, void **state, const char **errtext);
    int (*step)(void *state, int len, char *data, int *challen, const char **challenge, const char **errtext);
    /* After SASL_DONE: the user id (owned by the state) and the protection
     * (always 1); the three further outs are set to 0. Ends the process when
     * the state's protection is not 1. */
    void (*query)(void *state, const char **userid, int *protection, int *out1, int *out2, int *out3);
    /* Frees the state and what it owns; NULL is ignored. */
    void (*free_state)(void *state);
    /* No mechanism supports result caching: always 0. */
    int (*cacheid)(void *state);
    /* The context handed to available and start: NULL. */
    void *context;
} sasl_server_mech;

ORV_API extern const sasl_server_mech sasl_cram_server;
ORV_API extern const sasl_server_mech sasl_plain_server;
ORV_API extern const sasl_server_mech sasl_login_server;
ORV_API extern const sasl_server_mech sasl_external_server;

/* The LOGIN prompts, sent with length 9. */
ORV_API extern const char username[];
ORV_API extern const char password[];

/* HMAC-MD5 (RFC 2104) of text under key; a key longer than 64 bytes is
 * replaced by its MD5. digest receives 16 bytes. */
ORV_API void sasl_hmac_md5(const unsigned char *text, int textlen, const unsigned char *key, int keylen,
                           unsigned char digest[16]) ORV_NOEXCEPT;

/* Certificate mapping for EXTERNAL: installs the directory operations over
 * the default pool (see orvutil/platform/ldpool.h) and reads
 * instancedir + "/config/certmap.conf". 0, or the mapping's error code
 * (logged at level 2). libname names the caller in the mapping's logs. An
 * exit handler releases the rules. Not thread-safe: call it at start. */
ORV_API int external_init(const char *instancedir, const char *libname) ORV_NOEXCEPT;

/* The login id of the entry that the certificate (an OpenSSL X509 pointer,
 * as in prot_ssl_info) maps to in the default domain, after the account
 * policy: a malloc'd text, or NULL with *errtext (may be NULL) set. */
ORV_API char *cert_to_internalid(const void *cert, const char **errtext) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_SASL_SERVER_H */
