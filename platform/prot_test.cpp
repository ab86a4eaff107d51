#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <csignal>
#include <cstring>
#include <string>

#include "orvproc.hpp"
#include "orvtest.hpp"
#include "orvutil/platform/prot.h"

namespace {

std::string memory_text(protstream *s) {
    size_t len = 0;
    const char *data = prot_memory_data(s, &len);
    return data ? std::string(data, len) : std::string("<NULL>");
}

TEST(Prot, WriteAndPrintfMatchBytewisePuts) {
    std::string text(5000, '\0');
    for (size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>(i * 7);  // NULs included
    protstream *s = prot_new_memory(4);
    for (char c : std::string("abcd")) prot_putc(c, s);
    EXPECT_EQ(s->cnt, 4);  // the fourth byte brought the free count to zero: flushed
    EXPECT_EQ(memory_text(s), "abcd");
    prot_free(s);
    for (int bufsize : {1, 3, 64, 0}) {
        protstream *bulk = prot_new_memory(bufsize), *bytes = prot_new_memory(bufsize);
        protstream *held = prot_new_memory(bufsize);
        prot_write(bulk, text.data(), 333);
        prot_write(bulk, text.data() + 333, text.size() - 333);
        EXPECT_EQ(prot_printf(bulk, "%s=%d;%s", "n", -7, std::string(600, 'z').c_str()), 0);
        const std::string all = text + "n=-7;" + std::string(600, 'z');
        for (char c : all) prot_putc(c, bytes);
        // The same bytes stored through reserve/commit, in pieces of at
        // most 7 so that commits both fill and leave room.
        for (size_t at = 0; at < all.size();) {
            size_t room = 0;
            unsigned char *w = prot_reserve(held, &room);
            ASSERT_NE(w, nullptr);
            const size_t n = std::min<size_t>({room, 7, all.size() - at});
            std::memcpy(w, all.data() + at, n);
            ASSERT_EQ(prot_commit(held, n), 0);
            at += n;
        }
        EXPECT_EQ(bulk->cnt, bytes->cnt) << bufsize;  // same flush points
        EXPECT_EQ(held->cnt, bytes->cnt) << bufsize;
        EXPECT_EQ(memory_text(bulk), memory_text(bytes)) << bufsize;
        EXPECT_EQ(memory_text(held), memory_text(bytes)) << bufsize;
        EXPECT_EQ(prot_commit(held, static_cast<size_t>(held->cnt) + 1), -1);
        prot_memory_clear(bulk);
        EXPECT_EQ(memory_text(bulk), "");
        prot_free(bulk);
        prot_free(bytes);
        prot_free(held);
    }
}

TEST(Prot, StoppedStreamDropsEveryByteAndItsPendingOutput) {
    for (bool use_eof : {false, true}) {
        protstream *s = prot_new_memory(8);
        prot_write(s, "kept", 4);
        (use_eof ? s->eof : s->error) = 1;
        EXPECT_EQ(prot_putc('x', s), -1);
        EXPECT_EQ(prot_write(s, "dropped", 7), -1);
        EXPECT_EQ(prot_flush(s), -1);
        (use_eof ? s->eof : s->error) = 0;
        EXPECT_EQ(memory_text(s), "");
        prot_free(s);
    }
}

TEST(Prot, DescriptorStreams) {
    orvtest::TempDir dir;
    const int fd = ::open(dir.file("out").c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
    protstream *s = prot_new(fd, 1);
    std::string expect;
    for (int i = 0; i < 3000; ++i) {
        prot_printf(s, "line %d\n", i);
        expect += "line " + std::to_string(i) + "\n";
    }
    prot_write(s, "tail", 4);
    prot_free(s);  // flushes, leaves the descriptor open
    EXPECT_EQ(orvtest::read_file(dir.file("out")), expect + "tail");
    EXPECT_EQ(::close(fd), 0);

    // A write that fails sets the error flag; later bytes are not stored.
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    ::close(fds[0]);
    auto old = std::signal(SIGPIPE, SIG_IGN);
    s = prot_new(fds[1], 1);
    prot_write(s, "abc", 3);
    EXPECT_EQ(prot_flush(s), -1);
    EXPECT_EQ(s->error, 1);
    EXPECT_EQ(prot_putc('x', s), -1);
    EXPECT_EQ(s->ptr, s->buf);
    prot_free(s);
    std::signal(SIGPIPE, old);
    ::close(fds[1]);
}

TEST(Prot, BadArguments) {
    EXPECT_EQ(prot_new(-1, 0), nullptr);
    EXPECT_EQ(prot_new_memory((1 << 20) + 1), nullptr);
    protstream *s = prot_new(1, 1);
    EXPECT_EQ(prot_memory_data(s, nullptr), nullptr);  // not a memory stream
    prot_free(s);
    EXPECT_EQ(retry_write(1, nullptr, 1), -1);
}

TEST(Prot, RetryWriteGoesOnThroughShortWritesAndInterrupts) {
    // Far more than a pipe holds, written while a timer signal without
    // SA_RESTART keeps interrupting the writer and the reader drains slowly.
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    std::string data(1 << 20, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i % 251);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::close(fds[0]);
        struct sigaction sa {};
        sa.sa_handler = [](int) {};
        sigaction(SIGALRM, &sa, nullptr);
        const itimerval every_ms{{0, 1000}, {0, 1000}};
        setitimer(ITIMER_REAL, &every_ms, nullptr);
        orvtest::exit_child(retry_write(fds[1], data.data(), data.size()) == static_cast<ssize_t>(data.size()) ? 0 : 1);
    }
    ::close(fds[1]);
    std::string got;
    char chunk[65536];
    for (ssize_t n; (n = ::read(fds[0], chunk, sizeof chunk)) > 0; ::usleep(500))
        got.append(chunk, static_cast<size_t>(n));
    ::close(fds[0]);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(got, data);
}

}  // namespace
