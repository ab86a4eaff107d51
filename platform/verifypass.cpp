// Password verification and account policy over the directory pool.
#define LDAP_DEPRECATED 1
#include "orvutil/platform/verifypass.h"

#include <ldap.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "ldap_internal.hpp"
#include "orv/ascii.hpp"
#include "orvutil/platform/zolog.h"

namespace {

constexpr const char *kInvalid = "Invalid credentials";
constexpr const char *kUnavailable = "Directory unavailable";
constexpr const char *kNoMemory = "Out of memory";

using Clock = std::chrono::steady_clock;

// Login ids that were verified lately, each with its entry's DN, so that the
// next verification can skip the search for the DN. Nothing secret is kept;
// the account policy is read again every time.
class DnCache {
  public:
    explicit DnCache(int lifetime) : lifetime_(std::chrono::seconds(lifetime)) {}
    bool enabled() const { return lifetime_.count() > 0; }

    bool find(const std::string &key, std::string &dn) {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto it = map_.find(key);
        if (it == map_.end()) return false;
        if (it->second.expires <= Clock::now()) {
            map_.erase(it);
            return false;
        }
        dn = it->second.dn;
        return true;
    }

    void put(const std::string &key, const std::string &dn) {
        std::lock_guard<std::mutex> lock(mutex_);
        const Clock::time_point now = Clock::now();
        if (map_.size() >= kMaxEntries) {
            std::erase_if(map_, [&](const auto &kv) { return kv.second.expires <= now; });
            // Still full of live entries: start over rather than track
            // ages; a miss only costs a search.
            if (map_.size() >= kMaxEntries) map_.clear();
        }
        map_[key] = Entry{dn, now + lifetime_};
    }

    void drop(const std::string &key) {
        std::lock_guard<std::mutex> lock(mutex_);
        map_.erase(key);
    }

