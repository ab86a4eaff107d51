// CRAM-MD5 (RFC 2195): a challenge naming this host, answered with the user
// and the HMAC-MD5 of the challenge under the user's stored password.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "auth_internal.hpp"
#include "orv/strcopy.hpp"
#include "orvutil/platform/verifypass.h"
#include "orvutil/utilmd5.h"

namespace {

using namespace orv::auth;

struct CramState {
    int step;
    char *userid;
    int protection;
    void *vcontext;
    char *challenge;
    sasl_proxycheck proxycheck;
    const char *domain;  // the connection's, from its parameter record
};

constexpr int kBlock = 64;

void md5(util_MD5_CTX *ctx, const unsigned char *a, int alen, const unsigned char *b, int blen) {
    util_MD5Init(ctx);
    if (alen > 0) util_MD5Update(ctx, a, static_cast<unsigned>(alen));
    if (blen > 0) util_MD5Update(ctx, b, static_cast<unsigned>(blen));
    util_MD5Final(ctx);
}

int cram_server_available(void *, const char *, int, int) {
    return config_get_switch(config_getdefaultcache(), "local.ugldaphasplainpasswords", 0);
}

int cram_server_start(void *, const login_params *params, sasl_proxycheck proxycheck, int *challen,
                      const char **challenge, void *vcontext, void **state, const char **errtext) {
    if (cram_server_available(nullptr, nullptr, 0, 0) == 0) {
        *errtext = "Server not configured for CRAM-MD5";
        return 1;
    }
    if (start_checks(params, errtext) != 0) return 1;
    auto *s = static_cast<CramState *>(std::calloc(1, sizeof(CramState)));
    char host[257] = {};
    gethostname(host, sizeof host - 1);
    const size_t size = std::strlen(host) + 80;
    char *text = s != nullptr ? static_cast<char *>(std::malloc(size)) : nullptr;
    if (text == nullptr) {
        std::free(s);
        *errtext = "Out of memory";
        return 1;
    }
    std::snprintf(text, size, "<%lx.%lx@%s>", static_cast<unsigned long>(std::time(nullptr)),
                  static_cast<unsigned long>(reinterpret_cast<uintptr_t>(s)), host);
    s->protection = 1;
    s->vcontext = vcontext;
    s->challenge = text;
    s->proxycheck = proxycheck;
    s->domain = params->domain;
    *challen = static_cast<int>(std::strlen(text));
    *challenge = text;
    *state = s;
    return 0;
}

int cram_server_auth(void *state, int len, char *data, int *challen, const char **challenge, const char **errtext) {
    auto *s = static_cast<CramState *>(state);
    *challen = 0;
    *challenge = nullptr;
    if (s == nullptr || ++s->step != 1) {
        *errtext = "Internal error: invalid state in cram_server_auth";
        return SASL_FAILED;
    }
    char *blank = data != nullptr && len > 0 ? static_cast<char *>(std::memchr(data, ' ', len)) : nullptr;
    if (blank == nullptr) {
        *errtext = "Invalid input";
        return SASL_FAILED;
    }
    *blank = '\0';
    const char *digest = blank + 1;
    const int digestlen = len - static_cast<int>(blank - data) - 1;
    struct Restore {
        char *at;
        ~Restore() { *at = ' '; }
    } restore{blank};

    char *stored = nullptr;
    if (verifypass_getpass(data, s->domain, s->vcontext, &stored, errtext) != 0 || stored == nullptr)
        return SASL_FAILED;
    unsigned char mac[16];
    sasl_hmac_md5(reinterpret_cast<const unsigned char *>(s->challenge), static_cast<int>(std::strlen(s->challenge)),
                  reinterpret_cast<unsigned char *>(stored), static_cast<int>(std::strlen(stored)), mac);
    wipe_free(stored);
    char hex[33];
    hex_digest(mac, hex);
    if (digestlen != 32 || std::memcmp(hex, digest, 32) != 0) {
        *errtext = "Password incorrect";
        return SASL_FAILED;
    }
    s->userid = orv::dup_string(data);
    if (s->userid == nullptr) {
        *errtext = "Out of memory";
        return SASL_FAILED;
    }
    if (s->proxycheck != nullptr && s->proxycheck(s->userid, s->userid, errtext) != 0) return SASL_FAILED;
    return SASL_DONE;
}

void cram_query_state(void *state, const char **userid, int *protection, int *out1, int *out2, int *out3) {
    auto *s = static_cast<CramState *>(state);
    report_state(s->userid, s->protection, userid, protection, out1, out2, out3);
}

void cram_free_state(void *state) {
    auto *s = static_cast<CramState *>(state);
    if (s == nullptr) return;
    std::free(s->userid);
    std::free(s->challenge);
    std::free(s);
}

int cram_get_cacheid(void *) { return 0; }

}  // namespace

extern "C" {

void sasl_hmac_md5(const unsigned char *text, int textlen, const unsigned char *key, int keylen,
                   unsigned char digest[16]) noexcept {
    util_MD5_CTX ctx;
    if (keylen > kBlock) {
        md5(&ctx, key, keylen, nullptr, 0);
        key = ctx.digest;
        keylen = 16;
    }
    unsigned char ipad[kBlock] = {}, opad[kBlock] = {};
    std::memcpy(ipad, key, static_cast<size_t>(keylen));
    std::memcpy(opad, key, static_cast<size_t>(keylen));
    for (int i = 0; i < kBlock; ++i) {
        ipad[i] ^= 0x36;
        opad[i] ^= 0x5c;
    }
    unsigned char inner[16];
    md5(&ctx, ipad, kBlock, text, textlen);
    std::memcpy(inner, ctx.digest, 16);
    md5(&ctx, opad, kBlock, inner, 16);
    std::memcpy(digest, ctx.digest, 16);
    explicit_bzero(inner, sizeof inner);
    explicit_bzero(ipad, sizeof ipad);
    explicit_bzero(opad, sizeof opad);
    explicit_bzero(&ctx, sizeof ctx);
}

const sasl_server_mech sasl_cram_server = {"CRAM-MD5",       cram_server_available, cram_server_start, cram_server_auth,
                                           cram_query_state, cram_free_state,       cram_get_cacheid,  nullptr};

}  // extern "C"
