#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "orvtest.hpp"
#include "orvutil/platform/zolog.h"

namespace {

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// A handle writing to a file in a fresh directory, copy to stderr off.
struct FileLog {
    orvtest::TempDir dir;
    int handle;
    int old_options;
    explicit FileLog(const char *level = "Debug") {
        handle = zolog_open("svc", "proc");
        const std::string logdir = dir.file("logs/nested");
        const char *pairs[] = {"logdir", logdir.c_str(), "loglevel", level, nullptr, nullptr};
        EXPECT_EQ(zolog_config(handle, pairs), 0);
        old_options = zolog_setoptions(ZOLOG_OPT_NOSTDERR);
    }
    ~FileLog() {
        zolog_close(handle);
        zolog_setoptions(old_options);
    }
    std::string text() const { return orvtest::read_file(dir.file("logs/nested/proc.log")); }
};

TEST(Zolog, RecordFormatAndEscaping) {
    FileLog log;
    zolog(log.handle, 3, "bad %s\nsecond\tline\x01 end", "thing");
    zolog(log.handle, 52, "counter %d", 7);
    const char *renamed[] = {"servicename", "svc2", nullptr, nullptr};
    ASSERT_EQ(zolog_config(log.handle, renamed), 0);
    zolog(log.handle, 52, "after");
    const auto lines = lines_of(log.text());
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_TRUE(
        std::regex_match(lines[0], std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z Error General svc/proc\[\d+\] )"
                                              R"(bad thing\\nsecond\\tline\\x01 end)")))
        << lines[0];
    EXPECT_NE(lines[1].find(" Warning facility6 svc/proc["), std::string::npos) << lines[1];
    EXPECT_NE(lines[2].find(" Warning facility6 svc2/proc["), std::string::npos) << lines[2];
}

TEST(Zolog, LevelThresholdDropsLowerSeverities) {
    struct Case {
        const char *threshold;
        int level;
        bool kept;
    };
    const Case cases[] = {
        {"Notice", 5, true}, {"Notice", 6, false}, {"notice", 37, true},  {"Error", 4, false},
        {"Error", 2, true},  {"7", 7, true},       {"Warning", 52, true}, {"Debug", 7, true},
    };
    for (const auto &c : cases) {
        FileLog log(c.threshold);
        zolog(log.handle, c.level, "x");
        EXPECT_EQ(!log.text().empty(), c.kept) << c.threshold << " " << c.level;
    }
}

TEST(Zolog, PercentMIsTheErrnoText) {
    FileLog log;
    errno = ENOENT;
    zolog(log.handle, 3, "open: %m");
    EXPECT_NE(log.text().find("open: No such file or directory"), std::string::npos) << log.text();
    EXPECT_EQ(errno, ENOENT);  // logging leaves errno alone
}

TEST(Zolog, ConfigAcceptsEveryOptionAndRejectsUnknownOnes) {
    const int h = zolog_open("s", "p");
    ASSERT_GT(h, 0);
    const char *good[] = {"loglevel",   "Notice",   "logfacility",       "General", "rollovertime",  "86400",
                          "expirytime", "604800",   "maxlogfilesize",    "2097152", "maxlogfiles",   "10",
                          "maxlogsize", "20971520", "minfreeddiskspace", "5242880", "flushinterval", "60",
                          "buffersize", "0",        "servicename",       "s",       "processname",   "p",
                          nullptr,      nullptr};
    EXPECT_EQ(zolog_config(h, good), 0);
    const char *unknown[] = {"colour", "blue", nullptr, nullptr};
    EXPECT_EQ(zolog_config(h, unknown), -1);
    const char *bad_value[] = {"loglevel", "loud", nullptr, nullptr};
    EXPECT_EQ(zolog_config(h, bad_value), -1);
    const char *bad_number[] = {"maxlogfiles", "ten", nullptr, nullptr};
    EXPECT_EQ(zolog_config(h, bad_number), -1);
    zolog_close(h);
    EXPECT_EQ(zolog_config(h, good), -1);  // closed
}

TEST(Zolog, ThreadsNeverTearARecord) {
    FileLog log;
    constexpr int kThreads = 4, kEach = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&log, t] {
            const std::string payload(200 + t * 50, static_cast<char>('a' + t));
            for (int i = 0; i < kEach; ++i) zolog(log.handle, 3, "t%d i%d %s", t, i, payload.c_str());
        });
    }
    for (auto &th : threads) th.join();
    const auto lines = lines_of(log.text());
    ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kEach));
    const std::regex whole(R"(.* t(\d) i\d+ ([a-d]+)$)");
    for (const auto &line : lines) {
        std::smatch m;
        ASSERT_TRUE(std::regex_match(line, m, whole)) << line;
        const int t = std::stoi(m[1]);
        EXPECT_EQ(m[2].str(), std::string(200 + t * 50, static_cast<char>('a' + t)));
    }
}

TEST(Zolog, HookSeesRecordsBelowTheThreshold) {
    orvtest::LogCapture capture;
    zolog(0, 7, "debug %d", 1);
    zolog(999, 3, "unknown handle goes to the default log");
    EXPECT_TRUE(capture.contains(7, "debug 1"));
    EXPECT_TRUE(capture.contains(3, "unknown handle"));
}

