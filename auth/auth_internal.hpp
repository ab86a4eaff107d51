// Pieces shared by the login front end and the mechanisms.
#pragma once

#include <cstdlib>
#include <cstring>

#include "orvutil/login.h"

namespace orv::auth {

// The plaintext-password policy of a service at a cipher strength: 0, or 1
// with *errtext set.
int plaintext_policy(const char *service, int strength, const char **errtext);

// Whether the policy lets plaintext mechanisms be offered at all.
bool plaintext_offered(const char *service, int strength);

// The 16 bytes of a digest as 32 lower-case hex digits and a NUL.
void hex_digest(const unsigned char digest[16], char out[33]);

// Overwrites a secret (its NUL-terminated length) with zeros and frees it.
inline void wipe_free(char *secret) {
    if (secret == nullptr) return;
    explicit_bzero(secret, std::strlen(secret));
    std::free(secret);
}

// The checks every start makes: a usable protection mask. 0, or 1 with
// *errtext set.
inline int start_checks(const login_params *params, const char **errtext) {
    if (params == nullptr || params->mask % 2 == 0) {
        *errtext = "No suitable protection mechanism";
        return 1;
    }
    return 0;
}

// The query slot's answer; a protection other than 1 means the state was
// corrupted, and the process ends rather than report a wrong user.
inline void report_state(const char *user, int protection, const char **userid, int *prot, int *out1, int *out2,
                         int *out3) {
    if (protection != 1) std::abort();
    *userid = user;
    *prot = protection;
    *out1 = *out2 = *out3 = 0;
}

}  // namespace orv::auth
