// The login front end: set-up, the connection's parameter record, the
// plaintext policy, APOP, the advertised mechanisms and the choice of one.
#include "orvutil/login.h"

#include <cstdio>
#include <cstring>

#include "auth_internal.hpp"
#include "orv/ascii.hpp"
#include "orvutil/platform/protio.h"
#include "orvutil/platform/verifypass.h"
#include "orvutil/utilmd5.h"

namespace orv::auth {

namespace {

// The key "service.<name>.plaintextmincipher" is built in a buffer of this
// size; a name that does not fit reads the default.
constexpr size_t kKeySize = 88;

int min_cipher(const char *service) {
    char key[kKeySize];
    const int n = std::snprintf(key, sizeof key, "service.%s.plaintextmincipher", service ? service : "");
    if (n < 0 || static_cast<size_t>(n) >= sizeof key) return 0;
    return config_get_int(config_getdefaultcache(), key, 0);
}

}  // namespace

int plaintext_policy(const char *service, int strength, const char **errtext) {
    const int setting = min_cipher(service);
    if (setting == 0) return 0;
    if (setting == -1) {
        *errtext = "Plaintext passwords not accepted";
    } else if (strength == 0) {
        *errtext = "SSL encryption required for plaintext passwords";
    } else if (strength < setting) {
        *errtext = "Stronger SSL encryption required for plaintext passwords";
    } else {
        return 0;
    }
    return 1;
}

bool plaintext_offered(const char *service, int strength) {
    const int setting = min_cipher(service);
    return setting == 0 || (setting != -1 && strength >= setting);
}

void hex_digest(const unsigned char digest[16], char out[33]) {
    for (int i = 0; i < 16; ++i) {
        out[2 * i] = orv::kHexLower[digest[i] >> 4];
        out[2 * i + 1] = orv::kHexLower[digest[i] & 15];
    }
    out[32] = '\0';
}

}  // namespace orv::auth

using namespace orv::auth;

extern "C" {

int login_init(config_cache *cache) noexcept {
    const char *dir = config_get_string(config_getdefaultcache(), "local.instancedir", ".");
    if (verifypass_init(cache) != 0) return -1;
    return external_init(dir, "msg");
}

int login_init_params(login_params *params, const char *domain, const char *service, struct protstream *stream,
                      const int *nocert, int mask, void *context) noexcept {
    int strength = 0;
    prot_ssl_info *info = nullptr;
    if (stream != nullptr) prot_ssl_get_info(stream, &strength, &info);
    if (info != nullptr && nocert != nullptr && *nocert != 0) {
        prot_ssl_free_info(info);
        info = nullptr;
    }
    if (params == nullptr) {
        prot_ssl_free_info(info);
        return mask;
    }
    std::memset(params, 0, sizeof *params);
    params->domain = domain;
    params->tls = info;
    params->strength = strength;
    params->context = context;
    params->service = service;
    params->mask = mask;
    return mask;
}

void login_free_params(login_params *params) noexcept {
    if (params == nullptr || params->tls == nullptr) return;
    prot_ssl_free_info(params->tls);
    params->tls = nullptr;
}

int login_plaintext(char ***userattrs, const login_params *params, const char *user, const char *password,
                    const char **errtext) noexcept {
    const char *ignored = nullptr;
    if (errtext == nullptr) errtext = &ignored;
    if (params == nullptr || user == nullptr || password == nullptr) {
        *errtext = "Invalid credentials";
        return 1;
    }
    if (plaintext_policy(params->service, params->strength, errtext) != 0) return 1;
    return verifypass(user, password, -1, params->domain, params->context, userattrs, errtext) == 0 ? 0 : 1;
}

int login_doesapop(void) noexcept {
    return config_get_switch(config_getdefaultcache(), "local.ugldaphasplainpasswords", 0);
}

int login_apop(const char *user, const char *domain, void *context, const char *challenge, const char *digest,
               const char **errtext) noexcept {
    const char *ignored = nullptr;
    if (errtext == nullptr) errtext = &ignored;
    char *stored = nullptr;
    if (verifypass_getpass(user, domain, context, &stored, errtext) != 0 || stored == nullptr) return 1;
    util_MD5_CTX md5;
    util_MD5Init(&md5);
    if (challenge != nullptr)
        util_MD5Update(&md5, reinterpret_cast<const unsigned char *>(challenge), std::strlen(challenge));
    util_MD5Update(&md5, reinterpret_cast<const unsigned char *>(stored), std::strlen(stored));
    wipe_free(stored);
    util_MD5Final(&md5);
    char hex[33];
    hex_digest(md5.digest, hex);
    explicit_bzero(&md5, sizeof md5);
    if (digest != nullptr && std::strcmp(hex, digest) == 0) return 0;
    *errtext = "Password incorrect";
    return 1;
}

char *login_capabilities(char *out, int no_login, const char *service, int strength, int cert) noexcept {
    if (out == nullptr) return nullptr;
    out[0] = '\0';
    struct Item {
        const sasl_server_mech *mech;
        const char *text;
    } const items[] = {{&sasl_cram_server, " AUTH=CRAM-MD5"},
                       {&sasl_plain_server, " AUTH=PLAIN"},
                       {&sasl_login_server, " AUTH=LOGIN"},
                       {&sasl_external_server, " AUTH=EXTERNAL"}};
    for (const Item &item : items) {
        if (item.mech == &sasl_login_server && no_login != 0) continue;
        if (item.mech->available(item.mech->context, service, strength, cert) != 0) std::strcat(out, item.text);
    }
    return out;
}

int login_authenticate(const char *name, const sasl_server_mech **mech, const char **errtext) noexcept {
    const struct {
        const char *name;
        const sasl_server_mech *mech;
    } table[] = {{"plain", &sasl_plain_server},
                 {"login", &sasl_login_server},
                 {"cram-md5", &sasl_cram_server},
                 {"external", &sasl_external_server}};
    for (const auto &entry : table) {
        if (name != nullptr && orv::ascii_casecmp(name, entry.name) == 0) {
            if (mech != nullptr) *mech = entry.mech;
            return 0;
        }
    }
    if (errtext != nullptr) *errtext = nullptr;
    return 1;
}

}  // extern "C"
