#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <string>

#include "orvproc.hpp"
#include "orvtest.hpp"
#include "orvutil/cal_service.h"
#include "orvutil/platform/config.h"
#include "orvutil/platform/pidfile.h"

namespace {

// A default configuration with a one-second poll and its pid directory
// under a temporary instance directory.
struct Instance {
    orvtest::TempDir dir;
    Instance() {
        orvtest::write_file(dir.file("orv.conf"),
                            "local.instancedir = " + dir.path() + "\nservice.admin.sleeptime = 1\n");
        config_setdefaultfile(dir.file("orv.conf").c_str());
    }
    void pidfile(const std::string &service, const std::string &text) const {
        mkdir(dir.file("run").c_str(), 0755);
        orvtest::write_file(dir.file("run/" + service + ".pid"), text);
    }
};

TEST(CalService, StatesAndThePollStep) {
    Instance in;
    orvtest::LogCapture log;
    const std::string me = std::to_string(getpid());
    struct Case {
        const char *text;  // nullptr: no file
        int32_t result, pid, state;
    };
    const Case cases[] = {
        {nullptr, -1, 0, CALSERVICE_STATE_STOPPED},
        {"init", 0, getpid(), CALSERVICE_STATE_INIT},
        {"ready", 0, getpid(), CALSERVICE_STATE_READY},
        {"Ready", 0, getpid(), CALSERVICE_STATE_UNKNOWN},
    };
    for (const Case &c : cases) {
        if (c.text != nullptr) in.pidfile("svc", "pid " + me + " 0\nstate " + c.text + "\n");
        int32_t pid = -5, state = -5;
        EXPECT_EQ(calservice_get_state("svc", &pid, &state), c.result) << (c.text ? c.text : "none");
        EXPECT_EQ(pid, c.pid);
        EXPECT_EQ(state, c.state);
    }
    EXPECT_TRUE(log.contains(4, "svc has an unknown state Ready\n"));

    // The step taken when elapsed equals the limit still sleeps.
    int32_t elapsed = 2;
    EXPECT_EQ(calservice_wait_sleep(2, &elapsed), 0);
    EXPECT_EQ(elapsed, 3);
    EXPECT_EQ(calservice_wait_sleep(2, &elapsed), -1);
    EXPECT_EQ(elapsed, 3);
}

TEST(CalService, RefreshIsTheOnlyCommand) {
    Instance in;
    orvtest::LogCapture log;
    EXPECT_EQ(calservice_signal("svc", "refresh"), 1);
    EXPECT_TRUE(log.contains(3, "service=svc, cmd=refresh, result=readpidfile error "));
    // A group that no longer exists counts as refreshed.
    const pid_t gone = fork();
    if (gone == 0) _exit(0);
    waitpid(gone, nullptr, 0);
    in.pidfile("svc", "pid " + std::to_string(gone) + " 0\nstate ready\n");
    log.clear();
    EXPECT_EQ(calservice_signal("svc", "refresh"), 0);
    EXPECT_TRUE(log.contains(37, "service=svc, cmd=refresh, result=OK"));
    log.clear();
    EXPECT_EQ(calservice_signal("svc", "stop"), 1);
    EXPECT_EQ(calservice_signal("svc", "Refresh"), 1);
    EXPECT_TRUE(log.records().empty());
}

TEST(CalService, ServerConfigurationAndLibraryPaths) {
    orvtest::TempDir dir;
    mkdir(dir.file("sbin").c_str(), 0755);
    mkdir(dir.file("lib").c_str(), 0755);
    char cwd[PATH_MAX];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    char real[PATH_MAX];
    ASSERT_NE(realpath(dir.path().c_str(), real), nullptr);
    const std::string prog = dir.file("sbin/tool");
    struct Case {
        const char *argv0, *conf, *expect;
        const char *cwd_after;  // nullptr: unchanged
    };
    const std::string sbin = std::string(real) + "/sbin";
    const std::string in_sbin = sbin + "/config/x.conf";
    const std::string in_sbin_default = sbin + "/config/orv.conf";
    const Case cases[] = {
        {prog.c_str(), "/etc/abs.conf", "/etc/abs.conf", nullptr},
        {"tool", "/etc/abs.conf", "/etc/abs.conf", nullptr},
        {"tool", "x.conf", "config/orv.conf", nullptr},
        {nullptr, "x.conf", "config/orv.conf", nullptr},
        {"t", nullptr, "config/orv.conf", nullptr},
        {prog.c_str(), "x.conf", in_sbin.c_str(), sbin.c_str()},
        {prog.c_str(), nullptr, in_sbin_default.c_str(), sbin.c_str()},
    };
    for (const Case &c : cases) {
        ASSERT_EQ(chdir(cwd), 0);
        char out[CALSERVICE_PATH_SIZE];
        EXPECT_EQ(calservice_setup_serverconf(c.argv0, out, c.conf), static_cast<int32_t>(strlen(c.expect)));
        EXPECT_STREQ(out, c.expect);
        char now[PATH_MAX];
        ASSERT_NE(getcwd(now, sizeof now), nullptr);
        EXPECT_STREQ(now, c.cwd_after ? c.cwd_after : cwd) << (c.argv0 ? c.argv0 : "null");
    }
    ASSERT_EQ(chdir(cwd), 0);
    calservice_changedir_lib(prog.c_str());
    char now[PATH_MAX];
    ASSERT_NE(getcwd(now, sizeof now), nullptr);
    EXPECT_EQ(std::string(now), std::string(real) + "/lib");
    ASSERT_EQ(chdir(cwd), 0);
}

// Runs the permission check in a child (it changes the process's ids):
// the check's status, and what it printed in *err.
int check_in_child(const std::string &path, std::string *err, const orvtest::TempDir &dir) {
    const int status = orvtest::in_child([&] {
        dup2(open(dir.file("err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666), 2);
        const int r = calservice_check_id_permissions(path.c_str());
        return r == 0 && geteuid() == 0 ? 99 : r;
    });
    *err = orvtest::read_file(dir.file("err"));
    return status;
}

TEST(CalService, PermissionCheckTakesTheFilesOwner) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to change accounts";
    orvtest::TempDir dir;
    chmod(dir.path().c_str(), 0755);
    orvtest::write_file(dir.file("owned"), "x");
    orvtest::write_file(dir.file("root"), "x");
    ASSERT_EQ(chown(dir.file("owned").c_str(), 65534, 65534), 0);
    std::string err;
    EXPECT_EQ(check_in_child(dir.file("owned"), &err, dir), 0);
    EXPECT_EQ(err, "");
    EXPECT_EQ(check_in_child(dir.file("root"), &err, dir), 64);
    EXPECT_EQ(err.rfind("Fatal error: must run command as the calendar server user... root not allowed\n"
                        "             Server needs to be run with user permissions of user root\n",
                        0),
              0u);
    EXPECT_EQ(check_in_child(dir.file("absent"), &err, dir), 70);
    EXPECT_EQ(err, "Fatal error: Could not get file to compute permissions\n");
}

}  // namespace
