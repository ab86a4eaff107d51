// The client against a scripted, misbehaving peer on loopback: silence,
// endless lines, dribbled bytes, resets and refusals. Every wait is bounded.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include <prinrval.h>
#include <prthread.h>

#include "orvproc.hpp"
#include "orvutil/cal_http.h"

namespace {

// Faked for the refused-connection cases: the next `refusals` connects fail
// at once, as a remote host's refusal does (on loopback it only shows after
// the connect was in progress), and while `virtual_sleep` is set the client's
// sleeps only move the clock it reads, so its 5-second retries cost nothing.
std::atomic<int> refusals{0}, connects{0};
std::atomic<bool> virtual_sleep{false};
std::atomic<PRIntervalTime> slept{0};

template <class F>
F *next(const char *name) {
    return reinterpret_cast<F *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int connect(int fd, const sockaddr *addr, socklen_t len) {
    ++connects;
    if (refusals > 0 && refusals-- > 0) {
        errno = ECONNREFUSED;
        return -1;
    }
    return next<int(int, const sockaddr *, socklen_t)>("connect")(fd, addr, len);
}

extern "C" __attribute__((visibility("default"))) PRStatus PR_Sleep(PRIntervalTime ticks) {
    if (!virtual_sleep) return next<PRStatus(PRIntervalTime)>("PR_Sleep")(ticks);
    slept += ticks;
    return PR_SUCCESS;
}

extern "C" __attribute__((visibility("default"))) PRIntervalTime PR_IntervalNow() {
    return next<PRIntervalTime()>("PR_IntervalNow")() + slept;
}

namespace {

// A listening loopback socket (not listening yet when later is set: a
// connect is refused until listen()).
int bound_socket(int *port, bool later = false) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof a);
    getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len);
    *port = ntohs(a.sin_port);
    if (!later) listen(fd, 4);
    return fd;
}

bool readable(int fd) {
    pollfd p{fd, POLLIN, 0};
    return poll(&p, 1, 10000) > 0;
}

// Reads up to the empty line that ends a request (or the peer's close).
std::string request(int fd) {
    std::string got;
    char c;
    while (got.find("\n\n") == std::string::npos && readable(fd) && read(fd, &c, 1) == 1) got += c;
    return got;
}

// One action of the scripted peer: 'r' read a request, 's' send the text,
// 'd' send it a byte at a time with pauses, 'x' reset the connection, 'w'
// wait until the client closes.
struct Act {
    char op;
    std::string text = "";
};

// Accepts one connection per action list and plays it.
class Peer {
  public:
    explicit Peer(std::vector<std::vector<Act>> script) : listener_(bound_socket(&port_)) {
        thread_ = std::thread([this, script] {
            for (const auto &acts : script) {
                int fd = readable(listener_) ? accept(listener_, nullptr, nullptr) : -1;
                // Acting before the request: only once the client's open has
                // returned, or a reset could land inside the connect itself.
                if (acts.empty() || acts[0].op != 'r')
                    orvtest::wait_until([this] { return opened.load(); }, std::chrono::seconds(10));
                for (const Act &a : acts) play(fd, a);
                if (fd >= 0) close(fd);
                ++done;
            }
        });
    }
    ~Peer() {
        finish();
        close(listener_);
    }
    // Waits for the script's end: the last request read.
    std::string finish() {
        if (thread_.joinable()) thread_.join();
        return heard_;
    }
    int port() const { return port_; }
    std::atomic<int> done{0};
    std::atomic<bool> opened{false};  // set by the test once calhttp_Open returned

