// The login front end and the mechanisms over a model verifier: this
// program defines the verifier's entry points (and explicit_bzero, to watch
// the wipes), which take precedence over the platform library's.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "orvtest.hpp"
#include "orvutil/login.h"
#include "orvutil/platform/verifypass.h"

namespace {

const std::map<std::string, std::string> kUsers = {
    {"tim", "tanstaaftanstaaf"}, {"mrose", "tanstaaf"}, {"alice", "alice-pw"}, {"bob", "bob-pw"}};

// Stored passwords handed out and not yet seen wiped in full.
std::vector<const void *> g_unwiped;

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void explicit_bzero(void *p, size_t n) noexcept {
    for (size_t i = 0; i < n; ++i) static_cast<volatile char *>(p)[i] = 0;
    for (auto it = g_unwiped.begin(); it != g_unwiped.end(); ++it)
        if (*it == p) {
            g_unwiped.erase(it);
            break;
        }
}

int verifypass(const char *user, const char *pw, int len, const char *, void *, char ***attrs,
               const char **err) noexcept {
    auto it = kUsers.find(user);
    if (it == kUsers.end() || it->second != std::string(pw, len < 0 ? std::strlen(pw) : len)) {
        *err = "Invalid credentials";
        return 1;
    }
    if (attrs != nullptr) {
        *attrs = static_cast<char **>(std::calloc(2, sizeof(char *)));
        (*attrs)[0] = strdup(user);
    }
    return 0;
}

int verifypass_getpass(const char *user, const char *, void *, char **pw, const char **err) noexcept {
    auto it = kUsers.find(user);
    if (it == kUsers.end()) {
        *err = "Invalid credentials";
        return 1;
    }
    *pw = strdup(it->second.c_str());
    g_unwiped.push_back(*pw);
    return 0;
}

int check_proxyauth(const char *authid, const char *asid, const char *, const char **err) noexcept {
    if (std::strcmp(authid, asid) == 0 || (std::strcmp(authid, "alice") == 0 && std::strcmp(asid, "bob") == 0))
        return 0;
    *err = "Not authorized to act for this user";
    return 1;
}

}  // extern "C"