// The clock and the free space the facility sees, driven by the tests.
struct timespec fake_now = {1800000000, 0};
unsigned long long fake_free = ~0ull;
void fake_clock(struct timespec *now) { *now = fake_now; }
int fake_statfs(const char *, unsigned long long *free_bytes) {
    *free_bytes = fake_free;
    return 0;
}

// A log in a fresh directory on the fake clock and disk.
struct HookedLog {
    orvtest::TempDir dir;
    int handle;
    int old_options;
    explicit HookedLog(std::vector<const char *> pairs) {
        fake_now = {1800000000, 0};
        fake_free = ~0ull;
        zolog_set_clock(fake_clock);
        zolog_set_statfs(fake_statfs);
        handle = zolog_open("svc", "p");
        // No limits unless the case sets them.
        static const char *const kNoLimits[] = {"rollovertime", "0", "expirytime", "0", "maxlogfilesize",    "0",
                                                "maxlogfiles",  "0", "maxlogsize", "0", "minfreeddiskspace", "0"};
        std::vector<const char *> all = {"logdir", dir.path().c_str()};
        all.insert(all.end(), std::begin(kNoLimits), std::end(kNoLimits));
        all.insert(all.end(), pairs.begin(), pairs.end());
        pairs = all;
        pairs.push_back(nullptr);
        pairs.push_back(nullptr);
        EXPECT_EQ(zolog_config(handle, pairs.data()), 0);
        old_options = zolog_setoptions(ZOLOG_OPT_NOSTDERR);
    }
    ~HookedLog() {
        zolog_close(handle);
        zolog_setoptions(old_options);
        zolog_set_clock(nullptr);
        zolog_set_statfs(nullptr);
    }
    // Rolled files in name order, then the current file.
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto &e : std::filesystem::directory_iterator(dir.path()))
            if (e.path().filename().string().rfind("p.log.2", 0) == 0) names.push_back(e.path().string());
        std::sort(names.begin(), names.end());
        names.push_back(dir.file("p.log"));
        return names;
    }
    std::string all() const {
        std::string text;
        for (const auto &f : files()) text += orvtest::read_file(f);
        return text;
    }
};

// Record numbers in the order the files hold them.
std::vector<int> numbers_in(const std::string &text) {
    std::vector<int> numbers;
    for (const auto &line : lines_of(text)) {
        const size_t at = line.find(" rec ");
        if (at != std::string::npos) numbers.push_back(std::stoi(line.substr(at + 5)));
    }
    return numbers;
}

TEST(ZologFiles, RollingExpiryAndLimits) {
    // Steps: seconds to advance the clock, then records to write.
    struct Step {
        int advance, records;
    };
    struct Case {
        const char *what;
        std::vector<const char *> options;
        std::vector<Step> steps;
        int rolled;       // rolled files left (-1: not checked)
        int kept;         // records left (-1: not checked; the newest are kept, in order)
        long file_limit;  // each file at most this big, and a rolled one full (0: unchecked)
        long log_limit;   // all files together at most this big (0: unchecked)
    };
    const Case cases[] = {
        {"size", {"maxlogfilesize", "500"}, {{0, 40}}, -1, 40, 500, 0},
        {"time", {"rollovertime", "60"}, {{0, 2}, {59, 1}, {1, 1}, {30, 1}}, 1, 5, 0, 0},
        {"expiry", {"rollovertime", "10", "expirytime", "100"}, {{0, 1}, {10, 1}, {10, 1}, {130, 1}}, 1, 2, 0, 0},
        {"maxlogfiles", {"maxlogfilesize", "500", "maxlogfiles", "2"}, {{0, 40}}, 2, -1, 500, 0},
        {"maxlogsize", {"maxlogfilesize", "500", "maxlogsize", "1000"}, {{0, 40}}, -1, -1, 500, 1000},
    };
    for (const auto &c : cases) {
        HookedLog log(c.options);
        int n = 0;
        for (const auto &step : c.steps) {
            fake_now.tv_sec += step.advance;
            for (int i = 0; i < step.records; ++i) zolog(log.handle, 3, "rec %03d", n++);
        }
        const auto files = log.files();
        if (c.rolled >= 0) {
            EXPECT_EQ(files.size() - 1, size_t(c.rolled)) << c.what;
        }
        const auto numbers = numbers_in(log.all());
        ASSERT_FALSE(numbers.empty()) << c.what;
        if (c.kept >= 0) {
            EXPECT_EQ(numbers.size(), size_t(c.kept)) << c.what;
        }
        EXPECT_EQ(numbers.back(), n - 1) << c.what;
        for (size_t i = 1; i < numbers.size(); ++i) EXPECT_EQ(numbers[i], numbers[i - 1] + 1) << c.what;
        const size_t record = lines_of(orvtest::read_file(files.back()))[0].size() + 1;
        size_t total = 0;
        for (size_t i = 0; i < files.size(); ++i) {
            const size_t size = orvtest::read_file(files[i]).size();
            total += size;
            if (c.file_limit == 0) continue;
            EXPECT_LE(size, size_t(c.file_limit)) << files[i];
            if (i + 1 < files.size()) {
                EXPECT_GT(size + record, size_t(c.file_limit)) << files[i];
            }
        }
        if (c.log_limit > 0) {
            EXPECT_LE(total, size_t(c.log_limit)) << c.what;
            EXPECT_GT(total, size_t(c.log_limit - c.file_limit)) << c.what;  // only what had to go went
        }
    }
}