  private:
    std::string heard_;
    void play(int &fd, const Act &a) {
        if (a.op == 'r') heard_ = request(fd);
        if (a.op == 'w') readable(fd);
        for (size_t i = 0; a.op == 'd' && i < a.text.size(); ++i) {
            send(fd, &a.text[i], 1, MSG_NOSIGNAL);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        for (size_t at = 0; a.op == 's' && at < a.text.size();) {
            ssize_t n = send(fd, a.text.data() + at, a.text.size() - at, MSG_NOSIGNAL);
            at = n > 0 ? at + static_cast<size_t>(n) : a.text.size();
        }
        if (a.op == 'x') {
            linger l{1, 0};
            setsockopt(fd, SOL_SOCKET, SO_LINGER, &l, sizeof l);
            close(fd);
            fd = -1;
        }
    }
    int port_ = 0;
    int listener_;
    std::thread thread_;
};

// What the line reads deliver, each piece in brackets, then whether the
// response is still open. The read that meets the peer's close with nothing
// held delivers "[]".
std::string transcript(calhttp_conn *c, int size) {
    std::string t;
    std::vector<char> out(static_cast<size_t>(size));
    while (calhttp_ReadGet(c, out.data(), size) == 0) t.append("[").append(out.data()).append("]");
    return t + (c->respOpen ? "open" : "closed");
}

TEST(Http, HostilePeers) {
    const std::string mib(1 << 20, 'x'), ok = "HTTP/1.0 200 OK\n";
    std::string mib_pieces;
    for (int i = 0; i < 1024; ++i) mib_pieces.append("[").append(mib, 0, 1024).append("]");
    const struct Case {
        const char *name;
        int timeout;
        std::vector<std::vector<Act>> script;
        int size;
        std::string expected;
    } cases[] = {
        {"silent", 1, {{{'r'}, {'w'}}}, 256, "open"},
        {"endless line", 2, {{{'r'}, {'s', mib}}}, 2000, mib_pieces + "[]closed"},
        {"dribble", 2, {{{'r'}, {'d', "abcdefghij\nxyz"}}}, 4, "[abc][def][ghi][j\n][xyz]closed"},
        {"reset before the request",
         2,
         {{{'x'}}, {{'r'}, {'s', ok + "\nagain\n"}}},
         256,
         "[" + ok + "][\n][again\n][]closed"},
        {"reset in the response", 2, {{{'r'}, {'s', ok + "partial"}, {'x'}}}, 256, "[" + ok + "][partial]closed"},
        {"closes at once", 2, {{}}, 256, "[]closed"},
    };
    const std::string overlong(1024 - 16, 'p');  // with "GET /" and " HTTP/1.0\n\n": 1024 bytes
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        calhttp_SetGlobalTimeout(c.timeout);
        Peer peer(c.script);
        calhttp_conn *conn = nullptr;
        ASSERT_EQ(0, calhttp_Open("127.0.0.1", static_cast<unsigned>(peer.port()), &conn, nullptr));
        peer.opened = true;
        // A peer that acts before reading the request goes first.
        if (c.script[0].empty() || c.script[0][0].op != 'r') {
            ASSERT_TRUE(orvtest::wait_until([&] { return peer.done > 0; }, std::chrono::seconds(10)));
        }
        EXPECT_EQ(-1, calhttp_SendGet(conn, ("/" + overlong).c_str(), nullptr));
        EXPECT_EQ(0, calhttp_SendGet(conn, "/p", "?q=1"));
        EXPECT_EQ(c.expected, transcript(conn, c.size));
        EXPECT_EQ(0, calhttp_Close(&conn));
        EXPECT_EQ(nullptr, conn);
        // The request in its wire form, sent again on the new connection after a reset.
        EXPECT_EQ(c.script.back().empty() ? "" : "GET /p?q=1 HTTP/1.0\n\n", peer.finish());
    }
}

TEST(Http, RefusedConnections) {
    // A refusal after the poll (loopback's way) waits one full time-out and
    // tries again; an immediate one is retried every 5 seconds until the
    // time-out has passed.
    const struct {
        int listen_after_ms;  // -1: never; only a later listen needs real sleeps
        int refusals, timeout, result, connects;
        std::string marks;
    } cases[] = {
        {-1, 0, 2, -4, 2, ".....\n"},
        {300, 0, 2, 0, 2, ".....\n"},
        {-1, 1000, 120, -4, 25, std::string(26, '.') + "\n"},
        {0, 2, 120, 0, 3, ".....\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.connects);
        int port = 0;
        int fd = bound_socket(&port, c.listen_after_ms != 0);
        std::thread late([&] {
            if (c.listen_after_ms <= 0) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(c.listen_after_ms));
            listen(fd, 4);
        });
        calhttp_SetGlobalTimeout(c.timeout);
        calhttp_SetGlobalShowwait(1);
        refusals = c.refusals;
        connects = 0;
        virtual_sleep = c.listen_after_ms <= 0;
        testing::internal::CaptureStdout();
        calhttp_conn *conn = reinterpret_cast<calhttp_conn *>(&port);
        int rc = calhttp_Open("localhost", static_cast<unsigned>(port), &conn, nullptr);
        std::string marks = testing::internal::GetCapturedStdout();
        virtual_sleep = false;
        refusals = 0;
        late.join();
        EXPECT_EQ(c.result, rc);
        EXPECT_EQ(c.connects, connects);
        EXPECT_EQ(c.marks, marks);
        EXPECT_EQ(c.result == 0, conn != nullptr);
        EXPECT_EQ(c.result == 0 ? 0 : -1, calhttp_Close(&conn));
        close(fd);
    }
    calhttp_SetGlobalShowwait(0);
}

TEST(Http, RawReadAfterBlockRead) {
    // All of it waits in the socket: the block read takes more than its
    // buffer, and the raw read must still get the rest in order.
    std::string body;
    for (int i = 0; i < 20000; ++i) body += static_cast<char>('a' + i % 23);
    calhttp_SetGlobalTimeout(5);
    Peer peer({{{'r'}, {'s', body}}});
    calhttp_conn *conn = nullptr;
    ASSERT_EQ(0, calhttp_Open("127.0.0.1", static_cast<unsigned>(peer.port()), &conn, nullptr));
    ASSERT_EQ(0, calhttp_SendRaw(conn, "x\n\n"));
    ASSERT_TRUE(orvtest::wait_until([&] { return peer.done > 0; }, std::chrono::seconds(10)));
    char block[2000];
    ASSERT_EQ(0, calhttp_ReadRaw(conn, block, sizeof block));
    std::string got = block;
    calhttp_Timeout(conn, 5);
    for (int n; (n = calhttp_ReadTCPRaw(conn, block, sizeof block)) > 0;) got.append(block, static_cast<size_t>(n));
    EXPECT_TRUE(got == body) << got.size() << " bytes of " << body.size();
    calhttp_Close(&conn);
}

}  // namespace