namespace {

std::string hex(const unsigned char *d, size_t n) {
    static const char digits[] = "0123456789abcdef";
    std::string s;
    for (size_t i = 0; i < n; ++i) s += {digits[d[i] >> 4], digits[d[i] & 15]};
    return s;
}

struct Config {
    orvtest::TempDir dir;
    explicit Config(const std::string &text) {
        orvtest::write_file(dir.file("orv.conf"), text);
        config_setdefaultfile(dir.file("orv.conf").c_str());
        config_reloaddefault();
    }
};

login_params params_for(int strength, int mask = 1) {
    login_params p{};
    p.service = "pop3";
    p.strength = strength;
    p.mask = mask;
    return p;
}

// Runs a mechanism from start through the given client messages: the last
// result and the error text or the user id ("user:NAME").
struct Outcome {
    int rc = -1;
    std::string text;
    std::vector<std::string> challenges;
};
Outcome run(const sasl_server_mech &m, const login_params &p, std::vector<std::string> messages,
            sasl_proxycheck proxy = nullptr) {
    Outcome r;
    void *state = nullptr;
    int len = 0;
    const char *chal = nullptr, *err = nullptr;
    r.rc = m.start(m.context, &p, proxy, &len, &chal, nullptr, &state, &err);
    if (r.rc != 0) {
        r.text = err;
        return r;
    }
    r.challenges.emplace_back(chal, len);
    for (size_t i = 0; i < messages.size(); ++i) {
        std::string &msg = messages[i];
        if (msg == "<cram>") {  // the answer to the challenge from tim's password
            unsigned char mac[16];
            const std::string key = kUsers.at("tim");
            sasl_hmac_md5(reinterpret_cast<const unsigned char *>(chal), len,
                          reinterpret_cast<const unsigned char *>(key.data()), static_cast<int>(key.size()), mac);
            msg = "tim " + hex(mac, 16);
        }
        const std::string sent = msg;
        err = nullptr;
        r.rc = m.step(state, static_cast<int>(msg.size()), msg.data(), &len, &chal, &err);
        if (&m == &sasl_cram_server) {
            EXPECT_EQ(msg, sent) << "the blank is put back";
        }
        if ((&m == &sasl_plain_server && i == 0) || (&m == &sasl_login_server && i == 1)) {
            EXPECT_EQ(msg, std::string(msg.size(), '\0')) << "the client's secret is wiped";
        }
        if (r.rc == SASL_CONTINUE) r.challenges.emplace_back(chal, len);
    }
    if (r.rc == SASL_DONE) {
        const char *user = nullptr;
        int prot = 0, a = 1, b = 1, c = 1;
        m.query(state, &user, &prot, &a, &b, &c);
        EXPECT_EQ(prot + a + b + c, 1);
        r.text = std::string("user:") + user;
    } else if (r.rc == SASL_FAILED) {
        r.text = err != nullptr ? err : "";
    }
    m.free_state(state);
    return r;
}

TEST(Auth, HmacMd5ReferenceVectors) {
    struct Case {
        std::string key, data;
        const char *want;
    } cases[] = {
        {std::string(16, '\x0b'), "Hi There", "9294727a3638bb1c13f48ef8158bfc9d"},
        {"Jefe", "what do ya want for nothing?", "750c783e6ab0b503eaa86e310a5db738"},
        {std::string(16, '\xaa'), std::string(50, '\xdd'), "56be34521d144c88dbb8c733f0e8b3f6"},
        {"\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f\x10\x11\x12\x13\x14\x15\x16\x17\x18\x19",
         std::string(50, '\xcd'), "697eaf0aca3a3aea3a75164746ffaa79"},
        {std::string(16, '\x0c'), "Test With Truncation", "56461ef2342edc00f9bab995690efd4c"},
        {std::string(80, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First",
         "6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd"},
        {std::string(80, '\xaa'), "Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data",
         "6f630fad67cda0ee1fb1f562db3aa53e"},
        // The CRAM-MD5 exchange of RFC 2195.
        {"tanstaaftanstaaf", "<1896.697170952@postoffice.reston.mci.net>", "b913a602c7eda7a495b4e6e7334d3890"},
    };
    for (const Case &c : cases) {
        unsigned char mac[16];
        sasl_hmac_md5(reinterpret_cast<const unsigned char *>(c.data.data()), static_cast<int>(c.data.size()),
                      reinterpret_cast<const unsigned char *>(c.key.data()), static_cast<int>(c.key.size()), mac);
        EXPECT_EQ(hex(mac, 16), c.want) << c.data;
    }
}

TEST(Auth, MechanismExchanges) {
    Config conf("local.ugldaphasplainpasswords = on\n");
    const login_params p = params_for(0);
    auto refuse_all = [](const char *, const char *, const char **err) {
        *err = "proxy refused";
        return 1;
    };
    struct Case {
        const sasl_server_mech *mech;
        std::vector<std::string> messages;
        int rc;
        const char *text;
        sasl_proxycheck proxy = nullptr;
    } cases[] = {
        {&sasl_cram_server, {"<cram>"}, SASL_DONE, "user:tim"},
        {&sasl_cram_server, {"<cram>"}, SASL_FAILED, "proxy refused", refuse_all},
        {&sasl_cram_server, {"<cram>", "<cram>"}, SASL_FAILED, "Internal error: invalid state in cram_server_auth"},
        {&sasl_cram_server, {"tim B913A602C7EDA7A495B4E6E7334D3890"}, SASL_FAILED, "Password incorrect"},
        {&sasl_cram_server, {"tim"}, SASL_FAILED, "Invalid input"},
        {&sasl_plain_server, {std::string("\0tim\0tanstaaftanstaaf", 21)}, SASL_DONE, "user:tim"},
        {&sasl_plain_server, {std::string("bob\0alice\0alice-pw", 18)}, SASL_DONE, "user:bob"},
        {&sasl_plain_server,
         {std::string("tim\0alice\0alice-pw", 18)},
         SASL_FAILED,
         "Not authorized to act for this user"},
        {&sasl_plain_server, {std::string("\0alice", 6)}, SASL_FAILED, "Invalid syntax"},
        {&sasl_plain_server, {std::string("\0alice\0alice-pw\0", 16)}, SASL_FAILED, "Invalid syntax"},
        {&sasl_plain_server,
         {std::string("\0alice\0alice-pw", 15), "x"},
         SASL_FAILED,
         "Internal error: invalid state in plain_server_auth"},
        {&sasl_login_server, {"alice", "alice-pw"}, SASL_DONE, "user:alice"},
        {&sasl_login_server, {"alice", std::string("alice-pw\0", 9)}, SASL_FAILED, "Invalid syntax"},
        {&sasl_login_server,
         {"alice", "alice-pw", ""},
         SASL_FAILED,
         "Internal error: invalid state in login_server_auth"},
    };
    for (const Case &c : cases) {
        const Outcome r = run(*c.mech, p, c.messages, c.proxy);
        EXPECT_EQ(r.rc, c.rc) << c.mech->name << " " << c.messages[0];
        EXPECT_EQ(r.text, c.text) << c.mech->name << " " << c.messages[0];
    }
    EXPECT_TRUE(g_unwiped.empty()) << "stored passwords freed without a wipe";
    EXPECT_EQ(run(sasl_login_server, p, {"alice"}).challenges, (std::vector<std::string>{"Username:", "Password:"}));
    EXPECT_EQ(std::string(run(sasl_cram_server, p, {}).challenges[0], 0, 1), "<");

    // Every start needs the "no layer" protection bit.
    const login_params even = params_for(0, 2);
    for (const sasl_server_mech *m : {&sasl_cram_server, &sasl_plain_server, &sasl_login_server})
        EXPECT_EQ(run(*m, even, {}).text, "No suitable protection mechanism") << m->name;
    EXPECT_EQ(run(sasl_external_server, p, {}).text, "No TLS client certificate");
}

TEST(Auth, PlaintextPolicyCapabilitiesAndApop) {
    struct Case {
        const char *setting;
        int strength;
        const char *want;  // of login_plaintext with the right password; "" accepted
        const char *caps;  // with a client certificate
    } cases[] = {
        {"0", 0, "", " AUTH=PLAIN AUTH=LOGIN AUTH=EXTERNAL"},
        {"-1", 256, "Plaintext passwords not accepted", " AUTH=EXTERNAL"},
        // Offered (the signed comparison), but refused at start.
        {"-5", 0, "SSL encryption required for plaintext passwords", " AUTH=PLAIN AUTH=LOGIN AUTH=EXTERNAL"},
        {"-5", 40, "", " AUTH=PLAIN AUTH=LOGIN AUTH=EXTERNAL"},
        {"128", 0, "SSL encryption required for plaintext passwords", " AUTH=EXTERNAL"},
        {"128", 56, "Stronger SSL encryption required for plaintext passwords", " AUTH=EXTERNAL"},
        {"128", 128, "", " AUTH=PLAIN AUTH=LOGIN AUTH=EXTERNAL"},
    };
    for (const Case &c : cases) {
        Config conf(std::string("service.pop3.plaintextmincipher = ") + c.setting + "\n");
        const login_params p = params_for(c.strength);
        const char *err = "";
        char **attrs = nullptr;
        const int rc = login_plaintext(&attrs, &p, "alice", "alice-pw", &err);
        EXPECT_EQ(rc == 0 ? std::string() : std::string(err), c.want) << c.setting << "/" << c.strength;
        userattrs_free(attrs);
        EXPECT_EQ(run(sasl_plain_server, p, {}).text, c.want) << c.setting << "/" << c.strength;
        char caps[LOGIN_CAPABILITIES_SIZE];
        EXPECT_STREQ(login_capabilities(caps, 0, "pop3", c.strength, 1), c.caps) << c.setting;
    }

    Config conf("local.ugldaphasplainpasswords = yes\nservice.pop3.plaintextmincipher = -1\n");
    char caps[LOGIN_CAPABILITIES_SIZE];
    EXPECT_STREQ(login_capabilities(caps, 0, "pop3", 0, 0), " AUTH=CRAM-MD5");
    Config plain("service.pop3.plaintextmincipher = -1\n");
    EXPECT_STREQ(login_capabilities(caps, 0, "pop3", 0, 0), "");
    Config open("");
    EXPECT_STREQ(login_capabilities(caps, 1, "pop3", 0, 0), " AUTH=PLAIN");

    // The APOP exchange of RFC 1939.
    const char *challenge = "<1896.697170952@dbc.mtview.ca.us>";
    const char *err = nullptr;
    EXPECT_EQ(login_apop("mrose", nullptr, nullptr, challenge, "c4c9334bac560ecc979e58001b3e22fb", &err), 0);
    EXPECT_EQ(login_apop("mrose", nullptr, nullptr, challenge, "C4C9334BAC560ECC979E58001B3E22FB", &err), 1);
    EXPECT_STREQ(err, "Password incorrect");
    EXPECT_EQ(login_apop("nobody", nullptr, nullptr, challenge, "c4c9334bac560ecc979e58001b3e22fb", &err), 1);
    EXPECT_STREQ(err, "Invalid credentials");
    EXPECT_TRUE(g_unwiped.empty()) << "stored passwords freed without a wipe";

    const sasl_server_mech *m = nullptr;
    EXPECT_EQ(login_authenticate("cram-MD5", &m, &err), 0);
    EXPECT_EQ(m, &sasl_cram_server);
    EXPECT_EQ(login_authenticate("Plain", &m, &err), 0);
    EXPECT_EQ(m, &sasl_plain_server);
    EXPECT_EQ(login_authenticate("GSSAPI", &m, &err), 1);
    EXPECT_EQ(err, nullptr);
}

}  // namespace
