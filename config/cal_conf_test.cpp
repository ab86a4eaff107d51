#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "orvproc.hpp"
#include "orvtest.hpp"
#include "orvutil/cal_conf.h"
#include "orvutil/platform/config.h"

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

size_t entries_in(const std::string &dir) {
    size_t n = 0;
    for (auto it = std::filesystem::directory_iterator(dir); it != std::filesystem::directory_iterator(); ++it) ++n;
    return n;
}

TEST(CalConfLine, LineForm) {
    struct Case {
        const char *name;
        std::vector<const char *> values;
        int line_end;
        const char *expect;
    };
    const Case cases[] = {
        {"a", {"1", "2"}, 1, "a = 1\n ,2\n"},
        {"a", {"a!b"}, 1, "a = a!b\n"},
        {"a", {"a,b"}, 1, "a = \"a,b\"\n"},
        {"k", {"q\"b\\c\rd\te\nf"}, 0, "k = \"q\\\"b\\\\c\\rd\\te\\nf\""},
        {"k", {"\x01\x1f\x7f\xff"}, 0, "k = \x01\x1f\x7f\xff"},  // other bytes never force quotes
        {"k", {}, 1, "k = \n"},
        {"k", {"", "x y", "z"}, 0, "k = \n ,\"x y\"\n ,z"},
    };
    for (const auto &c : cases) EXPECT_EQ(line_of(c.name, c.values, c.line_end), c.expect) << c.expect;
    EXPECT_EQ(calconf_File_Converttoline(nullptr, nullptr, 1), nullptr);
}

// A file with repeated names (in different case): look-ups and edits act on
// the last entry, deletes by mode. The look-up index is built before each
// edit; afterwards every look-up must agree with a search from the end.
TEST(CalConf, EditsActOnTheLastEntry) {
    struct Case {
        const char *op;  // "modify", "scan" (as a file's repeated name adds), "delete0", "delete1", "delete2"
        const char *name;
        int result;
        Entries left;
    };
    const Case cases[] = {
        {"modify", "X", 0, {{"x", "1"}, {"y", "2"}, {"X", "new"}}},
        {"modify", "z", 0, {{"x", "1"}, {"y", "2"}, {"X", "3"}, {"z", "new"}}},
        {"scan", "Y", 0, {{"x", "1"}, {"y", "2"}, {"X", "3"}, {"Y", ""}}},
        {"delete0", "x", 0, {{"x", "1"}, {"y", "2"}}},
        {"delete1", "x", 0, {{"y", "2"}}},
        {"delete2", "x", 0, {{"y", "2"}}},
        {"delete0", "absent", 1, {{"x", "1"}, {"y", "2"}, {"X", "3"}}},
    };
    TempDir dir;
    const std::string path = dir.file("d.conf");
    for (const auto &c : cases) {
        write_file(path, "x = 1\ny = 2\nX = 3\n");
        calconf_handle *h = nullptr;
        ASSERT_EQ(calconf_Open(path.c_str(), &h), 0);
        EXPECT_STREQ(calconf_Get(h, "x"), "3");
        const int rc = c.op[0] == 'm'   ? calconf_Modify(h, c.name, "new")
                       : c.op[0] == 's' ? calconf_scanproc(c.name, nullptr, 0, h)
                                        : calconf_Delete(h, c.name, c.op[6] - '0');
        EXPECT_EQ(rc, c.result) << c.op << c.name;
        EXPECT_EQ(entries_of(h), c.left) << c.op << c.name;
        EXPECT_EQ(h->dirty, c.result == 0 && c.op[0] != 's' ? 1 : 0);
        for (const char *n : {"x", "X", "y", "z", "absent"}) {
            const int i = strarray_lastof(h->names, n, 1);
            EXPECT_EQ(calconf_Get(h, n), i < 0 ? nullptr : strarray_elementat(h->values, i)) << c.op << " " << n;
        }
        calconf_Close(&h, 1);
    }
    EXPECT_EQ(read_file(path), "x = 1\ny = 2\nX = 3\n");  // never flushed
}

