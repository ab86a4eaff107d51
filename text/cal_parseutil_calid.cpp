// Calendar and group identifiers: character sets, the cleaner, the
// structural validator, the extractors and the builder.
#include "orvutil/cal_parseutil.h"

#include <cstring>

#include <plstr.h>
#include <prprf.h>

#include "orv/ascii.hpp"

namespace {

constexpr char DOMAIN_DELIMITER = '@';
constexpr char SUFFIX_DELIMITER = ':';

bool calid_char(unsigned char c) {
    return orv::ascii_isalnum(c) || (c != '\0' && std::strchr("_-.@'%/!", c) != nullptr);
}

bool group_char(unsigned char c) { return orv::ascii_isalnum(c) || (c != '\0' && std::strchr("_-. ", c) != nullptr); }

// Checks the output argument and the calid's structure, as every extractor
// does first. 0 when the extraction may go on.
int check_extract(const char *calid, char **out) {
    if (out == nullptr || *out != nullptr) return CAL_PARSEUTIL_E_INVALIDARG;
    int valid = 0;
    const int rc = cal_parseutil_validate_calid_for_cld(calid, &valid);
    if (rc != 0) return rc;
    return valid ? 0 : CAL_PARSEUTIL_E_INVALIDARG;
}

int store_copy(const char *from, size_t n, char **out) {
    char *copy = PL_strndup(from, static_cast<PRUint32>(n));
    if (copy == nullptr) return CAL_PARSEUTIL_E_OUTOFMEMORY;
    *out = copy;
    return 0;
}

}  // namespace

extern "C" {

int cal_parseutil_isNotAllowableGroupIDChar(char c) noexcept {
    return group_char(static_cast<unsigned char>(c)) ? 0 : 1;
}

int cal_parseutil_isValidGroupID(const char *s) noexcept {
    if (s == nullptr || *s == '\0') return 0;
    for (; *s; ++s)
        if (!group_char(static_cast<unsigned char>(*s))) return 0;
    return 1;
}

int cal_parseutil_isNotAllowableCalidChar(char c) noexcept { return calid_char(static_cast<unsigned char>(c)) ? 0 : 1; }

int cal_parseutil_isValidCalid(const char *s) noexcept {
    if (s == nullptr || *s == '\0') return 0;
    bool colon_seen = false;
    for (; *s; ++s) {
        if (calid_char(static_cast<unsigned char>(*s))) continue;
        if (*s == SUFFIX_DELIMITER && !colon_seen) {
            colon_seen = true;
            continue;
        }
        return 0;
    }
    return 1;
}

int cal_parseutil_validate_calid(char **calid) noexcept {
    if (calid == nullptr || *calid == nullptr) return 0;
    // One forward pass keeping the allowed bytes gives the same string as
    // removing the others one by one from the end.
    char *w = *calid;
    for (const char *r = *calid; *r; ++r)
        if (calid_char(static_cast<unsigned char>(*r))) *w++ = *r;
    *w = '\0';
    return w != *calid ? 1 : 0;
}

int cal_parseutil_validate_calid_for_cld(const char *calid, int *valid) noexcept {
    if (valid == nullptr) return CAL_PARSEUTIL_E_INVALIDARG;
    *valid = 1;
    if (calid == nullptr) {
        *valid = 0;
        return 0;
    }
    const size_t len = std::strlen(calid);
    const char *at = std::strchr(calid, DOMAIN_DELIMITER);
    const char *colon = std::strchr(calid, SUFFIX_DELIMITER);
    if (colon != nullptr && (colon == calid + len - 1 || colon == calid)) {
        *valid = 0;
    } else if (at == nullptr) {
        // no domain: valid
    } else if (at == calid) {
        *valid = 0;
    } else if (colon != nullptr && colon - at < 2) {
        *valid = 0;
    } else if (at == calid + len - 1) {
        *valid = 0;
    }
    return 0;
}

int cal_parseutil_get_uid_from_calid(const char *calid, char **uid) noexcept {
    if (const int rc = check_extract(calid, uid)) return rc;
    const char *colon = std::strchr(calid, SUFFIX_DELIMITER);
    return store_copy(calid, colon ? static_cast<size_t>(colon - calid) : std::strlen(calid), uid);
}

int cal_parseutil_get_domain_from_calid(const char *calid, char **domain) noexcept {
    if (const int rc = check_extract(calid, domain)) return rc;
    const char *at = std::strchr(calid, DOMAIN_DELIMITER);
    if (at == nullptr) return 0;
    const char *colon = std::strchr(calid, SUFFIX_DELIMITER);
    // With a suffix the copy is colon - at bytes long from behind '@', so it
    // ends with the ':' itself.
    const size_t n = colon ? static_cast<size_t>(colon - at) : std::strlen(at + 1);
    return store_copy(at + 1, n, domain);
}

int cal_parseutil_get_suffix_from_calid(const char *calid, char **suffix) noexcept {
    if (const int rc = check_extract(calid, suffix)) return rc;
    const char *colon = std::strchr(calid, SUFFIX_DELIMITER);
    if (colon == nullptr) return 0;
    return store_copy(colon + 1, std::strlen(colon + 1), suffix);
}

int cal_parseutil_create_calid(const char *uid, const char *domain, const char *suffix, char **calid,
                               int *flag) noexcept {
    if (flag == nullptr) return CAL_PARSEUTIL_E_INVALIDARG;
    *flag = 0;
    if (calid == nullptr || *calid != nullptr) return CAL_PARSEUTIL_E_INVALIDARG;
    for (const char *part : {uid, domain, suffix}) {
        if (part == nullptr) continue;
        // PR_sprintf_append frees the old string when it fails.
        *calid = PR_sprintf_append(*calid, "%s", part);
        if (*calid == nullptr) return CAL_PARSEUTIL_E_OUTOFMEMORY;
    }
    int valid = 0;
    const int rc = cal_parseutil_validate_calid_for_cld(*calid, &valid);
    if (rc != 0) return rc;
    return valid ? 0 : CAL_PARSEUTIL_E_INVALIDARG;
}

}  // extern "C"
