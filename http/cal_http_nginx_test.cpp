// The client against a real web server: small and large files read in lines
// and in blocks, a query, extra header lines and a missing file.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "orvnginx.hpp"
#include "orvutil/cal_http.h"

namespace {

TEST(HttpNginx, Responses) {
    orvtest::Nginx web;
    ASSERT_TRUE(web.started()) << "nginx (Debian package nginx-light) must be installed";
    // 1 MiB of lines from empty to three times the buffer, CR LF ended.
    std::string big;
    for (int i = 0; big.size() < (1u << 20); ++i)
        big += std::string(i * 37 % 3100, static_cast<char>('a' + i % 26)) + "\r\n";
    big.resize((1u << 20) - 1);
    big += '\n';
    orvtest::write_file(web.root() + "/big.txt", big);
    orvtest::write_file(web.root() + "/small.txt", "hello\n");
    const struct {
        const char *path, *query, *headers;
        bool blocks;
        int size;
        const char *status;  // "" and body "": not checked
        std::string body;
    } cases[] = {
        {"/small.txt", nullptr, nullptr, false, 256, "200", "hello\n"},
        {"/big.txt", "", nullptr, false, 700, "200", big},
        {"/big.txt", nullptr, nullptr, true, 4096, "200", big},
        {"/small.txt", nullptr, nullptr, true, 10, "", ""},
        {"/echo", "?q=1&r=2", "X-A: 1\nX-B: two words", false, 64, "200", "args=q=1&r=2 a=1 b=two words\n"},
        {"/missing", nullptr, "", false, 64, "404", ""},
    };
    calhttp_SetGlobalTimeout(10);
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.path) + " " + std::to_string(c.size));
        calhttp_conn *conn = nullptr;
        ASSERT_EQ(0, calhttp_Open("localhost", static_cast<unsigned>(web.port()), &conn, nullptr));
        ASSERT_EQ(0, c.headers ? SSO_calhttp_SendGet(conn, c.path, c.query, c.headers)
                               : calhttp_SendGet(conn, c.path, c.query));
        std::string all;
        std::vector<char> out(static_cast<size_t>(c.size));
        while ((c.blocks ? calhttp_ReadRaw : calhttp_ReadGet)(conn, out.data(), c.size) == 0) {
            all += out.data();
            // Block reads leave the read pointer behind the bytes still pending.
            EXPECT_TRUE(!c.blocks || conn->readPtr == conn->buffer + conn->pending);
        }
        EXPECT_EQ(0, conn->respOpen);
        EXPECT_EQ(0u, all.find(std::string("HTTP/1.1 ") + c.status)) << all.substr(0, 40);
        size_t body = all.find("\r\n\r\n");
        EXPECT_TRUE(c.body.empty() || (body != std::string::npos && all.substr(body + 4) == c.body));
        calhttp_Close(&conn);
    }
}

}  // namespace
