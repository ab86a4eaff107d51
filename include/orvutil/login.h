/*
 * Login front end of the protocol servers: set-up of password verification
 * and certificate mapping, the per-connection parameter record, the policy
 * for plaintext passwords, APOP, the mechanisms to advertise and the choice
 * of a mechanism by name (the mechanisms are in sasl_server.h).
 *
 * Configuration keys (default cache):
 *
 *   local.instancedir                 text    "."  the certificate map is
 *                                                  <dir>/config/certmap.conf
 *   service.<name>.plaintextmincipher integer 0    0: plaintext passwords
 *                                                  always accepted; -1: never;
 *                                                  n: only over TLS of at least
 *                                                  n bits (any other negative
 *                                                  value: TLS of any strength)
 *   local.ugldaphasplainpasswords     switch  off  the directory holds clear
 *                                                  passwords: APOP and CRAM-MD5
 *                                                  can be offered
 *
 * The key "service." + name + ".plaintextmincipher" must fit in 88 bytes; a
 * longer service name reads the default.
 *
 * Checks answer 0 (accepted) or 1 (refused, *errtext set to a static text or
 * the verifier's). Nothing is logged here.
 */
#ifndef ORVUTIL_LOGIN_H
#define ORVUTIL_LOGIN_H

#include "orv_defs.h"
#include "platform/config.h"
#include "sasl_server.h"

ORV_BEGIN_DECLS

struct protstream;
struct prot_ssl_info;

/* Per-connection parameters, filled by login_init_params. */
typedef struct login_params {
    const char *domain;        /* user's domain for the directory look-ups (NULL: default) */
    struct prot_ssl_info *tls; /* TLS facts with the client certificate, or NULL */
    int strength;              /* cipher strength in bits, 0 without TLS */
    void *context;             /* passed through to password verification */
    const char *service;       /* e.g. "pop3": forms the configuration keys */
    int mask;                  /* protection mask: bit 0 = no security layer */
    int certlookup;            /* 0 here; 1 only in cert_to_internalid */
} login_params;

/* Reads "local.instancedir", calls verifypass_init(cache) and returns
 * external_init(instancedir, "msg"). A failed verifier set-up returns -1
 * before the mapping is tried. */
ORV_API int login_init(config_cache *cache) ORV_NOEXCEPT;

/* Fills params for a connection read through stream (NULL: no TLS). When
 * *nocert (nocert may be NULL) is non-zero the TLS facts are dropped, so
 * that EXTERNAL is not possible. The texts are not copied. Returns mask. */
ORV_API int login_init_params(login_params *params, const char *domain, const char *service, struct protstream *stream,
                              const int *nocert, int mask, void *context) ORV_NOEXCEPT;

/* Releases the TLS facts; the record may be filled again. */
ORV_API void login_free_params(login_params *params) ORV_NOEXCEPT;

/* The plaintext policy for params' service and strength, then verifypass of
 * user and the NUL-terminated password in params' domain and context; on
 * success *userattrs (may be NULL) gets the user's attributes. Refusals:
 * "Plaintext passwords not accepted", "SSL encryption required for
 * plaintext passwords", "Stronger SSL encryption required for plaintext
 * passwords". */
ORV_API int login_plaintext(char ***userattrs, const login_params *params, const char *user, const char *password,
                            const char **errtext) ORV_NOEXCEPT;

/* The "local.ugldaphasplainpasswords" switch: whether APOP may be offered. */
ORV_API int login_doesapop(void) ORV_NOEXCEPT;

/* APOP: digest must be the 32 lower-case hex digits of MD5(challenge +
 * user's stored password). "Password incorrect" otherwise. */
ORV_API int login_apop(const char *user, const char *domain, void *context, const char *challenge, const char *digest,
                       const char **errtext) ORV_NOEXCEPT;

/* Room for the longest list of login_capabilities, with its NUL. */
#define LOGIN_CAPABILITIES_SIZE 64

/* Writes to out (LOGIN_CAPABILITIES_SIZE bytes) the items " AUTH=CRAM-MD5",
 * " AUTH=PLAIN", " AUTH=LOGIN" (not when no_login is non-zero) and
 * " AUTH=EXTERNAL" of the mechanisms available to service at this strength
 * with a client certificate (cert non-zero) or none; "" when none is.
 * Returns out. */
ORV_API char *login_capabilities(char *out, int no_login, const char *service, int strength, int cert) ORV_NOEXCEPT;

/* The mechanism called name (any case): 0 and *mech set, or 1 with *errtext
 * set to NULL. */
ORV_API int login_authenticate(const char *name, const sasl_server_mech **mech, const char **errtext) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_LOGIN_H */
