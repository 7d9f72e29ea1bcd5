/* The three functions that zebDC takes from the core library.
 *
 * The core library is a separate product; this project carries an open stand-in of it. zebDC
 * reaches these functions through dynamic linking only, so an application may put definitions of
 * its own in front of them. */
#ifndef ZEBDC_ZEBCORE_H
#define ZEBDC_ZEBCORE_H

#include <stdint.h>

#if defined(_WIN32)
#define ZEBCORE_API
#else
#define ZEBCORE_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Bits of the feature mask that zebDC reads. */
#define ZEB_CPU_SSSE3 UINT64_C(0x10)
#define ZEB_CPU_MOVBE UINT64_C(0x20)

/* The processor features that are present and enabled. zebDC asks once, when it is loaded. */
ZEBCORE_API uint64_t zebGetEnabledCpuFeatures(void);

/* A block of len bytes aligned to 64 bytes, or null when len is below 1 or memory is short. */
ZEBCORE_API void* zebMalloc(int len);

/* Releases a block of zebMalloc. Null is allowed. */
ZEBCORE_API void zebFree(void* p);

#ifdef __cplusplus
}
#endif

#endif
