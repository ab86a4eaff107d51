// The URL parser and assembler: any text parses. The assembler escapes
// nothing, so when no field holds a byte that delimits it (and the host is
// not empty: that assembles as "///", which reads as "localhost" and no
// path), the text assembled from the fields parses again into the same
// fields (a port counts when positive; the remainder is never assembled; a
// fragment behind a query gains one '#' each time round; an empty query's
// '?' is not read back) and assembles into the same text then.
#include <orvutil/url_parser.h>

#include <cstring>
#include <tuple>

#include "fuzz_util.hpp"

namespace {

std::string str(const char *s) { return s ? s : "(null)"; }

bool plain(const char *s, const char *delimiters) { return s && !s[strcspn(s, delimiters)]; }

bool assembles(const URL *url) {
    return url->protocol == URL_PROT_HTTP && url->host && *url->host && plain(url->user, "@:/ ") &&
           plain(url->password, "@/ ") && plain(url->host, "@:/ ") && plain(url->path, "?# ") && plain(url->extra, " ");
}

auto fields(URL *url, bool again) {
    fuzz::Freed params(url->params ? caldict_get_as_string(url->params) : nullptr);
    std::string extra = str(url->extra);
    if (again && url->params && extra[0] == '#') extra.erase(0, 1);
    return std::make_tuple(url->protocol, str(url->user), str(url->password), str(url->host),
                           url->port > 0 ? url->port : 0, str(url->path), str(params.p), extra);
}

// The text of url assembled from its fields.
std::string assemble(URL *url) {
    url->dirty = 1;
    fuzz::Freed text(URLGetUrl(url));
    return str(text.p);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    URL *url = URLCreate(fuzz::text(data, size).c_str());
    fuzz::check(url);
    if (assembles(url)) {
        std::string text = assemble(url);
        URL *again = URLCreate(text.c_str());
        fuzz::check(fields(url, false) == fields(again, true));
        if (!url->params || (caldict_length(url->params) > 0 && !*url->extra)) fuzz::check(assemble(again) == text);
        URLFree(again);
    }
    fuzz::Freed path(URLGetPath(url)), csid(CSIDPath(url)), local(IsLocalFile(url) ? ToLocalFile(url) : nullptr);
    URLFree(url);
    return 0;
}
