#include <gtest/gtest.h>

#include <sys/stat.h>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "orvtest.hpp"
#include "orvutil/cal_conf.h"
#include "orvutil/platform/config.h"

namespace {

using Entries = std::vector<std::pair<std::string, std::vector<std::string>>>;

int collect(const char *name, const char *const *values, int nvalues, void *arg) {
    auto *out = static_cast<Entries *>(arg);
    std::vector<std::string> v;
    for (int i = 0; i < nvalues; ++i) v.emplace_back(values[i]);
    EXPECT_EQ(values[nvalues], nullptr);
    out->emplace_back(name, v);
    return 0;
}

// A cache holding one file driver over path, fetched. Frees what it made.
struct FileCache {
    config_cache *cache = config_newcache();
    config_readdriver *driver;
    int fetch_result;
    explicit FileCache(const std::string &path) : driver(config_readdriver_fileinit(path.c_str())) {
        config_adddriver(cache, 0, driver);
        fetch_result = config_fetch(cache);
    }
    ~FileCache() {
        driver->release(driver);
        config_freecache(cache);
    }
    Entries scan() const {
        Entries out;
        config_scan_config(cache, collect, 0, &out);
        return out;
    }
};

TEST(ConfigFile, ParsesEntriesQuotesContinuationsAndComments) {
    struct Case {
        const char *text;
        Entries expect;
    };
    const Case cases[] = {
        {"a = 1\nb=2\n  c   =   three words  \n", {{"a", {"1"}}, {"b", {"2"}}, {"c", {"three words"}}}},
        {"# comment\n\n   # indented comment\nx = #not a comment\n", {{"x", {"#not a comment"}}}},
        {"q = \"a \\\"b\\\" \\\\ \\t\\n\\r c\"\n", {{"q", {"a \"b\" \\ \t\n\r c"}}}},
        {"list = one\n ,two\n  ,\"th,ree\"\nnext = x\n", {{"list", {"one", "two", "th,ree"}}, {"next", {"x"}}}},
        {"dup = 1\nDUP = 2\ndup = 3\n", {{"dup", {"1"}}, {"DUP", {"2"}}, {"dup", {"3"}}}},
        {"empty =\nk = a=b\r\n", {{"empty", {""}}, {"k", {"a=b"}}}},
        {"noeol = last", {{"noeol", {"last"}}}},
    };
    orvtest::TempDir dir;
    for (const auto &c : cases) {
        orvtest::write_file(dir.file("c.conf"), c.text);
        FileCache fc(dir.file("c.conf"));
        EXPECT_EQ(fc.fetch_result, 0);
        EXPECT_EQ(fc.scan(), c.expect) << c.text;
    }
}

TEST(ConfigFile, MalformedLinesAreReportedAndSkipped) {
    using namespace std::string_literals;
    orvtest::TempDir dir;
    const std::string path = dir.file("bad.conf");
    orvtest::write_file(path,
                        "good = 1\n"
                        "no equals sign\n"      // 2
                        " = nameless\n"         // 3
                        "q = \"unterminated\n"  // 4
                        " ,orphan of line 4\n"  // 5
                        "t = \"x\" trailing\n"  // 6
                        "nul\0name = 1\n"       // 7
                        "v = a\0b\n"            // 8
                        "also = fine\n"s);
    orvtest::LogCapture log;
    FileCache fc(path);
    EXPECT_EQ(fc.fetch_result, 0);
    EXPECT_EQ(fc.scan(), (Entries{{"good", {"1"}}, {"also", {"fine"}}}));
    for (int line : {2, 3, 4, 5, 6, 7, 8})
        EXPECT_TRUE(log.contains(4, path + ":" + std::to_string(line) + ":")) << line;
    EXPECT_FALSE(log.contains(4, path + ":1:"));
}

TEST(ConfigFile, RefetchKeepsUnchangedEntriesAndFailureKeepsOldOnes) {
    orvtest::TempDir dir;
    const std::string path = dir.file("c.conf");
    orvtest::write_file(path, "a = 1\n");
    FileCache fc(path);
    ASSERT_EQ(fc.fetch_result, 0);
    // An unchanged file keeps the set in force (the same texts); a changed
    // one replaces it.
    const char *before = config_get_string(fc.cache, "a", nullptr);
    ASSERT_EQ(config_fetch(fc.cache), 0);
    EXPECT_EQ(config_get_string(fc.cache, "a", nullptr), before);
    orvtest::write_file(path, "a = 2\n");
    ASSERT_EQ(config_fetch(fc.cache), 0);
    EXPECT_STREQ(config_get_string(fc.cache, "a", nullptr), "2");
    EXPECT_STREQ(before, "1");
    unlink(path.c_str());
    EXPECT_EQ(config_fetch(fc.cache), -1);
    EXPECT_STREQ(config_get_string(fc.cache, "a", "none"), "2");
    FileCache missing(dir.file("absent.conf"));
    EXPECT_EQ(missing.fetch_result, -1);
}

TEST(ConfigCache, LookupsSeeTheLastEntryIgnoringCase) {
    orvtest::TempDir dir;
    orvtest::write_file(dir.file("c.conf"),
                        "Port = 80\nport = 8080\nbig = 99999999999\nneg = -12 \nbad = 12x\n"
                        "s1 = ON\ns2 = no\ns3 = True\ns4 = 0\ns5 = maybe\nmulti = first\n ,second\n");
    FileCache fc(dir.file("c.conf"));
    config_cache *c = fc.cache;
    EXPECT_STREQ(config_get_string(c, "PORT", nullptr), "8080");
    EXPECT_STREQ(config_get_string(c, "multi", nullptr), "first");
    EXPECT_STREQ(config_get_string(c, "absent", "dflt"), "dflt");
    EXPECT_EQ(config_get_string(c, nullptr, nullptr), nullptr);
    EXPECT_STREQ(config_get_string(nullptr, "port", "d"), "d");

    struct IntCase {
        const char *key;
        int expect;
    };
    for (const auto &ic : {IntCase{"port", 8080}, IntCase{"big", -7}, IntCase{"neg", -12}, IntCase{"bad", -7},
                           IntCase{"absent", -7}, IntCase{"s1", -7}})
        EXPECT_EQ(config_get_int(c, ic.key, -7), ic.expect) << ic.key;
    struct SwitchCase {
        const char *key;
        int def, expect;
    };
    for (const auto &sc : {SwitchCase{"s1", 0, 1}, SwitchCase{"s2", 1, 0}, SwitchCase{"s3", 0, 1},
                           SwitchCase{"s4", 1, 0}, SwitchCase{"s5", 7, 7}, SwitchCase{"absent", 5, 5}})
        EXPECT_EQ(config_get_switch(c, sc.key, sc.def), sc.expect) << sc.key;
    EXPECT_EQ(config_entry_count(c), 11);
}

TEST(ConfigWriteDriver, WrittenEntriesReadBackIdentically) {
    // Values with every printable byte and the characters that force quoting.
    std::mt19937 rng(12345);
    const std::string specials = " \t\n\r\",\\!#=";
    std::uniform_int_distribution<int> len(0, 40), pick(0, 3), printable(0x20, 0x7e),
        special(0, static_cast<int>(specials.size()) - 1);
    Entries entries;
    for (int i = 0; i < 300; ++i) {
        std::string value;
        for (int n = len(rng); n > 0; --n)
            value += pick(rng) == 0 ? specials[static_cast<size_t>(special(rng))] : static_cast<char>(printable(rng));
        entries.push_back({"name" + std::to_string(i % 250), {value}});  // some names repeat
    }
    entries.push_back({"plain", {"a!b"}});

    orvtest::TempDir dir;
    const std::string path = dir.file("w.conf");
    orvtest::write_file(path, "stale = content that must go\n");
    config_writedriver *w = config_writedriver_fileinit(path.c_str());
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(std::string(w->path(w)), path);
    int scratch = 0;
    for (const auto &e : entries) ASSERT_EQ(w->write_entry(w, e.first.c_str(), e.second[0].c_str(), &scratch), 0);
    EXPECT_EQ(w->sync(w), 0);
    w->release(w);

    FileCache fc(path);
    EXPECT_EQ(fc.scan(), entries);
    // The configuration files family writes the very same lines.
    std::string lines;
    for (const auto &e : entries) {
        const char *values[] = {e.second[0].c_str(), nullptr};
        char *line = calconf_File_Converttoline(e.first.c_str(), values, 1);
        lines += line;
        std::free(line);
    }
    EXPECT_EQ(orvtest::read_file(path), lines);
    EXPECT_NE(lines.find("plain = a!b\n"), std::string::npos);
}

// Edits change the named entry's lines and keep every other byte.
TEST(ConfigFileEdit, EditsInPlaceKeepingEverythingElse) {
    orvtest::TempDir dir;
    const std::string path = dir.file("e.conf");
    orvtest::write_file(path,
                        "# site\r\n\r\n  Dup = first\r\nlist = one\r\n ,\"two, 2\"\r\n# between\r\n ,three\r\n"
                        "broken line\r\ndup = second\r\n ,more\r\nq = \"a \\\"b\\\"\"");  // no line end at the end
    EXPECT_EQ(config_file_set(path.c_str(), "DUP", "x y"), 0);  // the last "dup", continuation gone
    EXPECT_EQ(config_file_set(path.c_str(), "new", "a\tb"), 0);
    EXPECT_EQ(config_file_delete(path.c_str(), "list"), 0);
    EXPECT_EQ(config_file_set(path.c_str(), "#x", "1"), -1);
    EXPECT_EQ(config_file_delete(path.c_str(), "none"), 1);
    EXPECT_EQ(orvtest::read_file(path),
              "# site\r\n\r\n  Dup = first\r\n# between\r\nbroken line\r\ndup = \"x y\"\r\nq = \"a \\\"b\\\"\"\r\n"
              "new = \"a\\tb\"\r\n");
    EXPECT_EQ(config_file_delete(path.c_str(), "dup"), 0);  // every entry of the name
    FileCache fc(path);
    EXPECT_EQ(fc.scan(), (Entries{{"q", {"a \"b\""}}, {"new", {"a\tb"}}}));
    EXPECT_EQ(config_file_delete(dir.file("none").c_str(), "a"), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(ConfigCache, LaterDriversWinAndReportChanges) {
    config_cache *c = config_newcache();
    orvtest::TempDir dir;
    orvtest::write_file(dir.file("1.conf"), "k = one\nonly1 = a\n");
    orvtest::write_file(dir.file("2.conf"), "k = two\n");
    config_readdriver *d1 = config_readdriver_fileinit(dir.file("1.conf").c_str());
    config_readdriver *d2 = config_readdriver_fileinit(dir.file("2.conf").c_str());
    config_adddriver(c, 0, d1);
    config_adddriver(c, 0, d2);
    ASSERT_EQ(config_fetch(c), 0);
    EXPECT_STREQ(config_get_string(c, "k", nullptr), "two");
    EXPECT_STREQ(config_get_string(c, "only1", nullptr), "a");
    EXPECT_EQ(d1->changed(d1), 0);
    orvtest::write_file(dir.file("1.conf"), "k = changed and longer\n");
    EXPECT_EQ(d1->changed(d1), 1);
    d1->release(d1);
    d2->release(d2);
    config_freecache(c);
}

// The default cache is process-wide, so one test walks through its life.
TEST(DefaultConfig, LoadsFromOrvHomeReloadsAndKeepsOldTexts) {
    orvtest::TempDir home;
    mkdir(home.file("config").c_str(), 0755);
    const std::string path = home.file("config/orv.conf");
    orvtest::write_file(path, "service.admin.sleeptime = 3\nlocal.sitelanguage = fr\n");
    orvtest::ScopedEnv env("ORV_HOME", home.path().c_str());

    config_cache *c = config_getdefaultcache();
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(config_getdefaultcache(), c);
    EXPECT_EQ(std::string(config_getdefaultfile()), path);
    EXPECT_EQ(config_get_int(c, "service.admin.sleeptime", 1), 3);
    const char *old_language = config_get_string(c, "local.sitelanguage", "en");

    // Readers run while the file is reloaded; every read sees a whole set.
    std::atomic<bool> stop{false};
    std::atomic<int> torn{0};
    std::thread reader([&] {
        while (!stop) {
            const int v = config_get_int(c, "service.admin.sleeptime", -1);
            if (v != 3 && v != 5) ++torn;
        }
    });
    for (int i = 0; i < 50; ++i) {
        orvtest::write_file(path, i % 2 ? "service.admin.sleeptime = 3\n" : "service.admin.sleeptime = 5\n");
        EXPECT_EQ(config_reloaddefault(), 0);
    }
    stop = true;
    reader.join();
    EXPECT_EQ(torn, 0);
    EXPECT_STREQ(old_language, "fr");  // texts handed out earlier stay valid

    // Another file; a missing one gives an empty cache and every default.
    ASSERT_EQ(config_setdefaultfile(home.file("absent.conf").c_str()), 0);
    EXPECT_EQ(config_get_int(c, "service.admin.sleeptime", 1), 1);
    EXPECT_EQ(config_entry_count(c), 0);
    EXPECT_EQ(config_setdefaultfile(nullptr), -1);
}

}  // namespace
