#include <gtest/gtest.h>

#include <unistd.h>

#include <string>

#include "orvutil/platform/protio.h"

namespace {

struct Pipe {
    int fds[2];
    Pipe() { EXPECT_EQ(pipe(fds), 0); }
    ~Pipe() {
        close(fds[0]);
        if (fds[1] >= 0) close(fds[1]);
    }
    void send(const std::string &s) { ASSERT_EQ(write(fds[1], s.data(), s.size()), ssize_t(s.size())); }
    void hang_up() {
        close(fds[1]);
        fds[1] = -1;
    }
};

TEST(ProtInput, LinesBytesAndPiecesAcrossBufferRefills) {
    // A line longer than PROT_BUFSIZE forces refills in the middle of fgets.
    const std::string longline = std::string(PROT_BUFSIZE + 10, 'x') + "\n";
    Pipe p;
    protstream *s = prot_new(p.fds[0], 0);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(prot_putc('a', s), -1);  // output on a reading stream fails
    p.send("USER a\r\nPASS b");
    char buf[8];
    EXPECT_STREQ(prot_fgets(buf, sizeof buf, s), "USER a\r");  // piece of 7
    EXPECT_STREQ(prot_fgets(buf, sizeof buf, s), "\n");
    EXPECT_EQ(prot_getc(s), 'P');
    EXPECT_EQ(prot_ungetc('Q', s), 'Q');
    EXPECT_EQ(prot_getc(s), 'Q');
    char raw[3];
    EXPECT_EQ(prot_read(s, raw, 3), 3);
    EXPECT_EQ(std::string(raw, 3), "ASS");
    p.send("\n" + longline);
    p.hang_up();
    std::string all;
    char big[100];
    while (char *line = prot_fgets(big, sizeof big, s)) all += line;
    EXPECT_EQ(all, " b\n" + longline);
    EXPECT_EQ(s->eof, 1);
    EXPECT_EQ(s->error, 0);
    EXPECT_EQ(prot_getc(s), EOF);
    prot_free(s);
}

TEST(ProtInput, ReadTimeOutSetsTheErrorFlag) {
    Pipe p;
    protstream *s = prot_new(p.fds[0], 0);
    prot_settimeout(s, 1);
    char buf[4];
    EXPECT_EQ(prot_fgets(buf, sizeof buf, s), nullptr);
    EXPECT_EQ(s->error, PROT_ERR_TIMEOUT);
    p.send("late");
    EXPECT_EQ(prot_read(s, buf, 4), 0);  // a stopped stream stays stopped
    prot_free(s);
}

}  // namespace
