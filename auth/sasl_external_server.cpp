// EXTERNAL: the identity is the directory entry that the TLS client
// certificate maps to; the certificate map's directory operations go
// through the default connection pool.
#define LDAP_DEPRECATED 1
#include <ldap.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "auth_internal.hpp"
#include "orv/strcopy.hpp"
#include "orvutil/platform/certmap.h"
#include "orvutil/platform/ldpool.h"
#include "orvutil/platform/protio.h"
#include "orvutil/platform/verifypass.h"
#include "orvutil/platform/zolog.h"

namespace {

using namespace orv::auth;

struct ExternalState {
    int step;
    char *userid;
    char *authid;  // login id of the certificate's entry
    char **attrs;  // that entry's attributes until the step
    const char *domain;
};

// -1 not initialised, 1 initialised (read by the exit handler).
int g_mapping = -1;
bool g_exit_registered = false;

void release_mapping() {
    if (g_mapping == 1) ldaputil_exit();
}

// The directory operations of the certificate map: the connection handle is
// ignored, every call goes to the default pool.
LDAPUVTable_t pool_operations() {
    LDAPUVTable_t vt{};
    vt.ldapuV_search_s = [](LDAP *, const char *base, int scope, const char *filter, char **attrs, int attrsonly,
                            LDAPMessage **res) {
        return LdPool_Search_S(nullptr, base, scope, filter, attrs, attrsonly, 0, res);
    };
    vt.ldapuV_count_entries = [](LDAP *, LDAPMessage *res) {
        int n = 0;
        LdPool_Count_Entries(res, &n);
        return n;
    };
    vt.ldapuV_first_entry = [](LDAP *, LDAPMessage *res) {
        LDAPMessage *e = nullptr;
        LdPool_First_Entry(res, &e);
        return e;
    };
    vt.ldapuV_next_entry = [](LDAP *, LDAPMessage *entry) {
        LDAPMessage *e = nullptr;
        LdPool_Next_Entry(entry, &e);
        return e;
    };
    vt.ldapuV_msgfree = [](LDAP *, LDAPMessage *res) { return ldap_msgfree(res); };
    vt.ldapuV_get_dn = [](LDAP *, LDAPMessage *entry) {
        char *dn = nullptr;
        LdPool_Get_DN(entry, &dn);
        return dn;
    };
    vt.ldapuV_memfree = [](LDAP *, void *p) { ldap_memfree(p); };
    vt.ldapuV_get_values = [](LDAP *, LDAPMessage *entry, const char *attr) {
        char **v = nullptr;
        LdPool_Get_Values(entry, attr, &v);
        return v;
    };
    vt.ldapuV_value_free = [](LDAP *, char **v) { ldap_value_free(v); };
    vt.ldapuV_get_values_len = [](LDAP *, LDAPMessage *entry, const char *attr) {
        berval **v = nullptr;
        LdPool_Get_Values_Len(entry, attr, &v);
        return v;
    };
    vt.ldapuV_value_free_len = [](LDAP *, berval **v) { ldap_value_free_len(v); };
    return vt;
}

// Maps cert under the base DN of domain and applies the account policy:
// 0 with *attrs set, or 1 with *errtext set.
int map_certificate(const void *cert, const char *domain, const login_params *params, char ***attrs,
                    const char **errtext) {
    std::unique_ptr<char, decltype(&std::free)> basedn(get_domain_basedn(domain), &std::free);
    if (basedn == nullptr) {
        *errtext = "Unknown domain";
        return 1;
    }
    LDAPMessage *res = nullptr;
    const int rc = ldapu_cert_to_user(cert, nullptr, basedn.get(), &res, nullptr);
    if (rc != LDAPU_SUCCESS) {
        ldap_msgfree(res);
        *errtext = ldapu_err2string(rc);
        return 1;
    }
    LDAPMessage *entry = nullptr;
    LdPool_First_Entry(res, &entry);
    const int policy = check_authpolicy(entry, params, attrs, errtext);
    ldap_msgfree(res);
    if (policy == 0 && (*attrs == nullptr || (*attrs)[0] == nullptr)) {
        userattrs_free(*attrs);
        *attrs = nullptr;
        *errtext = "Invalid credentials";
        return 1;
    }
    return policy != 0 ? 1 : 0;
}

int external_server_available(void *, const char *, int, int cert) { return cert != 0 ? 1 : 0; }

int external_server_start(void *, const login_params *params, sasl_proxycheck, int *challen, const char **challenge,
                          void *, void **state, const char **errtext) {
    if (params == nullptr || params->tls == nullptr) {
        *errtext = "No TLS client certificate";
        return 1;
    }
    if (start_checks(params, errtext) != 0) return 1;
    auto *s = static_cast<ExternalState *>(std::calloc(1, sizeof(ExternalState)));
    if (s == nullptr) {
        *errtext = "Out of memory";
        return 1;
    }
    if (map_certificate(params->tls->cert, params->domain, params, &s->attrs, errtext) != 0) {
        std::free(s);
        return 1;
    }
    s->authid = orv::dup_string(s->attrs[0]);
    if (s->authid == nullptr) {
        userattrs_free(s->attrs);
        std::free(s);
        *errtext = "Out of memory";
        return 1;
    }
    s->domain = params->domain;
    *challen = 0;
    *challenge = "";
    *state = s;
    return 0;
}

int external_server_auth(void *state, int len, char *data, int *challen, const char **challenge, const char **errtext) {
    auto *s = static_cast<ExternalState *>(state);
    *challen = 0;
    *challenge = nullptr;
    if (s == nullptr || ++s->step != 1) {
        *errtext = "Internal error: invalid state in external_server_auth";
        return SASL_FAILED;
    }
    if (len > 0 && data != nullptr) {
        userattrs_free(s->attrs);
        s->attrs = nullptr;
        s->userid = orv::dup_string(std::string_view(data, len));
        if (s->userid == nullptr) {
            *errtext = "Out of memory";
            return SASL_FAILED;
        }
        if (std::memchr(data, '\0', len) != nullptr) {
            *errtext = "Not authorized: requested userid contains NUL character";
            return SASL_FAILED;
        }
        return check_proxyauth(s->authid, s->userid, s->domain, errtext) == 0 ? SASL_DONE : SASL_FAILED;
    }
    s->userid = orv::dup_string(s->authid);
    if (s->userid == nullptr) {
        *errtext = "Out of memory";
        return SASL_FAILED;
    }
    return SASL_DONE;
}

// EXTERNAL keeps no protection field: the only layer it offers is none.
void external_query_state(void *state, const char **userid, int *protection, int *out1, int *out2, int *out3) {
    report_state(static_cast<ExternalState *>(state)->userid, 1, userid, protection, out1, out2, out3);
}

void external_free_state(void *state) {
    auto *s = static_cast<ExternalState *>(state);
    if (s == nullptr) return;
    std::free(s->userid);
    std::free(s->authid);
    userattrs_free(s->attrs);
    std::free(s);
}

int external_get_cacheid(void *) { return 0; }

}  // namespace

