// Password verification, account policy and the fail-over pool against real
// directory servers.
#define LDAP_DEPRECATED 1
#include <gtest/gtest.h>
#include <ldap.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <openssl/pem.h>
#include <openssl/x509.h>

#include <sys/stat.h>

#include "orvutil/platform/certmap.h"
#include "orvutil/platform/ldpool.h"
#include "orvutil/platform/verifypass.h"
#include "orvutil/sasl_server.h"
#include "slapd.hpp"

namespace {

using Clock = std::chrono::steady_clock;
using Entries = std::vector<std::pair<std::string, std::string>>;

// verifypass set up over the given servers; torn down at the end.
struct Verifier {
    config_cache *cache;
    explicit Verifier(const std::string &servers, Entries extra = {}) {
        Entries e = {{"ldap.servers", servers},
                     {"ldap.binddn", orvtest::Slapd::kRootDn},
                     {"ldap.bindpassword", orvtest::Slapd::kRootPw},
                     {"ldap.basedn", orvtest::Slapd::kSuffix},
                     {"ldap.connecttimeout", "1"},
                     {"ldap.timeout", "2"},
                     {"ldap.retryinterval", "2"}};
        e.insert(e.end(), extra.begin(), extra.end());
        cache = orvtest::config_with(e);
        EXPECT_EQ(verifypass_init(cache), 0);
    }
    ~Verifier() {
        verifypass_exit();
        config_freecache(cache);
    }
};

// "ok", or the error text.
std::string verify(const char *user, const char *password, const char *domain = nullptr) {
    const char *err = nullptr;
    char **attrs = nullptr;
    const int rc = verifypass(user, password, -1, domain, nullptr, &attrs, &err);
    std::string result = rc == 0 ? std::string("ok:") + attrs[0] : err;
    userattrs_free(attrs);
    return result;
}

TEST(AuthDirectory, VerificationPolicyProxyAndStoredPasswords) {
    orvtest::Slapd slapd(orvtest::sample_directory(nullptr));
    Verifier v(slapd.uri(),
               {{"local.ugldaphasplainpasswords", "on"}, {"ldap.basedn.other.test", "ou=People,dc=example,dc=com"}});
    struct Case {
        const char *user, *password, *domain, *want;
    } cases[] = {
        {"alice", "alice-pw", nullptr, "ok:alice"},
        {"alice", "alice-pw", "example.com", "ok:alice"},
        {"alice", "alice-pw", "other.test", "ok:alice"},
        {"alice", "alice-pw", "nowhere.test", "Invalid credentials"},
        {"alice", "bob-pw", nullptr, "Invalid credentials"},
        {"nobody", "x", nullptr, "Invalid credentials"},
        {"alice", "", nullptr, "Invalid credentials"},
        {"locked", "locked-pw", nullptr, "Account locked"},
        {"disabled", "disabled-pw", nullptr, "Account disabled"},
        {"disabled", "wrong", nullptr, "Invalid credentials"},
        {"*", "alice-pw", nullptr, "Invalid credentials"},
        {"al*", "alice-pw", nullptr, "Invalid credentials"},
        {"*)(uid=*", "alice-pw", nullptr, "Invalid credentials"},
        {"alice)(uid=*", "alice-pw", nullptr, "Invalid credentials"},
        {"alice\x01", "alice-pw", nullptr, "Invalid credentials"},
    };
    for (const Case &c : cases) EXPECT_EQ(verify(c.user, c.password, c.domain), c.want) << c.user << " " << c.domain;

    struct Fetch {
        const char *user, *want;
    } fetches[] = {{"bob", "bob-pw"},
                   {"hashed", "Stored password is hashed"},
                   {"locked", "Account locked"},
                   {"*", "Invalid credentials"}};
    for (const Fetch &f : fetches) {
        char *pw = nullptr;
        const char *err = nullptr;
        const int rc = verifypass_getpass(f.user, nullptr, nullptr, &pw, &err);
        EXPECT_EQ(rc == 0 ? std::string(pw) : std::string(err), f.want) << f.user;
        if (pw != nullptr) {
            explicit_bzero(pw, std::strlen(pw));
            std::free(pw);
        }
    }

    struct Proxy {
        const char *authid, *asid;
        int want;
    } proxies[] = {{"alice", "bob", 0}, {"alice", "hashed", 1}, {"admin", "hashed", 0},
                   {"bob", "alice", 1}, {"bob", "bob", 0},      {"nobody", "bob", 1}};
    for (const Proxy &p : proxies)
        EXPECT_EQ(check_proxyauth(p.authid, p.asid, nullptr, nullptr), p.want) << p.authid << "->" << p.asid;
}

// Each of the second server's entries carries a mark in its description,
// so that a search tells which server answered.
std::string second_directory() {
    std::string ldif = orvtest::sample_directory(nullptr);
    const std::string mark = "\ndescription: second";
    for (size_t at = 0; (at = ldif.find("\nsn: ", at)) != std::string::npos; at += mark.size() + 5)
        ldif.insert(at, mark);
    return ldif;
}

// The server that answers a search for alice: 1 or 2, 0 when none does.
int answering_server() {
    LDAPMessage *res = nullptr;
    char attr[] = "description";
    char *attrs[] = {attr, nullptr};
    const int rc = LdPool_Search_S(nullptr, orvtest::Slapd::kSuffix, 2, "(uid=alice)", attrs, 0, 0, &res);
    LDAPMessage *entry = nullptr;
    LdPool_First_Entry(res, &entry);
    char **values = nullptr;
    LdPool_Get_Values(entry, "description", &values);
    const int server = rc != 0 || entry == nullptr ? 0 : values == nullptr ? 1 : 2;
    ldap_value_free(values);
    ldap_msgfree(res);
    return server;
}

TEST(AuthDirectory, FailOverWhenTheFirstServerDiesOrHangsAndFailBack) {
    orvtest::Slapd first(orvtest::sample_directory(nullptr)), second(second_directory());
    Verifier v(first.uri() + " " + second.uri());
    // The worst case of one verification: a hung search (time-out 2 s), a
    // connection attempt to the hung server (1 s) and the retry elsewhere;
    // the bound leaves room for a loaded machine.
    const auto bound = std::chrono::seconds(12);
    for (const bool hang : {false, true}) {
        for (int i = 0; i < 30; ++i) {
            if (i == 10) hang ? first.freeze() : first.stop();
            const auto start = Clock::now();
            EXPECT_EQ(verify(i % 2 ? "alice" : "bob", i % 2 ? "alice-pw" : "bob-pw"), i % 2 ? "ok:alice" : "ok:bob")
                << (hang ? "frozen, " : "killed, ") << i;
            EXPECT_LT(Clock::now() - start, bound) << i;
        }
        EXPECT_EQ(answering_server(), 2);
        // Fail-back: once the first server is back and its interval is
        // over, new work goes to it again.
        hang ? first.thaw() : first.start();
        EXPECT_TRUE(orvtest::wait_until([] { return answering_server() == 1; }, std::chrono::seconds(30))) << hang;
        EXPECT_EQ(verify("alice", "alice-pw"), "ok:alice");
    }
}

TEST(AuthDirectory, BrokenPooledConnectionsAreReplaced) {
    orvtest::Slapd slapd(orvtest::sample_directory(nullptr));
    Verifier v(slapd.uri());
    EXPECT_EQ(verify("alice", "alice-pw"), "ok:alice");
    slapd.stop();
    EXPECT_EQ(verify("alice", "alice-pw"), "Directory unavailable");
    slapd.start();
    EXPECT_EQ(verify("alice", "alice-pw"), "ok:alice");
    EXPECT_EQ(verify("bob", "wrong"), "Invalid credentials");
}

// Changes an entry as the manager: op is an LDAP_MOD_* of one value of
// attr, kRemove removes the entry, kKeep does nothing.
constexpr int kKeep = -2, kRemove = -1;
void change_entry(const orvtest::Slapd &slapd, const char *dn, int op, const char *attr, const char *value) {
    if (op == kKeep) return;
    LDAP *ld = nullptr;
    ASSERT_EQ(ldap_initialize(&ld, slapd.uri().c_str()), LDAP_SUCCESS);
    const int version = LDAP_VERSION3;
    ldap_set_option(ld, LDAP_OPT_PROTOCOL_VERSION, &version);
    berval cred{std::strlen(orvtest::Slapd::kRootPw), const_cast<char *>(orvtest::Slapd::kRootPw)};
    EXPECT_EQ(ldap_sasl_bind_s(ld, orvtest::Slapd::kRootDn, LDAP_SASL_SIMPLE, &cred, nullptr, nullptr, nullptr), 0);
    char *values[] = {const_cast<char *>(value), nullptr};
    LDAPMod mod{op, const_cast<char *>(attr), {values}};
    LDAPMod *mods[] = {&mod, nullptr};
    EXPECT_EQ(
        op == kRemove ? ldap_delete_ext_s(ld, dn, nullptr, nullptr) : ldap_modify_ext_s(ld, dn, mods, nullptr, nullptr),
        LDAP_SUCCESS)
        << dn << " " << op << " " << attr;
    ldap_unbind_ext_s(ld, nullptr, nullptr);
}

// Verified users' DNs are remembered: a change to the entry must still take
// effect on the very next verification. The login attribute is cn, which
// unlike the RDN's uid can change under a remembered DN.
TEST(AuthDirectory, ChangedEntriesTakeEffectAtOnce) {
    orvtest::Slapd slapd(orvtest::sample_directory(nullptr));
    Verifier v(slapd.uri(), {{"ldap.loginattr", "cn"}});
    const char *alice = "uid=alice,ou=People,dc=example,dc=com", *bob = "uid=bob,ou=People,dc=example,dc=com";
    struct Step {
        const char *dn;
        int op;
        const char *attr, *value, *user, *password, *want;
    } steps[] = {
        {alice, kKeep, "", "", "alice", "alice-pw", "ok:alice"},
        {bob, kKeep, "", "", "bob", "bob-pw", "ok:bob"},
        {alice, LDAP_MOD_REPLACE, "userPassword", "new-pw", "alice", "alice-pw", "Invalid credentials"},
        {alice, kKeep, "", "", "alice", "new-pw", "ok:alice"},
        {alice, LDAP_MOD_ADD, "pwdAccountLockedTime", "20260101000000Z", "alice", "new-pw", "Account locked"},
        {alice, LDAP_MOD_REPLACE, "cn", "alice2", "alice", "new-pw", "Invalid credentials"},
        {bob, kRemove, "", "", "bob", "bob-pw", "Invalid credentials"},
    };
    for (const Step &s : steps) {
        change_entry(slapd, s.dn, s.op, s.attr, s.value);
        EXPECT_EQ(verify(s.user, s.password), s.want) << s.attr << " " << s.user;
    }
}

// More threads than pooled connections: each verification gets a connection
// of its own, and the spares are closed as they come back.
TEST(AuthDirectory, ThreadsShareThePool) {
    orvtest::Slapd slapd(orvtest::sample_directory(nullptr));
    Verifier v(slapd.uri(), {{"ldap.poolsize", "2"}});
    std::vector<std::string> wrong(6);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < wrong.size(); ++t)
        threads.emplace_back([&wrong, t] {
            for (int i = 0; i < 20; ++i) {
                const bool bob = (t + i) % 2, good = i % 3 != 0;
                const std::string got = verify(bob ? "bob" : "alice", good ? (bob ? "bob-pw" : "alice-pw") : "x");
                if (got != (good ? (bob ? "ok:bob" : "ok:alice") : "Invalid credentials")) wrong[t] += got + ";";
            }
        });
    for (auto &th : threads) th.join();
    for (const std::string &w : wrong) EXPECT_EQ(w, "");
}

}  // namespace

