// The HTTP and TCP client: connecting with retries, GET and raw requests,
// and line and block reads through the connection's buffer.
#include "orvutil/cal_http.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <type_traits>

#include <prerror.h>
#include <prmem.h>
#include <prnetdb.h>
#include <prprf.h>
#include <prthread.h>

extern "C" {

int calhttp_timeout = 120;
int calhttp_showwait = 0;

}  // extern "C"

namespace {

constexpr int kBuf = CALHTTP_BUFFER_SIZE;
constexpr int kRetrySeconds = 5;
// NSPR intervals are only meaningful up to about six hours.
constexpr int kMaxSeconds = 6 * 3600;
// What receive() returns when nothing arrived within the time-out.
constexpr int kTimedOut = -2;

// One receive takes up to this many bytes from the socket; the connection's
// buffer is then filled from them, so a large response costs one system call
// per read-ahead rather than one per buffer.
constexpr int kAhead = 64 * 1024;

// A block read leaves the read pointer at buffer + pending, so the next read
// moves bytes from as far as buffer + 2 * pending: the host name field right
// behind the buffer keeps that inside the record.
static_assert(offsetof(calhttp_conn, hostName) == offsetof(calhttp_conn, buffer) + kBuf);
static_assert(CALHTTP_HOST_SIZE >= kBuf);

PRIntervalTime ticks(int seconds) {
    if (seconds <= 0) return PR_INTERVAL_NO_WAIT;
    return PR_SecondsToInterval(static_cast<PRUint32>(std::min(seconds, kMaxSeconds)));
}

void mark(const calhttp_conn *c, const char *text) {
    if (c->showwait == 1) PR_fprintf(PR_GetSpecialFD(PR_StandardOutput), "%s", text);
}

// True when the socket reports readiness for what (or an exception) within
// the time-out.
bool ready(PRFileDesc *fd, PRInt16 what, int seconds) {
    PRPollDesc pd = {fd, static_cast<PRInt16>(what | PR_POLL_EXCEPT), 0};
    return PR_Poll(&pd, 1, ticks(seconds)) > 0;
}

// Sends every byte, each step bounded by the time-out. On failure the NSPR
// error tells why (PR_IO_TIMEOUT_ERROR when the socket never became ready).
bool send_all(PRFileDesc *fd, const char *data, int len, int seconds) {
    int done = 0;
    while (done < len) {
        if (!ready(fd, PR_POLL_WRITE, seconds)) {
            PR_SetError(PR_IO_TIMEOUT_ERROR, 0);
            return false;
        }
        PRInt32 n = PR_Send(fd, data + done, len - done, 0, ticks(seconds));
        if (n < 0 && PR_GetError() == PR_WOULD_BLOCK_ERROR) continue;
        if (n < 0) return false;
        done += n;
    }
    return true;
}

// Bytes received from the socket but not yet moved into the connection's
// buffer: data[start, end).
struct Ahead {
    int start;
    int end;
    char data[kAhead];
};

// The record handed out, with its read-ahead behind it where callers do not
// see it.
struct Conn {
    calhttp_conn pub;
    Ahead ahead;
};
static_assert(std::is_standard_layout_v<Conn> && offsetof(Conn, pub) == 0);

Ahead &ahead(calhttp_conn *c) { return reinterpret_cast<Conn *>(c)->ahead; }

// Moves up to room read-ahead bytes to dest: how many.
int take(calhttp_conn *c, char *dest, int room) {
    Ahead &a = ahead(c);
    int n = std::min(room, a.end - a.start);
    std::memcpy(dest, a.data + a.start, static_cast<size_t>(n));
    a.start += n;
    return n;
}

void release(calhttp_conn *c) {
    if (c == nullptr) return;
    if (c->sock != nullptr) PR_Close(c->sock);
    PR_Free(c);
}

struct Release {
    void operator()(calhttp_conn *c) const { release(c); }
};
using Owned = std::unique_ptr<calhttp_conn, Release>;

// Replaces the connection's socket with a new non-blocking one; false when
// no socket can be made. A failure to make it non-blocking is only reported.
bool fresh_socket(calhttp_conn *c) {
    if (c->sock != nullptr) PR_Close(c->sock);
    c->sock = PR_NewTCPSocket();
    if (c->sock == nullptr) return false;
    PRSocketOptionData opt;
    opt.option = PR_SockOpt_Nonblocking;
    opt.value.non_blocking = PR_TRUE;
    if (PR_SetSocketOption(c->sock, &opt) != PR_SUCCESS)
        PR_fprintf(PR_GetSpecialFD(PR_StandardOutput), "%d\n", PR_GetError());
    return true;
}

// One connect call: its NSPR error (0 on success) and how long it took.
struct Attempt {
    PRErrorCode error;
    PRIntervalTime spent;
};

Attempt connect_once(calhttp_conn *c, const PRNetAddr &addr) {
    PRIntervalTime start = PR_IntervalNow();
    PRStatus st = PR_Connect(c->sock, &addr, ticks(c->timeout));
    PRIntervalTime spent = PR_IntervalNow() - start;
    return {st == PR_SUCCESS ? 0 : PR_GetError(), spent};
}

// The connect loop on a record whose socket is not made yet: 0 when
// connected, -4 or -5 otherwise; *elapsed gets the last connect's and poll's
// time.
int connect_with_retries(calhttp_conn *c, const PRNetAddr &addr, PRIntervalTime *elapsed) {
    bool waited_after_refusal = false;
    for (;;) {
        if (!fresh_socket(c)) return -5;
        mark(c, ".");
        Attempt a = connect_once(c, addr);
        if (a.error == PR_CONNECT_REFUSED_ERROR) {
            mark(c, ".");
            PRIntervalTime phase = PR_IntervalNow();
            while (a.error == PR_CONNECT_REFUSED_ERROR &&
                   PR_IntervalToSeconds(PR_IntervalNow() - phase) < static_cast<PRUint32>(std::max(c->timeout, 0))) {
                PR_Sleep(PR_SecondsToInterval(kRetrySeconds));
                mark(c, ".");
                if (!fresh_socket(c)) return -5;
                a = connect_once(c, addr);
            }
        }
        *elapsed = a.spent;
        if (a.error != PR_IN_PROGRESS_ERROR) {
            mark(c, "\n");
            return a.error == 0 ? 0 : -4;
        }
        mark(c, ".");
        PRPollDesc pd = {c->sock, PR_POLL_READ | PR_POLL_WRITE | PR_POLL_EXCEPT, 0};
        PRIntervalTime start = PR_IntervalNow();
        PR_Poll(&pd, 1, ticks(c->timeout));
        PRIntervalTime poll_spent = PR_IntervalNow() - start;
        if (PR_GetConnectStatus(&pd) == PR_SUCCESS) {
            *elapsed += poll_spent;
            mark(c, "\n");
            return 0;
        }
        if (PR_GetError() != PR_CONNECT_REFUSED_ERROR || waited_after_refusal) {
            mark(c, "\n");
            return -4;
        }
        // The server may be starting: give it one full time-out.
        waited_after_refusal = true;
        PR_Sleep(ticks(c->timeout));
        mark(c, ".");
    }
}

// Joins the parts into the connection's buffer; false, with the buffer
// untouched, when they do not fit with their NUL.
bool compose(calhttp_conn *c, std::initializer_list<const char *> parts) {
    size_t total = 0;
    for (const char *p : parts) total += std::strlen(p);
    if (total >= sizeof c->buffer) return false;
    size_t at = 0;
    for (const char *p : parts) {
        size_t n = std::strlen(p);
        std::memmove(c->buffer + at, p, n);
        at += n;
    }
    c->buffer[at] = '\0';
    return true;
}

// Opens the same host and port again and moves the new socket into c.
bool reopen(calhttp_conn *c) {
    char host[CALHTTP_HOST_SIZE];
    std::memcpy(host, c->hostName, sizeof host);
    PR_Close(c->sock);
    c->sock = nullptr;
    calhttp_conn *fresh = nullptr;
    if (calhttp_Open(host, c->port, &fresh, nullptr) != 0) return false;
    c->sock = fresh->sock;
    fresh->sock = nullptr;
    ahead(c).start = ahead(c).end = 0;
    release(fresh);
    return true;
}

// Sends the request composed in the buffer; a GET survives one reset.
int send_request(calhttp_conn *c, bool may_reconnect) {
    int len = static_cast<int>(std::strlen(c->buffer));
    if (!send_all(c->sock, c->buffer, len, calhttp_timeout)) {
        if (!may_reconnect || PR_GetError() != PR_CONNECT_RESET_ERROR) return -1;
        if (!reopen(c) || !send_all(c->sock, c->buffer, len, calhttp_timeout)) return -1;
    }
    c->respOpen = 1;
    c->readPtr = c->buffer;
    c->pending = 0;
    return 0;
}

int send_get(calhttp_conn *c, const char *path, const char *query, const char *headers) {
    if (c == nullptr || c->sock == nullptr || path == nullptr) return -1;
    if (query == nullptr) query = "";
    bool ok = headers == nullptr ? compose(c, {"GET ", path, query, " HTTP/1.0\n\n"})
                                 : compose(c, {"GET ", path, query, " HTTP/1.0\n", headers, "\n\n"});
    return ok ? send_request(c, true) : -1;
}

bool readable(const calhttp_conn *c, const char *out, int size) {
    return c != nullptr && c->respOpen == 1 && c->sock != nullptr && out != nullptr && size >= 1;
}

// Moves the pending bytes to the buffer's start: how many are held.
int gather(calhttp_conn *c) {
    std::memmove(c->buffer, c->readPtr, static_cast<size_t>(c->pending));
    c->readPtr = c->buffer;
    return c->pending;
}

// Moves up to room bytes from the read-ahead to dest, receiving into that
// when it is empty and waiting for data within the module time-out only when
// none is there yet (a large response is mostly read without a poll): the
// byte count, 0 at the peer's close or an error, kTimedOut when nothing came.
int receive(calhttp_conn *c, char *dest, int room) {
    Ahead &a = ahead(c);
    while (a.start == a.end) {
        PRInt32 n = PR_Recv(c->sock, a.data, kAhead, 0, PR_INTERVAL_NO_WAIT);
        if (n < 0 && PR_GetError() == PR_WOULD_BLOCK_ERROR) {
            if (!ready(c->sock, PR_POLL_READ, calhttp_timeout)) return kTimedOut;
            continue;
        }
        if (n <= 0) return 0;
        a.start = 0;
        a.end = n;
    }
    return take(c, dest, room);
}

// Copies len held bytes (bounded by the buffer) to out with a NUL; the rest
// stays pending.
int deliver(calhttp_conn *c, int held, int len, char *out) {
    if (len < 0 || len > kBuf) len = kBuf;
    std::memcpy(out, c->buffer, static_cast<size_t>(len));
    out[len] = '\0';
    c->pending = std::max(held - len, 0);
    return len;
}

}  // namespace