extern "C" {

const sasl_server_mech sasl_external_server = {
    "EXTERNAL",           external_server_available, external_server_start, external_server_auth,
    external_query_state, external_free_state,       external_get_cacheid,  nullptr};

int external_init(const char *instancedir, const char *libname) noexcept {
    g_mapping = -1;
    const LDAPUVTable_t vt = pool_operations();
    ldapu_VTable_set(&vt);
    const std::string file = std::string(instancedir != nullptr ? instancedir : ".") + "/config/certmap.conf";
    const int rc = ldapu_certmap_init(file.c_str(), libname);
    if (rc != LDAPU_SUCCESS) {
        zolog(0, 2, "cannot initialize cert mapping library: %s", ldapu_err2string(rc));
        return rc;
    }
    zolog(0, 7, "external_init(): initialized cert mapping library: %s, rc=%d", file.c_str(), rc);
    g_mapping = 1;
    if (!g_exit_registered) g_exit_registered = std::atexit(release_mapping) == 0;
    return 0;
}

char *cert_to_internalid(const void *cert, const char **errtext) noexcept {
    const char *ignored = nullptr;
    if (errtext == nullptr) errtext = &ignored;
    login_params params{};
    params.certlookup = 1;
    char **attrs = nullptr;
    if (map_certificate(cert, nullptr, &params, &attrs, errtext) != 0) return nullptr;
    char *id = orv::dup_string(attrs[0]);
    userattrs_free(attrs);
    return id;
}

}  // extern "C"
