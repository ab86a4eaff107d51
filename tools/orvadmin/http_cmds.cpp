// orvadmin's "get" and "tcp" commands: an HTTP/1.0 GET or a raw TCP
// exchange through the library's client, the answer printed as it comes.
#include <cstdlib>
#include <cstring>
#include <string>

#include "orvadmin.hpp"
#include "orvutil/cal_dict.h"
#include "orvutil/cal_http.h"
#include "orvutil/url_parser.h"

namespace orvadmin {
namespace {

// Exit statuses beyond the tool's 1 (bad arguments), one per failing step.
enum { kOpenFailed = 3, kSendFailed = 4, kReadFailed = 5 };

// Reads "-t SECONDS" before the other arguments: the index of the first
// other one, or 0 when the option is wrong.
int time_out_option(int argc, char **argv, int *seconds) {
    if (argc < 3 || std::strcmp(argv[1], "-t") != 0) return 1;
    char *end = nullptr;
    long n = std::strtol(argv[2], &end, 10);
    if (*end != '\0' || n < 1 || n > 21600) return 0;
    *seconds = static_cast<int>(n);
    return 3;
}

const char *open_error(int rc) {
    switch (rc) {
        case -1: return "out of memory";
        case -2: return "host look-up failed";
        case -3: return "no address for the host";
        case -5: return "no socket";
        default: return "connection failed";
    }
}

// Opens host:port with the module time-out set for the command; the old
// setting comes back when the object goes.
struct Session {
    int saved = calhttp_timeout;
    calhttp_conn *conn = nullptr;
    int rc;
    Session(const char *host, unsigned port, int seconds) {
        calhttp_SetGlobalTimeout(seconds);
        rc = calhttp_Open(host, port, &conn, nullptr);
    }
    ~Session() {
        calhttp_Close(&conn);
        calhttp_SetGlobalTimeout(saved);
    }
};

// The request path and query of an http URL, "" when it is not one.
std::string target(URL *url) {
    if (URLGetProtocol(url) != URL_PROT_HTTP || !URLGetHost(url) || !*URLGetHost(url)) return "";
    // Appended, not "/" + string: GCC 12 at -O3 warns falsely (-Wrestrict) on that form.
    std::string path = "/";
    path += url->path != nullptr ? url->path : "";
    if (caldict_length(URLGetParams(url)) > 0) {
        char *query = caldict_get_as_string(URLGetParams(url));
        if (query != nullptr) path.append("?").append(query);
        std::free(query);
    }
    return path;
}

}  // namespace

int cmd_get(int argc, char **argv) {
    int seconds = calhttp_timeout;
    int first = time_out_option(argc, argv, &seconds);
    if (first == 0 || first >= argc) return fail("get", "usage: get [-t seconds] http://host[:port]/path[?query]");
    URL *url = URLCreate(argv[first]);
    std::string path = url ? target(url) : "";
    std::string host = path.empty() ? "" : URLGetHost(url);
    int port = url && URLGetPort(url) > 0 ? URLGetPort(url) : 80;
    URLFree(url);
    if (path.empty()) return fail("get", "not an http URL with a host: %s", argv[first]);

    Session s(host.c_str(), static_cast<unsigned>(port), seconds);
    if (s.rc != 0) {
        fail("get", "%s: %s", host.c_str(), open_error(s.rc));
        return kOpenFailed;
    }
    if (calhttp_SendGet(s.conn, path.c_str(), nullptr) != 0) {
        fail("get", "cannot send the request for %s", path.c_str());
        return kSendFailed;
    }
    char line[CALHTTP_BUFFER_SIZE + 1];
    while (calhttp_ReadGet(s.conn, line, sizeof line) == 0) out("%s", line);
    // The response is complete only when the server closed it.
    if (s.conn->respOpen) {
        fail("get", "no complete response within %d seconds", seconds);
        return kReadFailed;
    }
    return 0;
}

int cmd_tcp(int argc, char **argv) {
    int seconds = calhttp_timeout;
    int first = time_out_option(argc, argv, &seconds);
    char *end = nullptr;
    long port = first > 0 && first + 2 < argc ? std::strtol(argv[first + 1], &end, 10) : 0;
    if (port < 1 || port > 65535 || *end != '\0') return fail("tcp", "usage: tcp [-t seconds] host port text");

    Session s(argv[first], static_cast<unsigned>(port), seconds);
    if (s.rc != 0) {
        fail("tcp", "%s: %s", argv[first], open_error(s.rc));
        return kOpenFailed;
    }
    calhttp_Timeout(s.conn, seconds);
    std::string text = std::string(rest_of_line(first + 2)) + "\n";
    if (calhttp_SendTCPRaw(s.conn, text.data(), static_cast<int>(text.size())) != 0) {
        fail("tcp", "cannot send to %s", argv[first]);
        return kSendFailed;
    }
    char reply[4096];
    bool any = false;
    for (int n; (n = calhttp_ReadTCPRaw(s.conn, reply, sizeof reply)) > 0; any = true) out("%.*s", n, reply);
    if (!any) {
        fail("tcp", "no reply within %d seconds", seconds);
        return kReadFailed;
    }
    return 0;
}

}  // namespace orvadmin
