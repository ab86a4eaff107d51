#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>

#include "orvproc.hpp"
#include "orvtest.hpp"
#include "orvutil/cal_file.h"

namespace {

using orvtest::file_exists;
using orvtest::read_file;
using orvtest::TempDir;
using orvtest::write_file;

size_t entries(const std::string &dir) {
    size_t n = 0;
    for (auto it = std::filesystem::directory_iterator(dir); it != std::filesystem::directory_iterator(); ++it) ++n;
    return n;
}

TEST(CalFile, PathConversion) {
    const char *cases[][3] = {{"C:\\a\\b", "/a/b", "C:\\a\\b"}, {"a:", "", "a:"}, {"/x/y", "/x/y", "\\x\\y"},
                              {"d\\f", "d/f", "d\\f"},          {"", "", ""},     {"ab:c", "ab:c", "ab:c"}};
    for (const auto &c : cases) {
        std::string u = c[0], d = c[0];
        calfile_ToLocalPath(u.data());
        calfile_UnixToDosPath(d.data());
        EXPECT_STREQ(u.c_str(), c[1]) << c[0];
        EXPECT_EQ(d, c[2]) << c[0];
    }
}

TEST(CalFile, CopyAcrossChunksAndOverwriteRules) {
    TempDir dir;
    for (size_t size : {0u, 4095u, 4096u, 4097u, 3 * 4096u + 17}) {
        std::string data(size, '\0');
        for (size_t i = 0; i < size; ++i) data[i] = static_cast<char>(i * 31 + size);
        write_file(dir.file("src"), data);
        ASSERT_EQ(calfile_CopyFile(dir.file("src").c_str(), dir.file("dst").c_str(), 0), 0) << size;
        EXPECT_EQ(read_file(dir.file("dst")), data) << size;
    }
    write_file(dir.file("dst"), "kept");
    EXPECT_EQ(calfile_CopyFile(dir.file("src").c_str(), dir.file("dst").c_str(), 1), -1);
    EXPECT_EQ(read_file(dir.file("dst")), "kept");
    // The source-file form never overwrites.
    EXPECT_EQ(calfile_CopySourceFile("src", dir.path().c_str(), dir.path().c_str()), -1);
    ::mkdir(dir.file("to").c_str(), 0755);
    EXPECT_EQ(calfile_CopySourceFile("dst", dir.path().c_str(), dir.file("to").c_str()), 0);
    EXPECT_EQ(read_file(dir.file("to/dst")), "kept");
}

TEST(CalFile, CopyFailuresLoseNothing) {
    TempDir dir;
    write_file(dir.file("keep"), "precious");
    const std::pair<std::string, std::string> cases[] = {
        {dir.file("missing"), dir.file("out")},  // no source
        {dir.path(), dir.file("out")},           // a directory is not a regular file
        {dir.file("keep"), dir.file("no/out")},  // destination directory missing
        {dir.file("keep"), dir.file("./keep")},  // onto itself under another name
        {dir.file("keep"), "/dev/full"},         // every write fails
    };
    for (const auto &[src, dst] : cases) EXPECT_EQ(calfile_CopyFile(src.c_str(), dst.c_str(), 0), -1) << dst;
    EXPECT_EQ(read_file(dir.file("keep")), "precious");
    EXPECT_FALSE(file_exists(dir.file("out")));
}

// Runs body as the unprivileged user "nobody" when the tests run as root,
// where permission bits do not bind; true when body returned true.
bool run_unprivileged(const std::function<bool()> &body) {
    if (geteuid() != 0) return body();
    return orvtest::in_child([&] { return setgid(65534) == 0 && setuid(65534) == 0 && body() ? 0 : 1; }) == 0;
}

TEST(CalFile, UnreadableSourcesAndReadOnlyTargets) {
    TempDir dir;
    ::chmod(dir.path().c_str(), 0777);
    write_file(dir.file("secret"), "s");
    write_file(dir.file("ro"), "old");
    ::chmod(dir.file("secret").c_str(), 0);
    ::chmod(dir.file("ro").c_str(), 0444);
    const bool refused = run_unprivileged([&dir] {
        return calfile_CopyFile(dir.file("secret").c_str(), dir.file("out").c_str(), 0) == -1 &&
               calfile_CopyFile(dir.file("ro").c_str(), dir.file("secret").c_str(), 0) == -1 &&
               calfile_CopyFile(dir.file("secret").c_str(), dir.file("ro").c_str(), 0) == -1;
    });
    EXPECT_TRUE(refused);
    EXPECT_EQ(read_file(dir.file("ro")), "old");
}

TEST(CalFile, CopyOfASourceShorterThanItsSizeStops) {
    // Kernel attribute files report 4096 bytes and read back fewer, as a
    // source that shrank during the copy does.
    const char *source = "/sys/devices/system/cpu/online";
    struct stat st;
    if (::stat(source, &st) != 0 || read_file(source).size() >= static_cast<size_t>(st.st_size))
        GTEST_SKIP() << "no short kernel file";
    TempDir dir;
    EXPECT_EQ(calfile_CopyFile(source, dir.file("out").c_str(), 0), -1);
    EXPECT_EQ(read_file(dir.file("out")), read_file(source));  // the partial copy stays
}

TEST(CalFile, RenameReplacesOrRestores) {
    TempDir dir;
    write_file(dir.file("a"), "A");
    write_file(dir.file("b"), "B");
    EXPECT_EQ(calfile_RenameFile(dir.file("a").c_str(), dir.file("b").c_str()), 0);
    EXPECT_EQ(read_file(dir.file("b")), "A");
    // The rename of a missing file fails after the target was deleted: the
    // target's content comes back, and no temporary file stays.
    EXPECT_EQ(calfile_RenameSourceFile("gone", dir.path().c_str(), dir.path().c_str()), -1);
    EXPECT_EQ(calfile_RenameFile(dir.file("gone").c_str(), dir.file("b").c_str()), -1);
    EXPECT_EQ(read_file(dir.file("b")), "A");
    EXPECT_EQ(entries(dir.path()), 1u);
    EXPECT_EQ(calfile_DeleteSourceFile("b", dir.path().c_str()), 0);
    EXPECT_EQ(calfile_DeleteFile(dir.file("b").c_str()), -1);
}

TEST(CalFile, MktempFilename) {
    TempDir dir;
    char buf[256];
    std::memset(buf, '#', sizeof buf);
    EXPECT_EQ(calfile_mktemp_filename("x", ".y", buf, 8), -1);  // needs 6 + 1 + 2
    EXPECT_EQ(buf[0], '#');
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    EXPECT_EQ(calfile_mktemp_filename("x", ".y", buf, 9), 0);
    EXPECT_STREQ(buf, "x0.y");
    write_file(dir.file("x0.y"), "");
    write_file(dir.file("x1.y"), "");
    EXPECT_EQ(calfile_mktemp_filename("x", ".y", buf, 9), 0);
    EXPECT_STREQ(buf, "x2.y");
    ASSERT_EQ(chdir("/"), 0);
}

TEST(CalFile, MkdirRecursive) {
    TempDir dir;
    orvtest::LogCapture log;
    std::string deep = dir.file("a/b/c/");
    EXPECT_EQ(calfile_mkdir_recursive(deep.data()), 0);
    EXPECT_EQ(calfile_mkdir_recursive(deep.data()), 0);
    EXPECT_EQ(deep, dir.file("a/b/c/"));  // restored
    EXPECT_TRUE(std::filesystem::is_directory(deep));
    EXPECT_TRUE(log.records().empty());
    // A drive prefix is never created, so the levels below a missing "C:"
    // cannot be made.
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    std::string drive = "C:/q/r";
    EXPECT_EQ(calfile_mkdir_recursive(drive.data()), -1);
    EXPECT_FALSE(file_exists(dir.file("C:")));
    ASSERT_EQ(chdir("/"), 0);

    write_file(dir.file("plain"), "x");
    log.clear();
    std::string blocked = dir.file("plain/sub/leaf");
    EXPECT_EQ(calfile_mkdir_recursive(blocked.data()), -1);
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_EQ(log.records()[0].level, 3);
    EXPECT_EQ(log.records()[0].message, "UTIL: Unable to create directory " + blocked + ": " + std::strerror(ENOTDIR));
}

TEST(CalFile, DirectoryDeletersKeepTheirLimits) {
    TempDir dir;
    const std::string top = dir.file("top");
    std::filesystem::create_directories(top + "/s1");
    std::filesystem::create_directories(top + "/s2/deeper");
    std::filesystem::create_directories(dir.file("h"));
    for (const char *f : {"top/file", "top/s1/f", "top/s2/deeper/f", "h/.hidden", "h/seen"})
        write_file(dir.file(f), "");

    EXPECT_EQ(calfile_delete_dir(dir.file("h").c_str()), 0);
    EXPECT_TRUE(file_exists(dir.file("h/.hidden")));  // kept, so "h" stays too
    EXPECT_FALSE(file_exists(dir.file("h/seen")));
    // Two levels exactly: files in top and the third level stay.
    EXPECT_EQ(calfile_delete_dir_recursive(top.c_str()), 0);
    EXPECT_TRUE(file_exists(top + "/file"));
    EXPECT_FALSE(file_exists(top + "/s1"));
    EXPECT_TRUE(file_exists(top + "/s2/deeper/f"));
}

}  // namespace
