#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "orvproc.hpp"
#include "orvtest.hpp"
#include "orvutil/cal_exec.h"

namespace {

TEST(CalExec, NameCleanUp) {
    struct Case {
        const char *in;
        int cut, dir, ext;
        const char *out;
    };
    const Case cases[] = {
        {"/usr/bin/tool.bin -x", 1, 1, 1, "tool"},
        {"/usr/bin/tool.bin -x", 0, 1, 0, "tool.bin -x"},
        {"/usr/bin/tool.bin -x", 1, 0, 0, "/usr/bin/tool.bin"},
        {"/usr/bin/", 0, 1, 0, ""},
        {"a.b.c", 0, 0, 1, "a.b"},
        {"a.b c", 2, 0, 2, "a.b c"},  // flags other than 1 neither cut nor strip the extension
    };
    for (const Case &c : cases) {
        std::string name = c.in;
        calexec_stripname(name.data(), c.cut, c.dir, c.ext);
        EXPECT_STREQ(name.c_str(), c.out) << c.in;
    }
    char text[] = "ok\x01\tx";
    EXPECT_STREQ(printable(text), "ok??x");
}

TEST(CalExec, ProcessTableFindsAProgramByItsName) {
    // A program of our own naming, so the name is unique on the machine.
    orvtest::TempDir dir;
    const std::string name = "Orv-" + std::to_string(getpid() % 100000);
    ASSERT_EQ(symlink("/bin/sleep", dir.file(name).c_str()), 0);
    orvtest::Child child({dir.file(name), "30"});
    ASSERT_TRUE(orvtest::wait_until(
        [&] {
            int32_t pid = 0;
            return calexec_findproc(&pid, ("oRV-" + name.substr(4)).c_str()) == 0 && pid == child.pid();
        },
        std::chrono::seconds(20)));

    int32_t pid = 0;
    EXPECT_EQ(calexec_findproc(&pid, "no-such-program-here"), -1);

    const pid_t cp = child.pid();
    EXPECT_EQ(calexec_stopped(cp), 0);
    EXPECT_EQ(calexec_stoppid(cp, 0, 0), 0);
    EXPECT_EQ(child.wait(std::chrono::seconds(20)) & 0x7f, SIGTERM);
    EXPECT_EQ(calexec_stopped(cp), 1);
}

TEST(CalExec, AccountsAndLimits) {
    struct Case {
        const char *user, *group;
        int expect;
    };
    const Case cases[] = {
        {nullptr, nullptr, 0},
        {nullptr, "no-such-group-orv", 1},
        {"no-such-user-orv", nullptr, 3},
        {"nobody", "no-such-group-orv", 1},  // the group is looked at first
    };
    for (const Case &c : cases)
        EXPECT_EQ(orvtest::in_child([&] { return calexec_setusergroup(c.user, c.group); }), c.expect);
    if (geteuid() != 0) GTEST_SKIP() << "needs root to lower the hard limit and change accounts";
    EXPECT_EQ(orvtest::in_child([] { return calexec_setusergroup("nobody", nullptr) == 0 && getuid() != 0 ? 0 : 1; }),
              0);
    // Unprivileged under a hard limit of 5000, the request of 524288 is
    // halved until it fits: 4096.
    EXPECT_EQ(orvtest::in_child([] {
                  struct rlimit rl = {1024, 5000};
                  if (setrlimit(RLIMIT_NOFILE, &rl) != 0 || setuid(65534) != 0) return 1;
                  calexec_setlimits();
                  getrlimit(RLIMIT_NOFILE, &rl);
                  return rl.rlim_max == 4096 && rl.rlim_cur == 1024 ? 0 : 2;
              }),
              0);
}

TEST(CalExec, StartAndPath) {
    char *argv[] = {const_cast<char *>("true"), nullptr};
    EXPECT_EQ(calexec_start_and_wait("/bin/true", argv), 0);
    ASSERT_EQ(calexec_start("/bin/true", argv), 0);  // does not wait: reaped here
    EXPECT_GT(wait(nullptr), 0);
    // The pieces make one path, given away when the tests run as root.
    orvtest::TempDir dir;
    orvtest::write_file(dir.file("f"), "");
    calexec_fixfile(65534, 65534, dir.path().c_str(), "/", "f", nullptr);
    struct stat st {};
    ASSERT_EQ(stat(dir.file("f").c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, geteuid() == 0 ? 65534u : geteuid());
    array_t *a = array_new();
    strarray_append(a, "old");
    ASSERT_EQ(calexec_path("prog", &a), 0);
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    ASSERT_EQ(array_count(a), 1);
    EXPECT_EQ(std::string(static_cast<char *>(array_elementat(a, 0))), std::string(cwd) + "/prog");
    array_free_and_destroy(a);
}

}  // namespace
