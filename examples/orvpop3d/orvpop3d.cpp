// orvpop3d: a small POP3 server (RFC 1939, 2449, 2595, 5034) on the
// protocol streams and the login family. One thread per connection; every
// user sees the same read-only mailbox.
//
//   orvpop3d -p PORT [-s TLSPORT] [-b ADDRESS]
//
// SIGTERM or SIGINT stops it: no new connections, at most a second for the open
// sessions, then a normal exit.
//
// Configuration comes from the default cache ($ORV_HOME/config/orv.conf):
// the directory and login keys (orvutil/platform/verifypass.h,
// orvutil/login.h), the TLS keys under "service.pop3.tls." (certfile,
// keyfile, cafile, verifyclient, minversion), and
//   service.pop3.mailbox  text    ""   directory whose files, in name order,
//                                      are the messages ("" : empty mailbox)
//   service.pop3.sasl     switch  on   list the SASL mechanisms in CAPA
//   service.pop3.domain   text    ""   the users' domain ("" : the default)
//
// Counters (object "auth" of <instancedir>/config/counter.conf, see
// examples/counter.conf): logins, failures, failures-<method> for each of
// user, apop, plain, login, cram-md5, external, and the sessions open.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "orvutil/cal_counter.h"
#include "orvutil/cal_log.h"
#include "orvutil/login.h"
#include "orvutil/platform/protio.h"
#include "orvutil/platform/verifypass.h"
#include "orvutil/platform/zolog.h"

namespace {

constexpr const char *kService = "pop3";
constexpr size_t kLineSize = 8192;   // longer lines are refused, not split
constexpr int kMaxFailures = 3;      // failed logins before the connection ends
constexpr int kMaxConnections = 64;  // at once
constexpr int kIdleSeconds = 120;

struct Message {
    std::string uid, text;  // text with CRLF line ends
};

struct Server {
    prot_tls_ctx *tls = nullptr;
    std::vector<Message> mailbox;
    bool list_sasl = true;
    std::string domain;
    std::atomic<int> connections{0};
    std::atomic<unsigned> serial{0};
};

// Never destroyed: a session still running at exit may read it.
Server &g_server = *new Server;
volatile std::sig_atomic_t g_stop = 0;

void on_stop(int) { g_stop = 1; }

// The "auth" counters; without a counter configuration nothing is counted.
struct Counters {
    counterinstance *global = nullptr;
    counterobject *object = nullptr;
    void add(const std::string &name, int64_t amount) const {
        const counterhandle h = object != nullptr ? calcounter_getcounter(object, name.c_str()) : 0;
        if (global != nullptr && h != 0) counterinstance_add(global, h, amount);
    }
};

Counters g_counters;

std::string lower(std::string text) {
    for (char &c : text) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    return text;
}

// Base64 (RFC 4648) without line breaks.
std::string b64encode(const unsigned char *data, size_t len) {
    static const char a[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (size_t i = 0; i < len; i += 3) {
        const unsigned v = data[i] << 16 | (i + 1 < len ? data[i + 1] << 8 : 0) | (i + 2 < len ? data[i + 2] : 0);
        out += a[v >> 18];
        out += a[(v >> 12) & 63];
        out += i + 1 < len ? a[(v >> 6) & 63] : '=';
        out += i + 2 < len ? a[v & 63] : '=';
    }
    return out;
}

// Strict decoding: the length a multiple of 4, padding only at the end.
bool b64decode(const std::string &in, std::string &out) {
    auto value = [](char c) -> int {
        if (c >= 'A' && c <= 'Z') return c - 'A';
        if (c >= 'a' && c <= 'z') return c - 'a' + 26;
        if (c >= '0' && c <= '9') return c - '0' + 52;
        return c == '+' ? 62 : c == '/' ? 63 : -1;
    };
    out.clear();
    if (in.size() % 4 != 0) return false;
    for (size_t i = 0; i < in.size(); i += 4) {
        const bool last = i + 4 == in.size();
        const int pad = last ? (in[i + 3] == '=') + (in[i + 2] == '=' && in[i + 3] == '=') : 0;
        unsigned v = 0;
        for (int k = 0; k < 4; ++k) {
            const int d = k >= 4 - pad ? 0 : value(in[i + k]);
            if (d < 0) return false;
            v = v << 6 | static_cast<unsigned>(d);
        }
        out += static_cast<char>(v >> 16);
        if (pad < 2) out += static_cast<char>((v >> 8) & 255);
        if (pad < 1) out += static_cast<char>(v & 255);
    }
    return true;
}

void wipe(std::string &s) {
    if (!s.empty()) explicit_bzero(s.data(), s.size());
    s.clear();
}

std::vector<Message> read_mailbox(const std::string &dir) {
    std::vector<Message> box;
    if (dir.empty()) return box;
    std::error_code ec;
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(dir, ec))
        if (entry.is_regular_file()) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const auto &file : files) {
        std::ifstream in(file, std::ios::binary);
        std::string line, text;
        while (std::getline(in, line)) {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            text += line + "\r\n";
        }
        box.push_back({file.filename().string(), text});
    }
    return box;
}

