// Test helpers for tests that run real processes and servers: free loopback
// ports, waiting with a deadline, and a child process that is always stopped.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace orvtest {

// A TCP port on 127.0.0.1 that nothing listened on when asked (the kernel's
// choice for a bind to port 0). Another process may still take it before the
// caller binds, so servers that fail to start should be retried on a new port.
int free_port();

// Polls pred every 10 ms until it holds (true) or the limit passes (false).
bool wait_until(const std::function<bool()> &pred, std::chrono::milliseconds limit);

// True once something accepts TCP connections on 127.0.0.1:port.
bool wait_for_port(int port, std::chrono::milliseconds limit);

// The full path of a program found in PATH, /usr/sbin or /sbin, or "".
std::string find_program(const std::string &name);

// Ends a forked child with status. A coverage build first writes the child's
// counts, which _exit alone would lose.
[[noreturn]] void exit_child(int status);

// Forks a child (killed if this process dies first) that runs fn and ends with
// its result; the child's pid.
pid_t fork_child(const std::function<int()> &fn);

// fork_child, then waits for the child: fn's result, or -1 when it died of a
// signal.
int in_child(const std::function<int()> &fn);

// A program started with fork and exec in a process group of its own. The
// destructor stops the whole group (SIGTERM, then SIGKILL after the grace
// period) and reaps the child, so a failed assertion never leaves a process
// behind; the child also gets SIGKILL if the test process dies first
// (PR_SET_PDEATHSIG: start children from the test's main thread). Servers must
// therefore run in the foreground.
class Child {
  public:
    struct Options {
        std::vector<std::string> env;  // NAME=VALUE entries added to the environment
        std::string output;            // file for standard output and error; "" is /dev/null
        std::string dir;               // working directory; "" keeps the test's
    };

    Child(const std::vector<std::string> &argv, const Options &options);
    explicit Child(const std::vector<std::string> &argv) : Child(argv, Options{}) {}
    ~Child();
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    pid_t pid() const { return pid_; }
    // False once the child has exited (it is reaped then).
    bool running();
    // Waits for the child to exit: its wait status, or -1 when the limit passed.
    int wait(std::chrono::milliseconds limit);
    // Sends sig to the child's process group.
    void signal(int sig) const;
    // SIGTERM to the group, SIGKILL after the grace period: the wait status.
    int stop(std::chrono::milliseconds grace = std::chrono::seconds(3));

  private:
    pid_t pid_ = -1;
    int status_ = -1;
};

}  // namespace orvtest
