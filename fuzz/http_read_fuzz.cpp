// The HTTP line and block reads over a socket pair whose peer sent the
// input and closed. The first four bytes plan the reads, in turn: bit 7 a
// block read, the rest the out buffer's size. The read pointer never leaves
// the record, every read progresses until the close, and when only lines
// are read (and the input has no NUL) the pieces give the input back up to
// its unfinished last line, each holding at most one LF, at its end.
#include <orvutil/cal_http.h>

#include <sys/socket.h>
#include <unistd.h>

#include <prinit.h>
#include <private/pprio.h>
#include <prmem.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool ready = (PR_Init(PR_USER_THREAD, PR_PRIORITY_NORMAL, 0), calhttp_SetGlobalTimeout(0), true);
    (void)ready;
    if (size < 4 || size > 65536) return 0;
    const uint8_t *plan = data;
    const std::string sent(reinterpret_cast<const char *>(data) + 4, size - 4);
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0 ||
        write(fds[1], sent.data(), sent.size()) != static_cast<ssize_t>(sent.size()))
        abort();
    close(fds[1]);

    auto *conn = static_cast<calhttp_conn *>(PR_Calloc(1, sizeof(calhttp_conn)));
    conn->sock = PR_ImportTCPSocket(fds[0]);
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
