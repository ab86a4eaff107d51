// orvadmin commands on URLs and query strings.
#include <cstdlib>
#include <cstring>
#include <string>

#include "orvadmin.hpp"
#include "orvutil/cal_dict.h"
#include "orvutil/url_parser.h"

namespace orvadmin {
namespace {

const char *or_empty(const char *s) { return s ? s : ""; }

void print_pairs(const caldict *d) {
    int n = static_cast<int>(caldict_length(d));
    for (int i = 0; i < n; ++i)
        out("param %s = %s\n", or_empty(caldict_get_indexed_name(d, i)),
            or_empty(static_cast<const char *>(caldict_get_indexed_value(d, i))));
}

// The port as written in an http URL's authority, or empty.
std::string port_text(const std::string &url) {
    const size_t start = url.find("://");
    if (start == std::string::npos) return "";
    std::string authority = url.substr(start + 3, url.find_first_of("/?#", start + 3) - (start + 3));
    const size_t at = authority.rfind('@');
    if (at != std::string::npos) authority.erase(0, at + 1);
    const size_t colon = authority.rfind(':');
    if (colon == std::string::npos || authority.find(']', colon) != std::string::npos) return "";  // [v6 address]
    return authority.substr(colon + 1);
}

}  // namespace

int cmd_url(int, char **argv) {
    URL *url = URLCreate(argv[1]);
    if (!url) return fail(argv[0], "out of memory");
    const std::string port = port_text(argv[1]);
    if (URLGetPort(url) <= 0 && !port.empty()) note(argv[0], "the port %s does not fit and is ignored", port.c_str());
    out("protocol = %s\nuser = %s\npassword = %s\nhost = %s\nport = %d\npath = %s\nfragment = %s\n",
        or_empty(URLGetProtocolString(url)), or_empty(URLGetUser(url)), or_empty(URLGetPassword(url)),
        or_empty(URLGetHost(url)), URLGetPort(url), or_empty(url->path), or_empty(URLGetExtra(url)));
    print_pairs(URLGetParams(url));
    char *text = URLGetUrl(url);
    out("url = %s\n", or_empty(text));
    std::free(text);
    URLFree(url);
    return 0;
}

int cmd_query(int, char **argv) {
    const char *text = argv[1];
    caldict *d = std::strchr(text, '?') ? caldict_create_from_url(text) : caldict_create_from_string(text, '&');
    if (!d) return fail(argv[0], "no parameters in %s", text);
    out("count = %u\n", static_cast<unsigned>(caldict_length(d)));
    print_pairs(d);
    char *joined = caldict_get_as_string(d);
    out("query = %s\n", or_empty(joined));
    std::free(joined);
    caldict_delete_all(d, std::free);
    return 0;
}

}  // namespace orvadmin
