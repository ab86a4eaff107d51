// The URL object: parsing, rebuilding, field access and local file paths.
#include "orvutil/url_parser.h"

#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "orv/ascii.hpp"
#include "orv/sizes.hpp"
#include "orv/strcopy.hpp"

extern "C" {

const char *const URLProtStrings[URL_PROT_COUNT + 1] = {
    "", "http", "mailto", "file", "cap", "imip", "irip", "resource", "ftp", nullptr,
};
const char gtpDecodedFileChars[3] = ":\\";
const char gtpEncodedFileChars[3] = "|/";
char URLEmptyString[1] = "";

}  // extern "C"

namespace {

using std::string_view;

void release(char *&field) {
    if (field != URLEmptyString) std::free(field);
    field = nullptr;
}

// A parsed field: the shared empty string for empty text, else a copy.
void assign_parsed(char *&field, string_view v) {
    char *value = URLEmptyString;
    if (!v.empty()) {
        value = orv::dup_string(v);
        if (value == nullptr) value = URLEmptyString;
    }
    release(field);
    field = value;
}

// A set field: NULL stays NULL, anything else is copied. The copy is made
// before the old value goes, so a field may be set from itself.
void assign_set(char *&field, const char *text) {
    char *value = text == nullptr ? nullptr : orv::dup_string(text);
    if (text != nullptr && value == nullptr) value = URLEmptyString;
    release(field);
    field = value;
}

// The same field in a copied object: shared and NULL values stay as they are.
char *copy_field(const char *field) {
    if (field == nullptr || field == URLEmptyString) return const_cast<char *>(field);
    char *copy = orv::dup_string(field);
    return copy == nullptr ? URLEmptyString : copy;
}

bool nonempty(const char *s) { return s != nullptr && *s != '\0'; }

bool istarts_with(string_view text, string_view prefix) {
    return text.size() >= prefix.size() && orv::ascii_iequal(text.substr(0, prefix.size()), prefix);
}

// Reads a decimal int as "%d" does (blanks, a sign, at least one digit, the
// rest ignored); false when there is no number or it overflows an int.
bool read_int(string_view text, int *out) {
    size_t i = 0;
    while (i < text.size() && orv::ascii_isspace(static_cast<unsigned char>(text[i]))) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    const size_t first = i;
    long long value = 0;
    for (; i < text.size() && orv::ascii_isdigit(static_cast<unsigned char>(text[i])); ++i) {
        value = value * 10 + (text[i] - '0');
        if (value > static_cast<long long>(INT_MAX) + 1) return false;
    }
    if (i == first) return false;
    if (negative) value = -value;
    if (value > INT_MAX || value < INT_MIN) return false;
    *out = static_cast<int>(value);
    return true;
}

void delete_params(URL *url) {
    caldict_delete_all(url->params, std::free);
    url->params = nullptr;
}

void parse_authority(URL *url, string_view authority) {
    string_view hostpart = authority;
    const size_t at = authority.find('@');
    if (at != string_view::npos) {
        const size_t colon = authority.find(':');
        if (colon < at) {
            assign_parsed(url->user, authority.substr(0, colon));
            assign_parsed(url->password, authority.substr(colon + 1, at - colon - 1));
        } else {
            assign_parsed(url->user, authority.substr(0, at));
        }
        hostpart = authority.substr(at + 1);
    }
    const size_t colon = hostpart.find(':');
    if (colon == string_view::npos) {
        assign_parsed(url->host, hostpart);
        return;
    }
    assign_parsed(url->host, hostpart.substr(0, colon));
    int port;
    if (read_int(hostpart.substr(colon + 1), &port)) url->port = port;
}

// Splits what follows the path's '/' into path, query and fragment.
void parse_path(URL *url, string_view p) {
    const size_t q = p.find('?');
    const size_t h = p.find('#');
    if (q == string_view::npos && h == string_view::npos) {
        assign_parsed(url->path, p);
    } else if (q != string_view::npos) {
        assign_parsed(url->path, p.substr(0, q));
        if (q + 1 < p.size()) {
            string_view query = p.substr(q + 1);
            if (h != string_view::npos && h > q) {
                query = p.substr(q + 1, h - q - 1);
                // The '#' stays in the fragment, so rebuilding writes "##".
                assign_parsed(url->extra, p.substr(h));
            }
            // A query that runs to the end of the text is already terminated.
            if (query.data() + query.size() == p.data() + p.size()) {
                url->params = caldict_create_from_string(query.data(), '&');
            } else {
                try {
                    url->params = caldict_create_from_string(std::string(query).c_str(), '&');
                } catch (const std::bad_alloc &) {
                    url->params = nullptr;
                }
            }
        }
    } else if (h + 1 < p.size()) {
        assign_parsed(url->extra, p.substr(h + 1));
        assign_parsed(url->path, p.substr(0, h));
    } else {
        assign_parsed(url->path, p);
    }
    url->dirty = 1;
}

// scheme ":" ["//" authority] "/" path ["?" query] ["#" fragment], from the
// text behind the scheme's ':'.
void parse_http(URL *url, string_view text) {
    if (text.substr(0, 2) != "//") return;
    const string_view rest = text.substr(2);
    if (!rest.empty() && rest[0] == '/') {
        assign_parsed(url->host, "localhost");
        return;
    }
    const size_t slash = rest.find('/');
    parse_authority(url, rest.substr(0, slash));
    if (slash != string_view::npos && slash + 1 < rest.size()) parse_path(url, rest.substr(slash + 1));
}

void parse(URL *url) {
    clearURL(url);
    url->protocol = URL_PROT_NONE;
    if (url->text == nullptr) return;
    char *space = std::strchr(url->text, ' ');
    if (space != nullptr) {
        assign_parsed(url->remainder, space + 1);
        *space = '\0';
    }
    const string_view text(url->text);
    const size_t colon = text.find(':');
    if (colon == string_view::npos) return;
    const string_view scheme = text.substr(0, colon);
    for (unsigned i = 0; i < URL_PROT_COUNT; ++i) {
        if (orv::ascii_iequal(scheme, URLProtStrings[i])) {
            url->protocol = i;
            break;
        }
    }
    if (url->protocol == URL_PROT_HTTP) parse_http(url, text.substr(colon + 1));
}

// Hands the pieces of the rebuilt text to emit, in order. The query is
// written as caldict_get_as_string writes it: name=value pairs joined by '&'.
template <typename Emit>
void emit_url(const URL *url, Emit &&emit) {
    emit(URLProtStrings[url->protocol < URL_PROT_COUNT ? url->protocol : 0]);
    emit("://");
    if (nonempty(url->user) || nonempty(url->password)) {
        if (nonempty(url->user)) emit(url->user);
        if (nonempty(url->password)) {
            emit(":");
            emit(url->password);
        }
        emit("@");
    }
    if (url->host != nullptr) emit(url->host);
    if (url->port > 0) {
        char digits[16];
        const auto end = std::to_chars(digits, digits + sizeof digits, url->port).ptr;
        emit(":");
        emit(string_view(digits, static_cast<size_t>(end - digits)));
    }
    emit("/");
    if (url->path != nullptr) emit(url->path);
    if (url->params != nullptr) {
        emit("?");
        const int n = static_cast<int>(caldict_length(url->params));
        for (int i = 0; i < n; ++i) {
            const char *name = caldict_get_indexed_name(url->params, i);
            const auto *value = static_cast<const char *>(caldict_get_indexed_value(url->params, i));
            if (i > 0) emit("&");
            emit(name == nullptr ? "" : name);
            emit("=");
            emit(value == nullptr ? "" : value);
        }
    }
    if (nonempty(url->extra)) {
        emit("#");
        emit(url->extra);
    }
}

// Rebuilds the text from the fields when they changed: one pass to size it,
// one to fill an exactly sized buffer, so there is no length limit.
void assemble(URL *url) {
    if (url == nullptr || !url->dirty) return;
    size_t size = 1;
    bool overflow = false;
    emit_url(url, [&](string_view piece) { overflow |= !orv::size_add(size, piece.size()); });
    if (overflow) return;
    auto *text = static_cast<char *>(std::malloc(size));
    if (text == nullptr) return;  // keep the old text and stay dirty
    char *at = text;
    emit_url(url, [&](string_view piece) {
        std::memcpy(at, piece.data(), piece.size());
        at += piece.size();
    });
    *at = '\0';
    release(url->text);
    url->text = text;
    url->dirty = 0;
}

// The text after rebuilding, or "" when there is none.
string_view current_text(URL *url) {
    assemble(url);
    return url->text == nullptr ? string_view() : string_view(url->text);
}

char *copy_of_value(const char *value) { return value == nullptr ? nullptr : orv::dup_string(value); }

}  // namespace

