#include "orvproc.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <thread>

namespace orvtest {
namespace {

sockaddr_in loopback(int port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return a;
}

// Runs in the child between fork and exec: only async-signal-safe calls.
[[noreturn]] void exec_child(char *const *argv, const char *output, const char *dir) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setpgid(0, 0);
    const int fd = open(*output ? output : "/dev/null", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd >= 0) {
        dup2(fd, 1);
        dup2(fd, 2);
    }
    const int in = open("/dev/null", O_RDONLY);
    if (in >= 0) dup2(in, 0);
    if (*dir && chdir(dir) != 0) _exit(127);
    execv(argv[0], argv);
    _exit(127);
}

}  // namespace

// Present only when the program is built with coverage counters.
extern "C" void __gcov_dump(void) __attribute__((weak));

void exit_child(int status) {
    if (__gcov_dump != nullptr) __gcov_dump();
    _exit(status);
}

pid_t fork_child(const std::function<int()> &fn) {
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        exit_child(fn());
    }
    return pid;
}

int in_child(const std::function<int()> &fn) {
    int st = 0;
    const pid_t pid = fork_child(fn);
    if (pid < 0 || waitpid(pid, &st, 0) != pid) return -1;
    return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
}

int free_port() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    sockaddr_in a = loopback(0);
    socklen_t len = sizeof a;
    int port = -1;
    if (bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof a) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len) == 0)
        port = ntohs(a.sin_port);
    close(fd);
    return port;
}

bool wait_until(const std::function<bool()> &pred, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        if (pred()) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

bool wait_for_port(int port, std::chrono::milliseconds limit) {
    return wait_until(
        [port] {
            const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            if (fd < 0) return false;
            const sockaddr_in a = loopback(port);
            const bool ok = connect(fd, reinterpret_cast<const sockaddr *>(&a), sizeof a) == 0;
            close(fd);
            return ok;
        },
        limit);
}

std::string find_program(const std::string &name) {
    std::string dirs = getenv("PATH") ? getenv("PATH") : "";
    dirs += ":/usr/sbin:/sbin:/usr/local/sbin";
    size_t start = 0;
    while (start <= dirs.size()) {
        size_t end = dirs.find(':', start);
        if (end == std::string::npos) end = dirs.size();
        const std::string path = dirs.substr(start, end - start) + "/" + name;
        if (end > start && access(path.c_str(), X_OK) == 0) return path;
        start = end + 1;
    }
    return "";
}

Child::Child(const std::vector<std::string> &argv, const Options &options) {
    // Everything the child needs is built before fork.
    std::vector<std::string> env_store;
    for (char **e = environ; *e; ++e) env_store.emplace_back(*e);
    for (const auto &e : options.env) env_store.push_back(e);
    std::vector<char *> args, env;
    for (const auto &a : argv) args.push_back(const_cast<char *>(a.c_str()));
    args.push_back(nullptr);
    for (auto &e : env_store) env.push_back(e.data());
    env.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        environ = env.data();
        exec_child(args.data(), options.output.c_str(), options.dir.c_str());
    }
    pid_ = pid;
    if (pid_ > 0) setpgid(pid_, pid_);  // also from here, so signal() never races the child's own call
}

Child::~Child() {
    if (pid_ > 0) stop(std::chrono::seconds(2));
}

bool Child::running() {
    if (pid_ <= 0) return false;
    int status = 0;
    const pid_t r = waitpid(pid_, &status, WNOHANG);
    if (r == 0) return true;
    if (r == pid_) status_ = status;
    // The child is gone; whatever it left in its group is stopped too.
    kill(-pid_, SIGKILL);
    pid_ = -1;
    return false;
}

int Child::wait(std::chrono::milliseconds limit) {
    if (!wait_until([this] { return !running(); }, limit)) return -1;
    return status_;
}

void Child::signal(int sig) const {
    if (pid_ > 0) kill(-pid_, sig);
}

int Child::stop(std::chrono::milliseconds grace) {
    if (pid_ <= 0) return status_;
    signal(SIGTERM);
    if (wait(grace) == -1 && pid_ > 0) {
        signal(SIGKILL);
        int status = 0;
        if (waitpid(pid_, &status, 0) == pid_) status_ = status;
        pid_ = -1;
    }
    return status_;
}

}  // namespace orvtest
