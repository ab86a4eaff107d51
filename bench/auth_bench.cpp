// Logins per second through the PLAIN and CRAM-MD5 mechanism records
// against the same slapd, and HMAC-MD5 alone against OpenSSL's
// HMAC(EVP_md5(), ...) as the anchor (goal: at most 1.25 times its time).
//
// Verifications per second through the pooled connections (verifypass)
// against the anchor a client without a pool pays: a fresh connection, a
// bind to search, the search, and the user's bind, per verification. Both
// single-threaded against the same local slapd; wall-clock time, since most
// of the work is the server's. The pool is also measured with its DN cache
// off (a search, then the bind) and from several threads at once. The
// counter slapd_us is slapd's CPU time per verification.
#define LDAP_DEPRECATED 1
#include <benchmark/benchmark.h>
#include <ldap.h>

#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include "orvutil/login.h"
#include "orvutil/platform/verifypass.h"
#include "slapd.hpp"

namespace {

config_cache *verifier_config(const orvtest::Slapd &slapd, const char *dncachetime) {
    return orvtest::config_with({{"ldap.servers", slapd.uri()},
                                 {"ldap.binddn", orvtest::Slapd::kRootDn},
                                 {"ldap.bindpassword", orvtest::Slapd::kRootPw},
                                 {"ldap.basedn", orvtest::Slapd::kSuffix},
                                 {"ldap.dncachetime", dncachetime},
                                 {"local.ugldaphasplainpasswords", "on"}});
}

struct Directory {
    orvtest::Slapd slapd{orvtest::sample_directory(nullptr)};
    config_cache *cache = verifier_config(slapd, "60");
    config_cache *uncached = verifier_config(slapd, "0");
    // CRAM-MD5 is offered by the default cache's switch.
    orvtest::TempDir home;
    Directory() {
        orvtest::write_file(home.file("orv.conf"), "local.ugldaphasplainpasswords = on\n");
        config_setdefaultfile(home.file("orv.conf").c_str());
        verifypass_init(cache);
    }
};

Directory &directory() {
    static Directory d;
    return d;
}

// CPU time (user and system) a process has used, in microseconds.
double cpu_us(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    const std::string stat((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const size_t paren = stat.rfind(')');
    if (paren == std::string::npos) return 0;
    // Fields after the command: state is the 3rd, utime the 14th, stime the 15th.
    std::istringstream fields(stat.substr(paren + 2));
    std::string skip;
    for (int i = 3; i < 14; ++i) fields >> skip;
    double utime = 0, stime = 0;
    fields >> utime >> stime;
    return (utime + stime) * 1e6 / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// Reports slapd's CPU per verification (all threads) as the counter
// slapd_us.
struct SlapdCpu {
    benchmark::State &state;
    pid_t pid = directory().slapd.pid();
    double start = cpu_us(pid);
    ~SlapdCpu() {
        if (state.thread_index() == 0 && state.iterations() > 0)
            state.counters["slapd_us"] =
                (cpu_us(pid) - start) / static_cast<double>(state.iterations() * state.threads());
    }
};

int simple_bind(LDAP *ld, const char *dn, const char *pw) {
    berval cred{std::strlen(pw), const_cast<char *>(pw)};
    return ldap_sasl_bind_s(ld, dn, LDAP_SASL_SIMPLE, &cred, nullptr, nullptr, nullptr);
}

// The anchor: everything from scratch, with the same search and account
// policy check as verifypass.
bool fresh_verify(const std::string &uri, const char *user, const char *password) {
    LDAP *ld = nullptr;
    if (ldap_initialize(&ld, uri.c_str()) != LDAP_SUCCESS) return false;
    const int version = LDAP_VERSION3;
    ldap_set_option(ld, LDAP_OPT_PROTOCOL_VERSION, &version);
    bool ok = false;
    LDAPMessage *res = nullptr;
    const std::string filter = std::string("(uid=") + user + ")";
    char uid[] = "uid", disabled[] = "orvAccountDisabled", locked[] = "pwdAccountLockedTime";
    char *attrs[] = {uid, disabled, locked, nullptr};
    if (simple_bind(ld, orvtest::Slapd::kRootDn, orvtest::Slapd::kRootPw) == LDAP_SUCCESS &&
        ldap_search_ext_s(ld, orvtest::Slapd::kSuffix, LDAP_SCOPE_SUBTREE, filter.c_str(), attrs, 0, nullptr, nullptr,
                          nullptr, 0, &res) == LDAP_SUCCESS &&
        ldap_count_entries(ld, res) == 1) {
        LDAPMessage *entry = ldap_first_entry(ld, res);
        char *dn = ldap_get_dn(ld, entry);
        const char *err = nullptr;
        ok = dn != nullptr && simple_bind(ld, dn, password) == LDAP_SUCCESS &&
             check_authpolicy(entry, nullptr, nullptr, &err) == 0;
        ldap_memfree(dn);
    }
    ldap_msgfree(res);
    ldap_unbind_ext_s(ld, nullptr, nullptr);
    return ok;
}

void pool_verify(benchmark::State &state) {
    SlapdCpu cpu{state};
    for (auto _ : state) {
        const char *err = nullptr;
        if (verifypass("alice", "alice-pw", -1, nullptr, nullptr, nullptr, &err) != 0) state.SkipWithError(err);
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_PoolVerify(benchmark::State &state) {
    directory();
    pool_verify(state);
}
BENCHMARK(BM_PoolVerify)->UseRealTime();
BENCHMARK(BM_PoolVerify)->UseRealTime()->Threads(4);

void BM_PoolVerifyNoDnCache(benchmark::State &state) {
    Directory &d = directory();
    verifypass_init(d.uncached);
    pool_verify(state);
    verifypass_init(d.cache);
}
BENCHMARK(BM_PoolVerifyNoDnCache)->UseRealTime();

void BM_FreshConnectionVerify(benchmark::State &state) {
    const std::string uri = directory().slapd.uri();
    SlapdCpu cpu{state};
    for (auto _ : state)
        if (!fresh_verify(uri, "alice", "alice-pw")) state.SkipWithError("fresh verification failed");
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FreshConnectionVerify)->UseRealTime();

// One login through a mechanism record: start, then the steps answering
// each challenge with answer(challenge).
template <typename Answer>
void mechanism_login(benchmark::State &state, const sasl_server_mech &mech, Answer answer) {
    directory();
    login_params params{};
    params.service = "pop3";
    params.mask = 1;
    for (auto _ : state) {
        void *s = nullptr;
        int len = 0;
        const char *chal = nullptr, *err = nullptr;
        int rc = mech.start(mech.context, &params, nullptr, &len, &chal, nullptr, &s, &err);
        if (rc == 0) {
            std::string data = answer(std::string(chal, len));
            rc = mech.step(s, static_cast<int>(data.size()), data.data(), &len, &chal, &err);
        }
        mech.free_state(s);
        if (rc != SASL_DONE) state.SkipWithError(err != nullptr ? err : "login failed");
    }
}

void BM_PlainLogin(benchmark::State &state) {
    mechanism_login(state, sasl_plain_server, [](const std::string &) { return std::string("\0alice\0alice-pw", 15); });
}
BENCHMARK(BM_PlainLogin)->UseRealTime();

void BM_CramMd5Login(benchmark::State &state) {
    mechanism_login(state, sasl_cram_server, [](const std::string &challenge) {
        unsigned char mac[16];
        sasl_hmac_md5(reinterpret_cast<const unsigned char *>(challenge.data()), static_cast<int>(challenge.size()),
                      reinterpret_cast<const unsigned char *>("alice-pw"), 8, mac);
        std::string response = "alice ";
        for (unsigned char b : mac) response += {"0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 15]};
        return response;
    });
}
BENCHMARK(BM_CramMd5Login)->UseRealTime();

// A CRAM-MD5 challenge of typical length and a 16-byte password.
const unsigned char kChallenge[] = "<1896.697170952@postoffice.reston.mci.net>";
const unsigned char kKey[] = "tanstaaftanstaaf";

void BM_HmacMd5(benchmark::State &state) {
    unsigned char mac[16];
    for (auto _ : state) {
        sasl_hmac_md5(kChallenge, sizeof kChallenge - 1, kKey, sizeof kKey - 1, mac);
        benchmark::DoNotOptimize(mac);
    }
}
BENCHMARK(BM_HmacMd5);

void BM_OpenSslHmacMd5(benchmark::State &state) {
    unsigned char mac[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    for (auto _ : state) {
        HMAC(EVP_md5(), kKey, sizeof kKey - 1, kChallenge, sizeof kChallenge - 1, mac, &len);
        benchmark::DoNotOptimize(mac);
    }
}
BENCHMARK(BM_OpenSslHmacMd5);

}  // namespace

BENCHMARK_MAIN();
