// PLAIN (RFC 4616 message) and LOGIN (two prompts): a clear password,
// checked by the verifier, under the plaintext policy of the service.
#include <cstdlib>
#include <cstring>

#include "auth_internal.hpp"
#include "orv/strcopy.hpp"
#include "orvutil/platform/verifypass.h"

extern "C" {
const char username[] = "Username:";
const char password[] = "Password:";
}

namespace {

using namespace orv::auth;

constexpr int kPromptLen = 9;
static_assert(sizeof username == kPromptLen + 1 && sizeof password == kPromptLen + 1);

struct PlainState {
    int step;
    char *userid;  // LOGIN: the user name from the first step
    int protection;
    void *vcontext;
    const char *domain;  // the connection's, from its parameter record
};

// Wipes the client's bytes whatever way the step leaves.
struct Wipe {
    char *data;
    int len;
    ~Wipe() {
        if (data != nullptr && len > 0) explicit_bzero(data, static_cast<size_t>(len));
    }
};

int plain_server_available(void *, const char *service, int strength, int) {
    return plaintext_offered(service, strength) ? 1 : 0;
}

int start(const login_params *params, void *vcontext, void **state, const char **errtext) {
    if (params == nullptr) return start_checks(params, errtext);
    if (plaintext_policy(params->service, params->strength, errtext) != 0) return 1;
    if (start_checks(params, errtext) != 0) return 1;
    auto *s = static_cast<PlainState *>(std::calloc(1, sizeof(PlainState)));
    if (s == nullptr) {
        *errtext = "Out of memory";
        return 1;
    }
    s->protection = 1;
    s->vcontext = vcontext;
    s->domain = params->domain;
    *state = s;
    return 0;
}

int plain_server_start(void *, const login_params *params, sasl_proxycheck, int *challen, const char **challenge,
                       void *vcontext, void **state, const char **errtext) {
    if (start(params, vcontext, state, errtext) != 0) return 1;
    *challen = 0;
    *challenge = "";
    return 0;
}

int login_server_start(void *, const login_params *params, sasl_proxycheck, int *challen, const char **challenge,
                       void *vcontext, void **state, const char **errtext) {
    if (start(params, vcontext, state, errtext) != 0) return 1;
    *challen = kPromptLen;
    *challenge = username;
    return 0;
}

int plain_server_auth(void *state, int len, char *data, int *challen, const char **challenge, const char **errtext) {
    auto *s = static_cast<PlainState *>(state);
    *challen = 0;
    *challenge = nullptr;
    if (s == nullptr || ++s->step != 1) {
        *errtext = "Internal error: invalid state in plain_server_auth";
        return SASL_FAILED;
    }
    Wipe wipe{data, len};
    // authzid NUL authcid NUL password, the password without a NUL
    char *const end = data != nullptr && len > 0 ? data + len : data;
    char *authzid = data;
    char *nul1 = authzid != end ? static_cast<char *>(std::memchr(authzid, '\0', end - authzid)) : nullptr;
    char *authcid = nul1 != nullptr ? nul1 + 1 : nullptr;
    char *nul2 = authcid != nullptr ? static_cast<char *>(std::memchr(authcid, '\0', end - authcid)) : nullptr;
    char *pass = nul2 != nullptr ? nul2 + 1 : nullptr;
    if (pass == nullptr || std::memchr(pass, '\0', end - pass) != nullptr) {
        *errtext = "Invalid syntax";
        return SASL_FAILED;
    }
    char **attrs = nullptr;
    if (verifypass(authcid, pass, static_cast<int>(end - pass), s->domain, s->vcontext, &attrs, errtext) != 0)
        return SASL_FAILED;
    const bool acting = authzid[0] != '\0' && std::strcmp(authzid, authcid) != 0;
    if (acting) {
        userattrs_free(attrs);
        attrs = nullptr;
        if (check_proxyauth(authcid, authzid, s->domain, errtext) != 0) return SASL_FAILED;
    }
    s->userid = orv::dup_string(authzid[0] != '\0' ? authzid : authcid);
    userattrs_free(attrs);
    if (s->userid == nullptr) {
        *errtext = "Out of memory";
        return SASL_FAILED;
    }
    return SASL_DONE;
}

int login_server_auth(void *state, int len, char *data, int *challen, const char **challenge, const char **errtext) {
    auto *s = static_cast<PlainState *>(state);
    *challen = 0;
    *challenge = nullptr;
    const int step = s != nullptr ? ++s->step : 0;
    if (step == 1) {
        s->userid = orv::dup_string(std::string_view(data != nullptr ? data : "", len > 0 ? len : 0));
        if (s->userid == nullptr) {
            *errtext = "Out of memory";
            return SASL_FAILED;
        }
        *challen = kPromptLen;
        *challenge = password;
        return SASL_CONTINUE;
    }
    if (step != 2) {
        *errtext = "Internal error: invalid state in login_server_auth";
        return SASL_FAILED;
    }
    Wipe wipe{data, len};
    if (len > 0 && std::memchr(data, '\0', len) != nullptr) {
        *errtext = "Invalid syntax";
        return SASL_FAILED;
    }
    return verifypass(s->userid, data != nullptr ? data : "", len > 0 ? len : 0, s->domain, s->vcontext, nullptr,
                      errtext) == 0
               ? SASL_DONE
               : SASL_FAILED;
}

void plain_query_state(void *state, const char **userid, int *protection, int *out1, int *out2, int *out3) {
    auto *s = static_cast<PlainState *>(state);
    report_state(s->userid, s->protection, userid, protection, out1, out2, out3);
}

void plain_free_state(void *state) {
    auto *s = static_cast<PlainState *>(state);
    if (s == nullptr) return;
    std::free(s->userid);
    std::free(s);
}

int plain_get_cacheid(void *) { return 0; }

}  // namespace

extern "C" {

const sasl_server_mech sasl_plain_server = {
    "PLAIN",           plain_server_available, plain_server_start, plain_server_auth,
    plain_query_state, plain_free_state,       plain_get_cacheid,  nullptr};
const sasl_server_mech sasl_login_server = {
    "LOGIN",           plain_server_available, login_server_start, login_server_auth,
    plain_query_state, plain_free_state,       plain_get_cacheid,  nullptr};

}  // extern "C"
