/*
 * Unique 16-byte identifiers (GUIDs) and their hexadecimal forms.
 *
 * A GUID is four 32-bit values in host byte order: the time in seconds
 * (low 32 bits of time()), rand() (not seeded here), a process-wide counter
 * taken atomically, and the process id.
 */
#ifndef ORVUTIL_CAL_GUID_H
#define ORVUTIL_CAL_GUID_H

#include "orv_defs.h"

ORV_BEGIN_DECLS

/* Status of the formatters: 0, or a NULL pointer or too small a buffer. */
#define CAL_GUID_OK       0
#define CAL_GUID_E_BUFFER 1

#define CAL_GUID_SIZE 16
/* Buffer sizes the formatters need, terminator included. */
#define CAL_GUID_STRING_SIZE    33
#define CAL_GUID_STRING128_SIZE 65

/* Fills guid[0..15]; returns 0. Safe on several threads. */
ORV_API int cal_GenerateGUID(unsigned char *guid) ORV_NOEXCEPT;
/* Writes the 16 bytes as 32 lower-case hex digits and a terminator; returns
 * 1 (writing nothing) when size < 33 or buf/guid is NULL, else 0. */
ORV_API int cal_strguid(char *buf, int size, const unsigned char *guid) ORV_NOEXCEPT;
/* Writes 32 '0' digits, then the 32 digits of the GUID, and a terminator;
 * returns 1 (writing nothing) when size < 65 or buf/guid is NULL, else 0. */
ORV_API int cal_strguid_128(char *buf, int size, const unsigned char *guid) ORV_NOEXCEPT;
/* Generates a GUID and formats it with cal_strguid_128; returns its result. */
ORV_API int cal_GetGuidString(char *buf, int size) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_GUID_H */
