// Copies of matches: length bytes at dst from distance bytes before it, where the two may overlap
// and the bytes then repeat.
#ifndef ZEBDC_KERNELS_MATCH_COPY_H
#define ZEBDC_KERNELS_MATCH_COPY_H

#include <stddef.h>
#include <stdint.h>
#include <tmmintrin.h>

#include <array>

#include "frame/compiler.h"

namespace zebdc::kernels {

// What a wide copy may write behind its length.
constexpr size_t wideCopyExcess = 16;

// Row d spreads the first d of 16 bytes over all of them.
constexpr std::array<std::array<uint8_t, 16>, 16> makeSpreads() {
  std::array<std::array<uint8_t, 16>, 16> rows{};
  for (size_t period = 1; period < 16; ++period) {
    for (size_t i = 0; i < 16; ++i) rows[period][i] = static_cast<uint8_t>(i % period);
  }
  return rows;
}

alignas(64) inline constexpr std::array<std::array<uint8_t, 16>, 16> spreads = makeSpreads();

ZEBDC_ALWAYS_INLINE __m128i load16(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

ZEBDC_ALWAYS_INLINE void store16(uint8_t* p, __m128i bytes) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), bytes);
}

// Copies in steps of 16 bytes, at least one.
ZEBDC_ALWAYS_INLINE void copyWide(const uint8_t* src, uint8_t* dst, size_t length) {
  size_t i = 0;
  do {
    store16(dst + i, load16(src + i));
    i += 16;
  } while (i < length);
}

// Repeats the distance bytes before dst, 1 to 15 of them. Each store begins a whole number of
// periods behind the one before.
ZEBDC_ALWAYS_INLINE void repeatWide(uint8_t* dst, size_t distance, size_t length) {
  const __m128i spread = _mm_load_si128(reinterpret_cast<const __m128i*>(spreads[distance].data()));
  const __m128i pattern = _mm_shuffle_epi8(load16(dst - distance), spread);
  const size_t step = 16 - 16 % distance;
  size_t i = 0;
  do {
    store16(dst + i, pattern);
    i += step;
  } while (i < length);
}

// Reads and writes up to wideCopyExcess bytes behind the match.
//
// Tried without gain: the first 16 bytes of all distances by one shuffle, without a branch.
ZEBDC_ALWAYS_INLINE void copyMatchWide(uint8_t* dst, size_t distance, size_t length) {
  if (distance >= 16) [[likely]] {
    copyWide(dst - distance, dst, length);
  } else {
    repeatWide(dst, distance, length);
  }
}

// Touches exactly the match.
inline void copyMatchExactly(uint8_t* dst, size_t distance, size_t length) {
  size_t done = 0;
  if (length > 2 * wideCopyExcess) {
    done = length - wideCopyExcess;
    copyMatchWide(dst, distance, done);
  }
  for (; done < length; ++done) dst[done] = *(dst + done - distance);
}

}  // namespace zebdc::kernels

#endif
