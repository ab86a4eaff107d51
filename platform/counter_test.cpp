// Counters across real processes and threads: concurrent writers, a reader,
// writers killed at any point, damaged files, and the configuration read.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "counter_file.hpp"
#include "orvproc.hpp"
#include "orvtest.hpp"
#include "orvutil/platform/counter.h"

namespace {

struct Registry {
    orvtest::TempDir dir;
    config_cache *conf = nullptr;
    countermsg_registry *reg = nullptr;

    explicit Registry(const std::string &config) {
        orvtest::write_file(dir.file("counter.conf"), config);
        conf = countermsg_open_config(dir.file("counter.conf").c_str());
        reg = countermsg_get_registry(dir.file("counter").c_str(), 1);
    }
    ~Registry() {
        countermsg_free_registry(reg);
        config_freecache(conf);
    }
    int create(const char *object, counterobject **o, int flags = 0, int slots = 0, const char *inst = nullptr,
               counterinstance **i = nullptr) {
        return countermsg_create_instance(object, flags, 0, inst, slots, o, i, conf, reg);
    }
    std::string path(const std::string &object) const { return dir.file("counter/" + object + ".cnt"); }
};

// Runs body in a child process; its exit status says whether it held.
pid_t spawn(const std::function<bool()> &body) {
    return orvtest::fork_child([&] { return body() ? 0 : 1; });
}

int reap(pid_t pid) {
    int st = 0;
    waitpid(pid, &st, 0);
    return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
}

const char *const kConf = "web.requests = count Requests served\nweb.active = gauge\n";

TEST(Counter, ConcurrentProcessesAndAReaderThatNeverSeesACountGoBack) {
    Registry r(kConf);
    counterobject *o = nullptr;
    ASSERT_EQ(0, r.create("web", &o));
    const uint64_t per = 1000000, writers = 4;
    std::vector<pid_t> pids;
    pids.push_back(spawn([&] {
        counterobject *ro = nullptr;
        if (counterobject_open(r.reg, "web", &ro) != 0) return false;
        char names[8][COUNTER_NAME_SIZE];
        uint64_t values[16], last = 0;
        auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(5);
        while (last < per * writers && std::chrono::steady_clock::now() < deadline) {
            if (counterobject_snapshot(ro, names, values, 8) < 1 || values[0] < last) return false;
            last = values[0];
        }
        return last == per * writers;
    }));
    for (uint64_t w = 0; w < writers; ++w) {
        pids.push_back(spawn([&, w] {
            // Two threads of the writer share its mapping: one counts the
            // global instance, the other claims and counts its own.
            bool ok[2] = {false, false};
            auto count = [&](const std::string &name, bool *done) {
                counterinstance *i = nullptr;
                if (counterinstance_open(o, name.c_str(), 0, &i) != 0) return;
                for (uint64_t n = 0; n < per; ++n) counterinstance_add(i, 1, 1);
                *done = true;
            };
            std::thread global(count, "global", &ok[0]);
            std::string own = "w";  // appended: GCC 12 -O3 warns falsely on "w" + std::string
            own += std::to_string(w);
            count(own, &ok[1]);
            global.join();
            return ok[0] && ok[1];
        }));
    }
    for (pid_t p : pids) EXPECT_EQ(0, reap(p));

    char names[8][COUNTER_NAME_SIZE];
    uint64_t values[16];
    ASSERT_EQ(5, counterobject_snapshot(o, names, values, 8));
    EXPECT_STREQ("global", names[0]);
    EXPECT_EQ(per * writers, values[0]);
    for (int i = 1; i < 5; ++i) EXPECT_EQ(per, values[2 * i]) << names[i];
    counterobject_close(o);
}

TEST(Counter, WritersKilledAnywhereLeaveUsableFilesAndReclaimableSlots) {
    Registry r(kConf);
    counterobject *o = nullptr;
    ASSERT_EQ(0, r.create("web", &o, 0, 2));
    counterobject_close(o);
    // Re-creating and counting in a loop, killed at varying moments.
    for (int delay_us : {0, 300, 1000, 3000, 10000}) {
        pid_t p = spawn([&] {
            for (;;) {
                counterobject *w = nullptr;
                counterinstance *i = nullptr;
                if (r.create("web", &w, COUNTER_CREATE_FRESH, 2, "worker", &i) != 0) return false;
                for (int n = 0; n < 1000; ++n) counterinstance_add(i, 1, 1);
                counterinstance_close(i);
                counterobject_close(w);
            }
        });
        usleep(static_cast<useconds_t>(delay_us));
        kill(p, SIGKILL);
        EXPECT_EQ(128 + SIGKILL, reap(p));
        counterobject *ro = nullptr;
        EXPECT_EQ(0, counterobject_open(r.reg, "web", &ro)) << delay_us;
        counterobject_close(ro);
    }
    // A slot whose owner exited is taken over when no slot is free.
    EXPECT_EQ(0, reap(spawn([&] {
                  counterobject *w = nullptr;
                  counterinstance *i = nullptr;
                  return r.create("web", &w, 0, 2, "worker", &i) == 0;
              })));
    counterinstance *i = nullptr, *more = nullptr;
    ASSERT_EQ(0, r.create("web", &o, 0, 2, "other", &i));
    EXPECT_EQ(COUNTER_EFULL, counterinstance_open(o, "third", 0, &more));
    // A live pid that started at another time is a reused pid: taken over too.
    std::string file = orvtest::read_file(r.path("web"));
    auto *slot = reinterpret_cast<orv::counter::Slot *>(&file[orv::counter::layout_for(2, 2).slots]) + 1;
    slot->owner_pid = static_cast<uint32_t>(getppid());
    slot->owner_start = 1;
    orvtest::write_file(r.path("web"), file);
    EXPECT_EQ(0, counterinstance_open(o, "third", 0, &more));
    counterinstance_close(more);
    counterinstance_close(i);
    counterobject_close(o);
}

TEST(Counter, DamagedAndForeignFilesAreRefused) {
    using orv::counter::FileHeader;
    Registry r(kConf);
    counterobject *o = nullptr;
    ASSERT_EQ(0, r.create("web", &o));
    const std::string good = orvtest::read_file(r.path("web"));
    counterobject_close(o);
    const size_t descs = sizeof(FileHeader);
    struct Case {
        const char *what;
        std::function<void(std::string &)> damage;
        int status;
    };
    auto header = [](std::string &f) { return reinterpret_cast<FileHeader *>(f.data()); };
    const Case cases[] = {
        {"empty", [](std::string &f) { f.clear(); }, COUNTER_ECORRUPT},
        {"short foreign", [](std::string &f) { f = "abc"; }, COUNTER_EFOREIGN},
        {"header cut", [](std::string &f) { f.resize(100); }, COUNTER_ECORRUPT},
        {"last byte cut", [](std::string &f) { f.pop_back(); }, COUNTER_ECORRUPT},
        {"magic", [&](std::string &f) { header(f)->magic ^= 1; }, COUNTER_EFOREIGN},
        {"version", [&](std::string &f) { header(f)->version = 2; }, COUNTER_EFOREIGN},
        {"counters beyond file", [&](std::string &f) { header(f)->ncounters = 1000; }, COUNTER_ECORRUPT},
        {"counters beyond limit", [&](std::string &f) { header(f)->ncounters = 0xffffffffu; }, COUNTER_ECORRUPT},
        {"slots beyond file", [&](std::string &f) { header(f)->nslots += 1; }, COUNTER_ECORRUPT},
        {"size field", [&](std::string &f) { header(f)->file_size += 64; }, COUNTER_ECORRUPT},
        {"unterminated name", [&](std::string &f) { std::memset(&f[descs], 'x', COUNTER_NAME_SIZE); },
         COUNTER_ECORRUPT},
        {"kind", [&](std::string &f) { f[descs + COUNTER_NAME_SIZE] = 9; }, COUNTER_ECORRUPT},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        std::string bad = good;
        c.damage(bad);
        orvtest::write_file(r.path("web"), bad);
        EXPECT_EQ(c.status, counterobject_open(r.reg, "web", &o));
        EXPECT_EQ(nullptr, o);
    }
    // A writer replaces a damaged file with a good one of a new generation.
    ASSERT_EQ(0, r.create("web", &o));
    EXPECT_GT(counterobject_generation(o), reinterpret_cast<const FileHeader *>(good.data())->generation);
    counterobject_close(o);
}

TEST(Counter, ConfigurationAttachAndRecreate) {
    orvtest::LogCapture log;
    Registry r(
        "web.requests = count Requests served\nWEB.Active = GAUGE  open now\nweb.requests = gauge\n"
        "web.bad/name = count\nweb.kind = meter\nmail.sent = count\n");
    counterobject *o = nullptr, *again = nullptr, *reader = nullptr;
    counterinstance *g = nullptr;
    EXPECT_EQ(COUNTER_ENOTFOUND, r.create("none", &o));
    EXPECT_EQ(COUNTER_EINVAL, r.create("../web", &o));
    ASSERT_EQ(0, r.create("web", &o, 0, 0, "global", &g));
    for (const char *skipped : {"web.requests", "web.bad/name", "web.kind"})
        EXPECT_TRUE(log.contains(4, skipped)) << skipped;
    ASSERT_EQ(2, counterobject_counters(o));
    const char *name, *help;
    int kind;
    ASSERT_EQ(0, counterobject_counterat(o, 1, &name, &kind, &help));
    EXPECT_STREQ("Active", name);
    EXPECT_EQ(COUNTER_KIND_GAUGE, kind);
    EXPECT_STREQ("open now", help);
    counterhandle active = 0;
    ASSERT_EQ(0, counterobject_getcounterinfo(o, "active", &active, nullptr, nullptr, nullptr));
    counterinstance_add(g, active, 2);
    counterinstance_add(g, active, -5);
    EXPECT_EQ(uint64_t(-3), counterinstance_get(g, active));
    counterinstance_add(g, 99, 1);  // unknown handles do nothing

    // The same counters attach (values kept); FRESH makes a new generation.
    ASSERT_EQ(0, counterobject_open(r.reg, "web", &reader));
    ASSERT_EQ(0, r.create("web", &again));
    EXPECT_EQ(counterobject_generation(o), counterobject_generation(again));
    EXPECT_EQ(0, counterobject_changed(reader));
    counterobject_close(again);
    ASSERT_EQ(0, r.create("web", &again, COUNTER_CREATE_FRESH));
    EXPECT_LT(counterobject_generation(o), counterobject_generation(again));
    EXPECT_EQ(1, counterobject_changed(reader));
    EXPECT_EQ(uint64_t(-3), counterinstance_get(g, active));  // the old mapping stays usable
    EXPECT_EQ(0, counterinstance_delete(again, "global"));
    counterobject_close(again);
    EXPECT_EQ(COUNTER_ENOTFOUND, counterobject_open(r.reg, "web", &again));
    counterinstance_close(g);
    counterobject_close(reader);
    counterobject_close(o);
}

}  // namespace
