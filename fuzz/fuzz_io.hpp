// What the targets that read files need: one temporary directory per
// process (removed at exit), whole-file writes, and a log that stays quiet.
#pragma once

#include <orvutil/platform/config.h>
#include <orvutil/platform/zolog.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace fuzz_io {

struct TempDir {
    std::string path;
    TempDir() {
        char name[] = "/tmp/orvfuzz.XXXXXX";
        if (mkdtemp(name) == nullptr) abort();
        path = name;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
};

// The process's directory; a file name under it.
inline const std::string &dir() {
    static TempDir d;
    return d.path;
}
inline std::string file(const std::string &name) { return dir() + "/" + name; }

// The path of a file under the directory, removed so that writing it makes
// a new file: the file system forces a file truncated and written again out
// to disk at once, which would slow a run down many times.
inline std::string fresh_file(const std::string &name) {
    const std::string path = file(name);
    std::remove(path.c_str());
    return path;
}

inline void write_file(const std::string &path, const void *data, size_t size) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(static_cast<const char *>(data), static_cast<std::streamsize>(size));
    if (!out.flush()) abort();
}

// The input written to the file called name; its path.
inline std::string input_file(const std::string &name, const uint8_t *data, size_t size) {
    const std::string path = fresh_file(name);
    write_file(path, data, size);
    return path;
}

// Once per process (later calls do nothing): records below Emergency are
// dropped (a target feeds malformed input on purpose), and the default
// configuration cache reads only the given text, never a file of the
// current directory.
inline void quiet_setup(const std::string &config_text = "") {
    static bool done = false;
    if (done) return;
    done = true;
    static const char *const quiet[] = {"loglevel", "Emergency", nullptr, nullptr};
    zolog_config(0, quiet);
    write_file(file("orv.conf"), config_text.data(), config_text.size());
    config_setdefaultfile(file("orv.conf").c_str());
}

// A configuration name as the look-ups compare it.
inline std::string folded(std::string name) {
    for (char &c : name) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    return name;
}

}  // namespace fuzz_io