class Session {
  public:
    Session(int fd, bool implicit_tls) : fd_(fd), implicit_(implicit_tls) {
        in_ = prot_new(fd, 0);
        out_ = prot_new(fd, 1);
    }
    ~Session() {
        login_free_params(&params_);
        prot_free(out_);
        prot_free(in_);
        close(fd_);
    }
    void run();

  private:
    void reply(const std::string &text) {
        prot_write(out_, text.data(), text.size());
        prot_write(out_, "\r\n", 2);
        prot_flush(out_);
    }
    // A line without its CRLF; false at the end of the connection.
    bool read_line(std::string &line, bool &too_long);
    void refresh_params() {
        login_free_params(&params_);
        login_init_params(&params_, domain(), kService, in_, nullptr, 1, nullptr);
    }
    const char *domain() const { return g_server.domain.empty() ? nullptr : g_server.domain.c_str(); }
    bool cert() const { return params_.tls != nullptr && params_.tls->cert != nullptr; }
    void capa();
    void stls();
    void auth(const std::string &args);
    void logged_in(const std::string &user, const char *how);
    void failed(const std::string &user, const char *how, const char *err);
    void transaction(const std::string &cmd, const std::string &arg);
    // The message numbered by arg (1-based, not deleted), or -1 after an
    // error reply.
    int message(const std::string &arg);

    int fd_;
    bool implicit_;
    protstream *in_, *out_;
    login_params params_{};
    std::string banner_ts_, user_, name_;
    bool authorized_ = false, done_ = false;
    int failures_ = 0;
    std::vector<bool> deleted_;
};

bool Session::read_line(std::string &line, bool &too_long) {
    line.clear();
    too_long = false;
    for (int c; (c = prot_getc(in_)) != '\n';) {
        if (c == EOF) return false;
        if (line.size() < kLineSize)
            line += static_cast<char>(c);
        else
            too_long = true;
    }
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (too_long) wipe(line);
    return true;
}

