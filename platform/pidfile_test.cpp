#include <gtest/gtest.h>

#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <set>
#include <string>

#include <prerror.h>

#include "orvproc.hpp"
#include "orvtest.hpp"
#include "orvutil/platform/config.h"
#include "orvutil/platform/pidfile.h"

namespace {

// A default configuration whose pid directory is <tmp>/run.
struct PidDir {
    orvtest::TempDir dir;
    PidDir() {
        orvtest::write_file(dir.file("orv.conf"), "local.instancedir = " + dir.path() + "\n");
        config_setdefaultfile(dir.file("orv.conf").c_str());
    }
    std::string file(const std::string &service) const { return dir.path() + "/run/" + service + ".pid"; }
};

// Runs fn in n forked processes at once; each ends with fn's result. True
// when all of them ended with 0 within a minute.
template <typename Fn>
bool in_processes(int n, Fn fn) {
    std::set<pid_t> pids;
    for (int i = 0; i < n; ++i) {
        const pid_t pid = orvtest::fork_child(fn);
        if (pid > 0) pids.insert(pid);
    }
    bool ok = static_cast<int>(pids.size()) == n;
    const bool done = orvtest::wait_until(
        [&] {
            int st;
            pid_t p;
            while ((p = waitpid(-1, &st, WNOHANG)) > 0) {
                ok = ok && WIFEXITED(st) && WEXITSTATUS(st) == 0;
                pids.erase(p);
            }
            return pids.empty();
        },
        std::chrono::seconds(60));
    for (pid_t p : pids) {
        kill(p, SIGKILL);
        waitpid(p, nullptr, 0);
    }
    return ok && done;
}

TEST(PidFile, RecordsStateAndChildrenAndNotifiesTheServiceManager) {
    PidDir d;
    orvtest::TempDir sockdir;
    const std::string sock = sockdir.file("notify");
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    sock.copy(addr.sun_path, sizeof addr.sun_path - 1);
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr), 0);
    orvtest::ScopedEnv env("NOTIFY_SOCKET", sock.c_str());
    auto next_message = [fd] {
        char buf[64] = {};
        return recv(fd, buf, sizeof buf - 1, MSG_DONTWAIT) > 0 ? std::string(buf) : std::string("(none)");
    };

    int pid = -1;
    char state[CONFIG_PIDFILE_STATE_SIZE];
    EXPECT_EQ(config_readpidfile("svc", &pid, state), PR_FILE_NOT_FOUND_ERROR);
    EXPECT_EQ(config_appendpidfile("svc", "child_process"), -1);  // no service recorded yet
    ASSERT_EQ(config_writepidfile("svc", "init"), 0);
    EXPECT_EQ(next_message(), "(none)");

    // 50 processes register at once: none is lost, none twice.
    ASSERT_TRUE(in_processes(50, [] { return config_appendpidfile("svc", "child_process") == 0 ? 0 : 1; }));
    ASSERT_EQ(config_writepidfile("svc", "ready"), 0);  // keeps the children
    EXPECT_EQ(next_message(), "READY=1");
    ASSERT_EQ(config_readpidfile("svc", &pid, state), 0);
    EXPECT_EQ(pid, getpid());
    EXPECT_STREQ(state, "ready");
    int *kids = nullptr;
    ASSERT_EQ(config_readpidfile_list("svc", &kids, "child_process"), 50);
    EXPECT_EQ(std::set<int>(kids, kids + 50).size(), 50u);
    EXPECT_EQ(kids[50], 0);
    free(kids);
    EXPECT_EQ(config_readpidfile_list("svc", &kids, "other"), 0);
    EXPECT_EQ(kids, nullptr);
    EXPECT_EQ(config_pidfile_stale("svc"), 0);

    ASSERT_EQ(config_removepidfile("svc"), 0);
    EXPECT_EQ(next_message(), "STOPPING=1");
    EXPECT_FALSE(orvtest::file_exists(d.file("svc")));
    EXPECT_EQ(config_removepidfile("svc"), 0);
    close(fd);
}

TEST(PidFile, RefusesBadNamesAndBadFilesAndSeesStaleOnes) {
    PidDir d;
    for (const char *name : {"", ".", "..", "../x", "a/b", "tab\there", static_cast<const char *>(nullptr)}) {
        int pid = 0;
        EXPECT_EQ(config_readpidfile(name, &pid, nullptr), PR_INVALID_ARGUMENT_ERROR) << (name ? name : "null");
        errno = 0;
        EXPECT_EQ(config_writepidfile(name, "init"), -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(config_removepidfile(name), -1);
    }
    for (const char *state : {"", "two words", "bad\nline"}) EXPECT_EQ(config_writepidfile("svc", state), -1);

    ASSERT_EQ(config_writepidfile("svc", "init"), 0);
    const std::string me = std::to_string(getpid());
    struct Case {
        std::string text;
        int error;  // 0: reads
    };
    const Case cases[] = {
        {"pid " + me + " 0\nstate ready\n", 0},
        {"pid " + me + " 0\nstate ready", PR_IO_ERROR},  // cut short
        {"state ready\n", PR_IO_ERROR},
        {"pid 0 0\n", PR_IO_ERROR},
        {"pid 99999999999 0\n", PR_IO_ERROR},
        {"pid 12 0\npid 13 0\n", PR_IO_ERROR},
        {"pid 12  0\n", PR_IO_ERROR},
        {"pid 12 0\nchild_process x 0\n", PR_IO_ERROR},
        {"pid 12 0\n" + std::string(70000, '#') + "\n", PR_FILE_TOO_BIG_ERROR},
    };
    for (const Case &c : cases) {
        orvtest::write_file(d.file("svc"), c.text);
        int pid = 0;
        char state[CONFIG_PIDFILE_STATE_SIZE];
        EXPECT_EQ(config_readpidfile("svc", &pid, state), c.error) << c.text.substr(0, 40);
    }
    ASSERT_EQ(unlink(d.file("svc").c_str()), 0);
    ASSERT_EQ(symlink(d.dir.file("orv.conf").c_str(), d.file("svc").c_str()), 0);
    int pid = 0;
    EXPECT_EQ(config_readpidfile("svc", &pid, nullptr), PR_LOOP_ERROR);
    EXPECT_EQ(config_writepidfile("svc", "init"), 0);  // replaces the link, never writes through it
    EXPECT_NE(orvtest::read_file(d.dir.file("orv.conf")).find("instancedir"), std::string::npos);

    // A live pid with another start time is a stranger; a gone pid is stale.
    orvtest::write_file(d.file("svc"), "pid " + me + " 1\nchild_process " + me + " 1\nchild_process 1 0\n");
    EXPECT_EQ(config_pidfile_stale("svc"), 1);
    int *kids = nullptr;
    ASSERT_EQ(config_readpidfile_list("svc", &kids, "child_process"), 1);
    EXPECT_EQ(kids[0], 1);
    free(kids);
    const pid_t gone = fork();
    if (gone == 0) _exit(0);
    waitpid(gone, nullptr, 0);
    orvtest::write_file(d.file("svc"), "pid " + std::to_string(gone) + " 0\n");
    EXPECT_EQ(config_pidfile_stale("svc"), 1);
    EXPECT_EQ(config_pidfile_stale("absent"), -1);
}

}  // namespace
