// The PLAIN, LOGIN, CRAM-MD5 and EXTERNAL steps over a model directory that
// knows one user, "tim" (password "secret"), who may act only as himself;
// this program's definitions of the verifier and mapping entry points take
// precedence over the platform library's. The first byte picks the
// mechanism and whether a certificate was presented, the rest are the
// client's messages. A login that succeeds names tim; PLAIN's message and
// LOGIN's password are wiped, CRAM-MD5's answer is given back unchanged.
#include <fuzzer/FuzzedDataProvider.h>
#include <orvutil/login.h>
#include <orvutil/platform/certmap.h>
#include <orvutil/platform/protio.h>
#include <orvutil/platform/verifypass.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_io.hpp"

namespace {

char **tim_attributes() {
    auto **attrs = static_cast<char **>(std::calloc(2, sizeof(char *)));
    attrs[0] = strdup("tim");
    return attrs;
}

}  // namespace

extern "C" {

int verifypass(const char *user, const char *pw, int len, const char *, void *, char ***attrs,
               const char **err) noexcept {
    if (std::strcmp(user, "tim") != 0 || std::string(pw, len < 0 ? std::strlen(pw) : len) != "secret") {
        *err = "Invalid credentials";
        return 1;
    }
    if (attrs != nullptr) *attrs = tim_attributes();
    return 0;
}

int verifypass_getpass(const char *user, const char *, void *, char **pw, const char **err) noexcept {
    if (std::strcmp(user, "tim") != 0) {
        *err = "Invalid credentials";
        return 1;
    }
    *pw = strdup("secret");
    return 0;
}

int check_proxyauth(const char *authid, const char *asid, const char *, const char **err) noexcept {
    if (std::strcmp(authid, asid) == 0) return 0;
    *err = "Not authorized to act for this user";
    return 1;
}

char *get_domain_basedn(const char *) noexcept { return strdup("dc=example"); }

int ldapu_cert_to_user(const void *, struct ldap *, const char *, struct ldapmsg **res, char **) noexcept {
    *res = nullptr;
    return LDAPU_SUCCESS;
}

int check_authpolicy(struct ldapmsg *, const void *, char ***attrs, const char **) noexcept {
    *attrs = tim_attributes();
    return 0;
}

}  // extern "C"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_io::quiet_setup("local.ugldaphasplainpasswords = on\n");
    static const sasl_server_mech *const mechs[] = {&sasl_plain_server, &sasl_login_server, &sasl_cram_server,
                                                    &sasl_external_server};
    FuzzedDataProvider in(data, size);
    const uint8_t pick = in.ConsumeIntegral<uint8_t>();
    const sasl_server_mech &m = *mechs[pick % 4];
    prot_ssl_info tls{};
    login_params params{};
    params.service = "pop3";
    params.mask = 1;
    params.tls = pick & 4 ? &tls : nullptr;

    void *state = nullptr;
    int len = 0;
    const char *challenge = nullptr, *err = nullptr;
    if (m.start(m.context, &params, nullptr, &len, &challenge, nullptr, &state, &err) != 0) return 0;
    int rc = SASL_CONTINUE;
    for (int step = 1; rc == SASL_CONTINUE && step <= 3; ++step) {
        const std::string message = in.ConsumeRandomLengthString();
        std::vector<char> bytes(message.begin(), message.end());
        rc = m.step(state, static_cast<int>(bytes.size()), bytes.data(), &len, &challenge, &err);
        const bool wiped = (&m == &sasl_plain_server && step == 1) || (&m == &sasl_login_server && step == 2);
        for (size_t i = 0; i < bytes.size(); ++i)
            if (bytes[i] != (wiped ? '\0' : &m == &sasl_cram_server ? message[i] : bytes[i])) abort();
    }
    if (rc == SASL_DONE) {
        const char *user = nullptr;
        int protection = 0, a, b, c;
        m.query(state, &user, &protection, &a, &b, &c);
        if (user == nullptr || std::strcmp(user, "tim") != 0 || protection != 1) abort();
    }
    m.free_state(state);
    return 0;
}
