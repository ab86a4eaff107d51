/* Linked into every executable of a clang build with sanitizers. The
 * libraries share clang's sanitizer runtime (-shared-libsan), and the loader
 * lists libstdc++ before it; libstdc++ does not intercept allocation, so the
 * runtime's link-order check only stops a sound program from starting. */
__attribute__((visibility("default"))) const char *__asan_default_options(void);

const char *__asan_default_options(void) { return "verify_asan_link_order=0"; }
