#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "orvtest.hpp"
#include "orvutil/cal_file.h"

namespace {

using orvtest::file_exists;
using orvtest::read_file;
using orvtest::TempDir;
using orvtest::write_file;

std::vector<std::string> listing(const std::string &dir) {
    std::vector<std::string> names;
    for (const auto &e : std::filesystem::directory_iterator(dir)) names.push_back(e.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

bool is_dir(const std::string &path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

TEST(CalFile, PathConversion) {
    struct Case {
        const char *in;
        const char *to_unix;
        const char *to_dos;
    };
    const Case cases[] = {
        {"C:\\a\\b", "/a/b", "C:\\a\\b"}, {"a:", "", "a:"},       {"/x/y", "/x/y", "\\x\\y"},
        {"dir\\f.txt", "dir/f.txt", "dir\\f.txt"}, {"", "", ""},  {"c", "c", "c"},
        {"ab:c", "ab:c", "ab:c"},
    };
    for (const auto &c : cases) {
        std::string u = c.in, d = c.in;
        calfile_ToLocalPath(u.data());
        calfile_UnixToDosPath(d.data());
        EXPECT_STREQ(u.c_str(), c.to_unix) << c.in;
        EXPECT_STREQ(d.c_str(), c.to_dos) << c.in;
    }
    calfile_DosToUnixPath(nullptr);
    calfile_UnixToDosPath(nullptr);
}

TEST(CalFile, CopyKeepsBytesAcrossChunkBoundaries) {
    TempDir dir;
    for (size_t size : {0u, 1u, 4095u, 4096u, 4097u, 3 * 4096u + 17}) {
        std::string data(size, '\0');
        for (size_t i = 0; i < size; ++i) data[i] = static_cast<char>(i * 31 + size);
        write_file(dir.file("src"), data);
        ASSERT_EQ(calfile_CopyFile(dir.file("src").c_str(), dir.file("dst").c_str(), 0), 0) << size;
        EXPECT_EQ(read_file(dir.file("dst")), data) << size;
    }
}

TEST(CalFile, CopyOverwriteRules) {
    TempDir dir;
    write_file(dir.file("a"), "new");
    write_file(dir.file("b"), "old content");
    EXPECT_EQ(calfile_CopyFile(dir.file("a").c_str(), dir.file("b").c_str(), 1), -1);
    EXPECT_EQ(read_file(dir.file("b")), "old content");
    EXPECT_EQ(calfile_CopyFile(dir.file("a").c_str(), dir.file("b").c_str(), 0), 0);
    EXPECT_EQ(read_file(dir.file("b")), "new");

    ::mkdir(dir.file("from").c_str(), 0755);
    ::mkdir(dir.file("to").c_str(), 0755);
    write_file(dir.file("from/x"), "source");
    write_file(dir.file("to/x"), "kept");
    EXPECT_EQ(calfile_CopySourceFile("x", dir.file("from").c_str(), dir.file("to").c_str()), -1);
    EXPECT_EQ(read_file(dir.file("to/x")), "kept");
    write_file(dir.file("from/y"), "why");
    EXPECT_EQ(calfile_CopySourceFile("y", dir.file("from").c_str(), dir.file("to").c_str()), 0);
    EXPECT_EQ(read_file(dir.file("to/y")), "why");
}

TEST(CalFile, CopyFailuresLoseNothing) {
    TempDir dir;
    write_file(dir.file("keep"), "precious");
    ::mkdir(dir.file("sub").c_str(), 0755);
    struct Case {
        std::string src, dst;
    };
    const Case cases[] = {
        {dir.file("missing"), dir.file("out1")},        // no source
        {dir.file("sub"), dir.file("out2")},            // a directory is not a regular file
        {dir.file("keep"), dir.file("nodir/out3")},     // destination directory missing
        {dir.file("keep"), dir.file("keep")},           // onto itself
        {dir.file("keep"), dir.file("./keep")},         // onto itself under another name
    };
    for (const auto &c : cases) EXPECT_EQ(calfile_CopyFile(c.src.c_str(), c.dst.c_str(), 0), -1) << c.src;
    EXPECT_EQ(read_file(dir.file("keep")), "precious");
    EXPECT_FALSE(file_exists(dir.file("out1")));
    EXPECT_FALSE(file_exists(dir.file("out2")));
    EXPECT_EQ(calfile_CopyFile(nullptr, dir.file("x").c_str(), 0), -1);
    // A destination that refuses writes.
    if (access("/dev/full", W_OK) == 0) {
        EXPECT_EQ(calfile_CopyFile(dir.file("keep").c_str(), "/dev/full", 0), -1);
    }
}

TEST(CalFile, CopyUnreadableSourceOrReadOnlyTarget) {
    if (geteuid() == 0) GTEST_SKIP() << "permissions do not bind root";
    TempDir dir;
    write_file(dir.file("secret"), "s");
    ::chmod(dir.file("secret").c_str(), 0);
    EXPECT_EQ(calfile_CopyFile(dir.file("secret").c_str(), dir.file("out").c_str(), 0), -1);
    write_file(dir.file("src"), "new");
    write_file(dir.file("ro"), "old");
    ::chmod(dir.file("ro").c_str(), 0444);
    EXPECT_EQ(calfile_CopyFile(dir.file("src").c_str(), dir.file("ro").c_str(), 0), -1);
    EXPECT_EQ(read_file(dir.file("ro")), "old");
}

TEST(CalFile, CopyOfASourceShorterThanItsSizeStops) {
    // Kernel attribute files report 4096 bytes but read back fewer: the same
    // as a source that shrank after its size was taken.
    const char *candidates[] = {"/sys/kernel/mm/transparent_hugepage/enabled", "/sys/devices/system/cpu/online",
                                "/sys/class/net/lo/address"};
    const char *source = nullptr;
    for (const char *c : candidates) {
        struct stat st;
        if (::stat(c, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0 &&
            read_file(c).size() < static_cast<size_t>(st.st_size)) {
            source = c;
            break;
        }
    }
    if (source == nullptr) GTEST_SKIP() << "no short kernel file";
    TempDir dir;
    EXPECT_EQ(calfile_CopyFile(source, dir.file("out").c_str(), 0), -1);
    EXPECT_EQ(read_file(dir.file("out")), read_file(source));  // the partial copy stays
}

TEST(CalFile, RenameReplacesOrRestores) {
    TempDir dir;
    write_file(dir.file("a"), "A");
    EXPECT_EQ(calfile_RenameFile(dir.file("a").c_str(), dir.file("b").c_str()), 0);
    EXPECT_EQ(read_file(dir.file("b")), "A");
    EXPECT_FALSE(file_exists(dir.file("a")));

    write_file(dir.file("c"), "C");
    EXPECT_EQ(calfile_RenameFile(dir.file("c").c_str(), dir.file("b").c_str()), 0);
    EXPECT_EQ(read_file(dir.file("b")), "C");

    // The rename of a missing file fails after the target was deleted: the
    // target's old content comes back.
    EXPECT_EQ(calfile_RenameFile(dir.file("gone").c_str(), dir.file("b").c_str()), -1);
    EXPECT_EQ(read_file(dir.file("b")), "C");
    // No temporary file is left beside the target.
    EXPECT_EQ(listing(dir.path()), std::vector<std::string>{"b"});

    ::mkdir(dir.file("d1").c_str(), 0755);
    ::mkdir(dir.file("d2").c_str(), 0755);
    write_file(dir.file("d1/f"), "F");
    EXPECT_EQ(calfile_RenameSourceFile("f", dir.file("d1").c_str(), dir.file("d2").c_str()), 0);
    EXPECT_EQ(read_file(dir.file("d2/f")), "F");
    EXPECT_EQ(calfile_DeleteSourceFile("f", dir.file("d2").c_str()), 0);
    EXPECT_EQ(calfile_DeleteSourceFile("f", dir.file("d2").c_str()), -1);
    EXPECT_EQ(calfile_DeleteFile(dir.file("b").c_str()), 0);
    EXPECT_EQ(calfile_DeleteFile(dir.file("b").c_str()), -1);
}

TEST(CalFile, RenameLeavesNoTemporaryBehind) {
    TempDir dir;
    write_file(dir.file("old"), "1");
    write_file(dir.file("new"), "2");
    ASSERT_EQ(calfile_RenameFile(dir.file("old").c_str(), dir.file("new").c_str()), 0);
    ASSERT_EQ(calfile_RenameFile(dir.file("none").c_str(), dir.file("new").c_str()), -1);
    EXPECT_EQ(listing(dir.path()), std::vector<std::string>{"new"});
}

TEST(CalFile, MktempFilename) {
    TempDir dir;
    const std::string prefix = dir.file("x");
    char small[64];
    // 6 + prefix + suffix is the size rule.
    const int need = static_cast<int>(6 + prefix.size() + 2);
    std::memset(small, '#', sizeof small);
    EXPECT_EQ(calfile_mktemp_filename(prefix.c_str(), ".y", small, need - 1), -1);
    EXPECT_EQ(small[0], '#');
    EXPECT_EQ(calfile_mktemp_filename("x", ".y", small, 7), -1);
    EXPECT_EQ(calfile_mktemp_filename("x", ".y", nullptr, 100), -1);

    std::vector<char> buf(static_cast<size_t>(need));
    ASSERT_EQ(calfile_mktemp_filename(prefix.c_str(), ".y", buf.data(), need), 0);
    EXPECT_EQ(std::string(buf.data()), prefix + "0.y");
    write_file(prefix + "0.y", "");
    write_file(prefix + "1.y", "");
    ASSERT_EQ(calfile_mktemp_filename(prefix.c_str(), ".y", buf.data(), need), 0);
    EXPECT_EQ(std::string(buf.data()), prefix + "2.y");

    // No prefix: the number stands at the front (relative to the current
    // directory); no suffix.
    char bare[6];
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    write_file(dir.file("0"), "");
    EXPECT_EQ(calfile_mktemp_filename(nullptr, nullptr, bare, sizeof bare), 0);
    EXPECT_STREQ(bare, "1");
    ASSERT_EQ(chdir("/"), 0);
}

TEST(CalFile, MktempFilenameCutsNumbersToFourDigits) {
    TempDir dir;
    // Names 0..9999 with 1000 missing: the search passes 9999, and 10000 is
    // cut to "1000", which is free.
    for (int i = 0; i < 10000; ++i)
        if (i != 1000) write_file(dir.file("n" + std::to_string(i)), "");
    const std::string prefix = dir.file("n");
    std::vector<char> buf(prefix.size() + 6);
    ASSERT_EQ(calfile_mktemp_filename(prefix.c_str(), nullptr, buf.data(), static_cast<int>(buf.size())), 0);
    EXPECT_EQ(std::string(buf.data()), prefix + "1000");
}

TEST(CalFile, MkdirRecursive) {
    TempDir dir;
    orvtest::LogCapture log;
    std::string deep = dir.file("a/b/c/d");
    EXPECT_EQ(calfile_mkdir_recursive(deep.data()), 0);
    EXPECT_EQ(deep, dir.file("a/b/c/d"));  // restored
    EXPECT_TRUE(is_dir(deep));
    EXPECT_EQ(calfile_mkdir_recursive(deep.data()), 0);  // exists already
    std::string trailing = dir.file("t/u/");
    EXPECT_EQ(calfile_mkdir_recursive(trailing.data()), 0);
    EXPECT_TRUE(is_dir(dir.file("t/u")));
    EXPECT_TRUE(log.records().empty());

    // A drive prefix is never created: here "C:" does not exist, so the
    // levels below it cannot be made either.
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    std::string drive = "C:/q/r";
    EXPECT_EQ(calfile_mkdir_recursive(drive.data()), -1);
    EXPECT_FALSE(file_exists(dir.file("C:")));
    ::mkdir(dir.file("C:").c_str(), 0755);
    EXPECT_EQ(calfile_mkdir_recursive(drive.data()), 0);
    EXPECT_TRUE(is_dir(dir.file("C:/q/r")));
    ASSERT_EQ(chdir("/"), 0);
}

TEST(CalFile, MkdirRecursiveLogsItsFailure) {
    TempDir dir;
    write_file(dir.file("plain"), "x");
    orvtest::LogCapture log;
    std::string blocked = dir.file("plain/sub/leaf");
    EXPECT_EQ(calfile_mkdir_recursive(blocked.data()), -1);
    EXPECT_EQ(blocked, dir.file("plain/sub/leaf"));
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_EQ(log.records()[0].level, 3);
    EXPECT_EQ(log.records()[0].message,
              "UTIL: Unable to create directory " + blocked + ": " + std::strerror(ENOTDIR));
}

TEST(CalFile, DeleteDirKeepsHiddenFiles) {
    TempDir dir;
    ::mkdir(dir.file("d").c_str(), 0755);
    write_file(dir.file("d/one"), "1");
    write_file(dir.file("d/two"), "2");
    EXPECT_EQ(calfile_delete_dir(dir.file("d").c_str()), 0);
    EXPECT_FALSE(file_exists(dir.file("d")));

    ::mkdir(dir.file("h").c_str(), 0755);
    write_file(dir.file("h/.hidden"), "h");
    write_file(dir.file("h/seen"), "s");
    EXPECT_EQ(calfile_delete_dir(dir.file("h").c_str()), 0);
    EXPECT_TRUE(file_exists(dir.file("h/.hidden")));
    EXPECT_FALSE(file_exists(dir.file("h/seen")));
    EXPECT_EQ(calfile_delete_dir(nullptr), 0);
    EXPECT_EQ(calfile_delete_dir(dir.file("missing").c_str()), 0);
}

TEST(CalFile, DeleteDirRecursiveDescendsTwoLevels) {
    TempDir dir;
    const std::string top = dir.file("top");
    ::mkdir(top.c_str(), 0755);
    write_file(top + "/file", "kept: plain files in top stay");
    ::mkdir((top + "/s1").c_str(), 0755);
    write_file(top + "/s1/f", "gone");
    ::mkdir((top + "/s2").c_str(), 0755);
    ::mkdir((top + "/s2/deeper").c_str(), 0755);
    write_file(top + "/s2/deeper/f", "kept: third level");
    EXPECT_EQ(calfile_delete_dir_recursive(top.c_str()), 0);
    EXPECT_TRUE(file_exists(top + "/file"));
    EXPECT_FALSE(file_exists(top + "/s1"));
    EXPECT_TRUE(file_exists(top + "/s2/deeper/f"));

    ::mkdir(dir.file("empty").c_str(), 0755);
    ::mkdir(dir.file("empty/a").c_str(), 0755);
    EXPECT_EQ(calfile_delete_dir_recursive(dir.file("empty").c_str()), 0);
    EXPECT_FALSE(file_exists(dir.file("empty")));
    EXPECT_EQ(calfile_delete_dir_recursive(nullptr), 0);
}

}  // namespace