extern "C" {

void calhttp_SetGlobalTimeout(int seconds) noexcept { calhttp_timeout = seconds; }

void calhttp_SetGlobalShowwait(int flag) noexcept { calhttp_showwait = flag; }

int calhttp_Timeout(calhttp_conn *conn, int seconds) noexcept {
    if (conn == nullptr) return -1;
    return conn->timeout = seconds;
}

int calhttp_Showwait(calhttp_conn *conn, int flag) noexcept {
    if (conn == nullptr) return -1;
    return conn->showwait = flag;
}

int calhttp_Open(const char *host, unsigned int port, calhttp_conn **out, PRIntervalTime *elapsed) noexcept {
    if (out == nullptr) return -1;
    *out = nullptr;
    Owned c(static_cast<calhttp_conn *>(PR_Malloc(sizeof(Conn))));
    if (!c) return -1;
    std::memset(c.get(), 0, sizeof(calhttp_conn));
    ahead(c.get()).start = ahead(c.get()).end = 0;
    c->readPtr = c->buffer;
    c->timeout = calhttp_timeout;
    c->showwait = calhttp_showwait;

    PRHostEnt entry;
    if (host == nullptr || PR_GetHostByName(host, c->buffer, kBuf, &entry) != PR_SUCCESS) return -2;
    PRNetAddr addr;
    if (port > 0xffff || PR_EnumerateHostEnt(0, &entry, static_cast<PRUint16>(port), &addr) <= 0 ||
        addr.raw.family != PR_AF_INET)
        return -3;
    c->port = port;
    std::strncpy(c->hostName, entry.h_name != nullptr ? entry.h_name : host, sizeof c->hostName - 1);

    PRIntervalTime spent = 0;
    int rc = connect_with_retries(c.get(), addr, &spent);
    if (rc != 0) return rc;
    c->respOpen = 0;
    if (elapsed != nullptr) *elapsed = spent;
    *out = c.release();
    return 0;
}

int calhttp_Close(calhttp_conn **conn) noexcept {
    if (conn == nullptr || *conn == nullptr) return -1;
    release(*conn);
    *conn = nullptr;
    return 0;
}

int calhttp_SendGet(calhttp_conn *conn, const char *path, const char *query) noexcept {
    return send_get(conn, path, query, nullptr);
}

int SSO_calhttp_SendGet(calhttp_conn *conn, const char *path, const char *query, const char *headers) noexcept {
    return send_get(conn, path, query, headers);
}

int calhttp_SendRaw(calhttp_conn *conn, const char *text) noexcept {
    if (conn == nullptr || conn->sock == nullptr || text == nullptr || !compose(conn, {text})) return -1;
    return send_request(conn, false);
}

int calhttp_ReadGet(calhttp_conn *conn, char *out, int size) noexcept {
    if (!readable(conn, out, size)) return -1;
    int held = gather(conn);
    auto *lf = static_cast<const char *>(std::memchr(conn->buffer, '\n', static_cast<size_t>(held)));
    while (lf == nullptr && held < kBuf) {
        int n = receive(conn, conn->buffer + held, kBuf - held);
        if (n == kTimedOut) return -1;
        if (n < 1) {
            conn->respOpen = 0;
            break;
        }
        lf = static_cast<const char *>(std::memchr(conn->buffer + held, '\n', static_cast<size_t>(n)));
        held += n;
        conn->pending = held;
    }
    // Up to and including the LF; a full buffer without one comes whole.
    int line = lf != nullptr ? static_cast<int>(lf - conn->buffer) + 1 : held == kBuf ? kBuf + 1 : held;
    int len = deliver(conn, held, std::min(line, size - 1), out);
    conn->readPtr = conn->pending > 0 ? conn->buffer + len : conn->buffer;
    return 0;
}

int calhttp_ReadRaw(calhttp_conn *conn, char *out, int size) noexcept {
    if (!readable(conn, out, size)) return -1;
    int held = gather(conn);
    // With nothing held and room for a full buffer the whole block is
    // delivered, so it is received straight into out.
    char *into = held == 0 && size > kBuf ? out : conn->buffer;
    while (held < size && held < kBuf) {
        int n = receive(conn, into + held, kBuf - held);
        if (n == kTimedOut) {
            // What came stays held for the next read.
            if (into == out) std::memcpy(conn->buffer, out, static_cast<size_t>(held));
            conn->pending = held;
            return -1;
        }
        if (n < 1) {
            conn->respOpen = 0;
            break;
        }
        held += n;
    }
    if (into == out) {
        out[held] = '\0';
        conn->pending = 0;
    } else {
        deliver(conn, held, std::min(held, size - 1), out);
    }
    conn->readPtr = conn->buffer + conn->pending;
    return 0;
}

int calhttp_SendTCPRaw(calhttp_conn *conn, const char *bytes, int len) noexcept {
    if (conn == nullptr || conn->sock == nullptr || len < 0 || (bytes == nullptr && len > 0)) return -1;
    return send_all(conn->sock, bytes, len, conn->timeout) ? 0 : -1;
}

int calhttp_ReadTCPRaw(calhttp_conn *conn, char *buffer, int len) noexcept {
    if (conn == nullptr || conn->sock == nullptr || buffer == nullptr || len < 0) return -1;
    // Bytes already taken from the socket come first, without a wait.
    if (ahead(conn).start < ahead(conn).end) return take(conn, buffer, len);
    if (!ready(conn->sock, PR_POLL_READ, conn->timeout)) return -1;
    return PR_Recv(conn->sock, buffer, len, 0, ticks(conn->timeout));
}

}  // extern "C"
