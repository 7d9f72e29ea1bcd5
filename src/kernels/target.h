// Regions of code compiled for a tier above the baseline:
//
//   ZEBDC_BEGIN_AVX2
//   namespace zebdc::kernels::avx2 { ... }
//   ZEBDC_END_TARGET
//
// All headers are included outside such regions, so that no inline function of a header is compiled
// for an instruction set that the machine may lack. Functions inside have internal linkage or live
// in the tier's own namespace, for the same reason. Plain inline bodies that are defined outside
// and marked ZEBDC_ALWAYS_INLINE may be called inside: they are then compiled for the region's
// tier. Lambdas and the functions that a class makes by itself, such as constructors for default
// member values, do not take part: keep wide registers out of them.
#ifndef ZEBDC_KERNELS_TARGET_H
#define ZEBDC_KERNELS_TARGET_H

// GCC 12 takes the registers that these headers leave undefined on purpose for mistakes.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

#define ZEBDC_SSE42_FEATURES "sse4.1,sse4.2,popcnt,pclmul"
#define ZEBDC_AVX2_FEATURES ZEBDC_SSE42_FEATURES ",avx,avx2,bmi,bmi2,lzcnt,movbe"
#define ZEBDC_VPCLMUL_FEATURES ZEBDC_AVX2_FEATURES ",vpclmulqdq"
#define ZEBDC_AVX512_FEATURES \
  ZEBDC_VPCLMUL_FEATURES      \
  ",avx512f,avx512bw,avx512dq,avx512vl,avx512vbmi,avx512vbmi2,avx512vnni"

#define ZEBDC_PRAGMA(text) _Pragma(#text)

#if defined(__clang__)
#define ZEBDC_BEGIN_TARGET(features) \
  ZEBDC_PRAGMA(clang attribute push(__attribute__((target(features))), apply_to = function))
#define ZEBDC_END_TARGET _Pragma("clang attribute pop")
#elif defined(__GNUC__)
#define ZEBDC_BEGIN_TARGET(features) _Pragma("GCC push_options") ZEBDC_PRAGMA(GCC target(features))
#define ZEBDC_END_TARGET _Pragma("GCC pop_options")
#else
#define ZEBDC_BEGIN_TARGET(features)
#define ZEBDC_END_TARGET
#endif

// Holds a vector in a register at this point. In loops that are close to the limit of the machine
// the optimiser loses: it regroups sums so that many are alive at once and some are spilled, or
// loads a vector again for each use of it.
#if defined(__GNUC__)
#define ZEBDC_PIN(vector) __asm__("" : "+v"(vector))
#else
#define ZEBDC_PIN(vector)
#endif

#define ZEBDC_BEGIN_SSE42 ZEBDC_BEGIN_TARGET(ZEBDC_SSE42_FEATURES)
#define ZEBDC_BEGIN_AVX2 ZEBDC_BEGIN_TARGET(ZEBDC_AVX2_FEATURES)
#define ZEBDC_BEGIN_VPCLMUL ZEBDC_BEGIN_TARGET(ZEBDC_VPCLMUL_FEATURES)
#define ZEBDC_BEGIN_AVX512 ZEBDC_BEGIN_TARGET(ZEBDC_AVX512_FEATURES)

#endif
