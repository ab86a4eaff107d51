// A fail-over pool of bound LDAP connections.
#define LDAP_DEPRECATED 1
#include "orvutil/platform/ldpool.h"

#include <ldap.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "ldap_internal.hpp"
#include "orvutil/platform/zolog.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Server {
    std::string uri;
    bool failed = false;
    Clock::time_point retry_at{};
};

struct Conn {
    LDAP *ld;
    size_t server;
    int kind;
};

}  // namespace

struct LdPool {
    std::vector<Server> servers;
    std::string binddn;
    std::string bindpw;
    int size = 4;
    int connect_timeout = 2;
    int op_timeout = 5;
    int retry_interval = 30;
    std::mutex mutex;
    std::vector<Conn> idle[2];
    std::vector<Conn> busy;  // acquired connections, to know their server and kind
};

namespace {

std::atomic<LdPool *> default_pool{nullptr};

LdPool *resolve(LdPool *pool) { return pool != nullptr ? pool : default_pool.load(); }

bool usable(const Server &s, Clock::time_point now) { return !s.failed || s.retry_at <= now; }

// Index of the server new connections should go to: the first one not
// skipped, or servers.size() when all are.
size_t preferred(const LdPool &p, Clock::time_point now) {
    for (size_t i = 0; i < p.servers.size(); ++i)
        if (usable(p.servers[i], now)) return i;
    return p.servers.size();
}

void close_all(std::vector<Conn> &conns) {
    for (Conn &c : conns) ldap_unbind_ext_s(c.ld, nullptr, nullptr);
    conns.clear();
}

// Takes the idle connections to a server out (to close outside the lock):
// when one broke, the others were opened before the same event.
void drop_idle(LdPool &p, size_t server, std::vector<Conn> &drop) {
    for (auto &list : p.idle) {
        for (size_t i = 0; i < list.size();) {
            if (list[i].server == server) {
                drop.push_back(list[i]);
                list[i] = list.back();
                list.pop_back();
            } else {
                ++i;
            }
        }
    }
}

// Skips a server for the retry interval.
void mark_failed(LdPool &p, size_t server, std::vector<Conn> &drop) {
    Server &s = p.servers[server];
    if (!s.failed) zolog(0, 4, "LDAP server %s failed; skipped for %d s", s.uri.c_str(), p.retry_interval);
    s.failed = true;
    s.retry_at = Clock::now() + std::chrono::seconds(p.retry_interval);
    drop_idle(p, server, drop);
}

timeval seconds(int s) { return timeval{s, 0}; }

int simple_bind(LDAP *ld, const std::string &dn, const std::string &pw) {
    berval cred{pw.size(), const_cast<char *>(pw.data())};
    return ldap_sasl_bind_s(ld, dn.c_str(), LDAP_SASL_SIMPLE, &cred, nullptr, nullptr, nullptr);
}

// One connection attempt, bounded by the connect time-out: the handle, or
// nullptr with *rc set.
LDAP *connect_one(const LdPool &p, const std::string &uri, int *rc) {
    LDAP *ld = nullptr;
    *rc = ldap_initialize(&ld, uri.c_str());
    if (*rc != LDAP_SUCCESS) return nullptr;
    const int version = LDAP_VERSION3;
    const timeval connect = seconds(p.connect_timeout), op = seconds(p.op_timeout);
    ldap_set_option(ld, LDAP_OPT_PROTOCOL_VERSION, &version);
    ldap_set_option(ld, LDAP_OPT_REFERRALS, LDAP_OPT_OFF);
    ldap_set_option(ld, LDAP_OPT_RESTART, LDAP_OPT_ON);
    ldap_set_option(ld, LDAP_OPT_NETWORK_TIMEOUT, &connect);
    // The first bind proves that the server answers, within the connect
    // time-out; operations get the operation time-out afterwards.
    ldap_set_option(ld, LDAP_OPT_TIMEOUT, &connect);
    *rc = simple_bind(ld, p.binddn, p.bindpw);
    if (*rc != LDAP_SUCCESS) {
        ldap_unbind_ext_s(ld, nullptr, nullptr);
        return nullptr;
    }
    ldap_set_option(ld, LDAP_OPT_TIMEOUT, &op);
    return ld;
}

// A new connection by the fail-over walk; *server gets its index.
LDAP *connect_walk(LdPool &p, int *rc, size_t *server) {
    std::vector<size_t> order;
    {
        std::lock_guard<std::mutex> lock(p.mutex);
        const Clock::time_point now = Clock::now();
        for (size_t i = 0; i < p.servers.size(); ++i)
            if (usable(p.servers[i], now)) order.push_back(i);
        if (order.empty())
            for (size_t i = 0; i < p.servers.size(); ++i) order.push_back(i);
    }
    *rc = LDAP_SERVER_DOWN;
    for (size_t i : order) {
        LDAP *ld = connect_one(p, p.servers[i].uri, rc);
        std::vector<Conn> drop;
        {
            std::lock_guard<std::mutex> lock(p.mutex);
            if (ld != nullptr) {
                if (p.servers[i].failed) zolog(0, 4, "LDAP server %s answers again", p.servers[i].uri.c_str());
                p.servers[i].failed = false;
            } else if (LdPool_Is_Connection_Error(*rc)) {
                mark_failed(p, i, drop);
            }
        }
        close_all(drop);
        if (ld != nullptr) {
            *server = i;
            return ld;
        }
        if (!LdPool_Is_Connection_Error(*rc)) {
            // The server answered but refused the pool's credentials: the
            // others hold the same data and would refuse them too.
            zolog(0, 3, "LDAP bind as \"%s\" to %s refused: %s", p.binddn.c_str(), p.servers[i].uri.c_str(),
                  ldap_err2string(*rc));
            return nullptr;
        }
    }
    zolog(0, 3, "no LDAP server answers: %s", ldap_err2string(*rc));
    return nullptr;
}

// A per-thread handle for the functions that only parse results: libldap
// wants one for its error number, never for the network.
LDAP *parse_handle() {
    struct Handle {
        LDAP *ld = nullptr;
        ~Handle() {
            if (ld != nullptr) ldap_unbind_ext_s(ld, nullptr, nullptr);
        }
    };
    thread_local Handle h;
    if (h.ld == nullptr) ldap_initialize(&h.ld, nullptr);
    return h.ld;
}

// libldap sets up its process-wide defaults on first use, and two threads
// making that first use at once race inside it: make it once, before any
// thread shares a pool.
void ready_libldap() {
    static std::once_flag once;
    std::call_once(once, [] {
        int version = 0;
        ldap_get_option(nullptr, LDAP_OPT_PROTOCOL_VERSION, &version);
    });
}

bool parse_int(config_cache *cache, const char *key, int def, int lo, int hi, int *out) {
    *out = config_get_int(cache, key, def);
    if (*out >= lo && *out <= hi) return true;
    zolog(0, 2, "%s must be between %d and %d, not %d", key, lo, hi, *out);
    return false;
}

}  // namespace

