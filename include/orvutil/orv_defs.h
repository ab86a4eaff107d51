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

/* The status of the identifier functions and of the default-domain look-up
 * for a bad argument or an invalid identifier (the 32-bit pattern
 * 0x80070057), and for memory running out (0x8007000E): one spelling for
 * every family that uses them. */
#define ORV_E_INVALIDARG  ((int)0x80070057u)
#define ORV_E_OUTOFMEMORY ((int)0x8007000Eu)

#if defined(__GNUC__)
#define ORV_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define ORV_PRINTF(fmt, args)
#endif

#endif /* ORVUTIL_ORV_DEFS_H */