void Session::run() {
    prot_settimeout(in_, kIdleSeconds);
    const char *err = nullptr;
    if (implicit_ && (g_server.tls == nullptr || prot_starttls(in_, out_, g_server.tls, &err) != 0)) return;
    refresh_params();
    std::string greeting = "+OK orvpop3d ready";
    if (login_doesapop()) {
        char host[257] = {};
        gethostname(host, sizeof host - 1);
        banner_ts_ = "<" + std::to_string(getpid()) + "." + std::to_string(g_server.serial++) + "." +
                     std::to_string(std::time(nullptr)) + "@" + host + ">";
        greeting += " " + banner_ts_;
    }
    reply(greeting);
    std::string line;
    bool too_long = false;
    while (!done_ && read_line(line, too_long)) {
        if (too_long) {
            reply("-ERR Line too long");
            continue;
        }
        const size_t sp = line.find(' ');
        std::string cmd = line.substr(0, sp), arg = sp == std::string::npos ? "" : line.substr(sp + 1);
        for (char &c : cmd) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
        if (cmd == "QUIT") {
            reply("+OK Bye");
            done_ = true;
        } else if (cmd == "CAPA") {
            capa();
        } else if (cmd == "NOOP" && authorized_) {
            reply("+OK");
        } else if (authorized_) {
            transaction(cmd, arg);
        } else if (cmd == "STLS") {
            stls();
        } else if (cmd == "USER") {
            if (arg.empty()) {
                reply("-ERR Missing user name");
            } else {
                name_ = arg;
                reply("+OK");
            }
        } else if (cmd == "PASS") {
            if (name_.empty()) {
                reply("-ERR USER first");
            } else {
                err = nullptr;
                if (login_plaintext(nullptr, &params_, name_.c_str(), arg.c_str(), &err) == 0)
                    logged_in(name_, "USER");
                else
                    failed(name_, "USER", err);
            }
            name_.clear();
        } else if (cmd == "APOP") {
            const size_t blank = arg.rfind(' ');
            if (banner_ts_.empty() || blank == std::string::npos) {
                reply("-ERR APOP not available");
            } else {
                const std::string who = arg.substr(0, blank);
                err = nullptr;
                if (login_apop(who.c_str(), domain(), nullptr, banner_ts_.c_str(), arg.c_str() + blank + 1, &err) == 0)
                    logged_in(who, "APOP");
                else
                    failed(who, "APOP", err);
            }
        } else if (cmd == "AUTH") {
            auth(arg);
        } else {
            reply("-ERR Unknown command");
        }
        wipe(line);
        wipe(arg);
        if (failures_ >= kMaxFailures) {
            reply("-ERR Too many failures");
            break;
        }
    }
}

void Session::capa() {
    reply("+OK Capability list follows");
    if (!authorized_) {
        // Always listed: PASS explains a refusal by the plaintext policy.
        reply("USER");
        if (g_server.tls != nullptr && params_.strength == 0) reply("STLS");
        char caps[LOGIN_CAPABILITIES_SIZE];
        login_capabilities(caps, 0, kService, params_.strength, cert());
        if (g_server.list_sasl && caps[0] != '\0') {
            std::string list = "SASL";
            for (const char *p = caps; (p = std::strstr(p, " AUTH=")) != nullptr; p += 6) {
                list += ' ';
                list.append(p + 6, std::strcspn(p + 6, " "));
            }
            reply(list);
        }
    }
    reply("UIDL");
    reply("RESP-CODES");
    reply(".");
}

void Session::stls() {
    if (g_server.tls == nullptr || params_.strength != 0) {
        reply("-ERR STLS not available");
        return;
    }
    reply("+OK Begin TLS negotiation");
    const char *err = nullptr;
    if (prot_starttls(in_, out_, g_server.tls, &err) != 0) {
        zolog(0, 4, "orvpop3d: TLS negotiation failed: %s", err != nullptr ? err : "");
        done_ = true;
        return;
    }
    // What the client said before TLS counts for nothing after it.
    name_.clear();
    refresh_params();
}

void Session::logged_in(const std::string &user, const char *how) {
    user_ = user;
    authorized_ = true;
    deleted_.assign(g_server.mailbox.size(), false);
    zolog(0, 7, "orvpop3d: %s logged in by %s", user.c_str(), how);
    g_counters.add("logins", 1);
    reply("+OK Logged in");
}

void Session::failed(const std::string &user, const char *how, const char *err) {
    ++failures_;
    const char *text = err != nullptr ? err : "Authentication failed";
    zolog(0, 4, "orvpop3d: %s login failed for %s: %s", how, user.c_str(), text);
    g_counters.add("failures", 1);
    g_counters.add("failures-" + lower(how), 1);
    reply(std::string("-ERR [AUTH] ") + text);
}