TEST(CalConf, RefusedNamesAndAFailedOpen) {
    TempDir dir;
    calconf_handle *h = nullptr;
    EXPECT_EQ(calconf_Open(dir.file("missing.conf").c_str(), &h), -1);
    ASSERT_NE(h, nullptr);  // kept, empty, to be filled or closed
    for (const char *bad : {"", "a=b", "#a", " a", "a ", "\ta", "a\nb", "a\rb"})
        EXPECT_EQ(calconf_Modify(h, bad, "v"), -1) << bad;
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
    write_file(path, "zeta = 1\nb_x = u\nAlpha = two words\nbeta = b\nalpha.x = 3\nbeta = last\n");
    calconf_handle *h = nullptr;
    ASSERT_EQ(calconf_Open(path.c_str(), &h), 0);
    ASSERT_EQ(calconf_Modify(h, "mid", "m"), 0);
    EXPECT_EQ(calconf_CloseQuick(&h, 0), 0);
    // Sorted ignoring case, letters folded upper case so that '_' comes
    // after them; the two "beta" entries keep their order.
    EXPECT_EQ(read_file(path),
              "Alpha = \"two words\"\nalpha.x = 3\nbeta = b\nbeta = last\nb_x = u\nmid = m\nzeta = 1\n");
    EXPECT_EQ(entries_in(dir.path()), 1u);
    ASSERT_EQ(calconf_Open(path.c_str(), &h), 0);
    EXPECT_STREQ(calconf_Get(h, "beta"), "last");
    ASSERT_EQ(calconf_Modify(h, "gone", "g"), 0);
    EXPECT_EQ(calconf_CloseQuick(&h, 1), 0);  // noFlush: dropped
    EXPECT_EQ(read_file(path).find("gone"), std::string::npos);
}

// A replacement must not widen a private file, and must not turn a link to
// the file into a file of its own: the sorted rewrite and the in-place edit.
TEST(CalConf, ReplacementKeepsTheModeAndFollowsLinks) {
    const std::pair<const char *, std::function<int(const char *)>> replacers[] = {
        {"quick close",
         [](const char *path) {
             calconf_handle *h = nullptr;
             if (calconf_Open(path, &h) != 0 || calconf_Modify(h, "a", "2") != 0) return -1;
             return calconf_CloseQuick(&h, 0);
         }},
        {"in-place edit", [](const char *path) { return config_file_set(path, "a", "2"); }},
    };
    for (const auto &[label, replace] : replacers) {
        SCOPED_TRACE(label);
        TempDir dir;
        const std::string real = dir.file("real.conf"), link = dir.file("link.conf");
        write_file(real, "a = 1\n");
        ASSERT_EQ(::chmod(real.c_str(), 0600), 0);
        const bool root = ::geteuid() == 0;  // only root may give a file away
        if (root) {
            ASSERT_EQ(::chown(real.c_str(), 1, 1), 0);
        }
        ASSERT_EQ(::symlink("real.conf", link.c_str()), 0);
        ASSERT_EQ(replace(link.c_str()), 0);
        struct stat st {};
        ASSERT_EQ(::lstat(link.c_str(), &st), 0);
        EXPECT_TRUE(S_ISLNK(st.st_mode));
        ASSERT_EQ(::stat(real.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, 0600u);
        if (root) {
            EXPECT_EQ(st.st_uid, 1u);
        }
        EXPECT_EQ(read_file(real), "a = 2\n");
        EXPECT_EQ(entries_in(dir.path()), 2u);  // no temporary left
    }
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
    EXPECT_EQ(entries_in(dir.path()), 1u);
    EXPECT_EQ(read_file(dir.file("target/inside")), "x");
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
        if (pid == 0) orvtest::exit_child(calconf_CloseQuick(&h, 0) == 0 ? 0 : 1);
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
    int killed = 0, saw_old = 0;
    for (int round = 0; round < 60; ++round) {
        write_file(path, old_text);
        pid = run_child();
        ASSERT_GT(pid, 0);
        usleep(static_cast<useconds_t>(delay(rng)));
        kill(pid, SIGKILL);
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        const Entries got = load(path);
        ASSERT_TRUE(got == old_entries || got == new_entries) << "round " << round << ": " << got.size() << " entries";
        saw_old += got == old_entries;
        if (WIFEXITED(status)) {
            ASSERT_EQ(WEXITSTATUS(status), 0);
            ASSERT_EQ(got, new_entries);
            ASSERT_EQ(entries_in(dir.path()), 1u) << "round " << round;
        } else {
            ++killed;
            // A killed close may leave its temporary: clear it for the next round.
            for (const auto &e : std::filesystem::directory_iterator(dir.path()))
                if (e.path() != path) std::filesystem::remove(e.path());
        }
    }
    calconf_Close(&h, 1);
    EXPECT_GT(killed, 0);
    EXPECT_GT(saw_old, 0);  // some kills came before the rename
}

}  // namespace
