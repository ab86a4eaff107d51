#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <prio.h>

#include "orvtest.hpp"
#include "orvutil/cal_prf.h"

namespace {

using orvtest::file_exists;
using orvtest::read_file;
using orvtest::TempDir;
using orvtest::write_file;

// Runs in dir for the scope (aggregation opens bare names).
class InDir {
public:
    explicit InDir(const std::string &dir) : old_(std::filesystem::current_path()) { std::filesystem::current_path(dir); }
    ~InDir() { std::filesystem::current_path(old_); }

private:
    std::filesystem::path old_;
};

// Opens a profiling file, writes text into it and closes it.
bool write_unique(const char *dir, const char *prefix, const std::string &text) {
    PRFileDesc *fd = calprf_GetUniqueFileDesc(dir, prefix);
    if (fd == nullptr || fd == PR_GetSpecialFD(PR_StandardOutput)) return false;
    const bool ok = PR_Write(fd, text.data(), static_cast<PRInt32>(text.size())) == static_cast<PRInt32>(text.size());
    return PR_Close(fd) == PR_SUCCESS && ok;
}

TEST(CalPrf, UniqueFilesAreNumbered) {
    TempDir dir;
    write_file(dir.file("calprf0.prf"), "");
    write_file(dir.file("calprf1.prf"), "");
    ASSERT_TRUE(write_unique(dir.path().c_str(), nullptr, "two"));
    EXPECT_EQ(read_file(dir.file("calprf2.prf")), "two");
    ASSERT_TRUE(write_unique(dir.path().c_str(), "", "three"));  // empty prefix: the default
    EXPECT_EQ(read_file(dir.file("calprf3.prf")), "three");
    ASSERT_TRUE(write_unique(dir.path().c_str(), "tool", "t"));
    EXPECT_EQ(read_file(dir.file("tool0.prf")), "t");
}

TEST(CalPrf, UnusableDirectoriesFallBackToStandardOutput) {
    PRFileDesc *out = PR_GetSpecialFD(PR_StandardOutput);
    EXPECT_EQ(calprf_GetUniqueFileDesc(nullptr, "x"), out);
    TempDir dir;
    EXPECT_EQ(calprf_GetUniqueFileDesc(dir.file("missing").c_str(), nullptr), out);
    const std::string too_long(CALPRF_PATH_SIZE, 'd');
    EXPECT_EQ(calprf_GetUniqueFileDesc(too_long.c_str(), nullptr), out);
}

TEST(CalPrf, InitializeDeletesEveryNameHoldingPrf) {
    TempDir dir;
    for (const char *name : {"a.prf", "x.prf.old", ".hidden.prf", "keep.txt", "prf"}) write_file(dir.file(name), "");
    ::mkdir(dir.file("sub.prf").c_str(), 0755);  // cannot be deleted as a file: stays
    testing::internal::CaptureStderr();
    calprf_Initialize(dir.path().c_str(), 1);
    const std::string err = testing::internal::GetCapturedStderr();
    for (const char *name : {"a.prf", "x.prf.old", ".hidden.prf"}) EXPECT_FALSE(file_exists(dir.file(name))) << name;
    for (const char *name : {"keep.txt", "prf", "sub.prf"}) EXPECT_TRUE(file_exists(dir.file(name))) << name;
    EXPECT_NE(err.find("calprf: Nuking prf files in directory " + dir.path() + "\n"), std::string::npos);
    EXPECT_NE(err.find("calprf: Nuking prf files x.prf.old\n"), std::string::npos);
    EXPECT_EQ(err.find("keep.txt"), std::string::npos);

    testing::internal::CaptureStderr();
    calprf_Initialize(dir.file("missing").c_str(), 0);
    calprf_Initialize(nullptr, 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(CalPrf, AggregateAppendsInCaseInsensitiveOrder) {
    TempDir dir;
    write_file(dir.file("b.prf"), "bee\n");
    write_file(dir.file("A.prf"), "ay\n");
    write_file(dir.file("c.prf.old"), "sea\n");
    write_file(dir.file("other"), "no\n");
    const std::string target = dir.file("all.out");
    write_file(target, "head\n");
    InDir in(dir.path());
    testing::internal::CaptureStderr();
    calprf_Aggregate(".", target.c_str(), 1);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(read_file(target), "head\nay\nbee\nsea\n");
    EXPECT_EQ(read_file(dir.file("b.prf")), "bee\n");  // sources unchanged
    EXPECT_EQ(err,
              "calprf: Aggregating prf files to file " + target +
                  "\ncalprf: Aggregating prf files in directory .\n"
                  "calprf: Sucking in file A.prf\ncalprf: Sucking in file b.prf\n"
                  "calprf: Sucking in file c.prf.old\n");
}

TEST(CalPrf, AggregateEdgeCases) {
    TempDir dir, elsewhere;
    write_file(dir.file("only.txt"), "x");
    const std::string target = dir.file("t.out");
    InDir in(dir.path());
    calprf_Aggregate(dir.path().c_str(), target.c_str(), 0);  // no ".prf" entry
    EXPECT_TRUE(file_exists(target));
    EXPECT_EQ(read_file(target), "");

    // Names are opened relative to the current directory: files of another
    // directory are not found from here.
    write_file(elsewhere.file("z.prf"), "far");
    calprf_Aggregate(elsewhere.path().c_str(), target.c_str(), 0);
    EXPECT_EQ(read_file(target), "");

    // A target that is a directory is left alone.
    ::mkdir(dir.file("d").c_str(), 0755);
    write_file(dir.file("a.prf"), "a");
    calprf_Aggregate(".", dir.file("d").c_str(), 0);
    EXPECT_TRUE(std::filesystem::is_empty(dir.file("d")));
}

}  // namespace
