// Password verification and account policy over the directory pool.
#define LDAP_DEPRECATED 1
#include "orvutil/platform/verifypass.h"

#include <ldap.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "ldap_internal.hpp"
#include "orv/ascii.hpp"
#include "orvutil/platform/zolog.h"

namespace {

constexpr const char *kInvalid = "Invalid credentials";
constexpr const char *kUnavailable = "Directory unavailable";
constexpr const char *kNoMemory = "Out of memory";

struct Settings {
    config_cache *cache;
    std::string basedn;
    std::string loginattr;
    std::string disabledattr;
    std::string proxyattr;
    bool plain;
    LdPool *pool;
};

std::unique_ptr<Settings> settings;

struct MsgFree {
    void operator()(LDAPMessage *m) const { ldap_msgfree(m); }
};
using Msg = std::unique_ptr<LDAPMessage, MsgFree>;

char *dup_text(const char *s, size_t n) {
    auto *p = static_cast<char *>(std::malloc(n + 1));
    if (p != nullptr) {
        std::memcpy(p, s, n);
        p[n] = '\0';
    }
    return p;
}

// A login id that can name an entry: not empty, no control bytes.
bool plausible_user(const char *user) {
    if (user == nullptr || *user == '\0') return false;
    for (const char *p = user; *p; ++p)
        if (orv::ascii_iscntrl(static_cast<unsigned char>(*p))) return false;
    return true;
}

int refuse(const char **errtext, const char *text) {
    *errtext = text;
    return 1;
}

// The single entry of user under domain's base DN, with attrs; 0 or 1.
int find_user(const char *user, const char *domain, const char *extra_attr, Msg &res, LDAPMessage **entry,
              const char **errtext) {
    if (!settings) return refuse(errtext, "Verification not initialized");
    if (!plausible_user(user)) return refuse(errtext, kInvalid);
    std::unique_ptr<char, decltype(&std::free)> base(get_domain_basedn(domain), &std::free);
    if (!base) return refuse(errtext, kInvalid);
    const std::string filter = "(" + settings->loginattr + "=" + orv::ldap_filter_escape(user) + ")";
    const Settings &s = *settings;
    char *attrs[] = {const_cast<char *>(s.loginattr.c_str()), const_cast<char *>(s.disabledattr.c_str()),
                     const_cast<char *>("pwdAccountLockedTime"), const_cast<char *>(extra_attr), nullptr};
    LDAPMessage *raw = nullptr;
    const int rc = LdPool_Search_S(s.pool, base.get(), LDAP_SCOPE_SUBTREE, filter.c_str(), attrs, 0, 0, &raw);
    res.reset(raw);
    if (rc == LDAP_NO_SUCH_OBJECT) return refuse(errtext, kInvalid);
    if (rc != LDAP_SUCCESS) {
        zolog(0, 3, "user search under %s failed: %s", base.get(), ldap_err2string(rc));
        return refuse(errtext, kUnavailable);
    }
    int count = 0;
    LdPool_Count_Entries(raw, &count);
    if (count != 1) return refuse(errtext, kInvalid);
    LdPool_First_Entry(raw, entry);
    return 0;
}

bool is_true(char **values) {
    return values != nullptr && values[0] != nullptr && orv::ascii_iequal(values[0], "TRUE");
}

// A simple bind as dn on a bind connection, retried once on a fresh one.
int bind_as(const char *dn, const char *password, size_t len) {
    int rc = LDAP_SERVER_DOWN;
    for (int attempt = 0; attempt < 2; ++attempt) {
        LDAP *ld = LdPool_Acquire(settings->pool, LDPOOL_BIND, &rc);
        if (ld == nullptr) return rc;
        berval cred{len, const_cast<char *>(password)};
        rc = ldap_sasl_bind_s(ld, dn, LDAP_SASL_SIMPLE, &cred, nullptr, nullptr, nullptr);
        LdPool_Release(settings->pool, ld, rc);
        if (!LdPool_Is_Connection_Error(rc)) break;
    }
    return rc;
}

}  // namespace

