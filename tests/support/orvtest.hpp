// Test helpers shared by every test program.
#pragma once

#include <mutex>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace orvtest {

// A fresh directory under $TMPDIR (or /tmp), removed with its contents on
// destruction.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    // path() + "/" + name
    std::string file(const std::string &name) const;

  private:
    std::string path_;
};

// Sets (or with nullptr unsets) an environment variable for the scope and
// restores the old value after. For TZ it also calls tzset().
class ScopedEnv {
  public:
    ScopedEnv(const char *name, const char *value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv &) = delete;
    ScopedEnv &operator=(const ScopedEnv &) = delete;

  private:
    std::string name_;
    std::string old_;
    bool had_old_;
};

// One record seen by the logging facility.
struct LogRecord {
    int handle;
    int level;
    std::string message;
};

// Captures every zolog record (whatever the level threshold) while alive.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;
    std::vector<LogRecord> records() const;
    // True when some record has this level and contains the text.
    bool contains(int level, const std::string &text) const;
    void clear();

  private:
    static void hook(void *arg, int handle, int level, const char *message);
    mutable std::mutex mutex_;
    std::vector<LogRecord> records_;
};

// What the process writes to standard output and standard error while the
// object lives, caught at the descriptor level so that NSPR's writes are
// caught as well as stdio's. out() and err() flush stdio and give all so far.
// Test failures reported meanwhile would be caught too: check afterwards.
class OutputCapture {
  public:
    OutputCapture();
    ~OutputCapture();
    OutputCapture(const OutputCapture &) = delete;
    OutputCapture &operator=(const OutputCapture &) = delete;
    std::string out() const;
    std::string err() const;

  private:
    struct Redirect {
        int fd;     // the descriptor captured
        int saved;  // its original, restored at the end
        int file;   // the temporary file that receives it
    };
    static Redirect start(int fd);
    static std::string text(const Redirect &r);
    static void stop(const Redirect &r);
    Redirect out_;
    Redirect err_;
};

// The result of f() and what it wrote to standard output and error.
template <class F>
struct Captured {
    std::invoke_result_t<F> value;
    std::string out;
    std::string err;
};

template <class F>
Captured<F> capture_output(F f) {
    OutputCapture capture;
    auto value = f();
    return Captured<F>{std::move(value), capture.out(), capture.err()};
}

// Whole-file read and write helpers; read returns "" for a missing file.
std::string read_file(const std::string &path);
void write_file(const std::string &path, const std::string &content);
bool file_exists(const std::string &path);

}  // namespace orvtest