namespace {

X509 *load_certificate(const std::string &path) {
    FILE *f = std::fopen(path.c_str(), "r");
    X509 *cert = f != nullptr ? PEM_read_X509(f, nullptr, nullptr, nullptr) : nullptr;
    if (f != nullptr) std::fclose(f);
    return cert;
}

TEST(AuthDirectory, CertificatesMapBySubjectAndByBinaryComparison) {
    const orvtest::Pki &pki = orvtest::Pki::shared();
    orvtest::Slapd slapd(orvtest::sample_directory(&pki));
    Verifier v(slapd.uri());
    X509 *certs[] = {load_certificate(pki.client_cert(0)), load_certificate(pki.client_cert(1))};
    orvtest::TempDir dir;
    // The login family's set-up installs the directory operations over the
    // pool; the cases then replace its map.
    mkdir(dir.file("config").c_str(), 0700);
    const std::string map = dir.file("config/certmap.conf");
    orvtest::write_file(map, "issuer default\nfilter cn\n");
    ASSERT_EQ(external_init(dir.path().c_str(), "test"), 0);
    struct Case {
        const char *file;
        int client;
        int want;
        const char *user;  // login id of the entry found
    } cases[] = {
        {"issuer default\nfilter cn\n", 0, LDAPU_SUCCESS, "certuser"},
        {"issuer default\nfilter cn\n", 1, LDAPU_SUCCESS, "otheruser"},
        {"# binary\nissuer default\nfilter  CN\ncompare on\n", 1, LDAPU_ERR_CERT_VERIFY_FAILED, nullptr},
        {"issuer cn=orvane test CA , O=Orvane Test\nsubjectattr orvCertSubject\ncompare on\n"
         "issuer default\nfilter uid\n",
         0, LDAPU_SUCCESS, "certuser"},
        {"issuer CN=Orvane Test CA,O=Orvane Test\nsubjectattr orvCertSubject\n", 1, LDAPU_FAILED, nullptr},
    };
    for (const Case &c : cases) {
        orvtest::write_file(map, c.file);
        ASSERT_EQ(ldapu_certmap_init(map.c_str(), "test"), LDAPU_SUCCESS) << c.file;
        LDAPMessage *res = nullptr;
        char *dn = nullptr;
        EXPECT_EQ(ldapu_cert_to_user(certs[c.client], nullptr, orvtest::Slapd::kSuffix, &res, &dn), c.want)
            << c.file << c.client;
        if (c.user != nullptr && res != nullptr) {
            LDAPMessage *entry = nullptr;
            LdPool_First_Entry(res, &entry);
            char **attrs = nullptr;
            EXPECT_EQ(check_authpolicy(entry, nullptr, &attrs, nullptr), 0);
            EXPECT_STREQ(attrs ? attrs[0] : "", c.user);
            EXPECT_EQ(std::string(dn), "uid=" + std::string(c.user) + ",ou=People,dc=example,dc=com");
            userattrs_free(attrs);
        }
        ldap_msgfree(res);
        ldapu_free(dn);
    }

    orvtest::LogCapture log;
    const char *malformed[][2] = {{"issuer default\nfilter cn\nbogus on\n", ":3: "},
                                  {"filter cn\n", ":1: "},
                                  {"issuer default\ncompare on\nissuer CN=x\nfilter cn\n", ":1: "},
                                  {"issuer default\nfilter serialNumber\n", ":2: "}};
    for (const auto &m : malformed) {
        orvtest::write_file(map, m[0]);
        EXPECT_EQ(ldapu_certmap_init(map.c_str(), "test"), LDAPU_ERR_CERTMAP_SYNTAX) << m[0];
        EXPECT_TRUE(log.contains(2, "certmap.conf" + std::string(m[1]))) << m[0];
    }
    LDAPMessage *res = nullptr;
    EXPECT_EQ(ldapu_cert_to_user(certs[0], nullptr, orvtest::Slapd::kSuffix, &res, nullptr), LDAPU_ERR_NOT_INITIALIZED);
    EXPECT_EQ(ldapu_certmap_init(orvtest::source_file("examples/certmap.conf").c_str(), "test"), LDAPU_SUCCESS);
    ldaputil_exit();
    for (X509 *c : certs) X509_free(c);
}

}  // namespace