extern "C" {

int verifypass_init(config_cache *cache) noexcept {
    if (cache == nullptr) cache = config_getdefaultcache();
    const char *err = nullptr;
    LdPool *pool = LdPool_New(cache, &err);
    if (pool == nullptr) {
        zolog(0, 2, "cannot set up the LDAP pool: %s", err);
        return -1;
    }
    try {
        auto s = std::make_unique<Settings>(Settings{
            cache, config_get_string(cache, "ldap.basedn", ""), config_get_string(cache, "ldap.loginattr", "uid"),
            config_get_string(cache, "ldap.disabledattr", "orvAccountDisabled"),
            config_get_string(cache, "ldap.proxyattr", "orvProxyFor"),
            config_get_switch(cache, "local.ugldaphasplainpasswords", 0) != 0, pool});
        verifypass_exit();
        LdPool_SetDefault(pool);
        settings = std::move(s);
        return 0;
    } catch (const std::bad_alloc &) {
        LdPool_Free(pool);
        zolog(0, 2, "cannot set up password verification: out of memory");
        return -1;
    }
}

void verifypass_exit(void) noexcept {
    if (!settings) return;
    LdPool_Free(settings->pool);
    settings.reset();
}

int verifypass(const char *user, const char *password, int passlen, const char *domain, void *context,
               char ***userattrs, const char **errtext) noexcept {
    (void)context;
    const char *dummy;
    if (errtext == nullptr) errtext = &dummy;
    if (userattrs != nullptr) *userattrs = nullptr;
    // An empty password makes a simple bind unauthenticated: it would
    // "succeed" for any existing DN.
    if (password == nullptr || passlen == 0 || passlen < -1) return refuse(errtext, kInvalid);
    const size_t len = passlen == -1 ? std::strlen(password) : static_cast<size_t>(passlen);
    if (len == 0) return refuse(errtext, kInvalid);
    try {
        Msg res(nullptr);
        LDAPMessage *entry = nullptr;
        if (find_user(user, domain, nullptr, res, &entry, errtext) != 0) return 1;
        char *dn = nullptr;
        if (LdPool_Get_DN(entry, &dn) != LDAP_SUCCESS) return refuse(errtext, kUnavailable);
        const int rc = bind_as(dn, password, len);
        ldap_memfree(dn);
        if (rc == LDAP_INVALID_CREDENTIALS || rc == LDAP_INAPPROPRIATE_AUTH || rc == LDAP_UNWILLING_TO_PERFORM)
            return refuse(errtext, kInvalid);
        if (rc != LDAP_SUCCESS) {
            zolog(0, 3, "password bind failed: %s", ldap_err2string(rc));
            return refuse(errtext, kUnavailable);
        }
        return check_authpolicy(entry, nullptr, userattrs, errtext);
    } catch (const std::bad_alloc &) {
        return refuse(errtext, kNoMemory);
    }
}

int verifypass_getpass(const char *user, const char *domain, void *context, char **password,
                       const char **errtext) noexcept {
    (void)context;
    const char *dummy;
    if (errtext == nullptr) errtext = &dummy;
    if (password == nullptr) return refuse(errtext, kInvalid);
    *password = nullptr;
    if (settings && !settings->plain) return refuse(errtext, "Stored passwords not available");
    try {
        Msg res(nullptr);
        LDAPMessage *entry = nullptr;
        if (find_user(user, domain, "userPassword", res, &entry, errtext) != 0) return 1;
        if (check_authpolicy(entry, nullptr, nullptr, errtext) != 0) return 1;
        berval **values = nullptr;
        LdPool_Get_Values_Len(entry, "userPassword", &values);
        int result = 0;
        if (values == nullptr || values[0] == nullptr || values[0]->bv_len == 0) {
            result = refuse(errtext, kInvalid);
        } else if (values[0]->bv_val[0] == '{' && std::memchr(values[0]->bv_val, '}', values[0]->bv_len) != nullptr) {
            result = refuse(errtext, "Stored password is hashed");
        } else if ((*password = dup_text(values[0]->bv_val, values[0]->bv_len)) == nullptr) {
            result = refuse(errtext, kNoMemory);
        }
        for (berval **v = values; v != nullptr && *v != nullptr; ++v) explicit_bzero((*v)->bv_val, (*v)->bv_len);
        ldap_value_free_len(values);
        return result;
    } catch (const std::bad_alloc &) {
        return refuse(errtext, kNoMemory);
    }
}

int check_authpolicy(LDAPMessage *entry, const void *params, char ***userattrs, const char **errtext) noexcept {
    (void)params;
    const char *dummy;
    if (errtext == nullptr) errtext = &dummy;
    if (userattrs != nullptr) *userattrs = nullptr;
    if (!settings) return refuse(errtext, "Verification not initialized");
    if (entry == nullptr) return refuse(errtext, kInvalid);
    char **values = nullptr;
    LdPool_Get_Values(entry, "pwdAccountLockedTime", &values);
    const bool locked = values != nullptr && values[0] != nullptr;
    ldap_value_free(values);
    if (locked) return refuse(errtext, "Account locked");
    LdPool_Get_Values(entry, settings->disabledattr.c_str(), &values);
    const bool disabled = is_true(values);
    ldap_value_free(values);
    if (disabled) return refuse(errtext, "Account disabled");
    LdPool_Get_Values(entry, settings->loginattr.c_str(), &values);
    char *dn = nullptr;
    LdPool_Get_DN(entry, &dn);
    int result = 0;
    if (values == nullptr || values[0] == nullptr || dn == nullptr) {
        result = refuse(errtext, kInvalid);
    } else if (userattrs != nullptr) {
        auto **attrs = static_cast<char **>(std::calloc(3, sizeof(char *)));
        if (attrs != nullptr) {
            attrs[0] = dup_text(values[0], std::strlen(values[0]));
            attrs[1] = dup_text(dn, std::strlen(dn));
        }
        if (attrs == nullptr || attrs[0] == nullptr || attrs[1] == nullptr) {
            userattrs_free(attrs);
            result = refuse(errtext, kNoMemory);
        } else {
            *userattrs = attrs;
        }
    }
    ldap_value_free(values);
    ldap_memfree(dn);
    return result;
}

int check_proxyauth(const char *authid, const char *asid, const char *domain, const char **errtext) noexcept {
    const char *dummy;
    if (errtext == nullptr) errtext = &dummy;
    if (authid == nullptr || asid == nullptr) return refuse(errtext, kInvalid);
    if (std::strcmp(authid, asid) == 0) return 0;
    constexpr const char *kDenied = "Not authorized to act for this user";
    try {
        Msg res(nullptr);
        LDAPMessage *entry = nullptr;
        if (!settings) return refuse(errtext, "Verification not initialized");
        if (find_user(authid, domain, settings->proxyattr.c_str(), res, &entry, errtext) != 0)
            return *errtext == kUnavailable ? 1 : refuse(errtext, kDenied);
        char **values = nullptr;
        LdPool_Get_Values(entry, settings->proxyattr.c_str(), &values);
        bool allowed = false;
        for (char **v = values; v != nullptr && *v != nullptr && !allowed; ++v)
            allowed = std::strcmp(*v, "*") == 0 || std::strcmp(*v, asid) == 0;
        ldap_value_free(values);
        return allowed ? 0 : refuse(errtext, kDenied);
    } catch (const std::bad_alloc &) {
        return refuse(errtext, kNoMemory);
    }
}

void userattrs_free(char **userattrs) noexcept {
    if (userattrs == nullptr) return;
    for (char **p = userattrs; *p != nullptr; ++p) std::free(*p);
    std::free(userattrs);
}

char *get_domain_basedn(const char *domain) noexcept {
    try {
        config_cache *cache = settings ? settings->cache : config_getdefaultcache();
        std::string dn;
        if (domain == nullptr || *domain == '\0') {
            dn = settings ? settings->basedn : config_get_string(cache, "ldap.basedn", "");
        } else if (const char *mapped =
                       config_get_string(cache, ("ldap.basedn." + std::string(domain)).c_str(), nullptr)) {
            dn = mapped;
        } else {
            std::string label;
            for (const char *p = domain;; ++p) {
                if (*p == '.' || *p == '\0') {
                    if (label.empty()) return nullptr;
                    dn += (dn.empty() ? "dc=" : ",dc=") + label;
                    label.clear();
                    if (*p == '\0') break;
                } else if (orv::ascii_isalnum(static_cast<unsigned char>(*p)) || *p == '-') {
                    label += *p;
                } else {
                    return nullptr;
                }
            }
        }
        return dn.empty() ? nullptr : dup_text(dn.data(), dn.size());
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

}  // extern "C"
