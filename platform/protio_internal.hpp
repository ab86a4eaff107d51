// What the output streams need of the reading side and the TLS layer.
#pragma once

#include <sys/types.h>

#include <cstddef>

struct protstream;

namespace orv {

// Turns a freshly made stream into a reading one with an empty buffer.
void prot_make_reader(protstream *s);
// Writes all n bytes through the stream's TLS session: n, or -1.
ssize_t prot_tls_write(protstream *s, const void *buf, size_t n);
// Drops the stream's share of its TLS session (nothing without TLS).
void prot_tls_release(protstream *s);

}  // namespace orv
