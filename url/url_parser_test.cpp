#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "orvtest.hpp"
#include "orvutil/url_parser.h"

namespace {

std::string str(const char *s) { return s == nullptr ? "(null)" : s; }

// Takes a malloc'ed string and frees it.
std::string take(char *s) {
    std::string out = str(s);
    std::free(s);
    return out;
}

std::string params_of(const URL *url) {
    return url->params == nullptr ? "(none)" : take(caldict_get_as_string(url->params));
}

struct ParseCase {
    const char *text;
    unsigned protocol;
    const char *user, *password, *host;
    int port;
    const char *path, *params, *extra, *remainder;
    int dirty;
    const char *rebuilt;
};

TEST(Url, ParsesIntoFields) {
    const ParseCase cases[] = {
        {"HTTP://u:p@h:8080/a/b?x=1&y=2#f", 1, "u", "p", "h", 8080, "a/b", "x=1&y=2", "#f", "", 1,
         "http://u:p@h:8080/a/b?x=1&y=2##f"},
        {"http://h/a#f", 1, "", "", "h", 0, "a", "(none)", "f", "", 1, "http://h/a#f"},
        {"http://u@h:x/p", 1, "u", "", "h", 0, "p", "(none)", "", "", 1, "http://u@h/p"},
        {"http://user:pw:x@h/p", 1, "user", "pw:x", "h", 0, "p", "(none)", "", "", 1, "http://user:pw:x@h/p"},
        {"http://h:99999999999/p", 1, "", "", "h", 0, "p", "(none)", "", "", 1, "http://h/p"},
        {"http://h:-5/p", 1, "", "", "h", -5, "p", "(none)", "", "", 1, "http://h/p"},
        {"http://h:+80x/p", 1, "", "", "h", 80, "p", "(none)", "", "", 1, "http://h:80/p"},
        {"http://h/p extra words", 1, "", "", "h", 0, "p", "(none)", "", "extra words", 1, "http://h/p"},
        {"http://h/a#", 1, "", "", "h", 0, "a#", "(none)", "", "", 1, "http://h/a#"},
        {"http://h/a#f?x=1", 1, "", "", "h", 0, "a#f", "x=1", "", "", 1, "http://h/a#f?x=1"},
        {"http://h/a?=x", 1, "", "", "h", 0, "a", "(null)", "", "", 1, "http://h/a?"},
        // No path start: the parse ends clean after the authority.
        {"http://h", 1, "", "", "h", 0, "", "(none)", "", "", 0, "http://h"},
        {"http:///a/b", 1, "", "", "localhost", 0, "", "(none)", "", "", 0, "http:///a/b"},
        {"http:x", 1, "", "", "", 0, "", "(none)", "", "", 0, "http:x"},
        {"mailto:someone", 2, "", "", "", 0, "", "(none)", "", "", 0, "mailto:someone"},
        {"zzz:abc", 0, "", "", "", 0, "", "(none)", "", "", 0, "zzz:abc"},
        {"no colon", 0, "", "", "", 0, "", "(none)", "", "colon", 0, "no"},
    };
    for (const auto &c : cases) {
        URL *url = URLCreate(c.text);
        ASSERT_NE(url, nullptr);
        EXPECT_EQ(url->protocol, c.protocol) << c.text;
        EXPECT_EQ(url->dirty, c.dirty) << c.text;
        EXPECT_EQ(str(URLGetUser(url)), c.user) << c.text;
        EXPECT_EQ(str(URLGetPassword(url)), c.password) << c.text;
        EXPECT_EQ(str(URLGetHost(url)), c.host) << c.text;
        EXPECT_EQ(URLGetPort(url), c.port) << c.text;
        EXPECT_EQ(str(URLGetCSID(url)), c.path) << c.text;
        EXPECT_EQ(params_of(url), c.params) << c.text;
        EXPECT_EQ(str(URLGetExtra(url)), c.extra) << c.text;
        EXPECT_EQ(str(URLGetRemainder(url)), c.remainder) << c.text;
        EXPECT_EQ(take(URLGetUrl(url)), c.rebuilt) << c.text;
        EXPECT_EQ(url->dirty, 0);
        URLFree(url);
    }
}

TEST(Url, SettersMarkDirtyAndRebuild) {
    URL *url = URLCreate("http://h/p");
    std::free(URLGetUrl(url));
    ASSERT_EQ(url->dirty, 0);
    const struct {
        std::function<void(URL *)> change;
        int dirty;
        const char *rebuilt;
    } steps[] = {
        {[](URL *u) { URLSetProtocol(u, 9), URLSetProtocol(u, 1), URLSetPort(u, 0); }, 0, "http://h/p"},
        {[](URL *u) { URLSetPort(u, 8080); }, 1, "http://h:8080/p"},
        {[](URL *u) { URLSetProtocol(u, 8); }, 1, "ftp://h:8080/p"},
        {[](URL *u) { URLSetPassword(u, "pw"); }, 1, "ftp://:pw@h:8080/p"},
        {[](URL *u) { URLSetUser(u, "me"); }, 1, "ftp://me:pw@h:8080/p"},
        {[](URL *u) { URLSetPassword(u, nullptr); }, 1, "ftp://me@h:8080/p"},
        {[](URL *u) { URLSetHost(u, u->host); }, 1, "ftp://me@h:8080/p"},
        {[](URL *u) { URLSetCSID(u, "dir/f"), URLSetExtra(u, "top"); }, 1, "ftp://me@h:8080/dir/f#top"},
        {[](URL *u) { URLSetParams(u, caldict_create_from_string("a=1", '&')); }, 1, "ftp://me@h:8080/dir/f?a=1#top"},
        {[](URL *u) { URLSetParams(u, nullptr); }, 1, "ftp://me@h:8080/dir/f#top"},
    };
    for (const auto &s : steps) {
        s.change(url);
        EXPECT_EQ(url->dirty, s.dirty) << s.rebuilt;
        EXPECT_EQ(take(URLGetUrl(url)), s.rebuilt);
    }
    EXPECT_STREQ(URLGetProtocolString(url), "ftp");
    URLFree(url);
}

TEST(Url, CopyLeavesTextUserAndPasswordUnset) {
    URL *url = URLCreate("http://u:p@h:8/a?x=1#f tail");
    url->spare = 7;
    URL *copy = URLCopy(url);
    EXPECT_EQ(copy->text, nullptr);
    EXPECT_EQ(copy->user, nullptr);
    EXPECT_EQ(copy->password, nullptr);
    EXPECT_NE(copy->params, url->params);
    EXPECT_STREQ(copy->remainder, "tail");
    EXPECT_EQ(copy->spare, 7);
    EXPECT_EQ(copy->dirty, 1);
    EXPECT_EQ(take(URLGetUrl(copy)), "http://h:8/a?x=1##f");
    URLFree(url);
    URLFree(copy);
}

TEST(Url, PathPieces) {
    const struct {
        const char *path, *dir, *getPath, *csidPath, *afterSetPath;
    } cases[] = {
        {"a/b/c.ics", "x/y", "a/b/", "a", "x/y/c.ics"},
        {"file.ics", "x/", "", "", "x/file.ics"},
        {"a/", "", "a/", "a", "/"},
        {"", "x", "", "", ""},
    };
    for (const auto &c : cases) {
        URL *url = URLCreate("http://h/");
        URLSetCSID(url, c.path);
        EXPECT_EQ(take(URLGetPath(url)), c.getPath) << c.path;
        EXPECT_EQ(take(CSIDPath(url)), c.csidPath) << c.path;
        url->dirty = 0;
        URLSetPath(url, c.dir);
        EXPECT_EQ(url->dirty, 0);
        EXPECT_STREQ(url->path, c.afterSetPath) << c.path;
        URLFree(url);
    }
}

TEST(Url, LocalFiles) {
    const struct {
        const char *text, *local;
    } cases[] = {
        {"file:///C|/x", "C:/x"},
        {"file://localhost/etc/x", "/etc/x"},
        {"FILE://LOCALHOST/etc/x", "/etc/x"},
        {"file:////srv/x", "//srv/x"},
        {"capi://cal/x", "/cal/x"},
        {"ftp://h/x", ""},
        {"/var/x", "/var/x"},
        {"file://", "/"},
        {"file:///", "/"},
    };
    for (const auto &c : cases) {
        URL *url = URLCreate(c.text);
        EXPECT_EQ(IsLocalFile(url), c.text[0] == '/');
        EXPECT_EQ(take(ToLocalFile(url)), c.local) << c.text;
        URLFree(url);
    }
}

TEST(Url, ResourcesResolveAgainstTheCurrentDirectory) {
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    URL *url = URLCreate("resource://data/f.txt");
    const auto run = orvtest::capture_output([url] { return take(ToLocalFile(url)); });
    const std::string &local = run.value;
    const std::string &printed = run.out;
    // The absolute directory behind "file:///" leaves a doubled slash.
    EXPECT_EQ(local, std::string("/") + cwd + "/data/f.txt");
    EXPECT_NE(printed.find("RESOURCE name " + std::string(cwd) + "\n"), std::string::npos) << printed;
    EXPECT_NE(printed.find(std::string("[") + cwd + "\n] " + std::to_string(strlen(cwd) + 1)), std::string::npos);
    EXPECT_STREQ(url->text, "resource://data/f.txt");
    URLFree(url);
}

TEST(Url, FileCharacterConversions) {
    char text[] = "C:\\dir\\f|x";
    ConvertToURLFileChars(text);
    EXPECT_STREQ(text, "C|/dir/f|x");
    ConvertToFileChars(text);
    EXPECT_STREQ(text, "C:/dir/f:x");

    URL *url = URLCreate("file:///C|/x");
    URLSetCSID(url, "C:\\a");
    ResolveFileURL(url);
    EXPECT_STREQ(url->path, "C:/a");
    URLFree(url);
}

}  // namespace
