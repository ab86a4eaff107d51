// File helpers shared inside the libraries.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>
#include <cstddef>
#include <string>
#include <string_view>

namespace orv {

// Writes all n bytes, retrying short writes and EINTR. 0, or -1 with errno
// set on failure (EIO when a write accepts nothing).
int write_all(int fd, const void *buf, size_t n);
// Creates a directory and its parents (mode 0755); true when it exists after.
bool make_dirs(const std::string &path);
// The file a replacement of path must land on: path with its symbolic links
// followed (a dangling link gives the name it points to), so that replacing
// a link's target leaves the link in place.
std::string follow_links(const std::string &path);
// Creates temp, truncated, for writing the replacement of target: with the
// target's permission bits, and its owner and group where the process may
// set them, so that a rename over target widens nothing (mode 0666 less the
// umask when target does not exist). Returns the descriptor, or -1 with
// errno set.
int open_replacement(const std::string &temp, const std::string &target);
// Replaces path's content with data: written to "<file>.tmp.<thread id>"
// beside the file that path leads to (see follow_links), forced to disk and
// renamed over it, so a crash leaves the old or the new content. 0, or -1
// with errno set and the old file unchanged.
int replace_file(const std::string &path, std::string_view data);
// Reads a whole file into *out; false when it cannot be opened or read.
// With st, also hands back the file's status as it was opened.
bool read_file(const std::string &path, std::string *out, struct stat *st = nullptr);

}  // namespace orv
