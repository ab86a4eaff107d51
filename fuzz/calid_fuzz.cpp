// Calendar identifiers and whole-word search: the predicates and splitters
// take any text, a valid identifier is rebuilt from its uid and suffix, and
// a whole word found is the needle standing between delimiters. The input is
// "haystack\nneedle\ndelimiters"; the haystack is also the identifier.
#include <orvutil/cal_exactstr.h>
#include <orvutil/cal_parseutil.h>
#include <plstr.h>

#include <strings.h>

#include <cstring>

#include "fuzz_util.hpp"

namespace {

struct NsprString {
    char *p = nullptr;
    ~NsprString() { PL_strfree(p); }
};

void check_calid(const std::string &s) {
    (void)cal_parseutil_isValidGroupID(s.c_str());
    int valid = 0;
    fuzz::check(cal_parseutil_validate_calid_for_cld(s.c_str(), &valid) == 0);
    NsprString uid, domain, suffix, rebuilt;
    (void)cal_parseutil_get_uid_from_calid(s.c_str(), &uid.p);
    (void)cal_parseutil_get_domain_from_calid(s.c_str(), &domain.p);
    (void)cal_parseutil_get_suffix_from_calid(s.c_str(), &suffix.p);
    if (cal_parseutil_isValidCalid(s.c_str()) && uid.p) {
        std::string tail = suffix.p ? std::string(":") + suffix.p : "";
        int flag = 1;
        (void)cal_parseutil_create_calid(uid.p, nullptr, suffix.p ? tail.c_str() : nullptr, &rebuilt.p, &flag);
        fuzz::check(rebuilt.p && s == rebuilt.p && flag == 0);
    }
    std::string copy = s;
    char *p = copy.data();
    if (cal_parseutil_validate_calid(&p)) fuzz::check(cal_parseutil_isValidCalid(p));
}

bool delimits(const char *delims, char c) {
    if (!delims || !*delims) delims = ",; ";
    return strchr(delims, c) != nullptr;
}

void check_word(const std::string &hay, const std::string &needle, const char *delims, bool nocase) {
    const char *at = nocase ? cal_strexactcasestr(hay.c_str(), needle.c_str(), delims)
                            : cal_strexactstr(hay.c_str(), needle.c_str(), delims);
    if (!at) return;
    size_t i = at - hay.c_str();
    fuzz::check(i + needle.size() <= hay.size());
    fuzz::check(nocase ? strncasecmp(at, needle.c_str(), needle.size()) == 0
                       : hay.compare(i, needle.size(), needle) == 0);
    fuzz::check(i == 0 || delimits(delims, hay[i - 1]));
    fuzz::check(i + needle.size() == hay.size() || delimits(delims, hay[i + needle.size()]));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    auto [hay, rest] = fuzz::split(fuzz::text(data, size), '\n');
    auto [needle, delims] = fuzz::split(rest, '\n');
    check_calid(hay);
    for (bool nocase : {false, true}) {
        check_word(hay, needle, delims.c_str(), nocase);
        check_word(hay, needle, nullptr, nocase);
    }
    return 0;
}