void Session::auth(const std::string &args) {
    const size_t sp = args.find(' ');
    const std::string name = args.substr(0, sp);
    std::string initial = sp == std::string::npos ? "" : args.substr(sp + 1);
    const bool has_initial = sp != std::string::npos;
    const sasl_server_mech *mech = nullptr;
    const char *err = nullptr;
    if (name.empty() || login_authenticate(name.c_str(), &mech, &err) != 0 ||
        mech->available(mech->context, kService, params_.strength, cert()) == 0) {
        reply("-ERR Unsupported mechanism");
        return;
    }
    void *state = nullptr;
    int len = 0;
    const char *chal = nullptr;
    if (mech->start(mech->context, &params_, nullptr, &len, &chal, nullptr, &state, &err) != 0) {
        failed(name, mech->name, err);
        return;
    }
    std::string answer, data;
    bool too_long = false, use_initial = has_initial;
    int rc = SASL_CONTINUE;
    while (rc == SASL_CONTINUE) {
        if (use_initial) {
            answer = initial == "=" ? "" : initial;
            use_initial = false;
        } else {
            reply("+ " + b64encode(reinterpret_cast<const unsigned char *>(chal), static_cast<size_t>(len)));
            if (!read_line(answer, too_long)) {
                done_ = true;
                break;
            }
            if (answer == "*") {
                reply("-ERR Authentication cancelled");
                break;
            }
        }
        if (too_long || !b64decode(answer, data)) {
            ++failures_;
            reply("-ERR Invalid base64 data");
            break;
        }
        err = nullptr;
        rc = mech->step(state, static_cast<int>(data.size()), data.data(), &len, &chal, &err);
        wipe(answer);
        wipe(data);
        if (rc == SASL_DONE) {
            const char *user = nullptr;
            int prot = 0, a = 0, b = 0, c = 0;
            mech->query(state, &user, &prot, &a, &b, &c);
            logged_in(user != nullptr ? user : "", mech->name);
        } else if (rc != SASL_CONTINUE) {
            failed(name, mech->name, err);
        }
    }
    wipe(answer);
    wipe(data);
    wipe(initial);
    mech->free_state(state);
}

int Session::message(const std::string &arg) {
    char *end = nullptr;
    const long n = std::strtol(arg.c_str(), &end, 10);
    if (arg.empty() || *end != '\0' || n < 1 || n > static_cast<long>(deleted_.size())) {
        reply("-ERR No such message");
        return -1;
    }
    if (deleted_[n - 1]) {
        reply("-ERR Message deleted");
        return -1;
    }
    return static_cast<int>(n - 1);
}

void Session::transaction(const std::string &cmd, const std::string &arg) {
    const std::vector<Message> &box = g_server.mailbox;
    if (cmd == "STAT") {
        size_t count = 0, size = 0;
        for (size_t i = 0; i < box.size(); ++i)
            if (!deleted_[i]) ++count, size += box[i].text.size();
        reply("+OK " + std::to_string(count) + " " + std::to_string(size));
    } else if ((cmd == "LIST" || cmd == "UIDL") && !arg.empty()) {
        const int i = message(arg);
        if (i >= 0) reply("+OK " + arg + " " + (cmd == "LIST" ? std::to_string(box[i].text.size()) : box[i].uid));
    } else if (cmd == "LIST" || cmd == "UIDL") {
        reply("+OK");
        for (size_t i = 0; i < box.size(); ++i)
            if (!deleted_[i])
                reply(std::to_string(i + 1) + " " + (cmd == "LIST" ? std::to_string(box[i].text.size()) : box[i].uid));
        reply(".");
    } else if (cmd == "RETR") {
        const int i = message(arg);
        if (i < 0) return;
        reply("+OK " + std::to_string(box[i].text.size()) + " octets");
        std::string out;
        for (size_t at = 0; at < box[i].text.size();) {
            const size_t eol = box[i].text.find("\r\n", at);
            if (box[i].text[at] == '.') out += '.';
            out.append(box[i].text, at, eol + 2 - at);
            at = eol + 2;
        }
        out += ".\r\n";
        prot_write(out_, out.data(), out.size());
        prot_flush(out_);
    } else if (cmd == "DELE") {
        const int i = message(arg);
        if (i < 0) return;
        deleted_[i] = true;
        reply("+OK Deleted");
    } else if (cmd == "RSET") {
        deleted_.assign(box.size(), false);
        reply("+OK");
    } else {
        reply("-ERR Unknown command");
    }
}

int listen_on(const char *address, int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_port = htons(static_cast<uint16_t>(port));
    if (fd < 0 || inet_pton(AF_INET, address, &sa.sin_addr) != 1 ||
        bind(fd, reinterpret_cast<sockaddr *>(&sa), sizeof sa) != 0 || listen(fd, 64) != 0) {
        std::fprintf(stderr, "orvpop3d: cannot listen on %s:%d: %s\n", address, port, std::strerror(errno));
        std::exit(70);
    }
    return fd;
}

