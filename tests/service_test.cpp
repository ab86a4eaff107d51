// The service and process families against real processes: orvsvcd with
// workers, started by the test, waited for, refreshed and stopped in every
// way. One-second poll steps keep each case within seconds.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "orvproc.hpp"
#include "orvtest.hpp"
#include "orvutil/cal_exec.h"
#include "orvutil/cal_service.h"
#include "orvutil/platform/config.h"
#include "orvutil/platform/pidfile.h"

namespace {

using std::chrono::seconds;

// Gone, or a zombie: it runs no more.
bool dead(int pid) {
    const std::string stat = orvtest::read_file("/proc/" + std::to_string(pid) + "/stat");
    const size_t paren = stat.rfind(')');
    return stat.empty() || (paren != std::string::npos && stat.compare(paren, 3, ") Z") == 0);
}

// An instance directory with its configuration, made the test's default,
// and orvsvcd running in it under the given service name.
class Service {
  public:
    Service(const std::string &name, std::vector<std::string> args) : name_(name) {
        conf_ = dir_.file("orv.conf");
        orvtest::write_file(
            conf_, "local.instancedir = " + dir_.path() + "\nservice.admin.sleeptime = 1\nlogfile.loglevel = Debug\n");
        config_setdefaultfile(conf_.c_str());
        args.insert(args.begin(), {ORVSVCD_PATH, "-c", conf_, "-n", name});
        child_ = std::make_unique<orvtest::Child>(args, orvtest::Child::Options{{}, dir_.file("out"), ""});
    }
    const std::string &name() const { return name_; }
    int pid() const { return child_->pid(); }
    orvtest::Child &child() { return *child_; }
    std::string log() const { return orvtest::read_file(dir_.file("logs/" + name_ + ".log")); }
    std::vector<int> children() const {
        int *pids = nullptr;
        const int n = config_readpidfile_list(name_.c_str(), &pids, "child_process");
        std::vector<int> out(pids, pids + (n > 0 ? n : 0));
        free(pids);
        return out;
    }
    bool ready(int workers) {
        int32_t pid = 0;
        return calservice_wait_ready(name_.c_str(), 30, &pid) == 0 && pid == this->pid() &&
               orvtest::wait_until([&] { return static_cast<int>(children().size()) == workers; }, seconds(30));
    }
    // Runs fn on another thread while this one reaps the service when it
    // ends, as its parent would: a zombie still counts as running.
    template <typename Fn>
    auto reaping(Fn fn) {
        auto result = std::async(std::launch::async, fn);
        while (result.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready) child_->running();
        return result.get();
    }

  private:
    orvtest::TempDir dir_;
    std::string name_, conf_;
    std::unique_ptr<orvtest::Child> child_;
};

TEST(Service, WaitsRefreshAndACleanStop) {
    Service svc("svc", {"-s", "2", "-w", "2"});
    EXPECT_EQ(calservice_wait_ready("svc", 0, nullptr), -1);  // still "init"
    ASSERT_TRUE(svc.ready(2));

    // Every process of the group gets the refresh.
    ASSERT_EQ(calservice_signal("svc", "refresh"), 0);
    const std::vector<int> workers = svc.children();
    EXPECT_TRUE(orvtest::wait_until(
        [&] {
            const std::string log = svc.log();
            for (int w : workers)
                if (log.find("worker " + std::to_string(w) + " refreshed") == std::string::npos) return false;
            return log.find("refreshed: configuration and logs reloaded") != std::string::npos;
        },
        seconds(30)))
        << svc.log();

    EXPECT_EQ(calservice_wait_stopped("svc", 0), -1);
    const int pid = svc.pid();
    EXPECT_EQ(svc.reaping([&] { return calexec_stop("svc", pid, 20, 0); }), 0);
    EXPECT_EQ(calservice_wait_stopped("svc", 0), 0);  // removed by the service itself
    EXPECT_EQ(svc.child().wait(seconds(1)), 0);
    for (int w : workers) EXPECT_TRUE(dead(w));
    EXPECT_NE(svc.log().find("stopped"), std::string::npos);
}

// Stops that end in SIGKILL: the service or its workers ignore SIGTERM, or
// the stop never asks (calservice_stop waits, then kills the group).
TEST(Service, StopsThatMustKill) {
    struct Case {
        const char *label;
        std::vector<std::string> args;
        int workers;
        bool by_pidfile;  // calservice_stop, else calexec_stop
    };
    const Case cases[] = {
        {"workers ignore SIGTERM", {"-w", "2", "-W"}, 2, false},
        {"service ignores SIGTERM", {"-w", "1", "-T"}, 1, false},
        {"by the pid file", {"-w", "1"}, 1, true},
    };
    for (const Case &c : cases) {
        Service svc("svc", c.args);
        ASSERT_TRUE(svc.ready(c.workers)) << c.label;
        const std::vector<int> workers = svc.children();
        const int pid = svc.pid();
        orvtest::LogCapture log;
        const int r =
            svc.reaping([&] { return c.by_pidfile ? calservice_stop("svc", pid, 1) : calexec_stop("svc", pid, 1, 0); });
        EXPECT_EQ(r, 0) << c.label;
        EXPECT_TRUE(log.contains(
            7, "calexec_stoponce: calling calexec_stoppid(), bGroup=PR_TRUE: pid=" + std::to_string(pid) + "."));
        int file_pid = 0;
        EXPECT_NE(config_readpidfile("svc", &file_pid, nullptr), 0);  // removed after the forced stop
        EXPECT_TRUE(dead(pid));
        for (int w : workers) EXPECT_TRUE(orvtest::wait_until([w] { return dead(w); }, seconds(30)));
    }
}

// "store" is signalled alone: its workers get nothing. Any other service is
// signalled with its group. The services themselves ignore SIGTERM here.
TEST(Service, StoreIsSignalledAlone) {
    for (const std::string name : {"store", "calendar"}) {
        Service svc(name, {"-w", "1", "-T"});
        ASSERT_TRUE(svc.ready(1));
        const int worker = svc.children().at(0);
        EXPECT_EQ(calexec_stop_pid(name.c_str(), svc.pid(), 0, 0), -1);
        EXPECT_FALSE(dead(svc.pid()));
        EXPECT_EQ(orvtest::wait_until([worker] { return dead(worker); }, seconds(3)), name != "store") << name;
    }
}

}  // namespace
