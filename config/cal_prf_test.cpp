#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <prio.h>

#include "orvtest.hpp"
#include "orvutil/cal_prf.h"

namespace {

using orvtest::file_exists;
using orvtest::read_file;
using orvtest::TempDir;
using orvtest::write_file;

TEST(CalPrf, UniqueFilesAreNumberedOrStandardOutput) {
    TempDir dir;
    write_file(dir.file("calprf0.prf"), "");
    write_file(dir.file("calprf1.prf"), "");
    const std::pair<const char *, const char *> cases[] = {
        {nullptr, "calprf2.prf"}, {"", "calprf3.prf"}, {"t", "t0.prf"}};
    for (const auto &[prefix, expect] : cases) {
        PRFileDesc *fd = calprf_GetUniqueFileDesc(dir.path().c_str(), prefix);
        ASSERT_EQ(PR_Write(fd, "x", 1), 1);
        ASSERT_EQ(PR_Close(fd), PR_SUCCESS);
        EXPECT_EQ(read_file(dir.file(expect)), "x") << expect;
    }
    PRFileDesc *out = PR_GetSpecialFD(PR_StandardOutput);
    EXPECT_EQ(calprf_GetUniqueFileDesc(nullptr, "x"), out);
    EXPECT_EQ(calprf_GetUniqueFileDesc(dir.file("missing").c_str(), nullptr), out);
    EXPECT_EQ(calprf_GetUniqueFileDesc(std::string(CALPRF_PATH_SIZE, 'd').c_str(), nullptr), out);
}

TEST(CalPrf, InitializeDeletesEveryNameHoldingPrf) {
    TempDir dir;
    for (const char *name : {"a.prf", "x.prf.old", ".h.prf", "keep.txt"}) write_file(dir.file(name), "");
    const std::string err = orvtest::capture_output([&] {
                                calprf_Initialize(dir.path().c_str(), 1);
                                return 0;
                            }).err;
    for (const char *name : {"a.prf", "x.prf.old", ".h.prf"}) EXPECT_FALSE(file_exists(dir.file(name))) << name;
    EXPECT_TRUE(file_exists(dir.file("keep.txt")));
    EXPECT_NE(err.find("calprf: Nuking prf files in directory " + dir.path() + "\n"), std::string::npos);
    EXPECT_NE(err.find("calprf: Nuking prf files x.prf.old\n"), std::string::npos);
}

TEST(CalPrf, AggregateAppendsInCaseInsensitiveOrder) {
    TempDir dir, elsewhere;
    write_file(dir.file("b.prf"), "bee\n");
    write_file(dir.file("A.prf"), "ay\n");
    write_file(dir.file("other"), "no\n");
    write_file(elsewhere.file("z.prf"), "far\n");
    const std::string target = dir.file("all.out");
    const auto old = std::filesystem::current_path();
    std::filesystem::current_path(dir.path());  // names are opened bare
    const std::string err = orvtest::capture_output([&] {
                                calprf_Aggregate(".", target.c_str(), 1);
                                return 0;
                            }).err;
    calprf_Aggregate(elsewhere.path().c_str(), target.c_str(), 0);  // z.prf is not found from here
    std::filesystem::create_directories(dir.file("d"));
    calprf_Aggregate(".", dir.file("d").c_str(), 0);  // a directory target is left alone
    calprf_Aggregate(dir.file("d").c_str(), dir.file("empty.out").c_str(), 0);
    std::filesystem::current_path(old);
    EXPECT_EQ(read_file(target), "ay\nbee\n");
    EXPECT_EQ(err, "calprf: Aggregating prf files to file " + target +
                       "\ncalprf: Aggregating prf files in directory .\n"
                       "calprf: Sucking in file A.prf\ncalprf: Sucking in file b.prf\n");
    EXPECT_TRUE(std::filesystem::is_empty(dir.file("d")));
    EXPECT_TRUE(file_exists(dir.file("empty.out")));
}

}  // namespace
