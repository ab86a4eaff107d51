// Verifications per second through the pooled connections (verifypass)
// against the anchor a client without a pool pays: a fresh connection, a
// bind to search, the search, and the user's bind, per verification. Both
// against the same local slapd; wall-clock time, since most of the work is
// the server's.
#define LDAP_DEPRECATED 1
#include <benchmark/benchmark.h>
#include <ldap.h>

#include <cstring>
#include <memory>
#include <string>

#include "orvutil/platform/verifypass.h"
#include "slapd.hpp"

namespace {

struct Directory {
    orvtest::Slapd slapd{orvtest::sample_directory(nullptr)};
    config_cache *cache = orvtest::config_with({{"ldap.servers", slapd.uri()},
                                                {"ldap.binddn", orvtest::Slapd::kRootDn},
                                                {"ldap.bindpassword", orvtest::Slapd::kRootPw},
                                                {"ldap.basedn", orvtest::Slapd::kSuffix}});
    Directory() { verifypass_init(cache); }
};

Directory &directory() {
    static Directory d;
    return d;
}

int simple_bind(LDAP *ld, const char *dn, const char *pw) {
    berval cred{std::strlen(pw), const_cast<char *>(pw)};
    return ldap_sasl_bind_s(ld, dn, LDAP_SASL_SIMPLE, &cred, nullptr, nullptr, nullptr);
}

// The anchor: everything from scratch.
bool fresh_verify(const std::string &uri, const char *user, const char *password) {
    LDAP *ld = nullptr;
    if (ldap_initialize(&ld, uri.c_str()) != LDAP_SUCCESS) return false;
    const int version = LDAP_VERSION3;
    ldap_set_option(ld, LDAP_OPT_PROTOCOL_VERSION, &version);
    bool ok = false;
    LDAPMessage *res = nullptr;
    const std::string filter = std::string("(uid=") + user + ")";
    char uid[] = "uid";
    char *attrs[] = {uid, nullptr};
    if (simple_bind(ld, orvtest::Slapd::kRootDn, orvtest::Slapd::kRootPw) == LDAP_SUCCESS &&
        ldap_search_ext_s(ld, orvtest::Slapd::kSuffix, LDAP_SCOPE_SUBTREE, filter.c_str(), attrs, 0, nullptr, nullptr,
                          nullptr, 0, &res) == LDAP_SUCCESS &&
        ldap_count_entries(ld, res) == 1) {
        char *dn = ldap_get_dn(ld, ldap_first_entry(ld, res));
        ok = dn != nullptr && simple_bind(ld, dn, password) == LDAP_SUCCESS;
        ldap_memfree(dn);
    }
    ldap_msgfree(res);
    ldap_unbind_ext_s(ld, nullptr, nullptr);
    return ok;
}

void BM_PoolVerify(benchmark::State &state) {
    directory();
    for (auto _ : state) {
        const char *err = nullptr;
        if (verifypass("alice", "alice-pw", -1, nullptr, nullptr, nullptr, &err) != 0) state.SkipWithError(err);
    }
}
BENCHMARK(BM_PoolVerify)->UseRealTime();

void BM_FreshConnectionVerify(benchmark::State &state) {
    const std::string uri = directory().slapd.uri();
    for (auto _ : state)
        if (!fresh_verify(uri, "alice", "alice-pw")) state.SkipWithError("fresh verification failed");
}
BENCHMARK(BM_FreshConnectionVerify)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
