/*
 * A pool of bound connections to one or more directory (LDAP) servers, for
 * multi-threaded servers. Every function may be called from any thread.
 *
 * Configuration keys (read once by LdPool_New):
 *
 *   ldap.servers         text  "ldap://127.0.0.1:389/"  server URIs, separated
 *                              by blanks or commas, in order of preference
 *   ldap.binddn          text  ""   DN the connections bind as ("" anonymous)
 *   ldap.bindpassword    text  ""   its password
 *   ldap.basedn          text  ""   base DN of the default domain
 *   ldap.poolsize        int   4    idle connections kept, per kind (1-256)
 *   ldap.connecttimeout  int   2    seconds for one connection attempt:
 *                                   TCP connect plus the first bind
 *   ldap.timeout         int   5    seconds for one operation
 *   ldap.retryinterval   int   30   seconds a failed server is skipped
 *                                   before it is probed again
 *
 * Fail-over: a new connection goes to the first server that is not
 * skipped; each server is tried at most once per connection, each attempt
 * takes at most the connect time-out, so finding a working server takes at
 * most (servers x connect time-out). A server that refuses, times out, or
 * lets an operation time out is skipped for the retry interval, and its
 * idle connections are dropped; when every server is skipped they are all
 * tried anyway. Fail-back: once a preferred server's interval is over, the
 * next request probes it with a new connection, and idle connections to
 * less preferred servers are dropped when it answers. An operation that
 * finds its pooled connection broken (the server restarted, a time-out) is
 * retried once on a fresh connection.
 *
 * The pool does not cap the connections in use: a thread that finds no idle
 * connection opens one; releases beyond the pool size close it.
 *
 * Results are the LDAP result codes of <ldap.h> (0 LDAP_SUCCESS; -1
 * LDAP_SERVER_DOWN when no server answers; -9 LDAP_PARAM_ERROR for a bad
 * argument). Messages, DNs and values handed out are freed with ldap_msgfree,
 * ldap_memfree, ldap_value_free and ldap_value_free_len. The pool ignores
 * SIGPIPE (when it was at its default) so that a server that goes away
 * cannot kill the process.
 */
#ifndef ORVUTIL_PLATFORM_LDPOOL_H
#define ORVUTIL_PLATFORM_LDPOOL_H

#include "config.h"

ORV_BEGIN_DECLS

struct ldap;    /* LDAP of <ldap.h> */
struct ldapmsg; /* LDAPMessage of <ldap.h> */
struct berval;

typedef struct LdPool LdPool;

/* Kinds of connection: searches run as the pool's bind DN; password checks
 * rebind a connection of their own as the user. */
#define LDPOOL_SEARCH 0
#define LDPOOL_BIND   1

/* A pool built from the keys above (cache NULL: the default cache). No
 * connection is opened yet. NULL with *err (may be NULL) set when a key is
 * out of range or memory runs out. */
ORV_API LdPool *LdPool_New(config_cache *cache, const char **err) ORV_NOEXCEPT;

/* Closes every idle connection and frees the pool; connections still
 * acquired must be released first. Nothing for NULL. Freeing the default
 * pool clears the default. */
ORV_API void LdPool_Free(LdPool *pool) ORV_NOEXCEPT;

/* The pool that a NULL pool argument means (set by verifypass_init). */
ORV_API void LdPool_SetDefault(LdPool *pool) ORV_NOEXCEPT;
ORV_API LdPool *LdPool_Default(void) ORV_NOEXCEPT;

/* A connection of the given kind, bound as the pool's bind DN, with its
 * result code in *rc (may be NULL): an idle one or a new one. NULL when no
 * server answers. */
ORV_API struct ldap *LdPool_Acquire(LdPool *pool, int kind, int *rc) ORV_NOEXCEPT;

/* Hands a connection back. rc is the result of its last operation: a result
 * that means the connection or its server failed (server down, time-out,
 * connect error, unavailable) closes it and, for a time-out, skips its
 * server. LDPOOL_BIND connections may be left bound as anyone. */
ORV_API void LdPool_Release(LdPool *pool, struct ldap *ld, int rc) ORV_NOEXCEPT;

/* Whether rc says the connection or its server failed. */
ORV_API int LdPool_Is_Connection_Error(int rc) ORV_NOEXCEPT;

/* A search on a pooled connection (with a fresh one once more if it was
 * broken). timelimit is in seconds, 0 or less for the pool's operation
 * time-out. *res gets the result chain (NULL when none), even for a
 * non-zero result such as LDAP_SIZELIMIT_EXCEEDED. */
ORV_API int LdPool_Search_S(LdPool *pool, const char *base, int scope, const char *filter, char **attrs, int attrsonly,
                            int timelimit, struct ldapmsg **res) ORV_NOEXCEPT;

/* Walking a result chain; these never touch the network. */
ORV_API int LdPool_Count_Entries(struct ldapmsg *res, int *count) ORV_NOEXCEPT;
ORV_API int LdPool_First_Entry(struct ldapmsg *res, struct ldapmsg **entry) ORV_NOEXCEPT;
ORV_API int LdPool_Next_Entry(struct ldapmsg *entry, struct ldapmsg **next) ORV_NOEXCEPT;
/* *dn is freed with ldap_memfree. */
ORV_API int LdPool_Get_DN(struct ldapmsg *entry, char **dn) ORV_NOEXCEPT;
/* NULL-terminated values of attr, or NULL when it has none (result 0
 * either way); freed with ldap_value_free / ldap_value_free_len. */
ORV_API int LdPool_Get_Values(struct ldapmsg *entry, const char *attr, char ***values) ORV_NOEXCEPT;
ORV_API int LdPool_Get_Values_Len(struct ldapmsg *entry, const char *attr, struct berval ***values) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_PLATFORM_LDPOOL_H */
