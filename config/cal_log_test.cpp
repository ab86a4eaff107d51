#include <gtest/gtest.h>

#include <string>

#include "orvtest.hpp"
#include "orvutil/cal_log.h"
#include "orvutil/platform/config.h"
#include "orvutil/platform/zolog.h"

namespace {

using orvtest::read_file;
using orvtest::TempDir;
using orvtest::write_file;

bool has(const std::string &text, const char *what) { return text.find(what) != std::string::npos; }

// The life of a process's logging: calls before set-up, init, a second
// handle, refresh after the configuration changes, close, uninit.
TEST(CalLog, SetUpRefreshAndClose) {
    TempDir dir;
    const std::string conf = dir.file("orv.conf");
    const std::string logs = dir.file("logs");
    write_file(conf, "logfile.logdir = " + logs + "\nlogfile.loglevel = Warning\n");
    config_setdefaultfile(conf.c_str());

    // Before set-up nothing reaches the facility.
    callog_close(0);
    callog_refresh();
    EXPECT_EQ(callog_config(0, "logdir", dir.file("early").c_str()), 0);
    EXPECT_EQ(callog_open("svc", "main"), 0);  // initialises
    EXPECT_EQ(callog_init("svc", "other", 1), 0);
    callog_stderr(0);

    zolog(0, 4, "default warning");
    zolog(0, 5, "default notice");
    const int h = callog_open("svc", "worker");
    ASSERT_GT(h, 0);
    zolog(h, 4, "worker warning");
    zolog(h, 7, "worker debug 1");

    // The configuration changes; handle 0 alone, then all.
    write_file(conf, "logfile.logdir = " + logs + "\nlogfile.loglevel = Debug\n");
    ASSERT_EQ(config_reloaddefault(), 0);
    callog_refresh_choice(0);
    zolog(0, 7, "default debug");
    zolog(h, 7, "worker debug 2");
    callog_refresh();
    zolog(h, 7, "worker debug 3");

    callog_close(h);
    zolog(h, 3, "closed handle");  // to the default log
    callog_close(0);               // not opened here: stays
    zolog(0, 3, "still open");
    callog_uninit();
    EXPECT_EQ(callog_config(0, "loglevel", "Emergency"), 0);  // nothing again

    const std::string main = read_file(logs + "/main.log"), worker = read_file(logs + "/worker.log");
    for (const char *kept : {"default warning", "default debug", "closed handle", "still open"})
        EXPECT_TRUE(has(main, kept)) << kept;
    for (const char *kept : {"worker warning", "worker debug 3"}) EXPECT_TRUE(has(worker, kept)) << kept;
    for (const char *dropped : {"default notice", "worker debug 1", "worker debug 2"})
        EXPECT_FALSE(has(main + worker, dropped)) << dropped;
    EXPECT_EQ(read_file(dir.file("early/orv.log")), "");
}

TEST(CalLog, StderrFlagIsInverted) {
    TempDir dir;
    write_file(dir.file("orv.conf"), "logfile.logdir = " + dir.file("logs") + "\n");
    config_setdefaultfile(dir.file("orv.conf").c_str());
    callog_init("svc", "p", 1);
    EXPECT_EQ(zolog_setoptions(0), 0);  // a non-zero flag: copy to stderr
    callog_stderr(0);
    EXPECT_EQ(zolog_setoptions(0), 1);
    callog_uninit();
}

}  // namespace
