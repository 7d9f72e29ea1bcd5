// What differs between compilers, in one place. "MSVC" is Microsoft's own compiler; clang-cl, which
// passes for it, has all that Clang has.
#ifndef ZEBDC_FRAME_COMPILER_H
#define ZEBDC_FRAME_COMPILER_H

#include <stdint.h>

#if defined(_MSC_VER) && !defined(__clang__)
#define ZEBDC_IS_MSVC 1
#include <intrin.h>
#else
#define ZEBDC_IS_MSVC 0
#endif

#if ZEBDC_IS_MSVC
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
// written instead of making a branch of it, and does not put the work off until the value is used.
template <class T>
ZEBDC_ALWAYS_INLINE T opaque(T value) {
#if !ZEBDC_IS_MSVC
  __asm__("" : "+r"(value));
#endif
  return value;
}

// The number of zero bits below the lowest one. The word is not 0.
ZEBDC_ALWAYS_INLINE unsigned trailingZeros(uint32_t word) {
#if ZEBDC_IS_MSVC
  unsigned long index = 0;
  _BitScanForward(&index, word);
  return index;
#else
  return static_cast<unsigned>(__builtin_ctz(word));
#endif
}

ZEBDC_ALWAYS_INLINE constexpr uint32_t byteSwapped(uint32_t word) {
#if ZEBDC_IS_MSVC
  return word >> 24 | (word >> 8 & 0xFF00) | (word << 8 & 0xFF0000) | word << 24;
#else
  return __builtin_bswap32(word);
#endif
}

ZEBDC_ALWAYS_INLINE constexpr uint64_t byteSwapped(uint64_t word) {
#if ZEBDC_IS_MSVC
  return static_cast<uint64_t>(byteSwapped(static_cast<uint32_t>(word))) << 32 |
         byteSwapped(static_cast<uint32_t>(word >> 32));
#else
  return __builtin_bswap64(word);
#endif
}

}  // namespace zebdc

#endif
