// The HTTP line and block reads over a loopback connection whose peer sent
// the input and closed. The first four bytes plan the reads, in turn: bit 7 a
// block read, the rest the out buffer's size. The read pointer never leaves
// the record, every read progresses until the close, and when only lines
// are read (and the input has no NUL) the pieces give the input back up to
// its unfinished last line, each holding at most one LF, at its end.
#include <orvutil/cal_http.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <prinit.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

// A listening socket on a loopback port, made once: the connection record
// must come from calhttp_Open.
int listener(unsigned int *port) {
    static unsigned int bound = 0;
    static const int fd = [] {
        const int s = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof addr;
        if (s < 0 || bind(s, reinterpret_cast<sockaddr *>(&addr), len) != 0 || listen(s, 4) != 0 ||
            getsockname(s, reinterpret_cast<sockaddr *>(&addr), &len) != 0)
            abort();
        bound = ntohs(addr.sin_port);
        return s;
    }();
    *port = bound;
    return fd;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool ready = (PR_Init(PR_USER_THREAD, PR_PRIORITY_NORMAL, 0), calhttp_SetGlobalTimeout(0), true);
    (void)ready;
    if (size < 4 || size > 65536) return 0;
    const uint8_t *plan = data;
    const std::string sent(reinterpret_cast<const char *>(data) + 4, size - 4);
    unsigned int port = 0;
    const int lfd = listener(&port);
    calhttp_conn *conn = nullptr;
    if (calhttp_Open("127.0.0.1", port, &conn, nullptr) != 0) abort();
    const int peer = accept(lfd, nullptr, nullptr);
    if (peer < 0 || write(peer, sent.data(), sent.size()) != static_cast<ssize_t>(sent.size())) abort();
    close(peer);
    conn->readPtr = conn->buffer;
    conn->respOpen = 1;
    std::string got;
    bool lines_only = true;
    for (size_t i = 0;; ++i) {
        const bool block = plan[i % 4] & 0x80;
        std::vector<char> out(static_cast<size_t>(plan[i % 4] & 0x7f) * 9 + 2, 'X');
        const int rc = block ? calhttp_ReadRaw(conn, out.data(), static_cast<int>(out.size()))
                             : calhttp_ReadGet(conn, out.data(), static_cast<int>(out.size()));
        if (rc != 0) break;
        const size_t len = strnlen(out.data(), out.size());
        if (len == out.size() || i > sent.size() + 2) abort();  // unterminated, or no progress
        if (conn->readPtr < conn->buffer || conn->readPtr + conn->pending > conn->hostName + CALHTTP_HOST_SIZE) abort();
        const char *lf = static_cast<const char *>(std::memchr(out.data(), '\n', len));
        if (!block && lf != nullptr && lf != out.data() + len - 1) abort();
        lines_only = lines_only && !block;
        got.append(out.data(), len);
    }
    if (conn->respOpen != 0) abort();
    // The read that meets the close delivers at most one piece of an
    // unfinished last line: the rest of that line is all that may be missing.
    if (lines_only && sent.find('\0') == std::string::npos &&
        (sent.compare(0, got.size(), got) != 0 || sent.find('\n', got.size()) != std::string::npos))
        abort();
    calhttp_Close(&conn);
    return 0;
}
