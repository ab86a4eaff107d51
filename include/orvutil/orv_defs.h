/*
 * Common declarations for every orvutil header: the export attribute,
 * the C linkage block and the no-throw marker of the C ABI.
 */
#ifndef ORVUTIL_ORV_DEFS_H
#define ORVUTIL_ORV_DEFS_H

/* Every exported function and datum carries ORV_API; everything else in the
 * libraries is hidden. */
#if defined(__GNUC__)
#define ORV_API __attribute__((visibility("default")))
#else
#define ORV_API
#endif

/* Exported functions never let a C++ exception escape. */
#ifdef __cplusplus
#define ORV_NOEXCEPT    noexcept
#define ORV_BEGIN_DECLS extern "C" {
#define ORV_END_DECLS   }
#else
#define ORV_NOEXCEPT
#define ORV_BEGIN_DECLS
#define ORV_END_DECLS
#endif

#if defined(__GNUC__)
#define ORV_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define ORV_PRINTF(fmt, args)
#endif

#endif /* ORVUTIL_ORV_DEFS_H */
