// File helpers shared inside the libraries.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>
#include <cstddef>
#include <string>

namespace orv {

// Writes all n bytes, retrying short writes and EINTR. 0, or -1 with errno
// set on failure (EIO when a write accepts nothing).
int write_all(int fd, const void *buf, size_t n);
// Creates a directory and its parents (mode 0755); true when it exists after.
bool make_dirs(const std::string &path);
// Reads a whole file into *out; false when it cannot be opened or read.
// With st, also hands back the file's status as it was opened.
bool read_file(const std::string &path, std::string *out, struct stat *st = nullptr);

}  // namespace orv
