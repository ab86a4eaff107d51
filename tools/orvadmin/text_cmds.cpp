// orvadmin commands on calendar identifiers and the web and output encodings.
#include <cstdlib>
#include <cstring>
#include <string>

#include <plstr.h>

#include "orvadmin.hpp"
#include "orvutil/cal_parseutil.h"
#include "orvutil/platform/prot.h"
#include "orvutil/url_encode_decode.h"

namespace orvadmin {
namespace {

const char *or_empty(const char *s) { return s ? s : ""; }

// The iCalendar writer works on a stream: write into memory and copy out.
char *ical_encode(const char *text) {
    protstream *s = prot_new_memory(0);
    if (!s) return nullptr;
    cal_parseutil_print_string_ical(s, text);
    const char *data = prot_memory_data(s, nullptr);
    char *copy = data && !s->error ? strdup(data) : nullptr;
    prot_free(s);
    return copy;
}

char *js_encode(const char *text) {
    char *nspr = cal_parseutil_JSencode(text);
    char *copy = nspr ? strdup(nspr) : nullptr;
    PL_strfree(nspr);
    return copy;
}

char *xml_encode(const char *text) {
    char *out = nullptr;
    return cal_parseutil_convert_to_xml_string_always(text, &out, 0) == 0 ? out : nullptr;
}

struct Coder {
    const char *kind;
    char *(*run)(const char *);  // a malloc string, or NULL
};

const Coder encoders[] = {
    {"url", url_Encode},     {"html", url_EncodeHTML}, {"cookie", url_EncodeCookie}, {"full", full_Encode},
    {"alpha", alpha_Encode}, {"js", js_encode},        {"xml", xml_encode},          {"ical", ical_encode},
};
const Coder decoders[] = {{"url", url_Decode}, {"full", full_Decode}};

template <size_t N>
int code(const Coder (&table)[N], const char *label, int, char **argv) {
    for (const Coder &c : table) {
        if (std::strcmp(argv[1], c.kind) != 0) continue;
        char *result = c.run(rest_of_line(2));
        if (!result) return fail(argv[0], "cannot %s the text", argv[0]);
        out("%s = %s\n", label, result);
        std::free(result);
        return 0;
    }
    std::string kinds;
    for (const Coder &c : table) kinds += std::string(kinds.empty() ? "" : "|") + c.kind;
    return fail(argv[0], "usage: %s %s text", argv[0], kinds.c_str());
}

}  // namespace

int cmd_calid(int, char **argv) {
    const char *calid = argv[1];
    int structured = 0;
    cal_parseutil_validate_calid_for_cld(calid, &structured);
    bool valid = cal_parseutil_isValidCalid(calid) && structured;
    char *uid = nullptr, *domain = nullptr, *suffix = nullptr;
    cal_parseutil_get_uid_from_calid(calid, &uid);
    cal_parseutil_get_domain_from_calid(calid, &domain);
    cal_parseutil_get_suffix_from_calid(calid, &suffix);
    out("valid = %s\nuid = %s\ndomain = %s\nsuffix = %s\n", valid ? "yes" : "no", or_empty(uid), or_empty(domain),
        or_empty(suffix));
    PL_strfree(uid);
    PL_strfree(domain);
    PL_strfree(suffix);
    return valid ? 0 : fail(argv[0], "not a valid calendar identifier: %s", calid);
}

int cmd_encode(int argc, char **argv) { return code(encoders, "encoded", argc, argv); }
int cmd_decode(int argc, char **argv) { return code(decoders, "decoded", argc, argv); }

}  // namespace orvadmin
