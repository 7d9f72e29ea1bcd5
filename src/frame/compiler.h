// What differs between compilers, in one place.
#ifndef ZEBDC_FRAME_COMPILER_H
#define ZEBDC_FRAME_COMPILER_H

#if defined(_MSC_VER) && !defined(__clang__)
#define ZEBDC_ALWAYS_INLINE __forceinline
#define ZEBDC_NOINLINE __declspec(noinline)
#define ZEBDC_RESTRICT __restrict
#else
#define ZEBDC_ALWAYS_INLINE inline __attribute__((always_inline))
#define ZEBDC_NOINLINE __attribute__((noinline))
#define ZEBDC_RESTRICT __restrict__
#endif

namespace zebdc {

// The same value, of which the compiler then knows nothing: it keeps a choice by masks as it is
// written instead of making a branch of it.
template <class T>
ZEBDC_ALWAYS_INLINE T opaque(T value) {
#if !defined(_MSC_VER) || defined(__clang__)
  __asm__("" : "+r"(value));
#endif
  return value;
}

}  // namespace zebdc

#endif