void serve(int fd, bool implicit_tls) {
    g_counters.add("sessions", 1);
    {
        Session session(fd, implicit_tls);
        session.run();
    }
    g_counters.add("sessions", -1);
    --g_server.connections;
}

}  // namespace

int main(int argc, char **argv) {
    int port = 0, tls_port = 0;
    const char *address = "127.0.0.1";
    for (int opt; (opt = getopt(argc, argv, "p:s:b:")) != -1;) {
        if (opt == 'p')
            port = std::atoi(optarg);
        else if (opt == 's')
            tls_port = std::atoi(optarg);
        else if (opt == 'b')
            address = optarg;
        else
            port = -1;
    }
    if (port <= 0 || port > 65535 || tls_port < 0 || tls_port > 65535) {
        std::fprintf(stderr, "usage: orvpop3d -p PORT [-s TLSPORT] [-b ADDRESS]\n");
        return 64;
    }
    // A client that hangs up must not end the server.
    std::signal(SIGPIPE, SIG_IGN);
    // The stop signals are taken only inside the ppoll of the accept loop, so
    // none is lost between its check and its wait. Blocked before any thread
    // starts: every thread inherits the mask.
    sigset_t stops, during_wait;
    sigemptyset(&stops);
    sigaddset(&stops, SIGTERM);
    sigaddset(&stops, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stops, &during_wait);
    struct sigaction sa {};
    sa.sa_handler = on_stop;
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);
    sigdelset(&during_wait, SIGTERM);
    sigdelset(&during_wait, SIGINT);
    callog_init(kService, "orvpop3d", 1);
    config_cache *conf = config_getdefaultcache();
    calcounter_init();
    g_counters.global = calcounter_createinstance("auth", 0, &g_counters.object);
    const int init = login_init(nullptr);
    if (init == -1) {
        std::fprintf(stderr, "orvpop3d: password verification cannot start\n");
        return 70;
    }
    if (init != 0) zolog(0, 4, "orvpop3d: no certificate map: EXTERNAL will fail");
    const char *err = nullptr;
    if (config_get_string(conf, "service.pop3.tls.certfile", "")[0] != '\0') {
        g_server.tls = prot_tls_ctx_new(conf, "service.pop3.tls.", &err);
        if (g_server.tls == nullptr) {
            std::fprintf(stderr, "orvpop3d: TLS: %s\n", err != nullptr ? err : "cannot start");
            return 70;
        }
    }
    if (tls_port != 0 && g_server.tls == nullptr) {
        std::fprintf(stderr, "orvpop3d: -s needs service.pop3.tls.certfile\n");
        return 64;
    }
    g_server.mailbox = read_mailbox(config_get_string(conf, "service.pop3.mailbox", ""));
    g_server.list_sasl = config_get_switch(conf, "service.pop3.sasl", 1) != 0;
    g_server.domain = config_get_string(conf, "service.pop3.domain", "");

    pollfd fds[2] = {{listen_on(address, port), POLLIN, 0}, {-1, POLLIN, 0}};
    if (tls_port != 0) fds[1].fd = listen_on(address, tls_port);
    zolog(0, 7, "orvpop3d: listening on %s:%d", address, port);
    while (g_stop == 0) {
        if (ppoll(fds, 2, nullptr, &during_wait) < 0) continue;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || (fds[i].revents & POLLIN) == 0) continue;
            const int fd = accept4(fds[i].fd, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) continue;
            if (++g_server.connections > kMaxConnections) {
                --g_server.connections;
                static const char busy[] = "-ERR Too many connections\r\n";
                retry_write(fd, busy, sizeof busy - 1);
                close(fd);
                continue;
            }
            std::thread(serve, fd, i == 1).detach();
        }
    }
    for (const pollfd &p : fds)
        if (p.fd >= 0) close(p.fd);
    for (int i = 0; i < 100 && g_server.connections > 0; ++i) usleep(10000);
    zolog(0, 7, "orvpop3d: stopped");
    return 0;
}
