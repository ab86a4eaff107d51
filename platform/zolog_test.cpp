#include <gtest/gtest.h>

#include <cerrno>
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
    const auto lines = lines_of(log.text());
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(
        std::regex_match(lines[0], std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z Error General svc/proc\[\d+\] )"
                                              R"(bad thing\\nsecond\\tline\\x01 end)")))
        << lines[0];
    EXPECT_NE(lines[1].find(" Warning facility6 svc/proc["), std::string::npos) << lines[1];
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

}  // namespace
