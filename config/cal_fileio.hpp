// NSPR file helpers shared by the file utilities and the profiling files.
#pragma once

#include <string>
#include <vector>

#include <prio.h>

namespace orvcfg {

// Mode for the files the family creates: the umask decides the permission
// bits, and set-id and sticky bits are never asked for.
constexpr PRIntn kCreateMode = 0777;

// The names of dir's entries, read with the given skip flags; empty when the
// directory cannot be opened. Listed whole first, so that the caller may
// delete entries while walking the list.
std::vector<std::string> list_dir(const char *dir, PRDirFlags flags) noexcept;

// Copies `size` bytes from in to out in chunks of at most 4096 bytes; false
// on a read error, a short write, or a source that ends before `size` bytes.
bool copy_bytes(PRFileDesc *in, PRFileDesc *out, PRInt64 size) noexcept;

}  // namespace orvcfg