extern "C" {

URL *new_URL(void) noexcept { return static_cast<URL *>(std::calloc(1, sizeof(URL))); }

URL *URLCreate(const char *text) noexcept {
    URL *url = new_URL();
    if (url != nullptr && text != nullptr && *text != '\0') SetCurl(url, text);
    return url;
}

void SetCurl(URL *url, const char *text) noexcept {
    if (url == nullptr) return;
    assign_set(url->text, text);
    url->dirty = 0;
    parse(url);
}

void URLFree(URL *url) noexcept {
    if (url == nullptr) return;
    clearURL(url);
    release(url->user);
    release(url->password);
    release(url->host);
    release(url->path);
    release(url->extra);
    release(url->remainder);
    release(url->text);
    std::free(url);
}

URL *URLCopy(const URL *url) noexcept {
    if (url == nullptr) return nullptr;
    URL *copy = new_URL();
    if (copy == nullptr) return nullptr;
    copy->protocol = url->protocol;
    copy->host = copy_field(url->host);
    copy->port = url->port;
    copy->path = copy_field(url->path);
    copy->params = url->params == nullptr ? nullptr : caldict_copy(url->params, copy_of_value);
    copy->extra = copy_field(url->extra);
    copy->remainder = copy_field(url->remainder);
    copy->spare = url->spare;
    copy->dirty = url->dirty;
    return copy;
}

char *URLGetUrl(URL *url) noexcept {
    if (url == nullptr) return nullptr;
    assemble(url);
    return url->text == nullptr ? nullptr : orv::dup_string(url->text);
}

char *URLGetUser(URL *url) noexcept {
    assemble(url);
    return url == nullptr ? nullptr : url->user;
}

char *URLGetPassword(URL *url) noexcept {
    assemble(url);
    return url == nullptr ? nullptr : url->password;
}

char *URLGetHost(URL *url) noexcept {
    assemble(url);
    return url == nullptr ? nullptr : url->host;
}

char *URLGetCSID(URL *url) noexcept {
    assemble(url);
    return url == nullptr ? nullptr : url->path;
}

unsigned int URLGetProtocol(const URL *url) noexcept { return url == nullptr ? 0 : url->protocol; }

const char *URLGetProtocolString(const URL *url) noexcept {
    if (url == nullptr || url->protocol >= URL_PROT_COUNT) return nullptr;
    return URLProtStrings[url->protocol];
}

int URLGetPort(const URL *url) noexcept { return url == nullptr ? 0 : url->port; }

char *URLGetExtra(const URL *url) noexcept { return url == nullptr ? nullptr : url->extra; }

caldict *URLGetParams(const URL *url) noexcept { return url == nullptr ? nullptr : url->params; }

char *URLGetRemainder(const URL *url) noexcept { return url == nullptr ? nullptr : url->remainder; }

void URLSetProtocol(URL *url, unsigned int n) noexcept {
    if (url == nullptr || n >= URL_PROT_COUNT || n == url->protocol) return;
    url->protocol = n;
    url->dirty = 1;
}

#define ORV_URL_SETTER(fn, field)                  \
    void fn(URL *url, const char *text) noexcept { \
        if (url == nullptr) return;                \
        assign_set(url->field, text);              \
        url->dirty = 1;                            \
    }
ORV_URL_SETTER(URLSetUser, user)
ORV_URL_SETTER(URLSetPassword, password)
ORV_URL_SETTER(URLSetHost, host)
ORV_URL_SETTER(URLSetExtra, extra)
ORV_URL_SETTER(URLSetCSID, path)
#undef ORV_URL_SETTER

void URLSetPort(URL *url, int n) noexcept {
    if (url == nullptr || n == url->port) return;
    url->port = n;
    url->dirty = 1;
}

void URLSetParams(URL *url, caldict *dict) noexcept {
    if (url == nullptr) return;
    if (url->params != dict) delete_params(url);
    url->params = dict;
    url->dirty = 1;
}

char *URLGetPath(const URL *url) noexcept {
    if (url == nullptr || url->path == nullptr) return nullptr;
    const char *last = std::strrchr(url->path, '/');
    return last == nullptr ? orv::dup_string("")
                           : orv::dup_string(string_view(url->path, static_cast<size_t>(last - url->path) + 1));
}

char *CSIDPath(const URL *url) noexcept {
    if (url == nullptr) return nullptr;
    const char *path = url->path == nullptr ? "" : url->path;
    const char *first = std::strchr(path, '/');
    return first == nullptr ? orv::dup_string("")
                            : orv::dup_string(string_view(path, static_cast<size_t>(first - path)));
}

void URLSetPath(URL *url, const char *dir) noexcept {
    if (url == nullptr || dir == nullptr || !nonempty(url->path)) return;
    try {
        std::string path = dir;
        if (path.empty() || path.back() != '/') path += '/';
        const char *last = std::strrchr(url->path, '/');
        path += last == nullptr ? url->path : last + 1;
        char *copy = orv::dup_string(path);
        if (copy == nullptr) return;
        release(url->path);
        url->path = copy;
    } catch (const std::bad_alloc &) {
    }
}

int IsLocalFile(const URL *url) noexcept { return url != nullptr && url->text != nullptr && url->text[0] == '/'; }

char *ToLocalFile(URL *url) noexcept {
    if (url == nullptr) return nullptr;
    const string_view text = current_text(url);
    if (IsLocalFile(url)) return orv::dup_string(text);
    if (istarts_with(text, "resource://")) return ResourceToFile(url);
    if (!istarts_with(text, "file://") && !istarts_with(text, "capi://")) return orv::dup_string("");
    string_view s = text.substr(7);
    if (s.substr(0, 2) == "//") return orv::dup_string(s);
    if (istarts_with(s, "localhost/"))
        s.remove_prefix(10);
    else if (!s.empty() && s[0] == '/')
        s.remove_prefix(1);
    if (s.size() >= 2 && s[1] == '|') {
        char *out = orv::dup_string(s);
        if (out != nullptr) out[1] = ':';
        return out;
    }
    try {
        // Appending rather than "/" + string: GCC 12 at -O3 warns (falsely)
        // about an overlapping copy in the inserting operator+.
        std::string path(1, '/');
        path.append(s);
        return orv::dup_string(path);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

char *ResourceToFile(URL *url) noexcept {
    if (url == nullptr) return nullptr;
    FILE *pipe = popen("pwd", "r");
    if (pipe == nullptr) {
        std::printf("RESOURCE protocol error in url_parser::ResourceIntoFileURL 1\n");
        std::fflush(stdout);
        return nullptr;
    }
    char line[2001];
    const bool read = std::fgets(line, sizeof line, pipe) != nullptr;
    pclose(pipe);
    if (!read) {
        std::printf("RESOURCE protocol error in url_parser::ResourceIntoFileURL 2\n");
        std::fflush(stdout);
        return nullptr;
    }
    size_t len = std::strlen(line);
    std::printf("[%s] %d\n", line, static_cast<int>(len));
    if (len > 0) line[--len] = '\0';
    std::printf("RESOURCE name %s\n", line);
    std::fflush(stdout);

    string_view t = url->text == nullptr ? string_view() : string_view(url->text);
    if (!t.empty() && t[0] == '/') t.remove_prefix(1);
    const string_view tail = t.size() > 11 ? t.substr(11) : string_view();
    char *fileUrl;
    try {
        fileUrl = orv::dup_string("file:///" + std::string(line) + "/" + std::string(tail));
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
    if (fileUrl == nullptr) return nullptr;
    // Resolve the file URL through the same object, then put its text back.
    char *savedText = url->text;
    const int savedDirty = url->dirty;
    url->text = fileUrl;
    url->dirty = 0;
    char *result = ToLocalFile(url);
    std::free(fileUrl);
    url->text = savedText;
    url->dirty = savedDirty;
    return result;
}

void ResolveFileURL(URL *url) noexcept {
    if (url == nullptr) return;
    ConvertToURLFileChars(url->path);
    char *local = ToLocalFile(url);
    URLSetCSID(url, local);
    std::free(local);
}

void ConvertToURLFileChars(char *s) noexcept {
    if (s == nullptr) return;
    for (; *s != '\0'; ++s) {
        if (*s == gtpDecodedFileChars[0])
            *s = gtpEncodedFileChars[0];
        else if (*s == gtpDecodedFileChars[1])
            *s = gtpEncodedFileChars[1];
    }
}

void ConvertToFileChars(char *s) noexcept {
    if (s == nullptr) return;
    for (; *s != '\0'; ++s)
        if (*s == gtpEncodedFileChars[0]) *s = gtpDecodedFileChars[0];
}

char *LocalFileToURL(URL *url) noexcept {
    if (url == nullptr) return nullptr;
    return static_cast<char *>(std::calloc(1024, 1));
}

void URLEncode(URL *) noexcept {}

void URLDecode(URL *) noexcept {}

void clearURL(URL *url) noexcept {
    if (url == nullptr) return;
    for (char **field : {&url->user, &url->password, &url->host, &url->path, &url->extra, &url->remainder}) {
        release(*field);
        *field = URLEmptyString;
    }
    delete_params(url);
}

char *copyFromAtoB(const char *a, const char *b) noexcept {
    if (a == nullptr || b == nullptr || b <= a) return URLEmptyString;
    char *copy = orv::dup_string(string_view(a, static_cast<size_t>(b - a)));
    return copy == nullptr ? URLEmptyString : copy;
}

char *copyFromAthroughB(const char *a, const char *b) noexcept {
    if (a == nullptr || b == nullptr || b < a) return URLEmptyString;
    return copyFromAtoB(a, b + 1);
}

}  // extern "C"
