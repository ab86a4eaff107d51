/*
 * Password verification and account policy over the directory pool.
 *
 * Users are entries under their domain's base DN, found by a login
 * attribute; a password is verified by a simple bind as the entry found, on
 * a connection of the pool kept for binds. Configuration keys (read by
 * verifypass_init, with the pool's keys of ldpool.h):
 *
 *   ldap.loginattr      text    "uid"                 attribute holding login ids
 *   ldap.disabledattr   text    "orvAccountDisabled"  value TRUE: the account
 *                                                     is disabled
 *   ldap.proxyattr      text    "orvProxyFor"         on an acting entry: the login
 *                                                     ids it may act for, "*" any
 *   ldap.basedn.DOMAIN  text    (none)                base DN of DOMAIN
 *   ldap.dncachetime    int     60                    seconds a verified login
 *                                                     id's DN is remembered
 *                                                     (0-3600, 0: never)
 *   local.ugldaphasplainpasswords switch off          userPassword holds clear
 *                                                     text: verifypass_getpass
 *                                                     may hand it out
 *
 * An account is locked while it has a pwdAccountLockedTime value (password
 * policy schema), disabled while its disabled attribute is TRUE (any case).
 * examples/orvutil.schema defines the attributes of our own.
 *
 * DN cache: after a successful bind the entry's DN is remembered under the
 * base DN and login id (nothing secret; at most 10000 of them) for
 * ldap.dncachetime seconds from that bind. A verification that finds it
 * binds as that DN and, at the same time on a search connection, reads the
 * entry's policy attributes under that DN with the login filter: one round
 * trip instead of two. The policy is thus read on every verification, and
 * a change takes effect at once: a new password, a lock or a disabling
 * apply to the next verification; an entry removed, renamed or whose login
 * id changed is not found under its old DN, and the id is looked up again.
 * A refused bind forgets the DN at once. What the lifetime bounds: a second
 * entry given the same login id (ambiguous, hence refused, without the
 * cache) is only noticed when the DN is forgotten. A broken connection or an
 * unanswered server falls back to the full search, with fail-over.
 *
 * Results are 0 (accepted) or 1 (refused, *errtext set to a static text).
 * The texts never tell an unknown user from a wrong password: both are
 * "Invalid credentials". Others: "Account locked", "Account disabled",
 * "Directory unavailable", "Not authorized to act for this user",
 * "Stored passwords not available", "Stored password is hashed",
 * "Verification not initialized", "Out of memory".
 *
 * User attributes (userattrs) are a NULL-terminated vector of malloc'd
 * texts: [0] the login id (first value of the login attribute), [1] the
 * entry's DN; freed with userattrs_free.
 *
 * Every function is thread-safe once verifypass_init has returned.
 */
#ifndef ORVUTIL_PLATFORM_VERIFYPASS_H
#define ORVUTIL_PLATFORM_VERIFYPASS_H

#include "config.h"
#include "ldpool.h"

ORV_BEGIN_DECLS

/* Reads the keys from cache (NULL: the default cache, which must outlive
 * the verifier: domain mappings are read from it later), builds the pool and
 * makes it the default pool. 0, or -1 (logged at level 2). Calling it again
 * replaces the settings and the pool; no verification may run meanwhile. */
ORV_API int verifypass_init(config_cache *cache) ORV_NOEXCEPT;

/* Frees what verifypass_init built. */
ORV_API void verifypass_exit(void) ORV_NOEXCEPT;

/* Verifies user's password (passlen bytes, or -1 for a NUL-terminated
 * text) in domain (NULL or "": the default base DN "ldap.basedn"), then the
 * account policy. context is passed through and not read. On success
 * *userattrs (may be NULL) gets the user's attributes. An empty password is
 * refused without reaching the directory. */
ORV_API int verifypass(const char *user, const char *password, int passlen, const char *domain, void *context,
                       char ***userattrs, const char **errtext) ORV_NOEXCEPT;

/* The stored clear-text password of user (first userPassword value) in
 * *password, malloc'd: wipe it with explicit_bzero, then free. Only when
 * "local.ugldaphasplainpasswords" is on; a value in {SCHEME} form is
 * refused. The account policy applies. */
ORV_API int verifypass_getpass(const char *user, const char *domain, void *context, char **password,
                               const char **errtext) ORV_NOEXCEPT;

/* The policy check on a directory entry found by a search that asked for
 * the login, disabled and pwdAccountLockedTime attributes. params (the
 * login parameter record, may be NULL) is not read. On success *userattrs
 * (may be NULL) gets the entry's attributes. */
ORV_API int check_authpolicy(struct ldapmsg *entry, const void *params, char ***userattrs,
                             const char **errtext) ORV_NOEXCEPT;

/* Whether authid may act as asid: authid's entry in domain lists asid (case
 * as written) or "*" in its proxy attribute. An equal pair is accepted. */
ORV_API int check_proxyauth(const char *authid, const char *asid, const char *domain,
                            const char **errtext) ORV_NOEXCEPT;

ORV_API void userattrs_free(char **userattrs) ORV_NOEXCEPT;

/* The base DN of domain, malloc'd: the key "ldap.basedn." + domain when
 * set, else "dc=" per label ("example.com" gives "dc=example,dc=com");
 * NULL or "" gives "ldap.basedn". NULL when there is none, when a label is
 * empty or holds anything but letters, digits and '-', or without memory. */
ORV_API char *get_domain_basedn(const char *domain) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_PLATFORM_VERIFYPASS_H */
