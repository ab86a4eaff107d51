/*
 * Mapping client certificates to directory entries.
 *
 * The map file (usually <instancedir>/config/certmap.conf) holds rules, one
 * per certificate issuer, and a default rule for the other issuers:
 *
 *     # comment; blank lines are ignored
 *     issuer default
 *     filter       cn
 *     issuer O=Orvane Test,CN=Orvane Test CA
 *     base         ou o
 *     filter       uid
 *     subjectattr  orvCertSubject
 *     compare      on
 *
 * "issuer DN" starts the rule for certificates whose issuer is DN (RFC 4514
 * text; case and blanks around ',' and '=' do not matter), "issuer default"
 * the default rule. The lines after it set the rule, one key and its
 * values per line:
 *
 *   base         subject components (cn, uid, mail, ou, o, dc, l, st, c)
 *                whose RDNs, in the subject's order, form the search base;
 *                without it the base DN handed to ldapu_cert_to_user is used
 *   filter       components whose values must equal the entry's attribute
 *                of the same name (mail: the subject's emailAddress)
 *   subjectattr  an attribute whose value must equal the subject DN
 *   compare      on: the entry's userCertificate;binary must hold the
 *                presented certificate byte for byte (off by default)
 *
 * A rule needs filter or subjectattr (or both: then all must match). A
 * certificate without a component that its filter names matches nothing. A
 * malformed file (a key outside a rule, an unknown key or component, a
 * repeated issuer, a rule without filter and subjectattr) is refused:
 * ldapu_certmap_init returns LDAPU_ERR_CERTMAP_SYNTAX and logs the file name
 * and line number at level 2.
 *
 * The directory is reached only through the operations installed with
 * ldapu_VTable_set. Initialisation is not thread-safe; mapping is.
 */
#ifndef ORVUTIL_PLATFORM_CERTMAP_H
#define ORVUTIL_PLATFORM_CERTMAP_H

#include "../orv_defs.h"

ORV_BEGIN_DECLS

struct ldap;
struct ldapmsg;
struct berval;

#define LDAPU_SUCCESS                0
#define LDAPU_FAILED                 (-1) /* no entry matches the certificate */
#define LDAPU_ERR_OUT_OF_MEMORY      (-2)
#define LDAPU_ERR_CANNOT_OPEN_FILE   (-3)
#define LDAPU_ERR_CERTMAP_SYNTAX     (-4)
#define LDAPU_ERR_NOT_INITIALIZED    (-5)
#define LDAPU_ERR_NO_VTABLE          (-6)
#define LDAPU_ERR_NO_CERT            (-7)
#define LDAPU_ERR_MULTIPLE_MATCHES   (-8)
#define LDAPU_ERR_CERT_VERIFY_FAILED (-9)  /* entries found, none holds the certificate */
#define LDAPU_ERR_DIRECTORY          (-10) /* the search failed */
#define LDAPU_ERR_INVALID_ARGUMENT   (-11)

/* The directory operations the mapping uses, with the signatures of the
 * classic LDAP C API. Every slot must be set. */
typedef struct LDAPUVTable {
    int (*ldapuV_search_s)(struct ldap *ld, const char *base, int scope, const char *filter, char **attrs,
                           int attrsonly, struct ldapmsg **res);
    int (*ldapuV_count_entries)(struct ldap *ld, struct ldapmsg *res);
    struct ldapmsg *(*ldapuV_first_entry)(struct ldap *ld, struct ldapmsg *res);
    struct ldapmsg *(*ldapuV_next_entry)(struct ldap *ld, struct ldapmsg *entry);
    int (*ldapuV_msgfree)(struct ldap *ld, struct ldapmsg *res);
    char *(*ldapuV_get_dn)(struct ldap *ld, struct ldapmsg *entry);
    void (*ldapuV_memfree)(struct ldap *ld, void *p);
    char **(*ldapuV_get_values)(struct ldap *ld, struct ldapmsg *entry, const char *attr);
    void (*ldapuV_value_free)(struct ldap *ld, char **values);
    struct berval **(*ldapuV_get_values_len)(struct ldap *ld, struct ldapmsg *entry, const char *attr);
    void (*ldapuV_value_free_len)(struct ldap *ld, struct berval **values);
} LDAPUVTable_t;

/* Copies the table; LDAPU_SUCCESS, or LDAPU_ERR_NO_VTABLE when vt or a slot
 * is NULL. */
ORV_API int ldapu_VTable_set(const LDAPUVTable_t *vt) ORV_NOEXCEPT;

/* Reads the map file, replacing the rules read before. libname names the
 * caller in log records and may be NULL. LDAPU_SUCCESS or an error code;
 * on error the old rules are dropped. */
ORV_API int ldapu_certmap_init(const char *config_file, const char *libname) ORV_NOEXCEPT;

/* Maps cert (an OpenSSL X509 pointer, as in prot_ssl_info) to the entry of
 * its issuer's rule, searching under basedn when the rule has no base. ld
 * is handed to the table's operations as it is. On LDAPU_SUCCESS *res is a
 * result whose first entry is the user's (free it with the table's
 * msgfree) and *user (may be NULL) that entry's DN (free it with
 * ldapu_free). */
ORV_API int ldapu_cert_to_user(const void *cert, struct ldap *ld, const char *basedn, struct ldapmsg **res,
                               char **user) ORV_NOEXCEPT;

ORV_API void ldapu_free(void *p) ORV_NOEXCEPT;

/* A static English text for an LDAPU_ code. */
ORV_API const char *ldapu_err2string(int err) ORV_NOEXCEPT;

/* Drops the rules read by ldapu_certmap_init. */
ORV_API void ldaputil_exit(void) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_PLATFORM_CERTMAP_H */
