#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <fcntl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include "orvutil/platform/prot.h"
#include "orvtest.hpp"

namespace {

std::string memory_text(protstream *s) {
    size_t len = 0;
    const char *data = prot_memory_data(s, &len);
    return data ? std::string(data, len) : std::string();
}

TEST(Prot, PutFlushesExactlyWhenTheBufferFills) {
    protstream *s = prot_new_memory(4);
    ASSERT_NE(s, nullptr);
    for (char c : std::string("abc")) EXPECT_EQ(prot_putc(c, s), 0);
    EXPECT_EQ(s->cnt, 1);
    EXPECT_EQ(s->ptr - s->buf, 3);
    EXPECT_EQ(prot_putc('d', s), 0);  // fourth byte: free count reaches zero, flushed
    EXPECT_EQ(s->cnt, 4);
    EXPECT_EQ(s->ptr, s->buf);
    EXPECT_EQ(memory_text(s), "abcd");
    prot_free(s);
}

TEST(Prot, WriteMatchesBytewisePutsAcrossBufferSizes) {
    std::string text;
    for (int i = 0; i < 1000; ++i) text += static_cast<char>(i * 7);  // NUL bytes included
    for (int bufsize : {1, 2, 3, 7, 64, 4096}) {
        protstream *bulk = prot_new_memory(bufsize);
        protstream *bytes = prot_new_memory(bufsize);
        ASSERT_EQ(prot_write(bulk, text.data(), 333), 0);
        ASSERT_EQ(prot_write(bulk, text.data() + 333, text.size() - 333), 0);
        for (char c : text) prot_putc(c, bytes);
        // Same flush points: same pending bytes.
        EXPECT_EQ(bulk->cnt, bytes->cnt) << bufsize;
        EXPECT_EQ(memory_text(bulk), text) << bufsize;
        EXPECT_EQ(memory_text(bytes), text) << bufsize;
        prot_free(bulk);
        prot_free(bytes);
    }
}

TEST(Prot, StoppedStreamDropsEveryByte) {
    for (bool use_eof : {false, true}) {
        protstream *s = prot_new_memory(8);
        prot_write(s, "kept", 4);
        (use_eof ? s->eof : s->error) = 1;
        EXPECT_EQ(prot_putc('x', s), -1);
        EXPECT_EQ(prot_write(s, "dropped", 7), -1);
        EXPECT_EQ(prot_printf(s, "%d", 42), -1);
        EXPECT_EQ(prot_flush(s), -1);
        (use_eof ? s->eof : s->error) = 0;
        // The pending bytes of a stopped stream are discarded by its flush.
        EXPECT_EQ(memory_text(s), "");
        prot_memory_clear(s);
        prot_free(s);
    }
}

TEST(Prot, PrintfFormatsShortAndLongTexts) {
    protstream *s = prot_new_memory(16);
    const std::string big(5000, 'z');
    EXPECT_EQ(prot_printf(s, "%s=%d;", "n", -7), 0);
    EXPECT_EQ(prot_printf(s, "%s", big.c_str()), 0);
    EXPECT_EQ(memory_text(s), "n=-7;" + big);
    prot_memory_clear(s);
    EXPECT_EQ(memory_text(s), "");
    prot_free(s);
}

TEST(Prot, DescriptorStreamWritesToTheFile) {
    orvtest::TempDir dir;
    const std::string path = dir.file("out");
    const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    protstream *s = prot_new(fd, 1);
    ASSERT_NE(s, nullptr);
    std::string expect;
    for (int i = 0; i < 3000; ++i) {
        prot_printf(s, "line %d\n", i);
        expect += "line " + std::to_string(i) + "\n";
    }
    EXPECT_EQ(prot_flush(s), 0);
    EXPECT_EQ(orvtest::read_file(path), expect);
    prot_write(s, "tail", 4);
    prot_free(s);  // flushes, leaves the descriptor open
    EXPECT_EQ(orvtest::read_file(path), expect + "tail");
    EXPECT_EQ(::close(fd), 0);
}

TEST(Prot, FailedWriteSetsTheErrorFlag) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    ::close(fds[0]);
    auto old = std::signal(SIGPIPE, SIG_IGN);
    protstream *s = prot_new(fds[1], 1);
    prot_write(s, "abc", 3);
    EXPECT_EQ(prot_flush(s), -1);
    EXPECT_EQ(s->error, 1);
    EXPECT_EQ(prot_putc('x', s), -1);
    EXPECT_EQ(s->ptr, s->buf);  // dropped, not stored
    prot_free(s);
    std::signal(SIGPIPE, old);
    ::close(fds[1]);
}

TEST(Prot, BadArguments) {
    EXPECT_EQ(prot_new(-1, 1), nullptr);
    EXPECT_EQ(prot_new(1, 0), nullptr);  // reading streams are not built
    EXPECT_EQ(prot_new_memory(-1), nullptr);
    EXPECT_EQ(prot_new_memory((1 << 20) + 1), nullptr);
    EXPECT_EQ(prot_putc('a', nullptr), -1);
    EXPECT_EQ(prot_write(nullptr, "a", 1), -1);
    EXPECT_EQ(prot_flush(nullptr), -1);
    EXPECT_EQ(prot_printf(nullptr, "x"), -1);
    EXPECT_EQ(prot_memory_data(nullptr, nullptr), nullptr);
    prot_memory_clear(nullptr);
    prot_free(nullptr);
    protstream *s = prot_new(1, 1);
    EXPECT_EQ(prot_memory_data(s, nullptr), nullptr);  // not a memory stream
    EXPECT_EQ(prot_write(s, nullptr, 1), -1);
    EXPECT_EQ(prot_write(s, nullptr, 0), 0);
    prot_free(s);
    EXPECT_EQ(retry_write(1, nullptr, 0), 0);
    errno = 0;
    EXPECT_EQ(retry_write(1, nullptr, 1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(retry_write(-1, "x", 1), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(Prot, RetryWriteDeliversLargeBuffersThroughAPipe) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    // Far more than a pipe holds, written while a timer signal without
    // SA_RESTART keeps interrupting the writer: it sees short writes and
    // EINTR while the reader drains slowly.
    std::string data(1 << 20, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i % 251);
    std::string got;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::close(fds[0]);
        struct sigaction sa {};
        sa.sa_handler = [](int) {};
        sigaction(SIGALRM, &sa, nullptr);
        const itimerval every_ms{{0, 1000}, {0, 1000}};
        setitimer(ITIMER_REAL, &every_ms, nullptr);
        _exit(retry_write(fds[1], data.data(), data.size()) == static_cast<ssize_t>(data.size()) ? 0 : 1);
    }
    ::close(fds[1]);
    char chunk[65536];
    ssize_t n;
    while ((n = ::read(fds[0], chunk, sizeof chunk)) > 0) {
        got.append(chunk, static_cast<size_t>(n));
        ::usleep(500);
    }
    ::close(fds[0]);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(got, data);
}

}  // namespace
