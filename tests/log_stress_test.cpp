// Several processes and threads writing one rolling log: every record is
// found exactly once, whole and in its writer's order, and no rolled file
// holds a record stamped after its roll; a writer killed at random moments
// (mostly while it rolls) costs the others nothing.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "orvproc.hpp"
#include "orvtest.hpp"
#include "orvutil/platform/zolog.h"

namespace {

const std::string kPayload(60, 'x');

// Forked writers, always killed and reaped.
struct Writers {
    std::vector<pid_t> pids;
    ~Writers() {
        for (pid_t pid : pids) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
    // records < 0: write until killed.
    pid_t start(const std::string &dir, int proc, int threads, int records, const char *maxlogfilesize) {
        const pid_t pid = fork();
        if (pid != 0) {
            pids.push_back(pid);
            return pid;
        }
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // never outlive the test
        const int h = zolog_open("stress", "log");
        const char *pairs[] = {"logdir",
                               dir.c_str(),
                               "maxlogfilesize",
                               maxlogfilesize,
                               "maxlogfiles",
                               "0",
                               "maxlogsize",
                               "0",
                               "minfreeddiskspace",
                               "0",
                               nullptr,
                               nullptr};
        zolog_config(h, pairs);
        zolog_setoptions(ZOLOG_OPT_NOSTDERR);
        std::vector<std::thread> workers;
        for (int t = 0; t < threads; ++t)
            workers.emplace_back([=] {
                for (int i = 0; records < 0 || i < records; ++i)
                    zolog(h, 3, "p%d t%d i%d %s", proc, t, i, kPayload.c_str());
            });
        for (auto &w : workers) w.join();
        _exit(0);
    }
    // Waits for the writers still listed; false when one fails or they take
    // too long.
    bool wait_all() {
        bool ok = true;
        for (pid_t pid : pids) {
            int status = -1;
            const bool done =
                orvtest::wait_until([&] { return waitpid(pid, &status, WNOHANG) == pid; }, std::chrono::seconds(120));
            if (!done) kill(pid, SIGKILL), waitpid(pid, &status, 0);
            ok = ok && done && WIFEXITED(status) && WEXITSTATUS(status) == 0;
        }
        pids.clear();
        return ok;
    }
};

// (process, thread) -> the next record number expected from it.
using Seen = std::map<std::pair<int, int>, int>;

// Reads the log back, rolled files in name order then the current file.
void check_log(const std::string &dir, Seen &seen) {
    std::vector<std::string> rolled;
    for (const auto &e : std::filesystem::directory_iterator(dir)) {
        const std::string name = e.path().filename().string();
        if (name.rfind("log.log.2", 0) == 0) rolled.push_back(name);
    }
    std::sort(rolled.begin(), rolled.end());
    std::vector<std::string> files = rolled;
    files.push_back("log.log");
    for (const auto &name : files) {
        const bool is_rolled = name != "log.log";
        // The roll time as a record's stamp writes it, to the millisecond.
        std::string roll_time;
        if (is_rolled) {
            const std::string d = name.substr(8);
            roll_time = d.substr(0, 4) + "-" + d.substr(4, 2) + "-" + d.substr(6, 2) + "T" + d.substr(9, 2) + ":" +
                        d.substr(11, 2) + ":" + d.substr(13, 2) + "." + d.substr(16, 3);
        }
        const std::string text = orvtest::read_file(dir + "/" + name);
        ASSERT_TRUE(text.empty() || text.back() == '\n') << name;
        for (size_t start = 0, end; start < text.size(); start = end + 1) {
            end = text.find('\n', start);
            const std::string_view line(text.c_str() + start, end - start);
            // "...] p%d t%d i%d payload", read without sscanf or strstr (which
            // measure the whole rest of the text every time).
            const size_t close = line.find("] ");
            ASSERT_NE(close, std::string_view::npos) << name << ": " << line;
            char *at = const_cast<char *>(line.data()) + close + 2;
            int fields[3];
            for (int f = 0; f < 3; ++f) {
                ASSERT_EQ(*at, "pti"[f]) << name << ": " << line;
                fields[f] = static_cast<int>(std::strtol(at + 1, &at, 10));
                ASSERT_EQ(*at++, ' ') << name << ": " << line;
            }
            ASSERT_EQ(std::string_view(at, text.c_str() + end - at), kPayload) << line;
            int &next = seen[{fields[0], fields[1]}];
            ASSERT_EQ(fields[2], next++) << name << ": lost, repeated or out of order: " << line;
            ASSERT_TRUE(!is_rolled || line.substr(0, 23) <= roll_time) << name << ": written after its roll: " << line;
        }
    }
}

// ThreadSanitizer makes every access many times dearer: a tenth of the
// records there still rolls the log a few dozen times.
#if defined(__SANITIZE_THREAD__)
constexpr int kStressRecords = 2000;
#else
constexpr int kStressRecords = 20000;
#endif

TEST(LogStress, ManyProcessesAndThreadsShareOneRollingLog) {
    constexpr int kProcs = 8, kThreads = 4, kRecords = kStressRecords;
    orvtest::TempDir dir;
    Writers writers;
    for (int p = 0; p < kProcs; ++p) writers.start(dir.path(), p, kThreads, kRecords, "262144");
    ASSERT_TRUE(writers.wait_all());
    Seen seen;
    check_log(dir.path(), seen);
    EXPECT_EQ(seen.size(), size_t(kProcs * kThreads));
    for (const auto &entry : seen) EXPECT_EQ(entry.second, kRecords);
}

TEST(LogStress, WriterKilledWhileRollingCostsTheOthersNothing) {
    constexpr int kProcs = 3, kThreads = 2, kRecords = 3000, kRounds = 4;
    std::mt19937 random(std::random_device{}());
    for (int round = 0; round < kRounds; ++round) {
        orvtest::TempDir dir;
        Writers writers;
        // The victim rolls before nearly every record of its own.
        Writers victim;
        const pid_t pid = victim.start(dir.path(), kProcs, 2, -1, "200");
        for (int p = 0; p < kProcs; ++p) writers.start(dir.path(), p, kThreads, kRecords, "4096");
        std::this_thread::sleep_for(std::chrono::milliseconds(5 + random() % 150));
        kill(pid, SIGKILL);
        // Reaped before the log is read back: a victim still rolling would
        // move files under the reader's feet.
        waitpid(pid, nullptr, 0);
        victim.pids.clear();
        ASSERT_TRUE(writers.wait_all());
        Seen seen;
        check_log(dir.path(), seen);
        for (int p = 0; p < kProcs * kThreads; ++p) EXPECT_EQ((seen[{p / kThreads, p % kThreads}]), kRecords) << round;
    }
}

}  // namespace