// A current file moved or deleted by an outside tool is left by every writer
// of the log once the 1 ms look interval has passed, not only by the one that
// looks (two handles on one log stand for two processes).
TEST(ZologFiles, FileMovedOrDeletedFromOutsideIsLeft) {
    for (const bool move : {true, false}) {
        FileLog a;
        const std::string logdir = a.dir.file("logs/nested"), path = logdir + "/proc.log";
        const int b = zolog_open("svc", "proc");
        const char *pairs[] = {"logdir", logdir.c_str(), nullptr, nullptr};
        ASSERT_EQ(zolog_config(b, pairs), 0);
        zolog(a.handle, 3, "rec 0");
        zolog(b, 3, "rec 1");
        ASSERT_EQ(move ? std::rename(path.c_str(), (path + ".moved").c_str()) : unlink(path.c_str()), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        zolog(a.handle, 3, "rec 2");
        zolog(b, 3, "rec 3");
        EXPECT_EQ(numbers_in(a.text()), (std::vector<int>{2, 3})) << move;
        if (move) {
            EXPECT_EQ(numbers_in(orvtest::read_file(path + ".moved")), (std::vector<int>{0, 1}));
        }
        zolog_close(b);
    }
}

TEST(ZologFiles, LowDiskSpaceStopsAndResumesWithTheDroppedCount) {
    HookedLog log({"minfreeddiskspace", "1000"});
    zolog(log.handle, 3, "rec 0");
    fake_free = 999;
    fake_now.tv_sec += 1;
    for (int i = 1; i <= 3; ++i) zolog(log.handle, 3, "rec %d", i);
    EXPECT_EQ(numbers_in(log.all()), std::vector<int>{0});
    fake_free = 1000;
    fake_now.tv_sec += 1;
    zolog(log.handle, 3, "rec 4");
    const auto lines = lines_of(log.all());
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_NE(lines[1].find("Warning General svc/p["), std::string::npos) << lines[1];
    EXPECT_NE(lines[1].find("3 records dropped while free disk space was below 1000 bytes"), std::string::npos);
    EXPECT_EQ(numbers_in(log.all()), (std::vector<int>{0, 4}));
}

TEST(ZologFiles, BufferFillsThenIntervalThenFlush) {
    HookedLog log({"buffersize", "200", "flushinterval", "10"});
    for (int i = 0; i < 3; ++i) zolog(log.handle, 3, "rec %d", i);  // ~150 bytes: kept
    EXPECT_EQ(log.all(), "");
    zolog(log.handle, 3, "rec 3");  // would pass 200: the first three go out
    EXPECT_EQ(numbers_in(log.all()), (std::vector<int>{0, 1, 2}));
    fake_now.tv_sec += 10;
    zolog(log.handle, 3, "rec 4");  // the interval has passed
    EXPECT_EQ(numbers_in(log.all()), (std::vector<int>{0, 1, 2, 3, 4}));
    zolog(log.handle, 3, "rec 5");
    zolog_flush();
    EXPECT_EQ(numbers_in(log.all()).size(), 6u);
}

TEST(ZologFiles, SystemLogGetsOneDatagramPerRecord) {
    struct Case {
        const char *facility;
        int level;
        const char *priority;
    };
    const Case cases[] = {{"local3", 3, "<155>"}, {"General", 52, "<12>"}, {"DAEMON", 7, "<31>"}};
    orvtest::TempDir dir;
    const std::string path = dir.file("log.sock");
    const int sock = socket(AF_UNIX, SOCK_DGRAM, 0);
    struct sockaddr_un addr {};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", path.c_str());
    ASSERT_EQ(bind(sock, reinterpret_cast<struct sockaddr *>(&addr), sizeof addr), 0);
    struct timeval limit = {10, 0};
    setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    zolog_set_syslog_path(path.c_str());
    const int h = zolog_open("svc", "proc");
    for (const auto &c : cases) {
        const char *pairs[] = {"logdir", "syslog:", "logfacility", c.facility, "loglevel", "Debug", nullptr, nullptr};
        ASSERT_EQ(zolog_config(h, pairs), 0);
        zolog(h, c.level, "hello\n%s", "world");
        char got[512] = {};
        ASSERT_GT(recv(sock, got, sizeof got - 1, 0), 0) << c.facility;
        const std::string expected_tail = " proc[" + std::to_string(getpid()) + "]: hello\\nworld";
        EXPECT_EQ(std::string(got).rfind(c.priority, 0), 0u) << got;
        EXPECT_NE(std::string(got).find(expected_tail), std::string::npos) << got;
    }
    zolog_close(h);
    zolog_set_syslog_path(nullptr);
    close(sock);
}

}  // namespace
