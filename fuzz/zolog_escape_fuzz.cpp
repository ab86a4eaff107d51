// The log record escaper: a message goes out as one record, to a system
// log socket of this program's own, escaped as documented, so that no
// control byte is left in it. (A backslash is not escaped: a record cannot
// always be read back to its message, and is not meant to be.)
#include <orvutil/platform/zolog.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_io.hpp"

namespace {

// The documented escape: \n \r \t, any other control byte \xHH.
std::string escaped(const std::string &message) {
    std::string out;
    for (const char c : message) {
        const auto b = static_cast<unsigned char>(c);
        if (c == '\n' || c == '\r' || c == '\t') {
            out += c == '\n' ? "\\n" : c == '\r' ? "\\r" : "\\t";
        } else if (b < 0x20 || b == 0x7f) {
            out += {'\\', 'x', "0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 15]};
        } else {
            out += c;
        }
    }
    return out;
}

int open_collector() {
    fuzz_io::quiet_setup();
    const std::string path = fuzz_io::file("log.sock");
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) abort();
    const int size = 1 << 20;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    zolog_set_syslog_path(path.c_str());
    static const char *const pairs[] = {"logdir", "syslog:", "loglevel", "Debug", nullptr, nullptr};
    if (zolog_config(0, pairs) != 0) abort();
    return fd;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const int collector = open_collector();
    std::string message(reinterpret_cast<const char *>(data), size);
    message.resize(std::strlen(message.c_str()));
    zolog(0, 3, "%s", message.c_str());
    std::string datagram(message.size() * 4 + 4096, '\0');
    const ssize_t n = recv(collector, datagram.data(), datagram.size(), MSG_DONTWAIT);
    if (n <= 0) abort();
    datagram.resize(static_cast<size_t>(n));
    const size_t start = datagram.find("]: ");
    if (start == std::string::npos || datagram.compare(start + 3, std::string::npos, escaped(message)) != 0) abort();
    return 0;
}