int orv::ldpool_op_timeout(LdPool *pool) {
    pool = resolve(pool);
    return pool != nullptr ? pool->op_timeout : 5;
}

extern "C" {

int LdPool_Is_Connection_Error(int rc) noexcept {
    return rc == LDAP_SERVER_DOWN || rc == LDAP_TIMEOUT || rc == LDAP_CONNECT_ERROR || rc == LDAP_UNAVAILABLE ||
           rc == LDAP_TIMELIMIT_EXCEEDED || rc == LDAP_BUSY;
}

LdPool *LdPool_New(config_cache *cache, const char **err) noexcept {
    const char *dummy;
    if (err == nullptr) err = &dummy;
    if (cache == nullptr) cache = config_getdefaultcache();
    auto *p = new (std::nothrow) LdPool;
    if (p == nullptr) {
        *err = "Out of memory";
        return nullptr;
    }
    try {
        const std::string list = config_get_string(cache, "ldap.servers", "ldap://127.0.0.1:389/");
        size_t i = 0;
        while (i < list.size()) {
            const size_t end = list.find_first_of(" \t,", i);
            const std::string uri = list.substr(i, end == std::string::npos ? std::string::npos : end - i);
            if (!uri.empty()) p->servers.push_back(Server{uri});
            if (end == std::string::npos) break;
            i = end + 1;
        }
        p->binddn = config_get_string(cache, "ldap.binddn", "");
        p->bindpw = config_get_string(cache, "ldap.bindpassword", "");
    } catch (const std::bad_alloc &) {
        delete p;
        *err = "Out of memory";
        return nullptr;
    }
    if (p->servers.empty() || !parse_int(cache, "ldap.poolsize", 4, 1, 256, &p->size) ||
        !parse_int(cache, "ldap.connecttimeout", 2, 1, 3600, &p->connect_timeout) ||
        !parse_int(cache, "ldap.timeout", 5, 1, 3600, &p->op_timeout) ||
        !parse_int(cache, "ldap.retryinterval", 30, 0, 86400, &p->retry_interval)) {
        if (p->servers.empty()) zolog(0, 2, "ldap.servers names no server");
        delete p;
        *err = "Invalid LDAP pool configuration";
        return nullptr;
    }
    ready_libldap();
    struct sigaction old {};
    if (sigaction(SIGPIPE, nullptr, &old) == 0 && old.sa_handler == SIG_DFL) std::signal(SIGPIPE, SIG_IGN);
    return p;
}

void LdPool_Free(LdPool *pool) noexcept {
    if (pool == nullptr) return;
    LdPool *expected = pool;
    default_pool.compare_exchange_strong(expected, nullptr);
    for (auto &list : pool->idle) close_all(list);
    close_all(pool->busy);
    if (pool->bindpw.size() > 0) explicit_bzero(pool->bindpw.data(), pool->bindpw.size());
    delete pool;
}

void LdPool_SetDefault(LdPool *pool) noexcept { default_pool.store(pool); }

LdPool *LdPool_Default(void) noexcept { return default_pool.load(); }

LDAP *LdPool_Acquire(LdPool *pool, int kind, int *rc) noexcept {
    int dummy;
    if (rc == nullptr) rc = &dummy;
    pool = resolve(pool);
    if (pool == nullptr || (kind != LDPOOL_SEARCH && kind != LDPOOL_BIND)) {
        *rc = LDAP_PARAM_ERROR;
        return nullptr;
    }
    try {
        std::vector<Conn> drop;
        Conn found{nullptr, 0, kind};
        {
            std::lock_guard<std::mutex> lock(pool->mutex);
            const size_t best = preferred(*pool, Clock::now());
            auto &list = pool->idle[kind];
            while (!list.empty() && found.ld == nullptr) {
                Conn c = list.back();
                list.pop_back();
                // A connection to a less preferred server gives way to a
                // probe of the better one (fail-back).
                if (c.server == best)
                    found = c;
                else
                    drop.push_back(c);
            }
            if (found.ld != nullptr) pool->busy.push_back(found);
        }
        close_all(drop);
        if (found.ld != nullptr) {
            *rc = LDAP_SUCCESS;
            return found.ld;
        }
        found.ld = connect_walk(*pool, rc, &found.server);
        if (found.ld == nullptr) return nullptr;
        std::lock_guard<std::mutex> lock(pool->mutex);
        pool->busy.push_back(found);
        return found.ld;
    } catch (const std::bad_alloc &) {
        *rc = LDAP_NO_MEMORY;
        return nullptr;
    }
}

void LdPool_Release(LdPool *pool, LDAP *ld, int rc) noexcept {
    pool = resolve(pool);
    if (pool == nullptr || ld == nullptr) return;
    std::vector<Conn> drop;
    {
        std::lock_guard<std::mutex> lock(pool->mutex);
        auto it = pool->busy.begin();
        while (it != pool->busy.end() && it->ld != ld) ++it;
        if (it == pool->busy.end()) return;  // not ours
        const Conn c = *it;
        *it = pool->busy.back();
        pool->busy.pop_back();
        auto &list = pool->idle[c.kind];
        const bool timed_out = rc == LDAP_TIMEOUT || rc == LDAP_TIMELIMIT_EXCEEDED;
        if (timed_out)
            mark_failed(*pool, c.server, drop);
        else if (LdPool_Is_Connection_Error(rc))
            drop_idle(*pool, c.server, drop);
        if (LdPool_Is_Connection_Error(rc) || static_cast<int>(list.size()) >= pool->size ||
            pool->servers[c.server].failed) {
            drop.push_back(c);
        } else {
            try {
                list.push_back(c);
            } catch (const std::bad_alloc &) {
                drop.push_back(c);
            }
        }
    }
    close_all(drop);
}

int LdPool_Search_S(LdPool *pool, const char *base, int scope, const char *filter, char **attrs, int attrsonly,
                    int timelimit, LDAPMessage **res) noexcept {
    if (res == nullptr) return LDAP_PARAM_ERROR;
    *res = nullptr;
    pool = resolve(pool);
    if (pool == nullptr || base == nullptr) return LDAP_PARAM_ERROR;
    int rc = LDAP_SERVER_DOWN;
    for (int attempt = 0; attempt < 2; ++attempt) {
        LDAP *ld = LdPool_Acquire(pool, LDPOOL_SEARCH, &rc);
        if (ld == nullptr) return rc;
        timeval limit = seconds(timelimit > 0 ? timelimit : pool->op_timeout);
        rc = ldap_search_ext_s(ld, base, scope, filter, attrs, attrsonly, nullptr, nullptr, &limit, 0, res);
        LdPool_Release(pool, ld, rc);
        if (!LdPool_Is_Connection_Error(rc)) break;
        if (*res != nullptr) ldap_msgfree(*res);
        *res = nullptr;
    }
    return rc;
}

int LdPool_Count_Entries(LDAPMessage *res, int *count) noexcept {
    if (count == nullptr) return LDAP_PARAM_ERROR;
    *count = res != nullptr ? ldap_count_entries(parse_handle(), res) : 0;
    return *count < 0 ? LDAP_PARAM_ERROR : LDAP_SUCCESS;
}

int LdPool_First_Entry(LDAPMessage *res, LDAPMessage **entry) noexcept {
    if (entry == nullptr) return LDAP_PARAM_ERROR;
    *entry = res != nullptr ? ldap_first_entry(parse_handle(), res) : nullptr;
    return LDAP_SUCCESS;
}

int LdPool_Next_Entry(LDAPMessage *entry, LDAPMessage **next) noexcept {
    if (next == nullptr) return LDAP_PARAM_ERROR;
    *next = entry != nullptr ? ldap_next_entry(parse_handle(), entry) : nullptr;
    return LDAP_SUCCESS;
}

int LdPool_Get_DN(LDAPMessage *entry, char **dn) noexcept {
    if (dn == nullptr) return LDAP_PARAM_ERROR;
    *dn = entry != nullptr ? ldap_get_dn(parse_handle(), entry) : nullptr;
    return *dn != nullptr ? LDAP_SUCCESS : LDAP_DECODING_ERROR;
}

int LdPool_Get_Values(LDAPMessage *entry, const char *attr, char ***values) noexcept {
    if (values == nullptr) return LDAP_PARAM_ERROR;
    *values = entry != nullptr && attr != nullptr ? ldap_get_values(parse_handle(), entry, attr) : nullptr;
    return LDAP_SUCCESS;
}

int LdPool_Get_Values_Len(LDAPMessage *entry, const char *attr, berval ***values) noexcept {
    if (values == nullptr) return LDAP_PARAM_ERROR;
    *values = entry != nullptr && attr != nullptr ? ldap_get_values_len(parse_handle(), entry, attr) : nullptr;
    return LDAP_SUCCESS;
}

}  // extern "C"