  private:
    static constexpr size_t kMaxEntries = 10000;
    struct Entry {
        std::string dn;
        Clock::time_point expires;
    };
    const std::chrono::seconds lifetime_;
    std::mutex mutex_;
    std::unordered_map<std::string, Entry> map_;
};

struct Settings {
    config_cache *cache;
    std::string basedn;
    std::string loginattr;
    std::string disabledattr;
    std::string proxyattr;
    bool plain;
    LdPool *pool;
    DnCache dns;
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

using Text = std::unique_ptr<char, decltype(&std::free)>;

// The checks before the directory is asked: base gets domain's base DN.
// 0 or 1.
int user_base(const char *user, const char *domain, Text &base, const char **errtext) {
    if (!settings) return refuse(errtext, "Verification not initialized");
    if (!plausible_user(user)) return refuse(errtext, kInvalid);
    base.reset(get_domain_basedn(domain));
    return base ? 0 : refuse(errtext, kInvalid);
}

std::string login_filter(const char *user) {
    return "(" + settings->loginattr + "=" + orv::ldap_filter_escape(user) + ")";
}

// The attributes a user search asks for: the policy's, and extra when not
// NULL.
struct UserAttrs {
    char *list[5];
    explicit UserAttrs(const char *extra)
        : list{const_cast<char *>(settings->loginattr.c_str()), const_cast<char *>(settings->disabledattr.c_str()),
               const_cast<char *>("pwdAccountLockedTime"), const_cast<char *>(extra), nullptr} {}
};

// The single entry of user under base, with the policy's attributes and
// extra_attr; 0 or 1.
int search_user(const char *user, const char *base, const char *extra_attr, Msg &res, LDAPMessage **entry,
                const char **errtext) {
    const std::string filter = login_filter(user);
    UserAttrs attrs(extra_attr);
    LDAPMessage *raw = nullptr;
    const int rc = LdPool_Search_S(settings->pool, base, LDAP_SCOPE_SUBTREE, filter.c_str(), attrs.list, 0, 0, &raw);
    res.reset(raw);
    if (rc == LDAP_NO_SUCH_OBJECT) return refuse(errtext, kInvalid);
    if (rc != LDAP_SUCCESS) {
        zolog(0, 3, "user search under %s failed: %s", base, ldap_err2string(rc));
        return refuse(errtext, kUnavailable);
    }
    int count = 0;
    LdPool_Count_Entries(raw, &count);
    if (count != 1) return refuse(errtext, kInvalid);
    LdPool_First_Entry(raw, entry);
    return 0;
}

// The single entry of user under domain's base DN, with attrs; 0 or 1.
int find_user(const char *user, const char *domain, const char *extra_attr, Msg &res, LDAPMessage **entry,
              const char **errtext) {
    Text base(nullptr, &std::free);
    if (user_base(user, domain, base, errtext) != 0) return 1;
    return search_user(user, base.get(), extra_attr, res, entry, errtext);
}

// Results of a bind that mean a wrong password (or no such DN).
bool bind_refused(int rc) {
    return rc == LDAP_INVALID_CREDENTIALS || rc == LDAP_INAPPROPRIATE_AUTH || rc == LDAP_UNWILLING_TO_PERFORM;
}

// The result of the asynchronous operation msgid on ld, waited for until
// deadline; *res gets the message (the caller frees it).
int await_result(LDAP *ld, int msgid, Clock::time_point deadline, LDAPMessage **res) {
    *res = nullptr;
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now()).count();
    timeval wait{0, 0};
    if (left > 0) wait = timeval{static_cast<time_t>(left / 1000000), static_cast<suseconds_t>(left % 1000000)};
    const int got = ldap_result(ld, msgid, LDAP_MSG_ALL, &wait, res);
    if (got == 0) return LDAP_TIMEOUT;
    if (got < 0) {
        int rc = LDAP_SUCCESS;
        ldap_get_option(ld, LDAP_OPT_RESULT_CODE, &rc);
        return rc != LDAP_SUCCESS ? rc : LDAP_SERVER_DOWN;
    }
    int code = LDAP_OTHER;
    const int rc = ldap_parse_result(ld, *res, &code, nullptr, nullptr, nullptr, nullptr, 0);
    return rc != LDAP_SUCCESS ? rc : code;
}

// A verification as the cached DN of key: the bind as the DN and the read of
// the entry's policy attributes go out at once on two connections, so that
// it costs one round trip. The entry is read under its DN with the login
// filter: one removed, renamed or given another login id is not found, and
// the cache entry is dropped. False when that or a broken connection leaves
// the answer to the full search; else *result is the verification's.
bool verify_cached(const std::string &key, const std::string &dn, const char *user, const char *password, size_t len,
                   char ***userattrs, const char **errtext, int *result) {
    LdPool *pool = settings->pool;
    int src = LDAP_SERVER_DOWN, brc = LDAP_SERVER_DOWN;
    LDAP *sld = LdPool_Acquire(pool, LDPOOL_SEARCH, &src);
    LDAP *bld = sld != nullptr ? LdPool_Acquire(pool, LDPOOL_BIND, &brc) : nullptr;
    if (bld == nullptr) {
        // No server answered a new connection: the full path would walk
        // them all again only to find the same.
        LdPool_Release(pool, sld, src);
        zolog(0, 3, "no LDAP connection for a password check: %s", ldap_err2string(sld == nullptr ? src : brc));
        *result = refuse(errtext, kUnavailable);
        return true;
    }
    const int timeout = orv::ldpool_op_timeout(pool);
    const std::string filter = login_filter(user);
    UserAttrs attrs(nullptr);
    timeval limit{timeout, 0};
    int sid = 0, bid = 0;
    src = ldap_search_ext(sld, dn.c_str(), LDAP_SCOPE_BASE, filter.c_str(), attrs.list, 0, nullptr, nullptr, &limit, 0,
                          &sid);
    berval cred{len, const_cast<char *>(password)};
    brc = ldap_sasl_bind(bld, dn.c_str(), LDAP_SASL_SIMPLE, &cred, nullptr, nullptr, &bid);
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(timeout);
    LDAPMessage *raw = nullptr;
    if (brc == LDAP_SUCCESS) {
        brc = await_result(bld, bid, deadline, &raw);
        ldap_msgfree(raw);
    }
    Msg res(nullptr);
    if (src == LDAP_SUCCESS) {
        src = await_result(sld, sid, deadline, &raw);
        res.reset(raw);
    }
    LdPool_Release(pool, bld, brc);
    LdPool_Release(pool, sld, src);
    // A broken connection or a server that went away: the full path retries
    // on fresh connections and fails over.
    if (LdPool_Is_Connection_Error(src) || LdPool_Is_Connection_Error(brc)) return false;
    int count = 0;
    if (src == LDAP_SUCCESS) LdPool_Count_Entries(res.get(), &count);
    if (src != LDAP_SUCCESS || count != 1 || bind_refused(brc)) settings->dns.drop(key);
    if (src != LDAP_SUCCESS || count != 1) return false;
    if (bind_refused(brc)) {
        *result = refuse(errtext, kInvalid);
        return true;
    }
    if (brc != LDAP_SUCCESS) return false;
    LDAPMessage *entry = nullptr;
    LdPool_First_Entry(res.get(), &entry);
    *result = check_authpolicy(entry, nullptr, userattrs, errtext);
    return true;
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
    const int dncachetime = config_get_int(cache, "ldap.dncachetime", 60);
    if (dncachetime < 0 || dncachetime > 3600) {
        zolog(0, 2, "ldap.dncachetime must be between 0 and 3600, not %d", dncachetime);
        return -1;
    }
    const char *err = nullptr;
    LdPool *pool = LdPool_New(cache, &err);
    if (pool == nullptr) {
        zolog(0, 2, "cannot set up the LDAP pool: %s", err);
        return -1;
    }
    try {
        std::unique_ptr<Settings> s(new Settings{
            cache, config_get_string(cache, "ldap.basedn", ""), config_get_string(cache, "ldap.loginattr", "uid"),
            config_get_string(cache, "ldap.disabledattr", "orvAccountDisabled"),
            config_get_string(cache, "ldap.proxyattr", "orvProxyFor"),
            config_get_switch(cache, "local.ugldaphasplainpasswords", 0) != 0, pool, DnCache(dncachetime)});
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
        Text base(nullptr, &std::free);
        if (user_base(user, domain, base, errtext) != 0) return 1;
        std::string key, dn;
        if (settings->dns.enabled()) {
            // A login id holds no control bytes: NUL cannot be in it.
            key = std::string(base.get()) + '\0' + user;
            int result = 1;
            if (settings->dns.find(key, dn) && verify_cached(key, dn, user, password, len, userattrs, errtext, &result))
                return result;
        }
        Msg res(nullptr);
        LDAPMessage *entry = nullptr;
        if (search_user(user, base.get(), nullptr, res, &entry, errtext) != 0) return 1;
        char *found = nullptr;
        if (LdPool_Get_DN(entry, &found) != LDAP_SUCCESS) return refuse(errtext, kUnavailable);
        const std::unique_ptr<char, void (*)(void *)> found_owner(found, &ldap_memfree);
        dn = found;
        const int rc = bind_as(dn.c_str(), password, len);
        if (bind_refused(rc)) return refuse(errtext, kInvalid);
        if (rc != LDAP_SUCCESS) {
            zolog(0, 3, "password bind failed: %s", ldap_err2string(rc));
            return refuse(errtext, kUnavailable);
        }
        if (settings->dns.enabled()) settings->dns.put(key, dn);
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
