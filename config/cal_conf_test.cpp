#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "orvtest.hpp"
#include "orvutil/cal_conf.h"

namespace {

using orvtest::read_file;
using orvtest::TempDir;
using orvtest::write_file;
using Entries = std::vector<std::pair<std::string, std::string>>;

std::string line_of(const char *name, std::vector<const char *> values, int line_end) {
    values.push_back(nullptr);
    char *text = calconf_File_Converttoline(name, values.data(), line_end);
    if (text == nullptr) return "(null)";
    std::string s = text;
    std::free(text);
    return s;
}

Entries entries_of(const calconf_handle *h) {
    Entries out;
    for (int i = 0; i < array_count(h->names); ++i)
        out.emplace_back(strarray_elementat(h->names, i), strarray_elementat(h->values, i));
    return out;
}

// Opens path and returns its entries (empty and a failure when unreadable).
Entries load(const std::string &path) {
    calconf_handle *h = nullptr;
    const int rc = calconf_Open(path.c_str(), &h);
    Entries out = rc == 0 ? entries_of(h) : Entries{{"(open failed)", ""}};
    calconf_Close(&h, 1);
    return out;
}

std::vector<std::string> listing(const std::string &dir) {
    std::vector<std::string> names;
    for (const auto &e : std::filesystem::directory_iterator(dir)) names.push_back(e.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

TEST(CalConfLine, LineForm) {
    struct Case {
        const char *name;
        std::vector<const char *> values;
        int line_end;
        const char *expect;
    };
    const Case cases[] = {
        {"a", {"x y"}, 0, "a = \"x y\""},
        {"a", {"1", "2"}, 0, "a = 1\n ,2"},
        {"a", {"1", "2"}, 1, "a = 1\n ,2\n"},
        {"a", {"a!b"}, 1, "a = a!b\n"},
        {"a", {"a,b"}, 1, "a = \"a,b\"\n"},
        {"a", {"l1\nl2"}, 1, "a = \"l1\\nl2\"\n"},
        {"k", {"q\"b\\c\rd\te"}, 0, "k = \"q\\\"b\\\\c\\rd\\te\""},
        {"k", {"\x01\x1f\x7f\xff"}, 0, "k = \x01\x1f\x7f\xff"},  // other bytes never force quotes
        {"k", {""}, 0, "k = "},
        {"k", {}, 1, "k = \n"},
        {"k", {"", "x y", "z"}, 0, "k = \n ,\"x y\"\n ,z"},
    };
    for (const auto &c : cases) EXPECT_EQ(line_of(c.name, c.values, c.line_end), c.expect) << c.expect;
    EXPECT_EQ(calconf_File_Converttoline(nullptr, nullptr, 1), nullptr);
}

TEST(CalConfLine, CompareOptionsIgnoresCaseAndNulls) {
    const char *a = "Alpha = 1", *b = "alpha = 1", *c = "beta = 1", *n = nullptr;
    EXPECT_EQ(calconf_CompareOptions(&a, &b), 0);
    EXPECT_LT(calconf_CompareOptions(&a, &c), 0);
    EXPECT_GT(calconf_CompareOptions(&c, &b), 0);
    EXPECT_EQ(calconf_CompareOptions(&a, &n), 0);
    EXPECT_EQ(calconf_CompareOptions(&n, &c), 0);
}

TEST(CalConf, RepeatedNamesActOnTheLastEntry) {
    TempDir dir;
    const std::string path = dir.file("c.conf");
    write_file(path, "a = first\nb = bee\nA = second\n");
    calconf_handle *h = nullptr;
    ASSERT_EQ(calconf_Open(path.c_str(), &h), 0);
    EXPECT_STREQ(calconf_Get(h, "a"), "second");
    char *copy = calconf_GetCopy(h, "B");
    EXPECT_STREQ(copy, "bee");
    std::free(copy);
    EXPECT_EQ(calconf_Get(h, "none"), nullptr);
    EXPECT_EQ(calconf_GetCopy(h, "none"), nullptr);

    EXPECT_EQ(calconf_Modify(h, "a", "changed"), 0);
    EXPECT_EQ(entries_of(h), (Entries{{"a", "first"}, {"b", "bee"}, {"A", "changed"}}));
    EXPECT_EQ(calconf_Delete(h, "a", 0), 0);
    EXPECT_EQ(entries_of(h), (Entries{{"a", "first"}, {"b", "bee"}}));
    EXPECT_EQ(calconf_Modify(h, "new", "v"), 0);
    EXPECT_EQ(entries_of(h).back(), (std::pair<std::string, std::string>{"new", "v"}));
    EXPECT_EQ(calconf_Close(&h, 1), 0);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(read_file(path), "a = first\nb = bee\nA = second\n");  // no flush asked
}

TEST(CalConf, DeleteModes) {
    struct Case {
        int mode;
        const char *name;
        int result;
        Entries left;
    };
    const Case cases[] = {
        {0, "x", 0, {{"x", "1"}, {"y", "2"}, {"x", "3"}, {"y", "5"}}},
        {1, "x", 0, {{"y", "2"}, {"y", "5"}}},
        {2, "X", 0, {{"y", "2"}, {"y", "5"}}},
        {0, "absent", 1, {{"x", "1"}, {"y", "2"}, {"x", "3"}, {"x", "4"}, {"y", "5"}}},
        {1, "absent", 1, {{"x", "1"}, {"y", "2"}, {"x", "3"}, {"x", "4"}, {"y", "5"}}},
    };
    TempDir dir;
    const std::string path = dir.file("d.conf");
    for (const auto &c : cases) {
        write_file(path, "x = 1\ny = 2\nx = 3\nx = 4\ny = 5\n");
        calconf_handle *h = nullptr;
        ASSERT_EQ(calconf_Open(path.c_str(), &h), 0);
        EXPECT_EQ(calconf_Delete(h, c.name, c.mode), c.result) << c.mode << c.name;
        EXPECT_EQ(entries_of(h), c.left) << c.mode << c.name;
        EXPECT_EQ(h->dirty, c.result == 0 ? 1 : 0);
        calconf_Close(&h, 1);
    }
}

// Random edits with names differing in case: every look-up must agree with
// a plain search from the end of the name list.
TEST(CalConf, LookupsAgreeWithALinearSearchThroughEdits) {
    TempDir dir;
    const std::string path = dir.file("m.conf");
    write_file(path, "a = 1\nB = 2\nc = 3\nA = 4\n");
    calconf_handle *h = nullptr;
    ASSERT_EQ(calconf_Open(path.c_str(), &h), 0);
    const char *names[] = {"a", "A", "b", "B", "c", "d", "D", "e"};
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> op(0, 9), which(0, 7), mode(0, 2);
    for (int step = 0; step < 3000; ++step) {
        const char *name = names[which(rng)];
        const int o = op(rng);
        if (o < 4) {
            ASSERT_EQ(calconf_Modify(h, name, std::to_string(step).c_str()), 0);
        } else if (o == 4) {
            // Append a duplicate directly, as a file with a repeated name gives.
            ASSERT_EQ(calconf_scanproc(name, nullptr, 0, h), 0);
        } else if (o == 5) {
            calconf_Delete(h, name, mode(rng));
        }
        for (const char *n : names) {
            const int i = strarray_lastof(h->names, n, 1);
            ASSERT_EQ(calconf_Get(h, n), i < 0 ? nullptr : strarray_elementat(h->values, i)) << step << n;
        }
    }
    calconf_Close(&h, 1);
}

TEST(CalConf, NullHandlesAndRefusedNames) {
    calconf_handle *none = nullptr;
    EXPECT_EQ(calconf_Get(nullptr, "a"), nullptr);
    EXPECT_EQ(calconf_GetCopy(nullptr, "a"), nullptr);
    EXPECT_EQ(calconf_Modify(nullptr, "a", "b"), -1);
    EXPECT_EQ(calconf_Delete(nullptr, "a", 0), -1);
    EXPECT_EQ(calconf_Flush(nullptr), -1);
    EXPECT_EQ(calconf_FlushQuick(nullptr, 1), -1);
    EXPECT_EQ(calconf_Close(&none, 0), -1);
    EXPECT_EQ(calconf_Close(nullptr, 0), -1);
    EXPECT_EQ(calconf_CloseQuick(&none, 0), -1);
    EXPECT_EQ(calconf_Open("x", nullptr), -1);

    TempDir dir;
    calconf_handle *h = nullptr;
    EXPECT_EQ(calconf_Open(dir.file("missing.conf").c_str(), &h), -1);
    ASSERT_NE(h, nullptr);  // kept, empty, to be filled or closed
    for (const char *bad : {"", "a=b", "#a", " a", "a ", "\ta", "a\nb", "a\rb"})
        EXPECT_EQ(calconf_Modify(h, bad, "v"), -1) << bad;
    EXPECT_EQ(calconf_Modify(h, "ok", nullptr), -1);
    EXPECT_EQ(h->dirty, 0);
    EXPECT_EQ(calconf_Modify(h, "a!b\"c,d", "v"), 0);
    EXPECT_EQ(calconf_Flush(h), -1);  // no write driver after a failed open
    EXPECT_EQ(calconf_Close(&h, 0), 0);
}

TEST(CalConf, FlushRewritesThroughTheDriver) {
    TempDir dir;
    const std::string path = dir.file("f.conf");
    write_file(path, "# comment\nb = 2\na = 1\n");
    calconf_handle *h = nullptr;
    ASSERT_EQ(calconf_Open(path.c_str(), &h), 0);
    EXPECT_EQ(calconf_Flush(h), 0);  // clean: nothing written
    EXPECT_EQ(read_file(path), "# comment\nb = 2\na = 1\n");
    ASSERT_EQ(calconf_Modify(h, "c", "x, y"), 0);
    EXPECT_EQ(calconf_Flush(h), 0);
    EXPECT_EQ(h->dirty, 0);
    EXPECT_EQ(load(path), (Entries{{"b", "2"}, {"a", "1"}, {"c", "x, y"}}));
    // Deleting every entry and flushing leaves an empty file.
    calconf_Delete(h, "a", 1);
    calconf_Delete(h, "b", 1);
    calconf_Delete(h, "c", 1);
    EXPECT_EQ(calconf_Close(&h, 0), 0);
    EXPECT_EQ(read_file(path), "");
}

TEST(CalConf, CloseQuickWritesSortedAndLeavesNoTemporary) {
    TempDir dir;
    const std::string path = dir.file("q.conf");
    write_file(path, "zeta = 1\nAlpha = two words\nbeta = b\nalpha.x = 3\nbeta = last\n");
    calconf_handle *h = nullptr;
    ASSERT_EQ(calconf_Open(path.c_str(), &h), 0);
    EXPECT_EQ(calconf_CloseQuick(&h, 0), 0);  // clean: nothing written
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(read_file(path), "zeta = 1\nAlpha = two words\nbeta = b\nalpha.x = 3\nbeta = last\n");

    ASSERT_EQ(calconf_Open(path.c_str(), &h), 0);
    ASSERT_EQ(calconf_Modify(h, "mid", "m"), 0);
    EXPECT_EQ(calconf_CloseQuick(&h, 0), 0);
    // Sorted ignoring case; the two "beta" entries keep their order.
    EXPECT_EQ(read_file(path), "Alpha = \"two words\"\nalpha.x = 3\nbeta = b\nbeta = last\nmid = m\nzeta = 1\n");
    EXPECT_EQ(listing(dir.path()), std::vector<std::string>{"q.conf"});
    ASSERT_EQ(calconf_Open(path.c_str(), &h), 0);
    EXPECT_STREQ(calconf_Get(h, "beta"), "last");
    ASSERT_EQ(calconf_Modify(h, "gone", "g"), 0);
    EXPECT_EQ(calconf_CloseQuick(&h, 1), 0);  // noFlush: dropped
    EXPECT_EQ(read_file(path).find("gone"), std::string::npos);
}

TEST(CalConf, CloseQuickFailureKeepsTheOldFile) {
    TempDir dir;
    // The file's directory vanishes: the temporary cannot be made, the handle
    // stays and a second close frees it.
    ::mkdir(dir.file("sub").c_str(), 0755);
    const std::string path = dir.file("sub/c.conf");
    write_file(path, "a = 1\n");
    calconf_handle *h = nullptr;
    ASSERT_EQ(calconf_Open(path.c_str(), &h), 0);
    calconf_Modify(h, "a", "2");
    std::filesystem::remove_all(dir.file("sub"));
    EXPECT_EQ(calconf_CloseQuick(&h, 0), -1);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(calconf_CloseQuick(&h, 1), 0);
    EXPECT_EQ(h, nullptr);

    // The rename fails (the target is a non-empty directory): the temporary
    // goes, the target stays.
    ::mkdir(dir.file("target").c_str(), 0755);
    write_file(dir.file("target/inside"), "x");
    ASSERT_EQ(calconf_Open(dir.file("target").c_str(), &h), -1);
    calconf_Modify(h, "a", "1");
    EXPECT_EQ(calconf_CloseQuick(&h, 0), -1);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(listing(dir.path()), std::vector<std::string>{"target"});
    EXPECT_EQ(read_file(dir.file("target/inside")), "x");
}

// Every printable byte and the characters the line form must protect.
std::string random_text(std::mt19937 &rng, bool as_name) {
    static const std::string specials = " \t\n\r\",\\!#=";
    std::uniform_int_distribution<int> len(as_name ? 1 : 0, 24), pick(0, 99), printable(0x20, 0x7e),
        special(0, static_cast<int>(specials.size()) - 1);
    std::string s;
    const int n = len(rng);
    for (int i = 0; i < n; ++i) s += pick(rng) < 30 ? specials[special(rng)] : static_cast<char>(printable(rng));
    if (!as_name) return s;
    // Names: what the file syntax can give back.
    std::string name;
    for (char c : s)
        if (c != '=' && c != '\n' && c != '\r') name += c;
    while (!name.empty() && (name[0] == ' ' || name[0] == '\t' || name[0] == '#')) name.erase(0, 1);
    while (!name.empty() && (name.back() == ' ' || name.back() == '\t')) name.pop_back();
    return name;
}

TEST(CalConf, RandomEntriesRoundTripThroughTheQuickClose) {
    std::mt19937 rng(20261121);
    TempDir dir;
    for (int round = 0; round < 20; ++round) {
        const std::string path = dir.file("r" + std::to_string(round) + ".conf");
        Entries expect;
        calconf_handle *h = nullptr;
        EXPECT_EQ(calconf_Open(path.c_str(), &h), -1);  // new file
        ASSERT_NE(h, nullptr);
        for (int i = 0; i < 200; ++i) {
            // A unique, sortable name keeps the expected order simple.
            char key[16];
            std::snprintf(key, sizeof key, "k%04d", i);
            const std::string name = key + random_text(rng, true);
            const std::string value = random_text(rng, false);
            ASSERT_EQ(calconf_Modify(h, name.c_str(), value.c_str()), 0) << name;
            expect.emplace_back(name, value);
        }
        ASSERT_EQ(calconf_CloseQuick(&h, 0), 0);
        const Entries got = load(path);
        ASSERT_EQ(got.size(), expect.size());
        for (size_t i = 0; i < got.size(); ++i) {
            EXPECT_EQ(got[i].first, expect[i].first) << i;
            EXPECT_EQ(got[i].second, expect[i].second) << expect[i].first;
        }
    }
}

Entries numbered(const char *value_prefix) {
    Entries e;
    for (int i = 0; i < 10000; ++i) {
        char name[32], value[64];
        std::snprintf(name, sizeof name, "key%05d", i);
        std::snprintf(value, sizeof value, "%s %d, \"quoted\" \\ %d", value_prefix, i, i * 7);
        e.emplace_back(name, value);
    }
    return e;
}

std::string file_text(const Entries &entries) {
    std::string text;
    for (const auto &[name, value] : entries) {
        const char *list[] = {value.c_str(), nullptr};
        char *line = calconf_File_Converttoline(name.c_str(), list, 1);
        text += line;
        std::free(line);
    }
    return text;
}

// A child rewrites a 10,000-entry file with calconf_CloseQuick and is killed
// at a random moment: the file must read back as the old or the new entries,
// never a mix, and a close that completed leaves no temporary file.
TEST(CalConf, KilledQuickCloseLeavesOldOrNewFile) {
    TempDir dir;
    const std::string path = dir.file("big.conf");
    const Entries old_entries = numbered("old"), new_entries = numbered("new");
    const std::string old_text = file_text(old_entries);
    write_file(path, old_text);

    calconf_handle *h = nullptr;
    ASSERT_EQ(calconf_Open(path.c_str(), &h), 0);
    for (const auto &[name, value] : new_entries) ASSERT_EQ(calconf_Modify(h, name.c_str(), value.c_str()), 0);

    auto run_child = [&]() {
        const pid_t pid = fork();
        if (pid == 0) _exit(calconf_CloseQuick(&h, 0) == 0 ? 0 : 1);
        return pid;
    };
    // How long a whole close takes, to spread the kills over it.
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = run_child();
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    const auto full = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);
    ASSERT_EQ(load(path), new_entries);

    std::mt19937 rng(6);
    // Up to twice the measured time: a loaded machine stretches the close.
    std::uniform_int_distribution<long> delay(0, 2 * full.count());
    int killed = 0, completed = 0, saw_old = 0, saw_new = 0;
    for (int round = 0; round < 200; ++round) {
        write_file(path, old_text);
        pid = run_child();
        ASSERT_GT(pid, 0);
        usleep(static_cast<useconds_t>(delay(rng)));
        kill(pid, SIGKILL);
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        const Entries got = load(path);
        ASSERT_TRUE(got == old_entries || got == new_entries) << "round " << round << ": " << got.size() << " entries";
        (got == old_entries ? saw_old : saw_new)++;
        if (WIFEXITED(status)) {
            ++completed;
            ASSERT_EQ(WEXITSTATUS(status), 0);
            ASSERT_EQ(got, new_entries);
            ASSERT_EQ(listing(dir.path()), std::vector<std::string>{"big.conf"}) << "round " << round;
        } else {
            ++killed;
            // A killed close may leave its temporary: clear it for the next round.
            for (const auto &name : listing(dir.path()))
                if (name != "big.conf") std::filesystem::remove(dir.file(name));
        }
    }
    calconf_Close(&h, 1);
    EXPECT_GT(killed, 0);
    RecordProperty("killed", killed);
    RecordProperty("completed", completed);
    RecordProperty("old", saw_old);
    RecordProperty("new", saw_new);
    RecordProperty("close_us", static_cast<int>(full.count()));
}

}  // namespace
