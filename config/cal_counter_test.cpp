// The counter layer over a real registry in a temporary instance directory:
// what it creates, refuses and deletes, and the lines it logs.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <string>

#include "orvtest.hpp"
#include "orvutil/cal_counter.h"
#include "orvutil/platform/config.h"

namespace {

TEST(CalCounter, CreatesOpensDeletesAndLogs) {
    orvtest::TempDir dir;
    orvtest::write_file(dir.file("orv.conf"), "local.instancedir = " + dir.path() + "\n");
    mkdir(dir.file("config").c_str(), 0755);
    // The shipped example serves as the instance's configuration.
    const char *src = std::getenv("ORV_SOURCE_DIR");
    ASSERT_NE(nullptr, src);
    orvtest::write_file(dir.file("config/counter.conf"),
                        orvtest::read_file(std::string(src) + "/examples/counter.conf"));
    config_setdefaultfile(dir.file("orv.conf").c_str());
    orvtest::LogCapture log;

    counterobject *http = nullptr;
    counterinstance *global = calcounter_createinstance("http", 0, &http);
    ASSERT_NE(nullptr, global);
    ASSERT_NE(nullptr, http);
    EXPECT_TRUE(orvtest::file_exists(dir.file("counter/http.cnt")));
    EXPECT_EQ(100, counterobject_slots(http));
    EXPECT_EQ(nullptr, calcounter_createobject("smtp", 0, 0));  // not configured

    counterhandle requests = calcounter_getcounter(http, "requests");
    ASSERT_NE(0u, requests);
    counterinstance_add(global, requests, 3);
    EXPECT_EQ(0u, calcounter_getcounter(http, "nothing"));
    EXPECT_EQ(0u, calcounter_getcounter(nullptr, "requests"));
    EXPECT_TRUE(log.contains(52, "Unable to get counter handle (nothing): -4"));
    EXPECT_TRUE(log.contains(52, "Unable to get counter handle (requests): 1"));

    for (const char *refused : {"global", "GLOBAL2", "Global-x"})
        EXPECT_EQ(nullptr, calcounter_openinstance(http, refused)) << refused;
    EXPECT_EQ(nullptr, calcounter_openinstance(http, "bad\tname"));
    EXPECT_TRUE(log.contains(52, "Unable to create counter instance (bad\tname): -1"));
    counterinstance *worker = calcounter_openinstance(http, "glob-worker");
    ASSERT_NE(nullptr, worker);

    // Two instances listed: the named one goes. Then the last one left is
    // taken as the shared one, whatever its name: the object's file goes.
    EXPECT_EQ(COUNTER_ENOTFOUND, calcounter_deleteinstance(http, nullptr, "missing"));
    EXPECT_TRUE(log.contains(52, "Unable to delete counter instance (missing): -4"));
    EXPECT_EQ(0, calcounter_deleteinstance(http, worker, "glob-worker"));
    EXPECT_EQ(0, calcounter_deleteinstance(http, global, "anything"));
    EXPECT_FALSE(orvtest::file_exists(dir.file("counter/http.cnt")));
    EXPECT_EQ(uint64_t{3}, counterinstance_get(global, requests));  // handles live on until uninit
    EXPECT_NE(0, calcounter_deleteobject(http));
    EXPECT_TRUE(log.contains(52, "Unable to delete counter object (o_handle=0x"));

    counterobject *again = calcounter_createobject("http", 0, 0);
    ASSERT_NE(nullptr, again);
    EXPECT_EQ(0, calcounter_deleteobject(again));
    calcounter_uninit();
    config_setdefaultfile("/nonexistent/orv.conf");
}

}  // namespace
